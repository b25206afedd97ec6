// SIM and PIN commands against the scripted fake AT server: the line on the wire, the record
// filled or left alone, error replies, the path tables of the card type, the readers built on
// restricted access, the decoding of the service-provider name, and that no code is ever traced.
//
// The card type is asked once per process, so the path tables of a SIM run in a process of
// their own (ATAPI_TEST_CARD=1, the SimFiles tests only); SimFiles.PathTables runs first.
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <tuple>

#include "test_network_support.h"
#include "trace_capture.h"

using namespace atapi_test;

namespace {

constexpr int kOk = AT_CMD_RES_SUCCESS;
const std::string kLong(700, '1');

int card_type() {
    const char* e = std::getenv("ATAPI_TEST_CARD");
    return e ? std::atoi(e) : USIM_CARD;
}

// The path each card type's table gives a file, as the request carries it.
std::string path_of(int fileid) {
    const bool usim = card_type() == USIM_CARD;
    switch (fileid) {
    case 0x2F05: return "3F00";
    case 0x6F05: case 0x6F57: case 0x2FE2: case 0x6F46: case 0x6F40: case 0x6FAD:
        return usim ? "3F007FFF" : "3F007F20";
    case 0x6F3E: return usim ? "3F007FFF" : "";
    default: return "";
    }
}

std::string crsm_line(int cmd, int fileid, int p3, const std::string& data = "") {
    return "AT+CRSM=" + std::to_string(cmd) + "," + std::to_string(fileid) + ",0,0," + std::to_string(p3) + "," +
           data + ",\"" + path_of(fileid) + "\"";
}

bool g_card_known = false;

// Makes the card type known to this process (once), so that each later call sends one request.
void known_card(FakeAtServer& ats) {
    if (g_card_known) return;
    ats.reply(ok("^CARDMODE: " + std::to_string(card_type()))).reply(ok("+CRSM: 144,0"));
    StCrsmPara p{176, 0x2F05, 0, 0, 0, nullptr, nullptr};
    StCrsmRes r{};
    ASSERT_EQ(AT_Crsm(&p, &r), 0);
    ats.clear_requests();
    g_card_known = true;
}

// ---- SIM files ---------------------------------------------------------------------------------

TEST(SimFiles, PathTables) {
    struct Step {
        const char* what;
        std::optional<Reply> cardmode;  // the card mode's answer, when it is asked
        int fileid;
        bool from_table;                // false: no card type, so no path
        std::string trace;              // the lookup's trace, if any
    };
    const std::string type = std::to_string(card_type());
    const std::vector<Step> steps = {
        {"card mode refused",    cme("+CME ERROR: 10"), 0x6FAD, false, "[GetPathidByFileid] AT_cardmode failed!\n"},
        {"no card: asked again", ok("^CARDMODE: 0"), 0x6FAD, false, "[GetPathidByFileid] AT_cardmode 0 is not supported\n"},
        {"card type learnt",     ok("^CARDMODE: " + type), 0x6FAD, true, ""},
        {"EF LI",  {}, 0x6F05, true, ""}, {"EF PL", {}, 0x2F05, true, ""}, {"EF ACL", {}, 0x6F57, true, ""},
        {"ICCID",  {}, 0x2FE2, true, ""}, {"EF SPN", {}, 0x6F46, true, ""}, {"MSISDN", {}, 0x6F40, true, ""},
        {"GID1, USIM only", {}, 0x6F3E, true, card_type() == USIM_CARD ? "" : "[GetPathidByFileid] fileid[28478] get pathid error\n"},
        {"brand file has no path", {}, 0x6FFE, true, ""},
        {"unknown file", {}, 0x1234, true, "[GetPathidByFileid] fileid[4660] get pathid error\n"},
    };
    FakeAtServer ats;
    for (const Step& s : steps) {
        SCOPED_TRACE(s.what);
        ats.clear_requests();
        clear_traces();
        if (s.cardmode) ats.reply(*s.cardmode);
        ats.reply(ok("+CRSM: 144,0"));
        StCrsmPara p{176, s.fileid, 0, 0, 0, nullptr, reinterpret_cast<char*>(1)};
        StCrsmRes r{};
        EXPECT_EQ(AT_Crsm(&p, &r), 0);
        const std::vector<Request> sent = ats.requests();
        ASSERT_EQ(sent.size(), s.cardmode ? 2u : 1u);
        if (s.cardmode) expect_wire(sent[0], {"AT^CARDMODE", "^CARDMODE", 30});
        const std::string path = s.from_table ? path_of(s.fileid) : "";
        expect_wire(sent.back(), {"AT+CRSM=176," + std::to_string(s.fileid) + ",0,0,0,,\"" + path + "\"", "+CRSM", 30});
        EXPECT_EQ(p.pathid ? std::string(p.pathid) : std::string(), path);
        if (!s.trace.empty()) {
            EXPECT_EQ(count_trace(s.trace), 1u);
        }
        EXPECT_EQ(count_trace("[AT_Crsm] get pathid error!\n"), path.empty() ? 1u : 0u);
    }
    g_card_known = true;
}

// The record of AT_Crsm with the allocated response turned into text and released.
struct CrsmOut {
    StCrsmRes res;
    char text[1500];
};

int crsm_call(CrsmOut* o, StCrsmPara p) {
    const int rc = AT_Crsm(&p, &o->res);
    if (!untouched(o->res.response)) {
        std::strncpy(o->text, o->res.response, sizeof o->text - 1);
        free(o->res.response);
        std::memset(static_cast<void*>(&o->res.response), kSB, sizeof o->res.response);
    }
    return rc;
}

std::string crsm_shown(const CrsmOut& o) { return fields(o.res.w1, o.res.w2, o.res.AtExeResult) + ":" + fields(o.text); }

TEST(SimFiles, RestrictedAccess) {
    FakeAtServer ats;
    known_card(ats);
    const std::string big(1400, 'A');
    const std::string ok_exe = std::to_string(kOk);
    run<CrsmOut>({crsm_line(176, 0x6FAD, 4), "+CRSM", 30},
                 [](CrsmOut* o) { return crsm_call(o, {176, 0x6FAD, 0, 0, 4, nullptr, nullptr}); }, crsm_shown, {
        {"read",                 ok("+CRSM: 144,0,\"00000002\""), 0, "144,0," + ok_exe + ":00000002"},
        {"status only",          ok("+CRSM: 106,130"),            0, "106,130," + ok_exe + ":?"},
        {"long response copied", ok("+CRSM: 144,0,\"" + big + "\""), 0, "144,0," + ok_exe + ":" + big},
        {"CME error not mapped", cme("+CME ERROR: 11"),          -1, ""},
        {"unparsable",           ok("144,0"),                    -1, ""},
    });
    char data[] = "0102FF";
    char hostile[] = "01;+CFUN=0";
    ats.clear_requests();
    StCrsmPara refused{214, 0x6F46, 0, 0, 3, hostile, nullptr};
    StCrsmRes untouched_res = sentinel<StCrsmRes>();
    EXPECT_EQ(AT_Crsm(&refused, &untouched_res), -1);
    EXPECT_TRUE(untouched(untouched_res));
    EXPECT_EQ(ats.count(), 0u);
    run<CrsmOut>({crsm_line(214, 0x6F46, 3, "0102FF"), "+CRSM", 30},
                 [&](CrsmOut* o) { return crsm_call(o, {214, 0x6F46, 0, 0, 3, data, nullptr}); }, crsm_shown, {
        {"update refused by the card", ok("+CRSM: 105,130"), 0, "105,130," + ok_exe + ":?"},
    });
}

// Allocations that fail leave nothing behind and say so.
TEST(SimFiles, AllocationFailures) {
    FakeAtServer ats;
    known_card(ats);
    const std::vector<std::tuple<const char*, Reply, std::function<int()>, const char*>> rows = {
        {"AT_Crsm response", ok("+CRSM: 144,0,\"4558\""),
         [] { StCrsmPara p{176, 0x6F3E, 0, 0, 0, nullptr, nullptr}; StCrsmRes r{}; int rc = AT_Crsm(&p, &r); free(r.response); return rc; },
         "crsmResult->response malloc error!\n"},
        {"AT_Cnum list", ok("+CNUM: \"\",\"+12025550142\",145"),
         [] { StSetCunmInfo r{}; int rc = AT_Cnum(&r); free(r.pInfos); return rc; }, "phone number malloc list failed\n"},
    };
    for (const auto& [what, reply, call, trace] : rows) {
        SCOPED_TRACE(what);
        ats.reply(reply).reply(reply);
        atapi_internal_fail_nth_alloc(0);
        ASSERT_EQ(call(), 0);
        // The list or copy is the call's last allocation.
        atapi_internal_fail_nth_alloc(atapi_internal_alloc_count());
        clear_traces();
        EXPECT_EQ(call(), -1);
        atapi_internal_fail_nth_alloc(0);
        EXPECT_EQ(count_trace(trace), 1u);
    }
}

struct Reader {
    const char* what;
    Reply reply;
    int rc;
    std::string out;     // the text a reader filled, or its return for AT_get_mnc_length
    const char* trace;   // "" for none expected
};

void run_readers(const std::string& line, const std::function<std::pair<int, std::string>()>& call,
                 const std::vector<Reader>& rows) {
    FakeAtServer ats;
    known_card(ats);
    for (const Reader& r : rows) {
        SCOPED_TRACE(r.what);
        ats.clear_requests();
        clear_traces();
        ats.reply(r.reply);
        const auto [rc, out] = call();
        EXPECT_EQ(rc, r.rc);
        EXPECT_EQ(out, r.out);
        ASSERT_EQ(ats.count(), 1u);
        expect_wire(ats.last(), {line, "+CRSM", 30});
        if (*r.trace) {
            EXPECT_EQ(count_trace(r.trace), 1u);
        }
    }
}

TEST(SimFiles, MncLength) {
    const char* data = "[AT mnc] response data error!\n";
    run_readers(crsm_line(176, 0x6FAD, 4), [] { return std::make_pair(AT_get_mnc_length(), std::string()); }, {
        {"three digits",             ok("+CRSM: 144,0,\"00FFFF03\""),  3, "", ""},
        {"91 with any second word",  ok("+CRSM: 145,7,\"00000003\""),  3, "", ""},
        {"90 with a second word",    ok("+CRSM: 144,1,\"00000002\""), -1, "", data},
        {"no response",              ok("+CRSM: 144,0"),              -1, "", data},
        {"seven characters",         ok("+CRSM: 144,0,\"0000002\""),  -1, "", "[AT mnc] response data length error!\n"},
    });
}

TEST(SimFiles, Gid1) {
    run_readers(crsm_line(176, 0x6F3E, 0), [] {
        char buf[8] = "unread";
        const int rc = AT_get_sim_gid1(buf, 5);
        return std::make_pair(rc, std::string(buf));
    }, {
        {"read, cut to ilen", ok("+CRSM: 144,0,\"4558FFFF\""), 0, "4558", ""},
        // The status is not looked at: what the card sent is GID1.
        {"any status", ok("+CRSM: 106,130,\"00\""), 0, "00", ""},
        {"no response", ok("+CRSM: 144,0"), -1, "unread", "[AT_get_sim_gid1] AT_Crsm NULL == stCrsmResult.response!\n"},
        {"error", result(AT_ERROR), -1, "unread", "[AT_get_sim_gid1] AT_Crsm failed!\n"},
    });
}

std::string hex(const std::string& bytes) {
    static const char* d = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : bytes) out += {d[c >> 4], d[c & 15]};
    return out;
}
// One EF ACL entry of the given labels, padded with FF to the 255 bytes the reader asks for.
std::string acl(std::initializer_list<std::string> labels, int count = 1, const std::string& tag = "DD") {
    std::string body;
    for (const std::string& l : labels) body += static_cast<char>(l.size()) + l;
    std::string file = hex(std::string(1, static_cast<char>(count))) + tag + hex(std::string(1, static_cast<char>(body.size()))) + hex(body);
    file.resize(510, 'F');
    return "+CRSM: 144,0,\"" + file + "\"";
}

