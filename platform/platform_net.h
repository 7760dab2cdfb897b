// IPv4 datagram sockets as the network layer sees them.
//
// A handle is a positive number; 0 never names a socket here, because the layer above reads 0 as
// "closed". Every call that fails returns -1 (or false) and leaves the system's error number (an
// errno value) for PlatformNetLastError(), which keeps it until the next failure. No call raises a
// signal: writing to a peer that is gone is a failure like any other.
#pragma once

#include <cstdint>

namespace tarvik {

enum { PLATFORM_AF_INET = 2 };

// An IPv4 socket address in the 16-byte layout the socket calls take: family, then port and address
// in network byte order (highest byte first), then 8 bytes of zero.
struct PlatformNetAddr {
    uint16_t family; // PLATFORM_AF_INET
    uint8_t port[2];
    uint8_t ip[4];
    uint8_t zero[8];
};
static_assert(sizeof(PlatformNetAddr) == 16, "a socket address is 16 bytes");

int PlatformNetSocket(bool broadcast); // a datagram socket, broadcasts allowed if asked; -1 on failure
void PlatformNetClose(int fd);
bool PlatformNetBind(int fd, const PlatformNetAddr& local);
bool PlatformNetLocalAddr(int fd, PlatformNetAddr* local); // what the bind gave, port included
bool PlatformNetConnect(int fd, const PlatformNetAddr& peer);

// Bytes sent, or -1.
int PlatformNetSendTo(int fd, const void* buffer, int length, const PlatformNetAddr& to);
int PlatformNetSend(int fd, const void* buffer, int length); // to the connected peer

// Waits up to 'timeoutMs' (negative: without end) for one datagram and takes it, cut to 'size'.
// Returns its length, or -1; a wait that ends empty fails with the "would block" error number.
// 'from' (may be null) gets the sender.
int PlatformNetReceive(int fd, void* buffer, int size, PlatformNetAddr* from, int timeoutMs);

// A dotted address or a host name to an IPv4 address, highest byte first in 'ip'.
bool PlatformNetResolve(const char* host, uint8_t ip[4]);

int PlatformNetLastError(); // errno value of the last failed call above, 0 if none failed yet

} // namespace tarvik
