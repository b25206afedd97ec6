// ats_network_signal.cpp - signal quality reads and the ^RSSI report switches.
//
// Values are handed on exactly as the modem printed them; turning them into dBm or bars is the
// caller's business.
#include <cstring>

#include "atapi/network.h"
constexpr char kTraceSource[] = "src/ats_network";
#include "frame.h"

using atapi::Field;
using atapi::num;
using atapi::OnError;
using atapi::ParseTree;
using atapi::Request;
using atapi::text;

extern "C" int AT_Csq(AT_CSQ_ST* pResult) {
    if (!pResult) return -1;
    Request req{"AT+CSQ", "+CSQ", atapi::kQuickTimeout};
    return AT_QUERY(req, {.name = "+CSQ", .table = AT_FUNCTION_NETWORK_CFG,
                          .exchange_failed = {ATS_TRACE_INFO, "[AT_Csq]get data failed!\n"}},
                    {num("rssi", pResult->rssi), num("ber", pResult->ber)});
}

extern "C" int AT_Csq_Test(AT_CSQ_TEST_ST* pResult) {
    if (!pResult) return -1;
    Request req{"AT+CSQ=?", "+CSQ", atapi::kQuickTimeout};
    if (int rc = req.exchange()) {
        ATS_TRACE(INFO, "[AT_Csq_Test]get data failed!\n");
        return rc;
    }
    if (!req.ok()) return -1;
    AT_FORMAT_TEXT(pResult->csq_list, req.report());
    ATS_TRACE(INFO, "[AT_Csq_Test]report string is: %s !\n", pResult->csq_list);
    return 0;
}

extern "C" int AT_Rssi(StRssiInfo* rssi_res) {
    if (!rssi_res) return -1;
    // No command: the AT server answers with the last ^RSSI report it holds.
    Request req{nullptr, nullptr, atapi::kDefaultTimeout};
    req.stored_report(AT_REPORT_RSSI_REQ);
    return AT_QUERY(req, {.name = "^RSSI", .table = AT_FUNCTION_INITIATIVE_REPORT, .op = AT_OPERATION_TYPE_OTHER},
                    {text("rssi", rssi_res->rssi)});
}

extern "C" int AT_Rssi_Without_Magic(void) {
    Request req{atapi::kDefaultTimeout};
    ATS_TRACE(INFO, "AT_Rssi_Without_Magic set enter GetDataFromAtServer before\n");
    // The report always stays off: callers cannot switch it on here.
    if (!AT_FORMAT_CMD(req, 639, "AT^RSSI=%d", 0)) return -1;
    int rc = req.exchange();
    ATS_TRACE(INFO, "AT_Rssi_Without_Magic set GetDataFromAtServer after\n");
    if (rc) return rc;
    if (!req.ok()) return -1;
    ATS_TRACE(INFO, "AT_Rssi_Without_Magic set success and leave!!!!\n");
    return 0;
}

extern "C" int AT_Rssi_With_Magic(int imagic) {
    Request req{atapi::kDefaultTimeout};
    ATS_TRACE(INFO, "AT_Rssi_With_Magic set enter GetDataFromAtServer before\n");
    if (!AT_FORMAT_CMD(req, 639, "AT^RSSI+%d=%d", imagic, 0)) return -1;
    int rc = req.exchange();
    ATS_TRACE(INFO, "AT_Rssi_With_Magic set GetDataFromAtServer after\n");
    if (rc) return rc;
    if (!req.ok()) return -1;
    ATS_TRACE(INFO, "AT_Rssi_With_Magic set success and leave!!!!\n");
    return 0;
}

namespace {

struct SysmodeName {
    const char* text;
    SYSMODE mode;
};

// Compared in this order, case-sensitively.
constexpr SysmodeName kHcsqModes[] = {
    {"GSM",       SYSMODE_SIG_GSM},
    {"WCDMA",     SYSMODE_SIG_WCDMA},
    {"TD-SCDMA",  SYSMODE_SIG_TD_SCDMA},
    {"LTE",       SYSMODE_SIG_LTE},
    {"CDMA",      SYSMODE_SIG_CDMA},
    {"EVDO",      SYSMODE_SIG_EVDO},
    {"CDMA-EVDO", SYSMODE_SIG_CDMA_EVDO},
    {"NOSERVICE", SYSMODE_SIG_NOSERVICE},
};

}  // namespace

