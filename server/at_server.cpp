// at_server.cpp - the AT server's event loop.
#include "at_server.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/msg.h>
#include <sys/shm.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <thread>

#include "atapi/primitives.h"
#include "reply_bell.h"
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
// Bounds on what clients can make the server hold. A thread has one request in flight, so
// honest clients stay far below them; a flood meets them and loses its own requests first.
constexpr size_t kInboxMax = 1024;     // received, not yet seen by the event loop
constexpr size_t kInboxReserve = 256;  // beyond that, first requests of live threads only
constexpr size_t kFifoMax = 256;       // commands waiting for the modem
constexpr size_t kOutboxMax = 64;      // replies waiting for room on the reply queue
constexpr size_t kWaitingMax = 256;    // replies tracked on the queue before a sweep
constexpr size_t kMaxLine = 4096;
constexpr size_t kReadChunk = 64 * 1024;  // modem bytes taken between two looks at the clients
// Where the process may (root), both queues hold a record per client the server can have in
// hand (its FIFO, the command at the modem, the replies in memory), so that replies left for a
// while never make a command wait.
constexpr int kWideQueueRecords = static_cast<int>(kFifoMax + 1 + kOutboxMax);
constexpr int kHighWaterGap = 2;     // free places kept on the reply queue before a command starts
// While commands wait for room on the reply queue, it is counted again this often: clients that
// wait with the low-latency wait collect within a fraction of a millisecond.
constexpr auto kBusyTick = 250us;
// The longest a request waits in the inbox while a command is at the modem: long enough not to
// wake the loop for each request of a busy server, short enough for the requests that are
// answered at once (stored reports, aborts) during a long command.
constexpr auto kInboxLatency = 50ms;
constexpr auto kGcEvery = 500ms;
constexpr auto kSummaryEvery = 1s;   // drop counters are traced at most this often
constexpr auto kReplyGrace = 2s;     // a client's wait ends time_out after it sent
// A client collects within 10 ms, or a little later when its wait has grown: a reply still
// tracked after this has its thread looked for, once.
constexpr auto kOverdue = 250ms;
// A client polls its reply every 10 ms; one that has left a reply for this long while others
// need the room is not collecting.
constexpr auto kCollectGrace = 1s;
// Getting back in step: a probe is repeated when no final result has come for kReprobe (it or its
// answer was lost); when every probe is answered but the interrupted command's own result never
// came, kSettle without another final result ends the wait for it. Unsolicited lines do not
// count: a modem may go on talking.
constexpr auto kReprobe = 2s;
constexpr auto kSettle = 500ms;
constexpr auto kMaxBackoff = 2s;
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

// True when `line` is (the next piece of) the modem's echo of what was written; the echo of a
// raw body breaks where the body holds CR or LF bytes.
bool consume_echo(std::string& pending, std::string_view line) {
    pending.erase(0, std::min(pending.find_first_not_of("\r\n"), pending.size()));
    if (line.empty() || pending.compare(0, line.size(), line) != 0) {
        pending.clear();  // an answer: whatever echo there was has passed
        return false;
    }
    pending.erase(0, line.size());
    return true;
}

}  // namespace

AtServer::AtServer(Options options) : opt_(std::move(options)) {}

AtServer::~AtServer() { cleanup(); }

bool AtServer::start(std::string* error) {
    const std::string run_dir = ATS_run_dir();
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGHUP);
    // Blocked before any thread starts, so that every thread inherits the mask.
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    signal(SIGPIPE, SIG_IGN);
    // Every client sends SIGUSR1 with each request; the intake threads wait in their receive
    // already, so the signal is discarded where it is sent instead of waking the loop.
    sigset_t usr1;
    sigemptyset(&usr1);
    sigaddset(&usr1, SIGUSR1);
    pthread_sigmask(SIG_UNBLOCK, &usr1, nullptr);
    signal(SIGUSR1, SIG_IGN);
    sig_fd_ = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    wake_fd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (sig_fd_ < 0 || wake_fd_ < 0) {
        *error = std::string("signalfd/eventfd: ") + std::strerror(errno);
        return false;
    }
    // The lock decides who owns the run directory: only its holder may replace the queues.
    // The bell before the queues: a client that finds the queues finds the bell.
    if (!pid_file_.acquire(run_dir, error) || !create_bell(error) || !create_queues(error)) return false;
    std::atomic_ref<int32_t>(bell_->reply_queue).store(snd_q_);

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
    // Clients find the server by this pid: only now is everything behind it ready.
    if (!pid_file_.write_pid(getpid())) {
        *error = "cannot write " + pid_file_.path();
        return false;
    }
    ATS_TRACE(INFO, "atserver %d serving %s on %s\n", static_cast<int>(getpid()), run_dir.c_str(),
              opt_.device.c_str());
    return true;
}

