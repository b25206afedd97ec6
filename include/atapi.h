/*
 * atapi.h - libatapi, the application-side AT command library. C11 and C++.
 *
 * Every exported function builds one AT command line, hands it to the AT server over two System V
 * message queues, waits for the reply that belongs to the calling thread, parses it and fills the
 * caller's record. Return codes: 0 success and -1 failure unless a function says otherwise.
 */
#ifndef ATAPI_H
#define ATAPI_H

#include "atapi/types.h"
#include "atapi/primitives.h"
#include "atapi/link.h"
#include "atapi/parse.h"
#include "atapi/result.h"
#include "atapi/time.h"
#include "atapi/comm.h"
#include "atapi/network.h"
#include "atapi/sim.h"
#include "atapi/ndis.h"
#include "atapi/sms.h"
#include "atapi/voice.h"
#include "atapi/stk.h"
#include "atapi/gps.h"
#include "atapi/datacard.h"
#include "atapi/stats.h"
#include "atapi/parse_tables.h"

#endif /* ATAPI_H */
