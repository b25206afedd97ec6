// The request exchange: find the AT server, send one request, wait for the reply that is ours.
//
// The AT server's pid and queue ids are process-wide plain integers shared by every calling
// thread without a lock; they are read and written through relaxed atomic references so that
// concurrent first calls are race-free without costing a lock on every exchange.
#include <sys/msg.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "at_queue.h"
#include "atapi/link.h"
#include "run_dir.h"

constexpr char kTraceSource[] = "src/at_lib";
#include "trace.h"

extern "C" {
int g_ats_lib_task_id = -1;
ATS_QUEUE g_ats_lib_rcv_mq_id = -1;
ATS_QUEUE g_ats_lib_snd_mq_id = -1;
}

static_assert(sizeof(msg_q) == AT_MSG_Q_SIZE);
static_assert(offsetof(msg_q, client_id) == 0);
static_assert(offsetof(msg_q, req_type) == 4);
static_assert(offsetof(msg_q, rep_type) == 8);
static_assert(offsetof(msg_q, rsp_type) == 12);
static_assert(offsetof(msg_q, seq) == 16);
static_assert(offsetof(msg_q, at_mutil) == 20);
static_assert(offsetof(msg_q, time_out) == 24);
static_assert(offsetof(msg_q, snd_rcv_msg) == AT_MSG_UNION_OFFSET);
static_assert(offsetof(msg_q, snd_rcv_msg.smsg.at_match_ok_str) == 28);
static_assert(offsetof(msg_q, snd_rcv_msg.smsg.at_cmd_str) == 92);
static_assert(offsetof(msg_q, snd_rcv_msg.smsg.len) == 732);
static_assert(sizeof(req_msg) == 708);
static_assert(offsetof(msg_q, snd_rcv_msg.rmsg.at_match_str) == 28);
static_assert(offsetof(msg_q, snd_rcv_msg.rmsg.at_report_str) == 92);
static_assert(offsetof(msg_q, snd_rcv_msg.rmsg.ret_val) == 1592);
static_assert(offsetof(msg_q, snd_rcv_msg.rmsg.len) == 1596);
static_assert(sizeof(msg_q::snd_rcv_msg) == AT_MSG_UNION_SIZE);
static_assert(sizeof(at_cmd_result) == 4 && sizeof(at_req_type) == 4 && sizeof(at_report_type) == 4);

