// ats_ndis.cpp - the NDIS dial and the data connection's state: ^NDISDUP, ^NDISSTATQRY and its test
// form, the ^DCONNSTAT list, ^GLASTERR, ^APCONNST and ^CHDATA.
//
// The dial's OK only says the modem took the command; the bearer comes up (or fails) later, which
// the state queries and the modem's ^NDISSTAT reports tell.
#include <cstdio>
#include <cstdlib>

#include "atapi/ndis.h"
constexpr char kTraceSource[] = "src/ats_ndis";
#include "ats_ndis.h"

using atapi::copy_text;
using atapi::Field;
using atapi::num;
using atapi::ParseTree;
using atapi::Pieces;
using atapi::Request;
using atapi::Row;
using atapi::store_enum;
using atapi::ndis::all_terminated;

int atapi::ndis::send_config(Request& req, const char* run_failed, const char* config_error, AT_AMSS_RES* result) {
    if (int rc = req.exchange()) {
        ATS_TRACE(INFO, "%s", run_failed);
        return rc;
    }
    if (!req.ok()) {
        ATS_TRACE(INFO, "%s", config_error);
        return -1;
    }
    if (result) *result = AT_CMD_RES_SUCCESS;
    return 0;
}

extern "C" int AT_ndisdup(int cid, int action, ProfileResult* p_profile) {
    // The request holds the password; it is wiped on every way out.
    Request req{atapi::kDefaultTimeout};
    bool formatted = false;
    const ProfileResult* p = p_profile;
    if (p == nullptr) {
        formatted = AT_FORMAT_CMD(req, 639, "AT^NDISDUP=%d,%d", cid, action);
    } else if (!all_terminated(p->apn_name, p->username, p->password, p->addr)) {
        ATS_TRACE(ERROR, "AT^NDISDUP profile text without its end, nothing sent\n");
    } else if (p->apn_is_static == 1 && p->ip_is_static != 1) {
        formatted = AT_FORMAT_CMD(req, 639, "AT^NDISDUP=%d,%d,\"%s\",\"%s\",\"%s\",%c", cid, action, p->apn_name,
                                  p->username, p->password, p->auth_mode);
    } else if (p->apn_is_static == 1) {
        formatted = AT_FORMAT_CMD(req, 639, "AT^NDISDUP=%d,%d,\"%s\",\"%s\",\"%s\",%c,\"%s\"", cid, action,
                                  p->apn_name, p->username, p->password, p->auth_mode, p->addr);
    } else if (p->ip_is_static != 1) {
        // The APN position stays empty: the modem takes the context's own.
        formatted = AT_FORMAT_CMD(req, 639, "AT^NDISDUP=%d,%d,,\"%s\",\"%s\",%c", cid, action, p->username,
                                  p->password, p->auth_mode);
    } else {
        formatted = AT_FORMAT_CMD(req, 639, "AT^NDISDUP=%d,%d,,\"%s\",\"%s\",%c,\"%s\"", cid, action, p->username,
                                  p->password, p->auth_mode, p->addr);
    }
    if (!formatted) return -1;
    req.set_match("^NDISDUP");
    // "NDISUP" is spelled so in the trace on purpose: log readers search for it.
    return atapi::ndis::send_config(req, "AT^NDISDUP run failed!\n", "AT^NDISUP config error!\n",
                                    p_profile ? &p_profile->AtExeResult : nullptr);
}

