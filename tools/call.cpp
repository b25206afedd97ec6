// call.cpp - `atctl call`: dial, answer, hold, resume and end voice calls, list them, and watch
// them change.
//
// The library receives no unsolicited reports (the router's voice service gets the call events by
// its own path), so `watch` follows the calls the way any client of the library can: it reads the
// current-call list at a short interval and says what changed.
#include <signal.h>
#include <time.h>

#include <array>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "cli.h"

namespace atctl {
namespace {

constexpr size_t kRows = 21;  // the most calls AT_CLCC fills
constexpr long kDefaultIntervalMs = 250;

using Calls = std::vector<ats_current_call_info>;

std::string state_name(int stat) {
    static constexpr std::array<std::string_view, 6> kNames{"active", "held", "dialing", "alerting", "incoming", "waiting"};
    return stat >= 0 && stat < static_cast<int>(kNames.size()) ? std::string(kNames[static_cast<size_t>(stat)])
                                                               : "state " + std::to_string(stat);
}

std::string direction(const ats_current_call_info& c) { return c.call_dir == 1 ? "incoming" : "outgoing"; }

// "call 2 from +15550111": which call an event is about.
std::string who(const ats_current_call_info& c) {
    const std::string number = field_text(c.call_number);
    return "call " + std::to_string(c.call_id) + (c.call_dir == 1 ? " from " : " to ") + (number.empty() ? "an unknown number" : number);
}

// The calls of the list; the array is cleared first, since the library does not say how many
// rows it filled and leaves the others alone.
int read_calls(Calls& calls) {
    std::array<ats_current_call_info, kRows> rows{};
    const int rc = AT_CLCC(rows.data());
    calls.clear();
    for (const ats_current_call_info& c : rows)
        if (c.call_id != 0) calls.push_back(c);
    return rc;
}

Calls list_calls(Report& report) {
    Calls calls;
    Section& s = report.section("clcc", "current calls (+CLCC)", "calls");
    if (s.skipped() || !s.check(read_calls(calls))) return calls;
    if (calls.empty()) s.field("calls", "none", true);
    s.json("count", static_cast<long>(calls.size()));
    for (const ats_current_call_info& c : calls) {
        const std::string number = field_text(c.call_number);
        std::string text = number + ", " + direction(c) + ", " + state_name(static_cast<int>(c.call_stat));
        if (c.call_mpty == 1) text += ", in a conference";
        s.field("call " + std::to_string(c.call_id), text, true);
        const std::string key = "call" + std::to_string(c.call_id) + "_";
        s.json(key + "number", number).json(key + "direction", direction(c));
        s.json(key + "state", state_name(static_cast<int>(c.call_stat))).json(key + "stat", static_cast<long>(c.call_stat));
        s.json(key + "mode", static_cast<long>(c.call_mode)).json(key + "mpty", static_cast<long>(c.call_mpty));
        s.json(key + "type", static_cast<long>(c.call_type));
    }
    return calls;
}

bool any_in(const Calls& calls, ATS_CALL_STAT stat) {
    for (const ats_current_call_info& c : calls)
        if (c.call_stat == stat) return true;
    return false;
}

// One library call whose only outcome is its return code.
void act(Report& report, const std::string& key, const std::string& title, int rc) {
    report.section(key, title, key).check(rc);
}

// A dial string a modem takes: digits, '*', '#' and a leading '+'.
std::string dial_string(const std::string& number) {
    const bool ok = !number.empty() && number.size() <= 40 &&
                    number.find_first_not_of("0123456789*#", number[0] == '+' ? 1 : 0) == std::string::npos &&
                    number != "+";
    if (!ok) throw UsageError("'" + number + "' is no number to dial (digits, * and #, a leading +, 40 at most)");
    return number;
}

volatile sig_atomic_t g_interrupted = 0;
void on_interrupt(int) { g_interrupted = 1; }

void pause_ms(long ms) {
    for (long waited = 0; waited < ms && !g_interrupted; waited += 10) {
        const timespec step{0, 10'000'000};
        nanosleep(&step, nullptr);
    }
}

// Prints each change of the call list as it is seen, until SIGINT or SIGTERM.
void watch(const Invocation& inv, Report& report) {
    long interval = kDefaultIntervalMs;
    if (const std::optional<std::string> text = inv.option("--interval")) {
        const std::optional<long> v = number(*text);
        if (!v || *v < 20 || *v > 60000) throw UsageError("--interval needs milliseconds from 20 to 60000");
        interval = *v;
    }
    struct sigaction sa {};
    sa.sa_handler = on_interrupt;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    progress("watching the calls (+CLCC every " + std::to_string(interval) + " ms); interrupt to stop");

    std::map<int, ats_current_call_info> known;
    long events = 0;
    while (!g_interrupted) {
        Calls calls;
        if (read_calls(calls) != 0) throw Failure("the call list could not be read");
        std::map<int, ats_current_call_info> now;
        for (const ats_current_call_info& c : calls) {
            const auto it = known.find(c.call_id);
            const bool is_new = it == known.end() || field_text(it->second.call_number) != field_text(c.call_number);
            if (is_new || it->second.call_stat != c.call_stat) {
                progress(who(c) + ": " + state_name(static_cast<int>(c.call_stat)));
                ++events;
            }
            now[c.call_id] = c;
        }
        for (const auto& [id, c] : known)
            if (!now.count(id)) {
                progress(who(c) + ": ended");
                ++events;
            }
        known.swap(now);
        pause_ms(interval);
    }
    Section& s = report.section("watch", "call events (+CLCC every " + std::to_string(interval) + " ms)", "watch");
    s.field("events", std::to_string(events), true).field("calls at the end", std::to_string(known.size()));
    s.json("events", events).json("interval_ms", interval).json("calls", static_cast<long>(known.size()));
}

void run_call(const Invocation& inv, Report& report) {
    const std::string action = inv.args.empty() ? "list" : inv.arg(0);
    const bool takes_arg = action == "dial" || action == "hangup";
    if (inv.args.size() > (takes_arg ? 2u : 1u)) throw UsageError("unexpected argument '" + inv.args.back() + "'");
    if (inv.has("--interval") && action != "watch") throw UsageError("--interval goes with 'watch' only");

    if (action == "dial") {
        if (inv.args.size() < 2) throw UsageError("'call dial' needs the NUMBER to call");
        const std::string to = dial_string(inv.arg(1));
        Section& s = report.section("d", "dial (ATD)", "dial");
        s.field("number", to, true).json("number", to);
        s.check(AT_D(to.c_str()));
    } else if (action == "answer") {
        act(report, "a", "answer (ATA)", AT_A());
    } else if (action == "hold" || action == "resume") {
        const bool hold = action == "hold";
        const Calls calls = list_calls(report);
        if (report.any_failed()) return;
        if (!any_in(calls, hold ? ATS_ACTIVE : ATS_HELD))
            throw Failure(hold ? "no active call to hold" : "no held call to resume");
        act(report, "chld", hold ? "hold the active calls (AT+CHLD=2)" : "resume the held calls (AT+CHLD=2)",
            AT_CHLD(ATS_OPERATE_TWO));
    } else if (action == "hangup" && inv.args.size() == 2) {
        const std::optional<long> id = number(inv.arg(1));
        if (!id || *id < 1 || *id > 9) throw UsageError("'call hangup' takes a call id from 1 to 9");
        act(report, "chld", "release call " + std::to_string(*id) + " (AT+CHLD=1" + std::to_string(*id) + ")",
            AT_CHLD(static_cast<ATS_HOLD_OPERATE_VALUE>(ATS_OPERATE_ONE_1 + *id - 1)));
    } else if (action == "hangup") {
        act(report, "chup", "hang up (AT+CHUP)", AT_CHUP());
    } else if (action == "list") {
        list_calls(report);
    } else if (action == "watch") {
        watch(inv, report);
    } else {
        throw UsageError("unknown action 'call " + action + "'");
    }
}

}  // namespace

ATCTL_SUBCOMMAND({.name = "call",
                  .summary = "voice calls: dial, answer, hold, resume, hang up, list, watch",
                  .usage = "[dial NUMBER | answer | hold | resume | hangup [ID] | list | watch [--interval MS]]",
                  .help = "Acts on the modem's voice calls; without an action, lists them.\n"
                          "  dial NUMBER   start a call (ATD): digits, * and #, a leading +\n"
                          "  answer        answer the incoming call (ATA)\n"
                          "  hold          put the active calls on hold (AT+CHLD=2)\n"
                          "  resume        take the held calls back (AT+CHLD=2)\n"
                          "  hangup [ID]   end every call (AT+CHUP), or only call ID (AT+CHLD=1ID)\n"
                          "  list          the current calls and their states (AT+CLCC)\n"
                          "  watch         print each change of the calls on standard error as it is\n"
                          "                seen: dialing, alerting, active, held, incoming, waiting,\n"
                          "                ended. The library gets no call reports, so watch reads\n"
                          "                AT+CLCC every --interval MS (default 250). Interrupt it\n"
                          "                (Ctrl-C, SIGINT or SIGTERM) to stop: it then prints how many\n"
                          "                changes it saw and exits 0.\n"
                          "dial, answer, hold, resume and hangup act on the calls.\n",
                  .order = 60,
                  .options = "--interval MS",
                  .max_args = 2,
                  .run = run_call});

}  // namespace atctl
