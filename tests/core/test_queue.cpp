// Message queue primitives over real SysV queues in a private run directory.
//
// msgrcv and usleep are wrapped here (the program's own definitions come first in symbol lookup)
// to count the receive polls and sleeps and to inject EINTR; they still call the real ones.
#include <dlfcn.h>
#include <sys/msg.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "atapi.h"
#include "run_dir.h"
#include "trace_capture.h"

namespace {
std::atomic<int> g_msgrcv_calls{0};
std::atomic<int> g_usleep_calls{0};
std::atomic<int> g_eintr_to_inject{0};
}  // namespace

extern "C" ssize_t msgrcv(int msqid, void* msgp, size_t msgsz, long msgtyp, int msgflg) {
    using Fn = ssize_t (*)(int, void*, size_t, long, int);
    static Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "msgrcv"));
    ++g_msgrcv_calls;
    if (g_eintr_to_inject > 0) {
        --g_eintr_to_inject;
        errno = EINTR;
        return -1;
    }
    return real(msqid, msgp, msgsz, msgtyp, msgflg);
}

extern "C" int usleep(useconds_t usec) {
    using Fn = int (*)(useconds_t);
    static Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "usleep"));
    ++g_usleep_calls;
    return real(usec);
}

namespace {

class Queue : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(dir_.ok());
        atapi_test::clear_traces();
        g_msgrcv_calls = 0;
        g_usleep_calls = 0;
    }
    void TearDown() override {
        for (int id : {1, 2, 3, 7}) ATS_msgQ_delete(ATS_get_msgQ_id(id));
    }
    atapi_test::RunDir dir_;
};

TEST_F(Queue, CreateIsExclusiveAndLookupFindsIt) {
    ATS_QUEUE q = ATS_msgQ_create(7, 10, 1600);
    ASSERT_NE(q, -1);
    EXPECT_EQ(ATS_get_msgQ_id(7), q);
    EXPECT_EQ(ATS_msgQ_create(7, 10, 1600), -1);
    EXPECT_TRUE(atapi_test::has_trace("Error!create msg queue error nMsgQId = -1. errno = "));
    struct msqid_ds ds {};
    ASSERT_EQ(msgctl(q, IPC_STAT, &ds), 0);
    EXPECT_EQ(ds.msg_qbytes, 16000u);
    EXPECT_EQ(ATS_get_msgQ_id(3), -1);
}

TEST_F(Queue, CreateSizeLimits) {
    const struct {
        unsigned msgs, len;
        bool accepted;
    } cases[] = {
        {1000, 16, true}, {1001, 1, false}, {1, 8193, false}, {200, 100, false}, {2, 8192, true}, {1, 8192, true},
    };
    for (const auto& c : cases) {
        ATS_QUEUE q = ATS_msgQ_create(3, c.msgs, c.len);
        EXPECT_EQ(q != -1, c.accepted) << c.msgs << " x " << c.len;
        ATS_msgQ_delete(q);
    }
    EXPECT_EQ(atapi_test::count_trace("Error! ATS_msgQ_create parameter error.\n"), 3u);
}

TEST_F(Queue, SendDeleteAndCount) {
    EXPECT_EQ(ATS_msgQ_delete(-1), ATS_TRUE);
    EXPECT_EQ(ATS_msgQ_num(-1), 0);
    ATS_QUEUE q = ATS_msgQ_create(1, 10, 1600);
    msg_q m{};
    m.client_id = 42;
    EXPECT_EQ(ATS_msgQex_send(-1, &m, sizeof m, 0), ATS_FALSE);
    EXPECT_EQ(ATS_msgQex_send(q, &m, 3, 0), ATS_FALSE);
    EXPECT_EQ(ATS_msgQ_send(q, &m, 3, 0), ATS_FALSE);
    EXPECT_EQ(ATS_msgQ_num(q), 0);
    EXPECT_EQ(ATS_msgQ_send(q, &m, sizeof m, 0), ATS_TRUE);
    EXPECT_EQ(ATS_msgQex_send(q, &m, sizeof m, 0), ATS_TRUE);
    EXPECT_EQ(ATS_msgQ_num(q), 2);
    EXPECT_EQ(ATS_msgQ_delete(q), ATS_TRUE);
    EXPECT_EQ(ATS_msgQ_delete(q), ATS_FALSE);  // already gone
    EXPECT_TRUE(atapi_test::has_trace("Error!in ATS_msgQ_delete, msgctl failed. errno = "));
    EXPECT_EQ(ATS_msgQ_num(q), -1);
}

