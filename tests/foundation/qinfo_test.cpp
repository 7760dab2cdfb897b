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

// ---- Tokens, comments, groups ---------------------------------------------------------------------

TEST_F(QInfoTest, TokenRules)
{
    std::string err;
    auto info = Parse("a\tb=1\n\xa0"
                      "c\xa0=2\ng{\nx=3\n}\n",
                      &err);
    EXPECT_EQ(Get(*info, "a\tb"), "1"); // a tab doesn't end a token
    EXPECT_EQ(Get(*info, "c"), "2");    // byte 160 does, and is skipped like a blank
    EXPECT_EQ(Get(*info, "g{"), "?");   // nor does a brace: "g{" is a key without value
    EXPECT_EQ(Get(*info, "x"), "3");    // ... so x stands at the root
    EXPECT_EQ(err, "QInfo(t.ini); more '}' brackets than '{' near line 2\n");
}

TEST_F(QInfoTest, GroupOpenedTwiceKeepsAllItsChildren)
{
    // The second brace opens the same group again, one level deeper; keys added at either level
    // belong to it. Found by fuzzing: the second level's key was lost (and leaked).
    std::string err;
    auto info = Parse("a\n{\n{\nx=1\n}\ny=2\n}\n", &err);
    EXPECT_EQ(Get(*info, "a.x"), "1");
    EXPECT_EQ(Get(*info, "a.y"), "2");
    EXPECT_EQ(Iterate(*info, "a", false), (std::vector<std::string>{"a.x", "a.y"}));
}

TEST_F(QInfoTest, GroupsCommentsAndReferences)
{
    auto info = Parse("; a comment\nsignals\n{\nspeed\n{\nunit=km/h\nmax=300\n}\nfast~signals.speed\n}\n"
                      "g=5\n{\nx=1\n}\nh\n{\n; x=1\n}\n");
    EXPECT_EQ(Get(*info, "signals.speed.unit"), "km/h");
    EXPECT_EQ(info->GetInt("signals.speed.max", 0), 300);
    EXPECT_EQ(Get(*info, "signals.fast.unit"), "km/h");
    EXPECT_EQ(Get(*info, "signals.fast.max"), "300");
    EXPECT_EQ(Get(*info, "g"), "5");       // a group may keep a value
    EXPECT_EQ(Get(*info, "h"), missing);   // a group without one isn't found
    EXPECT_EQ(Get(*info, "h.x"), missing); // the comment's text is no key
    EXPECT_EQ(Get(*info, "signals.speed.unit.more"), missing);

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
}

TEST_F(QInfoTest, OwnChildrenWinOverTheReference)
{
    auto info = Parse("base\n{\na=1\nb=2\n}\ncar~base\n{\na=3\n}\n");
    EXPECT_EQ(info->GetInt("car.a", 0), 3);
    EXPECT_EQ(info->GetInt("car.b", 0), 2);
    EXPECT_EQ(Get(*info, "car.c"), missing);
}

TEST_F(QInfoTest, ValuesKeepTheirBlanks)
{
    auto info = Parse("a = 5 \nb=2*3+1\n");
    EXPECT_EQ(Get(*info, "a"), " 5 ");
    char out[QInfo::MAX_PATH];
    EXPECT_TRUE(info->GetString("a", out, "d"));
    EXPECT_STREQ(out, " 5 ");
    CaptureStderr();
    EXPECT_EQ(info->GetInt("a", 0), 5);
    EXPECT_EQ(info->GetInt("b", 0), 7);
    EXPECT_EQ(GetCapturedStderr(), "");
}

TEST_F(QInfoTest, KeyWithoutValueIsNotHashed)
{
    auto info = Parse("k\nk=2\nsolo\n");
    EXPECT_EQ(Get(*info, "solo"), "?");
    // Had the first k been hashed, it would win over the assigned one.
    EXPECT_EQ(Get(*info, "k"), "2");
}

