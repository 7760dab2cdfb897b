// QArchive: the chunk decoder item by item, the packer's chunks read back, containers built byte by
// byte (good ones and ones with one field wrong), the virtual file system in front of real archives,
// and the qarchive command end to end.
#include "images/qarchive.h"

#include "foundation/qapphooks.h"
#include "foundation/qfile.h"
#include "foundation/qfilesys.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "foundation/qstring.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

using namespace tarvik;
using namespace tarvik::test;

namespace {

std::string Bytes(std::initializer_list<int> values) {
    std::string s;
    for (int v : values)
        s += char(uint8_t(v));
    return s;
}

std::string LE16(int v) {
    return Bytes({v & 255, (v >> 8) & 255});
}
std::string LE32(uint32_t v) {
    return Bytes({int(v & 255), int((v >> 8) & 255), int((v >> 16) & 255), int(v >> 24)});
}

// A chunk as it stands in a member: its size word, then its bytes.
std::string Sized(const std::string& chunk) {
    return LE16(int(chunk.size())) + chunk;
}
std::string Stored(const std::string& data) {
    return Sized(char(QArchive::STORED_CHUNK) + data);
}
std::string Member(const std::string& chunks) {
    return "D" + chunks + LE16(0);
}
std::string Entry(const std::string& name, uint32_t offset, uint32_t size) {
    return name + '\0' + LE32(offset) + LE32(size);
}

// Members laid out behind the head, the directory behind them.
struct Layout {
    std::string body;      // members
    std::string directory; // entries
    uint32_t Next() const { return uint32_t(QArchive::HEADER_SIZE + body.size()); }
    void Add(const std::string& name, const std::string& member, int size) {
        directory += Entry(name, Next(), uint32_t(size));
        body += member;
    }
    std::string Container() const {
        return "QARC" + LE32(1) + LE32(Next()) + LE32(uint32_t(directory.size())) + body + directory;
    }
};

std::string Decode(const std::string& chunk, int outSize = QArchive::MAX_CHUNK, int* length = nullptr,
                   const char** fault = nullptr) {
    std::vector<uint8_t> out(size_t(outSize) + 1);
    int n = QArchive::DecompressChunk(reinterpret_cast<const uint8_t*>(chunk.data()), out.data(),
                                      int(chunk.size()), outSize, fault);
    if (length) *length = n;
    return n < 0 ? std::string("<fault>")
                 : std::string(reinterpret_cast<char*>(out.data()), size_t(n < outSize ? n : outSize));
}

std::string Pseudorandom(size_t n, uint32_t seed) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; i++) {
        seed = seed * 1664525u + 1013904223u;
        s[i] = char(seed >> 24);
    }
    return s;
}

std::string TextLike(size_t n) {
    static const char* words[] = {"wheel",    "speed", "gear ", "brake", "lap\n",
                                  "throttle", "0.25 ", "steer", "rpm "};
    std::string s;
    uint32_t seed = 7;
    while (s.size() < n) {
        seed = seed * 1664525u + 1013904223u;
        s += words[(seed >> 16) % 9];
    }
    s.resize(n);
    return s;
}

class QArchiveTest : public ::testing::Test {
  protected:
    void SetUp() override { qmsgReset(); }
    void TearDown() override { qappHooks = nullptr; }

    // Opens 'bytes' as a file of this name; the archive's reports are what the test wants to see.
    bool OpenBytes(QArchive& archive, const std::string& bytes, const char* name = "test.arc") {
        WriteFile(name, bytes);
        return archive.Open(name);
    }
    TempDir dir{true};
};
using QArchiveChunkTest = QArchiveTest;
using QArchiveWriterTest = QArchiveTest;
using QArchiveVfsTest = QArchiveTest;
using QArchiveToolTest = QArchiveTest;

// The stderr text of a call, and its result.
template <typename F> std::string Reports(F call) {
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}

} // namespace

// ---- The chunk decoder

TEST_F(QArchiveChunkTest, StoredChunkHoldsTheRest) {
    EXPECT_EQ(Decode(Bytes({128, 'a', 'b', 'c'})), "abc");
    int length = -1;
    EXPECT_EQ(Decode(Bytes({128}), 10, &length), "");
    EXPECT_EQ(length, 0);
    EXPECT_EQ(Decode(Bytes({128, 0, 1})), Bytes({0, 1}));
}

TEST_F(QArchiveChunkTest, CompressedChunkOfThreeBytesOrLessGivesNothing) {
    int length = -1;
    EXPECT_EQ(Decode(Bytes({0, 0x80, 0}), 10, &length), "");
    EXPECT_EQ(length, 0);
    EXPECT_EQ(Decode(Bytes({7, 0xFF}), 10, &length), "");
    EXPECT_EQ(length, 0);
    EXPECT_EQ(Decode(Bytes({0, 0, 0, 'x'})), "x"); // one byte more is one literal
}

TEST_F(QArchiveChunkTest, LiteralsCopiesAndRunsFollowTheControlBits) {
    // Bits 0 0 1 1 0: 'a', 'b', copy 2 back 5 long, a run of 16 'z', 'q'.
    EXPECT_EQ(Decode(Bytes({0, 0x30, 0x00, 'a', 'b', 0x00, 0x22, 0, 0, 0, 'z', 'q'})),
              "abababa" + std::string(16, 'z') + "q");
    // Offset 1, length 18: the last byte, 18 more times.
    EXPECT_EQ(Decode(Bytes({0, 0x40, 0, 'x', 0x00, 0x1F})), std::string(19, 'x'));
    // Offset 3 from a*16 + (b >> 4) with a = 0 and b = 0x30: not a run, since the 12 bits are 3.
    EXPECT_EQ(Decode(Bytes({0, 0x10, 0, 'a', 'b', 'c', 0x00, 0x30})), "abcabc");
    // A copy of 4 from 4095 back reaches the first byte of a full window.
    std::string window = Pseudorandom(4095, 3);
    std::string chunk = Bytes({0});
    for (size_t i = 0; i < window.size(); i += 16) {
        chunk += Bytes({0, 0});
        chunk += window.substr(i, 16);
    }
    // 4095 literals end 15 bits into the 256th control word: the copy takes its last bit.
    chunk[1 + 255 * 18] = 0x00;
    chunk[1 + 255 * 18 + 1] = 0x01;
    chunk += Bytes({0xFF, 0xF1});
    EXPECT_EQ(Decode(chunk), window + window.substr(0, 4));
}

