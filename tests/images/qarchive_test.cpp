// QArchive: the chunk decoder item by item, the packer's chunks read back, containers built byte by byte
// with one field wrong, the virtual file system in front of archives, and the qarchive command.
#include "images/qarchive.h"

#include "foundation/qfile.h"
#include "foundation/qfilesys.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "foundation/qstring.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

using namespace tarvik;
using namespace tarvik::test;

namespace {

// The stderr text of a call.
template <typename F> std::string Reports(F call) {
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}

// LoadFile: its result and reports, the whole block it left (or "<none>"), the live blocks then.
struct Loaded {
    bool ok = false;
    std::string log, data;
    int blocks = 0;
};

class QArchiveTest : public ::testing::Test {
  protected:
    void SetUp() override { qmsgReset(); }

    static std::string Bytes(std::initializer_list<int> v) { return std::string(v.begin(), v.end()); }
    static std::string LE16(int v) { return Bytes({v & 255, (v >> 8) & 255}); }
    static std::string LE32(uint32_t v) { return LE16(int(v & 0xFFFF)) + LE16(int(v >> 16)); }
    static const uint8_t* U8(const std::string& s) { return reinterpret_cast<const uint8_t*>(s.data()); }
    // A chunk as it stands in a member (its size word, then its bytes), a member, a directory entry.
    static std::string Sized(const std::string& chunk) { return LE16(int(chunk.size())) + chunk; }
    static std::string Stored(const std::string& data) { return Sized(char(QArchive::STORED_CHUNK) + data); }
    static std::string Member(const std::string& chunks) { return "D" + chunks + LE16(0); }
    static std::string Entry(const std::string& name, uint32_t offset, uint32_t size) {
        return name + '\0' + LE32(offset) + LE32(size);
    }

    // Members laid out behind the head, the directory behind them.
    struct Layout {
        std::string body, directory;
        uint32_t Next() const { return uint32_t(QArchive::HEADER_SIZE + body.size()); }
        void Add(const std::string& name, const std::string& member, int size) {
            directory += Entry(name, Next(), uint32_t(size));
            body += member;
        }
        std::string Container() const {
            return "QARC" + LE32(1) + LE32(Next()) + LE32(uint32_t(directory.size())) + body + directory;
        }
    };

    // What a chunk expands to, or "fault: " and why. Blocks too small (none, half, one byte short) get the
    // same length, the same bytes as far as they fit, and not one byte past them.
    static std::string Decode(const std::string& chunk) {
        std::vector<uint8_t> out(QArchive::MAX_CHUNK);
        const char* fault = "";
        int n =
            QArchive::DecompressChunk(U8(chunk), out.data(), int(chunk.size()), QArchive::MAX_CHUNK, &fault);
        if (n < 0) return (n == -1 ? "fault: " : "bad result: ") + std::string(fault);
        for (int room : {0, n / 2, std::max(n - 1, 0)}) {
            std::vector<uint8_t> block(size_t(room) + 8, 0xEE), guard(8, 0xEE);
            if (QArchive::DecompressChunk(U8(chunk), block.data(), int(chunk.size()), room) != n ||
                !std::equal(block.begin(), block.begin() + room, out.begin()) ||
                !std::equal(guard.begin(), guard.end(), block.begin() + room))
                return "wrong in a block of " + std::to_string(room);
        }
        return std::string(out.begin(), out.begin() + std::min(n, int(QArchive::MAX_CHUNK)));
    }

    static std::string Pseudorandom(size_t n, uint32_t seed) {
        std::string s(n, '\0');
        for (char& c : s)
            c = char((seed = seed * 1664525u + 1013904223u) >> 24);
        return s;
    }
    static std::string TextLike(size_t n) {
        static const char* words[] = {"wheel",    "speed", "gear ", "brake", "lap\n",
                                      "throttle", "0.25 ", "steer", "rpm "};
        std::string s;
        for (uint32_t seed = 7; s.size() < n;)
            s += words[((seed = seed * 1664525u + 1013904223u) >> 16) % 9];
        return s.substr(0, n);
    }

