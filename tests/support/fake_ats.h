// fake_ats.h - the scripted fake AT server the test suites talk to over real SysV queues.
//
// A FakeAtServer makes a private run directory, points ATAPI_RUN_DIR at it, creates the two
// queues there (identities 1 and 2), starts a stand-in process whose pid it writes to
// "<run dir>/pidfile/atserver.pid" (the library checks that pid and signals it), and serves
// the request queue from a thread of the test process. Each request is recorded whole and
// answered from the script:
//
//     FakeAtServer ats;
//     ats.reply(ok("+CSQ: 20,99"));                  // next request gets this
//     EXPECT_EQ(AT_Csq(&rec), 0);
//     EXPECT_EQ(ats.last().cmd, "AT+CSQ");
//
// Replies come from the queue of scripted replies in order; when it is empty, from the
// responder (if set), else an AT_ERROR reply with an empty report.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "atapi.h"
#include "run_dir.h"

namespace atapi::bell {
struct Page;
}

namespace atapi_test {

// One scripted answer.
struct Reply {
    int ret_val = AT_CMD_OK;
    std::string report;                        // text for at_report_str (cut to 1499 bytes)
    std::optional<std::string> raw;            // exact bytes for at_report_str (up to 1500, no NUL added)
    std::optional<std::string> raw_match;      // exact bytes for at_match_str (up to 64, no NUL added);
                                               // default: the request's at_match_ok_str
    std::chrono::milliseconds delay{0};        // wait before answering
    bool no_reply = false;                     // take the request, never answer
    int seq_delta = 0;                         // added to the request's seq (-1 stale, +1 newer)
    std::vector<Reply> extra_before;           // replies sent first (e.g. a stale one), each as scripted
    int32_t len = -1;                          // rmsg.len; -1: the report's length
};

Reply ok(std::string report = "");
Reply cme(std::string error_line);             // AT_CME_ERROR with the given line
Reply cms(std::string error_line);             // AT_CMS_ERROR with the given line
Reply result(int ret_val, std::string report = "");
Reply silent();                                // no reply at all
Reply delayed(Reply r, std::chrono::milliseconds d);

// A request as it arrived on the request queue.
struct Request {
    msg_q raw{};                               // the whole 1600-byte record
    int32_t client_id = 0, req_type = 0, rep_type = 0, rsp_type = 0, at_mutil = 0, time_out = 0, len = 0;
    uint32_t seq = 0;
    std::string cmd;                           // at_cmd_str up to its first NUL
    std::string match;                         // at_match_ok_str up to its first NUL
    std::array<char, AT_CMD_STR_LEN> cmd_bytes{}; // the raw 640 command bytes
};

class FakeAtServer {
public:
    FakeAtServer();
    ~FakeAtServer();
    FakeAtServer(const FakeAtServer&) = delete;
    FakeAtServer& operator=(const FakeAtServer&) = delete;

    // Script the next reply (appended to the queue of scripted replies).
    FakeAtServer& reply(Reply r);
    // Answer requests that find no scripted reply.
    void respond(std::function<Reply(const Request&)> responder);

    // Every request received so far, in order.
    std::vector<Request> requests() const;
    size_t count() const;
    Request last() const;                      // fails the test when there is none
    void clear_requests();
    // Wait until `n` requests have arrived (false after `timeout`).
    bool wait_for_requests(size_t n, std::chrono::milliseconds timeout = std::chrono::seconds(5));

    // Simulated death: the stand-in process and the queues vanish; the pid file stays,
    // naming a dead process.
    void die();
    // A new server: new stand-in process (new pid), new queues, new pid file.
    void restart();
    // From now on, and after restarts, keep a reply bell and ring it after each reply, as the
    // AT server does.
    void ring_bell();

    const std::string& run_dir() const { return run_dir_.path(); }
    std::string pid_file() const { return run_dir_ / "pidfile/atserver.pid"; }
    int pid() const { return pid_; }
    int request_queue() const { return rcv_q_; }
    int reply_queue() const { return snd_q_; }

private:
    void start();
    void stop();
    void receive(int request_q);
    void work(int reply_q);
    void answer(const Request& req, const Reply& r, int reply_q);
    void open_bell();
    void close_bell();

    RunDir run_dir_;
    int pid_ = -1;
    int rcv_q_ = -1, snd_q_ = -1;
    static constexpr int kReceivers = 8;
    std::vector<std::thread> receivers_;
    std::thread worker_;
    bool bell_wanted_ = false;
    int bell_id_ = -1;
    std::atomic<atapi::bell::Page*> bell_{nullptr};
    bool stopping_ = false;
    std::deque<Request> pending_;
    mutable std::mutex mu_;
    std::condition_variable cv_;
    std::deque<Reply> script_;
    std::function<Reply(const Request&)> responder_;
    std::vector<Request> requests_;
};

}  // namespace atapi_test
