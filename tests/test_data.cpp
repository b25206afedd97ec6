// The data connection against the scripted fake AT server: dial and set lines on the wire, state
// and address reads into their records, the many-line connection list, refusals and traces.
#include <cstdlib>
#include <tuple>

#include "test_network_support.h"
#include "trace_capture.h"

using namespace atapi_test;

namespace {

constexpr int kOk = AT_CMD_RES_SUCCESS;
constexpr int kNoField = -100;  // the record has no result field
constexpr char kSecret[] = "pa55-secret";

template <size_t N>
void put(char (&dst)[N], const char* text) {
    std::snprintf(dst, N, "%s", text);
}

// A dial profile: APN and address static or not, as the row says.
ProfileResult profile(int apn_static, int ip_static, char auth = '2') {
    ProfileResult p = sentinel<ProfileResult>();
    p.apn_is_static = static_cast<uint8_t>(apn_static);
    p.ip_is_static = static_cast<uint8_t>(ip_static);
    p.auth_mode = static_cast<uint8_t>(auth);
    put(p.apn_name, "internet");
    put(p.username, "user");
    put(p.password, kSecret);
    put(p.addr, "10.0.0.5");
    put(p.primary_dns, "10.11.12.13");
    put(p.secondary_dns, "10.11.12.14");
    return p;
}

// Runs a set call on its record and gives its return code and the record's result code.
template <typename Rec, typename Call>
std::function<std::pair<int, int>()> set(Rec rec, Call call) {
    return [rec, call] {
        Rec r = rec;  // each call starts from the row's record
        const int rc = call(&r);
        if constexpr (requires { r.AtExeResult; }) return std::make_pair(rc, as_int(r.AtExeResult));
        else return std::make_pair(rc, kNoField);
    };
}

PDP_CONT context(const char* type, const char* apn) {
    PDP_CONT c = sentinel<PDP_CONT>();
    c.cid = 2;
    put(c.pdp_type, type);
    put(c.apn_name, apn);
    return c;
}

AUTH_DATA auth(const char* user) {
    AUTH_DATA a = sentinel<AUTH_DATA>();
    a.cid = 1;
    a.auth_type = 2;
    put(a.plmn, "00101");
    put(a.passwd, kSecret);
    put(a.username, user);
    return a;
}

CH_DATA channel(int cid, int data_channel) {
    CH_DATA c = sentinel<CH_DATA>();
    c.cid = cid;
    c.datachannel = data_channel;
    return c;
}

at_ipfilter_type filter(int status, char* socket, const char* ip) {
    at_ipfilter_type f{};
    f.ipfilter_status = status;
    f.socket_type = socket;
    std::snprintf(reinterpret_cast<char*>(f.ip_addr), sizeof f.ip_addr, "%s", ip);
    f.listen_port = 8080;
    return f;
}

// Every command that only sets: its line on the wire (none when refused), and what each final
// result gives. No error reply is mapped into a record, and no secret reaches a trace.
TEST(Data, SetLines) {
    static char tcp[] = "TCP";
    ProfileResult unterminated = profile(1, 0);
    memset(unterminated.password, 'x', sizeof unterminated.password);
    const std::vector<std::tuple<const char*, std::function<std::pair<int, int>()>, Wire>> rows = {
        {"dial, no profile", set(0, [](int*) { return AT_ndisdup(1, 1, nullptr); }), {"AT^NDISDUP=1,1", "^NDISDUP", 30}},
        {"dial, cid and action passed through", set(0, [](int*) { return AT_ndisdup(-3, 7, nullptr); }), {"AT^NDISDUP=-3,7", "^NDISDUP", 30}},
        {"dial, APN", set(profile(1, 0), [](auto* p) { return AT_ndisdup(1, 1, p); }),
         {"AT^NDISDUP=1,1,\"internet\",\"user\",\"pa55-secret\",2", "^NDISDUP", 30}},
        {"dial, APN and address", set(profile(1, 1), [](auto* p) { return AT_ndisdup(2, 0, p); }),
         {"AT^NDISDUP=2,0,\"internet\",\"user\",\"pa55-secret\",2,\"10.0.0.5\"", "^NDISDUP", 30}},
        {"dial, the context's APN", set(profile(0, 0, '0'), [](auto* p) { return AT_ndisdup(1, 1, p); }),
         {"AT^NDISDUP=1,1,,\"user\",\"pa55-secret\",0", "^NDISDUP", 30}},
        {"dial, only 1 is static", set(profile(2, 1), [](auto* p) { return AT_ndisdup(1, 1, p); }),
         {"AT^NDISDUP=1,1,,\"user\",\"pa55-secret\",2,\"10.0.0.5\"", "^NDISDUP", 30}},
        {"dial, mode as a number", set(profile(1, 0, 2), [](auto* p) { return AT_ndisdup(1, 1, p); }), {}},
        {"dial, quote in the APN", set([] { auto p = profile(1, 0); put(p.apn_name, "a\",\"b"); return p; }(),
                                       [](auto* p) { return AT_ndisdup(1, 1, p); }), {}},
        {"dial, unterminated password", set(unterminated, [](auto* p) { return AT_ndisdup(1, 1, p); }), {}},
        {"channel", set(channel(3, 0), AT_chdata), {"AT^CHDATA=3", "^CHDATA", 30}},
        {"channel given", set(channel(3, 4), AT_chdata), {"AT^CHDATA=3,4", "^CHDATA", 30}},
        {"context", set(context("IPV4V6", "internet"), AT_cgdcont), {"AT+CGDCONT=2,\"IPV4V6\",\"internet\"", "+CGDCONT", 30}},
        {"context, quote", set(context("IP", "x\";+CFUN=0;\""), AT_cgdcont), {}},
        {"context, 99-character APN", set(context("IP", std::string(99, 'a').c_str()), AT_cgdcont),
         {"AT+CGDCONT=2,\"IP\",\"" + std::string(99, 'a') + "\"", "+CGDCONT", 30}},
        {"authentication", set(auth("user"), AT_authdata), {"AT^AUTHDATA=1,2,\"00101\",\"pa55-secret\",\"user\"", "^AUTHDATA", 30}},
        {"authentication, quote", set(auth("us\"er"), AT_authdata), {}},
        {"CGDNS keeps its blank", set(profile(1, 0), [](auto* p) { return AT_Cgdns(1, 4, p); }),
         {"AT^CGDNS =4,\"10.11.12.13\",\"10.11.12.14\"", "^CGDNS", 30}},
        {"DNSP", set(profile(1, 0), [](auto* p) { return AT_dnsp(1, p); }), {"AT^DNSP=10.11.12.13", "^DNSP", 30}},
        {"DNSS", set(profile(1, 0), [](auto* p) { return AT_dnss(1, p); }), {"AT^DNSS=10.11.12.14", "^DNSS", 30}},
        {"DNSS chaining a command", set([] { auto p = profile(1, 0); put(p.secondary_dns, "1;+CFUN=0"); return p; }(),
                                        [](auto* p) { return AT_dnss(1, p); }), {}},
        {"filter off", set(filter(0, tcp, "1.2.3.4"), AT_ipfilter), {"AT^IPFILTER=0", "", 5}},
        {"filter on", set(filter(1, tcp, "1.2.3.4"), AT_ipfilter), {"AT^IPFILTER=1,\"TCP\",\"1.2.3.4\",8080", "", 5}},
        {"filter, no socket type", set(filter(5, nullptr, "::1"), AT_ipfilter), {"AT^IPFILTER=1,\"\",\"::1\",8080", "", 5}},
        {"filter, quote", set(filter(1, tcp, "1\""), AT_ipfilter), {}},
    };
    const std::tuple<Reply, int, bool> outcomes[] = {
        {ok(), 0, true}, {cme("+CME ERROR: 30"), -1, false}, {cms("+CMS ERROR: 314"), -1, false}, {result(AT_ERROR), -1, false},
    };
    FakeAtServer ats;
    for (const auto& [what, call, wire] : rows) {
        for (const auto& [reply, rc, success] : outcomes) {
            SCOPED_TRACE(testing::Message() << what << " answered " << reply.ret_val);
            ats.clear_requests();
            clear_traces();
            const bool sent = !wire.cmd.empty();
            if (sent) ats.reply(reply);
            const auto [got_rc, exe] = call();
            EXPECT_EQ(got_rc, sent ? rc : -1);
            ASSERT_EQ(ats.count(), sent ? 1u : 0u);
            if (!sent) break;
            expect_wire(ats.last(), wire);
            if (exe != kNoField) { EXPECT_EQ(exe, success ? kOk : kS); }
            for (const TraceLine& t : traces()) EXPECT_EQ(t.text.find(kSecret), std::string::npos) << t.text;
        }
    }
}

TEST(Data, ConnectionState) {
    auto ndis = [](const AT_NDIS_STATUS_ST& r) { return fields(r.CmdType, r.ipv4_status, r.ipv6_status, r.Reserve, r.ipv4Reserve); };
    run<AT_NDIS_STATUS_ST>({"AT^NDISSTATQRY?", "^NDISSTATQRY", 5}, [](auto* r) { return at_ndisstatqry_state(1, r); }, ndis, {
        {"dual stack, one line",  ok("^NDISSTATQRY: 1,,,\"IPV4\",0,33,,\"IPV6\""), 0, "?,1,0,33,0", kOk},
        {"IPv6 line first",       ok("^NDISSTATQRY: 2,,,\"IPV6\",1,7,,\"IPV4\""),  0, "?,1,2,7,7", kOk},
        // The first line's type keeps the line end and so is no type: its state is the first state.
        {"two lines",             ok("^NDISSTATQRY: 2,5,,\"IPV4\"\r\n^NDISSTATQRY: 1,,,\"IPV6\""), 0, "?,2,1,0,?", kOk},
        {"CME error mapped",      cme("+CME ERROR: 11"),                         0, "?,?,?,?,?", AT_CMD_RES_PIN_REQ},
        {"CMS error mapped",      cms("+CMS ERROR: 500"),                        0, "?,?,?,?,?", AT_CMD_RES_BUSY},
        {"plain error",           result(AT_ERROR),                             -1, ""},
        {"unparsable",            ok("nothing"),                                -1, ""},
    });
    run<AT_NDIS_STATUS_ST>({"AT^NDISSTATQRY=2", "^NDISSTATQRY", 5}, [](auto* r) { return at_ndisstatqry_state(2, r); }, ndis, {
        {"other context", ok("^NDISSTATQRY: 0,,,\"IPV4\""), 0, "?,0,?,0,0", kOk},
    });
    auto pdp = [](const AT_PDP_STATUS_ST& r) { return fields(r.CmdType, r.ipv4_status, r.ipv6_status, r.Reserve); };
    for (int cid : {0, 3}) {
        run<AT_PDP_STATUS_ST>({"^APCONNST", "", 5}, [cid](auto* r) { return at_ppp_state(cid, r); }, pdp, {
            {"both types",       ok("^APCONNST: 1,\"IPV4\",0,\"IPV6\""), 0, "?,1,0,?", kOk},
            {"state only",       ok("^APCONNST: 2"),                    0, "?,2,?,?", kOk},
            {"CME error mapped", cme("+CME ERROR: 13"),                 0, "?,?,?,?", AT_CMD_RES_SIM_FAIL},
            {"plain error",      result(AT_ERROR),                     -1, ""},
        });
    }
    std::string cids17;
    for (int i = 1; i <= 17; ++i) cids17 += (i > 1 ? "," : "") + std::to_string(i);
    run<CONNECT_CID_INFO>({"AT^NDISSTATQRY=?", "^NDISSTATQRY", 5}, at_ndisstatqry_test, [](const CONNECT_CID_INFO& r) {
        std::string s = fields(r.cid_num);
        for (int i = 0; i < 16 && !untouched(r.cid_value[i]); ++i) s += "," + fields(r.cid_value[i]);
        return s;
    }, {
        {"list",              ok("^NDISSTATQRY: (1,2,11)"),           0, "3,1,2,11", kOk},
        {"a range is cut to 3", ok("^NDISSTATQRY: (1-16)"),           0, "1,1-1", kOk},
        {"seventeen",         ok("^NDISSTATQRY: (" + cids17 + ")"),   0, "16,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16", kOk},
        {"empty list",        ok("^NDISSTATQRY: ()"),                 0, "?", kOk},
        {"CME error mapped",  cme("+CME ERROR: 4"),                   0, "?", AT_CMD_RES_OPERATION_NOT_SUPPORTED},
        {"no group",          ok("^NDISSTATQRY: 1"),                 -1, ""},
        {"plain error",       result(AT_ERROR),                      -1, ""},
    });
    run<StDialupResult>({"AT^GLASTERR=1", "^GLASTERR:", 30}, [](auto* r) { r->errorType = ERR_DIALUP_TYPE; return AT_Glasterr(r); },
                        [](auto& r) { return fields(r.errorType, r.errorCode); }, {
        {"type and code", ok("^GLASTERR: 1,29"),  0, "1,29", kOk},
        {"CME error",     cme("+CME ERROR: 3"),  -1, "1,?"},
        {"unparsable",    ok("^OTHER"),          -1, "1,?"},
    });
}

TEST(Data, ConnectionList) {
    const std::string apn200(200, 'a');
    const auto line = [](int cid, const std::string& apn) { return "^DCONNSTAT: " + std::to_string(cid) + ",\"" + apn + "\",1,0,1"; };
    std::string seventeen;
    for (int i = 1; i <= 17; ++i) seventeen += (i > 1 ? "\r\n" : "") + line(i, "x");
    // reply, return, count (kS: untouched), the list as cid/APN/states ("null", "untouched"), standard output
    const std::vector<std::tuple<const char*, Reply, int, int, std::string, std::string>> rows = {
        {"three", ok(line(1, "internet") + "\r\n^DCONNSTAT: 2,\"ims\",0,1,1\r\n^DCONNSTAT: 3,\"\",2,2,0"), 0, 3,
         "1/internet/1/0/1;2/ims/0/1/1;3//2/2/0;", ""},
        {"short line keeps zeros", ok("^DCONNSTAT: 4"), 0, 1, "4//0/0/0;", ""},
        {"long APN cut to 98", ok(line(1, apn200)), 0, 1, "1/" + std::string(98, 'a') + "/1/0/1;", ""},
        {"sixteen at most", ok(seventeen), 0, 16, "", ""},
        {"CME error printed", cme("+CME ERROR: 10"), 0, kS, "untouched", "ierrornum = <13>\r\n"},
        {"plain error", result(AT_ERROR), -1, kS, "untouched", ""},
        {"empty", ok(""), -1, 0, "untouched", ""},
        {"a line that does not parse", ok("garbage"), -1, 1, "null", ""},
    };
    FakeAtServer ats;
    for (const auto& [what, reply, rc, count, list, out] : rows) {
        SCOPED_TRACE(what);
        ats.clear_requests();
        ats.reply(reply);
        int total = kS;
        StCONNSTATNDIS marker{};
        StCONNSTATNDIS* got = &marker;
        testing::internal::CaptureStdout();
        EXPECT_EQ(AT_DCONNSTATLIST(0, &total, &got), rc);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), out);
        expect_wire(ats.last(), {"AT^DCONNSTAT?", "^DCONNSTAT:", 30});
        EXPECT_EQ(total, count);
        if (got == &marker || got == nullptr) {
            EXPECT_EQ(got == nullptr ? "null" : "untouched", list);
            continue;
        }
        std::string shown;
        for (int i = 0; i < total; ++i) {
            const StCONNSTATNDIS& c = got[i];
            EXPECT_EQ(c.AtExecResult, AT_CMD_RES_SUCCESS);
            shown += fields(c.cid) + "/" + c.aucStr + "/" + fields(c.ipv4_stat, c.ipv6_stat, c.dconn_type) + ";";
        }
        std::replace(shown.begin(), shown.end(), ',', '/');
        if (!list.empty()) { EXPECT_EQ(shown, list); }
        std::free(got);
    }
}

