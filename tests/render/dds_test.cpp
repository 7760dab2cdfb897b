// DDS textures: block flips, level sizes, formats, damaged files, allocation failures and the
// archive road without a display; then the upload under a private X server, every level read back
// and compared with the image tool's own decode of the same level.
#include "toolkit/glext.h" // first of the OpenGL headers

#include "foundation/qfilesys.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "images/qarchive.h"
#include "render/dds.h"
#include "render/dglobal.h"
#include "render/dtexture.h"
#include "tests/render/rendertest.h"
#include "tests/support/testsupport.h"
#include "tests/toolkit/xserver.h"
#include "toolkit/qapp.h"
#include "toolkit/qglcontext.h"
#include "toolkit/qwindow.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

namespace tarvik {
namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

std::string Le32(uint32_t v)
{
    return std::string{char(v), char(v >> 8), char(v >> 16), char(v >> 24)};
}

// The 128 bytes of head: height, width, levels, pixel format flags, four-letter code, bit count.
std::string Header(uint32_t h, uint32_t w, int32_t levels, uint32_t flags, const char* code, uint32_t bits)
{
    std::string s = "DDS " + Le32(124) + Le32(0) + Le32(h) + Le32(w) + std::string(8, '\0') + Le32(uint32_t(levels));
    s += std::string(44, '\0') + Le32(32) + Le32(flags) + std::string(code, 4) + Le32(bits);
    return s + std::string(128 - s.size(), '\0');
}

std::string Bytes(size_t n, int seed)
{
    std::string s(n, '\0');
    for (size_t i = 0; i < n; i++) s[i] = char(i * 37 + seed * 101 + (i >> 8));
    return s;
}

// Loads from memory; the reports of the load in '*err'.
bool LoadText(DDDS& dds, const std::string& name, const std::string& file, std::string* err)
{
    CaptureStderr();
    bool ok = dds.LoadMemory(name.c_str(), file.data(), int(file.size()));
    *err = GetCapturedStderr();
    return ok;
}

class DDDSTest : public testing::Test {
protected:
    void SetUp() override { qmsgReset(); }
    void TearDown() override
    {
        CaptureStderr();
        d3FreeDGlobal();
        GetCapturedStderr();
    }
    test::TempDir dir{true}; // the warnings' QLOG.txt
};

TEST_F(DDDSTest, FlipsEachKindOfBlockByItsRows)
{
    // DXT5 alpha rows of 12 bits: 0x123, 0x456, 0x789, 0xABC from the top; flipped they come last first.
    const uint8_t dxt5[16] = {0xE1, 0xE2, 0x23, 0x61, 0x45, 0x89, 0xC7, 0xAB, 1, 2, 3, 4, 0x10, 0x20, 0x30, 0x40};
    const uint8_t dxt5Flipped[16] = {0xE1, 0xE2, 0xBC, 0x9A, 0x78, 0x56, 0x34, 0x12, 1, 2, 3, 4, 0x40, 0x30, 0x20, 0x10};
    const uint8_t dxt3[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    const uint8_t dxt3Flipped[16] = {6, 7, 4, 5, 2, 3, 0, 1, 8, 9, 10, 11, 15, 14, 13, 12};
    const uint8_t dxt1[8] = {1, 2, 3, 4, 0x10, 0x20, 0x30, 0x40};
    const uint8_t dxt1Flipped[8] = {1, 2, 3, 4, 0x40, 0x30, 0x20, 0x10};
    const struct {
        uint32_t code;
        const uint8_t* block;
        const uint8_t* flipped;
        int size;
    } kinds[] = {{DDDS::FOURCC_DXT1, dxt1, dxt1Flipped, 8},
                 {DDDS::FOURCC_DXT3, dxt3, dxt3Flipped, 16},
                 {DDDS::FOURCC_DXT5, dxt5, dxt5Flipped, 16}};
    for (const auto& k : kinds) {
        std::vector<uint8_t> b(k.block, k.block + k.size);
        DDDS::FlipBlocks(b.data(), 1, k.code);
        EXPECT_EQ(b, std::vector<uint8_t>(k.flipped, k.flipped + k.size)) << k.size;
        // Rows of any length go through the wide code as well: each block as if flipped alone,
        // and twice gives the row back.
        for (int n = 1; n <= 40; n++) {
            std::string row = Bytes(size_t(n * k.size), n);
            std::vector<uint8_t> all(row.begin(), row.end()), one = all;
            DDDS::FlipBlocks(all.data(), n, k.code);
            for (int i = 0; i < n; i++) DDDS::FlipBlocks(one.data() + i * k.size, 1, k.code);
            ASSERT_EQ(all, one) << "code " << k.code << ", " << n << " blocks";
            DDDS::FlipBlocks(all.data(), n, k.code);
            ASSERT_EQ(all, std::vector<uint8_t>(row.begin(), row.end())) << n << " blocks";
        }
    }
}

TEST_F(DDDSTest, LevelsHalveDownToOneAndStayThere)
{
    const struct {
        uint32_t w, h;
        int levels;
        const char* code;
        uint32_t flags, bits;
        std::vector<int> sizes;
    } cases[] = {
        // 256x128 ends at 1x1; the height stopped halving at level 7.
        {256, 128, 9, "DXT1", 4, 0, {16384, 4096, 1024, 256, 64, 16, 8, 8, 8}},
        {1, 1, 1, "DXT5", 4, 0, {16}}, // one block, even for one pixel
        {7, 5, 3, "DXT3", 4, 0, {64, 16, 16}},
        {3, 2, 2, "    ", 0, 32, {24, 4}},
        {0, 0, 2, "DXT1", 4, 0, {8, 8}},                          // a zero size counts as 1
        {1, 1, 20, "DXT1", 4, 0, std::vector<int>(16, 8)},       // 16 slots at most
        {8, 8, 0, "DXT5", 4, 0, {}},                              // no levels: true, no pixels
    };
    for (const auto& c : cases) {
        int total = 0;
        for (int s : c.sizes) total += s;
        std::string name = std::to_string(c.w) + "x" + std::to_string(c.h) + c.code;
        DDDS dds;
        std::string err;
        ASSERT_TRUE(LoadText(dds, name, Header(c.h, c.w, c.levels, c.flags, c.code, c.bits) + Bytes(size_t(total), 1),
                             &err))
            << name << ": " << err;
        EXPECT_EQ(dds.GetMipmaps(), c.levels);
        EXPECT_EQ(dds.GetFormat(), c.bits == 32 ? DDS_FORMAT_RGBA : DDS_FORMAT_YCOCG);
        for (int l = 0; l < DDDS::MAX_LEVELS; l++) {
            int want = l < int(c.sizes.size()) ? c.sizes[size_t(l)] : 0;
            EXPECT_EQ(dds.GetSize(l), want) << name << " level " << l;
            EXPECT_EQ(dds.GetPixels(l) != nullptr, want > 0) << name << " level " << l;
        }
        EXPECT_EQ(rtest::HasText(err, "DDS format might be unreliable, pls use DXT5."), c.bits == 32) << err;
    }
    // 32-bit pixels turn from blue, green, red, alpha into red, green, blue, alpha, rows in order.
    DDDS rgba;
    std::string err;
    ASSERT_TRUE(LoadText(rgba, "rgba", Header(2, 1, 1, 0, "    ", 32) + "\1\2\3\4\21\22\23\24", &err));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(rgba.GetPixels(0)), 8), "\3\2\1\4\23\22\21\24");
}

