// test_atctl.cpp - atctl as a separate process against the scripted fake AT server: what it
// sends, what it prints for people and for scripts, and its exit status.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "fake_ats.h"
#include "test_atctl.h"

using namespace atapi_test;
using atctl_test::Json;
using atctl_test::parse_json;
using atctl_test::CliRun;

namespace {

// A healthy LTE modem, one reply per query line.
const std::map<std::string, Reply>& healthy_modem() {
    static const std::map<std::string, Reply> m{
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
    return m;
}

template <typename Rec>
constexpr bool library_reads_clock(Rec* rec = nullptr) {
    return requires { AT_CCLK_CHECK(rec); };
}
constexpr bool kHaveClock = library_reads_clock<ST_AT_TIME>();

const std::vector<std::string> kSignalKeys{"csq", "hcsq", "cerssi", "rsrp", "csnr"};
const std::vector<std::string> kRegistrationKeys{"creg", "cgreg", "cereg", "cgatt", "sysinfoex", "rejinfoex"};

class Atctl : public ::testing::Test {
protected:
    // Answers from the healthy modem with `changes` applied; unknown lines get ERROR.
    void modem(std::map<std::string, Reply> changes = {}) {
        std::map<std::string, Reply> m = healthy_modem();
        for (auto& [cmd, reply] : changes) m[cmd] = reply;
        ats.respond([m](const Request& req) {
            const auto it = m.find(req.cmd);
            return it != m.end() ? it->second : result(AT_ERROR);
        });
    }
    CliRun atctl(const std::vector<std::string>& args) { return atctl_test::run_atctl(args, ats.run_dir()); }
    Json json(const std::vector<std::string>& args, int want_exit) {
        std::vector<std::string> a{"--json"};
        a.insert(a.end(), args.begin(), args.end());
        const CliRun r = atctl(a);
        EXPECT_EQ(r.exit, want_exit) << r.out << r.err;
        const std::optional<Json> doc = parse_json(r.out);
        EXPECT_TRUE(doc.has_value()) << "not one JSON document:\n" << r.out;
        return doc.value_or(Json{});
    }
    std::vector<std::string> commands() const {
        std::vector<std::string> v;
        for (const Request& r : ats.requests()) v.push_back(r.cmd);
        return v;
    }

    FakeAtServer ats;
};

TEST_F(Atctl, SignalForPeopleConvertsCodesAndKeepsTheRawValueBeside) {
    modem();
    const CliRun r = atctl({"signal"});
    ASSERT_EQ(r.exit, 0) << r.out << r.err;
    for (const char* line : {
             "signal quality (+CSQ)",
             "  rssi      -73 dBm (raw 20)",
             "  ber       unknown (raw 99)",
             "  sysmode   LTE",
             "  rssi      -69 dBm (raw 52)",
             "  rsrp      -96 dBm (raw 45)",
             "  sinr      9.4 dB (raw 148)",
             "  rsrq      -6.5 dB (raw 27)",
             "  rsrp      -95 dBm",
             "  rsrq      -8 dB",
             "  rscp      -85 dBm",
             "  ecio      -6 dB",
         })
        EXPECT_TRUE(r.has_line(line)) << "missing line \"" << line << "\" in\n" << r.out;
    // Only queries go out: atctl never changes the modem's settings.
    EXPECT_EQ(commands(), (std::vector<std::string>{"AT+CSQ", "AT^HCSQ?", "AT^CERSSI?", "AT^LTERSRP?", "AT^CSNR?"}));
}

TEST_F(Atctl, SignalForScriptsIsOneObjectWithAMemberPerCall) {
    modem();
    const Json doc = json({"signal"}, 0);
    ASSERT_EQ(doc.kind, Json::Object);
    ASSERT_EQ(doc.members.size(), kSignalKeys.size());
    for (size_t i = 0; i < kSignalKeys.size(); ++i) {
        EXPECT_EQ(doc.members[i].first, kSignalKeys[i]);
        EXPECT_TRUE(doc.members[i].second["ok"].boolean) << kSignalKeys[i];
    }
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
    struct Row {
        const char* reply;
        const char* rssi_line;
        const char* ber_line;
        std::optional<double> dbm;  // nothing: null in JSON
    };
    const Row rows[] = {
        {"+CSQ: 0,0",   "  rssi      -113 dBm or less (raw 0)", "  ber       below 0.2 % (raw 0)",   -113},
        {"+CSQ: 31,7",  "  rssi      -51 dBm or more (raw 31)", "  ber       above 12.8 % (raw 7)",  -51},
        {"+CSQ: 99,99", "  rssi      unknown (raw 99)",         "  ber       unknown (raw 99)",      std::nullopt},
        {"+CSQ: 64,8",  "  rssi      invalid (raw 64)",         "  ber       invalid (raw 8)",       std::nullopt},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.reply);
        modem({{"AT+CSQ", ok(row.reply)}});
        const CliRun r = atctl({"signal"});
        EXPECT_EQ(r.exit, 0);
        EXPECT_TRUE(r.has_line(row.rssi_line)) << r.out;
        EXPECT_TRUE(r.has_line(row.ber_line)) << r.out;
        const Json doc = json({"signal"}, 0);
        if (row.dbm) EXPECT_EQ(doc["csq"]["rssi_dbm"].number, *row.dbm);
        else EXPECT_TRUE(doc["csq"]["rssi_dbm"].is_null());
    }
}

TEST_F(Atctl, HcsqValuesMeanWhatTheirSystemModeSays) {
    struct Row {
        const char* reply;
        std::vector<std::string> lines;
    };
    const Row rows[] = {
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
    std::vector<std::string> first_keys;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.reply);
        modem({{"AT^HCSQ?", ok(row.reply)}});
        const CliRun r = atctl({"signal"});
        EXPECT_EQ(r.exit, 0) << r.err;
        for (const std::string& line : row.lines) EXPECT_TRUE(r.has_line(line)) << "missing \"" << line << "\" in\n" << r.out;

        // The same keys whatever the mode; a quantity the mode lacks, or an unknown one, is null.
        const Json hcsq = json({"signal"}, 0)["hcsq"];
        std::vector<std::string> keys;
        for (const auto& m : hcsq.members) keys.push_back(m.first);
        if (first_keys.empty()) first_keys = keys;
        EXPECT_EQ(keys, first_keys);
        const bool lte = hcsq["sysmode"].text == "LTE";
        EXPECT_EQ(hcsq["sinr_db"].is_null(), !lte);
        if (lte) {
            EXPECT_EQ(hcsq["rsrp_dbm"].is_null(), hcsq["value2"].number == 255);
        }
        EXPECT_TRUE(hcsq["value5"].is_null()) << "no reply here carries a fifth value";
    }
}