TEST_F(QArchiveChunkTest, RunLengthsFrom16To4111) {
    EXPECT_EQ(Decode(Bytes({0, 0x80, 0, 0, 0, 0, 'r'})), std::string(16, 'r'));
    EXPECT_EQ(Decode(Bytes({0, 0x80, 0, 0, 0x01, 0x02, 7})), std::string(256 + 2 + 16, '\7'));
    EXPECT_EQ(Decode(Bytes({0, 0x80, 0, 0, 0x0F, 0xFF, 9})), std::string(4111, '\x09'));
}

TEST_F(QArchiveChunkTest, NextControlWordFollowsTheSixteenthItemDirectly) {
    // Fifteen literals and a run use up the first word; the second word stands right behind the
    // run's four bytes and says: copy, literal.
    std::string chunk = Bytes({0, 0x00, 0x01});
    chunk += "abcdefghijklmno";
    chunk += Bytes({0, 0, 0, '-'});
    chunk += Bytes({0x80, 0x00});
    chunk += Bytes({0x01, 0xF0}); // 31 back, 3 long: "abc"
    chunk += "!";
    EXPECT_EQ(Decode(chunk), "abcdefghijklmno" + std::string(16, '-') + "abc!");

    // A control word with nothing behind it ends the chunk quietly.
    std::string full = Bytes({0, 0, 0}) + "0123456789abcdef" + Bytes({0xFF, 0xFF});
    EXPECT_EQ(Decode(full), "0123456789abcdef");
}

TEST_F(QArchiveChunkTest, DamagedChunksAreFaultsWithTheirReason) {
    const char* fault = nullptr;
    int length = 0;
    EXPECT_EQ(Decode(Bytes({0, 0x80, 0, 0x00, 0x20}), 100, &length, &fault), "<fault>");
    EXPECT_EQ(length, -1);
    EXPECT_STREQ(fault, "copy reaches before the start of the chunk");
    // Exactly as far back as the output goes is fine; one more is not.
    EXPECT_EQ(Decode(Bytes({0, 0x20, 0, 'a', 'b', 0x00, 0x20})), "ababa");
    Decode(Bytes({0, 0x20, 0, 'a', 'b', 0x00, 0x30}), 100, &length, &fault);
    EXPECT_STREQ(fault, "copy reaches before the start of the chunk");

    Decode(Bytes({0, 0x80, 0, 0x01}), 100, &length, &fault);
    EXPECT_EQ(length, -1);
    EXPECT_STREQ(fault, "copy cut off at the end of the chunk");
    Decode(Bytes({0, 0x80, 0, 0x00, 0x00, 0x00}), 100, &length, &fault);
    EXPECT_STREQ(fault, "run cut off at the end of the chunk");
    std::string cut = Bytes({0, 0, 0}) + "0123456789abcdef" + Bytes({0x00});
    Decode(cut, 100, &length, &fault);
    EXPECT_EQ(length, -1);
    EXPECT_STREQ(fault, "control word cut off at the end of the chunk");
}

TEST_F(QArchiveChunkTest, NeverWritesPastTheBlockButCountsOn) {
    const int room = 10;
    const std::string chunks[] = {
        Bytes({128}) + "0123456789ABCDEF",                                    // stored
        Bytes({0, 0, 0}) + "0123456789ABCDEF",                                // literals
        Bytes({0, 0x80, 0, 0, 0x0F, 0xFF, 'r'}),                              // run
        Bytes({0, 0x40, 0, 'x', 0x00, 0x1F}),                                 // overlapping copy
        Bytes({0, 0x70, 0, 'x', 0x00, 0x1F, 0, 0x0F, 0xFF, 'r', 0x00, 0x1F}), // a copy beyond the block
    };
    const int lengths[] = {16, 16, 4111, 19, 19 + 4111 + 18};
    for (int i = 0; i < 5; i++) {
        std::vector<uint8_t> block(room + 8, 0xEE);
        int length = QArchive::DecompressChunk(reinterpret_cast<const uint8_t*>(chunks[i].data()),
                                               block.data(), int(chunks[i].size()), room);
        EXPECT_EQ(length, lengths[i]) << i;
        for (int k = room; k < room + 8; k++)
            EXPECT_EQ(block[size_t(k)], 0xEE) << i << " byte " << k;
        EXPECT_NE(block[room - 1], 0xEE) << i;
    }
    // A block of no bytes at all is never touched.
    uint8_t guard = 0xEE;
    EXPECT_EQ(QArchive::DecompressChunk(reinterpret_cast<const uint8_t*>(chunks[2].data()), &guard, 7, 0),
              4111);
    EXPECT_EQ(guard, 0xEE);
}

// ---- The packer's chunks

