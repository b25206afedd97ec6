// ats_network_reg.cpp - registration state, attach, system information and its cache in the
// configuration store, rejection cause, report switches and roaming.
#include <cstdint>

#include "atapi/network.h"
constexpr char kTraceSource[] = "src/ats_network";
#include "frame.h"

using atapi::copy_text;
using atapi::Field;
using atapi::num;
using atapi::OnError;
using atapi::ParseTree;
using atapi::Request;
using atapi::text;

namespace {

// The set half of a query-or-set command: no reply prefix, and an error reply is not mapped.
int send_setting(Request& req, bool formatted, AT_AMSS_RES& exe_result) {
    if (!formatted) return -1;
    return atapi::set_or_fail(req, exe_result);
}

// The fields a registration query fills; `act` is null where the record has none.
struct RegistrationFields {
    int& n;
    int& stat;
    char (&lac)[16];
    char (&ci)[16];
    char (*act)[4];
    AT_AMSS_RES& exe_result;
};

// The registration query, one for +CREG, +CGREG and +CEREG. `who` names the function in the
// failure traces that +CGREG and +CEREG write; AT_Creg passes null and traces nothing.
int query_registration(const char* cmd, const char* match, const char* name, const char* who,
                       RegistrationFields rec) {
    Request req{cmd, match};
    if (int rc = req.exchange()) {
        if (who) ATS_TRACE(ERROR, "%s GetDataFromAtServer failed\n", who);
        return rc;
    }
    if (!req.ok()) return req.map_error(rec.exe_result);
    ParseTree tree = req.parse(name, AT_FUNCTION_NETWORK_CFG);
    if (!tree) {
        if (who) ATS_TRACE(ERROR, "%s NULL == at_parse_result\n", who);
        return -1;
    }
    rec.exe_result = AT_CMD_RES_SUCCESS;
    for (Field f : tree.row()) {
        if (f.is("n"))                   rec.n = f.number();
        else if (f.is("stat"))           rec.stat = f.number();
        else if (f.is("lac"))            copy_text(rec.lac, f.value());
        else if (f.is("ci"))             copy_text(rec.ci, f.value());
        else if (f.is("act") && rec.act) copy_text(*rec.act, f.value());
    }
    return 0;
}

}  // namespace

extern "C" int AT_Creg(int cmdType, LacCellid* lac_cellid) {
    if (!lac_cellid) return -1;
    if (cmdType == AT_SET_VALUE) {
        Request req;
        return send_setting(req, AT_FORMAT_CMD(req, 639, "AT+CREG=%d", lac_cellid->n),
                            lac_cellid->AtExeResult);
    }
    if (cmdType != AT_CHECK_VALUE) return -1;
    return query_registration("AT+CREG?", "+CREG:", "+CREG", nullptr,
                              {lac_cellid->n, lac_cellid->stat, lac_cellid->lac, lac_cellid->ci, &lac_cellid->act,
                               lac_cellid->AtExeResult});
}

extern "C" int AT_Cgreg(int CmdType, CgregRsp* rsp) {
    if (!rsp) return -1;
    if (CmdType == AT_SET_VALUE) {
        Request req;
        return send_setting(req, AT_FORMAT_CMD(req, 639, "AT+CGREG=%d", rsp->ReportMode),
                            rsp->AtExeResult);
    }
    if (CmdType != AT_CHECK_VALUE) return -1;
    return query_registration("AT+CGREG?", "+CGREG:", "+CGREG", "AT_Cgreg",
                              {rsp->ReportMode, rsp->ReportState, rsp->LacCode, rsp->CellID, &rsp->act,
                               rsp->AtExeResult});
}

extern "C" int AT_Cereg(int CmdType, CeregRsp* rsp) {
    if (!rsp) return -1;
    if (CmdType == AT_SET_VALUE) {
        Request req;
        return send_setting(req, AT_FORMAT_CMD(req, 639, "AT+CEREG=%d", rsp->ReportMode),
                            rsp->AtExeResult);
    }
    if (CmdType != AT_CHECK_VALUE) return -1;
    // The record has no access technology; a reply that carries one is read past.
    return query_registration("AT+CEREG?", "+CEREG:", "+CEREG", "AT_Cereg",
                              {rsp->ReportMode, rsp->ReportState, rsp->LacCode, rsp->CellID, nullptr,
                               rsp->AtExeResult});
}

extern "C" int AT_Cgatt(int CmdType, PsAttatch* psattatch) {
    if (!psattatch) return -1;
    if (CmdType == AT_SET_VALUE) {
        Request req;
        return send_setting(req, AT_FORMAT_CMD(req, 639, "AT+CGATT=%d", psattatch->state),
                            psattatch->AtExeResult);
    }
    if (CmdType != AT_CHECK_VALUE) return -1;
    Request req{"AT+CGATT?", "+CGATT:"};
    return AT_QUERY(req, {.name = "+CGATT", .table = AT_FUNCTION_NETWORK_CFG, .on_error = OnError::map,
                          .result = &psattatch->AtExeResult},
                    {num("state", psattatch->state)});
}

