// test_atctl.cpp - atctl as a separate process against the scripted fake AT server: what it
// sends, what it prints for people and for scripts, and its exit status.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "fake_ats.h"
#include "test_atctl.h"

using namespace atapi_test;
using atctl_test::CliRun;
using atctl_test::expect_lines;
using atctl_test::Field;
using atctl_test::Json;
using atctl_test::parse_json;

namespace {

using Strings = std::vector<std::string>;

template <typename Rec>
constexpr bool library_reads_clock(Rec* rec = nullptr) {
    return requires { AT_CCLK_CHECK(rec); };
}
constexpr bool kHaveClock = library_reads_clock<ST_AT_TIME>();

const Strings kSignalKeys{"csq", "hcsq", "cerssi", "rsrp", "csnr"};
const Strings kRegistrationKeys{"creg", "cgreg", "cereg", "cgatt", "sysinfoex", "rejinfoex"};
const Strings kDeviceKeys{"cgmi", "cgmm", "version", "sn", "imsi"};

Strings keys_of(const Json& doc) {
    Strings v;
    for (const auto& m : doc.members) v.push_back(m.first);
    return v;
}

class Atctl : public ::testing::Test {
protected:
    // A healthy LTE modem with `changes` applied, one reply per query line; others get ERROR.
    void modem(const std::map<std::string, Reply>& changes = {}) {
        std::map<std::string, Reply> m{
            {"AT+CSQ",        ok("+CSQ: 20,99")},
            {"AT^HCSQ?",      ok("^HCSQ: \"LTE\",52,45,148,27")},
            {"AT^CERSSI?",    ok("^CERSSI: 0,0,0,0,255,-95,-8,20,1,12,12")},
            {"AT^LTERSRP?",   ok("^LTERSRP: -95,-8")},
            {"AT^CSNR?",      ok("^CSNR: -85,-6")},
            {"AT+CREG?",      ok("+CREG: 2,5,\"2513\",\"0C4E5F01\",7")},
            {"AT+CGREG?",     ok("+CGREG: 0,1")},
            {"AT+CEREG?",     ok("+CEREG: 0,1")},
            {"AT+CGATT?",     ok("+CGATT: 1")},
            {"AT^SYSINFOEX",  ok("^SYSINFOEX: 2,3,0,1,,6,\"LTE\",101,\"LTE FDD\"")},
            {"AT^REJINFO?",   ok("^REJINFO: 00101,1,15,7")},
            {"AT+CCLK?",      ok("+CCLK: \"2026/12/31,23:50:00+32\"")},
            {"AT+CGMI",       ok("Example Modems")},
            {"AT+CGMM",       ok("EM-LTE-1")},
            {"AT^VERSION?",   ok("^VERSION:EXTD:EM1.04.12\r\n^VERSION:EXTH:EM-LTE-1 HW-A")},
            {"AT^SN",         ok("^SN: EMLTE1A0012345")},
            {"AT+CIMI",       ok("001011357924680")},
        };
        for (const auto& [cmd, reply] : changes) m[cmd] = reply;
        ats.respond([m](const Request& req) {
            const auto it = m.find(req.cmd);
            return it != m.end() ? it->second : result(AT_ERROR);
        });
    }
    CliRun atctl(const Strings& args) { return atctl_test::run_atctl(args, ats.run_dir()); }
    Json json(Strings args, int want_exit) {
        args.insert(args.begin(), "--json");
        const CliRun r = atctl(args);
        EXPECT_EQ(r.exit, want_exit) << r.out << r.err;
        const std::optional<Json> doc = parse_json(r.out);
        EXPECT_TRUE(doc.has_value()) << "not one JSON document:\n" << r.out;
        return doc.value_or(Json{});
    }
    Strings commands() const {
        Strings v;
        for (const Request& r : ats.requests()) v.push_back(r.cmd);
        return v;
    }