TEST(Data, ContextAndAuthenticationReads) {
    run<PDP_CONT>({"AT+CGDCONT?", "+CGDCONT", 30}, AT_getcgdcont, [](auto& r) { return fields(r.cid, r.pdp_type, r.apn_name); }, {
        {"first of two", ok("+CGDCONT: 1,\"IPV4V6\",\"internet\",\"0.0.0.0\",0,0\r\n+CGDCONT: 2,\"IP\",\"ims\""), 0, "1,IPV4V6,?", kOk},
        {"type cut to 34", ok("+CGDCONT: 3,\"" + std::string(50, 'T') + "\""), 0, "3," + std::string(34, 'T') + ",?", kOk},
        {"CME error",  cme("+CME ERROR: 10"), -1, ""},
        {"unparsable", ok("none"),            -1, ""},
    });
    EXPECT_EQ(count_trace("AT^CGDCONT? haven't found!\n"), 4u);  // APN, address and two compressions
    clear_traces();
    run<AUTH_DATA>({"AT^AUTHDATA?", "^AUTHDATA", 30}, AT_getauthdata,
                   [](auto& r) { return fields(r.cid, r.auth_type, r.plmn, r.passwd, r.username); }, {
        {"entry", ok("^AUTHDATA: 1,2,\"pa55-secret\",\"user\",\"00101\""), 0, "1,2,00101,pa55-secret,user", kOk},
        {"first line's end left out", ok("^AUTHDATA: 1,1,\"pa55-secret\",\"u\",\"00101\"\r\n^AUTHDATA: 2,0,\"\",\"\",\"\""),
         0, "1,1,00101,pa55-secret,u", kOk},
        {"CME error", cme("+CME ERROR: 10"), -1, ""},
    });
    for (const TraceLine& t : traces()) EXPECT_EQ(t.text.find(kSecret), std::string::npos) << t.text;
}

