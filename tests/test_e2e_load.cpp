// test_e2e_load.cpp - many client threads against one AT server and the simulated modem.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "e2e/harness.h"
#include "trace_capture.h"

using namespace e2e;

TEST(E2eLoad, SixtyFourThreadsEachGetTheirOwnReplies) {
    Stack s("on AT\non AT\\+ECHO=(\\d+),(\\d+)\n  line +ECHO: $1,$2\n");
    ASSERT_TRUE(s.start());
    const int reply_q = ATS_get_msgQ_id(ATS_QUEUE_ID_SEND);
    ASSERT_NE(reply_q, -1);

    std::atomic<int> failed_calls{0}, wrong_replies{0}, max_waiting{0};
    std::atomic<bool> done{false};
    std::thread watch([&] {
        for (; !done; std::this_thread::sleep_for(1ms)) max_waiting = std::max<int>(max_waiting, ATS_msgQ_num(reply_q));
    });
    atapi_test::clear_traces();
    std::vector<std::thread> clients;
    for (int t = 0; t < 64; ++t) {
        clients.emplace_back([&, t] {
            for (int i = 0; i < 100; ++i) {
                // Each reply names its thread and call, so a reply delivered to the wrong
                // thread, or an old one, shows.
                const std::string args = std::to_string(t) + "," + std::to_string(i);
                const Outcome o = exchange("AT+ECHO=" + args, "+ECHO", 30);
                if (o.rc != 0 || o.ret_val != AT_CMD_OK) ++failed_calls;
                else if (o.report != "+ECHO: " + args) ++wrong_replies;
            }
        });
    }
    for (std::thread& c : clients) c.join();
    done = true;
    watch.join();

    EXPECT_EQ(failed_calls, 0);
    EXPECT_EQ(wrong_replies, 0);
    EXPECT_FALSE(atapi_test::has_trace("send msg failed"));
    // 16 KiB hold ten records; the queue must never have been full.
    EXPECT_LT(max_waiting, 10);
    EXPECT_EQ(ATS_msgQ_num(reply_q), 0);
}

// A client that breaks every rule and never reads a reply floods the server, as fast as the
// server takes messages in, while an honest thread calls on: every honest call is answered, and
// the server's memory stays bounded. (bench_server floods without pacing.)
TEST(E2eLoad, HonestCallsGoOnThroughAFlood) {
    Stack s("on AT\non AT\\+CSQ\n  line +CSQ: 3,99\n");
    ASSERT_TRUE(s.start());
    // The bound is on growth: under emulation the server's process also holds the emulator.
    [[maybe_unused]] const long rss_at_start = memory_kib(s.server.pid(), "VmRSS");
    std::atomic<bool> flooding{true};
    std::thread flood([&] {
        hostile_requests(20000, true);
        flooding = false;
    });
    int honest = 0, failed = 0;
    std::map<std::string, int> why;  // how the failed calls failed
    while (flooding || honest < 5) {
        ++honest;
        const auto t0 = std::chrono::steady_clock::now();
        const Outcome o = exchange("AT+CSQ", "+CSQ", 5);
        if (o.rc == 0 && o.report == "+CSQ: 3,99") continue;
        ++failed;
        const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0);
        ++why["rc " + std::to_string(o.rc) + " ret_val " + std::to_string(o.ret_val) + (ms > 1s ? " slow" : " fast")];
    }
    flood.join();
    EXPECT_EQ(failed, 0) << "of " << honest << " honest calls";
    for (const auto& [kind, n] : why) ADD_FAILURE() << n << " x " << kind;
    const long rss = memory_kib(s.server.pid(), "VmRSS");
    RecordProperty("server_rss_kib_after_flood", static_cast<int>(rss));
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(rss - rss_at_start, 24 * 1024);
#endif
}
