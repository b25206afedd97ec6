// ats_datacard.cpp - the datacard command set: CD-ROM and download mode, network and service
// domain, PIN/PUK attempts left, network mode, power mode and SIM type.
//
// This command set never maps an error reply into a result code: the caller sees -1 and the
// record as it was.
#include <cstring>
#include <initializer_list>

#include "atapi/datacard.h"
constexpr char kTraceSource[] = "src/ats_datacard";
#include "frame.h"

using atapi::Field;
using atapi::ParseTree;
using atapi::Request;

namespace {

// An enum the C caller filled, as the number it holds: any int is valid there, and none is
// loaded as the enum type.
template <typename E>
int number_of(const E& e) {
    static_assert(sizeof(E) == sizeof(int));
    int v;
    std::memcpy(&v, &e, sizeof v);
    return v;
}

// A reply value into an enum when it is one of `allowed`, read as unsigned so that a negative
// number is never one of them.
template <typename E>
int convert(const char* fn, const char* text, E* out, std::initializer_list<unsigned> allowed) {
    if (text && out) {
        const auto v = static_cast<unsigned>(safe_atoi(text));
        for (unsigned a : allowed)
            if (v == a) {
                atapi::store_enum(*out, static_cast<int>(v));
                return 0;
            }
    }
    ATS_TRACE(ERROR, "%s: bad param!\n", fn);
    return -1;
}

// The query shape: OK only, the success code before the fields, and each field of the first row
// through `take`, whose first refusal ends the call with -1.
template <typename Take>
int query(const char* fn, const char* cmd, const char* match, const char* row, AT_AMSS_RES& result, Take take) {
    Request req{cmd, match};
    if (int rc = req.exchange()) {
        ATS_TRACE(ERROR, "%s: GetDataFromAtServer fail!\n", fn);
        return rc;
    }
    if (!req.ok()) return -1;
    ParseTree tree = req.parse(row, AT_FUNCTION_ZTE_DATACARD);
    if (!tree) {
        ATS_TRACE(ERROR, "%s: at_cmd_parse fail!\n", fn);
        return -1;
    }
    result = AT_CMD_RES_SUCCESS;
    for (Field f : tree.row())
        if (!take(f)) return -1;
    return 0;
}

// The +ZCDRUN parameter of a mode, or 0 for none.
char cdmode_param(int mode) {
    constexpr char kParams[] = {'4', '8', '9', 'e', 'f', 'g'};
    const auto i = static_cast<unsigned>(mode);
    return i < sizeof kParams ? kParams[i] : '\0';
}

// The configuration shape, on a line already formatted: OK only.
int configure(const char* fn, Request& req, bool formatted, AT_AMSS_RES& result) {
    if (!formatted) return -1;
    if (int rc = req.exchange()) {
        ATS_TRACE(ERROR, "%s: GetDataFromAtServer fail!\n", fn);
        return rc;
    }
    if (!req.ok()) return -1;
    result = AT_CMD_RES_SUCCESS;
    return 0;
}

}  // namespace

extern "C" char ats_convert_cdmode_type_to_param(AT_ZTE_CDMODE_CONFIG_TYPE mode) {
    return cdmode_param(number_of(mode));
}

extern "C" int ats_convert_zsnt_pref_mode(const char* pMode, AT_ZTE_NETWORK_PREF_MODE* pConvertedMode) {
    return convert(__func__, pMode, pConvertedMode, {0, 1, 2});
}

extern "C" int ats_convert_zsnt_select_mode(const char* pMode, AT_ZTE_NETWORK_SELECT_MODE* pConvertedMode) {
    return convert(__func__, pMode, pConvertedMode, {0, 1, 2});
}

extern "C" int ats_convert_zsnt_access_mode(const char* pMode, AT_ZTE_NETWORK_ACCESS_MODE* pConvertedMode) {
    return convert(__func__, pMode, pConvertedMode, {0, 1, 2});
}

extern "C" int ats_convert_zoprt_power_mode(const char* pMode, AT_ZTE_DEVICE_POWER_MODE* pConvertedMode) {
    return convert(__func__, pMode, pConvertedMode, {1, 5, 6});
}

