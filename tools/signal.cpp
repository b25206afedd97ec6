// signal.cpp - `atctl signal`: the modem's view of the radio link.
//
// The library hands every number on as the modem printed it; turning the coded values into
// dBm and dB is this tool's business. Values that are codes are shown converted with the raw
// code beside them, so a reading can always be checked against the modem's own manual.
#include <array>
#include <charconv>
#include <optional>
#include <string>
#include <string_view>

#include "cli.h"

namespace atctl {
namespace {

// ---- +CSQ ------------------------------------------------------------------------------------

constexpr unsigned kCsqUnknown = 99;

// Bit-error classes 0 to 7 of +CSQ, as error rate ranges.
constexpr std::array<std::string_view, 8> kBerClasses{
    "below 0.2 %", "0.2 to 0.4 %", "0.4 to 0.8 %", "0.8 to 1.6 %",
    "1.6 to 3.2 %", "3.2 to 6.4 %", "6.4 to 12.8 %", "above 12.8 %",
};

// +CSQ codes 0 to 31 stand for -113 dBm and up in steps of 2 dB; the two ends are open.
std::optional<long> csq_dbm(unsigned raw) {
    if (raw > 31) return std::nullopt;
    return -113 + 2 * static_cast<long>(raw);
}

std::string csq_rssi_text(unsigned raw) {
    const std::string tail = " (raw " + std::to_string(raw) + ")";
    if (raw == kCsqUnknown) return "unknown" + tail;
    const std::optional<long> dbm = csq_dbm(raw);
    if (!dbm) return "invalid" + tail;
    std::string text = std::to_string(*dbm) + " dBm";
    if (raw == 0) text += " or less";
    if (raw == 31) text += " or more";
    return text + tail;
}

std::string ber_text(unsigned raw) {
    const std::string tail = " (raw " + std::to_string(raw) + ")";
    if (raw == kCsqUnknown) return "unknown" + tail;
    if (raw < kBerClasses.size()) return std::string(kBerClasses[raw]) + tail;
    return "invalid" + tail;
}

void read_csq(Report& report) {
    Section& s = report.section("csq", "signal quality (+CSQ)", "csq");
    if (s.skipped()) return;
    AT_CSQ_ST rec{};
    if (!s.check(AT_Csq(&rec))) return;
    const std::optional<long> dbm = csq_dbm(rec.rssi);
    s.field("rssi", csq_rssi_text(rec.rssi), true).field("ber", ber_text(rec.ber), true);
    s.json("rssi", static_cast<long>(rec.rssi))
        .json("rssi_dbm", dbm ? JsonValue{*dbm} : JsonValue{nullptr})
        .json("ber", static_cast<long>(rec.ber));
}

// ---- ^HCSQ -----------------------------------------------------------------------------------

// A coded ^HCSQ value: code 1 is the lower bound of the first step (base + step), code 0 means
// "below that", 255 means not measured.
struct Scale {
    std::string_view label;
    std::string_view unit;
    std::string_view json_key;
    long base_tenths;
    long step_tenths;
};

struct HcsqMode {
    SYSMODE mode;
    std::string_view name;
    size_t count;  // scaled values the mode reports; the rest are shown raw
    std::array<Scale, 4> scales;
};

constexpr unsigned kHcsqUnknown = 255;
// Preset in the record: the library leaves a value the reply does not carry as it found it
// (a GSM report has one value), and no modem reports this code.
constexpr unsigned kHcsqAbsent = 0xFFFFFFFFu;

constexpr Scale kRssi{"rssi", "dBm", "rssi_dbm", -1210, 10};
constexpr Scale kRscp{"rscp", "dBm", "rscp_dbm", -1210, 10};
constexpr Scale kEcio{"ecio", "dB",  "ecio_db",  -325,  5};
constexpr Scale kRsrp{"rsrp", "dBm", "rsrp_dbm", -1410, 10};
constexpr Scale kSinr{"sinr", "dB",  "sinr_db",  -202,  2};
constexpr Scale kRsrq{"rsrq", "dB",  "rsrq_db",  -200,  5};
constexpr Scale kNone{};

constexpr std::array kHcsqDerived{&kRssi, &kRscp, &kEcio, &kRsrp, &kSinr, &kRsrq};

// What value1 to value4 mean in each system mode. CDMA and EVDO readings are shown raw.
constexpr std::array kHcsqModes{
    HcsqMode{SYSMODE_SIG_NOSERVICE, "no service", 0, {kNone, kNone, kNone, kNone}},
    HcsqMode{SYSMODE_SIG_GSM,       "GSM",        1, {kRssi, kNone, kNone, kNone}},
    HcsqMode{SYSMODE_SIG_WCDMA,     "WCDMA",      3, {kRssi, kRscp, kEcio, kNone}},
    HcsqMode{SYSMODE_SIG_TD_SCDMA,  "TD-SCDMA",   3, {kRssi, kRscp, kEcio, kNone}},
    HcsqMode{SYSMODE_SIG_LTE,       "LTE",        4, {kRssi, kRsrp, kSinr, kRsrq}},
    HcsqMode{SYSMODE_SIG_CDMA,      "CDMA",       0, {kNone, kNone, kNone, kNone}},
    HcsqMode{SYSMODE_SIG_EVDO,      "EVDO",       0, {kNone, kNone, kNone, kNone}},
    HcsqMode{SYSMODE_SIG_CDMA_EVDO, "CDMA-EVDO",  0, {kNone, kNone, kNone, kNone}},
};

// Not a SYSMODE: left in the record when the reply names a mode the library does not know.
constexpr SYSMODE kSysmodeUnset = static_cast<SYSMODE>(-2);

std::string scaled_text(const Scale& sc, unsigned raw) {
    if (raw == kHcsqAbsent) return "not reported";
    const std::string tail = " (raw " + std::to_string(raw) + ")";
    if (raw == kHcsqUnknown) return "unknown" + tail;
    if (raw == 0) return "below " + tenths_text(sc.base_tenths + sc.step_tenths) + " " + std::string(sc.unit) + tail;
    return tenths_text(sc.base_tenths + sc.step_tenths * static_cast<long>(raw)) + " " + std::string(sc.unit) + tail;
}

void read_hcsq(Report& report) {
    Section& s = report.section("hcsq", "signal per technology (^HCSQ)", "hcsq");
    if (s.skipped()) return;
    HCSQ_STATUS rec{};
    rec.sysmode = kSysmodeUnset;
    rec.value1 = rec.value2 = rec.value3 = rec.value4 = rec.value5 = kHcsqAbsent;
    if (!s.check(AT_Hcsq(&rec))) return;
    const HcsqMode* mode = nullptr;
    for (const HcsqMode& m : kHcsqModes)
        if (m.mode == rec.sysmode) mode = &m;
    const unsigned values[5] = {rec.value1, rec.value2, rec.value3, rec.value4, rec.value5};

    s.field("sysmode", mode ? std::string(mode->name) : "unrecognised", true);
    s.json("sysmode", mode ? JsonValue{std::string(mode->name)} : JsonValue{nullptr});
    s.json("sysmode_code", mode ? JsonValue{static_cast<long>(rec.sysmode)} : JsonValue{nullptr});
    for (size_t i = 0; i < 5; ++i)
        s.json("value" + std::to_string(i + 1),
               values[i] == kHcsqAbsent ? JsonValue{nullptr} : JsonValue{static_cast<long>(values[i])});
    // Every derived key in every mode, null where the mode has no such quantity: scripts see
    // the same keys whatever the modem is camped on.
    for (const Scale* key : kHcsqDerived) {
        JsonValue v{nullptr};
        for (size_t i = 0; mode != nullptr && i < mode->count; ++i) {
            const Scale& sc = mode->scales[i];
            if (sc.json_key == key->json_key && values[i] != kHcsqUnknown && values[i] != kHcsqAbsent)
                v = Tenths{sc.base_tenths + sc.step_tenths * static_cast<long>(values[i])};
        }
        s.json(std::string(key->json_key), v);
    }
    if (mode == nullptr) return;
    for (size_t i = 0; i < mode->count; ++i)
        s.field(std::string(mode->scales[i].label), scaled_text(mode->scales[i], values[i]), true);
    if (mode->count == 0 && mode->mode != SYSMODE_SIG_NOSERVICE)
        for (size_t i = 0; i < 5; ++i)
            if (values[i] != kHcsqAbsent) s.field("value" + std::to_string(i + 1), std::to_string(values[i]));
}

// ---- ^CERSSI ---------------------------------------------------------------------------------

// ^CERSSI reports in dBm and dB already; 0 (255 for Ec/Io) marks a technology not measured.
void read_cerssi(Report& report) {
    Section& s = report.section("cerssi", "measured quantities (^CERSSI)", "cerssi");
    if (s.skipped()) return;
    CerssiRsp rec{};
    rec.AtExeResult = kUnset;
    const int rc = AT_Cerssi(0, &rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    const bool gsm = rec.rssi != 0;
    const bool wcdma = rec.rscp != 0;
    const bool lte = rec.rsrp != 0;
    if (gsm) s.field("rssi", std::to_string(rec.rssi) + " dBm", true);
    if (wcdma) {
        s.field("rscp", std::to_string(rec.rscp) + " dBm", true);
        s.field("ecio", rec.ecio == 255 ? "unknown (raw 255)" : std::to_string(rec.ecio) + " dB", true);
    }
    if (lte) {
        s.field("rsrp", std::to_string(rec.rsrp) + " dBm", true);
        s.field("rsrq", std::to_string(rec.rsrq) + " dB", true);
        s.field("sinr", std::to_string(rec.rssnr) + " dB", true);
        s.field("ri", std::to_string(rec.ri));
        s.field("cqi", std::to_string(rec.cqi0) + ", " + std::to_string(rec.cqi1));
    }
    if (!gsm && !wcdma && !lte) s.field("measured", "nothing (no serving cell)", true);
    const std::pair<const char*, int> members[] = {
        {"n", rec.n},       {"m", rec.m},       {"rssi", rec.rssi},   {"rscp", rec.rscp},
        {"ecio", rec.ecio}, {"rsrp", rec.rsrp}, {"rsrq", rec.rsrq},   {"rssnr", rec.rssnr},
        {"ri", rec.ri},     {"cqi0", rec.cqi0}, {"cqi1", rec.cqi1},
    };
    for (const auto& [key, value] : members) s.json(key, static_cast<long>(value));
}

// ---- ^LTERSRP and ^CSNR ----------------------------------------------------------------------

std::optional<long> number_of(std::string_view text) {
    long v = 0;
    const char* end = text.data() + text.size();
    const auto [p, ec] = std::from_chars(text.data(), end, v);
    if (ec != std::errc() || p != end || text.empty()) return std::nullopt;
    return v;
}

void text_reading(Section& s, const std::string& label, const std::string& json_key, const std::string& text,
                  const char* unit) {
    const std::optional<long> v = number_of(text);
    s.field(label, v ? text + " " + unit : (text.empty() ? "none" : "\"" + text + "\""), true);
    s.json(json_key, v ? JsonValue{*v} : JsonValue{nullptr});
}

void read_rsrp(Report& report) {
    Section& s = report.section("rsrp", "LTE reference signal (^LTERSRP)", "rsrp");
    if (s.skipped()) return;
    AT_RSRP_STRU rec{};
    rec.AtExeResult = kUnset;
    const int rc = AT_Rsrp(&rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    text_reading(s, "rsrp", "rsrp_dbm", field_text(rec.rsrp), "dBm");
    text_reading(s, "rsrq", "rsrq_db", field_text(rec.rsrq), "dB");
}

void read_csnr(Report& report) {
    Section& s = report.section("csnr", "WCDMA signal (^CSNR)", "csnr");
    if (s.skipped()) return;
    CsnrRsp rec{};
    rec.AtExeResult = kUnset;
    const int rc = AT_Csnr(&rec);
    if (!s.check(rc, rec.AtExeResult)) return;
    s.field("rscp", std::to_string(rec.rscp) + " dBm", true).field("ecio", std::to_string(rec.ecio) + " dB", true);
    s.json("rscp_dbm", static_cast<long>(rec.rscp)).json("ecio_db", static_cast<long>(rec.ecio));
}

}  // namespace

void run_signal(const Invocation&, Report& report) {
    read_csq(report);
    read_hcsq(report);
    read_cerssi(report);
    read_rsrp(report);
    read_csnr(report);
}

ATCTL_SUBCOMMAND({.name = "signal",
                  .summary = "signal quality, converted to dBm and dB",
                  .help = "Reads +CSQ, ^HCSQ, ^CERSSI, ^LTERSRP and ^CSNR. Coded values are shown in\n"
                          "dBm or dB with the modem's raw code beside them; 99 and 255 mean unknown.\n",
                  .order = 10,
                  .run = run_signal,
                  .in_status = true});

}  // namespace atctl
