#include "foundation/qeval.h"
#include "foundation/qmessage.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <string>

using namespace tarvik;
using tarvik::test::TempDir;

namespace {

std::string Repeat(const std::string& piece, size_t n)
{
    std::string s;
    s.reserve(piece.size() * n);
    for (size_t i = 0; i < n; i++)
        s += piece;
    return s;
}

// "1+1+...+1" with n ones.
std::string OnesSum(int n)
{
    return "1" + Repeat("+1", size_t(n - 1));
}

std::string OverflowWarning(const std::string& text)
{
    return "Eval(): '" + text + "' needs more than 40 numbers and operators; the rest is ignored\n";
}

class EvalTest : public ::testing::Test {
protected:
    void SetUp() override { qmsgReset(); }
    TempDir dir{true}; // warnings also go to QLOG.txt in the current directory
};

} // namespace

// ---- Precedence and associativity ---------------------------------------------------------------

TEST_F(EvalTest, ArithmeticPrecedence)
{
    EXPECT_EQ(Eval("2+3*4"), 14);
    EXPECT_EQ(Eval("(2+3)*4"), 20);
    EXPECT_EQ(Eval("7/2"), 3);
    EXPECT_EQ(Eval("7%3"), 1);
    EXPECT_EQ(Eval("10-4-3"), 3);   // left-associative
    EXPECT_EQ(Eval("100/10/5"), 2); // left-associative
    EXPECT_EQ(Eval("3x4"), 12);
    EXPECT_EQ(Eval("3X4"), 3); // only the lower-case x multiplies
    EXPECT_EQ(Eval("4*1024"), 4096);
}

TEST_F(EvalTest, BitOperatorLevels)
{
    EXPECT_EQ(Eval("1+2&3"), 3); // (1+2)&3
    EXPECT_EQ(Eval("1|2&3"), 3); // 1|(2&3)
    EXPECT_EQ(Eval("6^3&5"), 5); // & and ^ share a level, left to right: (6^3)&5
    EXPECT_EQ(Eval("6&3^5"), 7); // (6&3)^5
    EXPECT_EQ(Eval("1|8"), 9);
    EXPECT_EQ(Eval("1|1^1"), 1); // 1|(1^1)
}

TEST_F(EvalTest, PrefixTakesAWholeExpression)
{
    EXPECT_EQ(Eval("-7/2"), -3);
    EXPECT_EQ(Eval("-2+3"), -5);
    EXPECT_EQ(Eval("~1|2"), -4);
    EXPECT_EQ(Eval("2*-3+1"), -8);
    EXPECT_EQ(Eval("+5"), 5);
    EXPECT_EQ(Eval("--5"), 5);
    EXPECT_EQ(Eval("~0"), -1);
}

TEST_F(EvalTest, DivisionAndRemainderByZeroGiveZeroSilently)
{
    testing::internal::CaptureStderr();
    EXPECT_EQ(Eval("5/0"), 0);
    EXPECT_EQ(Eval("5%0"), 0);
    EXPECT_EQ(Eval("5/(2-2)+1"), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// ---- Numbers ------------------------------------------------------------------------------------

TEST_F(EvalTest, NumberForms)
{
    EXPECT_EQ(Eval("$ff"), 255);
    EXPECT_EQ(Eval("$FF00"), 0xFF00);
    EXPECT_EQ(Eval("0xFF"), 255);
    EXPECT_EQ(Eval("0Xff"), 255);
    EXPECT_EQ(Eval("0377"), 255);
    EXPECT_EQ(Eval("#11111111"), 255);
    EXPECT_EQ(Eval("0"), 0);
    EXPECT_EQ(Eval("09"), 0);   // octal stops at the 9, which fits nowhere
    EXPECT_EQ(Eval("#102"), 2); // binary stops at the 2
}

TEST_F(EvalTest, ValuesWrapAroundIn32Bits)
{
    EXPECT_EQ(Eval("4294967295"), -1);
    EXPECT_EQ(Eval("4294967296"), 0);
    EXPECT_EQ(Eval("2147483647+1"), INT_MIN);
    EXPECT_EQ(Eval("$FFFFFFFF+2"), 1);
    EXPECT_EQ(Eval("65536*65536"), 0);
    EXPECT_EQ(Eval("-2147483647-1"), INT_MIN + 2); // -(2147483647-1)
    EXPECT_EQ(Eval("0-2147483647-1"), INT_MIN);
}

// ---- Blanks and characters that fit nowhere -----------------------------------------------------

TEST_F(EvalTest, BlanksBetweenTokensButNotInsideNumbers)
{
    EXPECT_EQ(Eval(" 1 + 2 "), 3);
    EXPECT_EQ(Eval("1 2"), 1);
    EXPECT_EQ(Eval("( 2 + 3 ) * 4"), 20);
    EXPECT_EQ(Eval("   "), 0);
}

TEST_F(EvalTest, UnreadableRestEndsTheExpression)
{
    EXPECT_EQ(Eval("12abc"), 12);
    EXPECT_EQ(Eval("1.5"), 1);
    EXPECT_EQ(Eval("true"), 0);
    EXPECT_EQ(Eval(""), 0);
    EXPECT_EQ(Eval("(2+3"), 5); // a missing ')' isn't noticed
    EXPECT_EQ(Eval("2*"), 2);   // the operator finds one value and is skipped
    EXPECT_EQ(Eval("2+"), 2);
    EXPECT_EQ(Eval("*3"), 0);
    EXPECT_EQ(Eval("-"), 0);
    EXPECT_EQ(Eval(")"), 0);
}

TEST_F(EvalTest, NullPointerWarns)
{
    testing::internal::CaptureStderr();
    EXPECT_EQ(Eval(nullptr), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Eval() is passed 0-pointer\n");
}

// ---- Limits -------------------------------------------------------------------------------------

TEST_F(EvalTest, FortyProgramEntriesAreFine)
{
    testing::internal::CaptureStderr();
    EXPECT_EQ(Eval(OnesSum(20).c_str()), 20);                 // 39 entries
    EXPECT_EQ(Eval(("-(" + OnesSum(20) + ")").c_str()), -20); // 40 entries
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(EvalTest, LongerProgramWarnsAndKeepsTheLongestWholePart)
{
    std::string text = OnesSum(30);
    testing::internal::CaptureStderr();
    EXPECT_EQ(Eval(text.c_str()), 20);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), OverflowWarning(text));

    text = OnesSum(21); // 41 entries: the 41st is the last '+'
    testing::internal::CaptureStderr();
    EXPECT_EQ(Eval(text.c_str()), 20);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), OverflowWarning(text));

    // Products keep their own precedence in the part that is kept.
    text = "2" + Repeat("*2", 30);
    testing::internal::CaptureStderr();
    EXPECT_EQ(Eval(text.c_str()), 1 << 20);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), OverflowWarning(text));

    // The evaluator's state is reset: a short expression afterwards is whole again.
    EXPECT_EQ(Eval("2+3"), 5);
}

