// test_atctl.cpp - atctl as a separate process against the scripted fake AT server: what it
// sends, what it prints for people and for scripts, and its exit status.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "fake_ats.h"
#include "test_atctl.h"

using namespace atapi_test;
using atctl_test::CliRun;
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

Strings keys_of(const Json& doc) {
    Strings v;
    for (const auto& m : doc.members) v.push_back(m.first);
    return v;
}

void expect_lines(const CliRun& r, const Strings& want) {
    for (const std::string& line : want) EXPECT_TRUE(r.has_line(line)) << "missing \"" << line << "\" in\n" << r.out;
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
            {"AT^REJINFO?",   ok("^REJINFO: 46000,1,15,7")},
            {"AT+CCLK?",      ok("+CCLK: \"2026/12/31,23:50:00+32\"")},
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

// Codes are converted for people with the raw value beside; scripts get one object with a
// member per call. Only queries go out: atctl never changes the modem's settings.
TEST_F(Atctl, SignalForPeopleAndScripts) {
    modem();
    const CliRun r = atctl({"signal"});
    ASSERT_EQ(r.exit, 0) << r.out << r.err;
    expect_lines(r, {"signal quality (+CSQ)", "  rssi      -73 dBm (raw 20)", "  ber       unknown (raw 99)",
                     "  sysmode   LTE", "  rssi      -69 dBm (raw 52)", "  rsrp      -96 dBm (raw 45)",
                     "  sinr      9.4 dB (raw 148)", "  rsrq      -6.5 dB (raw 27)", "  rsrp      -95 dBm",
                     "  rsrq      -8 dB", "  rscp      -85 dBm", "  ecio      -6 dB"});
    EXPECT_EQ(commands(), (Strings{"AT+CSQ", "AT^HCSQ?", "AT^CERSSI?", "AT^LTERSRP?", "AT^CSNR?"}));

    const Json doc = json({"signal"}, 0);
    EXPECT_EQ(keys_of(doc), kSignalKeys);
    for (const std::string& key : kSignalKeys) EXPECT_TRUE(doc[key]["ok"].boolean) << key;
    EXPECT_EQ(doc["csq"]["rssi"].number, 20);
    EXPECT_EQ(doc["csq"]["rssi_dbm"].number, -73);
    EXPECT_EQ(doc["csq"]["ber"].number, 99);
    EXPECT_EQ(doc["hcsq"]["sysmode"].text, "LTE");
    EXPECT_EQ(doc["hcsq"]["sysmode_code"].number, SYSMODE_SIG_LTE);
    EXPECT_EQ(doc["hcsq"]["value3"].number, 148);
    EXPECT_DOUBLE_EQ(doc["hcsq"]["sinr_db"].number, 9.4);
    EXPECT_DOUBLE_EQ(doc["hcsq"]["rsrq_db"].number, -6.5);
    EXPECT_EQ(doc["cerssi"]["rsrp"].number, -95);
    EXPECT_EQ(doc["cerssi"]["cqi1"].number, 12);
    EXPECT_EQ(doc["rsrp"]["rsrp_dbm"].number, -95);
    EXPECT_EQ(doc["csnr"]["ecio_db"].number, -6);
}

TEST_F(Atctl, CsqCodesAtTheEndsOfTheScale) {
    const struct {
        const char* reply;
        Strings lines;
        std::optional<double> dbm;  // nothing: null in JSON
    } rows[] = {
        {"+CSQ: 0,0",   {"  rssi      -113 dBm or less (raw 0)", "  ber       below 0.2 % (raw 0)"},  -113},
        {"+CSQ: 31,7",  {"  rssi      -51 dBm or more (raw 31)", "  ber       above 12.8 % (raw 7)"}, -51},
        {"+CSQ: 99,99", {"  rssi      unknown (raw 99)",         "  ber       unknown (raw 99)"},     std::nullopt},
        {"+CSQ: 64,8",  {"  rssi      invalid (raw 64)",         "  ber       invalid (raw 8)"},      std::nullopt},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.reply);
        modem({{"AT+CSQ", ok(row.reply)}});
        const CliRun r = atctl({"signal"});
        EXPECT_EQ(r.exit, 0);
        expect_lines(r, row.lines);
        const Json dbm = json({"signal"}, 0)["csq"]["rssi_dbm"];
        EXPECT_EQ(dbm.is_null(), !row.dbm);
        EXPECT_EQ(dbm.number, row.dbm.value_or(0));
    }
}

