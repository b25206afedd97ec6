// The request exchange against the scripted fake AT server, over real queues.
#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/msg.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "atapi.h"
#include "fake_ats.h"
#include "run_dir.h"
#include "trace_capture.h"

namespace {
std::atomic<int> g_msgget_delay_ms{0};
}  // namespace

extern "C" int msgget(key_t key, int msgflg) {
    using Fn = int (*)(key_t, int);
    static Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "msgget"));
    if (int ms = g_msgget_delay_ms.load()) usleep(static_cast<useconds_t>(ms) * 1000);
    return real(key, msgflg);
}

using namespace atapi_test;
using namespace std::chrono_literals;

namespace {

msg_q request(const char* cmd, const char* match = "", int time_out = 5) {
    msg_q m{};
    m.client_id = static_cast<int32_t>(syscall(SYS_gettid));
    m.req_type = AT_REQ;
    m.rsp_type = DIRECT_BACK;
    m.at_mutil = AT_RES_ONE;
    m.time_out = time_out;
    ATS_strncpy_s(m.snd_rcv_msg.smsg.at_cmd_str, AT_CMD_STR_LEN, cmd, ATS_strlen_s(cmd));
    ATS_strncpy_s(m.snd_rcv_msg.smsg.at_match_ok_str, AT_MATCH_STR_LEN, match, ATS_strlen_s(match));
    return m;
}

// As a process that has not talked to an AT server yet.
void forget_server() {
    g_ats_lib_task_id = -1;
    g_ats_lib_rcv_mq_id = -1;
    g_ats_lib_snd_mq_id = -1;
}

// Every exchange test runs with both reply waits: the 10 ms poll and ATAPI_REPLY_WAIT=fast, the
// latter against a server without a reply bell and one with it ("bell").
class Exchange : public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        const bool bell = std::strcmp(GetParam(), "bell") == 0;
        setenv("ATAPI_REPLY_WAIT", bell ? "fast" : GetParam(), 1);
        if (bell) ats.ring_bell();
        forget_server();
        clear_traces();
    }
    void TearDown() override { unsetenv("ATAPI_REPLY_WAIT"); }
    FakeAtServer ats;
};

TEST_P(Exchange, FirstCallTracesOnceThenExchanges) {
    ats.reply(ok("+CSQ: 20,99"));
    msg_q m = request("AT+CSQ", "+CSQ");
    ASSERT_EQ(GetDataFromAtServer(&m), 0);
    EXPECT_EQ(count_trace("check_ats_id id = -1\n"), 1u);
    EXPECT_EQ(m.snd_rcv_msg.rmsg.ret_val, AT_CMD_OK);
    EXPECT_STREQ(m.snd_rcv_msg.rmsg.at_report_str, "+CSQ: 20,99");
    EXPECT_STREQ(m.snd_rcv_msg.rmsg.at_match_str, "+CSQ");

    const Request r = ats.last();
    EXPECT_EQ(r.cmd, "AT+CSQ");
    EXPECT_EQ(r.match, "+CSQ");
    EXPECT_EQ(r.client_id, m.client_id);
    EXPECT_EQ(r.seq, m.seq);
    EXPECT_EQ(r.time_out, 5);
    EXPECT_EQ(std::memcmp(&r.raw, &m, 16), 0);  // client, request, report and answer types as filled

    // The next call finds the server cached: no further lookup trace, and the next sequence number.
    clear_traces();
    ats.reply(ok("+CSQ: 21,99"));
    msg_q m2 = request("AT+CSQ", "+CSQ");
    ASSERT_EQ(GetDataFromAtServer(&m2), 0);
    EXPECT_EQ(count_trace("check_ats_id id = -1\n"), 0u);
    EXPECT_EQ(ats.last().seq, r.seq + 1);
    EXPECT_TRUE(has_trace("Ret_val is 2 ,report is ***, match is +CSQ"));
}