namespace {

// The state walk of ^NDISSTATQRY and ^APCONNST over every line of the reply. The first state seen
// is the IPv4 state unless a typed line says otherwise; a line's type decides where its state goes.
// ^NDISSTATQRY names the type in a PDP_type value ("IPV4"), ^APCONNST in the field names themselves.
template <typename Rec>
void store_states(const ParseTree& tree, Rec& rec, const char* stat_name, bool types_are_names) {
    int stat = 0, err = 0;
    bool first = true;
    for (Row row : tree.rows()) {
        for (Field f : row) {
            const char* type = types_are_names ? f.name() : (f.is("PDP_type") ? f.value() : nullptr);
            if constexpr (requires { rec.ipv4Reserve; }) {
                if (f.is("err_code")) {
                    err = f.number();
                    rec.Reserve = err;
                    continue;
                }
            }
            if (f.is(stat_name)) {
                stat = f.number();
                if (first) store_enum(rec.ipv4_status, stat);
                first = false;
            } else if (safe_strcmp(type, "IPV4") == 0) {
                store_enum(rec.ipv4_status, stat);
                if constexpr (requires { rec.ipv4Reserve; }) rec.ipv4Reserve = err;
            } else if (safe_strcmp(type, "IPV6") == 0) {
                store_enum(rec.ipv6_status, stat);
            }
        }
    }
}

template <typename Rec>
int query_states(Request& req, const char* name, Rec& rec, const char* stat_name, bool types_are_names) {
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return req.map_error(rec.AtExeResult);
    ParseTree tree = req.parse(name, AT_FUNCTION_CONNECT_CFG);
    if (!tree) return -1;
    store_states(tree, rec, stat_name, types_are_names);
    rec.AtExeResult = AT_CMD_RES_SUCCESS;
    return 0;
}

}  // namespace

extern "C" int at_ndisstatqry_state(int cid, AT_NDIS_STATUS_ST* result) {
    if (!result) return -1;
    Request req{cid == 1 ? "AT^NDISSTATQRY?" : nullptr, "^NDISSTATQRY", atapi::kQuickTimeout};
    if (cid != 1 && !AT_FORMAT_CMD(req, 639, "AT^NDISSTATQRY=%d", cid)) return -1;
    return query_states(req, "^NDISSTATQRY", *result, "stat", false);
}

extern "C" int at_ppp_state(int cid, AT_PDP_STATUS_ST* result) {
    if (!result) return -1;
    // Neither "AT^APCONNST=cid" nor "AT^APCONNST?" goes out, on purpose: the bare name does, with no
    // match string, and the AT server answers it from the modem's last ^APCONNST report.
    (void)cid;
    Request req{"^APCONNST", nullptr, atapi::kQuickTimeout};
    return query_states(req, "^APCONNST", *result, "status", true);
}

extern "C" int at_ndisstatqry_test(CONNECT_CID_INFO* cid_info) {
    if (!cid_info) return -1;
    Request req{"AT^NDISSTATQRY=?", "^NDISSTATQRY", atapi::kQuickTimeout};
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return req.map_error(cid_info->AtExeResult);
    ParseTree tree = req.parse("^NDISSTATQRY", AT_FUNCTION_CONNECT_CFG, AT_OPERATION_TYPE_TEST);
    if (!tree) return -1;
    cid_info->AtExeResult = AT_CMD_RES_SUCCESS;
    constexpr int kMaxCids = 16;
    for (Row row : tree.rows()) {
        if (safe_strcmp(row.head()->AtFieldName, "cid") != 0) continue;
        ATS_TRACE(INFO, "at_ndisstatqry_test parse cid enter...\n ");
        int count = 0;
        for (const AtCmdParse* n = row.head()->next; n && n->AtFieldValue; n = n->next) {
            if (count == kMaxCids) {
                ATS_TRACE(ERROR, "cid list is too many\n");
                break;
            }
            ATS_TRACE(INFO, "at_ndisstatqry_test cid[%d]: point2->AtFieldValue=%s\n", count, n->AtFieldValue);
            AT_FORMAT_TEXT(cid_info->cid_value[count], n->AtFieldValue);
            cid_info->cid_num = ++count;
        }
    }
    return 0;
}

