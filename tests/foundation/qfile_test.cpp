#include "foundation/qfile.h"
#include "foundation/qhelpers.h"
#include "foundation/qstring.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>

using namespace tarvik;
using tarvik::test::FileExists;
using tarvik::test::ReadFile;
using tarvik::test::TempDir;
using tarvik::test::WriteFile;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

// Reads up to n bytes and gives what arrived.
std::string ReadBytes(QFile& f, int n)
{
    std::string s(size_t(n), '\0');
    int got = f.Read(&s[0], n);
    s.resize(size_t(got < 0 ? 0 : got));
    return s;
}

// "count text" of one GetLine or GetWord into a buffer of 'size' (0: into a qstring).
std::string Line(QFile& f, int size, bool word = false)
{
    char buf[64];
    qstring text("old");
    std::memset(buf, 'x', sizeof buf);
    int n = size ? (word ? f.GetWord(buf, size) : f.GetLine(buf, size))
                 : (word ? f.GetWord(text) : f.GetLine(text));
    return std::to_string(n) + " " + (size ? buf : text.cstr());
}

// Modes under which one file is read: once through the stream, once preloaded.
const int readModes[] = {QFile::READ, QFile::READ | QFile::MEMORY};

std::string ModeName(int mode) { return (mode & QFile::MEMORY) ? "memory" : "stream"; }

} // namespace

// ---- Modes ------------------------------------------------------------------------------------

TEST(QFileTest, EachModeOpensCreatesReadsAndWritesAsItsStreamModeAnyOtherOpensNothing)
{
    // From "abcdef": read 2, seek to the start, write "XY", seek to the start, read the rest.
    struct Case {
        int mode;
        bool creates, truncates;
        const char *firstRead, *secondRead, *after; // null: not opened
    } cases[] = {
        {QFile::READ, false, false, "ab", "abcdef", "abcdef"},
        {QFile::READ_TEXT, false, false, "ab", "abcdef", "abcdef"},
        {QFile::WRITE, true, true, "", "", "XY"},
        {QFile::WRITE_TEXT, true, true, "", "", "XY"},
        {QFile::READ_WRITE, false, false, "ab", "XYcdef", "XYcdef"},
        {QFile::WRITE_READ, true, true, "", "XY", "XY"},
        {QFile::APPEND_TEXT, true, false, "", "", "abcdefXY"}, // appending ignores the position
        {QFile::APPEND, true, false, "", "", "abcdefXY"},
        {QFile::APPEND_READ_TEXT, true, false, "ab", "abcdefXY", "abcdefXY"},
        {0, false, false, nullptr, nullptr, nullptr}, {10, false, false, nullptr, nullptr, nullptr},
        {255, false, false, nullptr, nullptr, nullptr}, {-1, false, false, nullptr, nullptr, nullptr},
        {QFile::MEMORY, false, false, nullptr, nullptr, nullptr},
        {10 | QFile::MEMORY, false, false, nullptr, nullptr, nullptr},
    };
    TempDir dir(true);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.mode);
        WriteFile("f", "abcdef");
        CaptureStderr();
        {
            QFile f("f", c.mode);
            EXPECT_STREQ(f.GetName(), "f");
            ASSERT_EQ(f.IsOpen(), c.after != nullptr);
            if (c.after) {
                EXPECT_EQ(ReadFile("f"), c.truncates ? "" : "abcdef");
                EXPECT_EQ(ReadBytes(f, 2), c.firstRead);
                ASSERT_TRUE(f.Seek(0, QFile::SEEK_FROM_START));
                EXPECT_EQ(f.Write("XY", 2), c.mode == QFile::READ || c.mode == QFile::READ_TEXT ? 0 : 2);
                ASSERT_TRUE(f.Seek(0, QFile::SEEK_FROM_START));
                EXPECT_EQ(ReadBytes(f, 10), c.secondRead);
            }
        }
        EXPECT_EQ(GetCapturedStderr(), "");
        EXPECT_EQ(ReadFile("f"), c.after ? c.after : "abcdef");
        std::string name = "new" + std::to_string(c.mode);
        QFile g(name.c_str(), c.mode);
        EXPECT_EQ(g.IsOpen(), c.creates);
        EXPECT_EQ(FileExists(name), c.creates);
    }
}

