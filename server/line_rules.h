// line_rules.h - how the AT server reads the modem's lines and the clients' requests.
//
// Everything here is free of I/O so that the rules can be checked without a modem: which line
// ends a command and with what result, which line is an unsolicited report, what goes into a
// reply's report text, and how a request record turns into the bytes written to the port.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "atapi/link.h"

namespace ats {

inline constexpr char kCtrlZ = '\x1a';
inline constexpr char kEsc = '\x1b';
inline constexpr size_t kReportMax = AT_REPORT_STR_LEN - 1;  // room for the NUL

// The at_cmd_result a final result line stands for, or nothing for any other line.
std::optional<int> final_result(std::string_view line);

// The name a reply or report line goes by: the text before its colon ("+CREG" of
// "+CREG: 1,5"), or the whole line when it has none ("RING").
std::string_view line_name(std::string_view line);

// The name of the command a line sends, upper case: "+CSQ" for "AT+CSQ", "^PREFROAM" for
// "at^prefroam?"; empty when the line does not start with "AT".
std::string command_name(std::string_view command);

// True when `line` answers the command in flight rather than being an unsolicited report that
// happens to arrive meanwhile.
bool answers_command(std::string_view line, std::string_view command_name, std::string_view match);

// The report text of an OK reply: the information lines that begin with `match` (every line
// when `match` is empty) together with the lines that continue them (a PDU or message body
// under its header), joined by CR LF and cut to the record's field.
std::string build_report(const std::vector<std::string>& info, std::string_view match);

// A request's command, as it goes to the modem.
struct ModemCommand {
    std::string line;     // the command line, terminated by one "\r"
    std::string body;     // a message body, ending in Ctrl-Z; empty for one-line commands
    std::string name;     // command_name() of the line
    std::string match;    // the caller's at_match_ok_str
    bool bare = false;    // a command line without the "AT" prefix ("^APCONNST")
    bool empty = false;   // an empty command line
};

// Decodes the request half of a record. Nothing (and `why` set) when the record cannot be sent
// to a modem: command text without a terminating NUL, control characters in the command part,
// a `len` outside the field.
std::optional<ModemCommand> decode_request(const msg_q& req, std::string* why);

// Strips control characters the modem has no business sending; returns how many went.
size_t drop_garbage(std::string& bytes);

}  // namespace ats
