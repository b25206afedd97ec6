/*
 * atapi/stats.h - data-flow statistics: session durations and byte counters. C11 and C++.
 */
#ifndef ATAPI_STATS_H
#define ATAPI_STATS_H

#include <stdint.h>

#include "atapi/result.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_STATS_H */
