#include "net/addr.h"

#include "foundation/qmessage.h"

#include <cstdio>
#include <cstring>

namespace tarvik {

QNAddress::QNAddress() {
    std::memset(&addr, 0, sizeof addr);
    addr.family = PLATFORM_AF_INET;
}

QNAddress::~QNAddress() {
    // Through a volatile pointer, so that the compiler keeps the stores of an object about to die.
    volatile uint8_t* p = reinterpret_cast<volatile uint8_t*>(&addr);
    for (size_t i = 0; i < sizeof addr; i++)
        p[i] = 0;
}

void QNAddress::SetIp(uint32_t ip) {
    addr.ip[0] = uint8_t(ip >> 24);
    addr.ip[1] = uint8_t(ip >> 16);
    addr.ip[2] = uint8_t(ip >> 8);
    addr.ip[3] = uint8_t(ip);
}

void QNAddress::SetPort(int port) {
    addr.port[0] = uint8_t(port >> 8);
    addr.port[1] = uint8_t(port);
}

void QNAddress::Set(uint32_t ip, int port) {
    SetIp(ip);
    SetPort(port);
    name = ToString();
}

bool QNAddress::SetHost(const char* host, int port) {
    uint8_t ip[4];
    if (!PlatformNetResolve(host, ip)) {
        QERROR("QNAddress:SetHost(); can't resolve '%s'", host ? host : "(null)");
        return false;
    }
    std::memcpy(addr.ip, ip, 4);
    SetPort(port);
    name = host;
    return true;
}

void QNAddress::SetFromPlatform(const PlatformNetAddr& from) {
    addr = from;
    name = ToString();
}

uint32_t QNAddress::GetIp() const {
    return uint32_t(addr.ip[0]) << 24 | uint32_t(addr.ip[1]) << 16 | uint32_t(addr.ip[2]) << 8 | addr.ip[3];
}

int QNAddress::GetPort() const {
    return addr.port[0] << 8 | addr.port[1];
}

const char* QNAddress::ToString() const {
    static char text[16]; // "255.255.255.255" and its terminator
    std::snprintf(text, sizeof text, "%lu.%lu.%lu.%lu", (unsigned long)addr.ip[0], (unsigned long)addr.ip[1],
                  (unsigned long)addr.ip[2], (unsigned long)addr.ip[3]);
    return text;
}

} // namespace tarvik
