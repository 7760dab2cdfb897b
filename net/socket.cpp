#include "net/socket.h"

#include "foundation/qmessage.h"
#include "net/neterror.h"
#include "platform/platform_net.h"

namespace tarvik {

QNSocket::QNSocket(const char* socketName)
    : fd(0), flags(0), type(QNS_DATAGRAM), port(0), name(socketName ? socketName : "") {}

QNSocket::~QNSocket() {
    Close();
}

void QNSocket::Close() {
    if (fd != 0) PlatformNetClose(fd);
    fd = 0;
}

bool QNSocket::Open(int socketType, int socketFlags, int localPort) {
    Close();
    int handle = PlatformNetSocket((socketFlags & QNS_BROADCAST) != 0);
    if (handle < 0) {
        qnError("QNSocket:Open(); [%s] can't make a socket", name.cstr());
        return false;
    }
    QNAddress any;
    any.SetPort(localPort);
    PlatformNetAddr bound;
    if (!PlatformNetBind(handle, any.addr)) {
        qnError("QNSocket:Open(); [%s] can't bind port %d", name.cstr(), localPort);
        PlatformNetClose(handle);
        return false;
    }
    if (!PlatformNetLocalAddr(handle, &bound)) {
        qnError("QNSocket:Open(); [%s] can't read the bound address", name.cstr());
        PlatformNetClose(handle);
        return false;
    }
    fd = handle;
    flags = socketFlags;
    type = socketType;
    local.SetFromPlatform(bound);
    port = local.GetPort();
    return true;
}

bool QNSocket::Connect(const QNAddress& peer) {
    if (!PlatformNetConnect(fd, peer.addr)) {
        qnError("QNSocket:Connect(); [%s] can't connect to %s:%d", name.cstr(), peer.ToString(),
                peer.GetPort());
        return false;
    }
    remote = peer;
    return true;
}

int QNSocket::Write(const void* buffer, int length, const QNAddress* addr) {
    int result;
    if (type == QNS_DATAGRAM) {
        const QNAddress* target = addr;
        if (flags & QNS_BROADCAST) {
            remote.SetIp(0xffffffff);
            target = &remote;
        } else if (!target) {
            QERROR("QNSocket:Write() [%s]; 'addr'=0", name.cstr());
            return 0;
        }
        result = PlatformNetSendTo(fd, buffer, length, target->addr);
    } else {
        result = PlatformNetSend(fd, buffer, length);
    }
    if (result >= 0) return result;
    qnError("QNSocket:Write(); [%s] failed (%s:%d)", name.cstr(), addr ? addr->ToString() : "<no_addr>",
            port);
    return result;
}

int QNSocket::Read(void* buffer, int size, QNAddress* from, int timeoutMs) {
    PlatformNetAddr sender;
    int result = PlatformNetReceive(fd, buffer, size, &sender, timeoutMs);
    if (result < 0) {
        qnError("QNSocket:Read(); [%s] failed (port %d)", name.cstr(), port);
        return result;
    }
    if (from) from->SetFromPlatform(sender);
    return result;
}

} // namespace tarvik
