// QBitMap's writers: round trips through QImage, the files as an independent image tool reads
// them, the limits and failures in their own words, and the qimgconv command end to end.
#include "images/qbitmap.h"

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "images/qimage.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <functional>
#include <string>
#include <vector>

using namespace tarvik;
using namespace tarvik::test;

#ifndef QIMGCONV_PATH
#define QIMGCONV_PATH ""
#endif

namespace {

using Bytes = std::vector<uint8_t>;

// An odd-sized, asymmetric picture: every channel of every pixel differs, so that a flip, a swap
// of channels or a wrong stride shows at once. Memory row 0 is the bottom of the picture.
void Paint(QBitMap& bm)
{
    for (int y = 0; y < bm.GetHeight(); y++)
        for (int x = 0; x < bm.GetWidth(); x++) {
            uint8_t* p = bm.GetAddress(x, y);
            p[0] = uint8_t(x * 31 + 3), p[1] = uint8_t(y * 41 + 7), p[2] = uint8_t(x * 7 + y * 13 + 100);
            p[3] = uint8_t(255 - x - y * 5);
        }
}

Bytes Memory(const QBitMap& bm) { return Bytes(bm.GetMemory(), bm.GetMemory() + bm.GetMemSize()); }

// Rows from the top of the picture, as an image tool prints them; 'each' may change every pixel.
Bytes TopDown(const QBitMap& bm, const std::function<Bytes(const uint8_t*)>& each = nullptr)
{
    Bytes out;
    for (int y = bm.GetHeight() - 1; y >= 0; y--)
        for (int x = 0; x < bm.GetWidth(); x++) {
            const uint8_t* p = bm.GetAddress(x, y);
            const Bytes px = each ? each(p) : Bytes(p, p + 4);
            out.insert(out.end(), px.begin(), px.end());
        }
    return out;
}

::testing::AssertionResult Has(const std::string& text, const std::string& part)
{
    if (text.find(part) != std::string::npos) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "\"" << part << "\" not found in:\n" << text;
}

// Each case works in a fresh directory with a fresh log and standard error captured.
class WriteTest : public ::testing::Test {
protected:
    void SetUp() override { qmsgReset(), testing::internal::CaptureStderr(); }
    void TearDown() override { testing::internal::GetCapturedStderr(); }
    std::string Log() const { return LogWithoutTimes(ReadFile(dir.File("QLOG.txt"))); }
    // Pixels of 'file' as the image tool decodes them, rows from the top, four bytes a pixel.
    Bytes ToolPixels(const std::string& file, const std::string& options = "")
    {
        RunResult r = RunCommand("convert " + file + " " + options + " -depth 8 rgba:-", dir.Path());
        EXPECT_EQ(r.exitCode, 0) << r.err;
        return Bytes(r.out.begin(), r.out.end());
    }
    RunResult Convert(const std::string& args, const std::string& limits = "")
    {
        EXPECT_STRNE(QIMGCONV_PATH, "") << "the converter's path is not known to this program";
        return RunCommand(limits + ShellQuote(QIMGCONV_PATH) + " " + args, dir.Path());
    }

    TempDir dir{true};
};
using ConverterTest = WriteTest;

} // namespace

TEST_F(WriteTest, RgbComesBackByteForByteAndItsPlanesAreWhatTheToolReads)
{
    QBitMap bm(32, 7, 5, 0);
    Paint(bm);
    const Bytes before = Memory(bm);
    const std::string name = std::string(90, 'n') + ".rgb";
    ASSERT_TRUE(bm.Write(name.c_str(), QBM_FORMAT_RGB, 0));
    EXPECT_EQ(Memory(QImage(name.c_str())), before) << "and writing left the bitmap alone";
    std::string f = ReadFile(dir.File(name));
    ASSERT_EQ(f.size(), 512u + 4 * 7 * 5);
    EXPECT_EQ(f.substr(0, 24), std::string("\xDA\1\1\0\3\0\7\0\5\0\4\0\0\0\0\0\xFF\0\0\0\0\0\0\0", 24));
    EXPECT_EQ(f.substr(24, 488), std::string(79, 'n') + std::string(409, '\0')) << "the name cut, then zeros";
    // The tool insists on the format's usual big-endian numbers; swapped, the planes behind the
    // header must give the same picture.
    for (int at = 0; at < 12; at += 2) std::swap(f[at], f[at + 1]);
    for (int at = 12; at < 24; at += 4) std::swap(f[at], f[at + 3]), std::swap(f[at + 1], f[at + 2]);
    WriteFile(dir.File("swapped.rgb"), f);
    EXPECT_EQ(ToolPixels("sgi:swapped.rgb"), TopDown(bm));
}

