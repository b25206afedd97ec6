/*
 * atapi/sms.h - messaging: SMS storage, reading, sending and writing; the phonebook; USSD. C11 and C++.
 *
 * Records are owned by the caller and filled field by field: a field the reply does not carry
 * keeps the caller's contents. Input text fields are read no further than their width, so an
 * unterminated field is taken as its full width and never read past. A caller's text that would
 * break the command line (a double quote inside a quoted argument, a ';' in an unquoted one, a
 * control character anywhere in the command part) or a line that does not fit the 640-byte
 * command field is refused: -1, nothing sent, record untouched.
 *
 * Read/set dispatchers take 0 (AT_CHECK_VALUE) to read the current setting and 1 (AT_SET_VALUE)
 * to set it; they return -1 only when the operation returned -1, and 0 otherwise. What another
 * command type does is said per function.
 */
#ifndef ATAPI_SMS_H
#define ATAPI_SMS_H

#include <stdint.h>

#include "atapi/result.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- SMS storage and reading ---------------------------------------------------------------- */

/* Status of a stored message. */
typedef enum {
    AT_SMS_STAT_UNREAD = 0,
    AT_SMS_STAT_READ = 1,
    AT_SMS_STAT_UNSENT = 2,
    AT_SMS_STAT_SENT = 3,
    AT_SMS_STAT_ALL = 4
} EMSGState;

/* One message read as a PDU. */
typedef struct {
    int index;               /* input: store index */
    EMSGState state;         /* any number the modem sends is kept as it is */
    uint16_t length;         /* TPDU length in octets, as the modem reports it */
    char reserved[16];       /* never written */
    char pdu[512];           /* hexadecimal PDU text, service-centre part included */
    AT_AMSS_RES AtExeResult;
} StPerSms;

/* Delete one message (index, delflag 0) or several by status (delflag 1 to 4). */
typedef struct {
    int index;
    int delflag;
    int Reserve;
    AT_AMSS_RES AtExeResult; /* result of the delete */
} StCmgdPara;

typedef struct {
    int* index_list;         /* allocated by the library, freed by the caller with free() */
    int length;              /* entries in index_list */
    char deflag[25];         /* never written */
    AT_AMSS_RES AtExeResult;
} StCmgdRsp;

/* Store selection: the store names (two-letter store codes) and the counts, as decimal text. */
typedef struct {
    char mem1[5];
    char used1[5];
    char total1[5];
    char mem2[5];
    char used2[5];
    char total2[5];
    char mem3[5];
    char used3[5];
    char total3[5];
    AT_AMSS_RES AtExeResult;
} StCpms;

typedef struct {
    char mem1[5];
    char mem2[5];
} StCpmsRecord;

typedef struct {
    StCpmsRecord record[3];  /* the first three store lists of the reply */
    AT_AMSS_RES AtExeResult;
} StCpmsList;

typedef struct {
    char sca[32];            /* service centre number */
    int tosca;               /* type of address */
    AT_AMSS_RES AtExeResult;
    int Reserve;
} StCsca;

typedef struct {
    int mode;                /* 0 PDU, 1 text */
    AT_AMSS_RES AtExeResult;
} StSmMode;

typedef struct {
    uint8_t mode;
    char mids[1220];         /* message identifiers, as text */
    char dcss[64];           /* data coding schemes, as text */
    AT_AMSS_RES AtExeResult;
} StSmCscb;

typedef struct {
    uint8_t mode;
    int mt;
    int bm;
    int ds;
    int bfr;
    AT_AMSS_RES AtExeResult;
} StSmCnmi;

typedef struct {
    int ReadTag;
    AT_AMSS_RES AtExeResult;
    int Reserve;
} StCmsrRes;

typedef struct {
    AT_AMSS_RES AtExeResult;
} StCmmt;

typedef struct {
    char mem_type[5];        /* the store the last "^SMMEMFULL" report named */
    AT_AMSS_RES AtExeResult;
} StSmmemfull;

typedef struct {
    int Ack;
    int Prt;
    int Fmt;
    int Prv;
    AT_AMSS_RES AtExeResult;
} StHsmssInfo;

typedef struct {
    AT_AMSS_RES AtExeResult;
    int Reserve;
} StHsmsssRes;

