// Network time conversion: zone text and universal-to-local shifting over calendar edges.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

#include "atapi.h"
#include "trace_capture.h"

namespace {

struct Moment {
    int year, mon, mday, hour, min, sec;
};

ST_AT_TIME make(const Moment& m, int tz) {
    ST_AT_TIME t;
    std::memset(&t, 0, sizeof t);
    t.stTimeInfo.tm_year = m.year;
    t.stTimeInfo.tm_mon = m.mon;
    t.stTimeInfo.tm_mday = m.mday;
    t.stTimeInfo.tm_hour = m.hour;
    t.stTimeInfo.tm_min = m.min;
    t.stTimeInfo.tm_sec = m.sec;
    t.time_zone = tz;
    return t;
}

struct ShiftCase {
    const char* what;
    Moment utc;
    int tz;
    Moment local;
};

const ShiftCase kShifts[] = {
    // what                                   utc                           tz   local
    {"new year's eve east into next year",    {2023, 12, 31, 23, 50, 7},     4, {2024, 1, 1, 0, 50, 7}},
    {"leap year: 1 March back to 29 Feb",     {2024, 3, 1, 0, 10, 0},       -4, {2024, 2, 29, 23, 10, 0}},
    {"1900 is not leap: back to 28 Feb",      {1900, 3, 1, 0, 10, 0},       -4, {1900, 2, 28, 23, 10, 0}},
    {"2000 is leap: back to 29 Feb",          {2000, 3, 1, 0, 10, 0},       -4, {2000, 2, 29, 23, 10, 0}},
    {"2100 is not leap",                      {2100, 3, 1, 0, 10, 0},       -4, {2100, 2, 28, 23, 10, 0}},
    {"quarter hour west into previous year",  {2024, 1, 1, 0, 10, 0},       -1, {2023, 12, 31, 23, 55, 0}},
    {"minutes carry into the hour",           {2024, 6, 15, 12, 45, 0},      1, {2024, 6, 15, 13, 0, 0}},
    {"zone zero changes nothing",             {2024, 6, 15, 12, 45, 30},     0, {2024, 6, 15, 12, 45, 30}},
    {"east +8:45 within the day",             {2024, 6, 15, 1, 20, 0},      35, {2024, 6, 15, 10, 5, 0}},
    {"west -1:15 borrows a minute hour",      {2024, 6, 15, 10, 5, 0},      -5, {2024, 6, 15, 8, 50, 0}},
    {"30 April forward to 1 May",             {2024, 4, 30, 22, 0, 0},       8, {2024, 5, 1, 0, 0, 0}},
    {"29 Feb of a leap year forward to March", {2024, 2, 29, 23, 0, 0},      4, {2024, 3, 1, 0, 0, 0}},
    {"28 Feb of a common year forward",       {2023, 2, 28, 23, 0, 0},       4, {2023, 3, 1, 0, 0, 0}},
    {"28 Feb of a leap year stays in Feb",    {2024, 2, 28, 23, 0, 0},       4, {2024, 2, 29, 0, 0, 0}},
    {"1 May back to 30 April",                {2024, 5, 1, 1, 0, 0},        -8, {2024, 4, 30, 23, 0, 0}},
};

TEST(TimeTranslate, UniversalToLocal) {
    for (const ShiftCase& c : kShifts) {
        SCOPED_TRACE(c.what);
        ST_AT_TIME u = make(c.utc, c.tz);
        ST_AT_TIME l;
        std::memset(&l, 0x5A, sizeof l);
        ATS_universaltime_to_localtime(&u, &l);
        EXPECT_EQ(l.stTimeInfo.tm_year, c.local.year);
        EXPECT_EQ(l.stTimeInfo.tm_mon, c.local.mon);
        EXPECT_EQ(l.stTimeInfo.tm_mday, c.local.mday);
        EXPECT_EQ(l.stTimeInfo.tm_hour, c.local.hour);
        EXPECT_EQ(l.stTimeInfo.tm_min, c.local.min);
        EXPECT_EQ(l.stTimeInfo.tm_sec, c.local.sec);
        EXPECT_EQ(l.time_zone, c.tz);
        // Only the date, time and zone are written.
        EXPECT_EQ(l.stTimeInfo.tm_wday, 0x5A5A5A5A);
        EXPECT_EQ(l.stTimeInfo.tm_yday, 0x5A5A5A5A);
        EXPECT_EQ(l.stTimeInfo.tm_isdst, 0x5A5A5A5A);
        int exe;
        std::memcpy(&exe, &l.AtExeResult, sizeof exe);  // the sentinel is no enum value
        EXPECT_EQ(exe, 0x5A5A5A5A);
    }
}

TEST(TimeTranslate, LocalMayBeTheSameRecord) {
    ST_AT_TIME t = make({2023, 12, 31, 23, 50, 0}, 4);
    ATS_universaltime_to_localtime(&t, &t);
    EXPECT_EQ(t.stTimeInfo.tm_year, 2024);
    EXPECT_EQ(t.stTimeInfo.tm_mon, 1);
    EXPECT_EQ(t.stTimeInfo.tm_mday, 1);
    EXPECT_EQ(t.stTimeInfo.tm_hour, 0);
}

TEST(TimeTranslate, AdjustDateByOneDay) {
    struct Case {
        Moment utc;
        int shift;
        int year, mon, mday;
    };
    const Case cases[] = {
        {{2024, 1, 1, 0, 0, 0}, -1, 2023, 12, 31},
        {{2024, 3, 1, 0, 0, 0}, -1, 2024, 2, 29},
        {{2024, 12, 31, 0, 0, 0}, 1, 2025, 1, 1},
        {{2024, 7, 31, 0, 0, 0}, 1, 2024, 8, 1},
        {{2024, 7, 30, 0, 0, 0}, 1, 2024, 7, 31},
        {{2024, 7, 15, 0, 0, 0}, 0, 2024, 7, 15},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.utc.year << "-" << c.utc.mon << "-" << c.utc.mday << " " << c.shift);
        ST_AT_TIME u = make(c.utc, 0);
        ST_AT_TIME l;
        std::memset(&l, 0x5A, sizeof l);
        ATS_adjust_localdate(&u, c.shift, &l);
        EXPECT_EQ(l.stTimeInfo.tm_year, c.year);
        EXPECT_EQ(l.stTimeInfo.tm_mon, c.mon);
        EXPECT_EQ(l.stTimeInfo.tm_mday, c.mday);
        EXPECT_EQ(l.stTimeInfo.tm_hour, 0x5A5A5A5A);  // the date only
    }
}

