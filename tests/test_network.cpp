// Signal quality and registration state commands and the system-information cache, against the
// scripted fake AT server and the configuration store of the fake server's run directory: the
// request on the wire, the record filled, the fields left alone, and how error replies come back.
#include <array>
#include <cstdlib>
#include <tuple>

#include "atplatform.h"
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

std::string sysinfo(const StSysinfo& r) {
    return fields(r.srv_status, r.srv_domain, r.roam_status, r.sys_mode, r.sim_state, r.lock_state, r.submode);
}
std::string sysinfoex(const SysinfoEx& r) {
    return fields(r.SrvStatus, r.SrvDomain, r.RoamStatus, r.SimState, r.SimLockState, r.SysMode, r.SysModeName,
                  r.SubMode, r.SubModeName);
}

// ---- Query halves --------------------------------------------------------------------------------

template <typename Rec>
std::function<int(Rec*)> query(int (*fn)(int, Rec*)) {
    return [fn](Rec* r) { return fn(AT_CHECK_VALUE, r); };
}

TEST(Registration, RegistrationStateQueries) {
    run<LacCellid>({"AT+CREG?", "+CREG:", 30}, query(AT_Creg), [](auto& r) { return fields(r.n, r.stat, r.lac, r.ci, r.act); }, {
        {"all five",          ok("+CREG: 2,1,\"25F0\",\"0C1A2B3\",7"), 0, "2,1,25F0,0C1A2B3,7", kOk},
        {"two values, texts kept", ok("+CREG: 0,1"),                0, "0,1,?,?,?", kOk},
        {"overlong texts cut to their fields",
         ok("+CREG: 2,5,\"0123456789ABCDEF0123\",\"FEDCBA9876543210FF\",\"12345\""),
         0, "2,5,0123456789ABCDE,FEDCBA987654321,123", kOk},
        {"CME error mapped",  cme("+CME ERROR: 30"),  0, "?,?,?,?,?", AT_CMD_RES_GPS_NO_NETWORK_SERVER},
        {"CMS error mapped",  cms("+CMS ERROR: 500"), 0, "?,?,?,?,?", AT_CMD_RES_BUSY},
        {"plain error",       result(AT_ERROR),      -1, ""},
        {"unparsable",        ok("nothing"),         -1, ""},
    });
    run<CgregRsp>({"AT+CGREG?", "+CGREG:", 30}, query(AT_Cgreg),
                  [](auto& r) { return fields(r.ReportMode, r.ReportState, r.LacCode, r.CellID, r.act); }, {
        {"all five",         ok("+CGREG: 1,5,\"A1B2\",\"00FF\",2"), 0, "1,5,A1B2,00FF,2", kOk},
        {"CME error mapped", cme("+CME ERROR: SIM busy"),          0, "?,?,?,?,?", AT_CMD_RES_SIM_BUSY},
        {"no carrier",       result(AT_NO_CARRIER),               -1, ""},
        {"unparsable",       ok("nothing"),                       -1, ""},
    });
    run<CeregRsp>({"AT+CEREG?", "+CEREG:", 30}, query(AT_Cereg),
                  [](auto& r) { return fields(r.ReportMode, r.ReportState, r.LacCode, r.CellID); }, {
        {"act ignored",      ok("+CEREG: 2,1,\"1A2B\",\"01A2B3C4\",7"), 0, "2,1,1A2B,01A2B3C4", kOk},
        {"CMS error mapped", cms("+CMS ERROR: 311"),                   0, "?,?,?,?", AT_CMD_RES_PIN_REQ},
        {"plain error",      result(AT_ERROR),                        -1, ""},
    });
}

TEST(Registration, AttachQueries) {
    run<PsAttatch>({"AT+CGATT?", "+CGATT:", 30}, query(AT_Cgatt), [](auto& r) { return fields(r.state); }, {
        {"attached",         ok("+CGATT: 1"),       0, "1", kOk},
        {"kept to 8 bits",   ok("+CGATT: 258"),     0, "2", kOk},
        {"CME error mapped", cme("+CME ERROR: 10"), 0, "?", AT_CMD_RES_SIM_FAIL},
        {"plain error",      result(AT_ERROR),     -1, ""},
    });
    // The set inputs state and mode stay as they were.
    run<AttatchInfo>({"AT^CGCATT?", "^CGCATT:", 30}, query(AT_Cgcatt),
                     [](auto& r) { return fields(r.state, r.mode, r.psState, r.csState); }, {
        {"domains",          ok("^CGCATT: 1,0"),   0, "?,?,1,0", kOk},
        {"CME error mapped", cme("+CME ERROR: 4"), 0, "?,?,?,?", AT_CMD_RES_OPERATION_NOT_SUPPORTED},
        {"plain error",      result(AT_ERROR),    -1, ""},
    });
}

