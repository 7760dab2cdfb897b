// Cases for qstring: storage and growth, queries, editing, the file-name cuts, the checks of
// numeric text and the refusals of wide strings.
#include "foundation/qstring.h"

#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <string>

using namespace tarvik;

namespace {

const qwchar wideAbc[] = {'a', 'b', 'c', 0};

template <typename F>
std::string StderrOf(F action)
{
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}

// Reports go to QLOG.txt in the working directory as well; keep that out of the source tree.
class QStringReports : public testing::Test {
protected:
    test::TempDir dir{true};
};

} // namespace

TEST(QStringTest, DefaultStringHasNoBufferButReadsAsEmptyText)
{
    qstring s(100);
    EXPECT_EQ(0, s.GetCapacity());
    EXPECT_STREQ("", s.cstr());
    EXPECT_TRUE(s == "");
    EXPECT_TRUE(s == nullptr);
    EXPECT_FALSE(s != nullptr);
    EXPECT_TRUE(s.IsEmpty());
    EXPECT_FALSE(s.IsNotEmpty());
    EXPECT_EQ(0, s.GetLength());
    EXPECT_EQ(-1, s.Find("a"));
    EXPECT_EQ(-1, s.FindChar('a'));
    EXPECT_FALSE(s.Contains("a"));
    EXPECT_FALSE(s.CutExtension());
    EXPECT_FALSE(s.CutFile());
    EXPECT_FALSE(s.CutPath());
    s.CutFirst();
    s.CutLast();
    s.ToUpper();
    s.ToLower();
    s.Empty();
    EXPECT_EQ(0, s.GetCapacity());
    EXPECT_TRUE(s.GetSubstring(0, -1).IsEmpty());
}

TEST(QStringTest, ConstructionFromTextReservesLengthPlus32)
{
    EXPECT_EQ(35, qstring("abc").GetCapacity());
    qstring fromNull(static_cast<const char*>(nullptr));
    qstring fromEmpty("");
    EXPECT_EQ(32, fromNull.GetCapacity());
    EXPECT_EQ(32, fromEmpty.GetCapacity());
    EXPECT_TRUE(fromNull.IsEmpty());
    EXPECT_TRUE(fromEmpty.IsEmpty());
}

TEST(QStringTest, CopyIsDeepAndReservesLengthPlus33)
{
    qstring a("abc");
    qstring b(a);
    EXPECT_EQ(36, b.GetCapacity());
    EXPECT_NE(a.cstr(), b.cstr());
    b[0] = 'x';
    EXPECT_TRUE(a == "abc");
    EXPECT_TRUE(b == "xbc");

    qstring none;
    qstring copyOfNone(none);
    EXPECT_EQ(0, copyOfNone.GetCapacity());
    EXPECT_TRUE(copyOfNone.IsEmpty());
}

TEST(QStringTest, AssignmentGrowsExactlyAndNeverShrinks)
{
    qstring s;
    s = "abc";
    EXPECT_EQ(4, s.GetCapacity());
    const char* buffer = s.cstr();
    s.Empty();
    EXPECT_TRUE(s.IsEmpty());
    s = "z";
    EXPECT_EQ(buffer, s.cstr());
    EXPECT_EQ(4, s.GetCapacity());
    s = "abcde";
    EXPECT_EQ(6, s.GetCapacity());
    s = static_cast<const char*>(nullptr);
    EXPECT_TRUE(s.IsEmpty());
    EXPECT_EQ(6, s.GetCapacity());

    qstring t("abc"); // capacity 35
    t = std::string(34, 'x').c_str();
    EXPECT_EQ(35, t.GetCapacity());
    t = std::string(35, 'x').c_str();
    EXPECT_EQ(36, t.GetCapacity());
    EXPECT_EQ(35, t.GetLength());
}

TEST(QStringTest, AssigningAnIntegerStoresDecimalText)
{
    qstring s;
    s = -1234;
    EXPECT_TRUE(s == "-1234");
    EXPECT_EQ(32, s.GetCapacity());
    qstring big(std::string(40, 'x').c_str());
    big = 7;
    EXPECT_TRUE(big == "7");
    EXPECT_EQ(72, big.GetCapacity());
}

TEST(QStringTest, SelfAssignmentKeepsText)
{
    qstring s("abc");
    qstring& alias = s;
    s = alias;
    EXPECT_TRUE(s == "abc");
    s = s.cstr() + 1;
    EXPECT_TRUE(s == "bc");
}

