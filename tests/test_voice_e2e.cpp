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
    auto stored = [](const char* name) {
        const e2e::Outcome o = e2e::exchange(name);
        return o.rc == 0 && o.ret_val == AT_CMD_OK ? o.report : std::string("none");
    };
    std::string line = stored("^CEND");
    CS_MSG_CEND_S end{};
    EXPECT_EQ(AtsCendParse(line.data(), &end), 0) << line;
    EXPECT_EQ(std::to_string(end.ucCallId) + "," + std::to_string(end.ucEndCause) + "," + std::to_string(end.auCallCtlCause),
              "1,104,16");
    line = stored("+CLIP");
    CS_MSG_CLIP_S clip{};
    EXPECT_EQ(AtsClipParse(line.data(), &clip), 0) << line;
    EXPECT_STREQ(clip.aucTelNum, "5550122");
    EXPECT_EQ(clip.ucTelType, 129);
    line = stored("+CCWA");
    CS_MSG_CCWA_S waiting{};
    EXPECT_EQ(AtsCcwaParse(line.data(), &waiting), 0) << line;
    EXPECT_STREQ(waiting.call_number, "+15550111");
    line = stored("^ORIG");
    CS_MSG_ORIG_S orig{};
    EXPECT_EQ(AtsOrigParse(line.data(), &orig), 0) << line;
    EXPECT_EQ(orig.ucCallId, 1);
    line = stored("^CONF");
    CS_MSG_CONF_S conf{};
    EXPECT_EQ(AtsConfParse(line.data(), &conf), 0) << line;
    line = stored("^CONN");
    CS_MSG_CONN_S conn{};
    EXPECT_EQ(AtsConnParse(line.data(), &conn), 0) << line;
    EXPECT_EQ(conn.ucCallId, 1);
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
        return std::to_string(set) + "," + std::to_string(read) + ":" + std::to_string(v);
    };
    const std::vector<std::tuple<const char*, std::function<std::string()>, std::string>> rows = {
        {"waiting off", [&] { return in_order({ccwa(0), " ", ccwa(2)}); }, "0 1:0"},
        {"waiting on", [&] { return in_order({ccwa(1), " ", ccwa(2)}); }, "0 1:1"},
        {"forward on no reply", [&] { return in_order({ccfc(2, 3, "+15550199", 20), " ", ccfc(2, 2, "", 0)}); }, "0 1:+15550199:20"},
        {"forwarding erased", [&] { return in_order({ccfc(4, 4, "", 0), " ", ccfc(2, 2, "", 0)}); }, "0 0::0"},
        {"forwarding with a number that leaves its quotes", [&] { return ccfc(0, 3, "+1\",1", 0); }, "-1"},
        {"presentation and notifications", [] {
             ats_supple_notification_info n{1, 1};
             return in_order({std::to_string(AT_CLIP(ATS_CALL_ID_ENABLE)), std::to_string(AT_CSSN(&n))});
         }, "00"},
        {"mute", [&] { return integer(AT_CMUT, 1); }, "0,0:1"},
        {"speaker mute", [&] { return integer(AT_SMUT, 1); }, "0,0:1"},
        {"volume", [&] { return integer(AT_CLVL, 5); }, "0,0:5"},
        {"volume out of range", [&] { return integer(AT_CLVL, 9); }, "-1,0:5"},
        {"auto answer", [&] { return integer(AT_S0, 0); }, "0,0:0"},
        {"microphone", [] {
             st_mic_vol m{9, AT_CMD_RES_ERR};
             const int set = AT_CMIC(AT_SET_VALUE, &m);
             m.level = -1;
             const int read = AT_CMIC(AT_CHECK_VALUE, &m);
             return std::to_string(set) + std::to_string(read) + ":" + std::to_string(m.level);
         }, "00:9"},
        {"audio path, echo, PCM", [] {
             StNsswitchInfo n{1, AT_CMD_RES_ERR};
             StEchoexInfo e{1, 32, 8, 6, 4, AT_CMD_RES_ERR};
             StPcmfrInfo p{"16000", AT_CMD_RES_ERR};
             const int sets = in_order({AT_NSSWITCH(1, &n), AT_ECHOEX(1, &e), AT_PCMFR(1, &p)});
             n = {}, e = {}, p = {};
             const int reads = in_order({AT_NSSWITCH(0, &n), AT_ECHOEX(0, &e), AT_PCMFR(0, &p)});
             return std::to_string(sets) + std::to_string(reads) + ":" + std::to_string(n.switch_mode) + "," +
                    std::to_string(e.echo_time) + "," + p.pcmfr_info + "," + std::to_string(p.AtExecResult);
         }, "00:1,32,16000,-2"},
        {"eCall", [] {
             st_ecl_cfg c{1, 0, 1, AT_CMD_RES_ERR};
             char data[] = "0A0B0C";
             st_ecl_msd m{data, AT_CMD_RES_ERR};
             st_ecl_start s{1, 0, 0, "112", AT_CMD_RES_ERR};
             const std::string rcs = in_order({std::to_string(AT_Ecl_Cfg(&c)), std::to_string(AT_Ecl_Msd(&m)),
                                               std::to_string(AT_Ecl_Start(&s)), std::to_string(AT_Ecl_Push()),
                                               std::to_string(AT_Ecl_Stop()), std::to_string(AT_Ecl_Push())});
             return rcs + ":" + std::to_string(s.at_exe_result);
         }, "00000-1:-2"},
    };
    for (const auto& [what, call, want] : rows) EXPECT_EQ(call(), want) << what;
}

