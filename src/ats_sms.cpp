// ats_sms.cpp - the message stores: selection, reading, deleting, listing, the message-service
// settings and the memory-full report; sending and writing messages in PDU and vendor text form.
//
// The standard commands and the vendor's ("^H" twins) differ only in command text, reply prefix
// and handler row, so each pair shares one body that takes the vendor flag.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>

#include "atapi/sms.h"
constexpr char kTraceSource[] = "src/ats_sms";
#include "frame.h"

using atapi::Field;
using atapi::num;
using atapi::OnError;
using atapi::ParseTree;
using atapi::Request;
using atapi::text;

namespace {

constexpr at_function_type kSms = AT_FUNCTION_SMS_CFG;
constexpr int kCtrlZ = 26;           // ends a PDU body
constexpr int kStoreTimeout = 4;     // store selection answers at once
constexpr int kCmssTimeout = 50;     // a stored message goes out over the air first
constexpr std::size_t kHcmgsBody = 256;
constexpr std::size_t kHcmgwBody = 162;
constexpr int kHcmgrBodyMax = 161;

// Stores the bound fields of one row.
void store(const atapi::Row& row, std::initializer_list<atapi::Binding> fields) {
    atapi::store_fields(row, std::span<const atapi::Binding>(fields.begin(), fields.size()));
}

// A setting: no reply to parse; OK is success, an error reply's code goes into the record.
int send_setting(Request& req, bool formatted, AT_AMSS_RES& exe_result) {
    if (!formatted) return -1;
    return atapi::set_and_map(req, exe_result);
}

// ---- Store selection -----------------------------------------------------------------------

int cpms_check(bool vendor, StCpms* res) {
    if (!res) return -1;
    Request req{vendor ? "AT^HCPMS?" : "AT+CPMS?", vendor ? "^HCPMS:" : "+CPMS:", kStoreTimeout};
    return AT_QUERY(req,
                    {.name = vendor ? "^HCPMS" : "+CPMS", .table = kSms, .on_error = OnError::map,
                     .result = &res->AtExeResult, .result_before_parse = true},
                    {text("mem1", res->mem1), text("used1", res->used1), text("total1", res->total1),
                     text("mem2", res->mem2), text("used2", res->used2), text("total2", res->total2),
                     text("mem3", res->mem3), text("used3", res->used3), text("total3", res->total3)});
}

int cpms_execute(bool vendor, StCpms* para, StCpms* res) {
    if (!para || !res) return -1;
    const std::string m1 = atapi::input_text(para->mem1), m2 = atapi::input_text(para->mem2),
                      m3 = atapi::input_text(para->mem3);
    Request req{kStoreTimeout};
    const bool formatted =
        vendor ? AT_FORMAT_CMD(req, 639, "AT^HCPMS=\"%s\",\"%s\",\"%s\"", m1.c_str(), m2.c_str(), m3.c_str())
               : AT_FORMAT_CMD(req, 639, "AT+CPMS=\"%s\",\"%s\",\"%s\"", m1.c_str(), m2.c_str(), m3.c_str());
    if (!formatted) return -1;
    req.set_match(vendor ? "^HCPMS:" : "+CPMS:");
    return AT_QUERY(req,
                    {.name = vendor ? "^HCPMS" : "+CPMS", .table = kSms, .op = AT_OPERATION_TYPE_EXECUTE,
                     .on_error = OnError::map, .result = &res->AtExeResult, .result_before_parse = true},
                    {text("used1", res->used1), text("total1", res->total1), text("used2", res->used2),
                     text("total2", res->total2), text("used3", res->used3), text("total3", res->total3)});
}

// ---- Deleting and listing ------------------------------------------------------------------

int cmgd_delete(bool vendor, StCmgdPara* para) {
    if (!para) return -1;
    Request req;
    return send_setting(req,
                        vendor ? AT_FORMAT_CMD(req, 639, "AT^HCMGD=%d,%d", para->index, para->delflag)
                               : AT_FORMAT_CMD(req, 639, "AT+CMGD=%d,%d", para->index, para->delflag),
                        para->AtExeResult);
}

int cmgd_list(bool vendor, StCmgdRsp* rsp) {
    if (!rsp) return -1;
    Request req{vendor ? "AT^HCMGD=?" : "AT+CMGD=?", nullptr};
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return req.map_error(rsp->AtExeResult);
    ParseTree tree = req.parse(vendor ? "^HCMGD" : "+CMGD", kSms);
    if (!tree) {
        if (vendor) ATS_TRACE(WARNING, "at_cmd_parse hcmgd command failed!\n");
        else ATS_TRACE(WARNING, "at_cmd_parse cmgd command failed!\n");
        return -1;
    }
    // An empty list "()" parses to one field without a value: no index at all.
    int count = 0;
    for ([[maybe_unused]] Field f : tree.row()) ++count;
    int* list = nullptr;
    if (count > 0) {
        list = atapi::alloc_records<int>(count);
        if (!list) {
            ATS_TRACE(ERROR, "at_cmd_parse malloc mem failed!\n");
            return -1;
        }
        int i = 0;
        for (Field f : tree.row()) list[i++] = f.number();
    }
    rsp->index_list = list;
    rsp->length = count;
    rsp->AtExeResult = AT_CMD_RES_SUCCESS;
    return 0;
}

// ---- Plain integer settings ----------------------------------------------------------------

// The read half of a setting whose reply has one row of numbers.
int read_setting(const char* cmd, const char* name, const char* parse_failed, AT_AMSS_RES& exe_result,
                 std::initializer_list<atapi::Binding> fields) {
    Request req{cmd, nullptr};
    return AT_QUERY(req,
                    {.name = name, .table = kSms, .on_error = OnError::map, .result = &exe_result,
                     .result_before_parse = true, .parse_failed = {ATS_TRACE_WARNING, parse_failed}},
                    fields);
}

int message_format(bool vendor, int cmd_type, StSmMode* sm_mode) {
    return atapi::dispatch(
        cmd_type,
        [&] {
            if (!sm_mode) return -1;
            return vendor ? read_setting("AT^HCMGF?", "^HCMGF", "at_cmd_parse hcmgf command failed!\n",
                                         sm_mode->AtExeResult, {num("mode", sm_mode->mode)})
                          : read_setting("AT+CMGF?", "+CMGF", "at_cmd_parse cmgf command failed!\n",
                                         sm_mode->AtExeResult, {num("mode", sm_mode->mode)});
        },
        [&] {
            if (!sm_mode) return -1;
            Request req;
            return send_setting(req,
                                vendor ? AT_FORMAT_CMD(req, 639, "AT^HCMGF=%d", sm_mode->mode)
                                       : AT_FORMAT_CMD(req, 639, "AT+CMGF=%d", sm_mode->mode),
                                sm_mode->AtExeResult);
        },
        0);
}

// ---- Message bodies ------------------------------------------------------------------------

// Where a vendor text read's body starts: after the first CR LF that follows the first ':'. Copies
// min(src_length, msg_length) bytes from there into msg and their count into res_len.
int hcmgr_msg_parse(uint16_t* res_len, const char* src, std::size_t src_size, int src_length, char* msg,
                    int msg_length) {
    if (!res_len || !src || !msg || msg_length == 0) {
        ATS_TRACE(ERROR, "hcmgr_msg_parse para is null \n");
        return -1;
    }
    const char* colon = std::strchr(src, ':');
    if (!colon) {
        ATS_TRACE(ERROR, "hcmgr_msg_parse p_str1 not find : \r\n");
        return -1;
    }
    const char* crlf = std::strstr(colon, "\r\n");
    if (!crlf) {
        ATS_TRACE(ERROR, "hcmgr_msg_parse not find : \r\n");
        return -1;
    }
    const char* body = crlf + 2;
    // A hostile announced length never reaches past the reply text's buffer.
    const auto room = static_cast<int>(src + src_size - body);
    const int n = std::clamp(std::min(src_length, msg_length), 0, room);
    if (n > 0) memcpy_s(msg, static_cast<std::size_t>(msg_length), body, static_cast<std::size_t>(n));
    *res_len = static_cast<uint16_t>(n);
    return 0;
}

// The result of a message send or write: its number (message reference or index) from one field.
struct Outcome {
    const char* name;          // handler row
    const char* field;         // the reply field that holds the number
    const char* exchange_failed;
    const char* not_ok;
    const char* parse_failed;
};

int send_body(Request& req, const Outcome& o, int& number, AT_AMSS_RES& exe_result) {
    if (int rc = req.exchange()) {
        ATS_TRACE(ERROR, "%s", o.exchange_failed);
        return rc;
    }
    if (!req.ok()) {
        ATS_TRACE(ERROR, "%s", o.not_ok);
        return -1;
    }
    exe_result = AT_CMD_RES_SUCCESS;
    ParseTree tree = req.parse(o.name, kSms, AT_OPERATION_TYPE_EXECUTE);
    if (!tree) {
        ATS_TRACE(WARNING, "%s", o.parse_failed);
        return -1;
    }
    if (Field f = tree.row().find(o.field)) number = f.number();
    return 0;
}

}  // namespace

