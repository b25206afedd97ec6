// trace_capture.h - every test program defines QMX_TRACE_PrintInfo and mlog_print itself
// (interposing the platform library's), recording each line so tests can assert on them.
#pragma once

#include <string>
#include <vector>

namespace atapi_test {

struct TraceLine {
    std::string source;   // source name passed by the library ("src/at_lib")
    int line = 0;
    std::string module;
    int level = 0;
    std::string text;     // the formatted message
};

struct SyslogLine {
    std::string ident;
    int level = 0;
    std::string text;
};

std::vector<TraceLine> traces();
std::vector<SyslogLine> syslog_lines();
void clear_traces();
// Number of trace lines whose formatted text equals `text` exactly.
size_t count_trace(const std::string& text);
// True when some trace line's text contains `fragment`.
bool has_trace(const std::string& fragment);

}  // namespace atapi_test