TEST(SimFiles, SimApn) {
    run_readers(crsm_line(176, 0x6F57, 255), [] {
        char buf[40] = "untouched";
        const int rc = AT_get_sim_apn(buf, 20);
        return std::make_pair(rc, std::string(buf));
    }, {
        {"six and three",   ok(acl({"intern", "com"})), 0, "intern.com", "AT_get_sim_apn parse_sim_apn succeed!\n"},
        {"cut to buf_len",  ok(acl({"internet", "example", "net"})), 0, "internet.example.ne", ""},
        {"lax tag, one D",  ok(acl({"ab"}, 1, "D0")), 0, "ab", ""},
        {"tag without D",   ok(acl({"ab"}, 1, "AB")), -1, "untouched", ""},
        {"empty list",      ok("+CRSM: 144,0,\"FFFFFF\""), -1, "untouched", ""},
        {"bad status",      ok("+CRSM: 106,130,\"" + acl({"ab"}).substr(14)), -1, "untouched", ""},
        {"data ends early", ok("+CRSM: 144,0,\"01DD0A0461626364\""), 0, "abcd", ""},
    });
    // However long the entry says it is, the name stays in its 33 bytes.
    char name[33 + 8];
    std::memset(name, 'x', sizeof name);
    std::string hostile = "01DDFF7F" + std::string(300, '4');
    EXPECT_EQ(parse_sim_apn(reinterpret_cast<unsigned char*>(hostile.data()), name), 0);
    EXPECT_EQ(std::string(name), std::string(32, 'D'));
    EXPECT_EQ(name[33], 'x');
}