TEST_F(QArchiveWriterTest, EveryChunkDecodesToWhatWentIn) {
    std::string patterned;
    for (int i = 0; i < 20000; i++)
        patterned += char("abcabd"[i % 6] + (i / 777) % 3);
    std::string windowEdge = Pseudorandom(4096, 5) + Pseudorandom(4096, 5).substr(0, 40);
    const std::string inputs[] = {
        "",
        "a",
        "ab",
        "abc",
        "aaaa",
        std::string(20000, '\0'),
        std::string(4112, 'q') + "x" + std::string(4111, 'q'),
        Pseudorandom(20000, 1),
        Pseudorandom(5000, 2) + std::string(300, ' ') + Pseudorandom(5000, 2),
        TextLike(20000),
        patterned,
        windowEdge,
        std::string(17, 'x') + "y" + std::string(15, 'x'),
    };
    QArchiveWriter writer;
    for (const std::string& in : inputs) {
        std::string left = in;
        while (!left.empty()) {
            uint8_t chunk[QArchive::MAX_CHUNK];
            int consumed = 0;
            int n = writer.CompressChunk(reinterpret_cast<const uint8_t*>(left.data()), int(left.size()),
                                         chunk, &consumed);
            ASSERT_GT(consumed, 0);
            ASSERT_LE(n, int(QArchive::MAX_CHUNK));
            if (chunk[0] == QArchive::STORED_CHUNK) {
                EXPECT_GT(n, 3) << "a stored chunk of three bytes or less";
            }
            EXPECT_EQ(Decode(std::string(reinterpret_cast<char*>(chunk), size_t(n))),
                      left.substr(0, size_t(consumed)))
                << "input of " << in.size() << " bytes";
            left.erase(0, size_t(consumed));
        }
    }
}

TEST_F(QArchiveWriterTest, ChunksUseTheCheapItems) {
    QArchiveWriter writer;
    uint8_t chunk[QArchive::MAX_CHUNK];
    int consumed;
    std::string zeros(20000, '\0');
    // One literal and runs of 4111: 5 items.
    EXPECT_LE(writer.CompressChunk(reinterpret_cast<const uint8_t*>(zeros.data()), 20000, chunk, &consumed),
              30);
    EXPECT_EQ(consumed, 20000);
    // Incompressible: stored, one byte short of a full chunk, so that the chunk fits.
    std::string noise = Pseudorandom(20000, 9);
    EXPECT_EQ(writer.CompressChunk(reinterpret_cast<const uint8_t*>(noise.data()), 20000, chunk, &consumed),
              20000);
    EXPECT_EQ(consumed, 19999);
    EXPECT_EQ(chunk[0], QArchive::STORED_CHUNK);
    // A repeat of the whole 4095-byte window costs two bytes per 18 bytes, not a literal each.
    std::string twice = Pseudorandom(4095, 4) + Pseudorandom(4095, 4);
    int n = writer.CompressChunk(reinterpret_cast<const uint8_t*>(twice.data()), int(twice.size()), chunk,
                                 &consumed);
    EXPECT_LT(n, 5200);
    EXPECT_GT(n, 4500);
    // Text shrinks to well under two thirds.
    std::string text = TextLike(20000);
    EXPECT_LT(writer.CompressChunk(reinterpret_cast<const uint8_t*>(text.data()), 20000, chunk, &consumed),
              20000 * 2 / 3);
}

TEST_F(QArchiveWriterTest, RefusesNamesThatCanNotBeFound) {
    QArchiveWriter writer;
    ASSERT_TRUE(writer.Create("w.arc"));
    EXPECT_TRUE(writer.AddMember("Road.TGA", "abc", 3));
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(writer.AddMember("road.tga", "x", 1)); }),
              "QArchiveWriter:AddMember(road.tga); 'Road.TGA' is in the archive already, and names are found "
              "regardless of case\n");
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(writer.AddMember("sub/x", "x", 1)); }),
              "QArchiveWriter:AddMember(sub/x); a member needs a name without directories\n");
    EXPECT_FALSE(writer.AddMember("", "x", 1));
    EXPECT_TRUE(writer.AddMember("empty", nullptr, 0));
    ASSERT_TRUE(writer.Finish());

    QArchive archive("w.arc");
    qstring name;
    int offset = 0, size = 0;
    ASSERT_TRUE(archive.GetNextEntry(name, &offset, &size));
    EXPECT_STREQ(name.cstr(), "Road.TGA");
    EXPECT_EQ(offset, 16);
    EXPECT_EQ(size, 3);
    ASSERT_TRUE(archive.GetNextEntry(name, &offset, &size));
    EXPECT_STREQ(name.cstr(), "empty");
    EXPECT_EQ(size, 0);
    EXPECT_FALSE(archive.GetNextEntry(name, &offset, &size));
}

TEST_F(QArchiveWriterTest, AnUnfinishedArchiveIsRemoved) {
    {
        QArchiveWriter writer;
        ASSERT_TRUE(writer.Create("half.arc"));
        EXPECT_TRUE(writer.AddMember("a", "abc", 3));
        EXPECT_TRUE(FileExists("half.arc"));
    }
    EXPECT_FALSE(FileExists("half.arc"));
    QArchiveWriter writer;
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(writer.Create("no/such/dir.arc")); }),
              "QArchiveWriter:Create(); can't open 'no/such/dir.arc' for output\n");
}

// ---- Opening a container

TEST_F(QArchiveTest, OpenRefusesWhatIsNoArchive) {
    QArchive archive;
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(archive.Open("missing.arc")); }),
              "QArchive:Open(); can't open 'missing.arc'\n");
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(OpenBytes(archive, "QARC" + LE32(1) + LE32(16))); }),
              "QArchive:Open(); 'test.arc' is not an archive\n");
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(OpenBytes(archive, "QARK" + LE32(1) + LE32(16) + LE32(0))); }),
              "QArchive:Open(); 'test.arc' is not an archive\n");
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(OpenBytes(archive, "QARC" + LE32(2) + LE32(16) + LE32(0))); }),
              "QArchive:Open(); 'test.arc' has version 2 (can read 1)\n");
    EXPECT_FALSE(archive.IsOpen());
    EXPECT_TRUE(OpenBytes(archive, "QARC" + LE32(1) + LE32(16) + LE32(0))); // empty, and fine
    qstring name;
    EXPECT_FALSE(archive.GetNextEntry(name, nullptr, nullptr));
}

