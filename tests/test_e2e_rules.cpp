// test_e2e_rules.cpp - the AT server's line rules and the simulator's rule engine, without
// processes.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "line_rules.h"
#include "report_names.h"
#include "scenario.h"

namespace {

msg_q make(std::string_view cmd, std::string_view match = "", int32_t len = 0) {
    msg_q m{};
    std::memcpy(m.snd_rcv_msg.smsg.at_cmd_str, cmd.data(), std::min(cmd.size(), sizeof m.snd_rcv_msg.smsg.at_cmd_str));
    std::memcpy(m.snd_rcv_msg.smsg.at_match_ok_str, match.data(), match.size());
    m.snd_rcv_msg.smsg.len = len;
    return m;
}

}  // namespace

TEST(ServerLines, FinalResultCodes) {
    const std::pair<const char*, int> cases[] = {  // -100: not a final result
        {"OK", AT_CMD_OK},                      {"OK ", AT_CMD_OK},
        {"ERROR", AT_ERROR},                    {"ERRORS", -100},
        {"+CME ERROR: 10", AT_CME_ERROR},       {"+CME ERROR: SIM not inserted", AT_CME_ERROR},
        {"+CMS ERROR: 321", AT_CMS_ERROR},      {"+CME ERROR", -100},
        {"NO CARRIER", AT_NO_CARRIER},          {"NO ANSWER", AT_NO_ANSWER},
        {"BUSY", AT_BUSY_R},                    {"NO DIALTONE", AT_NO_DIALTONE_R},
        {"CONNECT", AT_CONNECT_R},              {"CONNECT 150000000", AT_CONNECT_R},
        {"CONNECTED", -100},                    {"OKAY", -100},
        {"COMMAND NOT SUPPORT", AT_CMD_NOT_SUPPORT}, {"TOO MANY PARAMETERS", AT_TOO_MANY_PARAMS},
        {"+CSQ: 20,99", -100},
    };
    for (const auto& [line, result] : cases) EXPECT_EQ(ats::final_result(line).value_or(-100), result) << line;
}

