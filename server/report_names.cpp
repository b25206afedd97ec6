// report_names.cpp - which modem lines are unsolicited reports.
//
// The authority is the library's own table of unsolicited reports: a line the library can parse
// as a report is one the server keeps. The table is looked up at run time so that the server
// also runs against a library built without it, falling back to the reports the router's
// services ask for.
#include "report_names.h"

#include <dlfcn.h>

#include <algorithm>
#include <array>

#include "atapi/parse.h"

namespace ats {
namespace {

constexpr std::array<std::string_view, 28> kFallbackNames{{
    "^RSSI",     "^HCSQ",     "^SRVST",    "^MODE",      "^SYSINFO",  "^SYSINFOEX", "^SIMST",
    "^NWTIME",   "^NDISSTAT", "^APCONNST", "^SMMEMFULL", "+CMTI",     "+CMT",       "+CDS",
    "+CDSI",     "+CBM",      "^HCMGSS",   "^HCMGSF",    "+CUSD",     "RING",       "+CLIP",
    "^ORIG",     "^CONF",     "^CONN",     "^CEND",      "+CCWA",     "^ANQUERY",   "^CERSSI",
}};

// The reports that the server answers GET_REPORT_REQ from, whatever the table says.
constexpr std::array<std::string_view, 4> kCachedForClients{{"^SYSINFO", "+COPS", "^RSSI", "^ANQUERY"}};

constexpr std::array<std::string_view, 3> kTwoLineReports{{"+CMT", "+CDS", "+CBM"}};

using LookupFn = const at_parse_handler* (*)(at_function_type);

std::vector<std::string> load() {
    std::vector<std::string> names;
    // Resolved by name so that a library without the table still links.
    auto lookup = reinterpret_cast<LookupFn>(dlsym(RTLD_DEFAULT, "parse_func_type"));
    const at_parse_handler* rows = lookup ? lookup(AT_FUNCTION_INITIATIVE_REPORT) : nullptr;
    if (rows != nullptr) {
        for (const at_parse_handler* r = rows; r->at_name != nullptr; ++r) names.emplace_back(r->at_name);
    } else {
        names.assign(kFallbackNames.begin(), kFallbackNames.end());
    }
    for (std::string_view n : kCachedForClients)
        if (std::find(names.begin(), names.end(), n) == names.end()) names.emplace_back(n);
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