TEST_F(DDDSTest, ColourIsSRGBUnlessLinear)
{
    const struct {
        const char* code;
        uint32_t linear, srgb;
    } cases[] = {{"DXT1", GL_COMPRESSED_RGBA_S3TC_DXT1_EXT, GL_COMPRESSED_SRGB_ALPHA_S3TC_DXT1_EXT},
                 {"DXT3", GL_COMPRESSED_RGBA_S3TC_DXT3_EXT, GL_COMPRESSED_SRGB_ALPHA_S3TC_DXT3_EXT},
                 {"DXT5", GL_COMPRESSED_RGBA_S3TC_DXT5_EXT, GL_COMPRESSED_SRGB_ALPHA_S3TC_DXT5_EXT}};
    CaptureStderr();
    DGlobal* global = d3GetDGlobal();
    GetCapturedStderr();
    for (const auto& c : cases)
        for (int linear = 0; linear < 2; linear++) {
            global->linearColor = linear;
            DDDS dds;
            std::string err;
            ASSERT_TRUE(LoadText(dds, c.code, Header(4, 4, 1, 4, c.code, 0) + Bytes(16, 2), &err)) << err;
            EXPECT_EQ(dds.GetInternalFormat(), linear ? c.linear : c.srgb) << c.code << " linear " << linear;
        }
}

