// reply_bell.h - the page through which the AT server tells a waiting client that its reply is on
// the queue.
//
// A SysV message queue has no timed receive, so a client that must keep a time limit either polls
// or sleeps on something else. The AT server keeps one System V shared memory page (key: the run
// directory with identity kBellIdentity, mode and group as the queues'); after each reply it puts
// on the reply queue it bumps the `rung` word of the client's slot and, when the slot says that
// somebody sleeps on it, wakes them with a futex. A client of the low-latency wait sleeps on its
// slot with a time limit instead of sleeping blindly.
//
// The page decides nothing: a slot shared by two clients, a client that died while counted as a
// sleeper, or a page scribbled on by another process give spurious wake-ups or a missed one, and
// the sleeper never sleeps longer than one poll step at a time. A segment is used only when it is
// at least a page's size, was created by the reply queue's creator and names that reply queue, so
// a client never waits on the page of an earlier server.
#pragma once

#include <linux/futex.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdint>

namespace atapi::bell {

constexpr int kBellIdentity = 3;  // beside the queues' 1 and 2
constexpr uint32_t kMagic = 0x41544231;  // "ATB1"
constexpr unsigned kSlots = 1024;

struct Slot {
    uint32_t rung;     // bumped after each reply to a client of this slot
    uint32_t sleepers; // clients that may be asleep on `rung`
};

struct Page {
    uint32_t magic;
    int32_t reply_queue;  // the msgget id of the queue whose replies ring here
    uint32_t reserved[14];
    Slot slots[kSlots];
};

// Server side: a new page at `key` with `mode`, its id in `*id`; null (errno set) when it cannot be
// made. It names no reply queue until the server stores the queue's id in it.
inline Page* create_page(key_t key, int mode, int* id) {
    *id = shmget(key, sizeof(Page), IPC_CREAT | IPC_EXCL | mode);
    void* at = *id == -1 ? reinterpret_cast<void*>(-1) : shmat(*id, nullptr, 0);
    if (at == reinterpret_cast<void*>(-1)) return nullptr;
    auto* page = static_cast<Page*>(at);
    std::atomic_ref<int32_t>(page->reply_queue).store(-1);
    std::atomic_ref<uint32_t>(page->magic).store(kMagic);
    return page;
}

// Server side: the page names no queue any more, and goes once its last client lets it go.
inline void remove_page(Page* page, int id) {
    if (page != nullptr) {
        std::atomic_ref<int32_t>(page->reply_queue).store(-1);
        shmdt(page);
    }
    if (id != -1) shmctl(id, IPC_RMID, nullptr);
}

inline Slot& slot_of(Page& page, int32_t client) { return page.slots[static_cast<uint32_t>(client) % kSlots]; }

// Server side, after a reply for `client` is on the queue. A system call only when somebody sleeps.
inline void ring(Page& page, int32_t client) {
    Slot& s = slot_of(page, client);
    std::atomic_ref<uint32_t>(s.rung).fetch_add(1, std::memory_order_seq_cst);
    if (std::atomic_ref<uint32_t>(s.sleepers).load(std::memory_order_seq_cst) != 0)
        syscall(SYS_futex, &s.rung, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

// Client side: the value to sleep on, read before the client looks at the queue.
inline uint32_t rung(Slot& s) { return std::atomic_ref<uint32_t>(s.rung).load(std::memory_order_seq_cst); }

// Sleeps until the slot rings after `seen`, `ns` pass, or a signal comes, whichever is first. A
// reply sent after `seen` was read is never slept through: the server bumps `rung` before it
// looks for sleepers, and the client counts itself a sleeper before it looks at `rung` again.
inline void sleep_on(Slot& s, uint32_t seen, long ns) {
    std::atomic_ref<uint32_t> sleepers(s.sleepers);
    sleepers.fetch_add(1, std::memory_order_seq_cst);
    if (rung(s) == seen) {
        const timespec rel{static_cast<time_t>(ns / 1000000000L), ns % 1000000000L};
        syscall(SYS_futex, &s.rung, FUTEX_WAIT, seen, &rel, nullptr, 0);
    }
    sleepers.fetch_sub(1, std::memory_order_seq_cst);
}

}  // namespace atapi::bell
