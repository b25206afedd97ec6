// at_queue.h - the library's own use of the queue primitives: the exchange's reply wait.
#pragma once

#include "atapi/primitives.h"

namespace atapi {

enum class ReplyWait {
    poll,  // ATS_msgQex_recv: a look every 10 ms
    fast,  // asleep on the server's reply bell, or else a look after a sleep that grows to the 10 ms step
};

// The wait $ATAPI_REPLY_WAIT selects ("fast"; anything else, or unset, is the 10 ms poll). Read
// at every exchange, as ATAPI_RUN_DIR is, and never in a set-user-ID or set-group-ID process.
ReplyWait reply_wait();

// ATS_msgQex_recv with a time limit of `timeout_ms` (> 0) for the exchange's reply, waited for the
// way `how` says. Every time limit is kept: neither wait returns -1 before `timeout_ms` has passed
// unless the queue is gone. No signal handler is installed and no signal mask is touched.
int recv_reply(ATS_QUEUE qid, void* msg, unsigned maxLength, int timeout_ms, unsigned msgType, ReplyWait how);

}  // namespace atapi