TEST(Data, AddressReads) {
    auto v4 = [](const DhcpInfoRes& r) { return fields(r.IPAddr, r.NetMask, r.GateWay, r.Dhcp, r.pDNS, r.sDNS, r.MACAddr, r.MAX_RX_DATA, r.MAX_TX_DATA, r.Reserve); };
    run<DhcpInfoRes>({"AT^DHCP?", "^DHCP", 30}, [](auto* r) { return AT_dhcp(1, r); }, v4, {
        {"eight values", ok("^DHCP: 0100A8C0,00FFFFFF,fe00a8c0,FE00A8C0,0D0C0B0A,0E0C0B0A,150000000,50000000"),
         0, "192.168.0.1,255.255.255.0,192.168.0.254,192.168.0.254,10.11.12.13,10.11.12.14,?,150000000,50000000,?", kOk},
        {"short hex is right-aligned", ok("^DHCP: 0,A8C0"), 0, "0.0.0.0,192.168.0.0,?,?,?,?,?,?,?,?", kOk},
        {"nine digits refused", ok("^DHCP: 10100A8C0,00FFFFFF"), 0, "?,255.255.255.0,?,?,?,?,?,?,?,?", kOk},
        {"CME error",  cme("+CME ERROR: 3"), -1, ""},
        {"unparsable", ok("none"),           -1, ""},
    });
    run<DhcpInfoRes>({"AT^DHCP=2", "^DHCP", 30}, [](auto* r) { return AT_dhcp(2, r); }, v4, {{"plain error", result(AT_ERROR), -1, ""}});
    const std::string long_text(100, '2');
    run<Dhcpv6InfoRes>({"AT^DHCPV6=3", "^DHCPV6", 30}, [](auto* r) { return AT_dhcpv6(3, r); },
                       [](auto& r) { return fields(r.clip_v6, r.netmask_v6, r.gate_v6, r.dhcp_v6, r.pDNS_v6, r.sDNS_v6, r.MAX_RX_DATA, r.MAX_TX_DATA); }, {
        {"texts as reported", ok("^DHCPV6: 2001:db8::5,ffff:ffff:ffff:ffff::,fe80::1,fe80::1,2001:db8::53,::,100,50"),
         0, "2001:db8::5,ffff:ffff:ffff:ffff::,fe80::1,fe80::1,2001:db8::53,::,100,50", kOk},
        {"cut to 64", ok("^DHCPV6: " + long_text), 0, std::string(64, '2') + ",?,?,?,?,?,?,?", kOk},
        {"CME error", cme("+CME ERROR: 3"), -1, ""},
    });
    run<RAINFO>({"AT^APRAINFO?", "^APRAINFO", 30}, [](auto* r) { return AT_aprainfo(1, r); },
                [](auto& r) { return fields(r.ipv6_mtu, r.prefix, r.preferred_lifetime, r.valid_lifetime); }, {
        {"four values", ok("^APRAINFO: 1500,\"2001:db8:0:1::\",3600,7200"), 0, "1500,2001:db8:0:1::,3600,7200", kOk},
        {"plain error", result(AT_ERROR), -1, ""},
    });
    run<LANADDR>({"AT^APLANADDR?", "^APLANADDR", 30}, AT_lan_addr, [](auto& r) { return fields(r.addr, r.prefixlen); }, {
        {"address", ok("^APLANADDR: \"2001:db8:0:1::1\",64"), 0, "2001:db8:0:1::1,64", kOk},
        {"unparsable", ok("none"), -1, ""},
    });
}