    // From the file "test.arc", or with 'memory' from a copy of the bytes under that name.
    bool OpenBytes(QArchive& archive, const std::string& bytes, bool memory = false) {
        if (memory) {
            held = bytes;
            return archive.OpenMemory("test.arc", held.data(), held.size());
        }
        WriteFile("test.arc", bytes);
        return archive.Open("test.arc");
    }
    std::string held; // the bytes an archive opened from memory reads
    static Loaded Load(QArchive& archive, const char* name) {
        Loaded r;
        void* memory = nullptr;
        int size = -1, before = qGetAllocCount();
        r.log = Reports([&] { r.ok = archive.LoadFile(name, &memory, &size); });
        r.blocks = qGetAllocCount() - before;
        r.data = memory ? std::string(static_cast<char*>(memory), size_t(size)) : "<none>";
        if (memory) qfree(memory);
        return r;
    }
    // The rest of the walk: "name offset size" a line.
    static std::string Walk(QArchive& archive) {
        std::string s;
        qstring name;
        int offset, size;
        while (archive.GetNextEntry(name, &offset, &size))
            s += std::string(name.cstr()) + " " + std::to_string(offset) + " " + std::to_string(size) + "\n";
        return s;
    }
    static void MakeArchive(const char* name,
                            std::initializer_list<std::pair<const char*, std::string>> members) {
        QArchiveWriter writer;
        ASSERT_TRUE(writer.Create(name));
        for (const auto& m : members)
            ASSERT_TRUE(writer.AddMember(m.first, m.second.data(), int(m.second.size())));
        ASSERT_TRUE(writer.Finish());
    }
    static std::string Contents(QFile* file) {
        return file && file->GetMemory() ? std::string(reinterpret_cast<const char*>(file->GetMemory()),
                                                       size_t(file->GetMemorySize()))
                                         : std::string("<none>");
    }
    // The command's exit status and standard error, "1 qarchive: ...". A command that spins, or waits
    // on a pipe using no processor time, is stopped by the limit or the watchdog: status 124 or more.
    std::string Tool(const std::string& arguments, std::string* out = nullptr,
                     const std::string& limits = "") {
        RunResult r =
            RunCommand(limits + "ulimit -t 20 && timeout 20 " + QARCHIVE_PATH + " " + arguments, dir.Path());
        if (out) *out = r.out;
        return std::to_string(r.exitCode) + " " + r.err;
    }

    TempDir dir{true};
};
using QArchiveChunkTest = QArchiveTest;
using QArchiveVfsTest = QArchiveTest;
using QArchiveToolTest = QArchiveTest;

} // namespace

// ---- The chunk decoder and the packer

