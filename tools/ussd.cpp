// ussd.cpp - `atctl ussd CODE`: a USSD request and the network's answer; `--cancel` ends a session.
//
// The library only sends; the answer is the unsolicited "+CUSD" report, which the AT server keeps.
// The tool asks the server for its last "+CUSD" before sending and then waits until another one
// has arrived. An answer identical to the previous one is therefore not seen: the wait ends in
// a time-out.
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <algorithm>
#include <cstring>
#include <string>
#include <thread>

#include "cli.h"
#include "smscodec.h"

namespace atctl {
namespace {

constexpr int kCodingGsm = 15;  // the 7-bit alphabet, language unspecified

// The last "+CUSD" report the AT server holds (or, when it holds none, the modem's answer to the
// query of that name), or empty.
std::string stored_report() {
    msg_q m{};
    m.client_id = static_cast<int32_t>(syscall(SYS_gettid));
    m.req_type = AT_REQ;
    m.rsp_type = DIRECT_BACK;
    m.at_mutil = AT_RES_ONE;
    m.time_out = 5;
    std::memcpy(m.snd_rcv_msg.smsg.at_cmd_str, "+CUSD", 6);
    std::memcpy(m.snd_rcv_msg.smsg.at_match_ok_str, "+CUSD:", 7);
    if (GetDataFromAtServer(&m) != 0 || m.snd_rcv_msg.rmsg.ret_val != AT_CMD_OK) return {};
    return field_text(m.snd_rcv_msg.rmsg.at_report_str);
}

std::string status_text(int type) {
    switch (type) {
        case 0: return "answered, session ended";
        case 1: return "the network waits for a reply ('atctl ussd REPLY')";
        case 2: return "session ended by the network";
        case 3: return "another local client answered";
        case 4: return "not supported by the network";
        case 5: return "the network timed out";
        default: return "report type " + std::to_string(type);
    }
}

// UCS-2 answers come as hexadecimal digits.
std::string answer_text(const std::string& text, int dcs) {
    const bool ucs2 = dcs == 72 || ((dcs & 0xF0) == 0x40 && (dcs & 0x0C) == 0x08);
    const std::optional<std::string> bytes = ucs2 ? smscodec::hex_decode(text) : std::nullopt;
    return bytes ? smscodec::ucs2_decode(*bytes) : text;
}

void show_answer(Report& report, std::string line) {
    Section& s = report.section("cusd_report", "the network's answer (+CUSD)", "cusd");
    AtCmdParse* tree = nullptr;
    char name[] = "+CUSD";
    if (at_cmd_parse(&tree, name, line.data(), AT_FUNCTION_INITIATIVE_REPORT, AT_OPERATION_TYPE_OTHER) != 0) {
        s.check(-1);
        return;
    }
    int type = -1, dcs = kCodingGsm;
    std::string text;
    bool has_text = false;
    for (const AtCmdParse* f = tree; f; f = f->next) {
        if (!f->AtFieldName || !f->AtFieldValue) continue;
        if (std::strcmp(f->AtFieldName, "rspType") == 0) type = std::atoi(f->AtFieldValue);
        if (std::strcmp(f->AtFieldName, "cusdStr") == 0) text = f->AtFieldValue, has_text = true;
        if (std::strcmp(f->AtFieldName, "codeType") == 0) dcs = std::atoi(f->AtFieldValue);
    }
    free_at_cmd(tree);
    text = answer_text(text, dcs);
    s.field("status", status_text(type) + " (" + std::to_string(type) + ")", true);
    if (has_text) s.field("text", text, true);
    s.json("rsp_type", long{type}).json("status_text", status_text(type));
    s.json("text", has_text ? JsonValue{text} : JsonValue{nullptr}).json("dcs", long{dcs});
}

void run_ussd(const Invocation& inv, Report& report) {
    const bool cancel = inv.has("--cancel");
    if (cancel == !inv.args.empty()) throw UsageError("ussd needs a CODE, or --cancel alone");
    long timeout = 30;
    if (const std::optional<std::string> t = inv.option("--timeout")) {
        const std::optional<long> v = number(*t);
        if (!v || *v < 1 || *v > 600) throw UsageError("--timeout needs seconds from 1 to 600");
        timeout = *v;
    }
    StCusdInfo cmd{};
    cmd.reportType = cancel ? 2 : 1;
    cmd.desc = kCodingGsm;
    if (!cancel) {
        const std::string code = inv.arg(0);
        if (code.empty() || code.size() > 160 || code.find_first_of("\";") != std::string::npos ||
            std::any_of(code.begin(), code.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }))
            throw UsageError("the code must be 1 to 160 characters without quotes, ';' or control characters");
        const std::string quoted = "\"" + code + "\"";
        std::memcpy(cmd.str, quoted.data(), quoted.size());
        cmd.strLength = static_cast<int>(quoted.size());
    }
    const std::string before = cancel ? std::string{} : stored_report();
    Section& s = report.section("cusd", cancel ? "session cancelled (+CUSD=2)" : "request sent (+CUSD)", "cusd");
    if (s.skipped()) return;
    cmd.AtExeResult = kUnset;
    const int rc = AT_Cusd_Msg_Send(AT_SET_VALUE, &cmd);
    if (!s.check(rc, cmd.AtExeResult)) return;
    s.field(cancel ? "cancelled" : "sent", cancel ? "yes" : inv.arg(0), true);
    s.json("code", cancel ? JsonValue{nullptr} : JsonValue{inv.arg(0)});
    if (cancel) return;

    progress("waiting for the network's answer");
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(timeout);
    while (std::chrono::steady_clock::now() < end) {
        const std::string now = stored_report();
        if (!now.empty() && now != before) return show_answer(report, now);
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    throw Failure("no answer from the network within " + std::to_string(timeout) + " s");
}

}  // namespace

ATCTL_SUBCOMMAND({.name = "ussd",
                  .summary = "a USSD request and the network's answer",
                  .usage = "CODE [--timeout S] | --cancel",
                  .help = "Sends CODE (such as *100#, or a reply in an open session) and prints the\n"
                          "network's +CUSD answer.\n"
                          "  --timeout S  how long to wait for the answer (default 30 s)\n"
                          "  --cancel     ends the open session (+CUSD=2)\n"
                          "An answer that repeats the previous one word for word is not told apart from\n"
                          "it, and the wait ends in a time-out.\n",
                  .order = 61,
                  .options = "--cancel --timeout S",
                  .min_args = 0,
                  .max_args = 1,
                  .run = run_ussd});

}  // namespace atctl
