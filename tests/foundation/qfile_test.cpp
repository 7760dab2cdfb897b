#include "foundation/qfile.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "foundation/qstring.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

using namespace tarvik;
using tarvik::test::FileExists;
using tarvik::test::ReadFile;
using tarvik::test::TempDir;
using tarvik::test::WriteFile;

namespace {

// Reads up to n bytes and gives what arrived.
std::string ReadBytes(QFile& f, int n)
{
    std::string s(size_t(n), '\0');
    int got = f.Read(&s[0], n);
    s.resize(size_t(got < 0 ? 0 : got));
    return s;
}

// Modes under which one file is read: once through the stream, once preloaded.
const int readModes[] = {QFile::READ, QFile::READ | QFile::MEMORY};

std::string ModeName(int mode) { return (mode & QFile::MEMORY) ? "memory" : "stream"; }

} // namespace

// ---- Modes ------------------------------------------------------------------------------------

TEST(QFileTest, ReadModesReadButDoNotWrite)
{
    TempDir dir(true);
    for (int mode : {int(QFile::READ), int(QFile::READ_TEXT)}) {
        WriteFile("f", "abc");
        {
            QFile f("f", mode);
            ASSERT_TRUE(f.IsOpen());
            EXPECT_EQ(ReadBytes(f, 10), "abc");
            EXPECT_EQ(f.Write("xyz", 3), 0);
        }
        EXPECT_EQ(ReadFile("f"), "abc");
    }
}

TEST(QFileTest, WriteModesTruncateAndCannotRead)
{
    TempDir dir(true);
    for (int mode : {int(QFile::WRITE), int(QFile::WRITE_TEXT)}) {
        WriteFile("f", "old content");
        {
            QFile f("f", mode);
            ASSERT_TRUE(f.IsOpen());
            EXPECT_EQ(ReadFile("f"), "");
            EXPECT_EQ(f.Write("new", 3), 3);
            EXPECT_EQ(ReadBytes(f, 5), "");
        }
        EXPECT_EQ(ReadFile("f"), "new");
    }
}

TEST(QFileTest, ReadWriteKeepsContentAndOverwritesInPlace)
{
    TempDir dir(true);
    WriteFile("f", "abcdef");
    {
        QFile f("f", QFile::READ_WRITE);
        ASSERT_TRUE(f.IsOpen());
        EXPECT_EQ(ReadBytes(f, 2), "ab");
        ASSERT_TRUE(f.Seek(0, QFile::SEEK_FROM_HERE)); // a seek between reading and writing
        EXPECT_EQ(f.Write("XY", 2), 2);
    }
    EXPECT_EQ(ReadFile("f"), "abXYef");
}

TEST(QFileTest, WriteReadTruncatesAndReadsBack)
{
    TempDir dir(true);
    WriteFile("f", "old content");
    QFile f("f", QFile::WRITE_READ);
    ASSERT_TRUE(f.IsOpen());
    EXPECT_EQ(f.Write("hello", 5), 5);
    ASSERT_TRUE(f.Seek(0, QFile::SEEK_FROM_START));
    EXPECT_EQ(ReadBytes(f, 20), "hello");
}

TEST(QFileTest, AppendModesWriteAtTheEnd)
{
    TempDir dir(true);
    for (int mode : {int(QFile::APPEND_TEXT), int(QFile::APPEND)}) {
        WriteFile("f", "abc");
        {
            QFile f("f", mode);
            ASSERT_TRUE(f.IsOpen());
            f.Seek(0, QFile::SEEK_FROM_START); // appending ignores the position
            EXPECT_EQ(f.Write("de", 2), 2);
            EXPECT_EQ(ReadBytes(f, 5), "");
        }
        EXPECT_EQ(ReadFile("f"), "abcde");
    }
}

