#include "foundation/qinfo.h"
#include "foundation/qmessage.h"
#include "foundation/qstring.h"
#include "platform/platform.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using namespace tarvik;
using tarvik::test::FileExists;
using tarvik::test::ReadFile;
using tarvik::test::TempDir;
using tarvik::test::WriteFile;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

const char* const missing = "<missing>";

// The value at 'path', or "<missing>" if the lookup fails.
std::string Get(QInfo& info, const char* path)
{
    qstring out;
    return info.GetString(path, out, nullptr) ? std::string(out.cstr()) : missing;
}

// Everything the iterator delivers from 'path' on.
std::vector<std::string> Iterate(QInfo& info, const char* path, bool recursive)
{
    std::vector<std::string> paths;
    QInfoIterator it(&info, path);
    qstring p;
    while (it.GetNext(p, recursive))
        paths.push_back(p.cstr());
    return paths;
}

// Marks the file as changed on disk behind the reader's back.
void TouchLater(const char* name, const std::string& content)
{
    auto before = std::filesystem::last_write_time(name);
    WriteFile(name, content);
    std::filesystem::last_write_time(name, before + std::chrono::seconds(1));
}

// Writes 'info' to its own file, asking, with 'answer' preset; gives what was said.
std::string WriteAnswering(QInfo& info, PlatformAnswer answer, bool written)
{
    PlatformSetAnswer(answer);
    CaptureStderr();
    EXPECT_EQ(info.Write(nullptr, true), written);
    return GetCapturedStderr();
}

class QInfoTest : public ::testing::Test {
protected:
    void SetUp() override { qmsgReset(); }
    void TearDown() override { PlatformSetAnswer(PLATFORM_ANSWER_NONE); }

    // Writes t.ini and reads it; what the reading reported goes to 'err'.
    std::unique_ptr<QInfo> Parse(const std::string& text, std::string* err = nullptr, int flags = 0)
    {
        WriteFile("t.ini", text);
        CaptureStderr();
        std::unique_ptr<QInfo> info(new QInfo("t.ini", flags));
        std::string out = GetCapturedStderr();
        if (err)
            *err = out;
        else
            EXPECT_EQ(out, "") << "while reading:\n" << text;
        return info;
    }

    TempDir dir{true};
};

} // namespace

// ---- Parsing --------------------------------------------------------------------------------------

