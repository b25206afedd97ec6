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

// A modem with no network for registration: the final result from a real server reaches the
// report. (The demo script below is the end-to-end run of status and signal.)
TEST(AtctlSim, ModemErrorsExitOne) {
    e2e::Stack stack("on AT\non AT\\+CREG\\?\n  final +CME ERROR: 30\n");
    ASSERT_TRUE(stack.start());
    char cme[] = "+CME ERROR: 30";
    const CliRun reg = atctl_test::run_atctl({"--json", "registration"}, stack.dir());
    EXPECT_EQ(reg.exit, 1) << reg.out << reg.err;
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