TEST_F(QArchiveChunkTest, ItemsExpandAsTheControlBitsSay) {
    // 4095 literals end 15 bits into the 256th control word; its last bit is a copy of 4 from 4095 back.
    std::string window = Pseudorandom(4095, 3), full = Bytes({0});
    for (size_t i = 0; i < window.size(); i += 16)
        full += Bytes({0, 0}) + window.substr(i, 16);
    full[1 + 255 * 18 + 1] = 0x01;
    full += Bytes({0xFF, 0xF1});
    const std::string digits = "0123456789abcdef",
                      before = "fault: copy reaches before the start of the chunk";
    const std::pair<std::string, std::string> cases[] = {
        {Bytes({128, 'a', 'b', 'c'}), "abc"}, // stored
        {Bytes({128}), ""},
        {Bytes({128, 0, 1}), Bytes({0, 1})},
        {Bytes({0, 0x80, 0}), ""}, // compressed, three bytes or less: nothing
        {Bytes({7, 0xFF}), ""},
        {Bytes({0, 0, 0, 'x'}), "x"},
        // Bits 0 0 1 1 0: 'a', 'b', copy 2 back 5 long, a run of 16 'z', 'q'.
        {Bytes({0, 0x30, 0, 'a', 'b', 0x00, 0x22, 0, 0, 0, 'z', 'q'}),
         "abababa" + std::string(16, 'z') + "q"},
        {Bytes({0, 0x40, 0, 'x', 0x00, 0x1F}), std::string(19, 'x')}, // 1 back, 18 long: overlaps itself
        {Bytes({0, 0x10, 0, 'a', 'b', 'c', 0x00, 0x30}), "abcabc"},   // 12 bits of 3: a copy, no run
        {Bytes({0, 0x20, 0, 'a', 'b', 0x00, 0x20}), "ababa"},         // back to the very first byte
        {Bytes({0, 0x80, 0, 0, 0, 0, 'r'}), std::string(16, 'r')},
        {Bytes({0, 0x80, 0, 0, 0x01, 0x02, 7}), std::string(256 + 2 + 16, '\7')},
        {Bytes({0, 0x80, 0, 0, 0x0F, 0xFF, 9}), std::string(4111, '\x09')},
        // A copy that starts past the end of a block too small for it.
        {Bytes({0, 0x70, 0, 'x', 0x00, 0x1F, 0, 0x0F, 0xFF, 'r', 0x00, 0x1F}),
         std::string(19, 'x') + std::string(4111 + 18, 'r')},
        // Fifteen literals and a run use up the first word; right behind it the second: copy, literal.
        {Bytes({0, 0x00, 0x01}) + "abcdefghijklmno" + Bytes({0, 0, 0, '-', 0x80, 0x00, 0x01, 0xF0}) + "!",
         "abcdefghijklmno" + std::string(16, '-') + "abc!"},
        {Bytes({0, 0, 0}) + digits + Bytes({0xFF, 0xFF}), digits}, // a word with nothing behind it
        {full, window + window.substr(0, 4)},
        {Bytes({0, 0x80, 0, 0x00, 0x20}), before},
        {Bytes({0, 0x20, 0, 'a', 'b', 0x00, 0x30}), before}, // one further back than "ababa" above
        {Bytes({0, 0x80, 0, 0x01}), "fault: copy cut off at the end of the chunk"},
        {Bytes({0, 0x80, 0, 0, 0, 0}), "fault: run cut off at the end of the chunk"},
        {Bytes({0, 0, 0}) + digits + Bytes({0}), "fault: control word cut off at the end of the chunk"},
    };
    for (size_t i = 0; i < std::size(cases); i++)
        EXPECT_EQ(Decode(cases[i].first), cases[i].second) << "case " << i;
}

TEST_F(QArchiveChunkTest, EveryPackedChunkDecodesToWhatWentInAndCostsLittle) {
    // Long runs, a gap between two copies of noise, shifting patterns, a match just out of reach.
    std::string runs = std::string(4112, 'q') + "x" + std::string(4111, 'q'), patterned,
                gap = Pseudorandom(5000, 2) + std::string(300, ' ') + Pseudorandom(5000, 2),
                edge = Pseudorandom(4096, 5) + Pseudorandom(4096, 5).substr(0, 40),
                xyx = std::string(17, 'x') + "y" + std::string(15, 'x');
    for (int i = 0; i < 20000; i++)
        patterned += char("abcabd"[i % 6] + (i / 777) % 3);
    const std::string plain[] = {"", "a", "ab", "abc", "aaaa", runs, gap, patterned, edge, xyx};
    // Inputs and the most bytes their chunks may take, 0 for no more than stored.
    std::vector<std::pair<std::string, size_t>> inputs = {
        {std::string(20000, '\0'), 30},                        // a literal and runs of 4111
        {Pseudorandom(20000, 1), 20004},                       // stored 19999 bytes, then the last one
        {Pseudorandom(4095, 4) + Pseudorandom(4095, 4), 5200}, // the window again: 2 bytes per 18
        {TextLike(20000), 20000 * 2 / 3}};
    for (const std::string& in : plain)
        inputs.push_back({in, 0});
    QArchiveWriter writer;
    for (const auto& [in, most] : inputs) {
        size_t packed = 0;
        for (std::string left = in; !left.empty();) {
            uint8_t chunk[QArchive::MAX_CHUNK];
            int consumed = 0;
            int n = writer.CompressChunk(U8(left), int(left.size()), chunk, &consumed);
            ASSERT_GT(consumed, 0);
            ASSERT_LE(n, int(QArchive::MAX_CHUNK));
            // Stored when that is no larger, but never in three bytes or less.
            EXPECT_LE(n, consumed < 3 ? consumed + 3 : consumed + 1) << in.size();
            EXPECT_TRUE(chunk[0] != QArchive::STORED_CHUNK || n > 3) << in.size();
            EXPECT_EQ(Decode(std::string(chunk, chunk + n)), left.substr(0, size_t(consumed))) << in.size();
            packed += size_t(n);
            left.erase(0, size_t(consumed));
        }
        EXPECT_TRUE(!most || packed <= most) << in.size() << ": " << packed;
    }
}

