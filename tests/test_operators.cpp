// Operator selection, network names, the clock and the radio configuration against the scripted
// fake AT server: the line on the wire, the record filled, the fields left alone, the result code.
#include <cstdlib>
#include <string>
#include <tuple>

#include "test_network_support.h"
#include "trace_capture.h"

using namespace atapi_test;

namespace {

constexpr int kOk = AT_CMD_RES_SUCCESS;
const std::string kLong(300, 'L');

template <typename Rec>
std::function<int(Rec*)> query(int (*fn)(int, Rec*)) {
    return [fn](Rec* r) { return fn(AT_CHECK_VALUE, r); };
}

// A text into a caller's field with its NUL, or as much as fits without one.
template <size_t N>
void put(char (&field)[N], const std::string& s) {
    std::memcpy(field, s.c_str(), std::min(s.size() + 1, N));
}

// ---- Operator selection --------------------------------------------------------------------------

TEST(Operators, CurrentOperator) {
    run<NetChooseOperatorParam>({"AT+COPS?", "+COPS:", 30}, AT_Cops,
                                [](auto& r) { return fields(r.Mode, r.Format, r.OperatorName, r.Rat); }, {
        {"registered, long name", ok("+COPS: 0,0,\"Example Net\",7"), 0, "0,0,Example Net,7"},
        {"numeric",               ok("+COPS: 1,2,\"00101\",2"),       0, "1,2,00101,2"},
        {"deregistered: mode only", ok("+COPS: 2"),                   0, "2,?,?,?"},
        {"long name cut to 63",   ok("+COPS: 0,0,\"" + kLong + "\",7"), 0, "0,0," + kLong.substr(0, 63) + ",7"},
        {"CME error",             cme("+CME ERROR: 30"),             -1, ""},
        {"unparsable",            ok("no colon"),                    -1, ""},
    });
}

struct Search {
    NetChooseOperatorResult r;
    OperatorList list;
};

std::string search_text(const Search& s) {
    std::string t = fields(s.list.OperatorNumber);
    const int n = untouched(s.list.OperatorNumber) ? 1 : std::min(s.list.OperatorNumber, AT_COPS_MAX_OPERATORS);
    for (int i = 0; i < n; ++i) {
        const OperatorInfo& o = s.list.Operator[i];
        t += "|" + fields(o.State, o.LongAlphanumeric, o.ShortAlphanumeric, o.numeric, o.Rat);
    }
    return t;
}

std::string operators(int n) {
    std::string s;
    for (int i = 1; i <= n; ++i) s += "(1,\"Op" + std::to_string(i) + "\",\"O\",\"999" + std::to_string(10 + i) + "\",7),";
    return s;
}

TEST(Operators, Search) {
    const std::string tail = ",(0,1,2,3,4),(0,1,2)";
    run<Search>({"AT+COPS=?", "+COPS:", 240}, [](Search* s) { s->r.TotalOper = &s->list; return AT_ChoseOperators(2, nullptr, &s->r); },
                search_text, {
        {"two operators", ok("+COPS: (2,\"Example Net\",\"EXNET\",\"00101\",7),(3,\"Demo\",\"DEMO\",\"00103\",2)," + tail),
         0, "2|2,Example Net,EXNET,00101,7|3,Demo,DEMO,00103,2", kOk},
        {"none found",       ok("+COPS: ," + tail), 0, "0", kOk},
        {"25 kept to 20",    ok("+COPS: " + operators(25) + tail), 0,
         "20" + [] { std::string s; for (int i = 1; i <= 20; ++i) s += "|1,Op" + std::to_string(i) + ",O,999" + std::to_string(10 + i) + ",7"; return s; }(), kOk},
        {"long texts cut",   ok("+COPS: (12345678,\"" + kLong + "\",\"" + kLong + "\",\"00101001001001001001\",77777)," + tail), 0,
         "1|1234," + kLong.substr(0, 127) + "," + kLong.substr(0, 127) + ",001010010010010,7777", kOk},
        {"CME error mapped", cme("+CME ERROR: 30"), 0, "?|?,?,?,?,?", AT_CMD_RES_GPS_NO_NETWORK_SERVER},
        {"no double comma",  ok("+COPS: (2,\"A\",\"B\",\"1\",7),(0,1,2,3,4),(0,1,2)"), -1, "?|?,?,?,?,?"},
    });
}

TEST(Operators, SelectionLines) {
    const struct {
        const char *mode, *format, *name, *rat, *line;
    } rows[] = {
        {"1", "2", "00101", "7", "AT+COPS=1,2,\"00101\",7"},
        {"1", "0", "Example Net", "0", "AT+COPS=1,0,\"Example Net\",0"},
        {"2", "", "", "", "AT+COPS=2"},
        {"2", "0", "x", "7", "AT+COPS=2,0,\"x\",7"},
        {"4", "2", "00102", "", "AT+COPS=4,2,\"00102\""},
        {"1", "2", "00102", "70", "AT+COPS=1,2,\"00102\""},  // not one of the three technologies
        {"0", "", "", "", "AT+COPS=0,,\"\""},
    };
    FakeAtServer ats;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        for (const auto& [reply, rc, exe] : {std::tuple{ok(), 0, kOk}, std::tuple{cme("+CME ERROR: 32"), 0, -1},
                                             std::tuple{result(AT_ERROR), -1, kS}}) {
            ats.clear_requests();
            ats.reply(reply);
            NetChooseOperatorParam p = sentinel<NetChooseOperatorParam>();
            put(p.Mode, row.mode), put(p.Format, row.format), put(p.OperatorName, row.name), put(p.Rat, row.rat);
            NetChooseOperatorResult r = sentinel<NetChooseOperatorResult>();
            EXPECT_EQ(AT_ChoseOperators(1, &p, &r), rc);
            EXPECT_EQ(as_int(r.AtExeResult), exe);
            ASSERT_EQ(ats.count(), 1u);
            expect_wire(ats.last(), {row.line, "+COPS:", 240});
        }
    }
}

