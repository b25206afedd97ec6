#include "fake_ats.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "reply_bell.h"

namespace atapi_test {

Reply ok(std::string report) { return result(AT_CMD_OK, std::move(report)); }
Reply cme(std::string error_line) { return result(AT_CME_ERROR, std::move(error_line)); }
Reply cms(std::string error_line) { return result(AT_CMS_ERROR, std::move(error_line)); }
Reply result(int ret_val, std::string report) {
    Reply r;
    r.ret_val = ret_val;
    r.report = std::move(report);
    return r;
}
Reply silent() {
    Reply r;
    r.no_reply = true;
    return r;
}
Reply delayed(Reply r, std::chrono::milliseconds d) {
    r.delay = d;
    return r;
}

namespace {

// The stand-in process: the library checks that the pid in the pid file lives and sends it
// SIGUSR1, so it must exist and must survive the signal.
int spawn_stand_in() {
    int ready[2];
    if (pipe(ready) != 0) return -1;
    pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        signal(SIGUSR1, SIG_IGN);
        signal(SIGUSR2, SIG_IGN);
        char c = 1;
        (void)!write(ready[1], &c, 1);
        for (;;) pause();
    }
    close(ready[1]);
    char c = 0;
    if (pid > 0) (void)!read(ready[0], &c, 1);
    close(ready[0]);
    return pid;
}

std::string field(const char* p, size_t width) { return std::string(p, strnlen(p, width)); }

}  // namespace

FakeAtServer::FakeAtServer() {
    if (!run_dir_.ok()) {
        ADD_FAILURE() << "fake AT server: cannot make a run directory";
        return;
    }
    std::filesystem::create_directories(run_dir_ / "pidfile");
    start();
}

FakeAtServer::~FakeAtServer() { stop(); }

void FakeAtServer::start() {
    // Queues left at this key by anything else are not ours to answer on.
    ATS_msgQ_delete(ATS_get_msgQ_id(ATS_QUEUE_ID_RECV));
    ATS_msgQ_delete(ATS_get_msgQ_id(ATS_QUEUE_ID_SEND));
    rcv_q_ = ATS_msgQ_create(ATS_QUEUE_ID_RECV, 10, AT_MSG_Q_SIZE);
    snd_q_ = ATS_msgQ_create(ATS_QUEUE_ID_SEND, 10, AT_MSG_Q_SIZE);
    if (rcv_q_ == -1 || snd_q_ == -1) ADD_FAILURE() << "fake AT server: cannot create queues in " << run_dir_.path();
    pid_ = spawn_stand_in();
    std::ofstream(pid_file()) << pid_ << "\n";
    // Only its owner may write it, as a real server's: the library trusts no other pid file.
    chmod(pid_file().c_str(), 0644);
    {
        std::lock_guard lk(mu_);
        stopping_ = false;
    }
    // The request queue holds 10 records. A sender whose receiver is already waiting hands its
    // record over without queueing it, so several waiting receivers let a burst of many client
    // threads through at once, as the real server's immediate drain does.
    if (bell_wanted_) open_bell();
    for (int i = 0; i < kReceivers; ++i) receivers_.emplace_back([this, rq = rcv_q_] { receive(rq); });
    worker_ = std::thread([this, sq = snd_q_] { work(sq); });
}

void FakeAtServer::stop() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    // Removing the queues ends the receiving thread's blocking receive.
    ATS_msgQ_delete(rcv_q_);
    ATS_msgQ_delete(snd_q_);
    rcv_q_ = snd_q_ = -1;
    for (auto& r : receivers_) r.join();
    receivers_.clear();
    {
        std::lock_guard lk(mu_);
        stopping_ = true;
        pending_.clear();
    }
    cv_.notify_all();
    if (worker_.joinable()) worker_.join();
    close_bell();
}

void FakeAtServer::ring_bell() {
    bell_wanted_ = true;
    if (bell_.load() == nullptr) open_bell();
}

void FakeAtServer::open_bell() {
    const key_t key = ftok(run_dir_.path().c_str(), atapi::bell::kBellIdentity);
    shmctl(shmget(key, 0, 0), IPC_RMID, nullptr);
    atapi::bell::Page* page = atapi::bell::create_page(key, 0600, &bell_id_);
    if (page == nullptr) {
        ADD_FAILURE() << "fake AT server: cannot create the reply bell: " << std::strerror(errno);
        return;
    }
    std::atomic_ref<int32_t>(page->reply_queue).store(snd_q_);
    bell_.store(page);
}

void FakeAtServer::close_bell() {
    atapi::bell::remove_page(bell_.exchange(nullptr), bell_id_);
    bell_id_ = -1;
}

void FakeAtServer::die() { stop(); }

void FakeAtServer::restart() {
    stop();
    run_dir_.point_here();
    start();
}

