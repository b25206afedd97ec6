// at_time_translate.cpp - network time zone text and universal-to-local time shifting.
//
// The calendar rules are our own rather than the C library's: tm_mon runs 1 to 12 and tm_year
// is the year number as the modem reports it. Arithmetic is done in 64 bits so that nonsense
// input gives nonsense output instead of overflow.
#include <cstdint>

#include "atapi/time.h"
constexpr char kTraceSource[] = "src/at_time_translate";
#include "trace.h"

namespace {

constexpr int g_ats_days_of_month[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

// Narrows with wrap-around, never with undefined behaviour.
int wrap(int64_t v) { return static_cast<int>(static_cast<uint32_t>(static_cast<uint64_t>(v))); }

}  // namespace

extern "C" int ATS_is_leap_year(int year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

extern "C" int ATS_get_month_day(int ucYear, int ucMonth) {
    // A month outside 1..12 has no entry; reading beside the table is not an option.
    if (ucMonth < 1 || ucMonth > 12) return 0;
    int days = g_ats_days_of_month[ucMonth - 1];
    if (ucMonth == 2 && ATS_is_leap_year(ucYear)) days += 1;
    return days;
}

extern "C" void ATS_net_time_zone_to_stand(int net_time_zone, char* stand_time_zone, size_t buff_len) {
    if (!stand_time_zone) {
        ATS_TRACE(ERROR, "stand_time_zone is null.\n");
        return;
    }
    int64_t a = net_time_zone < 0 ? -static_cast<int64_t>(net_time_zone) : net_time_zone;
    int hours = static_cast<int>(a / 4);
    int minutes = static_cast<int>(a % 4) * 15;
    if (net_time_zone < 0)
        ATS_SNPRINTF(stand_time_zone, buff_len, buff_len, "GMT-%02d:%02d", hours, minutes);
    else
        ATS_SNPRINTF(stand_time_zone, buff_len, buff_len, "GMT+%02d:%02d", hours, minutes);
}

extern "C" void ATS_universaltime_to_localtime(ST_AT_TIME* pstUinversalTime, ST_AT_TIME* pstLocalTime) {
    if (!pstUinversalTime || !pstLocalTime) return;
    const ST_AT_TIME& u = *pstUinversalTime;
    ST_AT_TIME& l = *pstLocalTime;
    const int tz = u.time_zone;
    l.time_zone = tz;
    l.stTimeInfo.tm_sec = u.stTimeInfo.tm_sec;

    // C++ remainder and division truncate toward zero, so a zone west of Greenwich subtracts.
    int64_t m = static_cast<int64_t>(tz % 4) * 15 + u.stTimeInfo.tm_min;
    int carry = 0;
    if (m >= 60) {
        m -= 60;
        carry = 1;
    } else if (m < 0) {
        m += 60;
        carry = -1;
    }
    l.stTimeInfo.tm_min = wrap(m);

    int64_t h = static_cast<int64_t>(tz / 4) + u.stTimeInfo.tm_hour + carry;
    int shift = 0;
    if (h >= 24) {
        h -= 24;
        shift = 1;
    } else if (h < 0) {
        h += 24;
        shift = -1;
    }
    l.stTimeInfo.tm_hour = wrap(h);

    ATS_adjust_localdate(pstUinversalTime, shift, pstLocalTime);
}

extern "C" void ATS_adjust_localdate(ST_AT_TIME* pstUinversalTime, int cAdjustValue, ST_AT_TIME* pstLocalTime) {
    if (!pstUinversalTime || !pstLocalTime) return;
    const struct tm& u = pstUinversalTime->stTimeInfo;
    struct tm& l = pstLocalTime->stTimeInfo;
    const int64_t d = static_cast<int64_t>(u.tm_mday) + cAdjustValue;

    if (d == 0) {
        if (u.tm_mon != 1) {
            l.tm_mon = wrap(static_cast<int64_t>(u.tm_mon) - 1);
            l.tm_year = u.tm_year;
        } else {
            l.tm_mon = 12;
            l.tm_year = wrap(static_cast<int64_t>(u.tm_year) - 1);
        }
        l.tm_mday = ATS_get_month_day(l.tm_year, l.tm_mon);
    } else if (d <= ATS_get_month_day(u.tm_year, u.tm_mon)) {
        l.tm_mday = wrap(d);
        l.tm_mon = u.tm_mon;
        l.tm_year = u.tm_year;
    } else {
        l.tm_mday = 1;
        if (u.tm_mon != 12) {
            l.tm_mon = wrap(static_cast<int64_t>(u.tm_mon) + 1);
            l.tm_year = u.tm_year;
        } else {
            l.tm_mon = 1;
            l.tm_year = wrap(static_cast<int64_t>(u.tm_year) + 1);
        }
    }
}
