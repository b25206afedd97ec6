// test_e2e_server.cpp - the library, the AT server and the simulated modem as real processes:
// replies and reports, time-outs, hostile clients, a flooding or vanished modem, the control
// input, and the server's ownership of its run directory.
#include <grp.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/msg.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstring>
#include <fstream>
#include <future>
#include <thread>

#include "atapi/network.h"
#include "e2e/harness.h"
#include "../src/reply_bell.h"  // the server's side of the low-latency wait

using namespace e2e;

namespace {

struct Row { const char* cmd; const char* match; int ret_val; const char* report; };

void run_rows(const std::vector<Row>& rows) {
    for (const Row& r : rows) {
        SCOPED_TRACE(r.cmd);
        const Outcome o = exchange(r.cmd, r.match);
        ASSERT_EQ(o.rc, 0);
        EXPECT_EQ(o.ret_val, r.ret_val);
        EXPECT_EQ(o.report, r.report);
        EXPECT_EQ(o.match, r.match);
    }
}

msg_q typed(int req_type, int rep_type = 0) {
    msg_q m = request("", "", 2);
    m.req_type = req_type;
    m.rep_type = rep_type;
    return m;
}

int bell_of(const std::string& run_dir) { return shmget(ftok(run_dir.c_str(), atapi::bell::kBellIdentity), 0, 0); }

bool exists(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0;
}

}  // namespace

// The default scenario end to end: replies, final results, message bodies after the prompt, the
// SIM's PIN and PUK counters, and the command functions' records.
TEST(E2eServer, DefaultScenarioRepliesReachTheCaller) {
    Stack s;
    ASSERT_TRUE(s.start());
#define PDU "0011000B915155100032F40000AA0AE8329BFD4697D9EC37"
    run_rows({
        // command                 match        result          report
        {"AT+CSQ",                 "+CSQ",      AT_CMD_OK,      "+CSQ: 23,99"},
        {"AT+CSQ=?",               "+CSQ",      AT_CMD_OK,      "+CSQ: (0-31,99),(0-7,99)"},
        {"AT^HCSQ?",               "^HCSQ",     AT_CMD_OK,      "^HCSQ: \"LTE\",52,45,148,27"},
        {"AT+CREG?",               "+CREG:",    AT_CMD_OK,      "+CREG: 0,1"},
        {"AT+CGMR",                "",          AT_CMD_OK,      "EM1.04.12"},
        {"ATI",                    "IMEI",      AT_CMD_OK,      "IMEI: 001011234567895"},
        {"ATI",                    "",          AT_CMD_OK,      "Manufacturer: Example Modems\r\nModel: EM-LTE-1\r\n"
                                                                "Revision: EM1.04.12\r\nIMEI: 001011234567895\r\n+GCAP: +CGSM,+DS,+ES"},
        {"AT+CMGR=0",              "+CMGR:",    AT_CMD_OK,      "+CMGR: 1,,28\r\n07915155100005F0040B915155100032F40000423092516195800AE8329BFD4697D9EC37"},
        {"AT+CMGR=9",              "+CMGR:",    AT_CMS_ERROR,   "+CMS ERROR: 321"},
        {"AT+COPS=1,2,\"00103\",7", "+COPS:",   AT_CME_ERROR,   "+CME ERROR: 32"},
        {"AT+NOSUCH",              "",          AT_ERROR,       ""},
        {"AT+CSQ\r",               "+CSQ",      AT_CMD_OK,      "+CSQ: 23,99"},  // one terminator, not two
        {"ATE0",                   "",          AT_CMD_OK,      ""},
        {"AT+CSQ",                 "+CSQ",      AT_CMD_OK,      "+CSQ: 23,99"},  // and without echo
        // A body goes after the prompt, up to Ctrl-Z or, without one, the first NUL.
        {"AT+CMGW=23,2\r" PDU "\x1aGARBAGE", "+CMGW:", AT_CMD_OK, "+CMGW: 2"},
        {"AT+CMGS=23\r" PDU,       "+CMGS:",    AT_CMD_OK,      "+CMGS: 1"},
        {"AT+CMGR=2",              "+CMGR:",    AT_CMD_OK,      "+CMGR: 2,,23\r\n" PDU},
    });
#undef PDU
    // A len on a body command bounds the body.
    msg_q m = request("AT+CMGW=24,3\r0011TAIL", "+CMGW:");
    m.snd_rcv_msg.smsg.len = 17;
    const std::string stored = exchange(m).report;
    ASSERT_EQ(stored.rfind("+CMGW: ", 0), 0u) << stored;
    EXPECT_EQ(exchange("AT+CMGR=" + stored.substr(7), "+CMGR:").report, "+CMGR: 3,,24\r\n0011");

}