// ---- The SIM's operator tables --------------------------------------------------------------------

// A list function's outcome as text: its return, the count, then each record; the list freed.
struct ListCase {
    const char* what;
    Reply reply;
    std::string want;
};

TEST(Operators, OperatorTables) {
    FakeAtServer ats;
    auto check = [&](const std::string& line, const std::vector<ListCase>& cases, const std::function<std::string()>& call) {
        for (const ListCase& c : cases) {
            SCOPED_TRACE(std::string(c.what) + " " + line);
            ats.clear_requests();
            ats.reply(c.reply);
            EXPECT_EQ(call(), c.want);
            ASSERT_EQ(ats.count(), 1u);
            expect_wire(ats.last(), {line, "", 30, AT_REQ, 0, AT_RES_MUT});
        }
    };
    auto opl = [] {
        OplResList l = sentinel<OplResList>();
        const int rc = AT_GetOPList(1, &l);
        std::string s = std::to_string(rc) + ":" + fields(l.list_num, l.AtExeResult);
        if (untouched(l.opl_list)) return s;
        for (int i = 0; l.opl_list && i < l.list_num; ++i)
            s += "|" + fields(l.opl_list[i].numeric, l.opl_list[i].index_pnn, l.opl_list[i].lac_start);
        std::free(l.opl_list);
        return s + (l.opl_list ? "" : "|null");
    };
    check("AT^OPL=1", {
        {"two entries",  ok("^OPL: 00101,\"0000-7FFF\",1\r\n^OPL: 00102,\"0000-FFFE\",3"), "0:2,-2|00101,1,|00102,3,"},
        {"long numeric cut to 63", ok("^OPL: " + kLong + ",0,2"), "0:1,-2|" + kLong.substr(0, 63) + ",2,"},
        {"empty report", ok(""), "0:?,-2"},
        {"a line that does not parse", ok("^OPL: 00101,0,1\r\n^OPLX"), "-1:2,-2|null"},
        {"CME error",    cme("+CME ERROR: 13"), "0:?,13"},
        {"plain error",  result(AT_ERROR), "-1:?,?"},
    }, opl);

    auto pnn = [](int index) {
        return [index] {
            PnnPara p{0, index};
            int n = kS;
            PnnRes* list = reinterpret_cast<PnnRes*>(0x5A5A5A5A);
            const int rc = AT_GetPnnList(&p, &n, &list);
            std::string s = std::to_string(rc) + ":" + std::to_string(n);
            if (list == reinterpret_cast<PnnRes*>(0x5A5A5A5A)) return s;
            for (int i = 0; list && i < n; ++i)
                s += "|" + fields(list[i].full_name, list[i].short_name, list[i].reserve, list[i].AtExeResult);
            std::free(list);
            return s + (list ? "" : "|null");
        };
    };
    check("AT^PNN=0", {
        {"all records", ok("^PNN: \"Example Net\",\"EXNET\",0\r\n^PNN: \"Example Metro\",\"EXM\""),
         "0:2|Example Net,EXNET,0\r\n,-2|Example Metro,EXM,,-2"},
        // The last line is kept to 511 characters by the splitter: the third name falls off.
        {"hostile long names", ok("^PNN: \"" + kLong + "\",\"" + kLong + "\",\"" + kLong + "\""),
         "0:1|" + kLong.substr(0, 127) + "," + kLong.substr(0, 127) + ",,-2"},
        {"empty report", ok(""), "0:0"},
        {"a line that does not parse", ok("^PNN: \"A\",\"B\",0\r\n^PNNX"), "-1:0|null"},
        {"CME error has nowhere to go", cme("+CME ERROR: 22"), "-1:0"},
    }, pnn(-1));
    check("AT^PNN=0,3", {{"one record", ok("^PNN: \"Example Net\",\"EXNET\",0"), "0:1|Example Net,EXNET,0,-2"}}, pnn(3));
    // Below -1 no line is formatted: the empty command line goes out.
    check("", {{"empty line", ok(""), "0:0"}}, pnn(-2));
}

// ---- Names and the clock -------------------------------------------------------------------------

