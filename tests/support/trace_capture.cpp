// Test programs define the platform's trace and syslog calls themselves; the library's calls land
// here instead of in the platform library, and tests can look at what was written.
#include "trace_capture.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "atplatform.h"

namespace atapi_test {
namespace {

std::mutex mu;
std::vector<TraceLine>& trace_store() {
    static std::vector<TraceLine> v;
    return v;
}
std::vector<SyslogLine>& syslog_store() {
    static std::vector<SyslogLine> v;
    return v;
}

std::string vformat(const char* format, va_list ap) {
    char buf[2048];
    int n = std::vsnprintf(buf, sizeof buf, format, ap);
    return n < 0 ? std::string() : std::string(buf);
}

}  // namespace

std::vector<TraceLine> traces() {
    std::lock_guard lk(mu);
    return trace_store();
}

std::vector<SyslogLine> syslog_lines() {
    std::lock_guard lk(mu);
    return syslog_store();
}

void clear_traces() {
    std::lock_guard lk(mu);
    trace_store().clear();
    syslog_store().clear();
}

size_t count_trace(const std::string& text) {
    std::lock_guard lk(mu);
    size_t n = 0;
    for (const auto& t : trace_store()) n += t.text == text;
    return n;
}

bool has_trace(const std::string& fragment) {
    std::lock_guard lk(mu);
    for (const auto& t : trace_store())
        if (t.text.find(fragment) != std::string::npos) return true;
    return false;
}

}  // namespace atapi_test

extern "C" void QMX_TRACE_PrintInfo(const char* source, int line, int /*module_id*/, const char* module, int level,
                                    const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    std::string text = atapi_test::vformat(format, ap);
    va_end(ap);
    std::lock_guard lk(atapi_test::mu);
    atapi_test::trace_store().push_back({source ? source : "", line, module ? module : "", level, std::move(text)});
}

extern "C" void mlog_print(const char* ident, int level, const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    std::string text = atapi_test::vformat(format, ap);
    va_end(ap);
    std::lock_guard lk(atapi_test::mu);
    atapi_test::syslog_store().push_back({ident ? ident : "", level, std::move(text)});
}
