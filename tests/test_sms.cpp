// Messaging against the scripted fake AT server: SMS stores, reading, deleting, settings, sending
// and writing (PDU bodies and the vendor's raw fixed-size bodies), the phonebook and USSD. Each
// row checks the request on the wire, the record filled, the fields left alone and the result.
#include <array>
#include <cstdlib>
#include <tuple>

#include "test_network_support.h"
#include "trace_capture.h"

using namespace atapi_test;

namespace {

constexpr int kOk = AT_CMD_RES_SUCCESS;
const Reply kCme10 = cme("+CME ERROR: 10");   // SIM not inserted: 13
const Reply kCms314 = cms("+CMS ERROR: 314");  // SIM busy: 314

// A reply of exact bytes (NULs included) and the length field the AT server would set.
Reply raw_reply(std::string bytes, int32_t len = -1) {
    Reply r = ok();
    r.raw = std::move(bytes);
    r.len = len;
    return r;
}

std::string hex(const char* p, size_t n) {
    std::string s;
    for (size_t i = 0; i < n; ++i) s += "0123456789ABCDEF"[static_cast<unsigned char>(p[i]) >> 4],
                                      s += "0123456789ABCDEF"[p[i] & 15];
    return s;
}

// A call of fn with its first argument bound, the record left to the runner.
template <typename Rec, typename Arg>
std::function<int(Rec*)> with(int (*fn)(Arg, Rec*), Arg a) {
    return [=](Rec* r) { return fn(a, r); };
}

// ---- Stores --------------------------------------------------------------------------------------

TEST(Sms, StoreSelectionTwins) {
    auto all = [](const StCpms& r) { return fields(r.mem1, r.used1, r.total1, r.mem2, r.used2, r.total2, r.mem3, r.used3, r.total3); };
    for (const std::string p : {"+", "^H"}) {
        SCOPED_TRACE(p);
        auto fn = p == "+" ? AT_Cpms : AT_Hcpms;
        run<StCpms>({"AT" + p + "CPMS?", p + "CPMS:", 4}, [fn](StCpms* r) { return fn(0, nullptr, r); }, all, {
            {"nine fields", ok(p + "CPMS: \"SM\",2,50,\"ME\",0,100,\"SM\",2,50"), 0, "SM,2,50,ME,0,100,SM,2,50", kOk},
            {"short reply keeps the rest", ok(p + "CPMS: \"SM\",2"), 0, "SM,2,?,?,?,?,?,?,?", kOk},
            {"long texts cut to 4", ok(p + "CPMS: \"SMSMSM\",123456"), 0, "SMSM,1234,?,?,?,?,?,?,?", kOk},
            {"CMS error mapped", kCms314, 0, "?,?,?,?,?,?,?,?,?", AT_CMD_RES_SIM_BUSY},
            {"plain error", result(AT_ERROR), -1, ""},
            {"unparsable: result already set", ok("nothing"), -1, "?,?,?,?,?,?,?,?,?", kOk},
        });
        // Unterminated names are read to their width and no further.
        StCpms para = sentinel<StCpms>();
        std::memcpy(para.mem1, "SM\0\0\0", 5), std::memcpy(para.mem2, "MEMEM", 5), std::memcpy(para.mem3, "SR\0\0\0", 5);
        run<StCpms>({"AT" + p + "CPMS=\"SM\",\"MEMEM\",\"SR\"", p + "CPMS:", 4}, [&](StCpms* r) { return fn(1, &para, r); }, all, {
            {"six counts", ok(p + "CPMS: 2,50,0,100,2,50"), 0, "?,2,50,?,0,100,?,2,50", kOk},
            {"CME error mapped", kCme10, 0, "?,?,?,?,?,?,?,?,?", AT_CMD_RES_SIM_FAIL},
            {"plain error", result(AT_ERROR), -1, ""},
        });
    }
    clear_traces();
    run<StCpmsList>({"AT+CPMS=?", "+CPMS:", 5}, AT_Cpms_test, [](auto& r) {
        return fields(r.record[0].mem1, r.record[0].mem2, r.record[1].mem1, r.record[1].mem2, r.record[2].mem1, r.record[2].mem2);
    }, {
        {"two lists", ok("+CPMS: (\"SM\",\"ME\"),(\"ME\")"), 0, "SM,ME,ME,?,?,?", kOk},
        {"four lists keep three", ok("+CPMS: (\"A\",\"B\"),(\"C\"),(\"D\",\"E\"),(\"F\",\"G\")"), 0, "A,B,C,?,D,E", kOk},
        {"CMS error not mapped", kCms314, -1, ""},
        {"unparsable", ok("+CPMS: none"), -1, "?,?,?,?,?,?", kOk},
    });
    EXPECT_EQ(count_trace("cpms list is too many\n"), 1u);
    EXPECT_EQ(count_trace("AT+CPMS=? at error command\n"), 1u);
}

// ---- Reading ---------------------------------------------------------------------------------

TEST(Sms, ReadPdu) {
    StPerSms in = sentinel<StPerSms>();
    in.index = 3;
    auto call = [&](StPerSms* r) { r->index = in.index; return AT_Cmgr(r); };
    auto shown = [](const StPerSms& r) { return fields(r.state, r.length, r.reserved, r.pdu); };
    const std::string pdu = "07915155100005F0040B915155100032F40000423092516195800AE8329BFD4697D9EC37";
    clear_traces();
    run<StPerSms>({"AT+CMGR=3", "+CMGR:", 30}, call, shown, {
        {"read message", ok("+CMGR: 1,,35\r\n" + pdu), 0, "1,35,?," + pdu, kOk},
        {"status outside the enum kept", ok("+CMGR: 7,\"x\",35\r\n00"), 0, "7,35,?,00", kOk},
        {"bad length kept", ok("+CMGR: 0,,abc\r\n00"), 0, "0,?,?,00", kOk},
        {"PDU cut to 511", ok("+CMGR: 0,,255\r\n" + std::string(700, 'A')), 0, "0,255,?," + std::string(511, 'A'), kOk},
        {"header without PDU line", ok("+CMGR: 0,,24"), -1, "?,?,?,?", kOk},
        {"CMS error is a failure", cms("+CMS ERROR: 321"), -1, "?,?,?,?", kS},
    });
    EXPECT_EQ(count_trace("AT_Cmgr:sscanf_s failed!\n"), 1u);
    EXPECT_EQ(count_trace("at_cmd_parse cmgr command failed!\n"), 1u);
    EXPECT_EQ(count_trace("get cmgr at error command\n"), 1u);
}

TEST(Sms, ReadText) {
    ReadTextEcCmd cmd{5, 1};
    auto shown = [](const ReadTextEcRsp& r) {
        return fields(r.year, r.month, r.day, r.hour, r.minute, r.second, r.lang, r.format, r.length, r.prt, r.prv,
                      r.type, r.stat, r.callerID) + "|" + (untouched(r.length) ? "?" : hex(r.msg, r.length));
    };
    const std::string head = "^HCMGR: \"+15550100234\",2024,3,29,15,16,59,0,2,";
    const std::string body161 = std::string(161, 'x');
    run<ReadTextEcRsp>({"AT^HCMGR=5,1", "^HCMGR:", 30}, with(AT_Hcmgr, &cmd), shown, {
        {"text body", ok(head + "2,0,0,0,1\r\nHi"), 0, "2024,3,29,15,16,59,0,2,2,0,0,0,1,+15550100234|4869", kOk},
        {"UCS-2 body with NULs", raw_reply(head + "4,0,0,0,0\r\n" + std::string("\0H\0i", 4)), 0,
         "2024,3,29,15,16,59,0,2,4,0,0,0,0,+15550100234|00480069", kOk},
        {"announced beyond 161", ok(head + "500,0,0,0,0\r\n" + body161 + "yyy"), 0,
         "2024,3,29,15,16,59,0,2,161,0,0,0,0,+15550100234|" + hex(body161.data(), 161), kOk},
        {"negative length copies nothing", ok(head + "-5,0,0,0,0\r\nHi"), 0, "2024,3,29,15,16,59,0,2,0,0,0,0,0,+15550100234|", kOk},
        {"caller id cut to 21", ok("^HCMGR: \"+1555010023412345678901234\",2024\r\n"), 0,
         "2024,?,?,?,?,?,?,?,0,?,?,?,?,+15550100234123456789|", kOk},
        {"no CR LF", ok(head + "2,0,0,0,1"), -1, ""},
        {"error line with CR LF", result(AT_CME_ERROR, "+CME ERROR: 10\r\n"), -1, ""},
        {"no colon before the body", ok("HCMGR\r\nbody"), -1, "?,?,?,?,?,?,?,?,?,?,?,?,?,?|?", kOk},
    });
}

// ---- Deleting and listing ----------------------------------------------------------------------

TEST(Sms, DeleteListTwins) {
    std::string many, many_want;
    for (int i = 0; i < 300; ++i) many += (i ? "," : "") + std::to_string(i), many_want += (i ? " " : "") + std::to_string(i);
    auto list = [](const StCmgdRsp& r) {
        std::string s = std::to_string(r.length) + ":";
        for (int i = 0; i < r.length; ++i) s += (i ? " " : "") + std::to_string(r.index_list[i]);
        if (r.index_list == nullptr) s += "null";
        std::free(r.index_list);
        return s;
    };
    for (const std::string p : {"+", "^H"}) {
        SCOPED_TRACE(p);
        auto fn = p == "+" ? AT_Cmgd : AT_Hcmgd;
        run<StCmgdRsp>({"AT" + p + "CMGD=?", "", 30}, [fn](StCmgdRsp* r) { return fn(0, nullptr, r); }, list, {
            {"indexes", ok(p + "CMGD: (1,2,5),(0-4)"), 0, "3:1 2 5", kOk},
            {"empty store", ok(p + "CMGD: (),(0-4)"), 0, "0:null", kOk},
            {"300 indexes", ok(p + "CMGD: (" + many + "),(0-4)"), 0, "300:" + many_want, kOk},
        });
        run<StCmgdRsp>({"AT" + p + "CMGD=?", "", 30}, [fn](StCmgdRsp* r) { return fn(0, nullptr, r); },
                       [](const StCmgdRsp&) { return std::string("x"); }, {
            {"CMS error mapped", kCms314, 0, "x", AT_CMD_RES_SIM_BUSY},
            {"no second list", ok(p + "CMGD: (1,2)"), -1, ""},
            {"plain error", result(AT_ERROR), -1, ""},
        });
        run<StCmgdPara>({"AT" + p + "CMGD=4,0", "", 30}, [&](StCmgdPara* r) { r->index = 4, r->delflag = 0; return fn(1, r, nullptr); },
                        [](auto& r) { return fields(r.Reserve); }, {
            {"deleted", ok(), 0, "?", kOk},
            {"CMS error mapped", kCms314, 0, "?", AT_CMD_RES_SIM_BUSY},
            {"plain error", result(AT_ERROR), -1, "?", kS},
        });
    }
}

TEST(Sms, UnreadList) {
    struct Out {
        std::array<int, 4> list;
        int length;
    };
    int size = 2;
    const Wire wire{"AT+CGMI", "^CMGI:", 1, AT_REQ, AT_REPORT_REQ_NONE};
    auto call = [&](Out* o) { return AT_Cmgi_unread_sms(o->list.data(), size, &o->length); };
    auto shown = [](const Out& o) { return fields(o.list[0], o.list[1], o.list[2], o.list[3], o.length); };
    run<Out>(wire, call, shown, {
        {"five unread, room for two", ok("^CMGI: 1,2,5,7,9"), 0, "1,2,?,?,2"},
        {"none parsed", ok("Example Modems"), 0, "?,?,?,?,0"},
        {"CME error dropped", kCme10, 0, ""},
        {"plain error", result(AT_ERROR), -1, ""},
    });
    size = 0;
    run<Out>(wire, call, shown, {{"no room", ok("^CMGI: 1"), 0, "?,?,?,?,0"}});
}

// ---- Settings ------------------------------------------------------------------------------

template <typename Rec>
std::function<int(Rec*)> query(int (*fn)(int, Rec*)) {
    return [fn](Rec* r) { return fn(AT_CHECK_VALUE, r); };
}

TEST(Sms, SettingQueries) {
    clear_traces();
    for (const std::string p : {"+", "^H"}) {
        run<StSmMode>({"AT" + p + "CMGF?", "", 30}, query(p == "+" ? AT_smmode : AT_hsmmode), [](auto& r) { return fields(r.mode); }, {
            {"text mode", ok(p + "CMGF: 1"), 0, "1", kOk},
            {"CME error mapped", kCme10, 0, "?", AT_CMD_RES_SIM_FAIL},
            {"plain error", result(AT_ERROR), -1, ""},
            {"unparsable", ok("none"), -1, "?", kOk},
        });
    }
    EXPECT_EQ(count_trace("at_cmd_parse cmgf command failed!\n"), 1u);
    EXPECT_EQ(count_trace("at_cmd_parse hcmgf command failed!\n"), 1u);
    run<StSmCnmi>({"AT+CNMI?", "", 30}, query(AT_cnmi), [](auto& r) { return fields(r.mode, r.mt, r.bm, r.ds, r.bfr); }, {
        {"five values", ok("+CNMI: 2,1,0,2,0"), 0, "2,1,0,2,0", kOk},
        {"mode kept to 8 bits", ok("+CNMI: 258"), 0, "2,?,?,?,?", kOk},
        {"CMS error mapped", kCms314, 0, "?,?,?,?,?", AT_CMD_RES_SIM_BUSY},
        {"unparsable", ok("none"), -1, "?,?,?,?,?", kOk},
    });
    run<StCsca>({"AT+CSCA?", "", 30}, [](StCsca* r) { return AT_Csca(0, nullptr, r); }, [](auto& r) { return fields(r.sca, r.tosca, r.Reserve); }, {
        {"number and type", ok("+CSCA: \"+15550100500\",145"), 0, "+15550100500,145,?", kOk},
        {"long number cut to 31", ok("+CSCA: \"" + std::string(40, '1') + "\""), 0, std::string(31, '1') + ",?,?", kOk},
        {"CME error mapped", kCme10, 0, "?,?,?", AT_CMD_RES_SIM_FAIL},
        {"plain error", result(AT_ERROR), -1, ""},
    });
    clear_traces();
    run<StSmCscb>({"AT+CSCB?", "", 30}, query(AT_cscb), [](auto& r) { return fields(r.mode, r.mids, r.dcss); }, {
        {"lists", ok("+CSCB: 0,\"0-99,4370\",\"0-3\""), 0, "0,0-99,4370,0-3", kOk},
        {"empty lists kept", ok("+CSCB: 1,,"), 0, "1,,?", kOk},
        {"long lists cut", ok("+CSCB: 0,\"" + std::string(1300, '1') + "\",\"" + std::string(80, '2') + "\""), 0,
         "0," + std::string(1219, '1') + "," + std::string(63, '2'), kOk},
        {"CMS error mapped", kCms314, 0, "?,?,?", AT_CMD_RES_SIM_BUSY},
        {"unparsable", ok("none"), -1, "?,?,?", kOk},
    });
    EXPECT_EQ(count_trace("AT_cscb_Check dcss = 0-3!\n"), 1u);
    run<StCmsrRes>({"AT^CMSR?", "", 30}, [](StCmsrRes* r) { return AT_Cmsr(0, 9, r); }, [](auto& r) { return fields(r.ReadTag, r.Reserve); }, {
        {"tag", ok("^CMSR: 1"), 0, "1,?", kOk},
        {"CME error mapped", kCme10, 0, "?,?", AT_CMD_RES_SIM_FAIL},
        {"unparsable", ok("none"), -1, "?,?", kOk},
    });
    EXPECT_EQ(count_trace("RSP--- [^CMSR: 1]--- \n"), 1u);
    run<StSmmemfull>({"", "", 1, AT_REQ, AT_REPORT_REQ_NONE}, AT_smmemfull, [](auto& r) { return fields(r.mem_type); }, {
        {"store named", ok("^SMMEMFULL: \"SM\""), 0, "SM", kOk},
        {"long name cut", ok("^SMMEMFULL: \"ABCDEFG\""), 0, "ABCD", kOk},
        {"none held", ok(""), 0, ""},
        {"error", result(AT_ERROR), -1, ""},
    });
}

// Settings and deletes: OK is success, CME/CMS errors are mapped into the record, others fail.
TEST(Sms, SettingLines) {
    static StSmCscb cscb;
    static StCsca csca;
    static StCpbsPara cpbs;
    static StCpbwPara cpbw;
    auto exe = [](auto& r) { return as_int(r.AtExeResult); };
    run_settings({
        {"AT+CMGF=1", [&] { StSmMode r{1, {}}; int rc = AT_smmode(1, &r); return std::pair{rc, exe(r)}; }},
        {"AT^HCMGF=0", [&] { StSmMode r{0, {}}; int rc = AT_hsmmode(1, &r); return std::pair{rc, exe(r)}; }},
        {"AT+CNMI=2,1,0,2,0", [&] { StSmCnmi r{2, 1, 0, 2, 0, {}}; int rc = AT_cnmi(1, &r); return std::pair{rc, exe(r)}; }},
        {"AT+CSCA=\"+15550100500\",145", [&] { csca = {"+15550100500", 0, {}, 0}; StCsca r{}; int rc = AT_Csca(1, &csca, &r); return std::pair{rc, exe(r)}; }},
        {"AT+CSCA=\"+15550100500\",129", [&] { csca = {"+15550100500", 145, {}, 0}; StCsca r{}; int rc = AT_Csca(1, &csca, &r); return std::pair{rc, exe(r)}; }},
        {"AT+CSCA=\"5550100\",129", [&] { csca = {"5550100", 0, {}, 0}; StCsca r{}; int rc = AT_Csca(1, &csca, &r); return std::pair{rc, exe(r)}; }},
        {"AT+CSCB=1", [&] { cscb = {1, "", "0-3", {}}; int rc = AT_cscb(1, &cscb); return std::pair{rc, exe(cscb)}; }},
        {"AT+CSCB=0,\"0-99\"", [&] { cscb = {0, "0-99", "", {}}; int rc = AT_cscb(1, &cscb); return std::pair{rc, exe(cscb)}; }},
        {"AT+CSCB=0,\"1,2\",\"0-3\"", [&] { cscb = {0, "1,2", "0-3", {}}; int rc = AT_cscb(1, &cscb); return std::pair{rc, exe(cscb)}; }},
        {"AT^CMSR=1", [&] { StCmsrRes r{}; int rc = AT_Cmsr(1, 1, &r); return std::pair{rc, exe(r)}; }},
        {"AT^CMMT=3,1", [&] { StCmmt r{}; int rc = AT_Cmmt(3, 1, &r); return std::pair{rc, exe(r)}; }},
        {"AT^HSMSSS=0,1,2,3", [&] { StHsmssInfo i{0, 1, 2, 3, {}}; StHsmsssRes r{}; int rc = AT_Hsmsss(&i, &r); return std::pair{rc, exe(r)}; }},
        {"AT+CPBS=\"SM\"", [&] { cpbs = {"SM", "", {}}; StCpbsRsp r{}; int rc = AT_Cpbs(1, &cpbs, &r); return std::pair{rc, exe(r)}; }},
        {"AT^CPBW=7", [&] { cpbw = {}; cpbw.cmdType = 2, cpbw.index = 7; StCpbwRsp r{}; int rc = AT_Cpbw(0, &cpbw, &r); return std::pair{rc, exe(r)}; }},
    }, {
        {ok(), 0, kOk}, {kCme10, 0, AT_CMD_RES_SIM_FAIL}, {kCms314, 0, AT_CMD_RES_SIM_BUSY}, {result(AT_ERROR), -1, 0},
    });
}

// ---- Sending and writing -------------------------------------------------------------------------

TEST(Sms, SendAndWritePdus) {
    StCmgsInfo in{};
    in.length = 23, in.state = 2;
    std::memcpy(in.pdu, "0011000B915155100032F40000AA0AE8329BFD4697D9EC37", 48);
    clear_traces();
    run<StCmssRes>({"AT+CMGS=23\r" + std::string(in.pdu) + "\x1a", "+CMGS:", 30}, with(AT_Cmgs, &in),
                   [](auto& r) { return fields(r.mr, r.Reserve); }, {
        {"sent", ok("+CMGS: 42"), 0, "42,?", kOk},
        {"CMS error is a failure", cms("+CMS ERROR: 331"), -1, ""},
        {"unparsable", ok("none"), -1, "?,?", kOk},
    });
    run<StCmgwRes>({"AT+CMGW=23,2\r" + std::string(in.pdu) + "\x1a", "+CMGW:", 30}, with(AT_Cmgw, &in),
                   [](auto& r) { return fields(r.index, r.Reserve); }, {
        {"stored", ok("+CMGW: 7"), 0, "7,?", kOk},
        {"store full", cms("+CMS ERROR: 322"), -1, ""},
        {"unparsable", ok("none"), -1, "?,?", kOk},
    });
    EXPECT_EQ(count_trace("get cmgs at error command\n"), 1u);
    EXPECT_EQ(count_trace("at_cmd_parse cmgw command failed!\n"), 1u);
    // A PDU field without terminator is sent to its width.
    std::memset(in.pdu, 'A', sizeof in.pdu);
    run<StCmssRes>({"AT+CMGS=23\r" + std::string(512, 'A') + "\x1a", "+CMGS:", 30}, with(AT_Cmgs, &in),
                   [](auto& r) { return fields(r.mr); }, {{"whole field", ok("+CMGS: 1"), 0, "1", kOk}});

    struct Form { StCmssPara para; std::string line; };
    const Form forms[] = {{{3, "", 129, 0}, "AT+CMSS=3"}, {{3, "+15550100234", -1, 0}, "AT+CMSS=3,+15550100234"},
                          {{3, "+15550100234", 145, 0}, "AT+CMSS=3,+15550100234,145"}};
    for (const Form& f : forms) {
        StCmssPara para = f.para;
        run<StCmssRes>({f.line, "+CMSS:", 50}, with(AT_Cmss, &para), [](auto& r) { return fields(r.mr, r.Reserve); }, {
            {"sent", ok("+CMSS: 9"), 0, "9,?", kOk},
            {"unparsable is still sent", ok("none"), 0, "?,?", kOk},
            {"CMS error mapped", kCms314, 0, "?,?", AT_CMD_RES_SIM_BUSY},
            {"plain error", result(AT_ERROR), -1, ""},
        });
    }
}

// The vendor text forms: a header line and a raw body of fixed size, NULs included, in one request.
TEST(Sms, RawBodies) {
    StHcmgsTextInfo text = sentinel<StHcmgsTextInfo>();
    std::memcpy(text.Number, "+15550100234", 13);
    text.tooa = 145;
    for (size_t i = 0; i < sizeof text.Text; ++i) text.Text[i] = static_cast<char>(i % 3 == 0 ? 0 : i);
    WriteHTextMsgCmd w = sentinel<WriteHTextMsgCmd>();
    std::memcpy(w.oa_ad, "5550100", 8);
    w.tooa = 129, w.stat = 2, w.ptr = 0, w.type = 0, w.format = 6, w.lang = 0, w.year = 2024, w.month = 3, w.day = 29,
    w.hour = 15, w.minute = 16, w.second = 59;
    const std::string hcmgs = "AT^HCMGS=\"+15550100234\",145\r", hcmgw = "AT^HCMGW=\"5550100\",129,2,0,0,6,0,2024,3,29,15,16,59\r";
    // Each call starts from a result field the row gives and reports what it holds after (and,
    // for a write, the index: 1000 + index after success).
    const auto send = [&](int* e) {
        StHcmgsRes r{};
        std::memcpy(&r.AtExeResult, e, sizeof *e);
        const int rc = AT_Hcmgs(&text, &r);
        *e = as_int(r.AtExeResult);
        return rc;
    };
    const auto write = [&](int* e) {
        WriteHTextMsgRsp r{};
        std::memcpy(&r.AtExeResult, e, sizeof *e);
        const int rc = AT_Hcmgw(&w, &r);
        *e = as_int(r.AtExeResult) == kOk ? 1000 + r.index : as_int(r.AtExeResult);
        return rc;
    };
    struct Row { const char* what; Reply reply; std::function<int(int*)> call; std::string head, match; const char* body; size_t size; int rc, got; };
    const Row rows[] = {
        {"HCMGS accepted",             ok(),              send,  hcmgs, "",        text.Text, 256,  0, kOk},
        {"HCMGS refused: result left", kCms314,           send,  hcmgs, "",        text.Text, 256,  0, kS},
        {"HCMGW stored",               ok("^HCMGW: 12"),  write, hcmgw, "^HCMGW:", w.text,    162,  0, 1012},
        {"HCMGW refused",              kCms314,           write, hcmgw, "^HCMGW:", w.text,    162, -1, kS},
    };
    {
        FakeAtServer ats;
        for (const Row& r : rows) {
            SCOPED_TRACE(r.what);
            ats.clear_requests();
            ats.reply(r.reply);
            int got = kS;
            EXPECT_EQ(r.call(&got), r.rc);
            EXPECT_EQ(got, r.got);
            ASSERT_EQ(ats.count(), 1u);
            const Request q = ats.last();
            EXPECT_EQ(std::string(q.cmd_bytes.data(), r.head.size() + r.size), r.head + std::string(r.body, r.size));
            EXPECT_TRUE(std::all_of(q.cmd_bytes.begin() + long(r.head.size() + r.size), q.cmd_bytes.end(), [](char c) { return c == 0; }));
            EXPECT_EQ(q.match, r.match);
            EXPECT_EQ(std::tie(q.len, q.time_out), std::make_tuple(0, 30));
        }
    }
    run<StHsmf>({"AT^HSMF=1", "", 30}, with(AT_Hsmf, 1), [](auto&) { return std::string("-"); }, {
        {"on", ok(), 0, "-", kOk},
        {"CME error not mapped", kCme10, -1, ""},
    });
}

// ---- Phonebook -----------------------------------------------------------------------------------

TEST(Sms, Phonebook) {
    run<StCpbsRsp>({"AT+CPBS?", "+CPBS:", 30}, [](StCpbsRsp* r) { return AT_Cpbs(0, nullptr, r); },
                   [](auto& r) { return fields(r.storageflag, r.usedNum, r.totalNum); }, {
        {"store", ok("+CPBS: \"SM\",3,250"), 0, "SM,3,250", kOk},
        {"long name cut to 7", ok("+CPBS: \"ABCDEFGHIJ\""), 0, "ABCDEFG,?,?", kOk},
        {"CME error mapped", kCme10, 0, "?,?,?", AT_CMD_RES_SIM_FAIL},
        {"unparsable", ok("none"), -1, ""},
    });

    // A name of raw bytes with NULs, its length on the request, and the coding as one character.
    StCpbwPara w{};
    w.cmdType = 1, w.index = 7, w.phoneType = 145, w.coding = 5, w.nameLength = 4;
    std::memcpy(w.phonenumber, "+15550100234", 13);
    std::memcpy(w.text, "\0A\0B", 4);
    const std::string line = "AT^CPBW=7,\"+15550100234\",145,\"" + std::string("\0A\0B", 4) + "\",0";
    const std::vector<std::tuple<Reply, int, int>> outcomes = {{ok(), 0, kOk}, {kCme10, 0, AT_CMD_RES_SIM_FAIL}, {result(AT_ERROR), -1, kS}};
    {
        FakeAtServer ats;
        for (const auto& [reply, rc, exe] : outcomes) {
            ats.clear_requests();
            ats.reply(reply);
            StCpbwRsp r = sentinel<StCpbwRsp>();
            EXPECT_EQ(AT_Cpbw(0, &w, &r), rc);
            EXPECT_EQ(as_int(r.AtExeResult), exe);
            ASSERT_EQ(ats.count(), 1u);
            EXPECT_EQ(std::string(ats.last().cmd_bytes.data(), line.size() + 2), line + std::string(2, '\0'));
            EXPECT_EQ(ats.last().len, int(line.size()));
        }
    }

    struct Entry {
        StCpbrPara para;
        StCpbrRsp rsp;
    };
    auto entry = [](const Entry& e) {
        const StCpbrRsp& r = e.rsp;
        return fields(r.index, r.phoneType, r.coding, r.nameLength, r.phonenumber, r.indexsBegin, r.indexsEnd,
                      r.phoneMaxLength, r.nameMaxLength, r.emailMaxLength, r.AtExeResult, e.para.AtExeResult) +
               "|" + (untouched(r.nameLength) ? "" : hex(r.text, size_t(std::clamp(r.nameLength, 0, 512))));
    };
    auto read = [](int type) { return [type](Entry* e) { e->para.indexBegin = 7; return AT_Cpbr(type, &e->para, &e->rsp); }; };
    const std::string raw = std::string("^CPBR: 7,\"+15550100234\",145,\"\0A,\0B\",2", 37);
    run<Entry>({"AT^CPBR=7", "", 30}, read(0), entry, {
        {"text entry", ok("^CPBR: 7,\"+15550100234\",145,\"Alice\",0"), 0, "7,145,0,5,+15550100234,?,?,?,?,?,-2,?|416C696365"},
        {"UCS-2 name with NULs: decoder", raw_reply(raw, int(raw.size())), 0, "?,?,2,5,+15550100234,?,?,?,?,?,-2,?|00412C0042"},
        {"hostile length, nothing to decode", raw_reply(std::string("^CPBR: 7\0", 9), 100000), 0, "?,?,0,0,,?,?,?,?,?,-2,?|"},
        {"CME error into the request record", kCme10, 0, "?,?,?,?,?,?,?,?,?,?,?,13|"},
        {"plain error", result(AT_ERROR), -1, "?,?,?,?,?,?,?,?,?,?,?,?|"},
        {"unparsable", ok("none"), -1, "?,?,?,?,?,?,?,?,?,?,-2,?|"},
    });
    for (int type : {1, 2}) {  // the set type, and the test type some callers pass
        run<Entry>({"AT^CPBR=?", "^CPBR:", 30}, read(type), entry, {
            {"range and lengths", ok("^CPBR: (1-250),40,60,0"), 0, "?,?,?,?,?,1,250,40,60,0,-2,?|"},
            {"single index", ok("^CPBR: (5),40"), 0, "?,?,?,?,?,5,?,40,?,?,-2,?|"},
            {"CMS error into the request record", kCms314, 0, "?,?,?,?,?,?,?,?,?,?,?,314|"},
        });
    }
}

// ---- USSD ----------------------------------------------------------------------------------------

TEST(Sms, Ussd) {
    StCusdInfo in = sentinel<StCusdInfo>();
    in.reportType = 1, in.desc = 15, in.strLength = 7;
    std::memcpy(in.str, "\"*100#\"", 7);
    auto send = [&](StCusdInfo* r) { std::memcpy(r, &in, offsetof(StCusdInfo, AtExeResult)); return AT_Cusd_Msg_Send(1, r); };
    auto none = [](auto&) { return std::string("-"); };
    run<StCusdInfo>({"AT+CUSD=1,\"*100#\",15", "", 30}, send, none, {
        {"sent", ok(), 0, "-", kOk},
        {"plain error", result(AT_ERROR), -1, "-", AT_CMD_RES_ERR},
        {"CME error", kCme10, -1, "-", kS},
    });
    in.strLength = 0;
    run<StCusdInfo>({"AT+CUSD=1,,15", "", 30}, send, none, {{"empty string", ok(), 0, "-", kOk}});
    in.reportType = 2;
    run<StCusdInfo>({"AT+CUSD=2", "", 30}, send, none, {{"cancel", ok(), 0, "-", kOk}});
    in.reportType = 1, in.strLength = 512;
    std::memset(in.str, 'x', 512);
    std::memcpy(in.str, "\"a;b\"", 5);
    run<StCusdInfo>({"AT+CUSD=1,\"a;b\"" + std::string(507, 'x') + ",15", "", 30}, send, none, {{"whole field, quoted ';'", ok(), 0, "-", kOk}});

    run<StUssdMode>({"AT^USSDMODE?", "^USSDMODE:", 30}, query(AT_UssdMode), [](auto& r) { return fields(r.mode); }, {
        {"mode", ok("^USSDMODE: 1"), 0, "1", kOk},
        {"CME error not mapped", kCme10, -1, ""},
        {"unparsable", ok("none"), -1, ""},
    });
    run<StUssdMode>({"AT^USSDMODE=0", "", 30}, [](StUssdMode* r) { r->mode = 0; return AT_UssdMode(1, r); },
                    [](auto& r) { return fields(r.mode); }, {{"set", ok(), 0, "0", kOk}, {"error", kCme10, -1, "0", kS}});
}

// ---- Refused before sending, and the AT server gone ----------------------------------------------

TEST(Sms, RefusedBeforeSending) {
    // Each row: every call gives `want` and nothing reaches the AT server.
    const std::vector<std::tuple<const char*, int, std::function<int()>>> calls = {
        {"null records", -1, [] { return AT_Cpms(0, nullptr, nullptr) + 1 + AT_Cpms(1, nullptr, nullptr) + 1 + AT_Cmgr(nullptr) + 1 +
                                          AT_Hcmgr(nullptr, nullptr) + 1 + AT_Cpms_test(nullptr) + 1 + AT_Cmgd(0, nullptr, nullptr) + 1 +
                                          AT_Hcmgd(1, nullptr, nullptr) + 1 + AT_Cmgi_unread_sms(nullptr, 1, nullptr) + 1 +
                                          AT_smmemfull(nullptr) + 1 + AT_Cmgs(nullptr, nullptr) + 1 + AT_Cmgw(nullptr, nullptr) + 1 +
                                          AT_Cmss(nullptr, nullptr) + 1 + AT_Hcmgs(nullptr, nullptr) + 1 + AT_Hcmgw(nullptr, nullptr) + 1 +
                                          AT_Hsmf(1, nullptr) + 1 + AT_Hsmsss(nullptr, nullptr) + 1 + AT_Cpbs(0, nullptr, nullptr) + 1 +
                                          AT_Cpbw(0, nullptr, nullptr) + 1 + AT_Cpbr(0, nullptr, nullptr) + 1 +
                                          AT_Cusd_Msg_Send(1, nullptr) + 1 + AT_UssdMode(0, nullptr); }},
        {"unknown types that fail", -1, [] { StCpms c{}; StCmgdPara d{}; StCmsrRes m{}; StCpbsRsp s{}; StCpbrPara p{}; StCpbrRsp r{}; StUssdMode u{};
                                             return AT_Cpms(2, &c, &c) + 1 + AT_Hcpms(-1, &c, &c) + 1 + AT_Cmgd(2, &d, nullptr) + 1 +
                                                    AT_Cmsr(2, 0, &m) + 1 + AT_Cpbs(2, nullptr, &s) + 1 + AT_Cpbr(3, &p, &r) + 1 + AT_UssdMode(2, &u); }},
        {"unknown types that succeed", 0, [] { return AT_Csca(2, nullptr, nullptr) + AT_smmode(2, nullptr) + AT_hsmmode(-1, nullptr) +
                                                      AT_cnmi(2, nullptr) + AT_cscb(2, nullptr); }},
        {"text forms", -1, [] { return AT_Cmgs_Text(nullptr) + 1 + AT_Cmgw_Text(nullptr); }},
        {"marking other than read", -1, [] { StCmmt r{}; return AT_Cmmt(1, 0, &r) + 1 + AT_Cmmt(-1, 1, &r); }},
        {"quote in a store name", -1, [] { StCpms c{}; std::memcpy(c.mem1, "S\"M", 4); return AT_Cpms(1, &c, &c); }},
        {"quote in a service centre", -1, [] { StCsca c{"+1\"", 0, {}, 0}; return AT_Csca(1, &c, &c); }},
        {"cell broadcast lists", -1, [] { static StSmCscb c{}; c.mids[0] = '"';
                                          int a = AT_cscb(1, &c); std::memset(c.mids, '1', sizeof c.mids - 1); return a + 1 + AT_cscb(1, &c); }},
        {"separator in a destination", -1, [] { StCmssPara p{1, "1;AT+CFUN=0", -1, 0}; StCmssRes r{}; return AT_Cmss(&p, &r); }},
        {"quote in a text number", -1, [] { static StHcmgsTextInfo t{}; static WriteHTextMsgCmd w{}; StHcmgsRes r{}; WriteHTextMsgRsp wr{};
                                            std::memcpy(t.Number, "\"", 2); std::memcpy(w.oa_ad, "1\"", 3); return AT_Hcmgs(&t, &r) + 1 + AT_Hcmgw(&w, &wr); }},
        {"phonebook entries", -1, [] { static StCpbwPara w{}; StCpbwRsp r{}; StCpbsPara s{"S\"M", "", {}}; StCpbsRsp sr{};
                                       w.cmdType = 3; int a = AT_Cpbw(1, &w, &r); w.cmdType = 0, w.nameLength = 513; int b = AT_Cpbw(1, &w, &r);
                                       w.nameLength = -1; int c = AT_Cpbw(1, &w, &r); w.nameLength = 0, w.phonenumber[0] = '"'; int d = AT_Cpbw(1, &w, &r);
                                       return a + 1 + b + 1 + c + 1 + d + 1 + AT_Cpbs(1, &s, &sr); }},
        {"USSD strings", -1, [] { static StCusdInfo c{}; c.reportType = 1, c.strLength = 513; int a = AT_Cusd_Msg_Send(1, &c);
                                  c.strLength = -1; int b = AT_Cusd_Msg_Send(1, &c); std::memcpy(c.str, "\"1\r\"", 4), c.strLength = 4;
                                  int d = AT_Cusd_Msg_Send(1, &c); std::memcpy(c.str, "1;2", 3), c.strLength = 3; int e = AT_Cusd_Msg_Send(1, &c);
                                  c.strLength = 1, c.str[0] = '\0'; int f = AT_Cusd_Msg_Send(1, &c);
                                  return a + 1 + b + 1 + d + 1 + e + 1 + f + 1 + AT_Cusd_Msg_Send(0, &c); }},
    };
    FakeAtServer ats;
    ats.respond([](const Request&) { return ok(); });
    for (const auto& [what, want, call] : calls) {
        EXPECT_EQ(call(), want) << what;
        EXPECT_EQ(ats.count(), 0u) << what;
    }
}

TEST(Sms, ServerGone) {
    expect_server_gone({
        {"AT_Cmgr", [] { return fails_untouched<StPerSms>(AT_Cmgr); }, "execute at+cmgr command error\n"},
        {"AT_Cpms_test", [] { return fails_untouched<StCpmsList>(AT_Cpms_test); }, "execute AT+CPMS=? command error\n"},
        {"AT_Cpms", [] { return fails_untouched<StCpms>([](StCpms* r) { return AT_Cpms(0, r, r); }); }, ""},
        {"AT_Hcmgr", [] { ReadTextEcCmd c{1, 0}; return fails_untouched<ReadTextEcRsp>(with(AT_Hcmgr, &c)); }, "execute at^hcmgr command error\n"},
        {"AT_Cmgs", [] { static StCmgsInfo i{}; return fails_untouched<StCmssRes>(with(AT_Cmgs, &i)); }, "execute at+cmgs command error\n"},
        {"AT_Cmgw", [] { static StCmgsInfo i{}; return fails_untouched<StCmgwRes>(with(AT_Cmgw, &i)); }, "execute at+cmgw command error\n"},
        {"AT_Hcmgs", [] { static StHcmgsTextInfo i{}; return fails_untouched<StHcmgsRes>(with(AT_Hcmgs, &i)); }, "execute at^hcmgs command error\n"},
        {"AT_Hcmgw", [] { static WriteHTextMsgCmd i{}; return fails_untouched<WriteHTextMsgRsp>(with(AT_Hcmgw, &i)); }, "execute at^hcmgw command error\n"},
        {"AT_Hsmsss", [] { static StHsmssInfo i{}; return fails_untouched<StHsmsssRes>(with(AT_Hsmsss, &i)); }, "[AT_Hsmsss]end.\n"},
        {"AT_Cpbr", [] { static StCpbrRsp r; return fails_untouched<StCpbrPara>([](StCpbrPara* p) { return AT_Cpbr(1, p, &r); }); }, ""},
        {"AT_Cusd_Msg_Send", [] { StCusdInfo c = sentinel<StCusdInfo>(); c.reportType = 2; return AT_Cusd_Msg_Send(1, &c) == -1 && untouched(c.AtExeResult); }, ""},
    });
}

}  // namespace
