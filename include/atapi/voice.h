/*
 * atapi/voice.h - voice calls: call control and the parsers of call event reports. C11 and C++.
 *
 * Call control: one exchange per call, 30 s time-out. The simple commands (dial, answer, hold,
 * hang up, the switches) return the exchange's failure code, -1 for any final result other than
 * OK (a "+CME ERROR" included: only the vendor audio settings map error replies into their
 * record), else 0. The library keeps no call state: the current-call list and the event reports
 * are the caller's view of the calls.
 *
 * Caller texts that go into a command line (a dial string, a forwarding number, the eCall number,
 * the PCM setting) are refused with -1, nothing sent and the record untouched, when they would
 * break the line: a double quote inside a quoted text, a ';' in the dial string (which would
 * chain a second command), any control character, or a line longer than 639 characters. A text
 * array of a record that holds no terminating NUL within its width is refused the same way.
 *
 * Event report parsers: pure functions over one report line as received ("^CEND: 1,12,104,16").
 * They never write past a record: a number that does not fit its field wraps, a text is cut to the
 * field's width less its NUL. The line is copied before parsing, so it may be read-only.
 */
#ifndef ATAPI_VOICE_H
#define ATAPI_VOICE_H

#include <stdint.h>

#include "atapi/result.h"
#include "atapi/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Call control ---------------------------------------------------------------------------- */

/* The +CHLD operation, sent as its number. Any other value is sent as it is (3 joins the calls
 * into a conference on modems that support it). */
typedef enum {
    ATS_OPERATE_ZERO = 0, /* release the held calls, or reject the waiting call */
    ATS_OPERATE_ONE = 1,  /* release the active calls, accept the held or waiting one */
    ATS_OPERATE_TWO = 2,  /* hold the active calls, accept the held or waiting one */
    ATS_OPERATE_ONE_1 = 11, /* release call 1 ... */
    ATS_OPERATE_ONE_2 = 12,
    ATS_OPERATE_ONE_3 = 13,
    ATS_OPERATE_ONE_4 = 14,
    ATS_OPERATE_ONE_5 = 15,
    ATS_OPERATE_ONE_6 = 16,
    ATS_OPERATE_ONE_7 = 17,
    ATS_OPERATE_ONE_8 = 18,
    ATS_OPERATE_ONE_9 = 19,
    ATS_OPERATE_TWO_1 = 21, /* hold every call but call 1 ... */
    ATS_OPERATE_TWO_2 = 22,
    ATS_OPERATE_TWO_3 = 23,
    ATS_OPERATE_TWO_4 = 24,
    ATS_OPERATE_TWO_5 = 25,
    ATS_OPERATE_TWO_6 = 26,
    ATS_OPERATE_TWO_7 = 27,
    ATS_OPERATE_TWO_8 = 28,
    ATS_OPERATE_TWO_9 = 29,
    ATS_OPERATE_MAX = 30
} ATS_HOLD_OPERATE_VALUE;

typedef enum {
    ATS_CALL_ID_DISABLE = 0,
    ATS_CALL_ID_ENABLE = 1,
    ATS_CALL_ID_MAX = 2
} ATS_CALL_ID_PRESENTATION;

/* State of a call in the current-call list (+CLCC). */
typedef enum {
    ATS_ACTIVE = 0,
    ATS_HELD = 1,
    ATS_DIALING = 2,
    ATS_ALERTING = 3,
    ATS_INCOMING = 4,
    ATS_WAITING = 5,
    ATS_MAX = 6
} ATS_CALL_STAT;

typedef struct {
    int ccwa_status; /* 0 off, 1 on */
    int ccwa_class;
} ccwa_check_info;

/* Call waiting (AT_CCWA). `mode`: 0 disable, 1 enable (for `ccwa_class`), 2 query the status,
 * 3 read the presentation setting, 4 set the presentation to `ccwa_report`. */
typedef struct {
    int mode;
    int ccwa_class;
    int ccwa_report;
    int ccwa_count; /* entries a query added to check_info, counted up from the caller's value */
    ccwa_check_info check_info[10];
    int ret;        /* not used by the library */
} ccwa_config_info;

typedef struct {
    int check_status;
    int check_class;
    int check_type;
    int check_time;
    char check_number[41];
} ccfc_check_info;

/* Call forwarding (AT_CCFC). `ccfc_mode` 2 queries `ccfc_reason`; any other mode sends the number,
 * type and class, and `ccfc_time` when it is not 0. */
typedef struct {
    int ccfc_reason;
    int ccfc_mode;
    int ccfc_type;
    int ccfc_class;
    int ccfc_time;
    int check_count; /* entries a query added to check_info, counted up from the caller's value */
    char ccfc_number[41];
    ccfc_check_info check_info[10];
} ccfc_forwarding_info;

