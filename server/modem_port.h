// modem_port.h - the modem's AT port: a serial device or any tty, opened raw.
#pragma once

#include <string>
#include <string_view>

namespace ats {

class ModemPort {
public:
    ModemPort() = default;
    ~ModemPort();
    ModemPort(const ModemPort&) = delete;
    ModemPort& operator=(const ModemPort&) = delete;

    // Opens `path` non-blocking, raw, 8N1, no flow control, at `baud` (ignored by a pty), and
    // claims it: TIOCEXCL keeps other opens out (root excepted) and an exclusive flock tells a
    // second server, root or not, that the port is taken. False, with errno set, when the
    // device is not there, is no tty, or is taken (EBUSY).
    bool open(const std::string& path, int baud);
    void close();
    bool is_open() const { return fd_ >= 0; }
    int fd() const { return fd_; }

    // Writes all of `bytes`, waiting up to `timeout_ms` for room. False when the port failed.
    bool write_all(std::string_view bytes, int timeout_ms);
    // Appends what is waiting to `out`, at most `limit` bytes, so that a modem that never stops
    // talking cannot hold the caller. False when the port has gone (hang-up, EOF, I/O error).
    bool read_available(std::string& out, size_t limit);

    // The termios speed constant for a baud rate, or 0 for a rate the host does not know.
    static unsigned speed_for(int baud);

private:
    int fd_ = -1;
};

}  // namespace ats
