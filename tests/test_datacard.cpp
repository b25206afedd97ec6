// The datacard command set against the scripted fake AT server: lines ending in their own CR,
// the reply converters, and error replies that never reach the record.
#include <algorithm>

#include "test_gps_support.h"

using namespace atapi_test;

namespace {

// Writes any number into an enum field, as a C caller may.
template <typename E>
void store(E& e, int v) {
    static_assert(sizeof(E) == sizeof(int));
    std::memcpy(&e, &v, sizeof v);
}

TEST(Datacard, Queries) {
    run<AT_ZTE_ZPAS_ST>({"AT+ZPAS?\r", "+ZPAS:", 30}, AT_ZTE_zpas,
                        [](auto& r) { return fields(r.network_type, r.service_domain, r.enAtExecResult); }, {
        {"both",                 ok("+ZPAS: \"LTE\",\"CS_PS\""),              0, "LTE,CS_PS,-2"},
        {"short reply",          ok("+ZPAS: \"No Service\""),                 0, "No Service,?,-2"},
        {"cut to 31",            ok("+ZPAS: " + std::string(40, 'n') + ",d"), 0, std::string(31, 'n') + ",d,-2"},
        {"CME error not mapped", cme("+CME ERROR: 10"),                      -1, ""},
        {"unparsable",           ok("junk"),                                 -1, ""},
    });
    run<AT_ZTE_ZPINPUK_ST>({"AT+ZPINPUK=?\r", "+ZPINPUK:", 30}, AT_ZTE_zpinpuk,
                           [](auto& r) { return fields(r.pin_left_times, r.puk_left_times, r.enAtExecResult); }, {
        {"counts",         ok("+ZPINPUK: 3,10"), 0, "3,10,-2"},
        {"negative wraps", ok("+ZPINPUK: -1,x"), 0, "4294967295,0,-2"},
        {"plain error",    result(AT_ERROR),    -1, ""},
    });
    run<AT_ZTE_ZSNT_ST>({"AT+ZSNT?\r", "+ZSNT:", 30}, AT_ZTE_zsnt_read,
                        [](auto& r) { return fields(r.enPrefMode, r.enSelectMode, r.enAccessMode, r.enAtExecResult); }, {
        {"modes",                      ok("+ZSNT: 1,2,0"),  0, "1,2,0,-2"},
        {"cm_mode 3: -1 after success", ok("+ZSNT: 3,0,0"), -1, "?,?,?,-2"},
        {"negative select mode",       ok("+ZSNT: 2,-1,1"), -1, "2,?,?,-2"},
        {"short reply",                ok("+ZSNT: 0"),      0, "0,?,?,-2"},
        {"CMS error",                  cms("+CMS ERROR: 500"), -1, ""},
    });
    run<AT_ZTE_ZOPRT_ST>({"AT+ZOPRT?\r", "+ZOPRT:", 30}, AT_ZTE_zoprt_read,
                         [](auto& r) { return fields(r.enPowerMode, r.enAtExecResult); }, {
        {"online",    ok("+ZOPRT: 5"), 0, "5,-2"},
        {"low power", ok("+ZOPRT: 6"), 0, "6,-2"},
        {"mode 4",    ok("+ZOPRT: 4"), -1, "?,-2"},
    });
    run<AT_ZTE_ZUSIM_ST>({"AT+ZUSIM=?\r", "+ZUSIM:", 30}, AT_ZTE_zusim,
                         [](auto& r) { return fields(r.enSimType, r.enAtExecResult); }, {
        {"USIM", ok("+ZUSIM: 1"), 0, "1,-2"},
        {"SIM",  ok("+ZUSIM: 0"), 0, "0,-2"},
        {"2",    ok("+ZUSIM: 2"), -1, "?,-2"},
    });
}

TEST(Datacard, Configuration) {
    const char params[] = "489efg";
    for (int mode = CDMODE_AUTORUN_ENABLE; mode <= CDMODE_DOWNLOAD_QUERY; ++mode) {
        const std::string m = std::to_string(mode);
        run<AT_ZTE_ZCDRUN_ST>({std::string("AT+ZCDRUN=") + params[mode] + "\r", "", 30},
                              [mode](AT_ZTE_ZCDRUN_ST* r) { store(r->enConfigMode, mode); return AT_ZTE_zcdrun(r); },
                              [](auto& r) { return fields(r.enConfigMode, r.enAtExecResult); }, {
            {"OK",          ok(),             0, m + ",-2"},
            {"plain error", result(AT_ERROR), -1, m + ",?"},
        });
    }
    // Limited selection (2) goes out; the other values are not checked.
    run<AT_ZTE_ZSNT_ST>({"AT+ZSNT=7,2,1\r", "", 30}, [](AT_ZTE_ZSNT_ST* r) {
        store(r->enPrefMode, 7);
        store(r->enSelectMode, 2);
        store(r->enAccessMode, 1);
        return AT_ZTE_zsnt_config(r);
    }, [](auto& r) { return fields(r.enPrefMode, r.enSelectMode, r.enAccessMode, r.enAtExecResult); }, {
        {"OK",                   ok(),                  0, "7,2,1,-2"},
        {"CME error not mapped", cme("+CME ERROR: 3"), -1, "7,2,1,?"},
    });
    run<AT_ZTE_ZOPRT_ST>({"AT+ZOPRT=4\r", "", 3}, [](AT_ZTE_ZOPRT_ST* r) { store(r->enPowerMode, 4); return AT_ZTE_zoprt_config(r); },
                         [](auto& r) { return fields(r.enPowerMode, r.enAtExecResult); }, {
        {"unchecked mode", ok(),             0, "4,-2"},
        {"plain error",    result(AT_ERROR), -1, "4,?"},
    });
}

// The converters' values go through the queries above; here the mode characters, null arguments
// and the values the queries do not show.
TEST(Datacard, Converters) {
    for (int mode = 0; mode <= 7; ++mode) {
        AT_ZTE_CDMODE_CONFIG_TYPE m;
        store(m, mode);
        EXPECT_EQ(ats_convert_cdmode_type_to_param(m), "489efg\0"[std::min(mode, 6)]) << mode;
    }
    AT_ZTE_DEVICE_POWER_MODE power = POWER_MODE_ONLINE;
    AT_ZTE_NETWORK_ACCESS_MODE access = NETWORK_ACCESS_AUTO;
    clear_traces();
    EXPECT_EQ(ats_convert_zoprt_power_mode("1", &power), 0);
    EXPECT_EQ(power, POWER_MODE_FTM);
    EXPECT_EQ(ats_convert_zsnt_access_mode("3", &access), -1);
    EXPECT_EQ(access, NETWORK_ACCESS_AUTO);
    EXPECT_EQ(ats_convert_zsnt_pref_mode(nullptr, nullptr), -1);
    EXPECT_EQ(count_trace("ats_convert_zsnt_access_mode: bad param!\n"), 1u);
    EXPECT_EQ(count_trace("ats_convert_zsnt_pref_mode: bad param!\n"), 1u);
}

TEST(Datacard, RefusedBeforeSendingAndTraces) {
    expect_nothing_sent({
        {"null records", [] {
             return AT_ZTE_zcdrun(nullptr) == -1 && AT_ZTE_zpas(nullptr) == -1 && AT_ZTE_zpinpuk(nullptr) == -1 &&
                    AT_ZTE_zsnt_read(nullptr) == -1 && AT_ZTE_zsnt_config(nullptr) == -1 &&
                    AT_ZTE_zoprt_read(nullptr) == -1 && AT_ZTE_zoprt_config(nullptr) == -1 && AT_ZTE_zusim(nullptr) == -1;
         }},
        {"cd mode 6", [] { auto r = sentinel<AT_ZTE_ZCDRUN_ST>(); store(r.enConfigMode, 6); return AT_ZTE_zcdrun(&r) == -1 && untouched(r.enAtExecResult); },
         "AT_ZTE_zcdrun: bad cdmode param!\n"},
        {"cd mode -1", [] { AT_ZTE_ZCDRUN_ST r{}; store(r.enConfigMode, -1); return AT_ZTE_zcdrun(&r) == -1; },
         "AT_ZTE_zcdrun: bad cdmode param!\n"},
        {"manual selection", [] { AT_ZTE_ZSNT_ST r{}; r.enSelectMode = NETWORK_SELECT_MANUAL; return AT_ZTE_zsnt_config(&r) == -1; },
         "AT_ZTE_zsnt_config: manual mode is not supported, please use AT+COPS instead!\n"},
    });
    // Why a query failed shows only in the trace.
    FakeAtServer ats;
    const std::tuple<Reply, std::function<int()>, const char*> failures[] = {
        {ok("junk"), [] { AT_ZTE_ZSNT_ST r{}; return AT_ZTE_zsnt_read(&r); }, "AT_ZTE_zsnt_read: at_cmd_parse fail!\n"},
        {ok("+ZUSIM: 2"), [] { AT_ZTE_ZUSIM_ST r{}; return AT_ZTE_zusim(&r); }, "AT_ZTE_zusim: invalid sim status!\n"},
        {ok("+ZOPRT: 0"), [] { AT_ZTE_ZOPRT_ST r{}; return AT_ZTE_zoprt_read(&r); }, "ats_convert_zoprt_power_mode: bad param!\n"},
    };
    for (const auto& [reply, call, trace] : failures) {
        clear_traces();
        ats.reply(reply);
        EXPECT_EQ(call(), -1) << trace;
        EXPECT_EQ(count_trace(trace), 1u) << trace;
    }
    ats.die();
    clear_traces();
    EXPECT_TRUE(fails_untouched<AT_ZTE_ZPAS_ST>(AT_ZTE_zpas));
    AT_ZTE_ZOPRT_ST oprt{POWER_MODE_ONLINE, AT_CMD_RES_ERR};
    EXPECT_EQ(AT_ZTE_zoprt_config(&oprt), -1);
    EXPECT_EQ(oprt.enAtExecResult, AT_CMD_RES_ERR);
    EXPECT_EQ(count_trace("AT_ZTE_zpas: GetDataFromAtServer fail!\n"), 1u);
    EXPECT_EQ(count_trace("AT_ZTE_zoprt_config: GetDataFromAtServer fail!\n"), 1u);
}

}  // namespace
