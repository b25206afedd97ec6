// at_server.cpp - the AT server's event loop.
#include "at_server.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "atapi/primitives.h"
#include "report_names.h"

constexpr char kTraceSource[] = "server/at_server";
#include "trace.h"

namespace ats {
namespace {

using namespace std::chrono_literals;

constexpr unsigned kQueueMsgs = AT_MSG_Q_SIZE > 0 ? 16384 / AT_MSG_Q_SIZE : 1;  // the 16 KiB limit
// Each intake thread blocked in its receive takes a request straight from the sender's msgsnd,
// without the request ever occupying the queue; so a burst of this many clients plus the ten
// queue places is absorbed even before any thread of the server gets a CPU.
constexpr int kIntakeThreads = 64;
constexpr size_t kIntakeStack = 128 * 1024;
constexpr size_t kMaxLine = 4096;
constexpr int kReplyHighWater = 8;   // replies on the queue before the next command waits
constexpr auto kTick = 50ms;         // lost-signal safety net for the request queue
constexpr auto kBusyTick = 2ms;      // while replies wait for room
constexpr auto kGcEvery = 500ms;
constexpr auto kReplyGrace = 2s;     // a client's wait ends time_out after it sent
constexpr auto kLateLines = 3s;      // how long a timed-out command's answer is waited for
constexpr auto kMaxBackoff = 2s;
constexpr int kDefaultTimeout = 30;
constexpr int kWriteTimeoutMs = 2000;

bool thread_alive(int32_t tid) {
    if (tid <= 0) return false;
    char path[32];
    if (ATS_SNPRINTF(path, sizeof path, sizeof path - 1, "/proc/%d", static_cast<int>(tid)) < 0) return false;
    return access(path, F_OK) == 0;
}

bool is_report(std::string_view line) {
    const std::string_view name = line_name(line);
    const auto& names = report_names();
    return std::find(names.begin(), names.end(), name) != names.end();
}

std::string_view c_field(const char* s, size_t width) {
    const void* nul = std::memchr(s, '\0', width);
    return {s, nul ? static_cast<size_t>(static_cast<const char*>(nul) - s) : width};
}

bool is_delete_command(const ModemCommand& c) {
    return (c.name == "+CMGD" || c.name == "^HCMGD") && c.line.find("=?") == std::string::npos;
}

}  // namespace

AtServer::AtServer(Options options) : opt_(std::move(options)) {}

AtServer::~AtServer() { cleanup(); }

bool AtServer::start(std::string* error) {
    const std::string run_dir = ATS_run_dir();
    mkdir(run_dir.c_str(), 0755);
    const std::string pid_dir = run_dir + "/pidfile";
    mkdir(pid_dir.c_str(), 0755);
    pid_file_ = pid_dir + "/atserver.pid";

    // A live server keeps its queues; only a crashed one's are removed.
    const int other = ATS_task_name_to_id("atserver");
    if (other > 0 && other != getpid() && ATS_task_bExist(other)) {
        std::ifstream comm("/proc/" + std::to_string(other) + "/comm");
        std::string name;
        std::getline(comm, name);
        if (name == "atserver") {
            *error = "another atserver (pid " + std::to_string(other) + ") serves " + run_dir;
            return false;
        }
    }

    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGHUP);
    // Blocked before any thread starts, so that every thread inherits the mask.
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    signal(SIGPIPE, SIG_IGN);
    sig_fd_ = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    wake_fd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (sig_fd_ < 0 || wake_fd_ < 0) {
        *error = std::string("signalfd/eventfd: ") + std::strerror(errno);
        return false;
    }