TEST_F(QArchiveTest, OpenRefusesADirectoryOutsideTheFile) {
    Layout good;
    good.Add("a", Member(Stored("xyz")), 3);
    std::string bytes = good.Container();
    ASSERT_EQ(bytes.size(), 16u + 9u + 10u);
    QArchive archive;
    ASSERT_TRUE(OpenBytes(archive, bytes));

    std::string longer = bytes;
    longer.replace(12, 4, LE32(11)); // one byte past the end
    EXPECT_EQ(
        Reports([&] { EXPECT_FALSE(OpenBytes(archive, longer)); }),
        "QArchive:Open(); directory of 'test.arc' lies outside the file (offset 25, size 11, file 35)\n");
    EXPECT_FALSE(archive.IsOpen());
    std::string huge = bytes;
    huge.replace(8, 8, LE32(0xFFFFFFF0u) + LE32(0xFFFFFFF0u)); // wraps in 32 bits
    EXPECT_EQ(
        Reports([&] { EXPECT_FALSE(OpenBytes(archive, huge)); }),
        "QArchive:Open(); directory of 'test.arc' lies outside the file (offset 4294967280, size 4294967280, "
        "file 35)\n");
    std::string inHead = bytes;
    inHead.replace(8, 4, LE32(4));
    EXPECT_FALSE(Reports([&] { EXPECT_FALSE(OpenBytes(archive, inHead)); }).empty());
}

TEST_F(QArchiveTest, OpenRefusesEntriesThatDoNotParse) {
    Layout layout;
    layout.Add("first", Member(Stored("1")), 1);
    std::string body = layout.body;
    auto container = [&](const std::string& directory) {
        return "QARC" + LE32(1) + LE32(uint32_t(16 + body.size())) + LE32(uint32_t(directory.size())) + body +
               directory;
    };
    QArchive archive;
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(OpenBytes(archive, container(layout.directory + "second"))); }),
              "QArchive:Open(); 'test.arc': name of entry 2 has no end\n");
    std::string cut = layout.directory + Entry("second", 16, 1);
    cut.pop_back();
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(OpenBytes(archive, container(cut))); }),
              "QArchive:Open(); 'test.arc': entry 2 runs past the end of the directory\n");
    EXPECT_TRUE(OpenBytes(archive, container(cut + '\0')));
}

// ---- Walking and finding

TEST_F(QArchiveTest, WalkGivesEntriesInOrderAndStopsAtTheEnd) {
    Layout layout;
    layout.Add("one.txt", Member(Stored("111")), 3);
    layout.Add("Two.TGA", Member(Stored("22")), 2);
    QArchive archive;
    ASSERT_TRUE(OpenBytes(archive, layout.Container()));
    qstring name;
    int offset = -1, size = -1;
    ASSERT_TRUE(archive.GetNextEntry(name, &offset, &size));
    EXPECT_STREQ(name.cstr(), "one.txt");
    EXPECT_EQ(offset, 16);
    EXPECT_EQ(size, 3);
    ASSERT_TRUE(archive.GetNextEntry(name, nullptr, nullptr));
    EXPECT_STREQ(name.cstr(), "Two.TGA");
    EXPECT_FALSE(archive.GetNextEntry(name, &offset, &size));
    EXPECT_FALSE(archive.GetNextEntry(name, &offset, &size));

    EXPECT_TRUE(archive.FindEntry("one.txt", false)); // restarts, and the walk goes on behind it
    ASSERT_TRUE(archive.GetNextEntry(name, &offset, &size));
    EXPECT_STREQ(name.cstr(), "Two.TGA");
    EXPECT_FALSE(archive.FindEntry("nothing", false));
    EXPECT_FALSE(archive.GetNextEntry(name, &offset, &size));

    archive.Close();
    EXPECT_FALSE(archive.GetNextEntry(name, &offset, &size));
    EXPECT_FALSE(archive.FindEntry("one.txt", false));
}

TEST_F(QArchiveTest, FindEntryCountsCaseLoadFileDoesNot) {
    Layout layout;
    layout.Add("Road.TGA", Member(Stored("road")), 4);
    QArchive archive;
    ASSERT_TRUE(OpenBytes(archive, layout.Container()));
    EXPECT_TRUE(archive.FindEntry("Road.TGA", false));
    EXPECT_FALSE(archive.FindEntry("road.tga", false));
    EXPECT_FALSE(archive.HasFile("ROAD.TGA"));

    void* memory = nullptr;
    int size = 0;
    ASSERT_TRUE(archive.LoadFile("road.tga", &memory, &size));
    EXPECT_EQ(std::string(static_cast<char*>(memory), size_t(size)), "road");
    qfree(memory);
    EXPECT_TRUE(archive.LoadFile("ROAD.tga", &memory, &size));
    qfree(memory);
    EXPECT_FALSE(archive.LoadFile("road.tg", &memory, &size));
    EXPECT_EQ(memory, nullptr);
}

// ---- Expanding members

TEST_F(QArchiveTest, SkippedBlocksAreSteppedOver) {
    std::string member = "T" + LE32(5) + "DDDDD" + "X" + LE32(0) + Member(Stored("data"));
    Layout layout;
    layout.Add("m", member, 4);
    QArchive archive;
    ASSERT_TRUE(OpenBytes(archive, layout.Container()));
    void* memory = nullptr;
    int size = 0;
    ASSERT_TRUE(archive.LoadFile("m", &memory, &size));
    EXPECT_EQ(std::string(static_cast<char*>(memory), 4), "data");
    qfree(memory);

    Layout lying;
    lying.Add("m", "T" + LE32(1000) + Member(Stored("data")), 4);
    ASSERT_TRUE(OpenBytes(archive, lying.Container()));
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(archive.LoadFile("m", &memory, &size)); }),
              "QArchive: member in 'test.arc' ends before its data\n");
    qfree(memory);
}