typedef struct {
    int supple_cssi;
    int supple_cssu;
} ats_supple_notification_info;

/* One row of the current-call list. */
typedef struct {
    int call_id;
    int call_dir; /* 0 outgoing, 1 incoming */
    ATS_CALL_STAT call_stat;
    int call_mode;
    int call_mpty;
    int call_type; /* type of address: 145 international, 129 other */
    char call_number[41];
} ats_current_call_info;

/* Emergency call (eCall). The numbers are the modem's and are passed through. */
typedef struct {
    int mode;
    int voc_config;
    int redial_config;
    AT_AMSS_RES at_exe_result;
} st_ecl_cfg;

typedef struct {
    char* msd_info; /* the minimum set of data, hexadecimal text; null is sent as an empty text */
    AT_AMSS_RES at_exe_result;
} st_ecl_msd;

typedef struct {
    int activation_type;
    int type_of_call;
    int operate_mode;
    char dial_num[83];
    AT_AMSS_RES at_exe_result;
} st_ecl_start;

/* Vendor audio settings. */
typedef struct {
    int switch_mode;
    AT_AMSS_RES AtExecResult;
} StNsswitchInfo;

typedef struct {
    int echo_enable;
    int echo_time;
    int echo_single_len;
    int echo_single_dec_str;
    int echo_double_dec_str;
    AT_AMSS_RES AtExecResult;
} StEchoexInfo;

typedef struct {
    char pcmfr_info[233];
    AT_AMSS_RES AtExecResult;
} StPcmfrInfo;

typedef struct {
    int level;
    AT_AMSS_RES at_exe_result;
} st_mic_vol;

/* "ATD<number>;": a voice call. Null: -1. */
int AT_D(const char* phone_number);
/* "ATA": answer the incoming call. */
int AT_A(void);
/* "AT+CHUP": hang up. */
int AT_CHUP(void);
/* "AT+CHLD=<n>": hold, resume, release and swap calls. */
int AT_CHLD(ATS_HOLD_OPERATE_VALUE chld_operate_info);
/* "AT+CLIP=<n>": the caller's number with incoming calls on or off. */
int AT_CLIP(const ATS_CALL_ID_PRESENTATION mode);
/* "AT+CSSN=<cssi>,<cssu>": supplementary-service notifications. Null: -1. */
int AT_CSSN(ats_supple_notification_info* config_info);

/* Call waiting. The query (mode 2) sends "AT+CCWA=,2," and fills at most 10 entries, one per class
 * line of the reply; ccwa_count grows by the entries filled. An OK reply that does not parse
 * returns 0 with nothing filled. Any other mode than 0 to 4 sends an empty command line: the AT
 * server answers that from its stored memory-full report, and the function returns 0 when it
 * said OK. Null: -1. */
int AT_CCWA(ccwa_config_info* config_info);
/* Call forwarding. The query (ccfc_mode 2) fills at most 10 entries; an entry whose status is 0
 * keeps its number, type and time as the caller left them. An OK reply that does not parse
 * returns 0 with nothing filled. Null: -1. */
int AT_CCFC(ccfc_forwarding_info* config_info);
/* The current calls, into an array of at least 21 rows (at most 21 are filled, in reply order).
 * The number of rows filled is not returned: clear the array first and look for rows left
 * empty (call_id 0). An OK reply without calls, or one that does not parse, leaves the array as it
 * was and returns 0. Null: -1. */
int AT_CLCC(ats_current_call_info* current_list_info);

/* Read (AT_CHECK_VALUE) or set (AT_SET_VALUE) one integer: microphone mute (+CMUT), the vendor's
 * speaker mute (^SMUT), speaker volume (+CLVL), automatic answer after so many rings (S0).
 * A null pointer or another type: -1 without an exchange. */
int AT_CMUT(AT_OPERATE_VALUE type, int* mode);
int AT_SMUT(AT_OPERATE_VALUE type, int* mode);
int AT_CLVL(AT_OPERATE_VALUE type, int* value);
int AT_S0(AT_OPERATE_VALUE type, int* value);
/* Microphone gain (+CMIC), read (0) or set (1); at_exe_result is AT_CMD_RES_SUCCESS after an OK
 * reply that was used. */
int AT_CMIC(int cmd_type, st_mic_vol* value);

/* Vendor audio settings, read (0) or set (1). AtExecResult starts at AT_CMD_RES_ERR, becomes
 * AT_CMD_RES_SUCCESS on an OK reply (also when a read's reply then does not parse: -1), or the
 * mapped code of a CME/CMS error (return 0). Another cmdType returns -1 without an exchange, with
 * AtExecResult AT_CMD_RES_ERR. Null: -1. */