    FakeAtServer ats;
};

// One subcommand against the healthy modem with `changes`: lines it must print for people and
// fields of its JSON. A section with an "error" field must be the only ones not ok, and make the
// run exit 1. Every run only reads the modem, keeps the subcommand's sections in order, and gives
// a section the same keys whatever the reply.
TEST_F(Atctl, ReportsForPeopleAndScripts) {
    char cme13[] = "+CME ERROR: 13", cms500[] = "+CMS ERROR: 500";
    const std::string no_answer = "  error     no usable answer (an error reply, a timeout or a reply that did not parse)";
    const struct {
        const char* sub;
        std::map<std::string, Reply> changes;
        Strings lines;
        std::vector<Field> json;
    } rows[] = {
        // Codes converted for people with the raw value beside.
        {"signal", {}, {"signal quality (+CSQ)", "  rssi      -73 dBm (raw 20)", "  ber       unknown (raw 99)",
                        "  sysmode   LTE", "  rssi      -69 dBm (raw 52)", "  rsrp      -96 dBm (raw 45)",
                        "  sinr      9.4 dB (raw 148)", "  rsrq      -6.5 dB (raw 27)", "  rsrp      -95 dBm",
                        "  rsrq      -8 dB", "  rscp      -85 dBm", "  ecio      -6 dB"},
         {{"csq", "rssi", "20"}, {"csq", "rssi_dbm", "-73"}, {"csq", "ber", "99"}, {"hcsq", "sysmode", "'LTE'"},
          {"hcsq", "sysmode_code", std::to_string(SYSMODE_SIG_LTE)}, {"hcsq", "value3", "148"},
          {"hcsq", "sinr_db", "9.4"}, {"hcsq", "rsrq_db", "-6.5"}, {"hcsq", "value5", "null"}, {"cerssi", "rsrp", "-95"},
          {"cerssi", "cqi1", "12"}, {"rsrp", "rsrp_dbm", "-95"}, {"csnr", "ecio_db", "-6"}}},
        {"registration", {}, {"circuit-switched registration (+CREG)", "  stat      registered, roaming (5)",
                              "  reports   on, with location (2)", "  lac       2513 (9491)",
                              "  ci        0C4E5F01 (206462721)", "  act       E-UTRAN (7)",
                              "  stat      registered, home network (1)", "  state     attached (1)",
                              "  service   valid service (2)", "  sysmode   LTE (6)", "  submode   LTE FDD (101)",
                              "  plmn      00101", "  cause     no suitable cells in location area (15)"},
         {{"creg", "stat", "5"}, {"creg", "stat_text", "'registered, roaming'"}, {"creg", "lac", "'2513'"},
          {"creg", "act", "7"}, {"cgreg", "act", "null"}, {"cereg", "act", "missing"}, {"cgatt", "attached", "true"},
          {"sysinfoex", "submode_name", "'LTE FDD'"}, {"rejinfoex", "rejectcause", "15"}}},
        {"registration", {{"AT+CEREG?", ok("+CEREG: 0,2")}, {"AT^REJINFO?", ok("^REJINFO: 00102,0,13,2")}},
         {"  stat      not registered, searching (2)", "  cause     roaming not allowed in this location area (13)"},
         {{"cereg", "stat_text", "'not registered, searching'"}, {"rejinfoex", "plmnid", "'00102'"},
          {"rejinfoex", "rejectcause_text", "'roaming not allowed in this location area'"}}},
        // +CSQ codes at the ends of the scale.
        {"signal", {{"AT+CSQ", ok("+CSQ: 0,0")}},
         {"  rssi      -113 dBm or less (raw 0)", "  ber       below 0.2 % (raw 0)"}, {{"csq", "rssi_dbm", "-113"}}},
        {"signal", {{"AT+CSQ", ok("+CSQ: 31,7")}},
         {"  rssi      -51 dBm or more (raw 31)", "  ber       above 12.8 % (raw 7)"}, {{"csq", "rssi_dbm", "-51"}}},
        {"signal", {{"AT+CSQ", ok("+CSQ: 99,99")}}, {"  rssi      unknown (raw 99)", "  ber       unknown (raw 99)"},
         {{"csq", "rssi_dbm", "null"}}},
        {"signal", {{"AT+CSQ", ok("+CSQ: 64,8")}}, {"  rssi      invalid (raw 64)", "  ber       invalid (raw 8)"},
         {{"csq", "rssi_dbm", "null"}}},
        // ^HCSQ values mean what their system mode says; a quantity the mode lacks, or an unknown one, is null.
        {"signal", {{"AT^HCSQ?", ok("^HCSQ: \"WCDMA\",30,30,40")}},
         {"  sysmode   WCDMA", "  rssi      -91 dBm (raw 30)", "  rscp      -91 dBm (raw 30)", "  ecio      -12.5 dB (raw 40)"},
         {{"hcsq", "sinr_db", "null"}, {"hcsq", "rsrp_dbm", "null"}}},
        {"signal", {{"AT^HCSQ?", ok("^HCSQ: \"GSM\",60")}}, {"  sysmode   GSM", "  rssi      -61 dBm (raw 60)"},
         {{"hcsq", "sinr_db", "null"}}},
        {"signal", {{"AT^HCSQ?", ok("^HCSQ: \"LTE\",0,255,1,34")}},
         {"  rssi      below -120 dBm (raw 0)", "  rsrp      unknown (raw 255)", "  sinr      -20 dB (raw 1)",
          "  rsrq      -3 dB (raw 34)"},
         {{"hcsq", "rsrp_dbm", "null"}, {"hcsq", "sinr_db", "-20"}}},
        {"signal", {{"AT^HCSQ?", ok("^HCSQ: \"LTE\",52,45,148")}},
         {"  sinr      9.4 dB (raw 148)", "  rsrq      not reported"}, {{"hcsq", "rsrq_db", "null"}, {"hcsq", "value4", "null"}}},
        {"signal", {{"AT^HCSQ?", ok("^HCSQ: \"CDMA\",60,7")}}, {"  sysmode   CDMA", "  value1    60", "  value2    7"},
         {{"hcsq", "sinr_db", "null"}, {"hcsq", "value2", "7"}}},
        {"signal", {{"AT^HCSQ?", ok("^HCSQ: \"NOSERVICE\"")}}, {"  sysmode   no service"},
         {{"hcsq", "value1", "null"}}},
        {"signal", {{"AT^HCSQ?", ok("^HCSQ: \"5G\",1,2,3")}}, {"  sysmode   unrecognised"},
         {{"hcsq", "sinr_db", "null"}}},
        // The modem answering an error makes the run exit 1, and says which call and why.
        {"registration", {{"AT+CREG?", cme(cme13)}}, {"  error     the modem answered an error: SIM failure (result 13)"},
         {{"creg", "error", "'modem error'"}, {"creg", "result", std::to_string(Error_str_to_id(cme13))}}},
        {"signal", {{"AT^CERSSI?", cms(cms500)}}, {"  error     the modem answered an error: *"},
         {{"cerssi", "error", "'modem error'"}, {"cerssi", "result", std::to_string(Error_str_to_id(cms500))}}},
        {"signal", {{"AT+CSQ", result(AT_ERROR)}}, {no_answer},
         {{"csq", "error", "'no usable answer'"}, {"csq", "result", "missing"}}},
        // ^LTERSRP returns success on a plain error and writes nothing: still a failure here.
        {"signal", {{"AT^LTERSRP?", result(AT_ERROR)}}, {no_answer}, {{"rsrp", "error", "'no usable answer'"}}},
        {"registration", {{"AT+CGATT?", ok("")}}, {no_answer}, {{"cgatt", "error", "'no usable answer'"}}},
    };
    std::map<std::string, Strings> keys_when_ok;
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.sub << " " << ::testing::PrintToString(row.lines[0]));
        std::set<std::string> failed;
        for (const Field& f : row.json)
            if (std::string_view(f.name) == "error") failed.insert(f.section);
        modem(row.changes);
        ats.clear_requests();
        const CliRun r = atctl({row.sub});
        EXPECT_EQ(r.exit, failed.empty() ? 0 : 1) << r.out << r.err;
        expect_lines(r, row.lines);
        for (const std::string& cmd : commands()) EXPECT_EQ(cmd.find('='), std::string::npos) << cmd;

