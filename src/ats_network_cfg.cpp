// ats_network_cfg.cpp - radio configuration: network modes, acquisition order, bands, roaming
// and service domain with their test forms, band priority, carrier aggregation, MIMO, measurement
// mode, handover thresholds, RF and IMS switches, fast dormancy and the network scan.
//
// Modes and band masks are the modem's own texts and go on the wire exactly as the caller wrote
// them: which masks a modem accepts is its business, so nothing here builds or checks one.
#include <cctype>
#include <cstring>
#include <initializer_list>
#include <string>

#include "atapi/network.h"
constexpr char kTraceSource[] = "src/ats_network";
#include "frame.h"

using atapi::Binding;
using atapi::copy_text;
using atapi::Field;
using atapi::num;
using atapi::OnError;
using atapi::ParseTree;
using atapi::Pieces;
using atapi::PiecesParsed;
using atapi::Request;
using atapi::Row;
using atapi::terminated;
using atapi::text;

namespace {

constexpr int kScanTimeout = 240;  // a scan walks every band
constexpr int kScanCells = 20;

// Values of one group of a test reply into `dst`, at most its size: `put(slot, field)`.
template <typename T, std::size_t N, typename Put>
int take_values(const Row& group, T (&dst)[N], const char* too_many, Put put) {
    int n = 0;
    for (Field f : group) {
        if (n == static_cast<int>(N)) {
            ATS_TRACE(WARNING, "%s", too_many);
            break;
        }
        put(dst[n++], f);
    }
    return n;
}

// The band pairs of a test reply: one group each, up to the list's 20 places.
class BandList {
public:
    BandList(BAND_ITEM (&items)[20], const char* mask, const char* name) : items_(items), mask_(mask), name_(name) {}
    void add(const Row& pair) {
        if (full_) return;
        if (n_ == 20) {
            ATS_TRACE(WARNING, "syscfgex band list is too many\n");
            full_ = true;
            return;
        }
        BAND_ITEM& b = items_[n_++];
        copy_text(b.bandnum, pair.find(mask_).value());
        copy_text(b.bandname, pair.find(name_).value());
    }
    int count() const { return n_; }

private:
    BAND_ITEM (&items_)[20];
    const char* mask_;
    const char* name_;
    int n_ = 0;
    bool full_ = false;
};

bool group_is(const Row& group, const char* label) { return safe_strcmp(group.head()->AtFieldName, label) == 0; }

// The query half of a check/execute command: "AT<name>?", answered by "<name>:" with the fields
// bound. `who` names the function in its traces.
int check_half(const char* who, const char* name, AT_AMSS_RES& exe_result, std::initializer_list<Binding> fields) {
    const std::string cmd = std::string("AT") + name + "?";
    const std::string failed = std::string(who) + " AT_CMD_TYPE_CHECK error\n";
    const std::string unparsed = std::string(who) + " at_parse_result NULL \n";
    Request req{cmd.c_str(), name};
    return AT_QUERY(req, {.name = name, .table = AT_FUNCTION_NETWORK_CFG, .on_error = OnError::map, .result = &exe_result,
                          .exchange_failed = {ATS_TRACE_ERROR, failed.c_str()}, .not_ok = {ATS_TRACE_ERROR, failed.c_str()},
                          .parse_failed = {ATS_TRACE_ERROR, unparsed.c_str()}},
                    fields);
}

}  // namespace

// ---- ^SYSCFG and ^SYSCFGEX ------------------------------------------------------------------------

extern "C" int AT_SysConfig(int CmdType, NetConfigurationType* Param, NetConfigurationRes* Result) {
    if (!Param || !Result) return -1;
    if (CmdType == AT_SET_VALUE) {
        Request req;
        if (!terminated(Param->Mode, Param->Acqorder, Param->Band, Param->Roam, Param->Srvdomain) ||
            !AT_FORMAT_CMD(req, 640, "AT^SYSCFG=%s,%s,%s,%s,%s", Param->Mode, Param->Acqorder, Param->Band,
                           Param->Roam, Param->Srvdomain))
            return -1;
        req.set_match("^SYSCFG");
        return atapi::set_and_map(req, Result->AtExeResult);
    }
    if (CmdType != AT_CHECK_VALUE) return -1;
    Request req{"AT^SYSCFG?", "^SYSCFG"};
    return AT_QUERY(req, {.name = "^SYSCFG", .table = AT_FUNCTION_NETWORK_CFG, .on_error = OnError::map,
                          .result = &Result->AtExeResult},
                    {text("mode", Result->Mode), text("acqorder", Result->Acqorder), text("band", Result->Band),
                     text("roam", Result->Roam), text("srvdomain", Result->Srvdomain)});
}

