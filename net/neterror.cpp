#include "net/neterror.h"

#include "foundation/qmessage.h"
#include "platform/platform_net.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>

namespace tarvik {

struct CodeText {
    int code;
    const char* text;
};

static const CodeText errorTexts[] = {
    {QNE_WOULDBLOCK, "Resource temporarily unavailable"},
    {QNE_INPROGRESS, "Blocking operation in progress"},
    {QNE_NOTSOCK, "Not a socket"},
    {QNE_MSGSIZE, "Message too long"},
    {QNE_NOPROTOOPT, "Bad protocol option"},
    {QNE_ADDRINUSE, "Address in use"},
    {QNE_ADDRNOTAVAIL, "Cannot assign requested address"},
    {QNE_CONNRESET, "Connection reset"},
};

struct ErrnoCode {
    int error;
    int code;
};

// errno name to 10000 + classic BSD number. Where two names share a value here (EAGAIN and
// EWOULDBLOCK), the first row wins and both mean the same.
static const ErrnoCode errnoCodes[] = {
    {EWOULDBLOCK, QNE_WOULDBLOCK},
    {EAGAIN, QNE_WOULDBLOCK},
    {EINPROGRESS, QNE_INPROGRESS},
    {EALREADY, 10037},
    {ENOTSOCK, QNE_NOTSOCK},
    // Our handles are all sockets: one that isn't open is "not a socket", as the code always said.
    {EBADF, QNE_NOTSOCK},
    {EDESTADDRREQ, 10039},
    {EMSGSIZE, QNE_MSGSIZE},
    {EPROTOTYPE, 10041},
    {ENOPROTOOPT, QNE_NOPROTOOPT},
    {EPROTONOSUPPORT, 10043},
    {EOPNOTSUPP, 10045},
    {EAFNOSUPPORT, 10047},
    {EADDRINUSE, QNE_ADDRINUSE},
    {EADDRNOTAVAIL, QNE_ADDRNOTAVAIL},
    {ENETDOWN, 10050},
    {ENETUNREACH, 10051},
    {ENETRESET, 10052},
    {ECONNABORTED, 10053},
    {ECONNRESET, QNE_CONNRESET},
    {ENOBUFS, 10055},
    {EISCONN, 10056},
    {ENOTCONN, 10057},
    {ETIMEDOUT, 10060},
    // Every socket of this layer is a datagram socket, and the one way for it to be refused is a
    // datagram that found no one listening at the peer's port: the peer is gone, which the table
    // calls a reset.
    {ECONNREFUSED, QNE_CONNRESET},
    {ELOOP, 10062},
    {ENAMETOOLONG, 10063},
    {EHOSTUNREACH, QNE_HOSTUNREACH},
    {EINTR, 10004},
    {EACCES, 10013},
    {EFAULT, 10014},
    {EINVAL, 10022},
    {EMFILE, 10024},
};

int qnErrorCode(int platformError) {
    for (const ErrnoCode& e : errnoCodes)
        if (e.error == platformError) return e.code;
    return platformError;
}

const char* qnErrorText(int code) {
    for (const CodeText& e : errorTexts)
        if (e.code == code) return e.text;
    return "<unknown error>";
}

void qnReport(int code, const char* text) {
    if (code == QNE_WOULDBLOCK || code == QNE_HOSTUNREACH) return;
    QWARNING("[QN] %s (%d/%s)", text, code, qnErrorText(code));
}

void qnError(const char* format, ...) {
    char text[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    qnReport(qnErrorCode(PlatformNetLastError()), text);
}

} // namespace tarvik
