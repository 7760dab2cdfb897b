// QNSocket: an IPv4 datagram socket that sends and receives.
//
// A socket is made and bound by Open and closed by Close or its destructor; fd 0 means closed. Write
// sends one datagram to a given address, to the broadcast address (QNS_BROADCAST), or, for a
// QNS_CONNECTED socket, to the peer given to Connect. Failures are reported through qnError with the
// socket's name and handed back as a negative result; nothing is retried. A receive that finds no
// datagram within its time is a quiet failure.
#pragma once

#include "foundation/qstring.h"
#include "net/addr.h"

namespace tarvik {

enum { QNS_BROADCAST = 1 }; // flags: datagrams go to 255.255.255.255 at the port of 'remote'

enum {
    QNS_DATAGRAM = 1, // type: each datagram goes to the address given to Write
    QNS_CONNECTED = 2 // type: datagrams go to the one peer given to Connect
};

class QNSocket {
  public:
    explicit QNSocket(const char* socketName); // the name that reports show; the socket is closed
    ~QNSocket();
    QNSocket(const QNSocket&) = delete;
    QNSocket& operator=(const QNSocket&) = delete;

    // Makes the socket and binds it on every interface at 'localPort'; 0 lets the system choose.
    // 'local' and 'port' then hold what the bind gave. An open socket is closed first.
    bool Open(int socketType, int socketFlags, int localPort);
    bool Connect(const QNAddress& peer); // remembered in 'remote'
    void Close();
    bool IsOpen() const { return fd != 0; }

    // Bytes sent, a negative value on failure, or 0 for a datagram without a target.
    int Write(const void* buffer, int length, const QNAddress* addr);
    // Waits up to 'timeoutMs' (negative: without end) for one datagram and takes it, cut to 'size'.
    // Returns its length, or a negative value on failure or when none came. 'from' may be null.
    int Read(void* buffer, int size, QNAddress* from, int timeoutMs);

    int fd;           // owned handle; 0 when closed
    int flags;        // QNS_BROADCAST
    int type;         // QNS_DATAGRAM or QNS_CONNECTED
    QNAddress remote; // target of broadcasts, peer of a connected socket
    QNAddress local;  // what the bind gave
    int port;         // local port, for messages
    qstring name;     // for messages
};

} // namespace tarvik