// ---- Opening, walking, finding

TEST_F(QArchiveTest, OpenRefusesWhatDoesNotParse) {
    Layout good;
    good.Add("a", Member(Stored("xyz")), 3);
    const std::string bytes = good.Container(); // 16 + 9 + 10 bytes
    auto with = [&](size_t at, const std::string& field) {
        return std::string(bytes).replace(at, field.size(), field);
    };
    auto directory = [&](const std::string& entries) {
        return "QARC" + LE32(1) + LE32(25) + LE32(uint32_t(entries.size())) + good.body + entries;
    };
    std::string cut = good.directory + Entry("second", 16, 1);
    cut.pop_back();
    const std::string noArchive = "QArchive:Open(); 'test.arc' is not an archive\n",
                      outside = "QArchive:Open(); directory of 'test.arc' lies outside the file ";
    const std::pair<std::string, std::string> cases[] = {
        {bytes.substr(0, 15), noArchive},
        {with(3, "K"), noArchive},
        {with(4, LE32(2)), "QArchive:Open(); 'test.arc' has version 2 (can read 1)\n"},
        {with(12, LE32(11)), outside + "(offset 25, size 11, file 35)\n"}, // one byte past the end
        {with(8, LE32(0xFFFFFFF0u) + LE32(0xFFFFFFF0u)),
         outside + "(offset 4294967280, size 4294967280, file 35)\n"},
        {with(8, LE32(15)), outside + "(offset 15, size 10, file 35)\n"}, // in the head
        {directory(good.directory + "second"), "QArchive:Open(); 'test.arc': name of entry 2 has no end\n"},
        {directory(cut), "QArchive:Open(); 'test.arc': entry 2 runs past the end of the directory\n"},
    };
    QArchive archive;
    for (bool memory : {false, true})
    for (const auto& c : cases) { // a pair, not a binding: a lambda may not capture one in C++17
        ASSERT_TRUE(OpenBytes(archive, bytes));
        EXPECT_EQ(Reports([&] { EXPECT_FALSE(OpenBytes(archive, c.first, memory)); }), c.second);
        EXPECT_FALSE(archive.IsOpen());
    }
    ASSERT_TRUE(OpenBytes(archive, directory(cut + '\0')));
    EXPECT_EQ(Walk(archive), "a 16 3\nsecond 16 1\n");
    ASSERT_TRUE(OpenBytes(archive, "QARC" + LE32(1) + LE32(16) + LE32(0))); // empty, and fine
    EXPECT_EQ(Walk(archive), "");
}

TEST_F(QArchiveTest, NamesCountCaseInFindEntryButNotInLoadFileNorTheWriter) {
    QArchiveWriter writer;
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(writer.Create("no/such/dir.arc")); }),
              "QArchiveWriter:Create(); can't open 'no/such/dir.arc' for output\n");
    ASSERT_TRUE(writer.Create("w.arc"));
    EXPECT_TRUE(writer.AddMember("one.txt", "111", 3));
    EXPECT_TRUE(writer.AddMember("Road.TGA", "road", 4));
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(writer.AddMember("road.tga", "x", 1)); }),
              "QArchiveWriter:AddMember(road.tga); 'Road.TGA' is in the archive already, and names are found "
              "regardless of case\n");
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(writer.AddMember("sub/x", "x", 1)); }),
              "QArchiveWriter:AddMember(sub/x); a member needs a name without directories\n");
    EXPECT_FALSE(Reports([&] { EXPECT_FALSE(writer.AddMember("", "x", 1)); }).empty());
    EXPECT_TRUE(writer.AddMember("empty", nullptr, 0));
    ASSERT_TRUE(writer.Finish());
    QArchive archive("w.arc");
    EXPECT_EQ(Walk(archive), "one.txt 16 3\nRoad.TGA 25 4\nempty 35 0\n"); // stored: 'D', 2 + n + 1, 2
    EXPECT_EQ(Walk(archive), "");                                          // and stays at the end
    EXPECT_TRUE(archive.FindEntry("Road.TGA", false)); // restarts, and the walk goes on behind it
    EXPECT_EQ(Walk(archive), "empty 35 0\n");
    EXPECT_FALSE(archive.FindEntry("road.tga", false));
    EXPECT_EQ(Walk(archive), "");
    EXPECT_FALSE(archive.HasFile("ROAD.TGA"));
    EXPECT_EQ(Load(archive, "road.tga").data, "road");
    EXPECT_EQ(Load(archive, "ROAD.tga").data, "road");
    EXPECT_EQ(Load(archive, "road.tg").data, "<none>");
    int expanded = -1;
    ASSERT_TRUE(archive.FindEntry("Road.TGA", true));
    EXPECT_EQ(Reports([&] { EXPECT_FALSE(archive.DecompressFile("no/dir/x", 0, &expanded, nullptr, 0)); }),
              "Can't open 'no/dir/x' for output\n");
    archive.Close();
    EXPECT_EQ(Walk(archive), "");
    EXPECT_FALSE(archive.FindEntry("one.txt", false));
}

