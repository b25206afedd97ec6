// line_rules.cpp - final result codes, line names, report texts and request decoding.
#include "line_rules.h"

#include <algorithm>
#include <array>
#include <cctype>
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

bool answers_command(std::string_view line, std::string_view cmd_name, std::string_view match) {
    const std::string_view name = line_name(line);
    if (!cmd_name.empty() && iequals(name, cmd_name)) return true;
    if (match.empty()) return false;
    if (line.substr(0, match.size()) == match) return true;
    std::string_view bare_match = match;
    if (bare_match.back() == ':') bare_match.remove_suffix(1);
    return iequals(name, trim(bare_match));
}

std::string build_report(const std::vector<std::string>& info, std::string_view match) {
    std::string out;
    bool within = false;  // inside an item whose header matched
    for (const std::string& line : info) {
        bool take = false;
        if (match.empty() || std::string_view(line).substr(0, match.size()) == match) {
            take = true;
            within = true;
        } else if (within && !starts_item(line)) {
            take = true;
        } else {
            within = false;
        }
        if (!take) continue;
        if (!out.empty()) out += "\r\n";
        out += line;
        if (out.size() >= kReportMax) break;
    }
    if (out.size() > kReportMax) out.resize(kReportMax);
    return out;
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
    const size_t text_end = s.len > 0 ? static_cast<size_t>(s.len) : nul;
    const std::string_view text = field.substr(0, text_end);
    const size_t cr = text.find('\r');
    const std::string_view head = text.substr(0, cr);

    if (cr != std::string_view::npos) {
        // A command followed by a message body. The body ends at the first Ctrl-Z, else at the
        // record's len, else at the first NUL. A line that merely ends in "\r" has no body.
        const size_t start = cr + 1;
        const size_t limit = s.len > 0 ? static_cast<size_t>(s.len) : field.size();
        const std::string_view rest = field.substr(start, limit - start);
        const size_t z = rest.find(kCtrlZ);
        if (z != std::string_view::npos) {
            cmd.body.assign(rest.substr(0, z + 1));
        } else {
            cmd.body.assign(s.len > 0 ? rest : rest.substr(0, rest.find('\0')));
            if (!cmd.body.empty()) cmd.body += kCtrlZ;  // the modem waits for it
        }
    }

    // A len on a one-line command carries bytes that are not text (phonebook names in UCS2 can
    // hold NULs): they go out as they are. Everything else must be printable.
    const bool raw_line = s.len > 0 && cmd.body.empty();
    if (!raw_line && !std::all_of(head.begin(), head.end(),
                                  [](char c) { return printable(static_cast<unsigned char>(c)); }))
        return fail("control characters in the command");

    cmd.name = command_name(head);
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

}  // namespace ats