extern "C" int AT_Cgcatt(int CmdType, AttatchInfo* attatchInfo) {
    if (!attatchInfo) return -1;
    if (CmdType == AT_SET_VALUE) {
        Request req;
        return send_setting(req, AT_FORMAT_CMD(req, 640, "AT^CGCATT=%d,%d", attatchInfo->state, attatchInfo->mode),
                            attatchInfo->AtExeResult);
    }
    if (CmdType != AT_CHECK_VALUE) return -1;
    Request req{"AT^CGCATT?", "^CGCATT:"};
    return AT_QUERY(req, {.name = "^CGCATT", .table = AT_FUNCTION_NETWORK_CFG, .on_error = OnError::map,
                          .result = &attatchInfo->AtExeResult},
                    {num("psState", attatchInfo->psState), num("csState", attatchInfo->csState)});
}

extern "C" int AT_PrefRoam(int CmdType, RoamSwitch* pRoamSwitch) {
    if (!pRoamSwitch) return -1;
    if (CmdType == AT_SET_VALUE) {
        Request req;
        return send_setting(req, AT_FORMAT_CMD(req, 640, "at^prefroam = %d", pRoamSwitch->roam),
                            pRoamSwitch->AtExeResult);
    }
    if (CmdType != AT_CHECK_VALUE) return -1;
    Request req{"at^prefroam?", "prefroam:"};
    // The system table has no "^prefroam" row, so today this query ends with -1 at the parse.
    return AT_QUERY(req, {.name = "^prefroam", .table = AT_FUNCTION_SYSTEM_CFG, .result = &pRoamSwitch->AtExeResult},
                    {num("prefroam", pRoamSwitch->roam)});
}

extern "C" int AT_Srvst(int CmdType, SrvstSet* rsp) {
    if (!rsp || CmdType != AT_SET_VALUE) return -1;
    Request req;
    return send_setting(req, AT_FORMAT_CMD(req, 639, "AT^SRVST=%d", rsp->ReportMode),
                        rsp->AtExeResult);
}

extern "C" int AT_Mode(int CmdType, ModeSet* rsp) {
    if (!rsp || CmdType != AT_SET_VALUE) return -1;
    Request req;
    return send_setting(req, AT_FORMAT_CMD(req, 640, "AT^MODE=%d", rsp->ReportMode),
                        rsp->AtExeResult);
}

extern "C" int AT_SysinfoCommand(StSysinfo* Result) {
    if (!Result) return -1;
    Request req{"AT^SYSINFO", "^SYSINFO"};
    return AT_QUERY(req, {.name = "^SYSINFO", .table = AT_FUNCTION_SYSTEM_CFG, .result = &Result->AtExeResult},
                    {num("srv_status", Result->srv_status), num("srv_domain", Result->srv_domain),
                     num("roam_status", Result->roam_status), num("sys_mode", Result->sys_mode),
                     num("sim_state", Result->sim_state), num("lock_state", Result->lock_state),
                     num("sys_submode", Result->submode)});
}

extern "C" int AT_SysinfoexCommand(SysinfoEx* Result) {
    if (!Result) return -1;
    Request req{"AT^SYSINFOEX", nullptr};
    return AT_QUERY(req, {.name = "^SYSINFOEX", .table = AT_FUNCTION_SYSTEM_CFG, .result = &Result->AtExeResult},
                    {num("srv_status", Result->SrvStatus), num("srv_domain", Result->SrvDomain),
                     num("roam_status", Result->RoamStatus), num("sim_state", Result->SimState),
                     num("lock_state", Result->SimLockState), num("sysmode", Result->SysMode),
                     text("sysmode_name", Result->SysModeName), num("submode", Result->SubMode),
                     text("submode_name", Result->SubModeName)});
}

extern "C" int AT_RejinfoexCommand(REJECT_INFOEX* Result) {
    if (!Result) return -1;
    Request req{"AT^REJINFO?", "^REJINFO:"};
    return AT_QUERY(req,
                    {.name = "^REJINFO", .table = AT_FUNCTION_NETWORK_CFG, .result = &Result->AtExeResult,
                     .exchange_failed = {ATS_TRACE_ERROR, "AT_RejinfoexCommand GetDataFromAtServer fail\n"},
                     .parse_failed = {ATS_TRACE_ERROR, "AT_RejinfoexCommand at_parse_result is null \n"}},
                    {text("plmnid", Result->plmnid), num("srvdomain", Result->srvdomain),
                     num("rejectcause", Result->rejectcause), num("rattype", Result->rattype)});
}