TEST_F(Atctl, RegistrationNamesStatesAndShowsLocationInHexAndDecimal) {
    modem();
    const CliRun r = atctl({"registration"});
    ASSERT_EQ(r.exit, 0) << r.out << r.err;
    for (const char* line : {
             "circuit-switched registration (+CREG)",
             "  stat      registered, roaming (5)",
             "  reports   on, with location (2)",
             "  lac       2513 (9491)",
             "  ci        0C4E5F01 (206462721)",
             "  act       E-UTRAN (7)",
             "  stat      registered, home network (1)",
             "  state     attached (1)",
             "  service   valid service (2)",
             "  sysmode   LTE (6)",
             "  submode   LTE FDD (101)",
             "  plmn      46000",
             "  cause     no suitable cells in location area (15)",
         })
        EXPECT_TRUE(r.has_line(line)) << "missing line \"" << line << "\" in\n" << r.out;
    EXPECT_EQ(commands(), (std::vector<std::string>{"AT+CREG?", "AT+CGREG?", "AT+CEREG?", "AT+CGATT?", "AT^SYSINFOEX",
                                                    "AT^REJINFO?"}));

    const Json doc = json({"registration"}, 0);
    ASSERT_EQ(doc.members.size(), kRegistrationKeys.size());
    for (size_t i = 0; i < kRegistrationKeys.size(); ++i) EXPECT_EQ(doc.members[i].first, kRegistrationKeys[i]);
    EXPECT_EQ(doc["creg"]["stat"].number, 5);
    EXPECT_EQ(doc["creg"]["stat_text"].text, "registered, roaming");
    EXPECT_EQ(doc["creg"]["lac"].text, "2513");
    EXPECT_EQ(doc["creg"]["act"].number, 7);
    EXPECT_TRUE(doc["cgreg"]["act"].is_null());             // the reply carried none
    EXPECT_EQ(doc["cereg"]["act"].kind, Json::Missing);     // +CEREG has no such field at all
    EXPECT_TRUE(doc["cgatt"]["attached"].boolean);
    EXPECT_EQ(doc["sysinfoex"]["submode_name"].text, "LTE FDD");
    EXPECT_EQ(doc["rejinfoex"]["rejectcause"].number, 15);
}

