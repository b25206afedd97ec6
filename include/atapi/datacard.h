/*
 * atapi/datacard.h - the datacard command set (+Z... commands). C11 and C++.
 */
#ifndef ATAPI_DATACARD_H
#define ATAPI_DATACARD_H

#include <stdint.h>

#include "atapi/result.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_DATACARD_H */