TEST(Operators, NetworkNames) {
    auto eons = [](const char* plmn) {
        return std::function<int(NetEonsResult*)>([plmn](NetEonsResult* r) { return AT_Eons(1, plmn, r); });
    };
    auto shown = [](const NetEonsResult& r) { return fields(r.type, r.plmn_id, r.plmn_long, r.plmn_short, r.spn_cond, r.spn_name); };
    const std::vector<Case> cases = {
        {"all six", ok("^EONS: 1,\"00101\",\"Example Net\",\"EXNET\",0,\"Example\""), 0, "1,00101,Example Net,EXNET,0,Example"},
        {"the last line counts", ok("^EONS: 2,\"1\"\r\n^EONS: 1,\"00102\",\"Sample\""), 0, "1,00102,Sample,?,?,?"},
        {"spn_cond kept to 8 bits, long texts cut",
         ok("^EONS: 1,\"" + kLong + "\",\"" + kLong + "\",\"" + kLong + "\",258,\"" + kLong + "\""), 0,
         "1," + kLong.substr(0, 64) + "," + kLong.substr(0, 128) + "," + kLong.substr(0, 128) + ",2," + kLong.substr(0, 64)},
        {"CME error", cme("+CME ERROR: 30"), -1, ""},
        {"unparsable", ok("nothing"), -1, ""},
    };
    run<NetEonsResult>({"AT^EONS=1", "^EONS:", 30}, eons(nullptr), shown, cases);
    run<NetEonsResult>({"AT^EONS=1", "^EONS:", 30}, eons(""), shown, {cases[0]});
    run<NetEonsResult>({"AT^EONS=1,00102", "^EONS:", 30}, eons("00102"), shown, {cases[1]});

    run<NetCnwiOperatorParam>({"AT^CNWI", "^CNWI", 30}, AT_Cnwi,
                              [](auto& r) { return fields(r.plmn_id, r.sid, r.nid, r.sub_net_id, r.ltm_off); }, {
        {"five texts",        ok("^CNWI: \"00101\",13824,1,\"0\",\"-8\""), 0, "00101,13824,1,0,-8", kOk},
        {"ltm_off cut to 2",  ok("^CNWI: \"00101123456789\",1,2,3,-123"),  0, "0010112345,1,2,3,-1", kOk},
        {"CME error mapped",  cme("+CME ERROR: 4"), 0, "?,?,?,?,?", AT_CMD_RES_OPERATION_NOT_SUPPORTED},
        {"plain error",       result(AT_ERROR),    -1, ""},
    });
    run<spnresult>({"AT^SPN=1", "", 30}, [](spnresult* r) { return AT_GetSpn(1, r); },
                   [](auto& r) { return fields(r.disp_rplmn, r.coding, r.spn_name, r.Reserve); }, {
        {"name",             ok("^SPN: 0,0,\"Example\""),        0, "0,0,Example,?", kOk},
        {"long name cut",    ok("^SPN: 1,1,\"" + kLong + "\""),  0, "1,1," + kLong.substr(0, 32) + ",?", kOk},
        {"CME error mapped", cme("+CME ERROR: SIM busy"),        0, "?,?,?,?", AT_CMD_RES_SIM_BUSY},
        {"unparsable",       ok("nothing"),                     -1, ""},
    });
    run<CpnnRsp>({"AT^CPNN=0", "", 30}, [](CpnnRsp* r) { return AT_Cpnn(0, r); },
                 [](auto& r) { return fields(r.fullname, r.fcoding, r.full_name_ci, r.shortname, r.scoding, r.short_name_ci); }, {
        {"six values",       ok("^CPNN: \"Example Net\",0,1,\"EXNET\",2,3"), 0, "Example Net,0,1,EXNET,2,3", kOk},
        {"CMS error mapped", cms("+CMS ERROR: 311"),                        0, "?,?,?,?,?,?", AT_CMD_RES_PIN_REQ},
        {"plain error",      result(AT_ERROR),                             -1, ""},
    });
}

TEST(Operators, Clock) {
    run<ST_AT_TIME>({"AT+CCLK?", "+CCLK", 30}, AT_CCLK_CHECK, [](auto& r) {
        const std::tm& t = r.stTimeInfo;
        return fields(t.tm_year, t.tm_mon, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, t.tm_wday, r.time_zone);
    }, {
        {"date, time and zone", ok("+CCLK: \"2030/05/06,07:08:09+32\""), 0, "2030,5,6,7,8,9,?,?"},
        {"two-digit year read at the same places", ok("+CCLK: \"30/05/06,07:08:09\""), 0, "30,0,0,0,0,0,?,?"},
        {"hostile long value",  ok("+CCLK: \"" + kLong + "\""),          0, "0,0,0,0,0,0,?,?"},
        {"CME error",           cme("+CME ERROR: 10"),                  -1, ""},
        {"unparsable",          ok("nothing"),                          -1, ""},
    });
}

// ---- System configuration ------------------------------------------------------------------------

struct Syscfg {
    NetConfigurationType in;
    NetConfigurationRes out;
};

