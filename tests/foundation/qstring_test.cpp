// Cases for qstring: storage and growth, queries, editing, the file-name cuts, the checks of
// numeric text and the refusals of wide strings.
#include "foundation/qstring.h"

#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

using namespace tarvik;

namespace {

const qwchar wideAbc[] = {'a', 'b', 'c', 0};

std::string StderrOf(const std::function<void()>& action)
{
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}

std::string Text(const qstring& s) { return s.cstr(); }

// Text and capacity in one: "abc|35".
std::string Shape(const qstring& s) { return Text(s) + "|" + std::to_string(s.GetCapacity()); }

// Reports go to QLOG.txt in the working directory as well; keep that out of the source tree.
class QStringReports : public testing::Test {
protected:
    test::TempDir dir{true};
};

} // namespace

TEST(QStringTest, DefaultStringHasNoBufferButReadsAsEmptyText)
{
    qstring s(100);
    EXPECT_STREQ("", s.cstr());
    EXPECT_TRUE(s == "" && s == nullptr && !(s != nullptr) && s.IsEmpty() && !s.IsNotEmpty());
    EXPECT_EQ(0, s.GetLength());
    EXPECT_EQ(-1, s.Find("a"));
    EXPECT_EQ(-1, s.FindChar('a'));
    EXPECT_FALSE(s.Contains("a") || s.CutExtension() || s.CutFile() || s.CutPath());
    s.CutFirst();
    s.CutLast();
    s.ToUpper();
    s.ToLower();
    s.Empty();
    EXPECT_EQ("|0", Shape(s));
    EXPECT_EQ("|0", Shape(qstring(s)));
    EXPECT_EQ("|0", Shape(s + ""));
    EXPECT_TRUE(s.GetSubstring(0, -1).IsEmpty());
}

TEST(QStringTest, CapacityGrowsExactlyAsFarAsAskedAndNeverShrinks)
{
    // Text: length + 32; copy: length + 33; assignment and append: exactly what is needed.
    qstring abc("abc");
    EXPECT_EQ("abc|35", Shape(abc));
    EXPECT_EQ("abc|36", Shape(qstring(abc)));
    EXPECT_EQ("|32", Shape(qstring(static_cast<const char*>(nullptr))));
    EXPECT_EQ("|32", Shape(qstring("")));
    qstring s;
    s = "abc";
    EXPECT_EQ("abc|4", Shape(s));
    const char* buffer = s.cstr();
    s.Empty();
    EXPECT_EQ("|4", Shape(s));
    s = "z";
    EXPECT_EQ(buffer, s.cstr());
    EXPECT_EQ("z|4", Shape(s));
    s = "abcde";
    EXPECT_EQ("abcde|6", Shape(s));
    s = static_cast<const char*>(nullptr);
    EXPECT_EQ("|6", Shape(s));
    s = -1234;
    EXPECT_EQ("-1234|32", Shape(s));
    std::string x31(31, 'x');
    abc += x31.c_str(); // exactly fills the 35
    EXPECT_EQ("abc" + x31 + "|35", Shape(abc));
    abc += "y";
    abc += "";
    abc += static_cast<const char*>(nullptr);
    EXPECT_EQ("abc" + x31 + "y|36", Shape(abc));
    std::string y35(35, 'y');
    abc = y35.c_str();
    EXPECT_EQ(y35 + "|36", Shape(abc));
    abc = (y35 + "z").c_str();
    EXPECT_EQ(y35 + "z|37", Shape(abc));
    abc = 7;
    EXPECT_EQ("7|37", Shape(abc));
    qstring none;
    none += "";
    EXPECT_EQ("|0", Shape(none));
    none += "ab";
    EXPECT_EQ("ab|3", Shape(none));
}