// ---- Store selection -----------------------------------------------------------------------

extern "C" int AT_Cpms(int cmd_type, StCpms* cpms_para, StCpms* cpms_res) {
    return atapi::dispatch(cmd_type, [&] { return cpms_check(false, cpms_res); },
                           [&] { return cpms_execute(false, cpms_para, cpms_res); }, -1);
}

extern "C" int AT_Hcpms(int cmd_type, StCpms* cpms_para, StCpms* cpms_res) {
    return atapi::dispatch(cmd_type, [&] { return cpms_check(true, cpms_res); },
                           [&] { return cpms_execute(true, cpms_para, cpms_res); }, -1);
}

extern "C" int AT_Cpms_test(StCpmsList* list) {
    if (!list) return -1;
    Request req{"AT+CPMS=?", "+CPMS:", atapi::kQuickTimeout};
    if (int rc = req.exchange()) {
        ATS_TRACE(ERROR, "execute AT+CPMS=? command error\n");
        return rc;
    }
    if (!req.ok()) {
        ATS_TRACE(ERROR, "AT+CPMS=? at error command\n");
        return -1;
    }
    list->AtExeResult = AT_CMD_RES_SUCCESS;
    ParseTree tree = req.parse("+CPMS", kSms, AT_OPERATION_TYPE_TEST);
    if (!tree) {
        ATS_TRACE(WARNING, "at_cmd_parse AT+CPMS=? command failed!\n");
        return -1;
    }
    std::size_t i = 0;
    for (atapi::Row group : tree.rows()) {
        if (safe_strcmp(group.head()->AtFieldName, "SmsMediaList") != 0) continue;
        if (i >= std::size(list->record)) {
            ATS_TRACE(WARNING, "cpms list is too many\n");
            continue;
        }
        StCpmsRecord& r = list->record[i++];
        store(atapi::Row{group.head()->next}, {text("mem1", r.mem1), text("mem2", r.mem2)});
    }
    return 0;
}