int AT_NSSWITCH(int cmdType, StNsswitchInfo* nsswitch);
int AT_ECHOEX(int cmdType, StEchoexInfo* echoex);
int AT_PCMFR(int cmdType, StPcmfrInfo* pcm_frq_rsp);

/* eCall. AT_Ecl_Cfg and AT_Ecl_Start set at_exe_result to AT_CMD_RES_SUCCESS after an OK reply;
 * AT_Ecl_Msd leaves its record alone. Null: -1. */
int AT_Ecl_Cfg(st_ecl_cfg* set_info);
int AT_Ecl_Msd(st_ecl_msd* msd_buf);
int AT_Ecl_Start(st_ecl_start* start_info);
int AT_Ecl_Stop(void);
int AT_Ecl_Push(void);

/* ---- Call event report parsers ----------------------------------------------------------------
 *
 * Each takes one report line and fills its record: 0, with ucCmdFrom 1 and ucResult 0 and every
 * field the line carries; -1 for a null argument or a line that is not the parser's report
 * (record untouched). A field the line lacks keeps the caller's value. */

typedef struct {
    unsigned char ucCmdFrom;
    unsigned char ucResult;
    unsigned char ucCallId;
    unsigned char ucTelType;
} CS_MSG_ORIG_S;

typedef struct {
    unsigned char ucCmdFrom;
    unsigned char ucResult;
    unsigned char ucCallId;
    unsigned char ucTelType; /* not in the report: left as it was */
} CS_MSG_CONF_S;

typedef struct {
    unsigned char ucCmdFrom;
    unsigned char ucResult;
    unsigned char ucCallId;
    unsigned char ucTelType;
} CS_MSG_CONN_S;

typedef struct {
    unsigned char ucCmdFrom;
    unsigned char ucResult;
    unsigned char ucCallId;
    unsigned char ucEndCause;
    uint32_t ulDuration; /* seconds */
    unsigned char ucReserve[3];
    unsigned char auCallCtlCause;
} CS_MSG_CEND_S;

typedef struct {
    unsigned char ucCmdFrom;
    unsigned char ucResult;
    unsigned char ucTelType;
    unsigned char ucCliFlag;
    char aucTelNum[32];
} CS_MSG_CLIP_S;

typedef struct {
    unsigned char ucCmdFrom;
    unsigned char ucResult;
    char call_number[32];
    unsigned char call_type;
    unsigned char call_class;
} CS_MSG_CCWA_S;

/* An emergency number announced by the network or the SIM. */
typedef struct {
    uint32_t index;
    uint32_t total;
    uint32_t ecalltype;
    uint32_t simpresent;
    uint32_t mcc;
    unsigned char ucCmdFrom;
    unsigned char ucResult;
    char ecallnum[32];
} CS_MSG_XLEMA_S;

typedef struct {
    unsigned char ucCmdFrom;
    unsigned char ucResult;
    unsigned char status;
    unsigned char voiceDomain;
} CS_MSG_CSCHANINFO_S;

typedef struct {
    unsigned char ucCmdFrom;
    unsigned char ucResult;
    unsigned char ucCallId;
    unsigned char ucCallState;
    unsigned char ucVoice_domain;
} CS_MSG_CALLSTATE_S;

int AtsOrigParse(char* pcRcvBuf, CS_MSG_ORIG_S* out);             /* "^ORIG: id,type" */
int AtsConfParse(char* pcRcvBuf, CS_MSG_CONF_S* out);             /* "^CONF: id" */
int AtsConnParse(char* pcRcvBuf, CS_MSG_CONN_S* out);             /* "^CONN: id,type" */
int AtsCendParse(char* pcRcvBuf, CS_MSG_CEND_S* out);             /* "^CEND: id,duration,end,cc_cause" */
int AtsClipParse(char* pcRcvBuf, CS_MSG_CLIP_S* out);             /* "+CLIP: number,type,,,,validity" */
int AtsCcwaParse(char* pcRcvBuf, CS_MSG_CCWA_S* out);             /* "+CCWA: number,type,class" */
int AtsCcwaImsParse(char* pcRcvBuf, CS_MSG_CCWA_S* out);          /* "^CCWA: number,type,class" */
int AtsXlemaParse(char* pcRcvBuf, CS_MSG_XLEMA_S* out);           /* "^XLEMA: ..." */
int at_cschaninfo_parse(char* pcRcvBuf, CS_MSG_CSCHANINFO_S* out); /* "^CSCHANNELINFO: status,domain" */
int AtsCallStateParse(char* pcRcvBuf, CS_MSG_CALLSTATE_S* out);   /* "^CCALLSTATE: id,state,domain" */

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_VOICE_H */
