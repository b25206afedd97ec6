/*
 * atapi/stats.h - data-flow statistics: session durations and byte counters. C11 and C++.
 *
 * The modem reports every counter in hexadecimal; byte counters are kept to 64 bits and the
 * durations (seconds, as the modem counts them) to their low 32 bits, on every target.
 */
#ifndef ATAPI_STATS_H
#define ATAPI_STATS_H

#include <stdint.h>

#include "atapi/result.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
    uint32_t last_ds_time;  /* duration of the last data session */
    uint32_t total_ds_time; /* of all sessions */
    uint64_t last_tx_flow;  /* bytes sent in the last session */
    uint64_t last_rx_flow;  /* bytes received in the last session */
    uint64_t total_tx_flow;
    uint64_t total_rx_flow;
    AT_AMSS_RES AtExeResult;
} StDsflowqryInfo;

typedef struct dataflowstruct {
    uint32_t last_ds_time;
    uint64_t last_tx_ds_counters;
    uint64_t last_rx_ds_counters;
    uint32_t total_ds_time;
    uint64_t total_tx_ds_counters;
    uint64_t total_rx_ds_counters;
    AT_AMSS_RES AtExeResult;
} dataflow;

typedef struct {
    AT_AMSS_RES AtExeResult;
} DsflowclrRsp;

typedef struct {
    AT_AMSS_RES AtExeResult;
} DsflowsaveRsp;

/* "AT^DSFLOWQRY=<cid>", or the bare "AT^DSFLOWQRY" for cid -1. A reply other than OK returns -1
 * with the record untouched (an error reply is not mapped); a counter the reply lacks keeps the
 * caller's value. */
int AT_Dsflowqry(int cid, StDsflowqryInfo* pResult);
/* The counters of context 1, or of the bare query when the modem refuses the one with a
 * context. */
int at_dataflow(dataflow* Result);
/* Clear and save the counters: AtExeResult AT_CMD_RES_SUCCESS and 0 on OK; -1 and the record
 * untouched on any other reply. */
int AT_Dsflowclr(DsflowclrRsp* rsp);
int AT_Dsflowsave(DsflowsaveRsp* rsp);
/* Switches the periodic ^DSFLOWRPT report ("AT^DSFLOWRPT=<iParam>,<cid>"); 1-second limit. */
int AT_DsflowrptEx(int cid, int iParam);
/* Kept for the interface: sends nothing and returns -1. */
int AT_Dsflowrpt(int iParam);

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_STATS_H */
