// test_sim_e2e.cpp - the SIM family through real processes: modemsim playing its built-in default
// scenario, atserver, the library's functions, and `atctl sim` as a child process. The SIM's
// codes and contents are read from the built-in scenario itself.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "e2e/harness.h"
#include "scenario.h"
#include "test_atctl.h"

using atctl_test::CliRun;
using atctl_test::Json;

namespace {

std::string var(const std::string& name) {
    std::string error;
    static const std::optional<sim::Scenario> sc = sim::Scenario::builtin("default.scn", &error);
    if (!sc) return "(no scenario: " + error + ")";
    const auto it = sc->vars.find(name);
    return it == sc->vars.end() ? "(no variable " + name + ")" : it->second;
}

struct Row {
    const char* what;
    std::function<std::string()> got;
    std::string want;
};

void run_rows(const std::vector<Row>& rows) {
    for (const Row& r : rows) EXPECT_EQ(r.got(), r.want) << r.what;
}

// Takes the return code first: call the function before reading its record.
std::string rc_and(int rc, const std::string& s) { return std::to_string(rc) + ":" + s; }

std::string pin_state() {
    PinMgResultCodeEx r{};
    const int rc = AT_PinManagementEx(0, nullptr, nullptr, &r);
    return rc_and(rc, std::string(r.Code) + "," + r.ResTimes.ResPinTimes + "," + r.ResTimes.ResPukTimes);
}

std::string iccid_file(const std::string& digits) {
    std::string out;
    for (size_t i = 0; i < digits.size(); i += 2) out += std::string{i + 1 < digits.size() ? digits[i + 1] : 'F', digits[i]};
    return out;
}

TEST(SimE2e, DefaultScenarioAnswersEveryFunction) {
    e2e::Stack stack;
    ASSERT_TRUE(stack.start());
    run_rows({
        {"+CPIN state", [] { PinMgResultCode r{}; const int rc = AT_cpin_check(&r); return rc_and(rc, r.Code); }, "0:READY"},
        {"^CPIN counters", pin_state, "0:READY,3,10"},
        {"PIN lock", [] {
             PinEnStruct p{"SC", "2", "", "", 0};
             PinEnableResult r{};
             const int rc = AT_PinEnableDisableCmd(1, &p, &r);
             return rc_and(rc, r.Status);
         }, "0:" + var("pin_lock")},
        {"card mode", [] { ST_AT_CARDMODE r{}; const int rc = AT_cardmode(&r); return rc_and(rc, std::to_string(r.AtFieldValue)); }, "0:2"},
        {"ICCID", [] { StIccid r{}; const int rc = AT_Iccid(&r); return rc_and(rc, r.iccid); }, "0:" + var("iccid")},
        {"card id", [] { StScid r{}; const int rc = AT_SCID(&r); return rc_and(rc, r.Code); }, "0:" + var("iccid")},
        {"own number", [] {
             StSetCunmInfo r{};
             const int rc = AT_Cnum(&r);
             const std::string s = r.num == 1 ? std::string(r.pInfos[0].name) + "/" + r.pInfos[0].num : "count " + std::to_string(r.num);
             ATS_FreeMemory(r.pInfos);
             return rc_and(rc, s);
         }, "0:" + var("own_name") + "/" + var("own_number")},
        {"home PLMN", [] { APHPLMN r{}; const int rc = AT_aphplmn(0, &r); return rc_and(rc, r.mcc_mnc); }, "0:" + var("hplmn")},
        {"CDMA identity", [] { StCurrsid r{}; const int rc = AT_Currsid(&r); return rc_and(rc, std::string(r.curr_sid) + "," + r.curr_nid); }, "0:0,0"},
        {"SIM switch set and read back", [] {
             at_simswitch_type t = AT_SIMSWITCH_OUTER;
             const int set = AT_SimSwitch(1, &t);
             t = AT_SIMSWITCH_INNER;
             const int rc = set + AT_SimSwitch(0, &t);
             return rc_and(rc, std::to_string(t));
         }, "0:0"},
        {"SIM power switch", [] { int v = -1; const int rc = AT_SimGpio(0, &v); return rc_and(rc, std::to_string(v)); }, "0:" + var("sim_gpio")},
        {"MNC length", [] { return std::to_string(AT_get_mnc_length()); }, var("mnc_len")},
        {"GID1", [] { char b[32] = ""; const int rc = AT_get_sim_gid1(b, sizeof b); return rc_and(rc, b); }, "0:" + var("gid1")},
        {"access point name", [] { char b[64] = ""; const int rc = AT_get_sim_apn(b, sizeof b); return rc_and(rc, b); }, "0:" + var("sim_apn")},
        {"EF ICCID", [] {
             StCrsmPara p{176, AT_CRSM_FILEID_ICCID, 0, 0, 10, nullptr, nullptr};
             StCrsmRes r{};
             const int rc = AT_Crsm(&p, &r);
             const std::string s = std::to_string(r.w1) + "," + std::to_string(r.w2) + "," + (r.response ? r.response : "");
             ATS_FreeMemory(r.response);
             return rc_and(rc, s);
         }, "0:144,0," + iccid_file(var("iccid"))},
        {"generic access", [] {
             char apdu[] = "00A40004023F00";
             at_sim_cmd_packet p{14, apdu, {}};
             const int rc = AT_Csim(&p);
             return rc_and(rc, p.cmd_response);
         }, "0:9000"},
        {"service-provider name", [] { nvramcontnetres r{}; const int rc = at_spn_get(&r); return rc_and(rc, r.Code); }, "0:" + var("spn_name")},
    });
}

// A provider name in raw UCS2 bytes crosses the modem port and the server unchanged.
TEST(SimE2e, RawUcs2ProviderName) {
    e2e::Stack stack("on AT\non AT\\^SPN=1\n  line ^SPN: 0,1,\"\x80\x4E\x2D\x65\x87\"\n");
    ASSERT_TRUE(stack.start());
    nvramcontnetres r{};
    EXPECT_EQ(at_spn_get(&r), 0);
    EXPECT_STREQ(r.Code, "\xE4\xB8\xAD\xE6\x96\x87");
}

// modemsim --verbose shows every code of the PIN commands as ***.
TEST(SimE2e, VerboseOutputMasksCodes) {
    std::string error;
    std::optional<sim::Scenario> sc = sim::Scenario::builtin("default.scn", &error);
    ASSERT_TRUE(sc) << error;
    const sim::Engine engine(std::move(*sc));
    const std::pair<const char*, const char*> rows[] = {
        {"AT+CPIN=1234",                    "AT+CPIN=***"},
        {"AT+CPIN=12345678,4321",           "AT+CPIN=***,***"},
        {"AT^CPIN=\"1234\",\"\"",             "AT^CPIN=\"***\",\"***\""},
        {"AT+CLCK=\"SC\",1,\"1234\"",         "AT+CLCK=\"SC\",1,\"***\""},
        {"AT+CPWD=\"SC\",\"1234\",\"4321\"",  "AT+CPWD=\"SC\",\"***\",\"***\""},
        {"AT+CLCK=\"SC\", 2",               "AT+CLCK=\"SC\", 2"},
        {"AT+CPIN?",                        "AT+CPIN?"},
    };
    for (const auto& [line, shown] : rows) EXPECT_EQ(engine.masked(line), shown);
}

// ---- atctl sim ----------------------------------------------------------------------------------

class AtctlSim : public ::testing::Test {
protected:
    std::string file(const std::string& name, const std::string& text) {
        const std::string path = stack.dir() + "/" + name;
        std::ofstream(path) << text << "\n";
        return path;
    }
    CliRun atctl(const std::vector<std::string>& args) { return atctl_test::run_atctl(args, stack.dir()); }
    // With the codes on standard input, one per line.
    CliRun atctl_stdin(const std::string& args, const std::string& codes) {
        const std::string in = file("codes.in", codes), out = stack.dir() + "/out", err = stack.dir() + "/err";
        const int status = std::system((std::string(ATCTL_BIN) + " " + args + " <" + in + " >" + out + " 2>" + err).c_str());
        CliRun r;
        r.exit = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        r.out = atctl_test::slurp(out);
        r.err = atctl_test::slurp(err);
        return r;
    }
    void expect(const CliRun& r, int exit, const std::string& err_part) {
        EXPECT_EQ(r.exit, exit) << r.out << r.err;
        EXPECT_NE(r.err.find(err_part), std::string::npos) << r.err;
    }
    e2e::Stack stack;
};

TEST_F(AtctlSim, PinActionsFromLockedToUnblocked) {
    stack.sim_options = {"--set", "pin_state=SIM PIN"};
    ASSERT_TRUE(stack.start());
    const std::string pin = var("pin"), puk = var("puk"), wrong = pin == "0000" ? "1111" : "0000";
    const std::string wrong_file = file("wrong", wrong), pin_file = file("pin", pin);

    expect(atctl({"sim", "pin", "enter", "--pin-file", wrong_file}), 1, "atctl: wrong PIN, 2 attempts left (state SIM PIN)");
    PinMgResultCode r{};
    std::vector<char> w(wrong.begin(), wrong.end());
    w.push_back('\0');
    ASSERT_EQ(AT_PinManagement(1, w.data(), nullptr, &r), 0);
    EXPECT_EQ(pin_state(), "0:SIM PIN,1,10");
    // The last attempt is not spent without --force.
    expect(atctl({"sim", "pin", "enter", "--pin-file", wrong_file}), 1, "one PIN attempt left");
    EXPECT_EQ(pin_state(), "0:SIM PIN,1,10");
    const CliRun entered = atctl({"sim", "pin", "enter", "--pin-file", pin_file, "--force"});
    expect(entered, 0, "entering the PIN");
    atctl_test::expect_lines(entered, {"  done      PIN accepted", "  state          READY", "  pin attempts   3"});

    expect(atctl_stdin("sim pin change", pin + "\n4321"), 0, "changing the PIN");
    const std::string new_file = file("new", "4321");
    expect(atctl({"sim", "pin", "disable", "--pin-file", new_file}), 0, "switching the PIN lock off");
    expect(atctl({"sim", "pin", "disable", "--pin-file", new_file}), 1, "the PIN lock is already off");
    expect(atctl_stdin("sim pin enable", "4321"), 0, "switching the PIN lock on");
    expect(atctl({"sim", "pin", "enable", "--pin-file", file("short", "12")}), 2, "the PIN must be 4 to 8 digits");

    // Three wrong old PINs to a change block the SIM; the PUK and a new PIN unblock it.
    char sc[] = "SC", bad[] = "9999", fresh[] = "2468";
    for (int i = 0; i < 3; ++i) {
        PinModifyResultCode m{};
        EXPECT_EQ(AT_PinModify(sc, bad, fresh, &m), 0);
        EXPECT_EQ(m.AtExeResult, AT_CMD_RES_ERR);
    }
    EXPECT_EQ(pin_state(), "0:SIM PUK,0,10");
    expect(atctl({"sim", "pin", "enter", "--pin-file", new_file}), 1, "asks for the PUK: use 'atctl sim pin unblock'");
    expect(atctl_stdin("sim pin unblock", puk + "\n2468"), 0, "unblocking the SIM with the PUK");
    EXPECT_EQ(pin_state(), "0:READY,3,10");

    const CliRun j = atctl({"--json", "sim"});
    EXPECT_EQ(j.exit, 0) << j.out << j.err;
    atctl_test::expect_fields(atctl_test::parse_json(j.out).value_or(Json{}),
                              {{"cpin", "state", "'READY'"}, {"cpin", "pin_times", "3"}, {"clck", "enabled", "true"},
                               {"cardmode", "card", "'USIM'"}, {"iccid", "iccid", "'" + var("iccid") + "'"},
                               {"cnum", "number", "'" + var("own_number") + "'"}, {"spn", "name", "'" + var("spn_name") + "'"},
                               {"mnc_length", "mnc_length", var("mnc_len")}});
}

}  // namespace
