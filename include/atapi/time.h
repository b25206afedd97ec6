/*
 * atapi/time.h - network time conversion. C11 and C++.
 *
 * The modem reports universal time and a zone offset in quarter hours. These functions turn
 * the offset into "GMT+hh:mm" text and shift a universal date and time into local time with
 * their own calendar rules. Months run 1 to 12 and the year is the number as reported.
 */
#ifndef ATAPI_TIME_H
#define ATAPI_TIME_H

#include <stddef.h>
#include <time.h>

#include "atapi/result.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
    struct tm stTimeInfo; /* tm_sec, tm_min, tm_hour, tm_mday, tm_mon (1..12), tm_year used */
    int time_zone;        /* quarter hours east of universal time, signed */
    AT_AMSS_RES AtExeResult;
} ST_AT_TIME;

void ATS_net_time_zone_to_stand(int net_time_zone, char* stand_time_zone, size_t buff_len);
void ATS_universaltime_to_localtime(ST_AT_TIME* pstUinversalTime, ST_AT_TIME* pstLocalTime);
void ATS_adjust_localdate(ST_AT_TIME* pstUinversalTime, int cAdjustValue, ST_AT_TIME* pstLocalTime);
/* Days of a month (1..12) of a year; 0 for a month outside 1..12. */
int ATS_get_month_day(int ucYear, int ucMonth);
int ATS_is_leap_year(int year);

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_TIME_H */
