// The network layer over the loopback address, at ports the system chose so that parallel runs never
// meet: addresses, datagram sockets, the error table and the log's mirror. Every case runs in a fresh
// directory for QLOG.txt, from a fresh log and network layer.
#include "foundation/qmessage.h"
#include "net/addr.h"
#include "net/neterror.h"
#include "net/network.h"
#include "net/socket.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <sstream>
#include <string>
#include <vector>

using namespace tarvik;
using namespace tarvik::test;

namespace {

const uint32_t kLoopback = 0x7f000001;
const int kArriveMs = 2000; // the wait for a datagram that was sent ends as it arrives
const int kQuietMs = 50;    // loopback delivery is done when the send returns; this covers a loaded machine

struct Receiver {
    QNSocket socket{"receiver"};
    QNAddress address; // 127.0.0.1 at the receiver's port
    Receiver() {
        EXPECT_TRUE(socket.Open(QNS_DATAGRAM, 0, 0));
        address.Set(kLoopback, socket.port);
    }
    // The next datagram's bytes; "<none>" if nothing came within 'timeoutMs'.
    std::string Next(int timeoutMs = kArriveMs) {
        std::vector<char> buffer(65536);
        int n = socket.Read(buffer.data(), int(buffer.size()), nullptr, timeoutMs);
        return n < 0 ? std::string("<none>") : std::string(buffer.data(), size_t(n));
    }
};

// A loopback port where nobody listens: the system chose it, and it was let go.
int ClosedPort() {
    QNSocket socket("closed");
    EXPECT_TRUE(socket.Open(QNS_DATAGRAM, 0, 0));
    return socket.port;
}

// The lines of QLOG.txt, times cut off.
std::vector<std::string> LogLines() {
    std::vector<std::string> lines;
    std::istringstream text(LogWithoutTimes(ReadFile("QLOG.txt")));
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
}

int CountLinesWith(const std::string& part) {
    std::vector<std::string> lines = LogLines();
    return int(std::count_if(lines.begin(), lines.end(), [&](auto& l) { return l.find(part) != l.npos; }));
}

bool StartsWith(const std::string& text, const std::string& head) { return text.rfind(head, 0) == 0; }

class NetTest : public ::testing::Test {
  protected:
    // The echo of every report is kept out of the test output.
    void SetUp() override { Reset(), testing::internal::CaptureStderr(); }
    void TearDown() override { Reset(), testing::internal::GetCapturedStderr(); }
    static void Reset() { QNShutdown(), qmsgReset(); }
    TempDir dir{true};
};

using QNAddressTest = NetTest;
using QNErrorTest = NetTest;
using QNSocketTest = NetTest;
using QNetworkTest = NetTest;

} // namespace

TEST_F(QNAddressTest, BytesStandInNetworkOrder) {
    QNAddress a;
    EXPECT_EQ(a.addr.family, PLATFORM_AF_INET);
    EXPECT_STREQ(a.ToString(), "0.0.0.0");
    a.Set(0xC0A80102, 0x1234);
    const uint8_t bytes[14] = {0x12, 0x34, 192, 168, 1, 2}; // port, address, eight zeros
    EXPECT_EQ(std::memcmp(a.addr.port, bytes, 2), 0);
    EXPECT_EQ(std::memcmp(a.addr.ip, bytes + 2, 4), 0);
    EXPECT_EQ(std::memcmp(a.addr.zero, bytes + 6, 8), 0);
    EXPECT_TRUE(a.GetIp() == 0xC0A80102u && a.GetPort() == 0x1234 && a.name == "192.168.1.2");
    a.SetPort(65535);
    a.SetIp(0x0A00FF01);
    EXPECT_EQ(a.GetPort(), 65535);
    const char* text = a.ToString(); // the four numbers whatever the port
    EXPECT_STREQ(text, "10.0.255.1");
    EXPECT_EQ(a.name, "192.168.1.2") << "SetIp keeps the name";
    QNAddress b;
    b.Set(0xFFFFFFFF, 80);
    EXPECT_EQ(b.ToString(), text);
    EXPECT_STREQ(text, "255.255.255.255") << "the later call overwrote the earlier text";
    alignas(QNAddress) unsigned char storage[sizeof(QNAddress)]; // destroying clears the bytes
    QNAddress* c = new (storage) QNAddress;
    c->Set(0xFFFFFFFF, 0xFFFF);
    size_t offset = size_t(reinterpret_cast<unsigned char*>(&c->addr) - storage);
    c->~QNAddress();
    for (size_t i = 0; i < sizeof(PlatformNetAddr); i++) EXPECT_EQ(storage[offset + i], 0) << "byte " << i;
}

