#include "net/network.h"

#include "foundation/qmessage.h"
#include "net/addr.h"
#include "net/socket.h"

#include <cstdint>
#include <cstring>

namespace tarvik {

static bool ready;

// The mirror's socket: null until the first report line, then either a socket pointed there before
// it or mirrorOff for good. Owned unless it is mirrorOff.
static QNSocket* mirrorSocket;
static QNSocket* const mirrorOff = reinterpret_cast<QNSocket*>(intptr_t(-1));
static QNAddress* mirrorAddress; // owned; the target, "any" with port 0 until pointed

// Called by the log for each line, never while it runs already: a report of its own Write comes back
// to the log, which doesn't pass it here again.
static void MirrorLine(const char* line) {
    if (!mirrorSocket) {
        mirrorSocket = mirrorOff;
        return;
    }
    if (mirrorSocket == mirrorOff || !ready) return;
    size_t length = std::strlen(line);
    if (length > QN_MIRROR_MAX_BYTES) length = QN_MIRROR_MAX_BYTES;
    mirrorSocket->Write(line, int(length), mirrorAddress);
}

bool QNStartup() {
    if (ready) return true;
    // The sockets of this system need no start-up call of their own.
    mirrorSocket = nullptr;
    mirrorAddress = new QNAddress;
    ready = true;
    QSetLogMirror(MirrorLine);
    QSetNetworkShutdown(QNShutdown);
    return true;
}

void QNShutdown() {
    QSetLogMirror(nullptr);
    QSetNetworkShutdown(nullptr);
    if (mirrorSocket != mirrorOff) delete mirrorSocket;
    mirrorSocket = nullptr;
    delete mirrorAddress;
    mirrorAddress = nullptr;
    ready = false;
}

bool QNIsReady() {
    return ready;
}

bool QNLogMirrorOpen(const char* host, int port) {
    if (!ready) {
        QERROR("QNLogMirrorOpen(); the network layer isn't started");
        return false;
    }
    if (mirrorSocket == mirrorOff) {
        QWARNING("QNLogMirrorOpen(); the mirror was switched off by an earlier report");
        return false;
    }
    QNAddress target;
    if (!target.SetHost(host, port)) return false;
    if (!mirrorSocket) {
        QNSocket* socket = new QNSocket("log mirror");
        if (!socket->Open(QNS_DATAGRAM, 0, 0)) {
            delete socket;
            return false;
        }
        mirrorSocket = socket;
    }
    *mirrorAddress = target;
    return true;
}

} // namespace tarvik
