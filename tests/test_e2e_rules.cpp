// test_e2e_rules.cpp - the AT server's line rules and the simulator's rule engine, without
// processes.
#include <gtest/gtest.h>

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
        {{"huawei"}, "^CMGI:", ""},
        {{}, "+CSQ", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.match);
        EXPECT_EQ(ats::build_report(c.info, c.match), c.report);
    }
    // A long answer is cut to the record's field, never beyond.
    std::vector<std::string> many(100, "+CPBR: 1,\"13800000000\",129,\"NAME\"");
    EXPECT_EQ(ats::build_report(many, "+CPBR").size(), ats::kReportMax);
}

TEST(ServerLines, RequestsBecomeModemBytes) {
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
        {"body to len", "AT+CMGS=3\r0011TAIL", 14, true, "AT+CMGS=3\r", std::string("0011\x1a")},
        {"raw bytes by len", std::string("AT^CPBW=1,\"1\",129,\"\0A\",1", 24), 24, true,
         std::string("AT^CPBW=1,\"1\",129,\"\0A\",1\r", 25), ""},
        {"control character", "AT+C\x02SQ", 0, false, "", ""},
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
        {"on AT\n  body 0\n", "line 2: \"body\" or \"body BYTES\""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        std::string error;
        EXPECT_FALSE(sim::Scenario::parse(c.text, &error));
        EXPECT_EQ(error.rfind(c.error, 0), 0u) << error;
    }
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
  line +RAW: $bodyhex
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
