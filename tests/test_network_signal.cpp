// Signal quality commands against the scripted fake AT server: the request on the wire, the
// record filled, the fields left alone, and how error replies come back.
#include <tuple>

#include "test_network_support.h"
#include "trace_capture.h"

using namespace atapi_test;

namespace {

constexpr int kOk = AT_CMD_RES_SUCCESS;

TEST(Signal, Csq) {
    run<AT_CSQ_ST>({"AT+CSQ", "+CSQ", 5}, AT_Csq, [](auto& r) { return fields(r.rssi, r.ber); }, {
        {"values",               ok("+CSQ: 20,3"),      0, "20,3"},
        {"unknown is no error",  ok("+CSQ: 99,99"),     0, "99,99"},
        {"extra value ignored",  ok("+CSQ: 23,99,5"),   0, "23,99"},
        {"missing ber kept",     ok("+CSQ: 17"),        0, "17,?"},
        {"unparsable",           ok("no colon here"),  -1, ""},
        {"CME error not mapped", cme("+CME ERROR: 10"), -1, ""},
    });
    run<AT_CSQ_TEST_ST>({"AT+CSQ=?", "+CSQ", 5}, AT_Csq_Test, [](auto& r) { return fields(r.csq_list); }, {
        {"whole text", ok("+CSQ: (0-31,99),(99)"),   0, "+CSQ: (0-31,99),(99)"},
        {"cut to 127", ok(std::string(300, 'x')),    0, std::string(127, 'x')},
        {"CMS error",  cms("+CMS ERROR: 311"),      -1, ""},
    });
}

// The record sits in front of guard bytes so that a write past its 5 bytes shows.
struct GuardedRssi {
    StRssiInfo info;
    char guard[11];
};

TEST(Signal, RssiAsksForTheStoredReport) {
    const Wire stored{"", "", 30, GET_REPORT_REQ, AT_REPORT_RSSI_REQ};
    run<GuardedRssi>(stored, [](GuardedRssi* g) { return AT_Rssi(&g->info); },
                     [](auto& g) { return fields(g.info.rssi, g.guard); }, {
        {"value",           ok("^RSSI: 17"),       0, "17,?"},
        {"four characters", ok("^RSSI:-113"),      0, "-113,?"},
        {"too long is cut", ok("^RSSI: 1234567"),  0, "1234,?"},
        {"not a report",    ok("nothing"),        -1, ""},
        {"none stored",     result(AT_ERROR),     -1, ""},
    });
}

TEST(Signal, RssiSettersAlwaysSendZero) {
    const std::tuple<const char*, int (*)(), std::string> cases[] = {
        {"AT^RSSI=0", [] { return AT_Rssi_Without_Magic(); }, "AT_Rssi_Without_Magic"},
        {"AT^RSSI+7=0", [] { return AT_Rssi_With_Magic(7); }, "AT_Rssi_With_Magic"},
        {"AT^RSSI+-2147483648=0", [] { return AT_Rssi_With_Magic(-2147483647 - 1); }, "AT_Rssi_With_Magic"},
    };
    FakeAtServer ats;
    for (const auto& [line, call, name] : cases) {
        for (int ret_val : {AT_CMD_OK, AT_ERROR, AT_CME_ERROR}) {
            SCOPED_TRACE(testing::Message() << line << " answered " << ret_val);
            ats.clear_requests();
            clear_traces();
            ats.reply(result(ret_val, ret_val == AT_CME_ERROR ? "+CME ERROR: 10" : ""));
            EXPECT_EQ(call(), ret_val == AT_CMD_OK ? 0 : -1);
            ASSERT_EQ(ats.count(), 1u);
            expect_wire(ats.last(), {line, "", 30});
            EXPECT_EQ(count_trace(name + " set enter GetDataFromAtServer before\n"), 1u);
            EXPECT_EQ(count_trace(name + " set GetDataFromAtServer after\n"), 1u);
            EXPECT_EQ(count_trace(name + " set success and leave!!!!\n"), ret_val == AT_CMD_OK ? 1u : 0u);
        }
    }
}

TEST(Signal, Hcsq) {
    const Wire wire{"AT^HCSQ?", "^HCSQ", 30, AT_REQ, AT_REPORT_REQ_NONE};
    run<HCSQ_STATUS>(wire, AT_Hcsq, [](auto& r) { return fields(r.sysmode, r.value1, r.value2, r.value3, r.value4, r.value5); }, {
        {"LTE, five values",    ok("^HCSQ: \"LTE\",50,40,120,30,7"), 0, "2,50,40,120,30,7"},
        {"GSM fills one value", ok("^HCSQ: \"GSM\",61"),             0, "0,61,?,?,?,?"},
        {"NOSERVICE",           ok("^HCSQ: \"NOSERVICE\""),          0, "-1,?,?,?,?,?"},
        {"unknown mode kept",   ok("^HCSQ: \"NR\",10,20"),           0, "?,10,20,?,?,?"},
        {"case-sensitive mode", ok("^HCSQ: \"lte\",10"),             0, "?,10,?,?,?,?"},
        {"WCDMA",               ok("^HCSQ: \"WCDMA\",1,2,3"),        0, "1,1,2,3,?,?"},
        {"TD-SCDMA",            ok("^HCSQ: \"TD-SCDMA\",1"),         0, "5,1,?,?,?,?"},
        {"CDMA",                ok("^HCSQ: \"CDMA\",1"),             0, "3,1,?,?,?,?"},
        {"EVDO",                ok("^HCSQ: \"EVDO\",1"),             0, "4,1,?,?,?,?"},
        {"CDMA-EVDO",           ok("^HCSQ: \"CDMA-EVDO\",1"),        0, "6,1,?,?,?,?"},
        {"CME error",           cme("+CME ERROR: 10"),              -1, ""},
    });
}

TEST(Signal, Cerssi) {
    run<CerssiRsp>({"AT^CERSSI?", "^CERSSI:", 30}, [](CerssiRsp* r) { return AT_Cerssi(0, r); },
                   [](auto& r) { return fields(r.n, r.m, r.rssi, r.rscp, r.ecio, r.rsrp, r.rsrq, r.rssnr, r.ri, r.cqi0, r.cqi1); }, {
        {"eleven values", ok("^CERSSI: 0,0,-60,-70,-8,-95,-11,12,2,9,10"), 0, "0,0,-60,-70,-8,-95,-11,12,2,9,10", kOk},
        {"short reply",           ok("^CERSSI: 1,2,-50"),             0, "1,2,-50,?,?,?,?,?,?,?,?", kOk},
        {"CME error by number",   cme("+CME ERROR: 10"),              0, "?,?,?,?,?,?,?,?,?,?,?", AT_CMD_RES_SIM_FAIL},
        {"CMS error",             cms("+CMS ERROR: 314"),             0, "?,?,?,?,?,?,?,?,?,?,?", AT_CMD_RES_SIM_BUSY},
        {"plain error",           result(AT_ERROR),                  -1, ""},
        {"timeout in the server", result(AT_CMD_TIMEOUT),            -1, ""},
        {"unparsable",            ok("none"),                        -1, ""},
    });
}

TEST(Signal, ReferenceSignalPairs) {
    run<AT_RSRP_STRU>({"AT^LTERSRP?", "^LTERSRP", 30}, AT_Rsrp, [](auto& r) { return fields(r.rsrp, r.rsrq); }, {
        {"texts",              ok("^LTERSRP: -95,-11"),       0, "-95,-11", kOk},
        {"long text cut to 7", ok("^LTERSRP: -123456789,-1"), 0, "-123456,-1", kOk},
        {"missing rsrq kept",  ok("^LTERSRP: -95"),           0, "-95,?", kOk},
        // An error answer reports success and writes nothing.
        {"plain error is success",         result(AT_ERROR),      0, ""},
        {"CME error is success, unmapped", cme("+CME ERROR: 10"), 0, ""},
        {"unparsable",                     ok("none"),           -1, ""},
    });
    run<CsnrRsp>({"AT^CSNR?", "^CSNR:", 30}, AT_Csnr, [](auto& r) { return fields(r.rscp, r.ecio, r.sinr); }, {
        {"sinr never written", ok("^CSNR: -80,-6,13"),  0, "-80,-6,?", kOk},
        {"CME error",          cme("+CME ERROR: 10"),  -1, ""},
        {"unparsable",         ok("none"),             -1, ""},
    });
}

// Null records and refused command types never reach the AT server.
TEST(Signal, RefusedBeforeSending) {
    const std::vector<std::pair<const char*, bool (*)()>> calls = {
        {"AT_Csq, AT_Csq_Test", [] { return AT_Csq(nullptr) == -1 && AT_Csq_Test(nullptr) == -1; }},
        {"AT_Rssi", [] { return AT_Rssi(nullptr) == -1; }},
        {"AT_Hcsq", [] { return AT_Hcsq(nullptr) == -1; }},
        {"AT_Cerssi", [] { CerssiRsp r{}; return AT_Cerssi(0, nullptr) == -1 && AT_Cerssi(1, &r) == -1 && AT_Cerssi(-1, &r) == -1; }},
        {"AT_Rsrp, AT_Csnr", [] { return AT_Rsrp(nullptr) == -1 && AT_Csnr(nullptr) == -1; }},
    };
    FakeAtServer ats;
    for (const auto& [what, call] : calls) {
        EXPECT_TRUE(call()) << what;
        EXPECT_EQ(ats.count(), 0u) << what;
    }
}

// With the AT server gone every function fails at once and leaves the record alone.
TEST(Signal, ServerGone) {
    expect_server_gone({
        {"AT_Csq", [] { return fails_untouched<AT_CSQ_ST>(AT_Csq); }, "[AT_Csq]get data failed!\n"},
        {"AT_Csq_Test", [] { return fails_untouched<AT_CSQ_TEST_ST>(AT_Csq_Test); }, "[AT_Csq_Test]get data failed!\n"},
        {"AT_Rssi", [] { return fails_untouched<StRssiInfo>(AT_Rssi); }, ""},
        {"AT_Hcsq", [] { return fails_untouched<HCSQ_STATUS>(AT_Hcsq); }, ""},
        {"AT_Cerssi", [] { return fails_untouched<CerssiRsp>([](CerssiRsp* r) { return AT_Cerssi(0, r); }); },
         "AT_Cerssi GetDataFromAtServer failed\n"},
        {"AT_Rsrp", [] { return fails_untouched<AT_RSRP_STRU>(AT_Rsrp); },
         "[AT_Rsrp]get data failed ---------------->AT_Rsrp!\n"},
        {"AT_Csnr", [] { return fails_untouched<CsnrRsp>(AT_Csnr); }, ""},
        {"AT_Rssi_Without_Magic", [] { return AT_Rssi_Without_Magic() == -1; },
         "AT_Rssi_Without_Magic set GetDataFromAtServer after\n"},
        {"AT_Rssi_With_Magic", [] { return AT_Rssi_With_Magic(1) == -1; },
         "AT_Rssi_With_Magic set GetDataFromAtServer after\n"},
    });
}

}  // namespace
