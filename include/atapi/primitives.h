/*
 * atapi/primitives.h - message queue, task, event, clock and notification primitives.
 *
 * Used by the library and by the AT server on the other side of the link. C11 and C++.
 *
 * Run directory. Queues are named by ftok("/var/run", identify) and the AT server is found by
 * its pid file "/var/run/pidfile/<name>.pid". The environment variable ATAPI_RUN_DIR, read with
 * secure_getenv on every use, replaces "/var/run" in both, so that tests and a host AT server
 * can run unprivileged and side by side. A set-user-ID or set-group-ID process ignores it.
 *
 * Message buffers. A buffer handed to the queue functions is any record whose first 4 bytes are
 * the message type (a 32-bit signed integer, the `long` of the 32-bit target); lengths include
 * those 4 bytes. On hosts whose `long` is 8 bytes the functions carry the 4-byte type in the
 * kernel's `long` message type and pass the length - 4 bytes after it as the message text, so
 * the bytes on a queue are those of the 32-bit target on every host.
 */
#ifndef ATAPI_PRIMITIVES_H
#define ATAPI_PRIMITIVES_H

#include "atapi/types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef int ATS_QUEUE; /* msgget id; -1 means no queue */

/* Queue identities of the AT server's queues. */
#define ATS_QUEUE_ID_SEND 1 /* the AT server's send (reply) queue */
#define ATS_QUEUE_ID_RECV 2 /* the AT server's receive (request) queue */

ATS_QUEUE ATS_msgQ_create(int queue_identify, unsigned int maxMsgs, unsigned int maxMsgLength);
ATS_BOOL ATS_msgQ_delete(ATS_QUEUE msgqid);
ATS_BOOL ATS_msgQ_send(ATS_QUEUE msgqid, void* pMsg, unsigned int length, int timeout);
int ATS_msgQ_recv(ATS_QUEUE msgqid, void* pMsg, unsigned int maxLength, int timeout);
int ATS_msgQ_num(ATS_QUEUE msgqid);

ATS_QUEUE ATS_msgQex_create(int queue_identify, unsigned int maxMsgs, unsigned int maxMsgLength);
ATS_BOOL ATS_msgQex_delete(ATS_QUEUE msgqid);
ATS_BOOL ATS_msgQex_send(ATS_QUEUE msgqid, void* pMsg, unsigned int length, int timeout);
int ATS_msgQex_recv(ATS_QUEUE msgqid, void* pMsg, unsigned int maxLength, int timeout,
                    unsigned int msgType);
int ATS_msgQex_num(ATS_QUEUE msgqid);

ATS_QUEUE ATS_get_msgQ_id(int queue_identify);

/* Events travel as signals. */
typedef struct {
    int event;
    int signal;
} ATS_event_map;
#define ATS_EVENT_MAP_ROWS 8
extern const ATS_event_map ATS_event_maps[ATS_EVENT_MAP_ROWS];

typedef long ATS_clock; /* whole seconds of the monotonic clock */

size_t ATS_strlen_s(const char* str);
int ATS_strncpy_s(char* strDest, size_t destMax, const char* strSrc, size_t count);
int ATS_task_getid(void);
ATS_BOOL ATS_task_bExist(int id);
int ATS_task_name_to_id(const char* name);
ATS_BOOL ATS_event_init(const int event);
ATS_BOOL ATS_event_send(int taskid, int event);
ATS_BOOL ATS_event_recv(int event, int timeout, int* pEventsReceived);
ATS_clock ATS_elapse(void);
void ATS_sleep(unsigned int millisecond);
void ATS_post_notify(unsigned int mid, unsigned int event, int param1, int param2);
void ATS_post_notify_ex(unsigned int mid, unsigned int event, void* param1, unsigned int param1_len,
                        void* param2, unsigned int param2_len);

/* The run directory in force ("/var/run" unless ATAPI_RUN_DIR says otherwise). Not part of the
 * router's interface: a host addition so that the AT server and tools agree with the library. */
const char* ATS_run_dir(void);

#ifdef __cplusplus
}
#endif

#endif /* ATAPI_PRIMITIVES_H */