// The toolkit's entries of one kind as "name|name" (menus) or the text, or "none".
std::string toolkit(int (*read)(int, int*, StStgiPara*, StStgiRsp**), unsigned char kind) {
    int total = 0;
    StStgiRsp* e = nullptr;
    StStgiPara p{kind, 0, AT_CMD_RES_ERR};
    if (read(AT_SET_VALUE, &total, &p, &e) != 0) return "error";
    std::string s = e ? "" : "none";
    for (int i = 0; i < total; ++i) {
        const StStgiRsp& x = e[i];
        s += (i ? "|" : "") + std::string(reinterpret_cast<const char*>(x.name[0] ? x.name : x.TextInfo[0] ? x.TextInfo : x.URL));
        if (read == AT_StgiRefresh) s += std::to_string(x.RefreshType);
    }
    std::free(e);
    return s;
}

int answer(unsigned char kind, unsigned char result, unsigned char data_type, unsigned char item, const char* text = "") {
    StStgrPara p{kind, 0, result, data_type, item, {}, AT_CMD_RES_ERR};
    std::strcpy(reinterpret_cast<char*>(p.DataText), text);
    StStgrRsp r{AT_CMD_RES_ERR};
    const int rc = AT_Stgr(AT_SET_VALUE, &p, &r);
    return rc != 0 ? rc : r.AtExeResult == AT_CMD_RES_SUCCESS ? 0 : 1;
}

