#include "foundation/qinfo.h"
#include "foundation/qmessage.h"
#include "foundation/qstring.h"
#include "platform/platform.h"
#include "tests/foundation/cpulimit.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
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

// Writes 'info' to its own file, with 'answer' preset; gives what was said.
std::string WriteAnswering(QInfo& info, PlatformAnswer answer, bool ask, bool written)
{
    PlatformSetAnswer(answer);
    CaptureStderr();
    EXPECT_EQ(info.Write(nullptr, ask), written);
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
        CaptureStderr(); // the same from memory
        QInfo mem("t.ini", c.text, int(std::strlen(c.text)), c.flags);
        EXPECT_EQ(GetCapturedStderr(), err);
        EXPECT_EQ(err, c.err);
        for (const auto& v : c.values) {
            EXPECT_EQ(Get(*info, v.first), v.second ? v.second : missing) << v.first;
            EXPECT_EQ(Get(mem, v.first), Get(*info, v.first)) << v.first;
        }
    }
}

TEST_F(QInfoTest, TreeHoldsCommentsGroupsAndReferences)
{
    auto info = Parse("; a comment\nsignals\n{\nspeed\n{\nunit=km/h\n}\nfast~signals.speed\n}\n");
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

TEST_F(QInfoTest, TypedLookupsWarnButConvertAllTheSameAndMissingKeysGiveTheDefault)
{
    auto info = Parse("a = 5 \nb=2*3+1\nc=1.5\nw=12abc\nf=2.5\ne=-1.5e2\ng=1,5\nh=abc\nt=true\nx=2&1\n"
                      "y=1|8\n");
    EXPECT_EQ(Get(*info, "a"), " 5 ");
    // 'i': GetInt, by the evaluator; 'f': GetFloat, by atof; 'b': GetBool, unchecked (a word gives 0).
    const struct {
        char type;
        const char* path;
        float def, value;
        const char* warning;
    } cases[] = {
        {'i', "a", 0, 5, ""}, {'i', "b", 0, 7, ""}, {'i', "none", 42, 42, ""},
        {'i', "c", 9, 1,
         "c value '1.5' (in t.ini) is not a valid integer: a '.' is not allowed (floating point)\n"},
        {'i', "w", 9, 12,
         "w value '12abc' (in t.ini) is not a valid integer: character 'a' is not allowed\n"},
        {'f', "f", 0, 2.5f, ""}, {'f', "e", 0, -150, ""}, {'f', "none", 7.5f, 7.5f, ""},
        {'f', "g", 0, 1, "g value '1,5' (in t.ini) is not a valid float: use '.' instead of ','\n"},
        {'f', "h", 7, 0, "h value 'abc' (in t.ini) is not a valid float: character 'a' is not allowed\n"},
        {'b', "t", 1, 0, ""}, {'b', "a", 0, 1, ""}, {'b', "x", 1, 0, ""}, {'b', "y", 0, 1, ""},
        {'b', "none", 1, 1, ""}, {'b', "none", 0, 0, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        CaptureStderr();
        float got = c.type == 'i'   ? float(info->GetInt(c.path, int(c.def)))
                    : c.type == 'f' ? info->GetFloat(c.path, c.def)
                                    : float(info->GetBool(c.path, c.def != 0));
        EXPECT_FLOAT_EQ(got, c.value);
        EXPECT_EQ(GetCapturedStderr(), c.warning);
    }
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

TEST_F(QInfoTest, MissingFileOrFolderWarnsUnlessSilent)
{
    std::filesystem::create_directory("dir.ini"); // opened, its reads failed and never came to an end
    for (const char* name : {"nope.ini", "dir.ini"}) {
        CaptureStderr();
        EXPECT_EQ(test::RunWithCpuLimit(5, [&] {
            QInfo info(name, 0);
            char out[QInfo::MAX_PATH], none[QInfo::MAX_PATH];
            return !info.IsRead() && !info.GetString("x", out, "d") && !std::strcmp(out, "d") &&
                   !info.GetString("x", none, nullptr) && !none[0] &&
                   !QInfo(name, QInfo::QIF_SILENT).IsRead();
        }), "done");
        std::string warning = "QInfo: can't open '" + std::string(name) + "', current directory is '" +
                              std::filesystem::current_path().string() + "'";
        EXPECT_EQ(GetCapturedStderr(), warning + "\n"); // once: the silent one says nothing
        EXPECT_NE(ReadFile("QLOG.txt").find(warning), std::string::npos);
    }
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

TEST_F(QInfoTest, SetStringBuildsGroupsOnAnEmptyTreeThatIsCreatedWithoutQuestion)
{
    WriteFile("t.ini", "old=1\n");
    {
        QInfo info("t.ini", QInfo::QIF_CREATE);
        EXPECT_FALSE(info.IsRead());
        EXPECT_EQ(Get(info, "old"), missing); // not read
        EXPECT_TRUE(info.SetString("a.b.c", "1"));
        EXPECT_TRUE(info.GetFlags() & QInfo::QIF_MODIFIED);
        EXPECT_EQ(Get(info, "a.b.c"), "1");
        EXPECT_EQ(WriteAnswering(info, PLATFORM_ANSWER_CANCEL, true, true), "");
        EXPECT_EQ(info.GetFlags() & (QInfo::QIF_MODIFIED | QInfo::QIF_CREATE), 0);
        EXPECT_EQ(ReadFile("t.ini"), "a\n{\n  b\n  {\n    c=1\n  }\n}\n");
        info.SetString("a.b.c", "2"); // written by the destructor, which now has the file's time
        CaptureStderr();
    }
    EXPECT_EQ(GetCapturedStderr(), "");
    EXPECT_EQ(ReadFile("t.ini"), "a\n{\n  b\n  {\n    c=2\n  }\n}\n");
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
    EXPECT_EQ(WriteAnswering(*info, PLATFORM_ANSWER_CANCEL, true, true), "");
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

TEST_F(QInfoTest, WriteAsksBeforeReplacingAFileChangedOrRemovedOnDisk)
{
    const std::string modified = "[File was modified] The file 't.ini' was modified - it will be "
                                 "overwritten; do you want to overwrite?\n",
                      vanished = "[File does not exist] The file 't.ini' does not exist (anymore) - it "
                                 "will be created; do you want this?\n";
    enum Disk { SAME, CHANGED, REMOVED };
    // One tree through all steps; each sets k to its value, changes the file on disk, and writes.
    const struct {
        const char* value;
        Disk disk;
        bool ask;
        PlatformAnswer answer;
        bool written;
        const std::string* question; // null: none
        const char* file;            // afterwards; null: none
    } steps[] = {
        {"2", CHANGED, true, PLATFORM_ANSWER_CANCEL, false, &modified, "k=9\n"},
        {"3", CHANGED, true, PLATFORM_ANSWER_YES, true, &modified, "k=3\n"},
        {"4", SAME, true, PLATFORM_ANSWER_CANCEL, true, nullptr, "k=4\n"}, // the last write's time counts
        {"5", CHANGED, false, PLATFORM_ANSWER_CANCEL, true, nullptr, "k=5\n"},
        {"6", REMOVED, true, PLATFORM_ANSWER_CANCEL, false, &vanished, nullptr},
        {"7", REMOVED, true, PLATFORM_ANSWER_NONE, false, &vanished, nullptr}, // no terminal: Cancel
        {"8", REMOVED, true, PLATFORM_ANSWER_YES, true, &vanished, "k=8\n"},
    };
    auto info = Parse("k=1\n");
    for (const auto& s : steps) {
        SCOPED_TRACE(s.value);
        if (s.answer == PLATFORM_ANSWER_NONE && PlatformIsTerminal(0)) continue;
        info->SetString("k", s.value);
        if (s.disk == CHANGED) TouchLater("t.ini", "k=9\n");
        if (s.disk == REMOVED) std::filesystem::remove("t.ini");
        EXPECT_EQ(WriteAnswering(*info, s.answer, s.ask, s.written), s.question ? *s.question : "");
        EXPECT_EQ(FileExists("t.ini"), s.file != nullptr);
        EXPECT_EQ(ReadFile("t.ini"), s.file ? s.file : "");
        // Refused, the change stays in memory, but no longer counts as one: the destructor won't ask.
        EXPECT_EQ(info->GetFlags() & QInfo::QIF_MODIFIED, 0);
        EXPECT_EQ(Get(*info, "k"), s.value);
    }
    info->SetString("k", "x"); // the destructor asks as well
    TouchLater("t.ini", "k=9\n");
    PlatformSetAnswer(PLATFORM_ANSWER_YES);
    CaptureStderr();
    info.reset();
    EXPECT_EQ(GetCapturedStderr(), modified);
    EXPECT_EQ(ReadFile("t.ini"), "k=x\n");
}

TEST_F(QInfoTest, UnwritableFileWarnsStaysModifiedAndKeepsTheOldFile)
{
    CaptureStderr();
    {
        QInfo info("nodir/t.ini", QInfo::QIF_CREATE);
        info.SetString("k", "1");
        EXPECT_FALSE(info.Write(nullptr, false));
        EXPECT_TRUE(info.GetFlags() & QInfo::QIF_MODIFIED);
        EXPECT_FALSE(info.Write("/dev/full", false)); // a device is written directly, and fails
        PlatformSetAnswer(PLATFORM_ANSWER_CANCEL); // the destructor tries again, and asks
    }
    EXPECT_EQ(GetCapturedStderr(),
              "QInfo:Write(); file (nodir/t.ini) can't be written\n"
              "QInfo:Write(); file (/dev/full) can't be written\n"
              "[File does not exist] The file 'nodir/t.ini' does not exist (anymore) - it "
              "will be created; do you want this?\n");
    // A write cut short by the file size limit leaves the file as it was.
    auto info = Parse("k=old\n");
    info->SetString("k", std::string(5000, 'x').c_str());
    CaptureStderr();
    EXPECT_EQ(test::RunWithCpuLimit(5, [&] {
        rlimit limit{1000, 1000};
        return setrlimit(RLIMIT_FSIZE, &limit) == 0 && !info->Write(nullptr, false);
    }), "done");
    EXPECT_EQ(GetCapturedStderr(), "QInfo:Write(); file (t.ini) can't be written\n");
    EXPECT_EQ(ReadFile("t.ini"), "k=old\n");
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

TEST_F(QInfoTest, LargeFilesOfAnyShapeReadAnswerAndFreeWithoutRecursionOrQuadraticWork)
{
    // Each shape took minutes while a look-up or a reference walked every node of a level, or a new
    // key walked its whole hash chain; a probe of a hash costs microseconds. Deep: past the tenth
    // level each group lands in the one before, a chain as deep as the file. Wide: keys without a
    // value are found by the walk alone. Chained: each group takes over the one before it.
    std::string deep, big = "big\n{\n", wide, chained = "c0\n{\nx=0\n}\n";
    for (int i = 1; i <= 100000; i++) {
        std::string n = std::to_string(i);
        deep += "g" + n + "\n{\n";
        wide += "w" + n + "\n";
        if (i < 60000) chained += "c" + n + "~c" + std::to_string(i - 1) + "\n{\ny=" + n + "\n}\n";
    }
    for (int i = 1; i < QInfo::MAX_LEVEL; i++) deep += "}\n"; // as many as there are open groups
    for (int i = 0; i < 200000; i++) big += "k" + std::to_string(i) + "=" + std::to_string(i) + "\n";
    std::string how = test::RunWithCpuLimit(20, [&] {
        CaptureStderr(); // the deep file's warning
        QInfo d("deep", deep.data(), int(deep.size()), 0), b("big", big.data(), int(big.size()), 0),
            w("wide", wide.data(), int(wide.size()), 0), c("chained", chained.data(), int(chained.size()), 0);
        bool ok = GetCapturedStderr().rfind("QInfo: 'deep' nests too deep (max 10 levels)\n", 0) == 0 &&
                  d.FindNode("g1.g2.g3.g4.g5.g6.g7.g8.g9.g10.g11.g12") && Get(d, "g1.g2") == missing &&
                  b.GetInt("big.k0", -1) == 0 && b.GetInt("big.k199999", -1) == 199999 &&
                  b.GetInt("big.k200000", -1) == -1;
        for (int i = 1; i <= 100000; i += 3) ok = ok && Get(w, ("w" + std::to_string(i)).c_str()) == "?" &&
                                                Get(w, ("w" + std::to_string(i) + "x").c_str()) == missing;
        // A chain of references is followed ten steps down, no further.
        return ok && Get(c, "c10.x") == "0" && Get(c, "c11.x") == missing && Get(c, "c59999.y") == "59999" &&
               Get(c, "c59999.x") == missing;
    });
    EXPECT_EQ(how, "done");
}
