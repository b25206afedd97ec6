// gps.cpp - `atctl gps`: the modem's positioning engine. Start and stop a session, read its
// settings, and show the current fix.
//
// The library configures the engine and starts and ends sessions; fixes reach the router's
// positioning service by the modem's own reports, and no library function returns one. `gps fix`
// therefore asks the modem for its latest fix itself: a raw "AT^GPSFIX?" through the library's
// GetDataFromAtServer, read with the library's own field parser. A modem without that command
// answers ERROR, and atctl says so.
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdio>
#include <cstring>
#include <thread>

#include "cli.h"

namespace atctl {
namespace {

// ---- Settings ----------------------------------------------------------------------------------

// The outcome of a ^WP* call: these return -1 also after an error reply, whose code they leave in
// the record; that is the modem's answer, not a failed call.
bool check_wp(Section& s, int rc, AT_AMSS_RES result) {
    const bool modem_said = rc == -1 && result != kUnset && result != AT_CMD_RES_ERR && result != AT_CMD_RES_SUCCESS;
    return s.check(modem_said ? 0 : rc, result);
}

// One setting query: `read` makes the call on a record whose result field is preset, `show` fills
// the section from it.
template <typename Rec, typename Read, typename Show>
void setting(Report& report, const char* key, const char* title, Read read, Show show) {
    Section& s = report.section(key, title, key);
    if (s.skipped()) return;
    Rec rec{};
    rec.AtExecResult = kUnset;
    const int rc = read(&rec);
    if (check_wp(s, rc, rec.AtExecResult)) show(s, rec);
}

void number_field(Section& s, const char* label, const char* key, int value, const char* unit = "") {
    s.field(label, std::to_string(value) + unit, true).json(key, static_cast<long>(value));
}

void read_settings(Report& report) {
    setting<StWpDomInfo>(report, "wpdom", "operation mode (^WPDOM)", [](auto* r) { return AT_WPDOM(AT_CHECK_VALUE, r); },
                         [](Section& s, auto& r) { number_field(s, "mode", "oper_mode", r.oper_mode); });
    setting<StWpDstSession>(report, "wpdst", "session type (^WPDST)", [](auto* r) { return AT_WPDST(AT_CHECK_VALUE, r); },
                            [](Section& s, auto& r) { number_field(s, "type", "session_type", r.type); });
    setting<StWpDfr>(report, "wpdfr", "fix rate (^WPDFR)", [](auto* r) { return AT_WPDFR(AT_CHECK_VALUE, r); },
                     [](Section& s, auto& r) {
                         number_field(s, "fixes", "number", r.number);
                         number_field(s, "interval", "time", r.time, " s");
                     });
    setting<StWPQosInfo>(report, "wpqos", "quality of service (^WPQOS)", [](auto* r) { return AT_WPQOS(AT_CHECK_VALUE, r); },
                         [](Section& s, auto& r) {
                             number_field(s, "performance", "performance", r.performance);
                             number_field(s, "accuracy", "accuracy", r.accuracy, " m");
                         });
    setting<StWGnssInfo>(report, "wgnss", "positioning system (^WGNSS)", [](auto* r) { return AT_WGNSS(AT_CHECK_VALUE, r); },
                         [](Section& s, auto& r) { number_field(s, "system", "pos_sys", r.pos_sys); });
    setting<StWPURL>(report, "wpurl", "assistance server (^WPURL)", [](auto* r) { return AT_WPURL(AT_CHECK_VALUE, r); },
                     [](Section& s, auto& r) {
                         const std::string url = field_text(r.curr_address);
                         s.field("address", url.empty() ? "none" : url, true).json("url", url);
                     });
    // Not one of the settable kind: an error reply comes back with 0 and its code.
    Section& s = report.section("gpstype", "receiver type (^GPSTYPE)", "gpstype");
    if (s.skipped()) return;
    StGpsTypes rec{};
    rec.AtExecResult = kUnset;
    const int rc = AT_GPSTYPE(&rec);
    if (s.check(rc, rec.AtExecResult)) number_field(s, "type", "type", rec.type);
}

// ---- The current fix ---------------------------------------------------------------------------

// A decimal text as an integer in units of 10^-digits ("-26.5", 6 -> -26500000): a value of
// `digits` decimals, or null when the text is no such number (or does not fit).
JsonValue scaled(const std::string& text, int digits) {
    long unit = 1;
    for (int k = 0; k < digits; ++k) unit *= 10;
    const bool negative = !text.empty() && text[0] == '-';
    long whole = 0, frac = 0;
    int seen = 0;
    bool any = false, dot = false;
    for (size_t i = negative ? 1 : 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '.' && !dot) {
            dot = true;
            continue;
        }
        if (c < '0' || c > '9' || whole >= LONG_MAX / unit / 10) return nullptr;
        any = true;
        if (!dot) whole = whole * 10 + (c - '0');
        else if (seen < digits) frac = frac * 10 + (c - '0'), ++seen;
    }
    if (!any) return nullptr;
    for (; seen < digits; ++seen) frac *= 10;
    const long v = whole * unit + frac;
    return negative ? -v : v;
}

std::string degrees_text(long micro, char positive, char negative) {
    const long a = micro < 0 ? -micro : micro;
    char buf[32];
    std::snprintf(buf, sizeof buf, "%ld.%06ld %c", a / 1000000, a % 1000000, micro < 0 ? negative : positive);
    return buf;
}

struct Fix {
    int state = -1;  // 0 no session, 1 searching, 2 fix
    std::map<std::string, std::string> values;
};

constexpr char kFixTemplate[] = "^GPSFIX:state,time,lat,lon,alt,hacc,speed,course,sats";

// The modem's latest fix, asked for with a raw exchange. Nothing when there is no usable answer.
std::optional<Fix> ask_fix(int* ret_val) {
    msg_q msg;
    std::memset(&msg, 0, sizeof msg);
    msg.client_id = static_cast<int32_t>(syscall(SYS_gettid));
    msg.req_type = AT_REQ;
    msg.rsp_type = DIRECT_BACK;
    msg.at_mutil = AT_RES_ONE;
    msg.time_out = 5;
    std::snprintf(msg.snd_rcv_msg.smsg.at_cmd_str, AT_CMD_STR_LEN, "%s", "AT^GPSFIX?");
    std::snprintf(msg.snd_rcv_msg.smsg.at_match_ok_str, AT_MATCH_STR_LEN, "%s", "^GPSFIX:");
    if (GetDataFromAtServer(&msg) != 0) return std::nullopt;
    *ret_val = msg.snd_rcv_msg.rmsg.ret_val;
    if (*ret_val != AT_CMD_OK) return std::nullopt;
    char* reply = msg.snd_rcv_msg.rmsg.at_report_str;
    reply[AT_REPORT_STR_LEN - 1] = '\0';
    reply[std::strcspn(reply, "\r\n")] = '\0';  // the first report, should two have come
    AtCmdParse* tree = nullptr;
    char name[] = "^GPSFIX";
    if (parse_common_at_str(&tree, kFixTemplate, reply, name) != 0 || tree == nullptr) return std::nullopt;
    Fix fix;
    for (const AtCmdParse* n = tree; n; n = n->next)
        if (n->AtFieldName && n->AtFieldValue) fix.values[n->AtFieldName] = n->AtFieldValue;
    free_at_cmd(tree);
    const std::optional<long> state = number(fix.values["state"]);
    if (!state || *state < 0 || *state > 2) return std::nullopt;
    fix.state = static_cast<int>(*state);
    return fix;
}

void show_fix(Section& s, Fix& fix) {
    static const char* const kStates[] = {"no session", "searching", "fix"};
    s.field("state", kStates[fix.state], true).json("state", std::string(kStates[fix.state]));
    s.json("state_code", static_cast<long>(fix.state));
    // Nothing but the state unless there is a fix.
    if (fix.state != 2) fix.values.clear();
    const JsonValue lat = scaled(fix.values["lat"], 6), lon = scaled(fix.values["lon"], 6);
    if (std::holds_alternative<long>(lat) && std::holds_alternative<long>(lon))
        s.field("position", degrees_text(std::get<long>(lat), 'N', 'S') + ", " + degrees_text(std::get<long>(lon), 'E', 'W'), true);
    s.json("latitude_e6", lat).json("longitude_e6", lon);
    const std::string time = fix.values["time"];
    if (!time.empty()) s.field("time", time + " (UTC)", true);
    s.json("time", time.empty() ? JsonValue{nullptr} : JsonValue{time});
    const struct {
        const char* key;
        const char* label;
        const char* unit;
        const char* json;
        bool brief;
    } tenths[] = {
        {"hacc", "accuracy", " m", "accuracy_m", true},   {"alt", "altitude", " m", "altitude_m", false},
        {"speed", "speed", " km/h", "speed_kmh", false},  {"course", "course", " deg", "course_deg", false},
    };
    for (const auto& t : tenths) {
        const JsonValue v = scaled(fix.values[t.key], 1);
        const bool known = std::holds_alternative<long>(v);
        if (known) s.field(t.label, tenths_text(std::get<long>(v)) + t.unit, t.brief);
        s.json(t.json, known ? JsonValue{Tenths{std::get<long>(v)}} : JsonValue{nullptr});
    }
    const JsonValue sats = scaled(fix.values["sats"], 0);
    if (std::holds_alternative<long>(sats)) s.field("satellites", std::to_string(std::get<long>(sats)));
    s.json("satellites", sats);
}

void read_fix(const Invocation& inv, Report& report) {
    long wait_s = 0;
    if (const std::optional<std::string> w = inv.option("--wait")) {
        const std::optional<long> v = number(*w);
        if (!v || *v < 0 || *v > 600) throw UsageError("--wait needs seconds from 0 to 600");
        wait_s = *v;
    }
    Section& s = report.section("gpsfix", "current fix (AT^GPSFIX?, raw)", "fix");
    if (s.skipped()) return;
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(wait_s);
    int ret_val = -1;
    std::optional<Fix> fix = ask_fix(&ret_val);
    for (bool told = false; fix && fix->state == 1 && std::chrono::steady_clock::now() < until;) {
        if (!told) progress("waiting up to " + std::to_string(wait_s) + " s for a fix...");
        told = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        fix = ask_fix(&ret_val);
    }
    if (!s.check(fix ? 0 : -1)) {
        if (ret_val == AT_ERROR) s.field("answer", "ERROR (this modem has no AT^GPSFIX?)");
        return;
    }
    show_fix(s, *fix);
}

// ---- Session -----------------------------------------------------------------------------------

void session(Report& report, const char* key, const char* title, int (*call)(), const char* done) {
    Section& s = report.section(key, title, key);
    if (s.skipped() || !s.check(call())) return;
    s.field("session", done, true).json("session", std::string(done));
}

}  // namespace