// ---- PIN management ------------------------------------------------------------------------------

std::function<int(PinMgResultCode*)> pin_query(int (*fn)(int, char*, char*, PinMgResultCode*)) {
    return [fn](PinMgResultCode* r) { return fn(AT_CHECK_VALUE, nullptr, nullptr, r); };
}

TEST(Pin, StateQueries) {
    const std::vector<Case> plus = {
        {"PIN wanted",        ok("+CPIN: SIM PIN"),   0, "?,SIM PIN,?", kOk},
        {"long word cut",     ok("+CPIN: " + std::string(40, 'W')), 0, "?," + std::string(31, 'W') + ",?", kOk},
        {"CME error mapped",  cme("+CME ERROR: SIM not inserted"), 0, "?,?,?", AT_CMD_RES_SIM_FAIL},
        {"CMS error mapped",  cms("+CMS ERROR: 316"), 0, "?,?,?", AT_CMD_RES_PUK_REQ},
        {"plain error",       result(AT_ERROR),      -1, ""},
        {"unparsable",        ok("READY"),           -1, ""},
    };
    auto shown = [](const PinMgResultCode& r) { return fields(r.CmdType, r.Code, r.Reserve); };
    run<PinMgResultCode>({"AT+CPIN?", "+CPIN", 30}, pin_query(AT_PinManagement), shown, plus);
    run<PinMgResultCode>({"AT+CPIN?", "+CPIN", 30}, AT_cpin_check, shown, plus);
    run<PinMgResultCodeEx>({"AT^CPIN?", "^CPIN", 5},
                           [](PinMgResultCodeEx* r) { return AT_PinManagementEx(AT_CHECK_VALUE, nullptr, nullptr, r); },
                           [](const PinMgResultCodeEx& r) {
                               const PinResTimes& t = r.ResTimes;
                               return fields(r.CmdType, r.Code, t.ResTimes, t.ResPukTimes, t.ResPinTimes, t.ResPuk2Times,
                                             t.ResPin2Times, t.Reserve, r.Reserve);
                           }, {
        {"PIN wanted",       ok("^CPIN: SIM PIN,2,10,2,10,3"), 0, "?,SIM PIN,2,10,2,10,3,?,?", kOk},
        {"counters absent",  ok("^CPIN: READY"),               0, "?,READY,?,?,?,?,?,?,?", kOk},
        {"long counters cut", ok("^CPIN: SIM PUK,123456789,1,1,1,1"), 0, "?,SIM PUK,1234567,1,1,1,1,?,?", kOk},
        {"CME error mapped", cme("+CME ERROR: 14"),            0, "?,?,?,?,?,?,?,?,?", AT_CMD_RES_SIM_BUSY},
        {"plain error",      result(AT_ERROR),                -1, ""},
    });
}