TEST_F(QInfoTest, FirstAssignmentWinsAndASecondEqualsReplaces)
{
    auto info = Parse("key=1\nkey=2\nk=1\n=2\nq=3\n");
    EXPECT_EQ(Get(*info, "key"), "1");
    EXPECT_EQ(Get(*info, "k"), "2");
    // All one-letter paths share a hash chain; k stands in it once, so the chain ends.
    EXPECT_EQ(Get(*info, "q"), "3");
    EXPECT_EQ(Get(*info, "z"), missing);
}

TEST_F(QInfoTest, KeyWithPointIsRefusedWithItsValue)
{
    std::string err;
    auto info = Parse("a=0\nb.c=1\nx.y~a\n", &err);
    EXPECT_EQ(err,
              "QInfo(t.ini): key with '.' found (b.c) - won't work; use { } to define subtrees (line 1)\n"
              "QInfo(t.ini): key with '.' found (x.y) - won't work; use { } to define subtrees (line 1)\n");
    EXPECT_EQ(Get(*info, "a"), "0");
    EXPECT_EQ(Get(*info, "b.c"), missing);
    EXPECT_EQ(Get(*info, "b"), missing);
}

TEST_F(QInfoTest, TokensWithoutSymbolWarn)
{
    std::string err;
    auto info = Parse("=5\n~x\n{\nk=1\n", &err);
    EXPECT_EQ(err, "QInfo: assign without symbol in line 1\n"
                   "QInfo: reference without symbol in line 1\n"
                   "QInfo: { without groupname\n");
    EXPECT_EQ(Get(*info, "k"), "1");
}

TEST_F(QInfoTest, ReferenceWarningsCountLinesAsTheParserDoes)
{
    std::string err;
    auto info = Parse("a=1\nb=2\nx~nothere\nleaf=1\ny~leaf\ng\n{\nk=1\n}\nr~nothere\n", &err);
    // The line feed behind a value or reference isn't counted; those behind tokens are.
    EXPECT_EQ(err, "QInfo(t.ini): reference (~) to unknown tree 'nothere' in line 1\n"
                   "QInfo(t.ini): ref to tree 'leaf' without child in line 1\n"
                   "QInfo(t.ini): reference (~) to unknown tree 'nothere' in line 4\n");
    EXPECT_EQ(Get(*info, "x"), "?");
    EXPECT_EQ(info->FindNode("y")->type, uint32_t(QInfoNode::KEY));
    EXPECT_EQ(info->FindNode("y")->ref, nullptr);

    info = Parse("a=1\r\nb=2\r\nx~nothere\r\nleaf=1\r\ny~leaf\r\n", &err);
    EXPECT_EQ(err, "QInfo(t.ini): reference (~) to unknown tree 'nothere' in line 3\n"
                   "QInfo(t.ini): ref to tree 'leaf' without child in line 5\n");
    EXPECT_EQ(Get(*info, "a"), "1"); // the carriage return isn't part of the value
}

TEST_F(QInfoTest, ReferencesBackToTheirOwnGroupDoNotHang)
{
    std::string err;
    auto info = Parse("a~a\n", &err);
    EXPECT_EQ(err, "QInfo(t.ini): ref to tree 'a' without child in line 1\n");
    EXPECT_EQ(Get(*info, "a.b"), missing);

    info = Parse("a\n{\nx=1\ny~a\n}\n");
    EXPECT_EQ(Get(*info, "a.y.x"), "1");
    EXPECT_EQ(Get(*info, "a.y.y.y.x"), "1");
    EXPECT_EQ(Get(*info, "a.y.q"), missing);
    EXPECT_EQ(Get(*info, "a.y.y.y.y.y.y.y.y.y.y.y.y.q"), missing);
}

// ---- Nesting and brackets -------------------------------------------------------------------------

TEST_F(QInfoTest, NineNestedGroupsAreFine)
{
    std::string text, path;
    for (int i = 1; i <= 9; i++) {
        text += "g" + std::to_string(i) + "\n{\n";
        path += "g" + std::to_string(i) + ".";
    }
    text += "k=1\n";
    for (int i = 1; i <= 9; i++)
        text += "}\n";
    auto info = Parse(text);
    EXPECT_EQ(Get(*info, (path + "k").c_str()), "1");
}

