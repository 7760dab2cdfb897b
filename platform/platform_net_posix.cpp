// BSD-socket implementation of the network platform layer.
#include "platform/platform_net.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tarvik {

static_assert(AF_INET == PLATFORM_AF_INET, "the family number of IPv4");

static int lastError;

static int Fail() {
    lastError = errno;
    return -1;
}

// 0 is "closed" to the layer above: it must never reach a call as a socket (it is standard input).
static bool NoSocket(int fd) {
    if (fd > 0) return false;
    lastError = EBADF;
    return true;
}

// Field by field, never as a copy of the whole record: the system's layout may differ from ours
// (some systems keep a length byte in front of the family).
static sockaddr_in ToSystem(const PlatformNetAddr& a) {
    sockaddr_in s;
    std::memset(&s, 0, sizeof s);
    s.sin_family = AF_INET;
    std::memcpy(&s.sin_port, a.port, 2);
    std::memcpy(&s.sin_addr.s_addr, a.ip, 4);
    return s;
}

static void FromSystem(const sockaddr_in& s, PlatformNetAddr* a) {
    std::memset(a, 0, sizeof *a);
    a->family = PLATFORM_AF_INET;
    std::memcpy(a->port, &s.sin_port, 2);
    std::memcpy(a->ip, &s.sin_addr.s_addr, 4);
}

int PlatformNetSocket(bool broadcast) {
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return Fail();
    if (fd == 0) {
        // Standard input was closed and the socket took its number, which means "none" above.
        int moved = fcntl(fd, F_DUPFD_CLOEXEC, 1);
        int error = errno;
        close(fd);
        if (moved < 0) {
            lastError = error;
            return -1;
        }
        fd = moved;
    }
    int on = 1;
    if (broadcast && setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0) {
        int error = errno;
        close(fd);
        lastError = error;
        return -1;
    }
    return fd;
}

void PlatformNetClose(int fd) {
    if (fd > 0) close(fd);
}

bool PlatformNetBind(int fd, const PlatformNetAddr& local) {
    if (NoSocket(fd)) return false;
    sockaddr_in s = ToSystem(local);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&s), sizeof s) != 0) {
        Fail();
        return false;
    }
    return true;
}

bool PlatformNetLocalAddr(int fd, PlatformNetAddr* local) {
    if (NoSocket(fd)) return false;
    sockaddr_in s;
    socklen_t length = sizeof s;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&s), &length) != 0) {
        Fail();
        return false;
    }
    FromSystem(s, local);
    return true;
}

bool PlatformNetConnect(int fd, const PlatformNetAddr& peer) {
    if (NoSocket(fd)) return false;
    sockaddr_in s = ToSystem(peer);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&s), sizeof s) != 0) {
        Fail();
        return false;
    }
    return true;
}

int PlatformNetSendTo(int fd, const void* buffer, int length, const PlatformNetAddr& to) {
    if (NoSocket(fd)) return -1;
    if (length < 0) {
        errno = EINVAL;
        return Fail();
    }
    sockaddr_in s = ToSystem(to);
    ssize_t n =
        sendto(fd, buffer, size_t(length), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&s), sizeof s);
    return n < 0 ? Fail() : int(n);
}

int PlatformNetSend(int fd, const void* buffer, int length) {
    if (NoSocket(fd)) return -1;
    if (length < 0) {
        errno = EINVAL;
        return Fail();
    }
    ssize_t n = send(fd, buffer, size_t(length), MSG_NOSIGNAL);
    return n < 0 ? Fail() : int(n);
}

int PlatformNetReceive(int fd, void* buffer, int size, PlatformNetAddr* from, int timeoutMs) {
    if (NoSocket(fd)) return -1;
    if (size < 0) {
        errno = EINVAL;
        return Fail();
    }
    pollfd p;
    p.fd = fd;
    p.events = POLLIN;
    p.revents = 0;
    int ready;
    do
        ready = poll(&p, 1, timeoutMs < 0 ? -1 : timeoutMs);
    while (ready < 0 && errno == EINTR);
    if (ready < 0) return Fail();
    if (ready == 0) {
        errno = EWOULDBLOCK;
        return Fail();
    }
    sockaddr_in s;
    socklen_t length = sizeof s;
    std::memset(&s, 0, sizeof s);
    ssize_t n = recvfrom(fd, buffer, size_t(size), MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&s), &length);
    if (n < 0) return Fail();
    if (from) FromSystem(s, from);
    return int(n);
}

bool PlatformNetResolve(const char* host, uint8_t ip[4]) {
    if (!host || !host[0]) {
        lastError = EINVAL;
        return false;
    }
    in_addr a;
    if (inet_pton(AF_INET, host, &a) == 1) {
        std::memcpy(ip, &a.s_addr, 4);
        return true;
    }
    addrinfo hints;
    std::memset(&hints, 0, sizeof hints);
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(host, nullptr, &hints, &found) != 0 || !found) {
        // The resolver has error numbers of its own; to the layer above the name has no address.
        lastError = EADDRNOTAVAIL;
        return false;
    }
    const sockaddr_in* s = reinterpret_cast<const sockaddr_in*>(found->ai_addr);
    std::memcpy(ip, &s->sin_addr.s_addr, 4);
    freeaddrinfo(found);
    return true;
}

int PlatformNetLastError() {
    return lastError;
}

} // namespace tarvik
