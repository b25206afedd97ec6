// ats_comm.cpp - device identity and state: subscriber and equipment identity, firmware versions
// (kept for the life of the process once read), board numbers, SIM presence, the functionality
// mode, and the IMS registration.
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <mutex>
#include <string>

#include "atapi/comm.h"
constexpr char kTraceSource[] = "src/ats_comm";
#include "frame.h"
#include "ats_device.h"

using atapi::copy_text;
using atapi::Field;
using atapi::num;
using atapi::OnError;
using atapi::ParseTree;
using atapi::Request;
using atapi::text;

// ---- Firmware versions ---------------------------------------------------------------------------
//
// The first complete answer is kept for the life of the process: the firmware cannot change under
// a running router without a restart of everything. Two threads that find the cache empty may both
// ask the modem; each then stores the same record. The lock only guards the copy in and out, never
// the exchange.

namespace {

std::mutex g_version_lock;
bool g_version_cached = false;        // guarded by g_version_lock
CONTENT_VERSION tempversion_info{};   // guarded by g_version_lock

bool cached_version(CONTENT_VERSION& out) {
    std::lock_guard<std::mutex> hold(g_version_lock);
    if (g_version_cached) out = tempversion_info;
    return g_version_cached;
}

void cache_version(const CONTENT_VERSION& record) {
    std::lock_guard<std::mutex> hold(g_version_lock);
    tempversion_info = record;
    g_version_cached = true;
}

// The exchange of a many-line read, asking for every line of the answer, with its traces.
int every_line(Request& req, const char* cmd) {
    req.multi_line();
    if (int rc = req.exchange()) {
        ATS_TRACE(WARNING, "%s result parse failed!\n", cmd);
        return rc;
    }
    ATS_TRACE(INFO, "%s result parse succ!\n", cmd);
    return 0;
}

struct VersionKind {
    const char* kind;
    char (CONTENT_VERSION::*field)[128];
    const char* found;
};

constexpr VersionKind kVersionKinds[] = {
    {"EXTD", &CONTENT_VERSION::extd_version, "find EXTD sucess,return %s.\n"},
    {"EXTH", &CONTENT_VERSION::exth_version, "find EXTH sucess,return %s.\n"},
};

}  // namespace

extern "C" int at_version(CONTENT_VERSION* version_info) {
    if (!version_info) {
        ATS_TRACE(ERROR, "[at_version] input param error!\n");
        return -1;
    }
    if (cached_version(*version_info)) {
        ATS_TRACE(INFO, "[at_version] get data from buffer!\n");
        return 0;
    }
    Request req{"AT^VERSION?", "^VERSION"};
    if (int rc = every_line(req, "AT^VERSION?")) return rc;
    if (!req.ok()) {
        // An error answer reports success and leaves the record alone: intended.
        ATS_TRACE(INFO, "AT^VERSION? is abnormal!Error num is %d.\n", req.result());
        return 0;
    }
    atapi::Pieces pieces(req.report(), "^VERSION", 32);
    version_info->num = pieces.count();
    if (pieces.count() == 0) {
        ATS_TRACE(INFO, "version number list size equal zero.\n");
        return -1;
    }
    unsigned found = 0;
    for (char* piece : pieces) {
        ATS_TRACE(INFO, "begin webui version parse %s .\n", piece);
        ParseTree tree = atapi::parse_text(piece, "^VERSION", AT_FUNCTION_SYSTEM_CFG);
        if (!tree) {
            ATS_TRACE(ERROR, "at_cmd_parse error!\n");
            return -1;
        }
        // The kind is looked for anywhere in the line's value, so a line naming both kinds counts
        // twice and fills both fields: intended.
        const char* value = Field{tree.head()}.value();
        for (const VersionKind& k : kVersionKinds) {
            if (!value || !std::strstr(value, k.kind)) continue;
            version_info->AtExeResult = 0;
            copy_text(version_info->*k.field, value);
            ATS_TRACE(INFO, k.found, version_info->*k.field);
            ++found;
            ATS_TRACE(INFO, "version_num %u.\n", found);
        }
        if (found > 1) {
            cache_version(*version_info);
            return 0;
        }
    }
    // What was found so far stays in the caller's record, but nothing is cached: intended.
    ATS_TRACE(INFO, "find EXTD failed.\n");
    return -1;
}

extern "C" int at_QryPhynum(CONTENT_PHYNUM* phynum_info) {
    if (!phynum_info) {
        ATS_TRACE(ERROR, "[at_phynum] input param error!\n");
        return -1;
    }
    Request req{"AT^PHYNUM?", "^PHYNUM"};
    if (int rc = every_line(req, "AT^PHYNUM?")) return rc;
    if (!req.ok()) {
        ATS_TRACE(INFO, "AT^PHYNUM? is abnormal!Error num is %d.\n", req.result());
        return -1;
    }
    // Lines past the tenth are dropped.
    atapi::Pieces pieces(req.report(), "^PHYNUM", 10);
    for (int i = 0; i < pieces.count(); ++i) copy_text(phynum_info->buf_phynum[i], pieces[i]);
    phynum_info->num = pieces.count();
    return 0;
}

