/*
 * atapi/ndis.h - the data connection: NDIS dial and connection status, PDP contexts, authentication and
 * addressing. C11 and C++.
 *
 * Records are filled field by field; a field the reply does not carry keeps the caller's value, so
 * callers clear a record before the call when they need to tell the two apart. Numbers (states,
 * error codes, capability bits) are passed on as the modem printed them.
 *
 * Texts the caller hands in (APN, user name, password, addresses) are put into the command line only
 * when they are terminated within their field, hold no control character and, where the line puts
 * them between double quotes, no double quote (unquoted ones: no ';'). Anything else is refused: the
 * function returns -1, sends nothing and leaves the record as it was. Passwords never reach a trace;
 * the request that carried one is wiped before the function returns.
 */
#ifndef ATAPI_NDIS_H
#define ATAPI_NDIS_H

#include <stddef.h>
#include <stdint.h>

#include "atapi/result.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- The dial profile ------------------------------------------------------------------------- */

typedef struct {
    int index;
    uint8_t is_valid;
    char profile_name[65];
    char imsi_number[35];
    char dial_number[35];
    uint8_t apn_is_static; /* 1: dial with apn_name; else the APN of the context (+CGDCONT) */
    char apn_name[100];
    char username[128];
    char password[128];
    uint8_t auth_mode; /* the mode as a digit character: '0' none, '1' PAP, '2' CHAP */
    uint8_t orginal_auth_mode;
    uint8_t ip_is_static; /* 1: dial with addr */
    char addr[16];        /* dotted IPv4 */
    char ipv6_addr[65];
    uint8_t dns_is_static;
    char primary_dns[16];
    char secondary_dns[16];
    char primary_ipv6_dns[65];
    char secondary_ipv6_dns[65];
    int read_only;
    int Reserve;
    AT_AMSS_RES AtExeResult;
} ProfileResult;

/* ---- Connection state ------------------------------------------------------------------------- */

typedef enum {
    AT_NDIS_STATUS_DISCONNECTED = 0,
    AT_NDIS_STATUS_CONNECTED = 1,
    AT_NDIS_STATUS_CONNECTING = 2,
    AT_NDIS_STATUS_DISCONNECTING = 3
} AT_NDIS_STATUS_EN;

typedef struct {
    int CmdType; /* the caller's own marker; not written by the library */
    AT_NDIS_STATUS_EN ipv4_status;
    AT_NDIS_STATUS_EN ipv6_status;
    AT_AMSS_RES AtExeResult;
    int Reserve;     /* error code of the last line that carries one */
    int ipv4Reserve; /* error code of the IPV4 line */
} AT_NDIS_STATUS_ST;

typedef enum {
    AT_PDP_STATUS_CONNECTING = 0,
    AT_PDP_STATUS_CONNECTED = 1,
    AT_PDP_STATUS_DISCONNECTED = 2
} AT_PDP_STATUS_EN;

typedef struct {
    int CmdType; /* not written by the library */
    AT_PDP_STATUS_EN ipv4_status;
    AT_PDP_STATUS_EN ipv6_status;
    AT_AMSS_RES AtExeResult;
    int Reserve; /* not written by the library */
} AT_PDP_STATUS_ST;

/* The contexts ^NDISSTATQRY=? offers, each as the modem printed it (a range stays one entry). */
typedef struct {
    int cid_num;
    char cid_value[16][4];
    AT_AMSS_RES AtExeResult;
} CONNECT_CID_INFO;

/* One data connection of ^DCONNSTAT. */
typedef struct {
    int cid;
    char aucStr[99]; /* the APN */
    int ipv4_stat;
    int ipv6_stat;
    int dconn_type;
    AT_AMSS_RES AtExecResult; /* spelled so */
} StCONNSTATNDIS;

typedef enum {
    ERR_RESERVER_TYPE = 0,
    ERR_DIALUP_TYPE = 1
} ERR_TYPE;

/* The last dial error: errorType in (the kind asked for), errorType and errorCode out. */
typedef struct {
    ERR_TYPE errorType;
    int errorCode;
    AT_AMSS_RES AtExeResult;
} StDialupResult;

typedef struct {
    int cid;
    int datachannel; /* 0: the modem's default channel for the context */
    AT_AMSS_RES AtExeResult;
} CH_DATA;

/* Bits of the modem's IPv6 capability (^IPV6CAP). */
typedef enum {
    IPV4_ONLY = 1,
    IPV6_ONLY = 2,
    IPV4V6_SAME_APN = 4,
    IPV4V6_DIFFERENT_APN = 8
} IPV6_CFG;

/* ---- Dial and connection status (^NDISDUP, ^NDISSTATQRY, ^DCONNSTAT, ^GLASTERR, ^APCONNST) ------ */

