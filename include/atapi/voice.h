/*
 * atapi/voice.h - voice calls: call control and the parsers of call event reports. C11 and C++.
 */
#ifndef ATAPI_VOICE_H
#define ATAPI_VOICE_H

#include <stdint.h>

#include "atapi/result.h"
#include "atapi/types.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_VOICE_H */