TEST_F(QArchiveTest, DecompressFileWritesTheMemberToAFile) {
    std::string big = TextLike(45000);
    QArchiveWriter writer;
    ASSERT_TRUE(writer.Create("w.arc"));
    ASSERT_TRUE(writer.AddMember("big.txt", big.data(), int(big.size())));
    ASSERT_TRUE(writer.AddMember("empty", nullptr, 0));
    ASSERT_TRUE(writer.Finish());

    QArchive archive("w.arc");
    ASSERT_TRUE(archive.FindEntry("big.txt", true));
    int expanded = -1;
    EXPECT_TRUE(archive.DecompressFile("big.out", 0, &expanded, nullptr, 0));
    EXPECT_EQ(expanded, 45000);
    EXPECT_EQ(ReadFile("big.out"), big);

    // An empty member is an empty file, but not a block in memory.
    ASSERT_TRUE(archive.FindEntry("empty", true));
    EXPECT_TRUE(archive.DecompressFile("empty.out", 0, &expanded, nullptr, 0));
    EXPECT_EQ(expanded, 0);
    EXPECT_TRUE(FileExists("empty.out"));
    void* memory = nullptr;
    int size = -1;
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(archive.LoadFile("empty", &memory, &size)); }),
              "QArchive:LoadFile(empty); member has size 0 in 'w.arc'\n");
    EXPECT_EQ(memory, nullptr);

    ASSERT_TRUE(archive.FindEntry("big.txt", true));
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(archive.DecompressFile("no/dir/x", 0, &expanded, nullptr, 0)); }),
              "Can't open 'no/dir/x' for output\n");
}

TEST_F(QArchiveTest, ChunkSizeLimitIsTwentyThousand) {
    std::string full(19999, 'f');
    Layout layout;
    layout.Add("full", Member(Stored(full)), 19999);
    std::string over = Member(LE16(20001) + char(QArchive::STORED_CHUNK) + std::string(20000, 'o'));
    layout.Add("over", over, 20000);
    QArchive archive;
    ASSERT_TRUE(OpenBytes(archive, layout.Container()));
    void* memory = nullptr;
    int size = 0;
    ASSERT_TRUE(archive.LoadFile("full", &memory, &size));
    EXPECT_EQ(std::string(static_cast<char*>(memory), size_t(size)), full);
    qfree(memory);

    // Refused before it is read: the progress callback, which runs before each read, never sees it.
    int calls = 0;
    archive.SetProgress(
        [](void* user, long, int) {
            ++*static_cast<int*>(user);
            return true;
        },
        &calls, 0);
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(archive.LoadFile("over", &memory, &size)); }),
              "QArchive: attempt to read decompress chunk of size 20001 (max 20000)\n");
    EXPECT_EQ(calls, 0);
    qfree(memory);
}

TEST_F(QArchiveTest, ProgressSeesEveryChunkAndMayStop) {
    std::string data = Pseudorandom(50000, 11);
    QArchiveWriter writer;
    ASSERT_TRUE(writer.Create("w.arc"));
    ASSERT_TRUE(writer.AddMember("noise", data.data(), int(data.size())));
    ASSERT_TRUE(writer.Finish());

    struct Seen {
        std::vector<long> positions;
        std::vector<int> totals;
        int stopAfter;
    } seen{{}, {}, 100};
    QArchiveProgressFunc note = [](void* user, long position, int total) {
        Seen* s = static_cast<Seen*>(user);
        s->positions.push_back(position);
        s->totals.push_back(total);
        return int(s->positions.size()) < s->stopAfter;
    };
    QArchive archive("w.arc");
    archive.SetProgress(note, &seen, 777);
    void* memory = nullptr;
    int size = 0;
    ASSERT_TRUE(archive.LoadFile("noise", &memory, &size));
    qfree(memory);
    // Three stored chunks of 19999, 19999 and 10002 bytes; each position is behind its size word.
    EXPECT_EQ(seen.positions,
              (std::vector<long>{16 + 1 + 2, 16 + 1 + 2 + 20000 + 2, 16 + 1 + 2 + 2 * (20000 + 2)}));
    EXPECT_EQ(seen.totals, (std::vector<int>{777, 777, 777}));

    seen = Seen{{}, {}, 2};
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(archive.LoadFile("noise", &memory, &size)); }),
              ""); // stopped quietly
    EXPECT_EQ(seen.positions.size(), 2u);
    EXPECT_EQ(std::string(static_cast<char*>(memory), 19999), data.substr(0, 19999)); // what came so far
    qfree(memory);
}

