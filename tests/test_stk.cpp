// The SIM toolkit against the scripted fake AT server: the switch, the six ^STGI readers with the
// arrays they allocate, and the answers.
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <tuple>

#include "test_network_support.h"

using namespace atapi_test;

namespace {

constexpr int kOk = AT_CMD_RES_SUCCESS;
using Reader = int (*)(int, int*, StStgiPara*, StStgiRsp**);

TEST(Stk, SwitchRead) {
    run<StStsfRsp>({"AT^STSF?", "^STSF:", 30}, [](StStsfRsp* r) { return AT_Stsf(AT_CHECK_VALUE, nullptr, r); },
                   [](auto& r) { return fields(r.ucMode, r.ucConfig, r.iTimeout); }, {
        {"three values",     ok("^STSF: 1,\"FFFFFFFF7F\",10"),                 0, "1,FFFFFFFF7F,10", kOk},
        {"config cut to 63", ok("^STSF: 2,\"" + std::string(80, 'F') + "\",0"), 0, "2," + std::string(63, 'F') + ",0", kOk},
        {"mode only",        ok("^STSF: 0"),                                   0, "0,?,?", kOk},
        {"CME mapped",       cme("+CME ERROR: 13"),                            0, "?,?,?", AT_CMD_RES_SIM_FAIL},
        {"plain error",      result(AT_ERROR),                                -1, ""},
        {"unparsable",       ok("1,2,3"),                                     -1, ""},
    });
}

TEST(Stk, SwitchSet) {
    run<StStsfPara>({"AT^STSF=1", "", 30}, [](StStsfPara* p) { p->ucMode = 1; return AT_Stsf(AT_SET_VALUE, p, nullptr); },
                    [](auto& p) { return fields(p.ucMode); }, {
        {"OK",          ok(),                  0, "1", kOk},
        {"CMS mapped",  cms("+CMS ERROR: 314"), 0, "1", AT_CMD_RES_SIM_BUSY},
        {"plain error", result(AT_ERROR),     -1, "1"},
    });
}

// What a reader left: its return, the count, and the entries as `show` puts them ("null" for no
// array, "kept" for outputs the caller's values still stand in).
struct Fetch {
    Reader read;
    std::function<std::string(const StStgiRsp&)> show;
};

std::string fetched(const Fetch& f, int cmd_type, int* rc) {
    int total = -7;
    auto* const kept = reinterpret_cast<StStgiRsp*>(0x10);
    StStgiRsp* entries = kept;
    StStgiPara para{6, 2, AT_CMD_RES_ERR};
    *rc = f.read(cmd_type, &total, &para, &entries);
    if (entries == kept) return total == -7 ? "kept" : std::to_string(total) + " entries kept";
    std::string s = std::to_string(total) + ":";
    if (!entries) return s + " null";
    for (int i = 0; i < total; ++i) s += " [" + f.show(entries[i]) + "]";
    std::free(entries);
    return s;
}

std::string text(const unsigned char* p) { return reinterpret_cast<const char*>(p); }

TEST(Stk, Readers) {
    const Fetch menu{AT_Stgi, [](const StStgiRsp& e) {
        return fields(e.ucIdentifier, e.ucTotal, e.ucIsHelpInfo) + "," + text(e.name) + (e.TextInfo[0] ? ",dirty" : "");
    }};
    const Fetch txt{AT_StgiText, [](const StStgiRsp& e) {
        return text(e.TextInfo) + "," + fields(e.TextFormat, e.ClearMode, e.DurationTime) + (e.name[0] ? ",dirty" : "");
    }};
    const Fetch input{AT_StgiInput, [](const StStgiRsp& e) {
        return text(e.TextInfo) + "," + fields(e.TextFormat, e.RspFormat, e.PackMode, e.EchoMode, e.SizeMin, e.SizeMax, e.HelpInfo) +
               "," + text(e.DefaultTextInfo) + "," + fields(e.DefaultTextCode);
    }};
    const Fetch inkey{AT_StgiInkey, [](const StStgiRsp& e) {
        return text(e.TextInfo) + "," + fields(e.TextFormat, e.RspFormat, e.HelpInfo, e.TimeOut);
    }};
    const Fetch refresh{AT_StgiRefresh, [](const StStgiRsp& e) { return fields(e.RefreshType, e.ucIdentifier); }};
    const Fetch browser{AT_StgiBrowser, [](const StStgiRsp& e) { return text(e.URL) + "," + fields(e.LaunchMode); }};
    std::string many, long_name(400, 'n');
    for (int i = 1; i <= 70; ++i) many += "^STGI: " + std::to_string(i) + ",9,\"x\",0\r\n";

    const std::vector<std::tuple<const char*, const Fetch*, Reply, int, std::string>> rows = {
        {"menu of three", &menu, ok("^STGI: 1,3,\"Balance\",0\r\n^STGI: 2,3,\"Top up\",1\r\n^STGI: 3,3,\"More\",0"), 0,
         "3: [1,3,0,Balance] [2,3,1,Top up] [3,3,0,More]"},
        {"menu name cut to 255", &menu, ok("^STGI: 1,1,\"" + long_name + "\",0"), 0, "1: [1,1,0," + std::string(255, 'n') + "]"},
        {"70 lines", &menu, ok(many), 0, ""},
        {"second line unparsable", &menu, ok("^STGI: 1,2,\"a\",0\r\n^STGI"), -1, "2: null"},
        {"nothing before the marker parses", &menu, ok("junk ^STGI: 1,1,\"a\",0"), -1, "2: null"},
        {"empty OK", &menu, ok(""), -1, "0 entries kept"},
        {"CME error keeps the outputs", &menu, cme("+CME ERROR: 3"), 0, "kept"},
        {"CMS error keeps the outputs", &txt, cms("+CMS ERROR: 500"), 0, "kept"},
        {"plain error", &menu, result(AT_ERROR), -1, "kept"},
        {"text", &txt, ok("^STGI: \"Balance: 12.50\",4,0,5"), 0, "1: [Balance: 12.50,4,0,5]"},
        {"text cut to 511", &txt, ok("^STGI: \"" + std::string(600, 't') + "\",4,0,0\r\n^STGI: \"b\""), 0,
         "2: [" + std::string(511, 't') + ",4,0,0] [b,0,0,0]"},
        // The splitter keeps at most 511 characters of the last line.
        {"last line cut to 511", &txt, ok("^STGI: \"" + std::string(600, 't') + "\",4,0,0"), 0, "1: [" + std::string(503, 't') + ",0,0,0]"},
        {"input", &input, ok("^STGI: \"Code\",4,0,0,1,4,16,0,\"0000\",4"), 0, "1: [Code,4,0,0,1,4,16,0,0000,4]"},
        {"input, size wraps", &input, ok("^STGI: \"Code\",4,0,0,1,4,300,0,\"\",4"), 0, "1: [Code,4,0,0,1,4,44,0,,4]"},
        {"key", &inkey, ok("^STGI: \"Rate 1-5\",4,0,1,30"), 0, "1: [Rate 1-5,4,0,1,30]"},
        {"refresh", &refresh, ok("^STGI: 2"), 0, "1: [2,0]"},
        {"browser", &browser, ok("^STGI: \"http://example.com/help\",1"), 0, "1: [http://example.com/help,1]"},
        {"browser, another kind's line", &browser, ok("^STSF: 1"), -1, "1: null"},
    };
    FakeAtServer ats;
    for (const auto& [what, f, reply, want_rc, want] : rows) {
        SCOPED_TRACE(what);
        ats.clear_requests();
        ats.reply(reply);
        int rc = 0;
        const std::string got = fetched(*f, AT_SET_VALUE, &rc);
        EXPECT_EQ(rc, want_rc);
        if (!want.empty()) EXPECT_EQ(got, want);
        else EXPECT_TRUE(got.starts_with("70: [1,9,0,x] [2,9,0,x]") && got.ends_with("[70,9,0,x]")) << got.substr(0, 40);
        ASSERT_EQ(ats.count(), 1u);
        expect_wire(ats.last(), {"AT^STGI=6,2", "", 30, AT_REQ, 0, AT_RES_MUT});
    }
}

TEST(Stk, Answers) {
    auto answer = [](unsigned char type, const char* text) {
        return [=](StStgrRsp* rsp) {
            StStgrPara p{3, 1, 0, type, 7, {}, AT_CMD_RES_ERR};
            std::strcpy(reinterpret_cast<char*>(p.DataText), text);
            return AT_Stgr(AT_SET_VALUE, &p, rsp);
        };
    };
    const std::tuple<unsigned char, const char*, const char*> forms[] = {
        {0, "", "AT^STGR=3,1,0,7"},
        {1, "1234", "AT^STGR=3,1,0,\"1234\""},
        {1, "", "AT^STGR=3,1,0,\"\""},
        {2, "ignored", "AT^STGR=3,1"},
    };
    for (const auto& [type, text, line] : forms) {
        SCOPED_TRACE(line);
        run<StStgrRsp>({line, "", 30}, answer(type, text), [](auto&) { return std::string("-"); }, {
            {"OK",          ok(),                  0, "-", kOk},
            {"CME error",   cme("+CME ERROR: 3"),  0, ""},
            {"plain error", result(AT_ERROR),     -1, ""},
        });
    }
}

TEST(Stk, RefusedBeforeSending) {
    int total = 0;
    StStgiPara para{};
    StStgiRsp* entries = nullptr;
    StStsfPara sp{};
    StStsfRsp sr{};
    StStgrPara answer{3, 0, 0, 1, 0, {}, AT_CMD_RES_ERR};
    StStgrRsp ar{AT_CMD_RES_ERR};
    FakeAtServer ats;
    ats.respond([](const Request&) { return ok(); });
    EXPECT_EQ(AT_Stsf(2, &sp, &sr) + AT_Stsf(AT_CHECK_VALUE, &sp, nullptr) + AT_Stsf(AT_SET_VALUE, nullptr, &sr), -3);
    for (Reader read : {AT_Stgi, AT_StgiText, AT_StgiInput, AT_StgiInkey, AT_StgiRefresh, AT_StgiBrowser}) {
        EXPECT_EQ(read(0, &total, &para, &entries), -1);  // refused
        EXPECT_EQ(read(2, &total, &para, &entries) + read(-1, nullptr, nullptr, nullptr), 0);  // ignored
        EXPECT_EQ(read(1, nullptr, &para, &entries) + read(1, &total, nullptr, &entries) + read(1, &total, &para, nullptr), -3);
    }
    EXPECT_EQ(AT_Stgr(0, &answer, &ar) + AT_Stgr(2, &answer, &ar) + AT_Stgr(1, nullptr, &ar) + AT_Stgr(1, &answer, nullptr), -4);
    std::strcpy(reinterpret_cast<char*>(answer.DataText), "12\";+CFUN=0");  // leaves its quotes
    EXPECT_EQ(AT_Stgr(1, &answer, &ar), -1);
    std::memset(answer.DataText, '1', sizeof answer.DataText);  // no NUL
    EXPECT_EQ(AT_Stgr(1, &answer, &ar), -1);
    EXPECT_EQ(std::make_tuple(total, entries, ar.AtExeResult), std::make_tuple(0, nullptr, AT_CMD_RES_ERR));
    EXPECT_EQ(ats.count(), 0u);
}

}  // namespace
