/*
 * atapi/network.h - signal quality and registration state. C11 and C++.
 *
 * Every number is passed on exactly as the modem printed it: no scaling, no thresholds.
 * Records are filled field by field; a field the reply does not carry keeps the caller's value,
 * so callers clear a record before the call when they need to tell the two apart.
 */
#ifndef ATAPI_NETWORK_H
#define ATAPI_NETWORK_H

#include <stdint.h>

#include "atapi/result.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The service-provider name as the SIM holds it (^SPN): read by the operator-name functions and,
 * decoded to UTF-8, by at_spn_get. */
typedef struct spnstruct {
    int disp_rplmn;    /* display condition */
    int coding;        /* 0: GSM 7-bit text; other: UCS2, as hexadecimal digits or raw bytes */
    char spn_name[33];
    int Reserve;
    AT_AMSS_RES AtExeResult;
} spnresult;

/* ---- Signal quality ------------------------------------------------------------------------ */

typedef struct {
    unsigned int rssi; /* 0..31, 99 unknown */
    unsigned int ber;  /* bit-error class, 99 unknown */
} AT_CSQ_ST;

typedef struct {
    char csq_list[128]; /* the whole reply of the test command */
} AT_CSQ_TEST_ST;

typedef struct {
    char rssi[5]; /* text of the last stored ^RSSI report */
} StRssiInfo;

typedef enum {
    SYSMODE_SIG_NOSERVICE = -1,
    SYSMODE_SIG_GSM = 0,
    SYSMODE_SIG_WCDMA = 1,
    SYSMODE_SIG_LTE = 2,
    SYSMODE_SIG_CDMA = 3,
    SYSMODE_SIG_EVDO = 4,
    SYSMODE_SIG_TD_SCDMA = 5,
    SYSMODE_SIG_CDMA_EVDO = 6
} SYSMODE;

typedef struct {
    SYSMODE sysmode;
    unsigned int value1; /* meaning depends on sysmode */
    unsigned int value2;
    unsigned int value3;
    unsigned int value4;
    unsigned int value5;
} HCSQ_STATUS;

typedef struct {
    int n;
    int m;
    int rssi;
    int rscp;
    int ecio;
    int rsrp;
    int rsrq;
    int rssnr;
    int ri;
    int cqi0;
    int cqi1;
    AT_AMSS_RES AtExeResult;
} CerssiRsp;

typedef struct {
    char rsrp[8]; /* text, e.g. "-95" */
    char rsrq[8];
    AT_AMSS_RES AtExeResult;
} AT_RSRP_STRU;

typedef struct {
    int rscp;
    int ecio;
    int sinr; /* never written: the reply template does not name it */
    AT_AMSS_RES AtExeResult;
} CsnrRsp;

int AT_Csq(AT_CSQ_ST* pResult);
int AT_Csq_Test(AT_CSQ_TEST_ST* pResult);
int AT_Rssi(StRssiInfo* rssi_res);
int AT_Rssi_Without_Magic(void);
int AT_Rssi_With_Magic(int imagic);
int AT_Hcsq(HCSQ_STATUS* hcsq);
int AT_Cerssi(int CmdType, CerssiRsp* rsp);
int AT_Rsrp(AT_RSRP_STRU* rsrp_info);
int AT_Csnr(CsnrRsp* rsp);

/* ---- Registration state -------------------------------------------------------------------- */

typedef struct {
    int n;
    int stat;
    char lac[16]; /* hexadecimal text as the modem sends it */
    char ci[16];
    char act[4];
    AT_AMSS_RES AtExeResult;
} LacCellid;

typedef struct {
    int ReportMode;
    int ReportState;
    char LacCode[16];
    char CellID[16];
    char act[4];
    AT_AMSS_RES AtExeResult;
} CgregRsp;

typedef struct {
    int ReportMode;
    int ReportState;
    char LacCode[16];
    char CellID[16];
    AT_AMSS_RES AtExeResult;
} CeregRsp;

typedef struct {
    uint8_t state;
    AT_AMSS_RES AtExeResult;
} PsAttatch;

typedef struct {
    uint8_t state;
    uint8_t mode;
    uint8_t psState;
    uint8_t csState;
    AT_AMSS_RES AtExeResult;
} AttatchInfo;

typedef struct {
    int srv_status;
    int srv_domain;
    int roam_status;
    int sys_mode;
    int sim_state;
    int lock_state;
    int submode;
    AT_AMSS_RES AtExeResult;
} StSysinfo;

typedef struct {
    int SrvStatus;
    int SrvDomain;
    int RoamStatus;
    int SimState;
    int SimLockState;
    int SysMode;
    char SysModeName[20];
    int SubMode;
    char SubModeName[20];
    AT_AMSS_RES AtExeResult;
} SysinfoEx;

typedef struct {
    unsigned char plmnid[64]; /* text */
    uint32_t srvdomain;
    uint32_t rejectcause;
    uint32_t rattype;
    AT_AMSS_RES AtExeResult;
} REJECT_INFOEX;

typedef struct {
    int ReportMode;
    AT_AMSS_RES AtExeResult;
} SrvstSet;

typedef struct {
    int ReportMode;
    AT_AMSS_RES AtExeResult;
} ModeSet;

typedef struct {
    int roam;
    AT_AMSS_RES AtExeResult;
} RoamSwitch;

typedef enum {
    UNKNOW = 0,
    NATIONNAl = 1,
    INTERNATIONAL = 2
} ROAMSTATE;

typedef struct {
    ROAMSTATE state;
    int rat;
    AT_AMSS_RES AtExeResult;
} StRoamInfo;

/* Query (0) or set (1); any other command type returns -1 before sending. */
int AT_Creg(int cmdType, LacCellid* lac_cellid);
int AT_Cgreg(int CmdType, CgregRsp* rsp);
int AT_Cereg(int CmdType, CeregRsp* rsp);
int AT_Cgatt(int CmdType, PsAttatch* psattatch);
int AT_Cgcatt(int CmdType, AttatchInfo* attatchInfo);
int AT_PrefRoam(int CmdType, RoamSwitch* pRoamSwitch);
/* Set (1) only. */
int AT_Srvst(int CmdType, SrvstSet* rsp);
int AT_Mode(int CmdType, ModeSet* rsp);

int AT_SysinfoCommand(StSysinfo* Result);
int AT_SysinfoexCommand(SysinfoEx* Result);
int AT_RejinfoexCommand(REJECT_INFOEX* Result);
int AT_RejInfoEx(REJECT_INFOEX* Result);
int AT_Cellroam(StRoamInfo* roam);

/* System information, cached in the router's configuration store: the store first, the modem
 * only when nothing is stored yet, and the modem's answer is written back. */
int AT_SysInfo(StSysinfo* Result);
int AT_SysInfo_voice(StSysinfo* Result);
int AT_SysInfoEx(SysinfoEx* Result);
/* 0 on a hit, -1 on a miss or failure. */
int GetSysinfoFromDB(StSysinfo* pResult);
int GetSysinfoexFromDB(SysinfoEx* pResult);
/* Failures are only traced. */
void SetSysinfoToDB(StSysinfo* pResult);
void SetSysinfoexToDB(SysinfoEx* pResult);

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_NETWORK_H */