TEST_F(QArchiveTest, MembersThatExpandBeyondTheirSizeAreRefused) {
    Layout layout;
    // 16 bytes from one run, but the directory says 10: the block of 10 must not be overrun.
    layout.Add("short", Member(Sized(Bytes({0, 0x80, 0, 0, 0, 0, 'r'}))), 10);
    // A chunk that expands past a whole chunk: five runs of 4111.
    std::string runs = Bytes({0, 0xF8, 0});
    for (int i = 0; i < 5; i++)
        runs += Bytes({0, 0x0F, 0xFF, 'x'});
    layout.Add("overflow", Member(Sized(runs)), 20555);
    layout.Add("second", Member(Stored("abcde") + Stored("fgh")), 6);
    QArchive archive;
    ASSERT_TRUE(OpenBytes(archive, layout.Container()));
    void* memory = nullptr;
    int size = 0;
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(archive.LoadFile("short", &memory, &size)); }),
              "QArchive: member in 'test.arc' expands beyond its size of 10 bytes\n");
    ASSERT_NE(memory, nullptr); // the caller's, with what fitted
    EXPECT_EQ(size, 10);
    EXPECT_EQ(std::string(static_cast<char*>(memory), 10), std::string(10, 'r'));
    qfree(memory);

    EXPECT_EQ(Reports([&] { EXPECT_FALSE(archive.LoadFile("overflow", &memory, &size)); }),
              "QArchive: decompressed chunk overflow of size 20555 (max 20000)\n");
    qfree(memory);
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(archive.LoadFile("second", &memory, &size)); }),
              "QArchive: member in 'test.arc' expands beyond its size of 6 bytes\n");
    EXPECT_EQ(std::string(static_cast<char*>(memory), 6), "abcdef");
    qfree(memory);

    // The other way round: a member that comes up short is no whole file either.
    Layout shortMember;
    shortMember.Add("m", Member(Stored("abc")), 5);
    ASSERT_TRUE(OpenBytes(archive, shortMember.Container()));
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(archive.LoadFile("m", &memory, &size)); }),
              "QArchive:LoadFile(m); member expands to 3 bytes, directory says 5\n");
    qfree(memory);
}

TEST_F(QArchiveTest, MembersCutShortKeepWhatCame) {
    // The directory first, then the member, cut at every byte: each cut is a reported failure,
    // and once the first chunk is in, the block keeps it.
    const std::string member = Member(Stored("first") + Stored("second"));
    const std::string head = "QARC" + LE32(1) + LE32(16) + LE32(10) + Entry("m", 26, 11);
    for (size_t cut = 0; cut < member.size(); cut++) {
        QArchive archive;
        ASSERT_TRUE(OpenBytes(archive, head + member.substr(0, cut))) << cut;
        void* memory = nullptr;
        int size = 0;
        std::string reports = Reports([&] { EXPECT_FALSE(archive.LoadFile("m", &memory, &size)) << cut; });
        EXPECT_FALSE(reports.empty()) << cut;
        if (cut >= 1 + 2 + 6) {
            ASSERT_NE(memory, nullptr) << cut;
            EXPECT_EQ(std::string(static_cast<char*>(memory), 5), "first") << cut;
        }
        if (memory) qfree(memory);
    }

    // At the very end of the file the reports are exact.
    std::string tail = "QARC" + LE32(1) + LE32(16) + LE32(10) + Entry("m", 26, 11) + "D" + Stored("first") +
                       LE16(7) + "\x80se";
    QArchive archive;
    ASSERT_TRUE(OpenBytes(archive, tail));
    void* memory = nullptr;
    int size = 0;
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(archive.LoadFile("m", &memory, &size)); }),
              "QArchive: member in 'test.arc' cut short in a chunk of 7 bytes at 37\n");
    qfree(memory);
    std::string noEnd = "QARC" + LE32(1) + LE32(16) + LE32(10) + Entry("m", 26, 5) + "D" + Stored("first");
    ASSERT_TRUE(OpenBytes(archive, noEnd));
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(archive.LoadFile("m", &memory, &size)); }),
              "QArchive: member in 'test.arc' ends before its end mark\n");
    qfree(memory);
}

TEST_F(QArchiveTest, DamagedChunkIsReportedWithItsPlace) {
    Layout layout;
    layout.Add("m", Member(Stored("ok") + Sized(Bytes({0, 0x80, 0, 0x00, 0x20}))), 10);
    QArchive archive;
    ASSERT_TRUE(OpenBytes(archive, layout.Container()));
    void* memory = nullptr;
    int size = 0;
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(archive.LoadFile("m", &memory, &size)); }),
              "QArchive: damaged chunk at 24 in 'test.arc': copy reaches before the start of the chunk\n");
    qfree(memory);
}

TEST_F(QArchiveTest, OffsetsAndSizesAreCheckedAgainstTheFile) {
    std::string member = Member(Stored("abc"));
    std::string directory = Entry("before", 3, 3) + Entry("after", 1000, 3) +
                            Entry("negative", 0x80000000u, 3) + Entry("lying", 16, 2000000000) +
                            Entry("plausible", 16, 3);
    std::string bytes = "QARC" + LE32(1) + LE32(uint32_t(16 + member.size())) +
                        LE32(uint32_t(directory.size())) + member + directory;
    QArchive archive;
    ASSERT_TRUE(OpenBytes(archive, bytes));
    long fileSize = long(bytes.size());
    void* memory = nullptr;
    int size = 0;
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(archive.LoadFile("before", &memory, &size)); }),
              "QArchive: member offset 3 lies outside 'test.arc' (" + std::to_string(fileSize) + " bytes)\n");
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(archive.FindEntry("after", true)); }),
              "QArchive: member offset 1000 lies outside 'test.arc' (" + std::to_string(fileSize) +
                  " bytes)\n");
    EXPECT_TRUE(archive.FindEntry("after", false)); // it is there; only its member isn't
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(archive.LoadFile("negative", &memory, &size)); }),
              "QArchive: member offset -2147483648 lies outside 'test.arc' (" + std::to_string(fileSize) +
                  " bytes)\n");
    // Two billion bytes can't come from a few dozen: refused before anything is allocated.
    int before = qGetAllocCount();
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(archive.LoadFile("lying", &memory, &size)); }),
              "QArchive: member of 2000000000 bytes can't come from the " + std::to_string(fileSize - 16) +
                  " bytes behind offset 16 in 'test.arc'\n");
    EXPECT_EQ(qGetAllocCount(), before);
    EXPECT_EQ(memory, nullptr);
    ASSERT_TRUE(archive.LoadFile("plausible", &memory, &size));
    qfree(memory);
}

