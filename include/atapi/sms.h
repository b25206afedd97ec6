/*
 * atapi/sms.h - messaging: SMS storage, reading, sending and writing; the phonebook; USSD. C11 and C++.
 */
#ifndef ATAPI_SMS_H
#define ATAPI_SMS_H

#include <stdint.h>

#include "atapi/result.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_SMS_H */