// ---- Reading -------------------------------------------------------------------------------

extern "C" int AT_Cmgr(StPerSms* stpersms) {
    if (!stpersms) return -1;
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT+CMGR=%d", stpersms->index)) return -1;
    req.set_match("+CMGR:");
    if (int rc = req.exchange()) {
        ATS_TRACE(ERROR, "execute at+cmgr command error\n");
        return rc;
    }
    // A read reports every failure as -1, error codes included.
    if (!req.ok()) {
        ATS_TRACE(ERROR, "get cmgr at error command\n");
        return -1;
    }
    stpersms->AtExeResult = AT_CMD_RES_SUCCESS;
    ParseTree tree = req.parse("+CMGR", kSms);
    if (!tree) {
        ATS_TRACE(WARNING, "at_cmd_parse cmgr command failed!\n");
        return -1;
    }
    for (Field f : tree.row()) {
        if (f.is("stat")) {
            atapi::store_enum(stpersms->state, f.number());
        } else if (f.is("length")) {
            if (sscanf_s(f.value(), "%hu", &stpersms->length) != 1) ATS_TRACE(WARNING, "AT_Cmgr:sscanf_s failed!\n");
        } else if (f.is("pdu")) {
            atapi::copy_text(stpersms->pdu, f.value());
        }
    }
    return 0;
}