TEST(QStringTest, AppendGrowsToExactlyTheNeededSize)
{
    qstring s("abc"); // 35: room for 31 more characters
    s += std::string(31, 'x').c_str();
    EXPECT_EQ(35, s.GetCapacity());
    s += "y";
    EXPECT_EQ(36, s.GetCapacity());
    s += "";
    s += static_cast<const char*>(nullptr);
    EXPECT_EQ(36, s.GetCapacity());
    EXPECT_EQ(35, s.GetLength());

    qstring none;
    none += "";
    EXPECT_EQ(0, none.GetCapacity());
    none += "ab";
    EXPECT_EQ(3, none.GetCapacity());
    EXPECT_TRUE(none == "ab");
}

TEST(QStringTest, AppendOfCharactersIntegersAndItself)
{
    qstring s("a");
    (s += 'b') += 'c';
    s += '\0';
    s += -42;
    EXPECT_TRUE(s == "abc-42");

    qstring t;
    t = "abcd"; // full: the append must survive its source moving
    t += t.cstr();
    EXPECT_TRUE(t == "abcdabcd");
    t += t;
    EXPECT_TRUE(t == "abcdabcdabcdabcd");
}

TEST(QStringTest, ConcatenationMakesNewStrings)
{
    qstring left("ab");
    EXPECT_TRUE(left + "cd" == "abcd");
    EXPECT_TRUE(left + qstring("x") == "abx");
    EXPECT_TRUE(left + "" == "ab");
    EXPECT_TRUE(left == "ab");
    qstring none;
    EXPECT_EQ(0, (none + "").GetCapacity());
}

TEST(QStringTest, ComparisonIsExactAndOrderIgnoresCase)
{
    qstring s("abc");
    EXPECT_TRUE(s == "abc");
    EXPECT_FALSE(s == "ABC");
    EXPECT_FALSE(s == "ab");
    EXPECT_TRUE(s != "abd");
    EXPECT_FALSE(s != "abc");
    EXPECT_FALSE(s == nullptr);

    EXPECT_TRUE(qstring("abc") < qstring("ABD"));
    EXPECT_TRUE(qstring("a") < qstring("B"));
    EXPECT_FALSE(qstring("B") < qstring("a"));
    EXPECT_FALSE(qstring("ABC") < qstring("abc"));
    EXPECT_FALSE(qstring("abc") < qstring("ABC"));
    EXPECT_TRUE(qstring("ab") < qstring("ABC"));
    EXPECT_FALSE(qstring("abc") < qstring("ab"));
    EXPECT_TRUE(qstring() < qstring("a"));
}

TEST(QStringTest, IndexingReachesTheTerminator)
{
    qstring s("abc");
    EXPECT_EQ('b', s[1]);
    s[1] = 'X';
    EXPECT_TRUE(s == "aXc");
    EXPECT_EQ('\0', s[3]);
    EXPECT_EQ(s.cstr() + 3, &s[3]);
}

TEST_F(QStringReports, IndexOutOfRangeWarnsAndGivesTheTerminator)
{
    qstring s("abc");
    char* ref = nullptr;
    EXPECT_EQ("qstring(abc): ([]) index 4 out of range (0..3)\n", StderrOf([&] { ref = &s[4]; }));
    EXPECT_EQ(s.cstr() + 3, ref);
    EXPECT_EQ("qstring(abc): ([]) index -1 out of range (0..3)\n", StderrOf([&] { ref = &s[-1]; }));
    EXPECT_EQ(s.cstr() + 3, ref);
    EXPECT_EQ("qstring(abc): ([]) index 4 out of range (0..3)\n", StderrOf([&] { ref = &s[4]; }));

    qstring none;
    EXPECT_EQ("", StderrOf([&] { EXPECT_EQ('\0', none[0]); }));
    EXPECT_EQ("qstring(): ([]) index 1 out of range (0..0)\n", StderrOf([&] { EXPECT_EQ('\0', none[1]); }));
}

