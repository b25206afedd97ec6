// report.cpp - rendering of what atctl found out.
#include "report.h"

#include <algorithm>
#include <array>

namespace atctl {
namespace {

constexpr size_t kMinLabelWidth = 10;
// The shortest time limit of a command is 5 seconds; a failure that took this long was one.
constexpr auto kSilentAfter = std::chrono::milliseconds(4500);

struct ResultName {
    AT_AMSS_RES code;
    std::string_view name;
};

// The application result codes a command can leave in its record, as a person would say them.
constexpr std::array kResultNames{
    ResultName{AT_CMD_RES_ERR,                      "error"},
    ResultName{AT_CMD_RES_BUSY,                     "busy"},
    ResultName{AT_CMD_RES_OPERATION_NOT_SUPPORTED,  "operation not supported"},
    ResultName{AT_CMD_RES_PIN_REQ,                  "SIM PIN required"},
    ResultName{AT_CMD_RES_PUK_REQ,                  "SIM PUK required"},
    ResultName{AT_CMD_RES_SIM_FAIL,                 "SIM failure"},
    ResultName{AT_CMD_RES_GPS_NO_NETWORK_SERVER,    "no network service"},
    ResultName{AT_CMD_RES_UNKNOWN,                  "unknown error"},
    ResultName{AT_CMD_RES_INVALID_PARAMETER,        "invalid parameter"},
    ResultName{AT_CMD_RES_TOO_MANY_PARAMETERS,      "too many parameters"},
    ResultName{AT_CMD_RES_SIM_BUSY,                 "SIM busy"},
    ResultName{AT_CMD_RES_AT_ABORTED,               "command aborted"},
    ResultName{AT_CMD_RES_AMSS_MAX,                 "unreadable error line"},
};

std::string failure_text(const Section& s) {
    switch (s.outcome()) {
        case Outcome::modem_error:
            return "the modem answered an error: " + result_name(s.result()) + " (result " +
                   std::to_string(static_cast<long>(s.result())) + ")";
        case Outcome::failed:
            return "no usable answer (an error reply, a timeout or a reply that did not parse)";
        case Outcome::unsupported:
            return "not available in this build of libatapi";
        case Outcome::skipped:
            return "not asked: the modem did not answer an earlier call in time";
        case Outcome::ok:
            break;
    }
    return {};
}

std::string failure_key(Outcome o) {
    switch (o) {
        case Outcome::modem_error: return "modem error";
        case Outcome::failed:      return "no usable answer";
        case Outcome::unsupported: return "unsupported";
        case Outcome::skipped:     return "skipped";
        case Outcome::ok:          break;
    }
    return {};
}

std::string pad(std::string_view s, size_t width) {
    std::string out(s);
    if (out.size() < width) out.append(width - out.size(), ' ');
    else out.push_back(' ');
    return out;
}

std::string json_value(const JsonValue& v) {
    struct Visitor {
        std::string operator()(std::nullptr_t) const { return "null"; }
        std::string operator()(bool b) const { return b ? "true" : "false"; }
        std::string operator()(long n) const { return std::to_string(n); }
        std::string operator()(Tenths t) const { return tenths_text(t.value); }
        std::string operator()(const std::string& s) const { return json_string(s); }
    };
    return std::visit(Visitor{}, v);
}

// Length of the well-formed UTF-8 sequence at the start of `s`, or 0.
size_t utf8_length(std::string_view s) {
    const auto b0 = static_cast<unsigned char>(s[0]);
    size_t n = 0;
    if (b0 >= 0xC2 && b0 <= 0xDF) n = 2;
    else if (b0 >= 0xE0 && b0 <= 0xEF) n = 3;
    else if (b0 >= 0xF0 && b0 <= 0xF4) n = 4;
    else return 0;
    if (s.size() < n) return 0;
    for (size_t i = 1; i < n; ++i)
        if ((static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) return 0;
    const auto b1 = static_cast<unsigned char>(s[1]);
    if (b0 == 0xE0 && b1 < 0xA0) return 0;  // overlong
    if (b0 == 0xED && b1 > 0x9F) return 0;  // surrogates
    if (b0 == 0xF0 && b1 < 0x90) return 0;  // overlong
    if (b0 == 0xF4 && b1 > 0x8F) return 0;  // past U+10FFFF
    return n;
}

}  // namespace

Section::Section(Report& report, std::string key, std::string title, std::string tag, bool skip)
    : report_(&report),
      opened_(std::chrono::steady_clock::now()),
      key_(std::move(key)),
      title_(std::move(title)),
      tag_(std::move(tag)),
      outcome_(skip ? Outcome::skipped : Outcome::ok) {}

void Section::failed() {
    if (std::chrono::steady_clock::now() - opened_ >= kSilentAfter) report_->modem_silent();
}

Section& Section::field(std::string label, std::string text, bool brief) {
    fields_.push_back({std::move(label), std::move(text), brief});
    return *this;
}

Section& Section::json(std::string key, JsonValue value) {
    members_.emplace_back(std::move(key), std::move(value));
    return *this;
}

bool Section::check(int rc) {
    outcome_ = rc == 0 ? Outcome::ok : Outcome::failed;
    if (outcome_ != Outcome::ok) failed();
    return outcome_ == Outcome::ok;
}

bool Section::check(int rc, AT_AMSS_RES result) {
    result_ = result;
    if (rc != 0 || result == kUnset) outcome_ = Outcome::failed;
    else if (result != AT_CMD_RES_SUCCESS) outcome_ = Outcome::modem_error;
    else outcome_ = Outcome::ok;
    if (outcome_ == Outcome::failed) failed();
    return outcome_ == Outcome::ok;
}

void Section::mark_unsupported() { outcome_ = Outcome::unsupported; }

Section& Report::section(std::string key, std::string title, std::string tag) {
    return sections_.emplace_back(*this, std::move(key), std::move(title), std::move(tag), silent_);
}

bool Report::any_failed() const {
    return std::any_of(sections_.begin(), sections_.end(), [](const Section& s) {
        return s.outcome() == Outcome::modem_error || s.outcome() == Outcome::failed ||
               s.outcome() == Outcome::skipped;
    });
}

bool Report::all_unsupported() const {
    return !sections_.empty() && std::all_of(sections_.begin(), sections_.end(), [](const Section& s) {
        return s.outcome() == Outcome::unsupported;
    });
}

std::string Report::render_text() const {
    std::string out;
    for (const Section& s : sections_) {
        if (!out.empty()) out += '\n';
        out += s.title() + '\n';
        size_t width = kMinLabelWidth;
        for (const Field& f : s.fields()) width = std::max(width, f.label.size() + 2);
        for (const Field& f : s.fields()) out += "  " + pad(f.label, width) + f.text + '\n';
        if (s.outcome() != Outcome::ok) out += "  " + pad("error", width) + failure_text(s) + '\n';
    }
    return out;
}

std::string Report::render_summary() const {
    size_t width = kMinLabelWidth;
    for (const Section& s : sections_) width = std::max(width, s.tag().size() + 2);
    std::string out;
    for (const Section& s : sections_) {
        std::string line;
        if (s.outcome() != Outcome::ok) {
            line = s.outcome() == Outcome::unsupported ? failure_text(s) : "error: " + failure_text(s);
        } else {
            for (const Field& f : s.fields()) {
                if (!f.brief) continue;
                if (!line.empty()) line += ", ";
                line += f.label + ' ' + f.text;
            }
        }
        out += pad(s.tag(), width) + line + '\n';
    }
    return out;
}

std::string Report::render_json() const {
    std::string out = "{";
    bool first_section = true;
    for (const Section& s : sections_) {
        out += first_section ? "\n  " : ",\n  ";
        first_section = false;
        out += json_string(s.key()) + ": {\"ok\": " + (s.outcome() == Outcome::ok ? "true" : "false");
        for (const auto& [key, value] : s.members()) out += ", " + json_string(key) + ": " + json_value(value);
        if (s.outcome() != Outcome::ok) {
            out += ", \"error\": " + json_string(failure_key(s.outcome()));
            if (s.outcome() == Outcome::modem_error)
                out += ", \"result\": " + std::to_string(static_cast<long>(s.result()));
        }
        out += '}';
    }
    out += first_section ? "}\n" : "\n}\n";
    return out;
}

std::string tenths_text(long tenths) {
    const long whole = tenths / 10;
    const long frac = tenths % 10;
    std::string out = (tenths < 0 && whole == 0) ? "-0" : std::to_string(whole);
    if (frac != 0) out += '.' + std::to_string(frac < 0 ? -frac : frac);
    return out;
}

std::string json_string(std::string_view text) {
    static constexpr char kHex[] = "0123456789abcdef";
    std::string out = "\"";
    while (!text.empty()) {
        const auto c = static_cast<unsigned char>(text[0]);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c < 0x20 || c == 0x7F) {
            out += "\\u00";
            out += kHex[c >> 4];
            out += kHex[c & 0xF];
        } else if (c >= 0x80) {
            // Modem texts are not always UTF-8: a stray byte becomes U+FFFD, so the
            // document stays valid for any parser.
            const size_t n = utf8_length(text);
            if (n == 0) {
                out += "\\ufffd";
                text.remove_prefix(1);
            } else {
                out.append(text.substr(0, n));
                text.remove_prefix(n);
            }
            continue;
        } else {
            out += static_cast<char>(c);
        }
        text.remove_prefix(1);
    }
    out += '"';
    return out;
}

std::string result_name(AT_AMSS_RES result) {
    for (const ResultName& r : kResultNames)
        if (r.code == result) return std::string(r.name);
    return "error code";
}

}  // namespace atctl
