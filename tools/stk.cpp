// stk.cpp - `atctl stk`: the SIM toolkit's menu and dialogs, and the user's answers.
//
// The toolkit tells which proactive command is waiting by a report the library never sees, so
// atctl asks each kind's reader in turn: a kind that is not waiting gets an error answer, which
// the readers return as success with nothing read.
#include <array>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli.h"

namespace atctl {
namespace {

using ReaderFn = int (*)(int, int*, StStgiPara*, StStgiRsp**);

// A kind of proactive command: its type number in AT^STGI and AT^STGR, and its reader.
struct Kind {
    int code;
    std::string_view name;
    ReaderFn read;
};

constexpr Kind kMainMenu{0, "main menu", AT_Stgi};
constexpr std::array kDialogs{
    Kind{1, "text", AT_StgiText},        Kind{2, "key", AT_StgiInkey},         Kind{3, "input", AT_StgiInput},
    Kind{6, "menu", AT_Stgi},            Kind{7, "refresh", AT_StgiRefresh},  Kind{11, "browser", AT_StgiBrowser},
};
constexpr int kEndSession = 16;  // terminal response: session ended by the user

struct Fetched {
    int rc = 0;
    std::vector<StStgiRsp> entries;  // empty: this kind is not waiting
};

Fetched fetch(const Kind& k) {
    Fetched f;
    int total = 0;
    StStgiRsp* array = nullptr;
    StStgiPara para{};
    para.ucType = static_cast<unsigned char>(k.code);
    f.rc = k.read(AT_SET_VALUE, &total, &para, &array);
    if (f.rc == 0 && array != nullptr && total > 0) f.entries.assign(array, array + total);
    std::free(array);
    return f;
}

std::string num_text(unsigned char v) { return std::to_string(static_cast<unsigned>(v)); }

// The section of one proactive command, by its kind.
void show(Report& report, const Kind& k, const Fetched& f) {
    Section& s = report.section("stgi", "SIM toolkit: " + std::string(k.name) + " (^STGI=" + std::to_string(k.code) + ")",
                                "stk");
    if (s.skipped() || !s.check(f.rc)) return;
    s.json("kind", std::string(k.name)).json("type", static_cast<long>(k.code));
    if (f.entries.empty()) {
        s.field("pending", "nothing (the toolkit answered an error)", true);
        return;
    }
    const StStgiRsp& e = f.entries.front();
    const std::string text = field_text(e.TextInfo);
    switch (k.code) {
    case 0:
    case 6:
        s.json("items", static_cast<long>(f.entries.size()));
        for (const StStgiRsp& item : f.entries) {
            const std::string id = num_text(item.ucIdentifier), name = field_text(item.name);
            s.field("item " + id, name + (item.ucIsHelpInfo ? " (help available)" : ""), true);
            s.json("item" + id, name);
        }
        break;
    case 1:
        s.field("text", text, true).json("text", text).json("format", static_cast<long>(e.TextFormat));
        s.json("clear_mode", static_cast<long>(e.ClearMode)).json("duration", static_cast<long>(e.DurationTime));
        break;
    case 2:
        s.field("prompt", text, true).field("timeout", num_text(e.TimeOut) + " s");
        s.json("prompt", text).json("timeout_s", static_cast<long>(e.TimeOut));
        break;
    case 3:
        s.field("prompt", text, true).field("length", num_text(e.SizeMin) + " to " + num_text(e.SizeMax));
        s.field("echo", e.EchoMode ? "yes" : "no").field("default", field_text(e.DefaultTextInfo));
        s.json("prompt", text).json("size_min", static_cast<long>(e.SizeMin)).json("size_max", static_cast<long>(e.SizeMax));
        s.json("echo", e.EchoMode != 0).json("default", field_text(e.DefaultTextInfo));
        break;
    case 7:
        s.field("refresh", "type " + num_text(e.RefreshType), true).json("refresh_type", static_cast<long>(e.RefreshType));
        break;
    default:
        s.field("url", field_text(e.URL), true).field("launch mode", num_text(e.LaunchMode));
        s.json("url", field_text(e.URL)).json("launch_mode", static_cast<long>(e.LaunchMode));
        break;
    }
}

// The dialog the SIM waits on, shown; nothing when only the main menu is there.
std::optional<Kind> show_pending(Report& report) {
    for (const Kind& k : kDialogs) {
        const Fetched f = fetch(k);
        if (f.rc != 0 || !f.entries.empty()) {
            show(report, k, f);
            return f.rc == 0 ? std::optional<Kind>(k) : std::nullopt;
        }
    }
    Section& s = report.section("stgi", "SIM toolkit: waiting dialog", "stk");
    s.field("pending", "none (the main menu)", true).json("kind", nullptr);
    return std::nullopt;
}

bool answer(Report& report, const Kind& k, unsigned char result, std::optional<long> item,
            const std::optional<std::string>& text) {
    Section& s = report.section("stgr", "SIM toolkit: answer (^STGR)", "answer");
    if (s.skipped()) return false;
    StStgrPara para{};
    para.CmdType = static_cast<unsigned char>(k.code);
    para.Result = result;
    para.DataType = 2;
    if (item) {
        para.DataType = 0;
        para.DataId = static_cast<unsigned char>(*item);
    } else if (text) {
        para.DataType = 1;
        text->copy(reinterpret_cast<char*>(para.DataText), sizeof para.DataText - 1);
    }
    StStgrRsp rsp{};
    rsp.AtExeResult = kUnset;
    const int rc = AT_Stgr(AT_SET_VALUE, &para, &rsp);
    s.field("to", std::string(k.name), true).json("to", std::string(k.name));
    if (!s.check(rc)) return false;
    // An error answer succeeds and leaves the result alone.
    if (rsp.AtExeResult != AT_CMD_RES_SUCCESS) throw Failure("the SIM refused the answer");
    return true;
}

void toolkit_state(Report& report) {
    Section& s = report.section("stsf", "SIM toolkit switch (^STSF)", "toolkit");
    if (s.skipped()) return;
    StStsfRsp rsp{};
    rsp.AtExeResult = kUnset;
    const int rc = AT_Stsf(AT_CHECK_VALUE, nullptr, &rsp);
    if (!s.check(rc, rsp.AtExeResult)) return;
    s.field("toolkit", rsp.ucMode == 0 ? "off" : "on (mode " + num_text(rsp.ucMode) + ")", true);
    s.field("timeout", std::to_string(rsp.iTimeout) + " s");
    s.json("mode", static_cast<long>(rsp.ucMode)).json("config", field_text(rsp.ucConfig)).json("timeout_s", static_cast<long>(rsp.iTimeout));
}

void switch_toolkit(Report& report, unsigned char mode) {
    Section& s = report.section("stsf", mode ? "switch the toolkit on (^STSF=1)" : "switch the toolkit off (^STSF=0)", "toolkit");
    StStsfPara para{};
    para.ucMode = mode;
    para.AtExeResult = kUnset;
    const int rc = AT_Stsf(AT_SET_VALUE, &para, nullptr);
    s.check(rc, para.AtExeResult);
}

void run_stk(const Invocation& inv, Report& report) {
    const std::string action = inv.args.empty() ? "menu" : inv.arg(0);
    const bool takes_arg = action == "select" || action == "answer";
    if (inv.args.size() > (takes_arg ? 2u : 1u)) throw UsageError("unexpected argument '" + inv.args.back() + "'");

    if (action == "menu") {
        toolkit_state(report);
        if (!report.any_failed()) show(report, kMainMenu, fetch(kMainMenu));
    } else if (action == "show") {
        show_pending(report);
    } else if (action == "select") {
        const std::optional<long> item = number(inv.arg(1));
        if (!item || *item < 1 || *item > 255) throw UsageError("'stk select' needs an ITEM number from 1 to 255");
        // An item of the sub-menu the SIM shows, else of the main menu.
        const Fetched sub = fetch(kDialogs[3]);
        if (sub.rc != 0) throw Failure("the SIM toolkit could not be read");
        if (answer(report, sub.entries.empty() ? kMainMenu : kDialogs[3], 0, item, std::nullopt)) show_pending(report);
    } else if (action == "answer" || action == "end") {
        Report probe;
        const std::optional<Kind> pending = show_pending(probe);
        if (probe.any_failed()) throw Failure("the SIM toolkit could not be read");
        if (action == "end") {
            if (answer(report, pending.value_or(kMainMenu), kEndSession, 0, std::nullopt)) show_pending(report);
            return;
        }
        if (!pending || pending->code == 6) throw Failure("no dialog waits for an answer (see 'atctl stk show')");
        const bool wants_text = pending->code == 2 || pending->code == 3;
        if (wants_text && inv.args.size() < 2) throw UsageError("the SIM asks for " + std::string(pending->code == 2 ? "a key" : "a text") + ": 'stk answer TEXT'");
        if (!wants_text && inv.args.size() > 1) throw UsageError("a " + std::string(pending->name) + " dialog takes no text: 'stk answer'");
        const std::string text = inv.arg(1);
        if (text.size() > 511 || text.find_first_of("\"\r\n") != std::string::npos)
            throw UsageError("the answer must be at most 511 characters, without double quotes or line breaks");
        if (answer(report, *pending, 0, std::nullopt, wants_text ? std::optional<std::string>(text) : std::nullopt))
            show_pending(report);
    } else if (action == "on" || action == "off") {
        switch_toolkit(report, action == "on" ? 1 : 0);
    } else {
        throw UsageError("unknown action 'stk " + action + "'");
    }
}

}  // namespace

ATCTL_SUBCOMMAND({.name = "stk",
                  .summary = "the SIM toolkit: its menu, dialogs and answers",
                  .usage = "[menu | show | select ITEM | answer [TEXT] | end | on | off]",
                  .help = "Shows and answers the SIM's toolkit menu and dialogs; without an action, the\n"
                          "toolkit's state and main menu.\n"
                          "  menu          the toolkit switch (^STSF) and the main menu (^STGI=0,0)\n"
                          "  show          the dialog the SIM waits on: a text, a key or text request,\n"
                          "                a sub-menu, a refresh or a browser launch\n"
                          "  select ITEM   choose an item of the sub-menu shown, else of the main menu\n"
                          "  answer [TEXT] answer the waiting dialog: the TEXT (or key) asked for, or\n"
                          "                without TEXT acknowledge a text, refresh or browser launch\n"
                          "  end           end the toolkit session (back to the main menu)\n"
                          "  on, off       switch the toolkit on or off (^STSF=1, ^STSF=0)\n"
                          "select, answer, end, on and off act on the SIM; each then shows what follows.\n",
                  .order = 70,
                  .max_args = 2,
                  .run = run_stk});

}  // namespace atctl
