// at_server.h - the AT server: owns the modem's AT port and serves the library's requests.
//
// One event loop waits on the port, a signalfd (SIGTERM/SIGINT to stop) and an eventfd fed by
// the intake threads, which sit in a blocking receive on the request queue so that a burst of
// clients never meets the queue's limit; the SIGUSR1 every client sends is ignored, since those
// threads are already waiting. Requests wait in the server's own FIFO and go to the modem one at
// a time. Every store the clients or the modem can fill is bounded, and no client can hold the
// modem for the others by leaving its replies. The loop sleeps until something is due: with
// nothing queued it does not wake at all.
#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <pthread.h>
#include <string>
#include <sys/types.h>
#include <unordered_map>
#include <vector>

#include "atapi/link.h"
#include "line_rules.h"
#include "modem_port.h"
#include "pid_file.h"

namespace atapi::bell {
struct Page;
}

namespace ats {

struct Options {
    std::string device;
    int baud = 115200;
    bool foreground = false;
    bool verbose = false;
    std::optional<gid_t> queue_group;  // a group that may use the queues (0660); else 0600
};

class AtServer {
public:
    explicit AtServer(Options options);
    ~AtServer();
    AtServer(const AtServer&) = delete;
    AtServer& operator=(const AtServer&) = delete;

    // Pid file lock, queues, signals, intake threads. False with `error` set when the server
    // cannot run (another one holds the run directory, unsafe files, no queues).
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
        ReportBuilder report;
        std::string echo;  // what the modem may still echo of what we wrote
    };
    // A reply handed to the reply queue, collected by now or not.
    struct Waiting {
        uint32_t seq = 0;
        Clock::time_point since;    // since when its client has left a reply of ours uncollected
        Clock::time_point expires;  // its client stopped listening by then
        bool gone = false;          // its thread was found gone
        Clock::time_point checked{};  // when its thread was last looked for
    };
    struct Pending {
        msg_q msg;
        Waiting w;
    };
    // After a time-out or a prompt nobody wanted, the modem owes final results that cannot be
    // told apart: the interrupted command's (maybe) and one for each "AT" probe.
    struct Resync {
        int probes = 0;
        int finals = 0;
        Clock::time_point last_final;  // or the last probe, whichever came later
    };

    // Requests.
    static void* intake_main(void* self);
    void intake_loop();
    int receive_request(int qid, int flags, msg_q* out);
    void admit(const msg_q& req);
    void take_inbox();
    void accept(const msg_q& req, Clock::time_point arrived);
    bool fifo_room(const msg_q& req, Clock::time_point arrived);
    Queued take_fifo(std::list<Queued>::iterator it);
    void expire_queued();
    void start_next();
    void answer_report_request(const msg_q& req);
    // Modem.
    void open_port();
    void port_down(const char* why);
    void on_port_input();
    void handle_line(std::string line);
    void finish(int ret_val, std::string_view final_line);
    void keep_report(const std::string& line);
    void begin_resync(const char* why);
    void send_probe();
    void resync_tick(Clock::time_point now);
    // Replies.
    void reply(const msg_q& req, Clock::time_point arrived, int ret_val, std::string_view report);
    void deliver(const msg_q& r, Clock::time_point expires);
    bool post_reply(const msg_q& r);
    bool send_reply(const msg_q& r, const Waiting& w);
    bool remove_replies(int32_t client);
    void flush_outbox();
    bool reply_room();
    bool make_reply_room();
    bool sweep_replies(bool pressure);
    void check_replies(Clock::time_point now);
    bool look_for_thread(int32_t client, Waiting& w, Clock::time_point now);
    int replies_on_queue();
    // Time.
    void on_tick();
    void report_drops();
    bool drops_to_report() const;
    std::optional<std::chrono::nanoseconds> sleep_for() const;
    static Clock::time_point deadline_of(const msg_q& req, Clock::time_point arrived);

    bool create_bell(std::string* error);
    bool create_queues(std::string* error);
    void widen_queue(int q);
    void cleanup();

    Options opt_;
    ModemPort port_;
    PidFile pid_file_;
    int rcv_q_ = -1;  // requests (identity 2)
    int snd_q_ = -1;  // replies (identity 1)
    int sig_fd_ = -1;
    int wake_fd_ = -1;
    int bell_id_ = -1;
    atapi::bell::Page* bell_ = nullptr;  // rung after every reply put on the queue

    std::atomic<bool> stopping_{false};
    std::vector<pthread_t> intake_;
    std::mutex inbox_mu_;
    std::vector<Queued> inbox_;                        // filled by the intake threads
    std::unordered_map<int32_t, int> inbox_clients_;  // requests in inbox_ per client
    std::vector<Queued> taking_;                       // inbox_'s twin, swapped in to empty it
    std::atomic<size_t> inbox_size_{0};                // inbox_.size(), read without the lock
    std::atomic<bool> wake_me_{false};                 // the loop sleeps with nothing to do
    // Counted where they happen, traced once a second.
    std::atomic<unsigned> requests_dropped_{0}, bad_records_{0}, intake_errors_{0};
    unsigned lines_dropped_ = 0, replies_removed_ = 0, requests_refused_ = 0;

    std::list<Queued> fifo_;
    std::unordered_map<int32_t, std::list<Queued>::iterator> fifo_by_client_;
    std::optional<Active> active_;
    std::optional<Resync> resync_;

    std::string rx_;             // bytes of an unfinished line
    std::string read_buf_;
    bool skipping_long_ = false; // inside an over-long line
    std::string report_body_for_;  // a report whose payload is the next line

    Clock::time_point reopen_at_{};
    std::chrono::milliseconds backoff_{100};
    bool port_failed_logged_ = false;

    std::map<std::string, std::string> reports_;  // last report of each kind, by name

    std::deque<Pending> outbox_;  // replies waiting for room on the reply queue
    // By client: the reply of ours that may still be on the queue (a newer reply takes the older
    // off). A client that sends again has collected it (the library takes its replies off before
    // it sends), so its entry goes then; all go when the queue is seen empty. A reply on the
    // queue without an entry is one nobody collects.
    std::unordered_map<int32_t, Waiting> waiting_;
    int reply_capacity_ = 0;   // records the reply queue holds
    int high_water_ = 0;       // replies on the queue before the next command waits
    int maybe_on_queue_ = 0;   // replies sent since the queue was last counted, plus that count
    Clock::time_point next_gc_{};
    Clock::time_point next_expiry_ = Clock::time_point::max();  // earliest deadline in fifo_
    Clock::time_point next_summary_{};
};

}  // namespace ats