TEST_F(VoiceE2E, ToolkitMenusAndDialogs) {
    StStsfRsp state{};
    ASSERT_EQ(AT_Stsf(AT_CHECK_VALUE, nullptr, &state), 0);
    EXPECT_EQ(state.ucMode, 1);
    EXPECT_EQ(state.iTimeout, 10);
    const std::vector<std::tuple<const char*, std::function<int()>, int, std::function<std::string()>, std::string>> steps = {
        {"main menu", [] { return 0; }, 0, [] { return toolkit(AT_Stgi, 0); }, "Balance|Top up|More"},
        {"select Balance", [] { return answer(0, 0, 0, 1); }, 0, [] { return toolkit(AT_StgiText, 1); }, "Balance: 12.50 credits"},
        {"acknowledge", [] { return answer(1, 0, 2, 0); }, 0, [] { return toolkit(AT_StgiText, 1); }, "none"},
        {"select Top up", [] { return answer(0, 0, 0, 2); }, 0, [] { return toolkit(AT_StgiInput, 3); }, "Voucher code"},
        {"too short a code", [] { return answer(3, 0, 1, 0, "12"); }, 1, [] { return toolkit(AT_StgiInput, 3); }, "Voucher code"},
        {"a code", [] { return answer(3, 0, 1, 0, "123456"); }, 0, [] { return toolkit(AT_StgiText, 1); }, "Voucher 123456 accepted"},
        {"select More", [] { return answer(0, 0, 0, 3); }, 0, [] { return toolkit(AT_Stgi, 6); }, "Help pages|Rate us|Reload SIM"},
        {"select Rate us", [] { return answer(6, 0, 0, 2); }, 0, [] { return toolkit(AT_StgiInkey, 2); }, "Rate us from 1 to 5"},
        {"press 5", [] { return answer(2, 0, 1, 0, "5"); }, 0, [] { return toolkit(AT_StgiText, 1); }, "Thank you for rating 5"},
        {"back", [] { return answer(1, 17, 0, 0); }, 0, [] { return toolkit(AT_StgiText, 1); }, "none"},
        {"Help pages", [] { return in_order({answer(0, 0, 0, 3), answer(6, 0, 0, 1)}); }, 0, [] { return toolkit(AT_StgiBrowser, 11); },
         "http://example.com/help"},
        {"Reload SIM", [] { return in_order({answer(11, 0, 2, 0), answer(0, 0, 0, 3), answer(6, 0, 0, 3)}); }, 0,
         [] { return toolkit(AT_StgiRefresh, 7); }, "1"},
        {"end the session", [] { return answer(7, 16, 0, 0); }, 0, [] { return toolkit(AT_StgiRefresh, 7); }, "none"},
        {"toolkit off", [] { StStsfPara p{0, AT_CMD_RES_ERR}; return AT_Stsf(AT_SET_VALUE, &p, nullptr); }, 0,
         [] { return toolkit(AT_Stgi, 0); }, "none"},
        {"toolkit on", [] { StStsfPara p{1, AT_CMD_RES_ERR}; return AT_Stsf(AT_SET_VALUE, &p, nullptr); }, 0,
         [] { return toolkit(AT_Stgi, 0); }, "Balance|Top up|More"},
    };
    for (const auto& [what, act, rc, read, want] : steps) {
        EXPECT_EQ(act(), rc) << what;
        EXPECT_EQ(read(), want) << what;
    }
}

// ---- atctl ---------------------------------------------------------------------------------------

atctl_test::CliRun atctl(const std::vector<std::string>& args) { return atctl_test::run_atctl(args, g_stack->dir()); }