TEST(Radio, SyscfgQueries) {
    run<Syscfg>({"AT^SYSCFG?", "^SYSCFG", 30}, [](Syscfg* s) { return AT_SysConfig(0, &s->in, &s->out); },
                [](auto& s) { return fields(s.out.Mode, s.out.Acqorder, s.out.Band, s.out.Roam, s.out.Srvdomain, s.out.CmdType, s.out.AtExeResult); }, {
        {"five values",      ok("^SYSCFG: 2,0,3FFFFFFF,1,2"),        0, "2,0,3FFFFFFF,1,2,?,-2"},
        {"long mask cut to 19", ok("^SYSCFG: 2,0,0123456789ABCDEF0123,1,2"), 0, "2,0,0123456789ABCDEF012,1,2,?,-2"},
        {"CME error mapped", cme("+CME ERROR: 10"),                  0, "?,?,?,?,?,?,13"},
        {"unparsable",       ok("nothing"),                         -1, ""},
    });
    run<NetConfigurationTypeEx>({"AT^SYSCFGEX?", "^SYSCFGEX", 30}, query(AT_SysConfigEx),
                                [](auto& r) { return fields(r.Acqorder, r.Band, r.Roam, r.Srvdomain, r.lteBand, r.reserver1, r.reserver2); }, {
        {"five values",      ok("^SYSCFGEX: \"030201\",3FFFFFFF,1,2,7FFFFFFFFFFFFFFF"), 0, "030201,3FFFFFFF,1,2,7FFFFFFFFFFFFFFF,?,?", kOk},
        {"short reply",      ok("^SYSCFGEX: \"03\""),                 0, "03,?,?,?,?,?,?", kOk},
        {"CME error mapped", cme("+CME ERROR: 4"),                    0, "?,?,?,?,?,?,?", AT_CMD_RES_OPERATION_NOT_SUPPORTED},
        {"plain error",      result(AT_ERROR),                       -1, ""},
    });
}

// Entries of a list whose count a call wrote.
int listed(int count) { return untouched(count) ? 0 : std::min(count, 20); }

TEST(Radio, TestForms) {
    run<SYSCFG_INFO>({"AT^SYSCFG=?", "^SYSCFG", 30}, AT_Syscfg_test, [](auto& r) {
        std::string s = fields(r.mode_num, r.mode[0], r.mode[9], r.acqorder_num, r.acqorder[3], r.band_num, r.roam_num, r.srvdomain_num);
        for (int i = 0; i < listed(r.band_num); ++i) s += "|" + fields(r.band[i].bandnum, r.band[i].bandname);
        return s;
    }, {
        {"modes, range, bands",
         ok("^SYSCFG: (2,13,14,16),(0-3),((3FFFFFFF,\"All bands\"),(400000,\"WCDMA2100\")),(0-2),(0-4)"),
         0, "4,2,?,4,3,2,?,?|3FFFFFFF,All bands|400000,WCDMA2100"},
        {"12 modes kept to 10, 25 bands to 20",
         ok("^SYSCFG: (1,2,3,4,5,6,7,8,9,10,11,12),(0,1),(" + [] { std::string b; for (int i = 0; i < 25; ++i) b += "(" + std::to_string(i) + ",\"B\"),"; return b; }() + "(99,\"Z\")),(0-2),(0-4)"),
         0, "10,1,10,2,?,20" + [] { std::string s = ",?,?"; for (int i = 0; i < 20; ++i) s += "|" + std::to_string(i) + ",B"; return s; }()},
        {"long band name cut to 255", ok("^SYSCFG: (2),(0),((3FFFFFFF,\"" + std::string(300, 'N') + "\")),(0-2),(0-4)"),
         0, "1,2,?,1,?,1,?,?|3FFFFFFF," + std::string(255, 'N')},
        {"CME error",  cme("+CME ERROR: 4"),              -1, ""},
        {"no bands",   ok("^SYSCFG: (2),(0),(3FFFFFFF),(0-2)"), -1, ""},
    });
    run<SYSCFGEX_INFO>({"AT^SYSCFGEX=?", "^SYSCFGEX", 30}, AT_Syscfgex_test, [](auto& r) {
        std::string s = fields(r.acqorder_num, r.acqorder[0], r.acqorder[1], r.band_num, r.LTEband_num);
        for (int i = 0; i < listed(r.band_num); ++i) s += "|" + fields(r.band[i].bandnum, r.band[i].bandname);
        for (int i = 0; i < listed(r.LTEband_num); ++i) s += "|" + fields(r.LTEband[i].bandnum, r.LTEband[i].bandname);
        return s;
    }, {
        {"only the first band pair is kept",
         ok("^SYSCFGEX: (\"00\",\"03\"),((2000000400380,\"GSM900/WCDMA2100\"),(3FFFFFFF,\"All\")),(0-3),(0-4),((1,\"LTE BC1\"),(7FFFFFFFFFFFFFFF,\"All\"))"),
         0, "2,00,03,1,2|2000000400380,GSM900/WCDMA2100|1,LTE BC1|7FFFFFFFFFFFFFFF,All", kOk},
        {"no LTE list", ok("^SYSCFGEX: (\"00\"),((3FFFFFFF,\"All\")),(0-3),(0-4)"), 0, "1,00,?,1,0|3FFFFFFF,All", kOk},
        {"CME error mapped", cme("+CME ERROR: 13"), 0, "?,?,?,?,?", AT_CMD_RES_SIM_FAIL},
        {"unparsable", ok("^SYSCFGEX: (\"00\"),((3FFFFFFF,\"All\")),(0-3),(0-4),((10,\"L1\")"), -1, ""},
    });
}

template <typename Param, typename Result>
std::function<int(Result*)> check_half(int (*fn)(int, Param, Result*), Param p) {
    return [fn, p](Result* r) { return fn(AT_CHECK_VALUE, p, r); };
}