// The command text never reaches the trace, and nothing of it can be read back as report text.
TEST_P(Exchange, CommandTextIsMaskedAndNotEchoed) {
    ats.reply(ok(""));
    msg_q m = request("AT+CPIN=\"1234\"");
    ASSERT_EQ(GetDataFromAtServer(&m), 0);
    EXPECT_EQ(m.snd_rcv_msg.rmsg.at_report_str[0], '\0');
    EXPECT_FALSE(has_trace("1234"));
    EXPECT_TRUE(has_trace("send_to_msgqueue:AT cmd= ***, Id= "));
}

// A child that a stray SIGUSR1 would kill: it stands for an unrelated process.
pid_t spawn_bystander() {
    const pid_t pid = fork();
    if (pid == 0) {
        for (;;) pause();
    }
    return pid;
}

bool alive_and_reap(pid_t pid) {
    const bool alive = waitpid(pid, nullptr, WNOHANG) == 0;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return alive;
}

// After a restart the library finds the new server and its queues, whether the pid it cached is
// dead or names an unrelated process by now; that process is never signalled.
TEST_P(Exchange, ServerRestartedBetweenCalls) {
    for (bool reused : {false, true}) {
        SCOPED_TRACE(reused ? "old pid reused" : "old pid dead");
        ats.reply(ok("one"));
        msg_q m = request("AT");
        ASSERT_EQ(GetDataFromAtServer(&m), 0);
        const int old_pid = ats.pid();
        ats.restart();
        ASSERT_NE(ats.pid(), old_pid);
        const pid_t other = reused ? spawn_bystander() : -1;
        if (reused) g_ats_lib_task_id = other;
        clear_traces();
        ats.reply(ok("two"));
        msg_q m2 = request("AT");
        ASSERT_EQ(GetDataFromAtServer(&m2), 0);
        EXPECT_STREQ(m2.snd_rcv_msg.rmsg.at_report_str, "two");
        EXPECT_EQ(g_ats_lib_task_id, ats.pid());
        EXPECT_EQ(g_ats_lib_rcv_mq_id, ats.request_queue());
        EXPECT_EQ(g_ats_lib_snd_mq_id, ats.reply_queue());
        if (reused) {
            EXPECT_TRUE(alive_and_reap(other));
        } else {
            EXPECT_EQ(count_trace("check_ats_id id = " + std::to_string(old_pid) + "\n"), 1u);
        }
    }
}

TEST_P(Exchange, StaleReplyIsDroppedAndTheCallGetsItsOwn) {
    Reply own = ok("own");
    Reply stale = ok("stale");
    stale.seq_delta = -1;
    own.extra_before.push_back(stale);
    ats.reply(own);
    msg_q m = request("AT");
    ASSERT_EQ(GetDataFromAtServer(&m), 0);
    EXPECT_STREQ(m.snd_rcv_msg.rmsg.at_report_str, "own");
    EXPECT_TRUE(has_trace("Error:Msg seq erro,taskid = "));
}

TEST_P(Exchange, NewerSequenceFails) {
    Reply newer = ok("newer");
    newer.seq_delta = 1;
    ats.reply(newer);
    msg_q m = request("AT");
    EXPECT_EQ(GetDataFromAtServer(&m), -1);
    EXPECT_TRUE(has_trace("Error:tmp_msg.seq= "));
}

// The wait lasts the whole time limit even while signals keep cutting the poll's sleep short.
TEST_P(Exchange, TimeoutAfterTimeOutSecondsDespiteSignals) {
    struct sigaction sa {}, old {};
    sa.sa_handler = [](int) {};
    sigaction(SIGUSR2, &sa, &old);  // no SA_RESTART: each signal interrupts the sleep
    ats.reply(silent());
    std::atomic<bool> done{false};
    const pthread_t waiter = pthread_self();
    std::thread pest([&] {
        while (!done) {
            pthread_kill(waiter, SIGUSR2);
            std::this_thread::sleep_for(2ms);
        }
    });
    msg_q m = request("AT", "", 1);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(GetDataFromAtServer(&m), -1);
    const auto waited = std::chrono::steady_clock::now() - start;
    done = true;
    pest.join();
    sigaction(SIGUSR2, &old, nullptr);
    EXPECT_GE(waited, 950ms);
    EXPECT_TRUE(has_trace("There is no Message in the queue!Task id = "));
    const auto logs = syslog_lines();
    ASSERT_EQ(logs.size(), 1u);
    EXPECT_EQ(logs[0].ident, "atserver");
    EXPECT_EQ(logs[0].level, 2);
    EXPECT_EQ(logs[0].text, "ats receive message queue timeout!");
}

