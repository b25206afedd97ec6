// stats.cpp - `atctl stats`: the modem's data-flow counters. Bytes sent and received and the
// connection time of the last session and of all sessions, the current rates, and clearing them.
//
// The library reads no rate from the modem: atctl derives the current rates from two readings
// --interval ms apart. Byte counters are 64-bit and JSON numbers here are `long` (32 bits on the
// router), so --json gives them as exact decimal texts.
#include <chrono>
#include <climits>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <thread>

#include "cli.h"

namespace atctl {
namespace {

// A count in tenths as text: 15 -> "1.5".
std::string tenths(uint64_t v) { return std::to_string(v / 10) + "." + std::to_string(v % 10); }

// `v` in the largest of `units` (each `step` times the one before) that leaves it at least 1.
std::string scaled(uint64_t v, uint64_t step, std::initializer_list<const char*> units) {
    auto name = units.begin();
    uint64_t unit = 1;
    for (; name + 1 != units.end() && v / unit >= step; ++name) unit *= step;
    return (unit == 1 ? std::to_string(v) : tenths(v / unit * 10 + v % unit * 10 / unit)) + " " + *name;
}

std::string bytes_text(uint64_t v) {
    const std::string raw = std::to_string(v) + " bytes";
    return v < 1024 ? raw : scaled(v, 1024, {"bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"}) + " (" + raw + ")";
}

// Bits per second in decimal units, as line rates are told.
std::string rate_text(uint64_t bytes_per_s) {
    const uint64_t bits = bytes_per_s > UINT64_MAX / 8 ? UINT64_MAX : bytes_per_s * 8;
    return scaled(bits, 1000, {"bit/s", "kbit/s", "Mbit/s", "Gbit/s", "Tbit/s"}) + " (" + std::to_string(bytes_per_s) +
           " bytes/s)";
}

std::string duration_text(uint32_t s) {
    const auto two = [](uint32_t v) { return (v < 10 ? "0" : "") + std::to_string(v); };
    if (s < 60) return std::to_string(s) + " s";
    const std::string tail = two(s % 60) + " s (" + std::to_string(s) + " s)";
    if (s < 3600) return std::to_string(s / 60) + " min " + tail;
    return std::to_string(s / 3600) + " h " + two(s / 60 % 60) + " min " + tail;
}

JsonValue seconds_json(uint32_t s) {
    return s <= static_cast<uint32_t>(LONG_MAX) ? JsonValue{static_cast<long>(s)} : JsonValue{nullptr};
}

// One reading of the counters, and when it came.
struct Reading {
    dataflow flow{};
    std::chrono::steady_clock::time_point at;
};

std::optional<Reading> read(Section& s) {
    Reading r;
    r.flow.AtExeResult = kUnset;
    const int rc = at_dataflow(&r.flow);
    r.at = std::chrono::steady_clock::now();
    if (!s.check(rc, r.flow.AtExeResult)) return std::nullopt;
    return r;
}

void show_counters(Section& s, const dataflow& f) {
    s.field("last session", duration_text(f.last_ds_time), true);
    s.field("  sent", bytes_text(f.last_tx_ds_counters), true).field("  received", bytes_text(f.last_rx_ds_counters), true);
    s.field("all sessions", duration_text(f.total_ds_time));
    s.field("  sent", bytes_text(f.total_tx_ds_counters)).field("  received", bytes_text(f.total_rx_ds_counters));
    s.json("last_duration_s", seconds_json(f.last_ds_time));
    s.json("last_tx_bytes", std::to_string(f.last_tx_ds_counters)).json("last_rx_bytes", std::to_string(f.last_rx_ds_counters));
    s.json("total_duration_s", seconds_json(f.total_ds_time));
    s.json("total_tx_bytes", std::to_string(f.total_tx_ds_counters)).json("total_rx_bytes", std::to_string(f.total_rx_ds_counters));
}

// Bytes per second between two readings of a counter; nothing when it went down (cleared).
std::optional<uint64_t> rate(uint64_t before, uint64_t after, long long ms) {
    if (after < before || ms <= 0) return std::nullopt;
    return (after - before) * 1000 / static_cast<uint64_t>(ms);
}

void show_rates(Section& s, const Reading& a, const Reading& b) {
    const long long ms = std::chrono::duration_cast<std::chrono::milliseconds>(b.at - a.at).count();
    const std::optional<uint64_t> up = rate(a.flow.total_tx_ds_counters, b.flow.total_tx_ds_counters, ms);
    const std::optional<uint64_t> down = rate(a.flow.total_rx_ds_counters, b.flow.total_rx_ds_counters, ms);
    const auto json = [](std::optional<uint64_t> v) {
        return v && *v <= static_cast<uint64_t>(LONG_MAX) ? JsonValue{static_cast<long>(*v)} : JsonValue{nullptr};
    };
    s.field("up", up ? rate_text(*up) : "unknown (the counters went back)", true);
    s.field("down", down ? rate_text(*down) : "unknown (the counters went back)", true);
    s.field("measured over", std::to_string(ms) + " ms");
    s.json("tx_bytes_per_s", json(up)).json("rx_bytes_per_s", json(down)).json("interval_ms", static_cast<long>(ms));
}

void show(const Invocation& inv, Report& report) {
    long interval_ms = 1000;
    if (const std::optional<std::string> text = inv.option("--interval")) {
        const std::optional<long> v = number(*text);
        if (!v || *v < 0 || *v > 60000) throw UsageError("--interval needs milliseconds from 0 to 60000");
        interval_ms = *v;
    }
    Section& counters = report.section("dataflow", "data-flow counters (at_dataflow, ^DSFLOWQRY)", "dataflow");
    if (counters.skipped()) return;
    const std::optional<Reading> a = read(counters);
    if (!a) return;
    show_counters(counters, a->flow);
    if (interval_ms == 0) return;
    progress("measuring the rates over " + std::to_string(interval_ms) + " ms...");
    std::this_thread::sleep_for(std::chrono::milliseconds(interval_ms));
    Section& s = report.section("rate", "current rates (a second reading of at_dataflow)", "rate");
    if (s.skipped()) return;
    if (const std::optional<Reading> b = read(s)) show_rates(s, *a, *b);
}

void clear(Report& report) {
    Section& s = report.section("dsflowclr", "clear the counters (^DSFLOWCLR)", "clear");
    if (s.skipped()) return;
    DsflowclrRsp rsp{kUnset};
    const int rc = AT_Dsflowclr(&rsp);
    if (s.check(rc, rsp.AtExeResult)) s.field("counters", "cleared", true).json("cleared", true);
}

}  // namespace

void run_stats(const Invocation& inv, Report& report) {
    const std::string action = inv.arg(0);
    if (action == "clear") {
        if (inv.has("--interval")) throw UsageError("--interval belongs to reading the counters");
        clear(report);
    } else if (action.empty()) {
        show(inv, report);
    } else {
        throw UsageError("'stats' takes no argument or 'clear', not '" + action + "'");
    }
}

ATCTL_SUBCOMMAND({.name = "stats",
                  .summary = "data-flow counters: bytes up and down, rates, connection time; clear",
                  .usage = "[clear] [--interval MS]",
                  .help = "  (none)        the counters of the last session and of all sessions\n"
                          "                (at_dataflow: ^DSFLOWQRY of context 1, or the bare form), and\n"
                          "                the current rates up and down, derived from two readings\n"
                          "                --interval MS apart (default 1000; 0 reads once, no rates)\n"
                          "  clear         zero the counters (AT_Dsflowclr); acts on the modem\n"
                          "--json gives the byte counters as exact decimal texts (64-bit), durations in\n"
                          "seconds and rates in bytes per second as numbers.\n",
                  .order = 61,
                  .options = "--interval MS",
                  .max_args = 1,
                  .run = run_stats});

}  // namespace atctl
