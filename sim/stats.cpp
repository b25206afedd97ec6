// stats.cpp - the simulated modem's data-flow counters (sim/scenarios/stats.scn).
//
// The counters live in scenario variables, so that --set can start them anywhere (above 2^32, say):
// flow_last_tx, flow_last_rx, flow_total_tx, flow_total_rx in bytes, flow_last_ms and
// flow_total_ms connected time. They grow while the data family's `conn` is 1, at flow_tx_rate and
// flow_rx_rate bytes per second, from the moment `conn_since` names (when it is missing, from the
// last time the counters were brought up to date: the scenario does that every second). A new
// connection starts the last-session counters again; ^DSFLOWCLR zeroes them all.
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <optional>
#include <string>

#include "scenario.h"

namespace sim {
namespace {

std::optional<uint64_t> read_u64(const std::string& s) {
    uint64_t v = 0;
    const auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
    return ec == std::errc() && p == s.data() + s.size() && !s.empty() ? std::optional(v) : std::nullopt;
}

uint64_t get(const Engine& e, const char* name) { return read_u64(e.var(name)).value_or(0); }
void put(Engine& e, const char* name, uint64_t v) { e.set_var(name, std::to_string(v)); }

// Adds `rate` bytes per second over `ms` to a counter, carrying the fraction of a byte over.
void grow(Engine& e, const char* counter, const char* total, const char* carry, uint64_t rate, uint64_t ms) {
    const uint64_t scaled = rate * ms + get(e, carry);
    put(e, counter, get(e, counter) + scaled / 1000);
    put(e, total, get(e, total) + scaled / 1000);
    put(e, carry, scaled % 1000);
}

// Brings the counters up to now.
void advance(Engine& e) {
    const auto now = static_cast<uint64_t>(e.now_ms());
    const bool connected = e.var("conn") == "1";
    const std::string since = e.var("conn_since");
    if (connected) {
        uint64_t start = get(e, "flow_mark");
        if (e.var("flow_seen") != "1" || since != e.var("flow_seen_since")) {
            // A new connection: the last session's counters start again.
            for (const char* v : {"flow_last_tx", "flow_last_rx", "flow_last_ms"}) put(e, v, 0);
            if (const auto at = read_u64(since); at && *at <= now) start = *at;
        }
        const uint64_t ms = now > start ? now - start : 0;
        grow(e, "flow_last_tx", "flow_total_tx", "flow_carry_tx", get(e, "flow_tx_rate"), ms);
        grow(e, "flow_last_rx", "flow_total_rx", "flow_carry_rx", get(e, "flow_rx_rate"), ms);
        put(e, "flow_last_ms", get(e, "flow_last_ms") + ms);
        put(e, "flow_total_ms", get(e, "flow_total_ms") + ms);
    }
    put(e, "flow_mark", now);
    e.set_var("flow_seen", connected ? "1" : "0");
    e.set_var("flow_seen_since", since);
}

// Whole seconds as the modem's eight hexadecimal digits, bytes as sixteen.
std::string hex_fields(std::initializer_list<std::pair<uint64_t, int>> values) {
    std::string out;
    char buf[24];
    for (const auto& [v, width] : values) {
        std::snprintf(buf, sizeof buf, "%0*" PRIX64, width, v);
        out += (out.empty() ? "" : ",") + std::string(buf);
    }
    return out;
}

}  // namespace

// The values of a ^DSFLOWQRY line: last and total duration and bytes.
SIM_FUNCTION(dsflow) {
    Engine& e = call.engine;
    advance(e);
    return hex_fields({{get(e, "flow_last_ms") / 1000 & 0xFFFFFFFFu, 8}, {get(e, "flow_last_tx"), 16},
                       {get(e, "flow_last_rx"), 16}, {get(e, "flow_total_ms") / 1000 & 0xFFFFFFFFu, 8},
                       {get(e, "flow_total_tx"), 16}, {get(e, "flow_total_rx"), 16}});
}

// The values of a ^DSFLOWRPT report: the session's duration, current rates, session bytes, and the
// rates the network grants (the configured ones).
SIM_FUNCTION(dsflow_report) {
    Engine& e = call.engine;
    advance(e);
    const bool connected = e.var("conn") == "1";
    const uint64_t tx = get(e, "flow_tx_rate"), rx = get(e, "flow_rx_rate");
    return hex_fields({{get(e, "flow_last_ms") / 1000 & 0xFFFFFFFFu, 8}, {connected ? tx : 0, 8},
                       {connected ? rx : 0, 8}, {get(e, "flow_last_tx"), 16}, {get(e, "flow_last_rx"), 16},
                       {tx, 8}, {rx, 8}});
}

// Brings the counters up to date (the scenario's clock tick).
SIM_FUNCTION(dsflow_tick) {
    advance(call.engine);
    return {};
}

// ^DSFLOWCLR: every counter back to zero; a running connection goes on counting from now.
SIM_FUNCTION(dsflow_clear) {
    Engine& e = call.engine;
    advance(e);
    for (const char* v : {"flow_last_tx", "flow_last_rx", "flow_last_ms", "flow_total_tx", "flow_total_rx",
                          "flow_total_ms", "flow_carry_tx", "flow_carry_rx"})
        put(e, v, 0);
    return {};
}

}  // namespace sim