// With the AT server gone the call fails without sending and without waiting on a queue.
TEST_P(Exchange, AbsentServerFailsWithoutWaiting) {
    ats.reply(ok());
    msg_q m = request("AT");
    ASSERT_EQ(GetDataFromAtServer(&m), 0);
    ats.die();
    clear_traces();
    msg_q m2 = request("AT", "", 30);
    EXPECT_EQ(GetDataFromAtServer(&m2), -1);
    EXPECT_FALSE(has_trace("There is no Message in the queue!"));
    EXPECT_TRUE(syslog_lines().empty());
    EXPECT_EQ(count_trace("check_ats_id id = " + std::to_string(ats.pid()) + "\n"), 2u);

    std::filesystem::remove(ats.pid_file());  // no pid file at all
    EXPECT_EQ(GetDataFromAtServer(&m2), -1);
    EXPECT_EQ(ats.count(), 1u);
}

TEST_P(Exchange, NullArguments) {
    EXPECT_EQ(GetDataFromAtServer(nullptr), -1);
    EXPECT_EQ(read_data_from_atsrv_proc(nullptr), -1);
    int rc = 7;
    msg_q m = request("AT");
    EXPECT_EQ(send_to_msgqueue(ats.request_queue(), nullptr, &rc), -1);
    EXPECT_EQ(send_to_msgqueue(ats.request_queue(), &m, nullptr), -1);
    EXPECT_EQ(count_trace(" qbuf  or retcode is  NULL!\n"), 2u);
    EXPECT_EQ(read_from_msgqueue(-1, &m, 1, &rc), -1);
    EXPECT_EQ(read_from_msgqueue(ats.reply_queue(), &m, 1, nullptr), -1);
    EXPECT_EQ(count_trace(" qbuf NULL!\n"), 2u);
    EXPECT_EQ(ats.count(), 0u);
}

// After a restart every thread that finds the new server alive must also use its new queues,
// even while another thread is still refreshing the cached ids. Queue lookups are slowed down
// here (msgget is wrapped below) so that the others arrive in the middle of that refresh.
TEST_P(Exchange, ThreadsRacingThroughARestartUseTheNewQueues) {
    ats.respond([](const Request& r) { return ok(r.cmd); });
    msg_q first = request("AT");
    ASSERT_EQ(GetDataFromAtServer(&first), 0);
    ats.restart();
    g_msgget_delay_ms = 30;
    std::atomic<int> failures{0};
    auto call = [&failures] {
        msg_q m = request("AT+RACE");
        if (GetDataFromAtServer(&m) != 0) ++failures;
    };
    std::thread refresher(call);
    std::this_thread::sleep_for(10ms);  // the first thread is now inside the slow lookup
    std::vector<std::thread> late;
    for (int t = 0; t < 4; ++t) late.emplace_back(call);
    refresher.join();
    for (auto& th : late) th.join();
    g_msgget_delay_ms = 0;
    EXPECT_EQ(failures.load(), 0);
}

// Replies that wait for this thread id before its request goes out are never its answer: one
// that came after its caller gave up on an earlier request (dropped as the wait drops it) or one
// left for an earlier thread that had the same id, whatever sequence number it carries.
TEST_P(Exchange, RepliesWaitingBeforeTheRequestAreNotTheAnswer) {
    ats.respond([](const Request& r) { return ok("fresh " + r.cmd); });
    msg_q first = request("AT+ONE");
    ASSERT_EQ(GetDataFromAtServer(&first), 0);
    for (uint32_t seq : {first.seq, first.seq + 1}) {  // older than the next request, and equal to it
        msg_q leftover = request("");
        leftover.seq = seq;
        ATS_strncpy_s(leftover.snd_rcv_msg.rmsg.at_report_str, AT_REPORT_STR_LEN, "leftover", 8);
        leftover.snd_rcv_msg.rmsg.ret_val = AT_CMD_OK;
        ASSERT_EQ(ATS_msgQex_send(ats.reply_queue(), &leftover, sizeof leftover, 0), ATS_TRUE);
    }
    clear_traces();
    msg_q m = request("AT+TWO");
    ASSERT_EQ(GetDataFromAtServer(&m), 0);
    EXPECT_STREQ(m.snd_rcv_msg.rmsg.at_report_str, "fresh AT+TWO");
    EXPECT_TRUE(has_trace("Error:Msg seq erro,taskid = "));
    EXPECT_TRUE(has_trace("in clear_msg_from_queue, Error: Read a mtype="));
}