TEST_F(DDDSTest, DamagedFilesAreRefusedBeforeAnyLevelIsAllocated)
{
    const std::string dxt1 = Header(8, 8, 4, 4, "DXT1", 0); // levels of 32, 8, 8, 8 bytes
    const struct {
        const char* name;
        std::string file;
        const char* report; // null: none at all
    } cases[] = {
        {"empty", "", nullptr},
        {"magic", "DDS_" + dxt1.substr(4) + Bytes(56, 3), nullptr},
        {"headonly", "DDS ", "DDDS:Load(headonly); unknown DDS format (rgb bitcount not 32, not DXT5)"},
        {"rgb24", Header(4, 4, 1, 0, "    ", 24) + Bytes(48, 3),
         "DDDS:Load(rgb24); unknown DDS format (rgb bitcount not 32, not DXT5)"},
        {"ati2", Header(4, 4, 1, 4, "ATI2", 0) + Bytes(16, 3), "DDDS:Load(ati2); unknown compressed format (ATI2)"},
        {"huge", Header(65535, 65535, 16, 4, "DXT5", 0) + Bytes(72, 3),
         "DDDS:Load(huge); file too short for mipmap level 0"},
        {"widest", Header(0xFFFFFFFF, 0xFFFFFFFF, 16, 0, "    ", 32) + Bytes(72, 3),
         "DDDS:Load(widest); file too short for mipmap level 0"},
        {"toomany", Header(8, 8, 10, 4, "DXT1", 0) + Bytes(56, 3),
         "DDDS:Load(toomany); file too short for mipmap level 4"},
        {"cutlevel", dxt1 + Bytes(44, 3), "DDDS:Load(cutlevel); file too short for mipmap level 2"},
        {"cutlast", dxt1 + Bytes(55, 3), "DDDS:Load(cutlast); file too short for mipmap level 3"},
        {"cutrgba", Header(3, 5, 2, 0, "    ", 32) + Bytes(62, 3), "DDDS:Load(cutrgba); file too short for mipmap level 1"},
        {"cuthead", Header(4, 4, 1, 4, "DXT1", 0).substr(0, 127), "DDDS:Load(cuthead); file too short for mipmap level 0"},
    };
    for (const auto& c : cases) {
        int allocs = qGetAllocCount();
        {
            DDDS dds;
            std::string err;
            EXPECT_FALSE(LoadText(dds, c.name, c.file, &err)) << c.name;
            if (c.report) {
                std::string last = err.substr(0, err.size() - 1); // the refusal is the last report
                EXPECT_EQ(last.substr(last.rfind('\n') + 1), c.report) << c.name;
            } else {
                EXPECT_EQ(err, "") << c.name;
            }
            for (int l = 0; l < DDDS::MAX_LEVELS; l++) EXPECT_EQ(dds.GetPixels(l), nullptr) << c.name << " level " << l;
        }
        EXPECT_EQ(qGetAllocCount(), allocs) << c.name;
    }
}

TEST_F(DDDSTest, EveryCutOfAGoodFileIsRefused)
{
    const std::string file = Header(5, 7, 3, 4, "DXT5", 0) + Bytes(96, 4);
    int allocs = qGetAllocCount();
    for (size_t n = 0; n < file.size(); n++) {
        DDDS dds;
        std::string err;
        EXPECT_FALSE(LoadText(dds, "cut" + std::to_string(n), file.substr(0, n), &err)) << n;
        EXPECT_EQ(err.empty(), n < 4) << n << ": " << err; // a file without its magic is no DDS file
    }
    EXPECT_EQ(qGetAllocCount(), allocs);
}

