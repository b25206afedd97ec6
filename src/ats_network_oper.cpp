// ats_network_oper.cpp - the registered operator, operator search and selection, the SIM's
// operator tables, network and service-provider names, and the modem's clock.
#include <cstring>
#include <ctime>

#include "atapi/network.h"
constexpr char kTraceSource[] = "src/ats_network";
#include "frame.h"

using atapi::Binding;
using atapi::copy_text;
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

// A search can take minutes on a live network, and so can the registration a selection starts.
constexpr int kOperatorTimeout = 240;
// Lines of an ^OPL or ^PNN answer read at most.
constexpr int kListLines = 512;

// A caller's fixed text field equal to `literal`, read no further than the field.
template <std::size_t N>
bool field_is(const char (&field)[N], const char* literal) {
    return std::strncmp(field, literal, N) == 0;
}

// After the exchange of a selection or search: 0 with the outcome in the result field, the
// exchange's code, or -1 for a final result that is neither OK nor an error report.
int outcome(Request& req, AT_AMSS_RES& exe_result) {
    return atapi::set_and_map(req, exe_result);
}

int select_operator(const NetChooseOperatorParam& p, NetChooseOperatorResult& r) {
    Request req{kOperatorTimeout};
    req.set_match("+COPS:");
    bool formatted;
    if (field_is(p.Rat, "0") || field_is(p.Rat, "2") || field_is(p.Rat, "7")) {
        formatted = terminated(p.Mode, p.Format, p.OperatorName) &&
                    AT_FORMAT_CMD(req, 639, "AT+COPS=%s,%s,\"%s\",%s", p.Mode, p.Format, p.OperatorName, p.Rat);
    } else if (field_is(p.Mode, "2")) {
        formatted = AT_FORMAT_CMD(req, 639, "AT+COPS=%s", p.Mode);
    } else {
        // Any other access technology, an empty one included, selects without it.
        formatted = terminated(p.Mode, p.Format, p.OperatorName) &&
                    AT_FORMAT_CMD(req, 639, "AT+COPS=%s,%s,\"%s\"", p.Mode, p.Format, p.OperatorName);
    }
    if (!formatted) return -1;
    return outcome(req, r.AtExeResult);
}

int search_operators(NetChooseOperatorResult& r) {
    Request req{"AT+COPS=?", "+COPS:", kOperatorTimeout};
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return req.map_error(r.AtExeResult);
    ParseTree tree = req.parse("+COPS", AT_FUNCTION_NETWORK_CFG, AT_OPERATION_TYPE_TEST);
    if (!tree) return -1;
    r.AtExeResult = AT_CMD_RES_SUCCESS;
    OperatorList& list = *r.TotalOper;
    int stored = 0;
    // One "option" group per operator, then the mode and format groups.
    for (Row option : tree.rows()) {
        if (safe_strcmp(option.head()->AtFieldName, "option") != 0) break;
        if (stored == AT_COPS_MAX_OPERATORS) {
            ATS_TRACE(WARNING, "AT+COPS=? return too many operators(>20)!\n");
            break;
        }
        OperatorInfo& op = list.Operator[stored++];
        const Binding fields[] = {text("stat", op.State), text("long_oper", op.LongAlphanumeric),
                                  text("short_oper", op.ShortAlphanumeric), text("numeric_oper", op.numeric),
                                  text("rat", op.Rat)};
        atapi::store_fields(option, fields);
    }
    list.OperatorNumber = stored;
    return 0;
}

}  // namespace

extern "C" int AT_Cops(NetChooseOperatorParam* CopsMsg) {
    if (!CopsMsg) return -1;
    Request req{"AT+COPS?", "+COPS:"};
    return AT_QUERY(req,
                    {.name = "+COPS", .table = AT_FUNCTION_NETWORK_CFG,
                     .exchange_failed = {ATS_TRACE_INFO, "AT_Cops error ......\n"},
                     .not_ok = {ATS_TRACE_INFO, "switch default ......\n"},
                     .parse_failed = {ATS_TRACE_WARNING, "AT_Cops NULL != at_parse_result ......\n"}},
                    {text("mode", CopsMsg->Mode), text("format", CopsMsg->Format), text("oper", CopsMsg->OperatorName),
                     text("rat", CopsMsg->Rat)});
}

extern "C" int AT_ChoseOperators(int CmdType, NetChooseOperatorParam* Param, NetChooseOperatorResult* Result) {
    if (!Result) return -1;
    if (CmdType == AT_SET_VALUE) return Param ? select_operator(*Param, *Result) : -1;
    if (CmdType == 2) return Result->TotalOper ? search_operators(*Result) : -1;
    return -1;
}

