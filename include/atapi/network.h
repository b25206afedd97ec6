/*
 * atapi/network.h - signal quality, registration state, operator selection and system
 * configuration. C11 and C++.
 *
 * Every number is passed on exactly as the modem printed it: no scaling, no thresholds.
 * Records are filled field by field; a field the reply does not carry keeps the caller's value,
 * so callers clear a record before the call when they need to tell the two apart.
 */
#ifndef ATAPI_NETWORK_H
#define ATAPI_NETWORK_H

#include <stdint.h>

#include "atapi/result.h"
#include "atapi/time.h"

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

/* ---- Operator selection and network names ---------------------------------------------------
 *
 * Values are the modem's +COPS texts ("2", not 2). A caller's text that fills its field without
 * a terminating NUL, or that would break the command line (a double quote in the operator name,
 * which the line quotes; a ';' or a control character in the unquoted mode, format or access
 * technology), is refused: -1, nothing sent, records untouched. */

#define AT_COPS_MAX_OPERATORS 20 /* operators a search keeps; later ones are dropped */

typedef struct {
    char Mode[5];          /* 0 automatic, 1 manual, 2 deregister, 3 set format, 4 manual/automatic */
    char Format[5];        /* 0 long name, 1 short name, 2 numeric */
    char OperatorName[64];
    char Rat[5];           /* "0", "2" or "7" adds the access technology; anything else leaves it out */
    int Reserve;
} NetChooseOperatorParam;

typedef struct {
    char State[5];                /* 0 unknown, 1 available, 2 current, 3 forbidden */
    char LongAlphanumeric[128];
    char ShortAlphanumeric[128];
    char numeric[16];
    char Rat[5];
    int Reserve;
} OperatorInfo;

typedef struct {
    int OperatorNumber;
    OperatorInfo Operator[AT_COPS_MAX_OPERATORS];
    int Reserve;
} OperatorList;

typedef struct {
    char Mode[5];
    char Format[5];
    char OperatorName[64];
    char Operator_Short_Name[128];
    char Operator_Full_Name[128];
    char Rat[5];
    int Reserve;
} RegistedOperator;

typedef struct {
    int CmdType;                  /* not written */
    OperatorList* TotalOper;      /* the caller's list, filled by a search */
    RegistedOperator* CurOperInfo; /* not filled by any function */
    int Reserve;
    AT_AMSS_RES AtExeResult;
} NetChooseOperatorResult;

/* One ^OPL entry. lac_start and lac_end are never filled. */
typedef struct {
    char numeric[64];
    char lac_start[8];
    char lac_end[8];
    int index_pnn;  /* the entry's PNN record number */
} OplRes;

typedef struct {
    OplRes* opl_list;  /* allocated by AT_GetOPList; the caller frees it with free() */
    int list_num;
    AT_AMSS_RES AtExeResult;
} OplResList;

typedef struct {
    int pnn_type;
    int pnn_index;  /* -1: all records */
} PnnPara;

typedef struct {
    char full_name[128];
    char short_name[128];
    char reserve[128];
    AT_AMSS_RES AtExeResult;
} PnnRes;

typedef struct {
    int type;
    char plmn_id[65];
    char plmn_long[129];
    char plmn_short[129];
    uint8_t spn_cond;  /* the reported number, kept to its low 8 bits */
    char spn_name[65];
} NetEonsResult;

typedef struct {
    char plmn_id[11];
    char sid[7];
    char nid[7];
    char sub_net_id[11];
    char ltm_off[3];
    AT_AMSS_RES AtExeResult;
} NetCnwiOperatorParam;

typedef struct {
    char fullname[128];
    int fcoding;
    int full_name_ci;
    char shortname[128];
    int scoding;
    int short_name_ci;
    AT_AMSS_RES AtExeResult;
} CpnnRsp;

/* The registered operator (+COPS?). No result field: an error reply returns -1. */
int AT_Cops(NetChooseOperatorParam* CopsMsg);
/* CmdType 1 selects with Param, 2 searches (up to 240 s) into Result->TotalOper, which must hold
 * AT_COPS_MAX_OPERATORS entries: a null TotalOper is refused before anything is sent. Any other
 * CmdType returns -1 without sending. A selection uses Mode alone when Mode is "2" and Rat is not
 * "0", "2" or "7". */
int AT_ChoseOperators(int CmdType, NetChooseOperatorParam* Param, NetChooseOperatorResult* Result);
/* The SIM's operator location list. On success opl_list holds list_num entries the caller frees
 * with free(); an OK reply without entries returns 0 and leaves opl_list and list_num alone. */
