// main.cpp - modemsim: a simulated LTE modem on a pseudo-terminal, driven by a scenario file.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "scenario.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr char kUsage[] =
    "usage: modemsim [--scenario FILE] [--set NAME=VALUE]... [--link PATH] [--control PATH]\n"
    "                [--latency MS] [--verbose]\n"
    "\n"
    "Simulates a modem's AT port on a pseudo-terminal and prints the terminal's path.\n"
    "\n"
    "  --scenario FILE  the rules, variables, stores and timed lines to play (see\n"
    "                   sim/scenarios/default.scn for the format); without it, the\n"
    "                   built-in default scenario, an LTE modem on a home network\n"
    "  --set NAME=VALUE start with the scenario variable NAME set to VALUE (for example\n"
    "                   --set \"pin_state=SIM PIN\" for a SIM that wants its PIN)\n"
    "  --link PATH      also make PATH a symbolic link to the terminal (replaced if it\n"
    "                   exists, removed on exit), so a server can be given a fixed name\n"
    "  --control PATH   make PATH a FIFO; each line written to it is an event for the\n"
    "                   scenario (\"@ring +15550100\") or, without '@', a line the modem\n"
    "                   sends unsolicited\n"
    "  --latency MS     wait MS before every answer, on top of the rules' own delays\n"
    "  --verbose        log every command and answer on stderr (what the scenario's\n"
    "                   masks name, such as PINs and passwords, shown as ***)\n";

volatile sig_atomic_t g_stop = 0;
void on_stop(int) { g_stop = 1; }

struct Timer {
    Clock::time_point due;
    std::string line;  // unsolicited line, or an event when it starts with '@'
    int repeat_ms;     // 0: once
};

// The modem's end of a pseudo-terminal, with the link a server is given.
class Port {
public:
    explicit Port(std::string link) : link_(std::move(link)) {}
    ~Port() { close(); }

    bool open() {
        master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0) {
            std::perror("modemsim: pseudo-terminal");
            return false;
        }
        path_ = ptsname(master_);
        // Holding the slave open keeps the master from reporting a hang-up while no server has it
        // open; the line discipline is set raw so that the terminal itself echoes nothing.
        slave_ = ::open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (slave_ < 0) {
            std::perror("modemsim: open slave");
            return false;
        }
        termios tio{};
        tcgetattr(slave_, &tio);
        cfmakeraw(&tio);
        tcsetattr(slave_, TCSANOW, &tio);
        fcntl(master_, F_SETFL, fcntl(master_, F_GETFL) | O_NONBLOCK);
        if (!link_.empty()) {
            const std::string tmp = link_ + ".new";
            unlink(tmp.c_str());
            if (symlink(path_.c_str(), tmp.c_str()) != 0 || rename(tmp.c_str(), link_.c_str()) != 0) {
                std::perror("modemsim: --link");
                return false;
            }
        }
        return true;
    }
    // The port vanishes as a USB modem's does when it restarts.
    void close() {
        if (master_ >= 0) ::close(master_);
        if (slave_ >= 0) ::close(slave_);
        master_ = slave_ = -1;
    }
    void unlink_link() const {
        if (!link_.empty()) unlink(link_.c_str());
    }
    int fd() const { return master_; }
    const std::string& path() const { return path_; }

private:
    std::string link_;
    std::string path_;
    int master_ = -1, slave_ = -1;
};

class Sim {
public:
    Sim(sim::Engine engine, Port& port, int control, int latency_ms, bool verbose)
        : engine_(std::move(engine)), port_(port), control_(control), latency_(latency_ms), verbose_(verbose) {
        const auto now = Clock::now();
        for (const sim::Timed& t : engine_.scenario().timed)
            timers_.push_back({now + std::chrono::milliseconds(t.ms), t.line, t.repeat ? std::max(t.ms, 10) : 0});
    }

