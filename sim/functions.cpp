// functions.cpp - the general functions scenario rules call as ${=NAME args}: arithmetic, values
// that change with time, and text conversions. Families of commands add their own functions in
// files of their own beside this one.
#include <charconv>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>

#include "scenario.h"

namespace sim {
namespace {

long long arg(const Call& c, size_t i, long long fallback = 0) {
    if (i >= c.args.size()) return fallback;
    long long v = 0;
    const std::string& s = c.args[i];
    const auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
    return ec == std::errc() && p == s.data() + s.size() ? v : fallback;
}

std::string str(long long v) { return std::to_string(v); }

}  // namespace

// Integer arithmetic over all arguments: add 1 2 3 -> 6.
SIM_FUNCTION(add) {
    long long v = 0;
    for (size_t i = 0; i < call.args.size(); ++i) v += arg(call, i);
    return str(v);
}
SIM_FUNCTION(sub) { return str(arg(call, 0) - arg(call, 1)); }
SIM_FUNCTION(mul) { return str(arg(call, 0) * arg(call, 1)); }
SIM_FUNCTION(div) { return arg(call, 1) == 0 ? "0" : str(arg(call, 0) / arg(call, 1)); }
SIM_FUNCTION(mod) { return arg(call, 1) == 0 ? "0" : str(arg(call, 0) % arg(call, 1)); }
SIM_FUNCTION(min) { return str(std::min(arg(call, 0), arg(call, 1))); }
SIM_FUNCTION(max) { return str(std::max(arg(call, 0), arg(call, 1))); }

// A whole number from LO to HI, drawn anew each time.
SIM_FUNCTION(rand) {
    static std::mt19937 gen{std::random_device{}()};
    const long long lo = arg(call, 0), hi = std::max(lo, arg(call, 1, lo));
    return str(std::uniform_int_distribution<long long>(lo, hi)(gen));
}

// A value that swings smoothly between LO and HI once every PERIOD milliseconds, as a
// temperature or a battery level drifts: wave LO HI PERIOD.
SIM_FUNCTION(wave) {
    const double lo = static_cast<double>(arg(call, 0)), hi = static_cast<double>(arg(call, 1));
    const double period = static_cast<double>(std::max(1LL, arg(call, 2, 60000)));
    const double phase = static_cast<double>(call.engine.now_ms()) / period * 2 * M_PI;
    return str(std::llround(lo + (hi - lo) * (0.5 - 0.5 * std::cos(phase))));
}

// Milliseconds since the simulator started.
SIM_FUNCTION(now) { return str(call.engine.now_ms()); }

// A number as upper-case hexadecimal, zero-padded to WIDTH digits: hex 255 4 -> 00FF.
SIM_FUNCTION(hex) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%0*llX", static_cast<int>(std::clamp(arg(call, 1, 1), 1LL, 16LL)),
                  static_cast<unsigned long long>(arg(call, 0)));
    return buf;
}

// The rule's message body as hexadecimal bytes, and its length in bytes: a raw body (a UCS-2
// text with NUL bytes) shown so that a reply line can carry it.
SIM_FUNCTION(bodyhex) {
    std::string out;
    char buf[3];
    for (unsigned char c : call.body) {
        std::snprintf(buf, sizeof buf, "%02X", c);
        out += buf;
    }
    return out;
}
SIM_FUNCTION(bodylen) { return str(static_cast<long long>(call.body.size())); }

// Characters in the arguments joined by blanks.
SIM_FUNCTION(len) {
    size_t n = 0;
    for (size_t i = 0; i < call.args.size(); ++i) n += call.args[i].size() + (i ? 1 : 0);
    return str(static_cast<long long>(n));
}

}  // namespace sim