// ---- Expanding members

TEST_F(QArchiveTest, MembersExpandOrAreRefusedWithTheirReason) {
    std::string fiveRuns = Bytes({0, 0xF8, 0}); // 5 * 4111 bytes from one chunk
    for (int i = 0; i < 5; i++)
        fiveRuns += Bytes({0, 0x0F, 0xFF, 'x'});
    Layout l;
    l.Add("damaged", Member(Stored("ok") + Sized(Bytes({0, 0x80, 0, 0x00, 0x20}))), 10); // 2nd chunk at 24
    l.Add("skipping", "T" + LE32(5) + "DDDDD" + "X" + LE32(0) + Member(Stored("data")), 4);
    l.Add("full", Member(Stored(std::string(19999, 'f'))), 19999);
    l.Add("runs", Member(Sized(Bytes({0, 0x80, 0, 0, 0, 0, 'r'}))), 10); // 16 bytes for a block of 10
    l.Add("overflow", Member(Sized(fiveRuns)), 20555);
    l.Add("second", Member(Stored("abcde") + Stored("fgh")), 6);
    l.Add("short", Member(Stored("abc")), 5);
    l.Add("empty", Member(""), 0);
    l.Add("skipTooFar", "T" + LE32(1000000) + Member(Stored("data")), 4);
    l.Add("over", Member(LE16(20001) + char(QArchive::STORED_CHUNK) + std::string(20000, 'o')), 20000);
    l.directory += Entry("before", 3, 3) + Entry("negative", 0x80000000u, 3) + Entry("lying", 16, 2000000000);
    const uint32_t end = uint32_t(l.Next() + l.directory.size() + Entry("atEnd", 0, 0).size());
    l.directory += Entry("atEnd", end, 3);
    QArchive archive;
    ASSERT_TRUE(OpenBytes(archive, l.Container()));
    const std::string size = std::to_string(end), in = " in 'test.arc'",
                      outside = " lies outside 'test.arc' (";
    const struct {
        const char* name;
        std::string log, kept; // kept: what the block starts with, or "<none>" for no block
    } cases[] = {
        {"damaged", "QArchive: damaged chunk at 24" + in + ": copy reaches before the start of the chunk\n",
         "ok"},
        {"skipping", "", "data"},
        {"full", "", std::string(19999, 'f')},
        {"runs", "QArchive: member" + in + " expands beyond its size of 10 bytes\n", std::string(10, 'r')},
        {"overflow", "QArchive: decompressed chunk overflow of size 20555 (max 20000)\n", ""},
        {"second", "QArchive: member" + in + " expands beyond its size of 6 bytes\n", "abcdef"},
        {"short", "QArchive:LoadFile(short); member expands to 3 bytes, directory says 5\n", "abc"},
        {"empty", "QArchive:LoadFile(empty); member has size 0" + in + "\n", "<none>"},
        {"skipTooFar", "QArchive: member" + in + " ends before its data\n", ""},
        {"over", "QArchive: attempt to read decompress chunk of size 20001 (max 20000)\n", ""},
        {"before", "QArchive: member offset 3" + outside + size + " bytes)\n", "<none>"},
        {"negative", "QArchive: member offset -2147483648" + outside + size + " bytes)\n", "<none>"},
        {"atEnd", "QArchive: member offset " + size + outside + size + " bytes)\n", "<none>"},
        // Two billion bytes can't come from a few dozen thousand: refused before anything is allocated.
        {"lying",
         "QArchive: member of 2000000000 bytes can't come from the " + std::to_string(end - 16) +
             " bytes behind offset 16" + in + "\n",
         "<none>"},
    };
    for (const auto& c : cases) {
        Loaded got = Load(archive, c.name);
        EXPECT_EQ(got.ok, c.log.empty()) << c.name;
        EXPECT_EQ(got.log, c.log) << c.name;
        EXPECT_EQ(got.data.substr(0, c.kept.size()), c.kept) << c.name;
        EXPECT_EQ(got.blocks, c.kept == "<none>" ? 0 : 1) << c.name;
        WriteFile("x", "old"); // into a file whole or not at all: one that fails leaves the old file
        Reports([&] {
            bool whole =
                archive.FindEntry(c.name, true) && archive.DecompressFile("x", 0, nullptr, nullptr, 0);
            EXPECT_EQ(ReadFile("x") == "old", !whole) << c.name;
        });
    }
    // The oversized chunk is refused before the progress callback and the read that follows it.
    int calls = 0;
    archive.SetProgress([](void* user, long, int) { return ++*static_cast<int*>(user) > 0; }, &calls, 0);
    EXPECT_FALSE(Load(archive, "over").ok);
    EXPECT_EQ(calls, 0);
}