extern "C" int AT_ZTE_zcdrun(AT_ZTE_ZCDRUN_ST* pParam) {
    if (!pParam) return -1;
    const char param = cdmode_param(number_of(pParam->enConfigMode));
    if (param == '\0') {
        ATS_TRACE(ERROR, "AT_ZTE_zcdrun: bad cdmode param!\n");
        return -1;
    }
    Request req;
    // The line ends in its own CR; no message body follows it.
    return configure(__func__, req, AT_FORMAT_CMD_WITH_BODY(req, 639, "AT+ZCDRUN=%c\r", param),
                     pParam->enAtExecResult);
}

extern "C" int AT_ZTE_zpas(AT_ZTE_ZPAS_ST* pParam) {
    if (!pParam) return -1;
    return query(__func__, "AT+ZPAS?\r", "+ZPAS:", "+ZPAS", pParam->enAtExecResult, [&](Field f) {
        if (f.is("network")) atapi::copy_text(pParam->network_type, f.value());
        else if (f.is("srv_domain")) atapi::copy_text(pParam->service_domain, f.value());
        return true;
    });
}

extern "C" int AT_ZTE_zpinpuk(AT_ZTE_ZPINPUK_ST* pParam) {
    if (!pParam) return -1;
    return query(__func__, "AT+ZPINPUK=?\r", "+ZPINPUK:", "+ZPINPUK", pParam->enAtExecResult, [&](Field f) {
        if (f.is("pinnumber")) pParam->pin_left_times = static_cast<uint32_t>(f.number());
        else if (f.is("puknumber")) pParam->puk_left_times = static_cast<uint32_t>(f.number());
        return true;
    });
}

extern "C" int AT_ZTE_zsnt_read(AT_ZTE_ZSNT_ST* pParam) {
    if (!pParam) return -1;
    return query(__func__, "AT+ZSNT?\r", "+ZSNT:", "+ZSNT", pParam->enAtExecResult, [&](Field f) {
        if (f.is("cm_mode")) return ats_convert_zsnt_pref_mode(f.value(), &pParam->enPrefMode) == 0;
        if (f.is("net_sel_mode")) return ats_convert_zsnt_select_mode(f.value(), &pParam->enSelectMode) == 0;
        if (f.is("pref_acq")) return ats_convert_zsnt_access_mode(f.value(), &pParam->enAccessMode) == 0;
        return true;
    });
}

extern "C" int AT_ZTE_zsnt_config(AT_ZTE_ZSNT_ST* pParam) {
    if (!pParam) return -1;
    if (number_of(pParam->enSelectMode) == NETWORK_SELECT_MANUAL) {
        ATS_TRACE(ERROR, "AT_ZTE_zsnt_config: manual mode is not supported, please use AT+COPS instead!\n");
        return -1;
    }
    Request req;
    return configure(__func__, req,
                     AT_FORMAT_CMD_WITH_BODY(req, 639, "AT+ZSNT=%d,%d,%d\r", number_of(pParam->enPrefMode),
                                             number_of(pParam->enSelectMode), number_of(pParam->enAccessMode)),
                     pParam->enAtExecResult);
}

extern "C" int AT_ZTE_zoprt_read(AT_ZTE_ZOPRT_ST* pParam) {
    if (!pParam) return -1;
    return query(__func__, "AT+ZOPRT?\r", "+ZOPRT:", "+ZOPRT", pParam->enAtExecResult, [&](Field f) {
        return !f.is("mode") || ats_convert_zoprt_power_mode(f.value(), &pParam->enPowerMode) == 0;
    });
}

extern "C" int AT_ZTE_zoprt_config(AT_ZTE_ZOPRT_ST* pParam) {
    if (!pParam) return -1;
    // A mode change answers at once: three seconds, and the mode is the caller's to choose.
    Request req{3};
    return configure(__func__, req,
                     AT_FORMAT_CMD_WITH_BODY(req, 639, "AT+ZOPRT=%d\r", number_of(pParam->enPowerMode)),
                     pParam->enAtExecResult);
}

extern "C" int AT_ZTE_zusim(AT_ZTE_ZUSIM_ST* pParam) {
    if (!pParam) return -1;
    return query(__func__, "AT+ZUSIM=?\r", "+ZUSIM:", "+ZUSIM", pParam->enAtExecResult, [&](Field f) {
        if (!f.is("usim_card")) return true;
        const int type = f.number();
        if (type != SIM_TYPE_SIM && type != SIM_TYPE_USIM) {
            ATS_TRACE(ERROR, "AT_ZTE_zusim: invalid sim status!\n");
            return false;
        }
        atapi::store_enum(pParam->enSimType, type);
        return true;
    });
}