int AT_GetOPList(int simtype, OplResList* opllist);
/* The SIM's operator names: all records when pnn_index is -1, else the one record. *pnnlist
 * receives *pnnNum records the caller frees with free(); *pnnNum is 0 after any failure, and an
 * error reply (there is no result field to hold its code) returns -1. A pnn_index below -1 sends
 * an empty command line, which the AT server answers by itself. */
int AT_GetPnnList(PnnPara* pnn, int* pnnNum, PnnRes** pnnlist);
/* Names of plmn_id, or of the registered network when plmn_id is null or empty. plmn_id goes
 * into the line unquoted. No result field: an error reply returns -1. */
int AT_Eons(int type, const char* plmn_id, NetEonsResult* EonsRsp);
int AT_Cnwi(NetCnwiOperatorParam* CnwiParam);
int AT_GetSpn(int spnType, spnresult* spnrsp);
int AT_Cpnn(int pnnType, CpnnRsp* cpnnRsp);
/* The modem's clock, read from a "YYYY/MM/DD,hh:mm:ss" text at fixed places: tm_year is the full
 * year and tm_mon counts from 1 (see atapi/time.h). Only those six fields are written; time_zone,
 * AtExeResult and the rest of stTimeInfo keep the caller's values. An error reply returns -1. */
int AT_CCLK_CHECK(ST_AT_TIME* at_time_info);
/* Sends nothing and always returns -1: network time comes with the ^NWTIME report. */
int AT_NWTime(ST_AT_TIME* at_time_info);

/* ---- System configuration ---------------------------------------------------------------------
 *
 * Modes, bands, roaming and domains are the modem's own texts and numbers, passed through: band
 * masks are hexadecimal texts the library neither builds nor checks. Texts must end within their
 * fields and may not break the command line (see above). Query (0) or set (1); any other
 * CmdType returns -1 before sending. */

typedef struct {
    char Mode[5];
    char Acqorder[5];
    char Band[20];  /* hexadecimal mask */
    char Roam[5];
    char Srvdomain[5];
    int Reserve;
} NetConfigurationType;

typedef struct {
    int CmdType;  /* not written */
    char Mode[5];
    char Acqorder[5];
    char Band[20];
    char Roam[5];
    char Srvdomain[5];
    AT_AMSS_RES AtExeResult;
    int Reserve;
} NetConfigurationRes;

typedef struct {
    char Acqorder[20];  /* quoted in the set line, e.g. "030201" */
    char Band[20];
    char Roam[8];
    char Srvdomain[8];
    char lteBand[20];
    char reserver1[12];
    char reserver2[12];
    AT_AMSS_RES AtExeResult;
} NetConfigurationTypeEx;

typedef struct {
    char bandnum[20];  /* hexadecimal mask */
    char bandname[256];
} BAND_ITEM;

/* The test form of ^SYSCFG. The roaming and domain groups are not read (the reply's parser does
 * not take them): roam, roam_num, srvdomain and srvdomain_num keep the caller's values. */
typedef struct {
    int mode[10];
    int mode_num;
    int acqorder[10];
    int acqorder_num;
    BAND_ITEM band[20];
    int band_num;
    int roam[5];
    int roam_num;
    int srvdomain[10];
    int srvdomain_num;
} SYSCFG_INFO;

/* The test form of ^SYSCFGEX. The reply's parser keeps only the first band pair, so band_num is
 * at most 1 (AT_Syscfg_test lists every one); the LTE bands all come through. */
typedef struct {
    int acqorder_num;
    char acqorder[10][20];
    BAND_ITEM band[20];
    int band_num;
    BAND_ITEM LTEband[20];
    int LTEband_num;
    AT_AMSS_RES AtExeResult;
} SYSCFGEX_INFO;

/* Band priority: "AT^BANDPRIORITY=<rat>,<band_num>" and then each of the band_num bands.
 * band_num outside 0..AT_BANDPRIORITY_MAX_BANDS is refused before sending. */
#define AT_BANDPRIORITY_MAX_BANDS 32
typedef struct {
    int rat;
    int band_num;
    int band[AT_BANDPRIORITY_MAX_BANDS];
    AT_AMSS_RES AtExeResult;
} BANDPRIORITYRESULT;

typedef struct {
    uint32_t rf_state;
    int Reserve;
} LTERFInfo;

typedef struct {
    uint32_t rf_state;
    int Reserve;
    AT_AMSS_RES AtExeResult;
} LTERFResult;

typedef struct {
    uint32_t rsrp_thresh1;
    uint32_t rsrp_thresh2;
    uint32_t rsrp_thresh3;
    uint32_t sinr_thresh1;
    uint32_t sinr_thresh2;
    uint32_t sinr_thresh3;
    int Reserve;
} HOPARASETInfo;