TEST_F(QInfoTest, TenthGroupReplacesTheNinthOnTheStack)
{
    std::string text, path;
    for (int i = 1; i <= 10; i++) {
        text += "g" + std::to_string(i) + "\n{\n";
        path += "g" + std::to_string(i) + ".";
    }
    text += "k=1\n}\nm=2\n";
    for (int i = 1; i <= 9; i++)
        text += "}\n";
    std::string err;
    auto info = Parse(text, &err);
    EXPECT_EQ(err, "QInfo: 't.ini' nests too deep (max 10 levels)\n"
                   "QInfo(t.ini); more '}' brackets than '{' near line 30\n");
    EXPECT_EQ(Get(*info, (path + "k").c_str()), "1");
    EXPECT_EQ(Get(*info, "g1.g2.g3.g4.g5.g6.g7.g8.m"), "2"); // one '}' closed g10 and g9
    EXPECT_EQ(info->FindNode("g1.g2.g3.g4.g5.g6.g7.g8.g9.g10")->parent,
              info->FindNode("g1.g2.g3.g4.g5.g6.g7.g8.g9"));
}

TEST_F(QInfoTest, BracketErrors)
{
    std::string err;
    auto info = Parse("}\na=1\ng\n{\nb=2\n}\n", &err);
    EXPECT_EQ(err, "QInfo(t.ini); more '}' brackets than '{' near line 1\n");
    EXPECT_EQ(Get(*info, "a"), "1");
    EXPECT_EQ(Get(*info, "g.b"), "2");

    info = Parse("g\n{\nh\n{\na=1\n", &err);
    EXPECT_EQ(err,
              "QInfo(t.ini); brackets don't match; still 2 closing bracket(s) expected at end of file.\n");
    EXPECT_EQ(Get(*info, "g.h.a"), "1");
}

TEST_F(QInfoTest, StopAtFirstClosingBrace)
{
    const char* text = "g\n{\na=1\n}\nb=2\n";
    auto info = Parse(text, nullptr, QInfo::QIF_STOP_AT_BRACE);
    EXPECT_EQ(Get(*info, "g.a"), "1");
    EXPECT_EQ(Get(*info, "b"), missing);
    info = Parse(text);
    EXPECT_EQ(Get(*info, "b"), "2");
}

TEST_F(QInfoTest, EndOfFileDropsATokenButKeepsAValue)
{
    auto info = Parse("a=1\nlast");
    EXPECT_EQ(Get(*info, "last"), missing);
    info = Parse("a=1\nb=xyz");
    EXPECT_EQ(Get(*info, "b"), "xyz");
}

// ---- Typed lookups --------------------------------------------------------------------------------

TEST_F(QInfoTest, GetIntWarnsButConvertsAllTheSame)
{
    auto info = Parse("c=1.5\nw=12abc\n");
    CaptureStderr();
    EXPECT_EQ(info->GetInt("c", 9), 1);
    EXPECT_EQ(info->GetInt("w", 9), 12);
    EXPECT_EQ(info->GetInt("none", 42), 42);
    EXPECT_EQ(GetCapturedStderr(),
              "c value '1.5' (in t.ini) is not a valid integer: a '.' is not allowed (floating point)\n"
              "w value '12abc' (in t.ini) is not a valid integer: character 'a' is not allowed\n");
}

TEST_F(QInfoTest, GetFloatWarnsButConvertsAllTheSame)
{
    auto info = Parse("f=2.5\ne=-1.5e2\ng=1,5\nh=abc\n");
    CaptureStderr();
    EXPECT_FLOAT_EQ(info->GetFloat("f", 0), 2.5f);
    EXPECT_FLOAT_EQ(info->GetFloat("e", 0), -150.0f);
    EXPECT_FLOAT_EQ(info->GetFloat("g", 0), 1.0f);
    EXPECT_FLOAT_EQ(info->GetFloat("h", 7), 0.0f);
    EXPECT_FLOAT_EQ(info->GetFloat("none", 7.5f), 7.5f);
    EXPECT_EQ(GetCapturedStderr(),
              "g value '1,5' (in t.ini) is not a valid float: use '.' instead of ','\n"
              "h value 'abc' (in t.ini) is not a valid float: character 'a' is not allowed\n");
}