TEST(Registration, RoamingQueries) {
    // The preference query never parses: its name has no handler row.
    run<RoamSwitch>({"at^prefroam?", "prefroam:", 30}, query(AT_PrefRoam), [](auto& r) { return fields(r.roam); }, {
        {"OK reply still fails", ok("^PREFROAM: 1"),     -1, ""},
        {"CME error not mapped", cme("+CME ERROR: 10"), -1, ""},
    });
    run<StRoamInfo>({"AT^CELLROAM?", "^CELLROAM", 5}, AT_Cellroam, [](auto& r) { return fields(r.state, r.rat); }, {
        {"international",       ok("^CELLROAM: 2,7"),   0, "2,7", kOk},
        {"state outside the enum kept as sent", ok("^CELLROAM: 7,1"), 0, "7,1", kOk},
        {"CME error mapped",    cme("+CME ERROR: 12"),  0, "?,?", AT_CMD_RES_PUK_REQ},
        {"plain error",         result(AT_ERROR),      -1, ""},
        {"unparsable",          ok("nothing"),         -1, ""},
    });
}

TEST(Registration, SysinfoCommands) {
    run<StSysinfo>({"AT^SYSINFO", "^SYSINFO", 30}, AT_SysinfoCommand, sysinfo, {
        {"seven values",         ok("^SYSINFO: 2,3,0,5,1,0,7"), 0, "2,3,0,5,1,0,7", kOk},
        {"CME error not mapped", cme("+CME ERROR: 10"),        -1, ""},
        {"unparsable",           ok("nothing"),                -1, ""},
    });
    run<SysinfoEx>({"AT^SYSINFOEX", "", 30}, AT_SysinfoexCommand, sysinfoex, {
        {"nine values", ok("^SYSINFOEX: 2,3,0,1,0,6,\"LTE\",101,\"LTE FDD\""), 0, "2,3,0,1,0,6,LTE,101,LTE FDD", kOk},
        {"long name cut to 19", ok("^SYSINFOEX: 2,3,0,1,0,6,\"ABCDEFGHIJKLMNOPQRSTUVWXYZ\",1,\"x\""),
         0, "2,3,0,1,0,6,ABCDEFGHIJKLMNOPQRS,1,x", kOk},
        {"plain error", result(AT_ERROR), -1, ""},
    });
}

TEST(Registration, RejectionInfo) {
    const std::vector<Case> cases = {
        {"four values",          ok("^REJINFO: \"46001\",1,15,7"), 0, "46001,1,15,7", kOk},
        {"CME error not mapped", cme("+CME ERROR: 10"),          -1, ""},
        {"unparsable",           ok("nothing"),                  -1, ""},
    };
    auto shown = [](const REJECT_INFOEX& r) { return fields(r.plmnid, r.srvdomain, r.rejectcause, r.rattype); };
    for (auto call : {AT_RejinfoexCommand, AT_RejInfoEx})
        run<REJECT_INFOEX>({"AT^REJINFO?", "^REJINFO:", 30}, call, shown, cases);
}

// ---- Set halves ---------------------------------------------------------------------------------

// Fills the input of a set half on a sentinel record, runs it and reports the result code left.
template <typename Rec, typename Fill>
std::pair<int, int> set_half(int (*fn)(int, Rec*), Fill fill) {
    Rec r = sentinel<Rec>();
    fill(r);
    const int rc = fn(AT_SET_VALUE, &r);
    return {rc, as_int(r.AtExeResult)};
}