TEST(QFileTest, AppendReadTextReadsFromStartAndAppends)
{
    TempDir dir(true);
    WriteFile("f", "abc");
    {
        QFile f("f", QFile::APPEND_READ_TEXT);
        ASSERT_TRUE(f.IsOpen());
        EXPECT_EQ(ReadBytes(f, 3), "abc");
        ASSERT_TRUE(f.Seek(0, QFile::SEEK_FROM_START));
        EXPECT_EQ(f.Write("d", 1), 1);
        ASSERT_TRUE(f.Seek(0, QFile::SEEK_FROM_START));
        EXPECT_EQ(ReadBytes(f, 10), "abcd");
    }
    EXPECT_EQ(ReadFile("f"), "abcd");
}

TEST(QFileTest, OnlyWritingModesCreateAMissingFile)
{
    TempDir dir(true);
    for (int mode = QFile::READ; mode <= QFile::WRITE_TEXT; mode++) {
        SCOPED_TRACE(mode);
        std::string name = "new" + std::to_string(mode);
        QFile f(name.c_str(), mode);
        bool creates = mode != QFile::READ && mode != QFile::READ_WRITE && mode != QFile::READ_TEXT;
        EXPECT_EQ(f.IsOpen(), creates);
        EXPECT_EQ(FileExists(name), creates);
    }
}

TEST(QFileTest, InvalidModeOpensNothing)
{
    TempDir dir(true);
    WriteFile("f", "abc");
    for (int mode : {0, 10, 255, -1, int(QFile::MEMORY), 10 | QFile::MEMORY}) {
        SCOPED_TRACE(mode);
        testing::internal::CaptureStderr();
        {
            QFile f("f", mode);
            EXPECT_FALSE(f.IsOpen());
            EXPECT_EQ(f.GetStream(), nullptr);
            EXPECT_STREQ(f.GetName(), "f");
        }
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_EQ(ReadFile("f"), "abc");
    }
    QFile g("g", 10);
    EXPECT_FALSE(FileExists("g"));
}

// ---- Preloading ---------------------------------------------------------------------------------

TEST(QFileTest, ReadWithMemoryLoadsTheFileAndClosesTheStream)
{
    TempDir dir(true);
    WriteFile("f", "hello");
    int files = qGetOpenFileCount();
    int blocks = qGetAllocCount();
    testing::internal::CaptureStderr();
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
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(qGetAllocCount(), blocks); // the block and the name went with the object
}

TEST(QFileTest, ReadTextWithMemoryIsAnErrorAndStaysAStream)
{
    TempDir dir(true);
    WriteFile("f", "line\n");
    qmsgReset();
    testing::internal::CaptureStderr();
    QFile f("f", QFile::READ_TEXT | QFile::MEMORY);
    const char* text = "QFile ctor: READ_TEXT and MEMORY flags are incompatible (buggy); turning off MEMORY";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string(text) + "\n");
    std::string log = tarvik::test::LogWithoutTimes(ReadFile("QLOG.txt"));
    EXPECT_NE(log.find("(ERR  ): "), std::string::npos) << log;
    EXPECT_NE(log.find(text), std::string::npos) << log;
    ASSERT_TRUE(f.IsOpen());
    EXPECT_NE(f.GetStream(), nullptr);
    EXPECT_EQ(ReadBytes(f, 10), "line\n");
}

TEST(QFileTest, OtherModesWithMemoryWarnAndKeepTheStream)
{
    TempDir dir(true);
    for (int mode : {int(QFile::READ_WRITE), int(QFile::APPEND)}) {
        SCOPED_TRACE(mode);
        WriteFile("f", "abc");
        std::string path = dir.File("f");
        qmsgReset();
        testing::internal::CaptureStderr();
        {
            QFile f(path.c_str(), mode | QFile::MEMORY);
            EXPECT_TRUE(f.IsOpen());
            EXPECT_NE(f.GetStream(), nullptr);
            EXPECT_EQ(f.Write("d", 1), 1);
        }
        std::string text = "QFile:ctor MEMORY req'd for '" + path + "' but incompatible mode given";
        EXPECT_EQ(testing::internal::GetCapturedStderr(), text + "\n");
        std::string log = tarvik::test::LogWithoutTimes(ReadFile("QLOG.txt"));
        EXPECT_NE(log.find("(WARN ): "), std::string::npos) << log;
        EXPECT_NE(log.find(text), std::string::npos) << log;
    }
}

