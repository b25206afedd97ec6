// ats_k9_power.cpp - battery and charger state, restart and factory reset, thermal protection,
// watchdog time and wake-up sources of the battery-powered hotspot.
#include <cstring>
#include <initializer_list>

#include "atapi/comm.h"
constexpr char kTraceSource[] = "src/ats_k9";
#include "frame.h"
#include "ats_device.h"

using atapi::Binding;
using atapi::num;
using atapi::OnError;
using atapi::ParseTree;
using atapi::Request;
using atapi::text;

namespace {

// ---- Restart -----------------------------------------------------------------------------------

// One step of the restart. Its reply is matched by the process id, not by the thread id.
int restart_step(const char* cmd, const char* refused) {
    Request req{cmd, "+CFUN"};
    req.client_id(ATS_task_getid()).rep_type(AT_REPORT_REQ_NONE);
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) {
        ATS_TRACE(ERROR, "%s", refused);
        return -1;
    }
    return 0;
}

}  // namespace

extern "C" int AT_ReBoot(void) {
    // Radio off first, then the restart. Each step goes out in a record of its own, so that nothing
    // of the first reply travels with the second command.
    if (int rc = restart_step("AT+CFUN=4", "Error:reboot")) return rc;
    return restart_step("AT+CFUN=6", "reboot error");
}

extern "C" int at_factoryreset(void) {
    Request req{"AT&F", nullptr};
    if (int rc = req.exchange()) return rc;
    if (!req.ok()) {
        ATS_TRACE(ERROR, "error=%d", req.result());
        return -1;
    }
    return 0;
}

// ---- Battery and charger -----------------------------------------------------------------------

namespace {

bool present(const void* record) {
    if (record) return true;
    ATS_TRACE(ERROR, "para is NULL");
    return false;
}

}  // namespace

extern "C" int at_query_battery_state(battery_state* result) {
    if (!present(result)) return -1;
    Request req{"AT^APBATLVL", "^APBATLVL"};
    req.rep_type(AT_REPORT_REQ_NONE);
    if (req.exchange() != 0) return -1;
    if (req.ok()) {
        // An OK reply counts as read even when it does not parse: intended.
        ParseTree tree = req.parse("^APBATLVL", AT_FUNCTION_SYSTEM_CFG);
        const Binding fields[] = {num("chargerState", result->charge_state), num("batterylvl", result->battery_level)};
        if (tree) atapi::store_fields(tree.row(), fields);
        result->AtExeResult = AT_CMD_RES_SUCCESS;
        return 0;
    }
    // The error is kept in the record, and still the call fails: intended.
    if (req.is_error_report()) result->AtExeResult = Error_str_to_id(req.report());
    return -1;
}

extern "C" int at_battery_get(nvramcontnetres* Result) {
    if (!present(Result)) return -1;
    Request req{"AT^APBATLVL", "^APBATLVL"};
    return atapi::reply_text(req, *Result, true);
}

extern "C" int at_query_battery_state_std(battery_state_std* result) {
    if (!present(result)) return -1;
    Request req{"AT+CBC", "+CBC"};
    return AT_QUERY(req, {.name = "+CBC", .table = AT_FUNCTION_SYSTEM_CFG, .on_error = OnError::map,
                          .result = &result->AtExeResult},
                    {num("cbs", result->charge_state), num("bcl", result->battery_percent)});
}

extern "C" int AT_ChargerInfo(StChargeinfo* result) {
    if (!present(result)) return -1;
    Request req{"AT^APCHG?", "^APCHG"};
    return AT_QUERY(req, {.name = "^APCHG", .table = AT_FUNCTION_SYSTEM_CFG, .on_error = OnError::map,
                          .result = &result->AtExeResult},
                    {text("ChargerState", result->chgState), num("ChargerTime", result->chgTime),
                     num("ChargerVoltage", result->chgVoltage), num("BatteryVoltage", result->batteryVol),
                     num("ChargerCurrent", result->chgCurrent), num("BatteryTemp", result->batteryTemp),
                     num("BoardTemp", result->boardTemp), num("SimTemp", result->simTemp),
                     num("MsmTemp", result->msmTemp), num("PaTemp", result->paTemp), num("IsOffChg", result->isOffChg)});
}