// The modem answering an error makes the run exit 1, and says which call and why.
TEST_F(Atctl, ModemErrorsExitOneAndNameTheFailingCall) {
    struct Row {
        const char* cmd;
        Reply reply;
        const char* subcommand;
        const char* key;
        const char* error;       // the JSON error text
        const char* error_line;  // the start of the human error line
    };
    const Row rows[] = {
        {"AT+CREG?",    cme("+CME ERROR: 13"),   "registration", "creg",   "modem error",
         "  error     the modem answered an error: "},
        {"AT^CERSSI?",  cms("+CMS ERROR: 500"),  "signal",       "cerssi", "modem error",
         "  error     the modem answered an error: "},
        {"AT+CSQ",      result(AT_ERROR),        "signal",       "csq",    "no usable answer", "  error     no usable answer"},
        // ^LTERSRP returns success on a plain error and writes nothing: still a failure here.
        {"AT^LTERSRP?", result(AT_ERROR),        "signal",       "rsrp",   "no usable answer", "  error     no usable answer"},
        {"AT+CGATT?",   ok(""),                  "registration", "cgatt",  "no usable answer", "  error     no usable answer"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.cmd);
        modem({{row.cmd, row.reply}});
        const CliRun r = atctl({row.subcommand});
        EXPECT_EQ(r.exit, 1) << r.out;
        const std::vector<std::string> lines = r.lines();
        EXPECT_TRUE(std::any_of(lines.begin(), lines.end(),
                                [&](const std::string& l) { return l.rfind(row.error_line, 0) == 0; }))
            << r.out;

        const Json doc = json({row.subcommand}, 1);
        for (const auto& [key, section] : doc.members) {
            EXPECT_EQ(section["ok"].boolean, key != row.key) << key;
        }
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
    EXPECT_EQ(commands(), std::vector<std::string>{"AT+CSQ"});
}

// Whatever the modem says, atctl neither crashes nor prints a document a parser refuses.
TEST_F(Atctl, HostileRepliesStillGiveValidJson) {
    const std::string long_text(60, '7');
    const std::map<std::string, Reply> hostile{
        {"AT^REJINFO?",  ok("^REJINFO: \"4\"6\x01\xff\\\",1,15,7")},
        {"AT+CREG?",     ok("+CREG: 2,1,\"" + long_text + "\",\"" + long_text + "\",77777")},
        {"AT+CGREG?",    ok("+CGREG: 2,1,\"zz\xc3\",\"\x7f\",\"\"")},
        {"AT^HCSQ?",     ok("^HCSQ: \"LTE\",4294967295,-1,99999999999,x")},
        {"AT+CSQ",       ok("+CSQ: -5,-7")},
        {"AT^SYSINFOEX", ok("^SYSINFOEX: 2,3,0,1,,6,\"" + long_text + "\",101,\"\xe2\x82\xac\"")},
    };
    modem(hostile);
    for (const char* sub : {"signal", "registration", "status"}) {
        SCOPED_TRACE(sub);
        const CliRun human = atctl({sub});
        EXPECT_TRUE(human.exit == 0 || human.exit == 1) << human.exit << human.err;
        const CliRun r = atctl({"--json", sub});
        EXPECT_TRUE(r.exit == 0 || r.exit == 1) << r.exit << r.err;
        EXPECT_TRUE(parse_json(r.out).has_value()) << r.out;
    }
}

TEST_F(Atctl, StatusIsOneLinePerCallAndOnlyReads) {
    modem();
    const CliRun r = atctl({"status"});
    ASSERT_EQ(r.exit, 0) << r.out << r.err;
    const std::vector<std::string> lines = r.lines();
    ASSERT_EQ(lines.size(), kSignalKeys.size() + kRegistrationKeys.size() + 1) << r.out;
    EXPECT_LE(lines.size(), 24u);  // one screen
    EXPECT_EQ(lines[0].rfind("csq        rssi -73 dBm (raw 20), ber unknown (raw 99)", 0), 0u) << lines[0];
    EXPECT_EQ(lines[5].rfind("creg       stat registered, roaming (5)", 0), 0u) << lines[5];
    for (const std::string& cmd : commands()) EXPECT_EQ(cmd.find('='), std::string::npos) << cmd;

    const Json doc = json({"status"}, 0);
    std::vector<std::string> keys = kSignalKeys;
    keys.insert(keys.end(), kRegistrationKeys.begin(), kRegistrationKeys.end());
    keys.push_back("cclk");
    ASSERT_EQ(doc.members.size(), keys.size());
    for (size_t i = 0; i < keys.size(); ++i) EXPECT_EQ(doc.members[i].first, keys[i]);
    EXPECT_EQ(doc["cclk"]["ok"].boolean, kHaveClock);
}

TEST_F(Atctl, TimeConvertsTheModemClockWithTheGivenZone) {
    modem();
    if constexpr (!kHaveClock) {
        // Without the clock read the subcommand says so and asks the modem nothing.
        const Json doc = json({"time"}, 1);
        EXPECT_EQ(doc["cclk"]["error"].text, "unsupported");
        EXPECT_EQ(ats.count(), 0u);
        const CliRun r = atctl({"status"});
        EXPECT_EQ(r.exit, 0) << "a missing library call is not a modem failure";
    } else {
        const Json doc = json({"time", "--zone", "+4"}, 0);
        EXPECT_EQ(doc["cclk"]["utc"].text, "2026/12/31 23:50:00");
        EXPECT_EQ(doc["cclk"]["zone_text"].text, "GMT+01:00");
        EXPECT_EQ(doc["cclk"]["local"].text, "2027/01/01 00:50:00");
        const CliRun r = atctl({"time", "--zone", "-5"});
        EXPECT_TRUE(r.has_line("  local     2026/12/31 22:35:00 GMT-01:15")) << r.out;
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

    // A pid file left behind by a server that died.
    ASSERT_EQ(mkdir((empty + "/pidfile").c_str(), 0700), 0);
    const pid_t gone = fork();
    if (gone == 0) _exit(0);
    ASSERT_GT(gone, 0);
    waitpid(gone, nullptr, 0);
    std::ofstream(empty + "/pidfile/atserver.pid") << gone << "\n";
    r = atctl({"--run-dir", empty, "signal"});
    EXPECT_EQ(r.exit, 2);
    EXPECT_NE(r.err.find("names process " + std::to_string(gone) + ", which is not running"), std::string::npos)
        << r.err;

    // The server of ATAPI_RUN_DIR itself going away.
    ats.die();
    r = atctl({"registration"});
    EXPECT_EQ(r.exit, 2);
    EXPECT_NE(r.err.find("no AT server"), std::string::npos) << r.err;
    EXPECT_EQ(ats.count(), 0u);
}

TEST_F(Atctl, BadUsageExitsTwoWithoutAskingTheModem) {
    modem();
    const std::vector<std::vector<std::string>> rows{
        {},
        {"bogus"},
        {"signal", "extra"},
        {"--nope", "signal"},
        {"signal", "--zone", "4"},
        {"time", "--zone", "96"},
        {"time", "--zone", "4x"},
        {"time", "--zone"},
        {"--run-dir"},
        {"--zone", "4", "time"},
    };
    for (const auto& args : rows) {
        const CliRun r = atctl(args);
        EXPECT_EQ(r.exit, 2) << ::testing::PrintToString(args);
        EXPECT_EQ(r.err.rfind("atctl: ", 0), 0u) << r.err;
    }
    EXPECT_EQ(ats.count(), 0u);
}

TEST_F(Atctl, HelpForEverySubcommand) {
    modem();
    const CliRun all = atctl({"--help"});
    EXPECT_EQ(all.exit, 0);
    for (const char* sub : {"signal", "registration", "time", "status"}) {
        SCOPED_TRACE(sub);
        EXPECT_NE(all.out.find(std::string("\n  ") + sub + " "), std::string::npos) << all.out;
        for (const std::vector<std::string>& args : {std::vector<std::string>{sub, "--help"},
                                                     std::vector<std::string>{"help", sub}}) {
            const CliRun r = atctl(args);
            EXPECT_EQ(r.exit, 0);
            EXPECT_EQ(r.out.rfind(std::string("usage: atctl [--json] [--run-dir DIR] ") + sub, 0), 0u) << r.out;
        }
    }
    EXPECT_EQ(ats.count(), 0u);
}

}  // namespace