extern "C" int AT_Hcmgr(ReadTextEcCmd* cmd, ReadTextEcRsp* Rsp) {
    if (!cmd || !Rsp) {
        ATS_TRACE(ERROR, "[AT_Hcmgr]para is NULL, return!\n");
        return -1;
    }
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT^HCMGR=%d,%d", cmd->index, cmd->mode)) return -1;
    req.set_match("^HCMGR:");
    // Only -1 ends the call here; any other code goes on to the reply checks, as it always has.
    if (req.exchange() == -1) {
        ATS_TRACE(ERROR, "execute at^hcmgr command error\n");
        return -1;
    }
    // The body may hold NULs: keep the whole report field, not just its text.
    char copy[AT_REPORT_STR_LEN];
    memcpy_s(copy, sizeof copy, req.report(), AT_REPORT_STR_LEN);
    // The line check comes before the result check, so an error line without CR LF fails here.
    if (!std::strstr(copy, "\r\n")) {
        ATS_TRACE(ERROR, "hcmgr_first_line not find : [\\r\\n]\n");
        return -1;
    }
    if (!req.ok()) {
        ATS_TRACE(ERROR, "get hcmgr at error command\n");
        return -1;
    }
    Rsp->AtExeResult = AT_CMD_RES_SUCCESS;
    int receive_len = 0;
    // A header that does not parse leaves the header fields; the body decides the result.
    if (ParseTree tree = req.parse("^HCMGR", kSms)) {
        store(tree.row(), {num("year", Rsp->year), num("month", Rsp->month), num("day", Rsp->day),
                                         num("hour", Rsp->hour), num("minute", Rsp->minute),
                                         num("second", Rsp->second), num("lang", Rsp->lang),
                                         num("format", Rsp->format), num("prt", Rsp->prt), num("prv", Rsp->prv),
                                         num("type", Rsp->type), num("stat", Rsp->stat),
                                         text("callerID", Rsp->callerID, 22), num("length", receive_len)});
    }
    ATS_TRACE(INFO, "[AT_Hcmgr] receive_len = %d\n", receive_len);
    const int rc = hcmgr_msg_parse(&Rsp->length, copy, sizeof copy, receive_len, Rsp->msg, kHcmgrBodyMax);
    if (rc != 0) ATS_TRACE(WARNING, "at_cmd_parse hcmgr command failed!\n");
    ATS_TRACE(INFO, "[AT_Hcmgr]end.\n");
    return rc;
}

// ---- Deleting and listing ------------------------------------------------------------------

extern "C" int AT_Cmgd(int cmd_type, StCmgdPara* cmgd_para, StCmgdRsp* cmgd_rsp) {
    return atapi::dispatch(cmd_type, [&] { return cmgd_list(false, cmgd_rsp); },
                           [&] { return cmgd_delete(false, cmgd_para); }, -1);
}

extern "C" int AT_Hcmgd(int cmd_type, StCmgdPara* cmgd_para, StCmgdRsp* cmgd_rsp) {
    return atapi::dispatch(cmd_type, [&] { return cmgd_list(true, cmgd_rsp); },
                           [&] { return cmgd_delete(true, cmgd_para); }, -1);
}

extern "C" int AT_Cmgi_unread_sms(int* sms_list, int list_size, int* list_length) {
    if (!sms_list || !list_length) return -1;
    // The command text names the manufacturer query; it is kept so, as the message service expects.
    Request req{"AT+CGMI", "^CMGI:", 1};
    req.rep_type(AT_REPORT_REQ_NONE);
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) {
        if (!req.is_error_report()) return -1;
        // The error is decoded and dropped: the caller only ever sees the list.
        (void)Error_str_to_id(req.report());
        return 0;
    }
    ATS_TRACE(INFO, "RSP--- [%s]--- \n", req.report());
    int stored = 0;
    if (ParseTree tree = req.parse("^CMGI", kSms, AT_OPERATION_TYPE_EXECUTE))
        for (Field f : tree.row()) {
            if (stored >= list_size) break;
            sms_list[stored++] = f.number();
        }
    *list_length = stored;
    return 0;
}

// ---- Settings ------------------------------------------------------------------------------

extern "C" int AT_smmode(int cmdType, StSmMode* sm_mode) { return message_format(false, cmdType, sm_mode); }

extern "C" int AT_hsmmode(int cmdType, StSmMode* sm_mode) { return message_format(true, cmdType, sm_mode); }

