// pid_file.cpp - run directory checks and the locked pid file.
#include "pid_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace ats {
namespace {

constexpr char kPidDir[] = "pidfile";
constexpr char kPidName[] = "atserver.pid";

// A directory that another user could write into would let that user swap our files.
bool safe_dir(int fd, const std::string& name, std::string* error) {
    struct stat st {};
    if (fstat(fd, &st) != 0 || !S_ISDIR(st.st_mode)) {
        *error = name + " is not a directory";
        return false;
    }
    if (st.st_uid != geteuid() && st.st_uid != 0) {
        *error = name + " belongs to uid " + std::to_string(st.st_uid);
        return false;
    }
    if ((st.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (st.st_mode & S_ISVTX) == 0) {
        *error = name + " is writable by group or others (chmod go-w it)";
        return false;
    }
    return true;
}

class Fd {
public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    ~Fd() {
        if (fd_ >= 0) ::close(fd_);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }

private:
    int fd_;
};

std::string errno_text() { return std::strerror(errno); }

}  // namespace

bool PidFile::acquire(const std::string& run_dir, std::string* error) {
    release();
    if (mkdir(run_dir.c_str(), 0755) != 0 && errno != EEXIST) {
        *error = "cannot create " + run_dir + ": " + errno_text();
        return false;
    }
    // The run directory may be reached through a link (/var/run is one on most systems); what
    // counts is the directory it leads to.
    const Fd dir(open(run_dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.get() < 0) {
        *error = "cannot open " + run_dir + ": " + errno_text();
        return false;
    }
    if (!safe_dir(dir.get(), run_dir, error)) return false;
    const std::string pid_dir = run_dir + "/" + kPidDir;
    if (mkdirat(dir.get(), kPidDir, 0755) != 0 && errno != EEXIST) {
        *error = "cannot create " + pid_dir + ": " + errno_text();
        return false;
    }
    const Fd pdir(openat(dir.get(), kPidDir, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (pdir.get() < 0) {
        *error = "cannot open " + pid_dir + ": " + errno_text();
        return false;
    }
    if (!safe_dir(pdir.get(), pid_dir, error)) return false;

    const std::string path = pid_dir + "/" + kPidName;
    // A stopping server unlinks the file it holds; a lock taken on that file between our open
    // and its unlink would be a lock on nothing, so the name is checked again after locking.
    for (int attempt = 0; attempt < 5; ++attempt) {
        Fd fd(openat(pdir.get(), kPidName, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644));
        if (fd.get() < 0) {
            *error = path + (errno == ELOOP ? std::string(" is a symbolic link") : ": " + errno_text());
            return false;
        }
        struct stat st {};
        if (fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_nlink != 1 || st.st_uid != geteuid()) {
            *error = path + " is not a plain file of ours";
            return false;
        }
        if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
            char text[32] = {};
            const ssize_t n = pread(fd.get(), text, sizeof text - 1, 0);
            const long holder = n > 0 ? std::strtol(text, nullptr, 10) : 0;
            *error = "another atserver (pid " + std::to_string(holder) + ") serves " + run_dir;
            return false;
        }
        struct stat named {};
        if (fstatat(pdir.get(), kPidName, &named, AT_SYMLINK_NOFOLLOW) != 0 || named.st_dev != st.st_dev ||
            named.st_ino != st.st_ino)
            continue;
        // A pid left by a server that died names nobody, or by now someone else.
        if (fchmod(fd.get(), 0644) != 0 || ftruncate(fd.get(), 0) != 0) {
            *error = "cannot prepare " + path + ": " + errno_text();
            return false;
        }
        fd_ = fd.release();
        path_ = path;
        return true;
    }
    *error = path + " keeps being replaced";
    return false;
}

bool PidFile::write_pid(pid_t pid) {
    if (fd_ < 0) return false;
    const std::string text = std::to_string(pid) + "\n";
    // In place, in one write: a reader sees no number yet, or ours.
    return pwrite(fd_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()) &&
           ftruncate(fd_, static_cast<off_t>(text.size())) == 0;
}

void PidFile::release() {
    if (fd_ < 0) return;
    unlink(path_.c_str());
    ::close(fd_);
    fd_ = -1;
}

}  // namespace ats