TEST_F(QNAddressTest, SetHostTakesDottedTextAndNames) {
    QNAddress a, b;
    ASSERT_TRUE(a.SetHost("127.0.0.1", 4000));
    EXPECT_TRUE(a.GetIp() == kLoopback && a.GetPort() == 4000 && a.name == "127.0.0.1");
    ASSERT_TRUE(b.SetHost("localhost", 5));
    EXPECT_TRUE(b.addr.ip[0] == 127 && b.name == "localhost");
    // An unresolved host is reported and changes nothing.
    EXPECT_FALSE(a.SetHost("", 9) || a.SetHost(nullptr, 9));
    EXPECT_TRUE(a.GetIp() == kLoopback && a.GetPort() == 4000 && a.name == "127.0.0.1");
    EXPECT_EQ(CountLinesWith("(ERR  ): [-] QNAddress:SetHost(); can't resolve '' ["), 1);
    EXPECT_EQ(CountLinesWith("QNAddress:SetHost(); can't resolve '(null)'"), 1);
}

TEST_F(QNErrorTest, TableTextsAndErrnoCodes) {
    const struct { int code; const char* text; } texts[] = {
        {10035, "Resource temporarily unavailable"}, {10036, "Blocking operation in progress"},
        {10038, "Not a socket"}, {10040, "Message too long"}, {10042, "Bad protocol option"},
        {10048, "Address in use"}, {10049, "Cannot assign requested address"}, {10054, "Connection reset"}};
    for (const auto& t : texts) EXPECT_STREQ(qnErrorText(t.code), t.text) << t.code;
    for (int code : {0, 10034, 10037, 10053, 10055, 10065, -1, 35, 54})
        EXPECT_STREQ(qnErrorText(code), "<unknown error>") << code;
    const int codes[][2] = {{EWOULDBLOCK, 10035}, {EAGAIN, 10035}, {EINPROGRESS, 10036}, {ENOTSOCK, 10038},
                            {EBADF, 10038}, {EMSGSIZE, 10040}, {ENOPROTOOPT, 10042}, {EADDRINUSE, 10048},
                            {EADDRNOTAVAIL, 10049}, {ECONNRESET, 10054}, {ECONNREFUSED, 10054},
                            {EHOSTUNREACH, 10065}, {ENETUNREACH, 10051}, {EACCES, 10013},
                            {EPERM, EPERM}, {0, 0}}; // an errno without a code stays as it is
    for (const auto& c : codes) EXPECT_EQ(qnErrorCode(c[0]), c[1]) << "errno " << c[0];
}