TEST(E2eServer, UnsolicitedLinesAreKeptApartFromReplies) {
    Stack s(R"(
on AT
on AT\+CFUN=1
  after 50 ^RSSI: 17
on AT\+CSQ
  line +CSQ: 11,99
  line ^RSSI: 9
  line ^SMMEMFULL: "SM"
  line +CSQ: 12,99
on AT\^APCONNST\?
  line ^APCONNST: 0,"IPV4",0,"IPV6"
on AT\^NDISDUP=1,1
  after 50 ^APCONNST: 1,"IPV4",0,"IPV6"
  after 60 ^RSSI: 3
on AT\+CMGD=1,0
)");
    ASSERT_TRUE(s.start());
    auto report = [](int rep_type) { msg_q m = typed(GET_REPORT_REQ, rep_type); return exchange(m); };
    // A report comes after the answer of the command that caused it: asks for it (without
    // asking the modem) until it shows.
    auto rssi_shows = [&](const std::string& want) {
        return eventually([&] {
            const Outcome o = report(AT_REPORT_RSSI_REQ);
            return o.ret_val == AT_CMD_OK && o.report == want;
        });
    };
    // Nothing held yet: the report request is refused, the memory-full probe says nothing, and
    // the bare "^APCONNST" runs the query form.
    EXPECT_EQ(report(AT_REPORT_RSSI_REQ).ret_val, AT_ERROR);
    Outcome o = exchange("", "", 1);
    EXPECT_EQ(o.ret_val, AT_CMD_OK);
    EXPECT_EQ(o.report, "");
    EXPECT_EQ(exchange("^APCONNST").report, "^APCONNST: 0,\"IPV4\",0,\"IPV6\"");

    ASSERT_EQ(exchange("AT+CFUN=1").ret_val, AT_CMD_OK);
    EXPECT_TRUE(rssi_shows("^RSSI: 17"));
    StRssiInfo rssi{};
    ASSERT_EQ(AT_Rssi(&rssi), 0);
    EXPECT_STREQ(rssi.rssi, "17");

    // Reports that arrive among a command's lines stay out of its report and become the last.
    EXPECT_EQ(exchange("AT+CSQ", "+CSQ").report, "+CSQ: 11,99\r\n+CSQ: 12,99");
    EXPECT_EQ(report(AT_REPORT_RSSI_REQ).report, "^RSSI: 9");
    EXPECT_EQ(exchange("", "", 1).report, "^SMMEMFULL: \"SM\"");
    EXPECT_EQ(report(AT_REPORT_COPS_REQ).ret_val, AT_ERROR);

    // A report of the bare command's name is served without asking the modem.
    ASSERT_EQ(exchange("AT^NDISDUP=1,1").ret_val, AT_CMD_OK);
    ASSERT_TRUE(rssi_shows("^RSSI: 3"));  // sent after the ^APCONNST report
    EXPECT_EQ(exchange("^APCONNST").report, "^APCONNST: 1,\"IPV4\",0,\"IPV6\"");
    // Deleting a message ends the memory-full state; a clear request forgets every report.
    ASSERT_EQ(exchange("AT+CMGD=1,0").ret_val, AT_CMD_OK);
    EXPECT_EQ(exchange("", "", 1).report, "");
    msg_q clear = typed(AT_CLEAR_REQ);
    EXPECT_EQ(exchange(clear).ret_val, AT_CMD_OK);
    EXPECT_EQ(report(AT_REPORT_RSSI_REQ).ret_val, AT_ERROR);
}

