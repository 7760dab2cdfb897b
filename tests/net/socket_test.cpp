// QNSocket over the loopback address: opening, sending by each road, receiving, and failures that
// are reported once, or not at all where the code is a quiet one.
#include "net/neterror.h"
#include "tests/net/nettest.h"

#include <string>

using namespace tarvik;
using namespace tarvik::test;

using QNSocketTest = NetTest;

TEST_F(QNSocketTest, OpenBindsAPortTheSystemChose) {
    QNSocket s("probe");
    EXPECT_FALSE(s.IsOpen());
    EXPECT_EQ(s.fd, 0);
    ASSERT_TRUE(s.Open(QNS_DATAGRAM, 0, 0));
    EXPECT_TRUE(s.IsOpen());
    EXPECT_GT(s.fd, 0);
    EXPECT_GT(s.port, 0);
    EXPECT_EQ(s.local.GetPort(), s.port);
    EXPECT_EQ(s.type, QNS_DATAGRAM);
    s.Close();
    EXPECT_EQ(s.fd, 0);
    EXPECT_FALSE(FileExists("QLOG.txt"));
}

TEST_F(QNSocketTest, BindingATakenPortIsReported) {
    Receiver r;
    QNSocket s("second");
    EXPECT_FALSE(s.Open(QNS_DATAGRAM, 0, r.socket.port));
    EXPECT_FALSE(s.IsOpen());
    EXPECT_EQ(CountLinesWith("[QN] QNSocket:Open(); [second] can't bind port " +
                             std::to_string(r.socket.port) + " (10048/Address in use)"),
              1);
}

TEST_F(QNSocketTest, DatagramGoesToTheGivenAddress) {
    Receiver r;
    QNSocket s("sender");
    ASSERT_TRUE(s.Open(QNS_DATAGRAM, 0, 0));
    EXPECT_EQ(s.Write("hello", 5, &r.address), 5);

    char buffer[16] = {};
    QNAddress from;
    EXPECT_EQ(r.socket.Read(buffer, sizeof buffer, &from, kArriveMs), 5);
    EXPECT_EQ(std::string(buffer, 5), "hello");
    EXPECT_EQ(from.GetIp(), kLoopback);
    EXPECT_EQ(from.GetPort(), s.port);
    EXPECT_EQ(from.name, "127.0.0.1");
}

TEST_F(QNSocketTest, ReadCutsADatagramToTheBuffer) {
    Receiver r;
    QNSocket s("sender");
    ASSERT_TRUE(s.Open(QNS_DATAGRAM, 0, 0));
    ASSERT_EQ(s.Write("abcdefghij", 10, &r.address), 10);
    ASSERT_EQ(s.Write("", 0, &r.address), 0);
    char buffer[8] = {'#', '#', '#', '#', '#', '#', '#', '#'};
    EXPECT_EQ(r.socket.Read(buffer, 4, nullptr, kArriveMs), 4);
    EXPECT_EQ(std::string(buffer, 5), "abcd#");
    EXPECT_EQ(r.socket.Read(buffer, 4, nullptr, kArriveMs), 0) << "an empty datagram is one too";
    EXPECT_EQ(r.Next(kQuietMs), "<none>") << "the rest of the cut datagram is gone";
}

TEST_F(QNSocketTest, ReadThatFindsNothingFailsQuietly) {
    Receiver r;
    char buffer[4];
    EXPECT_LT(r.socket.Read(buffer, sizeof buffer, nullptr, 0), 0);
    EXPECT_LT(r.socket.Read(buffer, sizeof buffer, nullptr, kQuietMs), 0);
    EXPECT_FALSE(FileExists("QLOG.txt")) << "a read that would block is a quiet code";
}

TEST_F(QNSocketTest, DatagramWithoutTargetLogsItsErrorAndReturnsZero) {
    Receiver r;
    QNSocket s("sender");
    ASSERT_TRUE(s.Open(QNS_DATAGRAM, 0, 0));
    EXPECT_EQ(s.Write("hello", 5, nullptr), 0);
    std::vector<std::string> lines = LogLines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1].rfind("(ERR  ): [-] QNSocket:Write() [sender]; 'addr'=0 [socket.cpp:", 0), 0u)
        << lines[1];
    EXPECT_EQ(r.Next(kQuietMs), "<none>");
}

TEST_F(QNSocketTest, BroadcastIgnoresTheGivenAddress) {
    Receiver r;
    QNSocket s("caster");
    ASSERT_TRUE(s.Open(QNS_DATAGRAM, QNS_BROADCAST, 0));
    s.remote.Set(kLoopback, ClosedPort());
    s.Write("all", 3, &r.address);
    s.Write("all", 3, nullptr);
    // Whether the machine lets a broadcast out is its own business; where it went is the socket's.
    EXPECT_STREQ(s.remote.ToString(), "255.255.255.255");
    EXPECT_EQ(r.Next(kQuietMs), "<none>") << "the datagram went to the address given";
    EXPECT_EQ(CountLinesWith("'addr'=0"), 0);
}

TEST_F(QNSocketTest, ConnectedSocketSendsToItsPeer) {
    Receiver r;
    QNSocket s("line");
    ASSERT_TRUE(s.Open(QNS_CONNECTED, 0, 0));
    ASSERT_TRUE(s.Connect(r.address));
    EXPECT_EQ(s.remote.GetPort(), r.socket.port);
    EXPECT_EQ(s.Write("one", 3, nullptr), 3);
    EXPECT_EQ(r.Next(), "one");
}

TEST_F(QNSocketTest, SendToAClosedPortReportsOnceAndIsNotRetried) {
    QNSocket s("line");
    ASSERT_TRUE(s.Open(QNS_CONNECTED, 0, 0));
    QNAddress nobody;
    nobody.Set(kLoopback, ClosedPort());
    ASSERT_TRUE(s.Connect(nobody));
    // The refusal comes back to the first datagram and is handed to the next send: a send that tried
    // again after it would succeed and hide the failure.
    EXPECT_EQ(s.Write("x", 1, nullptr), 1);
    EXPECT_LT(s.Write("y", 1, nullptr), 0);
    std::string expected = "[QN] QNSocket:Write(); [line] failed (<no_addr>:" + std::to_string(s.port) +
                           ") (10054/Connection reset) [neterror.cpp:";
    EXPECT_EQ(CountLinesWith(expected), 1) << ReadFile("QLOG.txt");
    EXPECT_EQ(CountLinesWith("[QN]"), 1);
}

TEST_F(QNSocketTest, WriteOnAClosedSocketSaysNotASocket) {
    QNSocket s("shut");
    QNAddress to;
    to.Set(kLoopback, ClosedPort());
    EXPECT_LT(s.Write("z", 1, &to), 0);
    EXPECT_EQ(CountLinesWith("[QN] QNSocket:Write(); [shut] failed (127.0.0.1:0) (10038/Not a socket)"), 1);
}

TEST_F(QNSocketTest, DestructorClosesTheSocket) {
    int port;
    {
        QNSocket s("brief");
        ASSERT_TRUE(s.Open(QNS_DATAGRAM, 0, 0));
        port = s.port;
    }
    QNSocket t("taker");
    EXPECT_TRUE(t.Open(QNS_DATAGRAM, 0, port));
}