/* A message read as text with its header (the vendor form). */
typedef struct {
    int index;
    int mode;                /* the modem's read mode, passed on as it is */
} ReadTextEcCmd;

typedef struct {
    uint16_t year;
    uint8_t month;
    uint8_t day;
    uint8_t hour;
    uint8_t minute;
    uint8_t second;
    uint16_t lang;
    uint16_t format;
    uint16_t length;         /* bytes of the body copied into msg */
    uint16_t prt;
    uint16_t prv;
    uint16_t type;
    uint16_t stat;
    char callerID[22];
    char msg[162];           /* the body as raw bytes (UCS-2 may hold NULs); not terminated by the library */
    AT_AMSS_RES AtExeResult;
} ReadTextEcRsp;

/* cmd_type 0 reads the store selection into cpms_res (cpms_para is not read and may be null);
 * 1 selects the stores named by mem1, mem2 and mem3 of cpms_para and fills the six counts of
 * cpms_res. Other types: -1. A "+CME ERROR"/"+CMS ERROR" reply goes into cpms_res->AtExeResult
 * (return 0). An OK reply sets AtExeResult to AT_CMD_RES_SUCCESS even when its text then does not
 * parse (return -1); the same holds for every query of this part unless said otherwise. */
int AT_Cpms(int cmd_type, StCpms* cpms_para, StCpms* cpms_res);
int AT_Hcpms(int cmd_type, StCpms* cpms_para, StCpms* cpms_res);
/* The stores the modem supports: at most three lists are kept. Error replies: -1. */
int AT_Cpms_test(StCpmsList* list);
/* Reads the message at stpersms->index. Error replies, "+CMS ERROR" included: -1. */
int AT_Cmgr(StPerSms* stpersms);
/* Reads a message as text: the body (at most 161 bytes, raw) goes into Rsp->msg and its size
 * into Rsp->length. A negative announced length copies nothing; the body is never read past the
 * reply's 1500 bytes. */
int AT_Hcmgr(ReadTextEcCmd* cmd, ReadTextEcRsp* Rsp);
/* cmd_type 1 deletes (needs cmgd_para; the result goes into cmgd_para->AtExeResult); 0 lists the
 * stored indexes (needs cmgd_rsp). An empty store lists length 0 and a null index_list. Other
 * types: -1. */
int AT_Cmgd(int cmd_type, StCmgdPara* cmgd_para, StCmgdRsp* cmgd_rsp);
int AT_Hcmgd(int cmd_type, StCmgdPara* cmgd_para, StCmgdRsp* cmgd_rsp);
/* Unread indexes into sms_list (at most list_size of them); their count through list_length.
 * Sends "AT+CGMI" and wants "^CMGI:" lines, as the router's message service has always done. An
 * error reply returns 0 and writes nothing. */
int AT_Cmgi_unread_sms(int* sms_list, int list_size, int* list_length);
/* Message format (0 PDU, 1 text). Other command types: 0, nothing sent. */
int AT_smmode(int cmdType, StSmMode* sm_mode);
int AT_hsmmode(int cmdType, StSmMode* sm_mode);
/* New-message indications. Other command types: 0, nothing sent. */
int AT_cnmi(int cmdType, StSmCnmi* smcnmi);
/* cmd_type 0 reads into csca_res; 1 sets the number in csca_para->sca with type 145 when
 * csca_para->tosca is 0 and the number starts with '+', else 129 (a tosca the caller set is not
 * sent), the result in csca_res. Both records are needed for a set. Other types: 0, nothing sent. */
int AT_Csca(int cmd_type, StCsca* csca_para, StCsca* csca_res);
/* Cell broadcast selection. The set sends dcss only together with mids; a line that the lists
 * would make longer than the command field is refused. Other command types: 0, nothing sent. */
int AT_cscb(int cmdType, StSmCscb* smcscb);
/* cmd_type 0 reads the read-status tag, 1 sets it to ReadTag. Other types: -1. */
int AT_Cmsr(int cmd_type, int ReadTag, StCmsrRes* cmsr_res);
/* Marks a message as read: index_tmp must be 0 or more and state 1, else -1 and nothing sent. */
int AT_Cmmt(int index_tmp, int state, StCmmt* result);
int AT_Hsmsss(StHsmssInfo* hsmsss_param, StHsmsssRes* hsmsss_result);
/* The last "^SMMEMFULL" report the AT server holds (an empty command line). Returns 0 also when
 * none is held; mem_type and AtExeResult are written only when a report names a store. */