TEST_F(QInfoTest, GetBoolEvaluates)
{
    auto info = Parse("t=true\no=1\nz=0\nx=2&1\ny=1|8\n");
    EXPECT_FALSE(info->GetBool("t", true)); // a word evaluates to 0
    EXPECT_TRUE(info->GetBool("o", false));
    EXPECT_FALSE(info->GetBool("z", true));
    EXPECT_FALSE(info->GetBool("x", true));
    EXPECT_TRUE(info->GetBool("y", false));
    EXPECT_TRUE(info->GetBool("none", true));
    EXPECT_FALSE(info->GetBool("none", false));
}

TEST_F(QInfoTest, GetFloatsSplitsAtBlanksAndCommas)
{
    auto info = Parse("c=1.5, 2 ,3,,4\nd=7\n");
    const float def[5] = {9, 8, 7, 6, 5};
    float out[5];
    EXPECT_TRUE(info->GetFloats("c", 5, out, def));
    EXPECT_EQ(std::vector<float>(out, out + 5), (std::vector<float>{1.5f, 2, 3, 4, 5}));
    EXPECT_TRUE(info->GetFloats("d", 3, out, nullptr));
    EXPECT_EQ(std::vector<float>(out, out + 3), (std::vector<float>{7, 0, 0}));
    EXPECT_TRUE(info->GetFloats("none", 5, out, def));
    EXPECT_EQ(std::vector<float>(out, out + 5), std::vector<float>(def, def + 5));
    EXPECT_TRUE(info->GetFloats("none", 2, out, nullptr));
    EXPECT_EQ(std::vector<float>(out, out + 3), (std::vector<float>{0, 0, 7})); // n places only
    out[2] = -1;
    EXPECT_TRUE(info->GetFloats("c", 2, out, def));
    EXPECT_EQ(std::vector<float>(out, out + 3), (std::vector<float>{1.5f, 2, -1}));
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
    {
        QInfo info("nope.ini", QInfo::QIF_SILENT);
        EXPECT_FALSE(info.IsRead());
    }
    EXPECT_EQ(GetCapturedStderr(), "");
    auto info = Parse("a=1\n");
    EXPECT_TRUE(info->IsRead());
    EXPECT_EQ(info->GetFlags(), QInfo::QIF_READ);
}

TEST_F(QInfoTest, RequiredKeyWarns)
{
    auto info = Parse("a=1\n", nullptr, QInfo::QIF_REQUIRED);
    CaptureStderr();
    EXPECT_EQ(Get(*info, "a"), "1");
    EXPECT_EQ(Get(*info, "b"), missing);
    EXPECT_EQ(info->GetInt("c", 3), 3);
    EXPECT_EQ(GetCapturedStderr(), "QInfo: 'b' not found in info or fallback - required\n"
                                   "QInfo: 'c' not found in info or fallback - required\n");
}

TEST_F(QInfoTest, FallbackIsAskedForWhatIsMissing)
{
    WriteFile("fb.ini", "a=9\nb=2\n");
    auto info = Parse("a=1\n");
    info->SetFallback(new QInfo("fb.ini", QInfo::QIF_REQUIRED));
    CaptureStderr();
    EXPECT_EQ(Get(*info, "a"), "1");
    EXPECT_EQ(info->GetInt("b", 0), 2);
    EXPECT_EQ(GetCapturedStderr(), "");
    CaptureStderr();
    char out[QInfo::MAX_PATH];
    EXPECT_FALSE(info->GetString("zz", out, "d"));
    EXPECT_STREQ(out, "d");
    EXPECT_EQ(GetCapturedStderr(), "QInfo: 'zz' not found in info or fallback - required\n");

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
    EXPECT_FALSE(info->SetString("k.x", "1")); // a key that isn't the last part
    EXPECT_FALSE(info->SetString("g", "1"));   // a group as the last part
    EXPECT_FALSE(info->SetString("g.x.y", "1"));
    EXPECT_FALSE(info->SetString("", "1"));
    EXPECT_EQ(info->GetFlags() & QInfo::QIF_MODIFIED, 0);
    EXPECT_EQ(Get(*info, "k.x"), missing);

    // Nothing to save: no question even though the file changed on disk.
    TouchLater("t.ini", "k=7\n");
    CaptureStderr();
    EXPECT_TRUE(info->Write(nullptr, true));
    EXPECT_EQ(GetCapturedStderr(), "");
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
}

