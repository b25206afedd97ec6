// SysV message queue primitives shared by the library and the AT server.
//
// A buffer handed to these functions starts with the 4-byte message type of the 32-bit target.
// The kernel's message type is a `long`, 8 bytes on 64-bit hosts, so every send and receive goes
// through a kernel-shaped copy: the bytes that travel on a queue are the target's everywhere.
#include <sys/ipc.h>
#include <sys/msg.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>

#include "at_queue.h"
#include "atapi/primitives.h"
#include "reply_bell.h"
#include "run_dir.h"

constexpr char kTraceSource[] = "src/at_queue";
#include "trace.h"

namespace {

constexpr unsigned kTypeBytes = 4;
constexpr int kPollStepMs = 10;

// Holds one message in the kernel's layout: a `long` type followed by the text. Nothing is
// zeroed ahead (the kernel writes what is read); what a send or receive put here is wiped after
// it, since it may be a command with a PIN or a reply with a message.
class KernelMsg {
public:
    explicit KernelMsg(size_t text_size) : size_(sizeof(long) + text_size) {
        if (size_ > sizeof stack_) heap_ = std::make_unique<unsigned char[]>(size_);
    }
    ~KernelMsg() {
        if (used_ > 0) memset_s(data(), size_, 0, used_);
    }
    KernelMsg(const KernelMsg&) = delete;
    KernelMsg& operator=(const KernelMsg&) = delete;
    void* data() { return heap_ ? heap_.get() : stack_; }
    unsigned char* text() { return static_cast<unsigned char*>(data()) + sizeof(long); }
    long type() {
        long t = 0;
        std::memcpy(&t, data(), sizeof t);
        return t;
    }
    void set_type(long t) { std::memcpy(data(), &t, sizeof t); }
    // The bytes from the start that a send or receive wrote.
    void used(size_t n) { used_ = std::max(used_, std::min(n, size_)); }

private:
    size_t size_;
    size_t used_ = 0;
    alignas(long) unsigned char stack_[2048];
    std::unique_ptr<unsigned char[]> heap_;
};

// Where the kernel's `long` type is the target's 4 bytes the caller's buffer is already in the
// kernel's layout, and no copy is made.
constexpr bool kSameLayout = sizeof(long) == kTypeBytes;

bool kernel_send(ATS_QUEUE qid, const void* msg, unsigned length, int flags) {
    const size_t text = length - kTypeBytes;
    if constexpr (kSameLayout) return msgsnd(qid, msg, text, flags) == 0;
    KernelMsg km(text);
    int32_t type = 0;
    std::memcpy(&type, msg, kTypeBytes);
    km.set_type(type);
    std::memcpy(km.text(), static_cast<const unsigned char*>(msg) + kTypeBytes, text);
    km.used(sizeof(long) + text);
    return msgsnd(qid, km.data(), text, flags) == 0;
}

int kernel_recv(ATS_QUEUE qid, void* msg, unsigned maxLength, long type, int flags) {
    const size_t text = maxLength - kTypeBytes;
    KernelMsg km(kSameLayout ? 0 : text);
    void* const into = kSameLayout ? msg : km.data();
    for (;;) {
        ssize_t n = msgrcv(qid, into, text, type, flags);
        if (n < 0 && errno == E2BIG) {
            // A message longer than any record would stay at the head of its type for good and
            // hold back every message behind it: it is taken off and dropped.
            KernelMsg junk(text);
            msgrcv(qid, junk.data(), text, type, flags | IPC_NOWAIT | MSG_NOERROR);
            junk.used(sizeof(long) + text);
            ATS_TRACE(ERROR, "Error! dropped an over-long message of type %ld from queue %d\n", junk.type(), qid);
            continue;
        }
        if (n >= 0 && !kSameLayout) {
            int saved = errno;
            km.used(sizeof(long) + static_cast<size_t>(n));
            int32_t t = static_cast<int32_t>(km.type());
            std::memcpy(msg, &t, kTypeBytes);
            std::memcpy(static_cast<unsigned char*>(msg) + kTypeBytes, km.text(), static_cast<size_t>(n));
            errno = saved;
        }
        return static_cast<int>(n);
    }
}

// One poll step of 10 ms. A signal that cuts the sleep short does not shorten the step, so that a
// caller's time limit is kept whatever signals its thread receives.
void sleep_step() {
    timespec until{};
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_nsec += kPollStepMs * 1000000L;
    if (until.tv_nsec >= 1000000000L) {
        until.tv_nsec -= 1000000000L;
        ++until.tv_sec;
    }
    int rc = usleep(kPollStepMs * 1000);
    while (rc != 0 && errno == EINTR) {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        const long long left_us = (until.tv_sec - now.tv_sec) * 1000000LL + (until.tv_nsec - now.tv_nsec) / 1000;
        if (left_us <= 0) break;
        rc = usleep(static_cast<useconds_t>(left_us));
    }
}

key_t queue_key(int queue_identify) { return ftok(atapi::run_dir().c_str(), queue_identify); }

enum class Variant { plain, ex };

// What one look at the queue found.
enum class Look { got, interrupted, gone, empty };

Look look(Variant v, ATS_QUEUE qid, void* msg, unsigned maxLength, long type, int* last) {
    *last = kernel_recv(qid, msg, maxLength, type, IPC_NOWAIT);
    if (*last > 0) return Look::got;
    if (*last == -1 && errno == EINTR) return Look::interrupted;
    if (*last == -1 && qid < 0) {
        if (v == Variant::ex)
            ATS_TRACE(ERROR, "Error! in ATS_msgQex_recv, msgqid < 0. errno = %s\n", strerror(errno));
        else
            ATS_TRACE(ERROR, "Error! in ATS_msgQ_recv, msgqid < 0. errno = %s\n", strerror(errno));
        return Look::gone;
    }
    if (*last == -1 && (errno == EIDRM || errno == EINVAL)) {
        // The queue was removed: nothing can arrive on it any more.
        ATS_TRACE(ERROR, "Error! queue %d is gone. errno = %s\n", qid, strerror(errno));
        return Look::gone;
    }
    return Look::empty;
}

int timed_recv(Variant v, ATS_QUEUE qid, void* msg, unsigned maxLength, int timeout, long type) {
    if (maxLength <= 3 || qid == -1) return -1;
    if (timeout == -1) return kernel_recv(qid, msg, maxLength, type, 0);
    if (timeout == 0) return kernel_recv(qid, msg, maxLength, type, IPC_NOWAIT);
    if (timeout < 0) return v == Variant::ex ? -1 : 0;  // the plain variant has always answered 0 here

    int remaining = timeout;
    int last = -1;
    while (remaining > 0) {
        switch (look(v, qid, msg, maxLength, type, &last)) {
            case Look::got: return last;
            case Look::interrupted: continue;  // a signal costs neither a sleep nor time
            case Look::gone: return -1;
            case Look::empty: break;
        }
        sleep_step();
        remaining -= kPollStepMs;
    }
    return v == Variant::ex ? -1 : last;
}

// The AT server's reply bell for reply queue `qid`: attached when the segment is a whole page, was
// created by the queue's creator and names that queue. A segment that is absent or not the
// server's is remembered, so that a server without a bell costs one look per reply queue; one
// that does not name the queue yet (a server still starting) is looked at again next time.
enum class Attach { found, none, not_yet };

Attach attach_bell(ATS_QUEUE qid, atapi::bell::Page** out) {
    const int id = shmget(ftok(atapi::run_dir().c_str(), atapi::bell::kBellIdentity), 0, 0);
    shmid_ds seg{};
    msqid_ds queue{};
    if (id == -1 || shmctl(id, IPC_STAT, &seg) != 0 || msgctl(qid, IPC_STAT, &queue) != 0) return Attach::none;
    if (seg.shm_segsz < sizeof(atapi::bell::Page) || seg.shm_perm.cuid != queue.msg_perm.cuid) return Attach::none;
    void* at = shmat(id, nullptr, 0);
    if (at == reinterpret_cast<void*>(-1)) return Attach::none;
    auto* page = static_cast<atapi::bell::Page*>(at);
    if (std::atomic_ref<uint32_t>(page->magic).load() != atapi::bell::kMagic ||
        std::atomic_ref<int32_t>(page->reply_queue).load() != qid) {
        shmdt(at);
        return Attach::not_yet;
    }
    *out = page;
    return Attach::found;
}

// Pages of earlier servers stay mapped: another thread may still sleep on one, and a process sees
// few server restarts.
atapi::bell::Page* bell_for(ATS_QUEUE qid) {
    static std::mutex mu;
    static std::atomic<atapi::bell::Page*> page{nullptr};
    static std::atomic<int> asked_for{-1};
    auto named = [qid](atapi::bell::Page* p) {
        return p != nullptr && std::atomic_ref<int32_t>(p->reply_queue).load(std::memory_order_relaxed) == qid ? p : nullptr;
    };
    // The page asked for this queue, or none: a page that no longer names it (its server stopped
    // and the queue's id came round again) is asked for afresh.
    auto cached = [&](atapi::bell::Page** out) {
        if (asked_for.load(std::memory_order_acquire) != qid) return false;
        atapi::bell::Page* p = page.load(std::memory_order_acquire);
        *out = named(p);
        return p == nullptr || *out != nullptr;
    };
    atapi::bell::Page* known = nullptr;
    if (cached(&known)) return known;
    std::lock_guard lock(mu);
    if (cached(&known)) return known;
    atapi::bell::Page* found = nullptr;
    const Attach a = attach_bell(qid, &found);
    if (a == Attach::not_yet) return nullptr;
    page.store(found, std::memory_order_release);
    asked_for.store(qid, std::memory_order_release);
    return found;
}

// The low-latency wait. With the AT server's bell the thread sleeps until its reply is rung, and
// wakes within a scheduler's wake-up of it; without one it looks after a short sleep that grows,
// so that a reply that comes at once (a tenth of a millisecond through the AT server) is seen
// within about as much again, and one that takes long costs no more looks than the 10 ms poll.
// The time limit is a deadline on the monotonic clock, so signals that cut a sleep short neither
// shorten nor lengthen it.
constexpr long kFirstSleepNs = 20 * 1000L;
constexpr long kLongestSleepNs = kPollStepMs * 1000000L;
// Each sleep is a quarter longer than the one before: a reply is noticed within about a quarter
// of the time it took (many threads waiting behind one modem wait long, and a reply left on the
// queue holds a place that the server needs for the next one).
constexpr long kGrowthDivisor = 4;

int64_t monotonic_ns() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

int fast_recv(ATS_QUEUE qid, void* msg, unsigned maxLength, int timeout_ms, long type) {
    if (maxLength <= 3 || qid == -1 || timeout_ms < 0) return -1;
    const int64_t deadline = monotonic_ns() + static_cast<int64_t>(timeout_ms) * 1000000LL;
    atapi::bell::Page* const page = bell_for(qid);
    atapi::bell::Slot* const slot = page ? &atapi::bell::slot_of(*page, static_cast<int32_t>(type)) : nullptr;
    long sleep_ns = kFirstSleepNs;
    int last = -1;
    for (;;) {
        const uint32_t seen = slot ? atapi::bell::rung(*slot) : 0;
        switch (look(Variant::ex, qid, msg, maxLength, type, &last)) {
            case Look::got: return last;
            case Look::interrupted: continue;
            case Look::gone: return -1;
            case Look::empty: break;
        }
        const int64_t now = monotonic_ns();
        if (now >= deadline) return -1;
        if (slot != nullptr) {
            // Never longer than a poll step: a ring can be missed (see reply_bell.h).
            atapi::bell::sleep_on(*slot, seen, static_cast<long>(std::min<int64_t>(kLongestSleepNs, deadline - now)));
            continue;
        }
        const int64_t wake = std::min<int64_t>(now + sleep_ns, deadline);
        const timespec until{static_cast<time_t>(wake / 1000000000LL), static_cast<long>(wake % 1000000000LL)};
        while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
        }
        sleep_ns = std::min(sleep_ns + sleep_ns / kGrowthDivisor, kLongestSleepNs);
    }
}

}  // namespace

