/*
 * atapi/sim.h - SIM and PIN: PIN management, SIM files and identity, the service-provider name. C11 and C++.
 *
 * PINs, PUKs and passwords pass through these functions into one command line and nowhere else:
 * they are never traced, and the request that carried one is wiped before the function returns.
 * A caller's text that would break its command line (a double quote inside quotes, a ';', a
 * control character, a line longer than 639 characters) is refused: -1, nothing sent, the
 * record untouched.
 */
#ifndef ATAPI_SIM_H
#define ATAPI_SIM_H

#include <stdint.h>

#include "atapi/comm.h"
#include "atapi/network.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- PIN management ------------------------------------------------------------------------
 *
 * The PIN state word ("READY", "SIM PIN", "SIM PUK", ...) is handed on as the modem wrote it.
 * A SIM that wants its PIN or PUK usually answers a command with a +CME ERROR, which comes back
 * as return 0 with the mapped code in AtExeResult (AT_CMD_RES_PIN_REQ, AT_CMD_RES_PUK_REQ,
 * AT_CMD_RES_ERR for a wrong code). CmdType and Reserve of the records are the caller's own:
 * the library never writes them. */

/* +CPIN state. */
typedef struct {
    int CmdType;
    char Code[32];
    AT_AMSS_RES AtExeResult;
    int Reserve;
} PinMgResultCode;

/* Attempt counters of ^CPIN, each the decimal text the modem sent (not converted). */
typedef struct {
    char ResTimes[8];     /* attempts left for the code now asked for */
    char ResPukTimes[8];
    char ResPinTimes[8];
    char ResPuk2Times[8];
    char ResPin2Times[8];
    int Reserve;
} PinResTimes;

/* ^CPIN state with the counters; a counter the reply lacks keeps the caller's text. */
typedef struct {
    int CmdType;
    char Code[32];
    PinResTimes ResTimes;
    AT_AMSS_RES AtExeResult;
    int Reserve;
} PinMgResultCodeEx;

/* Input of the facility lock. Each text must end within its array (at most width - 1
 * characters): a text without its terminator is refused before anything is sent. */
typedef struct {
    char Fac[5];     /* facility, such as "SC" (the SIM PIN lock) */
    char Mode[5];    /* "0" unlock, "1" lock, "2" query */
    char Passwd[11]; /* the facility's password, up to 10 characters */
    char classx[5];  /* service class; not sent */
    int Reserve;
} PinEnStruct;

typedef struct {
    int CmdType;
    AT_AMSS_RES AtExeResult;
    char Status[5]; /* the status of a query ("0" off, "1" on), as the modem sent it */
    int Reserve;
} PinEnableResult;

typedef struct {
    AT_AMSS_RES AtExeResult;
} PinModifyResultCode;

/* CmdType 0 asks the state ("AT+CPIN?" / "AT^CPIN?"), 1 enters Pin, or the PUK Pin with the new
 * PIN NewPin ("AT+CPIN=%s[,%s]" unquoted, 30 s / "AT^CPIN=\"%s\"[,\"%s\"]" quoted, 5 s); any
 * other CmdType returns -1 without sending. +CPIN sends the two-code form only for a non-empty
 * NewPin, ^CPIN for any non-null NewPin (an empty one included). A failed exchange returns 0
 * with AtExeResult as the caller set it: preset it to tell the two apart. */
int AT_PinManagement(int CmdType, char* Pin, char* NewPin, PinMgResultCode* Result);
int AT_PinManagementEx(int CmdType, char* Pin, char* NewPin, PinMgResultCodeEx* Result);
/* CmdType must be 1; Param->Mode "2" queries the facility ("AT+CLCK=\"%s\", %s", Status
 * filled), "0" or "1" unlocks or locks it with Param->Passwd. Returns 0, -1, or the exchange's
 * failure code. */
int AT_PinEnableDisableCmd(int CmdType, PinEnStruct* Param, PinEnableResult* Result);
/* Changes a facility's password ("AT+CPWD"). A plain ERROR reply returns 0 with AtExeResult
 * AT_CMD_RES_ERR. Returns 0, -1, or the exchange's failure code. */
int AT_PinModify(char* Fac, char* OldPwd, char* NewPwd, PinModifyResultCode* Result);