/* Dials (action 1) or hangs up (action 0) context cid. Without a profile: "AT^NDISDUP=cid,action".
 * With one: the APN (when apn_is_static is 1, else left empty for the context's own), user name,
 * password and auth_mode (a digit character; a control character such as the number 2 is refused),
 * and addr when ip_is_static is 1. 0 when the modem took the command (the profile's AtExeResult set
 * to success); the bearer comes up later: poll at_ndisstatqry_state or watch ^NDISSTAT. -1 on an error
 * reply (a "+CME ERROR" included: nothing is written) or a refused text; the exchange's code when the
 * AT server did not answer. cid and action are passed through unchecked. */
int AT_ndisdup(int cid, int action, ProfileResult* p_profile);

/* The state of context cid: "AT^NDISSTATQRY?" for 1, "AT^NDISSTATQRY=cid" otherwise (5 s). The IPV4
 * line's state goes to ipv4_status (a line without a type counts as IPV4), the IPV6 line's to
 * ipv6_status. A "+CME ERROR"/"+CMS ERROR" reply: the mapped code in AtExeResult and 0. */
int at_ndisstatqry_state(int cid, AT_NDIS_STATUS_ST* result);

/* The contexts "AT^NDISSTATQRY=?" offers, at most 16 (more are traced and dropped); cid_num is
 * written with each entry stored, so a reply that lists none leaves it as the caller had it. */
int at_ndisstatqry_test(CONNECT_CID_INFO* cid_info);

/* Every data connection ("AT^DCONNSTAT?", at most 16): *pout becomes a list of *pdcontotal records
 * that the caller frees with free(). cmdType other than 0: 0 and nothing done. A "+CME ERROR"/
 * "+CMS ERROR" reply returns 0 with *pdcontotal and *pout untouched (the code is printed on standard
 * output). -1 with *pdcontotal 0 when the reply lists no connection; -1 with *pout null (the list
 * released) when a line of it does not parse. */
int AT_DCONNSTATLIST(int cmdType, int* pdcontotal, StCONNSTATNDIS** pout);

/* The last error of the kind Result->errorType names ("AT^GLASTERR=type"). */
int AT_Glasterr(StDialupResult* Result);

/* The access-point connection state. Whatever cid, the line handed to the AT server is the bare
 * "^APCONNST": the server answers it from the modem's last ^APCONNST report, and asks the modem
 * ("AT^APCONNST?") only while it holds none. Error replies as at_ndisstatqry_state. */
int at_ppp_state(int cid, AT_PDP_STATUS_ST* result);

/* Binds context cid to a data channel ("AT^CHDATA=cid", or "AT^CHDATA=cid,datachannel" when
 * datachannel is not 0). */
int AT_chdata(CH_DATA* ch_data);

/* ---- PDP context, authentication and addressing ---------------------------------------------- */

typedef struct {
    int cid;
    char pdp_type[35]; /* "IP", "IPV6", "IPV4V6" */
    char apn_name[100];
    AT_AMSS_RES AtExeResult;
} PDP_CONT;

typedef struct {
    int cid;
    int auth_type; /* 0 none, 1 PAP, 2 CHAP */
    char plmn[35];
    char passwd[128];
    char username[128];
    AT_AMSS_RES AtExeResult;
} AUTH_DATA;

/* Addresses as dotted IPv4 text. */
typedef struct {
    char IPAddr[16];
    char NetMask[16];
    char GateWay[16];
    char Dhcp[16];
    char pDNS[16];
    char sDNS[16];
    char MACAddr[33]; /* not written by the library */
    unsigned long MAX_RX_DATA; /* bits per second, as reported */
    unsigned long MAX_TX_DATA;
    AT_AMSS_RES AtExeResult;
    int Reserve; /* not written by the library */
} DhcpInfoRes;

typedef struct {
    char clip_v6[65];
    char netmask_v6[65];
    char gate_v6[65];
    char dhcp_v6[65];
    char pDNS_v6[65];
    char sDNS_v6[65];
    unsigned long MAX_RX_DATA;
    unsigned long MAX_TX_DATA;
    AT_AMSS_RES AtExeResult;
    int Reserve; /* not written by the library */
} Dhcpv6InfoRes;

typedef struct {
    int ipv6_mtu;
    char prefix[64];
    int preferred_lifetime;
    int valid_lifetime;
    AT_AMSS_RES AtExeResult;
} RAINFO;

typedef struct {
    char addr[64];
    int prefixlen;
    AT_AMSS_RES AtExeResult;
} LANADDR;

typedef struct {
    IPV6_CFG ipv6_cfg; /* a sum of IPV6_CFG bits, as reported */
    AT_AMSS_RES AtExeResult;
} IPV6_CAP;

