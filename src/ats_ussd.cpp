// ats_ussd.cpp - USSD requests and answers, cancelling a dialogue, and the USSD mode.
//
// The string is the caller's, already encoded and quoted as the modem wants it; it goes on the
// line byte for byte. The network's answer is the unsolicited "+CUSD" report, not a reply here.
#include <string>

#include "atapi/sms.h"
constexpr char kTraceSource[] = "src/ats_ussd";
#include "frame.h"

using atapi::num;
using atapi::Request;

namespace {

constexpr int kCancel = 2;
constexpr int kStrMax = 512;

// Bytes that would end the line or chain a second command: a control character or NUL anywhere,
// a ';' outside double quotes.
bool breaks_line(const char* s, int n) {
    bool quoted = false;
    for (int i = 0; i < n; ++i) {
        const auto c = static_cast<unsigned char>(s[i]);
        if (c < 0x20 || c == 0x7f) return true;
        if (c == '"') quoted = !quoted;
        if (c == ';' && !quoted) return true;
    }
    return false;
}

}  // namespace

extern "C" int AT_Cusd_Msg_Send(int CmdType, StCusdInfo* cusdcmd) {
    if (!cusdcmd || CmdType != AT_SET_VALUE) return -1;
    Request req;
    if (cusdcmd->reportType == kCancel) {
        // Cancelling ends the dialogue: the string and coding scheme are not sent.
        if (!AT_FORMAT_CMD(req, 639, "AT+CUSD=%d", cusdcmd->reportType)) return -1;
    } else {
        const int n = cusdcmd->strLength;
        if (n < 0 || n > kStrMax || breaks_line(cusdcmd->str, n)) {
            ATS_TRACE(ERROR, "command line refused, nothing sent: the USSD string would break the line\n");
            return -1;
        }
        if (!AT_FORMAT_CMD(req, 639, "AT+CUSD=%d,", cusdcmd->reportType)) return -1;
        const std::size_t head = req.cmd_length();
        if (!req.put_bytes(head, cusdcmd->str, static_cast<std::size_t>(n)) ||
            !AT_APPEND_CMD(req, ",%d", cusdcmd->desc))
            return -1;
    }
    if (int rc = req.exchange()) return rc;
    if (req.ok()) {
        cusdcmd->AtExeResult = AT_CMD_RES_SUCCESS;
        return 0;
    }
    // Only a plain ERROR is recorded; any other failure leaves the result field alone.
    if (req.result() == AT_ERROR) cusdcmd->AtExeResult = AT_CMD_RES_ERR;
    return -1;
}

extern "C" int AT_UssdMode(int cmdType, StUssdMode* ussd_mode) {
    if (!ussd_mode) return -1;
    if (cmdType == AT_SET_VALUE) {
        Request req;
        if (!AT_FORMAT_CMD(req, 639, "AT^USSDMODE=%d", ussd_mode->mode)) return -1;
        return atapi::set_or_fail(req, ussd_mode->AtExeResult);
    }
    if (cmdType != AT_CHECK_VALUE) return -1;
    Request req{"AT^USSDMODE?", "^USSDMODE:"};
    return AT_QUERY(req, {.name = "^USSDMODE", .table = AT_FUNCTION_USSD_CFG, .result = &ussd_mode->AtExeResult},
                    {num("mode", ussd_mode->mode)});
}