// Files that claim gigabytes load in a child whose address space is limited to what it has plus
// 64 MB: an allocation of the claimed size would fail there and be reported as out of memory.
TEST_F(DDDSTest, HugeClaimsStayWithinAnAddressSpaceLimit)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the address sanitizer reserves more address space than any limit allows";
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
    GTEST_SKIP() << "the address sanitizer reserves more address space than any limit allows";
#endif
#endif
    std::fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        if (!std::freopen("child.txt", "w", stderr)) _exit(2);
        long pages = 0;
        if (FILE* f = std::fopen("/proc/self/statm", "r")) {
            if (std::fscanf(f, "%ld", &pages) != 1) pages = 0;
            std::fclose(f);
        }
        rlim_t bytes = rlim_t(pages) * rlim_t(sysconf(_SC_PAGESIZE)) + (64u << 20);
        rlimit limit{bytes, bytes};
        setrlimit(RLIMIT_AS, &limit);
        const std::string files[] = {Header(65535, 65535, 16, 4, "DXT5", 0) + Bytes(72, 5),
                                     Header(16384, 16384, 16, 0, "    ", 32) + Bytes(72, 5),
                                     Header(16384, 16384, 1, 4, "DXT1", 0) + Bytes(1 << 20, 5)};
        bool refused = true;
        for (const std::string& f : files) {
            DDDS dds;
            refused = !dds.LoadMemory("claim", f.data(), int(f.size())) && refused;
        }
        std::fflush(nullptr);
        _exit(refused ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    std::string err = test::ReadFile("child.txt");
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << err;
    EXPECT_FALSE(rtest::HasText(err, "out of memory")) << err;
    EXPECT_TRUE(rtest::HasText(err, "DDDS:Load(claim); file too short for mipmap level 0"));
}

TEST_F(DDDSTest, AllocationFailuresAreReportedAndLeaveNothing)
{
    const std::string file = Header(8, 8, 4, 4, "DXT1", 0) + Bytes(56, 6);
    for (int nth = 1;; nth++) {
        ASSERT_LT(nth, 50);
        int allocs = qGetAllocCount();
        bool ok;
        std::string err;
        {
            DDDS dds;
            qSetAllocFailure(nth);
            ok = LoadText(dds, "inject" + std::to_string(nth), file, &err);
            qSetAllocFailure(0);
        }
        int blocks = qGetAllocCount() - allocs; // a failed allocation counts as well
        if (ok && blocks == 0) break;           // no failure left to inject
        EXPECT_LE(blocks, 1) << nth;
        if (!ok) {
            // The first allocation is the name of the file object; the levels follow.
            EXPECT_TRUE(rtest::HasText(err, "out of memory for mipmap level " + std::to_string(nth - 2))) << err;
        }
    }
}

TEST_F(DDDSTest, ArchiveMembersAndDiskFilesGiveTheSameLevels)
{
    // 1018x517 and 509x258: rows of 255 and 128 blocks, level 0 in three slices on the disk road.
    const std::string file = Header(517, 1018, 2, 4, "DXT5", 0) + Bytes(255 * 130 * 16 + 128 * 65 * 16, 7);
    test::WriteFile("disk.dds", file);
    DDDS noApp;
    EXPECT_FALSE(noApp.Load("disk.dds")); // no application, no file system to read from

    ASSERT_TRUE(QMakeDirectory("tex"));
    QArchiveWriter writer;
    ASSERT_TRUE(writer.Create("tex/pack.arc"));
    ASSERT_TRUE(writer.AddMember("road.dds", file.data(), int(file.size())));
    ASSERT_TRUE(writer.Finish());
    QArchive archive("tex/pack.arc");
    QVirtualFileSystem vfs;
    vfs.AddArchive(&archive);
    CaptureStderr();
    new QApp("ddstest");
    app->vfs = &vfs;
    DDDS memory, disk, member, none;
    bool loaded = memory.LoadMemory("memory", file.data(), int(file.size())) && disk.Load("disk.dds") &&
                  member.Load("tex/road.dds");
    bool missing = none.Load("tex/none.dds");
    delete app;
    std::string err = GetCapturedStderr();
    ASSERT_TRUE(loaded) << err;
    EXPECT_FALSE(missing);
    for (int l = 0; l < 2; l++) {
        std::string a(reinterpret_cast<const char*>(memory.GetPixels(l)), size_t(memory.GetSize(l)));
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(disk.GetPixels(l)), size_t(disk.GetSize(l))), a) << l;
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(member.GetPixels(l)), size_t(member.GetSize(l))), a) << l;
    }
}