TEST(QStringTest, ResizeGrowsOnlyAndZeroesTheNewPart)
{
    qstring s("ab");
    s.Resize(10);
    EXPECT_EQ("ab|34", Shape(s));
    s.Resize(100);
    EXPECT_EQ("ab|100", Shape(s));
    for (int i = 34; i < 100; i++) ASSERT_EQ('\0', s.cstr()[i]) << i;
    qstring none;
    none.Resize(8);
    EXPECT_EQ("|8", Shape(none));
}

TEST(QStringTest, CopiesAppendsAndConcatenationsAreDeepAndSurviveAliasing)
{
    qstring a("abc");
    qstring b(a);
    EXPECT_NE(a.cstr(), b.cstr());
    b[0] = 'x';
    EXPECT_EQ("abc", Text(a));
    EXPECT_EQ("xbc", Text(b));
    qstring& alias = a;
    a = alias;
    EXPECT_EQ("abc", Text(a));
    a = a.cstr() + 1;
    EXPECT_EQ("bc", Text(a));
    qstring s("a");
    (s += 'b') += 'c';
    s += '\0';
    s += -42;
    EXPECT_EQ("abc-42", Text(s));
    qstring t;
    t = "abcd"; // full: the append must survive its source moving
    t += t.cstr();
    EXPECT_EQ("abcdabcd", Text(t));
    t += t;
    EXPECT_EQ("abcdabcdabcdabcd", Text(t));
    qstring left("ab");
    EXPECT_EQ("abcd", Text(left + "cd"));
    EXPECT_EQ("abx", Text(left + qstring("x")));
    EXPECT_EQ("ab", Text(left + ""));
    EXPECT_EQ("ab", Text(left));
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
    struct Order {
        const char *a, *b;
        bool less;
    } orders[] = {{"abc", "ABD", true}, {"a", "B", true},    {"B", "a", false},  {"ABC", "abc", false},
                  {"abc", "ABC", false}, {"ab", "ABC", true}, {"abc", "ab", false}, {"", "a", true}};
    for (const Order& o : orders)
        EXPECT_EQ(o.less, qstring(o.a) < qstring(o.b)) << o.a << " < " << o.b;
    EXPECT_TRUE(qstring() < qstring("a"));
}

TEST_F(QStringReports, IndexingReachesTheTerminatorAndWarnsBeyond)
{
    qstring s("abc");
    EXPECT_EQ('b', s[1]);
    s[1] = 'X';
    EXPECT_EQ("aXc", Text(s));
    EXPECT_EQ(s.cstr() + 3, &s[3]);
    EXPECT_EQ('\0', s[3]);
    for (int index : {4, -1}) {
        char* ref = nullptr;
        std::string warning = "qstring(aXc): ([]) index " + std::to_string(index) + " out of range (0..3)\n";
        EXPECT_EQ(warning, StderrOf([&] { ref = &s[index]; }));
        EXPECT_EQ(s.cstr() + 3, ref);
    }
    qstring none;
    EXPECT_EQ("", StderrOf([&] { EXPECT_EQ('\0', none[0]); }));
    EXPECT_EQ("qstring(): ([]) index 1 out of range (0..0)\n", StderrOf([&] { EXPECT_EQ('\0', none[1]); }));
}

TEST(QStringTest, FindAndContainsLookForTheFirstOccurrence)
{
    qstring s("abcabc");
    EXPECT_EQ(1, s.Find("bc"));
    EXPECT_EQ(0, s.Find("abc"));
    EXPECT_EQ(3, qstring("xyzabc").Find("abc"));
    EXPECT_EQ(-1, s.Find("x"));
    EXPECT_EQ(-1, s.Find(""));
    EXPECT_EQ(-1, s.Find(nullptr));
    EXPECT_EQ(2, s.FindChar('c'));
    EXPECT_EQ(0, s.FindChar('a'));
    EXPECT_EQ(-1, s.FindChar('\0'));
    EXPECT_EQ(-1, s.FindChar('z'));
    EXPECT_TRUE(s.Contains("cab"));
    EXPECT_FALSE(s.Contains("cb"));
    EXPECT_FALSE(s.Contains(""));
    EXPECT_FALSE(qstring("").Contains("a"));
}

