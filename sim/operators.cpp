// operators.cpp - what the operator and radio rules cannot say by themselves: the search list
// built from the operator store, a selection that looks an operator up by any of its names, and
// the radio configuration that ^SYSCFG and ^SYSCFGEX share and that decides the system mode the
// modem reports.
//
// State lives in the scenario's variables (radio.scn and operators.scn name them), so that a
// rule, `--set` or the control input can still read or change any of it.
#include <algorithm>
#include <cctype>
#include <string>

#include "scenario.h"

namespace sim {
namespace {

std::string arg(const Call& c, size_t i) { return i < c.args.size() ? c.args[i] : std::string{}; }

// ---- Operators --------------------------------------------------------------------------------
//
// Store "ops": one slot per operator, keyed by its numeric code, with the fields code (the code
// as text, leading zeros kept), long, short, rat, lac, ci and forbidden (1 or absent).

using Record = Engine::Record;

std::string field(const Record& r, const char* name) {
    const auto it = r.find(name);
    return it == r.end() ? std::string{} : it->second;
}

// The operator whose name in `format` (0 long, 1 short, 2 numeric) is `name`.
const Record* find_operator(const Engine& e, const std::string& format, const std::string& name) {
    static const char* const kFields[] = {"long", "short", "code"};
    if (format.size() != 1 || format[0] < '0' || format[0] > '2') return nullptr;
    const auto* ops = e.slots("ops");
    if (!ops) return nullptr;
    for (const auto& [key, rec] : *ops)
        if (field(rec, kFields[format[0] - '0']) == name) return &rec;
    return nullptr;
}

bool registered(const Engine& e) { return e.var("reg") == "1" || e.var("reg") == "5"; }

// Registers on `op`: +COPS?, the registration replies and ^SYSINFO(EX) follow.
void register_on(Engine& e, const Record& op, const std::string& mode, Response* response) {
    const std::string code = field(op, "code");
    e.set_var("cops_mode", mode);
    e.set_var("plmn", code);
    e.set_var("oper_long", field(op, "long"));
    e.set_var("oper_short", field(op, "short"));
    e.set_var("lac", field(op, "lac"));
    e.set_var("ci", field(op, "ci"));
    const bool home = code == e.var("home_plmn");
    e.set_var("reg", home ? "1" : "5");
    e.set_var("roaming", home ? "0" : "1");
    if (response) response->after.emplace_back(200, "^SRVST: 2");
}

}  // namespace

// The list of a search: (stat,"long","short","code",rat) per operator, then the double comma and
// the supported modes and formats.
SIM_FUNCTION(cops_list) {
    std::string out;
    if (const auto* ops = call.engine.slots("ops")) {
        const std::string current = registered(call.engine) ? call.engine.var("plmn") : std::string{};
        for (const auto& [key, rec] : *ops) {
            const std::string code = field(rec, "code");
            const char* stat = field(rec, "forbidden") == "1" ? "3" : code == current ? "2" : "1";
            out += std::string("(") + stat + ",\"" + field(rec, "long") + "\",\"" + field(rec, "short") + "\",\"" + code +
                   "\"," + field(rec, "rat") + "),";
        }
    }
    return out + ",(0,1,2,3,4),(0,1,2)";
}

// cops_select MODE [FORMAT NAME]: the final result of "AT+COPS=MODE,FORMAT,"NAME"". Mode 0 goes
// back to the home network; modes 1 and 4 look the operator up, and 4 falls back to the home
// network where 1 fails (no such network: +CME ERROR: 30; a forbidden one: 32).
SIM_FUNCTION(cops_select) {
    Engine& e = call.engine;
    const std::string mode = arg(call, 0);
    const Record* home = find_operator(e, "2", e.var("home_plmn"));
    if (mode == "0") {
        if (!home) return "+CME ERROR: 30";
        register_on(e, *home, mode, call.response);
        return "OK";
    }
    const Record* op = find_operator(e, arg(call, 1), arg(call, 2));
    const char* refusal = !op ? "+CME ERROR: 30" : field(*op, "forbidden") == "1" ? "+CME ERROR: 32" : nullptr;
    if (refusal && mode == "4" && home) op = home, refusal = nullptr;
    if (refusal) return refusal;
    register_on(e, *op, mode, call.response);
    return "OK";
}

namespace {

// ---- Radio configuration ----------------------------------------------------------------------
//
// Variables: acq (the ^SYSCFGEX acquisition order: "00" automatic, else two digits per access
// technology, 01 GSM, 02 WCDMA, 03 LTE, first preferred), gw_band and lte_band (hexadecimal
// masks), roam (0 or 1) and srvdomain (0 CS, 1 PS, 2 both, 3 any).

bool hex_mask(const std::string& s) {
    return !s.empty() && s.size() <= 16 && std::all_of(s.begin(), s.end(), [](unsigned char c) { return std::isxdigit(c); }) &&
           s.find_first_not_of('0') != std::string::npos;
}

bool acquisition_order(const std::string& s) {
    if (s == "00" || s == "99") return true;
    if (s.empty() || s.size() % 2 || s.size() > 6) return false;
    for (size_t i = 0; i < s.size(); i += 2) {
        const std::string t = s.substr(i, 2);
        if ((t != "01" && t != "02" && t != "03") || s.find(t) != i) return false;
    }
    return true;
}

// What the modem reports after a change: the first technology of the order serves (LTE when
// automatic). Codes of ^SYSINFOEX, ^SYSINFO and the registration replies.
void apply_mode(Engine& e) {
    struct Mode {
        const char* tech;
        const char *sysmode, *name, *submode, *subname, *sysinfo_mode, *sysinfo_submode, *act;
    };
    static const Mode kModes[] = {
        {"03", "6", "LTE", "101", "LTE FDD", "17", "0", "7"},
        {"02", "3", "WCDMA", "41", "WCDMA", "5", "4", "2"},
        {"01", "1", "GSM", "1", "GSM", "3", "1", "0"},
    };
    const std::string acq = e.var("acq");
    const std::string first = acq == "00" ? "03" : acq.substr(0, 2);
    for (const Mode& m : kModes) {
        if (first != m.tech) continue;
        e.set_var("sysmode", m.sysmode);
        e.set_var("sysmode_name", m.name);
        e.set_var("submode", m.submode);
        e.set_var("submode_name", m.subname);
        e.set_var("sysinfo_mode", m.sysinfo_mode);
        e.set_var("sysinfo_submode", m.sysinfo_submode);
        e.set_var("act", m.act);
    }
}

// Takes `value` into `var` unless it is the command's "no change".
void take(Engine& e, const char* var, const std::string& value, const std::string& unchanged) {
    if (value != unchanged) e.set_var(var, value);
}

bool one_of(const std::string& v, std::initializer_list<const char*> allowed) {
    return std::any_of(allowed.begin(), allowed.end(), [&](const char* a) { return v == a; });
}

}  // namespace

// syscfgex_set ACQ BAND ROAM SRVDOMAIN LTEBAND: the final result of a ^SYSCFGEX setting. 99,
// 40000000 and 3 (roaming) or 4 (domain) leave a value as it is.
SIM_FUNCTION(syscfgex_set) {
    Engine& e = call.engine;
    const std::string acq = arg(call, 0), band = arg(call, 1), roam = arg(call, 2), dom = arg(call, 3), lte = arg(call, 4);
    if (!acquisition_order(acq) || !hex_mask(band) || !hex_mask(lte) || !one_of(roam, {"0", "1", "2", "3"}) ||
        !one_of(dom, {"0", "1", "2", "3", "4"}))
        return "+CME ERROR: 50";
    take(e, "acq", acq, "99");
    take(e, "gw_band", band, "40000000");
    take(e, "lte_band", lte, "40000000");
    if (roam == "0" || roam == "1") e.set_var("roam", roam);
    take(e, "srvdomain", dom, "4");
    apply_mode(e);
    return "OK";
}

// syscfg_set MODE ACQORDER BAND ROAM SRVDOMAIN: the older form, which knows GSM and WCDMA only.
// Mode 2 is automatic with LTE first, 13 GSM only, 14 WCDMA only, 16 no change; the order 1 puts
// GSM before WCDMA, 2 the reverse; 3 (order), 40000000 (band), 2 (roaming) and 4 (domain) change
// nothing.
SIM_FUNCTION(syscfg_set) {
    Engine& e = call.engine;
    const std::string mode = arg(call, 0), order = arg(call, 1), band = arg(call, 2), roam = arg(call, 3), dom = arg(call, 4);
    if (!one_of(mode, {"2", "13", "14", "16"}) || !one_of(order, {"0", "1", "2", "3"}) || !hex_mask(band) ||
        !one_of(roam, {"0", "1", "2"}) || !one_of(dom, {"0", "1", "2", "3", "4"}))
        return "+CME ERROR: 50";
    if (mode == "13") e.set_var("acq", "01");
    if (mode == "14") e.set_var("acq", "02");
    if (mode == "2") e.set_var("acq", order == "1" ? "030102" : order == "2" ? "030201" : "00");
    take(e, "gw_band", band, "40000000");
    if (roam != "2") e.set_var("roam", roam);
    take(e, "srvdomain", dom, "4");
    apply_mode(e);
    return "OK";
}

// The mode and acquisition order of "^SYSCFG:" for the current order.
SIM_FUNCTION(syscfg_mode) {
    const std::string acq = call.engine.var("acq");
    const size_t gsm = acq.find("01"), wcdma = acq.find("02");
    if (acq == "01") return "13,0";
    if (acq == "02") return "14,0";
    if (gsm != std::string::npos && wcdma != std::string::npos) return gsm < wcdma ? "2,1" : "2,2";
    return "2,0";
}

}  // namespace sim