FakeAtServer& FakeAtServer::reply(Reply r) {
    std::lock_guard lk(mu_);
    script_.push_back(std::move(r));
    return *this;
}

void FakeAtServer::respond(std::function<Reply(const Request&)> responder) {
    std::lock_guard lk(mu_);
    responder_ = std::move(responder);
}

std::vector<Request> FakeAtServer::requests() const {
    std::lock_guard lk(mu_);
    return requests_;
}

size_t FakeAtServer::count() const {
    std::lock_guard lk(mu_);
    return requests_.size();
}

Request FakeAtServer::last() const {
    std::lock_guard lk(mu_);
    if (requests_.empty()) {
        ADD_FAILURE() << "fake AT server: no request received";
        return {};
    }
    return requests_.back();
}

void FakeAtServer::clear_requests() {
    std::lock_guard lk(mu_);
    requests_.clear();
}

bool FakeAtServer::wait_for_requests(size_t n, std::chrono::milliseconds timeout) {
    std::unique_lock lk(mu_);
    return cv_.wait_for(lk, timeout, [&] { return requests_.size() >= n; });
}

// Takes every request off the queue at once, so that senders never find it full.
void FakeAtServer::receive(int q) {
    for (;;) {
        Request req;
        int n = ATS_msgQex_recv(q, &req.raw, sizeof(msg_q), -1, 0);
        if (n == -1) {
            if (errno == EINTR) continue;
            return;  // queue removed: the server is gone
        }
        const msg_q& m = req.raw;
        req.client_id = m.client_id;
        req.req_type = m.req_type;
        req.rep_type = m.rep_type;
        req.rsp_type = m.rsp_type;
        req.seq = m.seq;
        req.at_mutil = m.at_mutil;
        req.time_out = m.time_out;
        req.len = m.snd_rcv_msg.smsg.len;
        req.cmd = field(m.snd_rcv_msg.smsg.at_cmd_str, AT_CMD_STR_LEN);
        req.match = field(m.snd_rcv_msg.smsg.at_match_ok_str, AT_MATCH_STR_LEN);
        std::memcpy(req.cmd_bytes.data(), m.snd_rcv_msg.smsg.at_cmd_str, AT_CMD_STR_LEN);
        {
            std::lock_guard lk(mu_);
            requests_.push_back(req);
            pending_.push_back(std::move(req));
        }
        cv_.notify_all();
    }
}

// Answers the requests one at a time, in arrival order, from the script.
void FakeAtServer::work(int reply_q) {
    for (;;) {
        Request req;
        Reply r;
        {
            std::unique_lock lk(mu_);
            cv_.wait(lk, [&] { return stopping_ || !pending_.empty(); });
            if (stopping_) return;
            req = std::move(pending_.front());
            pending_.pop_front();
            if (!script_.empty()) {
                r = std::move(script_.front());
                script_.pop_front();
            } else if (responder_) {
                auto responder = responder_;
                lk.unlock();
                r = responder(req);
            } else {
                r = result(AT_ERROR);
            }
        }
        answer(req, r, reply_q);
    }
}

void FakeAtServer::answer(const Request& req, const Reply& r, int reply_q) {
    for (const Reply& before : r.extra_before) answer(req, before, reply_q);
    if (r.delay.count() > 0) std::this_thread::sleep_for(r.delay);
    if (r.no_reply) return;
    msg_q rep{};
    rep.client_id = req.client_id;
    rep.req_type = req.req_type;
    rep.rep_type = req.rep_type;
    rep.rsp_type = req.rsp_type;
    rep.seq = req.seq + static_cast<uint32_t>(r.seq_delta);
    rep.at_mutil = req.at_mutil;
    rep.time_out = req.time_out;
    rsp_msg& out = rep.snd_rcv_msg.rmsg;
    if (r.raw_match) {
        std::memcpy(out.at_match_str, r.raw_match->data(), std::min(r.raw_match->size(), size_t(AT_MATCH_STR_LEN)));
    } else {
        std::memcpy(out.at_match_str, req.match.data(), std::min(req.match.size(), size_t(AT_MATCH_STR_LEN - 1)));
    }
    if (r.raw) {
        std::memcpy(out.at_report_str, r.raw->data(), std::min(r.raw->size(), size_t(AT_REPORT_STR_LEN)));
    } else {
        std::memcpy(out.at_report_str, r.report.data(), std::min(r.report.size(), size_t(AT_REPORT_STR_LEN - 1)));
    }
    out.ret_val = r.ret_val;
    out.len = r.len >= 0 ? r.len : static_cast<int32_t>(strnlen(out.at_report_str, AT_REPORT_STR_LEN));
    if (ATS_msgQex_send(reply_q, &rep, sizeof rep, 1) != ATS_TRUE) return;
    if (atapi::bell::Page* page = bell_.load()) atapi::bell::ring(*page, rep.client_id);
}

}  // namespace atapi_test
