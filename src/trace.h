// trace.h - the library's trace and bounded-format macros.
//
// Every source file names itself once, before including this header or at least before the first
// use:   constexpr char kTraceSource[] = "src/at_queue";
// The macros then pass that name and the line to the platform's trace and bounded formatter.
#pragma once

#include "atplatform.h"

#define ATS_TRACE_FATAL ATP_TRACE_FATAL
#define ATS_TRACE_ERROR ATP_TRACE_ERROR
#define ATS_TRACE_WARNING ATP_TRACE_WARNING
#define ATS_TRACE_INFO ATP_TRACE_INFO
#define ATS_TRACE_DEBUG ATP_TRACE_DEBUG

// ATS_TRACE(ERROR, "fmt", ...) writes one trace line of module "atserver" at the given level.
#define ATS_TRACE(level, ...) \
    QMX_TRACE_PrintInfo(kTraceSource, __LINE__, 0, "atserver", ATS_TRACE_##level, __VA_ARGS__)

// ATS_SNPRINTF(dest, destMax, count, "fmt", ...): new_snprintf_s with this file's name and line.
#define ATS_SNPRINTF(dest, destMax, count, ...) \
    new_snprintf_s(kTraceSource, __LINE__, (dest), (destMax), (count), __VA_ARGS__)
