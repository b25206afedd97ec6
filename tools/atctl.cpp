// atctl.cpp - command-line client of libatapi: reads the modem's state through the library's
// public functions and prints it for people (default) or scripts (--json).
//
// Exit status: 0 every call succeeded; 1 the AT server answered but a call failed (the modem
// said error, or gave no usable answer), or this build of the library has none of the calls
// asked for; 2 no AT server, or bad usage.
//
// A command family joins atctl with one row in kSubcommands and one reader function.
#include <signal.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "families.h"

namespace atctl {
namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;  // also: no AT server

constexpr std::string_view kZoneOption = "--zone";

struct Subcommand {
    std::string_view name;
    std::string_view summary;
    std::string_view help;     // the body of `atctl NAME --help`
    std::string_view options;  // the subcommand's own option and its value, as usage shows them
    void (*read)(const Settings&, Report&);
    bool in_status;            // part of the `status` summary
};

void read_status(const Settings& settings, Report& report);

constexpr std::array kSubcommands{
    Subcommand{"signal",       "signal quality, converted to dBm and dB",
               "Reads +CSQ, ^HCSQ, ^CERSSI, ^LTERSRP and ^CSNR. Coded values are shown in\n"
               "dBm or dB with the modem's raw code beside them; 99 and 255 mean unknown.\n",
               "", read_signal, true},
    Subcommand{"registration", "registration, attach, system information, last reject",
               "Reads +CREG, +CGREG, +CEREG, +CGATT, the router's cached ^SYSINFOEX (asking\n"
               "the modem when nothing is cached yet) and ^REJINFO. Nothing is set: a\n"
               "registration whose reports are off shows no location.\n",
               "", read_registration, true},
    Subcommand{"time",         "the modem's clock in universal and local time",
               "Reads +CCLK and converts it to local time.\n"
               "  --zone Q   offset of local time in quarter hours, signed, as the network\n"
               "             codes it (+32 is GMT+08:00); default: this host's zone\n",
               "--zone Q", read_clock, true},
    Subcommand{"status",       "a one-screen summary of all the subcommands",
               "Makes the calls of every other subcommand and prints one line per call;\n"
               "with --json, the same members as the single subcommands give.\n"
               "  --zone Q   as for 'time'\n",
               "--zone Q", read_status, false},
};

constexpr std::string_view kGlobalHelp =
    "usage: atctl [--json] [--run-dir DIR] SUBCOMMAND [options]\n"
    "       atctl SUBCOMMAND --help\n"
    "\n"
    "Reads the modem's state through libatapi and the AT server.\n"
    "\n"
    "  --json         one JSON object, a member per library call, for scripts\n"
    "  --run-dir DIR  the AT server's run directory (default: $ATAPI_RUN_DIR, else /var/run)\n"
    "  --help         this text\n"
    "\n"
    "Exit status: 0 success, 1 the modem answered an error (or nothing usable),\n"
    "2 no AT server or bad usage.\n"
    "\n"
    "Subcommands:\n";

void read_status(const Settings& settings, Report& report) {
    for (const Subcommand& sub : kSubcommands)
        if (sub.in_status) sub.read(settings, report);
}

const Subcommand* find_subcommand(std::string_view name) {
    for (const Subcommand& sub : kSubcommands)
        if (sub.name == name) return &sub;
    return nullptr;
}

std::string global_help() {
    std::string out(kGlobalHelp);
    for (const Subcommand& sub : kSubcommands) {
        std::string name(sub.name);
        name.resize(14, ' ');
        out += "  " + name + std::string(sub.summary) + '\n';
    }
    return out;
}

std::string subcommand_help(const Subcommand& sub) {
    std::string out = "usage: atctl [--json] [--run-dir DIR] " + std::string(sub.name);
    if (!sub.options.empty()) out += " [" + std::string(sub.options) + "]";
    out += "\n\n" + std::string(sub.summary) + ".\n\n" + std::string(sub.help);
    return out;
}

bool accepts(const Subcommand& sub, std::string_view option) {
    return sub.options.substr(0, sub.options.find(' ')) == option;
}

// "'time' and 'status'": the subcommands that take `option`.
std::string takers(std::string_view option) {
    std::vector<std::string> names;
    for (const Subcommand& s : kSubcommands)
        if (accepts(s, option)) names.push_back("'" + std::string(s.name) + "'");
    std::string out;
    for (size_t i = 0; i < names.size(); ++i)
        out += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
    return out;
}

int usage_error(const std::string& what) {
    std::fprintf(stderr, "atctl: %s\nrun 'atctl --help' for the subcommands and options\n", what.c_str());
    return kExitUsage;
}

std::optional<int> parse_zone(std::string_view text) {
    if (!text.empty() && text[0] == '+') text.remove_prefix(1);
    int v = 0;
    const char* end = text.data() + text.size();
    const auto [p, ec] = std::from_chars(text.data(), end, v);
    // Under a day either way: the conversion shifts the date by one day at most.
    if (text.empty() || ec != std::errc() || p != end || v < -95 || v > 95) return std::nullopt;
    return v;
}

// Why no AT server can answer, or nothing when one is running. The library itself only
// returns -1, so the pid file is checked first to say precisely what is missing.
std::optional<std::string> missing_server() {
    const std::string pid_file = std::string(ATS_run_dir()) + "/pidfile/atserver.pid";
    std::ifstream in(pid_file);
    if (!in) return "no AT server: " + pid_file + " missing";
    long pid = 0;
    if (!(in >> pid) || pid <= 0) return "no AT server: " + pid_file + " holds no process id";
    if (kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH)
        return "no AT server: " + pid_file + " names process " + std::to_string(pid) + ", which is not running";
    if (ATS_get_msgQ_id(ATS_QUEUE_ID_RECV) == -1)
        return "no AT server: the request queue of run directory " + std::string(ATS_run_dir()) + " is missing";
    return std::nullopt;
}

int no_server(const std::string& why, bool json) {
    std::fprintf(stderr,
                 "atctl: %s\n"
                 "Start one for a modem with 'atserver --device /dev/ttyUSB2', or run scripts/demo.sh\n"
                 "for a simulated one; atctl and the server must share the run directory\n"
                 "(ATAPI_RUN_DIR or --run-dir).\n",
                 why.c_str());
    if (json) std::printf("{\"error\": %s}\n", json_string(why).c_str());
    return kExitUsage;
}

int run(int argc, char** argv) {
    Settings settings;
    const Subcommand* sub = nullptr;
    bool help = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view a = argv[i];
        auto value = [&]() -> std::optional<std::string_view> {
            if (i + 1 >= argc) return std::nullopt;
            return std::string_view(argv[++i]);
        };
        if (a == "--help" || a == "-h") {
            help = true;
        } else if (a == "--json") {
            settings.json = true;
        } else if (a == "--run-dir") {
            const std::optional<std::string_view> dir = value();
            if (!dir || dir->empty()) return usage_error("--run-dir needs a directory");
            setenv("ATAPI_RUN_DIR", std::string(*dir).c_str(), 1);
        } else if (a == kZoneOption) {
            if (sub == nullptr || !accepts(*sub, a))
                return usage_error(std::string(a) + " is an option of " + takers(a) + " only");
            const std::optional<std::string_view> text = value();
            settings.zone = text ? parse_zone(*text) : std::nullopt;
            if (!settings.zone) return usage_error("--zone needs quarter hours from -95 to 95, such as +32");
        } else if (!a.empty() && a[0] == '-') {
            return usage_error("unknown option '" + std::string(a) + "'");
        } else if (sub == nullptr && a == "help") {
            help = true;
        } else if (sub == nullptr) {
            sub = find_subcommand(a);
            if (sub == nullptr) return usage_error("unknown subcommand '" + std::string(a) + "'");
        } else {
            return usage_error("unexpected argument '" + std::string(a) + "'");
        }
    }
    if (help) {
        std::fputs((sub ? subcommand_help(*sub) : global_help()).c_str(), stdout);
        return kExitOk;
    }
    if (sub == nullptr) return usage_error("a subcommand is needed");

    if (const std::optional<std::string> why = missing_server()) return no_server(*why, settings.json);

    Report report;
    sub->read(settings, report);
    if (report.any_failed()) {
        // A server that went away during the run explains every failure better than the calls can.
        if (const std::optional<std::string> why = missing_server()) return no_server(*why, settings.json);
    }
    const std::string out = settings.json ? report.render_json()
                            : sub->read == read_status ? report.render_summary()
                                                       : report.render_text();
    std::fputs(out.c_str(), stdout);
    return report.any_failed() || report.all_unsupported() ? kExitFailed : kExitOk;
}

}  // namespace
}  // namespace atctl

int main(int argc, char** argv) {
    try {
        return atctl::run(argc, argv);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "atctl: %s\n", e.what());
        return atctl::kExitFailed;
    }
}
