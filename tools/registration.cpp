// registration.cpp - `atctl registration`: how the modem is registered and attached.
#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "cli.h"

namespace atctl {
namespace {

struct Code {
    long code;
    std::string_view text;
};

template <size_t N>
std::optional<std::string_view> lookup(const std::array<Code, N>& table, long code) {
    for (const Code& c : table)
        if (c.code == code) return c.text;
    return std::nullopt;
}

// "<meaning> (<code>)", or the code alone when the table does not know it.
template <size_t N>
std::string coded(const std::array<Code, N>& table, long code) {
    const std::optional<std::string_view> t = lookup(table, code);
    return t ? std::string(*t) + " (" + std::to_string(code) + ")" : "code " + std::to_string(code);
}

template <size_t N>
JsonValue coded_json(const std::array<Code, N>& table, long code) {
    const std::optional<std::string_view> t = lookup(table, code);
    return t ? JsonValue{std::string(*t)} : JsonValue{nullptr};
}

// Registration state of +CREG, +CGREG and +CEREG.
constexpr std::array kRegStat{
    Code{0,  "not registered, not searching"},
    Code{1,  "registered, home network"},
    Code{2,  "not registered, searching"},
    Code{3,  "registration denied"},
    Code{4,  "unknown"},
    Code{5,  "registered, roaming"},
    Code{6,  "registered for SMS only, home network"},
    Code{7,  "registered for SMS only, roaming"},
    Code{8,  "emergency services only"},
    Code{9,  "registered, home network, CSFB not preferred"},
    Code{10, "registered, roaming, CSFB not preferred"},
};

constexpr std::array kRegReportMode{
    Code{0, "off"},
    Code{1, "on"},
    Code{2, "on, with location"},
    Code{3, "on, with location and cause"},
};

// Access technology of the registration replies.
constexpr std::array kAct{
    Code{0,  "GSM"},
    Code{1,  "GSM compact"},
    Code{2,  "UTRAN"},
    Code{3,  "GSM with EGPRS"},
    Code{4,  "UTRAN with HSDPA"},
    Code{5,  "UTRAN with HSUPA"},
    Code{6,  "UTRAN with HSDPA and HSUPA"},
    Code{7,  "E-UTRAN"},
    Code{8,  "EC-GSM-IoT"},
    Code{9,  "E-UTRAN NB-S1"},
    Code{10, "E-UTRA connected to 5GCN"},
    Code{11, "NR connected to 5GCN"},
    Code{12, "NG-RAN"},
    Code{13, "E-UTRA-NR dual connectivity"},
};

constexpr std::array kAttach{
    Code{0, "detached"},
    Code{1, "attached"},
};

// ^SYSINFOEX codes.
constexpr std::array kSrvStatus{
    Code{0, "no service"},
    Code{1, "restricted service"},
    Code{2, "valid service"},
    Code{3, "restricted regional service"},
    Code{4, "power saving"},
};

constexpr std::array kSrvDomain{
    Code{0, "no service"},
    Code{1, "CS only"},
    Code{2, "PS only"},
    Code{3, "PS and CS"},
    Code{4, "searching"},
};

constexpr std::array kRoam{
    Code{0, "not roaming"},
    Code{1, "roaming"},
};

constexpr std::array kSimState{
    Code{0,   "invalid"},
    Code{1,   "valid"},
    Code{2,   "invalid for CS"},
    Code{3,   "invalid for PS"},
    Code{4,   "invalid for CS and PS"},
    Code{240, "ROM SIM"},
    Code{255, "no SIM"},
};

constexpr std::array kSimLock{
    Code{0, "not locked"},
    Code{1, "locked"},
};

// Mobility-management reject causes a registration most often ends with.
constexpr std::array kRejectCause{
    Code{2,  "IMSI unknown in HLR"},
    Code{3,  "illegal MS"},
    Code{5,  "IMEI not accepted"},
    Code{6,  "illegal ME"},
    Code{7,  "GPRS services not allowed"},
    Code{8,  "GPRS and non-GPRS services not allowed"},
    Code{11, "PLMN not allowed"},
    Code{12, "location area not allowed"},
    Code{13, "roaming not allowed in this location area"},
    Code{14, "GPRS services not allowed in this PLMN"},
    Code{15, "no suitable cells in location area"},
    Code{17, "network failure"},
    Code{22, "congestion"},
};

// A hexadecimal area or cell code with its decimal value beside it.
std::string hex_code_text(const std::string& hex) {
    if (hex.empty() || hex.size() > 15) return hex;
    unsigned long long v = 0;
    for (const char c : hex) {
        int d;
        if (c >= '0' && c <= '9') d = c - '0';
        else if (c >= 'a' && c <= 'f') d = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F') d = c - 'A' + 10;
        else return hex;
        v = v * 16 + static_cast<unsigned long long>(d);
    }
    return hex + " (" + std::to_string(v) + ")";
}

// The common part of +CREG, +CGREG and +CEREG. `act` is null for +CEREG, which has none.
void registration_fields(Section& s, int n, int stat, const std::string& lac, const std::string& ci,
                         const std::string* act) {
    s.field("stat", coded(kRegStat, stat), true);
    s.field("reports", coded(kRegReportMode, n));
    if (!lac.empty()) s.field("lac", hex_code_text(lac), true);
    if (!ci.empty()) s.field("ci", hex_code_text(ci), true);
    std::optional<long> act_code;
    if (act != nullptr && !act->empty()) {
        const std::string& a = *act;
        if (a.find_first_not_of("0123456789") == std::string::npos && a.size() < 4) act_code = std::stol(a);
        s.field("act", act_code ? coded(kAct, *act_code) : a, true);
    }
    s.json("n", static_cast<long>(n)).json("stat", static_cast<long>(stat));
    s.json("stat_text", coded_json(kRegStat, stat));
    s.json("lac", lac).json("ci", ci);
    if (act != nullptr) s.json("act", act_code ? JsonValue{*act_code} : JsonValue{nullptr});
}

void read_creg(Report& report) {
    Section& s = report.section("creg", "circuit-switched registration (+CREG)", "creg");
    if (s.skipped()) return;
    LacCellid rec{};
    rec.AtExeResult = kUnset;
    const int rc = AT_Creg(0, &rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    const std::string act = field_text(rec.act);
    registration_fields(s, rec.n, rec.stat, field_text(rec.lac), field_text(rec.ci), &act);
}

void read_cgreg(Report& report) {
    Section& s = report.section("cgreg", "packet registration (+CGREG)", "cgreg");
    if (s.skipped()) return;
    CgregRsp rec{};
    rec.AtExeResult = kUnset;
    const int rc = AT_Cgreg(0, &rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    const std::string act = field_text(rec.act);
    registration_fields(s, rec.ReportMode, rec.ReportState, field_text(rec.LacCode), field_text(rec.CellID), &act);
}

void read_cereg(Report& report) {
    Section& s = report.section("cereg", "EPS registration (+CEREG)", "cereg");
    if (s.skipped()) return;
    CeregRsp rec{};
    rec.AtExeResult = kUnset;
    const int rc = AT_Cereg(0, &rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    registration_fields(s, rec.ReportMode, rec.ReportState, field_text(rec.LacCode), field_text(rec.CellID), nullptr);
}

void read_cgatt(Report& report) {
    Section& s = report.section("cgatt", "packet attach (+CGATT)", "cgatt");
    if (s.skipped()) return;
    PsAttatch rec{};
    rec.AtExeResult = kUnset;
    const int rc = AT_Cgatt(0, &rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    s.field("state", coded(kAttach, rec.state), true);
    s.json("state", static_cast<long>(rec.state)).json("attached", rec.state == 1);
}

void read_sysinfoex(Report& report) {
    Section& s = report.section("sysinfoex", "system information (^SYSINFOEX, as cached for the router)", "sysinfoex");
    if (s.skipped()) return;
    SysinfoEx rec{};
    rec.AtExeResult = kUnset;
    const int rc = AT_SysInfoEx(&rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    const std::string mode_name = field_text(rec.SysModeName);
    const std::string sub_name = field_text(rec.SubModeName);
    s.field("service", coded(kSrvStatus, rec.SrvStatus), true);
    s.field("domain", coded(kSrvDomain, rec.SrvDomain));
    s.field("roaming", coded(kRoam, rec.RoamStatus), true);
    s.field("sim", coded(kSimState, rec.SimState), true);
    s.field("simlock", coded(kSimLock, rec.SimLockState));
    s.field("sysmode", (mode_name.empty() ? "" : mode_name + " ") + "(" + std::to_string(rec.SysMode) + ")", true);
    s.field("submode", (sub_name.empty() ? "" : sub_name + " ") + "(" + std::to_string(rec.SubMode) + ")", true);
    s.json("srv_status", static_cast<long>(rec.SrvStatus)).json("srv_domain", static_cast<long>(rec.SrvDomain));
    s.json("roam_status", static_cast<long>(rec.RoamStatus)).json("sim_state", static_cast<long>(rec.SimState));
    s.json("sim_lock_state", static_cast<long>(rec.SimLockState)).json("sysmode", static_cast<long>(rec.SysMode));
    s.json("sysmode_name", mode_name).json("submode", static_cast<long>(rec.SubMode)).json("submode_name", sub_name);
}

void read_rejinfoex(Report& report) {
    Section& s = report.section("rejinfoex", "last registration reject (^REJINFO)", "rejinfo");
    if (s.skipped()) return;
    REJECT_INFOEX rec{};
    rec.AtExeResult = kUnset;
    const int rc = AT_RejinfoexCommand(&rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    const std::string plmn = field_text(rec.plmnid);
    s.field("plmn", plmn.empty() ? "none" : plmn, true);
    s.field("domain", std::to_string(rec.srvdomain));
    s.field("cause", coded(kRejectCause, static_cast<long>(rec.rejectcause)), true);
    s.field("rat", std::to_string(rec.rattype));
    s.json("plmnid", plmn).json("srvdomain", static_cast<long>(rec.srvdomain));
    s.json("rejectcause", static_cast<long>(rec.rejectcause)).json("rejectcause_text", coded_json(kRejectCause, rec.rejectcause));
    s.json("rattype", static_cast<long>(rec.rattype));
}

}  // namespace

void run_registration(const Invocation&, Report& report) {
    read_creg(report);
    read_cgreg(report);
    read_cereg(report);
    read_cgatt(report);
    read_sysinfoex(report);
    read_rejinfoex(report);
}

ATCTL_SUBCOMMAND({.name = "registration",
                  .summary = "registration, attach, system information, last reject",
                  .help = "Reads +CREG, +CGREG, +CEREG, +CGATT, the router's cached ^SYSINFOEX (asking\n"
                          "the modem when nothing is cached yet) and ^REJINFO. Nothing is set: a\n"
                          "registration whose reports are off shows no location.\n",
                  .order = 20,
                  .run = run_registration,
                  .in_status = true});

}  // namespace atctl
