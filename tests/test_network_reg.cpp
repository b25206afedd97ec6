// Registration state commands and the system-information cache, against the scripted fake AT
// server and the configuration store of the fake server's run directory.
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "atapi.h"
#include "atplatform.h"
#include "fake_ats.h"
#include "test_network_support.h"
#include "trace_capture.h"

using namespace atapi_test;

namespace {

bool bytes_are_sentinel(const void* p, size_t n) {
    const unsigned char* b = static_cast<const unsigned char*>(p);
    for (size_t i = 0; i < n; ++i)
        if (b[i] != kSB) return false;
    return true;
}

// ---- Query halves --------------------------------------------------------------------------------

TEST(Registration, CregQuery) {
    auto query = [](LacCellid* r) { return AT_Creg(AT_CHECK_VALUE, r); };
    run<LacCellid>({"AT+CREG?", "+CREG:", 30}, query, {
        {"all five", ok("+CREG: 2,1,\"25F0\",\"0C1A2B3\",7"), 0, [](auto& r) {
             EXPECT_EQ(r.n, 2); EXPECT_EQ(r.stat, 1);
             EXPECT_EQ(text(r.lac), "25F0"); EXPECT_EQ(text(r.ci), "0C1A2B3"); EXPECT_EQ(text(r.act), "7");
             EXPECT_EQ(r.AtExeResult, AT_CMD_RES_SUCCESS);
         }},
        {"two values, texts kept", ok("+CREG: 0,1"), 0, [](auto& r) {
             EXPECT_EQ(r.n, 0); EXPECT_EQ(r.stat, 1);
             EXPECT_TRUE(bytes_are_sentinel(r.lac, sizeof r.lac));
             EXPECT_TRUE(bytes_are_sentinel(r.ci, sizeof r.ci));
             EXPECT_TRUE(bytes_are_sentinel(r.act, sizeof r.act));
             EXPECT_EQ(r.AtExeResult, AT_CMD_RES_SUCCESS);
         }},
        {"overlong texts cut to their fields", ok("+CREG: 2,5,\"0123456789ABCDEF0123\",\"FEDCBA9876543210FF\",\"12345\""), 0, [](auto& r) {
             EXPECT_EQ(text(r.lac), "0123456789ABCDE");
             EXPECT_EQ(text(r.ci), "FEDCBA987654321");
             EXPECT_EQ(text(r.act), "123");
             EXPECT_EQ(r.AtExeResult, AT_CMD_RES_SUCCESS);
         }},
        {"CME error mapped", cme("+CME ERROR: 30"), 0, [](auto& r) {
             EXPECT_EQ(r.AtExeResult, AT_CMD_RES_GPS_NO_NETWORK_SERVER);
             EXPECT_EQ(r.n, kS); EXPECT_EQ(r.stat, kS);
         }},
        {"CMS error mapped", cms("+CMS ERROR: 500"), 0, [](auto& r) { EXPECT_EQ(r.AtExeResult, AT_CMD_RES_BUSY); }},
        {"plain error", result(AT_ERROR), -1, is_untouched<LacCellid>},
        {"unparsable", ok("nothing"), -1, is_untouched<LacCellid>},
    });
}

TEST(Registration, CgregQuery) {
    auto query = [](CgregRsp* r) { return AT_Cgreg(AT_CHECK_VALUE, r); };
    run<CgregRsp>({"AT+CGREG?", "+CGREG:", 30}, query, {
        {"all five", ok("+CGREG: 1,5,\"A1B2\",\"00FF\",2"), 0, [](auto& r) {
             EXPECT_EQ(r.ReportMode, 1); EXPECT_EQ(r.ReportState, 5);
             EXPECT_EQ(text(r.LacCode), "A1B2"); EXPECT_EQ(text(r.CellID), "00FF"); EXPECT_EQ(text(r.act), "2");
             EXPECT_EQ(r.AtExeResult, AT_CMD_RES_SUCCESS);
         }},
        {"CME error mapped", cme("+CME ERROR: SIM busy"), 0, [](auto& r) {
             EXPECT_EQ(r.AtExeResult, AT_CMD_RES_SIM_BUSY); EXPECT_EQ(r.ReportMode, kS);
         }},
        {"no carrier", result(AT_NO_CARRIER), -1, is_untouched<CgregRsp>},
        {"unparsable", ok("nothing"), -1, is_untouched<CgregRsp>},
    });
}

TEST(Registration, CeregQueryIgnoresAccessTechnology) {
    auto query = [](CeregRsp* r) { return AT_Cereg(AT_CHECK_VALUE, r); };
    run<CeregRsp>({"AT+CEREG?", "+CEREG:", 30}, query, {
        {"with act", ok("+CEREG: 2,1,\"1A2B\",\"01A2B3C4\",7"), 0, [](auto& r) {
             EXPECT_EQ(r.ReportMode, 2); EXPECT_EQ(r.ReportState, 1);
             EXPECT_EQ(text(r.LacCode), "1A2B"); EXPECT_EQ(text(r.CellID), "01A2B3C4");
             EXPECT_EQ(r.AtExeResult, AT_CMD_RES_SUCCESS);
         }},
        {"CMS error mapped", cms("+CMS ERROR: 311"), 0, [](auto& r) { EXPECT_EQ(r.AtExeResult, AT_CMD_RES_PIN_REQ); }},
        {"plain error", result(AT_ERROR), -1, is_untouched<CeregRsp>},
    });
}

TEST(Registration, CgattQuery) {
    auto query = [](PsAttatch* r) { return AT_Cgatt(AT_CHECK_VALUE, r); };
    run<PsAttatch>({"AT+CGATT?", "+CGATT:", 30}, query, {
        {"attached", ok("+CGATT: 1"), 0, [](auto& r) { EXPECT_EQ(r.state, 1); EXPECT_EQ(r.AtExeResult, AT_CMD_RES_SUCCESS); }},
        {"kept to 8 bits", ok("+CGATT: 258"), 0, [](auto& r) { EXPECT_EQ(r.state, 2); }},
        {"CME error mapped", cme("+CME ERROR: 10"), 0, [](auto& r) {
             EXPECT_EQ(r.AtExeResult, AT_CMD_RES_SIM_FAIL); EXPECT_EQ(r.state, kSB);
         }},
        {"plain error", result(AT_ERROR), -1, is_untouched<PsAttatch>},
    });
}

TEST(Registration, CgcattQuery) {
    auto query = [](AttatchInfo* r) { return AT_Cgcatt(AT_CHECK_VALUE, r); };
    run<AttatchInfo>({"AT^CGCATT?", "^CGCATT:", 30}, query, {
        {"domains", ok("^CGCATT: 1,0"), 0, [](auto& r) {
             EXPECT_EQ(r.psState, 1); EXPECT_EQ(r.csState, 0);
             EXPECT_EQ(r.state, kSB); EXPECT_EQ(r.mode, kSB);  // the set inputs stay
             EXPECT_EQ(r.AtExeResult, AT_CMD_RES_SUCCESS);
         }},
        {"CME error mapped", cme("+CME ERROR: 4"), 0, [](auto& r) { EXPECT_EQ(r.AtExeResult, AT_CMD_RES_OPERATION_NOT_SUPPORTED); }},
        {"plain error", result(AT_ERROR), -1, is_untouched<AttatchInfo>},
    });
}

TEST(Registration, PrefRoamQueryNeverParses) {
    auto query = [](RoamSwitch* r) { return AT_PrefRoam(AT_CHECK_VALUE, r); };
    run<RoamSwitch>({"at^prefroam?", "prefroam:", 30}, query, {
        {"OK reply still fails", ok("^PREFROAM: 1"), -1, is_untouched<RoamSwitch>},
        {"CME error not mapped", cme("+CME ERROR: 10"), -1, is_untouched<RoamSwitch>},
    });
}

TEST(Registration, Cellroam) {
    run<StRoamInfo>({"AT^CELLROAM?", "^CELLROAM", 5}, AT_Cellroam, {
        {"international", ok("^CELLROAM: 2,7"), 0, [](auto& r) {
             EXPECT_EQ(r.state, INTERNATIONAL); EXPECT_EQ(r.rat, 7); EXPECT_EQ(r.AtExeResult, AT_CMD_RES_SUCCESS);
         }},
        {"state outside the enum kept as sent", ok("^CELLROAM: 7,1"), 0, [](auto& r) {
             EXPECT_EQ(as_int(r.state), 7); EXPECT_EQ(r.rat, 1);
         }},
        {"CME error mapped", cme("+CME ERROR: 12"), 0, [](auto& r) {
             EXPECT_EQ(r.AtExeResult, AT_CMD_RES_PUK_REQ); EXPECT_EQ(r.rat, kS);
         }},
        {"plain error", result(AT_ERROR), -1, is_untouched<StRoamInfo>},
        {"unparsable", ok("nothing"), -1, is_untouched<StRoamInfo>},
    });
}

TEST(Registration, SysinfoCommand) {
    run<StSysinfo>({"AT^SYSINFO", "^SYSINFO", 30}, AT_SysinfoCommand, {
        {"seven values", ok("^SYSINFO: 2,3,0,5,1,0,7"), 0, [](auto& r) {
             EXPECT_EQ(r.srv_status, 2); EXPECT_EQ(r.srv_domain, 3); EXPECT_EQ(r.roam_status, 0);
             EXPECT_EQ(r.sys_mode, 5); EXPECT_EQ(r.sim_state, 1); EXPECT_EQ(r.lock_state, 0);
             EXPECT_EQ(r.submode, 7); EXPECT_EQ(r.AtExeResult, AT_CMD_RES_SUCCESS);
         }},
        {"CME error not mapped", cme("+CME ERROR: 10"), -1, is_untouched<StSysinfo>},
        {"unparsable", ok("nothing"), -1, is_untouched<StSysinfo>},
    });
}

TEST(Registration, SysinfoexCommand) {
    run<SysinfoEx>({"AT^SYSINFOEX", "", 30}, AT_SysinfoexCommand, {
        {"nine values", ok("^SYSINFOEX: 2,3,0,1,0,6,\"LTE\",101,\"LTE FDD\""), 0, [](auto& r) {
             EXPECT_EQ(r.SrvStatus, 2); EXPECT_EQ(r.SrvDomain, 3); EXPECT_EQ(r.RoamStatus, 0);
             EXPECT_EQ(r.SimState, 1); EXPECT_EQ(r.SimLockState, 0); EXPECT_EQ(r.SysMode, 6);
             EXPECT_EQ(text(r.SysModeName), "LTE"); EXPECT_EQ(r.SubMode, 101); EXPECT_EQ(text(r.SubModeName), "LTE FDD");
             EXPECT_EQ(r.AtExeResult, AT_CMD_RES_SUCCESS);
         }},
        {"long name cut to 19", ok("^SYSINFOEX: 2,3,0,1,0,6,\"ABCDEFGHIJKLMNOPQRSTUVWXYZ\",1,\"x\""), 0, [](auto& r) {
             EXPECT_EQ(text(r.SysModeName), "ABCDEFGHIJKLMNOPQRS"); EXPECT_EQ(r.SubMode, 1);
         }},
        {"plain error", result(AT_ERROR), -1, is_untouched<SysinfoEx>},
    });
}

TEST(Registration, RejectionInfo) {
    const Wire wire{"AT^REJINFO?", "^REJINFO:", 30};
    const std::vector<Case<REJECT_INFOEX>> cases = {
        {"four values", ok("^REJINFO: \"46001\",1,15,7"), 0, [](auto& r) {
             EXPECT_EQ(text(r.plmnid), "46001");
             EXPECT_EQ(r.srvdomain, 1u); EXPECT_EQ(r.rejectcause, 15u); EXPECT_EQ(r.rattype, 7u);
             EXPECT_EQ(r.AtExeResult, AT_CMD_RES_SUCCESS);
         }},
        {"CME error not mapped", cme("+CME ERROR: 10"), -1, is_untouched<REJECT_INFOEX>},
        {"unparsable", ok("nothing"), -1, is_untouched<REJECT_INFOEX>},
    };
    run<REJECT_INFOEX>(wire, AT_RejinfoexCommand, cases);
    run<REJECT_INFOEX>(wire, AT_RejInfoEx, cases);
}

// ---- Set halves ---------------------------------------------------------------------------------

struct SetCase {
    const char* what;
    std::function<int(int* exe)> call;  // fills the input, runs the set
    const char* line;
};

TEST(Registration, SetLinesAndResults) {
    const SetCase cases[] = {
        {"AT_Creg", [](int* exe) { LacCellid r = sentinel<LacCellid>(); r.n = 2; int rc = AT_Creg(1, &r); *exe = as_int(r.AtExeResult); return rc; }, "AT+CREG=2"},
        {"AT_Cgreg", [](int* exe) { CgregRsp r = sentinel<CgregRsp>(); r.ReportMode = 1; int rc = AT_Cgreg(1, &r); *exe = as_int(r.AtExeResult); return rc; }, "AT+CGREG=1"},
        {"AT_Cereg", [](int* exe) { CeregRsp r = sentinel<CeregRsp>(); r.ReportMode = 0; int rc = AT_Cereg(1, &r); *exe = as_int(r.AtExeResult); return rc; }, "AT+CEREG=0"},
        {"AT_Cgatt", [](int* exe) { PsAttatch r = sentinel<PsAttatch>(); r.state = 1; int rc = AT_Cgatt(1, &r); *exe = as_int(r.AtExeResult); return rc; }, "AT+CGATT=1"},
        {"AT_Cgcatt", [](int* exe) { AttatchInfo r = sentinel<AttatchInfo>(); r.state = 1; r.mode = 2; int rc = AT_Cgcatt(1, &r); *exe = as_int(r.AtExeResult); return rc; }, "AT^CGCATT=1,2"},
        {"AT_PrefRoam", [](int* exe) { RoamSwitch r = sentinel<RoamSwitch>(); r.roam = 3; int rc = AT_PrefRoam(1, &r); *exe = as_int(r.AtExeResult); return rc; }, "at^prefroam = 3"},
        {"AT_Srvst", [](int* exe) { SrvstSet r = sentinel<SrvstSet>(); r.ReportMode = 1; int rc = AT_Srvst(1, &r); *exe = as_int(r.AtExeResult); return rc; }, "AT^SRVST=1"},
        {"AT_Mode", [](int* exe) { ModeSet r = sentinel<ModeSet>(); r.ReportMode = 0; int rc = AT_Mode(1, &r); *exe = as_int(r.AtExeResult); return rc; }, "AT^MODE=0"},
    };
    FakeAtServer ats;
    for (const SetCase& c : cases) {
        SCOPED_TRACE(c.what);
        struct Outcome {
            Reply reply;
            int rc;
            int exe;
        };
        // Error replies to a setting are not mapped into the record.
        const Outcome outcomes[] = {
            {ok(), 0, AT_CMD_RES_SUCCESS},
            {cme("+CME ERROR: 10"), -1, kS},
            {cms("+CMS ERROR: 314"), -1, kS},
            {result(AT_ERROR), -1, kS},
        };
        for (const Outcome& o : outcomes) {
            ats.clear_requests();
            ats.reply(o.reply);
            int exe = 0;
            EXPECT_EQ(c.call(&exe), o.rc);
            EXPECT_EQ(exe, o.exe);
            ASSERT_EQ(ats.count(), 1u);
            expect_wire(ats.last(), {c.line, "", 30});
        }
    }
}

// ---- Refused before anything is sent -----------------------------------------------------------

TEST(Registration, RefusedBeforeSending) {
    const std::vector<std::pair<const char*, std::function<int()>>> calls = {
        {"AT_Creg null", [] { return AT_Creg(0, nullptr); }},
        {"AT_Creg 2", [] { LacCellid r{}; return AT_Creg(2, &r); }},
        {"AT_Creg -1", [] { LacCellid r{}; return AT_Creg(-1, &r); }},
        {"AT_Cgreg 2", [] { CgregRsp r{}; return AT_Cgreg(2, &r); }},
        {"AT_Cgreg null", [] { return AT_Cgreg(1, nullptr); }},
        {"AT_Cereg 3", [] { CeregRsp r{}; return AT_Cereg(3, &r); }},
        {"AT_Cgatt 2", [] { PsAttatch r{}; return AT_Cgatt(2, &r); }},
        {"AT_Cgcatt 2", [] { AttatchInfo r{}; return AT_Cgcatt(2, &r); }},
        {"AT_PrefRoam 2", [] { RoamSwitch r{}; return AT_PrefRoam(2, &r); }},
        {"AT_Srvst query", [] { SrvstSet r{}; return AT_Srvst(0, &r); }},
        {"AT_Srvst null", [] { return AT_Srvst(1, nullptr); }},
        {"AT_Mode query", [] { ModeSet r{}; return AT_Mode(0, &r); }},
        {"AT_SysinfoCommand", [] { return AT_SysinfoCommand(nullptr); }},
        {"AT_SysinfoexCommand", [] { return AT_SysinfoexCommand(nullptr); }},
        {"AT_RejinfoexCommand", [] { return AT_RejinfoexCommand(nullptr); }},
        {"AT_RejInfoEx", [] { return AT_RejInfoEx(nullptr); }},
        {"AT_Cellroam", [] { return AT_Cellroam(nullptr); }},
        {"AT_SysInfo", [] { return AT_SysInfo(nullptr); }},
        {"AT_SysInfo_voice", [] { return AT_SysInfo_voice(nullptr); }},
        {"AT_SysInfoEx", [] { return AT_SysInfoEx(nullptr); }},
        {"GetSysinfoFromDB", [] { return GetSysinfoFromDB(nullptr); }},
        {"GetSysinfoexFromDB", [] { return GetSysinfoexFromDB(nullptr); }},
        {"AT_imei", [] { StIMEI r{}; return AT_imei(&r); }},
        {"AT_CGSN", [] { StIMEI r{}; return AT_CGSN(&r); }},
        {"AT_Cgmr", [] { StAmssVersion r{}; return AT_Cgmr(&r); }},
        {"AT_Hwver", [] { StAmssVersion r{}; return AT_Hwver(&r); }},
    };
    FakeAtServer ats;
    ats.respond([](const Request&) { return ok("+CREG: 0,1"); });
    for (const auto& [what, call] : calls) {
        EXPECT_EQ(call(), -1) << what;
        EXPECT_EQ(ats.count(), 0u) << what;
    }
    clear_traces();
    EXPECT_EQ(AT_Cellroam(nullptr), -1);
    EXPECT_EQ(count_trace("Error:para is NULL"), 1u);
    SetSysinfoToDB(nullptr);
    SetSysinfoexToDB(nullptr);
    ATS_FreeMemory(nullptr);
    ATS_FreeMemory(std::malloc(16));
}

TEST(Registration, ServerGone) {
    struct GoneCase {
        const char* what;
        std::function<int()> call;
        const char* trace;
    };
    const GoneCase cases[] = {
        {"AT_Creg", [] { LacCellid r{}; return AT_Creg(0, &r); }, ""},
        {"AT_Cgreg", [] { CgregRsp r{}; return AT_Cgreg(0, &r); }, "AT_Cgreg GetDataFromAtServer failed\n"},
        {"AT_Cereg", [] { CeregRsp r{}; return AT_Cereg(0, &r); }, "AT_Cereg GetDataFromAtServer failed\n"},
        {"AT_Cellroam", [] { StRoamInfo r{}; return AT_Cellroam(&r); }, "AT^Cellroam error......\n"},
        {"AT_RejinfoexCommand", [] { REJECT_INFOEX r{}; return AT_RejinfoexCommand(&r); }, "AT_RejinfoexCommand GetDataFromAtServer fail\n"},
        {"AT_Srvst", [] { SrvstSet r{}; return AT_Srvst(1, &r); }, ""},
    };
    FakeAtServer ats;
    ats.die();
    for (const GoneCase& c : cases) {
        clear_traces();
        EXPECT_EQ(c.call(), -1) << c.what;
        if (*c.trace) {
            EXPECT_EQ(count_trace(c.trace), 1u) << c.what;
        }
    }
}

// ---- The system information cache -------------------------------------------------------------

constexpr uint32_t kZeroKeys[ATP_CFG_KEY_COUNT] = {0, 0, 0, 0, 0, 0};

struct Stored {
    uint32_t num[9];
    std::string mode_name, submode_name;
};

void store(const Stored& s) {
    ATP_CFG_OBJ* obj = nullptr;
    ASSERT_EQ(QMX_DBGetObj(kZeroKeys, ATP_CFG_OID_SYSINFO, 0, &obj), 0u);
    for (uint32_t i : {0u, 1u, 2u, 3u, 4u, 5u, 7u}) ASSERT_EQ(QMX_CFM_SetObjU32Value(obj, i, s.num[i]), 0u);
    ASSERT_EQ(QMX_CFM_SetObjStrValue(obj, 6, s.mode_name.c_str()), 0u);
    ASSERT_EQ(QMX_CFM_SetObjStrValue(obj, 8, s.submode_name.c_str()), 0u);
    ASSERT_EQ(QMX_DBSetObj(obj), 0u);
    QMX_CFM_FreeObj(obj);
}

Stored load() {
    Stored s{};
    ATP_CFG_OBJ* obj = nullptr;
    EXPECT_EQ(QMX_DBGetObj(kZeroKeys, ATP_CFG_OID_SYSINFO, 0, &obj), 0u);
    if (!obj) return s;
    for (uint32_t i = 0; i < 9; ++i) s.num[i] = obj->slots[i].num;
    s.mode_name = obj->slots[6].str;
    s.submode_name = obj->slots[8].str;
    QMX_CFM_FreeObj(obj);
    return s;
}

TEST(SysinfoCache, MissAsksTheModemAndWritesBack) {
    FakeAtServer ats;
    ats.reply(ok("^SYSINFO: 2,3,1,5,1,0,7"));
    StSysinfo r = sentinel<StSysinfo>();
    ASSERT_EQ(AT_SysInfo(&r), 0);
    ASSERT_EQ(ats.count(), 1u);
    EXPECT_EQ(ats.last().cmd, "AT^SYSINFO");
    EXPECT_EQ(r.sys_mode, 5);
    Stored s = load();
    const uint32_t want[] = {2, 3, 1, 1, 0, 5, 0, 7, 0};
    for (uint32_t i : {0u, 1u, 2u, 3u, 4u, 5u, 7u}) EXPECT_EQ(s.num[i], want[i]) << "slot " << i;
    EXPECT_EQ(s.mode_name, "");  // the plain write leaves the names alone

    // Now a hit: nothing is sent and the stored values come back.
    StSysinfo again = sentinel<StSysinfo>();
    ASSERT_EQ(AT_SysInfo(&again), 0);
    EXPECT_EQ(ats.count(), 1u);
    EXPECT_EQ(again.srv_status, 2); EXPECT_EQ(again.srv_domain, 3); EXPECT_EQ(again.roam_status, 1);
    EXPECT_EQ(again.sim_state, 1); EXPECT_EQ(again.lock_state, 0); EXPECT_EQ(again.sys_mode, 5);
    EXPECT_EQ(again.submode, 7); EXPECT_EQ(again.AtExeResult, AT_CMD_RES_SUCCESS);
}

TEST(SysinfoCache, ExtendedMissThenHitWithNames) {
    FakeAtServer ats;
    SysinfoEx miss = sentinel<SysinfoEx>();
    EXPECT_EQ(GetSysinfoexFromDB(&miss), -1);
    EXPECT_EQ(miss.SrvStatus, 0);  // overwritten with the stored zeros all the same
    EXPECT_EQ(text(miss.SysModeName), "");
    EXPECT_EQ(as_int(miss.AtExeResult), kS);

    ats.reply(ok("^SYSINFOEX: 2,3,0,1,0,6,\"LTE\",101,\"LTE FDD\""));
    SysinfoEx r = sentinel<SysinfoEx>();
    ASSERT_EQ(AT_SysInfoEx(&r), 0);
    ASSERT_EQ(ats.count(), 1u);
    EXPECT_EQ(ats.last().cmd, "AT^SYSINFOEX");
    Stored s = load();
    EXPECT_EQ(s.num[5], 6u);
    EXPECT_EQ(s.num[7], 101u);
    EXPECT_EQ(s.mode_name, "LTE");
    EXPECT_EQ(s.submode_name, "LTE FDD");

    SysinfoEx hit = sentinel<SysinfoEx>();
    ASSERT_EQ(AT_SysInfoEx(&hit), 0);
    EXPECT_EQ(ats.count(), 1u);
    EXPECT_EQ(hit.SysMode, 6);
    EXPECT_EQ(text(hit.SysModeName), "LTE");
    EXPECT_EQ(text(hit.SubModeName), "LTE FDD");
    EXPECT_EQ(hit.AtExeResult, AT_CMD_RES_SUCCESS);
}

TEST(SysinfoCache, ModemFailureOnAMissFails) {
    FakeAtServer ats;
    ats.reply(cme("+CME ERROR: 10"));
    StSysinfo r = sentinel<StSysinfo>();
    clear_traces();
    EXPECT_EQ(AT_SysInfo_voice(&r), -1);
    EXPECT_EQ(count_trace("AT_SysInfo at^sysinfo fail"), 1u);
    EXPECT_EQ(load().num[0], 0u);  // nothing written back
    ats.die();
    SysinfoEx e = sentinel<SysinfoEx>();
    EXPECT_EQ(AT_SysInfoEx(&e), -1);
}

TEST(SysinfoCache, VoiceTranslation) {
    struct Row {
        uint32_t stored;
        int plain, voice;
    };
    const Row rows[] = {
        {0, 0, 0}, {1, 1, 3}, {2, 2, 2}, {3, 3, 5}, {4, 4, 15}, {5, 5, 5}, {6, 6, 5}, {7, 7, 7}, {17, 17, 17},
    };
    FakeAtServer ats;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.stored);
        store({{2, 1, 0, 1, 0, row.stored, 0, 4, 0}, "", ""});
        StSysinfo plain = sentinel<StSysinfo>();
        StSysinfo voice = sentinel<StSysinfo>();
        clear_traces();
        ASSERT_EQ(AT_SysInfo(&plain), 0);
        ASSERT_EQ(AT_SysInfo_voice(&voice), 0);
        EXPECT_EQ(plain.sys_mode, row.plain);
        EXPECT_EQ(voice.sys_mode, row.voice);
        EXPECT_EQ(voice.submode, 4);
        EXPECT_EQ(count_trace("AT_SysInfo read DB success, submode:4, sys_mode:" + std::to_string(row.voice)), 1u);
    }
    EXPECT_EQ(ats.count(), 0u);
}

