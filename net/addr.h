// QNAddress: an IPv4 address and port, with its text form kept beside it.
//
// The 16 address bytes are those the socket calls take, family AF_INET, port and address in
// network byte order. A fresh address is the "any" address with port 0. ToString writes into one
// process-wide buffer that the next call overwrites; a destroyed address leaves its bytes zeroed.
#pragma once

#include "foundation/qstring.h"
#include "platform/platform_net.h"

#include <cstdint>

namespace tarvik {

class QNAddress {
  public:
    QNAddress(); // AF_INET, INADDR_ANY, port 0
    ~QNAddress();
    QNAddress(const QNAddress& other) = default;
    QNAddress& operator=(const QNAddress& other) = default;

    void Set(uint32_t ip, int port); // 'ip' as a number, 0x7f000001 for 127.0.0.1; name is the dotted form
    void SetIp(uint32_t ip);         // keeps the port and the name
    void SetPort(int port);
    // A dotted address or a host name. A name that doesn't resolve is reported and changes nothing.
    bool SetHost(const char* host, int port);
    void SetFromPlatform(const PlatformNetAddr& from); // as a socket call gave it; name is the dotted form

    uint32_t GetIp() const;
    int GetPort() const;

    // "%lu.%lu.%lu.%lu", highest byte first, without the port; one static buffer for all calls.
    const char* ToString() const;

    PlatformNetAddr addr;
    qstring name; // as given to SetHost, else the dotted form; empty for a fresh address
};

} // namespace tarvik
