// operators.cpp - `atctl operators`: the registered operator and its names, a search for the
// networks around, and a selection by numeric code or back to automatic.
//
// The library hands the +COPS values on as the modem's texts; they are named here with the code
// beside. Lists come out in JSON as members numbered from 1, with their count.
#include <array>
#include <string>
#include <string_view>

#include "cli.h"
#include "names.h"

namespace atctl {
namespace {

constexpr std::array kCopsModes{
    Name{"0", "automatic"},    Name{"1", "manual"}, Name{"2", "deregistered"},
    Name{"3", "format only"}, Name{"4", "manual, else automatic"},
};

constexpr std::array kCopsFormats{Name{"0", "long name"}, Name{"1", "short name"}, Name{"2", "numeric"}};

constexpr std::array kOperatorStates{
    Name{"0", "unknown"}, Name{"1", "available"}, Name{"2", "current"}, Name{"3", "forbidden"},
};

// The access technologies +COPS selects by.
constexpr std::array kCopsRats{Name{"0", "GSM"}, Name{"2", "UTRAN"}, Name{"7", "E-UTRAN"}};

void read_cops(Report& report) {
    Section& s = report.section("cops", "registered operator (+COPS?)", "cops");
    if (s.skipped()) return;
    NetChooseOperatorParam rec{};
    if (!s.check(AT_Cops(&rec))) return;
    const std::string mode = field_text(rec.Mode), format = field_text(rec.Format);
    const std::string oper = field_text(rec.OperatorName), rat = field_text(rec.Rat);
    s.field("mode", named(kCopsModes, mode), true);
    if (!oper.empty()) s.field("operator", oper, true).field("format", named(kCopsFormats, format));
    if (!rat.empty()) s.field("rat", named(kCopsRats, rat), true);
    s.json("mode", mode).json("format", format).json("oper", oper).json("rat", rat);
    s.json("registered", !oper.empty());
}

void read_eons(Report& report) {
    Section& s = report.section("eons", "network name (^EONS)", "eons");
    if (s.skipped()) return;
    NetEonsResult rec{};
    if (!s.check(AT_Eons(1, nullptr, &rec))) return;
    const std::string plmn = field_text(rec.plmn_id), name = field_text(rec.plmn_long);
    const std::string short_name = field_text(rec.plmn_short), spn = field_text(rec.spn_name);
    s.field("plmn", plmn, true).field("name", name, true).field("short", short_name);
    if (!spn.empty()) s.field("spn", spn);
    s.json("type", static_cast<long>(rec.type)).json("plmn_id", plmn).json("plmn_long", name);
    s.json("plmn_short", short_name).json("spn_cond", static_cast<long>(rec.spn_cond)).json("spn", spn);
}

void search(Report& report) {
    Section& s = report.section("cops_search", "operator search (+COPS=?)", "search");
    if (s.skipped()) return;
    progress("searching for networks; this can take a minute or two...");
    OperatorList list{};
    NetChooseOperatorResult rec{};
    rec.TotalOper = &list;
    rec.AtExeResult = kUnset;
    const int rc = AT_ChoseOperators(2, nullptr, &rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    const int n = list.OperatorNumber;
    s.field("found", std::to_string(n) + (n == AT_COPS_MAX_OPERATORS ? " (the most the library keeps)" : ""), true);
    s.json("OperatorNumber", static_cast<long>(n));
    for (int i = 0; i < n; ++i) {
        const OperatorInfo& op = list.Operator[i];
        const std::string numeric = field_text(op.numeric), long_name = field_text(op.LongAlphanumeric);
        const std::string short_name = field_text(op.ShortAlphanumeric), state = field_text(op.State);
        const std::string rat = field_text(op.Rat);
        s.field(numeric.empty() ? "?" : numeric, long_name + (short_name.empty() ? "" : " (" + short_name + ")") + ", " +
                                                     named(kOperatorStates, state) + ", " + named(kCopsRats, rat));
        const std::string k = "_" + std::to_string(i + 1);
        s.json("numeric" + k, numeric).json("long" + k, long_name).json("short" + k, short_name);
        s.json("state" + k, state).json("rat" + k, rat);
    }
}

// A numeric operator code: three digits of country and two or three of network.
bool operator_code(const std::string& s) {
    return (s.size() == 5 || s.size() == 6) && s.find_first_not_of("0123456789") == std::string::npos;
}

void select(const Invocation& inv, Report& report) {
    const std::string target = inv.arg(1);
    const bool automatic = target == "auto";
    if (!automatic && !operator_code(target)) throw UsageError("select needs a numeric operator code (5 or 6 digits) or 'auto'");
    const std::string rat = inv.option("--rat").value_or("");
    if (!rat.empty() && lookup(kCopsRats, rat).empty()) throw UsageError("--rat takes 0 (GSM), 2 (UTRAN) or 7 (E-UTRAN)");
    if (automatic && !rat.empty()) throw UsageError("--rat goes with an operator code, not with 'auto'");

    Section& s = report.section("cops_select", "operator selection (+COPS=)", "select");
    if (s.skipped()) return;
    NetChooseOperatorParam param{};
    // Automatic selection has no operator: mode 0 with the numeric format and an empty name.
    const std::string mode = automatic ? "0" : "1";
    param.Mode[0] = mode[0];
    param.Format[0] = '2';
    target.copy(param.OperatorName, automatic ? 0 : target.size());
    rat.copy(param.Rat, rat.size());
    NetChooseOperatorResult rec{};
    rec.AtExeResult = kUnset;
    progress(automatic ? "returning to automatic selection..." : "registering on " + target + "...");
    const int rc = AT_ChoseOperators(1, &param, &rec);
    s.field("asked", automatic ? "automatic selection" : target + (rat.empty() ? "" : ", " + named(kCopsRats, rat)), true);
    s.json("mode", mode).json("oper", automatic ? "" : target).json("rat", rat);
    if (!s.check(rc, rec.AtExeResult)) return;
    read_cops(report);
}

}  // namespace

void run_operators(const Invocation& inv, Report& report) {
    const std::string action = inv.args.empty() ? "current" : inv.arg(0);
    if (action != "select" && inv.has("--rat")) throw UsageError("--rat goes with 'select'");
    if (action == "current") {
        if (inv.args.size() > 1) throw UsageError("'current' takes no argument");
        read_cops(report);
        read_eons(report);
    } else if (action == "search") {
        if (inv.args.size() > 1) throw UsageError("'search' takes no argument");
        search(report);
    } else if (action == "select") {
        if (inv.args.size() != 2) throw UsageError("select needs an operator code or 'auto'");
        select(inv, report);
    } else {
        throw UsageError("unknown action '" + action + "': current, search or select");
    }
}

ATCTL_SUBCOMMAND({.name = "operators",
                  .summary = "the registered operator, a search for networks, a selection",
                  .usage = "[current | search | select CODE|auto [--rat R]]",
                  .help = "  current          +COPS? and the network's names (^EONS); the default\n"
                          "  search           lists the networks around (+COPS=?); takes up to a few\n"
                          "                   minutes on a live network, with a progress line meanwhile\n"
                          "  select CODE      registers on the network with this numeric code (manual\n"
                          "                   selection), then reads +COPS? again; changes the modem's state\n"
                          "  select auto      back to automatic selection\n"
                          "  --rat R          with select CODE: the access technology, 0 GSM, 2 UTRAN, 7 E-UTRAN\n",
                  .order = 25,
                  .options = "--rat R",
                  .max_args = 2,
                  .run = run_operators});

}  // namespace atctl
