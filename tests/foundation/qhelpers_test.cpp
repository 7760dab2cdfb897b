// Cases for the counted allocation and stream wrappers and the small text helpers.
#include "foundation/qhelpers.h"

#include "foundation/qmessage.h"

#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <string>

using namespace tarvik;

TEST(QHelpersTest, AllocationsAreCountedUntilFreed)
{
    int before = qGetAllocCount();
    void* a = qmalloc(16);
    void* b = qcalloc(16);
    ASSERT_NE(nullptr, a);
    ASSERT_NE(nullptr, b);
    EXPECT_EQ(before + 2, qGetAllocCount());
    for (int i = 0; i < 16; i++) EXPECT_EQ(0, static_cast<unsigned char*>(b)[i]);
    qfree(a);
    qfree(b);
    EXPECT_EQ(before, qGetAllocCount());
}

TEST(QHelpersTest, FailedAllocationIsCountedAllTheSame)
{
    int before = qGetAllocCount();
    qSetAllocFailure(1);
    EXPECT_EQ(nullptr, qmalloc(8));
    EXPECT_EQ(before + 1, qGetAllocCount());
    void* ok = qmalloc(8); // only the one allocation fails
    EXPECT_NE(nullptr, ok);
    qfree(ok);
    qSetAllocFailure(1);
    EXPECT_EQ(nullptr, qstrdup("abc"));
    EXPECT_EQ(before + 2, qGetAllocCount());
    qSetAllocFailure(0);
    qfree(nullptr);
    qfree(nullptr);
    EXPECT_EQ(before, qGetAllocCount());
}

TEST(QHelpersTest, StrdupCopiesIntoACountedZeroedBlock)
{
    int before = qGetAllocCount();
    const char text[] = "hello";
    char* copy = qstrdup(text);
    ASSERT_NE(nullptr, copy);
    EXPECT_NE(text, copy);
    EXPECT_STREQ("hello", copy);
    EXPECT_EQ(before + 1, qGetAllocCount());
    qfree(copy);

    char* empty = qstrdup("");
    ASSERT_NE(nullptr, empty);
    EXPECT_EQ('\0', empty[0]);
    qfree(empty);
    EXPECT_EQ(before, qGetAllocCount());
}

TEST(QHelpersTest, StrlenCountsCharacters)
{
    EXPECT_EQ(0, qstrlen(""));
    EXPECT_EQ(5, qstrlen("ab\xe9\xff!"));
}

TEST(QHelpersTest, StrlwrLowerCasesInPlaceWithTheStandardTable)
{
    char text[] = "AbC-Z\xc0\xde";
    EXPECT_EQ(text, qstrlwr(text));
    EXPECT_STREQ("abc-z\xc0\xde", text); // Latin-1 capitals are left to the "C" locale
}

TEST(QHelpersTest, ToUpperMapsLatin1LowerCaseLetters)
{
    EXPECT_EQ(192, qtoupper(224));
    EXPECT_EQ(197, qtoupper(229));
    EXPECT_EQ(199, qtoupper(231));
    EXPECT_EQ(207, qtoupper(239));
    EXPECT_EQ('?', qtoupper(240)); // not 208
    EXPECT_EQ(209, qtoupper(241));
    EXPECT_EQ(214, qtoupper(246));
    EXPECT_EQ(216, qtoupper(248));
    EXPECT_EQ(221, qtoupper(253));
}

TEST(QHelpersTest, ToUpperLeavesOtherBytesToTheStandardTable)
{
    EXPECT_EQ(230, qtoupper(230));
    EXPECT_EQ(247, qtoupper(247));
    EXPECT_EQ(254, qtoupper(254));
    EXPECT_EQ(255, qtoupper(255));
    EXPECT_EQ('A', qtoupper('a'));
    EXPECT_EQ('Z', qtoupper('z'));
    EXPECT_EQ('A', qtoupper('A'));
    EXPECT_EQ('{', qtoupper('{'));
    EXPECT_EQ('5', qtoupper('5'));
    EXPECT_EQ(0, qtoupper(0));
    // Capitals and symbols of the upper half stay as they are.
    for (int c = 128; c < 224; c++) EXPECT_EQ(c, qtoupper(c)) << c;
}

TEST(QHelpersTest, StruprUsesTheLatin1Table)
{
    char text[] = "az\xe0\xe6\xf0\xf7\xfd\xfe\xff.";
    EXPECT_EQ(text, qstrupr(text));
    EXPECT_STREQ("AZ\xc0\xe6?\xf7\xdd\xfe\xff.", text);

    char all[256];
    for (int i = 1; i < 256; i++) all[i - 1] = char(i);
    all[255] = 0;
    qstrupr(all);
    for (int i = 1; i < 256; i++) EXPECT_EQ(qtoupper(i), static_cast<unsigned char>(all[i - 1])) << i;
}

TEST(QHelpersTest, StruprOnEmptyTextTouchesNothing)
{
    char text[] = {'\0', 'x', '\0'};
    EXPECT_EQ(text, qstrupr(text));
    EXPECT_EQ('\0', text[0]);
    EXPECT_EQ('x', text[1]);
}

TEST(QHelpersTest, FopenAndFcloseKeepTheOpenFileCount)
{
    test::TempDir dir;
    int before = qGetOpenFileCount();
    EXPECT_EQ(nullptr, qfopen(dir.File("missing.txt").c_str(), "rb"));
    EXPECT_EQ(before, qGetOpenFileCount());

    FILE* f = qfopen(dir.File("out.txt").c_str(), "wb");
    ASSERT_NE(nullptr, f);
    EXPECT_EQ(before + 1, qGetOpenFileCount());
    std::fputs("data", f);
    EXPECT_EQ(0, qfclose(f));
    EXPECT_EQ(before, qGetOpenFileCount());
    EXPECT_EQ("data", test::ReadFile(dir.File("out.txt")));
}

TEST(QHelpersTest, FcloseOfNullIsReportedAndIgnored)
{
    test::TempDir dir(true); // the report also goes to QLOG.txt in the working directory
    qmsgReset(); // a fold with an earlier identical report would keep the line out of this log
    int before = qGetOpenFileCount();
    testing::internal::CaptureStderr();
    qfclose(nullptr);
    EXPECT_EQ("qfclose(0) called\n", testing::internal::GetCapturedStderr());
    EXPECT_EQ(before, qGetOpenFileCount());
    EXPECT_NE(std::string::npos, test::ReadFile("QLOG.txt").find("qfclose(0) called"));
}