TEST_F(WriteTest, TargaComesBackByteForByteAndGreyKeepsOnlyRed)
{
    QBitMap bm(32, 7, 5, 0);
    Paint(bm);
    const Bytes before = Memory(bm);
    ASSERT_TRUE(bm.Write("pic.tga", QBM_FORMAT_TGA, 0));
    EXPECT_EQ(Memory(QImage("pic.tga")), before) << "and writing left the bitmap alone";
    std::string f = ReadFile(dir.File("pic.tga"));
    ASSERT_EQ(f.size(), 18u + 7 * 5 * 4);
    EXPECT_EQ(f.substr(0, 18), std::string("\0\0\2\0\0\0\0\0\0\0\0\0\7\0\5\0\x20\x08", 18));
    EXPECT_EQ(ToolPixels("pic.tga", "-auto-orient"), TopDown(bm));

    ASSERT_TRUE(bm.Write("grey.tga", QBM_FORMAT_TGA_GREY, 0));
    EXPECT_TRUE(Has(testing::internal::GetCapturedStderr(), "WriteTGA(grey.tga, format 2)\n"));
    testing::internal::CaptureStderr();
    f = ReadFile(dir.File("grey.tga"));
    EXPECT_EQ(f.substr(0, 18), std::string("\0\0\3\0\0\0\0\0\0\0\0\0\7\0\5\0\x08\x08", 18));
    EXPECT_EQ(f.size(), 18u + 7 * 5);
    QImage back("grey.tga");
    EXPECT_EQ(TopDown(back), TopDown(bm, [](const uint8_t* q) { return Bytes(4, q[0]); }));
    EXPECT_EQ(ToolPixels("grey.tga", "-auto-orient -alpha off"),
              TopDown(bm, [](const uint8_t* q) { return Bytes({q[0], q[0], q[0], 255}); }));
}

TEST_F(WriteTest, JpegKeepsThePictureWithinItsQualityTopRowFirst)
{
    // Left half red, bottom half green, in flat quarters. The codec's halved colour planes blur a
    // few pixels at the edges between them, so only pixels away from those are held to the
    // quality's tolerance. Alpha is lost.
    QBitMap bm(32, 33, 32, 0);
    for (int i = 0; i < 33 * 32; i++) {
        uint8_t* p = bm.GetAddress(i % 33, i / 33);
        p[0] = i % 33 < 16 ? 200 : 30, p[1] = i / 33 < 16 ? 220 : 40, p[2] = 90, p[3] = 1;
    }
    ASSERT_TRUE(bm.Write("pic.jpg", QBM_FORMAT_JPG, 90));
    QImage back("pic.jpg");
    ASSERT_TRUE(back.IsOK() && back.GetWidth() == 33);
    const Bytes tool = ToolPixels("pic.jpg"), ours = TopDown(back), want = TopDown(bm);
    ASSERT_TRUE(tool.size() == want.size() && ours.size() == want.size());
    for (size_t i = 0; i < want.size(); i++) {
        const int x = int(i / 4 % 33), y = int(i / 4 / 33);
        if (std::abs(x - 16) <= 4 || std::abs(y - 16) <= 4) continue;
        EXPECT_NEAR(tool[i], i % 4 == 3 ? 255 : want[i], 8) << "tool: " << x << "," << y << " byte " << i % 4;
        EXPECT_NEAR(ours[i], i % 4 == 3 ? 255 : want[i], 8) << "QImage: " << x << "," << y << " byte " << i % 4;
    }
    // The codec is fed the picture top row first, exactly wid*hgt*3 bytes of it.
    Bytes flipped(33 * 32 * 3 + 1, 0xEE), rgb = TopDown(bm, [](const uint8_t* q) { return Bytes(q, q + 3); });
    QBitMap::GetFlippedRGB(bm.GetMemory(), flipped.data(), 33, 32);
    rgb.push_back(0xEE);
    EXPECT_EQ(flipped, rgb);
    ASSERT_TRUE(bm.WriteJPG("low.jpg", 10));
    ASSERT_TRUE(bm.WriteJPG("high.jpg", 100));
    EXPECT_LT(ReadFile(dir.File("low.jpg")).size(), ReadFile(dir.File("high.jpg")).size());
}

