// test_atctl_sim.cpp - atctl against real processes: modemsim and atserver in a private run
// directory, and the README's demo script end to end.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "e2e/harness.h"
#include "test_atctl.h"

using atctl_test::Json;
using atctl_test::parse_json;
using atctl_test::CliRun;

namespace {

// A WCDMA modem, roaming and detached, with values unlike any default.
constexpr char kRoamingModem[] = R"(
on AT
on AT\+CSQ
  line +CSQ: 17,3
on AT\^HCSQ\?
  line ^HCSQ: "WCDMA",40,35,50
on AT\^CERSSI\?
  line ^CERSSI: 0,0,0,-80,-7,0,0,0,0,0,0
on AT\^LTERSRP\?
  line ^LTERSRP: -101,-12
on AT\^CSNR\?
  line ^CSNR: -80,-7
on AT\+CREG\?
  line +CREG: 0,5
on AT\+CGREG\?
  line +CGREG: 0,5
on AT\+CEREG\?
  line +CEREG: 0,2
on AT\+CGATT\?
  line +CGATT: 0
on AT\^SYSINFOEX
  line ^SYSINFOEX: 2,1,1,1,0,3,"WCDMA",41,"HSPA+"
on AT\^REJINFO\?
  line ^REJINFO: 46001,0,13,2
on AT\+CCLK\?
  line +CCLK: "2030/05/01,12:00:00+00"
)";

// A modem that refuses the signal report and has no network for registration.
constexpr char kRefusingModem[] = R"(
default ERROR
on AT
on AT\+CSQ
  final ERROR
on AT\+CREG\?
  final +CME ERROR: 30
)";

CliRun atctl(const e2e::Stack& stack, const std::vector<std::string>& args) {
    return atctl_test::run_atctl(args, stack.dir());
}

TEST(AtctlSim, StatusReadsTheSimulatedModem) {
    e2e::Stack stack(kRoamingModem);
    ASSERT_TRUE(stack.start());

    const CliRun r = atctl(stack, {"status"});
    EXPECT_EQ(r.exit, 0) << r.out << r.err;
    EXPECT_TRUE(r.has_line("csq        rssi -79 dBm (raw 17), ber 0.8 to 1.6 % (raw 3)")) << r.out;

    const CliRun j = atctl(stack, {"status", "--json"});
    EXPECT_EQ(j.exit, 0) << j.err;
    const std::optional<Json> doc = parse_json(j.out);
    ASSERT_TRUE(doc.has_value()) << j.out;
    const Json& d = *doc;
    EXPECT_EQ(d["csq"]["rssi"].number, 17);
    EXPECT_EQ(d["csq"]["rssi_dbm"].number, -79);
    EXPECT_EQ(d["hcsq"]["sysmode"].text, "WCDMA");
    EXPECT_DOUBLE_EQ(d["hcsq"]["ecio_db"].number, -7.5);
    EXPECT_EQ(d["cerssi"]["rscp"].number, -80);
    EXPECT_EQ(d["rsrp"]["rsrq_db"].number, -12);
    EXPECT_EQ(d["creg"]["stat"].number, 5);
    EXPECT_EQ(d["cereg"]["stat_text"].text, "not registered, searching");
    EXPECT_FALSE(d["cgatt"]["attached"].boolean);
    EXPECT_EQ(d["sysinfoex"]["submode_name"].text, "HSPA+");
    EXPECT_EQ(d["rejinfoex"]["plmnid"].text, "46001");
    EXPECT_EQ(d["rejinfoex"]["rejectcause_text"].text, "roaming not allowed in this location area");
}

TEST(AtctlSim, ModemErrorsExitOne) {
    e2e::Stack stack(kRefusingModem);
    ASSERT_TRUE(stack.start());

    CliRun r = atctl(stack, {"--json", "signal"});
    EXPECT_EQ(r.exit, 1) << r.out << r.err;
    std::optional<Json> doc = parse_json(r.out);
    ASSERT_TRUE(doc.has_value()) << r.out;
    EXPECT_FALSE((*doc)["csq"]["ok"].boolean);
    EXPECT_EQ((*doc)["csq"]["error"].text, "no usable answer");

    r = atctl(stack, {"--json", "registration"});
    EXPECT_EQ(r.exit, 1) << r.out << r.err;
    doc = parse_json(r.out);
    ASSERT_TRUE(doc.has_value()) << r.out;
    std::string line = "+CME ERROR: 30";
    EXPECT_EQ((*doc)["creg"]["error"].text, "modem error");
    EXPECT_EQ((*doc)["creg"]["result"].number, static_cast<double>(Error_str_to_id(line.data())));

    r = atctl(stack, {"registration"});
    EXPECT_EQ(r.exit, 1);
    EXPECT_NE(r.out.find("  error     the modem answered an error: "), std::string::npos) << r.out;
}