TEST(SysinfoCache, VoiceMissIsUntranslated) {
    FakeAtServer ats;
    ats.reply(ok("^SYSINFO: 2,3,0,6,1,0,4"));
    StSysinfo r = sentinel<StSysinfo>();
    clear_traces();
    ASSERT_EQ(AT_SysInfo_voice(&r), 0);
    EXPECT_EQ(r.sys_mode, 6);
    EXPECT_EQ(count_trace("AT_SysInfo at^sysinfo success, submode:4, sys_mode:6"), 1u);
    EXPECT_EQ(load().num[5], 6u);
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
    EXPECT_EQ(r.srv_status, 2);
    EXPECT_EQ(ats.count(), 1u);
    EXPECT_TRUE(has_trace("GetSysinfoexFromDB ERROR return ["));
    EXPECT_TRUE(has_trace("QMX_DBGetDftObject return=["));
    unsetenv("ATAPI_CFG_DB");
}

// Another process of the router fills the store; this one then reads it without the modem.
TEST(SysinfoCache, SharedBetweenProcesses) {
    FakeAtServer ats;
    ats.reply(ok("^SYSINFO: 2,1,0,3,1,0,9"));
    pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        StSysinfo r{};
        _exit(AT_SysInfo(&r) == 0 && r.sys_mode == 3 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(ats.count(), 1u);

    StSysinfo r = sentinel<StSysinfo>();
    ASSERT_EQ(AT_SysInfo(&r), 0);
    EXPECT_EQ(ats.count(), 1u);  // a hit
    EXPECT_EQ(r.sys_mode, 3);
    EXPECT_EQ(r.submode, 9);

    // And the other way round: this process writes, a child reads.
    SysinfoEx ex{};
    ex.SrvStatus = 2;
    ex.SysMode = 7;
    std::memcpy(ex.SysModeName, "NR", 3);
    SetSysinfoexToDB(&ex);
    child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        SysinfoEx got{};
        _exit(GetSysinfoexFromDB(&got) == 0 && got.SysMode == 7 && std::strcmp(got.SysModeName, "NR") == 0 ? 0 : 1);
    }
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