TEST_F(WriteTest, RefusalsAndFailedWritesSayWhyAndMakeNoFile)
{
    QBitMap bm(32, 300, 300, 0), wider(32, 8193, 1, 0), tall(32, 1, 32768, 0), empty(32, 0, 0, 0);
    QBitMap tooTall(32, 1, 65501, 0); // beyond the JPEG codec's largest side
    Paint(bm);
    const std::string missing = dir.File("no/such/dir/");
    const struct {
        std::function<bool()> write;
        std::string words; // none: the writer says nothing; sizes refused are errors, the rest warnings
    } cases[] = {
        {[&] { return bm.Write("x.tga", 7, 0); }, "QBitMap:Write(); unsupported format 7 to write 'x.tga' ["},
        {[&] { return bm.Write("y.tga", -1, 0); }, "QBitMap:Write(); unsupported format -1 to write 'y.tga' ["},
        {[&] { return wider.WriteRGB("w.rgb"); }, "QBitMap:Write; image too wide ["},
        {[&] { return wider.Write("w.tga", QBM_FORMAT_TGA_GREY, 0); }, "QBitMap:WriteTGA(); image too wide ["},
        {[&] { return tall.WriteTGA("t.tga", QBM_FORMAT_TGA); }, "QBitMap:WriteTGA(); image too high ["},
        {[&] { return empty.Write("e.rgb", QBM_FORMAT_RGB, 0); }, "QBitMap:Write(); no 32-bit pixels to write 'e.rgb'"},
        {[&] { return empty.Write("e.tga", QBM_FORMAT_TGA, 0); }, "QBitMap:Write(); no 32-bit pixels to write 'e.tga'"},
        {[&] { return empty.Write("e.jpg", QBM_FORMAT_JPG, 9); }, "QBitMap:Write(); no 32-bit pixels to write 'e.jpg'"},
        {[&] { return bm.WriteRGB((missing + "a.rgb").c_str()); }, ""},
        {[&] { return bm.WriteTGA((missing + "a.tga").c_str(), QBM_FORMAT_TGA); }, ""},
        {[&] { return bm.WriteJPG((missing + "a.jpg").c_str(), 80); },
         "QBitMap::WriteJPG(" + missing + "a.jpg); can't open file"},
        {[&] { return bm.WriteTGA("/dev/full", QBM_FORMAT_TGA); }, "QBitMap:WriteTGA(/dev/full); write failed ["},
        {[&] { return bm.WriteRGB("/dev/full"); }, "QBitMap:WriteRGB(/dev/full); write failed ["},
        {[&] { return bm.WriteJPG("/dev/full", 80); }, "QBitMap::WriteJPG(/dev/full); "}, // the codec's words
        {[&] { return tooTall.WriteJPG("tall.jpg", 80); }, "QBitMap::WriteJPG(tall.jpg); "},
        {[&] { return qSetAllocFailure(1), bm.WriteJPG("f.jpg", 80) || (qSetAllocFailure(0), false); },
         "QBitMap:WriteJPG(f.jpg); no memory for RGB image buffer"},
    };
    for (const auto& c : cases) {
        const size_t before = Log().size();
        EXPECT_FALSE(c.write()) << c.words;
        const std::string fresh = Log().substr(before);
        const bool size = c.words.find("image too") != std::string::npos;
        const bool silent = fresh.find("(WARN") == std::string::npos && fresh.find("(ERR") == std::string::npos;
        EXPECT_EQ(silent, c.words.empty()) << fresh;
        EXPECT_TRUE(Has(fresh, c.words.empty() ? "" : (size ? "(ERR  ): [-] " : "(WARN ): [-] ") + c.words));
    }
    for (const char* name : {"x.tga", "y.tga", "w.rgb", "w.tga", "t.tga", "e.rgb", "e.tga", "e.jpg"})
        EXPECT_FALSE(FileExists(dir.File(name))) << name;
    // Each writer and side has its own limit: these pass.
    QBitMap widest(32, 8192, 1, 0);
    Paint(widest);
    ASSERT_TRUE(widest.WriteRGB("widest.rgb") && widest.WriteTGA("widest.tga", QBM_FORMAT_TGA));
    EXPECT_EQ(Memory(QImage("widest.rgb")), Memory(widest));
    EXPECT_EQ(Memory(QImage("widest.tga")), Memory(widest));
    EXPECT_TRUE(wider.WriteJPG("x.jpg", 50));
    ASSERT_TRUE(tall.WriteRGB("t.rgb"));
    EXPECT_EQ(QImage("t.rgb").GetHeight(), 32768);
    EXPECT_TRUE(QBitMap(32, 3, 3, 0).WriteJPG("fine.jpg", 80)) << "the write after a codec error starts afresh";
}