// A code-taking call with a record it fills: the return, and the result it left (kS: none).
struct Action {
    const char* what;
    std::function<std::pair<int, int>()> call;
    Wire wire;
    bool password_change = false;
};

template <typename Rec, typename F>
std::pair<int, int> with(F f) {
    Rec r = sentinel<Rec>();
    const int rc = f(&r);
    return {rc, as_int(r.AtExeResult)};
}

// Distinctive codes, searched for in the traces afterwards.
char kPin[] = "97315", kPuk[] = "86420864", kNew[] = "55123", kEmpty[] = "", kSc[] = "SC";

PinEnStruct lock(const char* mode, const char* passwd) {
    PinEnStruct p = sentinel<PinEnStruct>();
    std::strcpy(p.Fac, "SC");
    std::strcpy(p.Mode, mode);
    std::strcpy(p.Passwd, passwd);
    return p;
}

TEST(Pin, EntriesLocksAndChanges) {
    const std::vector<Action> actions = {
        {"+CPIN one code", [] { return with<PinMgResultCode>([](auto* r) { return AT_PinManagement(1, kPin, nullptr, r); }); },
         {"AT+CPIN=97315", "+CPIN", 30}},
        {"+CPIN two codes", [] { return with<PinMgResultCode>([](auto* r) { return AT_PinManagement(1, kPuk, kNew, r); }); },
         {"AT+CPIN=86420864,55123", "+CPIN", 30}},
        {"wrapper, empty new PIN is one code", [] { return with<PinMgResultCode>([](auto* r) { return AT_cpin_execute(kPin, kEmpty, r); }); },
         {"AT+CPIN=97315", "+CPIN", 30}},
        {"^CPIN one code", [] { return with<PinMgResultCodeEx>([](auto* r) { return AT_PinManagementEx(1, kPin, nullptr, r); }); },
         {"AT^CPIN=\"97315\"", "^CPIN", 5}},
        {"^CPIN, empty new PIN is two codes", [] { return with<PinMgResultCodeEx>([](auto* r) { return AT_PinManagementEx(1, kPin, kEmpty, r); }); },
         {"AT^CPIN=\"97315\",\"\"", "^CPIN", 5}},
        {"lock on", [] { PinEnStruct p = lock("1", kPin); return with<PinEnableResult>([&](auto* r) { return AT_PinEnableDisableCmd(1, &p, r); }); },
         {"AT+CLCK=\"SC\",1,\"97315\"", "+CLCK", 5}},
        {"password change", [] { return with<PinModifyResultCode>([](auto* r) { return AT_PinModify(kSc, kPin, kNew, r); }); },
         {"AT+CPWD=\"SC\",\"97315\",\"55123\"", "+CPWD", 30}, true},
    };
    // reply, return, result; a plain ERROR is the password change's outcome (0, AT_CMD_RES_ERR) only.
    const std::tuple<Reply, int, int> outcomes[] = {
        {ok(),                   0, kOk},
        {cme("+CME ERROR: 12"),  0, AT_CMD_RES_PUK_REQ},
        {cms("+CMS ERROR: 311"), 0, AT_CMD_RES_PIN_REQ},
        {result(AT_ERROR),      -1, kS},
        {result(AT_NO_CARRIER), -1, kS},
    };
    FakeAtServer ats;
    clear_traces();
    for (const Action& a : actions) {
        for (const auto& [reply, rc, exe] : outcomes) {
            SCOPED_TRACE(testing::Message() << a.what << " answered " << reply.ret_val);
            ats.clear_requests();
            ats.reply(reply);
            const bool plain_error = reply.ret_val == AT_ERROR && a.password_change;
            EXPECT_EQ(a.call(), plain_error ? std::make_pair(0, int(AT_CMD_RES_ERR)) : std::make_pair(rc, exe));
            ASSERT_EQ(ats.count(), 1u);
            expect_wire(ats.last(), a.wire);
        }
    }
    for (const char* code : {kPin, kPuk, kNew}) EXPECT_FALSE(has_trace(code)) << code;
}