int AT_smmemfull(StSmmemfull* sm_full_res);

/* ---- SMS sending and writing ---------------------------------------------------------------- */

/* A message in PDU form. */
typedef struct {
    uint16_t length;         /* TPDU length in octets, without the service-centre part */
    int state;               /* store status for a write (EMSGState) */
    char pdu[512];           /* hexadecimal PDU text */
} StCmgsInfo;

typedef struct {
    int mr;                  /* message reference */
    AT_AMSS_RES AtExeResult;
    int Reserve;
} StCmssRes;

typedef struct {
    int index;               /* store index given to the message */
    AT_AMSS_RES AtExeResult;
    int Reserve;
} StCmgwRes;

typedef struct {
    int index;
    char da[23];             /* destination; empty: the one stored with the message */
    int toda;                /* type of the destination; -1: none given */
    int Reserve;
} StCmssPara;

typedef struct {
    char Number[24];
    int tooa;
    char Text[256];          /* the body, raw bytes as the modem's text form wants them */
    int index;
    AT_AMSS_RES AtExeResult;
} StHcmgsTextInfo;

typedef struct {
    AT_AMSS_RES AtExeResult;
    int Reserve;
} StHcmgsRes;

typedef struct {
    uint16_t tooa;
    uint16_t stat;
    uint16_t ptr;
    uint16_t type;
    uint16_t format;
    uint16_t lang;
    uint16_t year;
    uint8_t month;
    uint8_t day;
    uint8_t hour;
    uint8_t minute;
    uint8_t second;
    char oa_ad[22];          /* originating or destination number */
    char text[162];          /* the body, raw bytes */
} WriteHTextMsgCmd;

typedef struct {
    int index;
    AT_AMSS_RES AtExeResult;
    int Reserve;
} WriteHTextMsgRsp;

typedef struct {
    AT_AMSS_RES AtExeResult;
} StHsmf;

/* Standard text-mode send and write: declared, not supported. */
typedef struct {
    char Number[20];
    uint8_t tooa;
    char Text[160];
    int index;
    AT_AMSS_RES AtExeResult;
} StCmgsTextInfo;

typedef struct {
    char Number[20];
    uint8_t tooa;
    char Status[20];
    char Text[160];
    int index;
    AT_AMSS_RES AtExeResult;
} StCmgwTextInfo;

/* Sends a PDU: the command, a CR, the PDU text and Ctrl-Z in one request. A PDU too long for the
 * command field is cut (the modem then refuses the message). Error replies: -1. */
int AT_Cmgs(StCmgsInfo* sms_pdu, StCmssRes* cmgs_result);
/* Writes a PDU into the store with status sms_pdu->state. Error replies: -1. */
int AT_Cmgw(StCmgsInfo* sms_pdu, StCmgwRes* cmgw_result);
/* Sends a stored message, to cmss_para->da when it is not empty (inserted without quotes).
 * Error replies go into cmss_result->AtExeResult (return 0). */
int AT_Cmss(StCmssPara* cmss_para, StCmssRes* cmss_result);
/* Sends a text: the header line, a CR and the 256 bytes of Text exactly as they are (NULs
 * included), with the request's length field left 0: the AT server knows this command by its name
 * and sends the 256 bytes after the modem's prompt. An error reply returns 0 and leaves
 * AtExeResult as the caller set it; the outcome arrives later as "^HCMGSS" or "^HCMGSF". */
int AT_Hcmgs(StHcmgsTextInfo* sms_text, StHcmgsRes* hcmgs_result);
/* Writes a text: the header line, a CR and the 162 bytes of text exactly as they are (sent by the
 * AT server by size, as for AT_Hcmgs). */
int AT_Hcmgw(WriteHTextMsgCmd* cmd, WriteHTextMsgRsp* Rsp);
int AT_Hsmf(int state, StHsmf* result);
int AT_Cmgs_Text(StCmgsTextInfo* cmgstextinfo);  /* always -1 */
int AT_Cmgw_Text(StCmgwTextInfo* textinfo);      /* always -1 */

/* ---- Phonebook ------------------------------------------------------------------------------ */

typedef struct {
    char storageflag[8];     /* store name */
    char Reserve[20];
    AT_AMSS_RES AtExeResult;
} StCpbsPara;