// A pid file that others may write names an unrelated process: it is not signalled.
TEST_P(Exchange, ForgedPidFileIsNotSignalled) {
    const pid_t other = spawn_bystander();
    std::ofstream(ats.pid_file()) << other << "\n";
    chmod(ats.pid_file().c_str(), 0666);
    msg_q m = request("AT", "", 1);
    EXPECT_EQ(GetDataFromAtServer(&m), -1);
    EXPECT_EQ(ats.count(), 0u);
    EXPECT_TRUE(has_trace("does not serve the AT server's queues"));
    EXPECT_TRUE(alive_and_reap(other));
}

TEST_P(Exchange, RemovedReplyQueueEndsTheWait) {
    ats.reply(silent());
    std::thread remover([this] {
        ats.wait_for_requests(1);
        ATS_msgQ_delete(ats.reply_queue());
    });
    msg_q m = request("AT", "", 20);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(GetDataFromAtServer(&m), -1);
    remover.join();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);  // not the 20 s of the time limit
}

// A message too long for any record, of the caller's own type, does not hold back its reply.
TEST_P(Exchange, OverLongMessageOfTheCallersTypeIsDropped) {
    ats.respond([](const Request&) { return ok("answer"); });
    msg_q warm = request("AT");
    ASSERT_EQ(GetDataFromAtServer(&warm), 0);
    std::vector<char> big(sizeof(long) + 3000, 'x');
    const long type = static_cast<long>(syscall(SYS_gettid));
    std::memcpy(big.data(), &type, sizeof type);
    ASSERT_EQ(msgsnd(ats.reply_queue(), big.data(), big.size() - sizeof(long), IPC_NOWAIT), 0);
    msg_q m = request("AT");
    ASSERT_EQ(GetDataFromAtServer(&m), 0);
    EXPECT_STREQ(m.snd_rcv_msg.rmsg.at_report_str, "answer");
}

// A forged reply whose texts fill their fields without a terminator is read within them.
TEST_P(Exchange, UnterminatedReplyTextsStayInTheirFields) {
    Reply r = ok();
    r.raw_match = std::string(AT_MATCH_STR_LEN, 'M');
    r.raw = std::string(AT_REPORT_STR_LEN, 'R');
    ats.reply(r);
    msg_q m = request("AT");
    ASSERT_EQ(GetDataFromAtServer(&m), 0);
    EXPECT_EQ(strlen(m.snd_rcv_msg.rmsg.at_match_str), size_t(AT_MATCH_STR_LEN - 1));
    EXPECT_EQ(strlen(m.snd_rcv_msg.rmsg.at_report_str), size_t(AT_REPORT_STR_LEN - 1));
    EXPECT_TRUE(has_trace("match is " + std::string(AT_MATCH_STR_LEN - 1, 'M') + " \n"));
}

// A reply that takes a while still comes back within the limit: the fast wait's sleeps grow
// but never past the 10 ms step.
TEST_P(Exchange, SlowReplyWithinTheLimitIsReturned) {
    ats.reply(delayed(ok("slow"), 300ms));
    msg_q m = request("AT", "", 1);
    ASSERT_EQ(GetDataFromAtServer(&m), 0);
    EXPECT_STREQ(m.snd_rcv_msg.rmsg.at_report_str, "slow");
}