    int run() {
        while (!g_stop) {
            pollfd p[2] = {{port_.fd(), POLLIN, 0}, {control_, POLLIN, 0}};
            const int rc = poll(p, 2, timeout_ms());
            if (rc < 0 && errno != EINTR) return 1;
            if (rc > 0 && (p[0].revents & POLLIN)) {
                char buf[4096];
                const ssize_t n = read(port_.fd(), buf, sizeof buf);
                if (n > 0) input_.append(buf, static_cast<size_t>(n));
            }
            if (rc > 0 && (p[1].revents & POLLIN)) read_control();
            if (reopen_due_ && Clock::now() >= *reopen_due_) {
                reopen_due_.reset();
                if (!port_.open()) return 1;
                if (verbose_) std::fprintf(stderr, "modemsim: port back on %s\n", port_.path().c_str());
            }
            fire_timers();
            if (Clock::now() >= reply_due_ && !reply_.empty()) {
                emit(reply_);
                reply_.clear();
                for (Timer& t : after_) timers_.push_back(t);
                after_.clear();
                if (hangup_ms_ >= 0) hang_up();
            }
            if (reply_.empty()) process_input();
        }
        return 0;
    }

private:
    int timeout_ms() const {
        auto next = Clock::now() + 1s;
        for (const Timer& t : timers_) next = std::min(next, t.due);
        if (!reply_.empty()) next = std::min(next, reply_due_);
        if (reopen_due_) next = std::min(next, *reopen_due_);
        const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now()).count();
        return static_cast<int>(std::max<long long>(ms, 0) + (reply_.empty() ? 1 : 0));
    }

    void emit(std::string_view bytes) {
        while (!bytes.empty() && port_.fd() >= 0) {
            const ssize_t n = write(port_.fd(), bytes.data(), bytes.size());
            if (n > 0) {
                bytes.remove_prefix(static_cast<size_t>(n));
            } else if (n < 0 && errno == EINTR) {
                continue;
            } else {
                // A full terminal with a reader drains soon; when nobody reads the port, what a
                // modem says is lost.
                pollfd p{port_.fd(), POLLOUT, 0};
                if (n < 0 && errno == EAGAIN && poll(&p, 1, 1000) > 0 && (p.revents & POLLOUT)) continue;
                return;
            }
        }
    }

    void unsolicited(const std::string& line) {
        if (verbose_) std::fprintf(stderr, "modemsim: unsolicited %s\n", engine_.masked(line).c_str());
        emit("\r\n" + line + "\r\n");
    }

    // An event's rule speaks unsolicited lines, and may schedule more events or drop the port.
    void event(const std::string& line) {
        if (verbose_) std::fprintf(stderr, "modemsim: event %s\n", line.c_str());
        const sim::Response r = engine_.event(line);
        for (const std::string& l : r.lines) unsolicited(l);
        const auto now = Clock::now();
        for (const auto& [ms, l] : r.after) timers_.push_back({now + std::chrono::milliseconds(ms), l, 0});
        if (r.hangup_ms >= 0) {
            hangup_ms_ = r.hangup_ms;
            hang_up();
        }
    }

    void fire_timers() {
        const auto now = Clock::now();
        std::vector<Timer> due, keep;
        for (Timer& t : timers_) (t.due > now ? keep : due).push_back(t);
        timers_.swap(keep);
        for (Timer& t : due) {
            if (!t.line.empty() && t.line.front() == '@') event(engine_.expand(t.line));
            else unsolicited(engine_.expand(t.line));
            if (t.repeat_ms > 0) {
                t.due = now + std::chrono::milliseconds(t.repeat_ms);
                timers_.push_back(t);
            }
        }
    }

    void read_control() {
        char buf[4096];
        const ssize_t n = read(control_, buf, sizeof buf);
        if (n > 0) control_input_.append(buf, static_cast<size_t>(n));
        for (size_t nl; (nl = control_input_.find('\n')) != std::string::npos;) {
            std::string line = control_input_.substr(0, nl);
            control_input_.erase(0, nl + 1);
            std::erase(line, '\r');
            if (line.empty()) continue;
            if (line.front() == '@') event(line);
            else unsolicited(line);
        }
        if (control_input_.size() > 4096) control_input_.clear();
    }

    void hang_up() {
        if (verbose_) std::fprintf(stderr, "modemsim: port dropped for %d ms\n", hangup_ms_);
        port_.close();
        // The link goes with the port, as a USB modem's device node does: left in place it would
        // name a terminal number the system may give to another program meanwhile.
        port_.unlink_link();
        // A modem that restarts forgets the command it was answering.
        input_.clear();
        reply_.clear();
        after_.clear();
        in_body_ = false;
        reopen_due_ = Clock::now() + std::chrono::milliseconds(hangup_ms_);
        hangup_ms_ = -1;
    }

    void answer(const sim::Response& r) {
        if (r.prompt) {
            in_body_ = true;
            body_bytes_ = static_cast<size_t>(r.body_bytes);
            emit("\r\n> ");
            return;
        }
        // Information lines form one block, as a modem prints them: CR LF, lines, CR LF.
        std::string out;
        for (size_t i = 0; i < r.lines.size(); ++i) out += "\r\n" + r.lines[i];
        if (!r.lines.empty()) out += "\r\n";
        out += "\r\n" + r.final + "\r\n";
        if (verbose_) std::fprintf(stderr, "modemsim: answer %zu lines, %s\n", r.lines.size(), r.final.c_str());
        reply_ = out;
        reply_due_ = Clock::now() + std::chrono::milliseconds(r.delay_ms + latency_);
        for (const auto& [ms, line] : r.after)
            after_.push_back({reply_due_ + std::chrono::milliseconds(ms), line, 0});
        hangup_ms_ = r.hangup_ms;
    }

    void process_input() {
        while (!input_.empty() && reply_.empty()) {
            if (in_body_) {
                size_t end = 0;
                bool cancelled = false;
                if (body_bytes_ > 0) {
                    // A raw body of fixed size: NULs, Ctrl-Z and ESC are text here.
                    if (input_.size() < body_bytes_) return;
                    end = body_bytes_;
                } else {
                    end = input_.find_first_of("\x1a\x1b");
                    if (end == std::string::npos) return;
                    cancelled = input_[end] == '\x1b';
                }
                const std::string body = input_.substr(0, end);
                input_.erase(0, body_bytes_ > 0 ? end : end + 1);
                in_body_ = false;
                body_bytes_ = 0;
                if (engine_.echo()) emit(body);
                if (verbose_) std::fprintf(stderr, "modemsim: body of %zu bytes%s\n", body.size(), cancelled ? " cancelled" : "");
                answer(engine_.body(body, cancelled));
                continue;
            }
            const size_t cr = input_.find('\r');
            if (cr == std::string::npos) {
                // A modem forgets a line that never ends; so does the simulation.
                if (input_.size() > 4096) input_.clear();
                return;
            }
            std::string line = input_.substr(0, cr);
            input_.erase(0, cr + 1);
            std::erase(line, '\n');
            if (engine_.echo()) emit(line + "\r");
            if (line.empty()) continue;
            if (verbose_) std::fprintf(stderr, "modemsim: command %s\n", engine_.masked(line).c_str());
            answer(engine_.command(line));
        }
    }

    sim::Engine engine_;
    Port& port_;
    int control_;
    int latency_;
    bool verbose_;
    std::string input_, control_input_;
    bool in_body_ = false;
    size_t body_bytes_ = 0;
    std::string reply_;
    Clock::time_point reply_due_{};
    int hangup_ms_ = -1;
    std::optional<Clock::time_point> reopen_due_;
    std::vector<Timer> timers_;
    std::vector<Timer> after_;
};

}  // namespace

