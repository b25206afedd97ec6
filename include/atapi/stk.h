/*
 * atapi/stk.h - the SIM toolkit: proactive menus and dialogs and the user's answers. C11 and C++.
 */
#ifndef ATAPI_STK_H
#define ATAPI_STK_H

#include <stdint.h>

#include "atapi/result.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_STK_H */