extern "C" int AT_SysConfigEx(int CmdType, NetConfigurationTypeEx* nettype) {
    if (!nettype) return -1;
    NetConfigurationTypeEx& n = *nettype;
    if (CmdType == AT_SET_VALUE) {
        Request req;
        if (!terminated(n.Acqorder, n.Band, n.Roam, n.Srvdomain, n.lteBand, n.reserver1, n.reserver2) ||
            !AT_FORMAT_CMD(req, 640, "AT^SYSCFGEX=\"%s\",%s,%s,%s,%s,%s,%s", n.Acqorder, n.Band, n.Roam,
                           n.Srvdomain, n.lteBand, n.reserver1, n.reserver2))
            return -1;
        req.set_match("^SYSCFGEX");
        // Unlike the query, the set maps no error report: intended.
        return atapi::set_or_fail(req, n.AtExeResult);
    }
    if (CmdType != AT_CHECK_VALUE) return -1;
    Request req{"AT^SYSCFGEX?", "^SYSCFGEX"};
    // The read template of ^SYSCFGEX is in the system table; the network row has only the test form.
    return AT_QUERY(req, {.name = "^SYSCFGEX", .table = AT_FUNCTION_SYSTEM_CFG, .on_error = OnError::map,
                          .result = &n.AtExeResult},
                    {text("acqorder", n.Acqorder), text("band", n.Band), text("roam", n.Roam),
                     text("srvdomain", n.Srvdomain), text("lteband", n.lteBand)});
}

extern "C" int AT_Syscfg_test(SYSCFG_INFO* sys_info) {
    if (!sys_info) return -1;
    Request req{"AT^SYSCFG=?", "^SYSCFG"};
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return -1;
    const ParseTree tree = req.parse("^SYSCFG", AT_FUNCTION_NETWORK_CFG, AT_OPERATION_TYPE_TEST);
    if (!tree) return -1;
    auto number = [](int& slot, Field f) { slot = f.number(); };
    BandList bands(sys_info->band, "band", "band_name");
    for (Row group : tree.rows()) {
        if (group_is(group, "modes")) sys_info->mode_num = take_values(group, sys_info->mode, "modes list is too many\n", number);
        else if (group_is(group, "acqorders"))
            sys_info->acqorder_num = take_values(group, sys_info->acqorder, "acqorder list is too many\n", number);
        else if (group_is(group, "bandlist")) bands.add(group);
    }
    sys_info->band_num = bands.count();
    return 0;
}

extern "C" int AT_Syscfgex_test(SYSCFGEX_INFO* sysex_info) {
    if (!sysex_info) return -1;
    SYSCFGEX_INFO& info = *sysex_info;
    Request req{"AT^SYSCFGEX=?", "^SYSCFGEX"};
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return req.map_error(info.AtExeResult);
    const ParseTree tree = req.parse("^SYSCFGEX", AT_FUNCTION_NETWORK_CFG, AT_OPERATION_TYPE_TEST);
    if (!tree) return -1;
    info.AtExeResult = AT_CMD_RES_SUCCESS;
    BandList bands(info.band, "band", "band_name"), lte(info.LTEband, "lteband", "lteband_name");
    for (Row group : tree.rows()) {
        if (group_is(group, "acqorders"))
            info.acqorder_num = take_values(group, info.acqorder, "acqorder list is too many\n",
                                            [](char (&slot)[20], Field f) { copy_text(slot, f.value()); });
        else if (group_is(group, "bandlist")) bands.add(group);
        else if (group_is(group, "LTElist")) lte.add(group);
    }
    info.band_num = bands.count();
    info.LTEband_num = lte.count();
    return 0;
}

extern "C" int AT_Setbandpriority(BANDPRIORITYRESULT* pbandpriority) {
    if (!pbandpriority) return -1;
    BANDPRIORITYRESULT& p = *pbandpriority;
    if (p.band_num < 0 || p.band_num > AT_BANDPRIORITY_MAX_BANDS) return -1;
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT^BANDPRIORITY=%d,%d", p.rat, p.band_num)) return -1;
    for (int i = 0; i < p.band_num; ++i)
        if (!AT_APPEND_CMD(req, ",%d", p.band[i])) return -1;
    req.set_match("^BANDPRIORITY");
    return atapi::set_and_map(req, p.AtExeResult);
}