/* The connection manager's PIN calls: the +CPIN query and entry of AT_PinManagement.
 * AT_cpin_execute takes Pin and NewPin both or neither (-1 otherwise); an empty NewPin sends
 * the one-code form. */
int AT_cpin_check(PinMgResultCode* Result);
int AT_cpin_execute(char* Pin, char* NewPin, PinMgResultCode* Result);

/* ---- Card mode -------------------------------------------------------------------------------- */

typedef enum {
    CARD_INEXIST = 0,
    SIM_CARD = 1,
    USIM_CARD = 2,
    CSIM_CARD = 3,
    UIM_CARD = 4
} AT_CARD_MODE;

typedef struct {
    AT_CARD_MODE AtFieldValue; /* the number the modem sent, also when none of the names */
    AT_AMSS_RES AtExeResult;
    int Reserve;
} ST_AT_CARDMODE;

/* "AT^CARDMODE". An OK reply that does not parse returns -1 with the record untouched. */
int AT_cardmode(ST_AT_CARDMODE* result);

/* ---- SIM file access -------------------------------------------------------------------------- */

typedef enum {
    AT_CRSM_FILEID_EFLI = 28421,      /* 0x6F05 */
    AT_CRSM_FILEID_EFPL = 12037,      /* 0x2F05 */
    AT_CRSM_FILEID_APN = 28503,       /* 0x6F57 */
    AT_CRSM_FILEID_ICCID = 12258,     /* 0x2FE2 */
    AT_CRSM_FILEID_SPN = 28486,       /* 0x6F46 */
    AT_CRSM_FILEID_MSISDN = 28480,    /* 0x6F40 */
    AT_CRSM_FILEID_EFAD = 28589,      /* 0x6FAD */
    AT_CRSM_FILEID_SIM_GID = 28478,   /* 0x6F3E */
    AT_CRSM_FILEID_SIM_BRAND = 28670  /* 0x6FFE */
} AT_CRSM_FILEID;

typedef struct {
    AT_CRSM_FILEID id;
    const char* pathid; /* null: no path known */
} StCrsmParaList;

typedef struct {
    int command; /* 176 READ BINARY, 178 READ RECORD, 214 UPDATE BINARY, 242 STATUS, ... */
    int fileid;
    int p1;
    int p2;
    int p3;
    char* date;   /* data of an update command, sent unquoted; null for none */
    char* pathid; /* written by AT_Crsm: the path it used, pointing into a constant table */
} StCrsmPara;

typedef struct {
    int w1; /* status word 1 (sw1) */
    int w2; /* status word 2 (sw2) */
    char* response; /* hexadecimal text, allocated for the caller, who frees it with ATS_FreeMemory
                     * (free() also does); left as it was when the reply carries none, so set it
                     * to null before the call */
    AT_AMSS_RES AtExeResult;
} StCrsmRes;

/* Restricted SIM access: "AT+CRSM=cmd,file,p1,p2,p3,[data],\"path\"". The path comes from the
 * card type's table: the card type is asked once per process (AT_cardmode) and kept. A file the
 * table does not know is still asked for, with an empty path (""). Any reply other than OK,
 * error replies included, returns -1. */
int AT_Crsm(StCrsmPara* crsmParam, StCrsmRes* crsmResult);

/* Generic SIM access: the APDU cmd (hexadecimal text of cmd_length characters) goes out as
 * "AT+CSIM=%d,\"%s\"". cmd_length is sent as given and not checked against cmd; the answer's
 * length is not checked either. cmd_response receives the response text, cut to 260
 * characters. -1 when the reply carries no response. */
typedef struct {
    unsigned int cmd_length;
    char* cmd;
    char cmd_response[261];
} at_sim_cmd_packet;

int AT_Csim(at_sim_cmd_packet* csim_cmd);

/* The MNC length (2 or 3) from EF AD, or -1. */
int AT_get_mnc_length(void);
/* GID1 as hexadecimal text, cut to ilen bytes with its terminator (READ BINARY with p3 0, the
 * whole file). 0 or -1. */
int AT_get_sim_gid1(char* pstResult, int ilen);
/* The first access point name of EF ACL (dotted labels), cut to buf_len bytes with its
 * terminator. 0 or -1. */
