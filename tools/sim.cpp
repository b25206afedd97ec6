// sim.cpp - `atctl sim`: the SIM's state, identity and service-provider name, and `atctl sim pin
// ACTION` to enter, change, switch or unblock the PIN.
//
// An action reads the attempt counters first and refuses to spend the last attempt unless told
// to (--force): a wrong code then blocks the SIM (PIN) or kills it for good (PUK). Codes come
// from standard input or a file, are checked for their form before the modem sees them, and are
// wiped from every buffer that held one.
#include <string.h>

#include <optional>
#include <string>
#include <string_view>

#include "cli.h"

namespace atctl {
namespace {

// ---- Reading -------------------------------------------------------------------------------------

std::optional<long> counter(const char (&text)[8]) { return number(field_text(text)); }

JsonValue counter_json(const char (&text)[8]) {
    const std::optional<long> v = counter(text);
    return v ? JsonValue{*v} : JsonValue{nullptr};
}

std::string counter_text(const char (&text)[8]) {
    const std::optional<long> v = counter(text);
    return v ? std::to_string(*v) : "not reported";
}

// The state word and the counters of ^CPIN, as the modem gave them. Null on a failed read.
struct PinState {
    std::string state;
    std::optional<long> pin_left, puk_left;
};

PinState pin_state_of(const PinMgResultCodeEx& r) {
    return {field_text(r.Code), counter(r.ResTimes.ResPinTimes), counter(r.ResTimes.ResPukTimes)};
}

std::optional<PinState> read_cpin(Report& report) {
    Section& s = report.section("cpin", "PIN state (^CPIN)", "cpin");
    if (s.skipped()) return std::nullopt;
    PinMgResultCodeEx rec{};
    rec.AtExeResult = kUnset;
    const int rc = AT_PinManagementEx(AT_CHECK_VALUE, nullptr, nullptr, &rec);
    if (!s.check(rc, rec.AtExeResult)) return std::nullopt;
    const PinResTimes& t = rec.ResTimes;
    s.field("state", field_text(rec.Code), true);
    s.field("pin attempts", counter_text(t.ResPinTimes), true).field("puk attempts", counter_text(t.ResPukTimes), true);
    s.field("pin2 attempts", counter_text(t.ResPin2Times)).field("puk2 attempts", counter_text(t.ResPuk2Times));
    s.json("state", field_text(rec.Code)).json("times", counter_json(t.ResTimes));
    s.json("pin_times", counter_json(t.ResPinTimes)).json("puk_times", counter_json(t.ResPukTimes));
    s.json("pin2_times", counter_json(t.ResPin2Times)).json("puk2_times", counter_json(t.ResPuk2Times));
    return pin_state_of(rec);
}

// Wiped however the scope is left: the record carries the PIN as its password.
struct LockRequest {
    PinEnStruct param{};
    LockRequest(const char* mode, const char* pin) {
        strncpy(param.Fac, "SC", sizeof param.Fac - 1);
        strncpy(param.Mode, mode, sizeof param.Mode - 1);
        if (pin) strncpy(param.Passwd, pin, sizeof param.Passwd - 1);
    }
    ~LockRequest() { explicit_bzero(&param, sizeof param); }
    LockRequest(const LockRequest&) = delete;
    LockRequest& operator=(const LockRequest&) = delete;
};

std::optional<bool> read_lock(Report& report) {
    Section& s = report.section("clck", "PIN lock (+CLCK \"SC\")", "lock");
    if (s.skipped()) return std::nullopt;
    LockRequest q("2", nullptr);
    PinEnableResult rec{};
    rec.AtExeResult = kUnset;
    const int rc = AT_PinEnableDisableCmd(AT_SET_VALUE, &q.param, &rec);
    if (!s.check(rc, rec.AtExeResult)) return std::nullopt;
    const std::string status = field_text(rec.Status);
    const bool on = status == "1";
    s.field("pin lock", status == "1" ? "on" : status == "0" ? "off" : "status " + status, true);
    s.json("status", status).json("enabled", status == "1" || status == "0" ? JsonValue{on} : JsonValue{nullptr});
    return on;
}

void read_cardmode(Report& report) {
    Section& s = report.section("cardmode", "card (^CARDMODE)", "card");
    if (s.skipped()) return;
    ST_AT_CARDMODE rec{};
    rec.AtExeResult = kUnset;
    const int rc = AT_cardmode(&rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    static constexpr std::string_view kModes[] = {"no card", "SIM", "USIM", "CSIM", "UIM"};
    const long mode = static_cast<long>(rec.AtFieldValue);
    const bool known = mode >= 0 && mode < 5;
    s.field("card", (known ? std::string(kModes[mode]) : "unknown") + " (" + std::to_string(mode) + ")", true);
    s.json("sim_type", mode).json("card", known ? JsonValue{std::string(kModes[mode])} : JsonValue{nullptr});
}

void read_iccid(Report& report) {
    Section& s = report.section("iccid", "card identity (^ICCID)", "iccid");
    if (s.skipped()) return;
    StIccid rec{};
    rec.AtExeResult = kUnset;
    const int rc = AT_Iccid(&rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    s.field("iccid", field_text(rec.iccid), true);
    s.json("iccid", field_text(rec.iccid));
}

void read_cnum(Report& report) {
    Section& s = report.section("cnum", "own numbers (+CNUM)", "cnum");
    if (s.skipped()) return;
    StSetCunmInfo rec{};
    rec.AtExeResult = kUnset;
    const int rc = AT_Cnum(&rec);
    const bool ok = s.check(rc, rec.AtExeResult);
    if (ok) {
        if (rec.num == 0) s.field("number", "none stored", true);
        for (int i = 0; i < rec.num && rec.pInfos; ++i) {
            const StCnumInfo& e = rec.pInfos[i];
            const std::string name = field_text(e.name);
            s.field("number", field_text(e.num) + (name.empty() ? "" : " (" + name + ")"), true);
        }
        // The first number; scripts that need all of them ask the modem line by line.
        const bool any = rec.num > 0 && rec.pInfos;
        s.json("count", static_cast<long>(rec.num));
        s.json("number", any ? JsonValue{field_text(rec.pInfos[0].num)} : JsonValue{nullptr});
        s.json("name", any ? JsonValue{field_text(rec.pInfos[0].name)} : JsonValue{nullptr});
        s.json("type", any ? JsonValue{static_cast<long>(rec.pInfos[0].type)} : JsonValue{nullptr});
    }
    ATS_FreeMemory(rec.pInfos);
}

void read_spn(Report& report) {
    Section& s = report.section("spn", "service-provider name (^SPN)", "spn");
    if (s.skipped()) return;
    nvramcontnetres rec{};
    rec.AtExeResult = kUnset;
    const int rc = at_spn_get(&rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    const std::string name = field_text(rec.Code);
    s.field("name", name.empty() ? "none (or not decodable)" : name, true);
    s.json("name", name);
}

void read_mnc_length(Report& report) {
    Section& s = report.section("mnc_length", "MNC length (EF AD)", "mnc");
    if (s.skipped()) return;
    const int n = AT_get_mnc_length();
    if (!s.check(n < 0 ? -1 : 0)) return;
    s.field("mnc length", std::to_string(n) + " digits", true);
    s.json("mnc_length", static_cast<long>(n));
}

// ---- Actions -------------------------------------------------------------------------------------

enum class Action { enter, change, enable, disable, unblock };

struct ActionName {
    std::string_view name;
    Action action;
};
constexpr ActionName kActions[] = {
    {"enter", Action::enter}, {"change", Action::change}, {"enable", Action::enable},
    {"disable", Action::disable}, {"unblock", Action::unblock},
};

// A code of the form the SIM takes: `min` to `max` digits.
void check_code(const Secret& code, std::string_view what, size_t min, size_t max) {
    const std::string_view v = code.c_str();
    const bool digits = v.find_first_not_of("0123456789") == std::string_view::npos;
    if (!digits || v.size() < min || v.size() > max)
        throw UsageError(std::string(what) + " must be " + std::to_string(min) + " to " + std::to_string(max) + " digits");
}

std::string attempts_text(std::optional<long> n) {
    if (!n) return "attempts left not reported";
    return std::to_string(*n) + (*n == 1 ? " attempt left" : " attempts left");
}

// The counters, read without a report section: the decision before an action.
PinState current_state() {
    PinMgResultCodeEx rec{};
    rec.AtExeResult = kUnset;
    if (AT_PinManagementEx(AT_CHECK_VALUE, nullptr, nullptr, &rec) != 0 || rec.AtExeResult != AT_CMD_RES_SUCCESS)
        throw Failure("cannot read the PIN state (^CPIN) before acting: nothing done");
    return pin_state_of(rec);
}

// What the modem's answer to a code means.
std::string refusal(int rc, AT_AMSS_RES result, std::string_view code) {
    if (rc != 0 || result == kUnset) return "no usable answer from the modem";
    if (result == AT_CMD_RES_ERR) return "wrong " + std::string(code);
    if (result == AT_CMD_RES_PUK_REQ) return "wrong " + std::string(code) + ": the SIM is blocked and asks for the PUK";
    return "the modem refused: " + result_name(result);
}

void run_pin(const Invocation& inv, Report& report) {
    const std::string name = inv.arg(1);
    const ActionName* found = nullptr;
    for (const ActionName& a : kActions)
        if (a.name == name) found = &a;
    if (!found) throw UsageError("'sim pin' needs an action: enter, change, enable, disable or unblock");
    const Action action = found->action;
    const bool puk = action == Action::unblock;

    // Every code is read and checked before the modem is asked anything.
    std::optional<Secret> first, second;
    first.emplace(inv, puk ? "PUK" : action == Action::change ? "current PIN" : "PIN", puk ? "--puk-file" : "--pin-file");
    check_code(*first, puk ? "the PUK" : "the PIN", puk ? 8 : 4, 8);
    if (action == Action::change || puk) {
        second.emplace(inv, "new PIN", "--new-pin-file");
        check_code(*second, "the new PIN", 4, 8);
    }

    const PinState before = current_state();
    const std::string want = puk ? "SIM PUK" : action == Action::enter ? "SIM PIN" : "READY";
    if (before.state != want) {
        if (before.state == "SIM PUK") throw Failure("the SIM is blocked and asks for the PUK: use 'atctl sim pin unblock'");
        if (before.state == "SIM PIN") throw Failure("the SIM asks for its PIN first: use 'atctl sim pin enter'");
        throw Failure("the SIM is in state '" + before.state + "', not '" + want + "': nothing to do");
    }
    const std::optional<long> left = puk ? before.puk_left : before.pin_left;
    if (left && *left < 1) throw Failure(std::string("no ") + (puk ? "PUK" : "PIN") + " attempts left: nothing done");
    if (left && *left == 1 && !inv.has("--force"))
        throw Failure(puk ? "one PUK attempt left: a wrong PUK makes the SIM unusable for good; add --force to try"
                          : "one PIN attempt left: a wrong PIN blocks the SIM (PUK needed); add --force to try");
    if (action == Action::enable || action == Action::disable) {
        const std::optional<bool> on = read_lock(report);
        if (on && *on == (action == Action::enable))
            throw Failure(std::string("the PIN lock is already ") + (*on ? "on" : "off") + ": nothing done");
    }

    int rc = -1;
    AT_AMSS_RES result = kUnset;
    std::string done;
    switch (action) {
    case Action::enter: {
        progress("entering the PIN");
        PinMgResultCode rec{};
        rec.AtExeResult = kUnset;
        rc = AT_PinManagement(AT_SET_VALUE, first->data(), nullptr, &rec);
        result = rec.AtExeResult;
        done = "PIN accepted";
        break;
    }
    case Action::unblock: {
        progress("unblocking the SIM with the PUK");
        PinMgResultCode rec{};
        rec.AtExeResult = kUnset;
        rc = AT_PinManagement(AT_SET_VALUE, first->data(), second->data(), &rec);
        result = rec.AtExeResult;
        done = "PUK accepted, new PIN set";
        break;
    }
    case Action::change: {
        progress("changing the PIN");
        PinModifyResultCode rec{kUnset};
        char fac[] = "SC";
        rc = AT_PinModify(fac, first->data(), second->data(), &rec);
        result = rec.AtExeResult;
        done = "PIN changed";
        break;
    }
    case Action::enable:
    case Action::disable: {
        const bool on = action == Action::enable;
        progress(on ? "switching the PIN lock on" : "switching the PIN lock off");
        LockRequest req(on ? "1" : "0", first->c_str());
        PinEnableResult rec{};
        rec.AtExeResult = kUnset;
        rc = AT_PinEnableDisableCmd(AT_SET_VALUE, &req.param, &rec);
        result = rec.AtExeResult;
        done = on ? "PIN lock on" : "PIN lock off";
        break;
    }
    }

    const bool ok = rc == 0 && result == AT_CMD_RES_SUCCESS;
    if (!ok) {
        // The counters after the attempt tell how many are left.
        std::string why = refusal(rc, result, puk ? "PUK" : "PIN");
        try {
            const PinState after = current_state();
            why += ", " + attempts_text(puk ? after.puk_left : after.pin_left) + " (state " + after.state + ")";
        } catch (const Failure&) {
        }
        throw Failure(why);
    }
    Section& s = report.section("pin", "PIN action", "pin");
    s.field("done", done, true);
    s.json("action", std::string(found->name)).json("done", done);
    read_cpin(report);
}

void run_sim(const Invocation& inv, Report& report) {
    if (!inv.args.empty()) {
        if (inv.arg(0) != "pin") throw UsageError("unknown 'sim' argument '" + inv.arg(0) + "': only 'pin ACTION'");
        run_pin(inv, report);
        return;
    }
    if (inv.has("--force") || inv.has("--pin-file") || inv.has("--puk-file") || inv.has("--new-pin-file"))
        throw UsageError("the code options go with 'sim pin ACTION'");
    read_cpin(report);
    read_lock(report);
    read_cardmode(report);
    read_iccid(report);
    read_cnum(report);
    read_spn(report);
    read_mnc_length(report);
}

}  // namespace

ATCTL_SUBCOMMAND({.name = "sim",
                  .summary = "the SIM: PIN state, identity, own number, provider name; PIN actions",
                  .usage = "[pin enter|change|enable|disable|unblock] [--pin-file F] [--puk-file F] [--new-pin-file F] [--force]",
                  .help = "Without arguments reads ^CPIN (state and attempts left), the PIN lock, the card mode,\n"
                          "^ICCID, +CNUM, the service-provider name (decoded to UTF-8) and the MNC length.\n"
                          "\n"
                          "'sim pin ACTION' acts on the PIN, reading the codes from standard input (one per\n"
                          "line, in the order below) or from the files named:\n"
                          "  enter     the PIN (--pin-file)\n"
                          "  change    the current PIN (--pin-file), then the new one (--new-pin-file)\n"
                          "  enable    switch the PIN lock on, with the PIN (--pin-file)\n"
                          "  disable   switch the PIN lock off, with the PIN (--pin-file)\n"
                          "  unblock   the PUK (--puk-file), then a new PIN (--new-pin-file)\n"
                          "PINs have 4 to 8 digits, the PUK 8. With one attempt left atctl does not try\n"
                          "unless --force is given. A wrong code exits 1 and says how many attempts remain.\n",
                  .order = 40,
                  .options = "--pin-file F --puk-file F --new-pin-file F --force",
                  .min_args = 0,
                  .max_args = 2,
                  .run = run_sim});

}  // namespace atctl