// The wait installs no signal handler and leaves the caller's signal mask as it was, through a
// reply and through a time-out.
TEST_P(Exchange, TheWaitLeavesSignalsAlone) {
    auto handlers = [] {
        std::vector<std::pair<uintptr_t, int>> all;
        for (int sig = 1; sig < NSIG; ++sig) {
            struct sigaction sa {};
            if (sigaction(sig, nullptr, &sa) == 0)
                all.emplace_back(reinterpret_cast<uintptr_t>(sa.sa_handler), sa.sa_flags);
        }
        return all;
    };
    auto mask = [] {
        sigset_t set;
        sigemptyset(&set);
        pthread_sigmask(SIG_BLOCK, nullptr, &set);
        std::vector<int> blocked;
        for (int sig = 1; sig < NSIG; ++sig)
            if (sigismember(&set, sig) == 1) blocked.push_back(sig);
        return blocked;
    };
    const auto handlers_before = handlers();
    const auto mask_before = mask();
    ats.reply(ok("answer"));
    ats.reply(silent());
    msg_q m = request("AT", "", 1);
    ASSERT_EQ(GetDataFromAtServer(&m), 0);
    msg_q m2 = request("AT", "", 1);
    EXPECT_EQ(GetDataFromAtServer(&m2), -1);
    EXPECT_EQ(handlers(), handlers_before);
    EXPECT_EQ(mask(), mask_before);
}

INSTANTIATE_TEST_SUITE_P(Waits, Exchange, ::testing::Values("poll", "fast", "bell"),
                         [](const ::testing::TestParamInfo<const char*>& info) { return std::string(info.param); });

TEST(ClearQueue, RemovesOnlyTheThreadsMessages) {
    FakeAtServer ats;  // for a private run directory; its queues are not used here
    clear_traces();
    ATS_QUEUE q = ATS_msgQ_create(5, 10, 1600);
    ASSERT_NE(q, -1);
    msg_q a{}, b{};
    a.client_id = 300;
    b.client_id = 301;
    for (int i = 0; i < 3; ++i) ATS_msgQex_send(q, &a, sizeof a, 0);
    ATS_msgQex_send(q, &b, sizeof b, 0);
    clear_msg_from_queue(q, 300);
    EXPECT_EQ(ATS_msgQ_num(q), 1);
    EXPECT_EQ(count_trace("in clear_msg_from_queue, Error: Read a mtype=300 msg!\n"), 3u);
    ATS_msgQ_delete(q);
}

// No server thread: the pid file names this process (alive, never signalled) and the request
// queue, with room for one record, holds another client's request not yet taken.
TEST(NoServerThread, BadClientIdsAreRefusedAndAFullQueueFailsTheSend) {
    RunDir dir;
    ASSERT_TRUE(dir.ok());
    std::filesystem::create_directories(dir / "pidfile");
    std::ofstream(dir / "pidfile/atserver.pid") << getpid() << "\n";
    ATS_QUEUE rq = ATS_msgQ_create(2, 1, 1600);
    ATS_QUEUE sq = ATS_msgQ_create(1, 1, 1600);
    msg_q other{};
    other.client_id = 1;
    ASSERT_EQ(ATS_msgQex_send(rq, &other, sizeof other, 0), ATS_TRUE);
    forget_server();
    clear_traces();
    // Message type 0 would take any client's message off a queue: such ids are refused before any
    // queue is touched.
    for (int32_t id : {0, -5}) {
        msg_q m = request("AT");
        m.client_id = id;
        EXPECT_EQ(GetDataFromAtServer(&m), -1) << id;
        EXPECT_EQ(read_data_from_atsrv_proc(&m), -1) << id;
    }
    EXPECT_EQ(ATS_msgQ_num(rq), 1);
    // A good id finds the queue full, and the send fails at once.
    msg_q m = request("AT");
    EXPECT_EQ(GetDataFromAtServer(&m), -1);
    EXPECT_TRUE(has_trace("Error: send msg failed,task id = "));
    EXPECT_EQ(count_trace("Error: send message failed\n"), 1u);  // and only this request tried
    ATS_msgQ_delete(rq);
    ATS_msgQ_delete(sq);
}

}  // namespace
