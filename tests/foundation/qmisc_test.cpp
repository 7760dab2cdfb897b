// QMatch against a plain recursive matcher and on patterns that would blow up a backtracking one;
// sleeping, powers of two, byte swapping and the date and time texts.
#include "foundation/qmessage.h"
#include "foundation/qmisc.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <cctype>
#include <chrono>
#include <cstring>
#include <ctime>
#include <random>
#include <regex>
#include <string>

using namespace tarvik;
using namespace tarvik::test;

namespace {

// The rules as they read, one character of the pattern per call.
bool ReferenceMatch(const char* p, const char* t)
{
    switch (*p) {
    case 0: return *t == 0;
    case '!': return !ReferenceMatch(p + 1, t);
    case '(': case ')': return ReferenceMatch(p + 1, t);
    case '*':
        if (!p[1]) return true;
        for (; *t; t++) if (ReferenceMatch(p + 1, t)) return true;
        return false; // elsewhere the end of the text doesn't match
    case '?': return *t && ReferenceMatch(p + 1, t + 1);
    default:
        return *t && std::tolower(static_cast<unsigned char>(*p)) == std::tolower(static_cast<unsigned char>(*t)) &&
               ReferenceMatch(p + 1, t + 1);
    }
}

double SecondsOf(void (*action)())
{
    auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string Strftime(const char* format)
{
    std::time_t now = std::time(nullptr);
    char out[64];
    std::strftime(out, sizeof out, format, std::localtime(&now));
    return out;
}

} // namespace

TEST(QMatchTest, WildcardsAndNegation)
{
    const struct {
        const char* pattern;
        const char* text;
        bool match;
    } cases[] = {
        {"*.TXT", "a.txt", true}, {"!*.txt", "a.txt", false}, {"!*.txt", "a.doc", true},
        {"a?c", "ac", false},     {"a?c", "aXc", true},       {"", "", true},
        {"", "a", false},         {"*", "", true} /* a star at the end matches the end of the text */,
        {"*a", "", false},        {"?", "", false},           {"(a)(b)", "AB", true},
        {"a!b", "ac", true},      {"a!b", "ab", false},       {"a*b*c", "aXXbYYc", true},
        {"a*b*c", "aXXbYY", false},
    };
    for (const auto& c : cases) EXPECT_EQ(QMatch(c.pattern, c.text), c.match) << c.pattern << " on " << c.text;
}

TEST(QMatchTest, EqualsPlainRulesOnRandomInput)
{
    std::mt19937 rng(12345);
    const std::string alphabet = "ab*?!()", textAlphabet = "abAB*?!()";
    int matches = 0;
    for (int i = 0; i < 40000; i++) {
        std::string pattern, text;
        for (int n = int(rng() % 8); n > 0; n--) pattern += alphabet[rng() % alphabet.size()];
        for (int n = int(rng() % 7); n > 0; n--) text += textAlphabet[rng() % textAlphabet.size()];
        bool expected = ReferenceMatch(pattern.c_str(), text.c_str());
        matches += expected;
        ASSERT_EQ(QMatch(pattern.c_str(), text.c_str()), expected) << "pattern '" << pattern << "' text '" << text << "'";
    }
    EXPECT_GT(matches, 2000); // the draw exercises both answers
    EXPECT_LT(matches, 38000);
}

TEST(QMatchTest, ManyStarsAndLongPatternsFinishWithoutBacktrackingOrStack)
{
    double seconds = SecondsOf([] {
        std::string stars(5000, '*'), text(5000, 'a'), alternating;
        EXPECT_TRUE(QMatch(stars.c_str(), text.c_str()));
        EXPECT_FALSE(QMatch((stars + "b").c_str(), text.c_str()));
        for (int i = 0; i < 2500; i++) alternating += "*a";
        EXPECT_FALSE(QMatch((alternating + "b").c_str(), text.c_str()));
    });
    EXPECT_LT(seconds, 30.0); // a guard against exponential backtracking, not a speed goal
    std::string negations(200001, '!'); // an odd count negates once
    EXPECT_TRUE(QMatch(negations.c_str(), "x"));
    EXPECT_FALSE(QMatch(negations.c_str(), ""));
    EXPECT_TRUE(QMatch((std::string(300000, '(') + "x").c_str(), "X"));
    EXPECT_FALSE(QMatch(nullptr, "x"));
    EXPECT_TRUE(QMatch("*", nullptr));
}

TEST(QMiscTest, SleepCountsWholeMilliseconds)
{
    EXPECT_GE(SecondsOf([] { QSleep(30000); }), 0.029);
    EXPECT_GE(SecondsOf([] { QSleep(2999); }), 0.0019);
    for (int i = 0; i < 50; i++) QSleep(999); // under a millisecond only the time slice is given up: not timed
}

TEST(QMiscTest, NearestPowerOfTwo)
{
    const int cases[][2] = {{5, 8}, {8, 8}, {0, 1}, {1, 1}, {-7, 1}, {2, 2}, {3, 4}, {1025, 2048}, {1 << 30, 1 << 30}};
    for (const auto& c : cases) EXPECT_EQ(QNearestPowerOf2(c[0], false), c[1]) << c[0];

    // Rounding isn't there yet: it reports an error and still answers.
    TempDir dir(true);
    qmsgReset();
    testing::internal::CaptureStderr();
    EXPECT_EQ(QNearestPowerOf2(5, true), 8);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "QNearestPowerOf2(); rounding not yet implemented\n");
    EXPECT_NE(LogWithoutTimes(ReadFile("QLOG.txt")).find("(ERR  ): [-] QNearestPowerOf2(); rounding not yet implemented ["),
              std::string::npos);
    testing::internal::CaptureStderr();
    QNearestPowerOf2(5, false);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(QMiscTest, SwapReversesBytes)
{
    EXPECT_EQ(QSwap16(0x1234), 0x3412);
    EXPECT_EQ(QSwap16(0xFF00), 0x00FF);
    EXPECT_EQ(QSwap32(0x12345678u), 0x78563412u);
    EXPECT_EQ(QSwap32(0xFF000080u), 0x800000FFu);
}

TEST(QMiscTest, DateAndTimeTextsInStaticBuffers)
{
    std::string date = QCurrentDate(), expectedDate = Strftime("%d-%m-%Y");
    EXPECT_TRUE(std::regex_match(date, std::regex("[0-3][0-9]-[01][0-9]-[0-9]{4}"))) << date;
    EXPECT_EQ(date, expectedDate);
    EXPECT_STREQ(QCurrentDate(nullptr), expectedDate.c_str());
    EXPECT_STREQ(QCurrentDate("%Y"), Strftime("%Y").c_str());
    std::string time = QCurrentTime();
    EXPECT_TRUE(std::regex_match(time, std::regex("[0-2][0-9]:[0-5][0-9]:[0-6][0-9]"))) << time;
    EXPECT_STREQ(QCurrentTime("%H"), Strftime("%H").c_str());

    const char* a = QCurrentDate("first");
    EXPECT_EQ(QCurrentDate("second"), a);
    EXPECT_NE(QCurrentTime("x"), a); // date and time have a buffer each
    EXPECT_STREQ(a, "second");
    // A text longer than the buffer never runs past it.
    EXPECT_LT(std::strlen(QCurrentDate("%Y-%Y-%Y-%Y-%Y-%Y-%Y-%Y-%Y-%Y")), 40u);
    EXPECT_LT(std::strlen(QCurrentTime("0123456789012345678901234567890123456789")), 40u);
}