TEST_F(QArchiveTest, OpenFileGivesAMemoryFileThatOwnsTheBlock) {
    std::string text = "line one\nline two\n" + TextLike(30000);
    QArchiveWriter writer;
    ASSERT_TRUE(writer.Create("w.arc"));
    ASSERT_TRUE(writer.AddMember("Notes.txt", text.data(), int(text.size())));
    ASSERT_TRUE(writer.Finish());
    int allocs = qGetAllocCount();
    int files = qGetOpenFileCount();
    {
        QArchive archive("w.arc");
        std::unique_ptr<QFile> file(archive.OpenFile("notes.TXT"));
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(file->GetMemorySize(), int(text.size()));
        qstring line;
        file->GetLine(line);
        EXPECT_STREQ(line.cstr(), "line one");
        EXPECT_EQ(std::memcmp(file->GetMemory(), text.data(), text.size()), 0);
        EXPECT_EQ(archive.OpenFile("absent.txt"), nullptr);
    }
    EXPECT_EQ(qGetAllocCount(), allocs);
    EXPECT_EQ(qGetOpenFileCount(), files);
}

TEST_F(QArchiveTest, EveryFailedAllocationIsACleanFailure) {
    std::string text = TextLike(25000);
    {
        QArchiveWriter writer;
        ASSERT_TRUE(writer.Create("w.arc"));
        ASSERT_TRUE(writer.AddMember("a", text.data(), int(text.size())));
        ASSERT_TRUE(writer.Finish());
    }
    int files = qGetOpenFileCount();
    for (int nth = 1;; nth++) {
        ASSERT_LT(nth, 50);
        std::string reports;
        bool ok = false;
        testing::internal::CaptureStderr();
        qSetAllocFailure(nth);
        {
            QArchive archive;
            std::unique_ptr<QFile> file;
            if (archive.Open("w.arc")) file.reset(archive.OpenFile("a"));
            ok = file && file->GetMemorySize() == int(text.size()) &&
                 std::memcmp(file->GetMemory(), text.data(), text.size()) == 0;
        }
        qSetAllocFailure(0);
        reports = testing::internal::GetCapturedStderr();
        EXPECT_EQ(qGetOpenFileCount(), files) << nth;
        if (ok) {
            EXPECT_EQ(reports, "") << nth;
            break;
        }
        EXPECT_NE(reports.find("out of memory"), std::string::npos) << nth << ": " << reports;
    }
}

// ---- The virtual file system in front of archives

namespace {
QVirtualFileSystem* hookedFileSystem;
QVirtualFileSystem* HookedFileSystem() {
    return hookedFileSystem;
}

void MakeArchive(const char* name, std::initializer_list<std::pair<const char*, std::string>> members) {
    QArchiveWriter writer;
    ASSERT_TRUE(writer.Create(name));
    for (const auto& m : members)
        ASSERT_TRUE(writer.AddMember(m.first, m.second.data(), int(m.second.size())));
    ASSERT_TRUE(writer.Finish());
}

std::string Contents(QFile* file) {
    return file && file->GetMemory()
               ? std::string(reinterpret_cast<const char*>(file->GetMemory()), size_t(file->GetMemorySize()))
               : std::string("<none>");
}
} // namespace

TEST_F(QArchiveVfsTest, AnArchiveStandsInForItsOwnDirectory) {
    std::filesystem::create_directories("data/textures");
    MakeArchive("data/textures/pack.arc", {{"Asphalt.tga", "asphalt"}, {"grass.tga", "grass"}});
    MakeArchive("data/other.arc", {{"grass.tga", "wrong grass"}});
    QArchive textures("data/textures/pack.arc"), other("data/other.arc");
    ASSERT_TRUE(textures.IsOpen() && other.IsOpen());
    QVirtualFileSystem vfs;
    vfs.AddArchive(&other);
    vfs.AddArchive(&textures);

    EXPECT_TRUE(vfs.FileExists("data/textures/grass.tga"));
    EXPECT_TRUE(vfs.FileExists("DATA/Textures/grass.tga"));    // directories compared upper-cased
    EXPECT_FALSE(vfs.FileExists("data/textures/asphalt.tga")); // the member name counts case here
    EXPECT_FALSE(vfs.FileExists("textures/grass.tga"));
    EXPECT_FALSE(vfs.FileExists("grass.tga"));

    std::unique_ptr<QFile> grass, asphalt;
    EXPECT_EQ(
        Reports([&] { grass.reset(vfs.OpenFile("data/textures/grass.tga", QFile::READ | QFile::MEMORY)); }),
        "Directory does not match\n");
    EXPECT_EQ(Contents(grass.get()), "grass");
    // Opening goes through LoadFile, which finds the member whatever its case.
    Reports([&] { asphalt.reset(vfs.OpenFile("data/textures/asphalt.TGA", QFile::READ)); });
    EXPECT_EQ(Contents(asphalt.get()), "asphalt");
    std::unique_ptr<QFile> wrong;
    Reports([&] { wrong.reset(vfs.OpenFile("data/grass.tga", QFile::READ)); });
    EXPECT_EQ(Contents(wrong.get()), "wrong grass");
    EXPECT_EQ(Reports([&] { EXPECT_EQ(vfs.OpenFile("grass.tga", QFile::READ), nullptr); }),
              "Directory does not match\nDirectory does not match\n");

    // A file on disk comes first.
    WriteFile("data/textures/grass.tga", "disk grass");
    std::unique_ptr<QFile> disk(vfs.OpenFile("data/textures/grass.tga", QFile::READ | QFile::MEMORY));
    EXPECT_EQ(Contents(disk.get()), "disk grass");

    // QFileExists with archives asks the application's file system.
    static QAppHooks hooks{};
    hooks.GetFileSystem = HookedFileSystem;
    hookedFileSystem = &vfs;
    EXPECT_FALSE(QFileExists("data/other/grass.tga", true));
    EXPECT_FALSE(QFileExists("data/grass.tga", true)); // no application yet
    qappHooks = &hooks;
    EXPECT_TRUE(QFileExists("data/grass.tga", true));
    EXPECT_FALSE(QFileExists("data/grass.tga", false));
    EXPECT_FALSE(QFileExists("data/Grass.tga", true));
    qappHooks = nullptr;
    hookedFileSystem = nullptr;
}

