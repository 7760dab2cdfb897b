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
    for (size_t i = 0; i < n; i++) s += piece;
    return s;
}

std::string OnesSum(int n) { return "1" + Repeat("+1", size_t(n - 1)); } // "1+1+...+1", n ones

struct Case {
    std::string text;
    int32_t value;
};

class EvalTest : public ::testing::Test {
protected:
    void SetUp() override { qmsgReset(); }

    // Evaluates every case and expects nothing on standard error.
    void ExpectAll(std::initializer_list<Case> cases)
    {
        testing::internal::CaptureStderr();
        for (const Case& c : cases) EXPECT_EQ(Eval(c.text.c_str()), c.value) << "'" << c.text << "'";
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    }

    // Expects 'text' to give 'value' and the warning that its program was cut.
    void ExpectCut(const std::string& text, int32_t value)
    {
        testing::internal::CaptureStderr();
        EXPECT_EQ(Eval(text.c_str()), value);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "Eval(): '" + text + "' needs more than 40 numbers and operators; the rest is ignored\n");
    }

    TempDir dir{true}; // warnings also go to QLOG.txt in the current directory
};

} // namespace

TEST_F(EvalTest, PrecedenceAndAssociativity)
{
    ExpectAll({{"2+3*4", 14}, {"(2+3)*4", 20}, {"7/2", 3}, {"7%3", 1}, {"10-4-3", 3}, {"100/10/5", 2},
               {"3x4", 12}, {"3X4", 3} /* only the lower-case x multiplies */, {"4*1024", 4096},
               // & and ^ share a level below + and above |, left to right.
               {"1+2&3", 3}, {"1|2&3", 3}, {"6^3&5", 5}, {"6&3^5", 7}, {"1|8", 9}, {"1|1^1", 1},
               // A prefix takes the whole expression after it.
               {"-7/2", -3}, {"-2+3", -5}, {"~1|2", -4}, {"2*-3+1", -8}, {"+5", 5}, {"--5", 5}, {"~0", -1},
               // Division and remainder by zero give zero, silently.
               {"5/0", 0}, {"5%0", 0}, {"5/(2-2)+1", 1}});
}

TEST_F(EvalTest, NumberFormsAndWrapAroundIn32Bits)
{
    ExpectAll({{"$ff", 255}, {"$FF00", 0xFF00}, {"0xFF", 255}, {"0Xff", 255}, {"0377", 255}, {"#11111111", 255},
               {"0", 0}, {"09", 0} /* octal stops at the 9 */, {"#102", 2} /* binary stops at the 2 */,
               {"4294967295", -1}, {"4294967296", 0}, {"2147483647+1", INT_MIN}, {"$FFFFFFFF+2", 1},
               {"65536*65536", 0}, {"-2147483647-1", INT_MIN + 2} /* -(2147483647-1) */, {"0-2147483647-1", INT_MIN}});
}

TEST_F(EvalTest, BlanksAndUnreadableRest)
{
    ExpectAll({{" 1 + 2 ", 3}, {"1 2", 1}, {"( 2 + 3 ) * 4", 20}, {"   ", 0}, {"12abc", 12}, {"1.5", 1},
               {"true", 0}, {"", 0}, {"(2+3", 5} /* a missing ')' isn't noticed */,
               {"2*", 2} /* the operator finds one value and is skipped */, {"2+", 2}, {"*3", 0}, {"-", 0},
               {")", 0}});
    testing::internal::CaptureStderr();
    EXPECT_EQ(Eval(nullptr), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Eval() is passed 0-pointer\n");
}

TEST_F(EvalTest, FortyProgramEntriesFitAndLongerOnesKeepTheLongestWholePart)
{
    ExpectAll({{OnesSum(20), 20} /* 39 entries */, {"-(" + OnesSum(20) + ")", -20} /* 40 */});
    ExpectCut(OnesSum(30), 20);
    ExpectCut(OnesSum(21), 20);                  // 41 entries: the 41st is the last '+'
    ExpectCut("2" + Repeat("*2", 30), 1 << 20); // products keep their precedence in the kept part
    EXPECT_EQ(Eval("2+3"), 5);                   // the state is reset afterwards
}

TEST_F(EvalTest, NestingDepthIsBounded)
{
    ExpectAll({{Repeat("(", 150) + "7" + Repeat(")", 150), 7}, {Repeat("(", 150) + "7", 7},
               {Repeat("(", 200) + "7", 7}, {Repeat("(", 201) + "7", 0} /* ends before the number */,
               {Repeat("+", 200) + "7", 7}, {Repeat("+", 201) + "7", 0}, {Repeat("+", 100) + Repeat("(", 100) + "7", 7},
               {Repeat("(", 1000) + "7", 0}, {Repeat("--", 15) + "7", 7}, {Repeat("~~", 15) + "7", 7}});
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
    for (size_t i = 0; i < sizeof shapes / sizeof shapes[0]; i++) results[i] = Eval(shapes[i].c_str());
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 30.0); // no runaway
    EXPECT_EQ(results[0], 20);
    EXPECT_EQ(results[1], 0);
    EXPECT_EQ(results[3], 0);
    EXPECT_EQ(results[9], 1);
    EXPECT_EQ(results[11], 5);
    EXPECT_EQ(results[12], 1);
    EXPECT_EQ(err.rfind("Eval(): '1+1+1+1", 0), 0u); // the message itself is cut to the log's limit
    EXPECT_EQ(Eval("(2+3)*4"), 20);
}
