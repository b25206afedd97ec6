// modem_port.cpp - raw tty handling for the modem's AT port.
#include "modem_port.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <utility>

namespace ats {
namespace {

constexpr std::array<std::pair<int, speed_t>, 12> kSpeeds{{
    {9600, B9600},       {19200, B19200},     {38400, B38400},     {57600, B57600},
    {115200, B115200},   {230400, B230400},   {460800, B460800},   {921600, B921600},
    {1000000, B1000000}, {2000000, B2000000}, {3000000, B3000000}, {4000000, B4000000},
}};

}  // namespace

ModemPort::~ModemPort() { close(); }

unsigned ModemPort::speed_for(int baud) {
    for (const auto& [rate, speed] : kSpeeds)
        if (rate == baud) return speed;
    return 0;
}

bool ModemPort::open(const std::string& path, int baud) {
    close();
    const int fd = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return false;
    auto give_up = [fd](int error) {
        ::close(fd);
        errno = error;
        return false;
    };
    termios tio{};
    if (tcgetattr(fd, &tio) != 0) return give_up(errno);
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) return give_up(errno == EWOULDBLOCK ? EBUSY : errno);
    ioctl(fd, TIOCEXCL);
    cfmakeraw(&tio);
    tio.c_cflag |= CLOCAL | CREAD;
    tio.c_cflag &= ~static_cast<tcflag_t>(CRTSCTS | CSTOPB | PARENB);
    tio.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF | IXANY);
    // VMIN 1 makes an empty non-blocking read say EAGAIN; 0 there would read as a hang-up.
    tio.c_cc[VMIN] = 1;
    tio.c_cc[VTIME] = 0;
    if (const speed_t sp = speed_for(baud); sp != 0) {
        cfsetispeed(&tio, sp);
        cfsetospeed(&tio, sp);
    }
    tcsetattr(fd, TCSANOW, &tio);
    tcflush(fd, TCIOFLUSH);  // nothing from before we came is an answer to us
    fd_ = fd;
    return true;
}

void ModemPort::close() {
    // The exclusive flag belongs to the terminal, not to our descriptor: left set, it would
    // outlive us where someone else keeps the terminal open (a simulator does).
    if (fd_ >= 0) ioctl(fd_, TIOCNXCL);
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

bool ModemPort::write_all(std::string_view bytes, int timeout_ms) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
    while (!bytes.empty()) {
        if (fd_ < 0) return false;
        const ssize_t n = ::write(fd_, bytes.data(), bytes.size());
        if (n > 0) {
            bytes.remove_prefix(static_cast<size_t>(n));
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && errno != EAGAIN) return false;
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) return false;
        pollfd p{fd_, POLLOUT, 0};
        if (::poll(&p, 1, static_cast<int>(left)) < 0 && errno != EINTR) return false;
        if (p.revents & (POLLERR | POLLNVAL)) return false;
    }
    return true;
}

bool ModemPort::read_available(std::string& out, size_t limit) {
    constexpr size_t kChunk = 4096;
    for (size_t got = 0; got < limit;) {
        if (fd_ < 0) return false;
        const size_t want = std::min(kChunk, limit - got);
        const size_t at = out.size();
        out.resize(at + want);
        const ssize_t n = ::read(fd_, out.data() + at, want);
        out.resize(at + static_cast<size_t>(n > 0 ? n : 0));
        if (n > 0) {
            got += static_cast<size_t>(n);
            // A terminal hands over what it holds: a short read has emptied it, and poll says
            // when more comes.
            if (static_cast<size_t>(n) < want) return true;
            continue;
        }
        if (n == 0) return false;  // the other end hung up
        if (errno == EINTR) continue;
        return errno == EAGAIN;
    }
    return true;  // more is waiting; the caller comes back for it
}

}  // namespace ats