int main(int argc, char** argv) {
    std::string scenario_path, link, control_path;
    std::vector<std::pair<std::string, std::string>> settings;
    int latency = 0;
    bool verbose = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view a = argv[i];
        const bool has_value = i + 1 < argc;
        if (a == "--help" || a == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (a == "--scenario" && has_value) {
            scenario_path = argv[++i];
        } else if (a == "--set" && has_value) {
            const std::string_view kv = argv[++i];
            const size_t eq = kv.find('=');
            if (eq == 0 || eq == std::string_view::npos) {
                std::fprintf(stderr, "modemsim: --set needs NAME=VALUE\n%s", kUsage);
                return 2;
            }
            settings.emplace_back(kv.substr(0, eq), kv.substr(eq + 1));
        } else if (a == "--link" && has_value) {
            link = argv[++i];
        } else if (a == "--control" && has_value) {
            control_path = argv[++i];
        } else if (a == "--latency" && has_value) {
            latency = std::max(0, std::atoi(argv[++i]));
        } else if (a == "--verbose") {
            verbose = true;
        } else {
            std::fprintf(stderr, "modemsim: bad argument %s\n%s", argv[i], kUsage);
            return 2;
        }
    }
    std::string error;
    std::optional<sim::Scenario> sc = scenario_path.empty() ? sim::Scenario::builtin("default.scn", &error)
                                                            : sim::Scenario::load(scenario_path, &error);
    if (!sc) {
        std::fprintf(stderr, "modemsim: %s: %s\n", scenario_path.empty() ? "built-in default" : scenario_path.c_str(),
                     error.c_str());
        return 2;
    }

    for (const auto& [name, value] : settings) sc->vars[name] = value;

    int control = -1;
    if (!control_path.empty()) {
        unlink(control_path.c_str());
        // Opened for reading and writing, so that it never reads as closed between writers.
        if (mkfifo(control_path.c_str(), 0600) != 0 ||
            (control = open(control_path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)) < 0) {
            std::perror("modemsim: --control");
            return 1;
        }
    }

    Port port(link);
    if (!port.open()) return 1;
    struct sigaction sa {};
    sa.sa_handler = on_stop;
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGINT, &sa, nullptr);
    signal(SIGPIPE, SIG_IGN);

    std::printf("%s\n", port.path().c_str());
    std::fflush(stdout);

    Sim s(sim::Engine(std::move(*sc)), port, control, latency, verbose);
    const int rc = s.run();
    port.unlink_link();
    port.close();
    if (control >= 0) {
        close(control);
        unlink(control_path.c_str());
    }
    return rc;
}