TEST(AtctlSim, StoppedOrKilledServerExitsTwo) {
    e2e::Stack stack(kRoamingModem);
    ASSERT_TRUE(stack.start());
    stack.server.stop();  // a clean stop takes the pid file along
    CliRun r = atctl(stack, {"signal"});
    EXPECT_EQ(r.exit, 2);
    EXPECT_NE(r.err.find("no AT server: " + stack.pid_file() + " missing"), std::string::npos) << r.err;

    ASSERT_TRUE(stack.start_server() && stack.serving());
    const int pid = stack.server.pid();
    stack.server.signal(SIGKILL);
    ASSERT_TRUE(stack.server.wait_exit(std::chrono::seconds(5)));
    r = atctl(stack, {"status"});
    EXPECT_EQ(r.exit, 2);
    EXPECT_NE(r.err.find("names process " + std::to_string(pid) + ", which is not running"), std::string::npos)
        << r.err;
}

// The README's one command, here against the build under test: it prints the status of the
// simulated modem and leaves no process and no run directory behind.
TEST(AtctlSim, DemoScriptRunsAndCleansUp) {
    const std::string scratch = std::filesystem::temp_directory_path() / "atctl-demo-test";
    std::filesystem::create_directories(scratch);
    setenv("ATAPI_DEMO_BUILD", BUILD_DIR, 1);
    unsetenv("ATAPI_RUN_DIR");
    struct Case {
        std::vector<std::string> args;
        bool json;
    };
    for (const Case& c : {Case{{}, false}, Case{{"--json", "signal"}, true}}) {
        std::vector<std::string> argv{DEMO_SCRIPT};
        argv.insert(argv.end(), c.args.begin(), c.args.end());
        std::string cmd = "bash";
        for (const std::string& a : argv) cmd += " '" + a + "'";
        cmd += " >" + scratch + "/demo.out 2>" + scratch + "/demo.err";
        const int status = std::system(cmd.c_str());
        const std::string out = atctl_test::slurp(scratch + "/demo.out");
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 0) << out << atctl_test::slurp(scratch + "/demo.err");

        // First line: "modemsim (pid N) and atserver (pid M) in DIR"; then "$ atctl ...".
        const size_t eol = out.find('\n');
        ASSERT_NE(eol, std::string::npos) << out;
        const std::string head = out.substr(0, eol);
        std::smatch m;
        const std::regex started(R"(modemsim \(pid (\d+)\) and atserver \(pid (\d+)\) in (\S+))");
        ASSERT_TRUE(std::regex_match(head, m, started)) << head;
        const int sim = std::stoi(m[1]), server = std::stoi(m[2]);
        const std::string dir = m[3];
        EXPECT_FALSE(std::filesystem::exists(dir)) << dir;
        EXPECT_NE(kill(sim, 0), 0);
        EXPECT_NE(kill(server, 0), 0);

        const size_t body = out.find('\n', eol + 1);
        ASSERT_NE(body, std::string::npos) << out;
        const std::string shown = out.substr(body + 1);
        if (c.json) {
            const std::optional<Json> doc = parse_json(shown);
            ASSERT_TRUE(doc.has_value()) << shown;
            EXPECT_TRUE((*doc)["csq"]["ok"].boolean) << shown;
        } else {
            EXPECT_EQ(out.substr(eol + 1, body - eol - 1), "$ atctl status");
            EXPECT_EQ(shown.rfind("csq        rssi ", 0), 0u) << shown;
            EXPECT_NE(shown.find("\ncreg       stat "), std::string::npos) << shown;
        }
    }
    std::filesystem::remove_all(scratch);
}

}  // namespace