TEST(QStringTest, EditsCutReplaceAndConvertCase)
{
    qstring s("abc");
    s.CutFirst();
    EXPECT_EQ("bc", Text(s));
    s.CutLast();
    EXPECT_EQ("b", Text(s));
    for (int i = 0; i < 3; i++) i % 2 ? s.CutFirst() : s.CutLast();
    EXPECT_EQ("|35", Shape(s));
    // Latin-1 letters go 32 down; eth has no capital and becomes '?'; thorn stays. Lower-casing
    // leaves all of them.
    qstring c("Hello \xe0\xf0\xfe!");
    c.ToUpper();
    EXPECT_EQ("HELLO \xc0?\xfe!", Text(c));
    c.ToLower();
    EXPECT_EQ("hello \xc0?\xfe!", Text(c));
    // Only the first occurrence is replaced; the result may outgrow the buffer.
    const char* longer = ".longer-extension-than-the-spare-room-of-the-buffer";
    qstring r("aaa"), path("dir/file.txt"), empty("");
    struct Row {
        qstring* s;
        const char *from, *to;
        bool replaced;
        std::string after;
    } rows[] = {
        {&r, "a", "b", true, "baa"},   {&r, "a", "a", false, "baa"}, {&r, "aa", "", true, "b"},
        {&r, "x", "y", false, "b"},    {&r, "", "y", false, "b"},    {&empty, "a", "b", false, ""},
        {&path, ".txt", longer, true, std::string("dir/file") + longer},
        {&path, "file", "x", true, std::string("dir/x") + longer},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.replaced, row.s->Replace(row.from, row.to)) << row.from << " -> " << row.to;
        EXPECT_EQ(row.after, Text(*row.s));
    }
}

TEST(QStringTest, GetSubstringClampsBothEnds)
{
    struct Row {
        const char* text;
        int from, to;
        const char* expected;
    } rows[] = {
        {"abcdefg", 2, 4, "cde"}, {"abcdefg", 2, -1, "cdefg"}, {"abcdefg", 5, 2, ""}, {"abcdefg", 3, 3, "d"},
        {"abcdefg", 0, -2, ""},   {"abc", -3, 1, "ab"},         {"abc", 0, 100, "abc"},
        {"abc", 10, -1, "c"}, // from past the end is taken as the last
        {"", 0, 5, ""},
    };
    for (const Row& r : rows)
        EXPECT_EQ(r.expected, Text(qstring(r.text).GetSubstring(r.from, r.to)))
            << r.text << " " << r.from << ".." << r.to;
}

TEST(QStringTest, FileNameCutsWorkAtTheLastPointOrSeparator)
{
    // CutExtension ignores separators; CutFile drops the separator too; CutPath keeps what follows.
    struct Row {
        bool (qstring::*cut)();
        const char* text;
        bool cuts;
        const char* expected;
    };
    const auto ext = &qstring::CutExtension, file = &qstring::CutFile, path = &qstring::CutPath;
    const Row rows[] = {
        {ext, "a.tar.gz", true, "a.tar"},   {ext, ".rc", true, ""},            {ext, "file", false, "file"},
        {ext, "dir.old/file", true, "dir"}, {file, "a/b/c.txt", true, "a/b"},  {file, "a/b\\c", true, "a/b"},
        {file, "a\\b\\c.txt", true, "a\\b"}, {file, "/c.txt", true, ""},      {file, "c.txt", false, "c.txt"},
        {path, "a/b/c.txt", true, "c.txt"}, {path, "a\\b/c\\d.x", true, "d.x"}, {path, "a/b/", true, ""},
        {path, "c.txt", false, "c.txt"},
    };
    for (const Row& r : rows) {
        qstring s(r.text);
        int capacity = s.GetCapacity();
        EXPECT_EQ(r.cuts, (s.*r.cut)()) << r.text;
        EXPECT_EQ(r.expected, Text(s)) << r.text;
        EXPECT_EQ(capacity, s.GetCapacity()) << r.text;
    }
}