        const Json doc = json({row.sub}, failed.empty() ? 0 : 1);
        EXPECT_EQ(keys_of(doc), std::string_view(row.sub) == "signal" ? kSignalKeys : kRegistrationKeys);
        for (const auto& [key, section] : doc.members) {
            EXPECT_EQ(section["ok"].boolean, !failed.contains(key)) << key;
            if (failed.contains(key)) continue;
            EXPECT_EQ(keys_of(section), keys_when_ok.try_emplace(key, keys_of(section)).first->second) << key;
        }
        atctl_test::expect_fields(doc, row.json);
    }
}

// A modem that stops answering costs one time limit, not one per call.
TEST_F(Atctl, ASilentModemStopsTheRunAfterTheFirstTimeout) {
    modem({{"AT+CSQ", silent()}});
    const auto start = std::chrono::steady_clock::now();
    const Json doc = json({"status"}, 1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
    atctl_test::expect_fields(doc, {{"csq", "error", "'no usable answer'"}, {"hcsq", "error", "'skipped'"},
                                    {"creg", "error", "'skipped'"}, {"cclk", "error", "'skipped'"}});
    EXPECT_EQ(commands(), Strings{"AT+CSQ"});
}

// Whatever the modem says, atctl neither crashes nor prints a document a parser refuses.
TEST_F(Atctl, HostileRepliesStillGiveValidJson) {
    const std::string long_text(60, '7');
    modem({
        {"AT^REJINFO?",  ok("^REJINFO: \"4\"6\x01\xff\\\",1,15,7")},
        {"AT+CREG?",     ok("+CREG: 2,1,\"" + long_text + "\",\"" + long_text + "\",77777")},
        {"AT+CGREG?",    ok("+CGREG: 2,1,\"zz\xc3\",\"\x7f\",\"\"")},
        {"AT^HCSQ?",     ok("^HCSQ: \"LTE\",4294967295,-1,99999999999,x")},
        {"AT+CSQ",       ok("+CSQ: -5,-7")},
        {"AT^SYSINFOEX", ok("^SYSINFOEX: 2,3,0,1,,6,\"" + long_text + "\",101,\"\xe2\x82\xac\"")},
    });
    for (const char* sub : {"signal", "registration", "status"}) {
        SCOPED_TRACE(sub);
        const CliRun human = atctl({sub}), r = atctl({"--json", sub});
        EXPECT_TRUE(human.exit == 0 || human.exit == 1) << human.exit << human.err;
        EXPECT_TRUE(r.exit == 0 || r.exit == 1) << r.exit << r.err;
        EXPECT_TRUE(parse_json(r.out).has_value()) << r.out;
    }
}

TEST_F(Atctl, StatusIsOneLinePerCallAndOnlyReads) {
    modem();
    const CliRun r = atctl({"status"});
    ASSERT_EQ(r.exit, 0) << r.out << r.err;
    const Strings lines = r.lines();
    ASSERT_EQ(lines.size(), kSignalKeys.size() + kRegistrationKeys.size() + 1 + kDeviceKeys.size()) << r.out;
    EXPECT_TRUE(lines[0].starts_with("csq        rssi -73 dBm (raw 20), ber unknown (raw 99)")) << lines[0];
    EXPECT_TRUE(lines[5].starts_with("creg       stat registered, roaming (5)")) << lines[5];
    Strings sent{"AT+CSQ", "AT^HCSQ?", "AT^CERSSI?", "AT^LTERSRP?", "AT^CSNR?", "AT+CREG?", "AT+CGREG?", "AT+CEREG?",
                 "AT+CGATT?", "AT^SYSINFOEX", "AT^REJINFO?"};
    if (kHaveClock) sent.push_back("AT+CCLK?");
    sent.insert(sent.end(), {"AT+CGMI", "AT+CGMM", "AT^VERSION?", "AT^SN", "AT+CIMI"});
    EXPECT_EQ(commands(), sent);

    const Json doc = json({"status"}, 0);
    Strings keys = kSignalKeys;
    keys.insert(keys.end(), kRegistrationKeys.begin(), kRegistrationKeys.end());
    keys.push_back("cclk");
    keys.insert(keys.end(), kDeviceKeys.begin(), kDeviceKeys.end());
    EXPECT_EQ(keys_of(doc), keys);
    // A library without the clock read is no modem failure.
    EXPECT_EQ(doc["cclk"]["ok"].show(), kHaveClock ? "true" : "false");
}

TEST_F(Atctl, TimeConvertsTheModemClockWithTheGivenZone) {
    modem();
    if constexpr (!kHaveClock) {
        // Without the clock read the subcommand says so and asks the modem nothing.
        EXPECT_EQ(json({"time"}, 1)["cclk"]["error"].show(), "'unsupported'");
        EXPECT_EQ(ats.count(), 0u);
    } else {
        atctl_test::expect_fields(json({"time", "--zone", "+4"}, 0), {{"cclk", "utc", "'2026/12/31 23:50:00'"},
                                  {"cclk", "zone_text", "'GMT+01:00'"}, {"cclk", "local", "'2027/01/01 00:50:00'"}});
        expect_lines(atctl({"time", "--zone", "-5"}), {"  local     2026/12/31 22:35:00 GMT-01:15"});
        EXPECT_EQ(ats.last().cmd, "AT+CCLK?");
    }
}

TEST_F(Atctl, NoAtServerExitsTwoAndSaysWhatIsMissing) {
    const std::string empty = ats.run_dir() + "/elsewhere";
    ASSERT_EQ(mkdir(empty.c_str(), 0700), 0);
    CliRun r = atctl({"--run-dir", empty, "status"});
    EXPECT_EQ(r.exit, 2);
    EXPECT_NE(r.err.find("no AT server: " + empty + "/pidfile/atserver.pid missing"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("atserver --device"), std::string::npos) << r.err;
    EXPECT_EQ(r.out, "");

    r = atctl({"--json", "--run-dir", empty, "signal"});
    EXPECT_EQ(r.exit, 2);
    const std::optional<Json> doc = parse_json(r.out);
    ASSERT_TRUE(doc.has_value()) << r.out;
    EXPECT_NE((*doc)["error"].text.find("no AT server"), std::string::npos);

    // The server of ATAPI_RUN_DIR dies and leaves its pid file behind.
    const int pid = ats.pid();
    ats.die();
    r = atctl({"registration"});
    EXPECT_EQ(r.exit, 2);
    EXPECT_NE(r.err.find("names process " + std::to_string(pid) + ", which is not running"), std::string::npos) << r.err;
    EXPECT_EQ(ats.count(), 0u);
}

TEST_F(Atctl, BadUsageExitsTwoWithoutAskingTheModem) {
    modem();
    const std::vector<Strings> rows{
        {}, {"bogus"}, {"signal", "extra"}, {"--nope", "signal"}, {"signal", "--zone", "4"}, {"time", "--zone", "96"},
        {"time", "--zone", "4x"}, {"time", "--zone"}, {"--run-dir"}, {"--zone", "4", "time"},
        {"call", "dial", "+1555;0"}, {"call", "hangup", "12"}, {"stk", "select", "x"}, {"sms", "read", "x"},
        {"sms", "send", "not-a-number"},
    };
    for (const auto& args : rows) {
        const CliRun r = atctl(args);
        EXPECT_EQ(r.exit, 2) << ::testing::PrintToString(args);
        EXPECT_TRUE(r.err.starts_with("atctl: ")) << r.err;
    }
    EXPECT_EQ(ats.count(), 0u);
}

TEST_F(Atctl, HelpForEverySubcommand) {
    modem();
    const CliRun all = atctl({"--help"});
    EXPECT_EQ(all.exit, 0);
    for (const std::string sub : {"signal", "registration", "time", "status"}) {
        SCOPED_TRACE(sub);
        EXPECT_NE(all.out.find("\n  " + sub + " "), std::string::npos) << all.out;
        for (const Strings& args : {Strings{sub, "--help"}, Strings{"help", sub}}) {
            const CliRun r = atctl(args);
            EXPECT_EQ(r.exit, 0);
            EXPECT_TRUE(r.out.starts_with("usage: atctl [--json] [--run-dir DIR] " + sub)) << r.out;
        }
    }
    EXPECT_EQ(ats.count(), 0u);
}

}  // namespace