TEST_F(EvalTest, NestingDepthIsBounded)
{
    EXPECT_EQ(Eval((Repeat("(", 150) + "7" + Repeat(")", 150)).c_str()), 7);
    EXPECT_EQ(Eval((Repeat("(", 150) + "7").c_str()), 7);
    EXPECT_EQ(Eval((Repeat("(", 200) + "7").c_str()), 7);
    EXPECT_EQ(Eval((Repeat("(", 201) + "7").c_str()), 0); // ends before the number
    EXPECT_EQ(Eval((Repeat("+", 200) + "7").c_str()), 7);
    EXPECT_EQ(Eval((Repeat("+", 201) + "7").c_str()), 0);
    EXPECT_EQ(Eval((Repeat("+", 100) + Repeat("(", 100) + "7").c_str()), 7);
    EXPECT_EQ(Eval((Repeat("(", 1000) + "7").c_str()), 0);
    EXPECT_EQ(Eval((Repeat("--", 15) + "7").c_str()), 7);
    EXPECT_EQ(Eval((Repeat("~~", 15) + "7").c_str()), 7);
}

TEST_F(EvalTest, HugeTextsFinishQuicklyAndCleanly)
{
    const size_t n = 100000;
    const std::string shapes[] = {
        OnesSum(int(n / 2)),  Repeat("(", n) + "1", Repeat("(", n / 2) + Repeat(")", n / 2),
        Repeat("-", n) + "1", Repeat("~", n) + "1", Repeat("+", n) + "1",
        Repeat("1*(", n / 3), Repeat("(1+", n / 3), Repeat("-(", n / 2),
        Repeat("1|", n / 2),  Repeat("9", n),       Repeat(" ", n) + "5",
        Repeat("1 ", n / 2),
    };
    auto start = std::chrono::steady_clock::now();
    testing::internal::CaptureStderr();
    int32_t results[sizeof shapes / sizeof shapes[0]];
    for (size_t i = 0; i < sizeof shapes / sizeof shapes[0]; i++)
        results[i] = Eval(shapes[i].c_str());
    std::string err = testing::internal::GetCapturedStderr();
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_LT(seconds, 30.0); // a guard against runaway work, not a speed goal
    EXPECT_EQ(results[0], 20);
    EXPECT_EQ(results[1], 0);
    EXPECT_EQ(results[3], 0);
    EXPECT_EQ(results[9], 1);
    EXPECT_EQ(results[11], 5);
    EXPECT_EQ(results[12], 1);
    EXPECT_EQ(err.rfind("Eval(): '1+1+1+1", 0), 0u); // the message itself is cut to the log's limit
    // Afterwards everything works as before.
    EXPECT_EQ(Eval("(2+3)*4"), 20);
}