int AT_get_sim_apn(char* pszSimApn, unsigned int buf_len);
/* Decodes the first entry of an EF ACL (hexadecimal text) into apn_name, which must hold 33
 * bytes: at most 32 characters are written, then the terminator. Data that ends inside an
 * entry ends the name there. 0 or -1. */
int parse_sim_apn(unsigned char* pData, char* apn_name);

/* ---- Identity ---------------------------------------------------------------------------------- */

typedef struct {
    char name[90];
    char num[42];
    int type;
} StCnumInfo;

/* Own numbers: one entry per +CNUM line. pInfos is allocated for the caller (free it with
 * ATS_FreeMemory or free()); a SIM without own numbers gives num 0 and pInfos null. */
typedef struct {
    StCnumInfo* pInfos;
    int num;
    AT_AMSS_RES AtExeResult;
} StSetCunmInfo;

typedef struct {
    char Code[21];
    AT_AMSS_RES AtExeResult;
} StScid;

typedef struct {
    char iccid[64];
    AT_AMSS_RES AtExeResult;
} StIccid;

typedef struct {
    char curr_sid[64];
    char curr_nid[64];
    char curr_evdo_subnetid[64];
    AT_AMSS_RES AtExeResult;
} StCurrsid;

typedef enum {
    AT_SIMSWITCH_OUTER = 0,
    AT_SIMSWITCH_INNER = 1
} at_simswitch_type;

typedef struct {
    char mcc_mnc[8];
    AT_AMSS_RES AtExeResult;
    int Reserve;
} APHPLMN;

int AT_Cnum(StSetCunmInfo* Result);
int AT_SCID(StScid* result);
int AT_Iccid(StIccid* pResult);
int AT_Currsid(StCurrsid* pResult);
/* iCmdType 0 reads the setting into the pointed value, 1 sends the pointed value; any other
 * type returns -1 without sending. Replies other than OK return -1. */
int AT_SimSwitch(int iCmdType, at_simswitch_type* pSimType);
int AT_SimGpio(int iCmdType, int* pGpioSwitch);
/* The home PLMN ("AT^APHPLMN?"). Only CmdType 0 (query) exists; any other returns -1 without
 * sending. */
int AT_aphplmn(int CmdType, APHPLMN* aph_plmn);

/* ---- The service-provider name -----------------------------------------------------------------
 *
 * at_spn_get reads "AT^SPN=1" and puts the name into Result->Code as UTF-8. A name that cannot
 * be decoded leaves Code empty with AtExeResult AT_CMD_RES_SUCCESS. A name whose UTF-8 form is
 * longer than the 32 bytes the working record holds is cut after its last whole character. */
int at_spn_get(nvramcontnetres* Result);

/* The steps of the decoding, for callers that hold a ^SPN reply already. */
int parse_spn_vf(char* cmd_report, spnresult* Result, char* Atmatch);
int handle_spn_name(spnresult* Result);
/* puszDst holds 32 characters (31 and the terminator). The text holds iTextLen bytes; of a
 * UCS2 name at most 32 bytes (raw) or 64 hexadecimal digits are read. */
int Decode_SPN_to_UCS2(int iCode, const unsigned char* puszText, int iTextLen, unsigned short* puszDst);
/* pWCHARData holds dwBufLen + 1 characters; with dwBufLen 0 (count only) dwInputLen + 1. */
int GSM_7BitToWCHAR(const unsigned char* pGSM_7Data, int dwInputLen, unsigned short* pWCHARData, int dwBufLen,
                    int* dwOutputLen);
/* puszDst holds iSrcLength / 2 bytes. */
int gsmString2Bytes(const char* pszSrc, unsigned char* puszDst, int iSrcLength);
/* pszDst holds iSrcLength / 2 + 1 characters. */
int ByteOrder2WideChar(const unsigned char* puszSrc, unsigned short* pszDst, int iSrcLength);
int spn_wcslen(unsigned short* src);
/* pUTF8 holds 3 * MaxLength bytes; no terminator is written. */
int ucs2_to_utf8(unsigned short* pUCS, unsigned char* pUTF8, int MaxLength);

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_SIM_H */