TEST_F(QInfoTest, WrittenHeadsCarryReferenceAndValue)
{
    auto info = Parse("base\n{\nx=1\n}\ncar~base\n=5\ng=7\n{\ny=1\n}\nk\n");
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
    PlatformSetAnswer(PLATFORM_ANSWER_CANCEL);
    CaptureStderr();
    EXPECT_FALSE(info->Write(nullptr, true));
    EXPECT_EQ(GetCapturedStderr(), question);
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
    PlatformSetAnswer(PLATFORM_ANSWER_YES);
    CaptureStderr();
    EXPECT_TRUE(info->Write(nullptr, true));
    EXPECT_EQ(GetCapturedStderr(), question);
    EXPECT_EQ(ReadFile("t.ini"), "k=2\n");
    // The time of that write is remembered: the next write doesn't ask.
    info->SetString("k", "3");
    CaptureStderr();
    EXPECT_TRUE(info->Write(nullptr, true));
    EXPECT_EQ(GetCapturedStderr(), "");
    EXPECT_EQ(ReadFile("t.ini"), "k=3\n");

    // Without ask there's no question at all.
    info->SetString("k", "4");
    TouchLater("t.ini", "k=9\n");
    CaptureStderr();
    EXPECT_TRUE(info->Write(nullptr, false));
    EXPECT_EQ(GetCapturedStderr(), "");
    EXPECT_EQ(ReadFile("t.ini"), "k=4\n");
}

TEST_F(QInfoTest, WriteAsksBeforeRecreatingAVanishedFile)
{
    const std::string question =
        "[File does not exist] The file 't.ini' does not exist (anymore) - it will be "
        "created; do you want this?\n";
    auto info = Parse("k=1\n");
    info->SetString("k", "2");
    std::filesystem::remove("t.ini");
    PlatformSetAnswer(PLATFORM_ANSWER_CANCEL);
    CaptureStderr();
    EXPECT_FALSE(info->Write(nullptr, true));
    EXPECT_EQ(GetCapturedStderr(), question);
    EXPECT_FALSE(FileExists("t.ini"));

    if (!PlatformIsTerminal(0)) { // without a preset answer or a terminal the safe answer is Cancel
        PlatformSetAnswer(PLATFORM_ANSWER_NONE);
        info->SetString("k", "3");
        CaptureStderr();
        EXPECT_FALSE(info->Write(nullptr, true));
        EXPECT_EQ(GetCapturedStderr(), question);
        EXPECT_FALSE(FileExists("t.ini"));
    }

    info->SetString("k", "4");
    PlatformSetAnswer(PLATFORM_ANSWER_YES);
    CaptureStderr();
    EXPECT_TRUE(info->Write(nullptr, true));
    EXPECT_EQ(GetCapturedStderr(), question);
    EXPECT_EQ(ReadFile("t.ini"), "k=4\n");
}