// ---- Preloading ---------------------------------------------------------------------------------

TEST(QFileTest, ReadWithMemoryLoadsANonEmptyFileAndClosesTheStream)
{
    TempDir dir(true);
    WriteFile("f", "hello");
    int files = qGetOpenFileCount();
    int blocks = qGetAllocCount();
    CaptureStderr();
    {
        QFile f("f", QFile::READ | QFile::MEMORY);
        EXPECT_TRUE(f.IsOpen());
        EXPECT_EQ(f.GetStream(), nullptr);
        EXPECT_EQ(qGetOpenFileCount(), files);
        EXPECT_EQ(f.Size(), 5);
        EXPECT_EQ(f.Tell(), 0);
        WriteFile("f", "changed"); // the file is not looked at any more
        EXPECT_EQ(ReadBytes(f, 10), "hello");
    }
    EXPECT_EQ(GetCapturedStderr(), "");
    EXPECT_EQ(qGetAllocCount(), blocks); // the block and the name went with the object
    WriteFile("empty", ""); // an empty file stays an open stream
    QFile e("empty", QFile::READ | QFile::MEMORY);
    EXPECT_TRUE(e.IsOpen());
    EXPECT_NE(e.GetStream(), nullptr);
    EXPECT_EQ(e.Size(), 0);
    EXPECT_EQ(ReadBytes(e, 4), "");
    EXPECT_TRUE(e.IsEOF());
}

TEST(QFileTest, PreloadThatCannotBeDoneIsReportedAndLeavesTheStreamAtTheStart)
{
    TempDir dir(true);
    const std::string path = dir.File("f"), modeWarning = "QFile:ctor MEMORY req'd for '" + path +
                                                          "' but incompatible mode given\n";
    const struct {
        const char* name;
        int mode, failingAlloc; // the first allocation is the copy of the name, the second the block
        std::string err;
        const char* read; // null: not opened
    } cases[] = {
        {"f", QFile::READ_TEXT | QFile::MEMORY, 0,
         "QFile ctor: READ_TEXT and MEMORY flags are incompatible (buggy); turning off MEMORY\n", "hello"},
        {"f", QFile::READ_WRITE | QFile::MEMORY, 0, modeWarning, "hello"},
        {"f", QFile::APPEND | QFile::MEMORY, 0, modeWarning, ""},
        {"f", QFile::READ | QFile::MEMORY, 2,
         "QFile:ctor; not enough memory to preload file '" + path + "'\n", "hello"},
        {"missing", QFile::READ_WRITE | QFile::MEMORY, 0, "", nullptr}, // not opened: nothing said
        {"missing", QFile::READ | QFile::MEMORY, 0, "", nullptr},
    };
    WriteFile("f", "hello");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.mode);
        std::string name = dir.File(c.name);
        CaptureStderr();
        qSetAllocFailure(c.failingAlloc);
        QFile f(name.c_str(), c.mode);
        qSetAllocFailure(0);
        EXPECT_EQ(GetCapturedStderr(), c.err);
        EXPECT_STREQ(f.GetName(), name.c_str());
        ASSERT_EQ(f.IsOpen(), c.read != nullptr);
        if (!c.read) continue;
        EXPECT_NE(f.GetStream(), nullptr);
        EXPECT_EQ(f.Tell(), c.read[0] ? 0 : 5); // appending stands at the end
        EXPECT_EQ(ReadBytes(f, 10), c.read);
    }
}

