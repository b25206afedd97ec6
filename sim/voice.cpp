// voice.cpp - the simulated modem's calls: what the rules of voice.scn cannot say alone.
//
// The calls live in the scenario's store "calls" (key = call id; fields dir, stat, mpty, number,
// type, seq, start, rings), so that "+CLCC" is one "each" line of the scenario. These functions
// move calls between the states of +CLCC (0 active, 1 held, 2 dialing, 3 alerting, 4 incoming,
// 5 waiting) and schedule the reports a modem of this family sends: ^ORIG, ^CONF, ^CONN and ^CEND
// for call progress, RING with +CLIP for an incoming call, +CCWA for a waiting one. A call's "seq"
// is drawn anew for every call, so that an event scheduled for an ended call never touches a new
// call that took over its id.
#include <algorithm>
#include <charconv>
#include <initializer_list>
#include <string>
#include <vector>

#include "scenario.h"

namespace sim {
namespace {

constexpr char kCalls[] = "calls";
enum Stat { kActive = 0, kHeld = 1, kDialing = 2, kAlerting = 3, kIncoming = 4, kWaiting = 5 };
// ^CEND end status and call-control cause (3GPP TS 24.008): normal clearing, user busy, no
// answer, call rejected.
constexpr char kEndStatus[] = "104";
constexpr int kNormal = 16, kNoAnswer = 19, kRejected = 21;

long number(const std::string& s, long fallback = 0) {
    long v = 0;
    const auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
    return ec == std::errc() && p == s.data() + s.size() && !s.empty() ? v : fallback;
}

std::string arg(const Call& c, size_t i) { return i < c.args.size() ? c.args[i] : std::string{}; }

std::string field(const Engine::Record& r, const char* name) {
    const auto it = r.find(name);
    return it == r.end() ? std::string{} : it->second;
}

// The ids of the calls in any of `states`, lowest first.
std::vector<long> calls_in(const Engine& e, std::initializer_list<int> states) {
    std::vector<long> ids;
    if (const auto* slots = e.slots(kCalls))
        for (const auto& [id, rec] : *slots)
            if (std::find(states.begin(), states.end(), number(field(rec, "stat"), -1)) != states.end())
                ids.push_back(id);
    return ids;
}

const Engine::Record* find(const Engine& e, long id) {
    const auto* slots = e.slots(kCalls);
    if (!slots) return nullptr;
    const auto it = slots->find(id);
    return it == slots->end() ? nullptr : &it->second;
}

void set_stat(Engine& e, long id, Stat s) { e.put(kCalls, id, {{"stat", std::to_string(s)}}); }

// A report the modem sends on its own, `ms` after the answer (or the event) that caused it.
void report(Call& c, int ms, const std::string& line) {
    if (c.response) c.response->after.emplace_back(ms, line);
}

std::string id_text(long id) { return std::to_string(id); }

// 145 for an international number, 129 for any other (3GPP TS 24.008 type of address).
std::string type_of(const std::string& number) { return !number.empty() && number.front() == '+' ? "145" : "129"; }

std::string next_seq(Engine& e) {
    const std::string seq = std::to_string(number(e.var("call_seq")) + 1);
    e.set_var("call_seq", seq);
    return seq;
}

void connect(Call& c, long id, int ms) {
    c.engine.put(kCalls, id, {{"stat", std::to_string(kActive)}, {"start", std::to_string(c.engine.now_ms())}});
    report(c, ms, "^CONN: " + id_text(id) + ",0");
}

// The call ends with its ^CEND: id, seconds since it connected (0 if it never did), end status,
// call-control cause.
void end(Call& c, long id, int cause, int ms) {
    const Engine::Record* rec = find(c.engine, id);
    if (!rec) return;
    const std::string start = field(*rec, "start");
    const long long seconds = start.empty() ? 0 : (c.engine.now_ms() - number(start)) / 1000;
    report(c, ms, "^CEND: " + id_text(id) + "," + std::to_string(seconds) + "," + kEndStatus + "," +
                      std::to_string(cause));
    c.engine.erase(kCalls, id);
}

void end_all(Call& c, const std::vector<long>& ids, int cause) {
    int ms = 0;
    for (long id : ids) end(c, id, cause, ms += 10);
}

// The RING and caller number of an incoming call, and the next ring (or the end of ringing).
void ring_once(Call& c, long id) {
    const Engine::Record* rec = find(c.engine, id);
    if (!rec) return;
    const std::string number_text = field(*rec, "number");
    report(c, 0, "RING");
    if (c.engine.var("clip_n") == "1") report(c, 5, "+CLIP: \"" + number_text + "\"," + field(*rec, "type") + ",,,,0");
    const long rings = number(field(*rec, "rings")) + 1;
    c.engine.put(kCalls, id, {{"rings", std::to_string(rings)}});
    const long auto_answer = number(c.engine.var("s0"));
    const long ring_ms = std::max(100L, number(c.engine.var("ring_ms"), 3000));
    const std::string event = " " + id_text(id) + " " + field(*rec, "seq");
    if (auto_answer > 0 && rings >= auto_answer)
        report(c, 50, "@autoanswer" + event);
    else
        report(c, static_cast<int>(ring_ms), rings >= number(c.engine.var("ring_count"), 10) ? "@missed" + event
                                                                                             : "@ringing" + event);
}

// Whether the event "@NAME ID SEQ" still concerns the call it was scheduled for, in `state`.
bool still(const Call& c, int state) {
    const Engine::Record* rec = find(c.engine, number(arg(c, 0), -1));
    return rec && field(*rec, "seq") == arg(c, 1) && number(field(*rec, "stat"), -1) == state;
}

}  // namespace

// ATD<number>; : a new outgoing call, refused while another call is being set up or is active
// (hold it first). The far end alerts after alert_ms and answers after answer_ms (0: never).
SIM_FUNCTION(dial) {
    Engine& e = call.engine;
    const std::string to = arg(call, 0);
    if (to.empty() || to.find_first_not_of("+0123456789*#") != std::string::npos) return "ERROR";
    if (!calls_in(e, {kActive, kDialing, kAlerting, kIncoming}).empty()) return "+CME ERROR: 3";
    const std::string seq = next_seq(e);
    const auto id = e.put(kCalls, -1, {{"dir", "0"}, {"stat", std::to_string(kDialing)}, {"mpty", "0"},
                                       {"number", to}, {"type", type_of(to)}, {"seq", seq}, {"start", ""}});
    if (!id) return "+CME ERROR: 3";
    const std::string event = " " + id_text(*id) + " " + seq;
    report(call, 20, "^ORIG: " + id_text(*id) + ",0");
    report(call, static_cast<int>(number(e.var("alert_ms"), 500)), "@alert" + event);
    if (const long answer_ms = number(e.var("answer_ms"), 1500); answer_ms > 0)
        report(call, static_cast<int>(answer_ms), "@connect" + event);
    return "OK";
}

// ATA: the incoming call becomes active.
SIM_FUNCTION(answer) {
    const std::vector<long> ringing = calls_in(call.engine, {kIncoming});
    if (ringing.empty()) return "NO CARRIER";
    connect(call, ringing.front(), 20);
    return "OK";
}

// AT+CHUP: every call ends.
SIM_FUNCTION(chup) {
    end_all(call, calls_in(call.engine, {kActive, kHeld, kDialing, kAlerting, kIncoming, kWaiting}), kNormal);
    return "OK";
}

// AT+CHLD=<n> (3GPP TS 22.030): 0 rejects the waiting call or releases the held ones; 1 releases
// the active calls and takes the waiting or held one; 1X releases call X; 2 holds the active calls
// and takes the waiting or held one; 2X keeps only call X active; 3 joins held and active calls.
SIM_FUNCTION(chld) {
    Engine& e = call.engine;
    const std::string op = arg(call, 0);
    const std::vector<long> active = calls_in(e, {kActive}), held = calls_in(e, {kHeld});
    const std::vector<long> waiting = calls_in(e, {kWaiting});
    const char* const refused = "+CME ERROR: 3";
    if (op.empty()) return refused;
    // While a call is being set up, only releasing is possible.
    if (!calls_in(e, {kDialing, kAlerting}).empty() && op != "0" && op.front() != '1') return refused;
    if (op == "0") {
        if (!waiting.empty()) end_all(call, waiting, kRejected);
        else if (!held.empty()) end_all(call, held, kNormal);
        else return refused;
    } else if (op == "1" || op == "2") {
        if (active.empty() && held.empty() && waiting.empty()) return refused;
        if (op == "1") end_all(call, active, kNormal);
        else
            for (long id : active) set_stat(e, id, kHeld);
        if (!waiting.empty()) connect(call, waiting.front(), 20);
        else
            for (long id : held) set_stat(e, id, kActive);
    } else if (op.size() == 2 && op[0] == '1') {
        const long id = op[1] - '0';
        if (!find(e, id)) return refused;
        end(call, id, kNormal, 10);
    } else if (op.size() == 2 && op[0] == '2') {
        const long id = op[1] - '0';
        if (std::find(active.begin(), active.end(), id) == active.end()) return refused;
        for (long other : active)
            if (other != id) set_stat(e, other, kHeld);
    } else if (op == "3") {
        if (active.empty() || held.empty()) return refused;
        for (long id : calls_in(e, {kActive, kHeld})) e.put(kCalls, id, {{"stat", "0"}, {"mpty", "1"}});
    } else {
        return "+CME ERROR: 4";
    }
    return "OK";
}

// @ring NUMBER: a call comes in. With no other call it rings; beside another call it waits (when
// call waiting is on) or the caller hears busy; with unconditional forwarding on it never arrives.
SIM_FUNCTION(ring) {
    Engine& e = call.engine;
    const std::string from = arg(call, 0);
    if (from.empty() || e.var("fwd0_status") == "1") return {};
    const bool busy = !calls_in(e, {kActive, kHeld, kDialing, kAlerting, kIncoming, kWaiting}).empty();
    if (busy && (e.var("ccwa") != "1" || !calls_in(e, {kIncoming, kWaiting}).empty())) return {};
    const auto id = e.put(kCalls, -1, {{"dir", "1"}, {"stat", std::to_string(busy ? kWaiting : kIncoming)},
                                       {"mpty", "0"}, {"number", from}, {"type", type_of(from)},
                                       {"seq", next_seq(e)}, {"start", ""}, {"rings", "0"}});
    if (!id) return {};
    if (!busy) ring_once(call, *id);
    else if (e.var("ccwa_n") == "1") report(call, 0, "+CCWA: \"" + from + "\"," + type_of(from) + ",1");
    return {};
}

// @ringing ID SEQ: the next RING of a call still ringing.
SIM_FUNCTION(ringing) {
    if (still(call, kIncoming)) ring_once(call, number(arg(call, 0)));
    return {};
}

// @missed ID SEQ: nobody answered.
SIM_FUNCTION(missed) {
    if (still(call, kIncoming)) end(call, number(arg(call, 0)), kNoAnswer, 0);
    return {};
}

// @autoanswer ID SEQ: S0 rings have passed.
SIM_FUNCTION(autoanswer) {
    if (still(call, kIncoming)) connect(call, number(arg(call, 0)), 0);
    return {};
}

// @remote_hangup [ID]: the other party ends call ID, or every call.
SIM_FUNCTION(remote_hangup) {
    const std::vector<long> all = calls_in(call.engine, {kActive, kHeld, kDialing, kAlerting, kIncoming, kWaiting});
    if (call.args.empty()) end_all(call, all, kNormal);
    else end(call, number(arg(call, 0), -1), kNormal, 0);
    return {};
}

// AT+CCFC=<reason>,<mode>[,"<number>",<type>,<class>,,,<time>] (3GPP TS 27.007): the settings of
// reasons 0 to 3 (unconditional, busy, no reply, not reachable) persist in fwd<R>_status,
// fwd<R>_number, fwd<R>_type, fwd<R>_class and fwd<R>_time; reason 4 is all of them and 5 the
// conditional ones. Mode 0 disables, 1 enables, 2 queries, 3 registers a number, 4 erases it.
SIM_FUNCTION(ccfc) {
    Engine& e = call.engine;
    const long reason = number(arg(call, 0), -1), mode = number(arg(call, 1), -1);
    const char* const refused = "+CME ERROR: 3";
    std::vector<long> reasons;
    if (reason >= 0 && reason <= 3) reasons = {reason};
    else if (reason == 4) reasons = {0, 1, 2, 3};
    else if (reason == 5) reasons = {1, 2, 3};
    if (reasons.empty() || mode < 0 || mode > 4) return refused;
    auto var = [&](long r, const char* what) { return "fwd" + std::to_string(r) + "_" + what; };
    if (mode == 2) {
        if (reasons.size() != 1 || !call.response) return refused;
        if (e.var(var(reason, "status")) != "1") {
            call.response->lines.push_back("+CCFC: 0,7");
            return "OK";
        }
        std::string line = "+CCFC: 1," + e.var(var(reason, "class")) + ",\"" + e.var(var(reason, "number")) + "\"," +
                           e.var(var(reason, "type"));
        if (reason == 2) line += ",,," + e.var(var(reason, "time"));
        call.response->lines.push_back(line);
        return "OK";
    }
    const std::string to = arg(call, 2);
    if ((mode == 1 || mode == 3) && to.empty() && e.var(var(reasons.front(), "number")).empty()) return refused;
    for (long r : reasons) {
        if (mode == 4) e.set_var(var(r, "number"), "");
        if ((mode == 1 || mode == 3) && !to.empty()) {
            e.set_var(var(r, "number"), to);
            e.set_var(var(r, "type"), arg(call, 3).empty() ? type_of(to) : arg(call, 3));
            e.set_var(var(r, "class"), arg(call, 4).empty() ? "1" : arg(call, 4));
            if (!arg(call, 5).empty()) e.set_var(var(r, "time"), arg(call, 5));
        }
        e.set_var(var(r, "status"), mode == 1 || mode == 3 ? "1" : "0");
    }
    return "OK";
}

}  // namespace sim