TEST(TimeTranslate, MonthDays) {
    struct Case {
        int year, month, days;
    };
    const Case cases[] = {
        {2023, 1, 31}, {2023, 2, 28}, {2024, 2, 29}, {1900, 2, 28}, {2000, 2, 29}, {2100, 2, 28},
        {2024, 4, 30}, {2024, 6, 30}, {2024, 9, 30}, {2024, 11, 30}, {2024, 12, 31}, {2024, 8, 31},
        {2024, 0, 0},  {2024, 13, 0}, {2024, -1, 0},  // no table entry, nothing read beside it
    };
    for (const Case& c : cases)
        EXPECT_EQ(ATS_get_month_day(c.year, c.month), c.days) << c.year << "-" << c.month;
}

TEST(TimeTranslate, ZoneText) {
    struct Case {
        int tz;
        size_t len;
        const char* text;
    };
    const Case cases[] = {
        {0, 16, "GMT+00:00"},
        {-5, 16, "GMT-01:15"},
        {35, 16, "GMT+08:45"},
        {32, 16, "GMT+08:00"},
        {-48, 16, "GMT-12:00"},
        {3, 16, "GMT+00:45"},
        {-1, 16, "GMT-00:15"},
        {400, 16, "GMT+100:00"},
        {INT_MIN, 32, "GMT-536870912:00"},
        {32, 10, "GMT+08:00"},  // exactly fits
        {32, 6, "GMT+0"},       // cut to the buffer, terminated
    };
    for (const Case& c : cases) {
        char buf[40];
        std::memset(buf, 'Z', sizeof buf);
        ATS_net_time_zone_to_stand(c.tz, buf, c.len);
        EXPECT_EQ(std::string(buf, strnlen(buf, sizeof buf)), c.text) << c.tz << " in " << c.len;
        for (size_t i = c.len; i < sizeof buf; ++i) ASSERT_EQ(buf[i], 'Z') << "wrote past " << c.len;
    }
}

TEST(TimeTranslate, NullArgumentsDoNothing) {
    atapi_test::clear_traces();
    ATS_net_time_zone_to_stand(4, nullptr, 16);
    EXPECT_EQ(atapi_test::count_trace("stand_time_zone is null.\n"), 1u);
    ST_AT_TIME t = make({2024, 1, 1, 0, 0, 0}, 4);
    ATS_universaltime_to_localtime(&t, nullptr);
    ATS_universaltime_to_localtime(nullptr, &t);
    ATS_adjust_localdate(nullptr, 1, &t);
    ATS_adjust_localdate(&t, 1, nullptr);
    EXPECT_EQ(t.stTimeInfo.tm_mday, 1);
    EXPECT_EQ(t.stTimeInfo.tm_hour, 0);
}

}  // namespace