TEST_F(QArchiveTest, MembersCutShortKeepWhatCame) {
    // Cut at every byte, each is a reported failure; once the first chunk is in, the block keeps it.
    const std::string member = Member(Stored("first") + Stored("second")),
                      in = "QArchive: member in 'test.arc' ";
    const std::string head = "QARC" + LE32(1) + LE32(16) + LE32(10) + Entry("m", 26, 11);
    // Where each cut falls: before the member, short of a size word or the end mark, in a chunk.
    const std::string where = "-EE666666EE7777777EE";
    for (size_t cut = 0; cut < member.size(); cut++) {
        QArchive archive;
        ASSERT_TRUE(OpenBytes(archive, head + member.substr(0, cut), cut % 2)) << cut; // both roads
        Loaded got = Load(archive, "m");
        EXPECT_EQ(got.log, where[cut] == '-'
                               ? "QArchive: member offset 26 lies outside 'test.arc' (26 bytes)\n"
                           : where[cut] == 'E' ? in + "ends before its end mark\n"
                           : where[cut] == '6' ? in + "cut short in a chunk of 6 bytes at 29\n"
                                               : in + "cut short in a chunk of 7 bytes at 37\n")
            << cut;
        EXPECT_TRUE(cut < 1 + 2 + 6 || got.data.substr(0, 5) == "first") << cut << ": " << got.data;
    }
}

TEST_F(QArchiveTest, ProgressSeesEveryChunkAndMayStop) {
    std::string data = Pseudorandom(50000, 11);
    MakeArchive("w.arc", {{"noise", data}});
    std::vector<long> seen;
    QArchive archive("w.arc");
    auto note = [](void* user, long position, int total) { // 'total' is how many calls may go on
        auto* s = static_cast<std::vector<long>*>(user);
        s->push_back(position);
        return int(s->size()) < total;
    };
    archive.SetProgress(note, &seen, 100);
    EXPECT_EQ(Load(archive, "noise").data, data);
    // Three stored chunks of 19999, 19999 and 10002 bytes; each position is behind its size word.
    EXPECT_EQ(seen, (std::vector<long>{19, 19 + 20002, 19 + 2 * 20002}));
    seen.clear();
    archive.SetProgress(note, &seen, 2);
    Loaded stopped = Load(archive, "noise");
    EXPECT_EQ(std::to_string(stopped.ok) + stopped.log, "0"); // stopped quietly
    EXPECT_EQ(seen.size(), 2u);
    EXPECT_EQ(stopped.data.substr(0, 19999), data.substr(0, 19999)); // what came so far
}

