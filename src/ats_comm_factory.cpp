// ats_comm_factory.cpp - factory and diagnostic commands: board test results reported to the
// modem, temperatures, ADC values, antenna, channel, work and shell modes, the SIM's
// authentication challenge, and the datacard's download mode.
//
// The readers share one pattern, the crystal temperature reader's: an OK reply marks the record
// successful before it is read; any other final result goes into the record's result field and
// the call fails; a read that finds none of its fields fails with a trace of its own.
#include <cctype>
#include <cstring>
#include <initializer_list>

#include "atapi/comm.h"
constexpr char kTraceSource[] = "src/ats_comm";
#include "frame.h"
#include "ats_device.h"

using atapi::Binding;
using atapi::Field;
using atapi::num;
using atapi::real;
using atapi::Request;
using atapi::text;

namespace {

// ---- Board test results --------------------------------------------------------------------

constexpr int kTestResultMax = 20;

template <typename Format>
int board_test(const char* who, int result, Format format) {
    if (result < 0 || result > kTestResultMax) {
        ATS_TRACE(ERROR, "%s : invalid result\n", who);
        return -1;
    }
    Request req;
    if (!format(req)) return -1;
    return atapi::result_only(req);
}

// ---- The readers' pattern ------------------------------------------------------------------

enum class Form {
    read,  // the reply's fields are read
    set,   // OK is all there is to it
    test,  // the "=?" form, read by its own routine
};

// Reads the bound fields of an OK reply. 0 when the reply carried at least one of them, which
// then marks the record successful; -1 (with `no_column`) when it carried none, and -1 without a
// trace when the reply did not parse.
int read_columns(Request& req, const char* name, at_function_type table, AT_AMSS_RES* result, const char* no_column,
                 std::initializer_list<Binding> fields) {
    atapi::ParseTree tree = req.parse(name, table);
    if (!tree) return -1;
    bool found = false;
    for (Field f : tree.row())
        for (const Binding& b : fields)
            if (f.is(b.name)) {
                b.store(b.dst, b.size, f.value());
                found = true;
                break;
            }
    if (!found) {
        ATS_TRACE(ERROR, "%s", no_column);
        return -1;
    }
    if (result) *result = AT_CMD_RES_SUCCESS;
    return 0;
}

// Names a reader by in its traces.
struct Reader {
    const char* who;         // the function, for "... out,ret=%d"
    const char* error;       // an error reply to the read or set form
    const char* test_error;  // an error reply to the "=?" form, with the result code
};

// One call of a reader whose command line is in `req` (`formatted` false: it could not be built,
// nothing is sent). `result` is null for a record without a result field. `read` reads an OK reply
// of the read and test forms.
template <typename Read>
int run_reader(const Reader& r, Form form, Request& req, bool formatted, AT_AMSS_RES* result, Read read) {
    int ret = -1;
    if (formatted) {
        if (req.exchange() != 0) {
            ATS_TRACE(ERROR, "send cmd fail\n");
            return -1;
        }
        if (!req.ok()) {
            // Also a plain ERROR goes into the record: as the code of an unreadable error line.
            if (result) *result = Error_str_to_id(req.report());
            if (form == Form::test) ATS_TRACE(ERROR, r.test_error, req.result());
            else ATS_TRACE(ERROR, "%s", r.error);
            return -1;
        }
        if (result && form != Form::test) *result = AT_CMD_RES_SUCCESS;
        if (form == Form::set) ret = 0;
        else ret = read();
    }
    ATS_TRACE(INFO, "%s out,ret=%d\n", r.who, ret);
    return ret;
}

// A selector the function does not have, or an input it refuses: nothing is sent.
int unsent(const Reader& r) {
    ATS_TRACE(INFO, "%s out,ret=%d\n", r.who, -1);
    return -1;
}

// A mode with a set form, built by `format`, and a fixed read form whose reply `read` reads.
template <typename Format, typename Read>
int set_or_read(const Reader& r, int cmd_type, AT_AMSS_RES* result, const char* read_cmd, const char* read_match,
                Format format, Read read) {
    if (cmd_type == AT_SET_VALUE) {
        Request req;
        const bool formatted = format(req);
        return run_reader(r, Form::set, req, formatted, result, [] { return 0; });
    }
    if (cmd_type != AT_CHECK_VALUE) return unsent(r);
    Request req{read_cmd, read_match};
    return run_reader(r, Form::read, req, true, result, [&] { return read(req); });
}

constexpr Reader kXotemp{"AT_Xotemp", "at xotemp error\n", "AT^XOTEMP error %d\n"};
constexpr Reader kAdcreadex{"AT_Adcreadex", "at adcreadex error\n", "AT^ADCREADEX error %d\n"};
constexpr Reader kAntmode{"AT_Antmode", "at antmode error\n", "AT^ANTMODE error %d\n"};
constexpr Reader kOpencl{"AT_Opencl", "at lopcnl error\n", "AT^LOPCNL error %d\n"};
constexpr Reader kSetmode{"AT_Setmode", "at setmode error\n", "AT^SETMODE error %d\n"};
constexpr Reader kChiptemp{"AT_Chiptemp", "at chiptemp error\n", "AT^CHIPTEMP error %d\n"};
constexpr Reader kShell{"AT_Shell", "at shell error\n", "AT^SHELL error %d\n"};
constexpr Reader kUiccAuth{"AT_UiccAuth", "at uiccauth error\n", "AT^UICCAUTH error %d\n"};

// ---- The file-local parse routines -----------------------------------------------------------

int parse_xotemp_result(Request& req, crystal_temp* xotemp) {
    return read_columns(req, "^XOTEMP", AT_FUNCTION_SYSTEM_CFG, &xotemp->AtExeResult,
                        "parse_xotemp_check_result found no column\n", {real("CRYSTALtemp", xotemp->temp)});
}

// The reply template names its one column "CRYSTALtemp", so this routine never finds the column
// it looks for and the test form always ends in -1: intended.
int parse_xotemp_other_result(Request& req, crystal_temp* xotemp) {
    return read_columns(req, "^XOTEMP", AT_FUNCTION_SYSTEM_CFG, &xotemp->AtExeResult,
                        "parse_xotemp_other_result found no column \n", {real("CRYSTALtemp Range", xotemp->temp)});
}

int parse_adcreadex_result(Request& req, st_read_adcval* value) {
    return read_columns(req, "^ADCREADEX", AT_FUNCTION_SYSTEM_CFG, &value->AtExeResult,
                        "parse_adcreadex_result found no column\n", {num("adc_value", value->adc_value)});
}

int parse_antmode_result(Request& req, st_ant_mode* mode) {
    return read_columns(req, "^ANTMODE", AT_FUNCTION_SYSTEM_CFG, &mode->AtExeResult,
                        "parse_antmode_result found no column\n",
                        {num("ant_mode", mode->ant_mode), num("nw_mode", mode->network_mode)});
}

int parse_opencl_result(Request& req, st_open_channel* opencl_data) {
    return read_columns(req, "^LOPCNL", AT_FUNCTION_SYSTEM_CFG, &opencl_data->AtExeResult,
                        "parse_opencl_result found no column\n", {num("mode", opencl_data->mode)});
}

int parse_setmode_result(Request& req, set_debug_mode* stmode) {
    return read_columns(req, "^SETMODE", AT_FUNCTION_SYSTEM_CFG, &stmode->AtExeResult,
                        "parse_setmode_result found no column\n", {num("work_mode", stmode->mode)});
}

int AT_Chiptemp_check(Request& req, StChiptemp* t) {
    return read_columns(req, "^CHIPTEMP", AT_FUNCTION_CHIPTEMP_CFG, &t->AtExecResult, "AT_Chiptemp_check found no column\n",
                        {num("gpa_temp", t->gpa_Temp), num("wpa_temp", t->wpa_Temp), num("lpa_temp", t->lpa_Temp),
                         num("sim_temp", t->sim_Temp), num("bat_temp", t->bat_Temp), num("tcxo_temp", t->tcxo_Temp)});
}

int AT_Shell_check(Request& req, int* shellPara) {
    return read_columns(req, "^SHELL", AT_FUNCTION_SYSTEM_CFG, nullptr, "AT_Shell_check found no column\n",
                        {num("shell_type", *shellPara)});
}

int parse_uiccauth_result(Request& req, St_Uicc_Auth* a) {
    return read_columns(req, "^UICCAUTH", AT_FUNCTION_NETWORK_CFG, &a->AtExeResult,
                        "parse_uiccauth_result found no column\n",
                        {num("result", a->result), text("res", a->res), text("ck", a->ck), text("ik", a->ik),
                         text("auts", a->auts)});
}

// A caller's text that fills its whole field has no end: it is never read past the field.
template <std::size_t N>
bool terminated(const char (&field)[N]) {
    return strnlen(field, N) < N;
}

}  // namespace