TEST_F(QInfoTest, CreateFlagWritesWithoutQuestion)
{
    WriteFile("t.ini", "old=1\n");
    PlatformSetAnswer(PLATFORM_ANSWER_CANCEL);
    CaptureStderr();
    {
        QInfo info("t.ini", QInfo::QIF_CREATE);
        EXPECT_EQ(Get(info, "old"), missing); // not read
        info.SetString("n", "1");
        EXPECT_TRUE(info.Write(nullptr, true));
        EXPECT_EQ(ReadFile("t.ini"), "n=1\n");
        EXPECT_EQ(info.GetFlags() & QInfo::QIF_CREATE, 0);
        info.SetString("n", "2"); // written by the destructor, which now has the file's time
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

    info = Parse("k=1\n");
    info->SetString("k", "6");
    TouchLater("t.ini", "k=9\n");
    PlatformSetAnswer(PLATFORM_ANSWER_YES);
    CaptureStderr();
    info.reset();
    EXPECT_NE(GetCapturedStderr().find("[File was modified]"), std::string::npos);
    EXPECT_EQ(ReadFile("t.ini"), "k=6\n");
}

// ---- Iteration ------------------------------------------------------------------------------------

TEST_F(QInfoTest, IteratorLevelsAndOrder)
{
    auto info = Parse("g\n{\n; c\na=1\nsub\n{\nx=1\n}\nb=2\n}\ntop=3\n");
    EXPECT_EQ(Iterate(*info, "g", false), (std::vector<std::string>{"g.a", "g.sub", "g.b"}));
    EXPECT_EQ(Iterate(*info, nullptr, true),
              (std::vector<std::string>{"g", "g.a", "g.sub", "g.sub.x", "g.b", "top"}));
    EXPECT_EQ(Iterate(*info, "", false), (std::vector<std::string>{"g", "top"}));
    EXPECT_EQ(Iterate(*info, "g.sub", true), (std::vector<std::string>{"g.sub.x"}));
    EXPECT_EQ(Iterate(*info, "g.a", false), (std::vector<std::string>{"g.a", "g.sub", "g.b"}));
    EXPECT_TRUE(Iterate(*info, "nothere", true).empty());
    EXPECT_TRUE(Iterate(*info, "g.a.z", true).empty());
    EXPECT_TRUE(Iterate(*info, "g.nothere", false).empty());

    QInfoIterator it(info.get(), "g");
    qstring path, name;
    ASSERT_TRUE(it.GetNext(path, false, &name));
    EXPECT_STREQ(name.cstr(), "a");
    EXPECT_STREQ(path.cstr(), "g.a");
}

TEST_F(QInfoTest, IteratorFollowsReferencesToItsStart)
{
    auto info = Parse("base\n{\nx=1\ny=2\n}\ncar~base\n");
    EXPECT_EQ(Iterate(*info, "car.y", false), (std::vector<std::string>{"base.y"}));
    EXPECT_TRUE(Iterate(*info, "car", false).empty()); // car has no children of its own
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

TEST_F(QInfoTest, DeeplyNestedFileReadsAndFreesWithoutRecursion)
{
    const int depth = 100000;
    std::string text;
    for (int i = 1; i <= depth; i++)
        text += "g" + std::to_string(i) + "\n{\n";
    text += "k=1\n";
    for (int i = 1; i < QInfo::MAX_LEVEL; i++)
        text += "}\n"; // as many as there are open groups
    auto start = std::chrono::steady_clock::now();
    std::string err;
    auto info = Parse(text, &err);
    EXPECT_EQ(err.rfind("QInfo: 't.ini' nests too deep (max 10 levels)\n", 0), 0u);
    // Past the limit each group lands in the one before: a chain as deep as the file.
    EXPECT_NE(info->FindNode("g1.g2.g3.g4.g5.g6.g7.g8.g9.g10.g11.g12"), nullptr);
    EXPECT_EQ(Get(*info, "g1.g2"), missing);
    info.reset();
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_LT(seconds, 60.0); // a guard against quadratic work (minutes), not a speed goal
}

TEST_F(QInfoTest, MillionKeysReadAndAnswerQuickly)
{
    const int count = 1000000;
    std::string text = "big\n{\n";
    text.reserve(size_t(count) * 16);
    for (int i = 0; i < count; i++)
        text += "k" + std::to_string(i) + "=" + std::to_string(i) + "\n";
    text += "}\n";
    auto start = std::chrono::steady_clock::now();
    auto info = Parse(text);
    EXPECT_EQ(info->GetInt("big.k0", -1), 0);
    EXPECT_EQ(info->GetInt("big.k123456", -1), 123456);
    EXPECT_EQ(info->GetInt("big.k999999", -1), 999999);
    EXPECT_EQ(info->GetInt("big.k1000000", -1), -1);
    info.reset();
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_LT(seconds, 60.0); // a guard against quadratic work (minutes), not a speed goal
}