TEST(Pin, FacilityQuery) {
    clear_traces();
    run<PinEnableResult>({"AT+CLCK=\"SC\", 2", "+CLCK", 5},
                         [](PinEnableResult* r) { PinEnStruct p = lock("2", "x\"y"); return AT_PinEnableDisableCmd(1, &p, r); },
                         [](const PinEnableResult& r) { return fields(r.CmdType, r.Status, r.Reserve); }, {
        {"on",                  ok("+CLCK: 1"),      0, "?,1,?", kOk},
        {"long status cut",     ok("+CLCK: 12345"),  0, "?,1234,?", kOk},
        {"CME error mapped",    cme("+CME ERROR: 11"), 0, "?,?,?", AT_CMD_RES_PIN_REQ},
        {"plain error",         result(AT_ERROR),   -1, ""},
        {"unparsable, success already set", ok("1"), -1, "?,?,?", kOk},
    });
    EXPECT_EQ(count_trace("get clck at error command\n"), 1u);
    EXPECT_EQ(count_trace("at_cmd_parse clck command failed!\n"), 1u);
}

// ---- Card mode and identity ------------------------------------------------------------------------

TEST(Identity, CardMode) {
    clear_traces();
    run<ST_AT_CARDMODE>({"AT^CARDMODE", "^CARDMODE", 30}, AT_cardmode, [](auto& r) { return fields(r.AtFieldValue, r.Reserve); }, {
        {"USIM",                 ok("^CARDMODE: 2"),   0, "2,?", kOk},
        {"extra value traced",   ok("^CARDMODE: 1,5"), 0, "1,?", kOk},
        {"CME error not mapped", cme("+CME ERROR: 10"), -1, ""},
        {"unparsable",           ok("2"),             -1, ""},
    });
    EXPECT_EQ(count_trace("AT^CARDMODE haven't found!\n"), 1u);
    EXPECT_EQ(count_trace("AT^CARDMODE is abnormal!Error num is 3\n"), 1u);
}

TEST(Identity, IdentityReads) {
    run<StIccid>({"AT^ICCID?", "^ICCID", 30}, AT_Iccid, [](auto& r) { return fields(r.iccid); }, {
        {"twenty digits",    ok("^ICCID: 89001012012341234012"), 0, "89001012012341234012", kOk},
        {"cut to 63",        ok("^ICCID: " + std::string(80, '8')), 0, std::string(63, '8'), kOk},
        {"CME error mapped", cme("+CME ERROR: 10"), 0, "?", AT_CMD_RES_SIM_FAIL},
        {"plain error",      result(AT_ERROR),     -1, ""},
    });
    run<StScid>({"AT^SCID", "^SCID", 30}, AT_SCID, [](auto& r) { return fields(r.Code); }, {
        {"cut to 20",        ok("^SCID: " + std::string(30, '9')), 0, std::string(20, '9'), kOk},
        {"CMS error mapped", cms("+CMS ERROR: 310"), 0, "?", AT_CMD_RES_SIM_FAIL},
    });
    run<StCurrsid>({"AT^CURRSID?", "^CURRSID", 30}, AT_Currsid, [](auto& r) { return fields(r.curr_sid, r.curr_nid, r.curr_evdo_subnetid); }, {
        {"three values",     ok("^CURRSID: 13840,1,\"00A1\""), 0, "13840,1,00A1", kOk},
        {"CME error mapped", cme("+CME ERROR: 10"),        0, "?,?,?", AT_CMD_RES_SIM_FAIL},
        {"plain error",      result(AT_ERROR),              -1, ""},
    });
    run<APHPLMN>({"AT^APHPLMN?", "^APHPLMN", 30}, [](APHPLMN* r) { return AT_aphplmn(0, r); },
                 [](auto& r) { return fields(r.mcc_mnc, r.Reserve); }, {
        {"cut to 7",         ok("^APHPLMN: 123456789"),  0, "1234567,?", kOk},
        {"CME error mapped", cme("+CME ERROR: 11"),      0, "?,?", AT_CMD_RES_PIN_REQ},
    });
}

// The list of AT_Cnum as text, the list released.
struct CnumOut {
    StSetCunmInfo res;
    char list[512];
};

TEST(Identity, OwnNumbers) {
    clear_traces();
    run<CnumOut>({"AT+CNUM", "+CNUM", 30}, [](CnumOut* o) {
        const int rc = AT_Cnum(&o->res);
        if (!untouched(o->res.pInfos)) {
            std::string s;
            for (int i = 0; o->res.pInfos && i < o->res.num; ++i) {
                const StCnumInfo& e = o->res.pInfos[i];
                s += std::string(e.name) + "/" + e.num + "/" + std::to_string(e.type) + ";";
            }
            std::strncpy(o->list, s.c_str(), sizeof o->list - 1);
            free(o->res.pInfos);
            std::memset(static_cast<void*>(&o->res.pInfos), kSB, sizeof o->res.pInfos);
        }
        return rc;
    }, [](const CnumOut& o) { return fields(o.res.num, o.res.AtExeResult, o.list); }, {
        {"two numbers", ok("+CNUM: \"Own\",\"+12025550142\",145\r\n+CNUM: \"\",\"5550100\",129"), 0,
         "2,-2,Own/+12025550142/145;/5550100/129;"},
        {"none stored", ok(""), 0, "0,-2,"},
        {"long texts cut", ok("+CNUM: \"" + std::string(100, 'n') + "\",\"" + std::string(50, '1') + "\",145"), 0,
         "1,-2," + std::string(89, 'n') + "/" + std::string(41, '1') + "/145;"},
        {"CME error mapped", cme("+CME ERROR: 11"), 0, "?,11,?"},
        {"plain error", result(AT_ERROR), -1, ""},
        {"unparsable", ok("nothing"), -1, ""},
    });
    EXPECT_EQ(count_trace("phone number list size equal zero\n"), 1u);
    EXPECT_EQ(count_trace("at_cmd_parse error!\n"), 1u);
}