TEST(Registration, SetLinesAndResults) {
    run_settings({
        {"AT+CREG=2", [] { return set_half(AT_Creg, [](LacCellid& r) { r.n = 2; }); }},
        {"AT+CGREG=1", [] { return set_half(AT_Cgreg, [](CgregRsp& r) { r.ReportMode = 1; }); }},
        {"AT+CEREG=0", [] { return set_half(AT_Cereg, [](CeregRsp& r) { r.ReportMode = 0; }); }},
        {"AT+CGATT=1", [] { return set_half(AT_Cgatt, [](PsAttatch& r) { r.state = 1; }); }},
        {"AT^CGCATT=1,2", [] { return set_half(AT_Cgcatt, [](AttatchInfo& r) { r.state = 1; r.mode = 2; }); }},
        {"at^prefroam = 3", [] { return set_half(AT_PrefRoam, [](RoamSwitch& r) { r.roam = 3; }); }},
        {"AT^SRVST=1", [] { return set_half(AT_Srvst, [](SrvstSet& r) { r.ReportMode = 1; }); }},
        {"AT^MODE=0", [] { return set_half(AT_Mode, [](ModeSet& r) { r.ReportMode = 0; }); }},
    },
    // Error replies to a setting are not mapped into the record.
    {
        {ok(), 0, kOk}, {cme("+CME ERROR: 10"), -1, kS}, {cms("+CMS ERROR: 314"), -1, kS}, {result(AT_ERROR), -1, kS},
    });
}

// ---- Refused before anything is sent -----------------------------------------------------------

// Null records and refused command types never reach the AT server. Each row: every call -1.
TEST(Network, RefusedBeforeSending) {
    const std::vector<std::pair<const char*, bool (*)()>> calls = {
        {"AT_Csq, AT_Csq_Test", [] { return AT_Csq(nullptr) == -1 && AT_Csq_Test(nullptr) == -1; }},
        {"AT_Rssi", [] { return AT_Rssi(nullptr) == -1; }},
        {"AT_Hcsq", [] { return AT_Hcsq(nullptr) == -1; }},
        {"AT_Cerssi", [] { CerssiRsp r{}; return AT_Cerssi(0, nullptr) == -1 && AT_Cerssi(1, &r) == -1 && AT_Cerssi(-1, &r) == -1; }},
        {"AT_Rsrp, AT_Csnr", [] { return AT_Rsrp(nullptr) == -1 && AT_Csnr(nullptr) == -1; }},
        {"AT_Creg", [] { LacCellid r{}; return AT_Creg(0, nullptr) == -1 && AT_Creg(2, &r) == -1 && AT_Creg(-1, &r) == -1; }},
        {"AT_Cgreg", [] { CgregRsp r{}; return AT_Cgreg(1, nullptr) == -1 && AT_Cgreg(2, &r) == -1; }},
        {"AT_Cereg", [] { CeregRsp r{}; return AT_Cereg(3, &r) == -1; }},
        {"AT_Cgatt", [] { PsAttatch r{}; return AT_Cgatt(2, &r) == -1; }},
        {"AT_Cgcatt", [] { AttatchInfo r{}; return AT_Cgcatt(2, &r) == -1; }},
        {"AT_PrefRoam", [] { RoamSwitch r{}; return AT_PrefRoam(2, &r) == -1; }},
        {"AT_Srvst", [] { SrvstSet r{}; return AT_Srvst(0, &r) == -1 && AT_Srvst(1, nullptr) == -1; }},
        {"AT_Mode", [] { ModeSet r{}; return AT_Mode(0, &r) == -1; }},
        {"commands", [] { return AT_SysinfoCommand(nullptr) == -1 && AT_SysinfoexCommand(nullptr) == -1; }},
        {"rejection", [] { return AT_RejinfoexCommand(nullptr) == -1 && AT_RejInfoEx(nullptr) == -1; }},
        {"cache", [] { return AT_SysInfo(nullptr) == -1 && AT_SysInfo_voice(nullptr) == -1 && AT_SysInfoEx(nullptr) == -1; }},
        {"cache reads", [] { return GetSysinfoFromDB(nullptr) == -1 && GetSysinfoexFromDB(nullptr) == -1; }},
        {"stubs", [] {
             StIMEI i{};
             StAmssVersion v{};
             return AT_imei(&i) == -1 && AT_CGSN(&i) == -1 && AT_Cgmr(&v) == -1 && AT_Hwver(&v) == -1;
         }},
    };
    FakeAtServer ats;
    ats.respond([](const Request&) { return ok("+CREG: 0,1"); });
    for (const auto& [what, call] : calls) {
        EXPECT_TRUE(call()) << what;
        EXPECT_EQ(ats.count(), 0u) << what;
    }
    clear_traces();
    EXPECT_EQ(AT_Cellroam(nullptr), -1);
    EXPECT_EQ(count_trace("Error:para is NULL"), 1u);
    EXPECT_EQ(ats.count(), 0u);
    SetSysinfoToDB(nullptr);
    SetSysinfoexToDB(nullptr);
    ATS_FreeMemory(nullptr);
    ATS_FreeMemory(std::malloc(16));
}