typedef struct {
    uint32_t rsrp_thresh1;
    uint32_t rsrp_thresh2;
    uint32_t rsrp_thresh3;
    uint32_t sinr_thresh1;
    uint32_t sinr_thresh2;
    uint32_t sinr_thresh3;
    int Reserve;
    AT_AMSS_RES AtExeResult;
} HOPARASETResult;

typedef struct {
    uint32_t mode;
    int Reserve;
    AT_AMSS_RES AtExeResult; /* not read */
} LTEMEASMODEInfo;

typedef struct {
    uint32_t mode;
    int Reserve;
    AT_AMSS_RES AtExeResult;
} LTEMEASMODEResult;

/* Carrier aggregation as ^LCACTRL reports it; the field holds whatever number the modem sends. */
typedef enum {
    EN_LTE_CA_MODE_INIT = -1,
    EN_LTE_CA_MODE_DISABLE = 0,
    EN_LTE_CA_MODE_ENABLE = 1,
    EN_LTE_CA_MODE_INVALID_VALUE = 2
} ECO_LTE_CA_MODE;

typedef struct {
    ECO_LTE_CA_MODE CA_state;
    AT_AMSS_RES AtExeResult; /* not read */
} LTELCAInfo;

typedef struct {
    ECO_LTE_CA_MODE CA_state;
    AT_AMSS_RES AtExeResult;
} LTECAResult;

typedef enum {
    EN_LMIMOCTRL_INIT = -1,
    EN_LMIMOCTRL_DISABLE = 0,
    EN_LMIMOCTRL_ENABLE = 1,
    EN_LMIMOCTRL_INVALID_VALUE = 2
} ECO_LMIMOCTRL_STATE;

typedef struct {
    ECO_LMIMOCTRL_STATE MIMO_state;
    AT_AMSS_RES AtExeResult;
} LMIMOCTRLResult;

typedef enum {
    CA_SWITCH_DISABLE = 0,
    CA_SWITCH_ENABLE = 1,
    CA_SWITCH_INVALID_VALUE = 2
} CA_SWITCH_STATE;

typedef struct {
    char cell_lac[8];
    char cell_mcc[8];
    char cell_mnc[8];
    char cell_id[8];
} NETSCAN_CELL_DATA;

typedef struct {
    int cell_num;
    NETSCAN_CELL_DATA* CellListInfo;  /* allocated by At_Netscan; the caller frees it with free() */
    AT_AMSS_RES AtExeResult;
} NETSCAN_RESULT;

/* Both pointers are required for either CmdType. */
int AT_SysConfig(int CmdType, NetConfigurationType* Param, NetConfigurationRes* Result);
/* The set form maps no error reply: anything but OK returns -1. */
int AT_SysConfigEx(int CmdType, NetConfigurationTypeEx* nettype);
int AT_Syscfg_test(SYSCFG_INFO* sys_info);
int AT_Syscfgex_test(SYSCFGEX_INFO* sysex_info);
int AT_Setbandpriority(BANDPRIORITYRESULT* pbandpriority);
/* 0 on OK, else -1. */
int AT_SetCASwitch(CA_SWITCH_STATE CASwitch);
int AT_QueryCASwitch(CA_SWITCH_STATE* pCASwitch);
int AT_SetImsswitch(int iEnable);
/* The first number after "^IMSSWITCH:" (blanks skipped); -1 when the reply has none. */
int AT_QryImsswitch(int* pEnable);
/* Query (0) fills Result; set (1) sends Param's value. Result is required for both, Param only
 * for the set; a set answered with anything but OK returns -1. */
int AT_LCACTRL(int CmdType, LTELCAInfo* Param, LTECAResult* Result);
int AT_LMIMOCTRL(int CmdType, ECO_LMIMOCTRL_STATE Param, LMIMOCTRLResult* Result);
int AT_LTEMEASMODE(int CmdType, LTEMEASMODEInfo* Param, LTEMEASMODEResult* Result);
int AT_HOPARASET(int CmdType, HOPARASETInfo* Param, HOPARASETResult* Result);
int AT_RFSwitch(int CmdType, LTERFInfo* Param, LTERFResult* Result);
int AT_FASTDORM(int type, int time_value);
int AT_SetNetscanctl(int CellStatus);
/* Up to 20 cells (up to 240 s). pbandinfo, when neither null nor empty, is added unquoted. An OK
 * reply without cells returns 0 and leaves cell_num and CellListInfo alone. */
int At_Netscan(unsigned int CellMode, char* pbandinfo, NETSCAN_RESULT* pNetscanResult);

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_NETWORK_H */
