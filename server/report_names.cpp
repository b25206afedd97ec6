// report_names.cpp - which modem lines are unsolicited reports.
//
// The authority is the library's own table of unsolicited reports: a line the library can parse
// as a report is one the server keeps. Modems of this family send a few more reports than the
// services parse (registration, SIM and connection events); those are known too, so that they
// are never taken for the answer of a command that happens to be running.
#include "report_names.h"

#include <algorithm>
#include <array>

#include "atapi/parse.h"

namespace ats {
namespace {

constexpr std::array<std::string_view, 30> kModemReports{{
    "^RSSI",     "^HCSQ",     "^SRVST",    "^MODE",      "^SYSINFO",  "^SYSINFOEX", "^SIMST",
    "^NWTIME",   "^NDISSTAT", "^APCONNST", "^SMMEMFULL", "+CMTI",     "+CMT",       "+CDS",
    "+CDSI",     "+CBM",      "^HCMGSS",   "^HCMGSF",    "+CUSD",     "RING",       "+CLIP",
    "^ORIG",     "^CONF",     "^CONN",     "^CEND",      "+CCWA",     "^ANQUERY",   "^CERSSI",
    "^DSFLOWRPT", "^GPSFIX",
}};

// The reports the server answers requests from: GET_REPORT_REQ and the bare "^APCONNST".
constexpr std::array<std::string_view, 5> kServedFromCache{{"^SYSINFO", "+COPS", "^RSSI", "^ANQUERY", "^APCONNST"}};

constexpr std::array<std::string_view, 3> kTwoLineReports{{"+CMT", "+CDS", "+CBM"}};

std::vector<std::string> load() {
    std::vector<std::string> names;
    auto add = [&](std::string_view n) {
        if (std::find(names.begin(), names.end(), n) == names.end()) names.emplace_back(n);
    };
    if (const at_parse_handler* rows = parse_func_type(AT_FUNCTION_INITIATIVE_REPORT))
        for (const at_parse_handler* r = rows; r->at_name != nullptr; ++r) add(r->at_name);
    for (std::string_view n : kModemReports) add(n);
    for (std::string_view n : kServedFromCache) add(n);
    return names;
}

}  // namespace

const std::vector<std::string>& report_names() {
    static const std::vector<std::string> names = load();
    return names;
}

bool report_has_body(std::string_view name) {
    return std::find(kTwoLineReports.begin(), kTwoLineReports.end(), name) != kTwoLineReports.end();
}

}  // namespace ats
