// report.h - what one atctl run found out, and its two renderings: aligned text for people and
// one JSON object for scripts.
//
// A subcommand fills one Section per library call. Each section carries the human fields
// (label and text) and the JSON members (stable key and typed value) side by side, because the
// two views want different things: people read "-73 dBm (raw 20)", scripts want 20 and -73 apart.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "atapi.h"

namespace atctl {

// A fixed-point number in tenths, so that derived units (9.4 dB) need no floating point.
struct Tenths {
    long value;
};

using JsonValue = std::variant<std::nullptr_t, bool, long, Tenths, std::string>;

enum class Outcome {
    ok,
    modem_error,   // the reply was an error result; `result` says which
    failed,        // no usable reply: an error without a code, a timeout, a reply that did not parse
    unsupported,   // this build of the library lacks the call
    skipped,       // not asked: an earlier call found the modem silent
};

class Report;

struct Field {
    std::string label;
    std::string text;
    bool brief;  // also shown on the one-line summary of `status`
};

// A reader opens its section right before its library call and starts with
//     Section& s = report.section(...);
//     if (s.skipped()) return;
class Section {
public:
    Section(Report& report, std::string key, std::string title, std::string tag, bool skip);

    bool skipped() const { return outcome_ == Outcome::skipped; }

    // Human field; `brief` fields make up the section's line in `status`.
    Section& field(std::string label, std::string text, bool brief = false);
    // JSON member.
    Section& json(std::string key, JsonValue value);

    // Outcome of a call whose record has no result field: 0 is success, anything else failure.
    bool check(int rc);
    // Outcome of a call whose record carries AtExeResult. The caller presets it to kUnset, so
    // that a call that returns 0 without writing it (some members do on an error reply) is
    // still told apart from a success. Make the call before this one: the field is read here.
    bool check(int rc, AT_AMSS_RES result);
    void mark_unsupported();

    const std::string& key() const { return key_; }
    const std::string& title() const { return title_; }
    const std::string& tag() const { return tag_; }
    Outcome outcome() const { return outcome_; }
    AT_AMSS_RES result() const { return result_; }
    const std::vector<Field>& fields() const { return fields_; }
    const std::vector<std::pair<std::string, JsonValue>>& members() const { return members_; }

private:
    void failed();

    Report* report_;
    std::chrono::steady_clock::time_point opened_;
    std::string key_, title_, tag_;
    Outcome outcome_ = Outcome::ok;
    AT_AMSS_RES result_ = AT_CMD_RES_SUCCESS;
    std::vector<Field> fields_;
    std::vector<std::pair<std::string, JsonValue>> members_;
};

// Never written by the library: marks a result field the call left alone.
inline constexpr AT_AMSS_RES kUnset = static_cast<AT_AMSS_RES>(-100);

class Report {
public:
    Section& section(std::string key, std::string title, std::string tag);
    // A call failed only after waiting out its time limit: the modem has stopped answering,
    // and every later call would wait as long (up to 30 seconds each) for nothing.
    void modem_silent() { silent_ = true; }
    const std::vector<Section>& sections() const { return sections_; }
    // True when a call failed for a reason other than a missing library function.
    bool any_failed() const;
    // True when the library lacked every call asked for, so that nothing could be read.
    bool all_unsupported() const;

    // One block per section: a heading, then one aligned line per field.
    std::string render_text() const;
    // One line per section: its tag, then the brief fields. The view of `status`.
    std::string render_summary() const;
    // One JSON object with a member per section, keyed by the library call.
    std::string render_json() const;

private:
    std::vector<Section> sections_;
    bool silent_ = false;
};

// Text helpers shared by the families.
std::string tenths_text(long tenths);
std::string json_string(std::string_view text);
std::string result_name(AT_AMSS_RES result);
// A NUL-terminated text of a fixed record field, never read past the field.
template <size_t N>
std::string field_text(const char (&f)[N]) {
    size_t n = 0;
    while (n < N && f[n] != '\0') ++n;
    return std::string(f, n);
}
template <size_t N>
std::string field_text(const unsigned char (&f)[N]) {
    size_t n = 0;
    while (n < N && f[n] != '\0') ++n;
    return std::string(reinterpret_cast<const char*>(f), n);
}

}  // namespace atctl
