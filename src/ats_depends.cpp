// Task, event, clock and notification primitives shared by the library and the AT server.
#include <signal.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "atapi/primitives.h"
#include "run_dir.h"

constexpr char kTraceSource[] = "src/ats_depends";
#include "trace.h"

extern "C" const ATS_event_map ATS_event_maps[ATS_EVENT_MAP_ROWS] = {
    {1, SIGUSR1},
    {2, SIGUSR2},
    {4, 31},
    {8, 32},
    {-1, -1},
};

namespace {

constexpr int kEventRows = 4;  // rows in front of the end marker

// The signals of the first four rows whose bit (bit i for row i) is set in `event`. Signal 32 is
// reserved by the C library's threads; sigaddset refuses it and the set goes without it.
sigset_t event_signals(int event) {
    sigset_t set;
    sigemptyset(&set);
    for (int i = 0; i < kEventRows; ++i)
        if (event & (1 << i)) sigaddset(&set, ATS_event_maps[i].signal);
    return set;
}

}  // namespace

extern "C" {

size_t ATS_strlen_s(const char* str) { return str ? std::strlen(str) : 0; }

int ATS_strncpy_s(char* strDest, size_t destMax, const char* strSrc, size_t count) {
    if (strDest == nullptr || strSrc == nullptr) return -1;
    size_t copy_num = destMax > count ? count : destMax - 1;
    return ATS_SNPRINTF(strDest, destMax, copy_num + 1, "%s", strSrc) < 0 ? -1 : 0;
}

int ATS_task_getid(void) { return static_cast<int>(getpid()); }

ATS_BOOL ATS_task_bExist(int id) { return (id != -1 && kill(id, 0) == 0) ? ATS_TRUE : ATS_FALSE; }

int ATS_task_name_to_id(const char* name) {
    if (name == nullptr) return -1;
    char file_name[255];
    ATS_SNPRINTF(file_name, sizeof file_name, 254, "%s.pid", name);
    const std::string dir = atapi::run_dir() + "/pidfile/";
    // 255 characters with the default directory; a longer run directory adds its own length.
    constexpr size_t kDefaultDirLen = sizeof("/var/run/pidfile/") - 1;
    const size_t limit = 255 + (dir.size() > kDefaultDirLen ? dir.size() - kDefaultDirLen : 0);
    char path[256 + 4096];
    if (ATS_SNPRINTF(path, sizeof path, limit, "%s%s", dir.c_str(), file_name) < 0) return -1;
    FILE* f = std::fopen(path, "r");
    if (f == nullptr) return -1;
    char line[256] = {0};
    const bool got = std::fgets(line, sizeof line, f) != nullptr;
    std::fclose(f);
    if (!got) return -1;
    int id = std::atoi(line);
    return id == 0 ? -1 : id;
}

ATS_BOOL ATS_event_init(const int event) {
    sigset_t set = event_signals(event);
    return sigprocmask(SIG_BLOCK, &set, nullptr) == 0 ? ATS_TRUE : ATS_FALSE;
}

ATS_BOOL ATS_event_send(int taskid, int event) {
    if (taskid < 1 || event == -1) return ATS_FALSE;
    int sig = -1;
    for (int i = 0; ATS_event_maps[i].event != -1; ++i) {
        if (ATS_event_maps[i].event == event) {
            sig = ATS_event_maps[i].signal;
            break;
        }
    }
    if (sig == -1) {
        std::printf("Error!in ATS_event_send, sig = -1");
        return ATS_FALSE;
    }
    return kill(taskid, sig) == 0 ? ATS_TRUE : ATS_FALSE;
}

ATS_BOOL ATS_event_recv(int event, int timeout, int* pEventsReceived) {
    if (event == -1 || pEventsReceived == nullptr) return ATS_FALSE;
    sigset_t set = event_signals(event);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    int sig = 0;
    int rc = 0;
    if (timeout < 0) {
        rc = sigwait(&set, &sig);
    } else {
        sigaddset(&set, SIGALRM);
        sigprocmask(SIG_BLOCK, &set, nullptr);
        alarm(static_cast<unsigned>(timeout));  // 0 arms nothing: the wait is for a selected signal only
        rc = sigwait(&set, &sig);
        alarm(0);
    }
    if (rc != 0 || sig == 0) {
        std::printf("Error!in ATS_event_recv, sigwait failed. errno = %s\n", strerror(rc ? rc : errno));
        return ATS_FALSE;
    }
    int e = -1;
    for (int i = 0; ATS_event_maps[i].event != -1; ++i) {
        if (ATS_event_maps[i].signal == sig) {
            e = ATS_event_maps[i].event;
            break;
        }
    }
    if (e == -1) {  // SIGALRM at the time limit lands here: a time-out reads as false
        std::printf("Error!in ATS_event_recv, e = -1");
        return ATS_FALSE;
    }
    *pEventsReceived = e;
    return ATS_TRUE;
}

ATS_clock ATS_elapse(void) {
    struct timespec ts {};
    if (clock_gettime(CLOCK_MONOTONIC, &ts) != 0 || ts.tv_sec < 0) return -1;
    return static_cast<ATS_clock>(ts.tv_sec);
}

void ATS_sleep(unsigned int millisecond) { usleep(1000u * millisecond); }

void ATS_post_notify(unsigned int mid, unsigned int event, int param1, int param2) {
    QMX_NOTIFYCLT_PostSimpleAsynNotify(mid, event, param1, param2);
}

void ATS_post_notify_ex(unsigned int mid, unsigned int event, void* param1, unsigned int param1_len, void* param2,
                        unsigned int param2_len) {
    QMX_NOTIFYCLT_PostAsynNotify(mid, event, param1, param1_len, param2, param2_len);
}

}  // extern "C"