TEST(QFileTest, MissingFileOrFolderReadsNothing)
{
    TempDir dir(true);
    std::filesystem::create_directory("folder"); // it would open, and no read of it would end
    for (const char* name : {"no such file", "folder"}) {
        SCOPED_TRACE(name);
        QFile f(name, QFile::READ);
        EXPECT_FALSE(f.IsOpen());
        EXPECT_TRUE(f.IsEOF());
        EXPECT_STREQ(f.GetName(), name);
        EXPECT_EQ(f.Tell(), 0);
        EXPECT_EQ(f.Size(), 0);
        EXPECT_FALSE(f.Seek(0, QFile::SEEK_FROM_START));
        EXPECT_EQ(f.GetChar(), 0);
        char buf[8] = "xxxxxxx";
        EXPECT_EQ(f.Read(buf, 4), 0);
        EXPECT_EQ(Line(f, 8), "0 ");
        EXPECT_EQ(Line(f, 8, true), "0 ");
        EXPECT_EQ(Line(f, 0), "0 ");
        qstring text("keep");
        EXPECT_EQ(f.Read(text), 0);
        EXPECT_STREQ(text.cstr(), "keep");
        EXPECT_EQ(f.Write("abc", 3), 0);
        EXPECT_TRUE(f.IsEOF());
    }
}

// ---- End of data and push-back -----------------------------------------------------------------

TEST(QFileTest, EofOnlyAfterAReadRunsIntoTheEnd)
{
    TempDir dir(true);
    WriteFile("f", "abc");
    for (int mode : readModes) {
        SCOPED_TRACE(ModeName(mode));
        QFile f("f", mode);
        EXPECT_EQ(ReadBytes(f, 3), "abc"); // exactly the rest is not the end
        EXPECT_FALSE(f.IsEOF());
        EXPECT_EQ(ReadBytes(f, 1), "");
        EXPECT_TRUE(f.IsEOF());
    }
    uint8_t block[3] = {'a', 0, 0xFF};
    QFile f("block", block, 3);
    for (int expected : {int('a'), 0, 0xFF})
        EXPECT_EQ(f.GetChar(), expected);
    EXPECT_FALSE(f.IsEOF()); // a byte of value 255 is not the end
    EXPECT_EQ(f.GetChar(), 255);
    EXPECT_TRUE(f.IsEOF());
    EXPECT_EQ(f.GetChar(), 255);
    EXPECT_TRUE(f.IsEOF());
    QFile g("block", block, 3);
    EXPECT_EQ(ReadBytes(g, 1), "a");
    EXPECT_EQ(ReadBytes(g, 5), std::string("\0\xFF", 2)); // passing the end delivers what is left
    EXPECT_TRUE(g.IsEOF());
    EXPECT_EQ(ReadBytes(g, 5), "");
    EXPECT_EQ(g.Read(block, 0), 0);
    QFile w("f", QFile::APPEND); // a read that fails ends the data: it never reaches the end
    EXPECT_EQ(w.GetChar(), 255);
    EXPECT_TRUE(w.IsEOF());
}

TEST(QFileTest, PushedBackCharacterComesFirstAndSurvivesASeek)
{
    TempDir dir(true);
    WriteFile("f", "abc");
    for (int mode : readModes) {
        SCOPED_TRACE(ModeName(mode));
        QFile f("f", mode);
        EXPECT_EQ(f.GetChar(), 'a');
        f.UnGetChar('Z');
        EXPECT_EQ(ReadBytes(f, 1), "Z");
        EXPECT_EQ(f.Tell(), 1); // the file wasn't touched
        f.UnGetChar('x');
        f.UnGetChar('Y'); // one place only: the last one wins
        EXPECT_EQ(ReadBytes(f, 3), "Ybc");
        EXPECT_EQ(ReadBytes(f, 1), "");
        EXPECT_TRUE(f.IsEOF());
        f.UnGetChar('q');
        EXPECT_FALSE(f.IsEOF());
        EXPECT_EQ(f.GetChar(), 'q');
        EXPECT_TRUE(f.IsEOF());
        f.UnGetChar('Z');
        ASSERT_TRUE(f.Seek(1, QFile::SEEK_FROM_START));
        EXPECT_EQ(f.GetChar(), 'Z');
        EXPECT_EQ(f.GetChar(), 'b');
    }
}

