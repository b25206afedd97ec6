// ats_stk.cpp - the SIM toolkit: the toolkit switch (^STSF), the readers of the current proactive
// command (^STGI, one per kind, each with its own handler table) and the user's answer (^STGR).
#include <cstdlib>
#include <cstring>

#include "atapi/stk.h"
constexpr char kTraceSource[] = "src/ats_stk";
#include "frame.h"

using atapi::Binding;
using atapi::num;
using atapi::OnError;
using atapi::ParseTree;
using atapi::Request;
using atapi::Row;
using atapi::text;

static_assert(sizeof(StStgiRsp) == 1572, "entries are sized by count");

namespace {

constexpr int kMostLines = 255;

// One kind of proactive command: its handler table, the name its traces give, and the fields of
// an answer line that go into an entry.
struct Reader {
    at_function_type table;
    const char* who;
    void (*fill)(const Row& row, StStgiRsp& e);
};


const Reader kMenu{AT_FUNCTION_STK, "AT_Stgi", [](const Row& row, StStgiRsp& e) {
    const Binding f[] = {num("Identifier", e.ucIdentifier), num("NbItems", e.ucTotal), text("MenuName", e.name),
                         num("HelpInfo", e.ucIsHelpInfo)};
    atapi::store_fields(row, f);
}};
const Reader kText{AT_FUNCTION_TEXT_STK, "AT_StgiText", [](const Row& row, StStgiRsp& e) {
    const Binding f[] = {text("TextInfo", e.TextInfo), num("TextFormat", e.TextFormat), num("ClearMode", e.ClearMode),
                         num("DurationTime", e.DurationTime)};
    atapi::store_fields(row, f);
}};
// The input and key requests call the coding of their text TextCode; it is the text dialog's
// TextFormat.
const Reader kInput{AT_FUNCTION_INPUT_STK, "AT_StgiInput", [](const Row& row, StStgiRsp& e) {
    const Binding f[] = {text("TextInfo", e.TextInfo),          num("TextCode", e.TextFormat),
                         num("RspFormat", e.RspFormat),         num("PackMode", e.PackMode),
                         num("EchoMode", e.EchoMode),           num("SizeMin", e.SizeMin),
                         num("SizeMax", e.SizeMax),             num("HelpInfo", e.HelpInfo),
                         text("DefaultTextInfo", e.DefaultTextInfo), num("DefaultTextCode", e.DefaultTextCode)};
    atapi::store_fields(row, f);
}};
const Reader kInkey{AT_FUNCTION_INKEY_STK, "AT_StgiInkey", [](const Row& row, StStgiRsp& e) {
    const Binding f[] = {text("TextInfo", e.TextInfo), num("TextCode", e.TextFormat), num("RspFormat", e.RspFormat),
                         num("HelpInfo", e.HelpInfo), num("TimeOut", e.TimeOut)};
    atapi::store_fields(row, f);
}};
const Reader kRefresh{AT_FUNCTION_REFRESH_STK, "AT_StgiRefresh", [](const Row& row, StStgiRsp& e) {
    const Binding f[] = {num("RefreshType", e.RefreshType)};
    atapi::store_fields(row, f);
}};
const Reader kBrowser{AT_FUNCTION_BROWSER_STK, "AT_StgiBrowser", [](const Row& row, StStgiRsp& e) {
    const Binding f[] = {text("URL", e.URL), num("LaunchMode", e.LaunchMode)};
    atapi::store_fields(row, f);
}};

// The fetch half of every ^STGI reader: one entry per answer line.
int fetch(const Reader& r, int* total, StStgiPara* para, StStgiRsp** entries_out) {
    if (!total || !para || !entries_out) return -1;
    Request req;
    req.multi_line();
    if (!AT_FORMAT_CMD(req, 639, "AT^STGI=%d,%d", para->ucType, para->ucIndex)) return -1;
    if (int rc = req.exchange()) return rc;
    // Intended: an error answer is no failure of the call, and the outputs stay as they were.
    if (req.is_error_report()) return 0;
    if (!req.ok()) return -1;
    atapi::Pieces lines(req.report(), "^STGI", kMostLines);
    if (lines.count() == 0) {
        ATS_TRACE(ERROR, "%s get_substring error\n", r.who);
        *total = 0;
        return -1;
    }
    *total = lines.count();
    StStgiRsp* entries = atapi::alloc_records<StStgiRsp>(lines.count());
    if (!entries) {
        // Another command's allocator message, kept as callers' log filters know it.
        ATS_TRACE(ERROR, "AT_GetPnnList malloc error\n");
        *total = 0;
        return -1;
    }
    for (int i = 0; i < lines.count(); ++i) {
        ParseTree tree = atapi::parse_text(lines[i], "^STGI", r.table, AT_OPERATION_TYPE_EXECUTE);
        if (!tree) {
            // The line count stays: it says how many lines came.
            ATS_TRACE(ERROR, "[stk-ats]NULL == at_parse_result");
            std::free(entries);
            *entries_out = nullptr;
            return -1;
        }
        r.fill(tree.row(), entries[i]);
    }
    *entries_out = entries;
    return 0;
}

// The ^STGI dispatchers: 1 fetches; 0 is refused and any other value ignored, both unsent.
int stgi(const Reader& r, int cmd_type, int* total, StStgiPara* para, StStgiRsp** entries) {
    return atapi::dispatch(cmd_type, [] { return -1; }, [&] { return fetch(r, total, para, entries); });
}

int stsf_check(StStsfRsp* rsp) {
    if (!rsp) return -1;
    Request req{"AT^STSF?", "^STSF:"};
    return AT_QUERY(req,
                    {.name = "^STSF", .table = AT_FUNCTION_STK, .on_error = OnError::map, .result = &rsp->AtExeResult},
                    {num("Mode", rsp->ucMode), text("Config", rsp->ucConfig), num("Timeout", rsp->iTimeout)});
}

int stsf_execute(StStsfPara* para) {
    if (!para) return -1;
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT^STSF=%d", para->ucMode)) return -1;
    return atapi::set_and_map(req, para->AtExeResult);
}

int stgr_execute(StStgrPara* p, StStgrRsp* rsp) {
    if (!p || !rsp) return -1;
    Request req;
    bool formatted = false;
    if (p->DataType == 0) {
        formatted = AT_FORMAT_CMD(req, 639, "AT^STGR=%d,%d,%d,%d", p->CmdType, p->CmdIndex, p->Result, p->DataId);
    } else if (p->DataType == 1) {
        if (!std::memchr(p->DataText, '\0', sizeof p->DataText)) return -1;
        const char* answer = reinterpret_cast<const char*>(p->DataText);
        formatted = AT_FORMAT_CMD(req, 639, "AT^STGR=%d,%d,%d,\"%s\"", p->CmdType, p->CmdIndex, p->Result, answer);
    } else {
        formatted = AT_FORMAT_CMD(req, 639, "AT^STGR=%d,%d", p->CmdType, p->CmdIndex);
    }
    if (!formatted) return -1;
    const int rc = req.exchange();
    ATS_TRACE(INFO, "[stk-stgr]GetDataFromAtServer return ret=%d\n", rc);
    if (rc) return rc;
    if (req.ok()) {
        rsp->AtExeResult = AT_CMD_RES_SUCCESS;
        return 0;
    }
    // Intended: an error answer succeeds and leaves the result field alone.
    return req.is_error_report() ? 0 : -1;
}

}  // namespace