TEST_F(Atctl, HcsqValuesMeanWhatTheirSystemModeSays) {
    const struct {
        const char* reply;
        Strings lines;
    } rows[] = {
        {"^HCSQ: \"WCDMA\",30,30,40", {"  sysmode   WCDMA", "  rssi      -91 dBm (raw 30)", "  rscp      -91 dBm (raw 30)",
                                       "  ecio      -12.5 dB (raw 40)"}},
        {"^HCSQ: \"GSM\",60",         {"  sysmode   GSM", "  rssi      -61 dBm (raw 60)"}},
        {"^HCSQ: \"LTE\",0,255,1,34", {"  rssi      below -120 dBm (raw 0)", "  rsrp      unknown (raw 255)",
                                       "  sinr      -20 dB (raw 1)", "  rsrq      -3 dB (raw 34)"}},
        {"^HCSQ: \"LTE\",52,45,148",  {"  sinr      9.4 dB (raw 148)", "  rsrq      not reported"}},
        {"^HCSQ: \"CDMA\",60,7",      {"  sysmode   CDMA", "  value1    60", "  value2    7"}},
        {"^HCSQ: \"NOSERVICE\"",      {"  sysmode   no service"}},
        {"^HCSQ: \"5G\",1,2,3",       {"  sysmode   unrecognised"}},
    };
    Strings first_keys;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.reply);
        modem({{"AT^HCSQ?", ok(row.reply)}});
        const CliRun r = atctl({"signal"});
        EXPECT_EQ(r.exit, 0) << r.err;
        expect_lines(r, row.lines);

        // The same keys whatever the mode; a quantity the mode lacks, or an unknown one, is null.
        const Json hcsq = json({"signal"}, 0)["hcsq"];
        if (first_keys.empty()) first_keys = keys_of(hcsq);
        EXPECT_EQ(keys_of(hcsq), first_keys);
        const bool lte = hcsq["sysmode"].text == "LTE";
        EXPECT_EQ(hcsq["sinr_db"].is_null(), !lte);
        EXPECT_EQ(hcsq["rsrp_dbm"].is_null(), !lte || hcsq["value2"].number == 255);
        EXPECT_TRUE(hcsq["value5"].is_null()) << "no reply here carries a fifth value";
    }
}

TEST_F(Atctl, RegistrationNamesStatesAndShowsLocationInHexAndDecimal) {
    modem();
    const CliRun r = atctl({"registration"});
    ASSERT_EQ(r.exit, 0) << r.out << r.err;
    expect_lines(r, {"circuit-switched registration (+CREG)", "  stat      registered, roaming (5)",
                     "  reports   on, with location (2)", "  lac       2513 (9491)", "  ci        0C4E5F01 (206462721)",
                     "  act       E-UTRAN (7)", "  stat      registered, home network (1)", "  state     attached (1)",
                     "  service   valid service (2)", "  sysmode   LTE (6)", "  submode   LTE FDD (101)",
                     "  plmn      46000", "  cause     no suitable cells in location area (15)"});
    EXPECT_EQ(commands(), (Strings{"AT+CREG?", "AT+CGREG?", "AT+CEREG?", "AT+CGATT?", "AT^SYSINFOEX", "AT^REJINFO?"}));

    const Json doc = json({"registration"}, 0);
    EXPECT_EQ(keys_of(doc), kRegistrationKeys);
    EXPECT_EQ(doc["creg"]["stat"].number, 5);
    EXPECT_EQ(doc["creg"]["stat_text"].text, "registered, roaming");
    EXPECT_EQ(doc["creg"]["lac"].text, "2513");
    EXPECT_EQ(doc["creg"]["act"].number, 7);
    EXPECT_TRUE(doc["cgreg"]["act"].is_null());          // the reply carried none
    EXPECT_EQ(doc["cereg"]["act"].kind, Json::Missing);  // +CEREG has no such field at all
    EXPECT_TRUE(doc["cgatt"]["attached"].boolean);
    EXPECT_EQ(doc["sysinfoex"]["submode_name"].text, "LTE FDD");
    EXPECT_EQ(doc["rejinfoex"]["rejectcause"].number, 15);
}