// ---- Seek, Tell, Size -------------------------------------------------------------------------

TEST(QFileTest, StreamSeekOriginsAreStartEndHere)
{
    TempDir dir(true);
    WriteFile("f", "0123456789");
    QFile f("f", QFile::READ);
    EXPECT_TRUE(f.Seek(-3, QFile::SEEK_FROM_END));
    EXPECT_EQ(f.Tell(), 7);
    EXPECT_TRUE(f.Seek(-2, QFile::SEEK_FROM_HERE));
    EXPECT_EQ(f.Tell(), 5);
    EXPECT_TRUE(f.Seek(4, QFile::SEEK_FROM_START));
    EXPECT_EQ(f.Size(), 10);
    EXPECT_EQ(f.Tell(), 4); // Size goes back to where it was
    EXPECT_FALSE(f.Seek(1, 3));
    EXPECT_FALSE(f.Seek(1, -1));
    EXPECT_EQ(f.GetChar(), '4');
}

TEST(QFileTest, MemorySeekStaysWithinTheBlock)
{
    // From the end the offset counts backwards; every result is clamped to 0..size.
    struct Step {
        long offset;
        int origin;
        long tell;
        int next; // GetChar() after the seek, or 0 for none
    } steps[] = {
        {4, QFile::SEEK_FROM_START, 4, '4'}, {50, QFile::SEEK_FROM_START, 10, 0},
        {3, QFile::SEEK_FROM_END, 7, '7'},   {50, QFile::SEEK_FROM_END, 0, 0},
        {0, QFile::SEEK_FROM_END, 10, 0},    {2, QFile::SEEK_FROM_START, 2, 0},
        {5, QFile::SEEK_FROM_HERE, 7, 0},    {50, QFile::SEEK_FROM_HERE, 10, 0},
        {6, QFile::SEEK_FROM_START, 6, 0},
    };
    char block[] = "0123456789";
    QFile f("block", block, 10);
    EXPECT_EQ(f.Size(), 10);
    for (const Step& s : steps) {
        SCOPED_TRACE(testing::Message() << s.offset << " from " << s.origin);
        EXPECT_TRUE(f.Seek(s.offset, s.origin));
        EXPECT_EQ(f.Tell(), s.tell);
        EXPECT_FALSE(f.IsEOF());
        if (s.next) {
            EXPECT_EQ(f.GetChar(), s.next);
        }
    }
    EXPECT_FALSE(f.Seek(1, 3));
    EXPECT_FALSE(f.Seek(1, -1));
    EXPECT_EQ(f.Tell(), 6);
    f.Seek(0, QFile::SEEK_FROM_END); // past the end, then back from there
    EXPECT_EQ(f.GetChar(), 255);
    EXPECT_TRUE(f.IsEOF());
    EXPECT_TRUE(f.Seek(-2, QFile::SEEK_FROM_HERE));
    EXPECT_FALSE(f.IsEOF());
    EXPECT_EQ(ReadBytes(f, 2), "89");
    EXPECT_TRUE(f.Seek(0, QFile::SEEK_FROM_START));
    EXPECT_EQ(ReadBytes(f, 2), "01");
}

// ---- Lines and words --------------------------------------------------------------------------

TEST(QFileTest, GetLineEndsAtLineFeedOrEndOfDataAndStoresAtMostSizeMinusOne)
{
    TempDir dir(true);
    for (const char* bytes : {"abc\r\n", "abc\n", "abc", "a\rb\rc\r\n"}) {
        WriteFile("f", bytes);
        for (int mode : {int(QFile::READ), int(QFile::READ_TEXT), QFile::READ | QFile::MEMORY}) {
            SCOPED_TRACE(testing::Message() << bytes << " " << mode);
            QFile f("f", mode);
            EXPECT_EQ(Line(f, 64), "3 abc");
            EXPECT_EQ(Line(f, 64), "0 ");
        }
    }
    char block[] = "abcdef\r\n\ntwo\nthree";
    QFile f("block", block, int(std::strlen(block)));
    const std::pair<int, const char*> rows[] = {{1, "0 "},     {4, "3 abc"}, {8, "3 def"}, {0, "0 "},
                                                {0, "3 two"}, {3, "2 th"},  {0, "3 ree"}};
    for (const auto& r : rows)
        EXPECT_EQ(Line(f, r.first), r.second);
    std::string longLine = std::string(12000, 'q') + "\n";
    QFile g("long", &longLine[0], int(longLine.size()));
    qstring line;
    EXPECT_EQ(g.GetLine(line), 10238);
    EXPECT_EQ(line.GetLength(), 10238);
    EXPECT_EQ(g.GetLine(line), 12000 - 10238);
}

