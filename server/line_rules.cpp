// line_rules.cpp - final result codes, line names, report texts and request decoding.
#include "line_rules.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <climits>
#include <cstdint>
#include <cstring>

namespace ats {
namespace {

struct FinalCode {
    std::string_view text;
    bool prefix;  // the code may be followed by more text ("+CME ERROR: 10", "CONNECT 150000000")
    int result;
};

// The modem's final result codes and what the clients are told about each.
constexpr std::array<FinalCode, 11> kFinalCodes{{
    {"OK",                  false, AT_CMD_OK},
    {"ERROR",               false, AT_ERROR},
    {"+CME ERROR:",         true,  AT_CME_ERROR},
    {"+CMS ERROR:",         true,  AT_CMS_ERROR},
    {"NO CARRIER",          false, AT_NO_CARRIER},
    {"NO ANSWER",           false, AT_NO_ANSWER},
    {"BUSY",                false, AT_BUSY_R},
    {"NO DIALTONE",         false, AT_NO_DIALTONE_R},
    {"CONNECT",             true,  AT_CONNECT_R},
    {"COMMAND NOT SUPPORT", false, AT_CMD_NOT_SUPPORT},
    {"TOO MANY PARAMETERS", false, AT_TOO_MANY_PARAMS},
}};

std::string_view trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
    return s;
}

bool iequals(std::string_view a, std::string_view b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::toupper(static_cast<unsigned char>(x)) ==
                      std::toupper(static_cast<unsigned char>(y));
           });
}

// A line that names itself like a reply header ("+CMGR: ...", "^HCMGR: ...") starts a new
// item; anything else (hex PDU, message text) continues the item above it.
bool starts_item(std::string_view line) {
    return !line.empty() && (line.front() == '+' || line.front() == '^') &&
           line.find(':') != std::string_view::npos;
}

bool printable(unsigned char c) { return c >= 0x20 && c < 0x7f; }

}  // namespace

std::optional<int> final_result(std::string_view line) {
    line = trim(line);
    for (const FinalCode& f : kFinalCodes) {
        if (line == f.text) return f.result;
        if (f.prefix && line.size() > f.text.size() && line.substr(0, f.text.size()) == f.text) {
            // "CONNECT" takes a rate after a blank; the error codes take anything after the colon.
            if (f.text.back() == ':' || line[f.text.size()] == ' ') return f.result;
        }
    }
    return std::nullopt;
}

std::string_view line_name(std::string_view line) {
    line = trim(line);
    const size_t colon = line.find(':');
    return trim(colon == std::string_view::npos ? line : line.substr(0, colon));
}

std::string command_name(std::string_view command) {
    command = trim(command);
    if (command.size() < 2 || !iequals(command.substr(0, 2), "AT")) return {};
    command.remove_prefix(2);
    const size_t end = command.find_first_of("=?\r");
    std::string name(command.substr(0, end));
    for (char& c : name) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return name;
}

namespace {
// Commands whose arguments or answers hold a code, a password (and the user name beside it) or a
// SIM authentication secret.
bool carries_secret(std::string_view command) {
    static constexpr std::string_view kSecret[] = {"+CPIN", "^CPIN", "+CLCK", "+CPWD", "^NDISDUP", "^AUTHDATA",
                                                   "+CGAUTH", "+CSIM", "^UICCAUTH"};
    const std::string name = command_name(command);
    return std::find(std::begin(kSecret), std::end(kSecret), name) != std::end(kSecret);
}
}  // namespace

std::string traced_line(std::string_view line) {
    const size_t eq = line.find('=');
    if (eq == std::string_view::npos || !carries_secret(line)) return std::string(line);
    return std::string(line.substr(0, eq + 1)) + "***";
}

std::string traced_report(std::string_view command, std::string_view report) {
    // "AT^AUTHDATA?" has no argument to hide, but its answer holds the stored password.
    if (report.empty() || !carries_secret(command)) return std::string(report);
    return "*** (" + std::to_string(report.size()) + " bytes)";
}

bool answers_command(std::string_view line, std::string_view cmd_name, std::string_view match) {
    const std::string_view name = line_name(line);
    if (!cmd_name.empty() && iequals(name, cmd_name)) return true;
    if (match.empty()) return false;
    if (line.substr(0, match.size()) == match) return true;
    std::string_view bare_match = match;
    if (bare_match.back() == ':') bare_match.remove_suffix(1);
    return iequals(name, trim(bare_match));
}

