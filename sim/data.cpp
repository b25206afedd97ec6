// data.cpp - the simulated modem's data bearers: per context and IP type, a dial that passes through
// connecting to connected (or fails with a cause that ^GLASTERR reports), a hang-up back to
// disconnected, the unsolicited ^NDISSTAT and ^APCONNST reports, and the addresses the network
// assigned. sim/scenarios/data.scn holds the rules that call these functions and the settings of
// the simulated network (which APNs it opens, the credentials it wants, how long a dial takes).
//
// State lives in scenario variables, so other families' rules can read it: "ndis_v4_<cid>" and
// "ndis_v6_<cid>" hold the NDIS state (0 disconnected, 1 connected, 2 connecting, 3
// disconnecting), and "conn" is 1 exactly while the IPv4 bearer of context 1 is connected, with
// "conn_since" the moment it came up. A rule elsewhere that sets conn to 0 (a detach, a reset)
// takes every bearer down with it.
#include <array>
#include <charconv>
#include <cstdio>
#include <optional>
#include <string>

#include "scenario.h"

namespace sim {
namespace {

constexpr long kFirstCid = 1, kLastCid = 8;
enum State { kDisconnected = 0, kConnected = 1, kConnecting = 2, kDisconnecting = 3 };

// 3GPP session management causes the simulated network gives.
constexpr int kUnknownApn = 27;
constexpr int kAuthenticationFailed = 29;

long number(const std::string& s, long fallback = 0) {
    long v = 0;
    const auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
    return ec == std::errc() && p == s.data() + s.size() && !s.empty() ? v : fallback;
}

std::string arg(const Call& c, size_t i) { return i < c.args.size() ? c.args[i] : std::string{}; }

// A store field of context `cid`, or empty.
std::string context_field(const Engine& e, const char* store, long cid, const char* field) {
    const auto* slots = e.slots(store);
    if (!slots) return {};
    const auto slot = slots->find(cid);
    if (slot == slots->end()) return {};
    const auto f = slot->second.find(field);
    return f == slot->second.end() ? std::string{} : f->second;
}

bool has_v4(const std::string& type) { return type != "IPV6" && type != "ipv6"; }
bool has_v6(const std::string& type) { return type == "IPV6" || type == "IPV4V6" || type == "ipv6" || type == "ipv4v6"; }

// One context's bearers, as scenario variables.
class Bearer {
public:
    Bearer(Engine& e, long cid) : e_(e), cid_(cid) {}
    long cid() const { return cid_; }
    int state(bool v6) const { return static_cast<int>(number(get(v6 ? "v6" : "v4"))); }
    void set_state(bool v6, int s) { set(v6 ? "v6" : "v4", std::to_string(s)); }
    bool idle() const { return state(false) == kDisconnected && state(true) == kDisconnected; }
    std::string get(const char* what) const { return e_.var(name(what)); }
    void set(const char* what, const std::string& value) { e_.set_var(name(what), value); }
    long gen() const { return number(get("gen")); }
    // A new generation: events scheduled for an earlier one are stale.
    long next_gen() {
        set("gen", std::to_string(gen() + 1));
        return gen();
    }
    // The states of the IP types this bearer carries go from `from` to `to`; true if one did.
    bool move(int from, int to) {
        bool moved = false;
        for (bool v6 : {false, true})
            if (state(v6) == from) {
                set_state(v6, to);
                moved = true;
            }
        return moved;
    }

private:
    std::string name(const char* what) const { return "ndis_" + std::string(what) + "_" + std::to_string(cid_); }
    Engine& e_;
    long cid_;
};

// The access point's state in the coding of ^APCONNST: 1 connected, 0 connecting, 2 disconnected.
std::string apconnst(const Bearer& b) {
    auto code = [&](bool v6) {
        const int s = b.state(v6);
        return s == kConnected ? "1" : s == kConnecting ? "0" : "2";
    };
    return std::string("^APCONNST: ") + code(false) + ",\"IPV4\"," + code(true) + ",\"IPV6\"";
}

// The ^NDISSTAT report lines of the types the bearer was dialled for, and for context 1 the
// access point's report.
void report(Call& call, const Bearer& b, int state, const std::string& cause) {
    if (!call.response) return;
    const std::string types = b.get("types");
    for (bool v6 : {false, true}) {
        if (v6 ? !has_v6(types) : !has_v4(types)) continue;
        call.response->lines.push_back("^NDISSTAT: " + std::to_string(state) + "," + cause + ",,\"" +
                                       (v6 ? "IPV6" : "IPV4") + "\"");
    }
    if (b.cid() == 1) call.response->lines.push_back(apconnst(b));
}

// No bearer without the radio on and a registration.
bool radio_off(const Engine& e) {
    const std::string cfun = e.var("cfun");
    return e.var("reg") == "0" || (!cfun.empty() && cfun != "1");
}

// Keeps `conn` and the bearers in step: context 1's IPv4 bearer sets conn; a rule of another family
// that cleared conn, detached or switched the radio off has taken every bearer down.
void sync(Engine& e) {
    const bool conn_cleared = e.var("ndis_conn_set") == "1" && e.var("conn") != "1";
    if (!conn_cleared && !radio_off(e) && e.var("attached") != "0") return;
    for (long cid = kFirstCid; cid <= kLastCid; ++cid) {
        Bearer b(e, cid);
        if (b.idle()) continue;
        b.set_state(false, kDisconnected);
        b.set_state(true, kDisconnected);
        b.next_gen();
    }
    e.set_var("ndis_conn_set", "0");
    e.set_var("conn", "0");
}

void set_conn(Engine& e, bool up) {
    e.set_var("conn", up ? "1" : "0");
    e.set_var("ndis_conn_set", up ? "1" : "0");
    if (up) e.set_var("conn_since", std::to_string(e.now_ms()));
}

// A context number the rule took, or an error answer.
bool valid_cid(Call& call, long cid) {
    if (cid >= kFirstCid && cid <= kLastCid) return true;
    if (call.response) call.response->final = "+CME ERROR: 50";
    return false;
}

// The cause the simulated network gives a dial, 0 when it opens the bearer.
int admission(const Engine& e, const std::string& apn, const std::string& user, const std::string& password,
              const std::string& auth) {
    if (!apn.empty() && apn == e.var("net_apn")) return 0;
    if (apn.empty() || apn != e.var("net_auth_apn")) return kUnknownApn;
    const bool authenticates = auth == "1" || auth == "2" || auth == "3";
    return authenticates && user == e.var("net_user") && password == e.var("net_password") ? 0 : kAuthenticationFailed;
}

}  // namespace

// ndis_dial CID ACTION [APN USER PASSWORD AUTH ADDRESS]: ^NDISDUP. Without the profile part the
// context's own APN (+CGDCONT) and credentials (^AUTHDATA) are used; an empty APN means the
// context's too. The OK goes out at once; the bearer's outcome follows as an event.
SIM_FUNCTION(ndis_dial) {
    const long cid = number(arg(call, 0), -1), action = number(arg(call, 1), -1);
    if (!valid_cid(call, cid) || !call.response) return {};
    if (action != 0 && action != 1) {
        call.response->final = "+CME ERROR: 50";
        return {};
    }
    Engine& e = call.engine;
    sync(e);
    Bearer b(e, cid);
    if (action == 1 && radio_off(e)) {
        call.response->final = "+CME ERROR: 30";
        return {};
    }
    // A dial attaches to the packet domain when the modem is detached.
    if (action == 1 && e.var("attached") == "0") e.set_var("attached", "1");
    if (action == 0) {
        const bool was_up = b.move(kConnected, kDisconnecting);
        const bool was_dialling = b.move(kConnecting, kDisconnecting);
        if (was_up || was_dialling)
            call.response->after.emplace_back(200, "@ndis_down " + std::to_string(cid) + " " + std::to_string(b.next_gen()));
        return {};
    }
    if (!b.idle()) return {};  // already up, or on its way
    const bool profile = call.args.size() > 2;
    std::string apn = arg(call, 2);
    if (apn.empty()) apn = context_field(e, "pdp", cid, "apn");
    std::string type = context_field(e, "pdp", cid, "type");
    if (type.empty()) type = "IP";
    const std::string user = profile ? arg(call, 3) : context_field(e, "pdpauth", cid, "user");
    const std::string password = profile ? arg(call, 4) : context_field(e, "pdpauth", cid, "pass");
    const std::string auth = profile ? arg(call, 5) : context_field(e, "pdpauth", cid, "auth");
    const int cause = admission(e, apn, user, password, auth);

    b.set("types", type);
    b.set("apn", apn);
    b.set("addr", profile ? arg(call, 6) : std::string{});
    if (has_v4(type)) b.set_state(false, kConnecting);
    if (has_v6(type)) b.set_state(true, kConnecting);
    const std::string event = (cause ? "@ndis_fail " : "@ndis_up ") + std::to_string(cid) + " " + std::to_string(b.next_gen());
    call.response->after.emplace_back(static_cast<int>(number(e.var("ndis_dial_ms"), 800)),
                                      cause ? event + " " + std::to_string(cause) : event);
    return {};
}

// Events: the network's answer to a dial, and the end of a hang-up. Each does nothing when a later
// dial or hang-up of the context has overtaken it.
SIM_FUNCTION(ndis_up) {
    Engine& e = call.engine;
    Bearer b(e, number(arg(call, 0)));
    if (b.gen() != number(arg(call, 1), -1) || !b.move(kConnecting, kConnected)) return {};
    b.set("err", "");
    e.set_var("ndis_lasterr", "0");
    if (b.cid() == 1 && b.state(false) == kConnected) set_conn(e, true);
    report(call, b, kConnected, "");
    return {};
}

SIM_FUNCTION(ndis_fail) {
    Engine& e = call.engine;
    Bearer b(e, number(arg(call, 0)));
    if (b.gen() != number(arg(call, 1), -1) || !b.move(kConnecting, kDisconnected)) return {};
    b.set("err", arg(call, 2));
    e.set_var("ndis_lasterr", arg(call, 2));
    report(call, b, kDisconnected, arg(call, 2));
    return {};
}

SIM_FUNCTION(ndis_down) {
    Engine& e = call.engine;
    Bearer b(e, number(arg(call, 0)));
    if (b.gen() != number(arg(call, 1), -1) || !b.move(kDisconnecting, kDisconnected)) return {};
    if (b.cid() == 1) set_conn(e, false);
    report(call, b, kDisconnected, "");
    return {};
}

// ndis_state CID: the ^NDISSTATQRY line, IPv4 then IPv6, with the failed dial's cause.
SIM_FUNCTION(ndis_state) {
    const long cid = number(arg(call, 0), -1);
    if (!valid_cid(call, cid) || !call.response) return {};
    sync(call.engine);
    const Bearer b(call.engine, cid);
    const std::string err = b.get("err"), types = b.get("types");
    auto part = [&](bool v6) {
        const int s = b.state(v6);
        const bool dialled = v6 ? has_v6(types) : has_v4(types);
        return std::to_string(s) + "," + (s == kDisconnected && dialled ? err : "") + ",,\"" + (v6 ? "IPV6" : "IPV4") + "\"";
    };
    call.response->lines.push_back("^NDISSTATQRY: " + part(false) + "," + part(true));
    return {};
}

// ndis_apconnst CID: the access point's state, ^APCONNST.
SIM_FUNCTION(ndis_apconnst) {
    const long cid = number(arg(call, 0), -1);
    if (!valid_cid(call, cid) || !call.response) return {};
    sync(call.engine);
    call.response->lines.push_back(apconnst(Bearer(call.engine, cid)));
    return {};
}

// ndis_list: a ^DCONNSTAT line for each defined or dialled context.
SIM_FUNCTION(ndis_list) {
    if (!call.response) return {};
    Engine& e = call.engine;
    sync(e);
    const auto* contexts = e.slots("pdp");
    for (long cid = kFirstCid; cid <= kLastCid; ++cid) {
        const Bearer b(e, cid);
        const bool defined = contexts && contexts->count(cid);
        if (!defined && b.idle()) continue;
        const std::string apn = b.idle() ? context_field(e, "pdp", cid, "apn") : b.get("apn");
        call.response->lines.push_back("^DCONNSTAT: " + std::to_string(cid) + ",\"" + apn + "\"," +
                                       std::to_string(b.state(false)) + "," + std::to_string(b.state(true)) + "," +
                                       (b.idle() ? "0" : "1"));
    }
    return {};
}

namespace {

using Ipv4 = std::array<int, 4>;

std::optional<Ipv4> dotted(const std::string& text) {
    Ipv4 a{};
    char tail = 0;
    if (std::sscanf(text.c_str(), "%d.%d.%d.%d%c", &a[0], &a[1], &a[2], &a[3], &tail) != 4) return std::nullopt;
    for (int v : a)
        if (v < 0 || v > 255) return std::nullopt;
    return a;
}

// The modem's form of an IPv4 address: eight hexadecimal digits, last byte first.
std::string reversed_hex(const Ipv4& a) {
    char buf[9];
    std::snprintf(buf, sizeof buf, "%02X%02X%02X%02X", a[3], a[2], a[1], a[0]);
    return buf;
}

// A DNS server: the context's own (^CGDNS), else the modem-wide override, else the network's.
Ipv4 dns(const Engine& e, long cid, const char* field, const char* override_var, const char* network_var) {
    for (const std::string& candidate : {context_field(e, "pdpdns", cid, field), e.var(override_var), e.var(network_var)})
        if (auto a = dotted(candidate); a && *a != Ipv4{}) return *a;
    return Ipv4{};
}

// The bearer of `cid` and IP type, when it is connected; else the answer is an error.
std::optional<Bearer> connected(Call& call, long cid, bool v6) {
    if (!valid_cid(call, cid) || !call.response) return std::nullopt;
    sync(call.engine);
    Bearer b(call.engine, cid);
    if (b.state(v6) == kConnected) return b;
    call.response->final = "ERROR";
    return std::nullopt;
}

// Per dial a new address, so that a redial is seen to be one.
std::string v6_prefix(const Bearer& b) { return "2001:db8:" + std::to_string(b.cid()) + ":" + std::to_string(b.gen()) + "::"; }
constexpr char kRates[] = "150000000,50000000";

}  // namespace

// ndis_dhcp CID: ^DHCP of a connected IPv4 bearer, a /30 of the simulated network (or the static
// address the dial asked for).
SIM_FUNCTION(ndis_dhcp) {
    const long cid = number(arg(call, 0), -1);
    const std::optional<Bearer> b = connected(call, cid, false);
    if (!b) return {};
    const Engine& e = call.engine;
    const int host = static_cast<int>(2 + 4 * (b->gen() % 60));
    Ipv4 ip{10, 64, static_cast<int>(cid), host};
    Ipv4 gateway{10, 64, static_cast<int>(cid), host - 1};
    if (const auto fixed = dotted(b->get("addr"))) {
        ip = *fixed;
        gateway = {ip[0], ip[1], ip[2], 1};
    }
    const Ipv4 mask{255, 255, 255, 252};
    call.response->lines.push_back("^DHCP: " + reversed_hex(ip) + "," + reversed_hex(mask) + "," + reversed_hex(gateway) +
                                   "," + reversed_hex(gateway) + "," +
                                   reversed_hex(dns(e, cid, "pri", "ndis_dnsp", "net_dns1")) + "," +
                                   reversed_hex(dns(e, cid, "sec", "ndis_dnss", "net_dns2")) + "," + kRates);
    return {};
}

// ndis_dhcpv6 CID, ndis_rainfo CID: the IPv6 addresses and the router advertisement of a
// connected IPv6 bearer.
SIM_FUNCTION(ndis_dhcpv6) {
    const std::optional<Bearer> b = connected(call, number(arg(call, 0), -1), true);
    if (!b) return {};
    call.response->lines.push_back("^DHCPV6: " + v6_prefix(*b) + "2,ffff:ffff:ffff:ffff::,fe80::1,fe80::1," +
                                   call.engine.var("net_dns6_1") + "," + call.engine.var("net_dns6_2") + "," + kRates);
    return {};
}

SIM_FUNCTION(ndis_rainfo) {
    const std::optional<Bearer> b = connected(call, number(arg(call, 0), -1), true);
    if (!b) return {};
    call.response->lines.push_back("^APRAINFO: 1500,\"" + v6_prefix(*b) + "\",3600,7200");
    return {};
}

// ndis_lanaddr: the LAN side of context 1's IPv6 prefix.
SIM_FUNCTION(ndis_lanaddr) {
    const std::optional<Bearer> b = connected(call, 1, true);
    if (!b) return {};
    call.response->lines.push_back("^APLANADDR: \"" + v6_prefix(*b) + "1\",64");
    return {};
}

}  // namespace sim
