/*
 * atapi/link.h - the AT server message and the request exchange. C11 and C++.
 *
 * msg_q is the record that crosses the process boundary between the library and the AT server.
 * It is laid out for the 32-bit little-endian target (4-byte long, 4-byte enums) and has the same
 * 1600 bytes and offsets on every host: client_id is a 32-bit field, and the queue primitives carry
 * it in the kernel's message type (see atapi/primitives.h), so the bytes on a queue are the
 * target's also where `long` is 8 bytes.
 */
#ifndef ATAPI_LINK_H
#define ATAPI_LINK_H

#include "atapi/primitives.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    AT_REQ = 0,
    ACTIVE_REPORT = 1,
    GET_REPORT_REQ = 2,
    AT_VIR_QEQ = 3,
    CMD_REQ = 4,
    AT_PASS_THROUGH = 5,
    AT_ABORT_REQ = 6,
    AT_ABORT_ALL_REQ = 7,
    AT_CLEAR_REQ = 8
} at_req_type;

typedef enum {
    AT_REPORT_REQ_NONE = -1,
    AT_REPORT_SYSINFO_REQ = 0,
    AT_REPORT_COPS_REQ = 1,
    AT_REPORT_RSSI_REQ = 2,
    AT_REPORT_ANQUERY_REQ = 3,
    AT_REPORT_REQ_MAX = 4
} at_report_type;

typedef enum {
    DIRECT_BACK = 0,
    FILE_BACK = 1,
    BACK_MAX = 2
} at_rsp_type;

typedef enum {
    AT_RES_ONE = 0,
    AT_RES_MUT = 1,
    AT_RES_MUT_RCV_ONE = 2
} at_mutil_type;

typedef enum {
    AT_NONE = -1,
    AT_DEVICE_DOWN = 0,
    AT_CMD_TIMEOUT = 1,
    AT_CMD_OK = 2,
    AT_CME_ERROR = 3,
    AT_CMS_ERROR = 4,
    AT_ERROR = 5,
    AT_NO_CARRIER = 6,
    AT_NO_ANSWER = 7,
    AT_CMD_NOT_SUPPORT = 8,
    AT_TOO_MANY_PARAMS = 9,
    AT_ATE0 = 10,
    AT_CONNECT_R = 11,
    AT_NO_DIALTONE_R = 12,
    AT_BUSY_R = 13,
    AT_ABORTED = 14,
    AT_CMD_RES_MAX = 15
} at_cmd_result;

#define AT_MATCH_STR_LEN 64
#define AT_CMD_STR_LEN 640
#define AT_REPORT_STR_LEN 1500
#define AT_MSG_Q_SIZE 1600
#define AT_MSG_UNION_OFFSET 28
#define AT_MSG_UNION_SIZE 1572

/* The request half. */
typedef struct {
    char at_match_ok_str[AT_MATCH_STR_LEN]; /* wanted prefix of the result line, or empty */
    char at_cmd_str[AT_CMD_STR_LEN];        /* command line without terminator */
    int32_t len;                            /* 0 in every command wrapper */
} req_msg;

/* The reply half. */
typedef struct {
    char at_match_str[AT_MATCH_STR_LEN];      /* the match prefix as the AT server echoes it */
    char at_report_str[AT_REPORT_STR_LEN];    /* matched information text, or the error line */
    int32_t ret_val;                          /* at_cmd_result */
    int32_t len;                              /* report length as the server sets it; not relied on */
} rsp_msg;

typedef struct {
    int32_t client_id; /* SysV message type: the sending thread's kernel thread id */
    int32_t req_type;  /* at_req_type */
    int32_t rep_type;  /* at_report_type */
    int32_t rsp_type;  /* at_rsp_type */
    uint32_t seq;      /* request sequence number, copied into the reply */
    int32_t at_mutil;  /* at_mutil_type */
    int32_t time_out;  /* seconds the caller waits */
    union {
        req_msg smsg;
        rsp_msg rmsg;
    } snd_rcv_msg;
} msg_q;

/* Process-wide link state: the AT server's pid and queue ids, looked up on first use and
 * refreshed when the server has gone. */
extern int g_ats_lib_task_id;
extern ATS_QUEUE g_ats_lib_rcv_mq_id;
extern ATS_QUEUE g_ats_lib_snd_mq_id;

/* One exchange with the AT server: 0 when the reply that belongs to the request is in msg_buf
 * (its own outcome is in snd_rcv_msg.rmsg.ret_val), -1 otherwise.
 *
 * The reply wait. By default the reply queue is looked at every 10 ms for time_out x 1000 ms.
 * With the environment variable ATAPI_REPLY_WAIT=fast the thread sleeps on the AT server's reply
 * bell (a shared memory page the server rings after each reply; it sleeps at most 10 ms at a
 * time) and notices its reply within a wake-up; against a server without a bell it looks after a
 * short sleep that starts at 20 us and grows by a quarter each time up to the same 10 ms step, so
 * that a reply that comes at once is noticed within about 0.1 ms at little CPU cost. The time
 * limit is the same, kept on the monotonic clock whatever signals the thread receives, and the wait installs
 * no signal handler and leaves the signal mask alone. Any other value, or none, is the 10 ms
 * poll. Like ATAPI_RUN_DIR, the variable is read (with secure_getenv) at every exchange and a
 * set-user-ID or set-group-ID process ignores it. atctl sets it to "fast" unless it is set. */
int GetDataFromAtServer(msg_q* msg_buf);
int read_data_from_atsrv_proc(msg_q* msg_buf);
int send_to_msgqueue(ATS_QUEUE qid, msg_q* pmsg, int* retcode);
int read_from_msgqueue(ATS_QUEUE qid, msg_q* pmsg, int match_seq, int* retcode);
void clear_msg_from_queue(ATS_QUEUE qid, long mtype);

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_LINK_H */
