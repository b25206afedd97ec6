// device.cpp - `atctl device`: what the modem is (identity and firmware), its functionality mode,
// its temperatures and battery, and a restart.
//
// The library hands identity texts on as the modem sent them (a blank after a colon, the line
// end of a version line, the kind of a version line in front of it); this tool shows them
// without that packaging. Temperatures come in tenths of a degree and are shown in degrees.
#include <array>
#include <chrono>
#include <cmath>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "cli.h"

namespace atctl {
namespace {

using namespace std::chrono_literals;

std::string trimmed(std::string s) {
    const auto blank = [](char c) { return c == ' ' || c == '\r' || c == '\n' || c == '\t'; };
    while (!s.empty() && blank(s.back())) s.pop_back();
    size_t i = 0;
    while (i < s.size() && blank(s[i])) ++i;
    return s.substr(i);
}

// ---- info ------------------------------------------------------------------------------------

// A text identity read (+CGMI, +CGMM, ^SN, +CIMI).
void read_text(Report& report, const char* key, const char* title, const char* label, int (*call)(nvramcontnetres*)) {
    Section& s = report.section(key, title, key);
    if (s.skipped()) return;
    nvramcontnetres rec{};
    rec.AtExeResult = kUnset;
    const int rc = call(&rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    const std::string value = trimmed(field_text(rec.Code));
    s.field(label, value, true);
    s.json(label, value);
}

// A version line's value without its kind ("EXTD:") and line end.
std::string version_text(const std::string& value) {
    const size_t colon = value.find(':');
    return trimmed(colon == std::string::npos ? value : value.substr(colon + 1));
}

void read_version(Report& report) {
    Section& s = report.section("version", "firmware (^VERSION)", "version");
    if (s.skipped()) return;
    CONTENT_VERSION rec{};
    rec.AtExeResult = kUnset;
    const int rc = at_version(&rec);
    // A complete answer marks the record with 0; an error answer returns 0 and leaves it alone.
    if (!s.check(rc == 0 && rec.AtExeResult == 0 ? 0 : -1)) return;
    const std::string firmware = version_text(field_text(rec.extd_version));
    const std::string hardware = version_text(field_text(rec.exth_version));
    s.field("firmware", firmware, true).field("hardware", hardware, true);
    s.json("firmware", firmware).json("hardware", hardware).json("lines", static_cast<long>(rec.num));
}

void info(Report& report) {
    read_text(report, "cgmi", "manufacturer (+CGMI)", "manufacturer", at_cgmi);
    read_text(report, "cgmm", "model (+CGMM)", "model", AT_cgmm);
    read_version(report);
    read_text(report, "sn", "serial number (^SN)", "serial", AT_sn);
    read_text(report, "imsi", "subscriber identity (+CIMI)", "imsi", AT_imsi);
}

// ---- mode --------------------------------------------------------------------------------------

struct Mode {
    std::string_view name;
    int cfun;
    std::string_view meaning;
};

// What `mode set` offers, and the names `mode get` gives. 7 is the offline mode of modems that
// keep 0 for minimum functionality; both read as offline.
constexpr std::array kModes{
    Mode{"online",   1, "full functionality"},
    Mode{"offline",  0, "minimum functionality"},
    Mode{"airplane", 4, "radio off"},
    Mode{"offline",  7, "offline"},
};

void read_mode(Report& report) {
    Section& s = report.section("cfun", "functionality mode (+CFUN)", "cfun");
    if (s.skipped()) return;
    CFUNINFO rec{};
    rec.at_exec_result = kUnset;
    const int rc = AT_Cfun_Read(&rec);
    if (!s.check(rc, rec.at_exec_result)) return;
    const Mode* mode = nullptr;
    for (const Mode& m : kModes)
        if (m.cfun == rec.cfun) mode = &m;
    s.field("mode", mode ? std::string(mode->name) + ", " + std::string(mode->meaning) + " (" + std::to_string(rec.cfun) + ")"
                         : "mode " + std::to_string(rec.cfun),
            true);
    s.json("cfun", static_cast<long>(rec.cfun));
    s.json("mode", mode ? JsonValue{std::string(mode->name)} : JsonValue{nullptr});
}

void set_mode(const std::string& name, Report& report) {
    const Mode* mode = nullptr;
    for (const Mode& m : kModes)
        if (m.name == name && !mode) mode = &m;
    if (!mode) throw UsageError("mode set needs online, offline or airplane, not '" + name + "'");
    progress("switching the modem to " + name + " (+CFUN=" + std::to_string(mode->cfun) + ")");
    if (AT_Cfun(mode->cfun) != 0) throw Failure("the modem did not switch to " + name + " (+CFUN=" + std::to_string(mode->cfun) + ")");
    read_mode(report);
}

// ---- temperature ---------------------------------------------------------------------------

void read_chiptemp(Report& report) {
    Section& s = report.section("chiptemp", "chip temperatures (^CHIPTEMP)", "chiptemp");
    if (s.skipped()) return;
    StChiptemp rec{};
    rec.AtExecResult = kUnset;
    const int rc = AT_Chiptemp(AT_CHECK_VALUE, &rec);
    if (!s.check(rc, rec.AtExecResult)) return;
    const std::pair<const char*, int> values[] = {
        {"gpa", rec.gpa_Temp}, {"wpa", rec.wpa_Temp}, {"lpa", rec.lpa_Temp},
        {"sim", rec.sim_Temp}, {"battery", rec.bat_Temp}, {"tcxo", rec.tcxo_Temp},
    };
    for (const auto& [name, tenths] : values) {
        s.field(name, tenths_text(tenths) + " °C (raw " + std::to_string(tenths) + ")", true);
        s.json(name, static_cast<long>(tenths)).json(std::string(name) + "_c", Tenths{tenths});
    }
}

void read_xotemp(Report& report) {
    Section& s = report.section("xotemp", "crystal temperature (^XOTEMP)", "xotemp");
    if (s.skipped()) return;
    crystal_temp rec{};
    rec.AtExeResult = kUnset;
    const int rc = AT_Xotemp(AT_CHECK_VALUE, &rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    const long tenths = std::lround(static_cast<double>(rec.temp) * 10);
    s.field("crystal", tenths_text(tenths) + " °C", true);
    s.json("crystal_c", Tenths{tenths});
}

// ---- battery -------------------------------------------------------------------------------

constexpr std::array<std::string_view, 4> kPowerSources{
    "on battery", "on external power, battery connected", "no battery", "power fault",
};

void read_cbc(Report& report) {
    Section& s = report.section("cbc", "battery charge (+CBC)", "cbc");
    if (s.skipped()) return;
    battery_state_std rec{};
    rec.AtExeResult = kUnset;
    const int rc = at_query_battery_state_std(&rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    const bool known = rec.charge_state >= 0 && static_cast<size_t>(rec.charge_state) < kPowerSources.size();
    const std::string source = known ? std::string(kPowerSources[static_cast<size_t>(rec.charge_state)]) : "unknown";
    s.field("level", std::to_string(rec.battery_percent) + " %", true);
    s.field("power", source + " (" + std::to_string(rec.charge_state) + ")", true);
    s.json("charge_state", static_cast<long>(rec.charge_state)).json("battery_percent", static_cast<long>(rec.battery_percent));
}

void read_charger(Report& report) {
    Section& s = report.section("apchg", "charger (^APCHG)", "apchg");
    if (s.skipped()) return;
    StChargeinfo rec{};
    rec.AtExeResult = kUnset;
    const int rc = AT_ChargerInfo(&rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    const std::string state = trimmed(field_text(rec.chgState));
    s.field("state", state, true);
    s.field("charging", std::to_string(rec.chgTime) + " min");
    s.field("charger", std::to_string(rec.chgVoltage) + " mV, " + std::to_string(rec.chgCurrent) + " mA");
    s.field("battery", std::to_string(rec.batteryVol) + " mV, " + tenths_text(rec.batteryTemp) + " °C", true);
    s.field("board", tenths_text(rec.boardTemp) + " °C");
    s.json("state", state);
    const std::pair<const char*, int> members[] = {
        {"charge_minutes", rec.chgTime},  {"charger_mv", rec.chgVoltage}, {"battery_mv", rec.batteryVol},
        {"charger_ma", rec.chgCurrent},   {"battery_temp", rec.batteryTemp}, {"board_temp", rec.boardTemp},
        {"sim_temp", rec.simTemp},        {"msm_temp", rec.msmTemp},      {"pa_temp", rec.paTemp},
        {"off_charging", rec.isOffChg},
    };
    for (const auto& [key, value] : members) s.json(key, static_cast<long>(value));
}

// ---- restart -------------------------------------------------------------------------------

constexpr auto kRestartLimit = 60s;
// A modem that still answers this long after accepting the restart kept its port.
constexpr auto kDropWindow = 10s;

void restart(Report& report) {
    progress("restarting the modem (+CFUN=4, +CFUN=6)");
    if (AT_ReBoot() != 0) throw Failure("the modem refused the restart");
    const auto start = std::chrono::steady_clock::now();
    bool lost = false;
    for (;;) {
        const auto waited = std::chrono::steady_clock::now() - start;
        if (waited > kRestartLimit) throw Failure("the modem did not answer again within 60 s of the restart");
        nvramcontnetres probe{};
        const bool answers = at_cgmi(&probe) == 0;
        if (answers && (lost || waited > kDropWindow)) break;
        if (!answers && !lost) {
            lost = true;
            progress("the AT server lost the modem's port; waiting for it to come back");
        }
        std::this_thread::sleep_for(200ms);
    }
    const long ms = static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count());
    Section& s = report.section("reboot", "restart (+CFUN=6)", "reboot");
    s.field("restarted", "yes", true);
    s.field("port", lost ? "lost, back after " + tenths_text(ms / 100) + " s" : "kept", true);
    s.json("port_lost", lost).json("back_after_ms", static_cast<long>(ms));
}

// ---- the subcommand ------------------------------------------------------------------------

void run_device(const Invocation& inv, Report& report) {
    const std::string action = inv.args.empty() ? "info" : inv.arg(0);
    if (inv.has("--yes") && action != "restart") throw UsageError("--yes belongs to 'device restart' only");
    const auto no_more = [&](size_t n) {
        if (inv.args.size() > n) throw UsageError("unexpected argument '" + inv.arg(n) + "'");
    };
    if (action == "info") {
        no_more(1);
        info(report);
    } else if (action == "mode") {
        const std::string how = inv.args.size() > 1 ? inv.arg(1) : "get";
        if (how == "get") {
            no_more(2);
            read_mode(report);
        } else if (how == "set") {
            if (inv.args.size() < 3) throw UsageError("mode set needs online, offline or airplane");
            set_mode(inv.arg(2), report);
        } else {
            throw UsageError("mode takes get or set, not '" + how + "'");
        }
    } else if (action == "temperature") {
        no_more(1);
        read_chiptemp(report);
        read_xotemp(report);
    } else if (action == "battery") {
        no_more(1);
        read_cbc(report);
        read_charger(report);
    } else if (action == "restart") {
        no_more(1);
        if (!inv.has("--yes")) throw Failure("a restart takes the modem off the network for a while; confirm it with --yes");
        restart(report);
    } else {
        throw UsageError("unknown device action '" + action + "' (info, mode, temperature, battery, restart)");
    }
}

}  // namespace

ATCTL_SUBCOMMAND({.name = "device",
                  .summary = "the modem's identity, functionality mode, temperatures and battery; restart",
                  .usage = "[info | mode [get | set online|offline|airplane] | temperature | battery | restart --yes]",
                  .help = "  info          manufacturer, model, firmware and hardware versions, serial number,\n"
                          "                IMSI (the default, and the lines 'status' shows)\n"
                          "  mode get      the functionality mode (+CFUN)\n"
                          "  mode set M    online (+CFUN=1), offline (+CFUN=0) or airplane (+CFUN=4, radio\n"
                          "                off); the mode is read back and shown\n"
                          "  temperature   chip temperatures (^CHIPTEMP) and the crystal's (^XOTEMP), in °C\n"
                          "  battery       charge level and power source (+CBC), charger state (^APCHG)\n"
                          "  restart --yes restarts the modem (+CFUN=4, then +CFUN=6) and waits up to 60 s\n"
                          "                until it answers again; without --yes nothing is done (exit 1)\n",
                  .order = 50,
                  .options = "--yes",
                  .min_args = 0,
                  .max_args = 3,
                  .run = run_device,
                  .in_status = true});

}  // namespace atctl