TEST(QStringTest, FindAndContainsLookForTheFirstOccurrence)
{
    qstring s("abcabc");
    EXPECT_EQ(1, s.Find("bc"));
    EXPECT_EQ(-1, s.Find("x"));
    EXPECT_EQ(-1, s.Find(""));
    EXPECT_EQ(-1, s.Find(nullptr));
    EXPECT_EQ(2, s.FindChar('c'));
    EXPECT_EQ(-1, s.FindChar('\0'));
    EXPECT_EQ(-1, s.FindChar('z'));
    EXPECT_TRUE(s.Contains("cab"));
    EXPECT_FALSE(s.Contains("cb"));
    EXPECT_FALSE(s.Contains(""));
    EXPECT_FALSE(qstring("").Contains("a"));
}

TEST(QStringTest, ResizeGrowsOnlyAndZeroesTheNewPart)
{
    qstring s("ab");
    s.Resize(10);
    EXPECT_EQ(34, s.GetCapacity());
    s.Resize(100);
    EXPECT_EQ(100, s.GetCapacity());
    EXPECT_TRUE(s == "ab");
    for (int i = 34; i < 100; i++) ASSERT_EQ('\0', s.cstr()[i]) << i;

    qstring none;
    none.Resize(8);
    EXPECT_EQ(8, none.GetCapacity());
    EXPECT_TRUE(none.IsEmpty());
}

TEST(QStringTest, CutFirstAndCutLastDropOneCharacter)
{
    qstring s("abc");
    s.CutFirst();
    EXPECT_TRUE(s == "bc");
    s.CutLast();
    EXPECT_TRUE(s == "b");
    s.CutLast();
    EXPECT_TRUE(s.IsEmpty());
    s.CutFirst();
    s.CutLast();
    EXPECT_TRUE(s.IsEmpty());
    EXPECT_EQ(35, s.GetCapacity());
}

TEST(QStringTest, CaseConversion)
{
    qstring s("Hello \xe0\xf0\xfe!");
    s.ToUpper();
    EXPECT_TRUE(s == "HELLO \xc0?\xfe!");
    s.ToLower();
    EXPECT_TRUE(s == "hello \xc0?\xfe!");
}

TEST(QStringTest, ReplaceChangesTheFirstOccurrenceOnly)
{
    qstring s("aaa");
    EXPECT_TRUE(s.Replace("a", "b"));
    EXPECT_TRUE(s == "baa");
    EXPECT_FALSE(s.Replace("a", "a"));
    EXPECT_TRUE(s == "baa");
    EXPECT_TRUE(s.Replace("aa", ""));
    EXPECT_TRUE(s == "b");
    EXPECT_FALSE(s.Replace("x", "y"));
    EXPECT_FALSE(s.Replace("", "y"));
    EXPECT_TRUE(s == "b");

    qstring path("dir/file.txt");
    EXPECT_TRUE(path.Replace(".txt", ".longer-extension-than-the-spare-room-of-the-buffer"));
    EXPECT_TRUE(path == "dir/file.longer-extension-than-the-spare-room-of-the-buffer");
    EXPECT_TRUE(path.Replace("file", "x"));
    EXPECT_TRUE(path == "dir/x.longer-extension-than-the-spare-room-of-the-buffer");

    qstring empty("");
    EXPECT_FALSE(empty.Replace("a", "b"));
}

TEST(QStringTest, GetSubstringClampsBothEnds)
{
    qstring s("abcdefg");
    EXPECT_TRUE(s.GetSubstring(2, 4) == "cde");
    EXPECT_TRUE(s.GetSubstring(2, -1) == "cdefg");
    EXPECT_TRUE(s.GetSubstring(5, 2).IsEmpty());
    EXPECT_TRUE(s.GetSubstring(3, 3) == "d");
    EXPECT_TRUE(s.GetSubstring(0, -2).IsEmpty());
    qstring abc("abc");
    EXPECT_TRUE(abc.GetSubstring(-3, 1) == "ab");
    EXPECT_TRUE(abc.GetSubstring(0, 100) == "abc");
    EXPECT_TRUE(abc.GetSubstring(10, -1) == "c"); // from past the end is taken as the last
    EXPECT_TRUE(qstring("").GetSubstring(0, 5).IsEmpty());
}