TEST(Data, AddressConversion) {
    // source, buffer size, return, text (the guard after the buffer must stay)
    const std::vector<std::tuple<const char*, size_t, int, std::string>> rows = {
        {"0100A8C0", 16, 0, "192.168.0.1"}, {"0", 16, 0, "0.0.0.0"}, {"", 16, 0, "0.0.0.0"},
        {"FFFFFFFF", 8, 0, "0.0.255"}, {"12345678G", 16, -1, "untouched"}, {"FFFFFFFF", 0, 0, "untouched"},
    };
    for (const auto& [source, size, rc, want] : rows) {
        char buf[24];
        std::memset(buf, '#', sizeof buf);
        std::string src(source);
        EXPECT_EQ(convert_ip_to_string(src.data(), buf, size), rc) << source;
        EXPECT_EQ(buf[size], '#') << source;
        EXPECT_EQ(buf[0] == '#' ? "untouched" : std::string(buf), want) << source;
    }
    char dotted[16] = "1.0.168.192", two[16] = "1.2";
    EXPECT_EQ(reverse_ip_addr_to_normal(dotted, sizeof dotted), 0);
    EXPECT_EQ(reverse_ip_addr_to_normal(two, sizeof two), 0);
    EXPECT_EQ(std::string(dotted) + " " + two, "192.168.0.1 0.0.2.1");
    clear_traces();
    EXPECT_EQ(reverse_ip_addr_to_normal(nullptr, 16), -1);
    EXPECT_EQ(count_trace("para error,pszip is null!\n"), 1u);
    EXPECT_EQ(convert_ip_to_string(nullptr, dotted, 16), -1);
    // range, return, ends
    const std::vector<std::tuple<const char*, int, std::string>> ranges = {
        {"1-11", 0, "1,11"}, {"5", -1, "?,?"}, {"-4", 0, "0,4"}, {"123456789-5", -1, "?,?"}, {"12345678-5", 0, "12345678,0"},
    };
    for (const auto& [text, rc, want] : ranges) {
        int b = kS, e = kS;
        EXPECT_EQ(parse_begin_end_value(text, &b, &e), rc) << text;
        EXPECT_EQ(fields(b, e), want) << text;
    }
}