TEST(E2eServer, TimeOutAndAbortAll) {
    Stack s(R"(
on AT
on AT\+SLOW
  delay 4000
  line +SLOW: done
on AT\+WAIT
  delay 600
  line +WAIT: done
on AT\+CSQ
  line +CSQ: 5,99
)");
    ASSERT_TRUE(s.start());
    // The caller hears of its time-out on time. The answer the modem still owes, however late it
    // comes, is nobody's: the next command goes out only once the modem is back in step.
    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(exchange("AT+SLOW", "+SLOW", 1).ret_val, AT_CMD_TIMEOUT);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, 1s);
    const Outcome next = exchange("AT+CSQ", "+CSQ", 8);
    EXPECT_EQ(next.ret_val, AT_CMD_OK);
    EXPECT_EQ(next.report, "+CSQ: 5,99");

    // Abort-all answers the queued commands; the one already at the modem runs to its end.
    auto slow = std::async(std::launch::async, [] { return exchange("AT+WAIT", "+WAIT", 5); });
    std::this_thread::sleep_for(150ms);
    auto queued = std::async(std::launch::async, [] { return exchange("AT+CSQ", "+CSQ", 5); });
    std::this_thread::sleep_for(150ms);
    msg_q abort = typed(AT_ABORT_ALL_REQ);
    EXPECT_EQ(exchange(abort).ret_val, AT_CMD_OK);
    EXPECT_EQ(queued.get().ret_val, AT_ABORTED);
    const Outcome o = slow.get();
    EXPECT_EQ(o.ret_val, AT_CMD_OK);
    EXPECT_EQ(o.report, "+WAIT: done");
}