TEST(Radio, CheckHalves) {
    const std::vector<Case> errors = {
        {"CME error mapped", cme("+CME ERROR: 10"), 0, "?", AT_CMD_RES_SIM_FAIL},
        {"plain error", result(AT_ERROR), -1, ""},
        {"unparsable", ok("nothing"), -1, ""},
    };
    auto with = [&](std::vector<Case> rows) { rows.insert(rows.end(), errors.begin(), errors.end()); return rows; };
    run<LTERFResult>({"AT^RFSWITCH?", "^RFSWITCH", 30}, check_half<LTERFInfo*>(AT_RFSwitch, nullptr),
                     [](auto& r) { return fields(r.rf_state); }, with({{"on", ok("^RFSWITCH: 1"), 0, "1", kOk}}));
    run<LTEMEASMODEResult>({"AT^LTEMEASMODE?", "^LTEMEASMODE", 30}, check_half<LTEMEASMODEInfo*>(AT_LTEMEASMODE, nullptr),
                           [](auto& r) { return fields(r.mode); }, with({{"mode", ok("^LTEMEASMODE: 2"), 0, "2", kOk}}));
    run<LMIMOCTRLResult>({"AT^LMIMOCTRL?", "^LMIMOCTRL", 30}, check_half(AT_LMIMOCTRL, EN_LMIMOCTRL_INIT),
                         [](auto& r) { return fields(r.MIMO_state); },
                         with({{"enabled", ok("^LMIMOCTRL: 1"), 0, "1", kOk}, {"outside the enum", ok("^LMIMOCTRL: 7"), 0, "7", kOk}}));
    run<LTECAResult>({"AT^LCACTRL?", "^LCACTRL", 30}, check_half<LTELCAInfo*>(AT_LCACTRL, nullptr),
                     [](auto& r) { return fields(r.CA_state); }, with({{"disabled", ok("^LCACTRL: 0"), 0, "0", kOk}}));
    run<HOPARASETResult>({"AT^HOPARASET?", "^HOPARASET", 30}, check_half<HOPARASETInfo*>(AT_HOPARASET, nullptr), [](auto& r) {
        return fields(r.rsrp_thresh1, r.rsrp_thresh2, r.rsrp_thresh3, r.sinr_thresh1, r.sinr_thresh2, r.sinr_thresh3);
    }, {{"six values", ok("^HOPARASET: 100,90,80,10,5,-3"), 0, "100,90,80,10,5,4294967293", kOk},
        {"short reply", ok("^HOPARASET: 100"), 0, "100,?,?,?,?,?", kOk}});
    run<CA_SWITCH_STATE>({"AT^CASWITCHSBB?", "^CASWITCHSBB:", 30}, AT_QueryCASwitch, [](auto& r) { return fields(r); }, {
        {"enabled", ok("^CASWITCHSBB: 1"), 0, "1"}, {"CME error", cme("+CME ERROR: 10"), -1, ""}, {"unparsable", ok("x"), -1, ""}});
    run<int>({"AT^IMSSWITCH?", "^IMSSWITCH", 30}, AT_QryImsswitch, [](auto& r) { return fields(r); }, {
        {"first number", ok("^IMSSWITCH: 1,0"), 0, "1"},
        {"no blank",     ok("^IMSSWITCH:0"),    0, "0"},
        {"no number",    ok("^IMSSWITCH: x"),  -1, ""},
        {"too long",     ok("^IMSSWITCH: 12345678901"), -1, ""},
        {"no prefix",    ok("1"),              -1, ""},
        {"CME error",    cme("+CME ERROR: 10"), -1, ""},
    });
}

// A set half run on a sentinel result record: its return and the result code it left.
template <typename R, typename F>
std::pair<int, int> on_result(F set) {
    R r = sentinel<R>();
    const int rc = set(&r);
    return {rc, as_int(r.AtExeResult)};
}
constexpr int kNoRecord = 1;  // stands for the result field of a function that has none

