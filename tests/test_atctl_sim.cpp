// test_atctl_sim.cpp - atctl against real processes: modemsim and atserver in a private run
// directory, and the README's demo script end to end.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
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
on AT\+CGMI
  line Example Modems
on AT\+CGMM
  line EM-LTE-1
on AT\^VERSION\?
  line ^VERSION:EXTD:EM1.04.12
  line ^VERSION:EXTH:EM-LTE-1 HW-A
on AT\^SN
  line ^SN: EMLTE1A0012345
on AT\+CIMI
  line 460001357924680
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
    atctl_test::expect_lines(r, {"csq        rssi -79 dBm (raw 17), ber 0.8 to 1.6 % (raw 3)"});

    const CliRun j = atctl(stack, {"status", "--json"});
    EXPECT_EQ(j.exit, 0) << j.err;
    const Json d = parse_json(j.out).value_or(Json{});
    ASSERT_EQ(d.kind, Json::Object) << j.out;
    atctl_test::expect_fields(d, {{"csq", "rssi_dbm", "-79"}, {"hcsq", "sysmode", "'WCDMA'"}, {"hcsq", "ecio_db", "-7.5"},
                                  {"cerssi", "rscp", "-80"}, {"rsrp", "rsrq_db", "-12"}, {"creg", "stat", "5"},
                                  {"cereg", "stat_text", "'not registered, searching'"}, {"cgatt", "attached", "false"},
                                  {"sysinfoex", "submode_name", "'HSPA+'"}, {"rejinfoex", "plmnid", "'46001'"},
                                  {"rejinfoex", "rejectcause_text", "'roaming not allowed in this location area'"}});
}

// Final result lines from a real server: a plain ERROR and a +CME ERROR.
TEST(AtctlSim, ModemErrorsExitOne) {
    e2e::Stack stack(kRefusingModem);
    ASSERT_TRUE(stack.start());
    char cme[] = "+CME ERROR: 30";
    const CliRun sig = atctl(stack, {"--json", "signal"}), reg = atctl(stack, {"--json", "registration"});
    EXPECT_EQ(sig.exit, 1) << sig.out << sig.err;
    EXPECT_EQ(reg.exit, 1) << reg.out << reg.err;
    atctl_test::expect_fields(parse_json(sig.out).value_or(Json{}),
                              {{"csq", "ok", "false"}, {"csq", "error", "'no usable answer'"}});
    atctl_test::expect_fields(parse_json(reg.out).value_or(Json{}),
                              {{"creg", "ok", "false"}, {"creg", "error", "'modem error'"},
                               {"creg", "result", std::to_string(Error_str_to_id(cme))}});
}

// The README's one command, here against the build under test: it prints the status of the
// simulated modem (or what the arguments ask for) and leaves no process and no run directory behind.
TEST(AtctlSim, DemoScriptRunsAndCleansUp) {
    atapi_test::RunDir dir;  // a scratch directory of this run only
    ASSERT_TRUE(dir.ok());
    const std::string scratch = dir.path();
    setenv("ATAPI_DEMO_BUILD", BUILD_DIR, 1);
    unsetenv("ATAPI_RUN_DIR");
    for (const std::string args : {"", " --json signal"}) {
        const std::string cmd = "bash '" DEMO_SCRIPT "'" + args + " >" + scratch + "/demo.out 2>" + scratch + "/demo.err";
        const int status = std::system(cmd.c_str());
        const std::string out = atctl_test::slurp(scratch + "/demo.out");
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 0) << out << atctl_test::slurp(scratch + "/demo.err");

        // "modemsim (pid N) and atserver (pid M) in DIR", "$ atctl ...", then what atctl printed.
        const size_t eol = out.find('\n'), body = out.find('\n', eol + 1);
        ASSERT_NE(body, std::string::npos) << out;
        const std::string head = out.substr(0, eol), shown = out.substr(body + 1);
        const std::string p1 = "modemsim (pid ", p2 = ") and atserver (pid ", p3 = ") in ";
        const size_t at2 = head.find(p2), at3 = head.find(p3);
        ASSERT_TRUE(head.starts_with(p1) && at2 != std::string::npos && at3 != std::string::npos && head.size() > at3 + p3.size())
            << head;
        EXPECT_FALSE(std::filesystem::exists(head.substr(at3 + p3.size()))) << head;
        EXPECT_NE(kill(std::stoi(head.substr(p1.size())), 0), 0);
        EXPECT_NE(kill(std::stoi(head.substr(at2 + p2.size())), 0), 0);
        if (args.empty()) {
            EXPECT_EQ(out.substr(eol + 1, body - eol - 1), "$ atctl status");
            EXPECT_TRUE(shown.starts_with("csq        rssi ")) << shown;
            EXPECT_NE(shown.find("\ncreg       stat "), std::string::npos) << shown;
        } else {
            EXPECT_TRUE(parse_json(shown).value_or(Json{})["csq"]["ok"].boolean) << shown;
        }
    }
}

}  // namespace