// Message bodies as the messaging functions put them into the request: the modem receives each
// byte, NULs included, and echoes what it got in hexadecimal.
TEST(E2eServer, MessageBodiesReachTheModemByteForByte) {
    Stack s(R"scn(
on AT
on AT\+CSQ
  line +CSQ: 3,99
on AT\+CMGS=(\d+)
  body
  line +CMGS: ${=bodyhex}
on AT\^HCMGS="(\d+)",129
  body 256
  line ^HCMGS: $1,${=bodyhex}
on AT\^HCMGW=.*
  body 162
  line ^HCMGW: ${=bodyhex}
on AT\^CPBW=1,"1",129,"(.*)",1
  line ^CPBW: $1
)scn");
    ASSERT_TRUE(s.start());
    auto hex = [](std::string_view bytes) {
        std::string out;
        for (const unsigned char b : bytes) out += "0123456789ABCDEF"[b >> 4], out += "0123456789ABCDEF"[b & 15];
        return out;
    };
    // A UCS-2 text: every other byte a NUL, one of them a Ctrl-Z byte of the text.
    std::string text(256, '\0');
    for (size_t i = 0; i < 20; i += 2) text[i + 1] = static_cast<char>('a' + i);
    text[21] = '\x1a';
    const std::string hcmgs = "AT^HCMGS=\"123\",129\r" + text;
    const std::string hcmgw = "AT^HCMGW=\"1\",129,1,0,0,0,0,26,1,2,3,4,5\r" + text.substr(0, 162);
    const std::string cpbw = std::string("AT^CPBW=1,\"1\",129,\"\0A\0B\",1", 26);
    struct Row { std::string cmd; int32_t len; const char* match; int ret_val; std::string report; } rows[] = {
        {"AT+CMGS=3\r0011\x1a", 0, "+CMGS:", AT_CMD_OK, "+CMGS: 30303131"},
        {hcmgs, 0, "", AT_CMD_OK, "^HCMGS: 123," + hex(text)},
        {hcmgw, 0, "^HCMGW:", AT_CMD_OK, "^HCMGW: " + hex(text.substr(0, 162))},
        // The name's NULs go out; the server's view of the echoed line drops them.
        {cpbw, 26, "^CPBW:", AT_CMD_OK, "^CPBW: AB"},
        // The modem prompts for a body the request lacks: refused at once, and the modem is
        // brought back out of its body mode for the next command.
        {"AT+CMGS=5", 0, "+CMGS:", AT_ERROR, ""},
        {"AT+CSQ", 0, "+CSQ", AT_CMD_OK, "+CSQ: 3,99"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(hex(r.cmd.substr(0, 16)));
        msg_q m = request(r.cmd, r.match, 3);
        m.snd_rcv_msg.smsg.len = r.len;
        const Outcome o = exchange(m);
        ASSERT_EQ(o.rc, 0);
        EXPECT_EQ(o.ret_val, r.ret_val);
        EXPECT_EQ(o.report, r.report);
    }
}

TEST(E2eServer, BadRequestsAndGarbledLinesAreDropped) {
    Stack s("on AT\n"
            "on AT\\+GARBLED\n"
            "  line +GARBLED:\x01 1\x02,\x7f" "2\n"
            "on AT\\+LONG\n"
            "  line +LONG: " + std::string(5000, '9') + "\n"
            "  line +LONG: short\n"
            "on AT\\+CSQ\n"
            "  line +CSQ: 3,99\n");
    ASSERT_TRUE(s.start());
    // Each way of decoding a request is checked on its own; here the server must answer a bad
    // one with an error and carry on.
    msg_q bad[] = {request("AT+CSQ", "+CSQ"), request("AT+C\x01SQ", "+CSQ"), request("AT+CSQ", "+CSQ")};
    bad[0].req_type = 42;
    bad[2].snd_rcv_msg.smsg.len = AT_CMD_STR_LEN + 1;
    for (msg_q& m : bad) {
        const Outcome o = exchange(m);
        ASSERT_EQ(o.rc, 0);
        EXPECT_EQ(o.ret_val, AT_ERROR);
        EXPECT_EQ(o.report, "");
    }
    // Control bytes and over-long modem lines never reach a report.
    run_rows({
        {"AT+GARBLED", "+GARBLED", AT_CMD_OK, "+GARBLED: 1,2"},
        {"AT+LONG",    "+LONG",    AT_CMD_OK, "+LONG: short"},
        {"AT+CSQ",     "+CSQ",     AT_CMD_OK, "+CSQ: 3,99"},
    });
}

// Clients that break the rules: a client process stopped with requests out, messages that are no
// request. Honest calls go on meanwhile and every one of them must be answered. (A flood of
// requests is a load test of its own.)
TEST(E2eServer, HostileClientsCannotStopTheServer) {
    Stack s(R"(
var reached no
on AT
on AT\+CSQ
  line +CSQ: 3,99
on AT\+SHORT
  set reached yes
on AT\+REACHED\?
  line +REACHED: ${reached}
)");
    ASSERT_TRUE(s.start());
    const int req_q = ATS_get_msgQ_id(ATS_QUEUE_ID_RECV);
    int honest = 0, failed = 0;
    auto honest_call = [&] {
        ++honest;
        const Outcome o = exchange("AT+CSQ", "+CSQ", 5);
        if (o.rc != 0 || o.report != "+CSQ: 3,99") ++failed;
    };
    // A client process stops with twelve requests out, one per thread: more replies than the
    // reply queue holds, from threads that live on and never collect.
    const pid_t child = fork();
    if (child == 0) {
        std::atomic<int> sent{0};
        for (int i = 0; i < 12; ++i) {
            std::thread([&] {
                msg_q m = request("AT+CSQ", "+CSQ", INT32_MAX);
                if (ATS_msgQex_send(req_q, &m, sizeof m, 0) == ATS_TRUE) ++sent;
                pause();
            }).detach();
        }
        for (int i = 0; i < 1000 && sent < 12; ++i) std::this_thread::sleep_for(1ms);
        raise(SIGSTOP);
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
    ASSERT_TRUE(WIFSTOPPED(status));
    for (int i = 0; i < 3; ++i) honest_call();
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);

    // Longer than a record (it used to stop every intake thread for good) and shorter than one
    // (it used to be read over the remains of the request before it): both dropped unread.
    msg_q full = request("AT+CSQ", "+CSQ", 5);
    const std::string record(reinterpret_cast<const char*>(&full) + 4, sizeof full - 4);
    ASSERT_TRUE(send_raw(kNoThread, record + std::string(1000, 'x')));
    msg_q shorty = request("AT+SHORT", "", 5);
    ASSERT_TRUE(send_raw(kNoThread, std::string_view(reinterpret_cast<const char*>(&shorty) + 4, 100)));
    honest_call();
    honest_call();
    EXPECT_EQ(exchange("AT+REACHED?", "+REACHED").report, "+REACHED: no");

    EXPECT_EQ(failed, 0) << "of " << honest << " honest calls";
}

// The modem floods its port with lines while a command runs: the server's memory stays bounded and
// the answers stay right.
TEST(E2eServer, AFloodingModemCostsBoundedMemory) {
    std::string flood = "every 10 ";
    for (int i = 0; i < 6000; ++i) flood += "+CSQ: 1,1\\n";
    Stack s(flood + R"(
on AT
on AT\+SLOW
  delay 1000
  line +SLOW: done
on AT\^HCSQ\?
  line ^HCSQ: "LTE",52
)");
    ASSERT_TRUE(s.start());
    const long before = memory_kib(s.server.pid(), "VmRSS");
    const Outcome o = exchange("AT+SLOW", "+SLOW", 5);
    EXPECT_EQ(o.ret_val, AT_CMD_OK);
    EXPECT_EQ(o.report, "+SLOW: done");
    for (int i = 0; i < 5; ++i) EXPECT_EQ(exchange("AT^HCSQ?", "^HCSQ").report, "^HCSQ: \"LTE\",52");
    const long peak = memory_kib(s.server.pid(), "VmHWM");
    RecordProperty("server_rss_growth_kib", static_cast<int>(peak - before));
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(peak - before, 4 * 1024);
#endif
}

// One server per run directory and per modem, whatever its program is called; its files and
// queues are its own.
TEST(E2eServer, OneServerOwnsARunDirectoryAndAModem) {
    Stack s;
    ASSERT_TRUE(s.start_sim());
    // A link planted at the name the pid file was once staged under must not lead the server.
    const std::string victim = s.dir() + "/victim";
    std::ofstream(victim) << "keep\n";
    ASSERT_EQ(mkdir((s.dir() + "/pidfile").c_str(), 0755), 0);
    ASSERT_EQ(symlink(victim.c_str(), (s.pid_file() + ".tmp").c_str()), 0);
    ASSERT_TRUE(s.start_server());
    ASSERT_TRUE(s.serving());
    std::string kept;
    std::getline(std::ifstream(victim), kept);
    EXPECT_EQ(kept, "keep");

    // Only the server's user reaches the queues; the pid file is the server's and readable by all.
    const int req_q = ATS_get_msgQ_id(ATS_QUEUE_ID_RECV);
    for (int q : {req_q, ATS_get_msgQ_id(ATS_QUEUE_ID_SEND)}) {
        msqid_ds ds{};
        ASSERT_EQ(msgctl(q, IPC_STAT, &ds), 0);
        EXPECT_EQ(ds.msg_perm.mode & 0777, 0600u);
        EXPECT_EQ(ds.msg_perm.uid, geteuid());
    }
    struct stat st {};
    ASSERT_EQ(lstat(s.pid_file().c_str(), &st), 0);
    EXPECT_TRUE(S_ISREG(st.st_mode));
    EXPECT_EQ(st.st_mode & 0777, 0644u);
    // So is the reply bell, which names the reply queue and rings the slot of each reply's client.
    shmid_ds seg{};
    ASSERT_EQ(shmctl(bell_of(s.dir()), IPC_STAT, &seg), 0);
    EXPECT_EQ(seg.shm_perm.mode & 0777, 0600u);
    EXPECT_EQ(seg.shm_perm.uid, geteuid());
    auto* page = static_cast<atapi::bell::Page*>(shmat(bell_of(s.dir()), nullptr, SHM_RDONLY));
    ASSERT_NE(page, reinterpret_cast<void*>(-1));
    EXPECT_EQ(page->reply_queue, ATS_get_msgQ_id(ATS_QUEUE_ID_SEND));
    atapi::bell::Slot& mine = atapi::bell::slot_of(*page, static_cast<int32_t>(gettid()));
    const uint32_t rung = atapi::bell::rung(mine);
    EXPECT_EQ(exchange("AT+CSQ", "+CSQ").rc, 0);
    EXPECT_EQ(atapi::bell::rung(mine), rung + 1);
    shmdt(page);

    // A second server for the same run directory, under another program name, refuses to start
    // and leaves the first one's queues and pid file alone.
    const std::string renamed = s.dir() + "/at-daemon";
    ASSERT_EQ(symlink(ATSERVER_BIN, renamed.c_str()), 0);
    Child second;
    ASSERT_TRUE(second.spawn({renamed, "--device", s.device(), "--foreground"}, false));
    ASSERT_TRUE(second.wait_exit(5s));
    EXPECT_TRUE(WIFEXITED(second.status()) && WEXITSTATUS(second.status()) != 0);
    EXPECT_EQ(ATS_get_msgQ_id(ATS_QUEUE_ID_RECV), req_q);
    EXPECT_EQ(ATS_task_name_to_id("atserver"), s.server.pid());
    EXPECT_EQ(exchange("AT+CSQ", "+CSQ").report, "+CSQ: 23,99");

    // A server for another run directory on the same modem finds the port taken; the first one
    // keeps every answer. Its queues are open to the group it names.
    atapi_test::RunDir other;
    setenv("ATAPI_RUN_DIR", s.dir().c_str(), 1);
    // A run directory anybody may write into is refused before anything is created in it.
    ASSERT_EQ(chmod(other.path().c_str(), 0777), 0);
    Child unsafe;
    ASSERT_TRUE(unsafe.spawn({ATSERVER_BIN, "--device", s.device(), "--foreground", "--run-dir", other.path()}, true));
    ASSERT_TRUE(unsafe.wait_exit(5s));
    EXPECT_TRUE(WIFEXITED(unsafe.status()) && WEXITSTATUS(unsafe.status()) != 0);
    EXPECT_FALSE(exists(other / "pidfile"));
    ASSERT_EQ(chmod(other.path().c_str(), 0700), 0);
    const group* g = getgrgid(getegid());
    ASSERT_NE(g, nullptr);
    Child third;
    ASSERT_TRUE(third.spawn({ATSERVER_BIN, "--device", s.device(), "--foreground", "--run-dir", other.path(),
                             "--group", g->gr_name}, false));
    // It publishes its pid once its queues and its try at the port are done.
    auto published = [&] {
        int pid = 0;
        std::ifstream(other / "pidfile/atserver.pid") >> pid;
        return pid == third.pid();
    };
    ASSERT_TRUE(eventually(published, 3s));
    for (int id : {ATS_QUEUE_ID_SEND, ATS_QUEUE_ID_RECV}) {
        msqid_ds ds{};
        ASSERT_EQ(msgctl(msgget(ftok(other.path().c_str(), id), 0), IPC_STAT, &ds), 0);
        EXPECT_EQ(ds.msg_perm.mode & 0777, 0660u);
        EXPECT_EQ(ds.msg_perm.gid, getegid());
    }
    shmid_ds seg2{};
    ASSERT_EQ(shmctl(bell_of(other.path()), IPC_STAT, &seg2), 0);
    EXPECT_EQ(seg2.shm_perm.mode & 0777, 0660u);
    EXPECT_EQ(seg2.shm_perm.gid, getegid());
    for (int i = 0; i < 20; ++i) EXPECT_EQ(exchange("AT+CSQ", "+CSQ", 2).report, "+CSQ: 23,99") << i;
    third.stop();
}

TEST(E2eServer, KilledServerFailsTheCallerAndARestartServesAgain) {
    Stack s(R"(
on AT
on AT\+SLOW
  delay 3000
on AT\+CSQ
  line +CSQ: 7,99
)");
    ASSERT_TRUE(s.start());
    auto pending = std::async(std::launch::async, [] {
        const auto t0 = std::chrono::steady_clock::now();
        const int rc = exchange("AT+SLOW", "", 2).rc;
        return std::make_pair(rc, std::chrono::steady_clock::now() - t0);
    });
    std::this_thread::sleep_for(300ms);
    s.server.signal(SIGKILL);
    ASSERT_TRUE(s.server.wait_exit(2s));
    const auto [rc, waited] = pending.get();
    EXPECT_EQ(rc, -1);
    EXPECT_GE(waited, 1900ms);

    // The pid file and the queues of the dead server are still there; the new one replaces them.
    ASSERT_TRUE(s.start_server());
    ASSERT_TRUE(s.serving());
    const Outcome o = exchange("AT+CSQ", "+CSQ");
    EXPECT_EQ(o.rc, 0);
    EXPECT_EQ(o.report, "+CSQ: 7,99");
    int pid = 0;
    std::ifstream(s.pid_file()) >> pid;
    EXPECT_EQ(pid, s.server.pid());

    // A clean stop takes the queues, the reply bell and the pid file along.
    s.server.signal(SIGTERM);
    ASSERT_TRUE(s.server.wait_exit(3s));
    EXPECT_FALSE(exists(s.pid_file()));
    EXPECT_EQ(bell_of(s.dir()), -1);
    EXPECT_EQ(ATS_get_msgQ_id(ATS_QUEUE_ID_SEND), -1);
    EXPECT_EQ(ATS_get_msgQ_id(ATS_QUEUE_ID_RECV), -1);
    EXPECT_EQ(exchange("AT+CSQ", "+CSQ", 1).rc, -1);
}

// The modem's options outlive its restart: the --set reading shows in the answer after it.
TEST(E2eServer, VanishedModemGivesDeviceDownUntilItReturns) {
    Stack s;
    s.sim_options = {"--set", "rssi=11"};
    ASSERT_TRUE(s.start());
    EXPECT_EQ(exchange("AT+CSQ", "+CSQ").report, "+CSQ: 11,99");
    s.sim.signal(SIGKILL);
    ASSERT_TRUE(s.sim.wait_exit(2s));
    auto answers = [](int want) {
        return eventually([want] {
            const Outcome o = exchange("AT+CSQ", "+CSQ", 2);
            return o.rc == 0 && o.ret_val == want;
        });
    };
    EXPECT_TRUE(answers(AT_DEVICE_DOWN));
    ASSERT_TRUE(s.start_sim());
    EXPECT_TRUE(answers(AT_CMD_OK));
    EXPECT_EQ(exchange("AT+CSQ", "+CSQ").report, "+CSQ: 11,99");
}

// Events and lines from the simulator's control input, and a port that drops and comes back as
// a new terminal that the server finds through the link.
TEST(E2eServer, ControlInputAndADroppedPort) {
    Stack s(R"(
on AT
on @report (\d+)
  line ^RSSI: $1
on AT\+DROP
  after 300 @drop
on @drop
  hangup 600
on AT\+SLOW
  delay 5000
)");
    ASSERT_TRUE(s.start());
    auto rssi = [] {
        StRssiInfo r{};
        return AT_Rssi(&r) == 0 ? std::string(r.rssi, strnlen(r.rssi, sizeof r.rssi)) : "";
    };
    ASSERT_TRUE(s.control("@report 17"));
    EXPECT_TRUE(eventually([&] { return rssi() == "17"; }));
    ASSERT_TRUE(s.control("^RSSI: 21"));
    EXPECT_TRUE(eventually([&] { return rssi() == "21"; }));
    // The port drops while a command is at the modem (or just before it is sent).
    EXPECT_EQ(exchange("AT+DROP").ret_val, AT_CMD_OK);
    EXPECT_EQ(exchange("AT+SLOW", "", 10).ret_val, AT_DEVICE_DOWN);
    EXPECT_TRUE(eventually([] { return exchange("AT", "", 1).ret_val == AT_CMD_OK; }));
}

TEST(E2eServer, RepliesOfVanishedThreadsAreRemoved) {
    Stack s;
    ASSERT_TRUE(s.start());
    const int req_q = ATS_get_msgQ_id(ATS_QUEUE_ID_RECV);
    const int reply_q = ATS_get_msgQ_id(ATS_QUEUE_ID_SEND);
    // Twelve threads send a request each and are gone before the answer: more replies than the
    // reply queue can hold, none of which anybody will collect.
    for (int i = 0; i < 12; ++i) {
        std::thread([&, i] {
            msg_q m = request("AT+CSQ", "+CSQ", 30);
            m.seq = 1000u + static_cast<uint32_t>(i);
            ASSERT_EQ(ATS_msgQex_send(req_q, &m, sizeof m, 0), ATS_TRUE);
            s.server.signal(SIGUSR1);
        }).join();
    }
    // The server neither wedges on the full queue nor leaves the orphans there.
    const Outcome o = exchange("AT+CSQ", "+CSQ", 5);
    EXPECT_EQ(o.rc, 0);
    EXPECT_EQ(o.report, "+CSQ: 23,99");
    EXPECT_TRUE(eventually([&] { return ATS_msgQ_num(reply_q) == 0; }, 2s));
}

TEST(E2eServer, DaemonDetachesAndStopsCleanly) {
    Stack s;
    ASSERT_TRUE(s.start_sim());
    // The starting process returns once the daemon serves; the daemon is another process.
    ASSERT_TRUE(s.server.spawn({ATSERVER_BIN, "--device", s.device()}, false));
    ASSERT_TRUE(s.server.wait_exit(5s));
    const int daemon = ATS_task_name_to_id("atserver");
    ASSERT_GT(daemon, 0);
    EXPECT_EQ(exchange("AT+CSQ", "+CSQ").report, "+CSQ: 23,99");
    kill(daemon, SIGTERM);
    // Whoever reaps the daemon, its pid file goes as it ends.
    EXPECT_TRUE(eventually([&] { return !exists(s.pid_file()); }, 3s));
    EXPECT_EQ(ATS_get_msgQ_id(ATS_QUEUE_ID_RECV), -1);
}
