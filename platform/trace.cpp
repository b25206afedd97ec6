// Trace and system log of the host platform library.
#include <syslog.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "atplatform.h"

namespace {

// The level mask is read once: tracing sits on every exchange and must stay cheap.
int trace_mask() {
    static const int mask = [] {
        const char* v = std::getenv("ATAPI_TRACE");
        return v ? static_cast<int>(std::strtol(v, nullptr, 0)) : 0;
    }();
    return mask;
}

const char* level_name(int level) {
    switch (level) {
        case ATP_TRACE_FATAL: return "FATAL";
        case ATP_TRACE_ERROR: return "ERROR";
        case ATP_TRACE_WARNING: return "WARNING";
        case ATP_TRACE_INFO: return "INFO";
        case ATP_TRACE_DEBUG: return "DEBUG";
        default: return "LEVEL?";
    }
}

}  // namespace

extern "C" void QMX_TRACE_PrintInfo(const char* source, int line, int /*module_id*/, const char* module,
                                    int level, const char* format, ...) {
    if ((trace_mask() & level) == 0 || format == nullptr) return;
    char text[1024];
    va_list ap;
    va_start(ap, format);
    int n = std::vsnprintf(text, sizeof text, format, ap);
    va_end(ap);
    if (n < 0) return;
    size_t len = std::strlen(text);
    while (len > 0 && (text[len - 1] == '\n' || text[len - 1] == '\r')) text[--len] = '\0';
    // One fprintf per line so that lines of concurrent threads do not interleave.
    std::fprintf(stderr, "%s:%d [%s] %s: %s\n", source ? source : "?", line, module ? module : "?",
                 level_name(level), text);
}

extern "C" void mlog_print(const char* ident, int level, const char* format, ...) {
    if (format == nullptr) return;
    char text[1024];
    va_list ap;
    va_start(ap, format);
    int n = std::vsnprintf(text, sizeof text, format, ap);
    va_end(ap);
    if (n < 0) return;
    int prio = level < LOG_EMERG ? LOG_EMERG : (level > LOG_DEBUG ? LOG_DEBUG : level);
    // openlog keeps the ident pointer: the caller's string may not live long enough.
    static char saved_ident[64];
    static std::atomic_flag opened = ATOMIC_FLAG_INIT;
    if (!opened.test_and_set()) {
        std::snprintf(saved_ident, sizeof saved_ident, "%s", ident ? ident : "atapi");
        openlog(saved_ident, LOG_PID | LOG_NDELAY, LOG_DAEMON);
    }
    syslog(prio, "%s", text);
}