// Set lines and their outcomes: OK (0, result set), an error report (mapped or not), ERROR (-1).
// The other check/execute and record-less settings share these paths; their lines are checked
// end to end, where the simulator takes only the exact forms.
TEST(Radio, SetLines) {
    struct Row {
        const char *line, *match;
        bool maps;  // an error report's code goes into the record
        std::pair<int, int> (*call)();
    };
    const Row rows[] = {
        {"AT^SYSCFG=2,0,0002000000400380,1,2", "^SYSCFG", true, [] {
             NetConfigurationType p{"2", "0", "0002000000400380", "1", "2", 0};
             return on_result<NetConfigurationRes>([&](auto* r) { return AT_SysConfig(1, &p, r); });
         }},
        {"AT^SYSCFGEX=\"030201\",3FFFFFFF,1,2,7FFFFFFFFFFFFFFF,,", "^SYSCFGEX", false, [] {
             return on_result<NetConfigurationTypeEx>([](auto* e) {
                 put(e->Acqorder, "030201"), put(e->Band, "3FFFFFFF"), put(e->Roam, "1"), put(e->Srvdomain, "2");
                 put(e->lteBand, "7FFFFFFFFFFFFFFF"), put(e->reserver1, ""), put(e->reserver2, "");
                 return AT_SysConfigEx(1, e);
             });
         }},
        {"AT^BANDPRIORITY=6,3,3,7,20", "^BANDPRIORITY", true, [] {
             return on_result<BANDPRIORITYRESULT>([](auto* b) { b->rat = 6, b->band_num = 3, b->band[0] = 3, b->band[1] = 7, b->band[2] = 20; return AT_Setbandpriority(b); });
         }},
        {"AT^BANDPRIORITY=6,0", "^BANDPRIORITY", true,
         [] { return on_result<BANDPRIORITYRESULT>([](auto* b) { b->rat = 6, b->band_num = 0; return AT_Setbandpriority(b); }); }},
        {"AT^RFSWITCH=0", "", false, [] { LTERFInfo p{0, 0}; return on_result<LTERFResult>([&](auto* r) { return AT_RFSwitch(1, &p, r); }); }},
        {"AT^CASWITCHSBB=1", "", false, [] { return std::pair{AT_SetCASwitch(CA_SWITCH_ENABLE), kNoRecord}; }},
    };
    FakeAtServer ats;
    for (const Row& row : rows) {
        for (const auto& [reply, mapped] : {std::pair{ok(), kOk}, std::pair{cme("+CME ERROR: 13"), 13}, std::pair{result(AT_ERROR), kS}}) {
            SCOPED_TRACE(testing::Message() << row.line << " answered " << reply.ret_val);
            ats.clear_requests();
            ats.reply(reply);
            const bool taken = reply.ret_val == AT_CMD_OK || (reply.ret_val == AT_CME_ERROR && row.maps);
            const auto [rc, exe] = row.call();
            EXPECT_EQ(rc, taken ? 0 : -1);
            if (exe != kNoRecord) {
                EXPECT_EQ(exe, taken ? mapped : kS);
            }
            ASSERT_EQ(ats.count(), 1u);
            expect_wire(ats.last(), {row.line, row.match, 30});
        }
    }
}

TEST(Radio, Netscan) {
    auto scan = [](unsigned mode, const char* bands) {
        return std::function<int(NETSCAN_RESULT*)>([mode, bands](NETSCAN_RESULT* r) {
            const int rc = At_Netscan(mode, const_cast<char*>(bands), r);
            if (rc != 0 || untouched(r->CellListInfo) || !r->CellListInfo) return rc;
            // The cells are rendered in the list's place (and the list freed), so the record shows them.
            static std::string cells;
            cells.clear();
            for (int i = 0; i < r->cell_num; ++i) {
                const NETSCAN_CELL_DATA& c = r->CellListInfo[i];
                cells += fields(c.cell_lac, c.cell_mcc, c.cell_mnc, c.cell_id) + "|";
            }
            std::free(r->CellListInfo);
            r->CellListInfo = reinterpret_cast<NETSCAN_CELL_DATA*>(cells.data());
            return rc;
        });
    };
    auto shown = [](const NETSCAN_RESULT& r) {
        if (untouched(r.CellListInfo)) return fields(r.cell_num) + ":?";
        return fields(r.cell_num) + ":" + (r.CellListInfo ? reinterpret_cast<const char*>(r.CellListInfo) : "null");
    };
    const std::string cell = "^NETSCAN: 10700,,,25F0,001,01,63,-70,0C4E5F01,0";
    run<NETSCAN_RESULT>({"AT^NETSCAN=20,-110,0", "^NETSCAN", 240, AT_REQ, 0, AT_RES_MUT}, scan(0, nullptr), shown, {
        {"two cells",    ok(cell + "\r\n^NETSCAN: 3000,,,1A2B,999,99,0,-95,12345678901,3"), 0,
         "2:25F0,001,01,0C4E5F0|1A2B,999,99,1234567|", kOk},
        {"21 cells kept to 20", ok([&] { std::string s; for (int i = 0; i < 21; ++i) s += cell + "\r\n"; return s; }()), 0,
         "20:" + [] { std::string s; for (int i = 0; i < 20; ++i) s += "25F0,001,01,0C4E5F0|"; return s; }(), kOk},
        {"no cells",     ok(""), 0, "?:?", kOk},
        {"a line that does not parse", ok(cell + "\r\n^NETSCANX"), -1, "2:null", kOk},
        {"CME error mapped", cme("+CME ERROR: 30"), 0, "?:?", AT_CMD_RES_GPS_NO_NETWORK_SERVER},
        {"plain error",  result(AT_ERROR), -1, ""},
    });
    run<NETSCAN_RESULT>({"AT^NETSCAN=20,-125,2", "^NETSCAN", 240, AT_REQ, 0, AT_RES_MUT}, scan(2, ""), shown,
                        {{"threshold of mode 2, empty bands left out", ok(cell), 0, "1:25F0,001,01,0C4E5F0|", kOk}});
    run<NETSCAN_RESULT>({"AT^NETSCAN=20,-110,1,0x80", "^NETSCAN", 240, AT_REQ, 0, AT_RES_MUT}, scan(1, "0x80"), shown,
                        {{"bands added", ok(cell), 0, "1:25F0,001,01,0C4E5F0|", kOk}});
}