// ---- The upload, against the image tool's decoder

class DDDSGLTest : public test::XServerTest {
protected:
    void SetUp() override
    {
        test::XServerTest::SetUp();
        if (IsSkipped()) return;
        qmsgReset();
        std::string err;
        ASSERT_TRUE(rtest::MakeGLShell("ddsgltest", 32, 32, &err)) << err;
        glGetError();
    }
    void TearDown() override
    {
        if (!app) return;
        CaptureStderr();
        d3FreeDGlobal();
        delete app;
        GetCapturedStderr();
    }

    // The texture of a file, made through DDDS; the reports in '*err'.
    static DTexture* Upload(const std::string& file, std::string* err, bool expectLoad = true)
    {
        CaptureStderr();
        DDDS dds;
        bool ok = dds.LoadMemory("upload", file.data(), int(file.size()));
        DTexture* tex = dds.CreateTexture();
        *err = GetCapturedStderr();
        EXPECT_EQ(ok, expectLoad) << *err;
        return tex;
    }
    static void Release(DTexture* tex)
    {
        if (tex->Detach()) delete tex;
    }

    test::TempDir dir{true};
};

// A picture whose rows, columns and channels all differ, with a block of its own in the top left
// corner and holes in the alpha, so that a flip, a shift or a swap shows.
std::string Picture(int w, int h)
{
    std::string px(size_t(w * h * 4), '\0');
    for (int y = 0; y < h; y++)
        for (int x = 0; x < w; x++) {
            char* p = &px[size_t((y * w + x) * 4)];
            bool corner = x < w / 3 && y < h / 2;
            p[0] = char(x * 255 / (w > 1 ? w - 1 : 1));
            p[1] = char(y * 255 / (h > 1 ? h - 1 : 1));
            p[2] = char(corner ? 230 : 30 + (x * y) % 50);
            p[3] = char((x + 2 * y) % 7 == 0 ? 0 : 255 - 3 * y);
        }
    return px;
}

// The driver and the image tool round the values between a block's two ends differently, so
// those are made ends as well: the index rows still differ from pixel to pixel, and a flip shows
// as much. Colour index 3 of a DXT1 block in its three-colour kind (first end not above the
// second) is transparent black, and DXT5 alpha indices 6 and 7 of its six-value kind are 0 and
// 255: they stay.
void KeepEndColours(std::string& file, int blockSize, bool dxt5)
{
    for (size_t b = 128; dxt5 && b + 16 <= file.size(); b += 16) {
        bool eightValues = uint8_t(file[b]) > uint8_t(file[b + 1]);
        uint64_t bits = 0, out = 0;
        for (int i = 0; i < 6; i++) bits |= uint64_t(uint8_t(file[b + 2 + size_t(i)])) << (8 * i);
        for (int p = 0; p < 16; p++) {
            uint64_t v = bits >> (3 * p) & 7;
            if (v >= 2 && (eightValues || v < 6)) v &= 1;
            out |= v << (3 * p);
        }
        for (int i = 0; i < 6; i++) file[b + 2 + size_t(i)] = char(out >> (8 * i));
    }
    for (size_t b = 128 + size_t(blockSize) - 8; b + 8 <= file.size(); b += size_t(blockSize)) {
        auto byte = [&](size_t i) { return unsigned(uint8_t(file[b + i])); };
        bool fourColours = blockSize == 16 || (byte(0) | byte(1) << 8) > (byte(2) | byte(3) << 8);
        for (size_t i = 4; i < 8; i++) {
            unsigned row = byte(i), out = 0;
            for (int p = 0; p < 4; p++) {
                unsigned v = row >> (2 * p) & 3;
                if (v == 2) v = 0;
                if (v == 3 && fourColours) v = 1;
                out |= v << (2 * p);
            }
            file[b + i] = char(out);
        }
    }
}