extern "C" int AT_RejInfoEx(REJECT_INFOEX* Result) {
    if (!Result) return -1;
    return AT_RejinfoexCommand(Result) != 0 ? -1 : 0;
}

extern "C" int AT_Cellroam(StRoamInfo* roam) {
    if (!roam) {
        ATS_TRACE(ERROR, "Error:para is NULL");
        return -1;
    }
    Request req{"AT^CELLROAM?", "^CELLROAM", atapi::kQuickTimeout};
    return AT_QUERY(req,
                    {.name = "^CELLROAM", .table = AT_FUNCTION_NETWORK_CFG, .on_error = OnError::map,
                     .result = &roam->AtExeResult, .exchange_failed = {ATS_TRACE_INFO, "AT^Cellroam error......\n"}},
                    {num("cell_roam_state", roam->state), num("rat", roam->rat)});
}

// ---- The system information cache --------------------------------------------------------------
//
// The store's object is shared with the rest of the router, which may write it too. A zero-filled
// object means nothing has been stored yet.

namespace {

constexpr uint32_t kSysinfoKeys[ATP_CFG_KEY_COUNT] = {0, 0, 0, 0, 0, 0};

enum SysinfoSlot : uint32_t {
    kSlotSrvStatus = 0,
    kSlotSrvDomain = 1,
    kSlotRoamStatus = 2,
    kSlotSimState = 3,
    kSlotSimLockState = 4,
    kSlotSysMode = 5,
    kSlotSysModeName = 6,
    kSlotSubMode = 7,
    kSlotSubModeName = 8,
};

// The object read from the store, released on every way out.
class StoredSysinfo {
public:
    StoredSysinfo() = default;
    StoredSysinfo(const StoredSysinfo&) = delete;
    StoredSysinfo& operator=(const StoredSysinfo&) = delete;
    ~StoredSysinfo() { QMX_CFM_FreeObj(obj_); }

    uint32_t load() { return QMX_DBGetObj(kSysinfoKeys, ATP_CFG_OID_SYSINFO, 0, &obj_); }
    uint32_t save() const { return QMX_DBSetObj(obj_); }

    int number(SysinfoSlot s) const { return static_cast<int>(obj_->slots[s].num); }
    const char* text(SysinfoSlot s) const { return obj_->slots[s].str; }

    void set_number(SysinfoSlot s, int v) {
        ATP_CFG_SLOT& slot = obj_->slots[s];
        if (slot.type == ATP_CFG_SLOT_NONE) slot.type = ATP_CFG_SLOT_UINT32;
        slot.num = static_cast<uint32_t>(v);
        if (obj_->slot_count <= s) obj_->slot_count = s + 1;
    }
    // The record's name fields need not be terminated: copy at most their width.
    template <std::size_t N>
    void set_text(SysinfoSlot s, const char (&v)[N]) {
        char buf[N + 1] = {};
        memcpy_s(buf, sizeof buf, v, N);
        QMX_CFM_SetObjStrValue(obj_, s, buf);
    }

private:
    ATP_CFG_OBJ* obj_ = nullptr;
};

}  // namespace

extern "C" int GetSysinfoFromDB(StSysinfo* pResult) {
    if (!pResult) return -1;
    StoredSysinfo db;
    if (uint32_t rc = db.load()) {
        ATS_TRACE(ERROR, "GetSysinfoexFromDB ERROR return [%u]\n", rc);
        return -1;
    }
    pResult->srv_status = db.number(kSlotSrvStatus);
    pResult->srv_domain = db.number(kSlotSrvDomain);
    pResult->roam_status = db.number(kSlotRoamStatus);
    pResult->sim_state = db.number(kSlotSimState);
    pResult->lock_state = db.number(kSlotSimLockState);
    pResult->sys_mode = db.number(kSlotSysMode);
    pResult->submode = db.number(kSlotSubMode);
    if (!(pResult->srv_status || pResult->srv_domain || pResult->roam_status || pResult->sim_state ||
          pResult->lock_state || pResult->sys_mode || pResult->submode))
        return -1;
    pResult->AtExeResult = AT_CMD_RES_SUCCESS;
    return 0;
}