// A selection with these texts, refused: -1 and the result record untouched.
bool refused(const char* mode, const char* format, const std::string& name, const char* rat) {
    NetChooseOperatorParam p{};
    put(p.Mode, mode), put(p.Format, format), put(p.OperatorName, name), put(p.Rat, rat);
    NetChooseOperatorResult r = sentinel<NetChooseOperatorResult>();
    return AT_ChoseOperators(1, &p, &r) == -1 && untouched(r);
}

// Null records, refused command types and texts that would break the line: -1, nothing sent.
TEST(Operators, RefusedBeforeSending) {
    static NetChooseOperatorParam p;
    static NetChooseOperatorResult r;
    static PnnPara pp{0, -1};
    static int n;
    static PnnRes* l;
    const std::vector<std::pair<const char*, bool (*)()>> calls = {
        {"null records", [] {
             return AT_Cops(nullptr) + AT_GetOPList(0, nullptr) + AT_Eons(1, "1", nullptr) + AT_Cnwi(nullptr) + AT_GetSpn(0, nullptr) +
                    AT_Cpnn(0, nullptr) + AT_CCLK_CHECK(nullptr) + AT_Syscfg_test(nullptr) + AT_Syscfgex_test(nullptr) +
                    AT_Setbandpriority(nullptr) + AT_QueryCASwitch(nullptr) + AT_QryImsswitch(nullptr) + At_Netscan(0, nullptr, nullptr) +
                    AT_GetPnnList(nullptr, &n, &l) + AT_GetPnnList(&pp, nullptr, &l) + AT_GetPnnList(&pp, &n, nullptr) +
                    AT_SysConfigEx(0, nullptr) + AT_SysConfig(0, nullptr, nullptr) + AT_ChoseOperators(1, &p, nullptr) +
                    AT_ChoseOperators(1, nullptr, &r) == -20;
         }},
        {"command types, a search without a list", [] {
             return AT_ChoseOperators(2, &p, &r) + AT_ChoseOperators(0, &p, &r) + AT_ChoseOperators(3, &p, &r) == -3;
         }},
        {"quote in the operator name", [] { return refused("1", "0", "Ex\"Net", "7"); }},
        {"';' in the mode, in the format", [] { return refused("1;+", "2", "00101", "7") && refused("1", "2;", "00101", ""); }},
        {"unterminated operator name", [] { return refused("1", "2", std::string(64, '1'), ""); }},
        {"network time is never asked", [] { ST_AT_TIME t{}; return AT_NWTime(&t) + AT_NWTime(nullptr) == -2; }},
        {"eons plmn", [] {
             NetEonsResult e = sentinel<NetEonsResult>();
             return AT_Eons(1, "001;01", &e) + AT_Eons(1, std::string(700, '1').c_str(), &e) == -2 && untouched(e);
         }},
        {"syscfg", [] {
             NetConfigurationType c{"2", "0", "3FFF;AT+CFUN=0", "1", "2", 0};
             NetConfigurationRes res{};
             const int semicolon = AT_SysConfig(1, &c, &res);
             std::memset(c.Band, 'F', sizeof c.Band);
             return semicolon + AT_SysConfig(1, &c, &res) + AT_SysConfig(2, &c, &res) == -3;
         }},
        {"syscfgex", [] {
             NetConfigurationTypeEx e{"03\"", "3FFFFFFF", "1", "2", "1", "", "", AT_CMD_RES_SUCCESS};
             const int quote = AT_SysConfigEx(1, &e);
             put(e.Acqorder, "03"), std::memset(e.reserver2, '1', sizeof e.reserver2);
             return quote + AT_SysConfigEx(1, &e) + AT_SysConfigEx(-1, &e) == -3;
         }},
        {"band priority count", [] {
             BANDPRIORITYRESULT b{};
             b.band_num = -1;
             const int negative = AT_Setbandpriority(&b);
             b.band_num = AT_BANDPRIORITY_MAX_BANDS + 1;
             return negative + AT_Setbandpriority(&b) == -2;
         }},
        {"check/execute", [] {
             LTERFResult rf{};
             HOPARASETResult ho{};
             LTEMEASMODEResult me{};
             LMIMOCTRLResult mi{};
             LTECAResult ca{};
             return AT_RFSwitch(0, nullptr, nullptr) + AT_RFSwitch(1, nullptr, &rf) + AT_RFSwitch(2, nullptr, &rf) +
                    AT_HOPARASET(1, nullptr, &ho) + AT_HOPARASET(-1, nullptr, &ho) + AT_LTEMEASMODE(1, nullptr, &me) +
                    AT_LTEMEASMODE(0, nullptr, nullptr) + AT_LMIMOCTRL(2, EN_LMIMOCTRL_ENABLE, &mi) +
                    AT_LMIMOCTRL(0, EN_LMIMOCTRL_ENABLE, nullptr) + AT_LCACTRL(1, nullptr, &ca) + AT_LCACTRL(5, nullptr, &ca) == -11;
         }},
        {"netscan bands", [] { NETSCAN_RESULT s = sentinel<NETSCAN_RESULT>(); return At_Netscan(0, const_cast<char*>("80;AT"), &s) == -1 && untouched(s); }},
    };
    FakeAtServer ats;
    ats.respond([](const Request&) { return ok(); });
    for (const auto& [what, call] : calls) {
        EXPECT_TRUE(call()) << what;
        EXPECT_EQ(ats.count(), 0u) << what;
    }
}

