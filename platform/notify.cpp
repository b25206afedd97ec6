// Notification client of the host platform library. A host runs no notification service: a post
// is accepted, traced at info level and dropped.
#include "atplatform.h"

extern "C" int QMX_NOTIFYCLT_PostSimpleAsynNotify(unsigned int mid, unsigned int event, int param1,
                                                  int param2) {
    QMX_TRACE_PrintInfo("platform/notify", __LINE__, 0, "notify", ATP_TRACE_INFO,
                        "notify mid=%u event=%u param1=%d param2=%d dropped (no notification service)\n",
                        mid, event, param1, param2);
    return 0;
}

extern "C" int QMX_NOTIFYCLT_PostAsynNotify(unsigned int mid, unsigned int event, void* /*param1*/,
                                            unsigned int param1_len, void* /*param2*/,
                                            unsigned int param2_len) {
    QMX_TRACE_PrintInfo("platform/notify", __LINE__, 0, "notify", ATP_TRACE_INFO,
                        "notify mid=%u event=%u (%u + %u bytes) dropped (no notification service)\n", mid,
                        event, param1_len, param2_len);
    return 0;
}