// ---- The SIM's operator tables -----------------------------------------------------------------

extern "C" int AT_GetOPList(int simtype, OplResList* opllist) {
    if (!opllist) return -1;
    Request req;
    req.multi_line();
    if (!AT_FORMAT_CMD(req, 639, "AT^OPL=%d", simtype)) return -1;
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return req.map_error(opllist->AtExeResult);
    opllist->AtExeResult = AT_CMD_RES_SUCCESS;
    if (req.report()[0] == '\0') return 0;
    Pieces lines(req.report(), "^OPL", kListLines);
    opllist->list_num = lines.count();
    if (lines.count() == 0) {
        ATS_TRACE(INFO, "get opl list number is zero\n");
        return -1;
    }
    const PiecesParsed parsed =
        atapi::parse_pieces(lines, "^OPL", AT_FUNCTION_SYSTEM_CFG, opllist->opl_list, [](OplRes& entry, const Row& row) {
            const Binding fields[] = {text("numeric", entry.numeric), num("index", entry.index_pnn)};
            atapi::store_fields(row, fields);
        });
    if (parsed == PiecesParsed::no_memory) ATS_TRACE(ERROR, "opllist->opl_list malloc error\n");
    return parsed == PiecesParsed::ok ? 0 : -1;
}

extern "C" int AT_GetPnnList(PnnPara* pnn, int* pnnNum, PnnRes** pnnlist) {
    if (!pnn || !pnnNum || !pnnlist) return -1;
    *pnnNum = 0;
    Request req;
    req.multi_line();
    bool formatted = true;
    if (pnn->pnn_index == -1) formatted = AT_FORMAT_CMD(req, 639, "AT^PNN=%d", pnn->pnn_type);
    else if (pnn->pnn_index >= 0) formatted = AT_FORMAT_CMD(req, 639, "AT^PNN=%d,%d", pnn->pnn_type, pnn->pnn_index);
    // An index below -1 formats nothing: the empty line goes out as it is, on purpose.
    if (!formatted) return -1;
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return -1;
    if (req.report()[0] == '\0') return 0;
    Pieces lines(req.report(), "^PNN", kListLines);
    if (lines.count() == 0) {
        ATS_TRACE(INFO, "AT_GetPnnList get_substring error\n");
        return -1;
    }
    const PiecesParsed parsed =
        atapi::parse_pieces(lines, "^PNN", AT_FUNCTION_SYSTEM_CFG, *pnnlist, [](PnnRes& entry, const Row& row) {
            entry.AtExeResult = AT_CMD_RES_SUCCESS;
            const Binding fields[] = {text("long_name", entry.full_name), text("short_name", entry.short_name),
                                      text("reserved", entry.reserve)};
            atapi::store_fields(row, fields);
        });
    if (parsed == PiecesParsed::no_memory) ATS_TRACE(ERROR, "AT_GetPnnList malloc error\n");
    if (parsed != PiecesParsed::ok) return -1;
    *pnnNum = lines.count();
    return 0;
}

// ---- Network and service-provider names --------------------------------------------------------

extern "C" int AT_Eons(int type, const char* plmn_id, NetEonsResult* EonsRsp) {
    if (!EonsRsp) return -1;
    Request req;
    const bool formatted = plmn_id && *plmn_id ? AT_FORMAT_CMD(req, 639, "AT^EONS=%d,%s", type, plmn_id)
                                               : AT_FORMAT_CMD(req, 639, "AT^EONS=%d", type);
    if (!formatted) return -1;
    req.set_match("^EONS:");
    if (req.exchange()) {
        ATS_TRACE(INFO, "AT_Eons error ......\n");
        return -1;
    }
    if (!req.ok()) {
        ATS_TRACE(INFO, "switch default ......\n");
        return -1;
    }
    // The parse code goes into the trace, so the dispatcher is called here rather than through
    // Request::parse.
    AtCmdParse* head = nullptr;
    const int ret = at_cmd_parse(&head, const_cast<char*>("^EONS"), req.report(), AT_FUNCTION_NETWORK_CFG,
                                 AT_OPERATION_TYPE_READ);
    const ParseTree tree{ret == 0 ? head : nullptr};
    if (!tree) {
        ATS_TRACE(WARNING, "AT_Eons NULL == at_parse_result(ret = %d) ......\n", ret);
        return -1;
    }
    const Binding fields[] = {num("type", EonsRsp->type),           text("plmn_id", EonsRsp->plmn_id),
                              text("plmn_long", EonsRsp->plmn_long), text("plmn_short", EonsRsp->plmn_short),
                              num("spn_cond", EonsRsp->spn_cond),    text("spn", EonsRsp->spn_name)};
    atapi::store_fields(tree.row(), fields);
    return 0;
}

