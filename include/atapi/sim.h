/*
 * atapi/sim.h - SIM and PIN: PIN management, SIM files and identity, the service-provider name. C11 and C++.
 */
#ifndef ATAPI_SIM_H
#define ATAPI_SIM_H

#include <stdint.h>

#include "atapi/comm.h"
#include "atapi/network.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_SIM_H */