extern "C" int AT_DCONNSTATLIST(int cmdType, int* pdcontotal, StCONNSTATNDIS** pout) {
    if (!pdcontotal || !pout) return -1;
    if (cmdType != 0) return 0;
    Request req{"AT^DCONNSTAT?", "^DCONNSTAT:"};
    if (req.exchange()) return -1;
    if (!req.ok()) {
        if (!req.is_error_report()) return -1;
        // The code is shown, not stored: the list has no record to hold it.
        std::printf("ierrornum = <%d>\r\n", static_cast<int>(Error_str_to_id(req.report())));
        return 0;
    }
    ATS_TRACE(ERROR, "[AT_DCONNSTATLIST] at_report_str is : %s\n", req.report());
    constexpr int kMaxConnections = 16;
    const Pieces lines(req.report(), "^DCONNSTAT", kMaxConnections);
    if (lines.count() == 0) {
        ATS_TRACE(ERROR, "[AT_DCONNSTATLIST] get_substring error\n");
        *pdcontotal = 0;
        return -1;
    }
    ATS_TRACE(ERROR, "[AT_DCONNSTATLIST] cid num is : %d\n", lines.count());
    *pdcontotal = lines.count();
    *pout = atapi::alloc_records<StCONNSTATNDIS>(lines.count());
    if (*pout == nullptr) {
        ATS_TRACE(ERROR, "[AT_DCONNSTATLIST] malloc error\n");
        *pdcontotal = 0;
        return -1;
    }
    for (int i = 0; i < lines.count(); ++i) {
        ATS_TRACE(ERROR, "[AT_DCONNSTATLIST] strCconList[i] is : %s\n", lines[i]);
        const ParseTree tree = atapi::parse_text(lines[i], "^DCONNSTAT", AT_FUNCTION_GPS_CFG);
        if (!tree) {
            // The count stays: callers read it only with a list.
            std::free(*pout);
            *pout = nullptr;
            ATS_TRACE(ERROR, "[AT_DCONNSTATLIST]NULL == at_parse_result");
            return -1;
        }
        StCONNSTATNDIS& rec = (*pout)[i];
        rec.AtExecResult = AT_CMD_RES_SUCCESS;
        const atapi::Binding fields[] = {num("cid", rec.cid), num("ipv4_stat", rec.ipv4_stat),
                                         num("ipv6_stat", rec.ipv6_stat), num("dconn_type", rec.dconn_type),
                                         atapi::text("APN", rec.aucStr)};
        store_fields(tree.row(), fields);
        ATS_TRACE(ERROR, "[AT_DCONNSTATLIST] cid = %d, ipv4_stat = %d, ipv6_stat = %d\n", rec.cid, rec.ipv4_stat,
                  rec.ipv6_stat);
    }
    return 0;
}

extern "C" int AT_Glasterr(StDialupResult* Result) {
    if (!Result) {
        // "CLASTERR" is spelled so on purpose: log readers search for it.
        ATS_TRACE(WARNING, "no param, AT^CLASTERR cmd not execute!\n");
        return -1;
    }
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT^GLASTERR=%d", static_cast<int>(Result->errorType))) return -1;
    req.set_match("^GLASTERR:");
    return AT_QUERY(req,
                    {.name = "^GLASTERR", .table = AT_FUNCTION_CONNECT_CFG, .result = &Result->AtExeResult,
                     .exchange_failed = {ATS_TRACE_WARNING, "AT^GLASTERR run failed!\n"},
                     .not_ok = {ATS_TRACE_WARNING, "AT^GLASTERR=1 error!\n"},
                     .parse_failed = {ATS_TRACE_WARNING, "at cmd parse glasterr error\n"}},
                    {num("type", Result->errorType), num("code", Result->errorCode)});
}

extern "C" int AT_chdata(CH_DATA* ch_data) {
    if (!ch_data) return -1;
    Request req;
    const bool formatted = ch_data->datachannel == 0
                               ? AT_FORMAT_CMD(req, 639, "AT^CHDATA=%d", ch_data->cid)
                               : AT_FORMAT_CMD(req, 639, "AT^CHDATA=%d,%d", ch_data->cid, ch_data->datachannel);
    if (!formatted) return -1;
    req.set_match("^CHDATA");
    return atapi::ndis::send_config(req, "AT^CHDATA run failed!\n", "AT^CHDATA config error!\n",
                                    &ch_data->AtExeResult);
}