extern "C" int AT_cnmi(int cmdType, StSmCnmi* smcnmi) {
    return atapi::dispatch(
        cmdType,
        [&] {
            if (!smcnmi) return -1;
            return read_setting("AT+CNMI?", "+CNMI", "at_cmd_parse cnmi command failed!\n", smcnmi->AtExeResult,
                                {num("mode", smcnmi->mode), num("mt", smcnmi->mt), num("bm", smcnmi->bm),
                                 num("ds", smcnmi->ds), num("bfr", smcnmi->bfr)});
        },
        [&] {
            if (!smcnmi) return -1;
            Request req;
            return send_setting(req,
                                AT_FORMAT_CMD(req, 639, "AT+CNMI=%d,%d,%d,%d,%d", smcnmi->mode, smcnmi->mt,
                                              smcnmi->bm, smcnmi->ds, smcnmi->bfr),
                                smcnmi->AtExeResult);
        },
        0);
}

extern "C" int AT_Csca(int cmd_type, StCsca* csca_para, StCsca* csca_res) {
    return atapi::dispatch(
        cmd_type,
        [&] {
            if (!csca_res) return -1;
            return read_setting("AT+CSCA?", "+CSCA", "at_cmd_parse csca command failed!\n", csca_res->AtExeResult,
                                {text("sca", csca_res->sca), num("tosca", csca_res->tosca)});
        },
        [&] {
            if (!csca_para || !csca_res) return -1;
            const std::string sca = atapi::input_text(csca_para->sca);
            // A type the caller set is not passed on: 145 only for an unset type and a '+' number.
            const int type = csca_para->tosca == 0 && sca.starts_with('+') ? 145 : 129;
            Request req;
            return send_setting(req, AT_FORMAT_CMD(req, 639, "AT+CSCA=\"%s\",%d", sca.c_str(), type),
                                csca_res->AtExeResult);
        },
        0);
}

extern "C" int AT_cscb(int cmdType, StSmCscb* smcscb) {
    return atapi::dispatch(
        cmdType,
        [&] {
            if (!smcscb) return -1;
            Request req{"AT+CSCB?", nullptr};
            if (int rc = req.exchange()) return rc;
            if (!req.ok()) return req.map_error(smcscb->AtExeResult);
            smcscb->AtExeResult = AT_CMD_RES_SUCCESS;
            ParseTree tree = req.parse("+CSCB", kSms);
            if (!tree) {
                ATS_TRACE(WARNING, "at_cmd_parse cscb command failed!\n");
                return -1;
            }
            for (Field f : tree.row()) {
                if (f.is("mode")) {
                    smcscb->mode = static_cast<uint8_t>(f.number());
                } else if (f.is("mids")) {
                    AT_FORMAT_TEXT(smcscb->mids, f.value());
                    ATS_TRACE(INFO, "AT_cscb_Check mids = %s!\n", smcscb->mids);
                } else if (f.is("dcss")) {
                    AT_FORMAT_TEXT(smcscb->dcss, f.value());
                    ATS_TRACE(INFO, "AT_cscb_Check dcss = %s!\n", smcscb->dcss);
                }
            }
            return 0;
        },
        [&] {
            if (!smcscb) return -1;
            const std::string mids = atapi::input_text(smcscb->mids), dcss = atapi::input_text(smcscb->dcss);
            Request req;
            bool formatted = AT_FORMAT_CMD(req, 639, "AT+CSCB=%d", smcscb->mode);
            // The coding schemes go out only behind a list of identifiers.
            if (formatted && !mids.empty()) {
                formatted = AT_APPEND_CMD(req, ",\"%s\"", mids.c_str());
                if (formatted && !dcss.empty()) formatted = AT_APPEND_CMD(req, ",\"%s\"", dcss.c_str());
            }
            return send_setting(req, formatted, smcscb->AtExeResult);
        },
        0);
}

extern "C" int AT_Cmsr(int cmd_type, int ReadTag, StCmsrRes* cmsr_res) {
    return atapi::dispatch(
        cmd_type,
        [&] {
            if (!cmsr_res) return -1;
            Request req{"AT^CMSR?", nullptr};
            if (int rc = req.exchange()) return rc;
            if (!req.ok()) return req.map_error(cmsr_res->AtExeResult);
            ATS_TRACE(INFO, "RSP--- [%s]--- \n", req.report());
            cmsr_res->AtExeResult = AT_CMD_RES_SUCCESS;
            ParseTree tree = req.parse("^CMSR", kSms);
            if (!tree) return -1;
            store(tree.row(), {num("ReadTag", cmsr_res->ReadTag)});
            return 0;
        },
        [&] {
            if (!cmsr_res) return -1;
            Request req;
            return send_setting(req, AT_FORMAT_CMD(req, 639, "AT^CMSR=%d", ReadTag), cmsr_res->AtExeResult);
        },
        -1);
}