extern "C" int AT_Cnwi(NetCnwiOperatorParam* CnwiParam) {
    ATS_TRACE(INFO, "AT_Cnwi enter\n");
    if (!CnwiParam) {
        ATS_TRACE(ERROR, "AT_Cnwi in_param NULL\n");
        return -1;
    }
    Request req{"AT^CNWI", "^CNWI"};
    const int ret = AT_QUERY(req,
                             {.name = "^CNWI", .table = AT_FUNCTION_NETWORK_CFG, .on_error = OnError::map,
                              .result = &CnwiParam->AtExeResult,
                              .exchange_failed = {ATS_TRACE_ERROR, "AT_Cnwi error ......\n"}},
                             {text("plmn_id", CnwiParam->plmn_id), text("sid", CnwiParam->sid),
                              text("nid", CnwiParam->nid), text("sub_net_id", CnwiParam->sub_net_id),
                              text("ltm_off", CnwiParam->ltm_off)});
    ATS_TRACE(INFO, "AT_Cnwi ret = %d\n", ret);
    return ret;
}

extern "C" int AT_GetSpn(int spnType, spnresult* spnrsp) {
    if (!spnrsp) return -1;
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT^SPN=%d", spnType)) return -1;
    return AT_QUERY(req, {.name = "^SPN", .table = AT_FUNCTION_SPN_CFG, .on_error = OnError::map,
                          .result = &spnrsp->AtExeResult},
                    {num("disp_rplmn", spnrsp->disp_rplmn), num("coding", spnrsp->coding),
                     text("spn_name", spnrsp->spn_name)});
}

extern "C" int AT_Cpnn(int pnnType, CpnnRsp* cpnnRsp) {
    if (!cpnnRsp) return -1;
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT^CPNN=%d", pnnType)) return -1;
    // "shor_name_ci" is the template's own spelling.
    return AT_QUERY(req, {.name = "^CPNN", .table = AT_FUNCTION_SYSTEM_CFG, .on_error = OnError::map,
                          .result = &cpnnRsp->AtExeResult},
                    {text("full_name", cpnnRsp->fullname), num("full_name_coding", cpnnRsp->fcoding),
                     num("full_name_ci", cpnnRsp->full_name_ci), text("short_name", cpnnRsp->shortname),
                     num("short_name_coding", cpnnRsp->scoding), num("shor_name_ci", cpnnRsp->short_name_ci)});
}

// ---- The modem's clock -------------------------------------------------------------------------

extern "C" int AT_CCLK_CHECK(ST_AT_TIME* at_time_info) {
    if (!at_time_info) {
        ATS_TRACE(ERROR, "[AT_CCLK_CHECK]at_time_info is null.\n");
        return -1;
    }
    ATS_TRACE(INFO, "[AT_CCLK_CHECK]AT+CCLK?.\n");
    Request req{"AT+CCLK?", "+CCLK"};
    if (req.exchange() != 0 || !req.ok()) return -1;
    ATS_TRACE(INFO, "[AT_CCLK_CHECK] at_report_str is : %s\n", req.report());
    const ParseTree tree = req.parse("+CCLK", AT_FUNCTION_SYSTEM_CFG);
    if (!tree) {
        ATS_TRACE(WARNING, "[AT_CCLK_CHECK]at_parse_result is null.\n");
        return -1;
    }
    char date[160] = {};
    copy_text(date, tree.row().find("date").value());
    // "YYYY/MM/DD,hh:mm:ss" read at fixed places. The full year and the month counted from 1 are
    // stored as they stand, unlike struct tm's usual counting: callers rely on it.
    std::tm& t = at_time_info->stTimeInfo;
    t.tm_year = safe_atoi(date);
    t.tm_mon = safe_atoi(date + 5);
    t.tm_mday = safe_atoi(date + 8);
    t.tm_hour = safe_atoi(date + 11);
    t.tm_min = safe_atoi(date + 14);
    t.tm_sec = safe_atoi(date + 17);
    ATS_TRACE(INFO, "[AT_CCLK_CHECK]The at_time_info is %4d/%02d/%02d,%02d:%02d:%02d !\r\n", t.tm_year, t.tm_mon,
              t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec);
    ATS_TRACE(INFO, "[AT_CCLK_CHECK]at_cclk return  success.\n");
    return 0;
}

extern "C" int AT_NWTime(ST_AT_TIME* at_time_info) {
    if (!at_time_info) ATS_TRACE(ERROR, "at_time_info is null.\n");
    // Network time comes with the ^NWTIME report only: there is nothing to ask, on purpose.
    return -1;
}
