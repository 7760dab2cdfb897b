// QNAddress: its bytes, its text form and the one buffer that text lives in.
#include "tests/net/nettest.h"

#include <cstring>
#include <new>

using namespace tarvik;
using namespace tarvik::test;

using QNAddressTest = NetTest;

TEST_F(QNAddressTest, BytesStandInNetworkOrder) {
    QNAddress a;
    EXPECT_EQ(a.addr.family, PLATFORM_AF_INET);
    EXPECT_STREQ(a.ToString(), "0.0.0.0");
    EXPECT_EQ(a.GetPort(), 0);
    a.Set(0xC0A80102, 0x1234);
    const uint8_t port[2] = {0x12, 0x34};
    const uint8_t ip[4] = {192, 168, 1, 2};
    const uint8_t zero[8] = {};
    EXPECT_EQ(std::memcmp(a.addr.port, port, 2), 0);
    EXPECT_EQ(std::memcmp(a.addr.ip, ip, 4), 0);
    EXPECT_EQ(std::memcmp(a.addr.zero, zero, 8), 0);
    EXPECT_EQ(a.GetIp(), 0xC0A80102u);
    EXPECT_EQ(a.GetPort(), 0x1234);
    EXPECT_EQ(a.name, "192.168.1.2");

    a.SetPort(65535);
    a.SetIp(0x01020304);
    EXPECT_EQ(a.GetPort(), 65535);
    EXPECT_STREQ(a.ToString(), "1.2.3.4");
    EXPECT_EQ(a.name, "192.168.1.2") << "SetIp keeps the name";
}

TEST_F(QNAddressTest, ToStringIsTheFourNumbersWhateverThePort) {
    QNAddress a;
    a.Set(0x0A00FF01, 0);
    EXPECT_STREQ(a.ToString(), "10.0.255.1");
    a.SetPort(65535);
    EXPECT_STREQ(a.ToString(), "10.0.255.1");
    a.Set(0xFFFFFFFF, 80);
    EXPECT_STREQ(a.ToString(), "255.255.255.255");
}

TEST_F(QNAddressTest, ToStringCallsShareOneBuffer) {
    QNAddress a, b;
    a.Set(kLoopback, 1);
    b.Set(0x08080404, 2);
    const char* first = a.ToString();
    const char* second = b.ToString();
    EXPECT_EQ(first, second);
    EXPECT_STREQ(first, "8.8.4.4") << "the later call overwrote the earlier text";
}

TEST_F(QNAddressTest, SetHostTakesDottedTextAndNames) {
    QNAddress a;
    ASSERT_TRUE(a.SetHost("127.0.0.1", 4000));
    EXPECT_EQ(a.GetIp(), kLoopback);
    EXPECT_EQ(a.GetPort(), 4000);
    EXPECT_EQ(a.name, "127.0.0.1");

    QNAddress b;
    ASSERT_TRUE(b.SetHost("localhost", 5));
    EXPECT_EQ(b.addr.ip[0], 127);
    EXPECT_EQ(b.name, "localhost");
}

TEST_F(QNAddressTest, UnresolvedHostIsReportedAndChangesNothing) {
    QNAddress a;
    a.Set(kLoopback, 7);
    EXPECT_FALSE(a.SetHost("", 9));
    EXPECT_FALSE(a.SetHost(nullptr, 9));
    EXPECT_EQ(a.GetIp(), kLoopback);
    EXPECT_EQ(a.GetPort(), 7);
    EXPECT_EQ(a.name, "127.0.0.1");
    EXPECT_EQ(CountLinesWith("(ERR  ): [-] QNAddress:SetHost(); can't resolve '' ["), 1);
    EXPECT_EQ(CountLinesWith("QNAddress:SetHost(); can't resolve '(null)'"), 1);
}

TEST_F(QNAddressTest, DestroyingClearsTheAddressBytes) {
    alignas(QNAddress) unsigned char storage[sizeof(QNAddress)];
    QNAddress* a = new (storage) QNAddress;
    a->Set(0xFFFFFFFF, 0xFFFF);
    size_t offset = size_t(reinterpret_cast<unsigned char*>(&a->addr) - storage);
    a->~QNAddress();
    for (size_t i = 0; i < sizeof(PlatformNetAddr); i++)
        EXPECT_EQ(storage[offset + i], 0) << "byte " << i;
}