TEST(QFileTest, WideLinesReadSixteenBitCharacters)
{
    const char bytes[] = {'a', 0, 'b', 0, '\r', 0, '\n', 0, 'c', 1};
    QFile f("block", const_cast<char*>(bytes), int(sizeof bytes));
    f.SetWideLines(true);
    qstring line;
    EXPECT_EQ(f.GetLine(line), 2);
    ASSERT_TRUE(line.IsWide());
    EXPECT_EQ(line.wstr()[0], 'a');
    EXPECT_EQ(line.wstr()[1], 'b');
    EXPECT_EQ(line.wstr()[2], 0);
    EXPECT_EQ(f.GetLine(line), 1);
    EXPECT_EQ(line.wstr()[0], 0x163);
}

TEST(QFileTest, GetWordSplitsAtBlanksKeepsQuotedTextAndStoresAtMostSizeMinusOne)
{
    TempDir dir(true);
    WriteFile("f", "  hello\tworld\r\n\"two  words\" \"\" \"a\nb\" end");
    for (int mode : readModes) {
        SCOPED_TRACE(ModeName(mode));
        QFile f("f", mode);
        // size -1 stands for "no limit"
        for (const char* word : {"5 hello", "5 world", "10 two  words", "0 ", "3 a\nb", "3 end", "0 "})
            EXPECT_EQ(Line(f, std::strcmp(word, "5 world") ? 64 : -1, true), word);
        EXPECT_TRUE(f.IsEOF());
    }
    char block[] = "abcdefg \"quoted text\"";
    QFile g("block", block, int(std::strlen(block)));
    // Nothing of a cut word is lost.
    for (const auto& r : {std::make_pair(4, "3 abc"), {8, "4 defg"}, {5, "4 quot"}})
        EXPECT_EQ(Line(g, r.first, true), r.second);
    std::string longWord(1500, 'w');
    QFile h("long", &longWord[0], int(longWord.size()));
    qstring word;
    EXPECT_EQ(h.GetWord(word), 1023);
    EXPECT_EQ(word.GetLength(), 1023);
    EXPECT_EQ(h.GetWord(word), 1500 - 1023);
}

TEST(QFileTest, SkipWhiteSpaceAndGetWordPushBackWhatEndsThem)
{
    char block[] = " \t\r\nX  abc\nnext line\n\"open text";
    QFile f("block", block, int(std::strlen(block)));
    f.SkipWhiteSpace();
    EXPECT_EQ(f.GetChar(), 'X');
    EXPECT_EQ(Line(f, 0, true), "3 abc");
    EXPECT_EQ(f.GetChar(), '\n');
    EXPECT_EQ(Line(f, 0), "9 next line");
    EXPECT_EQ(Line(f, 64, true), "9 open text"); // an unterminated quote runs to the end
    f.SkipWhiteSpace();
    EXPECT_TRUE(f.IsEOF());
}

// ---- Binary values and counted strings -----------------------------------------------------------