// The modem answering an error makes the run exit 1, and says which call and why.
TEST_F(Atctl, ModemErrorsExitOneAndNameTheFailingCall) {
    const std::string modem_error = "  error     the modem answered an error: ", no_answer = "  error     no usable answer";
    const struct {
        const char* cmd;
        Reply reply;
        const char* subcommand;
        const char* key;
        const char* error;              // the JSON error text
        const std::string& error_line;  // the start of the human error line
    } rows[] = {
        {"AT+CREG?",    cme("+CME ERROR: 13"),  "registration", "creg",   "modem error",      modem_error},
        {"AT^CERSSI?",  cms("+CMS ERROR: 500"), "signal",       "cerssi", "modem error",      modem_error},
        {"AT+CSQ",      result(AT_ERROR),       "signal",       "csq",    "no usable answer", no_answer},
        // ^LTERSRP returns success on a plain error and writes nothing: still a failure here.
        {"AT^LTERSRP?", result(AT_ERROR),       "signal",       "rsrp",   "no usable answer", no_answer},
        {"AT+CGATT?",   ok(""),                 "registration", "cgatt",  "no usable answer", no_answer},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.cmd);
        modem({{row.cmd, row.reply}});
        const CliRun r = atctl({row.subcommand});
        EXPECT_EQ(r.exit, 1) << r.out;
        const Strings lines = r.lines();
        EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const std::string& l) { return l.starts_with(row.error_line); }))
            << r.out;

        const Json doc = json({row.subcommand}, 1);
        for (const auto& [key, section] : doc.members) EXPECT_EQ(section["ok"].boolean, key != row.key) << key;
        EXPECT_EQ(doc[row.key]["error"].text, row.error);
        if (row.reply.ret_val == AT_CME_ERROR || row.reply.ret_val == AT_CMS_ERROR) {
            std::string line = row.reply.report;
            EXPECT_EQ(doc[row.key]["result"].number, static_cast<double>(Error_str_to_id(line.data())));
        } else {
            EXPECT_EQ(doc[row.key]["result"].kind, Json::Missing);
        }
    }
}

// A modem that stops answering costs one time limit, not one per call.
TEST_F(Atctl, ASilentModemStopsTheRunAfterTheFirstTimeout) {
    modem({{"AT+CSQ", silent()}});
    const auto start = std::chrono::steady_clock::now();
    const Json doc = json({"status"}, 1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
    EXPECT_EQ(doc["csq"]["error"].text, "no usable answer");
    for (const char* key : {"hcsq", "creg", "rejinfoex", "cclk"}) EXPECT_EQ(doc[key]["error"].text, "skipped") << key;
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
    ASSERT_EQ(lines.size(), kSignalKeys.size() + kRegistrationKeys.size() + 1) << r.out;
    EXPECT_TRUE(lines[0].starts_with("csq        rssi -73 dBm (raw 20), ber unknown (raw 99)")) << lines[0];
    EXPECT_TRUE(lines[5].starts_with("creg       stat registered, roaming (5)")) << lines[5];
    for (const std::string& cmd : commands()) EXPECT_EQ(cmd.find('='), std::string::npos) << cmd;

    const Json doc = json({"status"}, 0);
    Strings keys = kSignalKeys;
    keys.insert(keys.end(), kRegistrationKeys.begin(), kRegistrationKeys.end());
    keys.push_back("cclk");
    EXPECT_EQ(keys_of(doc), keys);
    EXPECT_EQ(doc["cclk"]["ok"].boolean, kHaveClock);
}

TEST_F(Atctl, TimeConvertsTheModemClockWithTheGivenZone) {
    modem();
    if constexpr (!kHaveClock) {
        // Without the clock read the subcommand says so and asks the modem nothing.
        EXPECT_EQ(json({"time"}, 1)["cclk"]["error"].text, "unsupported");
        EXPECT_EQ(ats.count(), 0u);
        EXPECT_EQ(atctl({"status"}).exit, 0) << "a missing library call is not a modem failure";
    } else {
        const Json doc = json({"time", "--zone", "+4"}, 0);
        EXPECT_EQ(doc["cclk"]["utc"].text, "2026/12/31 23:50:00");
        EXPECT_EQ(doc["cclk"]["zone_text"].text, "GMT+01:00");
        EXPECT_EQ(doc["cclk"]["local"].text, "2027/01/01 00:50:00");
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