TEST(Identity, GenericAccess) {
    clear_traces();
    struct Out {
        char response[261];
    };
    char apdu[] = "00A40004023F00";
    run<Out>({"AT+CSIM=14,\"00A40004023F00\"", "+CSIM", 30}, [&](Out* o) {
        at_sim_cmd_packet p{14, apdu, {}};
        std::memcpy(p.cmd_response, o->response, sizeof p.cmd_response);
        const int rc = AT_Csim(&p);
        std::memcpy(o->response, p.cmd_response, sizeof o->response);
        return rc;
    }, [](const Out& o) { return fields(o.response); }, {
        {"status words",     ok("+CSIM: 4,\"9000\""), 0, "9000"},
        {"cut to 260",       ok("+CSIM: 600,\"" + std::string(600, 'F') + "\""), 0, std::string(260, 'F')},
        {"no response",      ok("+CSIM: 4"),          -1, ""},
        {"error",            cme("+CME ERROR: 3"),    -1, ""},
        {"unparsable",       ok("9000"),              -1, ""},
    });
    for (const char* t : {"AT_Csim no such column\n", "AT_Csim return failed\n", "AT_Csim at cmd parse failed\n"})
        EXPECT_EQ(count_trace(t), 1u) << t;
    EXPECT_EQ(count_trace("enter AT_Csim\n"), 5u);
}

TEST(Identity, SlotSwitches) {
    run<at_simswitch_type>({"AT^SIMSWITCH?", "^SIMSWITCH", 30}, [](at_simswitch_type* t) { return AT_SimSwitch(0, t); },
                           [](auto& t) { return fields(t); }, {
        {"inner",       ok("^SIMSWITCH: 1"), 0, "1"},
        {"plain error", result(AT_ERROR),   -1, ""},
    });
    run<int>({"AT^SIMGPIO?", "^SIMGPIO", 30}, [](int* v) { return AT_SimGpio(0, v); },
             [](auto& v) { return fields(v); }, {{"off", ok("^SIMGPIO: 0"), 0, "0"}});
    FakeAtServer ats;
    const std::tuple<const char*, std::function<int()>> sets[] = {
        {"AT^SIMSWITCH=0", [] { at_simswitch_type t = AT_SIMSWITCH_OUTER; return AT_SimSwitch(1, &t); }},
        {"AT^SIMGPIO=1", [] { int v = 1; return AT_SimGpio(1, &v); }},
    };
    for (const auto& [line, call] : sets)
        for (const auto& [reply, rc] : std::initializer_list<std::pair<Reply, int>>{{ok(), 0}, {cme("+CME ERROR: 3"), -1}}) {
            ats.clear_requests();
            ats.reply(reply);
            EXPECT_EQ(call(), rc) << line;
            ASSERT_EQ(ats.count(), 1u);
            expect_wire(ats.last(), {line, "", 30});
        }
}

// ---- Refusals --------------------------------------------------------------------------------------

