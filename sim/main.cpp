// main.cpp - modemsim: a simulated LTE modem on a pseudo-terminal, driven by a scenario file.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "scenario.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr char kUsage[] =
    "usage: modemsim --scenario FILE [--link PATH] [--latency MS] [--verbose]\n"
    "\n"
    "Simulates a modem's AT port on a pseudo-terminal and prints the terminal's path.\n"
    "\n"
    "  --scenario FILE  the rules, variables, stores and timed lines to play (see\n"
    "                   sim/scenarios/default.scn for the format)\n"
    "  --link PATH      also make PATH a symbolic link to the terminal (replaced if it\n"
    "                   exists, removed on exit), so a server can be given a fixed name\n"
    "  --latency MS     wait MS before every answer, on top of the rules' own delays\n"
    "  --verbose        log every command and answer on stderr\n";

volatile sig_atomic_t g_stop = 0;
void on_stop(int) { g_stop = 1; }

struct Timer {
    Clock::time_point due;
    std::string line;
    int repeat_ms;  // 0: once
};

class Sim {
public:
    Sim(sim::Engine engine, int master, int latency_ms, bool verbose)
        : engine_(std::move(engine)), fd_(master), latency_(latency_ms), verbose_(verbose) {
        const auto now = Clock::now();
        for (const sim::Timed& t : engine_.scenario().timed)
            timers_.push_back({now + std::chrono::milliseconds(t.ms), t.line, t.repeat ? std::max(t.ms, 10) : 0});
    }

    int run() {
        while (!g_stop) {
            pollfd p{fd_, POLLIN, 0};
            const int rc = poll(&p, 1, timeout_ms());
            if (rc < 0 && errno != EINTR) return 1;
            if (rc > 0 && (p.revents & POLLIN)) {
                char buf[4096];
                const ssize_t n = read(fd_, buf, sizeof buf);
                if (n > 0) input_.append(buf, static_cast<size_t>(n));
            }
            fire_timers();
            if (Clock::now() >= reply_due_ && !reply_.empty()) {
                emit(reply_);
                reply_.clear();
                for (Timer& t : after_) timers_.push_back(t);
                after_.clear();
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
        const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(next - Clock::now()).count();
        return static_cast<int>(std::max<long long>(ms, 0) + (reply_.empty() ? 1 : 0));
    }

    void emit(std::string_view bytes) {
        while (!bytes.empty()) {
            const ssize_t n = write(fd_, bytes.data(), bytes.size());
            if (n > 0) {
                bytes.remove_prefix(static_cast<size_t>(n));
            } else if (n < 0 && errno == EINTR) {
                continue;
            } else {
                // A full terminal with a reader drains soon; when nobody reads the port, what a
                // modem says is lost.
                pollfd p{fd_, POLLOUT, 0};
                if (n < 0 && errno == EAGAIN && poll(&p, 1, 1000) > 0 && (p.revents & POLLOUT)) continue;
                return;
            }
        }
    }

    void fire_timers() {
        const auto now = Clock::now();
        std::vector<Timer> keep;
        for (Timer& t : timers_) {
            if (t.due > now) {
                keep.push_back(t);
                continue;
            }
            const std::string line = engine_.expand(t.line);
            if (verbose_) std::fprintf(stderr, "modemsim: unsolicited %s\n", line.c_str());
            emit("\r\n" + line + "\r\n");
            if (t.repeat_ms > 0) {
                t.due = now + std::chrono::milliseconds(t.repeat_ms);
                keep.push_back(t);
            }
        }
        timers_.swap(keep);
    }

    void answer(const sim::Response& r) {
        if (r.prompt) {
            in_body_ = true;
            body_bytes_ = r.body_bytes;
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
    }

    void process_input() {
        while (!input_.empty() && reply_.empty()) {
            if (in_body_) {
                // A raw body of a known size may hold any byte, Ctrl-Z and ESC included.
                const size_t end = body_bytes_ > 0 ? (input_.size() >= body_bytes_ ? body_bytes_ : std::string::npos)
                                                   : input_.find_first_of("\x1a\x1b");
                if (end == std::string::npos) return;
                const bool cancelled = body_bytes_ == 0 && input_[end] == '\x1b';
                const std::string body = input_.substr(0, end);
                input_.erase(0, body_bytes_ > 0 ? end : end + 1);
                in_body_ = false;
                if (engine_.echo()) emit(body);
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
            if (verbose_) std::fprintf(stderr, "modemsim: command %s\n", line.c_str());
            answer(engine_.command(line));
        }
    }

    sim::Engine engine_;
    int fd_;
    int latency_;
    bool verbose_;
    std::string input_;
    bool in_body_ = false;
    size_t body_bytes_ = 0;
    std::string reply_;
    Clock::time_point reply_due_{};
    std::vector<Timer> timers_;
    std::vector<Timer> after_;
};

}  // namespace

int main(int argc, char** argv) {
    std::string scenario_path, link;
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
        } else if (a == "--link" && has_value) {
            link = argv[++i];
        } else if (a == "--latency" && has_value) {
            latency = std::max(0, std::atoi(argv[++i]));
        } else if (a == "--verbose") {
            verbose = true;
        } else {
            std::fprintf(stderr, "modemsim: bad argument %s\n%s", argv[i], kUsage);
            return 2;
        }
    }
    if (scenario_path.empty()) {
        std::fprintf(stderr, "modemsim: --scenario is required\n%s", kUsage);
        return 2;
    }
    std::string error;
    std::optional<sim::Scenario> sc = sim::Scenario::load(scenario_path, &error);
    if (!sc) {
        std::fprintf(stderr, "modemsim: %s: %s\n", scenario_path.c_str(), error.c_str());
        return 2;
    }

    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) {
        std::perror("modemsim: pseudo-terminal");
        return 1;
    }
    const std::string slave_path = ptsname(master);
    // Holding the slave open keeps the master from reporting a hang-up while no server has it
    // open; the line discipline is set raw so that the terminal itself echoes nothing.
    const int slave = open(slave_path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (slave < 0) {
        std::perror("modemsim: open slave");
        return 1;
    }
    termios tio{};
    tcgetattr(slave, &tio);
    cfmakeraw(&tio);
    tcsetattr(slave, TCSANOW, &tio);
    fcntl(master, F_SETFL, fcntl(master, F_GETFL) | O_NONBLOCK);

    if (!link.empty()) {
        unlink(link.c_str());
        if (symlink(slave_path.c_str(), link.c_str()) != 0) {
            std::perror("modemsim: --link");
            return 1;
        }
    }
    struct sigaction sa {};
    sa.sa_handler = on_stop;
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGINT, &sa, nullptr);
    signal(SIGPIPE, SIG_IGN);

    std::printf("%s\n", slave_path.c_str());
    std::fflush(stdout);

    Sim s(sim::Engine(std::move(*sc)), master, latency, verbose);
    const int rc = s.run();
    if (!link.empty()) unlink(link.c_str());
    close(slave);
    close(master);
    return rc;
}