// ---- Switches ---------------------------------------------------------------------------------------

extern "C" int AT_SetCASwitch(CA_SWITCH_STATE CASwitch) {
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT^CASWITCHSBB=%d", static_cast<int>(CASwitch))) return -1;
    return atapi::result_only(req);
}

extern "C" int AT_QueryCASwitch(CA_SWITCH_STATE* pCASwitch) {
    if (!pCASwitch) return -1;
    Request req{"AT^CASWITCHSBB?", "^CASWITCHSBB:"};
    constexpr atapi::Trace failed{ATS_TRACE_ERROR, "AT_QueryCASwitch:AT^CASWITCHSBB? command failed!\r\n"};
    const int rc = AT_QUERY(req, {.name = "^CASWITCHSBB", .table = AT_FUNCTION_NETWORK_CFG, .exchange_failed = failed,
                                  .not_ok = failed, .parse_failed = failed},
                            {num("CASwitch", *pCASwitch)});
    if (rc == 0)
        ATS_TRACE(INFO, "AT_QueryCASwitch: CASwitch=%d. at_report_str:%s\r\n", static_cast<int>(*pCASwitch),
                  req.report());
    return rc;
}

extern "C" int AT_SetImsswitch(int iEnable) {
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT^IMSSWITCH=%d", iEnable)) return -1;
    return atapi::result_only(req);
}

extern "C" int AT_QryImsswitch(int* pEnable) {
    if (!pEnable) return -1;
    Request req{"AT^IMSSWITCH?", "^IMSSWITCH"};
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return -1;
    // No template: the state is the first number after the prefix.
    constexpr char kPrefix[] = "^IMSSWITCH:";
    const char* p = std::strstr(req.report(), kPrefix);
    if (!p) return -1;
    p += sizeof kPrefix - 1;
    while (*p == ' ') ++p;
    std::size_t digits = 0;
    while (std::isdigit(static_cast<unsigned char>(p[digits]))) ++digits;
    if (digits == 0 || digits > 9) return -1;
    *pEnable = safe_atoi(p);
    return 0;
}

extern "C" int AT_FASTDORM(int type, int time_value) {
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT^FASTDORM=%d,%d", type, time_value)) return -1;
    if (int rc = req.exchange()) {
        ATS_TRACE(ERROR, "AT_FASTDORM GetDataFromAtServer failed\n");
        return rc;
    }
    if (!req.ok()) return -1;
    ATS_TRACE(INFO, "AT_FASTDORM success\n");
    return 0;
}

// ---- The check/execute commands -----------------------------------------------------------------

extern "C" int AT_RFSwitch(int CmdType, LTERFInfo* Param, LTERFResult* Result) {
    if (!Result) return -1;
    auto check = [&] { return check_half("AT_RFSwitch", "^RFSWITCH", Result->AtExeResult, {num("rf_status", Result->rf_state)}); };
    auto execute = [&] {
        Request req;
        if (!Param || !AT_FORMAT_CMD(req, 639, "AT^RFSWITCH=%d", static_cast<int>(Param->rf_state))) return -1;
        return atapi::set_or_fail(req, Result->AtExeResult);
    };
    return atapi::dispatch(CmdType, check, execute, -1);
}

extern "C" int AT_HOPARASET(int CmdType, HOPARASETInfo* Param, HOPARASETResult* Result) {
    if (!Result) return -1;
    HOPARASETResult& r = *Result;
    auto check = [&] {
        return check_half("AT_HOPARASET", "^HOPARASET", r.AtExeResult,
                          {num("rsrp_thresh1", r.rsrp_thresh1), num("rsrp_thresh2", r.rsrp_thresh2),
                           num("rsrp_thresh3", r.rsrp_thresh3), num("sinr_thresh1", r.sinr_thresh1),
                           num("sinr_thresh2", r.sinr_thresh2), num("sinr_thresh3", r.sinr_thresh3)});
    };
    auto execute = [&] {
        Request req;
        if (!Param) return -1;
        const HOPARASETInfo& p = *Param;
        if (!AT_FORMAT_CMD(req, 639, "AT^HOPARASET=%d,%d,%d,%d,%d,%d", static_cast<int>(p.rsrp_thresh1),
                           static_cast<int>(p.rsrp_thresh2), static_cast<int>(p.rsrp_thresh3),
                           static_cast<int>(p.sinr_thresh1), static_cast<int>(p.sinr_thresh2),
                           static_cast<int>(p.sinr_thresh3)))
            return -1;
        return atapi::set_or_fail(req, r.AtExeResult);
    };
    return atapi::dispatch(CmdType, check, execute, -1);
}