// Traces that are a function's only account of what went wrong.
TEST(Operators, Traces) {
    const std::string cops25 = "+COPS: " + operators(25) + ",(0,1,2,3,4),(0,1,2)";
    struct Row {
        const char* what;
        Reply reply;
        bool (*call)();
        std::vector<std::string> traces;
    };
    const std::vector<Row> rows = {
        {"AT_Cops error reply", result(AT_ERROR), [] { NetChooseOperatorParam p; return AT_Cops(&p) == -1; }, {"switch default ......\n"}},
        {"AT_Cops unparsable", ok("x"), [] { NetChooseOperatorParam p; return AT_Cops(&p) == -1; }, {"AT_Cops NULL != at_parse_result ......\n"}},
        {"AT_Eons error reply", result(AT_ERROR), [] { NetEonsResult r; return AT_Eons(0, nullptr, &r) == -1; }, {"switch default ......\n"}},
        {"AT_Eons unparsable", ok("x"), [] { NetEonsResult r; return AT_Eons(0, nullptr, &r) == -1; },
         {"AT_Eons NULL == at_parse_result(ret = -2) ......\n"}},
        {"search of 25", ok(cops25), [] {
             OperatorList l;
             NetChooseOperatorResult r{};
             r.TotalOper = &l;
             return AT_ChoseOperators(2, nullptr, &r) == 0;
         }, {"AT+COPS=? return too many operators(>20)!\n"}},
        {"clock unparsable, null records", ok("x"),
         [] { ST_AT_TIME t; return AT_CCLK_CHECK(&t) + AT_CCLK_CHECK(nullptr) + AT_NWTime(nullptr) + AT_Cnwi(nullptr) == -4; },
         {"[AT_CCLK_CHECK]at_parse_result is null.\n", "[AT_CCLK_CHECK]at_time_info is null.\n", "at_time_info is null.\n",
          "AT_Cnwi in_param NULL\n"}},
        {"syscfg modes", ok("^SYSCFG: (1,2,3,4,5,6,7,8,9,10,11),(0,1,2,3,4,5,6,7,8,9,10),((1,\"A\")),(0-2),(0-4)"),
         [] { SYSCFG_INFO i; return AT_Syscfg_test(&i) == 0; }, {"modes list is too many\n", "acqorder list is too many\n"}},
        {"syscfgex bands", ok("^SYSCFGEX: (\"00\"),((1,\"A\")),(0-3),(0-4),(" + [] { std::string s; for (int i = 0; i < 21; ++i) s += "(1,\"L\"),"; return s; }() + "(2,\"M\"))"),
         [] { SYSCFGEX_INFO i; return AT_Syscfgex_test(&i) == 0; }, {"syscfgex band list is too many\n"}},
        {"CA switch error", result(AT_ERROR), [] { CA_SWITCH_STATE s; return AT_QueryCASwitch(&s) == -1; },
         {"AT_QueryCASwitch:AT^CASWITCHSBB? command failed!\r\n"}},
        {"check error", result(AT_ERROR), [] { LTERFResult r; return AT_RFSwitch(0, nullptr, &r) == -1; }, {"AT_RFSwitch AT_CMD_TYPE_CHECK error\n"}},
        {"check unparsable", ok("x"), [] { HOPARASETResult r; return AT_HOPARASET(0, nullptr, &r) == -1; }, {"AT_HOPARASET at_parse_result NULL \n"}},
        {"netscan unparsable", ok("^NETSCANX"), [] { NETSCAN_RESULT r{}; return At_Netscan(0, nullptr, &r) == -1; }, {"at_cmd_parse error!\n"}},
    };
    FakeAtServer ats;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        clear_traces();
        ats.reply(row.reply);
        EXPECT_TRUE(row.call());
        for (const std::string& t : row.traces) EXPECT_GE(count_trace(t), 1u) << t;
    }
    // With the AT server gone.
    ats.die();
    clear_traces();
    NetChooseOperatorParam p = sentinel<NetChooseOperatorParam>();
    NetEonsResult e = sentinel<NetEonsResult>();
    NetCnwiOperatorParam c = sentinel<NetCnwiOperatorParam>();
    LMIMOCTRLResult m = sentinel<LMIMOCTRLResult>();
    EXPECT_TRUE(AT_Cops(&p) == -1 && AT_Eons(1, nullptr, &e) == -1 && AT_Cnwi(&c) == -1 && AT_FASTDORM(0, 0) == -1 &&
                AT_LMIMOCTRL(0, EN_LMIMOCTRL_INIT, &m) == -1);
    EXPECT_TRUE(untouched(p) && untouched(e) && untouched(c) && untouched(m));
    for (const char* t : {"AT_Cops error ......\n", "AT_Eons error ......\n", "AT_Cnwi error ......\n", "AT_Cnwi ret = -1\n",
                          "AT_FASTDORM GetDataFromAtServer failed\n", "AT_LMIMOCTRL AT_CMD_TYPE_CHECK error\n"})
        EXPECT_EQ(count_trace(t), 1u) << t;
}

}  // namespace