TEST_F(ConverterTest, ConvertsBetweenEveryFormatAndReportsFailuresLeavingTheOldFile)
{
    QBitMap bm(32, 100, 99, 0);
    Paint(bm);
    ASSERT_TRUE(bm.WriteTGA("in.tga", QBM_FORMAT_TGA));
    for (const char* args : {"in.tga out.rgb", "out.rgb again.TGA", "in.tga grey.tga grey", "in.tga out.jpg 20",
                             "in.tga best.jpe 100"}) {
        RunResult r = Convert(args);
        ASSERT_EQ(r.exitCode, 0) << args << ": " << r.err;
    }
    EXPECT_EQ(Memory(QImage("out.rgb")), Memory(bm));
    EXPECT_EQ(ReadFile("again.TGA"), ReadFile("in.tga"));
    const std::string grey = ReadFile("grey.tga");
    EXPECT_TRUE(grey.size() == 18u + 9900 && grey[2] == 3) << "8-bit grey";
    EXPECT_LT(ReadFile("out.jpg").size(), ReadFile("best.jpe").size());

    WriteFile("pic.png", "whatever");
    for (const char* args : {"", "in.tga out.png", "in.tga out.tga 80", "in.tga out.jpg 0", "in.tga out.jpg 101",
                             "in.tga out.jpg grey", "in.tga out.rgb grey", "a b c d"}) {
        RunResult r = Convert(args);
        EXPECT_EQ(r.exitCode, 2) << args;
        EXPECT_TRUE(Has(r.err, "usage: qimgconv <in") && std::count(r.err.begin(), r.err.end(), '\n') == 1) << args;
    }
    // A failed output leaves the file that stood there and nothing else; the input is no output.
    for (const char* old : {"old.tga", "old.rgb", "old.jpg"}) WriteFile(old, "the old picture");
    const std::string input = ReadFile("in.tga");
    const struct { bool small; const char *args, *words; } failures[] = { // small: 1 or 2 KB at most
        {false, "absent.tga out.tga", "QImage ctor: can't load 'absent.tga'"},
        {false, "pic.png out.tga", "qimgconv: 'pic.png' holds no pixels"},
        {false, "in.tga no/dir/out.tga", "qimgconv: can't write 'no/dir/out.tga'"},
        {false, "in.tga ./in.tga grey", "qimgconv: './in.tga' is the input 'in.tga'; it is not written over"},
        {true, "in.tga old.tga", "QBitMap:WriteTGA(old.tga); write failed"},
        {true, "in.tga old.rgb", "QBitMap:WriteRGB(old.rgb); write failed"},
        {true, "in.tga old.jpg 100", "QBitMap::WriteJPG(old.jpg); "},
    };
    for (const auto& f : failures) {
        RunResult r = Convert(f.args, f.small ? "ulimit -f 2 && " : "");
        EXPECT_TRUE(r.exitCode == 1 && Has(r.err, f.words)) << f.args << ": " << r.err;
    }
    for (const char* old : {"old.tga", "old.rgb", "old.jpg"}) EXPECT_EQ(ReadFile(old), "the old picture");
    EXPECT_EQ(ReadFile("in.tga"), input);
    const auto files = std::filesystem::directory_iterator(dir.Path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 10) << "no temporary file is left, and no QLOG.txt";
}