int LevelBytes(int w, int h, int blockSize)
{
    return blockSize ? (w + 3) / 4 * ((h + 3) / 4) * blockSize : w * h * 4;
}

TEST_F(DDDSGLTest, LevelsMatchTheImageToolsDecodeTurnedOver)
{
    if (test::RunCommand("convert -version", ".").exitCode != 0) GTEST_SKIP() << "no image tool";
    const struct {
        const char* compression; // of the image tool; "dxt3" is made here from the DXT5 file
        int w, h, levels;        // only pictures of powers of two get levels from the tool
        int blockSize;
    } cases[] = {
        {"dxt1", 64, 32, 7, 8}, {"dxt5", 32, 64, 7, 16}, {"dxt3", 16, 8, 5, 16},
        {"none", 8, 16, 5, 0},  {"dxt5", 37, 21, 1, 16}, {"dxt1", 36, 20, 1, 8},
    };
    for (const auto& c : cases) {
        std::string label = std::string(c.compression) + " " + std::to_string(c.w) + "x" + std::to_string(c.h);
        test::WriteFile(dir.File("pic.rgba"), Picture(c.w, c.h));
        std::string tool = std::string(c.compression) == "dxt3" ? "dxt5" : c.compression;
        test::RunResult made = test::RunCommand("convert -size " + std::to_string(c.w) + "x" + std::to_string(c.h) +
                                                    " -depth 8 rgba:pic.rgba -define dds:compression=" + tool +
                                                    " pic.dds",
                                                dir.Path());
        ASSERT_EQ(made.exitCode, 0) << made.err;
        std::string file = test::ReadFile(dir.File("pic.dds"));
        ASSERT_GT(file.size(), 128u) << label;
        ASSERT_EQ(uint8_t(file[28]), c.levels) << label;
        if (std::string(c.compression) == "dxt3") {
            // Colour halves of the DXT5 blocks with explicit alpha of its own: rows of 4-bit values.
            file.replace(84, 4, "DXT3");
            for (size_t b = 128; b + 16 <= file.size(); b += 16)
                for (int i = 0; i < 8; i++) file[b + size_t(i)] = char((b / 16 * 7 + size_t(i) * 29) & 255);
        }

        if (c.blockSize) KeepEndColours(file, c.blockSize, std::string(c.compression) == "dxt5");

        std::string err;
        DTexture* tex = Upload(file, &err);
        EXPECT_FALSE(rtest::HasText(err, "OpenGL error")) << err;
        EXPECT_FALSE(rtest::HasText(err, "compression failed")) << err;
        tex->Select();
        size_t at = 128;
        for (int l = 0; l < c.levels; l++) {
            int w = c.w >> l ? c.w >> l : 1, h = c.h >> l ? c.h >> l : 1;
            int bytes = LevelBytes(w, h, c.blockSize);
            // The level alone in a file of its own, for the tool to decode.
            std::string single = file.substr(0, 128) + file.substr(at, size_t(bytes));
            at += size_t(bytes);
            single.replace(12, 8, Le32(uint32_t(h)) + Le32(uint32_t(w)));
            single.replace(28, 4, Le32(1));
            test::WriteFile(dir.File("level.dds"), single);
            test::RunResult decoded = test::RunCommand("convert level.dds -depth 8 rgba:-", dir.Path());
            ASSERT_EQ(decoded.exitCode, 0) << decoded.err;
            ASSERT_EQ(decoded.out.size(), size_t(w * h * 4)) << label << " level " << l;

            GLint gw = 0, gh = 0;
            glGetTexLevelParameteriv(GL_TEXTURE_2D, l, GL_TEXTURE_WIDTH, &gw);
            glGetTexLevelParameteriv(GL_TEXTURE_2D, l, GL_TEXTURE_HEIGHT, &gh);
            ASSERT_EQ(gw * 1000 + gh, w * 1000 + h) << label << " level " << l;
            std::string got(size_t(w * h * 4), '\0');
            glPixelStorei(GL_PACK_ALIGNMENT, 1);
            glGetTexImage(GL_TEXTURE_2D, l, GL_RGBA, GL_UNSIGNED_BYTE, &got[0]);

            // Compressed levels come out upside down by whole blocks: texture row y holds the
            // file's row rows4 - 1 - y of the level padded to whole blocks, where that is a real
            // row. 32-bit levels keep the file's order.
            int rows4 = c.blockSize ? (h + 3) / 4 * 4 : h;
            int compared = 0;
            for (int y = 0; y < h; y++) {
                int src = c.blockSize ? rows4 - 1 - y : y;
                if (src >= h) continue;
                size_t row = size_t(w * 4);
                ASSERT_EQ(got.substr(size_t(y) * row, row), decoded.out.substr(size_t(src) * row, row))
                    << label << " level " << l << " texture row " << y;
                compared++;
            }
            if (h % 4 == 0) {
                EXPECT_EQ(compared, h);
            }
        }
        EXPECT_EQ(at, file.size()) << label;
        Release(tex);
    }
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST_F(DDDSGLTest, SixteenLevelsAtMostAndMissingLevelsReported)
{
    std::string err;
    // Twenty 1x1 levels: sixteen are read and uploaded, as far as the driver takes them.
    DTexture* twenty = Upload(Header(1, 1, 20, 4, "DXT1", 0) + Bytes(20 * 8, 8), &err);
    EXPECT_EQ(twenty->GetMaxLevel(), 15);
    // Levels beyond the driver's largest texture are refused, each with its warning.
    GLint maxSize = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &maxSize);
    int driverLevels = 1;
    while ((1 << driverLevels) <= maxSize) driverLevels++;
    for (int l = 0; l < 17; l++)
        EXPECT_EQ(rtest::HasText(err, "DDDS:CreateTexture(); mipmap level " + std::to_string(l) +
                                          " indicated compression failed"),
                  l >= driverLevels && l < 16)
            << l << ": " << err;
    GLint value = 0;
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, &value);
    EXPECT_EQ(value, 15);
    Release(twenty);

    // Nothing was allocated for a file cut in its third level: every level is reported missing.
    DTexture* cut = Upload(Header(8, 8, 4, 4, "DXT1", 0) + Bytes(44, 8), &err, false);
    for (int l = 0; l < 4; l++)
        EXPECT_TRUE(rtest::HasText(err, "DDDS:CreateTexture(); missing pixels for mipmap level " + std::to_string(l)));
    EXPECT_FALSE(rtest::HasText(err, "mipmap level 4"));
    EXPECT_EQ(cut->GetWidth() * 10 + cut->GetHeight(), 88);
    Release(cut);

    // No levels: the texture has only the empty level 0 that every texture gets.
    DTexture* none = Upload(Header(4, 4, 0, 4, "DXT5", 0), &err);
    EXPECT_EQ(err, "");
    none->Select();
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_COMPRESSED, &value);
    EXPECT_EQ(value, 0);
    Release(none);

    // Without linear colour the driver gets the sRGB kind.
    d3GetDGlobal()->linearColor = 0;
    DTexture* srgb = Upload(Header(4, 8, 2, 4, "DXT5", 0) + Bytes(48, 8), &err);
    for (int l = 0; l < 2; l++) {
        glGetTexLevelParameteriv(GL_TEXTURE_2D, l, GL_TEXTURE_INTERNAL_FORMAT, &value);
        EXPECT_EQ(value, GL_COMPRESSED_SRGB_ALPHA_S3TC_DXT5_EXT) << l;
    }
    Release(srgb);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

} // namespace
} // namespace tarvik
