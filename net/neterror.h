// Socket failures into the log.
//
// The layer speaks one set of error codes, those of the table below: 10000 plus the number that the
// classic BSD numbering gives each socket error (EWOULDBLOCK 35, ECONNRESET 54, ...). The platform
// reports errno values, which this system numbers differently, so qnErrorCode translates them by
// name. Codes 10035 (would block) and 10065 (host unreachable) are normal events of a socket that
// sends without waiting and are never reported.
#pragma once

namespace tarvik {

enum {
    QNE_WOULDBLOCK = 10035,
    QNE_INPROGRESS = 10036,
    QNE_NOTSOCK = 10038,
    QNE_MSGSIZE = 10040,
    QNE_NOPROTOOPT = 10042,
    QNE_ADDRINUSE = 10048,
    QNE_ADDRNOTAVAIL = 10049,
    QNE_CONNRESET = 10054,
    QNE_HOSTUNREACH = 10065,
};

// Warns "[QN] %s (%d/%s)": the formatted text (cut to 1023 characters), the code of the platform's
// last socket error and its text, unless that code is one of the two silent ones.
void qnError(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The second half of qnError, for a code already known.
void qnReport(int code, const char* text);

// An errno value to the layer's code; ECONNREFUSED, which only a datagram to a closed port gives
// here, counts as a reset. An errno without a code stays as it is.
int qnErrorCode(int platformError);
const char* qnErrorText(int code); // "<unknown error>" for a code outside the table

} // namespace tarvik
