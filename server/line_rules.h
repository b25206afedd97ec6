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
// The SysV text of a request record: the record less its 4-byte type.
inline constexpr size_t kRecordText = AT_MSG_Q_SIZE - 4;
// The longest wait a command of the library asks for (the operator search); a request's time_out
// is cut to it, and 0 or less stands for the usual 30 s.
inline constexpr int kMaxTimeOut = 240;
inline constexpr int kDefaultTimeOut = 30;

// The at_cmd_result a final result line stands for, or nothing for any other line.
std::optional<int> final_result(std::string_view line);

// The name a reply or report line goes by: the text before its colon ("+CREG" of
// "+CREG: 1,5"), or the whole line when it has none ("RING").
std::string_view line_name(std::string_view line);

// The name of the command a line sends, upper case: "+CSQ" for "AT+CSQ", "^PREFROAM" for
// "at^prefroam?"; empty when the line does not start with "AT".
std::string command_name(std::string_view command);

// A command line as the server's trace may show it: the arguments of the commands that carry a
// PIN, PUK or password become "***".
std::string traced_line(std::string_view line);

// A reply to `command` as the server's trace may show it: only its size when the command is one
// of those above, whose answers can hold the same secrets.
std::string traced_report(std::string_view command, std::string_view report);

// True when `line` answers the command in flight rather than being an unsolicited report that
// happens to arrive meanwhile.
bool answers_command(std::string_view line, std::string_view command_name, std::string_view match);

// The report text of an OK reply, built line by line as the modem sends them so that a modem
// that never stops talking costs no more than the record's field: the information lines that
// begin with `match` (every line when `match` is empty) together with the lines that continue
// them (a PDU or message body under its header), joined by CR LF and cut to the field.
class ReportBuilder {
public:
    explicit ReportBuilder(std::string match = {}) : match_(std::move(match)) {}
    void add(std::string_view line);
    const std::string& text() const { return out_; }

private:
    std::string match_;
    std::string out_;
    bool within_ = false;  // inside an item whose header matched
};
std::string build_report(const std::vector<std::string>& info, std::string_view match);

// The seconds a request may take: its time_out, 30 when it gives none, never above kMaxTimeOut.
int effective_time_out(int32_t time_out);

// A request record from the bytes of one SysV message of `type`; nothing when they cannot be
// one (shorter or longer than the record, a type beyond a thread id). The record is built fresh,
// so nothing of an earlier message shows through.
std::optional<msg_q> request_record(long type, std::string_view text);

// A request's command, as it goes to the modem.
struct ModemCommand {
    std::string line;     // the command line, terminated by one "\r"
    std::string body;     // bytes written after the prompt; empty for one-line commands
    std::string name;     // command_name() of the line
    std::string match;    // the caller's at_match_ok_str
    bool bare = false;    // a command line without the "AT" prefix ("^APCONNST")
    bool empty = false;   // an empty command line
};

// The raw body size of the vendor's fixed-size text forms, by command name ("^HCMGS": 256,
// "^HCMGW": 162); 0 for every other command.
size_t fixed_body_size(std::string_view command_name);

// Decodes the request half of a record. Where the command text ends:
// - a non-zero `len` bounds it, NULs included;
// - otherwise it ends at the first NUL, except the body of a fixed-size vendor form.
// A carriage return outside double quotes ends the command line; what follows is a message body,
// written after the modem's "> " prompt. A fixed-size vendor body is its exact bytes (NULs too)
// and gets no Ctrl-Z; any other body ends at its first Ctrl-Z (included) or at the end of the
// text, where a Ctrl-Z is added. Nothing (and `why` set) when the record cannot go to a modem:
// no end to the text, control characters in a command line without `len`, a `len` or a body
// outside the field.
std::optional<ModemCommand> decode_request(const msg_q& req, std::string* why);

// What the modem echoes of bytes written to it, as the server sees the echo: control bytes
// dropped (drop_garbage), Ctrl-Z included.
std::string echo_of(std::string_view written);

// Strips control characters the modem has no business sending; returns how many went.
size_t drop_garbage(std::string& bytes);

}  // namespace ats