TEST(Data, DnsAndCapabilities) {
    auto dns = [](const ProfileResult& r) { return fields(r.primary_dns, r.secondary_dns); };
    run<ProfileResult>({"AT^CGDNS?", "^CGDNS:", 30}, [](auto* p) { return AT_Cgdns(0, 2, p); }, dns, {
        {"line of the context", ok("^CGDNS: 1,\"1.1.1.1\",\"1.0.0.1\"\r\n^CGDNS: 2,\"8.8.8.8\",\"8.8.4.4\"\r\n^CGDNS: 3,\"9.9.9.9\",\"\""),
         0, "8.8.8.8,8.8.4.4", kOk},
        {"else the first", ok("^CGDNS: 1,\"1.1.1.1\",\"1.0.0.1\""), 0, "1.1.1.1,1.0.0.1", kOk},
        {"cut to 15", ok("^CGDNS: 2,\"1234567890123456789\""), 0, "123456789012345,?", kOk},
        {"CME error mapped", cme("+CME ERROR: 4"), 0, "?,?", AT_CMD_RES_OPERATION_NOT_SUPPORTED},
        {"plain error", result(AT_ERROR), -1, ""},
    });
    run<ProfileResult>({"AT^DNSP?", "^DNSP:", 30}, [](auto* p) { return AT_dnsp(0, p); }, dns, {
        {"primary", ok("^DNSP: 10.11.12.13"), 0, "10.11.12.13,?", kOk},
        {"CMS error mapped", cms("+CMS ERROR: 314"), 0, "?,?", AT_CMD_RES_SIM_BUSY},
    });
    run<ProfileResult>({"AT^DNSS?", "^DNSS:", 30}, [](auto* p) { return AT_dnss(0, p); }, dns, {
        {"secondary", ok("^DNSS: 10.11.12.14"), 0, "?,10.11.12.14", kOk},
        {"unparsable", ok("none"), -1, ""},
    });
    run<IPV6_CAP>({"AT^IPV6CAP?", "^IPV6CAP", 5}, at_ipv6_cap, [](auto& r) { return fields(r.ipv6_cfg); }, {
        {"bits", ok("^IPV6CAP: 7"), 0, "7", kOk},
        {"CME error mapped", cme("+CME ERROR: 4"), 0, "?", AT_CMD_RES_OPERATION_NOT_SUPPORTED},
        {"plain error", result(AT_ERROR), -1, ""},
    });
    run<MODEM_FEATURE_INFO>({"AT^HFEATURESTAT=12", "^HFEATURESTAT", 30}, [](auto* r) { return AT_HFEATURESTAT(12, r); },
                            [](auto& r) { return fields(r.feature_id, r.value1, r.value2, r.value3, r.value4, r.value5); }, {
        {"six values", ok("^HFEATURESTAT: 12,1,0,5,6,7"), 0, "12,1,0,5,6,7", kOk},
        {"CME error", cme("+CME ERROR: 4"), -1, ""},
    });
    run<StLteProfileTest>({"AT^LTEPROFILE=?", "^LTEPROFILE", 30}, AT_LteProfile_Test, [](auto& r) {
        return fields(r.mode[0], r.mode[1], r.IndexRange[0], r.IndexRange[1], r.MaxImsiPrefixLen, r.MaxApnLen,
                      r.MaxUserNameLen, r.MaxUserPwdLen, r.AuthType[0], r.AuthType[1]);
    }, {
        {"ranges", ok("^LTEPROFILE: (0,1),(0-10),10,32,32,32,(0-2)"), 0, "0,1,0,10,10,32,32,32,0,2", kOk},
        {"lists and one index", ok("^LTEPROFILE: (1),(3),5,99,64,64,(1,2,3)"), 0, "1,1,3,3,5,99,64,64,1,3", kOk},
        {"no limits", ok("^LTEPROFILE: (0,1),(1-8)"), 0, "0,1,1,8,?,?,?,?,?,?", kOk},
        {"CME error mapped", cme("+CME ERROR: 4"), 0, "?,?,?,?,?,?,?,?,?,?", AT_CMD_RES_OPERATION_NOT_SUPPORTED},
        {"one group only", ok("^LTEPROFILE: (0,1)"), -1, ""},
    });
}

