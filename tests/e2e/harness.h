// harness.h - real processes for the end-to-end tests: a simulated modem, the AT server, and
// the library in the test process, all in a private run directory.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "atapi.h"

namespace e2e {

using namespace std::chrono_literals;

// A child process, stopped (TERM, then KILL) when it goes out of scope.
class Child {
public:
    Child() = default;
    ~Child() { stop(); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    bool spawn(const std::vector<std::string>& argv, bool quiet);
    void signal(int sig) const;
    // True when the child exited within `limit` (reaped).
    bool wait_exit(std::chrono::milliseconds limit);
    void stop();
    pid_t pid() const { return pid_; }
    bool running() const { return pid_ > 0; }

private:
    pid_t pid_ = -1;
};

// One outcome of GetDataFromAtServer.
struct Outcome {
    int rc = -2;          // GetDataFromAtServer's result
    int ret_val = -100;   // rmsg.ret_val when rc is 0
    std::string report;
    std::string match;
    uint32_t seq = 0;
};

// A request record as the command functions fill it, from the calling thread.
msg_q request(std::string_view cmd, std::string_view match = "", int time_out = 5);
Outcome exchange(msg_q& req);
Outcome exchange(std::string_view cmd, std::string_view match = "", int time_out = 5);

// modemsim and atserver in a fresh run directory; ATAPI_RUN_DIR points the test process at it.
class Stack {
public:
    // `scenario` is the text of a scenario file, or empty for the default scenario.
    explicit Stack(std::string_view scenario = {});
    ~Stack();

    bool start_sim();
    bool start_server();
    // Waits until the server answers a plain "AT".
    bool serving(std::chrono::milliseconds limit = 5s);
    bool start() { return start_sim() && start_server() && serving(); }

    const std::string& dir() const { return dir_; }
    const std::string& device() const { return link_; }
    std::string pid_file() const { return dir_ + "/pidfile/atserver.pid"; }

    Child sim;
    Child server;

private:
    std::string dir_, link_, scenario_;
};

std::string read_file(const std::string& path);

}  // namespace e2e