extern "C" int AT_LTEMEASMODE(int CmdType, LTEMEASMODEInfo* Param, LTEMEASMODEResult* Result) {
    if (!Result) return -1;
    auto check = [&] { return check_half("AT_LTEMEASMODE", "^LTEMEASMODE", Result->AtExeResult, {num("mode", Result->mode)}); };
    auto execute = [&] {
        Request req;
        if (!Param || !AT_FORMAT_CMD(req, 639, "AT^LTEMEASMODE=%d", static_cast<int>(Param->mode))) return -1;
        return atapi::set_or_fail(req, Result->AtExeResult);
    };
    return atapi::dispatch(CmdType, check, execute, -1);
}

extern "C" int AT_LMIMOCTRL(int CmdType, ECO_LMIMOCTRL_STATE Param, LMIMOCTRLResult* Result) {
    if (!Result) return -1;
    auto check = [&] {
        return check_half("AT_LMIMOCTRL", "^LMIMOCTRL", Result->AtExeResult, {num("MimoMode", Result->MIMO_state)});
    };
    auto execute = [&] {
        Request req;
        if (!AT_FORMAT_CMD(req, 639, "AT^LMIMOCTRL=%d", static_cast<int>(Param))) return -1;
        return atapi::set_or_fail(req, Result->AtExeResult);
    };
    return atapi::dispatch(CmdType, check, execute, -1);
}

extern "C" int AT_LCACTRL(int CmdType, LTELCAInfo* Param, LTECAResult* Result) {
    if (!Result) return -1;
    auto check = [&] { return check_half("AT_LCACTRL", "^LCACTRL", Result->AtExeResult, {num("CaMode", Result->CA_state)}); };
    auto execute = [&] {
        Request req;
        if (!Param || !AT_FORMAT_CMD(req, 639, "AT^LCACTRL=%d", static_cast<int>(Param->CA_state))) return -1;
        return atapi::set_or_fail(req, Result->AtExeResult);
    };
    return atapi::dispatch(CmdType, check, execute, -1);
}

// ---- The network scan ---------------------------------------------------------------------------

extern "C" int AT_SetNetscanctl(int CellStatus) {
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT^NETSCANCTL=4,%d", CellStatus)) return -1;
    return atapi::result_only(req);
}

extern "C" int At_Netscan(unsigned int CellMode, char* pbandinfo, NETSCAN_RESULT* pNetscanResult) {
    if (!pNetscanResult) return -1;
    NETSCAN_RESULT& r = *pNetscanResult;
    // The weakest cell worth listing, in dBm; mode 2 looks further down.
    const int threshold = CellMode == 2 ? -125 : -110;
    const int mode = static_cast<int>(CellMode);
    Request req{kScanTimeout};
    req.multi_line();
    const bool formatted =
        pbandinfo && *pbandinfo ? AT_FORMAT_CMD(req, 639, "AT^NETSCAN=%d,%d,%d,%s", kScanCells, threshold, mode, pbandinfo)
                                : AT_FORMAT_CMD(req, 639, "AT^NETSCAN=%d,%d,%d", kScanCells, threshold, mode);
    if (!formatted) return -1;
    req.set_match("^NETSCAN");
    if (req.exchange()) return -1;
    if (!req.ok()) return req.map_error(r.AtExeResult);
    r.AtExeResult = AT_CMD_RES_SUCCESS;
    if (req.report()[0] == '\0') return 0;
    Pieces lines(req.report(), "^NETSCAN", kScanCells);
    r.cell_num = lines.count();
    const PiecesParsed parsed = atapi::parse_pieces(
        lines, "^NETSCAN", AT_FUNCTION_NETWORK_CFG, r.CellListInfo, [](NETSCAN_CELL_DATA& cell, const Row& row) {
            const Binding fields[] = {text("lac", cell.cell_lac), text("mcc", cell.cell_mcc), text("mnc", cell.cell_mnc),
                                      text("cid", cell.cell_id)};
            atapi::store_fields(row, fields);
        });
    if (parsed == PiecesParsed::bad_piece) ATS_TRACE(ERROR, "at_cmd_parse error!\n");
    return parsed == PiecesParsed::ok ? 0 : -1;
}
