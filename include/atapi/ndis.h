/*
 * atapi/ndis.h - the data connection: NDIS dial and connection status, PDP contexts, authentication and
 * addressing. C11 and C++.
 */
#ifndef ATAPI_NDIS_H
#define ATAPI_NDIS_H

#include <stdint.h>

#include "atapi/result.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_NDIS_H */
