// Voice calls and the SIM toolkit end to end: the library and atctl against modemsim (its
// built-in default scenario) and atserver, one stack for the whole program.
#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "e2e/harness.h"
#include "test_atctl.h"

using namespace std::chrono_literals;

namespace {

std::unique_ptr<e2e::Stack> g_stack;

class VoiceE2E : public testing::Test {
protected:
    static void SetUpTestSuite() {
        g_stack = std::make_unique<e2e::Stack>();
        // The far end alerts and answers sooner than the default's 0.5 s and 1.5 s.
        g_stack->sim_options = {"--set", "alert_ms=250", "--set", "answer_ms=600"};
        ASSERT_TRUE(g_stack->start());
    }
    static void TearDownTestSuite() { g_stack.reset(); }
    void SetUp() override {
        if (!g_stack || !g_stack->server.pid()) GTEST_SKIP() << "no stack";
    }
};

// The calls as "id:dir:stat:number" joined by blanks, or "error".
std::string calls() {
    ats_current_call_info rows[21]{};
    if (AT_CLCC(rows) != 0) return "error";
    std::string s;
    for (const ats_current_call_info& c : rows)
        if (c.call_id != 0)
            s += (s.empty() ? "" : " ") + std::to_string(c.call_id) + ":" + std::to_string(c.call_dir) + ":" +
                 std::to_string(c.call_stat) + ":" + c.call_number;
    return s;
}

// Polls the call list until it reads `want` (the modem moves calls on its own time).
std::string calls_become(const std::string& want, std::chrono::milliseconds limit = 5s) {
    const auto end = std::chrono::steady_clock::now() + limit;
    std::string now = calls();
    while (now != want && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(50ms);
        now = calls();
    }
    return now;
}

int control(const char* line) { return g_stack->control(line) ? 0 : -1; }

// Results joined in the order of the list: a braced list is evaluated from left to right.
std::string in_order(std::initializer_list<std::string> parts) {
    std::string s;
    for (const std::string& p : parts) s += p;
    return s;
}
int in_order(std::initializer_list<int> results) {
    int sum = 0;
    for (int r : results) sum += r;
    return sum;
}

std::string shown(unsigned char v) { return std::to_string(v); }
template <size_t N>
std::string shown(const char (&text)[N]) { return std::string(text, strnlen(text, N)); }

// The AT server's last report of `name` through `parse`: "rc:member,member...".
template <typename Rec, typename... M>
std::string stored(const char* name, int (*parse)(char*, Rec*), M Rec::*... member) {
    e2e::Outcome o = e2e::exchange(name);
    if (o.rc != 0 || o.ret_val != AT_CMD_OK) return "none";
    Rec r{};
    std::string s = std::to_string(parse(o.report.data(), &r)) + ":";
    ((s += shown(r.*member) + ","), ...);
    s.pop_back();
    return s;
}

TEST_F(VoiceE2E, CallsMoveThroughTheirStates) {
    const std::vector<std::tuple<const char*, std::function<int()>, int, std::string>> steps = {
        {"answer with nothing ringing", [] { return AT_A(); }, -1, ""},
        {"dial", [] { return AT_D("+15550100"); }, 0, "1:0:0:+15550100"},
        {"hold", [] { return AT_CHLD(ATS_OPERATE_TWO); }, 0, "1:0:1:+15550100"},
        {"resume", [] { return AT_CHLD(ATS_OPERATE_TWO); }, 0, "1:0:0:+15550100"},
        {"a second call waits", [] { return control("@ring +15550111"); }, 0, "1:0:0:+15550100 2:1:5:+15550111"},
        {"swap to it", [] { return AT_CHLD(ATS_OPERATE_TWO); }, 0, "1:0:1:+15550100 2:1:0:+15550111"},
        {"release it", [] { return AT_CHLD(ATS_OPERATE_ONE_2); }, 0, "1:0:1:+15550100"},
        {"take the held call back", [] { return AT_CHLD(ATS_OPERATE_TWO); }, 0, "1:0:0:+15550100"},
        {"hang up", [] { return AT_CHUP(); }, 0, ""},
        {"a call rings", [] { return control("@ring 5550122"); }, 0, "1:1:4:5550122"},
        {"answer it", [] { return AT_A(); }, 0, "1:1:0:5550122"},
        {"the caller hangs up", [] { return control("@remote_hangup"); }, 0, ""},
        {"a dial string that chains a command", [] { return AT_D("+15550100;+CHUP"); }, -1, ""},
    };
    for (const auto& [what, act, rc, want] : steps) {
        EXPECT_EQ(act(), rc) << what;
        EXPECT_EQ(calls_become(want), want) << what;
    }
    // The reports of those calls, as the AT server keeps the last of each, through the parsers.
    using End = CS_MSG_CEND_S;
    const std::pair<std::string, std::string> reports[] = {
        {stored("^CEND", AtsCendParse, &End::ucCmdFrom, &End::ucCallId, &End::ucEndCause, &End::auCallCtlCause), "0:1,1,104,16"},
        {stored("+CLIP", AtsClipParse, &CS_MSG_CLIP_S::aucTelNum, &CS_MSG_CLIP_S::ucTelType), "0:5550122,129"},
        {stored("+CCWA", AtsCcwaParse, &CS_MSG_CCWA_S::call_number, &CS_MSG_CCWA_S::call_class), "0:+15550111,1"},
        {stored("^ORIG", AtsOrigParse, &CS_MSG_ORIG_S::ucCallId, &CS_MSG_ORIG_S::ucTelType), "0:1,0"},
        {stored("^CONF", AtsConfParse, &CS_MSG_CONF_S::ucCallId), "0:1"},
        {stored("^CONN", AtsConnParse, &CS_MSG_CONN_S::ucCallId, &CS_MSG_CONN_S::ucTelType), "0:1,0"},
    };
    for (const auto& [got, want] : reports) EXPECT_EQ(got, want);
}

TEST_F(VoiceE2E, SettingsPersist) {
    auto ccwa = [](int mode) {
        ccwa_config_info c{};
        c.mode = mode;
        c.ccwa_class = 1;
        const int rc = AT_CCWA(&c);
        return rc == 0 && mode == 2 ? std::to_string(c.ccwa_count) + ":" + std::to_string(c.check_info[0].ccwa_status)
                                    : std::to_string(rc);
    };
    auto ccfc = [](int reason, int mode, const char* number, int time) {
        ccfc_forwarding_info f{};
        f.ccfc_reason = reason, f.ccfc_mode = mode, f.ccfc_type = 145, f.ccfc_class = 1, f.ccfc_time = time;
        std::strcpy(f.ccfc_number, number);
        const int rc = AT_CCFC(&f);
        const ccfc_check_info& e = f.check_info[0];
        return rc == 0 && mode == 2 ? std::to_string(e.check_status) + ":" + e.check_number + ":" + std::to_string(e.check_time)
                                    : std::to_string(rc);
    };
    auto integer = [](int (*fn)(AT_OPERATE_VALUE, int*), int value) {
        int v = value;
        const int set = fn(AT_SET_VALUE, &v);
        v = -1;
        const int read = fn(AT_CHECK_VALUE, &v);
        return std::to_string(set) + "," + std::to_string(read) + ":" + std::to_string(v) + " ";
    };
    const std::vector<std::tuple<const char*, std::function<std::string()>, std::string>> rows = {
        {"waiting off, on", [&] { return in_order({ccwa(0), " ", ccwa(2), " ", ccwa(1), " ", ccwa(2)}); }, "0 1:0 0 1:1"},
        {"forward on no reply", [&] { return in_order({ccfc(2, 3, "+15550199", 20), " ", ccfc(2, 2, "", 0)}); }, "0 1:+15550199:20"},
        {"forwarding erased", [&] { return in_order({ccfc(4, 4, "", 0), " ", ccfc(2, 2, "", 0)}); }, "0 0::0"},
        {"presentation, notifications", [] { ats_supple_notification_info n{1, 1};
                                             return in_order({AT_CLIP(ATS_CALL_ID_ENABLE), AT_CSSN(&n)}) == 0 ? "ok" : "failed"; }, "ok"},
        {"audio integers", [&] { return in_order({integer(AT_CMUT, 1), integer(AT_SMUT, 1), integer(AT_CLVL, 5), integer(AT_CLVL, 9),
                                                  integer(AT_S0, 2)}); }, "0,0:1 0,0:1 0,0:5 -1,0:5 0,0:2 "},
        {"vendor audio", [] {
             StNsswitchInfo n{1, AT_CMD_RES_ERR};
             StPcmfrInfo p{"16000", AT_CMD_RES_ERR};
             st_mic_vol m{9, AT_CMD_RES_ERR};
             const int sets = in_order({AT_NSSWITCH(1, &n), AT_PCMFR(1, &p), AT_CMIC(AT_SET_VALUE, &m)});
             n = {}, p = {}, m = {};
             const int reads = in_order({AT_NSSWITCH(0, &n), AT_PCMFR(0, &p), AT_CMIC(AT_CHECK_VALUE, &m)});
             return std::to_string(sets + reads) + ":" + std::to_string(n.switch_mode) + "," + p.pcmfr_info + "," + std::to_string(m.level);
         }, "0:1,16000,9"},
        {"eCall", [] {
             st_ecl_cfg c{1, 0, 1, AT_CMD_RES_ERR};
             char data[] = "0A0B0C";
             st_ecl_msd m{data, AT_CMD_RES_ERR};
             st_ecl_start s{1, 0, 0, "112", AT_CMD_RES_ERR};
             return in_order({std::to_string(AT_Ecl_Cfg(&c)), std::to_string(AT_Ecl_Msd(&m)), std::to_string(AT_Ecl_Start(&s)),
                              std::to_string(AT_Ecl_Push()), std::to_string(AT_Ecl_Stop()), std::to_string(AT_Ecl_Push())});
         }, "00000-1"},
    };
    for (const auto& [what, call, want] : rows) EXPECT_EQ(call(), want) << what;
}

// ---- atctl ---------------------------------------------------------------------------------------

atctl_test::CliRun atctl(const std::vector<std::string>& args) { return atctl_test::run_atctl(args, g_stack->dir()); }

TEST_F(VoiceE2E, AtctlCallFromDialToHangUp) {
    // watch runs beside the other actions and is stopped with SIGINT once it printed the events.
    const std::string err = g_stack->dir() + "/watch.err";
    e2e::Child watch;
    const std::string redirect = "exec " ATCTL_BIN " call watch --interval 50 >" + g_stack->dir() + "/watch.out 2>" + err;
    ASSERT_TRUE(watch.spawn({"/bin/sh", "-c", redirect}, false));
    auto printed = [&](const std::string& text) {
        return e2e::eventually([&] { return atctl_test::slurp(err).find(text) != std::string::npos; });
    };
    ASSERT_TRUE(printed("interrupt to stop"));

    // One row per subcommand; the ways of misusing them are refused before any modem is asked.
    const std::vector<std::tuple<std::vector<std::string>, std::vector<std::string>, std::string>> steps = {
        {{"call", "dial", "+15550100"}, {"dial (ATD)", "  number    +15550100"}, "call 1 to +15550100: active"},
        {{"call", "hold"}, {"  call 1    +15550100, outgoing, active", "hold the active calls (AT+CHLD=2)"},
         "call 1 to +15550100: held"},
        {{"call", "resume"}, {"resume the held calls (AT+CHLD=2)"}, "call 1 to +15550100: active"},
        {{"call", "list"}, {"current calls (+CLCC)", "  call 1    +15550100, outgoing, active"}, ""},
        {{"call", "hangup", "1"}, {"release call 1 (AT+CHLD=11)"}, "call 1 to +15550100: ended"},
    };
    for (const auto& [args, lines, event] : steps) {
        const atctl_test::CliRun r = atctl(args);
        EXPECT_EQ(r.exit, 0) << args[1] << "\n" << r.out << r.err;
        atctl_test::expect_lines(r, lines);
        if (!event.empty()) {
            EXPECT_TRUE(printed(event)) << event;
        }
    }
    EXPECT_TRUE(g_stack->control("@ring +15550111"));
    EXPECT_TRUE(printed("call 1 from +15550111: incoming"));
    const atctl_test::CliRun answered = atctl({"call", "answer"});
    EXPECT_EQ(answered.exit, 0) << answered.out << answered.err;
    atctl_test::expect_lines(answered, {"answer (ATA)"});
    EXPECT_TRUE(printed("call 1 from +15550111: active"));
    EXPECT_TRUE(g_stack->control("@remote_hangup"));
    EXPECT_TRUE(printed("call 1 from +15550111: ended"));
    for (const char* event : {"call 1 to +15550100: dialing", "call 1 to +15550100: alerting"}) {
        EXPECT_NE(atctl_test::slurp(err).find(event), std::string::npos) << event;
    }

    watch.signal(SIGINT);
    ASSERT_TRUE(watch.wait_exit(5s));
    atctl_test::CliRun w;
    w.out = atctl_test::slurp(g_stack->dir() + "/watch.out");
    atctl_test::expect_lines(w, {"call events (+CLCC every 50 ms)", "  calls at the end  0"});
}

// One row per subcommand, in an order the toolkit's dialogs allow.
TEST_F(VoiceE2E, AtctlToolkit) {
    const std::vector<std::tuple<std::vector<std::string>, std::vector<std::string>>> steps = {
        {{"stk"}, {"  toolkit   on (mode 1)", "  item 1    Balance", "  item 2    Top up (help available)"}},
        {{"stk", "show"}, {"  pending   none (the main menu)"}},
        {{"stk", "select", "2"}, {"SIM toolkit: input (^STGI=3)", "  prompt    Voucher code", "  length    4 to 16"}},
        {{"stk", "answer", "9876"}, {"  text      Voucher 9876 accepted"}},
        {{"stk", "end"}, {"  pending   none (the main menu)"}},
        {{"stk", "off"}, {"switch the toolkit off (^STSF=0)"}},
        {{"stk", "on"}, {"switch the toolkit on (^STSF=1)"}},
    };
    for (const auto& [args, lines] : steps) {
        const atctl_test::CliRun r = atctl(args);
        EXPECT_EQ(r.exit, 0) << args.back() << "\n" << r.out << r.err;
        atctl_test::expect_lines(r, lines);
    }
}

}  // namespace
