// clock.cpp - `atctl time`: the modem's clock, in universal and local time.
//
// The modem keeps universal time; the offset to local time comes from --zone (quarter hours,
// the network's own unit) or else from this host's zone. The shift itself is the library's
// conversion, so atctl shows exactly what the router's services would compute.
#include <ctime>
#include <string>

#include "cli.h"

namespace atctl {
namespace {

std::string two(int v) { return (v >= 0 && v < 10 ? "0" : "") + std::to_string(v); }

std::string date_time_text(const ST_AT_TIME& t) {
    const std::tm& tm = t.stTimeInfo;
    return std::to_string(tm.tm_year) + "/" + two(tm.tm_mon) + "/" + two(tm.tm_mday) + " " + two(tm.tm_hour) + ":" +
           two(tm.tm_min) + ":" + two(tm.tm_sec);
}

// This host's offset from universal time, in whole quarter hours.
int host_zone() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    if (localtime_r(&now, &local) == nullptr) return 0;
    return static_cast<int>(local.tm_gmtoff / (15 * 60));
}

// Offset of local time from universal time in quarter hours, as the network codes it: --zone,
// else this host's zone. Under a day either way: the conversion shifts the date by one day at most.
std::optional<int> given_zone(const Invocation& inv) {
    const std::optional<std::string> text = inv.option("--zone");
    if (!text) return std::nullopt;
    const std::optional<long> v = number(*text);
    if (!v || *v < -95 || *v > 95) throw UsageError("--zone needs quarter hours from -95 to 95, such as +32");
    return static_cast<int>(*v);
}

}  // namespace

void run_clock(const Invocation& inv, Report& report) {
    const std::optional<int> given = given_zone(inv);
    Section& s = report.section("cclk", "modem clock (+CCLK)", "clock");
    if (s.skipped()) return;
    ST_AT_TIME utc{};
    // The clock read writes only the date and time fields and reports an error reply as -1.
    if (!s.check(AT_CCLK_CHECK(&utc))) return;

    utc.time_zone = given.value_or(host_zone());
    ST_AT_TIME local{};
    ATS_universaltime_to_localtime(&utc, &local);
    char zone_text[16] = {0};
    ATS_net_time_zone_to_stand(utc.time_zone, zone_text, sizeof zone_text);
    const std::string zone = field_text(zone_text);
    const std::string source = given ? "given" : "this host's";

    s.field("utc", date_time_text(utc), true);
    s.field("zone", zone + " (" + std::to_string(utc.time_zone) + " quarter hours, " + source + ")");
    s.field("local", date_time_text(local) + " " + zone, true);
    const std::tm& u = utc.stTimeInfo;
    s.json("utc", date_time_text(utc));
    s.json("year", static_cast<long>(u.tm_year)).json("month", static_cast<long>(u.tm_mon));
    s.json("day", static_cast<long>(u.tm_mday)).json("hour", static_cast<long>(u.tm_hour));
    s.json("minute", static_cast<long>(u.tm_min)).json("second", static_cast<long>(u.tm_sec));
    s.json("zone", static_cast<long>(utc.time_zone)).json("zone_text", zone);
    s.json("local", date_time_text(local));
}

ATCTL_SUBCOMMAND({.name = "time",
                  .summary = "the modem's clock in universal and local time",
                  .usage = "[--zone Q]",
                  .help = "Reads +CCLK and converts it to local time.\n"
                          "  --zone Q   offset of local time in quarter hours, signed, as the network\n"
                          "             codes it (+32 is GMT+08:00); default: this host's zone\n",
                  .order = 30,
                  .options = "--zone Q",
                  .run = run_clock,
                  .in_status = true});

}  // namespace atctl