bool AtServer::create_bell(std::string* error) {
    const key_t key = ftok(ATS_run_dir(), atapi::bell::kBellIdentity);
    if (const int stale = shmget(key, 0, 0); stale != -1) {
        ATS_TRACE(WARNING, "removing the reply bell left by an earlier server\n");
        shmctl(stale, IPC_RMID, nullptr);
    }
    // Created with the queues' final mode: a page open to all for a moment would let anyone
    // attach for good.
    bell_ = atapi::bell::create_page(key, opt_.queue_group ? 0660 : 0600, &bell_id_);
    if (bell_ == nullptr) {
        *error = std::string("cannot create the reply bell under ") + ATS_run_dir() + ": " + std::strerror(errno);
        return false;
    }
    if (opt_.queue_group) {
        shmid_ds ds{};
        if (shmctl(bell_id_, IPC_STAT, &ds) == 0) ds.shm_perm.gid = *opt_.queue_group;
        if (shmctl(bell_id_, IPC_SET, &ds) != 0) {
            *error = std::string("cannot give the reply bell to the group: ") + std::strerror(errno);
            return false;
        }
    }
    return true;
}

bool AtServer::create_queues(std::string* error) {
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
        *error = std::string("cannot create the message queues under ") + ATS_run_dir();
        return false;
    }
    for (int q : {snd_q_, rcv_q_}) {
        // Created open to everybody; whoever may send may dial, read the PIN or forge replies.
        msqid_ds ds{};
        if (msgctl(q, IPC_STAT, &ds) == 0) {
            ds.msg_perm.mode = opt_.queue_group ? 0660 : 0600;
            if (opt_.queue_group) ds.msg_perm.gid = *opt_.queue_group;
        }
        if (msgctl(q, IPC_SET, &ds) != 0) {
            *error = std::string("cannot narrow the queues' permissions: ") + std::strerror(errno);
            return false;
        }
        // What slipped in while the queue was open to all came from no client of ours.
        struct {
            long type;
            char text[1];
        } junk{};
        while (msgrcv(q, &junk, sizeof junk.text, 0, IPC_NOWAIT | MSG_NOERROR) >= 0) {
        }
        widen_queue(q);
    }
    msqid_ds ds{};
    const auto records = msgctl(snd_q_, IPC_STAT, &ds) == 0 ? ds.msg_qbytes / kRecordText : kQueueMsgs;
    reply_capacity_ = static_cast<int>(std::min<unsigned long>(records, kWideQueueRecords));
    high_water_ = std::max(1, reply_capacity_ - kHighWaterGap);
    return true;
}

// A process that may exceed the system's queue size limit (root with CAP_SYS_RESOURCE) gets the
// wide queue; any other gets what the limit (kernel.msgmnb) allows, which by default is the
// 16 KiB it was created with, and so keeps the gate of eight waiting replies.
void AtServer::widen_queue(int q) {
    msqid_ds ds{};
    if (msgctl(q, IPC_STAT, &ds) != 0) return;
    const msglen_t wide = static_cast<msglen_t>(kWideQueueRecords) * kRecordText;
    if (ds.msg_qbytes >= wide) return;
    const msglen_t was = ds.msg_qbytes;
    ds.msg_qbytes = wide;
    if (msgctl(q, IPC_SET, &ds) == 0) return;
    unsigned long limit = 0;
    if (FILE* f = std::fopen("/proc/sys/kernel/msgmnb", "r")) {
        if (std::fscanf(f, "%lu", &limit) != 1) limit = 0;
        std::fclose(f);
    }
    ds.msg_qbytes = static_cast<msglen_t>(std::min<unsigned long>(limit, wide));
    if (ds.msg_qbytes <= was || msgctl(q, IPC_SET, &ds) != 0)
        ATS_TRACE(INFO, "queue %d keeps its size of %lu bytes\n", q, static_cast<unsigned long>(was));
}

