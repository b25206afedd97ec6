// atctl.cpp - command-line client of libatapi: reads and drives the modem through the library's
// public functions and prints what it found for people (default) or scripts (--json).
//
// Exit status: 0 every call succeeded; 1 the AT server answered but a call failed (the modem
// said error, or gave no usable answer), an action was refused or could not be done, or this
// build of the library has none of the calls asked for; 2 no AT server, or bad usage.
//
// Each command family registers its subcommand from its own source file (cli.h).
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli.h"

namespace atctl {

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;  // also: no AT server

std::vector<Subcommand>& registry() {
    static std::vector<Subcommand> all;
    return all;
}

constexpr std::string_view kGlobalHelp =
    "usage: atctl [--json] [--run-dir DIR] SUBCOMMAND [arguments] [options]\n"
    "       atctl SUBCOMMAND --help\n"
    "\n"
    "Reads and drives the modem through libatapi and the AT server.\n"
    "\n"
    "  --json         one JSON object, a member per library call, for scripts\n"
    "  --run-dir DIR  the AT server's run directory (default: $ATAPI_RUN_DIR, else /var/run)\n"
    "  --help         this text\n"
    "\n"
    "Replies are waited for with the library's low-latency wait (ATAPI_REPLY_WAIT=fast);\n"
    "ATAPI_REPLY_WAIT=poll in the environment keeps the 10 ms poll.\n"
    "\n"
    "PINs, PUKs and passwords are read from standard input or from a file, never from the\n"
    "command line.\n"
    "\n"
    "Exit status: 0 success, 1 the modem answered an error (or nothing usable) or an action was\n"
    "refused, 2 no AT server or bad usage.\n"
    "\n"
    "Subcommands:\n";

void run_status(const Invocation& inv, Report& report) {
    Invocation quiet = inv;
    quiet.args.clear();
    for (const Subcommand* sub : subcommands())
        if (sub->in_status) sub->run(quiet, report);
}

ATCTL_SUBCOMMAND({.name = "status",
                  .summary = "a one-screen summary of the reading subcommands",
                  .usage = "[--zone Q]",
                  .help = "Makes the calls of every reading subcommand and prints one line per call;\n"
                          "with --json, the same members as the single subcommands give.\n"
                          "  --zone Q   as for 'time'\n",
                  .order = 1000,
                  .options = "--zone Q",
                  .run = run_status});

const Subcommand* find_subcommand(std::string_view name) {
    for (const Subcommand* sub : subcommands())
        if (sub->name == name) return sub;
    return nullptr;
}

std::string global_help() {
    std::string out(kGlobalHelp);
    for (const Subcommand* sub : subcommands()) {
        std::string name(sub->name);
        name.resize(14, ' ');
        out += "  " + name + std::string(sub->summary) + '\n';
    }
    return out;
}

std::string subcommand_help(const Subcommand& sub) {
    std::string out = "usage: atctl [--json] [--run-dir DIR] " + std::string(sub.name);
    if (!sub.usage.empty()) out += " " + std::string(sub.usage);
    out += "\n\n" + std::string(sub.summary) + ".\n\n" + std::string(sub.help);
    return out;
}

// Whether `sub` takes `option`, and whether the option has a value.
std::optional<bool> takes(const Subcommand& sub, std::string_view option) {
    std::string_view rest = sub.options;
    while (!rest.empty()) {
        const size_t end = rest.find(' ');
        const std::string_view word = rest.substr(0, end);
        rest = end == std::string_view::npos ? std::string_view{} : rest.substr(end + 1);
        if (word != option) continue;
        const bool value = !rest.empty() && rest.front() != '-';
        return value;
    }
    return std::nullopt;
}

// "'time' and 'status'": the subcommands that take `option`.
std::string takers(std::string_view option) {
    std::vector<std::string> names;
    for (const Subcommand* s : subcommands())
        if (takes(*s, option)) names.push_back("'" + std::string(s->name) + "'");
    std::string out;
    for (size_t i = 0; i < names.size(); ++i)
        out += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
    return out;
}

int usage_error(const std::string& what) {
    std::fprintf(stderr, "atctl: %s\nrun 'atctl --help' for the subcommands and options\n", what.c_str());
    return kExitUsage;
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

int failed(const std::string& why, bool json) {
    std::fprintf(stderr, "atctl: %s\n", why.c_str());
    if (json) std::printf("{\"error\": %s}\n", json_string(why).c_str());
    return kExitFailed;
}

int run(int argc, char** argv) {
    Invocation inv;
    const Subcommand* sub = nullptr;
    bool help = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view a = argv[i];
        if (a == "--help" || a == "-h") {
            help = true;
        } else if (a == "--json") {
            inv.json = true;
        } else if (a == "--run-dir") {
            if (i + 1 >= argc || *argv[i + 1] == '\0') return usage_error("--run-dir needs a directory");
            setenv("ATAPI_RUN_DIR", argv[++i], 1);
        } else if (a.size() > 1 && a[0] == '-' && !number(a)) {
            const std::optional<bool> value = sub ? takes(*sub, a) : std::nullopt;
            if (!value) {
                const std::string others = takers(a);
                if (others.empty()) return usage_error("unknown option '" + std::string(a) + "'");
                return usage_error(std::string(a) + " is an option of " + others + " only");
            }
            if (*value && i + 1 >= argc) return usage_error(std::string(a) + " needs a value");
            inv.options[std::string(a)] = *value ? argv[++i] : "";
        } else if (sub == nullptr && a == "help") {
            help = true;
        } else if (sub == nullptr) {
            sub = find_subcommand(a);
            if (sub == nullptr) return usage_error("unknown subcommand '" + std::string(a) + "'");
        } else {
            inv.args.emplace_back(a);
        }
    }
    if (help) {
        std::fputs((sub ? subcommand_help(*sub) : global_help()).c_str(), stdout);
        return kExitOk;
    }
    if (sub == nullptr) return usage_error("a subcommand is needed");
    const auto nargs = static_cast<int>(inv.args.size());
    if (nargs < sub->min_args)
        return usage_error("'" + std::string(sub->name) + "' needs more arguments: " + std::string(sub->usage));
    if (nargs > sub->max_args) return usage_error("unexpected argument '" + inv.args[static_cast<size_t>(sub->max_args)] + "'");

    if (const std::optional<std::string> why = missing_server()) return no_server(*why, inv.json);

    Report report;
    try {
        sub->run(inv, report);
    } catch (const UsageError& e) {
        return usage_error(e.what());
    } catch (const Failure& e) {
        if (const std::optional<std::string> why = missing_server()) return no_server(*why, inv.json);
        return failed(e.what(), inv.json);
    }
    if (report.any_failed()) {
        // A server that went away during the run explains every failure better than the calls can.
        if (const std::optional<std::string> why = missing_server()) return no_server(*why, inv.json);
    }
    const std::string out = inv.json ? report.render_json()
                            : sub->run == run_status ? report.render_summary()
                                                     : report.render_text();
    std::fputs(out.c_str(), stdout);
    return report.any_failed() || report.all_unsupported() ? kExitFailed : kExitOk;
}

}  // namespace