extern "C" int AT_Stsf(int CmdType, StStsfPara* pStsfPara, StStsfRsp* pStsfRsp) {
    return atapi::dispatch(CmdType, [&] { return stsf_check(pStsfRsp); }, [&] { return stsf_execute(pStsfPara); }, -1);
}

extern "C" int AT_Stgi(int CmdType, int* pMenuTotal, StStgiPara* pStgiPara, StStgiRsp** ppStgiRsp) {
    return stgi(kMenu, CmdType, pMenuTotal, pStgiPara, ppStgiRsp);
}

extern "C" int AT_StgiText(int CmdType, int* pMenuTotal, StStgiPara* pStgiPara, StStgiRsp** ppStgiRsp) {
    return stgi(kText, CmdType, pMenuTotal, pStgiPara, ppStgiRsp);
}

extern "C" int AT_StgiInput(int CmdType, int* pMenuTotal, StStgiPara* pStgiPara, StStgiRsp** ppStgiRsp) {
    return stgi(kInput, CmdType, pMenuTotal, pStgiPara, ppStgiRsp);
}

extern "C" int AT_StgiInkey(int CmdType, int* pMenuTotal, StStgiPara* pStgiPara, StStgiRsp** ppStgiRsp) {
    return stgi(kInkey, CmdType, pMenuTotal, pStgiPara, ppStgiRsp);
}

extern "C" int AT_StgiRefresh(int CmdType, int* pMenuTotal, StStgiPara* pStgiPara, StStgiRsp** ppStgiRsp) {
    return stgi(kRefresh, CmdType, pMenuTotal, pStgiPara, ppStgiRsp);
}

extern "C" int AT_StgiBrowser(int CmdType, int* pMenuTotal, StStgiPara* pStgiPara, StStgiRsp** ppStgiRsp) {
    return stgi(kBrowser, CmdType, pMenuTotal, pStgiPara, ppStgiRsp);
}

extern "C" int AT_Stgr(int CmdType, StStgrPara* pStgrPara, StStgrRsp* pStgrRsp) {
    // Only sending an answer exists; a read of ^STGR is refused like any unknown type.
    return atapi::dispatch(CmdType, [] { return -1; }, [&] { return stgr_execute(pStgrPara, pStgrRsp); }, -1);
}