void AtServer::cleanup() {
    stopping_ = true;
    // Removing the request queue wakes the intake threads out of their receive.
    if (rcv_q_ != -1) ATS_msgQ_delete(rcv_q_);
    if (snd_q_ != -1) ATS_msgQ_delete(snd_q_);
    atapi::bell::remove_page(bell_, bell_id_);
    bell_ = nullptr;
    bell_id_ = -1;
    for (pthread_t t : intake_) pthread_join(t, nullptr);
    intake_.clear();
    rcv_q_ = snd_q_ = -1;  // only now: the intake threads read it
    pid_file_.release();
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
        msg_q m;
        const int got = receive_request(qid, 0, &m);
        if (got > 0) {
            admit(m);
        } else if (got < 0 && errno != EINTR) {
            if (errno == EIDRM || errno == EINVAL) return;  // queue removed: the server is stopping
            ++intake_errors_;
            std::this_thread::sleep_for(10ms);  // an error that repeats must not spin a core
        }
    }
}

// 1 with a request in `out`, 0 for a message that was none (dropped), -1 on error (errno set).
int AtServer::receive_request(int qid, int flags, msg_q* out) {
    struct {
        long type;
        char text[kRecordText + 1];
    } buf;
    // One byte more than a record: a longer message is cut there and shows as too long, instead
    // of failing the receive and staying at the head of the queue for ever.
    const ssize_t n = msgrcv(qid, &buf, sizeof buf.text, 0, flags | MSG_NOERROR);
    if (n < 0) return -1;
    const std::optional<msg_q> req = request_record(buf.type, std::string_view(buf.text, static_cast<size_t>(n)));
    if (!req) {
        ++bad_records_;
        return 0;
    }
    *out = *req;
    return 1;
}

void AtServer::admit(const msg_q& req) {
    // A flood comes from few threads or from ids of none: when the inbox is full, a thread with a
    // request in it already is the one refused, while a first request of a live thread still
    // finds room. Whether the thread lives is asked outside the lock the intake threads share.
    const bool full = inbox_size_.load(std::memory_order_relaxed) >= kInboxMax;
    if (full && !thread_alive(req.client_id)) {
        ++requests_dropped_;
        return;
    }
    bool wake = false;
    {
        std::lock_guard lock(inbox_mu_);
        int& mine = inbox_clients_[req.client_id];
        if (inbox_.size() >= kInboxMax && (mine > 0 || inbox_.size() >= kInboxMax + kInboxReserve || !full)) {
            if (mine == 0) inbox_clients_.erase(req.client_id);
            ++requests_dropped_;
            return;
        }
        ++mine;
        wake = inbox_.empty();
        inbox_.push_back({req, Clock::now()});
        inbox_size_.store(inbox_.size(), std::memory_order_seq_cst);
    }
    // A loop that is awake, or asleep until the modem answers, looks at the inbox before it
    // sleeps again; only one asleep with nothing to do needs waking.
    const uint64_t one = 1;
    if (wake && wake_me_.load(std::memory_order_seq_cst) && write(wake_fd_, &one, sizeof one) < 0) {
        /* the counter is saturated: already awake */
    }
}

void AtServer::take_inbox() {
    if (inbox_size_.load(std::memory_order_seq_cst) == 0) return;
    taking_.clear();
    {
        std::lock_guard lock(inbox_mu_);
        taking_.swap(inbox_);
        inbox_clients_.clear();
        inbox_size_.store(0, std::memory_order_relaxed);
    }
    for (const Queued& q : taking_) accept(q.msg, q.arrived);
}