// The record travels as the 32-bit target lays it out: the 4-byte type, then 1596 bytes of text.
TEST_F(Queue, WireBytesAreTheTargets) {
    ATS_QUEUE q = ATS_msgQ_create(1, 10, 1600);
    msg_q m{};
    m.client_id = 0x1234;
    m.seq = 0xA1B2C3D4;
    std::memcpy(m.snd_rcv_msg.smsg.at_cmd_str, "AT+CSQ", 6);
    ASSERT_EQ(ATS_msgQex_send(q, &m, sizeof m, 0), ATS_TRUE);

    struct {
        long mtype;
        unsigned char text[1596];
    } raw{};
    ASSERT_EQ(msgrcv(q, &raw, sizeof raw.text, 0, IPC_NOWAIT), 1596);
    EXPECT_EQ(raw.mtype, 0x1234);
    uint32_t seq = 0;
    std::memcpy(&seq, raw.text + 16 - 4, 4);
    EXPECT_EQ(seq, 0xA1B2C3D4u);
    EXPECT_EQ(std::memcmp(raw.text + 92 - 4, "AT+CSQ", 6), 0);

    // ...and a kernel-shaped message comes back as the 4-byte-type record.
    ASSERT_EQ(msgsnd(q, &raw, sizeof raw.text, 0), 0);
    msg_q back{};
    EXPECT_EQ(ATS_msgQex_recv(q, &back, sizeof back, 0, 0x1234), 1596);
    EXPECT_EQ(std::memcmp(&back, &m, sizeof m), 0);
}

TEST_F(Queue, ReceiveSelectsByType) {
    ATS_QUEUE q = ATS_msgQ_create(1, 10, 1600);
    msg_q a{}, b{}, got{};
    a.client_id = 100;
    b.client_id = 200;
    ATS_msgQex_send(q, &a, sizeof a, 0);
    ATS_msgQex_send(q, &b, sizeof b, 0);
    EXPECT_EQ(ATS_msgQex_recv(q, &got, sizeof got, 0, 200), 1596);
    EXPECT_EQ(got.client_id, 200);
    EXPECT_EQ(ATS_msgQex_recv(q, &got, sizeof got, 0, 200), -1);
    EXPECT_EQ(ATS_msgQ_recv(q, &got, sizeof got, 0), 1596);  // any type
    EXPECT_EQ(got.client_id, 100);
}

// An interrupted poll neither sleeps nor uses up time: it is simply repeated.
TEST_F(Queue, TimedReceivePollsInTenMillisecondSteps) {
    ATS_QUEUE q = ATS_msgQ_create(1, 10, 1600);
    msg_q m{};
    const struct {
        int timeout, interrupted, polls;
    } cases[] = {{25, 0, 3}, {10, 0, 1}, {30, 0, 3}, {1, 0, 1}, {25, 5, 3}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.timeout << " ms, " << c.interrupted << " interrupted");
        g_msgrcv_calls = 0;
        g_usleep_calls = 0;
        g_eintr_to_inject = c.interrupted;
        EXPECT_EQ(ATS_msgQex_recv(q, &m, sizeof m, c.timeout, 1), -1);
        EXPECT_EQ(g_msgrcv_calls.load(), c.interrupted + c.polls);
        EXPECT_EQ(g_usleep_calls.load(), c.polls);
    }
}

TEST_F(Queue, ReceiveEdgeArguments) {
    ATS_QUEUE q = ATS_msgQ_create(1, 10, 1600);
    msg_q m{};
    EXPECT_EQ(ATS_msgQex_recv(q, &m, 3, 100, 1), -1);
    EXPECT_EQ(ATS_msgQex_recv(-1, &m, sizeof m, 100, 1), -1);
    g_msgrcv_calls = 0;
    EXPECT_EQ(ATS_msgQex_recv(q, &m, sizeof m, -5, 1), -1);  // polls not at all
    EXPECT_EQ(ATS_msgQ_recv(q, &m, sizeof m, -5), 0);        // the plain variant answers 0
    EXPECT_EQ(g_msgrcv_calls.load(), 0);
    EXPECT_EQ(ATS_msgQ_recv(q, &m, sizeof m, 20), -1);       // its last msgrcv result
    EXPECT_EQ(ATS_msgQex_recv(-2, &m, sizeof m, 20, 1), -1);
    EXPECT_TRUE(atapi_test::has_trace("Error! in ATS_msgQex_recv, msgqid < 0. errno = "));
}

}  // namespace
