// main.cpp - atserver: the AT server daemon of libatapi.
#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "at_server.h"
#include "modem_port.h"

namespace {

constexpr char kUsage[] =
    "usage: atserver --device PATH [options]\n"
    "\n"
    "Owns the modem's AT port and serves libatapi's requests over the SysV message queues\n"
    "of the run directory.\n"
    "\n"
    "  --device PATH   the modem's AT port: a serial device (/dev/ttyUSB2) or any tty,\n"
    "                  such as the pseudo-terminal of modemsim\n"
    "  --baud N        line speed of a serial device (default 115200; a pty ignores it)\n"
    "  --run-dir DIR   queues and pid file under DIR instead of /var/run\n"
    "                  (the same as ATAPI_RUN_DIR=DIR, which clients must share)\n"
    "  --foreground    stay in the foreground instead of becoming a daemon\n"
    "  --verbose       trace to stderr, command and report texts included\n"
    "                  (ATAPI_TRACE selects the levels when set)\n"
    "  --help          this text\n"
    "\n"
    "The pid is written to <run dir>/pidfile/atserver.pid, which stays locked while the\n"
    "server runs; a second server for the same run directory refuses to start. SIGTERM or\n"
    "SIGINT stops the server and removes its queues and pid file.\n";

int usage_error(const char* what) {
    std::fprintf(stderr, "atserver: %s\n%s", what, kUsage);
    return 2;
}

std::string absolute(const std::string& path) {
    if (path.empty() || path.front() == '/') return path;
    char cwd[4096];
    if (getcwd(cwd, sizeof cwd) == nullptr) return path;
    return std::string(cwd) + "/" + path;
}

// Forks into the background; the parent exits once the child says whether it started.
int daemonize(int* ready_fd) {
    int fds[2];
    if (pipe(fds) != 0) return -1;
    const pid_t pid = fork();
    if (pid < 0) return -1;
    if (pid > 0) {
        close(fds[1]);
        char ok = 0;
        const bool started = read(fds[0], &ok, 1) == 1 && ok == 1;
        _exit(started ? 0 : 1);
    }
    close(fds[0]);
    setsid();
    if (chdir("/") != 0) { /* stays where it was */ }
    *ready_fd = fds[1];
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    // Files the daemon creates get the modes it asks for, whatever the caller's umask.
    umask(022);
    ats::Options opt;
    for (int i = 1; i < argc; ++i) {
        const std::string_view a = argv[i];
        auto value = [&]() -> const char* { return i + 1 < argc ? argv[++i] : nullptr; };
        if (a == "--help" || a == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (a == "--device") {
            const char* v = value();
            if (!v) return usage_error("--device needs a path");
            opt.device = v;
        } else if (a == "--baud") {
            const char* v = value();
            if (!v || ats::ModemPort::speed_for(std::atoi(v)) == 0) return usage_error("--baud needs a known line speed");
            opt.baud = std::atoi(v);
        } else if (a == "--run-dir") {
            const char* v = value();
            if (!v) return usage_error("--run-dir needs a directory");
            setenv("ATAPI_RUN_DIR", v, 1);
        } else if (a == "--group") {
            const char* v = value();
            const group* g = v ? getgrnam(v) : nullptr;
            if (!g) return usage_error("--group needs the name of a group of this system");
            opt.queue_group = g->gr_gid;
        } else if (a == "--foreground") {
            opt.foreground = true;
        } else if (a == "--verbose") {
            opt.verbose = true;
        } else {
            return usage_error(("unknown argument " + std::string(a)).c_str());
        }
    }
    if (opt.device.empty()) return usage_error("--device is required");
    // A daemon works from "/": relative names are taken from where it was started.
    opt.device = absolute(opt.device);
    if (const char* dir = std::getenv("ATAPI_RUN_DIR"); dir != nullptr && *dir != '\0')
        setenv("ATAPI_RUN_DIR", absolute(dir).c_str(), 1);
    if (opt.verbose && std::getenv("ATAPI_TRACE") == nullptr) setenv("ATAPI_TRACE", "15", 1);

    int ready_fd = -1;
    if (!opt.foreground && daemonize(&ready_fd) != 0) {
        std::perror("atserver: fork");
        return 1;
    }
    ats::AtServer server(opt);
    std::string error;
    if (!server.start(&error)) {
        std::fprintf(stderr, "atserver: %s\n", error.c_str());
        return 1;
    }
    if (ready_fd >= 0) {
        const char ok = 1;
        if (write(ready_fd, &ok, 1) != 1) { /* the parent is gone already */ }
        close(ready_fd);
        const int null = open("/dev/null", O_RDWR);
        if (null >= 0) {
            dup2(null, 0);
            dup2(null, 1);
            if (!opt.verbose) dup2(null, 2);
            if (null > 2) close(null);
        }
    }
    return server.run();
}
