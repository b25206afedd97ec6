// Positioning commands against the scripted fake AT server: the ^WP* settings read and set, the
// data contexts picked by cid from many-line replies, sessions, ^ANTCFG and ^DCONNSHADOW.
#include <cstdio>
#include <cstring>

#include "test_gps_support.h"

using namespace atapi_test;

namespace {

constexpr int kOk = AT_CMD_RES_SUCCESS, kErr = AT_CMD_RES_ERR;

template <typename Rec>
using Shown = std::function<std::string(const Rec&)>;

// The record as `shown` puts it with only its result field written.
template <typename Rec>
std::string only_result(const Shown<Rec>& shown, int code, Rec r = sentinel<Rec>()) {
    r.AtExecResult = static_cast<AT_AMSS_RES>(code);
    return shown(r);
}

// The query half of a settable command on a record that `fill` prepared: the rows given, then the
// error replies every member answers alike (mapped into the record, and still -1).
template <typename Rec>
void queries(const char* cmd, const char* match, int (*fn)(int, Rec*), const Shown<Rec>& shown,
             std::vector<Case> rows, std::function<void(Rec&)> fill = [](Rec&) {}) {
    Rec base = sentinel<Rec>();
    fill(base);
    rows.insert(rows.end(), {
        {"CME error mapped, -1",  cme("+CME ERROR: 283"),  -1, only_result(shown, AT_CMD_RES_GPS_SESSION_ONGOING, base)},
        {"CMS error mapped, -1",  cms("+CMS ERROR: 314"),  -1, only_result(shown, AT_CMD_RES_SIM_BUSY, base)},
        {"plain error",           result(AT_ERROR),        -1, only_result(shown, kErr, base)},
        {"unparsable",            ok("nonsense"),          -1, only_result(shown, kErr, base)},
    });
    run<Rec>({cmd, match, 30}, [&](Rec* r) { fill(*r); return fn(AT_CHECK_VALUE, r); }, shown, rows);
}

template <typename Rec>
std::function<int(Rec*)> query(int (*fn)(int, Rec*), std::function<void(Rec&)> fill = [](Rec&) {}) {
    return [fn, fill](Rec* r) { fill(*r); return fn(AT_CHECK_VALUE, r); };
}

// The set half: the line from the record, and each outcome in the result field.
template <typename Rec>
void sets(const char* line, const char* match, int (*fn)(int, Rec*), std::function<void(Rec&)> fill,
          const Shown<Rec>& shown) {
    Rec filled = sentinel<Rec>();
    fill(filled);
    run<Rec>({line, match, 30}, [&](Rec* r) { fill(*r); return fn(AT_SET_VALUE, r); }, shown, {
        {"OK",                   ok(),                    0, only_result(shown, kOk, filled)},
        {"CME error mapped, -1", cme("+CME ERROR: 281"), -1, only_result(shown, AT_CMD_RES_INVALID_PARAMETER, filled)},
        {"plain error",          result(AT_ERROR),       -1, only_result(shown, kErr, filled)},
        {"timeout in the server", result(AT_CMD_TIMEOUT), -1, only_result(shown, kErr, filled)},
    });
}

TEST(Gps, Settings) {
    Shown<StWpDomInfo> dom = [](auto& r) { return fields(r.oper_mode, r.AtExecResult); };
    queries<StWpDomInfo>("AT^WPDOM?", "^WPDOM:", AT_WPDOM, dom, {
        {"value",          ok("^WPDOM: 4"),             0, "4,-2"},
        {"extra ignored",  ok("^WPDOM: 2,9"),           0, "2,-2"},
        {"empty kept",     ok("^WPDOM:"),               0, "?,-2"},
        {"not a number",   ok("^WPDOM: x"),             0, "0,-2"},
    });
    sets<StWpDomInfo>("AT^WPDOM=3", "^WPDOM:", AT_WPDOM, [](auto& r) { r.oper_mode = 3; }, dom);

    Shown<StGpsStartType> dim = [](auto& r) { return fields(r.start_type, r.AtExecResult); };
    queries<StGpsStartType>("AT^WPDIM?", "^WPDIM:", AT_WPDIM, dim, {{"value", ok("^WPDIM: 2"), 0, "2,-2"}});
    sets<StGpsStartType>("AT^WPDIM=-1", "^WPDIM:", AT_WPDIM, [](auto& r) { r.start_type = -1; }, dim);

    Shown<StGpsTypes> cap = [](auto& r) { return fields(r.type, r.AtExecResult); };
    queries<StGpsTypes>("AT^WPCAP?", "^WPCAP:", AT_WPCAP, cap, {{"value", ok("^WPCAP: 7"), 0, "7,-2"}});
    sets<StGpsTypes>("AT^WPCAP=1", "^WPCAP:", AT_WPCAP, [](auto& r) { r.type = 1; }, cap);

    Shown<StWGnssInfo> gnss = [](auto& r) { return fields(r.pos_sys, r.AtExecResult); };
    queries<StWGnssInfo>("AT^WGNSS?", "^WGNSS:", AT_WGNSS, gnss, {{"value", ok("^WGNSS: 3"), 0, "3,-2"}});
    sets<StWGnssInfo>("AT^WGNSS=2147483647", "^WGNSS:", AT_WGNSS, [](auto& r) { r.pos_sys = 2147483647; }, gnss);

    Shown<StWPQosInfo> qos = [](auto& r) { return fields(r.performance, r.accuracy, r.AtExecResult); };
    queries<StWPQosInfo>("AT^WPQOS?", "^WPQOS:", AT_WPQOS, qos, {
        {"both",        ok("^WPQOS: 30,50"), 0, "30,50,-2"},
        {"short reply", ok("^WPQOS: 30"),    0, "30,?,-2"},
    });
    sets<StWPQosInfo>("AT^WPQOS=1, 50", "^WPQOS:", AT_WPQOS, [](auto& r) { r.performance = 1; r.accuracy = 50; }, qos);

    Shown<StWpDstSession> dst = [](auto& r) { return fields(r.type, r.AtExecResult); };
    queries<StWpDstSession>("AT^WPDST?", "^WPDST:", AT_WPDST, dst, {{"value", ok("^WPDST: 1"), 0, "1,-2"}});
    sets<StWpDstSession>("AT^WPDST=0", "^WPDST:", AT_WPDST, [](auto& r) { r.type = 0; }, dst);

    Shown<StWpDfr> dfr = [](auto& r) { return fields(r.number, r.time, r.AtExecResult); };
    queries<StWpDfr>("AT^WPDFR?", "^WPDFR:", AT_WPDFR, dfr, {{"both", ok("^WPDFR: 65535,1"), 0, "65535,1,-2"}});
    sets<StWpDfr>("AT^WPDFR=10,2", "^WPDFR:", AT_WPDFR, [](auto& r) { r.number = 10; r.time = 2; }, dfr);

    Shown<StWpJDetection> jam = [](auto& r) { return fields(r.status, r.threshold, r.AtExecResult); };
    queries<StWpJDetection>("AT^WPJAM?", "^WPJAM:", AT_WPJAM, jam, {{"both", ok("^WPJAM: 1,20"), 0, "1,20,-2"}});
    sets<StWpJDetection>("AT^WPJAM=1,30", "^WPJAM:", AT_WPJAM, [](auto& r) { r.status = 1; r.threshold = 30; }, jam);
}

TEST(Gps, ServerAddress) {
    // url_address is the caller's pointer: shown as whether it is still the one given.
    static char url[] = "supl.example.net:7275";
    Shown<StWPURL> shown = [](auto& r) { return fields(r.curr_address, r.length, r.AtExecResult); };
    queries<StWPURL>("AT^WPURL?", "^WPURL:", AT_WPURL, shown, {
        {"address",       ok("^WPURL: supl.example.net:7275"), 0, "supl.example.net:7275,?,-2"},
        {"quoted",        ok("^WPURL: \"h.example.org:7275\""), 0, "h.example.org:7275,?,-2"},
        {"cut to 127",    ok("^WPURL: " + std::string(400, 'u')), 0, std::string(127, 'u') + ",?,-2"},
    });
    sets<StWPURL>("AT^WPURL=supl.example.net:7275", "^WPURL:", AT_WPURL, [](auto& r) { r.url_address = url; }, shown);
    sets<StWPURL>("AT^WPURL=", "^WPURL:", AT_WPURL, [](auto& r) { r.url_address = nullptr; }, shown);
}

// A context list of cids n down to 1.
std::string contexts(const char* prefix, int n) {
    std::string s;
    for (int cid = n; cid >= 1; --cid)
        s += std::string(cid < n ? "\r\n" : "") + prefix + ": " + std::to_string(cid) + ",\"IPV4V6\",\"apn" +
             std::to_string(cid) + "\",\"10.0.0." + std::to_string(cid) + "\",0," + std::to_string(cid % 2);
    return s;
}

template <typename Rec>
void context_family(const char* name, int (*fn)(int, Rec*), const std::string& apn_cut) {
    const std::string prefix = std::string(name).substr(2, std::string(name).find('?') - 2);
    const auto cid = [](int c) { return std::function<void(Rec&)>([c](Rec& r) { r.cid = c; }); };
    Shown<Rec> shown = [](auto& r) {
        return fields(r.cid, r.pdp_type, r.apn, r.pdp_address, r.d_comp, r.h_comp, r.AtExecResult);
    };
    const auto for_cid = [&](int c) { Rec r = sentinel<Rec>(); r.cid = c; return only_result(shown, kErr, r); };
    queries<Rec>(name, (prefix + ":").c_str(), fn, shown, {
        {"middle of three",      ok(contexts(prefix.c_str(), 3)),   0, "2,IPV4V6,apn2,10.0.0.2,0,0,-2"},
        {"near the end of 24 (more than 128 fields)", ok(contexts(prefix.c_str(), 24)), 0, "2,IPV4V6,apn2,10.0.0.2,0,0,-2"},
        {"missing cid",          ok(prefix + ": 1,\"IP\",\"a\",\"b\",0,0"), -1, for_cid(2)},
        {"cid not a number",     ok(prefix + ": 2x,\"IP\",\"a\",\"b\",0,0"), -1, for_cid(2)},
        {"short line, then more", ok(prefix + ": 2,\"IP\"\r\n" + contexts(prefix.c_str(), 1)), 0, "2,IP,?,?,?,?,-2"},
        {"long texts cut",       ok(prefix + ": 2,\"IPV4V6XYZ\",\"" + std::string(300, 'a') + "\",\"" + std::string(90, '1') + "\",1,1"),
                                 0, "2,IPV4V6X," + apn_cut + "," + std::string(63, '1') + ",1,1,-2"},
    }, cid(2));
    // A text the caller filled to its end goes out up to its width.
    sets<Rec>(("AT" + prefix + "=1,\"IPV4V6XY\",\"apn\",\"\",0,1").c_str(), (prefix + ":").c_str(), fn, [](Rec& r) {
        r.cid = 1, r.d_comp = 0, r.h_comp = 1;
        std::memcpy(r.pdp_type, "IPV4V6XY", sizeof r.pdp_type);
        std::snprintf(r.apn, sizeof r.apn, "apn");
        r.pdp_address[0] = '\0';
    }, shown);
}

TEST(Gps, Contexts) {
    context_family<StCGDCONT>("AT+CGDCONT?", AT_CGDCONT, std::string(99, 'a'));
    context_family<StSOCKETCONT>("AT^SOCKETCONT?", AT_SOCKETCONT, std::string(127, 'a'));

    Shown<StAUTHDATA> auth = [](auto& r) { return fields(r.cid, r.auth_type, r.PLMN, r.username, r.passwd, r.AtExecResult); };
    queries<StAUTHDATA>("AT^AUTHDATA?", "^AUTHDATA:", AT_AUTHDATA, auth, {
        {"the line of cid 4", ok("^AUTHDATA: 1,0,\"\",\"\",\"\"\r\n^AUTHDATA: 4,2,\"pw\",\"user\",\"00101\""), 0, "4,2,101,user,pw,-2"},
    }, [](auto& r) { r.cid = 4; });
    // The password goes before the user name.
    sets<StAUTHDATA>("AT^AUTHDATA=4,2,\"101\",\"pw\",\"user\"", "^AUTHDATA:", AT_AUTHDATA, [](auto& r) {
        r.cid = 4, r.auth_type = 2, r.PLMN = 101;
        std::snprintf(r.username, sizeof r.username, "user");
        std::snprintf(r.passwd, sizeof r.passwd, "pw");
    }, auth);
}

TEST(Gps, SingleCommands) {
    run<StGpsTypes>({"AT^GPSTYPE?", "^GPSTYPE:", 30}, AT_GPSTYPE, [](auto& r) { return fields(r.type, r.AtExecResult); }, {
        {"type",                ok("^GPSTYPE: 2"),      0, "2,-2"},
        {"CME error, 0",        cme("+CME ERROR: 288"), 0, "?,288"},
        {"plain error",         result(AT_ERROR),      -1, ""},
        {"unparsable",          ok("none"),            -1, ""},
    });
    Shown<StCONNSTAT> conn = [](auto& r) { return fields(r.cid, r.aucStr, r.ipv4_stat, r.ipv6_stat, r.dconn_type, r.AtExecResult); };
    run<StCONNSTAT>({"AT^DCONNSTAT?", "^DCONNSTAT:", 30}, query<StCONNSTAT>(AT_DCONNSTAT, [](auto& r) { r.cid = 2; }), conn, {
        {"line of cid 2",  ok("^DCONNSTAT: 1,\"a\",1,0,1\r\n^DCONNSTAT: 2,\"b\",0,1,2"), 0, "2,?,0,1,2,-2"},
        {"no such cid",    ok("^DCONNSTAT: 1,\"a\",1,0,1"),                               -1, "2,?,?,?,?,?"},
        {"CME error, 0",   cme("+CME ERROR: 30"),                                          0, "2,?,?,?,?,30"},
        {"plain error",    result(AT_ERROR),                                              -1, "2,?,?,?,?,?"},
    });
    Shown<antcfg> ant = [](auto& r) { return fields(r.mode, r.interval, r.AtExecResult); };
    for (int interval : {0, 5}) {
        const std::string set = "1," + std::to_string(interval);
        run<antcfg>({interval ? "AT^ANTCFG=1,5" : "AT^ANTCFG=1", "", 30},
                    [interval](antcfg* r) { r->mode = 1; r->interval = interval; return AT_ANTCFG(1, r); }, ant, {
            {"OK",             ok(),                   0, set + ",-2"},
            {"error unmapped", cme("+CME ERROR: 296"), -1, set + ",-1"},
        });
    }
    run<antcfg>({"AT^ANTCFG", "", 30}, [](antcfg* r) { return AT_ANTCFG(3, r); }, ant, {{"bare form", ok(), 0, "?,?,-2"}});
    sets<StDCONNSHADOW>("AT^DCONNSHADOW=1,2,1", "^DCONNSHADOW:", AT_DCONNSHADOW, [](auto& r) {
        r.dialType = 1; r.cid = 2; r.enable = 1;
    }, [](auto& r) { return fields(r.dialType, r.cid, r.enable, r.AtExecResult); });
}

// Start and end of a session, and the traces that tell why a call failed.
TEST(Gps, SessionsAndTraces) {
    struct Row {
        const char* what;
        Reply reply;
        std::function<int()> call;
        int rc;
        std::string line, trace;
    };
    StGpsStartType dim{};
    StGpsTypes cap{};
    StWpDomInfo dom{};
    StWpJDetection jam{};
    const Row rows[] = {
        {"start",            ok(),                   AT_WPDGP, 0,  "AT^WPDGP", "WPDGP  Success\n"},
        {"start refused",    cme("+CME ERROR: 283"), AT_WPDGP, -1, "AT^WPDGP", "WPDGP error= 3 \n"},
        {"end",              ok(),                   AT_WPEND, 0,  "AT^WPEND", "WPEND  Success\n"},
        {"end refused",      result(AT_ERROR),       AT_WPEND, -1, "AT^WPEND", "WPEND error= 5 \n"},
        {"WPDOM mapped",     cme("+CME ERROR: 276"), [&] { return AT_WPDOM(0, &dom); }, -1, "AT^WPDOM?", "WPDOM=276, error\n"},
        {"WPDOM set failed", result(AT_ERROR),       [&] { dom.oper_mode = 2; return AT_WPDOM(1, &dom); }, -1, "AT^WPDOM=2", "WPDOM=-3, error\n"},
        {"WPDIM mapped",     cme("+CME ERROR: 281"), [&] { dim.start_type = 9; return AT_WPDIM(1, &dim); }, -1, "AT^WPDIM=9", "AT_WPDIM, AtExecResult=281, error\n"},
        {"WPDIM failed",     result(AT_ERROR),       [&] { return AT_WPDIM(1, &dim); }, -1, "AT^WPDIM=9", "AT_WPDIM, start_type=9, error\n"},
        {"WPCAP failed",     result(AT_ERROR),       [&] { cap.type = 4; return AT_WPCAP(1, &cap); }, -1, "AT^WPCAP=4", "AT_WPCAP, type=4, error\n"},
        {"WPJAM failed",     result(AT_ERROR),       [&] { jam.status = 1; return AT_WPJAM(1, &jam); }, -1, "AT^WPJAM=1,0", "AT_WPJAM, type=1, error\n"},
    };
    FakeAtServer ats;
    for (const Row& r : rows) {
        SCOPED_TRACE(r.what);
        ats.clear_requests();
        ats.reply(r.reply);
        clear_traces();
        EXPECT_EQ(r.call(), r.rc);
        ASSERT_EQ(ats.count(), 1u);
        EXPECT_EQ(ats.last().cmd, r.line);
        EXPECT_EQ(count_trace(r.trace), 1u);
    }
    EXPECT_EQ(count_trace("Enter AT_WPJAM"), 1u);
}

// Null records, refused command types and lines that would break: nothing is sent.
TEST(Gps, RefusedBeforeSending) {
    static char bad_url[] = "supl.example.net;AT+CFUN=0", long_url[700] = {};
    std::memset(long_url, 'u', sizeof long_url - 1);
    StCGDCONT quoted = sentinel<StCGDCONT>();
    quoted.cid = 1;
    std::snprintf(quoted.pdp_type, sizeof quoted.pdp_type, "IP");
    std::snprintf(quoted.apn, sizeof quoted.apn, "a\",\"b");
    std::snprintf(quoted.pdp_address, sizeof quoted.pdp_address, "x");
    StAUTHDATA auth = sentinel<StAUTHDATA>();
    std::snprintf(auth.username, sizeof auth.username, "u");
    std::snprintf(auth.passwd, sizeof auth.passwd, "p\"w");
    expect_nothing_sent({
        {"query type 2 presets the error code", [] { auto r = sentinel<StWpDomInfo>(); return AT_WPDOM(2, &r) == -1 && as_int(r.AtExecResult) == kErr; }, "Enter AT_WPDOM"},
        {"null records", [] { return AT_WPDOM(0, nullptr) == -1 && AT_WGNSS(1, nullptr) == -1 && AT_WPQOS(0, nullptr) == -1 &&
                                     AT_WPDST(0, nullptr) == -1 && AT_WPDFR(0, nullptr) == -1 && AT_WPURL(0, nullptr) == -1 &&
                                     AT_CGDCONT(0, nullptr) == -1 && AT_SOCKETCONT(0, nullptr) == -1 && AT_AUTHDATA(0, nullptr) == -1 &&
                                     AT_GPSTYPE(nullptr) == -1 && AT_DCONNSTAT(0, nullptr) == -1 && AT_DCONNSHADOW(1, nullptr) == -1 &&
                                     AT_ANTCFG(1, nullptr) == -1 && AT_WPCAP(0, nullptr) == -1; }},
        {"WPDIM null", [] { return AT_WPDIM(0, nullptr) == -1; }, "AT_WPDIM, parameter error \n"},
        {"WPJAM null", [] { return AT_WPJAM(1, nullptr) == -1; }, "AT_WPJAM, parameter error \n"},
        {"WPCAP type 5", [] { StGpsTypes r{}; return AT_WPCAP(5, &r) == -1 && r.AtExecResult == AT_CMD_RES_ERR; }, "AT_WPCAP, type is error \n"},
        {"DCONNSTAT set, DCONNSHADOW query", [] { StCONNSTAT c{}; StDCONNSHADOW s{}; return AT_DCONNSTAT(1, &c) == -1 && AT_DCONNSHADOW(0, &s) == -1; }},
        {"ANTCFG types 0 and 2", [] { auto r = sentinel<antcfg>(); return AT_ANTCFG(0, &r) == -1 && AT_ANTCFG(2, &r) == -1 && as_int(r.AtExecResult) == AT_CMD_RES_BUSY; }},
        {"URL with ';'", [] { auto r = sentinel<StWPURL>(); r.url_address = bad_url; return AT_WPURL(1, &r) == -1 && untouched(r.AtExecResult); }},
        {"URL too long", [] { auto r = sentinel<StWPURL>(); r.url_address = long_url; return AT_WPURL(1, &r) == -1 && untouched(r.AtExecResult); }},
        {"APN with a quote", [&] { auto r = quoted; return AT_CGDCONT(1, &r) == -1 && std::memcmp(&r, &quoted, sizeof r) == 0; }},
        {"password with a quote", [&] { auto r = auth; return AT_AUTHDATA(1, &r) == -1 && std::memcmp(&r, &auth, sizeof r) == 0; }},
    });
}

TEST(Gps, ServerGone) {
    FakeAtServer ats;
    ats.die();
    clear_traces();
    EXPECT_TRUE(fails_untouched<StGpsTypes>(AT_GPSTYPE));
    EXPECT_TRUE(fails_untouched<StCONNSTAT>(query(AT_DCONNSTAT)));
    EXPECT_EQ(AT_WPDGP(), -1);
    EXPECT_EQ(count_trace("WPDGP error= -1 \n"), 1u);
    antcfg a{};
    EXPECT_EQ(AT_ANTCFG(3, &a), -1);
    EXPECT_EQ(count_trace("send cmd fail\n"), 1u);
    // A query reads its error code, a set the exchange's own.
    StWpDomInfo d{};
    EXPECT_EQ(AT_WPDOM(0, &d), -1);
    EXPECT_EQ(AT_WPDOM(1, &d), -1);
    EXPECT_EQ(d.AtExecResult, AT_CMD_RES_ERR);
}

}  // namespace
