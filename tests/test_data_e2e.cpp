// The data connection end to end: the library against modemsim's built-in default through
// atserver, and `atctl data` dialling, reading and hanging up the simulated bearer.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>
#include <thread>

#include "e2e/harness.h"
#include "scenario.h"
#include "test_atctl.h"

namespace {

using namespace std::chrono_literals;
using atctl_test::CliRun;
using atctl_test::Json;

using e2e::eventually;

// Context `cid` as "ipv4/ipv6/IPv4 cause", or "" when the query failed.
std::string states(int cid) {
    AT_NDIS_STATUS_ST r{};
    if (at_ndisstatqry_state(cid, &r) != 0 || r.AtExeResult != AT_CMD_RES_SUCCESS) return "";
    return std::to_string(r.ipv4_status) + "/" + std::to_string(r.ipv6_status) + "/" + std::to_string(r.ipv4Reserve);
}

template <size_t N>
void put(char (&dst)[N], const char* text) {
    std::snprintf(dst, N, "%s", text);
}

// One stack for the library rows: each row uses contexts of its own.
class DataE2e : public testing::Test {
protected:
    static void SetUpTestSuite() {
        stack_ = new e2e::Stack;
        stack_->sim_options = {"--set", "ndis_dial_ms=100"};
        ASSERT_TRUE(stack_->start());
    }
    static void TearDownTestSuite() { delete stack_; }
    static e2e::Stack* stack_;
};
e2e::Stack* DataE2e::stack_ = nullptr;

TEST_F(DataE2e, DialStateAddressesHangUp) {
    ASSERT_EQ(AT_ndisdup(1, 1, nullptr), 0);
    EXPECT_TRUE(eventually([] { return states(1) == "1/1/0"; }));
    AT_PDP_STATUS_ST ppp{};  // answered from the modem's ^APCONNST report
    EXPECT_TRUE(eventually([&] { return at_ppp_state(1, &ppp) == 0 && ppp.ipv4_status == AT_PDP_STATUS_CONNECTED; }));
    int total = 0;
    StCONNSTATNDIS* list = nullptr;
    ASSERT_EQ(AT_DCONNSTATLIST(0, &total, &list), 0);
    ASSERT_GE(total, 1);
    EXPECT_EQ(std::to_string(list[0].cid) + list[0].aucStr + std::to_string(list[0].ipv4_stat), "1internet1");
    std::free(list);

    DhcpInfoRes v4{};
    Dhcpv6InfoRes v6{};
    RAINFO ra{};
    LANADDR lan{};
    ASSERT_EQ(AT_dhcp(1, &v4) + AT_dhcpv6(1, &v6) + AT_aprainfo(1, &ra) + AT_lan_addr(&lan), 0);
    EXPECT_EQ(std::string(v4.IPAddr).rfind("10.64.1.", 0), 0u) << v4.IPAddr;
    EXPECT_EQ(std::string(v4.pDNS) + " " + v4.sDNS + " " + v4.NetMask, "10.11.12.13 10.11.12.14 255.255.255.252");
    // The IPv6 address, the router's prefix and the LAN address belong to the one dial.
    EXPECT_EQ(std::string(v6.clip_v6), std::string(ra.prefix) + "2");
    EXPECT_EQ(std::string(lan.addr), std::string(ra.prefix) + "1");
    EXPECT_EQ(ra.ipv6_mtu, 1500);

    ASSERT_EQ(AT_ndisdup(1, 0, nullptr), 0);
    EXPECT_TRUE(eventually([] { return states(1) == "0/0/0"; }));
    EXPECT_EQ(AT_dhcp(1, &v4), -1);  // no bearer, no addresses
}

TEST_F(DataE2e, ContextCredentialsAndRefusedDials) {
    PDP_CONT ctx{2, "IP", "corp.example", {}};
    AUTH_DATA auth{2, 2, "", "example-pass", "router", {}};
    ASSERT_EQ(AT_cgdcont(&ctx) + AT_authdata(&auth), 0);
    AUTH_DATA read{};
    ASSERT_EQ(AT_getauthdata(&read), 0);
    EXPECT_EQ(std::to_string(read.cid) + read.username + read.passwd, "2routerexample-pass");
    // The context's own APN and credentials: an IPv4 bearer only.
    ASSERT_EQ(AT_ndisdup(2, 1, nullptr), 0);
    EXPECT_TRUE(eventually([] { return states(2) == "1/0/0"; }));
    ASSERT_EQ(AT_ndisdup(2, 0, nullptr), 0);

    // A dial the network refuses: OK at first, then the cause.
    ProfileResult p{};
    p.apn_is_static = 1;
    p.auth_mode = '0';
    put(p.apn_name, "nowhere");
    ASSERT_EQ(AT_ndisdup(3, 1, &p), 0);
    EXPECT_TRUE(eventually([] { return states(3) == "0/0/27"; }));
    StDialupResult last{ERR_DIALUP_TYPE, 0, {}};
    ASSERT_EQ(AT_Glasterr(&last), 0);
    EXPECT_EQ(last.errorCode, 27);
    put(p.apn_name, "corp.example");
    put(p.username, "router");
    put(p.password, "wrong");
    p.auth_mode = '1';
    ASSERT_EQ(AT_ndisdup(3, 1, &p), 0);
    EXPECT_TRUE(eventually([] { return states(3) == "0/0/29"; }));
    EXPECT_EQ(AT_ndisdup(9, 1, nullptr), -1);  // the modem has contexts 1 to 8
}

TEST_F(DataE2e, SettingsAndLimits) {
    CONNECT_CID_INFO cids{};
    PDP_CONT first{};
    IPV6_CAP cap{};
    MODEM_FEATURE_INFO feature{};
    StLteProfileTest limits{};
    CH_DATA channel{1, 0, {}};
    char tcp[] = "TCP";
    at_ipfilter_type filter{1, tcp, "192.168.8.1", 8080};
    ASSERT_EQ(at_ndisstatqry_test(&cids) + AT_getcgdcont(&first) + at_ipv6_cap(&cap) + AT_HFEATURESTAT(5, &feature) +
                  AT_LteProfile_Test(&limits) + AT_chdata(&channel) + AT_ipfilter(&filter),
              0);
    EXPECT_EQ(cids.cid_num, 8);
    EXPECT_EQ(std::to_string(first.cid) + first.pdp_type, "1IPV4V6");
    EXPECT_EQ(cap.ipv6_cfg, IPV4_ONLY | IPV6_ONLY | IPV4V6_SAME_APN);
    EXPECT_EQ(feature.feature_id * 10 + feature.value1, 51);
    EXPECT_EQ(limits.IndexRange[1] * 1000 + limits.MaxApnLen, 10099);

    ProfileResult dns{};
    put(dns.primary_dns, "1.1.1.1");
    put(dns.secondary_dns, "1.0.0.1");
    PDP_CONT ctx{4, "IPV6", "ims", {}};
    EXPECT_EQ(AT_Cgdns(1, 4, &dns), -1);  // no such context yet
    ASSERT_EQ(AT_cgdcont(&ctx) + AT_dnsp(1, &dns) + AT_dnss(1, &dns) + AT_Cgdns(1, 4, &dns), 0);
    ProfileResult modem_wide{}, context{};
    ASSERT_EQ(AT_dnsp(0, &modem_wide) + AT_dnss(0, &modem_wide) + AT_Cgdns(0, 4, &context), 0);
    EXPECT_EQ(std::string(modem_wide.primary_dns) + " " + modem_wide.secondary_dns, "1.1.1.1 1.0.0.1");
    EXPECT_EQ(std::string(context.primary_dns) + " " + context.secondary_dns, "1.1.1.1 1.0.0.1");
}

// Passwords on the dial and the authentication setting never show in verbose output.
TEST(DataSim, VerboseOutputMasksPasswords) {
    std::string error;
    const auto sc = sim::Scenario::builtin("default.scn", &error);
    ASSERT_TRUE(sc) << error;
    const sim::Engine e(*sc);
    EXPECT_EQ(e.masked(R"(AT^NDISDUP=1,1,"internet","router","s3cret",2)"), R"(AT^NDISDUP=1,1,"internet","router","***",2)");
    EXPECT_EQ(e.masked(R"(AT^NDISDUP=1,1,,"router","s3cret",1,"10.0.0.5")"), R"(AT^NDISDUP=1,1,,"router","***",1,"10.0.0.5")");
    EXPECT_EQ(e.masked(R"(AT^AUTHDATA=2,2,"00101","s3cret","router")"), R"(AT^AUTHDATA=2,2,"00101","***","router")");
}

// atctl as a child process, with `input` on its standard input.
CliRun atctl(const e2e::Stack& stack, const std::vector<std::string>& args, const std::string& input = "") {
    return atctl_test::run_atctl(args, stack.dir(), input);
}

TEST(DataAtctl, DialStatusHangUp) {
    e2e::Stack stack;
    stack.sim_options = {"--set", "ndis_dial_ms=100"};
    ASSERT_TRUE(stack.start());
    // args, standard input, exit status, what stderr holds, JSON members of the report
    const std::vector<std::tuple<std::vector<std::string>, std::string, int, std::string, std::vector<atctl_test::Field>>> rows = {
        {{"--json", "data", "connect", "--apn", "internet", "--ip", "ipv4"}, "", 0, "waiting for the bearer of context 1",
         {{"cgdcont", "pdp_type", "'IP'"}, {"ndisstatqry_1", "ipv4", "'connected'"}, {"ndisstatqry_1", "ipv6", "'disconnected'"},
          {"dhcp_1", "dns1", "'10.11.12.13'"}, {"dhcpv6_1", "ok", "missing"}}},
        {{"--json", "data"}, "", 0, "",
         {{"dconnstat", "apn_1", "'internet'"}, {"dconnstat", "ipv4_1", "'connected'"}, {"dhcp_1", "netmask", "'255.255.255.252'"}}},
        {{"--json", "data", "connect", "--cid", "2", "--apn", "corp.example", "--user", "router"}, "nope\n", 1,
         "did not come up: user authentication failed (cause 29)", {}},
        {{"--json", "data", "connect", "--cid", "2", "--apn", "corp.example", "--user", "router", "--ip", "ipv4v6"},
         "example-pass\n", 0, "", {{"ndisdup", "ok", "true"}, {"dhcpv6_2", "dns1", "'2001:db8::53'"}}},
        {{"data", "connect", "--cid", "3", "--apn", "nowhere"}, "", 1, "missing or unknown APN (cause 27)", {}},
        {{"--json", "data", "disconnect"}, "", 0, "", {{"ndisstatqry_1", "ipv4", "'disconnected'"}}},
        {{"--json", "data", "contexts"}, "", 0, "", {{"dconnstat", "apn_3", "'nowhere'"}, {"ndisstatqry_test", "contexts", "'1,2,3,4,5,6,7,8'"}}},
        {{"data", "connect"}, "", 2, "needs --apn", {}},
        {{"data", "connect", "--apn", "a\"b"}, "", 2, "no double quote", {}},
        {{"data", "connect", "--apn", "internet", "--password-file", "/dev/null"}, "", 2, "needs --auth pap or chap", {}},
        {{"data", "hang"}, "", 2, "not 'hang'", {}},
    };
    for (const auto& [args, input, exit, err, members] : rows) {
        std::string what;
        for (const std::string& a : args) what += a + " ";
        SCOPED_TRACE(what);
        const CliRun r = atctl(stack, args, input);
        EXPECT_EQ(r.exit, exit) << r.out << r.err;
        EXPECT_NE(r.err.find(err), std::string::npos) << r.err;
        EXPECT_EQ(r.err.find("example-pass"), std::string::npos);
        if (!members.empty()) atctl_test::expect_fields(atctl_test::parse_json(r.out).value_or(Json{}), members);
    }
    // The people's view of a connected context.
    const CliRun text = atctl(stack, {"data"});
    atctl_test::expect_lines(text, {"  context 2  corp.example, IPv4 connected, IPv6 connected", "  address      10.64.2.*"});
}

}  // namespace
