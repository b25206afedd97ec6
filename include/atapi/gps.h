/*
 * atapi/gps.h - positioning: GNSS session, server and quality settings, data contexts for assisted
 * positioning. C11 and C++.
 */
#ifndef ATAPI_GPS_H
#define ATAPI_GPS_H

#include <stdint.h>

#include "atapi/result.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_GPS_H */