TEST_F(QArchiveTest, OpenFileGivesAMemoryFileThatOwnsTheBlockOrFailsCleanly) {
    // Each allocation fails in turn: a reported failure (or one the file gets by without), nothing leaked.
    std::string text = TextLike(30000);
    MakeArchive("w.arc", {{"Notes.txt", text}});
    int files = qGetOpenFileCount();
    for (int nth = 1;; nth++) {
        ASSERT_LT(nth, 50);
        bool ok = false;
        int allocs = qGetAllocCount();
        qSetAllocFailure(nth);
        std::string reports = Reports([&] {
            QArchive archive;
            std::unique_ptr<QFile> file;
            if (archive.Open("w.arc")) file.reset(archive.OpenFile("notes.TXT"));
            ok = Contents(file.get()) == text;
        });
        qSetAllocFailure(0);
        int blocks = qGetAllocCount() - allocs; // a failed allocation counts as well
        EXPECT_EQ(qGetOpenFileCount(), files) << nth;
        EXPECT_LE(blocks, 1) << nth;
        if (ok && blocks == 0) break; // no failure left to inject
        EXPECT_TRUE(ok || reports.find("out of memory") != std::string::npos) << nth << ": " << reports;
    }
}

// ---- The virtual file system in front of archives

TEST_F(QArchiveVfsTest, AnArchiveStandsInForItsOwnDirectory) {
    std::filesystem::create_directories("data/textures");
    Layout broken; // its directory promises more than the member holds
    broken.Add("grass.tga", Member(Stored("grass")), 99);
    WriteFile("data/broken.arc", broken.Container());
    MakeArchive("data/textures/pack.arc", {{"Asphalt.tga", "asphalt"}, {"grass.tga", "grass"}});
    MakeArchive("data/other.arc", {{"grass.tga", "other grass"}});
    QArchive first("data/broken.arc"), textures("data/textures/pack.arc"), other("data/other.arc");
    QVirtualFileSystem vfs;
    vfs.AddArchive(&first);
    vfs.AddArchive(&other);
    vfs.AddArchive(&textures);
    const std::string mismatch = "Directory does not match\n";
    std::unique_ptr<QFile> grass, asphalt, next;
    EXPECT_EQ(Reports([&] { grass.reset(vfs.OpenFile("data/textures/grass.tga", QFile::READ)); }),
              mismatch + mismatch);
    EXPECT_EQ(Contents(grass.get()), "grass");
    // Opening goes through LoadFile, which finds the member whatever its case.
    Reports([&] { asphalt.reset(vfs.OpenFile("data/textures/asphalt.TGA", QFile::READ)); });
    EXPECT_EQ(Contents(asphalt.get()), "asphalt");
    // A member that fails to expand leaves it to the next archive.
    EXPECT_EQ(Reports([&] { next.reset(vfs.OpenFile("data/grass.tga", QFile::READ)); }),
              "QArchive:LoadFile(grass.tga); member expands to 5 bytes, directory says 99\n");
    EXPECT_EQ(Contents(next.get()), "other grass");
    EXPECT_EQ(Reports([&] { EXPECT_EQ(vfs.OpenFile("grass.tga", QFile::READ), nullptr); }),
              mismatch + mismatch + mismatch);
    // A file on disk comes first.
    WriteFile("data/textures/grass.tga", "disk grass");
    std::unique_ptr<QFile> disk(vfs.OpenFile("data/textures/grass.tga", QFile::READ | QFile::MEMORY));
    EXPECT_EQ(Contents(disk.get()), "disk grass");
    // Directories compare upper-cased, member names count case.
    EXPECT_TRUE(vfs.FileExists("DATA/Textures/grass.tga"));
    for (const char* path : {"data/textures/asphalt.tga", "data/Grass.tga", "grass.tga"})
        EXPECT_FALSE(vfs.FileExists(path)) << path;
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
        {"g_tab\there\x1b[2J", "listed with escapes"},
    };
    for (const auto& f : files)
        if (f.first != "c_chunk") WriteFile("in/" + f.first, f.second);
    WriteFile("in/sub/hidden", files[2].second); // not packed as such, but through a link, followed
    std::filesystem::create_symlink("sub/hidden", "in/c_chunk");
    std::filesystem::create_symlink("/dev/zero", "in/zero"); // never read
    ASSERT_EQ(mkfifo("in/pipe", 0600), 0);                   // never opened, no writer would come
    std::string out, skipped = "qarchive: passing over 'pipe': not a regular file\n"
                               "qarchive: passing over folder 'sub'\n"
                               "qarchive: passing over 'zero': not a regular file\n";
    EXPECT_EQ(Tool("pack x.arc in", &out), "0 " + skipped);
    EXPECT_EQ(out.rfind("7 files, 250021 bytes in ", 0), 0u) << out;
    EXPECT_EQ(Tool("list x.arc", &out), "0 ");
    EXPECT_EQ(out.substr(0, 60), "         0         16  a_empty\n         1         19  b_one\n");
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 7);
    EXPECT_NE(out.find("  g_tab\\there\\x1b[2J\n"), std::string::npos) << out;
    ASSERT_EQ(Tool("extract x.arc out"), "0 ");
    for (const auto& [name, bytes] : files)
        EXPECT_EQ(FileExists("out/" + name) ? ReadFile("out/" + name) : "<none>", bytes) << name;
    EXPECT_EQ(Tool("extract x.arc only b_one nothing"), "1 qarchive: no member 'nothing' in 'x.arc'\n");
    EXPECT_EQ(ReadFile("only/b_one"), "1");
    EXPECT_FALSE(FileExists("only/c_chunk"));
    // An archive written over a file of the folder it packs does not pack itself.
    EXPECT_EQ(Tool("pack in/f_noise in"),
              "0 qarchive: passing over 'f_noise': it is the archive itself\n" + skipped);
    QArchive archive("in/f_noise");
    EXPECT_TRUE(archive.FindEntry("e_mixed", false));
    EXPECT_FALSE(archive.FindEntry("f_noise", false));
}

