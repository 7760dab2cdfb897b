// QSplit: the separator sets of each type, folding of separator runs, kept empty fields, the
// name=value parting, the a=b&c=d form with its decoding, and texts far larger than a line.
#include "foundation/qmessage.h"
#include "foundation/qsplit.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace tarvik;
using namespace tarvik::test;

namespace {

class QSplitTest : public ::testing::Test {
protected:
    void SetUp() override { qmsgReset(); }
    TempDir dir{true}; // warnings land in QLOG.txt of the current directory
};

std::vector<std::string> Values(const QSplit& s)
{
    std::vector<std::string> out;
    for (int i = 0; i < s.GetCount(); i++) out.push_back(s.GetValue(i).cstr());
    return out;
}

std::vector<std::string> Names(const QSplit& s)
{
    std::vector<std::string> out;
    for (int i = 0; i < s.GetCount(); i++) out.push_back(s.GetName(i).cstr());
    return out;
}

using V = std::vector<std::string>;

} // namespace

TEST_F(QSplitTest, TabsFoldIntoOneSeparator)
{
    QSplit s("a\t\tb\n", QSplit::QSPLIT_TAB, 0, 8);
    EXPECT_EQ(Values(s), (V{"a", "b"}));
    EXPECT_EQ(Names(s), (V{"", ""}));
}

TEST_F(QSplitTest, EmptyTextHasNoFieldAndOutOfRangeIsEmpty)
{
    QSplit s("", QSplit::QSPLIT_WHITE);
    EXPECT_EQ(s.GetCount(), 0);
    EXPECT_STREQ(s.GetValue(0).cstr(), "");
    EXPECT_STREQ(s.GetValue(-1).cstr(), "");
    QSplit t("x", QSplit::QSPLIT_WHITE);
    EXPECT_STREQ(t.GetValue(1).cstr(), "");
    QSplit onlySeparators(" \t\n \n", QSplit::QSPLIT_WHITE);
    EXPECT_EQ(onlySeparators.GetCount(), 0);
}

TEST_F(QSplitTest, EachTypeHasItsOwnSeparators)
{
    const char* text = " a b\tc;d,e/f=g\nh ";
    EXPECT_EQ(Values(QSplit(text, 0)), (V{"a", "b", "c;d,e/f=g", "h"}));
    EXPECT_EQ(Values(QSplit(text, 2)), (V{" a b\tc", "d,e/f=g\nh "}));
    EXPECT_EQ(Values(QSplit(text, 3)), (V{" a b\tc;d", "e/f=g\nh "}));
    EXPECT_EQ(Values(QSplit(text, 4)), (V{" a b", "c;d,e/f=g", "h "}));
    EXPECT_EQ(Values(QSplit(text, 5)), (V{" a b\tc;d,e", "f=g\nh "}));
    EXPECT_EQ(Values(QSplit(text, 7)), (V{" a b\tc;d,e/f", "g\nh "}));
}

TEST_F(QSplitTest, UnknownTypeWarnsAndLeavesNoFields)
{
    for (int type : {6, 8, -1}) {
        testing::internal::CaptureStderr();
        QSplit s("a b c", type);
        std::string err = testing::internal::GetCapturedStderr();
        EXPECT_EQ(s.GetCount(), 0);
        EXPECT_EQ(err, "QSplit: unknown split type " + std::to_string(type) + "\n");
    }
    EXPECT_NE(ReadFile("QLOG.txt").find("QSplit: unknown split type 6"), std::string::npos);
}

TEST_F(QSplitTest, KeepEmptyEndsAFieldAtEverySeparator)
{
    EXPECT_EQ(Values(QSplit("a;;b;", 2, QSplit::QSPLIT_KEEP_EMPTY)), (V{"a", "", "b"}));
    EXPECT_EQ(Values(QSplit(";", 2, QSplit::QSPLIT_KEEP_EMPTY)), (V{""}));
    EXPECT_EQ(Values(QSplit("a,b", 3, QSplit::QSPLIT_KEEP_EMPTY)), (V{"a"})); // text behind the last makes none
    EXPECT_EQ(Values(QSplit("tail", 3, QSplit::QSPLIT_KEEP_EMPTY)), V{});
    EXPECT_EQ(Values(QSplit("\t\ta\n", 4, QSplit::QSPLIT_KEEP_EMPTY)), (V{"", "", "a"}));
}

TEST_F(QSplitTest, KeyModePartsFieldsAtTheirFirstEquals)
{
    QSplit s("a=1 plain c= =x k=v=w", QSplit::QSPLIT_WHITE, 0, 0);
    EXPECT_EQ(Names(s), (V{"a", "", "c", "", "k"}));
    EXPECT_EQ(Values(s), (V{"1", "plain", "", "x", "v=w"}));
    QSplit plain("a=1 b", QSplit::QSPLIT_WHITE, 0, 8);
    EXPECT_EQ(Names(plain), (V{"", ""}));
    EXPECT_EQ(Values(plain), (V{"a=1", "b"}));
}

TEST_F(QSplitTest, AmpersandFormDecodesValues)
{
    QSplit s("&name=John+Doe&code=%41%62%2b&eq=a=b&empty=", QSplit::QSPLIT_AMPERSAND);
    EXPECT_EQ(Names(s), (V{"name", "code", "eq", "empty"}));
    EXPECT_EQ(Values(s), (V{"John Doe", "Ab+", "a=b", ""}));
}

TEST_F(QSplitTest, AmpersandPieceWithoutEqualsWarns)
{
    testing::internal::CaptureStderr();
    QSplit s("x=1&flag", QSplit::QSPLIT_AMPERSAND);
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, "QSplit:SplitAmpersand; no '=' in arg 'flag'\n");
    ASSERT_EQ(s.GetCount(), 2);
    EXPECT_STREQ(s.GetName(1).cstr(), "flag");
    EXPECT_STREQ(s.GetValue(1).cstr(), "");
    EXPECT_STREQ(s.GetValue(0).cstr(), "1");
}

TEST_F(QSplitTest, ManyFieldsGrowTheArrays)
{
    std::string text;
    for (int i = 0; i < 137; i++) text += "f" + std::to_string(i) + ",";
    QSplit s(text.c_str(), QSplit::QSPLIT_COMMA);
    ASSERT_EQ(s.GetCount(), 137);
    for (int i = 0; i < 137; i++) EXPECT_EQ(s.GetValue(i).cstr(), "f" + std::to_string(i));
}

TEST_F(QSplitTest, TenMegabyteTextSplits)
{
    // 100000 fields of 99 characters each, and one field of the whole size.
    std::string text;
    text.reserve(10000000);
    for (int i = 0; i < 100000; i++) {
        std::string f = std::to_string(i);
        text += f + std::string(size_t(99) - f.size(), 'x') + "\t";
    }
    QSplit s(text.c_str(), QSplit::QSPLIT_TAB);
    ASSERT_EQ(s.GetCount(), 100000);
    EXPECT_EQ(s.GetValue(0).GetLength(), 99);
    EXPECT_EQ(std::string(s.GetValue(99999).cstr()).substr(0, 6), "99999x");

    std::string one(10000000, 'y');
    QSplit whole(one.c_str(), QSplit::QSPLIT_WHITE);
    ASSERT_EQ(whole.GetCount(), 1);
    EXPECT_EQ(whole.GetValue(0).GetLength(), 10000000);
}