TEST_F(QNErrorTest, ReportEndsWithCodeAndTextUnlessTheCodeIsSilent) {
    qnReport(10035, "QNSocket:Write(); [x] failed");
    qnReport(10065, "QNSocket:Write(); [x] failed");
    EXPECT_FALSE(FileExists("QLOG.txt"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    testing::internal::CaptureStderr();
    qnReport(10054, "QNSocket:Write(); [mirror] failed (10.0.0.1:9)");
    qnReport(12345, "odd");
    PlatformNetConnect(0, QNAddress().addr); // leaves a known last error: no socket
    qnError("%s", std::string(2000, 'x').c_str());
    std::vector<std::string> lines = LogLines();
    ASSERT_EQ(lines.size(), 4u); // the start line and three reports
    EXPECT_TRUE(StartsWith(lines[1], "(WARN ): [-] [QN] QNSocket:Write(); [mirror] failed (10.0.0.1:9) "
                                     "(10054/Connection reset) [neterror.cpp:")) << lines[1];
    EXPECT_EQ(lines[1].substr(lines[1].size() - 12), " / qnReport]");
    EXPECT_TRUE(StartsWith(lines[2], "(WARN ): [-] [QN] odd (12345/<unknown error>) [")) << lines[2];
    // The formatted text is cut at 1023 characters.
    EXPECT_TRUE(StartsWith(lines[3], "(WARN ): [-] [QN] " + std::string(1023, 'x') + " (10038/Not a socket"));
}

TEST_F(QNSocketTest, OpenBindsAPortTheSystemChoseAndKeepsIt) {
    Receiver r;
    QNSocket s("probe"), second("second");
    EXPECT_TRUE(!s.IsOpen() && s.fd == 0);
    ASSERT_TRUE(s.Open(QNS_DATAGRAM, 0, 0));
    EXPECT_TRUE(s.IsOpen() && s.fd > 0 && s.port > 0 && s.local.GetPort() == s.port);
    EXPECT_EQ(s.type, QNS_DATAGRAM);
    s.Close();
    EXPECT_EQ(s.fd, 0);
    EXPECT_FALSE(FileExists("QLOG.txt"));
    EXPECT_FALSE(second.Open(QNS_DATAGRAM, 0, r.socket.port) || second.IsOpen());
    EXPECT_EQ(CountLinesWith("[QN] QNSocket:Open(); [second] can't bind port " +
                             std::to_string(r.socket.port) + " (10048/Address in use)"), 1);
    EXPECT_TRUE(second.Open(QNS_DATAGRAM, 0, ClosedPort())) << "the destructor closes the socket";
}

TEST_F(QNSocketTest, DatagramGoesToTheGivenAddressOnlyAndIsCutToTheBuffer) {
    Receiver r;
    QNSocket s("sender");
    ASSERT_TRUE(s.Open(QNS_DATAGRAM, 0, 0));
    char buffer[8] = {'#', '#', '#', '#', '#', '#', '#', '#'};
    EXPECT_LT(r.socket.Read(buffer, 4, nullptr, 0), 0);
    EXPECT_LT(r.socket.Read(buffer, 4, nullptr, kQuietMs), 0);
    EXPECT_FALSE(FileExists("QLOG.txt")) << "a read that would block is a quiet code";
    EXPECT_EQ(s.Write("hello", 5, &r.address), 5);
    ASSERT_EQ(s.Write("abcdefghij", 10, &r.address), 10);
    ASSERT_EQ(s.Write("", 0, &r.address), 0);
    QNAddress from;
    EXPECT_EQ(r.socket.Read(buffer, 8, &from, kArriveMs), 5); // the first of three
    EXPECT_EQ(std::string(buffer, 6), "hello#");
    EXPECT_TRUE(from.GetIp() == kLoopback && from.GetPort() == s.port && from.name == "127.0.0.1");
    EXPECT_EQ(r.socket.Read(buffer, 4, nullptr, kArriveMs), 4);
    EXPECT_EQ(std::string(buffer, 6), "abcdo#");
    EXPECT_EQ(r.socket.Read(buffer, 4, nullptr, kArriveMs), 0) << "an empty datagram is one too";
    EXPECT_EQ(r.Next(kQuietMs), "<none>") << "the rest of the cut datagram is gone";
    EXPECT_EQ(s.Write("hello", 5, nullptr), 0); // no target: its error is logged
    std::vector<std::string> lines = LogLines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(StartsWith(lines[1], "(ERR  ): [-] QNSocket:Write() [sender]; 'addr'=0 [socket.cpp:"));
    EXPECT_EQ(r.Next(kQuietMs), "<none>");

    QNSocket caster("caster"); // a broadcast ignores the given address
    ASSERT_TRUE(caster.Open(QNS_DATAGRAM, QNS_BROADCAST, 0));
    caster.remote.Set(kLoopback, ClosedPort());
    caster.Write("all", 3, &r.address);
    caster.Write("all", 3, nullptr);
    // Whether the machine lets a broadcast out is its own business; where it went is the socket's.
    EXPECT_STREQ(caster.remote.ToString(), "255.255.255.255");
    EXPECT_EQ(r.Next(kQuietMs), "<none>") << "the datagram went to the address given";
    EXPECT_EQ(CountLinesWith("'addr'=0"), 1);
}

TEST_F(QNSocketTest, ConnectedSocketSendsToItsPeerAndClosedPortIsReportedOnce) {
    Receiver r;
    QNSocket s("line"), shut("shut");
    ASSERT_TRUE(s.Open(QNS_CONNECTED, 0, 0));
    ASSERT_TRUE(s.Connect(r.address));
    EXPECT_EQ(s.remote.GetPort(), r.socket.port);
    EXPECT_EQ(s.Write("one", 3, nullptr), 3);
    EXPECT_EQ(r.Next(), "one");
    QNAddress nobody;
    nobody.Set(kLoopback, ClosedPort());
    ASSERT_TRUE(s.Connect(nobody));
    // The refusal comes back to the first datagram and is handed to the next send: a send that tried
    // again after it would succeed and hide the failure.
    EXPECT_EQ(s.Write("x", 1, nullptr), 1);
    EXPECT_LT(s.Write("y", 1, nullptr), 0);
    EXPECT_EQ(CountLinesWith("[QN] QNSocket:Write(); [line] failed (<no_addr>:" + std::to_string(s.port) +
                             ") (10054/Connection reset) [neterror.cpp:"), 1) << ReadFile("QLOG.txt");
    EXPECT_EQ(CountLinesWith("[QN]"), 1);
    EXPECT_LT(shut.Write("z", 1, &nobody), 0); // a socket never opened
    EXPECT_EQ(CountLinesWith("[QN] QNSocket:Write(); [shut] failed (127.0.0.1:0) (10038/Not a socket)"), 1);
}

// The mirror: every report line reaches a receiver as one datagram, cut to 1400 bytes; the first line
// that finds no mirror switches it off.
TEST_F(QNetworkTest, MirrorSendsEachReportLineCutTo1400Bytes) {
    Receiver r;
    ASSERT_TRUE(QNStartup());
    ASSERT_TRUE(QNLogMirrorOpen("127.0.0.1", r.socket.port));
    std::string report;
    for (int i = 0; i < 5000; i++) report += char('a' + i % 26);
    QERROR("first %d", 1);
    QWARNING("second\n");
    QINFO("an info report reaches standard error only\n");
    qmsgwrite(QMSG_ERR | QMSG_NOMIRROR, nullptr, "not for the mirror");
    QDEBUG("%s", report.c_str());
    QERROR("%s", report.substr(0, 1400).c_str());
    QERROR("%s", report.substr(0, 1399).c_str());
    for (const std::string& line : {std::string("--- application start ---"), std::string("first 1"),
                                    std::string("second"), report.substr(0, 1400), report.substr(0, 1400),
                                    report.substr(0, 1399)})
        EXPECT_EQ(r.Next(), line);
    EXPECT_EQ(r.Next(kQuietMs), "<none>");
}

TEST_F(QNetworkTest, MirrorWantsAStartedLayerAndNoEarlierLineAndEndsWithShutdown) {
    Receiver r, other;
    EXPECT_FALSE(QNIsReady());
    EXPECT_FALSE(QNLogMirrorOpen("127.0.0.1", r.socket.port));
    EXPECT_EQ(CountLinesWith("QNLogMirrorOpen(); the network layer isn't started"), 1);
    ASSERT_TRUE(QNStartup());
    QERROR("before the mirror"); // switches it off
    EXPECT_FALSE(QNLogMirrorOpen("127.0.0.1", r.socket.port));
    EXPECT_EQ(CountLinesWith("(WARN ): [-] QNLogMirrorOpen(); the mirror was switched off by an earlier "
                             "report"), 1);
    QERROR("after");
    EXPECT_EQ(r.Next(kQuietMs), "<none>");
    QNShutdown(); // a line kept from the mirror leaves it unset
    qmsgReset();
    ASSERT_TRUE(QNStartup());
    qmsgwrite(QMSG_ERR | QMSG_NOMIRROR, nullptr, "private");
    ASSERT_TRUE(QNLogMirrorOpen("127.0.0.1", r.socket.port));
    QERROR("public");
    EXPECT_EQ(r.Next(), "public");
    QNShutdown();
    qmsgReset();
    ASSERT_TRUE(QNStartup());
    ASSERT_TRUE(QNStartup()); // a second start changes nothing
    ASSERT_TRUE(QNLogMirrorOpen("127.0.0.1", r.socket.port));
    QERROR("one");
    ASSERT_TRUE(QNLogMirrorOpen("127.0.0.1", other.socket.port)); // pointed elsewhere
    QERROR("to the other");
    EXPECT_EQ(r.Next(), "--- application start ---");
    EXPECT_EQ(r.Next(), "one");
    EXPECT_EQ(other.Next(), "to the other");
    QNShutdown();
    QNShutdown();
    EXPECT_FALSE(QNIsReady());
    QERROR("two");
    EXPECT_EQ(other.Next(kQuietMs), "<none>");
    ASSERT_TRUE(QNStartup());
    ASSERT_TRUE(QNLogMirrorOpen("127.0.0.1", r.socket.port));
    QERROR("three");
    EXPECT_EQ(r.Next(), "three");
}

TEST_F(QNetworkTest, FailureOfTheMirrorIsLoggedButNotMirrored) {
    ASSERT_TRUE(QNStartup());
    // The socket may not broadcast, so every send fails and is reported; that report comes back to
    // the log while the mirror runs, and must not be sent again.
    ASSERT_TRUE(QNLogMirrorOpen("255.255.255.255", ClosedPort()));
    QERROR("x");
    QERROR("y");
    std::vector<std::string> lines = LogLines();
    ASSERT_EQ(lines.size(), 6u);
    // Each failure stands below the line it failed to send and is never folded into a repeat.
    const std::string failed = "(WARN ): [-] [QN] QNSocket:Write(); [log mirror] failed (255.255.255.255:";
    const std::string heads[] = {"(INFO ): [-] --- application start ---", failed, "(ERR  ): [-] x [",
                                 failed, "(ERR  ): [-] y [", failed};
    for (size_t i = 0; i < 6; i++) EXPECT_TRUE(StartsWith(lines[i], heads[i])) << lines[i];
}