// With the AT server gone every function fails at once and leaves the record alone.
TEST(Network, ServerGone) {
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
        {"AT_Creg", [] { return fails_untouched<LacCellid>(query(AT_Creg)); }, ""},
        {"AT_Cgreg", [] { return fails_untouched<CgregRsp>(query(AT_Cgreg)); }, "AT_Cgreg GetDataFromAtServer failed\n"},
        {"AT_Cereg", [] { return fails_untouched<CeregRsp>(query(AT_Cereg)); }, "AT_Cereg GetDataFromAtServer failed\n"},
        {"AT_Cellroam", [] { return fails_untouched<StRoamInfo>(AT_Cellroam); }, "AT^Cellroam error......\n"},
        {"AT_RejinfoexCommand", [] { return fails_untouched<REJECT_INFOEX>(AT_RejinfoexCommand); },
         "AT_RejinfoexCommand GetDataFromAtServer fail\n"},
        {"AT_Srvst", [] { return fails_untouched<SrvstSet>([](SrvstSet* r) { return AT_Srvst(1, r); }); }, ""},
    });
}

// ---- The system information cache -------------------------------------------------------------

constexpr uint32_t kZeroKeys[ATP_CFG_KEY_COUNT] = {0, 0, 0, 0, 0, 0};
constexpr uint32_t kNumSlots[] = {0, 1, 2, 3, 4, 5, 7};

// Writes slots 0 to 5 and 7 behind the library's back, as the rest of the router may.
void store(const std::array<uint32_t, 7>& num) {
    ATP_CFG_OBJ* obj = nullptr;
    ASSERT_EQ(QMX_DBGetObj(kZeroKeys, ATP_CFG_OID_SYSINFO, 0, &obj), 0u);
    for (size_t i = 0; i < num.size(); ++i) ASSERT_EQ(QMX_CFM_SetObjU32Value(obj, kNumSlots[i], num[i]), 0u);
    ASSERT_EQ(QMX_DBSetObj(obj), 0u);
    QMX_CFM_FreeObj(obj);
}

// Slots 0 to 5 and 7, then the two names.
std::string stored() {
    ATP_CFG_OBJ* obj = nullptr;
    EXPECT_EQ(QMX_DBGetObj(kZeroKeys, ATP_CFG_OID_SYSINFO, 0, &obj), 0u);
    if (!obj) return "no object";
    std::string s;
    for (uint32_t i : kNumSlots) s += std::to_string(obj->slots[i].num) + ",";
    s += std::string(obj->slots[6].str) + "," + obj->slots[8].str;
    QMX_CFM_FreeObj(obj);
    return s;
}

TEST(SysinfoCache, MissAsksTheModemAndWritesBack) {
    FakeAtServer ats;
    ats.reply(cme("+CME ERROR: 10")).reply(ok("^SYSINFO: 2,3,1,6,1,0,7"));
    StSysinfo r = sentinel<StSysinfo>();
    clear_traces();
    EXPECT_EQ(AT_SysInfo_voice(&r), -1);
    EXPECT_EQ(count_trace("AT_SysInfo at^sysinfo fail"), 1u);
    EXPECT_EQ(stored(), "0,0,0,0,0,0,0,,");  // a failed answer is not written back

    ASSERT_EQ(AT_SysInfo_voice(&r), 0);
    ASSERT_EQ(ats.count(), 2u);
    EXPECT_EQ(ats.last().cmd, "AT^SYSINFO");
    EXPECT_EQ(sysinfo(r), "2,3,1,6,1,0,7");  // the modem's coding, not the voice service's
    EXPECT_EQ(count_trace("AT_SysInfo at^sysinfo success, submode:7, sys_mode:6"), 1u);
    EXPECT_EQ(stored(), "2,3,1,1,0,6,7,,");  // the plain write leaves the names alone

    // Now a hit: nothing is sent and the stored values come back.
    StSysinfo again = sentinel<StSysinfo>();
    ASSERT_EQ(AT_SysInfo(&again), 0);
    EXPECT_EQ(ats.count(), 2u);
    EXPECT_EQ(sysinfo(again), "2,3,1,6,1,0,7");
    EXPECT_EQ(again.AtExeResult, AT_CMD_RES_SUCCESS);
}