TEST(QFileTest, MemoryWithAFileThatDoesNotOpenSaysNothing)
{
    TempDir dir(true);
    testing::internal::CaptureStderr();
    QFile f("missing", QFile::READ_WRITE | QFile::MEMORY);
    QFile g("missing", QFile::READ | QFile::MEMORY);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_FALSE(f.IsOpen());
    EXPECT_FALSE(g.IsOpen());
}

TEST(QFileTest, EmptyFileWithMemoryStaysAnOpenStream)
{
    TempDir dir(true);
    WriteFile("empty", "");
    QFile f("empty", QFile::READ | QFile::MEMORY);
    EXPECT_TRUE(f.IsOpen());
    EXPECT_NE(f.GetStream(), nullptr);
    EXPECT_EQ(f.Size(), 0);
    EXPECT_EQ(ReadBytes(f, 4), "");
    EXPECT_TRUE(f.IsEOF());
}

TEST(QFileTest, PreloadWithoutMemoryWarnsAndReadsTheStreamFromTheStart)
{
    TempDir dir(true);
    WriteFile("f", "hello");
    std::string path = dir.File("f");
    testing::internal::CaptureStderr();
    qSetAllocFailure(2); // the first allocation is the copy of the name, the second the block
    QFile f(path.c_str(), QFile::READ | QFile::MEMORY);
    qSetAllocFailure(0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "QFile:ctor; not enough memory to preload file '" + path + "'\n");
    EXPECT_STREQ(f.GetName(), path.c_str());
    ASSERT_TRUE(f.IsOpen());
    EXPECT_NE(f.GetStream(), nullptr);
    EXPECT_EQ(f.Tell(), 0);
    EXPECT_EQ(ReadBytes(f, 10), "hello");
}

// ---- A file that isn't there ----------------------------------------------------------------------

TEST(QFileTest, MissingFileReadsNothing)
{
    TempDir dir(true);
    QFile f("no such file", QFile::READ);
    EXPECT_FALSE(f.IsOpen());
    EXPECT_TRUE(f.IsEOF());
    EXPECT_STREQ(f.GetName(), "no such file");
    EXPECT_EQ(f.Tell(), 0);
    EXPECT_EQ(f.Size(), 0);
    EXPECT_FALSE(f.Seek(0, QFile::SEEK_FROM_START));
    EXPECT_EQ(f.GetChar(), 0);
    char buf[8] = "xxxxxxx";
    EXPECT_EQ(f.Read(buf, 4), 0);
    EXPECT_EQ(f.GetLine(buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "");
    std::memcpy(buf, "xxxxxxx", 8);
    EXPECT_EQ(f.GetWord(buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "");
    qstring text("keep");
    EXPECT_EQ(f.Read(text), 0);
    EXPECT_STREQ(text.cstr(), "keep");
    EXPECT_EQ(f.GetLine(text), 0);
    EXPECT_STREQ(text.cstr(), "");
    EXPECT_EQ(f.Write("abc", 3), 0);
    EXPECT_TRUE(f.IsEOF());
}

// ---- End of data and push-back -----------------------------------------------------------------

TEST(QFileTest, MemoryModeEofOnlyAfterReadPastEnd)
{
    uint8_t block[3] = {'a', 0, 0xFF};
    QFile f("block", block, 3);
    EXPECT_EQ(f.GetChar(), 'a');
    EXPECT_EQ(f.GetChar(), 0);
    EXPECT_EQ(f.GetChar(), 0xFF);
    EXPECT_FALSE(f.IsEOF()); // a byte of value 255 is not the end
    EXPECT_EQ(f.GetChar(), 255);
    EXPECT_TRUE(f.IsEOF());
    EXPECT_EQ(f.GetChar(), 255);
    EXPECT_TRUE(f.IsEOF());
}

TEST(QFileTest, MemoryModeReadOfExactlyTheRestIsNotTheEnd)
{
    char block[] = "abc";
    QFile f("block", block, 3);
    EXPECT_EQ(ReadBytes(f, 3), "abc");
    EXPECT_FALSE(f.IsEOF());
    EXPECT_EQ(ReadBytes(f, 1), "");
    EXPECT_TRUE(f.IsEOF());

    QFile g("block", block, 3);
    EXPECT_EQ(ReadBytes(g, 1), "a");
    EXPECT_EQ(ReadBytes(g, 5), "bc"); // passing the end delivers what is left
    EXPECT_TRUE(g.IsEOF());
    EXPECT_EQ(ReadBytes(g, 5), "");
    EXPECT_EQ(g.Read(block, 0), 0);
}

TEST(QFileTest, StreamEofFollowsTheStream)
{
    TempDir dir(true);
    WriteFile("f", "abc");
    QFile f("f", QFile::READ);
    EXPECT_EQ(ReadBytes(f, 3), "abc");
    EXPECT_FALSE(f.IsEOF());
    EXPECT_EQ(ReadBytes(f, 1), "");
    EXPECT_TRUE(f.IsEOF());
}

TEST(QFileTest, PushedBackCharacterComesFirst)
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
    }
}