TEST_F(QArchiveVfsTest, AMemberThatFailsLeavesItToTheNextArchive) {
    std::filesystem::create_directory("data");
    Layout broken;
    broken.Add("road.tga", Member(Stored("road")), 99); // the directory promises more than is there
    WriteFile("data/broken.arc", broken.Container());
    MakeArchive("data/good.arc", {{"road.tga", "good road"}});
    QArchive first("data/broken.arc"), second("data/good.arc");
    QVirtualFileSystem vfs;
    vfs.AddArchive(&first);
    vfs.AddArchive(&second);
    std::unique_ptr<QFile> road;
    EXPECT_EQ(Reports([&] { road.reset(vfs.OpenFile("data/road.tga", QFile::READ)); }),
              "QArchive:LoadFile(road.tga); member expands to 4 bytes, directory says 99\n");
    EXPECT_EQ(Contents(road.get()), "good road");
}

// ---- The qarchive command

TEST_F(QArchiveToolTest, PackListExtractGiveBackEveryByte) {
    std::filesystem::create_directories("in/sub");
    const std::pair<std::string, std::string> files[] = {
        {"a_empty", ""},
        {"b_one", "1"},
        {"c_chunk", TextLike(20000)},
        {"d_chunk_and_one", TextLike(20001)},
        {"e_mixed",
         std::string(45000, '\0') + TextLike(30000) + Pseudorandom(30000, 8) + std::string(5000, 'z')},
        {"f_noise", Pseudorandom(100000, 12)},
    };
    for (const auto& f : files)
        WriteFile("in/" + f.first, f.second);
    WriteFile("in/sub/hidden", "not packed");

    RunResult pack = RunCommand(std::string(QARCHIVE_PATH) + " pack x.arc in", dir.Path());
    ASSERT_EQ(pack.exitCode, 0) << pack.err;
    EXPECT_EQ(pack.err, "qarchive: passing over folder 'sub'\n");
    EXPECT_EQ(pack.out.rfind("6 files, 250002 bytes in ", 0), 0u) << pack.out;

    RunResult list = RunCommand(std::string(QARCHIVE_PATH) + " list x.arc", dir.Path());
    ASSERT_EQ(list.exitCode, 0) << list.err;
    EXPECT_EQ(list.out.substr(0, 60), "         0         16  a_empty\n         1         19  b_one\n");
    EXPECT_NE(list.out.find("    100000 "), std::string::npos);
    EXPECT_EQ(std::count(list.out.begin(), list.out.end(), '\n'), 6);

    RunResult extract = RunCommand(std::string(QARCHIVE_PATH) + " extract x.arc out", dir.Path());
    ASSERT_EQ(extract.exitCode, 0) << extract.err;
    QArchive archive("x.arc");
    for (const auto& f : files) {
        EXPECT_TRUE(FileExists("out/" + f.first)) << f.first;
        EXPECT_EQ(ReadFile("out/" + f.first), f.second) << f.first;
        if (f.second.empty()) continue;
        void* memory = nullptr;
        int size = 0;
        ASSERT_TRUE(archive.LoadFile(f.first.c_str(), &memory, &size)) << f.first;
        EXPECT_EQ(std::string(static_cast<char*>(memory), size_t(size)), f.second) << f.first;
        qfree(memory);
    }
    EXPECT_FALSE(FileExists("out/hidden"));

    RunResult one = RunCommand(std::string(QARCHIVE_PATH) + " extract x.arc only b_one nothing", dir.Path());
    EXPECT_EQ(one.exitCode, 1);
    EXPECT_EQ(one.err, "qarchive: no member 'nothing' in 'x.arc'\n");
    EXPECT_EQ(ReadFile("only/b_one"), "1");
    EXPECT_FALSE(FileExists("only/c_chunk"));
}

TEST_F(QArchiveToolTest, ExtractKeepsMembersInsideTheFolder) {
    Layout layout;
    layout.Add("../evil", Member(Stored("evil")), 4);
    layout.Add("fine", Member(Stored("fine")), 4);
    layout.Add("bad", Member(Stored("bad")), 9);
    WriteFile("x.arc", layout.Container());
    RunResult r = RunCommand(std::string(QARCHIVE_PATH) + " extract x.arc out", dir.Path());
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "qarchive: passing over member '../evil': not a plain file name\n"
                     "qarchive: member 'bad' expands to 3 bytes, directory says 9\n");
    EXPECT_FALSE(FileExists("evil"));
    EXPECT_EQ(ReadFile("out/fine"), "fine");
    EXPECT_FALSE(FileExists("out/bad")); // no half file left behind
}

TEST_F(QArchiveToolTest, PackRefusesNamesThatDifferOnlyInCase) {
    std::filesystem::create_directory("in");
    WriteFile("in/Road.tga", "1");
    WriteFile("in/road.tga", "2");
    RunResult r = RunCommand(std::string(QARCHIVE_PATH) + " pack x.arc in", dir.Path());
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err,
              "QArchiveWriter:AddMember(road.tga); 'Road.tga' is in the archive already, and names are found "
              "regardless of case\n");
    EXPECT_FALSE(FileExists("x.arc"));
    EXPECT_EQ(RunCommand(std::string(QARCHIVE_PATH) + " bogus", dir.Path()).exitCode, 2);
    RunResult missing = RunCommand(std::string(QARCHIVE_PATH) + " list none.arc", dir.Path());
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.err, "QArchive:Open(); can't open 'none.arc'\n");
}
