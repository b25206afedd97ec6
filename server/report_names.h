// report_names.h - the names of the modem's unsolicited reports ("^RSSI", "+CMTI", "RING").
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ats {

// The names the library's unsolicited-report table answers to; read once.
const std::vector<std::string>& report_names();

// True for a report whose payload is the line that follows its header (+CMT and the like).
bool report_has_body(std::string_view name);

}  // namespace ats