    for (int id : {ATS_QUEUE_ID_SEND, ATS_QUEUE_ID_RECV}) {
        const ATS_QUEUE stale = ATS_get_msgQ_id(id);
        if (stale != -1) {
            ATS_TRACE(WARNING, "removing queue %d left by an earlier server\n", id);
            ATS_msgQ_delete(stale);
        }
    }
    snd_q_ = ATS_msgQ_create(ATS_QUEUE_ID_SEND, kQueueMsgs, AT_MSG_Q_SIZE);
    rcv_q_ = ATS_msgQ_create(ATS_QUEUE_ID_RECV, kQueueMsgs, AT_MSG_Q_SIZE);
    if (snd_q_ == -1 || rcv_q_ == -1) {
        *error = "cannot create the message queues under " + run_dir;
        return false;
    }

    const std::string tmp = pid_file_ + ".tmp";
    {
        std::ofstream f(tmp, std::ios::trunc);
        f << getpid() << '\n';
        if (!f) {
            *error = "cannot write " + tmp;
            return false;
        }
    }
    if (std::rename(tmp.c_str(), pid_file_.c_str()) != 0) {
        *error = "cannot write " + pid_file_;
        return false;
    }
    pid_written_ = true;

    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, kIntakeStack);
    for (int i = 0; i < kIntakeThreads; ++i) {
        pthread_t t;
        if (pthread_create(&t, &attr, &AtServer::intake_main, this) == 0) intake_.push_back(t);
    }
    pthread_attr_destroy(&attr);
    if (intake_.empty()) {
        *error = "cannot start the intake threads";
        return false;
    }
    open_port();
    ATS_TRACE(INFO, "atserver %d serving %s on %s\n", static_cast<int>(getpid()), run_dir.c_str(),
              opt_.device.c_str());
    return true;
}

void AtServer::cleanup() {
    stopping_ = true;
    // Removing the request queue wakes the intake threads out of their receive.
    if (rcv_q_ != -1) ATS_msgQ_delete(rcv_q_);
    if (snd_q_ != -1) ATS_msgQ_delete(snd_q_);
    for (pthread_t t : intake_) pthread_join(t, nullptr);
    intake_.clear();
    rcv_q_ = snd_q_ = -1;  // only now: the intake threads read it
    if (pid_written_) std::remove(pid_file_.c_str());
    pid_written_ = false;
    port_.close();
    if (sig_fd_ >= 0) close(sig_fd_);
    if (wake_fd_ >= 0) close(wake_fd_);
    sig_fd_ = wake_fd_ = -1;
}

// ---- requests ------------------------------------------------------------------------------

void* AtServer::intake_main(void* self) {
    static_cast<AtServer*>(self)->intake_loop();
    return nullptr;
}

void AtServer::intake_loop() {
    const int qid = rcv_q_;
    while (!stopping_) {
        msg_q m{};
        if (ATS_msgQex_recv(qid, &m, sizeof m, -1, 0) < 0) {
            if (errno == EINTR) continue;
            return;  // queue removed: the server is stopping
        }
        {
            std::lock_guard lock(inbox_mu_);
            inbox_.push_back({m, Clock::now()});
        }
        const uint64_t one = 1;
        if (write(wake_fd_, &one, sizeof one) < 0) { /* the counter is saturated: already awake */ }
    }
}

void AtServer::drain_request_queue() {
    msg_q m{};
    while (rcv_q_ != -1 && ATS_msgQex_recv(rcv_q_, &m, sizeof m, 0, 0) > 0) accept(m, Clock::now());
}

void AtServer::take_inbox() {
    uint64_t n = 0;
    if (read(wake_fd_, &n, sizeof n) < 0) { /* nothing signalled */ }
    std::deque<Queued> got;
    {
        std::lock_guard lock(inbox_mu_);
        got.swap(inbox_);
    }
    for (const Queued& q : got) accept(q.msg, q.arrived);
}

AtServer::Clock::time_point AtServer::deadline_of(const msg_q& req, Clock::time_point arrived) {
    const int secs = req.time_out > 0 ? req.time_out : kDefaultTimeout;
    // Answer a little before the client stops listening, so that it hears the time-out.
    const auto wait = std::chrono::milliseconds(secs * 1000LL);
    return arrived + wait - std::min<std::chrono::milliseconds>(wait / 4, 250ms);
}