namespace {

constexpr int kAtServerEvent = 1;  // SIGUSR1

std::atomic<unsigned int> send_msg_id{1};

int load(int& global) { return std::atomic_ref<int>(global).load(std::memory_order_relaxed); }
void store(int& global, int value) { std::atomic_ref<int>(global).store(value, std::memory_order_relaxed); }

// Raised for the duration of one exchange, dropped on every way out.
struct RootPrivileges {
    RootPrivileges() { QMX_UTIL_UpRootPrivileges(); }
    ~RootPrivileges() { QMX_UTIL_DropAndroidRootPrivileges(); }
    RootPrivileges(const RootPrivileges&) = delete;
    RootPrivileges& operator=(const RootPrivileges&) = delete;
};

int get_ats_task_id() { return ATS_task_name_to_id("atserver"); }

void publish_task_id(int id) { std::atomic_ref<int>(g_ats_lib_task_id).store(id, std::memory_order_release); }

int check_ats_id() {
    const int id = std::atomic_ref<int>(g_ats_lib_task_id).load(std::memory_order_acquire);
    if (ATS_task_bExist(id) == ATS_TRUE) return 0;
    ATS_TRACE(ERROR, "check_ats_id id = %d\n", id);
    return -1;
}

int get_ats_queue_id() {
    if (load(g_ats_lib_rcv_mq_id) == -1) store(g_ats_lib_rcv_mq_id, ATS_get_msgQ_id(ATS_QUEUE_ID_RECV));
    if (load(g_ats_lib_snd_mq_id) == -1) store(g_ats_lib_snd_mq_id, ATS_get_msgQ_id(ATS_QUEUE_ID_SEND));
    return (load(g_ats_lib_rcv_mq_id) == -1 || load(g_ats_lib_snd_mq_id) == -1) ? -1 : 0;
}

int reply_wait_ms(int32_t time_out_s) {
    const int64_t ms = static_cast<int64_t>(time_out_s) * 1000;
    return ms > INT_MAX ? INT_MAX : (ms < INT_MIN ? INT_MIN : static_cast<int>(ms));
}

// How one exchange with the server the cached ids name ended.
enum class Outcome { done, failed, stale };

bool queue_gone(ATS_QUEUE q) {
    struct msqid_ds ds {};
    return msgctl(q, IPC_STAT, &ds) != 0 && (errno == EINVAL || errno == EIDRM);
}

// The pid file holds a pid that someone may have forged or that a stopped server left behind
// for the system to reuse. The exchange raises privileges, so before that pid is signalled it
// must be shown to be the process that serves these queues: the request queue's last receiver,
// the reply queue's last sender, or the pid of a pid file that only the queues' creator can
// write.
bool serves_queues(int pid, ATS_QUEUE rcv_q, ATS_QUEUE snd_q) {
    struct msqid_ds rq {};
    if (msgctl(rcv_q, IPC_STAT, &rq) != 0) return false;
    if (pid == rq.msg_lrpid) return true;
    struct msqid_ds sq {};
    if (msgctl(snd_q, IPC_STAT, &sq) == 0 && pid == sq.msg_lspid) return true;
    const std::string pid_file = atapi::run_dir() + "/pidfile/atserver.pid";
    struct stat st {};
    if (lstat(pid_file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return false;
    return (st.st_uid == rq.msg_perm.cuid || st.st_uid == 0) && (st.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// A record received on the stack: wiped on the way out only when a message was put into it.
struct Scratch {
    msg_q m;
    bool filled = false;
    Scratch() = default;
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch() {
        if (filled) memset_s(&m, sizeof m, 0, sizeof m);
    }
};

// Replies of this thread id that wait before the request goes out: a late reply to an earlier
// request of this thread (dropped as the wait would drop it), or one meant for an earlier thread
// that had the same id, in this process or a process now gone.
void drop_waiting_replies(ATS_QUEUE snd_q, const msg_q& req) {
    Scratch tmp;
    for (;;) {
        tmp.m.seq = 0;  // a message too short to carry one reads as the oldest
        if (ATS_msgQex_recv(snd_q, &tmp.m, sizeof(msg_q), 0, static_cast<unsigned int>(req.client_id)) == -1) break;
        tmp.filled = true;
        if (tmp.m.seq < req.seq) ATS_TRACE(INFO, "Error:Msg seq erro,taskid = %d\n", ATS_task_getid());
        else ATS_TRACE(INFO, "in clear_msg_from_queue, Error: Read a mtype=%ld msg!\n", static_cast<long>(req.client_id));
    }
}

Outcome exchange_once(msg_q* msg_buf) {
    if (get_ats_queue_id() == -1) return Outcome::failed;
    const ATS_QUEUE rcv_q = load(g_ats_lib_rcv_mq_id);
    const ATS_QUEUE snd_q = load(g_ats_lib_snd_mq_id);
    const int server = std::atomic_ref<int>(g_ats_lib_task_id).load(std::memory_order_acquire);
    if (!serves_queues(server, rcv_q, snd_q)) {
        ATS_TRACE(ERROR, "Error: process %d does not serve the AT server's queues\n", server);
        return Outcome::stale;
    }

    msg_buf->seq = send_msg_id.fetch_add(1, std::memory_order_relaxed);
    // A request this thread left behind after an earlier failure must not be answered now, and no
    // reply waiting for this thread id before the request is sent can be its answer.
    clear_msg_from_queue(rcv_q, msg_buf->client_id);
    drop_waiting_replies(snd_q, *msg_buf);

    int retcode = 0;
    if (send_to_msgqueue(rcv_q, msg_buf, &retcode) == -1) {
        ATS_TRACE(INFO, "Error: send message failed\n");
        return queue_gone(rcv_q) ? Outcome::stale : Outcome::failed;
    }
    if (ATS_event_send(server, kAtServerEvent) != ATS_TRUE) {
        ATS_TRACE(INFO, "Error: send event failed\n");
        return Outcome::failed;
    }
    // Nothing of the command text may be read back as report text.
    memset_s(&msg_buf->snd_rcv_msg, AT_MSG_UNION_SIZE, 0, AT_MSG_UNION_SIZE);
    const int result = read_from_msgqueue(snd_q, msg_buf, 1, &retcode);
    // A forged reply need not be terminated within its fields.
    msg_buf->snd_rcv_msg.rmsg.at_match_str[AT_MATCH_STR_LEN - 1] = '\0';
    msg_buf->snd_rcv_msg.rmsg.at_report_str[AT_REPORT_STR_LEN - 1] = '\0';
    ATS_TRACE(INFO, "Ret_val is %d ,report is ***, match is %s \n", msg_buf->snd_rcv_msg.rmsg.ret_val,
              msg_buf->snd_rcv_msg.rmsg.at_match_str);
    return result == 0 ? Outcome::done : Outcome::failed;
}

// Thread ids are positive; 0 would receive any message of the queue, a negative id any message
// of a lower type.
bool valid_client(const msg_q* msg_buf) {
    if (msg_buf->client_id > 0) return true;
    ATS_TRACE(ERROR, "Error: client id %ld refused\n", static_cast<long>(msg_buf->client_id));
    return false;
}

}  // namespace

extern "C" {

int GetDataFromAtServer(msg_q* msg_buf) {
    RootPrivileges root;
    if (msg_buf == nullptr || !valid_client(msg_buf)) return -1;
    if (check_ats_id() == 0) {
        const Outcome first = exchange_once(msg_buf);
        if (first != Outcome::stale) return first == Outcome::done ? 0 : -1;
        // The cached pid lives but no longer serves these queues (a restarted server left it to be
        // reused, or its queues are gone): find the server again, once.
    }

    // First use, or the AT server died or restarted: a restarted server has new queues too.
    // The new queue ids are stored before the new pid is published, so that another thread
    // which finds the new server alive never sends to the old server's queues.
    const int id = get_ats_task_id();
    if (ATS_task_bExist(id) != ATS_TRUE) {
        publish_task_id(id);
        check_ats_id();  // traces the id that was not found alive
        return -1;
    }
    store(g_ats_lib_rcv_mq_id, ATS_get_msgQ_id(ATS_QUEUE_ID_RECV));
    store(g_ats_lib_snd_mq_id, ATS_get_msgQ_id(ATS_QUEUE_ID_SEND));
    publish_task_id(id);
    return exchange_once(msg_buf) == Outcome::done ? 0 : -1;
}

int read_data_from_atsrv_proc(msg_q* msg_buf) {
    if (msg_buf == nullptr || !valid_client(msg_buf)) return -1;
    return exchange_once(msg_buf) == Outcome::done ? 0 : -1;
}

int send_to_msgqueue(ATS_QUEUE qid, msg_q* pmsg, int* retcode) {
    if (pmsg == nullptr || retcode == nullptr) {
        ATS_TRACE(INFO, " qbuf  or retcode is  NULL!\n");
        return -1;
    }
    ATS_TRACE(INFO, "send_to_msgqueue:AT cmd= ***, Id= %ld, seq = %u\n", static_cast<long>(pmsg->client_id),
              pmsg->seq);
    if (ATS_msgQex_send(qid, pmsg, sizeof(msg_q), 0) == ATS_TRUE) return 0;
    ATS_TRACE(INFO, "Error: send msg failed,task id = %d, qid = %d\n", ATS_task_getid(), qid);
    return -1;
}

int read_from_msgqueue(ATS_QUEUE qid, msg_q* pmsg, int match_seq, int* retcode) {
    if (pmsg == nullptr || qid == -1 || retcode == nullptr) {
        ATS_TRACE(INFO, " qbuf NULL!\n");
        return -1;
    }
    *retcode = 0;
    const atapi::ReplyWait how = atapi::reply_wait();
    for (;;) {
        Scratch tmp;
        const int got = atapi::recv_reply(qid, &tmp.m, sizeof(msg_q), reply_wait_ms(pmsg->time_out),
                                          static_cast<unsigned int>(pmsg->client_id), how);
        if (got == -1) {
            ATS_TRACE(INFO, "There is no Message in the queue!Task id = %d\n", ATS_task_getid());
            mlog_print("atserver", 2, "ats receive message queue timeout!");
            return -1;
        }
        tmp.filled = true;
        // What a short message did not reach reads as zero, as in a record received whole.
        const size_t text = got > 0 ? static_cast<size_t>(got) : 0;
        if (text < sizeof(msg_q) - 4) std::memset(reinterpret_cast<char*>(&tmp.m) + 4 + text, 0, sizeof(msg_q) - 4 - text);
        const msg_q& tmp_msg = tmp.m;
        if (match_seq != 1 || tmp_msg.seq == pmsg->seq) {
            *pmsg = tmp_msg;
            return 0;
        }
        if (tmp_msg.seq > pmsg->seq) {  // a newer reply than ours: it is consumed and lost, as intended
            ATS_TRACE(INFO, "Error:tmp_msg.seq= %d, pmsg->seq =%d\n", static_cast<int>(tmp_msg.seq),
                      static_cast<int>(pmsg->seq));
            return -1;
        }
        // A late reply to an earlier request of this thread: drop it and wait the full time again.
        ATS_TRACE(INFO, "Error:Msg seq erro,taskid = %d\n", ATS_task_getid());
    }
}

void clear_msg_from_queue(ATS_QUEUE qid, long mtype) {
    Scratch tmp;
    while (ATS_msgQex_recv(qid, &tmp.m, sizeof(msg_q), 0, static_cast<unsigned int>(mtype)) != -1) {
        tmp.filled = true;
        ATS_TRACE(INFO, "in clear_msg_from_queue, Error: Read a mtype=%ld msg!\n", mtype);
    }
}

}  // extern "C"