TEST(QStringTest, ValidationAllowsItsCharactersAndNamesTheFirstOffender)
{
    // Integers: digits, blanks, signs, '*' and '%'. Floats: digits, blanks, signs, '.' and 'e'.
    struct Row {
        bool isFloat;
        const char* text;
        const char* reason; // null if valid
    } rows[] = {
        {false, "", nullptr},        {false, " -12 + 3*4 % 5", nullptr},
        {false, "12.5", "a '.' is not allowed (floating point)"},
        {false, "1e3", "character 'e' is not allowed"}, {false, "1,5", "character ',' is not allowed"},
        {false, "x.5", "character 'x' is not allowed"}, // the walk stops at the first offender
        {true, "1.5e-3", nullptr},   {true, " +2.0 ", nullptr}, {true, "1,5", "use '.' instead of ','"},
        {true, "1.5E-3", "character 'E' is not allowed"}, {true, "2*3", "character '*' is not allowed"},
        {true, "5%", "character '%' is not allowed"},
    };
    for (const Row& r : rows) {
        qstring text(r.text), reason("stale");
        EXPECT_EQ(!r.reason, r.isFloat ? text.ValidateFloat(&reason) : text.ValidateInt(&reason)) << r.text;
        EXPECT_EQ(r.reason ? r.reason : "", Text(reason)) << r.text;
        EXPECT_EQ(!r.reason, r.isFloat ? text.ValidateFloat(nullptr) : text.ValidateInt(nullptr)) << r.text;
    }
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
    EXPECT_EQ("<unicodestr-nyi>x", Text(joined));
    // Narrow characters compare sign-extended.
    const qwchar high[] = {0xFFE9, 0}, latin[] = {0x00E9, 0};
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
    EXPECT_EQ("xy|3", Shape(w));
    w = wideAbc;
    w = 5;
    EXPECT_FALSE(w.IsWide());
    EXPECT_EQ("5|32", Shape(w));
    w = wideAbc;
    w = static_cast<const char*>(nullptr);
    EXPECT_FALSE(w.IsWide());
    EXPECT_TRUE(w.IsEmpty());
}

TEST_F(QStringReports, WideStringsRefuseNarrowOperationsWithReports)
{
    qstring w, reason("stale");
    w = wideAbc;
    struct Row {
        const char* report;
        std::function<void()> action;
    } rows[] = {
        {"qstring:Find() nyi for unicode", [&] { EXPECT_EQ(-1, w.Find("a")); }},
        {"qstring:Contains(const char*) NYI for UC", [&] { EXPECT_FALSE(w.Contains("a")); }},
        {"qstring:operator+=(const char*) nyi for unicode", [&] { w += "x"; }},
        {"qstring:GetSubstring() NYI for Unicode",
         [&] {
             qstring sub = w.GetSubstring(1, 1);
             EXPECT_TRUE(sub.IsWide() && sub == "abc");
         }},
        {"qstring:CutExtension() NYI for Unicode", [&] { EXPECT_FALSE(w.CutExtension()); }},
        {"qstring:CutFile() NYI for Unicode", [&] { EXPECT_FALSE(w.CutFile()); }},
        {"qstring:CutPath() NYI for Unicode", [&] { EXPECT_FALSE(w.CutPath()); }},
        {"Not supported for Unicode", [&] { EXPECT_TRUE(w.ValidateInt(&reason)); }},
        {"Not supported for Unicode", [&] { EXPECT_TRUE(w.ValidateFloat(&reason)); }},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(std::string(r.report) + "\n", StderrOf(r.action));
        EXPECT_TRUE(w == "abc") << r.report;
        EXPECT_EQ(3, w.GetLength());
    }
    EXPECT_TRUE(reason.IsEmpty());
    qstring narrow("n");
    EXPECT_EQ("", StderrOf([&] { narrow += w; }));
    EXPECT_EQ("n<unicodestr-nyi>", Text(narrow));
}