extern "C" int GetSysinfoexFromDB(SysinfoEx* pResult) {
    if (!pResult) return -1;
    StoredSysinfo db;
    if (uint32_t rc = db.load()) {
        ATS_TRACE(ERROR, "GetSysinfoexFromDB ERROR return [%u]\n", rc);
        return -1;
    }
    pResult->SrvStatus = db.number(kSlotSrvStatus);
    pResult->SrvDomain = db.number(kSlotSrvDomain);
    pResult->RoamStatus = db.number(kSlotRoamStatus);
    pResult->SimState = db.number(kSlotSimState);
    pResult->SimLockState = db.number(kSlotSimLockState);
    pResult->SysMode = db.number(kSlotSysMode);
    AT_FORMAT_TEXT(pResult->SysModeName, db.text(kSlotSysModeName));
    pResult->SubMode = db.number(kSlotSubMode);
    AT_FORMAT_TEXT(pResult->SubModeName, db.text(kSlotSubModeName));
    if (!(pResult->SrvStatus || pResult->SrvDomain || pResult->RoamStatus || pResult->SimState ||
          pResult->SimLockState || pResult->SysMode || pResult->SubMode))
        return -1;
    pResult->AtExeResult = AT_CMD_RES_SUCCESS;
    return 0;
}

extern "C" void SetSysinfoToDB(StSysinfo* pResult) {
    if (!pResult) return;
    StoredSysinfo db;
    if (uint32_t rc = db.load()) {
        ATS_TRACE(ERROR, "QMX_DBGetDftObject return=[%u]\n", rc);
        return;
    }
    // Slot 5 takes this command's coding of the system mode as it is; the name slots stay.
    db.set_number(kSlotSrvStatus, pResult->srv_status);
    db.set_number(kSlotSrvDomain, pResult->srv_domain);
    db.set_number(kSlotRoamStatus, pResult->roam_status);
    db.set_number(kSlotSimState, pResult->sim_state);
    db.set_number(kSlotSimLockState, pResult->lock_state);
    db.set_number(kSlotSysMode, pResult->sys_mode);
    db.set_number(kSlotSubMode, pResult->submode);
    if (uint32_t rc = db.save()) ATS_TRACE(ERROR, "QMX_DBSetObj return=[%u]\n", rc);
}

extern "C" void SetSysinfoexToDB(SysinfoEx* pResult) {
    if (!pResult) return;
    StoredSysinfo db;
    if (uint32_t rc = db.load()) {
        ATS_TRACE(ERROR, "QMX_DBGetDftObject return=[%u]\n", rc);
        return;
    }
    db.set_number(kSlotSrvStatus, pResult->SrvStatus);
    db.set_number(kSlotSrvDomain, pResult->SrvDomain);
    db.set_number(kSlotRoamStatus, pResult->RoamStatus);
    db.set_number(kSlotSimState, pResult->SimState);
    db.set_number(kSlotSimLockState, pResult->SimLockState);
    db.set_number(kSlotSysMode, pResult->SysMode);
    db.set_text(kSlotSysModeName, pResult->SysModeName);
    db.set_number(kSlotSubMode, pResult->SubMode);
    db.set_text(kSlotSubModeName, pResult->SubModeName);
    if (uint32_t rc = db.save()) ATS_TRACE(ERROR, "QMX_DBSetObj return=[%u]\n", rc);
}

extern "C" int AT_SysInfo(StSysinfo* Result) {
    if (!Result) return -1;
    if (GetSysinfoFromDB(Result) == 0) return 0;
    if (AT_SysinfoCommand(Result) != 0) return -1;
    SetSysinfoToDB(Result);
    return 0;
}

namespace {

struct VoiceMode {
    int stored;  // extended coding in the store
    int voice;   // coding the voice service expects
};

// 6 is reported as 5 like 3, on purpose.
constexpr VoiceMode kVoiceModes[] = {
    {0, 0},
    {1, 3},
    {2, 2},
    {3, 5},
    {4, 15},
    {5, 5},
    {6, 5},
};

}  // namespace

extern "C" int AT_SysInfo_voice(StSysinfo* Result) {
    if (!Result) return -1;
    if (GetSysinfoFromDB(Result) == 0) {
        for (const VoiceMode& m : kVoiceModes)
            if (Result->sys_mode == m.stored) {
                Result->sys_mode = m.voice;
                break;
            }
        ATS_TRACE(DEBUG, "AT_SysInfo read DB success, submode:%d, sys_mode:%d", Result->submode, Result->sys_mode);
        return 0;
    }
    // The modem answers in the coding of ^SYSINFO, which the voice service reads as it is.
    if (AT_SysinfoCommand(Result) != 0) {
        ATS_TRACE(DEBUG, "AT_SysInfo at^sysinfo fail");
        return -1;
    }
    ATS_TRACE(DEBUG, "AT_SysInfo at^sysinfo success, submode:%d, sys_mode:%d", Result->submode, Result->sys_mode);
    SetSysinfoToDB(Result);
    return 0;
}

extern "C" int AT_SysInfoEx(SysinfoEx* Result) {
    if (!Result) return -1;
    if (GetSysinfoexFromDB(Result) == 0) return 0;
    if (AT_SysinfoexCommand(Result) != 0) return -1;
    SetSysinfoexToDB(Result);
    return 0;
}