TEST_F(VoiceE2E, AtctlCallFromDialToHangUp) {
    // watch runs beside the other actions and is stopped with SIGINT once it printed the events.
    const std::string err = g_stack->dir() + "/watch.err";
    e2e::Child watch;
    const std::string redirect = "exec " ATCTL_BIN " call watch --interval 50 >" + g_stack->dir() + "/watch.out 2>" + err;
    ASSERT_TRUE(watch.spawn({"/bin/sh", "-c", redirect}, false));
    auto printed = [&](const std::string& text, std::chrono::milliseconds limit = 5s) {
        const auto end = std::chrono::steady_clock::now() + limit;
        while (atctl_test::slurp(err).find(text) == std::string::npos && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(20ms);
        return atctl_test::slurp(err).find(text) != std::string::npos;
    };
    ASSERT_TRUE(printed("interrupt to stop"));

    const std::vector<std::tuple<std::vector<std::string>, int, std::vector<std::string>, std::string>> steps = {
        {{"call", "dial", "+15550100"}, 0, {"dial (ATD)", "  number    +15550100"}, "call 1 to +15550100: active"},
        {{"call", "hold"}, 0, {"  call 1    +15550100, outgoing, active", "hold the active calls (AT+CHLD=2)"},
         "call 1 to +15550100: held"},
        {{"call", "hold"}, 1, {}, ""},
        {{"call", "resume"}, 0, {"resume the held calls (AT+CHLD=2)"}, "call 1 to +15550100: active"},
        {{"call", "list"}, 0, {"current calls (+CLCC)", "  call 1    +15550100, outgoing, active"}, ""},
        {{"call", "hangup"}, 0, {"hang up (AT+CHUP)"}, "call 1 to +15550100: ended"},
        {{"call", "dial", "+1555;0"}, 2, {}, ""},
        {{"call", "answer"}, 1, {"answer (ATA)", "  error     no usable answer*"}, ""},
        {{"call", "hangup", "12"}, 2, {}, ""},
    };
    for (const auto& [args, exit, lines, event] : steps) {
        const atctl_test::CliRun r = atctl(args);
        EXPECT_EQ(r.exit, exit) << args[1] << "\n" << r.out << r.err;
        atctl_test::expect_lines(r, lines);
        if (!event.empty()) {
            EXPECT_TRUE(printed(event)) << event;
        }
    }
    EXPECT_TRUE(g_stack->control("@ring +15550111"));
    EXPECT_TRUE(printed("call 1 from +15550111: incoming"));
    EXPECT_EQ(atctl({"call", "answer"}).exit, 0);
    EXPECT_TRUE(printed("call 1 from +15550111: active"));
    const atctl_test::CliRun j = atctl({"--json", "call", "hangup", "1"});
    EXPECT_EQ(j.exit, 0) << j.out;
    EXPECT_TRUE(atctl_test::parse_json(j.out).value_or(atctl_test::Json{})["chld"]["ok"].boolean) << j.out;
    EXPECT_TRUE(printed("call 1 from +15550111: ended"));
    for (const char* event : {"call 1 to +15550100: dialing", "call 1 to +15550100: alerting"}) EXPECT_TRUE(printed(event, 0ms)) << event;

    watch.signal(SIGINT);
    ASSERT_TRUE(watch.wait_exit(5s));
    atctl_test::CliRun w;
    w.out = atctl_test::slurp(g_stack->dir() + "/watch.out");
    atctl_test::expect_lines(w, {"call events (+CLCC every 50 ms)", "  calls at the end  0"});
}

TEST_F(VoiceE2E, AtctlToolkit) {
    const std::vector<std::tuple<std::vector<std::string>, int, std::vector<std::string>>> steps = {
        {{"stk"}, 0, {"  toolkit   on (mode 1)", "  item 1    Balance", "  item 2    Top up (help available)"}},
        {{"stk", "show"}, 0, {"  pending   none (the main menu)"}},
        {{"stk", "select", "2"}, 0, {"SIM toolkit: input (^STGI=3)", "  prompt    Voucher code", "  length    4 to 16"}},
        {{"stk", "answer", "12"}, 1, {}},
        {{"stk", "answer", "9876"}, 0, {"  text      Voucher 9876 accepted"}},
        {{"stk", "answer"}, 0, {"  pending   none (the main menu)"}},
        {{"stk", "select", "3"}, 0, {"SIM toolkit: menu (^STGI=6)", "  item 2    Rate us"}},
        {{"stk", "select", "2"}, 0, {"  prompt    Rate us from 1 to 5"}},
        {{"stk", "answer"}, 2, {}},
        {{"stk", "end"}, 0, {"  pending   none (the main menu)"}},
        {{"stk", "answer"}, 1, {}},
        {{"stk", "select", "x"}, 2, {}},
    };
    for (const auto& [args, exit, lines] : steps) {
        const atctl_test::CliRun r = atctl(args);
        EXPECT_EQ(r.exit, exit) << args.back() << "\n" << r.out << r.err;
        atctl_test::expect_lines(r, lines);
    }
}

}  // namespace
