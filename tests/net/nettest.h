// What the network cases share: a fresh directory for QLOG.txt, a fresh log and network layer, and
// a receiver on the loopback address at a port the system chose, so that parallel runs never meet.
#pragma once

#include "foundation/qmessage.h"
#include "net/addr.h"
#include "net/network.h"
#include "net/socket.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tarvik {
namespace test {

const uint32_t kLoopback = 0x7f000001;
const int kArriveMs = 2000; // a datagram that is sent arrives long before; the wait ends with it
// Loopback delivery is done when the send returns; the wait only covers a machine under load.
const int kQuietMs = 50;

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

// A port on the loopback address where nobody listens: the system chose it, and it was let go.
inline int ClosedPort() {
    QNSocket socket("closed");
    EXPECT_TRUE(socket.Open(QNS_DATAGRAM, 0, 0));
    return socket.port;
}

// The lines of QLOG.txt, times cut off.
inline std::vector<std::string> LogLines() {
    std::vector<std::string> lines;
    std::string text = LogWithoutTimes(ReadFile("QLOG.txt"));
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

inline int CountLinesWith(const std::string& part) {
    int count = 0;
    for (const std::string& line : LogLines())
        if (line.find(part) != std::string::npos) count++;
    return count;
}

class NetTest : public ::testing::Test {
  protected:
    void SetUp() override {
        QNShutdown();
        qmsgReset();
        testing::internal::CaptureStderr(); // the echo of every report; kept out of the test output
    }
    void TearDown() override {
        QNShutdown();
        qmsgReset();
        testing::internal::GetCapturedStderr();
    }

    TempDir dir{true};
};

} // namespace test
} // namespace tarvik