void AtServer::accept(const msg_q& req, Clock::time_point arrived) {
    // A thread has one request in flight: an earlier one still queued was given up.
    for (auto it = fifo_.begin(); it != fifo_.end();) {
        if (it->msg.client_id == req.client_id) {
            reply(it->msg, it->arrived, AT_CMD_TIMEOUT, {});
            it = fifo_.erase(it);
        } else {
            ++it;
        }
    }
    switch (req.req_type) {
    case AT_REQ:
    case CMD_REQ:
    case AT_VIR_QEQ:
    case AT_PASS_THROUGH:
        break;
    case GET_REPORT_REQ:
        answer_report_request(req);
        return;
    case AT_CLEAR_REQ:
        reports_.clear();
        reply(req, arrived, AT_CMD_OK, {});
        return;
    case AT_ABORT_REQ:
    case AT_ABORT_ALL_REQ:
        // Queued requests are dropped (of every client for the abort-all); the command at the
        // modem runs to its end, since the modem cannot be told to forget it.
        for (auto it = fifo_.begin(); it != fifo_.end();) {
            if (req.req_type == AT_ABORT_ALL_REQ) {
                reply(it->msg, it->arrived, AT_ABORTED, {});
                it = fifo_.erase(it);
            } else {
                ++it;
            }
        }
        reply(req, arrived, AT_CMD_OK, {});
        return;
    default:
        ATS_TRACE(WARNING, "request of unknown type %d from %d\n", req.req_type, req.client_id);
        reply(req, arrived, AT_ERROR, {});
        return;
    }

    std::string why;
    const std::optional<ModemCommand> cmd = decode_request(req, &why);
    if (!cmd) {
        ATS_TRACE(WARNING, "request %u from %d refused: %s\n", req.seq, req.client_id, why.c_str());
        reply(req, arrived, AT_ERROR, {});
        return;
    }
    if (cmd->empty) {
        // The memory-full probe: answered from the last "^SMMEMFULL" report, if any.
        const auto it = reports_.find("^SMMEMFULL");
        reply(req, arrived, AT_CMD_OK, it == reports_.end() ? std::string_view{} : it->second);
        return;
    }
    if (cmd->bare) {
        const auto it = reports_.find(std::string(line_name(cmd->line.substr(0, cmd->line.size() - 1))));
        if (it != reports_.end()) {
            reply(req, arrived, AT_CMD_OK, it->second);
            return;
        }
    }
    if (!port_.is_open()) {
        reply(req, arrived, AT_DEVICE_DOWN, {});
        return;
    }
    fifo_.push_back({req, arrived});
}

void AtServer::answer_report_request(const msg_q& req) {
    std::vector<std::string_view> names;
    switch (req.rep_type) {
    case AT_REPORT_SYSINFO_REQ: names = {"^SYSINFO", "^SYSINFOEX"}; break;
    case AT_REPORT_COPS_REQ: names = {"+COPS"}; break;
    case AT_REPORT_RSSI_REQ: names = {"^RSSI"}; break;
    case AT_REPORT_ANQUERY_REQ: names = {"^ANQUERY"}; break;
    default: break;
    }
    for (std::string_view n : names) {
        const auto it = reports_.find(std::string(n));
        if (it != reports_.end()) {
            reply(req, Clock::now(), AT_CMD_OK, it->second);
            return;
        }
    }
    reply(req, Clock::now(), AT_ERROR, {});
}