TEST_F(QInfoTest, ParsingFindsValuesAndReportsWhatItRefuses)
{
    // Each text is read, its reports compared whole, and its paths looked up (null: not found).
    struct Case {
        const char *what, *text;
        int flags;
        const char* err;
        std::vector<std::pair<const char*, const char*>> values;
    } cases[] = {
        {"a tab and a brace don't end a token, byte 160 does and is skipped like a blank",
         "a\tb=1\n\xa0" "c\xa0=2\ng{\nx=3\n}\n", 0, "QInfo(t.ini); more '}' brackets than '{' near line 2\n",
         {{"a\tb", "1"}, {"c", "2"}, {"g{", "?"}, {"x", "3"}}},
        {"groups, comments and references", "; a comment\nsignals\n{\nspeed\n{\nunit=km/h\nmax=300\n}\n"
         "fast~signals.speed\n}\ng=5\n{\nx=1\n}\nh\n{\n; x=1\n}\n", 0, "",
         {{"signals.speed.unit", "km/h"}, {"signals.fast.unit", "km/h"}, {"signals.fast.max", "300"},
          {"g", "5"}, {"h", nullptr}, {"h.x", nullptr}, {"signals.speed.unit.more", nullptr}}},
        {"a group opened twice keeps the children of both levels (found by fuzzing)",
         "a\n{\n{\nx=1\n}\ny=2\n}\n", 0, "", {{"a.x", "1"}, {"a.y", "2"}}},
        {"own children win over the reference", "base\n{\na=1\nb=2\n}\ncar~base\n{\na=3\n}\n", 0, "",
         {{"car.a", "3"}, {"car.b", "2"}, {"car.c", nullptr}}},
        {"values keep their blanks", "a = 5 \n", 0, "", {{"a", " 5 "}}},
        {"a key without value isn't hashed, else it would win", "k\nk=2\nsolo\n", 0, "",
         {{"solo", "?"}, {"k", "2"}}},
        {"the first assignment wins, a second '=' replaces; one-letter paths share a hash chain",
         "key=1\nkey=2\nk=1\n=2\nq=3\n", 0, "", {{"key", "1"}, {"k", "2"}, {"q", "3"}, {"z", nullptr}}},
        {"a key with a point is refused with its value", "a=0\nb.c=1\nx.y~a\n", 0,
         "QInfo(t.ini): key with '.' found (b.c) - won't work; use { } to define subtrees (line 1)\n"
         "QInfo(t.ini): key with '.' found (x.y) - won't work; use { } to define subtrees (line 1)\n",
         {{"a", "0"}, {"b.c", nullptr}, {"b", nullptr}}},
        {"tokens without symbol", "=5\n~x\n{\nk=1\n", 0,
         "QInfo: assign without symbol in line 1\nQInfo: reference without symbol in line 1\n"
         "QInfo: { without groupname\n",
         {{"k", "1"}}},
        {"the line feed behind a value or reference isn't counted; those behind tokens are",
         "a=1\nb=2\nx~nothere\nleaf=1\ny~leaf\ng\n{\nk=1\n}\nr~nothere\n", 0,
         "QInfo(t.ini): reference (~) to unknown tree 'nothere' in line 1\n"
         "QInfo(t.ini): ref to tree 'leaf' without child in line 1\n"
         "QInfo(t.ini): reference (~) to unknown tree 'nothere' in line 4\n",
         {{"x", "?"}, {"y", "?"}, {"y.leaf", nullptr}}},
        {"carriage returns end values and count lines", "a=1\r\nb=2\r\nx~nothere\r\nleaf=1\r\ny~leaf\r\n", 0,
         "QInfo(t.ini): reference (~) to unknown tree 'nothere' in line 3\n"
         "QInfo(t.ini): ref to tree 'leaf' without child in line 5\n",
         {{"a", "1"}}},
        {"a reference to its own leaf", "a~a\n", 0, "QInfo(t.ini): ref to tree 'a' without child in line 1\n",
         {{"a.b", nullptr}}},
        {"a reference back to its own group doesn't hang", "a\n{\nx=1\ny~a\n}\n", 0, "",
         {{"a.y.x", "1"}, {"a.y.y.y.x", "1"}, {"a.y.q", nullptr}, {"a.y.y.y.y.y.y.y.y.y.y.y.y.q", nullptr}}},
        {"an early '}'", "}\na=1\ng\n{\nb=2\n}\n", 0,
         "QInfo(t.ini); more '}' brackets than '{' near line 1\n",
         {{"a", "1"}, {"g.b", "2"}}},
        {"'{' left open", "g\n{\nh\n{\na=1\n", 0,
         "QInfo(t.ini); brackets don't match; still 2 closing bracket(s) expected at end of file.\n",
         {{"g.h.a", "1"}}},
        {"stop at the first '}'", "g\n{\na=1\n}\nb=2\n", QInfo::QIF_STOP_AT_BRACE, "",
         {{"g.a", "1"}, {"b", nullptr}}},
        {"... and without", "g\n{\na=1\n}\nb=2\n", 0, "", {{"b", "2"}}},
        {"the end of the file drops a token", "a=1\nlast", 0, "", {{"last", nullptr}}},
        {"... but keeps a value", "a=1\nb=xyz", 0, "", {{"b", "xyz"}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        std::string err;
        auto info = Parse(c.text, &err, c.flags);
        EXPECT_EQ(err, c.err);
        for (const auto& v : c.values)
            EXPECT_EQ(Get(*info, v.first), v.second ? v.second : missing) << v.first;
    }
}

TEST_F(QInfoTest, TreeHoldsCommentsGroupsAndReferences)
{
    std::string err;
    auto info = Parse("; a comment\nsignals\n{\nspeed\n{\nunit=km/h\n}\nfast~signals.speed\n}\n"
                      "a\n{\n{\nx=1\n}\ny=2\n}\nleaf=1\ny~leaf\n",
                      &err);
    EXPECT_NE(err.find("'leaf' without child"), std::string::npos) << err;
    QInfoNode* root = info->GetRoot();
    EXPECT_EQ(info->FindNode(nullptr), root);
    EXPECT_EQ(info->FindNode(""), root);
    ASSERT_NE(root->child, nullptr);
    EXPECT_EQ(root->child->type, uint32_t(QInfoNode::COMMENT));
    EXPECT_STREQ(root->child->name.cstr(), ";");
    EXPECT_STREQ(root->child->value, " a comment");
    QInfoNode* fast = info->FindNode("signals.fast");
    ASSERT_NE(fast, nullptr);
    EXPECT_EQ(fast->type, uint32_t(QInfoNode::GROUP));
    EXPECT_EQ(fast->ref, info->FindNode("signals.speed"));
    EXPECT_STREQ(info->FindNode("signals.speed.unit")->value, "km/h");
    EXPECT_EQ(info->FindNode("signals.speed.unit.x"), nullptr);
    EXPECT_EQ(info->FindNode("nothing"), nullptr);
    EXPECT_EQ(Iterate(*info, "a", false), (std::vector<std::string>{"a.x", "a.y"}));
    ASSERT_NE(info->FindNode("y"), nullptr); // a reference to a leaf is dropped
    EXPECT_EQ(info->FindNode("y")->type, uint32_t(QInfoNode::KEY));
    EXPECT_EQ(info->FindNode("y")->ref, nullptr);
}

TEST_F(QInfoTest, TenGroupsDeepTheLastReplacesTheNinthOnTheStack)
{
    for (int depth : {9, 10}) {
        SCOPED_TRACE(depth);
        std::string text, path;
        for (int i = 1; i <= depth; i++) {
            text += "g" + std::to_string(i) + "\n{\n";
            path += "g" + std::to_string(i) + ".";
        }
        text += depth == 10 ? "k=1\n}\nm=2\n" : "k=1\n";
        for (int i = 1; i <= 9; i++)
            text += "}\n";
        std::string err;
        auto info = Parse(text, &err);
        EXPECT_EQ(Get(*info, (path + "k").c_str()), "1");
        if (depth == 9) {
            EXPECT_EQ(err, "");
            continue;
        }
        EXPECT_EQ(err, "QInfo: 't.ini' nests too deep (max 10 levels)\n"
                       "QInfo(t.ini); more '}' brackets than '{' near line 30\n");
        EXPECT_EQ(Get(*info, "g1.g2.g3.g4.g5.g6.g7.g8.m"), "2"); // one '}' closed g10 and g9
        EXPECT_EQ(info->FindNode("g1.g2.g3.g4.g5.g6.g7.g8.g9.g10")->parent,
                  info->FindNode("g1.g2.g3.g4.g5.g6.g7.g8.g9"));
    }
}

// ---- Typed lookups --------------------------------------------------------------------------------

TEST_F(QInfoTest, TypedLookupsWarnButConvertAllTheSame)
{
    auto info = Parse("a = 5 \nb=2*3+1\nc=1.5\nw=12abc\nf=2.5\ne=-1.5e2\ng=1,5\nh=abc\n");
    char out[QInfo::MAX_PATH];
    EXPECT_TRUE(info->GetString("a", out, "d"));
    EXPECT_STREQ(out, " 5 ");
    CaptureStderr();
    EXPECT_EQ(info->GetInt("a", 0), 5);
    EXPECT_EQ(info->GetInt("b", 0), 7);
    EXPECT_EQ(GetCapturedStderr(), "");
    CaptureStderr();
    EXPECT_EQ(info->GetInt("c", 9), 1);
    EXPECT_EQ(info->GetInt("w", 9), 12);
    EXPECT_EQ(info->GetInt("none", 42), 42);
    EXPECT_FLOAT_EQ(info->GetFloat("f", 0), 2.5f);
    EXPECT_FLOAT_EQ(info->GetFloat("e", 0), -150.0f);
    EXPECT_FLOAT_EQ(info->GetFloat("g", 0), 1.0f);
    EXPECT_FLOAT_EQ(info->GetFloat("h", 7), 0.0f);
    EXPECT_FLOAT_EQ(info->GetFloat("none", 7.5f), 7.5f);
    EXPECT_EQ(GetCapturedStderr(),
              "c value '1.5' (in t.ini) is not a valid integer: a '.' is not allowed (floating point)\n"
              "w value '12abc' (in t.ini) is not a valid integer: character 'a' is not allowed\n"
              "g value '1,5' (in t.ini) is not a valid float: use '.' instead of ','\n"
              "h value 'abc' (in t.ini) is not a valid float: character 'a' is not allowed\n");
}

TEST_F(QInfoTest, GetBoolEvaluates)
{
    auto info = Parse("t=true\no=1\nz=0\nx=2&1\ny=1|8\n");
    // A word evaluates to 0; a missing key gives the default.
    const std::pair<const char*, bool> rows[] = {{"t", false}, {"o", true}, {"z", false}, {"x", false},
                                                 {"y", true}};
    for (const auto& r : rows) {
        EXPECT_EQ(info->GetBool(r.first, !r.second), r.second) << r.first;
        EXPECT_EQ(info->GetBool(r.first, r.second), r.second) << r.first;
    }
    EXPECT_TRUE(info->GetBool("none", true));
    EXPECT_FALSE(info->GetBool("none", false));
}

TEST_F(QInfoTest, GetFloatsSplitsAtBlanksAndCommas)
{
    auto info = Parse("c=1.5, 2 ,3,,4\nd=7\n");
    const float def[5] = {9, 8, 7, 6, 5};
    float out[5];
    auto got = [&](int n) { return std::vector<float>(out, out + n); };
    EXPECT_TRUE(info->GetFloats("c", 5, out, def));
    EXPECT_EQ(got(5), (std::vector<float>{1.5f, 2, 3, 4, 5}));
    EXPECT_TRUE(info->GetFloats("d", 3, out, nullptr));
    EXPECT_EQ(got(3), (std::vector<float>{7, 0, 0}));
    EXPECT_TRUE(info->GetFloats("none", 5, out, def));
    EXPECT_EQ(got(5), std::vector<float>(def, def + 5));
    EXPECT_TRUE(info->GetFloats("none", 2, out, nullptr));
    EXPECT_EQ(got(3), (std::vector<float>{0, 0, 7})); // n places only
    out[2] = -1;
    EXPECT_TRUE(info->GetFloats("c", 2, out, def));
    EXPECT_EQ(got(3), (std::vector<float>{1.5f, 2, -1}));
}

// ---- Missing files, required keys, fallback -------------------------------------------------------

TEST_F(QInfoTest, MissingFileWarnsUnlessSilent)
{
    CaptureStderr();
    {
        QInfo info("nope.ini", 0);
        EXPECT_FALSE(info.IsRead());
        char out[QInfo::MAX_PATH];
        EXPECT_FALSE(info.GetString("x", out, "d"));
        EXPECT_STREQ(out, "d");
        EXPECT_FALSE(info.GetString("x", out, nullptr));
        EXPECT_STREQ(out, "");
    }
    std::string cwd = std::filesystem::current_path().string();
    std::string warning = "QInfo: can't open 'nope.ini', current directory is '" + cwd + "'";
    EXPECT_EQ(GetCapturedStderr(), warning + "\n");
    EXPECT_NE(ReadFile("QLOG.txt").find(warning), std::string::npos);
    CaptureStderr();
    EXPECT_FALSE(QInfo("nope.ini", QInfo::QIF_SILENT).IsRead());
    EXPECT_EQ(GetCapturedStderr(), "");
    auto info = Parse("a=1\n");
    EXPECT_EQ(info->GetFlags(), QInfo::QIF_READ);
}

TEST_F(QInfoTest, RequiredKeysWarnAndTheFallbackIsAskedForWhatIsMissing)
{
    auto info = Parse("a=1\n", nullptr, QInfo::QIF_REQUIRED);
    const std::string required = "' not found in info or fallback - required\n";
    CaptureStderr();
    EXPECT_EQ(Get(*info, "a"), "1");
    EXPECT_EQ(Get(*info, "b"), missing);
    EXPECT_EQ(info->GetInt("c", 3), 3);
    EXPECT_EQ(GetCapturedStderr(), "QInfo: 'b" + required + "QInfo: 'c" + required);
    WriteFile("fb.ini", "a=9\nb=2\n");
    info = Parse("a=1\n");
    info->SetFallback(new QInfo("fb.ini", QInfo::QIF_REQUIRED));
    CaptureStderr();
    EXPECT_EQ(Get(*info, "a"), "1");
    EXPECT_EQ(info->GetInt("b", 0), 2);
    char out[QInfo::MAX_PATH];
    EXPECT_FALSE(info->GetString("zz", out, "d"));
    EXPECT_STREQ(out, "d");
    EXPECT_EQ(GetCapturedStderr(), "QInfo: 'zz" + required);
    info = Parse("a=1\n", nullptr, QInfo::QIF_DEBUG_FALLBACK);
    info->SetFallback(new QInfo("fb.ini", 0));
    CaptureStderr();
    EXPECT_EQ(Get(*info, "a"), "1");
    EXPECT_EQ(Get(*info, "b"), "2");
    std::string err = GetCapturedStderr();
    EXPECT_NE(err.find("QInfo: 'b' only found in fallback file.\n"), std::string::npos) << err;
    EXPECT_EQ(err.find("'a'"), std::string::npos) << err;
}

// ---- SetString and Write --------------------------------------------------------------------------

TEST_F(QInfoTest, SetStringBuildsGroupsOnAnEmptyTree)
{
    CaptureStderr();
    {
        QInfo info("new.ini", QInfo::QIF_CREATE);
        EXPECT_FALSE(info.IsRead());
        EXPECT_TRUE(info.SetString("a.b.c", "1"));
        EXPECT_TRUE(info.GetFlags() & QInfo::QIF_MODIFIED);
        EXPECT_EQ(Get(info, "a.b.c"), "1");
        EXPECT_TRUE(info.Write(nullptr, true));
        EXPECT_EQ(info.GetFlags() & (QInfo::QIF_MODIFIED | QInfo::QIF_CREATE), 0);
    }
    EXPECT_EQ(GetCapturedStderr(), "");
    EXPECT_EQ(ReadFile("new.ini"), "a\n{\n  b\n  {\n    c=1\n  }\n}\n");
}

TEST_F(QInfoTest, SetStringRefusalsAndUnchangedValues)
{
    auto info = Parse("k=1\ng\n{\nx=2\n}\n");
    EXPECT_TRUE(info->SetString("k", "1"));
    // A key that isn't the last part, a group as the last part, an empty path.
    for (const char* path : {"k.x", "g", "g.x.y", ""})
        EXPECT_FALSE(info->SetString(path, "1")) << path;
    EXPECT_EQ(info->GetFlags() & QInfo::QIF_MODIFIED, 0);
    EXPECT_EQ(Get(*info, "k.x"), missing);
    // Nothing to save: no question even though the file changed on disk.
    TouchLater("t.ini", "k=7\n");
    EXPECT_EQ(WriteAnswering(*info, PLATFORM_ANSWER_CANCEL, true), "");
    EXPECT_EQ(ReadFile("t.ini"), "k=7\n");
    EXPECT_TRUE(info->SetString("g.x", "3"));
    EXPECT_TRUE(info->SetString("g.new", "4"));
    EXPECT_TRUE(info->GetFlags() & QInfo::QIF_MODIFIED);
    EXPECT_EQ(Get(*info, "g.x"), "3");
    EXPECT_EQ(Get(*info, "g.new"), "4");
    info->Write("out.ini", false);
    EXPECT_EQ(ReadFile("out.ini"), "k=1\ng\n{\n  x=3\n  new=4\n}\n");
    EXPECT_EQ(info->GetFlags() & QInfo::QIF_MODIFIED, 0);
}

TEST_F(QInfoTest, WriteOfAnUnchangedFileNormalisesOnlyIndentation)
{
    auto info = Parse("; head comment\ntop=1\ngrp\n{\n      ; inner\n   a= spaced\n\tb=2\n   sub\n   {\n"
                      " c=3\n   }\n}\nbase\n{\nx=1\n}\ncar~base\nlist=1, 2\n");
    const char* expected =
        "; head comment\ntop=1\ngrp\n{\n  ; inner\n  a= spaced\n  b=2\n  sub\n  {\n    c=3\n"
        "  }\n}\nbase\n{\n  x=1\n}\ncar~base\n{\n}\nlist=1, 2\n";
    EXPECT_TRUE(info->Write("out.ini", false));
    EXPECT_EQ(ReadFile("out.ini"), expected);
    EXPECT_EQ(ReadFile("t.ini").substr(0, 14), "; head comment"); // the own file is untouched
    std::unique_ptr<QInfo> again(new QInfo("out.ini", 0));
    EXPECT_EQ(Get(*again, "grp.a"), " spaced");
    EXPECT_EQ(Get(*again, "grp.sub.c"), "3");
    EXPECT_EQ(Get(*again, "car.x"), "1");
    EXPECT_EQ(Get(*again, "list"), "1, 2");
    EXPECT_TRUE(again->Write("out2.ini", false));
    EXPECT_EQ(ReadFile("out2.ini"), expected);
    // A group's head carries its reference and its value; a key without value gets an empty one.
    info = Parse("base\n{\nx=1\n}\ncar~base\n=5\ng=7\n{\ny=1\n}\nk\n");
    EXPECT_EQ(Get(*info, "car"), "5");
    EXPECT_TRUE(info->Write("out.ini", false));
    EXPECT_EQ(ReadFile("out.ini"), "base\n{\n  x=1\n}\ncar~base=5\n{\n}\ng=7\n{\n  y=1\n}\nk=\n");
}

TEST_F(QInfoTest, WriteAsksBeforeOverwritingAChangedFile)
{
    const std::string question = "[File was modified] The file 't.ini' was modified - it will be "
                                 "overwritten; do you want to overwrite?\n";
    auto info = Parse("k=1\n");
    info->SetString("k", "2");
    TouchLater("t.ini", "k=9\n");
    EXPECT_EQ(WriteAnswering(*info, PLATFORM_ANSWER_CANCEL, false), question);
    EXPECT_EQ(ReadFile("t.ini"), "k=9\n");
    EXPECT_EQ(info->GetFlags() & QInfo::QIF_MODIFIED, 0);
    EXPECT_EQ(Get(*info, "k"), "2"); // the change stays in memory
    CaptureStderr();
    info.reset(); // no longer counted as changed: no second question
    EXPECT_EQ(GetCapturedStderr(), "");
    EXPECT_EQ(ReadFile("t.ini"), "k=9\n");
    info = Parse("k=1\n");
    info->SetString("k", "2");
    TouchLater("t.ini", "k=9\n");
    EXPECT_EQ(WriteAnswering(*info, PLATFORM_ANSWER_YES, true), question);
    EXPECT_EQ(ReadFile("t.ini"), "k=2\n");
    info->SetString("k", "3"); // the time of that write is remembered: no question
    EXPECT_EQ(WriteAnswering(*info, PLATFORM_ANSWER_CANCEL, true), "");
    EXPECT_EQ(ReadFile("t.ini"), "k=3\n");
    info->SetString("k", "4"); // without ask there's no question at all
    TouchLater("t.ini", "k=9\n");
    CaptureStderr();
    EXPECT_TRUE(info->Write(nullptr, false));
    EXPECT_EQ(GetCapturedStderr(), "");
    EXPECT_EQ(ReadFile("t.ini"), "k=4\n");
    info->SetString("k", "6"); // the destructor asks as well
    TouchLater("t.ini", "k=9\n");
    PlatformSetAnswer(PLATFORM_ANSWER_YES);
    CaptureStderr();
    info.reset();
    EXPECT_EQ(GetCapturedStderr(), question);
    EXPECT_EQ(ReadFile("t.ini"), "k=6\n");
}

TEST_F(QInfoTest, WriteAsksBeforeRecreatingAVanishedFile)
{
    const std::string question =
        "[File does not exist] The file 't.ini' does not exist (anymore) - it will be "
        "created; do you want this?\n";
    auto info = Parse("k=1\n");
    info->SetString("k", "2");
    std::filesystem::remove("t.ini");
    EXPECT_EQ(WriteAnswering(*info, PLATFORM_ANSWER_CANCEL, false), question);
    EXPECT_FALSE(FileExists("t.ini"));
    if (!PlatformIsTerminal(0)) { // without a preset answer or a terminal the safe answer is Cancel
        info->SetString("k", "3");
        EXPECT_EQ(WriteAnswering(*info, PLATFORM_ANSWER_NONE, false), question);
        EXPECT_FALSE(FileExists("t.ini"));
    }
    info->SetString("k", "4");
    EXPECT_EQ(WriteAnswering(*info, PLATFORM_ANSWER_YES, true), question);
    EXPECT_EQ(ReadFile("t.ini"), "k=4\n");
}

TEST_F(QInfoTest, CreateFlagWritesWithoutQuestion)
{
    WriteFile("t.ini", "old=1\n");
    {
        QInfo info("t.ini", QInfo::QIF_CREATE);
        EXPECT_EQ(Get(info, "old"), missing); // not read
        info.SetString("n", "1");
        EXPECT_EQ(WriteAnswering(info, PLATFORM_ANSWER_CANCEL, true), "");
        EXPECT_EQ(ReadFile("t.ini"), "n=1\n");
        EXPECT_EQ(info.GetFlags() & QInfo::QIF_CREATE, 0);
        info.SetString("n", "2"); // written by the destructor, which now has the file's time
        CaptureStderr();
    }
    EXPECT_EQ(GetCapturedStderr(), "");
    EXPECT_EQ(ReadFile("t.ini"), "n=2\n");
}

TEST_F(QInfoTest, UnwritableFileWarnsAndStaysModified)
{
    CaptureStderr();
    {
        QInfo info("nodir/t.ini", QInfo::QIF_CREATE);
        info.SetString("k", "1");
        EXPECT_FALSE(info.Write(nullptr, false));
        EXPECT_TRUE(info.GetFlags() & QInfo::QIF_MODIFIED);
        PlatformSetAnswer(PLATFORM_ANSWER_CANCEL); // the destructor tries again, and asks
    }
    EXPECT_EQ(GetCapturedStderr(),
              "QInfo:Write(); file (nodir/t.ini) can't be written\n"
              "[File does not exist] The file 'nodir/t.ini' does not exist (anymore) - it "
              "will be created; do you want this?\n");
}

TEST_F(QInfoTest, DestructorWritesAChangedTree)
{
    auto info = Parse("k=1\n");
    info->SetString("k", "5");
    CaptureStderr();
    info.reset();
    EXPECT_EQ(GetCapturedStderr(), "");
    EXPECT_EQ(ReadFile("t.ini"), "k=5\n");
}

// ---- Iteration ------------------------------------------------------------------------------------

TEST_F(QInfoTest, IteratorLevelsOrderAndReferences)
{
    using Paths = std::vector<std::string>;
    auto info = Parse("g\n{\n; c\na=1\nsub\n{\nx=1\n}\nb=2\n}\ntop=3\nbase\n{\nx=1\ny=2\n}\ncar~base\n");
    EXPECT_EQ(Iterate(*info, "g", false), (Paths{"g.a", "g.sub", "g.b"}));
    EXPECT_EQ(Iterate(*info, nullptr, true),
              (Paths{"g", "g.a", "g.sub", "g.sub.x", "g.b", "top", "base", "base.x", "base.y", "car"}));
    EXPECT_EQ(Iterate(*info, "", false), (Paths{"g", "top", "base", "car"}));
    EXPECT_EQ(Iterate(*info, "g.sub", true), (Paths{"g.sub.x"}));
    EXPECT_EQ(Iterate(*info, "g.a", false), (Paths{"g.a", "g.sub", "g.b"}));
    EXPECT_EQ(Iterate(*info, "car.y", false), (Paths{"base.y"})); // a start found through a reference
    EXPECT_TRUE(Iterate(*info, "car", false).empty());           // car has no children of its own
    for (const char* path : {"nothere", "g.a.z", "g.nothere"})
        EXPECT_TRUE(Iterate(*info, path, true).empty()) << path;
    QInfoIterator it(info.get(), "g");
    qstring path, name;
    ASSERT_TRUE(it.GetNext(path, false, &name));
    EXPECT_STREQ(name.cstr(), "a");
    EXPECT_STREQ(path.cstr(), "g.a");
}

TEST_F(QInfoTest, IteratorReportsTooDeepTrees)
{
    QInfo info("deep.ini", QInfo::QIF_CREATE);
    ASSERT_TRUE(info.SetString("l1.l2.l3.l4.l5.l6.l7.l8.l9.l10.l11.l12", "1"));
    CaptureStderr();
    std::vector<std::string> paths = Iterate(info, nullptr, true);
    EXPECT_EQ(GetCapturedStderr(), "nestLevel>10 (QInfo::MAX_LEVEL) in QInfoIterator\n");
    ASSERT_EQ(paths.size(), 12u);
    EXPECT_EQ(paths[0], "l1");
    EXPECT_EQ(paths[11], "l3.l4.l5.l6.l7.l8.l9.l10.l11.l12"); // at most the 10 lowest names
    info.Write(nullptr, false);
}

// ---- Large files ----------------------------------------------------------------------------------

TEST_F(QInfoTest, LargeFilesReadAnswerAndFreeWithoutRecursionOrQuadraticWork)
{
    // The time limits guard against quadratic work (minutes); they are no speed goal.
    std::string text;
    for (int i = 1; i <= 100000; i++)
        text += "g" + std::to_string(i) + "\n{\n";
    text += "k=1\n";
    for (int i = 1; i < QInfo::MAX_LEVEL; i++)
        text += "}\n"; // as many as there are open groups
    auto start = std::chrono::steady_clock::now();
    auto seconds = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    std::string err;
    auto info = Parse(text, &err);
    EXPECT_EQ(err.rfind("QInfo: 't.ini' nests too deep (max 10 levels)\n", 0), 0u);
    // Past the limit each group lands in the one before: a chain as deep as the file.
    EXPECT_NE(info->FindNode("g1.g2.g3.g4.g5.g6.g7.g8.g9.g10.g11.g12"), nullptr);
    EXPECT_EQ(Get(*info, "g1.g2"), missing);
    info.reset();
    EXPECT_LT(seconds(), 60.0);

    text = "big\n{\n";
    for (int i = 0; i < 1000000; i++)
        text += "k" + std::to_string(i) + "=" + std::to_string(i) + "\n";
    start = std::chrono::steady_clock::now();
    info = Parse(text + "}\n");
    for (int key : {0, 123456, 999999})
        EXPECT_EQ(info->GetInt(("big.k" + std::to_string(key)).c_str(), -1), key);
    EXPECT_EQ(info->GetInt("big.k1000000", -1), -1);
    info.reset();
    EXPECT_LT(seconds(), 60.0);
}