// The failure traces fixed for each function; for the set commands they are what tells an error
// reply from a dead server.
TEST(Data, FailureTraces) {
    ProfileResult p = profile(1, 0);
    char tcp[] = "TCP";
    at_ipfilter_type f = filter(1, tcp, "1.2.3.4");
    PDP_CONT c = context("IP", "internet");
    AUTH_DATA a = auth("user");
    CH_DATA ch{1, 0, {}};
    StDialupResult g{ERR_DIALUP_TYPE, 0, {}};
    DhcpInfoRes d{};
    MODEM_FEATURE_INFO m{};
    const std::vector<std::tuple<std::function<int()>, Reply, const char*>> rows = {
        {[&] { return AT_ndisdup(1, 1, &p); }, result(AT_ERROR), "AT^NDISUP config error!\n"},
        {[&] { return AT_chdata(&ch); }, result(AT_ERROR), "AT^CHDATA config error!\n"},
        {[&] { return AT_cgdcont(&c); }, result(AT_ERROR), "AT+CGDCONT config error!\n"},
        {[&] { return AT_authdata(&a); }, result(AT_ERROR), "AT^AUTHDATA config error!\n"},
        {[&] { return AT_getcgdcont(&c); }, result(AT_NO_CARRIER), "AT^CGDCONT? is abnormal!Error num is 6\n"},
        {[&] { return AT_getauthdata(&a); }, result(AT_ERROR), "AT^AUTHDATA? is abnormal!Error num is 5\n"},
        {[&] { return AT_Glasterr(&g); }, result(AT_ERROR), "AT^GLASTERR=1 error!\n"},
        {[&] { return AT_Glasterr(&g); }, ok("none"), "at cmd parse glasterr error\n"},
        {[&] { return AT_dhcp(1, &d); }, result(AT_ERROR), "AT^DHCP query error!\n"},
        {[&] { return AT_Cgdns(1, 1, &p); }, cme("+CME ERROR: 3"), "AT^CGDNS config error=3\n"},
        {[&] { return AT_dnsp(1, &p); }, result(AT_ERROR), "[AT_dnsp]AT^DNSP config error=5\n"},
        {[&] { return AT_dnss(1, &p); }, result(AT_ERROR), "[AT_dnss]AT^DNSS config error=5\n"},
        {[&] { return AT_ipfilter(&f); }, result(AT_ERROR), "AT^IPLISTEN  run error!\n"},
        {[&] { return AT_HFEATURESTAT(1, &m); }, result(AT_ERROR), "AT^HFEATURESTAT query error!"},
    };
    {
        FakeAtServer ats;
        for (const auto& [call, reply, trace] : rows) {
            clear_traces();
            ats.reply(reply);
            EXPECT_EQ(call(), -1) << trace;
            EXPECT_EQ(count_trace(trace), 1u) << trace;
        }
        // With the server gone each returns the exchange's code with its own trace.
        ats.die();
        const std::vector<std::pair<std::function<int()>, const char*>> gone = {
            {[&] { return AT_ndisdup(1, 1, &p); }, "AT^NDISDUP run failed!\n"},
            {[&] { return AT_chdata(&ch); }, "AT^CHDATA run failed!\n"},
            {[&] { return AT_cgdcont(&c); }, "AT+CGDCONT run failed!\n"},
            {[&] { return AT_authdata(&a); }, "AT^AUTHDATA run failed!\n"},
            {[&] { return AT_getcgdcont(&c); }, "AT^CGDCONT? result parse failed!\n"},
            {[&] { return AT_getauthdata(&a); }, "AT^AUTHDATA? result parse failed!\n"},
            {[&] { return AT_Glasterr(&g); }, "AT^GLASTERR run failed!\n"},
            {[&] { return AT_dhcp(1, &d); }, "AT^DHCP result parse failed!\n"},
            {[&] { return AT_ipfilter(&f); }, "AT^IPLISTEN run failed!\n"},
            {[&] { return AT_HFEATURESTAT(1, &m); }, "AT^HFEATURESTAT result parse failed!"},
        };
        for (const auto& [call, trace] : gone) {
            clear_traces();
            EXPECT_EQ(call(), -1) << trace;
            EXPECT_EQ(count_trace(trace), 1u) << trace;
        }
    }
}