void ReportBuilder::add(std::string_view line) {
    if (out_.size() >= kReportMax) return;
    if (match_.empty() || line.substr(0, match_.size()) == match_) {
        within_ = true;
    } else if (!within_ || starts_item(line)) {
        within_ = false;
        return;
    }
    if (!out_.empty()) out_ += "\r\n";
    out_.append(line.substr(0, kReportMax - std::min(out_.size(), kReportMax)));
    if (out_.size() > kReportMax) out_.resize(kReportMax);
}

std::string build_report(const std::vector<std::string>& info, std::string_view match) {
    ReportBuilder b{std::string(match)};
    for (const std::string& line : info) b.add(line);
    return b.text();
}

int effective_time_out(int32_t time_out) {
    if (time_out <= 0) return kDefaultTimeOut;
    return std::min<int32_t>(time_out, kMaxTimeOut);
}

std::optional<msg_q> request_record(long type, std::string_view text) {
    if (text.size() != kRecordText || type <= 0 || type > INT32_MAX) return std::nullopt;
    msg_q m{};
    m.client_id = static_cast<int32_t>(type);
    std::memcpy(reinterpret_cast<char*>(&m) + sizeof m.client_id, text.data(), kRecordText);
    return m;
}

size_t fixed_body_size(std::string_view name) {
    if (name == "^HCMGS") return 256;
    if (name == "^HCMGW") return 162;
    return 0;
}

std::optional<ModemCommand> decode_request(const msg_q& req, std::string* why) {
    auto fail = [&](const char* reason) -> std::optional<ModemCommand> {
        if (why) *why = reason;
        return std::nullopt;
    };
    const req_msg& s = req.snd_rcv_msg.smsg;
    const std::string_view field(s.at_cmd_str, sizeof s.at_cmd_str);
    if (s.len < 0 || static_cast<size_t>(s.len) > field.size()) return fail("length outside the command field");

    ModemCommand cmd;
    const char* match_end = static_cast<const char*>(std::memchr(s.at_match_ok_str, '\0', sizeof s.at_match_ok_str));
    cmd.match.assign(s.at_match_ok_str, match_end ? match_end : s.at_match_ok_str + sizeof s.at_match_ok_str);

    const size_t nul = field.find('\0');
    if (nul == std::string_view::npos && s.len == 0) return fail("command text without end");
    const std::string_view text = field.substr(0, s.len > 0 ? static_cast<size_t>(s.len) : nul);
    // A carriage return inside quotes is a byte of a raw name (a UCS-2 phonebook entry can hold
    // one), not the end of the command line.
    size_t cr = std::string_view::npos;
    for (size_t i = 0, quotes = 0; i < text.size() && cr == std::string_view::npos; ++i) {
        if (text[i] == '"') ++quotes;
        else if (text[i] == '\r' && quotes % 2 == 0) cr = i;
    }
    const std::string_view head = text.substr(0, cr);
    cmd.name = command_name(head);

    if (cr != std::string_view::npos) {
        const size_t fixed = fixed_body_size(cmd.name);
        std::string_view rest = text.substr(cr + 1);
        if (fixed > 0 && s.len == 0) {
            // The vendor's text forms carry exactly this many raw bytes; a NUL is one of them.
            if (cr + 1 + fixed > field.size()) return fail("message body outside the command field");
            rest = field.substr(cr + 1, fixed);
        }
        if (fixed > 0) {
            cmd.body.assign(rest);
        } else if (const size_t z = rest.find(kCtrlZ); z != std::string_view::npos) {
            cmd.body.assign(rest.substr(0, z + 1));
        } else if (!rest.empty()) {
            cmd.body.assign(rest);
            cmd.body += kCtrlZ;  // the modem waits for it
        }
    }

    // A len on a one-line command carries bytes that are not text (phonebook names in UCS2 can
    // hold NULs): they go out as they are. Everything else must be printable.
    const bool raw_line = s.len > 0 && cmd.body.empty();
    if (!raw_line && !std::all_of(head.begin(), head.end(),
                                  [](char c) { return printable(static_cast<unsigned char>(c)); }))
        return fail("control characters in the command");

    cmd.empty = head.empty() && cmd.body.empty();
    cmd.bare = !cmd.empty && (head.size() < 2 || !iequals(head.substr(0, 2), "AT"));
    cmd.line.assign(head);
    cmd.line += '\r';
    return cmd;
}

size_t drop_garbage(std::string& bytes) {
    const size_t before = bytes.size();
    std::erase_if(bytes, [](char ch) {
        const auto c = static_cast<unsigned char>(ch);
        return (c < 0x20 && c != '\r' && c != '\n' && c != '\t') || c == 0x7f;
    });
    return before - bytes.size();
}

std::string echo_of(std::string_view written) {
    std::string echo(written);
    drop_garbage(echo);
    return echo;
}

}  // namespace ats
