// Network time conversion: zone text and universal-to-local shifting over calendar edges.
#include <array>
#include <climits>
#include <ctime>
#include <tuple>

#include "test_network_support.h"
#include "trace_capture.h"

using namespace atapi_test;

namespace {

using Moment = std::array<int, 6>;  // year, month (1-12), day, hour, minute, second

ST_AT_TIME make(const Moment& m, int tz) {
    ST_AT_TIME t = sentinel<ST_AT_TIME>();
    std::tm& s = t.stTimeInfo;
    std::tie(s.tm_year, s.tm_mon, s.tm_mday, s.tm_hour, s.tm_min, s.tm_sec) = std::tie(m[0], m[1], m[2], m[3], m[4], m[5]);
    t.time_zone = tz;
    return t;
}

Moment moment(const ST_AT_TIME& t) {
    const std::tm& s = t.stTimeInfo;
    return {s.tm_year, s.tm_mon, s.tm_mday, s.tm_hour, s.tm_min, s.tm_sec};
}

TEST(TimeTranslate, UniversalToLocal) {
    const std::tuple<const char*, Moment, int, Moment> cases[] = {
        // what                                    utc                      tz   local
        {"new year's eve east into next year",     {2023, 12, 31, 23, 50, 7}, 4, {2024, 1, 1, 0, 50, 7}},
        {"leap year: 1 March back to 29 Feb",      {2024, 3, 1, 0, 10, 0},   -4, {2024, 2, 29, 23, 10, 0}},
        {"1900 is not leap: back to 28 Feb",       {1900, 3, 1, 0, 10, 0},   -4, {1900, 2, 28, 23, 10, 0}},
        {"quarter hour west into previous year",   {2024, 1, 1, 0, 10, 0},   -1, {2023, 12, 31, 23, 55, 0}},
        {"minutes carry into the hour",            {2024, 6, 15, 12, 45, 0},  1, {2024, 6, 15, 13, 0, 0}},
        {"east +8:45 within the day",              {2024, 6, 15, 1, 20, 0},  35, {2024, 6, 15, 10, 5, 0}},
        {"west -1:15 borrows a minute hour",       {2024, 6, 15, 10, 5, 0},  -5, {2024, 6, 15, 8, 50, 0}},
        {"30 April forward to 1 May",              {2024, 4, 30, 22, 0, 0},   8, {2024, 5, 1, 0, 0, 0}},
        {"29 Feb of a leap year forward to March", {2024, 2, 29, 23, 0, 0},   4, {2024, 3, 1, 0, 0, 0}},
        {"28 Feb of a common year forward",        {2023, 2, 28, 23, 0, 0},   4, {2023, 3, 1, 0, 0, 0}},
        {"28 Feb of a leap year stays in Feb",     {2024, 2, 28, 23, 0, 0},   4, {2024, 2, 29, 0, 0, 0}},
        {"1 May back to 30 April",                 {2024, 5, 1, 1, 0, 0},    -8, {2024, 4, 30, 23, 0, 0}},
    };
    for (const auto& [what, utc, tz, local] : cases) {
        SCOPED_TRACE(what);
        ST_AT_TIME u = make(utc, tz);
        ST_AT_TIME l = sentinel<ST_AT_TIME>();
        ATS_universaltime_to_localtime(&u, &l);
        EXPECT_EQ(moment(l), local);
        EXPECT_EQ(l.time_zone, tz);
        // Only the date, time and zone are written.
        EXPECT_EQ(fields(l.stTimeInfo.tm_wday, l.stTimeInfo.tm_yday, l.stTimeInfo.tm_isdst, l.AtExeResult), "?,?,?,?");
        ST_AT_TIME same = u;  // the local record may be the universal one
        ATS_universaltime_to_localtime(&same, &same);
        EXPECT_EQ(moment(same), local);
    }
}

TEST(TimeTranslate, AdjustDateWritesTheDateOnly) {
    ST_AT_TIME u = make({2024, 7, 15, 0, 0, 0}, 0);
    ST_AT_TIME l = sentinel<ST_AT_TIME>();
    ATS_adjust_localdate(&u, 0, &l);
    EXPECT_EQ(fields(l.stTimeInfo.tm_year, l.stTimeInfo.tm_mon, l.stTimeInfo.tm_mday, l.stTimeInfo.tm_hour,
                     l.stTimeInfo.tm_min, l.stTimeInfo.tm_sec), "2024,7,15,?,?,?");
}

TEST(TimeTranslate, MonthDays) {
    // year, month, days; months outside 1-12 have no table entry and nothing beside it is read
    const int cases[][3] = {{2023, 2, 28}, {2024, 2, 29}, {1900, 2, 28}, {2000, 2, 29}, {2100, 2, 28}, {2024, 12, 31},
                            {2024, 0, 0}, {2024, 13, 0}, {2024, -1, 0}};
    for (const auto& [year, month, days] : cases) EXPECT_EQ(ATS_get_month_day(year, month), days) << year << "-" << month;
}

TEST(TimeTranslate, ZoneText) {
    const std::tuple<int, size_t, const char*> cases[] = {
        {0, 16, "GMT+00:00"}, {-5, 16, "GMT-01:15"}, {35, 16, "GMT+08:45"}, {-1, 16, "GMT-00:15"}, {-48, 16, "GMT-12:00"},
        {400, 16, "GMT+100:00"}, {INT_MIN, 32, "GMT-536870912:00"},
        {32, 10, "GMT+08:00"},  // exactly fits
        {32, 6, "GMT+0"},       // cut to the buffer, terminated
    };
    for (const auto& [tz, len, want] : cases) {
        char buf[40];
        std::memset(buf, 'Z', sizeof buf);
        ATS_net_time_zone_to_stand(tz, buf, len);
        EXPECT_EQ(std::string(buf, strnlen(buf, sizeof buf)), want) << tz << " in " << len;
        for (size_t i = len; i < sizeof buf; ++i) ASSERT_EQ(buf[i], 'Z') << "wrote past " << len;
    }
}

TEST(TimeTranslate, NullArgumentsDoNothing) {
    clear_traces();
    ATS_net_time_zone_to_stand(4, nullptr, 16);
    EXPECT_EQ(count_trace("stand_time_zone is null.\n"), 1u);
    ST_AT_TIME t = make({2024, 1, 1, 0, 0, 0}, 4);
    ATS_universaltime_to_localtime(&t, nullptr);
    ATS_universaltime_to_localtime(nullptr, &t);
    ATS_adjust_localdate(nullptr, 1, &t);
    ATS_adjust_localdate(&t, 1, nullptr);
    EXPECT_EQ(moment(t), (Moment{2024, 1, 1, 0, 0, 0}));
}

}  // namespace