TEST(QStringTest, CutExtensionCutsAtTheLastPointAnywhere)
{
    qstring s("a.tar.gz");
    EXPECT_TRUE(s.CutExtension());
    EXPECT_TRUE(s == "a.tar");
    qstring dir("dir.old/file");
    EXPECT_TRUE(dir.CutExtension());
    EXPECT_TRUE(dir == "dir");
    qstring hidden(".rc");
    EXPECT_TRUE(hidden.CutExtension());
    EXPECT_TRUE(hidden.IsEmpty());
    EXPECT_EQ(35, hidden.GetCapacity());
    qstring plain("file");
    EXPECT_FALSE(plain.CutExtension());
    EXPECT_TRUE(plain == "file");
}

TEST(QStringTest, CutFileKeepsTextBeforeLastSeparator)
{
    qstring s("a/b/c.txt");
    EXPECT_TRUE(s.CutFile());
    EXPECT_TRUE(s == "a/b");
    qstring back("a\\b\\c.txt");
    EXPECT_TRUE(back.CutFile());
    EXPECT_TRUE(back == "a\\b");
    qstring mixed("a/b\\c");
    EXPECT_TRUE(mixed.CutFile());
    EXPECT_TRUE(mixed == "a/b");
    qstring root("/c.txt");
    EXPECT_TRUE(root.CutFile());
    EXPECT_TRUE(root.IsEmpty());
    qstring plain("c.txt");
    EXPECT_FALSE(plain.CutFile());
    EXPECT_TRUE(plain == "c.txt");
}

TEST(QStringTest, CutPathKeepsTextAfterLastSeparator)
{
    qstring s("a/b/c.txt");
    EXPECT_TRUE(s.CutPath());
    EXPECT_TRUE(s == "c.txt");
    EXPECT_EQ(41, s.GetCapacity());
    qstring mixed("a\\b/c\\d.x");
    EXPECT_TRUE(mixed.CutPath());
    EXPECT_TRUE(mixed == "d.x");
    qstring trailing("a/b/");
    EXPECT_TRUE(trailing.CutPath());
    EXPECT_TRUE(trailing.IsEmpty());
    qstring plain("c.txt");
    EXPECT_FALSE(plain.CutPath());
    EXPECT_TRUE(plain == "c.txt");
}

TEST(QStringTest, ValidateIntAllowsDigitsSignsBlanksAndOperators)
{
    qstring reason("stale");
    EXPECT_TRUE(qstring("").ValidateInt(&reason));
    EXPECT_TRUE(reason.IsEmpty());
    EXPECT_TRUE(qstring(" -12 + 3*4 % 5").ValidateInt(&reason));
    EXPECT_TRUE(reason.IsEmpty());
    EXPECT_TRUE(qstring("3*4").ValidateInt(nullptr));

    EXPECT_FALSE(qstring("12.5").ValidateInt(&reason));
    EXPECT_TRUE(reason == "a '.' is not allowed (floating point)");
    EXPECT_FALSE(qstring("1e3").ValidateInt(&reason));
    EXPECT_TRUE(reason == "character 'e' is not allowed");
    EXPECT_FALSE(qstring("1,5").ValidateInt(&reason));
    EXPECT_TRUE(reason == "character ',' is not allowed");
    EXPECT_FALSE(qstring("x.5").ValidateInt(&reason)); // the walk stops at the first offender
    EXPECT_TRUE(reason == "character 'x' is not allowed");
}

TEST(QStringTest, ValidateFloatAllowsPointAndLowerCaseExponent)
{
    qstring reason("stale");
    EXPECT_TRUE(qstring("1.5e-3").ValidateFloat(&reason));
    EXPECT_TRUE(reason.IsEmpty());
    EXPECT_TRUE(qstring(" +2.0 ").ValidateFloat(&reason));

    EXPECT_FALSE(qstring("1,5").ValidateFloat(&reason));
    EXPECT_TRUE(reason == "use '.' instead of ','");
    EXPECT_FALSE(qstring("1.5E-3").ValidateFloat(&reason));
    EXPECT_TRUE(reason == "character 'E' is not allowed");
    EXPECT_FALSE(qstring("2*3").ValidateFloat(&reason));
    EXPECT_TRUE(reason == "character '*' is not allowed");
    EXPECT_FALSE(qstring("5%").ValidateFloat(&reason));
    EXPECT_TRUE(reason == "character '%' is not allowed");
}