TEST(QFileTest, CountedStringsAndBigEndianValuesRoundTripLyingCountsStandAsTheyAre)
{
    TempDir dir(true);
    std::string longText(300, 'L');
    {
        QFile f("f", QFile::WRITE);
        EXPECT_EQ(f.Write(qstring("hello"), true), 7);
        EXPECT_EQ(f.Write(qstring(""), true), 2);
        EXPECT_EQ(f.Write(qstring(longText.c_str()), true), 302);
        EXPECT_EQ(f.Write(qstring("tail")), 4); // no length, no terminator
        EXPECT_EQ(f.Write("\x12\x34\x56\x78\x9A\xBC", 6), 6);
        // -2 empties the text and reads nothing more; 5 with two bytes left holds those two.
        EXPECT_EQ(f.Write("\xFE\xFF\x05\x00" "ab", 6), 6);
    }
    std::string bytes = ReadFile("f");
    EXPECT_EQ(bytes.substr(0, 11), std::string("\x05\x00hello\x00\x00\x2C\x01", 11));
    EXPECT_EQ(bytes.size(), 7u + 2u + 302u + 4u + 6u + 6u);
    for (int mode : readModes) {
        SCOPED_TRACE(ModeName(mode));
        QFile f("f", mode);
        qstring text("old");
        EXPECT_EQ(f.Read(text), 5);
        EXPECT_STREQ(text.cstr(), "hello");
        { QFile g("f", QFile::READ); } // frees the shared buffer
        EXPECT_EQ(f.Read(text), 0);
        EXPECT_STREQ(text.cstr(), "");
        EXPECT_EQ(f.Read(text), 300);
        EXPECT_EQ(std::string(text.cstr()), longText);
        EXPECT_EQ(ReadBytes(f, 4), "tail");
        uint16_t v16 = 0;
        uint32_t v32 = 0;
        EXPECT_EQ(f.ReadBE16(&v16), 2);
        EXPECT_EQ(v16, 0x1234);
        EXPECT_EQ(f.ReadBE32(&v32), 4);
        EXPECT_EQ(v32, 0x56789ABCu);
        text = "old";
        EXPECT_EQ(f.Read(text), -2);
        EXPECT_STREQ(text.cstr(), "");
        EXPECT_EQ(f.Read(text), 5);
        EXPECT_STREQ(text.cstr(), "ab");
    }
}

TEST(QFileTest, CountedStringWithoutMemoryWarns)
{
    TempDir dir(true);
    WriteFile("f", std::string("\xA0\x0F", 2) + std::string(4000, 's')); // 4000
    QFile f("f", QFile::READ);
    qstring text;
    CaptureStderr();
    qSetAllocFailure(1);
    int got = f.Read(text);
    qSetAllocFailure(0);
    EXPECT_EQ(GetCapturedStderr(), "QFile:Read(s); out of memory\n");
    EXPECT_EQ(got, 0);
}

// ---- Memory blocks -----------------------------------------------------------------------------

TEST(QFileTest, MemoryBlockIsTheCallersUnlessKept)
{
    TempDir dir(true);
    int blocks = qGetAllocCount();
    char* lent = static_cast<char*>(qmalloc(5));
    std::memcpy(lent, "abcd", 5);
    {
        QFile f("block", lent, 4);
        EXPECT_TRUE(f.IsOpen());
        EXPECT_EQ(f.GetStream(), nullptr);
        EXPECT_STREQ(f.GetName(), "block");
        EXPECT_EQ(f.Size(), 4);
        EXPECT_EQ(f.Write("xy", 2), 0);
        EXPECT_EQ(f.Write(qstring("xy")), 0);
        EXPECT_EQ(f.Write(qstring("xy"), true), 0);
        EXPECT_EQ(ReadBytes(f, 2), "ab");
        EXPECT_EQ(f.Tell(), 2);
    }
    EXPECT_STREQ(lent, "abcd"); // not freed, not changed
    EXPECT_EQ(qGetAllocCount(), blocks + 1);
    EXPECT_FALSE(FileExists("block"));
    qfree(lent);
    void* owned = qmalloc(3);
    std::memcpy(owned, "xyz", 3);
    {
        QFile f("owned", owned, 3);
        f.KeepMemory();
        EXPECT_EQ(ReadBytes(f, 3), "xyz");
    }
    EXPECT_EQ(qGetAllocCount(), blocks);
}
