// device.cpp - functions of the device and power scenarios: readings shown with one decimal, and
// the SIM's answer to an authentication challenge.
#include <cstdint>
#include <cstdio>
#include <string>

#include "scenario.h"

namespace sim {
namespace {

long long whole(const Call& c, size_t i) {
    if (i >= c.args.size()) return 0;
    try {
        return std::stoll(c.args[i]);
    } catch (...) {
        return 0;
    }
}

}  // namespace

// A reading kept in tenths shown as a decimal fraction: tenths 345 -> 34.5, tenths -5 -> -0.5.
SIM_FUNCTION(tenths) {
    const long long v = whole(call, 0);
    const long long a = v < 0 ? -v : v;
    return (v < 0 ? "-" : "") + std::to_string(a / 10) + "." + std::to_string(a % 10);
}

// The SIM's answer to a challenge: authvec KIND RAND gives the hexadecimal RES (8 bytes), CK or IK
// (16 bytes each) that this fictional SIM derives from RAND. Not a real algorithm: the same RAND
// always gives the same answer and different kinds differ, which is all a test can tell.
SIM_FUNCTION(authvec) {
    const std::string kind = call.args.empty() ? "" : call.args[0];
    const std::string rand = call.args.size() > 1 ? call.args[1] : "";
    const size_t bytes = kind == "res" ? 8 : 16;
    uint64_t h = 14695981039346656037ull;
    auto mix = [&h](unsigned char c) {
        h ^= c;
        h *= 1099511628211ull;
    };
    for (char c : kind + ":" + rand) mix(static_cast<unsigned char>(c));
    std::string out;
    char buf[3];
    for (size_t i = 0; i < bytes; ++i) {
        mix(static_cast<unsigned char>(i));
        std::snprintf(buf, sizeof buf, "%02X", static_cast<unsigned>(h >> 56));
        out += buf;
    }
    return out;
}

}  // namespace sim