void AtServer::start_next() {
    while (!active_ && !discarding_ && !fifo_.empty() && port_.is_open() && reply_room()) {
        Queued q = fifo_.front();
        fifo_.pop_front();
        const auto deadline = deadline_of(q.msg, q.arrived);
        if (Clock::now() >= deadline) {
            reply(q.msg, q.arrived, AT_CMD_TIMEOUT, {});
            continue;
        }
        std::optional<ModemCommand> cmd = decode_request(q.msg, nullptr);
        if (!cmd) continue;  // refused at intake already
        if (cmd->bare) {
            // No report held: ask the modem with the query form of the same name.
            const std::string name = cmd->line.substr(0, cmd->line.size() - 1);
            cmd->line = "AT" + name + "?\r";
            cmd->name = name;
            if (cmd->match.empty()) cmd->match = name;
        }
        ATS_TRACE(INFO, "to modem (%d/%u): %s\n", q.msg.client_id, q.msg.seq,
                  cmd->line.substr(0, cmd->line.size() - 1).c_str());
        Active a{q.msg, std::move(*cmd), q.arrived, deadline, false, {}};
        a.await_prompt = !a.cmd.body.empty();
        active_ = std::move(a);
        if (!port_.write_all(active_->cmd.line, kWriteTimeoutMs)) {
            port_down("write failed");
            return;
        }
    }
}

// ---- modem ---------------------------------------------------------------------------------

void AtServer::open_port() {
    if (port_.open(opt_.device, opt_.baud)) {
        ATS_TRACE(WARNING, "modem port %s open\n", opt_.device.c_str());
        backoff_ = 100ms;
        port_failed_logged_ = false;
        rx_.clear();
        skipping_long_ = false;
        return;
    }
    if (!port_failed_logged_)
        ATS_TRACE(ERROR, "cannot open %s: %s; retrying\n", opt_.device.c_str(), std::strerror(errno));
    port_failed_logged_ = true;
    reopen_at_ = Clock::now() + backoff_;
    backoff_ = std::min<std::chrono::milliseconds>(backoff_ * 2, kMaxBackoff);
}

void AtServer::port_down(const char* why) {
    ATS_TRACE(ERROR, "modem port %s lost (%s)\n", opt_.device.c_str(), why);
    port_.close();
    rx_.clear();
    report_body_for_.clear();
    discarding_ = false;
    if (active_) {
        reply(active_->req, active_->arrived, AT_DEVICE_DOWN, {});
        active_.reset();
    }
    for (const Queued& q : fifo_) reply(q.msg, q.arrived, AT_DEVICE_DOWN, {});
    fifo_.clear();
    backoff_ = 100ms;
    reopen_at_ = Clock::now() + backoff_;
}

void AtServer::on_port_input() {
    std::string bytes;
    const bool alive = port_.read_available(bytes);
    if (const size_t dropped = drop_garbage(bytes); dropped > 0)
        ATS_TRACE(WARNING, "dropped %zu control bytes from the modem\n", dropped);
    rx_ += bytes;

    size_t start = 0;
    for (;;) {
        const size_t end = rx_.find_first_of("\r\n", start);
        if (end == std::string::npos) break;
        std::string line = rx_.substr(start, end - start);
        start = end + 1;
        if (skipping_long_) {
            skipping_long_ = false;  // the rest of an over-long line
            continue;
        }
        if (line.size() > kMaxLine) {
            ATS_TRACE(WARNING, "dropped an over-long line (%zu bytes) from the modem\n", line.size());
            continue;
        }
        if (!line.empty()) handle_line(std::move(line));
    }
    rx_.erase(0, start);
    if (rx_.size() > kMaxLine) {
        ATS_TRACE(WARNING, "dropped an over-long line (%zu bytes) from the modem\n", rx_.size());
        rx_.clear();
        skipping_long_ = true;
    }
    // The "> " prompt of a message command comes without a line end.
    if (active_ && active_->await_prompt) {
        const size_t p = rx_.find_first_not_of(' ');
        if (p != std::string::npos && rx_[p] == '>') {
            rx_.clear();
            active_->await_prompt = false;
            if (!port_.write_all(active_->cmd.body, kWriteTimeoutMs)) {
                port_down("write failed");
                return;
            }
        }
    }
    if (!alive) port_down("hang-up");
}

void AtServer::keep_report(const std::string& line) {
    const std::string name(line_name(line));
    ATS_TRACE(INFO, "report: %s\n", line.c_str());
    if (report_has_body(name)) {
        report_body_for_ = line;  // completed by the next line
        return;
    }
    reports_[name] = line.substr(0, kReportMax);
}