// ---- Board test results --------------------------------------------------------------------------

extern "C" int AT_Simtest(const int result) {
    return board_test("AT_Simtest", result, [&](Request& r) { return AT_FORMAT_CMD(r, 639, "AT^SIMTEST=%d", result); });
}
extern "C" int AT_Keytest(const int result) {
    return board_test("AT_Keytest", result, [&](Request& r) { return AT_FORMAT_CMD(r, 639, "AT^KEYTEST=%d", result); });
}
extern "C" int AT_Usbtest(const int result) {
    return board_test("AT_Usbtest", result, [&](Request& r) { return AT_FORMAT_CMD(r, 639, "AT^USBTEST=%d", result); });
}
extern "C" int AT_Ethtest(const int result) {
    return board_test("AT_Ethtest", result, [&](Request& r) { return AT_FORMAT_CMD(r, 639, "AT^ETHTEST=%d", result); });
}

// ---- Readers -----------------------------------------------------------------------------------

extern "C" int AT_Xotemp(int cmd_type, crystal_temp* xotemp) {
    if (!xotemp) return -1;
    if (cmd_type == AT_CHECK_VALUE) {
        Request req{"AT^XOTEMP?", nullptr};
        return run_reader(kXotemp, Form::read, req, true, &xotemp->AtExeResult,
                          [&] { return parse_xotemp_result(req, xotemp); });
    }
    if (cmd_type == AT_DIAG_TEST_VALUE) {
        Request req{"AT^XOTEMP=?", "^XOTEMP:"};
        return run_reader(kXotemp, Form::test, req, true, &xotemp->AtExeResult,
                          [&] { return parse_xotemp_other_result(req, xotemp); });
    }
    return unsent(kXotemp);
}