TEST(SysinfoCache, ExtendedMissThenHitWithNames) {
    FakeAtServer ats;
    SysinfoEx r = sentinel<SysinfoEx>();
    EXPECT_EQ(GetSysinfoexFromDB(&r), -1);
    EXPECT_EQ(sysinfoex(r), "0,0,0,0,0,0,,0,");  // overwritten with the stored zeros all the same
    EXPECT_EQ(as_int(r.AtExeResult), kS);

    ats.reply(ok("^SYSINFOEX: 2,3,0,1,0,6,\"LTE\",101,\"LTE FDD\""));
    ASSERT_EQ(AT_SysInfoEx(&r), 0);
    ASSERT_EQ(ats.count(), 1u);
    EXPECT_EQ(ats.last().cmd, "AT^SYSINFOEX");
    EXPECT_EQ(stored(), "2,3,0,1,0,6,101,LTE,LTE FDD");

    SysinfoEx hit = sentinel<SysinfoEx>();
    ASSERT_EQ(AT_SysInfoEx(&hit), 0);
    EXPECT_EQ(ats.count(), 1u);
    EXPECT_EQ(sysinfoex(hit), "2,3,0,1,0,6,LTE,101,LTE FDD");
    EXPECT_EQ(hit.AtExeResult, AT_CMD_RES_SUCCESS);
    ats.die();
    store({0, 0, 0, 0, 0, 0, 0});  // a miss again, and no modem to ask
    EXPECT_EQ(AT_SysInfoEx(&hit), -1);
}

TEST(SysinfoCache, VoiceTranslation) {
    // stored slot 5, then the mode AT_SysInfo and AT_SysInfo_voice return
    const uint32_t rows[][3] = {{0, 0, 0}, {1, 1, 3}, {2, 2, 2}, {3, 3, 5}, {4, 4, 15}, {5, 5, 5}, {6, 6, 5}, {7, 7, 7}, {17, 17, 17}};
    FakeAtServer ats;
    for (const auto& [slot5, plain, voice] : rows) {
        SCOPED_TRACE(slot5);
        store({2, 1, 0, 1, 0, slot5, 4});
        StSysinfo p = sentinel<StSysinfo>(), v = sentinel<StSysinfo>();
        clear_traces();
        ASSERT_EQ(AT_SysInfo(&p), 0);
        ASSERT_EQ(AT_SysInfo_voice(&v), 0);
        EXPECT_EQ(p.sys_mode, int(plain));
        EXPECT_EQ(v.sys_mode, int(voice));
        EXPECT_EQ(v.submode, 4);
        EXPECT_EQ(count_trace("AT_SysInfo read DB success, submode:4, sys_mode:" + std::to_string(voice)), 1u);
    }
    EXPECT_EQ(ats.count(), 0u);
}

// A store that cannot be opened counts as a miss; the modem still answers and the failed write is
// only traced.
TEST(SysinfoCache, BrokenStoreFallsBackToTheModem) {
    FakeAtServer ats;
    setenv("ATAPI_CFG_DB", (ats.run_dir() + "/no/such/dir/cfg.db").c_str(), 1);
    ats.reply(ok("^SYSINFO: 2,3,0,5,1,0,7"));
    StSysinfo r = sentinel<StSysinfo>();
    clear_traces();
    EXPECT_EQ(AT_SysInfo(&r), 0);
    EXPECT_EQ(sysinfo(r), "2,3,0,5,1,0,7");
    EXPECT_EQ(ats.count(), 1u);
    EXPECT_TRUE(has_trace("GetSysinfoexFromDB ERROR return ["));
    EXPECT_TRUE(has_trace("QMX_DBGetDftObject return=["));
    unsetenv("ATAPI_CFG_DB");
}

}  // namespace