// ---- Identity -----------------------------------------------------------------------------------

namespace {

// A read whose whole answer is the identity: no reply prefix, no error mapping.
int whole_answer(const char* cmd, nvramcontnetres* rec) {
    if (!rec) return -1;
    Request req{cmd, nullptr};
    return atapi::reply_text(req, *rec, false);
}

// The CDMA identifiers: one field of the basic-information row. `store` clears the record's field
// and takes the value from the field named by the row.
template <typename Store>
int cdma_identifier(const char* cmd, const char* name, const char* who, AT_AMSS_RES& result, Store store) {
    Request req{cmd, name};
    if (int rc = req.exchange()) {
        ATS_TRACE(ERROR, "[%s],GetDataFromAtServer return -1\n", who);
        return rc;
    }
    if (!req.ok()) return -1;
    ParseTree tree = req.parse(name, AT_FUNCTION_BASIC_INFO_CFG);
    if (!tree) {
        ATS_TRACE(ERROR, "[%s],at_cmd_parse output  at_parse_result is null\n", who);
        return -1;
    }
    result = AT_CMD_RES_SUCCESS;
    store(tree.row());
    return 0;
}

}  // namespace

extern "C" int AT_imsi(nvramcontnetres* Result) { return whole_answer("AT+CIMI", Result); }
extern "C" int AT_cgmm(nvramcontnetres* Result) { return whole_answer("AT+CGMM", Result); }
extern "C" int at_cgmi(nvramcontnetres* Result) { return whole_answer("AT+CGMI", Result); }

extern "C" int AT_sn(nvramcontnetres* Result) {
    if (!Result) return -1;
    Request req{"AT^SN", "^SN:"};
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return req.map_error(Result->AtExeResult);
    // The result reads success even when the answer then has no colon: intended.
    Result->AtExeResult = AT_CMD_RES_SUCCESS;
    const char* colon = std::strchr(req.report(), ':');
    if (!colon) return -1;
    AT_FORMAT_TEXT(Result->Code, colon + 1);
    return 0;
}

extern "C" int AT_Meid(StMeid* pResult) {
    if (!pResult) {
        ATS_TRACE(ERROR, "Input param is null\n");
        return -1;
    }
    return cdma_identifier("AT^MEID", "^MEID", "AT_Meid", pResult->AtExeResult, [&](const atapi::Row& row) {
        std::memset(pResult->meid, 0, sizeof pResult->meid);
        copy_text(pResult->meid, row.find("meid").value());
    });
}

extern "C" int AT_Esn(StEsn* pResult) {
    if (!pResult) {
        ATS_TRACE(ERROR, "Input param is null\n");
        return -1;
    }
    return cdma_identifier("AT+ESN", "+ESN", "AT_Esn", pResult->AtExeResult, [&](const atapi::Row& row) {
        pResult->esn = row.find("esn").number();
    });
}

extern "C" int AT_PhoneActSt(int, PhoneActStatus* Result) {
    if (!Result) return -1;
    Request req{"AT+CPAS", "+CPAS:"};
    return AT_QUERY(req, {.name = "+CPAS", .table = AT_FUNCTION_NETWORK_CFG, .on_error = OnError::map,
                          .result = &Result->AtExeResult},
                    {text("pactstatus", Result->PActStatus)});
}

// ---- Functionality mode and SIM presence -------------------------------------------------------

extern "C" int AT_Cfun(int sys_value) {
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT+CFUN=%d", sys_value)) return -1;
    req.set_match("+CFUN:");
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) {
        ATS_TRACE(INFO, "cfun=%d, error\n", sys_value);
        return -1;
    }
    return 0;
}

extern "C" int AT_Cfun_Query(int* sys_value) {
    if (!sys_value) return -1;
    Request req{"AT+CFUN?", "+CFUN:"};
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) {
        ATS_TRACE(INFO, "cfun=%d, error\n", req.result());
        return -1;
    }
    ParseTree tree = req.parse("+CFUN", AT_FUNCTION_BASIC_INFO_CFG);
    if (!tree) {
        ATS_TRACE(WARNING, "at_cmd_parse CFUN command failed!\n");
        return -1;
    }
    for (Field f : tree.row()) {
        if (!f.is("fun")) continue;
        const int fun = f.number();
        ATS_TRACE(ERROR, "at_cmd_parse point1->AtFieldValue = %d \n", fun);
        *sys_value = fun;
    }
    return 0;
}