extern "C" int AT_Hcsq(HCSQ_STATUS* hcsq) {
    if (!hcsq) return -1;
    Request req{"AT^HCSQ?", "^HCSQ", atapi::kDefaultTimeout};
    req.rep_type(AT_REPORT_REQ_NONE);
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) return -1;
    ParseTree tree = req.parse("^HCSQ", AT_FUNCTION_SYSTEM_CFG);
    if (!tree) return -1;
    const struct {
        const char* name;
        unsigned int* field;
    } values[] = {
        {"value1", &hcsq->value1}, {"value2", &hcsq->value2}, {"value3", &hcsq->value3},
        {"value4", &hcsq->value4}, {"value5", &hcsq->value5},
    };
    for (Field f : tree.row()) {
        ATS_TRACE(INFO, "AT_Hcsq , AtFieldName = %s.\n", f.name() ? f.name() : "");
        if (f.is("sysmode")) {
            // An unknown mode text leaves the caller's value.
            for (const SysmodeName& m : kHcsqModes)
                if (safe_strcmp(f.value(), m.text) == 0) {
                    hcsq->sysmode = m.mode;
                    break;
                }
        }
        for (const auto& v : values)
            if (f.is(v.name)) *v.field = static_cast<unsigned int>(f.number());
    }
    return 0;
}

extern "C" int AT_Cerssi(int CmdType, CerssiRsp* rsp) {
    if (!rsp || CmdType != AT_CHECK_VALUE) return -1;
    Request req{"AT^CERSSI?", "^CERSSI:", atapi::kDefaultTimeout};
    return AT_QUERY(req,
                    {.name = "^CERSSI", .table = AT_FUNCTION_NETWORK_CFG, .on_error = OnError::map,
                     .result = &rsp->AtExeResult,
                     .exchange_failed = {ATS_TRACE_ERROR, "AT_Cerssi GetDataFromAtServer failed\n"},
                     .parse_failed = {ATS_TRACE_ERROR, "AT_Cerssi NULL == at_parse_result\n"}},
                    {num("n", rsp->n), num("m", rsp->m), num("rssi", rsp->rssi), num("rscp", rsp->rscp),
                     num("ecio", rsp->ecio), num("rsrp", rsp->rsrp), num("rsrq", rsp->rsrq), num("rssnr", rsp->rssnr),
                     num("ri", rsp->ri), num("cqi0", rsp->cqi0), num("cqi1", rsp->cqi1)});
}

extern "C" int AT_Rsrp(AT_RSRP_STRU* rsrp_info) {
    if (!rsrp_info) return -1;
    Request req{"AT^LTERSRP?", "^LTERSRP", atapi::kDefaultTimeout};
    // An error reply counts as success: callers have always seen it so and clear the record themselves.
    return AT_QUERY(req,
                    {.name = "^LTERSRP", .table = AT_FUNCTION_NETWORK_CFG, .on_error = OnError::accept,
                     .result = &rsrp_info->AtExeResult,
                     .exchange_failed = {ATS_TRACE_INFO, "[AT_Rsrp]get data failed ---------------->AT_Rsrp!\n"}},
                    {text("rsrp", rsrp_info->rsrp), text("rsrq", rsrp_info->rsrq)});
}

extern "C" int AT_Csnr(CsnrRsp* rsp) {
    if (!rsp) return -1;
    Request req{"AT^CSNR?", "^CSNR:", atapi::kDefaultTimeout};
    // The reply template names rscp and ecio only, so sinr keeps the caller's value.
    return AT_QUERY(req, {.name = "^CSNR", .table = AT_FUNCTION_NETWORK_CFG, .result = &rsp->AtExeResult},
                    {num("rscp", rsp->rscp), num("ecio", rsp->ecio)});
}
