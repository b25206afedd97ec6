// data.cpp - `atctl data`: the data connection. `status` shows each context's bearers with their
// addresses and DNS servers, `contexts` what the modem holds, `connect` defines a context, dials it
// and waits for the bearer, `disconnect` hangs it up.
//
// The dial's OK only says the modem took the command, so `connect` watches the context's state
// until the bearer is up, has failed (then the modem's last error is shown in words) or the time
// limit has passed (then the half-made dial is hung up).
#include <string.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <string>
#include <span>
#include <string_view>
#include <thread>
#include <vector>

#include "cli.h"

namespace atctl {
namespace {

using Clock = std::chrono::steady_clock;

constexpr long kMaxCid = 16;
constexpr auto kPoll = std::chrono::milliseconds(300);
// A real modem may show a context disconnected for a moment after taking the dial.
constexpr auto kSettle = std::chrono::seconds(2);

struct Code {
    long code;
    std::string_view text;
};

constexpr std::array kNdisStates{
    Code{AT_NDIS_STATUS_DISCONNECTED,  "disconnected"},
    Code{AT_NDIS_STATUS_CONNECTED,     "connected"},
    Code{AT_NDIS_STATUS_CONNECTING,    "connecting"},
    Code{AT_NDIS_STATUS_DISCONNECTING, "disconnecting"},
};

// Session management causes (3GPP TS 24.008 and 24.301) a dial may end with.
constexpr std::array kCauses{
    Code{8,   "operator determined barring"},
    Code{26,  "insufficient resources"},
    Code{27,  "missing or unknown APN"},
    Code{28,  "unknown PDP address or PDP type"},
    Code{29,  "user authentication failed"},
    Code{30,  "activation rejected by the gateway"},
    Code{31,  "activation rejected, unspecified"},
    Code{32,  "service option not supported"},
    Code{33,  "requested service option not subscribed"},
    Code{34,  "service option temporarily out of order"},
    Code{35,  "NSAPI already used"},
    Code{36,  "regular deactivation"},
    Code{37,  "QoS not accepted"},
    Code{38,  "network failure"},
    Code{39,  "reactivation requested"},
    Code{50,  "PDP type IPv4 only allowed"},
    Code{51,  "PDP type IPv6 only allowed"},
    Code{52,  "single address bearers only allowed"},
    Code{55,  "multiple accesses to a PDN connection not allowed"},
    Code{65,  "maximum number of PDP contexts reached"},
    Code{66,  "requested APN not supported in current RAT and PLMN combination"},
    Code{111, "protocol error, unspecified"},
    Code{112, "APN restriction value incompatible with active PDP context"},
    Code{113, "multiple accesses to a PDN connection not allowed"},
};

std::optional<std::string_view> lookup(std::span<const Code> table, long code) {
    for (const Code& c : table)
        if (c.code == code) return c.text;
    return std::nullopt;
}

std::string state_text(long state) {
    const auto t = lookup(kNdisStates, state);
    return t ? std::string(*t) : "code " + std::to_string(state);
}

JsonValue state_json(long state) {
    const auto t = lookup(kNdisStates, state);
    return t ? JsonValue{std::string(*t)} : JsonValue{nullptr};
}

std::string cause_text(long cause) {
    const auto t = lookup(kCauses, cause);
    return (t ? std::string(*t) : "an error the network did not name") + " (cause " + std::to_string(cause) + ")";
}

std::string rate_text(unsigned long bps) {
    return bps % 1000000 == 0 ? std::to_string(bps / 1000000) + " Mbit/s" : std::to_string(bps) + " bit/s";
}

// ---- Options -----------------------------------------------------------------------------------

long cid_option(const Invocation& inv) {
    const std::optional<std::string> text = inv.option("--cid");
    if (!text) return 1;
    const std::optional<long> v = number(*text);
    if (!v || *v < 1 || *v > kMaxCid) throw UsageError("--cid needs a context number from 1 to 16");
    return *v;
}

std::chrono::seconds timeout_option(const Invocation& inv) {
    const std::optional<std::string> text = inv.option("--timeout");
    if (!text) return std::chrono::seconds(30);
    const std::optional<long> v = number(*text);
    if (!v || *v < 1 || *v > 600) throw UsageError("--timeout needs seconds from 1 to 600");
    return std::chrono::seconds(*v);
}

// A text the dial puts between double quotes: no quote, no control character, and it fits.
std::string_view quoted_text(std::string_view text, const char* what, size_t max) {
    for (unsigned char c : text)
        if (c == '"' || c < 0x20 || c == 0x7f)
            throw UsageError(std::string(what) + " may hold no double quote and no control character");
    if (text.size() > max) throw UsageError(std::string(what) + " is longer than " + std::to_string(max) + " characters");
    return text;
}

template <typename T>
T choice(const Invocation& inv, const char* option, std::initializer_list<std::pair<std::string_view, T>> choices,
         T fallback, const char* usage) {
    const std::optional<std::string> text = inv.option(option);
    if (!text) return fallback;
    for (const auto& [name, value] : choices)
        if (*text == name) return value;
    throw UsageError(std::string(option) + " needs " + usage);
}

// ---- Reading -----------------------------------------------------------------------------------

struct Context {
    long cid;
    std::string apn;
    long ipv4, ipv6;
};

std::vector<Context> read_contexts(Report& report) {
    std::vector<Context> out;
    Section& s = report.section("dconnstat", "data connections (^DCONNSTAT)", "data");
    if (s.skipped()) return out;
    int total = 0;
    StCONNSTATNDIS* list = nullptr;
    if (!s.check(AT_DCONNSTATLIST(0, &total, &list))) return out;
    s.json("count", static_cast<long>(total));
    for (int i = 0; i < total; ++i) {
        const StCONNSTATNDIS& c = list[i];
        out.push_back({c.cid, field_text(c.aucStr), c.ipv4_stat, c.ipv6_stat});
        const std::string n = std::to_string(c.cid);
        s.field("context " + n, (c.aucStr[0] ? field_text(c.aucStr) : "(no APN)") + ", IPv4 " + state_text(c.ipv4_stat) +
                                    ", IPv6 " + state_text(c.ipv6_stat), true);
        s.json("apn_" + n, field_text(c.aucStr)).json("ipv4_" + n, state_json(c.ipv4_stat));
        s.json("ipv6_" + n, state_json(c.ipv6_stat));
    }
    std::free(list);
    return out;
}

// The cause a failed dial left: the IPv4 line's, else that of the line after it.
long failure_cause(const AT_NDIS_STATUS_ST& st) { return st.ipv4Reserve != 0 ? st.ipv4Reserve : st.Reserve; }

// The state of one context; nothing when the call failed.
std::optional<AT_NDIS_STATUS_ST> read_state(Report& report, long cid) {
    const std::string n = std::to_string(cid);
    Section& s = report.section("ndisstatqry_" + n, "context " + n + " state (^NDISSTATQRY)", "data " + n);
    if (s.skipped()) return std::nullopt;
    AT_NDIS_STATUS_ST rec{};
    rec.AtExeResult = kUnset;
    const int rc = at_ndisstatqry_state(static_cast<int>(cid), &rec);
    if (!s.check(rc, rec.AtExeResult)) return std::nullopt;
    s.field("ipv4", state_text(rec.ipv4_status), true).field("ipv6", state_text(rec.ipv6_status), true);
    const long cause = failure_cause(rec);
    if (cause != 0) s.field("last cause", cause_text(cause), true);
    s.json("ipv4", state_json(rec.ipv4_status)).json("ipv6", state_json(rec.ipv6_status));
    s.json("ipv4_code", static_cast<long>(rec.ipv4_status)).json("ipv6_code", static_cast<long>(rec.ipv6_status));
    s.json("cause", cause);
    return rec;
}

// Address fields: the key with blanks for its label, and whether `status` shows it on one line.
struct Address {
    const char* key;
    const char* value;
    bool brief;
};

void address_fields(Section& s, std::initializer_list<Address> addresses) {
    for (const Address& a : addresses) {
        std::string label = a.key;
        std::replace(label.begin(), label.end(), '_', ' ');
        s.field(label, a.value, a.brief).json(a.key, std::string(a.value));
    }
}

void read_dhcp(Report& report, long cid) {
    const std::string n = std::to_string(cid);
    Section& s = report.section("dhcp_" + n, "context " + n + " IPv4 addresses (^DHCP)", "ipv4 " + n);
    if (s.skipped()) return;
    DhcpInfoRes rec{};
    rec.AtExeResult = kUnset;
    const int rc = AT_dhcp(static_cast<int>(cid), &rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    address_fields(s, {{"address", rec.IPAddr, true}, {"netmask", rec.NetMask, false}, {"gateway", rec.GateWay, false},
                       {"dhcp_server", rec.Dhcp, false}, {"dns1", rec.pDNS, true}, {"dns2", rec.sDNS, true}});
    s.field("rates", "down " + rate_text(rec.MAX_RX_DATA) + ", up " + rate_text(rec.MAX_TX_DATA));
    s.json("max_rx_bps", static_cast<long>(rec.MAX_RX_DATA)).json("max_tx_bps", static_cast<long>(rec.MAX_TX_DATA));
}

void read_dhcpv6(Report& report, long cid) {
    const std::string n = std::to_string(cid);
    Section& s = report.section("dhcpv6_" + n, "context " + n + " IPv6 addresses (^DHCPV6)", "ipv6 " + n);
    if (s.skipped()) return;
    Dhcpv6InfoRes rec{};
    rec.AtExeResult = kUnset;
    const int rc = AT_dhcpv6(static_cast<int>(cid), &rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    address_fields(s, {{"address", rec.clip_v6, true}, {"netmask", rec.netmask_v6, false},
                       {"gateway", rec.gate_v6, false}, {"dns1", rec.pDNS_v6, true}, {"dns2", rec.sDNS_v6, true}});
}

// State and, where a bearer is up, its addresses.
void read_context(Report& report, long cid) {
    const std::optional<AT_NDIS_STATUS_ST> st = read_state(report, cid);
    if (!st) return;
    if (st->ipv4_status == AT_NDIS_STATUS_CONNECTED) read_dhcp(report, cid);
    if (st->ipv6_status == AT_NDIS_STATUS_CONNECTED) read_dhcpv6(report, cid);
}

void run_status(Report& report) {
    for (const Context& c : read_contexts(report)) read_context(report, c.cid);
}

void run_contexts(Report& report) {
    read_contexts(report);
    Section& s = report.section("ndisstatqry_test", "contexts the modem can dial (^NDISSTATQRY=?)", "dialable");
    if (s.skipped()) return;
    CONNECT_CID_INFO rec{};
    rec.AtExeResult = kUnset;
    const int rc = at_ndisstatqry_test(&rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    std::string cids;
    for (int i = 0; i < rec.cid_num && i < 16; ++i) cids += (i ? "," : "") + field_text(rec.cid_value[i]);
    s.field("contexts", cids, true).json("contexts", cids);
}

// ---- Acting ------------------------------------------------------------------------------------

// The dial profile holds the password: wiped however the dial ends.
struct WipedProfile {
    ProfileResult p{};
    WipedProfile() = default;
    WipedProfile(const WipedProfile&) = delete;
    WipedProfile& operator=(const WipedProfile&) = delete;
    ~WipedProfile() { explicit_bzero(&p, sizeof p); }
};

template <size_t N>
void put_text(char (&dst)[N], std::string_view text) {
    const size_t n = std::min(text.size(), N - 1);
    text.copy(dst, n);
    dst[n] = '\0';
}

// The state of `cid` without a report section, for the waits.
std::optional<AT_NDIS_STATUS_ST> poll_state(long cid) {
    AT_NDIS_STATUS_ST rec{};
    rec.AtExeResult = kUnset;
    if (at_ndisstatqry_state(static_cast<int>(cid), &rec) != 0 || rec.AtExeResult != AT_CMD_RES_SUCCESS) return std::nullopt;
    return rec;
}

// The modem's last dial error in words, or a note that it has none.
std::string last_error() {
    StDialupResult rec{};
    rec.errorType = ERR_DIALUP_TYPE;
    rec.AtExeResult = kUnset;
    if (AT_Glasterr(&rec) != 0 || rec.AtExeResult != AT_CMD_RES_SUCCESS) return "the modem gave no last error";
    if (rec.errorCode == 0) return "the modem reports no error";
    return cause_text(rec.errorCode);
}

void run_connect(const Invocation& inv, Report& report) {
    const long cid = cid_option(inv);
    const std::chrono::seconds limit = timeout_option(inv);
    const std::optional<std::string> apn_option = inv.option("--apn");
    if (!apn_option || apn_option->empty()) throw UsageError("'data connect' needs --apn APN");
    const std::string apn(quoted_text(*apn_option, "the APN", 99));
    const std::string user(quoted_text(inv.option("--user").value_or(""), "the user name", 127));
    const char auth = choice<char>(inv, "--auth", {{"none", '0'}, {"pap", '1'}, {"chap", '2'}}, user.empty() ? '0' : '2',
                                   "none, pap or chap");
    const char* type = choice<const char*>(inv, "--ip", {{"ipv4", "IP"}, {"ipv6", "IPV6"}, {"ipv4v6", "IPV4V6"}}, "IPV4V6",
                                           "ipv4, ipv6 or ipv4v6");
    if (auth == '0' && inv.has("--password-file")) throw UsageError("--password-file needs --auth pap or chap");

    WipedProfile dial;
    dial.p.apn_is_static = 1;
    dial.p.auth_mode = static_cast<uint8_t>(auth);
    put_text(dial.p.apn_name, apn);
    put_text(dial.p.username, user);
    if (auth != '0') {
        Secret password(inv, "password", "--password-file");
        put_text(dial.p.password, quoted_text(password.c_str(), "the password", 127));
    }

    {
        Section& s = report.section("cgdcont", "context definition (+CGDCONT)", "context");
        PDP_CONT ctx{};
        ctx.cid = static_cast<int>(cid);
        put_text(ctx.pdp_type, type);
        put_text(ctx.apn_name, apn);
        ctx.AtExeResult = kUnset;
        const int rc = AT_cgdcont(&ctx);
        if (!s.check(rc, ctx.AtExeResult)) throw Failure("the modem refused context " + std::to_string(cid) + " for " + apn);
        s.field("context", std::to_string(cid) + ", " + type + ", " + apn).json("cid", cid).json("pdp_type", std::string(type));
        s.json("apn", apn);
    }
    {
        Section& s = report.section("ndisdup", "dial (^NDISDUP)", "dial");
        dial.p.AtExeResult = kUnset;
        const int rc = AT_ndisdup(static_cast<int>(cid), 1, &dial.p);
        if (!s.check(rc, dial.p.AtExeResult)) throw Failure("the modem refused the dial of context " + std::to_string(cid));
        s.field("dialled", "context " + std::to_string(cid) + (user.empty() ? "" : " as " + user)).json("cid", cid);
    }

    progress("waiting for the bearer of context " + std::to_string(cid) + " (up to " + std::to_string(limit.count()) + " s)");
    const bool v4 = std::string_view(type) != "IPV6", v6 = std::string_view(type) != "IP";
    const auto start = Clock::now();
    for (;;) {
        if (const std::optional<AT_NDIS_STATUS_ST> st = poll_state(cid)) {
            const int s4 = v4 ? st->ipv4_status : AT_NDIS_STATUS_DISCONNECTED;
            const int s6 = v6 ? st->ipv6_status : AT_NDIS_STATUS_DISCONNECTED;
            const bool pending = s4 == AT_NDIS_STATUS_CONNECTING || s6 == AT_NDIS_STATUS_CONNECTING;
            if (!pending && (s4 == AT_NDIS_STATUS_CONNECTED || s6 == AT_NDIS_STATUS_CONNECTED)) break;
            if (!pending && (failure_cause(*st) != 0 || Clock::now() - start >= kSettle))
                throw Failure("the bearer of context " + std::to_string(cid) + " did not come up: " + last_error());
        }
        if (Clock::now() - start >= limit) {
            AT_ndisdup(static_cast<int>(cid), 0, nullptr);
            throw Failure("no bearer on context " + std::to_string(cid) + " after " + std::to_string(limit.count()) +
                          " s; the dial is hung up (" + last_error() + ")");
        }
        std::this_thread::sleep_for(kPoll);
    }
    read_context(report, cid);
}

void run_disconnect(const Invocation& inv, Report& report) {
    const long cid = cid_option(inv);
    const std::chrono::seconds limit = timeout_option(inv);
    {
        Section& s = report.section("ndisdup", "hang-up (^NDISDUP)", "hang-up");
        if (!s.check(AT_ndisdup(static_cast<int>(cid), 0, nullptr))) throw Failure("the modem refused to hang up context " + std::to_string(cid));
        s.field("hung up", "context " + std::to_string(cid)).json("cid", cid);
    }
    progress("waiting for context " + std::to_string(cid) + " to disconnect");
    const auto start = Clock::now();
    for (;;) {
        const std::optional<AT_NDIS_STATUS_ST> st = poll_state(cid);
        if (st && st->ipv4_status == AT_NDIS_STATUS_DISCONNECTED && st->ipv6_status == AT_NDIS_STATUS_DISCONNECTED) break;
        if (Clock::now() - start >= limit)
            throw Failure("context " + std::to_string(cid) + " still not disconnected after " + std::to_string(limit.count()) + " s");
        std::this_thread::sleep_for(kPoll);
    }
    read_state(report, cid);
}

void run_data(const Invocation& inv, Report& report) {
    const std::string action = inv.args.empty() ? "status" : inv.arg(0);
    if (action == "status") run_status(report);
    else if (action == "contexts") run_contexts(report);
    else if (action == "connect") run_connect(inv, report);
    else if (action == "disconnect") run_disconnect(inv, report);
    else throw UsageError("'data' knows status, contexts, connect and disconnect, not '" + action + "'");
}

}  // namespace

ATCTL_SUBCOMMAND({.name = "data",
                  .summary = "the data connection: state, addresses, dial and hang-up",
                  .usage = "[status|contexts|connect|disconnect] [options]",
                  .help = "  status       each context's IPv4 and IPv6 state, and the addresses and DNS\n"
                          "               servers of the bearers that are up (the default)\n"
                          "  contexts     the contexts the modem holds and those it can dial\n"
                          "  connect      defines the context, dials it and waits for the bearer:\n"
                          "                 --apn APN          the access point (required)\n"
                          "                 --user U           user name; then --auth defaults to chap\n"
                          "                 --auth MODE        none (default without --user), pap or chap\n"
                          "                 --ip TYPE          ipv4, ipv6 or ipv4v6 (default)\n"
                          "                 --password-file F  the password; else read from standard input\n"
                          "                                    (not asked with --auth none)\n"
                          "               On failure the modem's last error is shown in words.\n"
                          "  disconnect   hangs the context up and waits until it is down\n"
                          "  --cid N      the context, 1 to 16 (default 1)\n"
                          "  --timeout S  how long connect and disconnect wait (default 30)\n",
                  .order = 50,
                  .options = "--cid N --apn APN --user U --auth MODE --ip TYPE --password-file FILE --timeout S",
                  .min_args = 0,
                  .max_args = 1,
                  .run = run_data});

}  // namespace atctl