TEST(ServerLines, NamesAndWhoALineAnswers) {
    EXPECT_EQ(ats::line_name("+CREG: 1,5"), "+CREG");
    EXPECT_EQ(ats::line_name("RING"), "RING");
    EXPECT_EQ(ats::command_name("AT+CSQ"), "+CSQ");
    EXPECT_EQ(ats::command_name("at^prefroam?"), "^PREFROAM");
    EXPECT_EQ(ats::command_name("AT+CMGS=24"), "+CMGS");
    EXPECT_EQ(ats::command_name("^APCONNST"), "");
    // Codes and passwords never reach the server's trace.
    EXPECT_EQ(ats::traced_line("AT+CPIN=1234"), "AT+CPIN=***");
    EXPECT_EQ(ats::traced_line("at^ndisdup=1,1,\"apn\",\"user\",\"secret\",2"), "at^ndisdup=***");
    EXPECT_EQ(ats::traced_line("AT+CPIN?"), "AT+CPIN?");
    EXPECT_EQ(ats::traced_line("AT+CFUN=1"), "AT+CFUN=1");
    struct Case { const char* line; const char* cmd; const char* match; bool answers; } cases[] = {
        {"+CREG: 0,1", "+CREG", "+CREG:", true},
        {"+creg: 0,1", "+CREG", "", true},
        {"^RSSI: 17", "+CSQ", "+CSQ", false},
        {"^RSSI: 17", "^RSSI", "", true},
        {"^SYSINFOEX: 2,3", "^SYSINFOEX", "", true},
        {"prefroam: 1", "^PREFROAM", "prefroam:", true},
        {"^CMGI: 1,2", "+CGMI", "^CMGI:", true},
        {"+CMTI: \"SM\",3", "+CSQ", "+CSQ", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        EXPECT_EQ(ats::answers_command(c.line, c.cmd, c.match), c.answers);
    }
}

TEST(ServerLines, ReportTextTakesMatchingLinesAndTheirBodies) {
    struct Case { std::vector<std::string> info; const char* match; std::string report; } cases[] = {
        {{"+CSQ: 20,99"}, "+CSQ", "+CSQ: 20,99"},
        {{"Manufacturer: X", "IMEI: 1"}, "", "Manufacturer: X\r\nIMEI: 1"},
        {{"Manufacturer: X", "IMEI: 1"}, "IMEI", "IMEI: 1"},
        {{"+CMGR: 0,,23", "0891AB"}, "+CMGR:", "+CMGR: 0,,23\r\n0891AB"},
        {{"+CMGL: 1,0,,3", "AA", "+CMGL: 2,1,,3", "BB"}, "+CMGL:", "+CMGL: 1,0,,3\r\nAA\r\n+CMGL: 2,1,,3\r\nBB"},
        {{"^NDISSTATQRY: 1,,,\"IPV4\"", "^OTHER: 3", "0"}, "^NDISSTATQRY", "^NDISSTATQRY: 1,,,\"IPV4\""},
        {{"Example Modems"}, "^CMGI:", ""},
        {{}, "+CSQ", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.match);
        EXPECT_EQ(ats::build_report(c.info, c.match), c.report);
    }
    // A long answer is cut to the record's field, never beyond, however long the modem goes on.
    std::vector<std::string> many(100, "+CPBR: 1,\"13800000000\",129,\"NAME\"");
    EXPECT_EQ(ats::build_report(many, "+CPBR").size(), ats::kReportMax);
    ats::ReportBuilder flood("+CSQ");
    for (int i = 0; i < 100000; ++i) flood.add("+CSQ: 1,1");
    EXPECT_EQ(flood.text().size(), ats::kReportMax);
}

TEST(ServerLines, RequestsBecomeModemBytes) {
    const std::string ucs2("\0A\0\r", 4);  // a name whose second character holds a CR byte
    const std::string cpbw = "AT^CPBW=1,\"1\",129,\"" + ucs2 + "\",1";
    std::string hcmgs = "AT^HCMGS=\"123\",129\r" + std::string(256, '\0');
    hcmgs[19] = 'H';
    hcmgs[21] = '\x1a';  // a raw body byte, not its end
    const std::string hcmgw = "AT^HCMGW=\"1\",129,1,0,0,0,0,26,1,2,3,4,5\r" + std::string(162, 'w');
    struct Case {
        const char* name;
        std::string cmd;
        int32_t len;
        bool ok;
        std::string line;
        std::string body;
    } cases[] = {
        {"plain", "AT+CSQ", 0, true, "AT+CSQ\r", ""},
        {"bare AT", "AT", 0, true, "AT\r", ""},
        {"own terminator", "AT+CSQ\r", 0, true, "AT+CSQ\r", ""},
        {"body to Ctrl-Z", std::string("AT+CMGS=3\r0011\x1a" "junk"), 0, true, "AT+CMGS=3\r", "0011\x1a"},
        {"body to NUL", "AT+CMGS=3\r0011", 0, true, "AT+CMGS=3\r", "0011\x1a"},
        {"Ctrl-Z past the NUL", std::string("AT+CMGS=3\r0011\0\x1a", 17), 0, true, "AT+CMGS=3\r", "0011\x1a"},
        {"body to len", "AT+CMGS=3\r0011TAIL", 14, true, "AT+CMGS=3\r", std::string("0011\x1a")},
        {"len keeps NULs in a body", std::string("AT+CMGS=3\r00\0" "1", 14), 14, true, "AT+CMGS=3\r",
         std::string("00\0" "1\x1a", 5)},
        {"raw bytes by len", std::string("AT^CPBW=1,\"1\",129,\"\0A\",1", 24), 24, true,
         std::string("AT^CPBW=1,\"1\",129,\"\0A\",1\r", 25), ""},
        {"CR inside quotes is a name byte", cpbw, static_cast<int32_t>(cpbw.size()), true, cpbw + "\r", ""},
        {"fixed vendor body, NULs and Ctrl-Z kept", hcmgs, 0, true, "AT^HCMGS=\"123\",129\r", hcmgs.substr(19)},
        {"fixed vendor body of 162", hcmgw + "junk", 0, true, hcmgw.substr(0, hcmgw.size() - 162),
         std::string(162, 'w')},
        {"fixed vendor body bounded by len", hcmgw, static_cast<int32_t>(hcmgw.size() - 2), true,
         hcmgw.substr(0, hcmgw.size() - 162), std::string(160, 'w')},
        {"fixed vendor body past the field", "AT^HCMGS=\"" + std::string(400, '1') + "\",129\r", 0, false, "", ""},
        {"prompting command without body", "AT+CMGS=3\r", 0, true, "AT+CMGS=3\r", ""},
        {"control character", "AT+C\x02SQ", 0, false, "", ""},
        {"CR in an open quote", "AT+CUSD=1,\"*1\r#\"", 0, false, "", ""},
        {"len too big", "AT", AT_CMD_STR_LEN + 1, false, "", ""},
        {"negative len", "AT", -1, false, "", ""},
        {"no NUL", std::string(AT_CMD_STR_LEN, 'A'), 0, false, "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string why;
        const auto got = ats::decode_request(make(c.cmd, "", c.len), &why);
        ASSERT_EQ(got.has_value(), c.ok) << why;
        if (!got) continue;
        EXPECT_EQ(got->line, c.line);
        EXPECT_EQ(got->body, c.body);
    }
    // value() throws, and the test fails, when a request is refused.
    EXPECT_TRUE(ats::decode_request(make(""), nullptr).value().empty);
    EXPECT_TRUE(ats::decode_request(make("^APCONNST"), nullptr).value().bare);
    EXPECT_FALSE(ats::decode_request(make("AT"), nullptr).value().bare);
}

TEST(ServerLines, OnlyWholeRecordsAreRequests) {
    msg_q m = make("AT+CSQ", "+CSQ");
    m.time_out = 7;
    const std::string text(reinterpret_cast<const char*>(&m) + 4, ats::kRecordText);
    struct Case { const char* name; long type; std::string text; bool ok; } cases[] = {
        {"a record", 42, text, true},
        {"short", 42, text.substr(0, 100), false},
        {"one byte long", 42, text + "x", false},
        {"type zero", 0, text, false},
        {"negative type", -42, text, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const auto got = ats::request_record(c.type, c.text);
        ASSERT_EQ(got.has_value(), c.ok);
        if (!got) continue;
        EXPECT_EQ(got->client_id, 42);
        EXPECT_EQ(got->time_out, 7);
        EXPECT_STREQ(got->snd_rcv_msg.smsg.at_cmd_str, "AT+CSQ");
    }
    const std::pair<int32_t, int> time_outs[] = {{0, 30}, {-5, 30}, {5, 5}, {240, 240}, {241, 240}, {INT32_MAX, 240}};
    for (const auto& [given, used] : time_outs) EXPECT_EQ(ats::effective_time_out(given), used) << given;
}

TEST(ServerLines, GarbageBytesAreDropped) {
    std::string bytes("\r\n+CSQ:\x00 2\x01" "0,99\x7f\r\n", 18);
    EXPECT_EQ(ats::drop_garbage(bytes), 3u);
    EXPECT_EQ(bytes, "\r\n+CSQ: 20,99\r\n");
}

TEST(ServerLines, ReportNamesComeFromTheLibraryTable) {
    const auto& names = ats::report_names();
    for (const char* n : {"^RSSI", "^SMMEMFULL", "RING", "^ECLSTAT", "^APCONNST", "^NDISSTAT"})
        EXPECT_NE(std::find(names.begin(), names.end(), n), names.end()) << n;
    EXPECT_EQ(std::find(names.begin(), names.end(), "+CSQ"), names.end());
    EXPECT_TRUE(ats::report_has_body("+CMT"));
    EXPECT_FALSE(ats::report_has_body("^RSSI"));
}

// ---- simulator ------------------------------------------------------------------------------

TEST(SimScenario, MalformedFilesAreRefusedWithTheirLine) {
    struct Case { const char* text; const char* error; } cases[] = {
        {"on AT(\n", "line 1: bad pattern"},
        {"line OK\n", "line 1: \"line\" outside a rule"},
        {"on AT\n  frobnicate\n", "line 2: unknown word"},
        {"store s 5 1\n", "line 1: \"store NAME FIRST LAST\""},
        {"on AT\n  if has nostore 1\n", "line 2: guard on an undeclared store"},
        {"on AT\n  if a ~ b\n", "line 2: unknown comparison"},
        {"every x ^RSSI: 1\n", "line 1: \"every MS LINE\""},
        {"include missing.scn\n", "line 1: cannot include missing.scn"},
        {"include bad.scn\n", "bad.scn line 2: unknown word"},
        {"on AT\n  body 0\n", "line 2: \"body [BYTES]\""},
        {"mask (\n", "line 1: bad mask"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        std::string error;
        const sim::SourceLoader files = [](const std::string& name) -> std::optional<std::string> {
            if (name == "bad.scn") return "on AT\n  nonsense\n";
            return std::nullopt;
        };
        EXPECT_FALSE(sim::Scenario::parse(c.text, &error, files));
        EXPECT_EQ(error.rfind(c.error, 0), 0u) << error;
    }
    std::string error;
    EXPECT_TRUE(sim::Scenario::builtin("default.scn", &error)) << error;
}

// Events, functions, fixed-size bodies, includes and masks: what the families' state machines
// are made of.
TEST(SimScenario, EventsFunctionsAndRawBodies) {
    const sim::SourceLoader files = [](const std::string& name) -> std::optional<std::string> {
        if (name == "calls.scn") return "on @ring (.*)\n  set caller $1\n  line RING\n  after ${delay} @ring_again\n";
        return std::nullopt;
    };
    std::string error;
    auto sc = sim::Scenario::parse(R"scn(
var delay 40
var n 0
mask AT\+SECRET="([^"]*)"
include calls.scn
on @ring_again
  add n 1
  line +CLIP: "${caller}",145
on AT\+SUM=(\d+),(\d+)
  set sum_$1 ${=add $1 $2}
  line +SUM: ${sum_$1},${=hex ${=mul $1 $2} 4}
on AT\+RAW
  body 4
  line +RAW: ${=bodylen},${=bodyhex}
on AT\+DROP
  hangup 250
on AT\+WAVE
  line +WAVE: ${=wave 10 20 1000}
)scn",
                                   &error, files);
    ASSERT_TRUE(sc) << error;
    sim::Engine e(std::move(*sc));
    sim::Response ring = e.event("@ring +15550100");
    EXPECT_EQ(ring.lines, std::vector<std::string>{"RING"});
    ASSERT_EQ(ring.after.size(), 1u);
    EXPECT_EQ(ring.after[0], std::make_pair(40, std::string("@ring_again")));
    EXPECT_EQ(e.event(ring.after[0].second).lines, std::vector<std::string>{"+CLIP: \"+15550100\",145"});
    EXPECT_EQ(e.var("n"), "1");
    EXPECT_TRUE(e.event("@nothing").lines.empty());
    EXPECT_EQ(e.command("@ring 1").final, "ERROR");  // events never come from the port
    EXPECT_EQ(e.command("AT+SUM=3,4").lines, std::vector<std::string>{"+SUM: 7,000C"});
    EXPECT_EQ(e.var("sum_3"), "7");
    sim::Response raw = e.command("AT+RAW");
    ASSERT_TRUE(raw.prompt);
    EXPECT_EQ(raw.body_bytes, 4);
    EXPECT_EQ(e.body(std::string("\0A\x1a\0", 4), false).lines, std::vector<std::string>{"+RAW: 4,00411A00"});
    EXPECT_EQ(e.command("AT+DROP").hangup_ms, 250);
    const int wave = std::stoi(e.command("AT+WAVE").lines.at(0).substr(7));
    EXPECT_GE(wave, 10);
    EXPECT_LE(wave, 20);
    EXPECT_EQ(e.masked("AT+SECRET=\"1234\""), "AT+SECRET=\"***\"");
    EXPECT_EQ(e.masked("AT+OTHER=\"1234\""), "AT+OTHER=\"1234\"");
}

TEST(SimScenario, GuardsVariablesAndStoresDriveTheAnswers) {
    std::string error;
    auto sc = sim::Scenario::parse(R"(
var left 2
store box 1 2
put box 1 v=first
default +CME ERROR: 4
on AT\+TRY=(\d+)
  if $1 == 7
  set left 2
on AT\+TRY=(\d+)
  if ${left} <= 1
  set left 0
  final +CME ERROR: 16
on AT\+TRY=(\d+)
  add left -1
  final +CME ERROR: 16
on AT\+LEFT\?
  line +LEFT: ${left}
on AT\+PUT
  body
  if !free box
  final +CMS ERROR: 322
on AT\+PUT
  body
  put box new v=$body
  line +PUT: ${new}
on AT\+GET=(\d+)
  if has box $1
  line ${box[$1].v}
  delay 20
on AT\+LIST
  each box ${key}:${.v}
on AT\+DEL=(\d+)
  del box $1
on AT\+RAW
  body 3
  line +RAW: ${=bodyhex}
)",
                                      &error);
    ASSERT_TRUE(sc) << error;
    sim::Engine e(std::move(*sc));
    // A step with a body sends it after the prompt.
    struct Step { const char* cmd; const char* body; std::vector<std::string> lines; const char* final; } steps[] = {
        {"AT+TRY=1", nullptr, {}, "+CME ERROR: 16"},
        {"AT+LEFT?", nullptr, {"+LEFT: 1"}, "OK"},
        {"at+try=2", nullptr, {}, "+CME ERROR: 16"},
        {"AT+LEFT?", nullptr, {"+LEFT: 0"}, "OK"},
        {"AT+TRY=7", nullptr, {}, "OK"},
        {"AT+LEFT?", nullptr, {"+LEFT: 2"}, "OK"},
        {"AT+PUT", "hello", {"+PUT: 2"}, "OK"},
        {"AT+PUT", "more", {}, "+CMS ERROR: 322"},
        {"AT+GET=2", nullptr, {"hello"}, "OK"},
        {"AT+LIST", nullptr, {"1:first", "2:hello"}, "OK"},
        {"AT+DEL=1", nullptr, {}, "OK"},
        {"AT+GET=1", nullptr, {}, "+CME ERROR: 4"},
        {"AT+LIST", nullptr, {"2:hello"}, "OK"},
        {"AT+UNKNOWN", nullptr, {}, "+CME ERROR: 4"},
    };
    for (const Step& s : steps) {
        SCOPED_TRACE(s.cmd);
        sim::Response r = e.command(s.cmd);
        if (s.body) {
            ASSERT_TRUE(r.prompt);
            r = e.body(s.body, false);
        }
        EXPECT_FALSE(r.prompt);
        EXPECT_EQ(r.lines, s.lines);
        EXPECT_EQ(r.final, s.final);
    }
    EXPECT_EQ(e.command("AT+GET=2").delay_ms, 20);
    // ESC cancels a body: nothing is stored.
    e.command("AT+DEL=2");
    ASSERT_TRUE(e.command("AT+PUT").prompt);
    EXPECT_TRUE(e.body("dropped", true).lines.empty());
    EXPECT_EQ(e.command("AT+LIST").lines, std::vector<std::string>{});
    // A fixed-size body is announced with its size and read as raw bytes.
    const sim::Response raw = e.command("AT+RAW");
    ASSERT_TRUE(raw.prompt);
    EXPECT_EQ(raw.body_bytes, 3u);
    EXPECT_EQ(e.body(std::string("\0\x1a\xff", 3), false).lines, std::vector<std::string>{"+RAW: 001AFF"});
    // Echo is built in.
    EXPECT_TRUE(e.echo());
    EXPECT_EQ(e.command("ATE0").final, "OK");
    EXPECT_FALSE(e.echo());
}