extern "C" int AT_Adcreadex(int cmd_type, st_read_adcval* value) {
    if (!value) return -1;
    if (cmd_type == AT_CHECK_VALUE) {
        Request req;
        const bool formatted = AT_FORMAT_CMD(req, 639, "AT^ADCREADEX=%d", value->id);
        return run_reader(kAdcreadex, Form::read, req, formatted, &value->AtExeResult,
                          [&] { return parse_adcreadex_result(req, value); });
    }
    if (cmd_type == AT_DIAG_TEST_VALUE) {
        // Whether the modem has the command: the channels it lists are not kept.
        Request req{"AT^ADCREADEX=?", "^ADCREADEX:"};
        return run_reader(kAdcreadex, Form::set, req, true, &value->AtExeResult, [] { return 0; });
    }
    return unsent(kAdcreadex);
}

extern "C" int AT_Antmode(int cmd_type, st_ant_mode* mode) {
    if (!mode) return -1;
    return set_or_read(kAntmode, cmd_type, &mode->AtExeResult, "AT^ANTMODE?", nullptr,
                       [&](Request& r) { return AT_FORMAT_CMD(r, 639, "AT^ANTMODE=%d,%d", mode->ant_mode, mode->network_mode); },
                       [&](Request& r) { return parse_antmode_result(r, mode); });
}

extern "C" int AT_Opencl(int cmd_type, st_open_channel* opencl_data) {
    if (!opencl_data) return -1;
    return set_or_read(kOpencl, cmd_type, &opencl_data->AtExeResult, "AT^LOPCNL?", nullptr,
                       [&](Request& r) { return AT_FORMAT_CMD(r, 639, "AT^LOPCNL=%d", opencl_data->mode); },
                       [&](Request& r) { return parse_opencl_result(r, opencl_data); });
}

extern "C" int AT_Setmode(int cmd_type, set_debug_mode* stmode) {
    if (!stmode) return -1;
    return set_or_read(kSetmode, cmd_type, &stmode->AtExeResult, "AT^SETMODE?", nullptr,
                       [&](Request& r) { return AT_FORMAT_CMD(r, 639, "AT^SETMODE=%d", stmode->mode); },
                       [&](Request& r) { return parse_setmode_result(r, stmode); });
}

extern "C" int AT_Chiptemp(int cmdType, StChiptemp* chipTemp) {
    if (!chipTemp) return -1;
    if (cmdType != AT_CHECK_VALUE) return unsent(kChiptemp);
    Request req{"AT^CHIPTEMP?", "^CHIPTEMP:"};
    return run_reader(kChiptemp, Form::read, req, true, &chipTemp->AtExecResult,
                      [&] { return AT_Chiptemp_check(req, chipTemp); });
}

extern "C" int AT_Shell(int cmdType, int* shellPara) {
    if (!shellPara) return -1;
    return set_or_read(kShell, cmdType, nullptr, "AT^SHELL?", "^SHELL:",
                       [&](Request& r) { return AT_FORMAT_CMD(r.set_match("^SHELL:"), 639, "AT^SHELL=%d", *shellPara); },
                       [&](Request& r) { return AT_Shell_check(r, shellPara); });
}

extern "C" int AT_UiccAuth(int cmd_type, St_Uicc_Auth* uicc_auth) {
    if (!uicc_auth) return -1;
    if (cmd_type != AT_SET_VALUE || !terminated(uicc_auth->rand) || !terminated(uicc_auth->auth))
        return unsent(kUiccAuth);
    Request req;
    const bool formatted =
        AT_FORMAT_CMD(req, 639, "AT^UICCAUTH=%d,%s,%s", uicc_auth->auth_type, uicc_auth->rand, uicc_auth->auth);
    req.set_match("^UICCAUTH:");
    return run_reader(kUiccAuth, Form::read, req, formatted, &uicc_auth->AtExeResult,
                      [&] { return parse_uiccauth_result(req, uicc_auth); });
}

// ---- The datacard's download mode -----------------------------------------------------------

extern "C" int AT_ZteDownload(ZTEWorkMode* Para) {
    if (!Para) return -1;
    if (Para->mode == '\0') {
        Request req{"AT+ZCDRUN=G", nullptr};
        return atapi::set_and_map(req, Para->AtExeResult);
    }
    // A letter or digit only: any other character could end or chain the command.
    if (!std::isalnum(static_cast<unsigned char>(Para->mode))) return -1;
    Request req;
    if (!AT_FORMAT_CMD(req, 639, "AT+ZCDRUN=%c", Para->mode)) return -1;
    return atapi::set_and_map(req, Para->AtExeResult);
}