typedef struct {
    int usedNum;
    int totalNum;
    char storageflag[8];
    AT_AMSS_RES AtExeResult;
} StCpbsRsp;

typedef struct {
    int cmdType;             /* 0 or 1 write, 2 delete */
    int index;
    int phoneType;           /* type of address */
    int coding;              /* 0, 1 or 2; any other value is sent as 0 */
    int nameLength;          /* bytes of text to send, 0 to 512 */
    char phonenumber[80];
    char text[512];          /* the name, raw bytes */
    char Reserve[20];
    AT_AMSS_RES AtExeResult;
} StCpbwPara;

typedef struct {
    int phoneMaxLength;      /* never written by AT_Cpbw */
    int nameMaxLength;
    int emailMaxLength;
    AT_AMSS_RES AtExeResult;
} StCpbwRsp;

typedef struct {
    int indexBegin;          /* the entry AT_Cpbr reads */
    int indexEnd;            /* not sent */
    AT_AMSS_RES AtExeResult;
} StCpbrPara;

typedef struct {
    int phoneMaxLength;
    int nameMaxLength;
    int emailMaxLength;
    int index;
    int phoneType;
    int indexsBegin;
    int indexsEnd;
    int coding;
    int nameLength;
    char phonenumber[80];
    char text[512];          /* the name; raw bytes when the entry decoder read it */
    char Reserve[20];
    AT_AMSS_RES AtExeResult;
} StCpbrRsp;

/* cmd_type 0 reads the selected store into cpbs_rsp; 1 selects cpbs_para->storageflag, the result
 * in cpbs_rsp->AtExeResult. Both set and read need cpbs_rsp; the set needs cpbs_para too. Other
 * types: -1. */
int AT_Cpbs(int cmd_type, StCpbsPara* cpbs_para, StCpbsRsp* cpbs_rsp);
/* Writes (cpbw_para->cmdType 0 or 1) or deletes (2) an entry; other cmdType values give -1. The
 * cmd_type argument is not read: the record says what to do. A write sends exactly nameLength
 * bytes of text (NULs included) and sets the request's length field so that the AT server sends
 * them whole; a nameLength outside 0..512 is refused. The result goes into cpbw_rsp->AtExeResult;
 * both records are needed. */
int AT_Cpbw(int cmd_type, StCpbwPara* cpbw_para, StCpbwRsp* cpbw_rsp);
/* cmd_type 0 reads the entry at cpbr_para->indexBegin; 1 (and 2) asks the index range and the
 * field lengths. Other types: -1. Both records are needed. An OK reply sets cpbr_rsp->AtExeResult;
 * an error reply's code goes into cpbr_para->AtExeResult. A name with NUL bytes in the reply (the
 * reply's length beyond its text) is taken by the entry decoder, which fills coding, nameLength,
 * phonenumber (cut to 79 characters) and text (at most 512 bytes) and leaves index and phoneType. */
int AT_Cpbr(int cmd_type, StCpbrPara* cpbr_para, StCpbrRsp* cpbr_rsp);

/* ---- USSD ----------------------------------------------------------------------------------- */

typedef struct {
    int reportType;          /* first parameter of the command; 2 cancels the dialogue */
    char str[512];           /* the string as the modem expects it, encoded and quoted by the caller */
    int strLength;           /* bytes of str to send, 0 to 512 */
    int desc;                /* data coding scheme */
    AT_AMSS_RES AtExeResult;
} StCusdInfo;

typedef struct {
    uint8_t mode;
    AT_AMSS_RES AtExeResult;
} StUssdMode;

/* CmdType must be 1. The strLength bytes of str go on the line unchanged; bytes that would break
 * the line (a control character or NUL, a ';' outside double quotes) or a line longer than the
 * command field are refused: -1, nothing sent. A plain "ERROR" reply gives -1 with AtExeResult
 * AT_CMD_RES_ERR; other error replies -1 with AtExeResult untouched. The network's answer arrives
 * later as the unsolicited "+CUSD" report. */
int AT_Cusd_Msg_Send(int CmdType, StCusdInfo* cusdcmd);
/* cmdType 0 reads the USSD mode, 1 sets it; other types -1. */
int AT_UssdMode(int cmdType, StUssdMode* ussd_mode);

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_SMS_H */