void run_gps(const Invocation& inv, Report& report) {
    const std::string action = inv.args.empty() ? "status" : inv.arg(0);
    if (inv.has("--wait") && action != "fix") throw UsageError("--wait belongs to 'gps fix'");
    if (action == "start") session(report, "wpdgp", "start a positioning session (^WPDGP)", AT_WPDGP, "started");
    else if (action == "stop") session(report, "wpend", "end the positioning session (^WPEND)", AT_WPEND, "ended");
    else if (action == "status") {
        read_settings(report);
        read_fix(inv, report);
    } else if (action == "fix") read_fix(inv, report);
    else throw UsageError("'gps' takes start, stop, status or fix, not '" + action + "'");
}

ATCTL_SUBCOMMAND({.name = "gps",
                  .summary = "the positioning engine: start, stop, settings, the current fix",
                  .usage = "[start|stop|status|fix] [--wait S]",
                  .help = "  start      start a positioning session (AT_WPDGP); acts on the modem\n"
                          "  stop       end it (AT_WPEND); acts on the modem\n"
                          "  status     the engine's settings (AT_WPDOM, AT_WPDST, AT_WPDFR, AT_WPQOS,\n"
                          "             AT_WGNSS, AT_WPURL, AT_GPSTYPE) and the current fix (default)\n"
                          "  fix        the current fix: position, UTC time, accuracy, altitude, speed,\n"
                          "             course and satellites\n"
                          "  --wait S   with fix: while the receiver is still searching, ask again\n"
                          "             for up to S seconds\n"
                          "The library returns no position: the fix is read with a raw \"AT^GPSFIX?\"\n"
                          "through GetDataFromAtServer and the library's field parser. It answers\n"
                          "state 0 (no session), 1 (searching) or 2 and the fix.\n",
                  .order = 60,
                  .options = "--wait S",
                  .max_args = 1,
                  .run = run_gps});

}  // namespace atctl