void AtServer::handle_line(std::string line) {
    if (!report_body_for_.empty()) {
        std::string whole = report_body_for_ + "\r\n" + line;
        reports_[std::string(line_name(report_body_for_))] = whole.substr(0, kReportMax);
        report_body_for_.clear();
        return;
    }
    const std::optional<int> final = final_result(line);
    if (discarding_) {
        if (final) discarding_ = false;
        else if (is_report(line)) keep_report(line);
        return;
    }
    if (!active_) {
        if (is_report(line)) keep_report(line);
        else if (!final) ATS_TRACE(WARNING, "dropped a modem line of %zu bytes outside any command\n", line.size());
        return;
    }
    Active& a = *active_;
    const std::string_view sent(a.cmd.line.data(), a.cmd.line.size() - 1);
    std::string body(a.cmd.body);
    std::erase(body, kCtrlZ);
    if (line == sent || (!body.empty() && line == body)) return;  // echo
    if (final) {
        finish(*final, line);
        return;
    }
    if (!answers_command(line, a.cmd.name, a.cmd.match) && is_report(line)) {
        keep_report(line);
        return;
    }
    a.info.push_back(std::move(line));
}

void AtServer::finish(int ret_val, std::string_view final_line) {
    Active a = std::move(*active_);
    active_.reset();
    std::string report;
    if (ret_val == AT_CMD_OK) {
        report = build_report(a.info, a.cmd.match);
        if (is_delete_command(a.cmd)) reports_.erase("^SMMEMFULL");
    } else if (ret_val == AT_CME_ERROR || ret_val == AT_CMS_ERROR) {
        report.assign(final_line.substr(0, kReportMax));
    }
    ATS_TRACE(INFO, "from modem (%d/%u): %d, %s\n", a.req.client_id, a.req.seq, ret_val, report.c_str());
    reply(a.req, a.arrived, ret_val, report);
}

// ---- replies -------------------------------------------------------------------------------

void AtServer::reply(const msg_q& req, Clock::time_point arrived, int ret_val, std::string_view report) {
    msg_q r{};
    r.client_id = req.client_id;
    r.req_type = req.req_type;
    r.rep_type = req.rep_type;
    r.rsp_type = req.rsp_type;
    r.seq = req.seq;
    r.at_mutil = req.at_mutil;
    r.time_out = req.time_out;
    const std::string_view match = c_field(req.snd_rcv_msg.smsg.at_match_ok_str, AT_MATCH_STR_LEN);
    const std::string match_copy(match);  // request and reply share the union
    strncpy_s(r.snd_rcv_msg.rmsg.at_match_str, AT_MATCH_STR_LEN, match_copy.c_str(), AT_MATCH_STR_LEN - 1);
    report = report.substr(0, kReportMax);
    memcpy_s(r.snd_rcv_msg.rmsg.at_report_str, AT_REPORT_STR_LEN, report.data(), report.size());
    r.snd_rcv_msg.rmsg.ret_val = ret_val;
    r.snd_rcv_msg.rmsg.len = static_cast<int32_t>(report.size());

    const int secs = req.time_out > 0 ? req.time_out : kDefaultTimeout;
    sent_.push_back({r.client_id, r.seq, arrived + std::chrono::seconds(secs) + kReplyGrace});
    if (!outbox_.empty() || ATS_msgQex_send(snd_q_, &r, sizeof r, 0) != ATS_TRUE) outbox_.push_back(r);
}

void AtServer::flush_outbox() {
    while (!outbox_.empty()) {
        if (ATS_msgQex_send(snd_q_, &outbox_.front(), sizeof(msg_q), 0) != ATS_TRUE) return;
        outbox_.pop_front();
    }
}

bool AtServer::reply_room() { return outbox_.empty() && ATS_msgQ_num(snd_q_) < kReplyHighWater; }

