// harness.h - real processes for the end-to-end tests: a simulated modem, the AT server, and
// the library in the test process, all in a private run directory.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "atapi.h"
#include "run_dir.h"

namespace e2e {

using namespace std::chrono_literals;

// Polls `f` until it holds or `limit` passes: how a test waits for a state the processes reach.
template <typename F>
bool eventually(F f, std::chrono::milliseconds limit = 5s) {
    const auto end = std::chrono::steady_clock::now() + limit;
    for (; std::chrono::steady_clock::now() < end; std::this_thread::sleep_for(20ms))
        if (f()) return true;
    return false;
}

// A child process, stopped (TERM, then KILL) when it goes out of scope.
class Child {
public:
    Child() = default;
    ~Child() { stop(); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    bool spawn(const std::vector<std::string>& argv, bool quiet);
    void signal(int sig) const;
    bool wait_exit(std::chrono::milliseconds limit);  // true when it exited and was reaped
    void stop();
    pid_t pid() const { return pid_; }
    int status() const { return status_; }  // waitpid's status once reaped

private:
    pid_t pid_ = -1;
    int status_ = -1;
};

// A "Vm..." figure of /proc/<pid>/status in KiB ("VmRSS", "VmHWM"), or -1.
long memory_kib(pid_t pid, const char* field);

// One outcome of GetDataFromAtServer; ret_val, report and match only when rc is 0.
struct Outcome {
    int rc = -2;
    int ret_val = -100;
    std::string report, match;
};

// A request record as the command functions fill it, from the calling thread.
msg_q request(std::string_view cmd, std::string_view match = "", int time_out = 5);
Outcome exchange(msg_q& req);
Outcome exchange(std::string_view cmd, std::string_view match = "", int time_out = 5);

// One message of `type` on the request queue with exactly `text` (up to 4 KiB), as a client that
// ignores the record's size sends it; false when the queue did not take it.
bool send_raw(long type, std::string_view text);

// `count` messages of a client that breaks every rule and never reads a reply: commands and
// report requests of the calling thread with the longest time-out, commands and report requests
// of ids no thread has, unknown request types, messages longer and shorter than a record.
// Unpaced, it sends as fast as it can and keeps the request queue full whenever the server is
// slower (then an honest send finds it full and fails at once); with `paced` it leaves the queue
// room for an honest request, sending as fast as the server takes the messages in.
// Returns how many the queue took.
int hostile_requests(int count, bool paced);
inline constexpr long kNoThread = 1L << 30;  // beyond any pid_max

// modemsim and atserver in a fresh run directory; ATAPI_RUN_DIR points the test process at it.
class Stack {
public:
    // `scenario` is the text of a scenario file, or empty for the simulator's built-in default.
    explicit Stack(std::string_view scenario = {});
    ~Stack();

    bool start_sim();
    bool start_server(const std::vector<std::string>& options = {});
    bool serving(std::chrono::milliseconds limit = 5s);  // the server answers a plain "AT"
    bool start() { return start_sim() && start_server() && serving(); }

    const std::string& dir() const { return dir_.path(); }
    const std::string& device() const { return link_; }
    std::string pid_file() const { return dir_ / "pidfile/atserver.pid"; }
    // Writes one line to the simulator's control input: an event ("@ring ...") or a line the
    // modem then sends unsolicited.
    bool control(std::string_view line) const;

    Child sim, server;
    std::vector<std::string> sim_options;  // more modemsim arguments, such as {"--set", "pin_state=SIM PIN"}

private:
    atapi_test::RunDir dir_;
    std::string link_, control_, scenario_;
};

}  // namespace e2e
