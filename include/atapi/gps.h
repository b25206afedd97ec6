/*
 * atapi/gps.h - positioning: GNSS session, server and quality settings, data contexts for assisted
 * positioning. C11 and C++.
 *
 * The settable commands take a command type: 0 (AT_CHECK_VALUE) queries the "?" form and fills
 * the record, 1 (AT_SET_VALUE) sends the "=" form from the record; any other type sends nothing
 * and returns -1. Every record ends in AtExecResult, which the call first sets to AT_CMD_RES_ERR:
 * AT_CMD_RES_SUCCESS after an OK reply, the mapped code after a "+CME ERROR" or "+CMS ERROR"
 * reply (the call then returns -1 all the same), AT_CMD_RES_ERR otherwise. A field the reply does
 * not carry keeps the caller's value.
 *
 * Returns: 0 success; -1 failure; on the set path a failed exchange returns the exchange's code.
 * The failure trace of a query or set ("WPDOM=%d, error\n" and its kind) shows AtExecResult;
 * "AT_WPDIM, start_type=%d, error\n" and its kind show the value that was to be set.
 *
 * No function here reports a position: fixes reach the router's positioning service by the
 * modem's own reports.
 */
#ifndef ATAPI_GPS_H
#define ATAPI_GPS_H

#include <stdint.h>

#include "atapi/result.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
    int oper_mode; /* ^WPDOM operation mode */
    AT_AMSS_RES AtExecResult;
} StWpDomInfo;

typedef struct {
    int start_type; /* ^WPDIM start mode */
    AT_AMSS_RES AtExecResult;
} StGpsStartType;

typedef struct {
    int type; /* ^WPCAP capability, ^GPSTYPE type */
    AT_AMSS_RES AtExecResult;
} StGpsTypes;

typedef struct {
    int pos_sys; /* ^WGNSS positioning system */
    AT_AMSS_RES AtExecResult;
} StWGnssInfo;

typedef struct {
    int performance;
    int accuracy;
    AT_AMSS_RES AtExecResult;
} StWPQosInfo;

typedef struct {
    int type; /* ^WPDST session type */
    AT_AMSS_RES AtExecResult;
} StWpDstSession;

typedef struct {
    int number; /* ^WPDFR fix count and interval */
    int time;
    AT_AMSS_RES AtExecResult;
} StWpDfr;

typedef struct {
    char* url_address;      /* set: the caller's server address, sent unquoted (no ';') */
    char curr_address[128]; /* query: the server address the modem holds, cut to fit */
    int length;             /* never written */
    AT_AMSS_RES AtExecResult;
} StWPURL;

typedef struct {
    int status;
    int threshold;
    AT_AMSS_RES AtExecResult;
} StWpJDetection;

/* Contexts are read by cid: a query fills the record from the reply line whose cid equals the
 * record's cid, and fails (-1, AT_CMD_RES_ERR) when no line has it. Texts of a set are the
 * record's arrays up to their first NUL or their width; a double quote in one refuses the set. */
typedef struct {
    int cid;
    char pdp_type[8];
    char apn[100];
    char pdp_address[64];
    int d_comp;
    int h_comp;
    AT_AMSS_RES AtExecResult;
} StCGDCONT;

typedef struct {
    int cid;
    char pdp_type[8];
    char apn[128];
    char pdp_address[64];
    int d_comp;
    int h_comp;
    AT_AMSS_RES AtExecResult;
} StSOCKETCONT;

/* The set sends the password before the user name, as the modem's ^AUTHDATA takes them. */
typedef struct {
    int cid;
    int auth_type;
    int PLMN;
    char username[128];
    char passwd[128];
    AT_AMSS_RES AtExecResult;
} StAUTHDATA;

/* AT_DCONNSTAT fills ipv4_stat, ipv6_stat and dconn_type of the line of `cid`; aucStr is left. */
typedef struct {
    int cid;
    char aucStr[99];
    int ipv4_stat;
    int ipv6_stat;
    int dconn_type;
    AT_AMSS_RES AtExecResult;
} StCONNSTAT;

typedef struct {
    int mode;
    int interval; /* 0: the one-parameter form */
    AT_AMSS_RES AtExecResult;
} antcfg;

typedef struct {
    int dialType;
    int cid;
    int enable;
    AT_AMSS_RES AtExecResult;
} StDCONNSHADOW;

int AT_WPDOM(int cmdType, StWpDomInfo* wpdom);
int AT_WPDIM(int cmdType, StGpsStartType* wpdim);
int AT_WPCAP(int cmdType, StGpsTypes* gps_types);
int AT_WGNSS(int cmdType, StWGnssInfo* pdsystem);
int AT_WPQOS(int cmdType, StWPQosInfo* qos);
int AT_WPDST(int cmdType, StWpDstSession* ses_type);
int AT_WPDFR(int cmdType, StWpDfr* freq);
int AT_WPURL(int cmdType, StWPURL* agps_ser);
int AT_WPJAM(int cmdType, StWpJDetection* jammingInfo);
int AT_CGDCONT(int cmdType, StCGDCONT* pdpContext);
int AT_SOCKETCONT(int cmdType, StSOCKETCONT* pdpContext);
int AT_AUTHDATA(int cmdType, StAUTHDATA* authInfo);

/* "AT^GPSTYPE?": a "+CME ERROR"/"+CMS ERROR" reply is stored in AtExecResult and returns 0. */
int AT_GPSTYPE(StGpsTypes* gps_types);
/* Start ("AT^WPDGP") and end ("AT^WPEND") a positioning session: 0 on OK, -1 otherwise (a failed
 * exchange returns its code). The error trace shows the final result, or the exchange's code. */
int AT_WPDGP(void);
int AT_WPEND(void);
/* Query only: cmdType 0 (any other type sends nothing, -1). A "+CME ERROR"/"+CMS ERROR" reply is
 * stored in AtExecResult, traced as "ierrornum = <%d>\r\n", and returns 0. */
int AT_DCONNSTAT(int cmdType, StCONNSTAT* pout);
/* Set only: cmdType 1 sends; errors as the settable commands above. */
int AT_DCONNSHADOW(int cmdType, StDCONNSHADOW* pDconnValue);
/* cmdType 1 sets (mode, and interval when it is not 0), 3 sends the bare "AT^ANTCFG"; any other
 * type sends nothing and returns -1. AtExecResult starts at AT_CMD_RES_BUSY and becomes
 * AT_CMD_RES_SUCCESS on OK; an error reply is not mapped (-1). */
int AT_ANTCFG(int cmdType, antcfg* antcfg_info);

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_GPS_H */