TEST(QStringTest, WideTextIsStoredComparedAndMeasured)
{
    qstring w("narrow");
    w = wideAbc;
    EXPECT_TRUE(w.IsWide());
    EXPECT_EQ(3, w.GetLength());
    EXPECT_TRUE(w.IsNotEmpty());
    EXPECT_STREQ("<unicodestr-nyi>", w.cstr());
    EXPECT_TRUE(w == "abc");
    EXPECT_FALSE(w == "ab");
    EXPECT_TRUE(w != "abc"); // != looks at the placeholder text
    EXPECT_FALSE(w != "<unicodestr-nyi>");
    EXPECT_EQ(1, w.FindChar('b'));
    EXPECT_EQ(-1, w.FindChar('z'));

    qstring copy(w);
    EXPECT_TRUE(copy.IsWide());
    EXPECT_EQ(36, copy.GetCapacity());
    EXPECT_TRUE(copy == "abc");
    qstring assigned("x");
    assigned = w;
    EXPECT_TRUE(assigned.IsWide());
    EXPECT_TRUE(assigned == "abc");

    copy.CutFirst();
    EXPECT_TRUE(copy == "bc");
    copy.CutLast();
    EXPECT_TRUE(copy == "b");
    copy.Empty();
    EXPECT_TRUE(copy.IsEmpty());

    qstring joined = w + "x";
    EXPECT_FALSE(joined.IsWide());
    EXPECT_TRUE(joined == "<unicodestr-nyi>x");
}

TEST(QStringTest, WideComparisonSignExtendsNarrowCharacters)
{
    const qwchar high[] = {0xFFE9, 0};
    const qwchar latin[] = {0x00E9, 0};
    qstring w;
    w = high;
    EXPECT_TRUE(w == "\xe9");
    w = latin;
    EXPECT_FALSE(w == "\xe9");
}

TEST(QStringTest, NarrowAssignmentReleasesTheWideBuffer)
{
    qstring w;
    w = wideAbc;
    w = "xy";
    EXPECT_FALSE(w.IsWide());
    EXPECT_TRUE(w == "xy");
    EXPECT_EQ(3, w.GetCapacity());

    w = wideAbc;
    w = 5;
    EXPECT_FALSE(w.IsWide());
    EXPECT_TRUE(w == "5");
    EXPECT_EQ(32, w.GetCapacity());

    w = wideAbc;
    w = static_cast<const char*>(nullptr);
    EXPECT_FALSE(w.IsWide());
    EXPECT_TRUE(w.IsEmpty());
}

TEST_F(QStringReports, WideStringsRefuseNarrowOperationsWithReports)
{
    qstring w;
    w = wideAbc;
    EXPECT_EQ("qstring:Find() nyi for unicode\n", StderrOf([&] { EXPECT_EQ(-1, w.Find("a")); }));
    EXPECT_EQ("qstring:Contains(const char*) NYI for UC\n",
              StderrOf([&] { EXPECT_FALSE(w.Contains("a")); }));
    EXPECT_EQ("qstring:operator+=(const char*) nyi for unicode\n", StderrOf([&] { w += "x"; }));
    EXPECT_EQ(3, w.GetLength());
    EXPECT_EQ("qstring:GetSubstring() NYI for Unicode\n", StderrOf([&] {
                  qstring sub = w.GetSubstring(1, 1);
                  EXPECT_TRUE(sub.IsWide());
                  EXPECT_TRUE(sub == "abc");
              }));
    EXPECT_EQ("qstring:CutExtension() NYI for Unicode\n", StderrOf([&] { EXPECT_FALSE(w.CutExtension()); }));
    EXPECT_EQ("qstring:CutFile() NYI for Unicode\n", StderrOf([&] { EXPECT_FALSE(w.CutFile()); }));
    EXPECT_EQ("qstring:CutPath() NYI for Unicode\n", StderrOf([&] { EXPECT_FALSE(w.CutPath()); }));
    EXPECT_TRUE(w == "abc");

    qstring reason("stale");
    EXPECT_EQ("Not supported for Unicode\n", StderrOf([&] { EXPECT_TRUE(w.ValidateInt(&reason)); }));
    EXPECT_TRUE(reason.IsEmpty());
    EXPECT_EQ("Not supported for Unicode\n", StderrOf([&] { EXPECT_TRUE(w.ValidateFloat(&reason)); }));

    qstring narrow("n");
    EXPECT_EQ("", StderrOf([&] { narrow += w; }));
    EXPECT_TRUE(narrow == "n<unicodestr-nyi>");
}