bool register_subcommand(const Subcommand& s) {
    registry().push_back(s);
    return true;
}

std::vector<const Subcommand*> subcommands() {
    std::vector<const Subcommand*> out;
    for (const Subcommand& s : registry()) out.push_back(&s);
    std::stable_sort(out.begin(), out.end(), [](const Subcommand* a, const Subcommand* b) {
        return a->order != b->order ? a->order < b->order : a->name < b->name;
    });
    return out;
}

namespace {

// One line into a fixed buffer, so that no copy of the secret is left behind in memory the
// program gave back (a growing string would leave its earlier buffers unwiped).
bool read_line(std::FILE* in, std::string& out) {
    char buf[512];
    const bool got = std::fgets(buf, sizeof buf, in) != nullptr;
    if (got) {
        const size_t n = std::strcspn(buf, "\r\n");
        out.assign(buf, n);
    }
    explicit_bzero(buf, sizeof buf);
    return got;
}

}  // namespace

Secret::Secret(const Invocation& inv, std::string_view what, std::string_view file_option) {
    value_.reserve(512);
    if (const std::optional<std::string> path = inv.option(file_option)) {
        std::FILE* in = std::fopen(path->c_str(), "re");
        if (!in) throw UsageError("cannot read " + std::string(what) + " from " + *path);
        read_line(in, value_);
        std::fclose(in);
    } else {
        const bool terminal = isatty(STDIN_FILENO) == 1;
        termios saved{};
        if (terminal) {
            std::fprintf(stderr, "%.*s: ", static_cast<int>(what.size()), what.data());
            tcgetattr(STDIN_FILENO, &saved);
            termios quiet = saved;
            quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
            tcsetattr(STDIN_FILENO, TCSANOW, &quiet);
        }
        read_line(stdin, value_);
        if (terminal) {
            tcsetattr(STDIN_FILENO, TCSANOW, &saved);
            std::fputc('\n', stderr);
        }
    }
    if (value_.empty())
        throw UsageError("no " + std::string(what) + " given (standard input, or " + std::string(file_option) + " FILE)");
}

Secret::~Secret() { explicit_bzero(value_.data(), value_.size()); }

void progress(const std::string& line) {
    std::fprintf(stderr, "atctl: %s\n", line.c_str());
    std::fflush(stderr);
}

std::optional<long> number(std::string_view text) {
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    long v = 0;
    const char* end = text.data() + text.size();
    const auto [p, ec] = std::from_chars(text.data(), end, v);
    if (text.empty() || ec != std::errc() || p != end) return std::nullopt;
    return v;
}

}  // namespace atctl

int main(int argc, char** argv) {
    // A person waits for each answer: the library's low-latency reply wait, unless the
    // environment chose a wait already.
    setenv("ATAPI_REPLY_WAIT", "fast", 0);
    try {
        return atctl::run(argc, argv);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "atctl: %s\n", e.what());
        return 1;
    }
}