TEST_F(QArchiveToolTest, RefusalsLeaveEverythingElseAsItWas) {
    // What stands at a member's name in the destination, and what the command says of it: nothing
    // is written through a link, nothing of the user's is removed, the other members still come out.
    std::filesystem::create_directory("out");
    std::filesystem::create_directory("in");
    WriteFile("outside", "mine");
    WriteFile("out/ro", "keep");
    std::filesystem::permissions("out/ro", std::filesystem::perms::owner_read);
    std::filesystem::create_symlink("../outside", "out/link");
    std::filesystem::create_symlink("../made", "out/dangling");
    ASSERT_EQ(mkfifo("out/fifo", 0600), 0);
    const std::string over = "qarchive: passing over member '", link = "': a link stands at its name\n";
    const std::pair<std::string, std::string> cases[] = {
        {"../evil", over + "../evil': not a plain file name\n"},
        {"link", over + "link" + link},
        {"dangling", over + "dangling" + link},
        {"ro", over + "ro': Permission denied\n"},
        {"fifo", over + "fifo': something other than a file stands at its name\n"},
        {"bad", "qarchive: member 'bad' expands to 3 bytes, directory says 9\n"},
        {"fine", ""},
    };
    Layout layout;
    std::string reports;
    for (const auto& [name, report] : cases) {
        layout.Add(name, Member(Stored("new")), name == "bad" ? 9 : 3);
        reports += report;
    }
    WriteFile("x.arc", layout.Container());
    EXPECT_EQ(Tool("extract x.arc out"), "1 " + reports);
    EXPECT_EQ(ReadFile("outside") + ReadFile("out/ro") + ReadFile("out/fine"), "minekeepnew");
    EXPECT_FALSE(FileExists("made") || FileExists("evil") || FileExists("out/bad"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("out"), {}), 5); // nothing left over
    // A pack that fails halfway (here at the file size limit) leaves the old archive as it was.
    WriteFile("in/noise", Pseudorandom(100000, 1));
    EXPECT_EQ(Tool("pack x.arc in", nullptr, "ulimit -f 16 && "),
              "1 QArchiveWriter: can't write to 'x.arc'\n");
    EXPECT_EQ(ReadFile("x.arc"), layout.Container());
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("."), {}), 4);
    EXPECT_EQ(Tool("bogus").substr(0, 9), "2 usage: ");
    EXPECT_EQ(Tool("list none.arc"), "1 QArchive:Open(); can't open 'none.arc'\n");
}