extern "C" int AT_QryRsim(void) {
    Request req{"AT^RSIM?", "^RSIM"};
    if (req.exchange() != 0 || !req.ok()) return -1;
    // Only the digit right after the colon counts: "^RSIM: 1", with its blank, is no SIM.
    const char* colon = std::strchr(req.report(), ':');
    return colon && colon[1] == '1' ? 0 : -1;
}

// ---- The record readers ----------------------------------------------------------------------
//
// No reply prefix; each named field goes into its member, and a summary trace follows a read that
// parsed. `who` and `command` name the function and its command in the failure traces.

namespace {

int read_record(Request& req, const char* who, const char* command, const char* name, at_function_type table,
                AT_AMSS_RES& result, bool result_before_parse, std::initializer_list<atapi::Binding> fields) {
    const std::string prefix = std::string("[AT][") + who + "]";
    const std::string exchange_failed = prefix + "operate " + command + " command error!\n";
    const std::string not_ok = prefix + "recv msg report error!\n";
    const std::string parse_failed = prefix + "parse error!\n";
    return AT_QUERY(req,
                    {.name = name, .table = table, .result = &result, .result_before_parse = result_before_parse,
                     .exchange_failed = {ATS_TRACE_ERROR, exchange_failed.c_str()},
                     .not_ok = {ATS_TRACE_ERROR, not_ok.c_str()},
                     .parse_failed = {ATS_TRACE_ERROR, parse_failed.c_str()}},
                    fields);
}

bool input_given(const void* record, const char* who) {
    if (record) return true;
    ATS_TRACE(ERROR, "[AT][%s]input param error!\n", who);
    return false;
}

}  // namespace

// The result field reads success once the reply is OK, also when it then does not parse.
extern "C" int AT_Cfun_Read(CFUNINFO* cfun_info) {
    if (!input_given(cfun_info, "AT_Cfun_Read")) return -1;
    Request req{"AT+CFUN?", nullptr};
    const int rc = read_record(req, "AT_Cfun_Read", "+CFUN", "+CFUN", AT_FUNCTION_BASIC_INFO_CFG,
                               cfun_info->at_exec_result, true, {num("fun", cfun_info->cfun)});
    if (rc == 0)
        ATS_TRACE(INFO, "[AT][AT_Cfun_Read]<3>result(%d): cfun = %d!\n", cfun_info->at_exec_result, cfun_info->cfun);
    return rc;
}

extern "C" int AT_LTESCINFO(SCINFO* sc_info) {
    if (!input_given(sc_info, "AT_LTESCINFO")) return -1;
    Request req{"AT^LTESCINFO?", nullptr};
    // The exchange's trace names the command "^LTECIINFO": intended.
    const int rc = read_record(req, "AT_LTESCINFO", "^LTECIINFO", "^LTESCINFO", AT_FUNCTION_SYSTEM_CFG,
                               sc_info->at_exec_result, true,
                               {num("ci", sc_info->ci), num("dl_sinr", sc_info->dl_sinr), num("num_ant", sc_info->num_ant),
                                num("dl_bw", sc_info->dl_bw)});
    if (rc == 0)
        ATS_TRACE(INFO, "[AT][AT_LTESCINFO]<3>result(%d): ci = %d, dl_sinr = %d, num_ant = %d, dl_bw = %d!\n",
                  sc_info->at_exec_result, sc_info->ci, sc_info->dl_sinr, sc_info->num_ant, sc_info->dl_bw);
    return rc;
}

namespace {

int rrc_version(int cmd_type, RRCVER_NUM* rec) {
    if (cmd_type == AT_SET_VALUE) {
        Request req;
        if (!AT_FORMAT_CMD(req, 639, "AT^RRCVer=%d", rec->rrc_version)) return -1;
        // The setting's own result is not looked at, so a rejected release still returns 0: intended.
        return req.exchange();
    }
    Request req{"AT^RRCVer?", nullptr};
    const int rc = read_record(req, "AT_RRCVer", "^RRCVer", "^RRCVer", AT_FUNCTION_SYSTEM_CFG, rec->at_exec_result, true,
                               {num("rrcver", rec->rrc_version)});
    if (rc == 0)
        ATS_TRACE(INFO, "[AT][AT_RRCVer]<3>result(%d): rrc_version = %d!\n", rec->at_exec_result, rec->rrc_version);
    return rc;
}

}  // namespace

extern "C" int AT_RRCVer(int cmd_type, RRCVER_NUM* version_result) {
    if (!input_given(version_result, "AT_RRCVer")) return -1;
    if (cmd_type != AT_CHECK_VALUE && cmd_type != AT_SET_VALUE) return -1;
    const int rc = rrc_version(cmd_type, version_result);
    ATS_TRACE(INFO, "[AT][AT_RRCVer]leaver at command ^RRCVer");
    return rc;
}