// Null pointers, refused command types and texts that would break their command line never
// reach the AT server and leave the record alone.
TEST(Refusals, NothingSent) {
    char quote[] = "97\"15", semi[] = "9731;+CFUN=0", cr[] = "9731\r";
    char* longer = const_cast<char*>(kLong.c_str());
    auto pin = [](auto fn) { PinMgResultCode r = sentinel<PinMgResultCode>(); return fn(&r) == -1 && untouched(r); };
    auto pinex = [](auto fn) { PinMgResultCodeEx r = sentinel<PinMgResultCodeEx>(); return fn(&r) == -1 && untouched(r); };
    auto clck = [](PinEnStruct p, int type = 1) {
        PinEnableResult r = sentinel<PinEnableResult>();
        return AT_PinEnableDisableCmd(type, &p, &r) == -1 && untouched(r);
    };
    const std::vector<std::pair<const char*, std::function<bool()>>> calls = {
        {"+CPIN type 2", [&] { return pin([&](auto* r) { return AT_PinManagement(2, kPin, nullptr, r); }); }},
        {"+CPIN null PIN", [&] { return pin([&](auto* r) { return AT_PinManagement(1, nullptr, kNew, r); }); }},
        {"+CPIN separator", [&] { return pin([&](auto* r) { return AT_PinManagement(1, semi, nullptr, r); }); }},
        {"+CPIN CR", [&] { return pin([&](auto* r) { return AT_PinManagement(1, kPin, cr, r); }); }},
        {"+CPIN over-long", [&] { return pin([&](auto* r) { return AT_PinManagement(1, longer, nullptr, r); }); }},
        {"+CPIN null record", [&] { return AT_PinManagement(0, nullptr, nullptr, nullptr) == -1 && AT_PinManagement(1, kPin, nullptr, nullptr) == -1; }},
        {"^CPIN type -1", [&] { return pinex([&](auto* r) { return AT_PinManagementEx(-1, kPin, nullptr, r); }); }},
        {"^CPIN quote", [&] { return pinex([&](auto* r) { return AT_PinManagementEx(1, quote, nullptr, r); }); }},
        {"^CPIN over-long new", [&] { return pinex([&](auto* r) { return AT_PinManagementEx(1, kPin, longer, r); }); }},
        {"^CPIN null", [&] { return pinex([&](auto* r) { return AT_PinManagementEx(1, nullptr, nullptr, r); }) && AT_PinManagementEx(0, nullptr, nullptr, nullptr) == -1; }},
        {"wrapper, one code only", [&] { return pin([&](auto* r) { return AT_cpin_execute(kPin, nullptr, r); }) && has_trace("Param is error!\n"); }},
        {"wrapper, neither code", [&] { return pin([&](auto* r) { return AT_cpin_execute(nullptr, nullptr, r); }) && has_trace("AT return error!\n"); }},
        {"wrapper, null records", [&] { return AT_cpin_check(nullptr) == -1 && has_trace("Param is null!\n") && AT_cpin_execute(kPin, kNew, nullptr) == -1; }},
        {"lock, set type 0", [&] { return clck(lock("1", kPin), 0); }},
        {"lock, mode 3", [&] { return clck(lock("3", kPin)); }},
        {"lock, quote in password", [&] { return clck(lock("1", "12\"4")); }},
        {"lock, password without end", [&] { PinEnStruct p = lock("1", kPin); std::memset(p.Passwd, '1', sizeof p.Passwd); return clck(p); }},
        {"lock, null", [&] { PinEnStruct p = lock("2", ""); PinEnableResult r; return AT_PinEnableDisableCmd(1, nullptr, &r) == -1 && AT_PinEnableDisableCmd(1, &p, nullptr) == -1; }},
        {"password change, quote", [&] { PinModifyResultCode r = sentinel<PinModifyResultCode>(); return AT_PinModify(kSc, kPin, quote, &r) == -1 && untouched(r); }},
        {"password change, null", [&] { PinModifyResultCode r; return AT_PinModify(kSc, nullptr, kNew, &r) == -1 && AT_PinModify(kSc, kPin, kNew, nullptr) == -1; }},
        {"card mode", [] { return AT_cardmode(nullptr) == -1; }},
        {"identity", [] { return AT_Cnum(nullptr) == -1 && AT_SCID(nullptr) == -1 && AT_Iccid(nullptr) == -1 && AT_Currsid(nullptr) == -1; }},
        {"switches", [] { int v = 0; at_simswitch_type t{}; return AT_SimSwitch(0, nullptr) == -1 && AT_SimSwitch(2, &t) == -1 && AT_SimGpio(1, nullptr) == -1 && AT_SimGpio(-1, &v) == -1; }},
        {"home PLMN", [] { APHPLMN h = sentinel<APHPLMN>(); return AT_aphplmn(0, nullptr) == -1 && AT_aphplmn(1, &h) == -1 && untouched(h); }},
        {"generic access", [&] { at_sim_cmd_packet p{4, nullptr, {}}; at_sim_cmd_packet q{4, quote, {}};
                                 return AT_Csim(nullptr) == -1 && AT_Csim(&p) == -1 && AT_Csim(&q) == -1; }},
        {"restricted access", [&] { StCrsmPara p{176, 0x6F46, 0, 0, 0, nullptr, nullptr}; StCrsmRes r{};
                                    return AT_Crsm(nullptr, &r) == -1 && AT_Crsm(&p, nullptr) == -1; }},
        {"readers", [] { char b[4]; return AT_get_sim_gid1(nullptr, 4) == -1 && AT_get_sim_gid1(b, 0) == -1 &&
                                           AT_get_sim_apn(nullptr, 4) == -1 && AT_get_sim_apn(b, 0) == -1 && parse_sim_apn(nullptr, b) == -1; }},
        {"service-provider name", [] { return at_spn_get(nullptr) == -1 && parse_spn_vf(nullptr, nullptr, nullptr) == -1 && handle_spn_name(nullptr) == -1; }},
    };
    FakeAtServer ats;
    clear_traces();
    for (const auto& [what, call] : calls) {
        EXPECT_TRUE(call()) << what;
        EXPECT_EQ(ats.count(), 0u) << what;
    }
    for (const char* code : {"97315", "55123", "9731"}) EXPECT_FALSE(has_trace(code)) << code;
}

// With the AT server gone every function fails at once, leaves its record alone and writes its
// failure trace where it has one.
TEST(Refusals, ServerGone) {
    expect_server_gone({
        {"AT_PinEnableDisableCmd", [] { return fails_untouched<PinEnableResult>([](PinEnableResult* r) { PinEnStruct p = lock("2", ""); return AT_PinEnableDisableCmd(1, &p, r); }); },
         "GetDataFromAtServer clck command failed!\n"},
        {"AT_PinModify", [] { return fails_untouched<PinModifyResultCode>([](PinModifyResultCode* r) { return AT_PinModify(kSc, kPin, kNew, r); }); }, ""},
        {"AT_cardmode", [] { return fails_untouched<ST_AT_CARDMODE>(AT_cardmode); }, "AT^CARDMODE result parse failed!\n"},
        {"AT_Iccid", [] { return fails_untouched<StIccid>(AT_Iccid); }, "[AT_Iccid] GetDataFromAtServer return error!\n"},
        {"AT_Currsid", [] { return fails_untouched<StCurrsid>(AT_Currsid); }, "[AT_Iccid] GetDataFromAtServer return error!\n"},
        {"AT_Csim", [] { char a[] = "00"; at_sim_cmd_packet p{2, a, {}}; return AT_Csim(&p) == -1; }, "AT_Csim get data from ats failed\n"},
        {"at_spn_get", [] { return fails_untouched<nvramcontnetres>(at_spn_get); }, ""},
        {"AT_Cnum", [] { return fails_untouched<StSetCunmInfo>(AT_Cnum); }, ""},
    });
}