typedef struct {
    int ipfilter_status; /* 0 off */
    char* socket_type;   /* null is sent as an empty text */
    unsigned char ip_addr[41];
    int listen_port;
} at_ipfilter_type;

typedef struct {
    int feature_id;
    int value1;
    int value2;
    int value3;
    int value4;
    int value5;
    AT_AMSS_RES AtExeResult;
} MODEM_FEATURE_INFO;

/* The LTE profile limits; each pair is (first, last) of a range or of a list. */
typedef struct {
    int mode[2];
    int IndexRange[2];
    int MaxImsiPrefixLen;
    int MaxApnLen;
    int MaxUserNameLen;
    int MaxUserPwdLen;
    int AuthType[2];
    AT_AMSS_RES AtExeResult;
} StLteProfileTest;

/* Defines context cid: "AT+CGDCONT=cid,\"pdp_type\",\"apn_name\"". Error replies: -1, nothing written. */
int AT_cgdcont(PDP_CONT* pdp_cont);
/* The first context the modem lists: cid and pdp_type (apn_name is not written). Error replies: -1. */
int AT_getcgdcont(PDP_CONT* result);
/* "AT^AUTHDATA=cid,auth_type,\"plmn\",\"passwd\",\"username\"". Error replies: -1. */
int AT_authdata(AUTH_DATA* auth_data);
/* The first authentication entry the modem lists, password included. Error replies: -1. */
int AT_getauthdata(AUTH_DATA* result);

/* What the network assigned to context cid ("AT^DHCP?" for 1, else "AT^DHCP=cid"). An address the
 * modem reports as more than eight hexadecimal digits leaves its field as it was. Error replies: -1. */
int AT_dhcp(int cid, DhcpInfoRes* result);
/* The IPv6 counterpart: the texts as reported, cut to 64 characters. Error replies: -1. */
int AT_dhcpv6(int cid, Dhcpv6InfoRes* result);
/* The IPv6 router advertisement of context cid ("AT^APRAINFO?" for 1). Error replies: -1. */
int AT_aprainfo(int cid, RAINFO* result);
/* The IPv6 LAN address and prefix length. Error replies: -1. */
int AT_lan_addr(LANADDR* result);

/* DNS overrides. CmdType 1 sets from the profile's primary_dns/secondary_dns, 0 reads into them
 * (cut to 15 characters); other values -1. A set answered with an error: -1. A read answered
 * "+CME ERROR"/"+CMS ERROR": the mapped code in the profile's AtExeResult and 0.
 * AT_Cgdns reads the line of context cid when the modem lists it, else the first line. */
int AT_Cgdns(int CmdType, int cid, ProfileResult* p_profile);
int AT_dnsp(int iCmdType, ProfileResult* pstProfileResult);
int AT_dnss(int iCmdType, ProfileResult* pstProfileResult);

/* The modem's IPv6 capability bits (5 s). "+CME ERROR"/"+CMS ERROR": the mapped code and 0. */
int at_ipv6_cap(IPV6_CAP* result);
/* "AT^IPFILTER=0" when ipfilter_status is 0, else "AT^IPFILTER=1,\"socket_type\",\"ip_addr\",port"
 * (5 s). 0 when the modem answered OK. */
int AT_ipfilter(at_ipfilter_type* ipfilter_info);
/* The state of a modem feature ("AT^HFEATURESTAT=feature_id"). Error replies: -1. */
int AT_HFEATURESTAT(int feature_id, MODEM_FEATURE_INFO* result);
/* "AT^LTEPROFILE=?": the two modes, the index range, the four maximum lengths and the range of
 * authentication types. A single index or type n reads as the range n-n; a list of types as its
 * first and last. "+CME ERROR"/"+CMS ERROR": the mapped code and 0. */
int AT_LteProfile_Test(StLteProfileTest* lteprofile_test);

/* ---- Helpers ---------------------------------------------------------------------------------- */

/* The modem's IPv4 address of up to eight hexadecimal digits in reversed byte order, as dotted text:
 * "0100A8C0" gives "192.168.0.1", "0" gives "0.0.0.0". -1, Result untouched, for null arguments or
 * nine or more digits. Result is cut to lResult bytes. */
int convert_ip_to_string(char* Rource, char* Result, size_t lResult);
/* Reverses the four numbers of a dotted address in place ("1.0.168.192" -> "192.168.0.1"); missing
 * numbers read as 0. -1 for null. */
int reverse_ip_addr_to_normal(char* pszip, unsigned int buf_len);
/* Reads a range "a-b" (at most 9 characters are looked at) into its two ends. -1 for null arguments
 * or no '-'. */
int parse_begin_end_value(const char* buffer, int* begin_value, int* end_value);

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_NDIS_H */