extern "C" int AT_Cmmt(int index_tmp, int state, StCmmt* result) {
    // Only marking as read is offered.
    if (!result || index_tmp < 0 || state != 1) return -1;
    Request req;
    return send_setting(req, AT_FORMAT_CMD(req, 639, "AT^CMMT=%d,%d", index_tmp, state), result->AtExeResult);
}

extern "C" int AT_Hsmsss(StHsmssInfo* hsmsss_param, StHsmsssRes* hsmsss_result) {
    if (!hsmsss_param || !hsmsss_result) return -1;
    ATS_TRACE(INFO, "[AT_Hsmsss]enter...\n");
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT^HSMSSS=%d,%d,%d,%d", hsmsss_param->Ack, hsmsss_param->Prt, hsmsss_param->Fmt,
                       hsmsss_param->Prv))
        return -1;
    if (int rc = req.exchange()) {
        ATS_TRACE(INFO, "[AT_Hsmsss]end.\n");
        return rc;
    }
    if (!req.ok()) return req.map_error(hsmsss_result->AtExeResult);
    hsmsss_result->AtExeResult = AT_CMD_RES_SUCCESS;
    return 0;
}

extern "C" int AT_smmemfull(StSmmemfull* sm_full_res) {
    if (!sm_full_res) return -1;
    // No command: the AT server answers an empty line with the last "^SMMEMFULL" report it holds.
    Request req{1};
    req.rep_type(AT_REPORT_REQ_NONE);
    if (req.exchange() != 0 || !req.ok()) return -1;
    ParseTree tree = atapi::parse_text(req.report(), "^SMMEMFULL", AT_FUNCTION_INITIATIVE_REPORT,
                                       AT_OPERATION_TYPE_OTHER);
    if (Field f = tree.row().find("mem_type")) {
        atapi::copy_text(sm_full_res->mem_type, f.value());
        sm_full_res->AtExeResult = AT_CMD_RES_SUCCESS;
    }
    return 0;
}

// ---- Sending and writing -------------------------------------------------------------------

extern "C" int AT_Cmgs(StCmgsInfo* sms_pdu, StCmssRes* cmgs_result) {
    if (!sms_pdu || !cmgs_result) return -1;
    const std::string pdu = atapi::input_text(sms_pdu->pdu);
    Request req;
    if (!AT_FORMAT_CMD_WITH_BODY(req, 639, "AT+CMGS=%d\r%s%c", sms_pdu->length, pdu.c_str(), kCtrlZ)) return -1;
    req.set_match("+CMGS:");
    // No error mapping for a send: a rejected message is -1.
    return send_body(req,
                     {"+CMGS", "mr", "execute at+cmgs command error\n", "get cmgs at error command\n",
                      "at_cmd_parse cmgs command failed!\n"},
                     cmgs_result->mr, cmgs_result->AtExeResult);
}

extern "C" int AT_Cmgw(StCmgsInfo* sms_pdu, StCmgwRes* cmgw_result) {
    if (!sms_pdu || !cmgw_result) return -1;
    const std::string pdu = atapi::input_text(sms_pdu->pdu);
    Request req;
    if (!AT_FORMAT_CMD_WITH_BODY(req, 639, "AT+CMGW=%d,%d\r%s%c", sms_pdu->length, sms_pdu->state, pdu.c_str(),
                                 kCtrlZ))
        return -1;
    req.set_match("+CMGW:");
    return send_body(req,
                     {"+CMGW", "index", "execute at+cmgw command error\n", "get cmgw at error command\n",
                      "at_cmd_parse cmgw command failed!\n"},
                     cmgw_result->index, cmgw_result->AtExeResult);
}