void AtServer::collect_stale_replies() {
    const auto now = Clock::now();
    std::vector<Sent> keep;
    keep.reserve(sent_.size());
    std::vector<msg_q> put_back;
    for (const Sent& s : sent_) {
        const bool gone = !thread_alive(s.client);
        if (!gone && now < s.expires) {
            keep.push_back(s);
            continue;
        }
        msg_q m{};
        while (ATS_msgQex_recv(snd_q_, &m, sizeof m, 0, static_cast<unsigned>(s.client)) > 0) {
            if (gone || m.seq == s.seq) {
                ATS_TRACE(WARNING, "removed a reply nobody collected (client %d, seq %u)\n", m.client_id, m.seq);
                continue;
            }
            put_back.push_back(m);  // a newer reply its client still waits for
            break;
        }
    }
    sent_.swap(keep);
    for (msg_q& m : put_back)
        if (ATS_msgQex_send(snd_q_, &m, sizeof m, 0) != ATS_TRUE) outbox_.push_back(m);
    // Replies still waiting in memory for clients that are gone or gave up go too.
    std::erase_if(outbox_, [&](const msg_q& m) {
        if (thread_alive(m.client_id)) return false;
        return true;
    });
}

// ---- time ----------------------------------------------------------------------------------

void AtServer::on_tick() {
    const auto now = Clock::now();
    if (!port_.is_open() && now >= reopen_at_) open_port();
    if (active_ && now >= active_->deadline) {
        ATS_TRACE(WARNING, "command of %d/%u timed out\n", active_->req.client_id, active_->req.seq);
        if (active_->await_prompt) port_.write_all(std::string_view(&kEsc, 1), kWriteTimeoutMs);
        reply(active_->req, active_->arrived, AT_CMD_TIMEOUT, {});
        active_.reset();
        discarding_ = true;
        discard_until_ = now + kLateLines;
    }
    if (discarding_ && now >= discard_until_) discarding_ = false;
    if (now >= next_queue_poll_) {
        drain_request_queue();
        next_queue_poll_ = now + kTick;
    }
    flush_outbox();
    if (now >= next_gc_) {
        collect_stale_replies();
        next_gc_ = now + kGcEvery;
    }
    start_next();
}

int AtServer::poll_timeout_ms() const {
    const auto now = Clock::now();
    auto next = now + kTick;
    if (!outbox_.empty() || (!fifo_.empty() && !active_)) next = std::min(next, now + kBusyTick);
    if (active_) next = std::min(next, active_->deadline);
    if (discarding_) next = std::min(next, discard_until_);
    if (!port_.is_open()) next = std::min(next, reopen_at_);
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(next - now).count();
    return static_cast<int>(std::max<long long>(ms, 0) + 1);
}

int AtServer::run() {
    while (!stopping_) {
        pollfd fds[3] = {{sig_fd_, POLLIN, 0}, {wake_fd_, POLLIN, 0}, {port_.fd(), POLLIN, 0}};
        const nfds_t n = port_.is_open() ? 3 : 2;
        const int rc = poll(fds, n, poll_timeout_ms());
        if (rc < 0 && errno != EINTR) {
            ATS_TRACE(FATAL, "poll: %s\n", std::strerror(errno));
            break;
        }
        if (fds[0].revents & POLLIN) {
            signalfd_siginfo si{};
            while (read(sig_fd_, &si, sizeof si) == static_cast<ssize_t>(sizeof si)) {
                if (si.ssi_signo == SIGUSR1) drain_request_queue();
                else if (si.ssi_signo == SIGTERM || si.ssi_signo == SIGINT) stopping_ = true;
            }
        }
        if (fds[1].revents & POLLIN) take_inbox();
        if (n == 3 && fds[2].revents) {
            if (fds[2].revents & POLLIN) on_port_input();
            else port_down("hang-up");
        }
        on_tick();
    }
    ATS_TRACE(WARNING, "atserver stopping\n");
    cleanup();
    return 0;
}

}  // namespace ats
