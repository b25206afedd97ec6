// gps.cpp - the simulated modem's positioning fixes (sim/scenarios/gps.scn).
//
// A session searches for gps_ttff ms after it starts (gps_since), then fixes a vehicle that drives
// clockwise at gps_speed km/h round a ring road of gps_radius m through open country, centred on
// gps_lat, gps_lon (degrees). The fix is a function of the time since the session started, so two
// readings a moment apart differ by the distance driven; the accuracy improves as the receiver
// settles. Nothing is random: a run can be checked against the formula.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "scenario.h"

namespace sim {
namespace {

double number(const Engine& e, const char* name, double fallback) {
    const std::string v = e.var(name);
    char* end = nullptr;
    const double d = std::strtod(v.c_str(), &end);
    return v.empty() || *end != '\0' || !std::isfinite(d) ? fallback : d;
}

std::string utc_now() {
    const std::time_t now = std::time(nullptr);
    std::tm tm{};
    gmtime_r(&now, &tm);
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
    return buf;
}

}  // namespace

// The values of a ^GPSFIX line: 0 (no session), 1 (searching), or 2 followed by the UTC time,
// latitude and longitude (degrees), altitude (m), horizontal accuracy (m), speed (km/h),
// course (degrees from north) and satellites used.
SIM_FUNCTION(gps_fix) {
    const Engine& e = call.engine;
    if (e.var("gps_session") != "1") return "0";
    const double t_ms = static_cast<double>(e.now_ms()) - number(e, "gps_since", 0);
    const double fixed_ms = t_ms - number(e, "gps_ttff", 2000);
    if (fixed_ms < 0) return "1";

    constexpr double kMetresPerDegree = 111320.0;
    const double lat0 = number(e, "gps_lat", 0), lon0 = number(e, "gps_lon", 0);
    const double radius = std::max(50.0, number(e, "gps_radius", 1500));
    const double speed_kmh = std::max(0.0, number(e, "gps_speed", 60));
    const double angle = speed_kmh / 3.6 * (t_ms / 1000) / radius;  // from due north, clockwise
    const double lat = lat0 + radius * std::cos(angle) / kMetresPerDegree;
    const double lon = lon0 + radius * std::sin(angle) / (kMetresPerDegree * std::cos(lat0 * M_PI / 180));
    const double course = std::fmod(angle * 180 / M_PI + 90, 360);
    const double altitude = 140 + 12 * std::sin(angle);
    const double accuracy = 3.0 + 22 * std::exp(-fixed_ms / 8000) + 0.6 * (1 + std::sin(t_ms / 9000));
    const int satellites = 7 + static_cast<int>(4 * (1 - std::exp(-fixed_ms / 10000)));

    char buf[160];
    std::snprintf(buf, sizeof buf, "2,\"%s\",%.6f,%.6f,%.1f,%.1f,%.1f,%.1f,%d", utc_now().c_str(), lat, lon, altitude,
                  accuracy, speed_kmh, course, satellites);
    return buf;
}

}  // namespace sim