extern "C" int AT_Cmss(StCmssPara* cmss_para, StCmssRes* cmss_result) {
    if (!cmss_para || !cmss_result) return -1;
    const std::string da = atapi::input_text(cmss_para->da);
    Request req{kCmssTimeout};
    // The destination goes on the line without quotes, as the modem has always been given it.
    bool formatted;
    if (da.empty()) formatted = AT_FORMAT_CMD(req, 639, "AT+CMSS=%d", cmss_para->index);
    else if (cmss_para->toda == -1) formatted = AT_FORMAT_CMD(req, 639, "AT+CMSS=%d,%s", cmss_para->index, da.c_str());
    else formatted = AT_FORMAT_CMD(req, 639, "AT+CMSS=%d,%s,%d", cmss_para->index, da.c_str(), cmss_para->toda);
    if (!formatted) return -1;
    req.set_match("+CMSS:");
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return req.map_error(cmss_result->AtExeResult);
    ATS_TRACE(INFO, "RSP--- [%s]--- \n", req.report());
    cmss_result->AtExeResult = AT_CMD_RES_SUCCESS;
    // The message is on its way: a reference that does not parse is no failure.
    ParseTree tree = req.parse("+CMSS", kSms, AT_OPERATION_TYPE_EXECUTE);
    if (Field f = tree.row().find("mr")) cmss_result->mr = f.number();
    return 0;
}

extern "C" int AT_Hcmgs(StHcmgsTextInfo* sms_text, StHcmgsRes* hcmgs_result) {
    ATS_TRACE(INFO, "[AT_Hcmgs]enter...\n");
    if (!sms_text || !hcmgs_result) return -1;
    const std::string number = atapi::input_text(sms_text->Number);
    Request req;
    // The body is raw bytes of fixed size right behind the CR, NULs included.
    if (!AT_FORMAT_CMD_WITH_BODY(req, 639, "AT^HCMGS=\"%s\",%d\r", number.c_str(), sms_text->tooa) ||
        !req.put_bytes(req.cmd_length(), sms_text->Text, kHcmgsBody))
        return -1;
    ATS_TRACE(INFO, "[AT_Hcmgs]Test...\n");
    if (int rc = req.exchange()) {
        ATS_TRACE(ERROR, "execute at^hcmgs command error\n");
        return rc;
    }
    // A refused text is no failure of the call and leaves the result as the caller set it, on purpose.
    if (!req.ok()) {
        ATS_TRACE(ERROR, "get hcmgs at error command\n");
        return 0;
    }
    hcmgs_result->AtExeResult = AT_CMD_RES_SUCCESS;
    return 0;
}

extern "C" int AT_Hcmgw(WriteHTextMsgCmd* cmd, WriteHTextMsgRsp* Rsp) {
    if (!cmd || !Rsp) {
        ATS_TRACE(ERROR, "[AT_Hcmgw] para is NULL,return \n");
        return -1;
    }
    ATS_TRACE(INFO, "[AT_Hcmgw] enter... \n");
    const std::string oa = atapi::input_text(cmd->oa_ad);
    Request req;
    if (!AT_FORMAT_CMD_WITH_BODY(req, 639, "AT^HCMGW=\"%s\",%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d\r", oa.c_str(),
                                 cmd->tooa, cmd->stat, cmd->ptr, cmd->type, cmd->format, cmd->lang, cmd->year,
                                 cmd->month, cmd->day, cmd->hour, cmd->minute, cmd->second) ||
        !req.put_bytes(req.cmd_length(), cmd->text, kHcmgwBody))
        return -1;
    req.set_match("^HCMGW:");
    // The failed write's trace names the PDU write, as it always has.
    return send_body(req,
                     {"^HCMGW", "index", "execute at^hcmgw command error\n", "get cmgw at error command\n",
                      "at_cmd_parse hcmgw command failed!\n"},
                     Rsp->index, Rsp->AtExeResult);
}

extern "C" int AT_Hsmf(int state, StHsmf* result) {
    ATS_TRACE(INFO, "AT_Hsmf enter \n");
    if (!result) {
        ATS_TRACE(ERROR, "AT_Hsmf param result null \n");
        return -1;
    }
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT^HSMF=%d", state)) return -1;
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) {
        ATS_TRACE(ERROR, "AT^HSMF return error \n");
        return -1;
    }
    result->AtExeResult = AT_CMD_RES_SUCCESS;
    return 0;
}

extern "C" int AT_Cmgs_Text(StCmgsTextInfo*) {
    ATS_TRACE(INFO, "AT_Cmgs_Text function is not support \n");
    return -1;
}

extern "C" int AT_Cmgw_Text(StCmgwTextInfo*) {
    ATS_TRACE(INFO, "AT_Cmgw_Text function is not support \n");
    return -1;
}
