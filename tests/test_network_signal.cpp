// Signal quality commands against the scripted fake AT server: the request on the wire, the
// record filled, the fields left alone, and how error replies come back.
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <atomic>
#include <thread>
#include <vector>

#include "atapi.h"
#include "fake_ats.h"
#include "test_network_support.h"
#include "trace_capture.h"

using namespace atapi_test;

namespace {

TEST(Signal, Csq) {
    run<AT_CSQ_ST>({"AT+CSQ", "+CSQ", 5}, AT_Csq, {
        {"values",            ok("+CSQ: 20,3"),        0, [](auto& r) { EXPECT_EQ(r.rssi, 20u); EXPECT_EQ(r.ber, 3u); }},
        {"unknown is no error", ok("+CSQ: 99,99"),     0, [](auto& r) { EXPECT_EQ(r.rssi, 99u); EXPECT_EQ(r.ber, 99u); }},
        {"extra value ignored", ok("+CSQ: 23,99,5"),   0, [](auto& r) { EXPECT_EQ(r.rssi, 23u); EXPECT_EQ(r.ber, 99u); }},
        {"missing ber kept",  ok("+CSQ: 17"),          0, [](auto& r) { EXPECT_EQ(r.rssi, 17u); EXPECT_EQ(r.ber, kSU); }},
        {"unparsable",        ok("no colon here"),    -1, is_untouched<AT_CSQ_ST>},
        {"plain error",       result(AT_ERROR),       -1, is_untouched<AT_CSQ_ST>},
        {"CME error not mapped", cme("+CME ERROR: 10"), -1, is_untouched<AT_CSQ_ST>},
    });
}

TEST(Signal, CsqTest) {
    run<AT_CSQ_TEST_ST>({"AT+CSQ=?", "+CSQ", 5}, AT_Csq_Test, {
        {"whole text", ok("+CSQ: (0-31,99),(99)"), 0, [](auto& r) { EXPECT_EQ(text(r.csq_list), "+CSQ: (0-31,99),(99)"); }},
        {"cut to 127", ok(std::string(300, 'x')),    0, [](auto& r) { EXPECT_EQ(std::string(r.csq_list), std::string(127, 'x')); }},
        {"error",      result(AT_ERROR),            -1, is_untouched<AT_CSQ_TEST_ST>},
        {"CMS error",  cms("+CMS ERROR: 311"),      -1, is_untouched<AT_CSQ_TEST_ST>},
    });
}

// The record sits in front of guard bytes so that a write past its 5 bytes shows.
struct GuardedRssi {
    StRssiInfo info;
    char guard[11];
};

TEST(Signal, RssiAsksForTheStoredReport) {
    const Wire stored{"", "", 30, GET_REPORT_REQ, AT_REPORT_RSSI_REQ};
    auto call = [](GuardedRssi* g) { return AT_Rssi(&g->info); };
    run<GuardedRssi>(stored, call, {
        {"value",           ok("^RSSI: 17"),      0, [](auto& g) { EXPECT_EQ(text(g.info.rssi), "17"); }},
        {"four characters", ok("^RSSI:-113"),     0, [](auto& g) { EXPECT_EQ(text(g.info.rssi), "-113"); }},
        {"too long is cut", ok("^RSSI: 1234567"), 0, [](auto& g) {
             EXPECT_EQ(text(g.info.rssi), "1234");
             for (char c : g.guard) EXPECT_EQ(c, 0x5A);
         }},
        {"not a report",    ok("nothing"),       -1, is_untouched<GuardedRssi>},
        {"none stored",     result(AT_ERROR),    -1, is_untouched<GuardedRssi>},
        {"CME error",       cme("+CME ERROR: 3"), -1, is_untouched<GuardedRssi>},
    });
}

TEST(Signal, RssiSettersAlwaysSendZero) {
    struct SetCase {
        const char* line;
        std::function<int()> call;
        const char* name;
    };
    const SetCase cases[] = {
        {"AT^RSSI=0", [] { return AT_Rssi_Without_Magic(); }, "AT_Rssi_Without_Magic"},
        {"AT^RSSI+7=0", [] { return AT_Rssi_With_Magic(7); }, "AT_Rssi_With_Magic"},
        {"AT^RSSI+-2147483648=0", [] { return AT_Rssi_With_Magic(-2147483647 - 1); }, "AT_Rssi_With_Magic"},
    };
    FakeAtServer ats;
    for (const SetCase& c : cases) {
        SCOPED_TRACE(c.line);
        const std::string name = c.name;
        for (int ret_val : {AT_CMD_OK, AT_ERROR, AT_CME_ERROR}) {
            ats.clear_requests();
            clear_traces();
            ats.reply(result(ret_val, ret_val == AT_CME_ERROR ? "+CME ERROR: 10" : ""));
            EXPECT_EQ(c.call(), ret_val == AT_CMD_OK ? 0 : -1);
            ASSERT_EQ(ats.count(), 1u);
            expect_wire(ats.last(), {c.line, "", 30});
            EXPECT_EQ(count_trace(name + " set enter GetDataFromAtServer before\n"), 1u);
            EXPECT_EQ(count_trace(name + " set GetDataFromAtServer after\n"), 1u);
            EXPECT_EQ(count_trace(name + " set success and leave!!!!\n"), ret_val == AT_CMD_OK ? 1u : 0u);
        }
    }
}

TEST(Signal, Hcsq) {
    const Wire wire{"AT^HCSQ?", "^HCSQ", 30, AT_REQ, AT_REPORT_REQ_NONE};
    run<HCSQ_STATUS>(wire, AT_Hcsq, {
        {"LTE, five values", ok("^HCSQ: \"LTE\",50,40,120,30,7"), 0, [](auto& r) {
             EXPECT_EQ(r.sysmode, SYSMODE_SIG_LTE);
             EXPECT_EQ(r.value1, 50u); EXPECT_EQ(r.value2, 40u); EXPECT_EQ(r.value3, 120u);
             EXPECT_EQ(r.value4, 30u); EXPECT_EQ(r.value5, 7u);
         }},
        {"GSM fills one value", ok("^HCSQ: \"GSM\",61"), 0, [](auto& r) {
             EXPECT_EQ(r.sysmode, SYSMODE_SIG_GSM);
             EXPECT_EQ(r.value1, 61u);
             EXPECT_EQ(r.value2, kSU); EXPECT_EQ(r.value3, kSU); EXPECT_EQ(r.value4, kSU); EXPECT_EQ(r.value5, kSU);
         }},
        {"NOSERVICE", ok("^HCSQ: \"NOSERVICE\""), 0, [](auto& r) {
             EXPECT_EQ(r.sysmode, SYSMODE_SIG_NOSERVICE);
             EXPECT_EQ(r.value1, kSU); EXPECT_EQ(r.value5, kSU);
         }},
        {"unknown mode kept", ok("^HCSQ: \"NR\",10,20"), 0, [](auto& r) {
             EXPECT_EQ(as_int(r.sysmode), kS);
             EXPECT_EQ(r.value1, 10u); EXPECT_EQ(r.value2, 20u); EXPECT_EQ(r.value3, kSU);
         }},
        {"mode text is case-sensitive", ok("^HCSQ: \"lte\",10"), 0, [](auto& r) { EXPECT_EQ(as_int(r.sysmode), kS); }},
        {"WCDMA",     ok("^HCSQ: \"WCDMA\",1,2,3"), 0, [](auto& r) { EXPECT_EQ(r.sysmode, SYSMODE_SIG_WCDMA); }},
        {"TD-SCDMA",  ok("^HCSQ: \"TD-SCDMA\",1"),  0, [](auto& r) { EXPECT_EQ(r.sysmode, SYSMODE_SIG_TD_SCDMA); }},
        {"CDMA",      ok("^HCSQ: \"CDMA\",1"),      0, [](auto& r) { EXPECT_EQ(r.sysmode, SYSMODE_SIG_CDMA); }},
        {"EVDO",      ok("^HCSQ: \"EVDO\",1"),      0, [](auto& r) { EXPECT_EQ(r.sysmode, SYSMODE_SIG_EVDO); }},
        {"CDMA-EVDO", ok("^HCSQ: \"CDMA-EVDO\",1"), 0, [](auto& r) { EXPECT_EQ(r.sysmode, SYSMODE_SIG_CDMA_EVDO); }},
        {"error",     result(AT_ERROR),            -1, is_untouched<HCSQ_STATUS>},
        {"CME error", cme("+CME ERROR: 10"),       -1, is_untouched<HCSQ_STATUS>},
    });
}

TEST(Signal, Cerssi) {
    auto query = [](CerssiRsp* r) { return AT_Cerssi(0, r); };
    run<CerssiRsp>({"AT^CERSSI?", "^CERSSI:", 30}, query, {
        {"eleven values", ok("^CERSSI: 0,0,-60,-70,-8,-95,-11,12,2,9,10"), 0, [](auto& r) {
             EXPECT_EQ(r.n, 0); EXPECT_EQ(r.m, 0); EXPECT_EQ(r.rssi, -60); EXPECT_EQ(r.rscp, -70);
             EXPECT_EQ(r.ecio, -8); EXPECT_EQ(r.rsrp, -95); EXPECT_EQ(r.rsrq, -11); EXPECT_EQ(r.rssnr, 12);
             EXPECT_EQ(r.ri, 2); EXPECT_EQ(r.cqi0, 9); EXPECT_EQ(r.cqi1, 10);
             EXPECT_EQ(r.AtExeResult, AT_CMD_RES_SUCCESS);
         }},
        {"short reply", ok("^CERSSI: 1,2,-50"), 0, [](auto& r) {
             EXPECT_EQ(r.n, 1); EXPECT_EQ(r.m, 2); EXPECT_EQ(r.rssi, -50);
             EXPECT_EQ(r.rscp, kS); EXPECT_EQ(r.cqi1, kS);
             EXPECT_EQ(r.AtExeResult, AT_CMD_RES_SUCCESS);
         }},
        {"CME error by number", cme("+CME ERROR: 10"), 0, [](auto& r) {
             EXPECT_EQ(r.AtExeResult, AT_CMD_RES_SIM_FAIL);
             EXPECT_EQ(r.n, kS); EXPECT_EQ(r.cqi1, kS);
         }},
        {"CME error by text", cme("+CME ERROR: SIM PIN required"), 0, [](auto& r) { EXPECT_EQ(r.AtExeResult, AT_CMD_RES_PIN_REQ); }},
        {"CMS error", cms("+CMS ERROR: 314"), 0, [](auto& r) { EXPECT_EQ(r.AtExeResult, AT_CMD_RES_SIM_BUSY); }},
        {"unreadable error line", cme("garbage"), 0, [](auto& r) { EXPECT_EQ(r.AtExeResult, AT_CMD_RES_AMSS_MAX); }},
        {"plain error", result(AT_ERROR), -1, is_untouched<CerssiRsp>},
        {"timeout in the server", result(AT_CMD_TIMEOUT), -1, is_untouched<CerssiRsp>},
        {"unparsable", ok("none"), -1, is_untouched<CerssiRsp>},
    });
}

TEST(Signal, Rsrp) {
    run<AT_RSRP_STRU>({"AT^LTERSRP?", "^LTERSRP", 30}, AT_Rsrp, {
        {"texts", ok("^LTERSRP: -95,-11"), 0, [](auto& r) {
             EXPECT_EQ(text(r.rsrp), "-95"); EXPECT_EQ(text(r.rsrq), "-11");
             EXPECT_EQ(r.AtExeResult, AT_CMD_RES_SUCCESS);
         }},
        {"long text cut to 7", ok("^LTERSRP: -123456789,-1"), 0, [](auto& r) {
             EXPECT_EQ(text(r.rsrp), "-123456"); EXPECT_EQ(text(r.rsrq), "-1");
         }},
        {"missing rsrq kept", ok("^LTERSRP: -95"), 0, [](auto& r) {
             EXPECT_EQ(text(r.rsrp), "-95");
             for (char c : r.rsrq) EXPECT_EQ(c, 0x5A);
         }},
        // An error answer reports success and writes nothing.
        {"plain error is success", result(AT_ERROR), 0, is_untouched<AT_RSRP_STRU>},
        {"CME error is success, unmapped", cme("+CME ERROR: 10"), 0, is_untouched<AT_RSRP_STRU>},
        {"unparsable", ok("none"), -1, is_untouched<AT_RSRP_STRU>},
    });
}

TEST(Signal, Csnr) {
    run<CsnrRsp>({"AT^CSNR?", "^CSNR:", 30}, AT_Csnr, {
        {"rscp and ecio; sinr never written", ok("^CSNR: -80,-6,13"), 0, [](auto& r) {
             EXPECT_EQ(r.rscp, -80); EXPECT_EQ(r.ecio, -6); EXPECT_EQ(r.sinr, kS);
             EXPECT_EQ(r.AtExeResult, AT_CMD_RES_SUCCESS);
         }},
        {"CME error", cme("+CME ERROR: 10"), -1, is_untouched<CsnrRsp>},
        {"plain error", result(AT_ERROR), -1, is_untouched<CsnrRsp>},
        {"unparsable", ok("none"), -1, is_untouched<CsnrRsp>},
    });
}

// Null records and refused command types never reach the AT server.
TEST(Signal, RefusedBeforeSending) {
    const std::vector<std::pair<const char*, std::function<int()>>> calls = {
        {"AT_Csq", [] { return AT_Csq(nullptr); }},
        {"AT_Csq_Test", [] { return AT_Csq_Test(nullptr); }},
        {"AT_Rssi", [] { return AT_Rssi(nullptr); }},
        {"AT_Hcsq", [] { return AT_Hcsq(nullptr); }},
        {"AT_Cerssi null", [] { return AT_Cerssi(0, nullptr); }},
        {"AT_Cerssi set", [] { CerssiRsp r{}; return AT_Cerssi(1, &r); }},
        {"AT_Cerssi -1", [] { CerssiRsp r{}; return AT_Cerssi(-1, &r); }},
        {"AT_Rsrp", [] { return AT_Rsrp(nullptr); }},
        {"AT_Csnr", [] { return AT_Csnr(nullptr); }},
    };
    FakeAtServer ats;
    for (const auto& [what, call] : calls) {
        EXPECT_EQ(call(), -1) << what;
        EXPECT_EQ(ats.count(), 0u) << what;
    }
}

// With the AT server gone every function fails at once and leaves the record alone.
TEST(Signal, ServerGone) {
    struct GoneCase {
        const char* what;
        std::function<int()> call;
        const char* trace;  // "" when the function traces nothing of its own
    };
    static AT_CSQ_ST csq;
    static AT_CSQ_TEST_ST csq_test;
    static StRssiInfo rssi;
    static HCSQ_STATUS hcsq;
    static CerssiRsp cerssi;
    static AT_RSRP_STRU rsrp;
    static CsnrRsp csnr;
    const GoneCase cases[] = {
        {"AT_Csq", [] { return AT_Csq(&csq); }, "[AT_Csq]get data failed!\n"},
        {"AT_Csq_Test", [] { return AT_Csq_Test(&csq_test); }, "[AT_Csq_Test]get data failed!\n"},
        {"AT_Rssi", [] { return AT_Rssi(&rssi); }, ""},
        {"AT_Hcsq", [] { return AT_Hcsq(&hcsq); }, ""},
        {"AT_Cerssi", [] { return AT_Cerssi(0, &cerssi); }, "AT_Cerssi GetDataFromAtServer failed\n"},
        {"AT_Rsrp", [] { return AT_Rsrp(&rsrp); }, "[AT_Rsrp]get data failed ---------------->AT_Rsrp!\n"},
        {"AT_Csnr", [] { return AT_Csnr(&csnr); }, ""},
        {"AT_Rssi_Without_Magic", [] { return AT_Rssi_Without_Magic(); }, "AT_Rssi_Without_Magic set GetDataFromAtServer after\n"},
        {"AT_Rssi_With_Magic", [] { return AT_Rssi_With_Magic(1); }, "AT_Rssi_With_Magic set GetDataFromAtServer after\n"},
    };
    csq = sentinel<AT_CSQ_ST>();
    csq_test = sentinel<AT_CSQ_TEST_ST>();
    rssi = sentinel<StRssiInfo>();
    hcsq = sentinel<HCSQ_STATUS>();
    cerssi = sentinel<CerssiRsp>();
    rsrp = sentinel<AT_RSRP_STRU>();
    csnr = sentinel<CsnrRsp>();
    FakeAtServer ats;
    ats.die();
    for (const GoneCase& c : cases) {
        clear_traces();
        EXPECT_EQ(c.call(), -1) << c.what;
        if (*c.trace) {
            EXPECT_EQ(count_trace(c.trace), 1u) << c.what;
        }
    }
    EXPECT_TRUE(untouched(csq));
    EXPECT_TRUE(untouched(csq_test));
    EXPECT_TRUE(untouched(rssi));
    EXPECT_TRUE(untouched(hcsq));
    EXPECT_TRUE(untouched(cerssi));
    EXPECT_TRUE(untouched(rsrp));
    EXPECT_TRUE(untouched(csnr));
}

}  // namespace

namespace {

// Callers on many threads at once each get the answer meant for them.
TEST(Signal, ConcurrentCallersGetTheirOwnReplies) {
    FakeAtServer ats;
    ats.respond([](const Request& req) { return ok("+CSQ: " + std::to_string(req.client_id % 97) + ",7"); });
    constexpr int kThreads = 8, kCalls = 25;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&] {
            const unsigned mine = static_cast<unsigned>(syscall(SYS_gettid) % 97);
            for (int i = 0; i < kCalls; ++i) {
                AT_CSQ_ST r{};
                if (AT_Csq(&r) != 0 || r.rssi != mine || r.ber != 7u) ++wrong;
            }
        });
    for (std::thread& th : threads) th.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(ats.count(), size_t(kThreads * kCalls));
}

}  // namespace
