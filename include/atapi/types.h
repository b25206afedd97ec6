/* atapi/types.h - types shared by every family of libatapi. C11 and C++. */
#ifndef ATAPI_TYPES_H
#define ATAPI_TYPES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Booleans of the queue, task and event primitives: 0 false, 1 true. */
typedef uint32_t ATS_BOOL;
#define ATS_TRUE 1u
#define ATS_FALSE 0u

/* Selector of two-way command functions. */
typedef enum {
    AT_CHECK_VALUE = 0, /* query */
    AT_SET_VALUE = 1,   /* set */
    AT_ENUM_MAX = 2
} AT_OPERATE_VALUE;

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_TYPES_H */
