// The network layer's life and the log's mirror: every report line reaches a receiver on the loopback
// address as one datagram, cut to 1400 bytes; the first line that finds no mirror switches it off.
#include "tests/net/nettest.h"

#include <string>

using namespace tarvik;
using namespace tarvik::test;

using QNetworkTest = NetTest;

TEST_F(QNetworkTest, MirrorSendsEachReportLine) {
    Receiver r;
    ASSERT_TRUE(QNStartup());
    ASSERT_TRUE(QNLogMirrorOpen("127.0.0.1", r.socket.port));
    QERROR("first %d", 1);
    QWARNING("second\n");
    QINFO("an info report reaches standard error only\n");
    QDEBUG("third");
    qmsgwrite(QMSG_ERR | QMSG_NOMIRROR, nullptr, "not for the mirror");
    QERROR("fourth");
    EXPECT_EQ(r.Next(), "--- application start ---");
    EXPECT_EQ(r.Next(), "first 1");
    EXPECT_EQ(r.Next(), "second");
    EXPECT_EQ(r.Next(), "third");
    EXPECT_EQ(r.Next(), "fourth");
    EXPECT_EQ(r.Next(kQuietMs), "<none>");
}

TEST_F(QNetworkTest, LongReportGoesOutAs1400Bytes) {
    Receiver r;
    ASSERT_TRUE(QNStartup());
    ASSERT_TRUE(QNLogMirrorOpen("127.0.0.1", r.socket.port));
    std::string report;
    for (int i = 0; i < 5000; i++)
        report += char('a' + i % 26);
    QERROR("%s", report.c_str());
    QERROR("%s", report.substr(0, 1400).c_str());
    QERROR("%s", report.substr(0, 1399).c_str());
    EXPECT_EQ(r.Next(), "--- application start ---");
    EXPECT_EQ(r.Next(), report.substr(0, 1400));
    EXPECT_EQ(r.Next(), report.substr(0, 1400));
    EXPECT_EQ(r.Next(), report.substr(0, 1399));
}

TEST_F(QNetworkTest, FirstLineWithoutMirrorSwitchesItOff) {
    Receiver r;
    ASSERT_TRUE(QNStartup());
    QERROR("before the mirror");
    EXPECT_FALSE(QNLogMirrorOpen("127.0.0.1", r.socket.port));
    EXPECT_EQ(
        CountLinesWith("(WARN ): [-] QNLogMirrorOpen(); the mirror was switched off by an earlier report"),
        1);
    QERROR("after");
    EXPECT_EQ(r.Next(kQuietMs), "<none>");
}

TEST_F(QNetworkTest, LineKeptFromTheMirrorLeavesItUnset) {
    Receiver r;
    ASSERT_TRUE(QNStartup());
    qmsgwrite(QMSG_ERR | QMSG_NOMIRROR, nullptr, "private");
    ASSERT_TRUE(QNLogMirrorOpen("127.0.0.1", r.socket.port));
    QERROR("public");
    EXPECT_EQ(r.Next(), "public");
}

TEST_F(QNetworkTest, MirrorWantsAStartedLayer) {
    Receiver r;
    EXPECT_FALSE(QNLogMirrorOpen("127.0.0.1", r.socket.port));
    EXPECT_EQ(CountLinesWith("QNLogMirrorOpen(); the network layer isn't started"), 1);
    EXPECT_EQ(r.Next(kQuietMs), "<none>");
}

TEST_F(QNetworkTest, ShutdownStopsTheMirrorAndStartupBeginsAfresh) {
    Receiver r;
    EXPECT_FALSE(QNIsReady());
    ASSERT_TRUE(QNStartup());
    ASSERT_TRUE(QNStartup());
    ASSERT_TRUE(QNLogMirrorOpen("127.0.0.1", r.socket.port));
    QERROR("one");
    EXPECT_EQ(r.Next(), "--- application start ---");
    EXPECT_EQ(r.Next(), "one");
    QNShutdown();
    QNShutdown();
    EXPECT_FALSE(QNIsReady());
    QERROR("two");
    EXPECT_EQ(r.Next(kQuietMs), "<none>");

    ASSERT_TRUE(QNStartup());
    ASSERT_TRUE(QNLogMirrorOpen("127.0.0.1", r.socket.port));
    QERROR("three");
    EXPECT_EQ(r.Next(), "three");
}

TEST_F(QNetworkTest, MirrorCanBePointedElsewhere) {
    Receiver first, second;
    ASSERT_TRUE(QNStartup());
    ASSERT_TRUE(QNLogMirrorOpen("127.0.0.1", first.socket.port));
    QERROR("to the first");
    ASSERT_TRUE(QNLogMirrorOpen("127.0.0.1", second.socket.port));
    QERROR("to the second");
    EXPECT_EQ(first.Next(), "--- application start ---");
    EXPECT_EQ(first.Next(), "to the first");
    EXPECT_EQ(second.Next(), "to the second");
    EXPECT_EQ(first.Next(kQuietMs), "<none>");
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
    const std::string failed = "(WARN ): [-] [QN] QNSocket:Write(); [log mirror] failed (255.255.255.255:";
    EXPECT_EQ(lines[0], "(INFO ): [-] --- application start ---");
    EXPECT_EQ(lines[2].rfind("(ERR  ): [-] x [", 0), 0u) << lines[2];
    EXPECT_EQ(lines[4].rfind("(ERR  ): [-] y [", 0), 0u) << lines[4];
    // Each failure stands below the line it failed to send, and is never folded into a repeat:
    // a failure mirrored again would fail again with the same text.
    for (int i : {1, 3, 5})
        EXPECT_EQ(lines[size_t(i)].rfind(failed, 0), 0u) << lines[size_t(i)];
}
