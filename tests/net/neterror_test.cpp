// qnError: the error table, the translation of errno values and which codes stay quiet.
#include "net/neterror.h"
#include "tests/net/nettest.h"

#include <cerrno>
#include <string>

using namespace tarvik;
using namespace tarvik::test;

using QNErrorTest = NetTest;

TEST_F(QNErrorTest, TableTexts) {
    EXPECT_STREQ(qnErrorText(10035), "Resource temporarily unavailable");
    EXPECT_STREQ(qnErrorText(10036), "Blocking operation in progress");
    EXPECT_STREQ(qnErrorText(10038), "Not a socket");
    EXPECT_STREQ(qnErrorText(10040), "Message too long");
    EXPECT_STREQ(qnErrorText(10042), "Bad protocol option");
    EXPECT_STREQ(qnErrorText(10048), "Address in use");
    EXPECT_STREQ(qnErrorText(10049), "Cannot assign requested address");
    EXPECT_STREQ(qnErrorText(10054), "Connection reset");
    for (int code : {0, 10034, 10037, 10053, 10055, 10065, -1, 35, 54})
        EXPECT_STREQ(qnErrorText(code), "<unknown error>") << code;
}

TEST_F(QNErrorTest, ErrnoValuesMapToTableCodes) {
    EXPECT_EQ(qnErrorCode(EWOULDBLOCK), 10035);
    EXPECT_EQ(qnErrorCode(EAGAIN), 10035);
    EXPECT_EQ(qnErrorCode(EINPROGRESS), 10036);
    EXPECT_EQ(qnErrorCode(ENOTSOCK), 10038);
    EXPECT_EQ(qnErrorCode(EBADF), 10038);
    EXPECT_EQ(qnErrorCode(EMSGSIZE), 10040);
    EXPECT_EQ(qnErrorCode(ENOPROTOOPT), 10042);
    EXPECT_EQ(qnErrorCode(EADDRINUSE), 10048);
    EXPECT_EQ(qnErrorCode(EADDRNOTAVAIL), 10049);
    EXPECT_EQ(qnErrorCode(ECONNRESET), 10054);
    EXPECT_EQ(qnErrorCode(ECONNREFUSED), 10054);
    EXPECT_EQ(qnErrorCode(EHOSTUNREACH), 10065);
    EXPECT_EQ(qnErrorCode(ENETUNREACH), 10051);
    EXPECT_EQ(qnErrorCode(EACCES), 10013);
    EXPECT_EQ(qnErrorCode(EPERM), EPERM) << "an errno without a code stays as it is";
    EXPECT_EQ(qnErrorCode(0), 0);
}

TEST_F(QNErrorTest, SilentCodesLeaveNoLine) {
    qnReport(10035, "QNSocket:Write(); [x] failed");
    qnReport(10065, "QNSocket:Write(); [x] failed");
    EXPECT_FALSE(FileExists("QLOG.txt"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    testing::internal::CaptureStderr();
}

TEST_F(QNErrorTest, ReportEndsWithCodeAndText) {
    qnReport(10054, "QNSocket:Write(); [mirror] failed (10.0.0.1:9)");
    std::vector<std::string> lines = LogLines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "(INFO ): [-] --- application start ---");
    const std::string expected = "(WARN ): [-] [QN] QNSocket:Write(); [mirror] failed (10.0.0.1:9) "
                                 "(10054/Connection reset) [neterror.cpp:";
    EXPECT_EQ(lines[1].substr(0, expected.size()), expected);
    const std::string place = " / qnReport]";
    EXPECT_EQ(lines[1].substr(lines[1].size() - place.size()), place);
}

TEST_F(QNErrorTest, UnknownCodeIsStillReported) {
    qnReport(12345, "odd");
    EXPECT_EQ(CountLinesWith("[QN] odd (12345/<unknown error>)"), 1);
}

TEST_F(QNErrorTest, FormattedTextIsCutAt1023Characters) {
    PlatformNetConnect(0, QNAddress().addr); // leaves a known last error: no socket
    std::string longText(2000, 'x');
    qnError("%s", longText.c_str());
    std::vector<std::string> lines = LogLines();
    ASSERT_EQ(lines.size(), 2u);
    size_t begin = lines[1].find("[QN] ") + 5;
    size_t end = lines[1].find(" (", begin);
    EXPECT_EQ(end - begin, 1023u);
    EXPECT_EQ(lines[1].substr(end, 21), " (10038/Not a socket)");
}