// ---- Thermal protection, watchdog, wake-up -----------------------------------------------------

namespace {

bool given(const void* record, const char* who) {
    if (record) return true;
    ATS_TRACE(ERROR, "[%s] param in is null\n", who);
    return false;
}

// The read of a setting: its row answers under the OTHER operation type.
int read_setting(const char* cmd, const char* name, AT_AMSS_RES& result, std::initializer_list<Binding> fields) {
    Request req{cmd, name};
    return AT_QUERY(req, {.name = name, .table = AT_FUNCTION_SYSTEM_CFG, .op = AT_OPERATION_TYPE_OTHER,
                          .on_error = OnError::map, .result = &result},
                    fields);
}

// A setting's set form, built by `format`, with the reply prefix of its read form.
template <typename Format>
int write_setting(const char* name, AT_AMSS_RES& result, Format format) {
    Request req;
    if (!format(req)) return -1;
    req.set_match(name);
    return atapi::set_and_map(req, result);
}

// A setting with a read form and a set form built by `format`.
template <typename Format>
int setting(int type, const char* read_cmd, const char* name, AT_AMSS_RES& result, Binding field, Format format) {
    if (type == AT_SET_VALUE) return write_setting(name, result, format);
    if (type != AT_CHECK_VALUE) return -1;
    return read_setting(read_cmd, name, result, {field});
}

// The upper end of a range the test form lists, "(0-15)" giving 15; a single number as it is.
void store_range_top(void* dst, std::size_t, const char* value) {
    if (!value) return;
    const char* p = value[0] == '(' ? value + 1 : value;
    if (const char* dash = std::strrchr(p, '-'); dash && dash != p) p = dash + 1;
    *static_cast<unsigned int*>(dst) = static_cast<unsigned int>(safe_atoi(p));
}

Binding range_top(const char* name, unsigned int& dst) { return {name, &store_range_top, &dst, sizeof dst}; }

}  // namespace

extern "C" int at_thermfun(int type, temperature_protection* temp_pro_info) {
    if (!given(temp_pro_info, "at_thermfun")) return -1;
    auto& rec = *temp_pro_info;
    return setting(type, "AT^THERMFUN?", "^THERMFUN", rec.AtExeResult, num("switch", rec.thermal_switch),
                   [&](Request& r) { return AT_FORMAT_CMD(r, 639, "AT^THERMFUN=%d", rec.thermal_switch); });
}

extern "C" int at_setwdtime(int type, watch_dog_time* time_info) {
    if (!given(time_info, "at_setwdtime")) return -1;
    auto& rec = *time_info;
    return setting(type, "AT^SETWDTIME?", "^SETWDTIME", rec.AtExeResult, num("watchdog_time", rec.watchdog_time),
                   [&](Request& r) { return AT_FORMAT_CMD(r, 639, "AT^SETWDTIME=%d", rec.watchdog_time); });
}

extern "C" int at_thermstate(int type, thermal_state* state_info) {
    if (!given(state_info, "at_thermstate")) return -1;
    if (type != AT_CHECK_VALUE) return -1;
    return read_setting("AT^THERMSTATE?", "^THERMSTATE", state_info->AtExeResult, {num("state", state_info->state)});
}

extern "C" int at_wakeupcfg(int type, wakeupcfg_stru* wakeupcfg_info) {
    if (!given(wakeupcfg_info, "at_wakeupcfg")) return -1;
    auto& rec = *wakeupcfg_info;
    if (type == AT_SET_VALUE)
        return write_setting("^WAKEUPCFG", rec.AtExeResult, [&](Request& r) {
            return AT_FORMAT_CMD(r, 639, "AT^WAKEUPCFG=%u,%u,%u", rec.wakeup_switch, rec.channel, rec.source);
        });
    if (type != AT_WAKEUPCFG_TEST_VALUE) return -1;
    return read_setting("AT^WAKEUPCFG=?", "^WAKEUPCFG", rec.AtExeResult,
                        {range_top("switch", rec.wakeup_switch), range_top("channel", rec.channel),
                         range_top("source", rec.source)});
}
