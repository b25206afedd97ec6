// ats_security.cpp - the SIM's user security: PIN state and attempt counters, PIN and PUK entry,
// facility locks and password changes, and the connection manager's two PIN calls.
//
// Codes and passwords only ever go into the request's command line, which the request wipes on
// every way out; no trace line of this file shows one.
#include <cstring>

#include "atapi/sim.h"
constexpr char kTraceSource[] = "src/ats_security";
#include "frame.h"

using atapi::OnError;
using atapi::Request;
using atapi::text;

namespace {

int pin_check(PinMgResultCode* Result) {
    if (!Result) return -1;
    Request req{"AT+CPIN?", "+CPIN"};
    return AT_QUERY(req, {.name = "+CPIN", .table = AT_FUNCTION_PIN_CFG, .on_error = OnError::map,
                          .result = &Result->AtExeResult},
                    {text("code", Result->Code)});
}

int pin_execute(char* Pin, char* NewPin, PinMgResultCode* Result) {
    if (!Result || !Pin) return -1;
    Request req;
    // Intended: the +CPIN codes go unquoted, and an empty new PIN means the one-code form.
    const bool formatted = NewPin && NewPin[0] != '\0' ? AT_FORMAT_CMD(req, 639, "AT+CPIN=%s,%s", Pin, NewPin)
                                                       : AT_FORMAT_CMD(req, 639, "AT+CPIN=%s", Pin);
    if (!formatted) return -1;
    req.set_match("+CPIN");
    return atapi::set_and_map(req, Result->AtExeResult);
}

int pin_check_ex(PinMgResultCodeEx* Result) {
    if (!Result) return -1;
    Request req{"AT^CPIN?", "^CPIN", atapi::kQuickTimeout};
    PinResTimes& t = Result->ResTimes;
    return AT_QUERY(req, {.name = "^CPIN", .table = AT_FUNCTION_PIN_CFG, .on_error = OnError::map,
                          .result = &Result->AtExeResult},
                    {text("code", Result->Code), text("times", t.ResTimes), text("puk_times", t.ResPukTimes),
                     text("pin_times", t.ResPinTimes), text("puk2_times", t.ResPuk2Times),
                     text("pin2_times", t.ResPin2Times)});
}

int pin_execute_ex(char* Pin, char* NewPin, PinMgResultCodeEx* Result) {
    if (!Pin || !Result) return -1;
    Request req{atapi::kQuickTimeout};
    // Intended: unlike +CPIN, the codes are quoted and any new PIN, even an empty one, gives two codes.
    const bool formatted = NewPin ? AT_FORMAT_CMD(req, 639, "AT^CPIN=\"%s\",\"%s\"", Pin, NewPin)
                                  : AT_FORMAT_CMD(req, 639, "AT^CPIN=\"%s\"", Pin);
    if (!formatted) return -1;
    req.set_match("^CPIN");
    return atapi::set_and_map(req, Result->AtExeResult);
}

// A text of the caller's record that ends within its array.
template <std::size_t N>
bool terminated(const char (&field)[N]) {
    return std::memchr(field, '\0', N) != nullptr;
}

}  // namespace

extern "C" int AT_PinManagement(int CmdType, char* Pin, char* NewPin, PinMgResultCode* Result) {
    return atapi::dispatch(
        CmdType, [&] { return pin_check(Result); }, [&] { return pin_execute(Pin, NewPin, Result); }, -1);
}

extern "C" int AT_PinManagementEx(int CmdType, char* Pin, char* NewPin, PinMgResultCodeEx* Result) {
    return atapi::dispatch(
        CmdType, [&] { return pin_check_ex(Result); }, [&] { return pin_execute_ex(Pin, NewPin, Result); }, -1);
}

extern "C" int AT_PinEnableDisableCmd(int CmdType, PinEnStruct* Param, PinEnableResult* Result) {
    if (!Param || !Result || CmdType != AT_SET_VALUE) return -1;
    if (!terminated(Param->Fac) || !terminated(Param->Mode) || !terminated(Param->Passwd)) return -1;
    const bool query = std::strcmp(Param->Mode, "2") == 0;
    if (!query && std::strcmp(Param->Mode, "0") != 0 && std::strcmp(Param->Mode, "1") != 0) return -1;

    Request req{atapi::kQuickTimeout};
    // Intended: the query has a blank after the comma, the lock/unlock form none.
    const bool formatted = query ? AT_FORMAT_CMD(req, 639, "AT+CLCK=\"%s\", %s", Param->Fac, Param->Mode)
                                 : AT_FORMAT_CMD(req, 639, "AT+CLCK=\"%s\",%s,\"%s\"", Param->Fac, Param->Mode,
                                                 Param->Passwd);
    if (!formatted) return -1;
    req.set_match("+CLCK");
    if (int rc = req.exchange()) {
        ATS_TRACE(INFO, "GetDataFromAtServer clck command failed!\n");
        return rc;
    }
    if (req.is_error_report()) return req.map_error(Result->AtExeResult);
    if (!req.ok()) {
        ATS_TRACE(INFO, "get clck at error command\n");
        return -1;
    }
    // Intended: set before the parse, so a query whose answer does not parse still says success.
    Result->AtExeResult = AT_CMD_RES_SUCCESS;
    if (!query) return 0;
    atapi::ParseTree tree = req.parse("+CLCK", AT_FUNCTION_PIN_CFG, AT_OPERATION_TYPE_EXECUTE);
    if (!tree) {
        ATS_TRACE(INFO, "at_cmd_parse clck command failed!\n");
        return -1;
    }
    const atapi::Binding status[] = {text("status", Result->Status)};
    atapi::store_fields(tree.row(), status);
    return 0;
}

extern "C" int AT_PinModify(char* Fac, char* OldPwd, char* NewPwd, PinModifyResultCode* Result) {
    if (!Fac || !OldPwd || !NewPwd || !Result) return -1;
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT+CPWD=\"%s\",\"%s\",\"%s\"", Fac, OldPwd, NewPwd)) return -1;
    req.set_match("+CPWD");
    if (int rc = req.exchange()) return rc;
    // Intended: only the password change reads a plain ERROR as the command's outcome.
    if (req.result() == AT_ERROR) {
        Result->AtExeResult = AT_CMD_RES_ERR;
        return 0;
    }
    if (!req.ok()) return req.map_error(Result->AtExeResult);
    Result->AtExeResult = AT_CMD_RES_SUCCESS;
    return 0;
}

extern "C" int AT_cpin_check(PinMgResultCode* Result) {
    if (!Result) {
        ATS_TRACE(WARNING, "Param is null!\n");
        return -1;
    }
    const int rc = AT_PinManagement(AT_CHECK_VALUE, nullptr, nullptr, Result);
    if (rc == -1) ATS_TRACE(INFO, "AT return error!\n");
    return rc;
}

extern "C" int AT_cpin_execute(char* Pin, char* NewPin, PinMgResultCode* Result) {
    // Intended: both codes or neither; an empty new PIN is how a caller asks for the one-code form.
    if (!Result || (Pin == nullptr) != (NewPin == nullptr)) {
        ATS_TRACE(WARNING, "Param is error!\n");
        return -1;
    }
    const int rc = AT_PinManagement(AT_SET_VALUE, Pin, NewPin, Result);
    if (rc == -1) ATS_TRACE(INFO, "AT return error!\n");
    return rc;
}