// Unlike the other readers: a null record is refused silently, the result field is set only once
// the reply parsed, and every failure is -1.
extern "C" int AT_HS(HsCommand* hscommand, HsRsp* hsrsp) {
    if (!hscommand || !hsrsp) return -1;
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT^HS=%d,%d", hscommand->BoardId, hscommand->Action)) return -1;
    const int rc = read_record(req, "AT_HS", "^HS", "^HS", AT_FUNCTION_BASIC_INFO_CFG, hsrsp->AtExeResult, false,
                               {num("id", hsrsp->BoardId), num("protocol", hsrsp->Protocol),
                                num("IsOffline", hsrsp->IsOffline), num("p_class", hsrsp->ProductClass),
                                num("p_id", hsrsp->ProductId), num("s_id", hsrsp->SoftwareId)});
    if (rc != 0) return -1;
    ATS_TRACE(INFO, "[AT][AT_HS]<3>result(%d): id = %d, protocol = %d, IsOffline = %d, p_class = %d, p_id = %d, s_id = %d!\n",
              hsrsp->AtExeResult, hsrsp->BoardId, hsrsp->Protocol, hsrsp->IsOffline, hsrsp->ProductClass,
              hsrsp->ProductId, hsrsp->SoftwareId);
    return 0;
}

// ---- Settings answered by their result only ----------------------------------------------------

namespace {

int traced_setting(const char* cmd, const char* match, const char* failed) {
    Request req{cmd, match};
    const int rc = atapi::result_only(req);
    if (rc != 0) ATS_TRACE(ERROR, "%s", failed);
    return rc;
}

}  // namespace

extern "C" int at_SetCsdflt(void) { return traced_setting("AT^CSDFLT", "^CSDFLT", "set csdflt, error\n"); }
extern "C" int at_SetModemInforbu(void) { return traced_setting("AT^INFORBU", "^INFORBU", "set inforbu, error\n"); }

extern "C" int AT_MmiRouter(int mmiflag) {
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT^MMIROUTER=%d", mmiflag)) return -1;
    return atapi::result_only(req);
}

extern "C" int AT_MmiEcho(void) {
    Request req{"AT^MMIECHO=", nullptr};
    return atapi::result_only(req);
}

// ---- IMS registration ------------------------------------------------------------------------

namespace {

int read_cireg(Request& req, StCireg* rec) {
    return AT_QUERY(req, {.name = "+CIREG", .table = AT_FUNCTION_NETWORK_CFG, .on_error = OnError::map,
                          .result = &rec->AtExeResult},
                    {num("n", rec->mode), num("reg_info", rec->reg_info)});
}

}  // namespace

extern "C" int AT_Cireg_Check(StCireg* rec) {
    if (!rec) return -1;
    Request req{"AT+CIREG?", nullptr};
    return read_cireg(req, rec);
}

extern "C" int AT_Cireg_Execute(StCireg* rec) {
    if (!rec) return -1;
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT+CIREG=%d", rec->mode)) return -1;
    return atapi::set_and_map(req, rec->AtExeResult);
}

extern "C" int AT_Cireg(int cmdType, StCireg* rec) {
    if (!rec) return -1;
    return atapi::dispatch(cmdType, [&] { return AT_Cireg_Check(rec); }, [&] { return AT_Cireg_Execute(rec); });
}

extern "C" int AT_Netreg_Check(StCireg* rec) {
    if (!rec) return -1;
    Request req{"AT+CIREG?", "+CIREG:", atapi::kQuickTimeout};
    return read_cireg(req, rec);
}

extern "C" int AT_Netreg(int cmdType, StCireg* rec) {
    if (!rec) return -1;
    return atapi::dispatch(cmdType, [&] { return AT_Netreg_Check(rec); }, [&] { return AT_Cireg_Execute(rec); });
}

extern "C" int AT_Netreg_cid(StCireg* rec) {
    if (!rec) return -1;
    Request req{"AT+CIREG?", "+CIREG:", atapi::kQuickTimeout};
    req.client_id(ATS_task_getid());
    return read_cireg(req, rec);
}

// ---- Kept for the interface --------------------------------------------------------------------

// These names stay in the interface for old callers; the modems they served are gone, so the
// functions answer at once without reaching the AT server.
extern "C" int AT_imei(StIMEI*) { return -1; }
extern "C" int AT_CGSN(StIMEI*) { return -1; }
extern "C" int AT_Cgmr(StAmssVersion*) { return -1; }
extern "C" int AT_Hwver(StAmssVersion*) { return -1; }

// Lists handed to callers come from the library's allocator, which is malloc.
extern "C" void ATS_FreeMemory(void* ptr) { std::free(ptr); }
