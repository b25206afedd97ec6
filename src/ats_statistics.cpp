// ats_statistics.cpp - the modem's data-session counters: query, clear, save, and the switch of
// the periodic ^DSFLOWRPT report.
#include "atapi/stats.h"
constexpr char kTraceSource[] = "src/ats_statistics";
#include "frame.h"

using atapi::hex;
using atapi::Request;

extern "C" int AT_Dsflowqry(int cid, StDsflowqryInfo* pResult) {
    if (!pResult) {
        ATS_TRACE(ERROR, "Input param is null\n");
        return -1;
    }
    Request req{cid == -1 ? "AT^DSFLOWQRY" : nullptr, "^DSFLOWQRY"};
    if (cid != -1 && !AT_FORMAT_CMD(req, 640, "AT^DSFLOWQRY=%d", cid)) return -1;
    // Every counter is hexadecimal; the durations keep their low 32 bits.
    return AT_QUERY(req,
                    {.name = "^DSFLOWQRY", .table = AT_FUNCTION_DATAFLOW_CFG, .result = &pResult->AtExeResult,
                     .exchange_failed = {ATS_TRACE_ERROR, "AT_Dsflowqry: GetDataFromAtServer fail!\n"},
                     .parse_failed = {ATS_TRACE_ERROR, "[AT_Dsflowqry],at_cmd_parse output  at_parse_result is null\n"}},
                    {hex("last_ds_time", pResult->last_ds_time), hex("total_ds_time", pResult->total_ds_time),
                     hex("last_tx_flow", pResult->last_tx_flow), hex("last_rx_flow", pResult->last_rx_flow),
                     hex("total_tx_flow", pResult->total_tx_flow), hex("total_rx_flow", pResult->total_rx_flow)});
}

extern "C" int at_dataflow(dataflow* Result) {
    StDsflowqryInfo info{};
    if (!Result) return -1;
    // Firmware without the context form refuses it; the bare form then answers for context 1.
    // Only -1 counts as failure here, so another failing code copies the zeroed counters (intended).
    if (AT_Dsflowqry(1, &info) == -1 && AT_Dsflowqry(-1, &info) == -1) return -1;
    Result->last_ds_time = info.last_ds_time;
    Result->last_tx_ds_counters = info.last_tx_flow;
    Result->last_rx_ds_counters = info.last_rx_flow;
    Result->total_ds_time = info.total_ds_time;
    Result->total_tx_ds_counters = info.total_tx_flow;
    Result->total_rx_ds_counters = info.total_rx_flow;
    Result->AtExeResult = info.AtExeResult;
    return 0;
}

namespace {

// Clear and save: OK only, no reply prefix, a quick answer.
int counters_command(const char* cmd, AT_AMSS_RES& result, bool trace_failure) {
    Request req{cmd, nullptr, atapi::kQuickTimeout};
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) {
        if (trace_failure) ATS_TRACE(ERROR, "%s failed or is not supported\n", cmd);
        return -1;
    }
    result = AT_CMD_RES_SUCCESS;
    return 0;
}

}  // namespace

extern "C" int AT_Dsflowclr(DsflowclrRsp* rsp) {
    return rsp ? counters_command("AT^DSFLOWCLR", rsp->AtExeResult, false) : -1;
}

extern "C" int AT_Dsflowsave(DsflowsaveRsp* rsp) {
    return rsp ? counters_command("AT^DSFLOWSAVE", rsp->AtExeResult, true) : -1;
}

extern "C" int AT_DsflowrptEx(int cid, int iParam) {
    Request req{1};
    // The switch comes before the context, as the modem takes them.
    if (!AT_FORMAT_CMD(req, 640, "AT^DSFLOWRPT=%d,%d", iParam, cid)) return -1;
    if (int rc = req.exchange()) {
        ATS_TRACE(ERROR, "AT_Dsflowrpt: GetDataFromAtServer fail!\n");
        return rc;
    }
    if (!req.ok()) return -1;
    ATS_TRACE(INFO, "AT_Dsflowrpt success\n");
    return 0;
}

// Kept for callers of the old interface; the switch needs a context (AT_DsflowrptEx).
extern "C" int AT_Dsflowrpt(int) { return -1; }
