// at_server.h - the AT server: owns the modem's AT port and serves the library's requests.
//
// One event loop waits on the port, a signalfd (SIGUSR1 from clients, SIGTERM/SIGINT to stop)
// and an eventfd fed by the intake threads, which sit in a blocking receive on the request queue
// so that a burst of clients never meets the queue's ten-message limit. Requests wait in the
// server's own FIFO and go to the modem one at a time.
#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <pthread.h>
#include <string>
#include <vector>

#include "atapi/link.h"
#include "line_rules.h"
#include "modem_port.h"

namespace ats {

struct Options {
    std::string device;
    int baud = 115200;
    bool foreground = false;
    bool verbose = false;
};

class AtServer {
public:
    explicit AtServer(Options options);
    ~AtServer();
    AtServer(const AtServer&) = delete;
    AtServer& operator=(const AtServer&) = delete;

    // Queues, pid file, signals, intake threads. False with `error` set when the server cannot run.
    bool start(std::string* error);
    // Serves until SIGTERM or SIGINT; then removes the queues and the pid file. Returns the exit code.
    int run();

private:
    using Clock = std::chrono::steady_clock;

    struct Queued {
        msg_q msg;
        Clock::time_point arrived;
    };
    struct Active {
        msg_q req;
        ModemCommand cmd;
        Clock::time_point arrived;
        Clock::time_point deadline;
        bool await_prompt = false;
        std::vector<std::string> info;
    };
    // A reply handed to the reply queue that its client may never collect.
    struct Sent {
        int32_t client;
        uint32_t seq;
        Clock::time_point expires;
    };

    // Requests.
    static void* intake_main(void* self);
    void intake_loop();
    void drain_request_queue();
    void take_inbox();
    void accept(const msg_q& req, Clock::time_point arrived);
    void start_next();
    void answer_report_request(const msg_q& req);
    // Modem.
    void open_port();
    void port_down(const char* why);
    void on_port_input();
    void handle_line(std::string line);
    void finish(int ret_val, std::string_view final_line);
    void keep_report(const std::string& line);
    // Replies.
    void reply(const msg_q& req, Clock::time_point arrived, int ret_val, std::string_view report);
    void flush_outbox();
    bool reply_room();
    void collect_stale_replies();
    // Time.
    void on_tick();
    int poll_timeout_ms() const;
    static Clock::time_point deadline_of(const msg_q& req, Clock::time_point arrived);

    void cleanup();

    Options opt_;
    ModemPort port_;
    int rcv_q_ = -1;  // requests (identity 2)
    int snd_q_ = -1;  // replies (identity 1)
    int sig_fd_ = -1;
    int wake_fd_ = -1;
    std::string pid_file_;
    bool pid_written_ = false;

    std::atomic<bool> stopping_{false};
    std::vector<pthread_t> intake_;
    std::mutex inbox_mu_;
    std::deque<Queued> inbox_;  // filled by the intake threads

    std::deque<Queued> fifo_;
    std::optional<Active> active_;
    bool discarding_ = false;  // late lines of a command that timed out
    Clock::time_point discard_until_{};

    std::string rx_;             // bytes of an unfinished line
    bool skipping_long_ = false; // inside an over-long line
    std::string report_body_for_;  // a report whose payload is the next line

    Clock::time_point reopen_at_{};
    std::chrono::milliseconds backoff_{100};
    bool port_failed_logged_ = false;

    std::map<std::string, std::string> reports_;  // last report of each kind, by name

    std::deque<msg_q> outbox_;  // replies waiting for room on the reply queue
    std::vector<Sent> sent_;
    Clock::time_point next_gc_{};
    Clock::time_point next_queue_poll_{};
};

}  // namespace ats
