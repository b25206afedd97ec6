// pid_file.h - the server's claim on its run directory: a locked pid file.
//
// The lock, not the pid or a program name, says whether a server is alive: it is held for the
// server's whole life and goes with its process, however that ends. Whoever holds it owns the
// run directory's queues.
#pragma once

#include <string>
#include <sys/types.h>

namespace ats {

class PidFile {
public:
    PidFile() = default;
    ~PidFile() { release(); }
    PidFile(const PidFile&) = delete;
    PidFile& operator=(const PidFile&) = delete;

    // Checks `run_dir` (a directory owned by root or by us, writable by nobody else unless
    // sticky), creates "pidfile/" in it (0755) when missing and checks it the same way, then
    // opens and locks "pidfile/atserver.pid" (0644, never through a link) and empties it. False,
    // with `error` set, when any check fails or another process holds the lock.
    bool acquire(const std::string& run_dir, std::string* error);
    // Writes our pid into the locked file in place, once the server is ready for clients.
    bool write_pid(pid_t pid);
    // Removes the file and drops the lock.
    void release();
    const std::string& path() const { return path_; }

private:
    int fd_ = -1;
    std::string path_;
};

}  // namespace ats