AtServer::Clock::time_point AtServer::deadline_of(const msg_q& req, Clock::time_point arrived) {
    // Answer a little before the client stops listening, so that it hears the time-out.
    const auto wait = std::chrono::milliseconds(effective_time_out(req.time_out) * 1000LL);
    return arrived + wait - std::min<std::chrono::milliseconds>(wait / 4, 250ms);
}

AtServer::Queued AtServer::take_fifo(std::list<Queued>::iterator it) {
    Queued q = *it;
    fifo_by_client_.erase(q.msg.client_id);
    fifo_.erase(it);
    return q;
}

void AtServer::accept(const msg_q& req, Clock::time_point arrived) {
    // A client that sends again has its last reply: the library takes every reply of its thread
    // off the queue before it sends, so no system call is spent looking for it when the next
    // reply goes out. A reply that one which does not collect leaves behind is no longer
    // tracked, and the next shortage of room takes it off (make_reply_room).
    waiting_.erase(req.client_id);
    // A thread has one request in flight: an earlier one still queued was given up.
    if (const auto it = fifo_by_client_.find(req.client_id); it != fifo_by_client_.end()) {
        const Queued old = take_fifo(it->second);
        reply(old.msg, old.arrived, AT_CMD_TIMEOUT, {});
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
        if (req.req_type == AT_ABORT_ALL_REQ) {
            while (!fifo_.empty()) {
                const Queued q = take_fifo(fifo_.begin());
                reply(q.msg, q.arrived, AT_ABORTED, {});
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
    if (fifo_.size() >= kFifoMax && !fifo_room(req, arrived)) return;
    fifo_.push_back({req, arrived});
    fifo_by_client_[req.client_id] = std::prev(fifo_.end());
    next_expiry_ = std::min(next_expiry_, deadline_of(req, arrived));
}

// The FIFO is full, which only many client ids at once can do. Requests of threads that are gone
// make way, since nobody waits for their answers; a live caller is refused with AT_ABORTED.
bool AtServer::fifo_room(const msg_q& req, Clock::time_point arrived) {
    if (!thread_alive(req.client_id)) {
        ++requests_dropped_;
        return false;
    }
    int looked = 0;
    for (auto it = fifo_.begin(); it != fifo_.end() && looked < 16; ++it, ++looked) {
        if (!thread_alive(it->msg.client_id)) {
            take_fifo(it);
            ++requests_dropped_;
            return true;
        }
    }
    ++requests_refused_;
    reply(req, arrived, AT_ABORTED, {});
    return false;
}

void AtServer::expire_queued() {
    const auto now = Clock::now();
    if (now < next_expiry_) return;
    next_expiry_ = Clock::time_point::max();
    for (auto it = fifo_.begin(); it != fifo_.end();) {
        auto next = std::next(it);
        const auto deadline = deadline_of(it->msg, it->arrived);
        if (now >= deadline) {
            const Queued q = take_fifo(it);
            reply(q.msg, q.arrived, AT_CMD_TIMEOUT, {});
        } else {
            next_expiry_ = std::min(next_expiry_, deadline);
        }
        it = next;
    }
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
    while (!active_ && !resync_ && !fifo_.empty() && port_.is_open() && reply_room()) {
        const Queued q = take_fifo(fifo_.begin());
        // Crowded by many client ids: a command whose caller is gone would only cost modem time.
        if (fifo_.size() >= kFifoMax / 4 && !thread_alive(q.msg.client_id)) {
            ++requests_dropped_;
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
                  traced_line(std::string_view(cmd->line).substr(0, cmd->line.size() - 1)).c_str());
        ReportBuilder report(cmd->match);
        std::string echo = echo_of(cmd->line);
        Active a{q.msg, std::move(*cmd), q.arrived, deadline_of(q.msg, q.arrived), false, std::move(report),
                 std::move(echo)};
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
    resync_.reset();  // a modem that comes back starts afresh
    if (active_) {
        reply(active_->req, active_->arrived, AT_DEVICE_DOWN, {});
        active_.reset();
    }
    while (!fifo_.empty()) {
        const Queued q = take_fifo(fifo_.begin());
        reply(q.msg, q.arrived, AT_DEVICE_DOWN, {});
    }
    backoff_ = 100ms;
    reopen_at_ = Clock::now() + backoff_;
}

void AtServer::on_port_input() {
    read_buf_.clear();
    const bool alive = port_.read_available(read_buf_, kReadChunk);
    if (const size_t dropped = drop_garbage(read_buf_); dropped > 0)
        ATS_TRACE(WARNING, "dropped %zu control bytes from the modem\n", dropped);
    rx_ += read_buf_;

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
    const size_t p = rx_.find_first_not_of(' ');
    if (active_ && p != std::string::npos && rx_[p] == '>') {
        if (active_->await_prompt) {
            rx_.clear();
            active_->await_prompt = false;
            active_->echo += '\n';
            active_->echo += echo_of(active_->cmd.body);
            if (!port_.write_all(active_->cmd.body, kWriteTimeoutMs)) {
                port_down("write failed");
                return;
            }
        } else if (rx_.find_first_not_of(' ', p + 1) == std::string::npos) {
            // The modem waits for a body the request did not bring, and would take the next
            // commands for it.
            rx_.clear();
            ATS_TRACE(WARNING, "command of %d/%u got a prompt but has no body\n", active_->req.client_id,
                      active_->req.seq);
            reply(active_->req, active_->arrived, AT_ERROR, {});
            active_.reset();
            begin_resync("an unexpected prompt");
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
    if (resync_) {
        // Whatever the modem says now answers nobody's command; only the count of finals matters.
        if (!final) {
            if (is_report(line)) keep_report(line);
        } else if (++resync_->finals > resync_->probes) {
            ATS_TRACE(WARNING, "modem back in step\n");
            resync_.reset();
        } else {
            resync_->last_final = Clock::now();
        }
        return;
    }
    if (!active_) {
        if (is_report(line)) keep_report(line);
        else if (!final) ++lines_dropped_;
        return;
    }
    Active& a = *active_;
    if (consume_echo(a.echo, line)) return;
    if (final) {
        finish(*final, line);
        return;
    }
    if (!answers_command(line, a.cmd.name, a.cmd.match) && is_report(line)) {
        keep_report(line);
        return;
    }
    a.report.add(line);
}

void AtServer::finish(int ret_val, std::string_view final_line) {
    Active a = std::move(*active_);
    active_.reset();
    std::string report;
    if (ret_val == AT_CMD_OK) {
        report = a.report.text();
        if (is_delete_command(a.cmd)) reports_.erase("^SMMEMFULL");
    } else if (ret_val == AT_CME_ERROR || ret_val == AT_CMS_ERROR) {
        report.assign(final_line.substr(0, kReportMax));
    }
    ATS_TRACE(INFO, "from modem (%d/%u): %d, %s\n", a.req.client_id, a.req.seq, ret_val,
              traced_report(a.cmd.line, report).c_str());
    reply(a.req, a.arrived, ret_val, report);
}

// The modem is sequential and answers every line it is sent with one final result, so the
// probes are counted rather than recognised: in step once the interrupted command's result and
// every probe's have come. No command goes out meanwhile.
void AtServer::begin_resync(const char* why) {
    ATS_TRACE(WARNING, "bringing the modem back in step after %s\n", why);
    resync_.emplace();
    send_probe();
}

void AtServer::send_probe() {
    ++resync_->probes;
    resync_->last_final = Clock::now();
    // ESC ends a message body the modem may still be waiting for; a modem ignores what comes
    // before the "AT" of a command line.
    constexpr std::string_view kProbe = "\x1b" "AT\r";
    if (!port_.write_all(kProbe, kWriteTimeoutMs)) port_down("write failed");
}

void AtServer::resync_tick(Clock::time_point now) {
    Resync& r = *resync_;
    if (r.finals >= r.probes && now - r.last_final >= kSettle) {
        ATS_TRACE(WARNING, "modem back in step (the interrupted command's result never came)\n");
        resync_.reset();
    } else if (now - r.last_final >= kReprobe) {
        send_probe();
    }
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
    deliver(r, arrived + std::chrono::seconds(effective_time_out(req.time_out)) + kReplyGrace);
}

void AtServer::deliver(const msg_q& r, Clock::time_point expires) {
    const auto now = Clock::now();
    Waiting w{r.seq, now, expires};
    // One reply waits per client: a thread that sent a newer request gave up on the older one,
    // and one that collects nothing keeps its first "since", so it is found out.
    if (const auto it = waiting_.find(r.client_id); it != waiting_.end()) {
        if (remove_replies(r.client_id)) w.since = it->second.since;
        waiting_.erase(it);
    }
    const auto held = std::find_if(outbox_.begin(), outbox_.end(),
                                   [&](const Pending& p) { return p.msg.client_id == r.client_id; });
    if (held != outbox_.end()) {
        w.since = held->w.since;
        outbox_.erase(held);
        ++replies_removed_;
    }
    if (outbox_.empty() && (send_reply(r, w) || (make_reply_room() && send_reply(r, w)))) return;
    outbox_.push_back({r, w});
    if (outbox_.size() > kOutboxMax) {
        // Replies of threads that are gone go first, else the oldest.
        auto victim = std::find_if(outbox_.begin(), outbox_.end(),
                                   [&](Pending& p) { return look_for_thread(p.msg.client_id, p.w, now); });
        outbox_.erase(victim == outbox_.end() ? outbox_.begin() : victim);
        ++replies_removed_;
    }
}

// Every reply goes onto the queue here, so that its client's bell rings after each one: a client
// may also have woken while a sweep had its reply off the queue, and slept again.
bool AtServer::post_reply(const msg_q& r) {
    if (ATS_msgQex_send(snd_q_, const_cast<msg_q*>(&r), sizeof r, 0) != ATS_TRUE) return false;
    if (bell_ != nullptr) atapi::bell::ring(*bell_, r.client_id);
    return true;
}

bool AtServer::send_reply(const msg_q& r, const Waiting& w) {
    if (!post_reply(r)) return false;
    // The first reply tracked starts the sweeps' clock.
    if (waiting_.empty()) next_gc_ = std::max(next_gc_, w.since + kGcEvery);
    waiting_[r.client_id] = w;
    ++maybe_on_queue_;
    if (waiting_.size() > kWaitingMax) {
        check_replies(Clock::now());
        if (waiting_.size() > kWaitingMax) sweep_replies(false);
    }
    return true;
}

bool AtServer::remove_replies(int32_t client) {
    msg_q m;
    bool removed = false;
    while (ATS_msgQex_recv(snd_q_, &m, sizeof m, 0, static_cast<unsigned>(client)) > 0) {
        ++replies_removed_;
        removed = true;
    }
    return removed;
}

void AtServer::flush_outbox() {
    while (!outbox_.empty()) {
        const Pending& p = outbox_.front();
        if (!send_reply(p.msg, p.w) && !(make_reply_room() && send_reply(p.msg, p.w))) return;
        outbox_.pop_front();
    }
}

int AtServer::replies_on_queue() {
    const int n = ATS_msgQ_num(snd_q_);
    maybe_on_queue_ = n < 0 ? high_water_ : n;
    if (n == 0) waiting_.clear();  // every reply sent so far has been collected
    return maybe_on_queue_;
}

// The queue is counted only when the replies sent since the last count could have filled it.
bool AtServer::reply_room() {
    if (!outbox_.empty()) return false;
    if (maybe_on_queue_ < high_water_ || replies_on_queue() < high_water_) return true;
    return make_reply_room() && replies_on_queue() < high_water_;
}

// True, with `w` updated, when the client's thread no longer exists. A thread is looked for at
// most once per kCollectGrace: /proc is asked only about replies that wait too long.
bool AtServer::look_for_thread(int32_t client, Waiting& w, Clock::time_point now) {
    if (!w.gone && now - w.checked >= kCollectGrace) {
        w.checked = now;
        w.gone = !thread_alive(client);
    }
    return w.gone;
}

// Replies nobody collects must not hold the modem or the others' replies: when room is short,
// those of threads that are gone, that outlived their client's wait, or that their client has
// left for kCollectGrace go.
bool AtServer::make_reply_room() {
    const auto now = Clock::now();
    // More replies on the queue than are tracked: some belong to clients that sent again without
    // collecting them (the entry went with the new request), and nobody will collect those.
    bool some_can_go = replies_on_queue() > static_cast<int>(waiting_.size());
    for (auto& [client, w] : waiting_) {
        if (some_can_go) break;
        if (now >= w.expires || now - w.since >= kCollectGrace || look_for_thread(client, w, now)) {
            some_can_go = true;
            break;
        }
    }
    return some_can_go && sweep_replies(true);
}

// Takes every reply off the queue once and puts back those that may still be collected; after
// it, waiting_ holds exactly what is on the queue. True when something went. Only under pressure
// (or with more clients tracked than kWaitingMax): it costs two system calls per reply.
bool AtServer::sweep_replies(bool pressure) {
    const auto now = Clock::now();
    const int n = ATS_msgQ_num(snd_q_);
    std::unordered_map<int32_t, Waiting> kept;
    std::vector<msg_q> back;
    bool freed = false;
    msg_q m;
    for (int i = 0; i < n && ATS_msgQex_recv(snd_q_, &m, sizeof m, 0, 0) > 0; ++i) {
        const auto it = waiting_.find(m.client_id);
        const bool stale = it == waiting_.end() || it->second.seq != m.seq || now >= it->second.expires ||
                           (pressure && now - it->second.since >= kCollectGrace) ||
                           look_for_thread(m.client_id, it->second, now);
        if (stale) {
            ++replies_removed_;
            freed = true;
            continue;
        }
        kept.insert(*it);
        back.push_back(m);
    }
    waiting_.swap(kept);
    maybe_on_queue_ = 0;
    for (msg_q& r : back) {
        if (post_reply(r)) {
            ++maybe_on_queue_;
            continue;
        }
        outbox_.push_front({r, waiting_[r.client_id]});
        waiting_.erase(r.client_id);
    }
    return freed;
}

// The sweep without pressure: no system call per reply. The queue is counted (an empty one
// settles every entry); replies past their client's wait are taken off by type, and those left
// longer than kOverdue have their thread looked for once, so that the replies of threads that
// are gone do not wait for their time-out.
void AtServer::check_replies(Clock::time_point now) {
    if (replies_on_queue() == 0) return;
    for (auto it = waiting_.begin(); it != waiting_.end();) {
        Waiting& w = it->second;
        const bool overdue = now - w.since >= kOverdue && w.checked == Clock::time_point{};
        if (now >= w.expires || (overdue && look_for_thread(it->first, w, now))) {
            remove_replies(it->first);
            it = waiting_.erase(it);
            continue;
        }
        ++it;
    }
}

// ---- time ----------------------------------------------------------------------------------

void AtServer::on_tick() {
    const auto now = Clock::now();
    if (!port_.is_open() && now >= reopen_at_) open_port();
    if (active_ && now >= active_->deadline) {
        ATS_TRACE(WARNING, "command of %d/%u timed out\n", active_->req.client_id, active_->req.seq);
        reply(active_->req, active_->arrived, AT_CMD_TIMEOUT, {});
        active_.reset();
        begin_resync("a time-out");
    }
    if (resync_ && port_.is_open()) resync_tick(now);
    flush_outbox();
    if ((!waiting_.empty() || !outbox_.empty()) && now >= next_gc_) {
        std::erase_if(outbox_, [&](Pending& p) {
            const bool stale = now >= p.w.expires || look_for_thread(p.msg.client_id, p.w, now);
            replies_removed_ += stale ? 1 : 0;
            return stale;
        });
        if (!outbox_.empty() || replies_on_queue() >= high_water_) sweep_replies(true);
        else check_replies(now);
        next_gc_ = now + kGcEvery;
    }
    if (now >= next_summary_ && drops_to_report()) {
        report_drops();
        next_summary_ = now + kSummaryEvery;
    }
    take_inbox();
    expire_queued();
    start_next();
}

void AtServer::report_drops() {
    if (const unsigned n = requests_dropped_.exchange(0)) ATS_TRACE(WARNING, "dropped %u requests (server full)\n", n);
    if (const unsigned n = bad_records_.exchange(0)) ATS_TRACE(WARNING, "dropped %u messages that were no request\n", n);
    if (const unsigned n = intake_errors_.exchange(0)) ATS_TRACE(ERROR, "%u receive errors on the request queue\n", n);
    if (requests_refused_) ATS_TRACE(WARNING, "refused %u commands (too many waiting)\n", requests_refused_);
    if (replies_removed_) ATS_TRACE(WARNING, "removed %u replies nobody collected\n", replies_removed_);
    if (lines_dropped_) ATS_TRACE(WARNING, "dropped %u modem lines outside any command\n", lines_dropped_);
    requests_refused_ = replies_removed_ = lines_dropped_ = 0;
}

bool AtServer::drops_to_report() const {
    return requests_dropped_ != 0 || bad_records_ != 0 || intake_errors_ != 0 || requests_refused_ != 0 ||
           replies_removed_ != 0 || lines_dropped_ != 0;
}

// How long the loop may sleep: until the next thing that is due, or for ever when nothing is.
std::optional<std::chrono::nanoseconds> AtServer::sleep_for() const {
    const auto now = Clock::now();
    auto next = Clock::time_point::max();
    if (!outbox_.empty() || (!fifo_.empty() && !active_ && !resync_ && port_.is_open())) next = now + kBusyTick;
    if (active_) next = std::min(next, active_->deadline);
    if (resync_) next = std::min(next, resync_->last_final + (resync_->finals >= resync_->probes ? kSettle : kReprobe));
    if (!port_.is_open()) next = std::min(next, reopen_at_);
    if (!waiting_.empty() || !outbox_.empty()) next = std::min(next, next_gc_);
    if (!fifo_.empty()) next = std::min(next, next_expiry_);
    if (drops_to_report()) next = std::min(next, std::max(next_summary_, now));
    if (next == Clock::time_point::max()) return std::nullopt;
    return std::max<std::chrono::nanoseconds>(next - now, std::chrono::nanoseconds::zero());
}

int AtServer::run() {
    while (!stopping_) {
        pollfd fds[3] = {{sig_fd_, POLLIN, 0}, {wake_fd_, POLLIN, 0}, {port_.fd(), POLLIN, 0}};
        const nfds_t n = port_.is_open() ? 3 : 2;
        // Requests that come while a command is at the modem wait for its answer to be taken in,
        // at most kInboxLatency; one that comes while nothing runs wakes the loop at once. The
        // flag is set before the inbox is looked at, so no request can slip between the two.
        wake_me_.store(!active_, std::memory_order_seq_cst);
        std::optional<std::chrono::nanoseconds> wait = sleep_for();
        if (active_) wait = std::min(wait.value_or(kInboxLatency), std::chrono::nanoseconds(kInboxLatency));
        if (inbox_size_.load(std::memory_order_seq_cst) > 0) wait = std::chrono::nanoseconds::zero();
        timespec ts{};
        if (wait) {
            ts.tv_sec = static_cast<time_t>(wait->count() / 1000000000);
            ts.tv_nsec = static_cast<long>(wait->count() % 1000000000);
        }
        const int rc = ppoll(fds, n, wait ? &ts : nullptr, nullptr);
        wake_me_.store(false, std::memory_order_relaxed);
        if (rc < 0 && errno != EINTR) {
            ATS_TRACE(FATAL, "poll: %s\n", std::strerror(errno));
            break;
        }
        if (fds[0].revents & POLLIN) {
            signalfd_siginfo si{};
            while (read(sig_fd_, &si, sizeof si) == static_cast<ssize_t>(sizeof si)) {
                if (si.ssi_signo == SIGTERM || si.ssi_signo == SIGINT) stopping_ = true;
            }
        }
        if (fds[1].revents & POLLIN) {
            uint64_t count = 0;
            if (read(wake_fd_, &count, sizeof count) < 0) { /* nothing signalled */ }
        }
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
