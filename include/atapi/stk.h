/*
 * atapi/stk.h - the SIM toolkit: proactive menus and dialogs and the user's answers. C11 and C++.
 *
 * ^STSF switches the toolkit on or off, ^STGI fetches the data of the current proactive command
 * (a menu, a text, a key or text input request, a refresh, a browser launch) and ^STGR sends the
 * user's answer. The ^STGI readers return an array that the library allocates and the caller
 * frees with free(); one record type serves every kind, each reader fills only its own fields
 * and leaves the others zero.
 */
#ifndef ATAPI_STK_H
#define ATAPI_STK_H

#include <stdint.h>

#include "atapi/result.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
    unsigned char ucMode;
    AT_AMSS_RES AtExeResult;
} StStsfPara;

typedef struct {
    unsigned char ucMode;
    unsigned char ucConfig[64];
    int iTimeout;
    AT_AMSS_RES AtExeResult;
} StStsfRsp;

typedef struct {
    unsigned char ucType;  /* the proactive command type asked for */
    unsigned char ucIndex;
    AT_AMSS_RES AtExeResult;
} StStgiPara;

/* One entry per answer line; 1572 bytes. */
typedef struct {
    unsigned char ucIdentifier;     /* menu: item identifier */
    unsigned char ucTotal;          /* menu: number of items */
    unsigned char name[256];        /* menu: item text */
    unsigned char ucIsHelpInfo;     /* menu: help available */
    unsigned char TextFormat;       /* text; input and key: the coding of TextInfo (TextCode) */
    unsigned char ClearMode;        /* text */
    unsigned char DurationTime;     /* text */
    unsigned char TextInfo[512];    /* text, input, key */
    unsigned char RspFormat;        /* input, key */
    unsigned char PackMode;         /* input */
    unsigned char EchoMode;         /* input */
    unsigned char SizeMin;          /* input */
    unsigned char SizeMax;          /* input */
    unsigned char HelpInfo;         /* input, key */
    unsigned char DefaultTextCode;  /* input */
    unsigned char DefaultTextInfo[512]; /* input */
    unsigned char RefreshType;      /* refresh */
    unsigned char URL[256];         /* browser */
    unsigned char LaunchMode;       /* browser */
    unsigned char TimeOut;          /* key */
    unsigned char ucReserve[16];
    AT_AMSS_RES AtExeResult;        /* left 0 */
} StStgiRsp;

typedef struct {
    unsigned char CmdType;
    unsigned char CmdIndex;
    unsigned char Result;
    unsigned char DataType;  /* 0: DataId is sent; 1: DataText is sent; other: neither */
    unsigned char DataId;
    unsigned char DataText[512];
    AT_AMSS_RES AtExeResult;
} StStgrPara;

typedef struct {
    AT_AMSS_RES AtExeResult;
} StStgrRsp;

/* 0 reads ("AT^STSF?" into pStsfRsp, whose AtExeResult takes the outcome), 1 sets ("AT^STSF=<ucMode>"
 * of pStsfPara, whose AtExeResult takes the outcome); each needs only its own record. A CME/CMS
 * error is mapped into that AtExeResult (return 0). -1 when the half failed or for any other
 * CmdType, else 0. */
int AT_Stsf(int CmdType, StStsfPara* pStsfPara, StStsfRsp* pStsfRsp);

/* The ^STGI readers: CmdType 1 sends "AT^STGI=<ucType>,<ucIndex>" and returns one entry per
 * answer line in a new array (*ppStgiRsp, *pMenuTotal entries). CmdType 0 returns -1 and any other
 * value 0, both without an exchange. An error answer returns 0 with *pMenuTotal and *ppStgiRsp as
 * the caller left them. A line that does not parse fails the call with -1 and a null array,
 * *pMenuTotal still holding the line count. Texts are cut to their field less its NUL.
 *   AT_Stgi         menus: ucIdentifier, ucTotal, name, ucIsHelpInfo
 *   AT_StgiText     TextInfo, TextFormat, ClearMode, DurationTime
 *   AT_StgiInput    TextInfo, TextFormat, RspFormat, PackMode, EchoMode, SizeMin, SizeMax,
 *                   HelpInfo, DefaultTextInfo, DefaultTextCode
 *   AT_StgiInkey    TextInfo, TextFormat, RspFormat, HelpInfo, TimeOut
 *   AT_StgiRefresh  RefreshType
 *   AT_StgiBrowser  URL, LaunchMode */
int AT_Stgi(int CmdType, int* pMenuTotal, StStgiPara* pStgiPara, StStgiRsp** ppStgiRsp);
int AT_StgiText(int CmdType, int* pMenuTotal, StStgiPara* pStgiPara, StStgiRsp** ppStgiRsp);
int AT_StgiInput(int CmdType, int* pMenuTotal, StStgiPara* pStgiPara, StStgiRsp** ppStgiRsp);
int AT_StgiInkey(int CmdType, int* pMenuTotal, StStgiPara* pStgiPara, StStgiRsp** ppStgiRsp);
int AT_StgiRefresh(int CmdType, int* pMenuTotal, StStgiPara* pStgiPara, StStgiRsp** ppStgiRsp);
int AT_StgiBrowser(int CmdType, int* pMenuTotal, StStgiPara* pStgiPara, StStgiRsp** ppStgiRsp);

/* CmdType 1 sends the user's answer: "AT^STGR=<CmdType>,<CmdIndex>,<Result>,<DataId>" (DataType 0),
 * "...,<Result>,\"<DataText>\"" (DataType 1) or "AT^STGR=<CmdType>,<CmdIndex>" (other). OK sets
 * pStgrRsp->AtExeResult to AT_CMD_RES_SUCCESS; an error answer returns 0 and leaves it alone.
 * A DataText with a double quote, a control character or no NUL in its 512 bytes is refused (-1,
 * nothing sent). Any other CmdType returns -1 without an exchange. */
int AT_Stgr(int CmdType, StStgrPara* pStgrPara, StStgrRsp* pStgrRsp);

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_STK_H */