TEST(QFileTest, SeekKeepsThePushedBackCharacter)
{
    TempDir dir(true);
    WriteFile("f", "0123456789");
    for (int mode : readModes) {
        SCOPED_TRACE(ModeName(mode));
        QFile f("f", mode);
        f.UnGetChar('Z');
        ASSERT_TRUE(f.Seek(5, QFile::SEEK_FROM_START));
        EXPECT_EQ(f.GetChar(), 'Z');
        EXPECT_EQ(f.GetChar(), '5');
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
    EXPECT_EQ(f.Tell(), 4);
    EXPECT_EQ(f.GetChar(), '4');
}

TEST(QFileTest, MemorySeekStaysWithinTheBlock)
{
    char block[] = "0123456789";
    QFile f("block", block, 10);
    EXPECT_EQ(f.Size(), 10);
    EXPECT_TRUE(f.Seek(4, QFile::SEEK_FROM_START));
    EXPECT_EQ(f.GetChar(), '4');
    EXPECT_TRUE(f.Seek(50, QFile::SEEK_FROM_START));
    EXPECT_EQ(f.Tell(), 10);
    EXPECT_FALSE(f.IsEOF());
    EXPECT_EQ(f.GetChar(), 255);
    EXPECT_TRUE(f.IsEOF());

    EXPECT_TRUE(f.Seek(3, QFile::SEEK_FROM_END)); // from the end, backwards
    EXPECT_EQ(f.Tell(), 7);
    EXPECT_FALSE(f.IsEOF());
    EXPECT_EQ(f.GetChar(), '7');
    EXPECT_TRUE(f.Seek(50, QFile::SEEK_FROM_END));
    EXPECT_EQ(f.Tell(), 0);
    EXPECT_TRUE(f.Seek(0, QFile::SEEK_FROM_END));
    EXPECT_EQ(f.Tell(), 10);

    EXPECT_TRUE(f.Seek(2, QFile::SEEK_FROM_START));
    EXPECT_TRUE(f.Seek(5, QFile::SEEK_FROM_HERE));
    EXPECT_EQ(f.Tell(), 7);
    EXPECT_TRUE(f.Seek(50, QFile::SEEK_FROM_HERE));
    EXPECT_EQ(f.Tell(), 10);

    EXPECT_TRUE(f.Seek(6, QFile::SEEK_FROM_START));
    EXPECT_FALSE(f.Seek(1, 3));
    EXPECT_FALSE(f.Seek(1, -1));
    EXPECT_EQ(f.Tell(), 6);
}

TEST(QFileTest, MemorySeekAfterTheEndRewinds)
{
    char block[] = "ab";
    QFile f("block", block, 2);
    EXPECT_EQ(ReadBytes(f, 5), "ab");
    ASSERT_TRUE(f.IsEOF());
    EXPECT_TRUE(f.Seek(0, QFile::SEEK_FROM_START));
    EXPECT_FALSE(f.IsEOF());
    EXPECT_EQ(ReadBytes(f, 2), "ab");
}

// ---- Lines and words --------------------------------------------------------------------------

TEST(QFileTest, GetLineEndsAtLineFeedOrEndOfData)
{
    TempDir dir(true);
    for (const char* bytes : {"abc\r\n", "abc\n", "abc", "a\rb\rc\r\n"}) {
        WriteFile("f", bytes);
        for (int mode : {int(QFile::READ), int(QFile::READ_TEXT), QFile::READ | QFile::MEMORY}) {
            SCOPED_TRACE(testing::Message() << bytes << " " << mode);
            QFile f("f", mode);
            char buf[16];
            EXPECT_EQ(f.GetLine(buf, sizeof buf), 3);
            EXPECT_STREQ(buf, "abc");
            EXPECT_EQ(f.GetLine(buf, sizeof buf), 0);
            EXPECT_STREQ(buf, "");
        }
    }
}

TEST(QFileTest, GetLineReadsLinesInTurn)
{
    char block[] = "one\r\n\ntwo\nthree";
    QFile f("block", block, int(std::strlen(block)));
    qstring line;
    EXPECT_EQ(f.GetLine(line), 3);
    EXPECT_STREQ(line.cstr(), "one");
    EXPECT_EQ(f.GetLine(line), 0);
    EXPECT_STREQ(line.cstr(), "");
    EXPECT_EQ(f.GetLine(line), 3);
    EXPECT_STREQ(line.cstr(), "two");
    EXPECT_EQ(f.GetLine(line), 5);
    EXPECT_STREQ(line.cstr(), "three");
}

TEST(QFileTest, GetLineStoresAtMostSizeMinusOne)
{
    char block[] = "abcdef\nxyz\n";
    QFile f("block", block, int(std::strlen(block)));
    char buf[8];
    std::memset(buf, 'x', sizeof buf);
    EXPECT_EQ(f.GetLine(buf, 1), 0); // no room for a character
    EXPECT_EQ(buf[0], 0);
    EXPECT_EQ(f.GetLine(buf, 4), 3);
    EXPECT_STREQ(buf, "abc");
    EXPECT_EQ(f.GetLine(buf, 8), 3); // the rest of the cut line
    EXPECT_STREQ(buf, "def");
    EXPECT_EQ(f.GetLine(buf, 8), 3);
    EXPECT_STREQ(buf, "xyz");
}

TEST(QFileTest, GetLineIntoTextHasRoomFor10238Characters)
{
    std::string block(12000, 'q');
    block += "\n";
    QFile f("block", &block[0], int(block.size()));
    qstring line;
    EXPECT_EQ(f.GetLine(line), 10238);
    EXPECT_EQ(line.GetLength(), 10238);
    EXPECT_EQ(f.GetLine(line), 12000 - 10238);
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

TEST(QFileTest, SkipWhiteSpacePushesBackTheNextCharacter)
{
    char block[] = " \t\r\nX  ";
    QFile f("block", block, int(std::strlen(block)));
    f.SkipWhiteSpace();
    EXPECT_EQ(f.GetChar(), 'X');
    f.SkipWhiteSpace();
    EXPECT_TRUE(f.IsEOF());
}

TEST(QFileTest, GetWordSplitsAtBlanksAndKeepsQuotedText)
{
    TempDir dir(true);
    WriteFile("f", "  hello\tworld\r\n\"two  words\" \"\" \"a\nb\" end");
    for (int mode : readModes) {
        SCOPED_TRACE(ModeName(mode));
        QFile f("f", mode);
        char buf[32];
        EXPECT_EQ(f.GetWord(buf, sizeof buf), 5);
        EXPECT_STREQ(buf, "hello");
        EXPECT_EQ(f.GetWord(buf, -1), 5);
        EXPECT_STREQ(buf, "world");
        EXPECT_EQ(f.GetWord(buf, sizeof buf), 10);
        EXPECT_STREQ(buf, "two  words");
        EXPECT_EQ(f.GetWord(buf, sizeof buf), 0);
        EXPECT_STREQ(buf, "");
        EXPECT_EQ(f.GetWord(buf, sizeof buf), 3);
        EXPECT_STREQ(buf, "a\nb");
        EXPECT_EQ(f.GetWord(buf, sizeof buf), 3);
        EXPECT_STREQ(buf, "end");
        EXPECT_EQ(f.GetWord(buf, sizeof buf), 0);
        EXPECT_STREQ(buf, "");
        EXPECT_TRUE(f.IsEOF());
    }
}

TEST(QFileTest, GetWordPushesBackTheCharacterThatEndsIt)
{
    char block[] = "abc\nnext line";
    QFile f("block", block, int(std::strlen(block)));
    qstring word;
    EXPECT_EQ(f.GetWord(word), 3);
    EXPECT_STREQ(word.cstr(), "abc");
    EXPECT_EQ(f.GetChar(), '\n');
    qstring line;
    f.GetLine(line);
    EXPECT_STREQ(line.cstr(), "next line");
}

TEST(QFileTest, GetWordStoresAtMostSizeMinusOne)
{
    char block[] = "abcdefg \"quoted text\"";
    QFile f("block", block, int(std::strlen(block)));
    char buf[8];
    EXPECT_EQ(f.GetWord(buf, 4), 3);
    EXPECT_STREQ(buf, "abc");
    EXPECT_EQ(f.GetWord(buf, 8), 4); // nothing of the word is lost
    EXPECT_STREQ(buf, "defg");
    EXPECT_EQ(f.GetWord(buf, 5), 4);
    EXPECT_STREQ(buf, "quot");

    std::string longWord(1500, 'w');
    QFile g("long", &longWord[0], int(longWord.size()));
    qstring word;
    EXPECT_EQ(g.GetWord(word), 1023);
    EXPECT_EQ(word.GetLength(), 1023);
    EXPECT_EQ(g.GetWord(word), 1500 - 1023);
}

TEST(QFileTest, UnterminatedQuoteRunsToTheEnd)
{
    char block[] = "\"open text";
    QFile f("block", block, int(std::strlen(block)));
    char buf[32];
    EXPECT_EQ(f.GetWord(buf, sizeof buf), 9);
    EXPECT_STREQ(buf, "open text");
}

// ---- Binary values and counted strings -----------------------------------------------------------

TEST(QFileTest, ReadBigEndianGivesHostValues)
{
    TempDir dir(true);
    WriteFile("f", std::string("\x12\x34\x56\x78\x9A\xBC", 6));
    for (int mode : readModes) {
        SCOPED_TRACE(ModeName(mode));
        QFile f("f", mode);
        uint16_t v16 = 0;
        uint32_t v32 = 0;
        EXPECT_EQ(f.ReadBE16(&v16), 2);
        EXPECT_EQ(v16, 0x1234);
        EXPECT_EQ(f.ReadBE32(&v32), 4);
        EXPECT_EQ(v32, 0x56789ABCu);
    }
}

TEST(QFileTest, CountedStringsRoundTrip)
{
    TempDir dir(true);
    std::string longText(300, 'L');
    {
        QFile f("f", QFile::WRITE);
        EXPECT_EQ(f.Write(qstring("hello"), true), 7);
        EXPECT_EQ(f.Write(qstring(""), true), 2);
        EXPECT_EQ(f.Write(qstring(longText.c_str()), true), 302);
        EXPECT_EQ(f.Write(qstring("tail")), 4); // no length, no terminator
    }
    std::string bytes = ReadFile("f");
    EXPECT_EQ(bytes.substr(0, 11), std::string("\x05\x00hello\x00\x00\x2C\x01", 11));
    EXPECT_EQ(bytes.size(), 7u + 2u + 302u + 4u);

    for (int mode : readModes) {
        SCOPED_TRACE(ModeName(mode));
        QFile f("f", mode);
        qstring text("old");
        EXPECT_EQ(f.Read(text), 5);
        EXPECT_STREQ(text.cstr(), "hello");
        EXPECT_EQ(f.Read(text), 0);
        EXPECT_STREQ(text.cstr(), "");
        EXPECT_EQ(f.Read(text), 300);
        EXPECT_EQ(std::string(text.cstr()), longText);
        EXPECT_EQ(ReadBytes(f, 10), "tail");
    }
}

TEST(QFileTest, NegativeCountEmptiesTheText)
{
    TempDir dir(true);
    WriteFile("f", "\xFE\xFFxy");
    for (int mode : readModes) {
        SCOPED_TRACE(ModeName(mode));
        QFile f("f", mode);
        qstring text("old");
        EXPECT_EQ(f.Read(text), -2);
        EXPECT_STREQ(text.cstr(), "");
        EXPECT_EQ(ReadBytes(f, 5), "xy");
    }
}

TEST(QFileTest, TruncatedCountedStringHoldsWhatWasThere)
{
    TempDir dir(true);
    WriteFile("f", std::string("\x05\x00" "ab", 4));
    for (int mode : readModes) {
        SCOPED_TRACE(ModeName(mode));
        QFile f("f", mode);
        qstring text;
        EXPECT_EQ(f.Read(text), 5);
        EXPECT_STREQ(text.cstr(), "ab");
    }
}

TEST(QFileTest, SharedLineBufferSurvivesAnotherFileClosing)
{
    TempDir dir(true);
    WriteFile("f", std::string("\x05\x00hello\x05\x00world", 14));
    WriteFile("g", "x");
    QFile f("f", QFile::READ | QFile::MEMORY);
    qstring text;
    EXPECT_EQ(f.Read(text), 5);
    { QFile g("g", QFile::READ); } // frees the shared buffer
    EXPECT_EQ(f.Read(text), 5);
    EXPECT_STREQ(text.cstr(), "world");
}

TEST(QFileTest, CountedStringWithoutMemoryWarns)
{
    TempDir dir(true);
    std::string bytes("\xA0\x0F", 2); // 4000
    bytes += std::string(4000, 's');
    WriteFile("f", bytes);
    QFile f("f", QFile::READ);
    qstring text;
    testing::internal::CaptureStderr();
    qSetAllocFailure(1);
    int got = f.Read(text);
    qSetAllocFailure(0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "QFile:Read(s); out of memory\n");
    EXPECT_EQ(got, 0);
}

// ---- Memory blocks -----------------------------------------------------------------------------

TEST(QFileTest, MemoryBlockIsReadAndNotWritten)
{
    TempDir dir(true);
    char block[] = "abcd";
    {
        QFile f("block", block, 4);
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
    EXPECT_STREQ(block, "abcd"); // not freed, not changed: it's the caller's
    EXPECT_FALSE(FileExists("block"));
}

TEST(QFileTest, KeepMemoryHandsTheBlockToTheFile)
{
    int blocks = qGetAllocCount();
    void* owned = qmalloc(3);
    std::memcpy(owned, "xyz", 3);
    {
        QFile f("owned", owned, 3);
        f.KeepMemory();
        EXPECT_EQ(ReadBytes(f, 3), "xyz");
    }
    EXPECT_EQ(qGetAllocCount(), blocks);

    void* lent = qmalloc(3);
    std::memcpy(lent, "abc", 3);
    {
        QFile f("lent", lent, 3);
        EXPECT_EQ(ReadBytes(f, 3), "abc");
    }
    EXPECT_EQ(qGetAllocCount(), blocks + 1);
    EXPECT_EQ(std::memcmp(lent, "abc", 3), 0);
    qfree(lent);
}