// Null records, refused command types and null list pointers never reach the AT server.
TEST(Data, RefusedBeforeSending) {
    ProfileResult p{};
    int total = kS;
    StCONNSTATNDIS marker{};
    StCONNSTATNDIS* list = &marker;
    const std::vector<std::tuple<const char*, std::function<int()>, int, const char*>> rows = {
        {"state", [] { return at_ndisstatqry_state(1, nullptr) + at_ppp_state(0, nullptr) + at_ndisstatqry_test(nullptr); }, -3, nullptr},
        {"list, no count", [&] { return AT_DCONNSTATLIST(0, nullptr, &list); }, -1, nullptr},
        {"list, no list", [&] { return AT_DCONNSTATLIST(0, &total, nullptr); }, -1, nullptr},
        {"list, type 1", [&] { return AT_DCONNSTATLIST(1, &total, &list); }, 0, nullptr},
        {"last error", [] { return AT_Glasterr(nullptr); }, -1, "no param, AT^CLASTERR cmd not execute!\n"},
        {"set commands", [] { return AT_chdata(nullptr) + AT_cgdcont(nullptr) + AT_authdata(nullptr); }, -3, nullptr},
        {"reads", [] { return AT_getcgdcont(nullptr) + AT_getauthdata(nullptr); }, -2, "Param is null!\n"},
        {"DHCP", [] { return AT_dhcp(1, nullptr) + at_ipv6_cap(nullptr) + AT_LteProfile_Test(nullptr); }, -3, nullptr},
        {"DHCPv6", [] { return AT_dhcpv6(1, nullptr); }, -1, "no param, AT^DHCPV6   cmd not execute!\n"},
        {"router advertisement", [] { return AT_aprainfo(1, nullptr); }, -1, "no param, AT^DHCP   cmd not execute!\n"},
        {"LAN address", [] { return AT_lan_addr(nullptr); }, -1, "no param, AT^APLANADDR   cmd not execute!\n"},
        {"CGDNS", [] { return AT_Cgdns(1, 1, nullptr); }, -1, "no param, AT^CGDNS   cmd not execute!\n"},
        {"DNSP", [] { return AT_dnsp(0, nullptr); }, -1, "[AT_dnsp]no param, AT^DNSP cmd not execute!\n"},
        {"DNSS", [] { return AT_dnss(1, nullptr); }, -1, "[AT_dnss]no param, AT^DNSS cmd not execute!\n"},
        {"DNS, type 2", [&] { return AT_Cgdns(2, 1, &p) + AT_dnsp(2, &p) + AT_dnss(-1, &p); }, -3, nullptr},
        {"filter", [] { return AT_ipfilter(nullptr); }, -1, "no param, at^ipfilter cmd not execute!\r\n"},
        {"feature", [] { return AT_HFEATURESTAT(1, nullptr); }, -1, "no param, AT^HFEATURESTAT   cmd not execute!"},
    };
    FakeAtServer ats;
    for (const auto& [what, call, rc, trace] : rows) {
        clear_traces();
        EXPECT_EQ(call(), rc) << what;
        EXPECT_EQ(ats.count(), 0u) << what;
        if (trace) { EXPECT_GE(count_trace(trace), 1u) << what; }
    }
    EXPECT_EQ(total, kS);
    EXPECT_EQ(list, &marker);
}

}  // namespace