extern "C" {

ATS_QUEUE ATS_msgQ_create(int queue_identify, unsigned int maxMsgs, unsigned int maxMsgLength) {
    if (maxMsgs > 1000 || maxMsgLength > 8192 ||
        static_cast<unsigned long long>(maxMsgs) * maxMsgLength > 16384) {
        ATS_TRACE(ERROR, "Error! ATS_msgQ_create parameter error.\n");
        return -1;
    }
    // Exclusive on purpose: a queue that exists already belongs to someone else.
    int id = msgget(queue_key(queue_identify), IPC_CREAT | IPC_EXCL | 0777);
    if (id == -1) {
        ATS_TRACE(ERROR, "Error!create msg queue error nMsgQId = %d. errno = %s\n", id, strerror(errno));
        return -1;
    }
    struct msqid_ds ds {};
    if (msgctl(id, IPC_STAT, &ds) != 0)
        ATS_TRACE(ERROR, "Error!in ATS_msgQ_create_msgctl_IPC_STAT. errno = %s\n", strerror(errno));
    ds.msg_qbytes = static_cast<msglen_t>(maxMsgs) * maxMsgLength;
    if (msgctl(id, IPC_SET, &ds) != 0)
        ATS_TRACE(ERROR, "Error!in ATS_msgQ_create_msgctl_IPC_SET. errno = %s\n", strerror(errno));
    return id;
}

ATS_BOOL ATS_msgQ_delete(ATS_QUEUE msgqid) {
    if (msgqid == -1) return ATS_TRUE;
    if (msgctl(msgqid, IPC_RMID, nullptr) != 0) {
        ATS_TRACE(ERROR, "Error!in ATS_msgQ_delete, msgctl failed. errno = %s\n", strerror(errno));
        return ATS_FALSE;
    }
    return ATS_TRUE;
}

ATS_BOOL ATS_msgQ_send(ATS_QUEUE msgqid, void* pMsg, unsigned int length, int /*timeout*/) {
    if (msgqid == -1 || length <= 3 || pMsg == nullptr) return ATS_FALSE;
    return kernel_send(msgqid, pMsg, length, 0) ? ATS_TRUE : ATS_FALSE;
}

int ATS_msgQ_recv(ATS_QUEUE msgqid, void* pMsg, unsigned int maxLength, int timeout) {
    if (pMsg == nullptr) return -1;
    return timed_recv(Variant::plain, msgqid, pMsg, maxLength, timeout, 0);
}

int ATS_msgQ_num(ATS_QUEUE msgqid) {
    if (msgqid == -1) return 0;
    struct msqid_ds ds {};
    if (msgctl(msgqid, IPC_STAT, &ds) != 0) return -1;
    return static_cast<int>(ds.msg_qnum);
}

ATS_QUEUE ATS_msgQex_create(int queue_identify, unsigned int maxMsgs, unsigned int maxMsgLength) {
    return ATS_msgQ_create(queue_identify, maxMsgs, maxMsgLength);
}

ATS_BOOL ATS_msgQex_delete(ATS_QUEUE msgqid) { return ATS_msgQ_delete(msgqid); }

int ATS_msgQex_num(ATS_QUEUE msgqid) { return ATS_msgQ_num(msgqid); }

ATS_BOOL ATS_msgQex_send(ATS_QUEUE msgqid, void* pMsg, unsigned int length, int timeout) {
    if (msgqid == -1 || length <= 3 || pMsg == nullptr) return ATS_FALSE;
    // timeout 0 must not block, so that a full queue fails at once.
    return kernel_send(msgqid, pMsg, length, timeout == 0 ? IPC_NOWAIT : 0) ? ATS_TRUE : ATS_FALSE;
}

int ATS_msgQex_recv(ATS_QUEUE msgqid, void* pMsg, unsigned int maxLength, int timeout, unsigned int msgType) {
    if (pMsg == nullptr) return -1;
    return timed_recv(Variant::ex, msgqid, pMsg, maxLength, timeout, static_cast<long>(msgType));
}

ATS_QUEUE ATS_get_msgQ_id(int queue_identify) { return msgget(queue_key(queue_identify), 0); }

}  // extern "C"

namespace atapi {

ReplyWait reply_wait() {
    const char* v = secure_getenv("ATAPI_REPLY_WAIT");
    return v != nullptr && std::strcmp(v, "fast") == 0 ? ReplyWait::fast : ReplyWait::poll;
}

int recv_reply(ATS_QUEUE qid, void* msg, unsigned maxLength, int timeout_ms, unsigned msgType, ReplyWait how) {
    if (msg == nullptr) return -1;
    if (how == ReplyWait::fast) return fast_recv(qid, msg, maxLength, timeout_ms, static_cast<long>(msgType));
    return ATS_msgQex_recv(qid, msg, maxLength, timeout_ms, msgType);
}

}  // namespace atapi