// ---- The service-provider name ---------------------------------------------------------------------

TEST(Spn, DecodedToUtf8) {
    // Raw-byte names: a first byte with its top bit set.
    const std::string kana = "\x81\x1D\x60" + std::string(29, '\xC1');  // 29 characters of three bytes
    std::string kana10;
    for (int i = 0; i < 10; ++i) kana10 += "\xE3\x81\x81";  // U+3041, cut after a whole character
    run<nvramcontnetres>({"AT^SPN=1", "^SPN", 1}, at_spn_get, [](auto& r) { return fields(r.CmdType, r.Code, r.Reserve); }, {
        {"GSM text",            ok("^SPN: 0,0,\"Example\""), 0, "?,Example,?", kOk},
        {"GSM escape: euro",    ok("^SPN: 0,0,\"Pay\x1b\x65\""), 0, "?,Pay\xE2\x82\xAC,?", kOk},
        {"GSM escape at end",   ok("^SPN: 0,0,\"Pay\x1b\""), 0, "?,,?", kOk},
        {"GSM above 127",       ok("^SPN: 0,0,\"Pay\xC0\""), 0, "?,,?", kOk},
        {"0x80 to FF FF",       ok("^SPN: 1,1,\"8000450078FFFF0041\""), 0, "?,Ex,?", kOk},
        {"0x80 odd length",     ok("^SPN: 1,1,\"80041F04300041\""), 0, "?,\xD0\x9F\xD0\xB0\x41,?", kOk},
        {"0x80 raw bytes",      ok("^SPN: 1,1,\"\x80\x4E\x2D\x65\x87\""), 0, "?,\xE4\xB8\xAD\xE6\x96\x87,?", kOk},
        {"0x81",                ok("^SPN: 0,1,\"81030CA141A2\""), 0, "?,\xD8\xA1\x41\xD8\xA2,?", kOk},
        {"0x82",                ok("^SPN: 0,1,\"82030410B041B1\""), 0, "?,\xD1\x80\x41\xD1\x81,?", kOk},
        {"0x81 count past the data reads zeros", ok("^SPN: 0,1,\"81030CA1\""), 0, "?,\xD8\xA1@@,?", kOk},
        {"three-byte characters cut to the field", ok("^SPN: 0,1,\"" + kana + "\""), 0, "?," + kana10 + ",?", kOk},
        {"hexadecimal GSM bytes", ok("^SPN: 0,1,\"4142\""), 0, "?,AB,?", kOk},
        {"unknown UCS2 form",   ok("^SPN: 0,1,\"83000041\""), 0, "?,,?", kOk},
        {"unparsable: empty",   ok("EXMO"), 0, "?,,?", kOk},
        {"CME error mapped",    cme("+CME ERROR: 65286"), 0, "?,?,?", AT_CMD_RES_BUSY},
        {"plain error",         result(AT_ERROR), -1, ""},
    });
}

// The steps of the chain, where their contract is their own: limits and terminators.
TEST(Spn, ChainSteps) {
    unsigned short w[8];
    std::memset(w, 0xEE, sizeof w);
    int n = -1;
    const unsigned char gsm[] = {'A', 0x1B, 0x65, 0x7F};
    EXPECT_EQ(GSM_7BitToWCHAR(gsm, 4, w, 3, &n), 0);
    EXPECT_EQ(std::vector<unsigned short>(w, w + 4), (std::vector<unsigned short>{'A', 0x20AC, 0xE0, 0}));
    EXPECT_EQ(GSM_7BitToWCHAR(gsm, 4, w, 2, &n), -1);  // past the buffer

    unsigned short a31[33] = {}, a32[33] = {};
    std::fill_n(a31, 31, 'A');
    std::fill_n(a32, 32, 'A');
    unsigned char out[100] = {};
    EXPECT_EQ(ucs2_to_utf8(a31, out, 31), 0);
    EXPECT_EQ(ucs2_to_utf8(a32, out, 31), -1);

    // However long the text or its count, the decoder stays in its buffers and writes 32 characters.
    unsigned short dst[32 + 8];
    std::memset(dst, 0xEE, sizeof dst);
    const std::string raw = "\x80" + std::string(200, '\x41'), counted = "\x82\xFF\x30\x00" + std::string(200, '\xC1');
    EXPECT_EQ(Decode_SPN_to_UCS2(1, reinterpret_cast<const unsigned char*>(raw.data()), 201, dst), 0);
    EXPECT_EQ(std::make_pair(spn_wcslen(dst), dst[32]), std::make_pair(15, static_cast<unsigned short>(0xEEEE)));
    EXPECT_EQ(Decode_SPN_to_UCS2(1, reinterpret_cast<const unsigned char*>(counted.data()), 204, dst), 0);
    EXPECT_EQ(std::make_pair(spn_wcslen(dst), dst[32]), std::make_pair(28, static_cast<unsigned short>(0xEEEE)));
}

}  // namespace
