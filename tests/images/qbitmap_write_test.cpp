// QBitMap's writers: round trips through QImage, the files as an independent image tool reads
// them, the size limits and failures in their own words, and the qimgconv command end to end.
#include "images/qbitmap.h"

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "images/qimage.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using namespace tarvik;
using namespace tarvik::test;

namespace {

// An odd-sized, asymmetric picture: every channel of every pixel differs, so that a flip, a swap
// of channels or a wrong stride shows at once. Memory row 0 is the bottom of the picture.
void Paint(QBitMap& bm)
{
    for (int y = 0; y < bm.GetHeight(); y++)
        for (int x = 0; x < bm.GetWidth(); x++) {
            uint8_t* p = bm.GetAddress(x, y);
            p[0] = uint8_t(x * 31 + 3);
            p[1] = uint8_t(y * 41 + 7);
            p[2] = uint8_t(x * 7 + y * 13 + 100);
            p[3] = uint8_t(255 - x - y * 5);
        }
}

std::vector<uint8_t> Memory(const QBitMap& bm)
{
    if (!bm.GetMemory()) return {};
    return std::vector<uint8_t>(bm.GetMemory(), bm.GetMemory() + bm.GetMemSize());
}

// Rows from the top of the picture, as an image tool prints them.
std::vector<uint8_t> TopDown(const QBitMap& bm)
{
    std::vector<uint8_t> out;
    for (int y = bm.GetHeight() - 1; y >= 0; y--) {
        const uint8_t* row = bm.GetAddress(0, y);
        out.insert(out.end(), row, row + size_t(bm.GetWidth()) * 4);
    }
    return out;
}

std::vector<uint8_t> Bytes(const std::string& s) { return std::vector<uint8_t>(s.begin(), s.end()); }

// Each case works in a fresh directory with a fresh log; Log() gives the warnings it left.
class WriteTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        qmsgReset();
        testing::internal::CaptureStderr();
    }
    void TearDown() override { testing::internal::GetCapturedStderr(); }
    std::string Log() const { return LogWithoutTimes(ReadFile(dir.File("QLOG.txt"))); }
    bool Logged(const std::string& text) const { return Log().find("] " + text + " [") != std::string::npos; }
    // Pixels of 'file' as the image tool decodes them, rows from the top, four bytes a pixel.
    std::vector<uint8_t> ToolPixels(const std::string& file, const std::string& options = "")
    {
        RunResult r = RunCommand("convert " + ShellQuote(file) + " " + options + " -depth 8 rgba:-", dir.Path());
        EXPECT_EQ(r.exitCode, 0) << r.err;
        return Bytes(r.out);
    }

    TempDir dir{true};
};

} // namespace

// ---- round trips ----

TEST_F(WriteTest, RgbComesBackByteForByte)
{
    QBitMap bm(32, 7, 5, 0);
    Paint(bm);
    const std::vector<uint8_t> before = Memory(bm);
    ASSERT_TRUE(bm.Write("pic.rgb", QBM_FORMAT_RGB, 0));
    EXPECT_EQ(Memory(bm), before) << "writing leaves the bitmap alone";
    QImage back("pic.rgb");
    ASSERT_TRUE(back.IsOK());
    ASSERT_EQ(back.GetWidth(), 7);
    ASSERT_EQ(back.GetHeight(), 5);
    EXPECT_EQ(Memory(back), before);
}

TEST_F(WriteTest, RgbHeaderIsLittleEndianAndPlanesStartAt512)
{
    QBitMap bm(32, 3, 2, 0);
    Paint(bm);
    ASSERT_TRUE(bm.WriteRGB("pic.rgb"));
    std::string f = ReadFile(dir.File("pic.rgb"));
    ASSERT_EQ(f.size(), 512u + 4 * 3 * 2);
    EXPECT_EQ(f.substr(0, 12), std::string("\xDA\x01\x01\x00\x03\x00\x03\x00\x02\x00\x04\x00", 12));
    EXPECT_EQ(f.substr(12, 12), std::string("\0\0\0\0\xFF\0\0\0\0\0\0\0", 12));
    EXPECT_EQ(std::string(f.c_str() + 24), "pic.rgb");
    EXPECT_EQ(f.substr(104, 408), std::string(408, '\0'));
    // Plane 0 (red), memory row 0 first; plane 3 (alpha) last.
    EXPECT_EQ(uint8_t(f[512]), bm.GetAddress(0, 0)[0]);
    EXPECT_EQ(uint8_t(f[512 + 3]), bm.GetAddress(0, 1)[0]);
    EXPECT_EQ(uint8_t(f[512 + 18 + 5]), bm.GetAddress(2, 1)[3]);
}

TEST_F(WriteTest, RgbNameIsCutAtSeventyNineCharacters)
{
    QBitMap bm(32, 1, 1, 0);
    std::string name(90, 'n');
    name += ".rgb";
    ASSERT_TRUE(bm.WriteRGB(name.c_str()));
    std::string f = ReadFile(dir.File(name));
    EXPECT_EQ(f.substr(24, 80), std::string(79, 'n') + '\0');
}

TEST_F(WriteTest, TargaComesBackByteForByteAlphaIncluded)
{
    QBitMap bm(32, 7, 5, 0);
    Paint(bm);
    const std::vector<uint8_t> before = Memory(bm);
    ASSERT_TRUE(bm.Write("pic.tga", QBM_FORMAT_TGA, 0));
    EXPECT_EQ(Memory(bm), before);
    std::string f = ReadFile(dir.File("pic.tga"));
    ASSERT_EQ(f.size(), 18u + 7 * 5 * 4);
    EXPECT_EQ(f.substr(0, 18), std::string("\0\0\2\0\0\0\0\0\0\0\0\0\7\0\5\0\x20\x08", 18));
    // Bottom row first, each pixel blue, green, red, alpha.
    const uint8_t* p = bm.GetAddress(0, 0);
    EXPECT_EQ(f.substr(18, 4), std::string({char(p[2]), char(p[1]), char(p[0]), char(p[3])}));
    QImage back("pic.tga");
    ASSERT_TRUE(back.IsOK());
    EXPECT_EQ(Memory(back), before);
}

TEST_F(WriteTest, GreyTargaKeepsOnlyRed)
{
    QBitMap bm(32, 5, 3, 0);
    Paint(bm);
    ASSERT_TRUE(bm.Write("grey.tga", QBM_FORMAT_TGA_GREY, 0));
    std::string f = ReadFile(dir.File("grey.tga"));
    ASSERT_EQ(f.size(), 18u + 5 * 3);
    EXPECT_EQ(f[2], 3);
    EXPECT_EQ(f[16], 8);
    QImage back("grey.tga");
    ASSERT_TRUE(back.IsOK());
    for (int y = 0; y < 3; y++)
        for (int x = 0; x < 5; x++) {
            uint8_t red = bm.GetAddress(x, y)[0];
            const uint8_t* q = back.GetAddress(x, y);
            EXPECT_TRUE(q[0] == red && q[1] == red && q[2] == red && q[3] == red) << x << "," << y;
        }
}

TEST_F(WriteTest, WriteTgaLogsItsCall)
{
    QBitMap bm(32, 1, 1, 0);
    std::string err;
    testing::internal::GetCapturedStderr();
    testing::internal::CaptureStderr();
    bm.WriteTGA("one.tga", QBM_FORMAT_TGA_GREY);
    err = testing::internal::GetCapturedStderr();
    testing::internal::CaptureStderr();
    EXPECT_NE(err.find("WriteTGA(one.tga, format 2)\n"), std::string::npos) << err;
}

TEST_F(WriteTest, FlippedRgbStartsWithTheTopOfThePicture)
{
    QBitMap bm(32, 2, 3, 0);
    Paint(bm);
    uint8_t out[2 * 3 * 3 + 1];
    out[18] = 0xEE;
    QBitMap::GetFlippedRGB(bm.GetMemory(), out, 2, 3);
    const uint8_t* top = bm.GetAddress(0, 2);
    const uint8_t* bottomRight = bm.GetAddress(1, 0);
    EXPECT_EQ(std::vector<uint8_t>(out, out + 3), std::vector<uint8_t>(top, top + 3));
    EXPECT_EQ(std::vector<uint8_t>(out + 15, out + 18), std::vector<uint8_t>(bottomRight, bottomRight + 3));
    EXPECT_EQ(out[18], 0xEE) << "exactly wid*hgt*3 bytes";
}

TEST_F(WriteTest, JpegFirstLineIsTheTopOfThePicture)
{
    // Top half red, bottom half blue, in blocks the codec keeps nearly exact.
    QBitMap bm(32, 33, 32, 0);
    for (int y = 0; y < 32; y++)
        for (int x = 0; x < 33; x++) {
            uint8_t* p = bm.GetAddress(x, y);
            p[0] = y >= 16 ? 230 : 10, p[1] = 20, p[2] = y >= 16 ? 10 : 240, p[3] = 7;
        }
    ASSERT_TRUE(bm.Write("pic.jpg", QBM_FORMAT_JPG, 95));
    std::string f = ReadFile(dir.File("pic.jpg"));
    ASSERT_GT(f.size(), 2u);
    EXPECT_EQ(f.substr(0, 2), "\xFF\xD8");
    QImage back("pic.jpg");
    ASSERT_TRUE(back.IsOK());
    ASSERT_EQ(back.GetWidth(), 33);
    for (int y : {0, 8, 23, 31})
        for (int x : {0, 16, 32}) {
            const uint8_t* a = bm.GetAddress(x, y);
            const uint8_t* b = back.GetAddress(x, y);
            for (int c = 0; c < 3; c++) EXPECT_NEAR(a[c], b[c], 8) << x << "," << y << " channel " << c;
            EXPECT_EQ(b[3], 255) << "alpha is lost";
        }
}

TEST_F(WriteTest, JpegQualityChangesTheFile)
{
    QBitMap bm(32, 40, 30, 0);
    Paint(bm);
    ASSERT_TRUE(bm.WriteJPG("low.jpg", 10));
    ASSERT_TRUE(bm.WriteJPG("high.jpg", 100));
    EXPECT_LT(ReadFile(dir.File("low.jpg")).size(), ReadFile(dir.File("high.jpg")).size());
}

// ---- what the independent image tool reads ----

TEST_F(WriteTest, ToolReadsTargasWithTheSamePixels)
{
    QBitMap bm(32, 7, 5, 0);
    Paint(bm);
    ASSERT_TRUE(bm.Write("pic.tga", QBM_FORMAT_TGA, 0));
    EXPECT_EQ(ToolPixels("pic.tga", "-auto-orient"), TopDown(bm));

    ASSERT_TRUE(bm.Write("grey.tga", QBM_FORMAT_TGA_GREY, 0));
    std::vector<uint8_t> grey = ToolPixels("grey.tga", "-auto-orient -alpha off");
    ASSERT_EQ(grey.size(), 7u * 5 * 4);
    std::vector<uint8_t> top = TopDown(bm);
    for (size_t i = 0; i < grey.size(); i += 4) {
        EXPECT_EQ(grey[i], top[i]) << i / 4;
        EXPECT_EQ(grey[i + 1], top[i]) << i / 4;
        EXPECT_EQ(grey[i + 2], top[i]) << i / 4;
    }
}

TEST_F(WriteTest, ToolReadsRgbPlanesOnceTheHeaderIsInItsUsualOrder)
{
    // The header is little-endian for the tree's own reader; the tool insists on the format's
    // usual big-endian numbers. Swapped, the planes behind it must give the same picture.
    QBitMap bm(32, 7, 5, 0);
    Paint(bm);
    ASSERT_TRUE(bm.WriteRGB("pic.rgb"));
    std::string f = ReadFile(dir.File("pic.rgb"));
    for (int at = 0; at < 12; at += 2) std::swap(f[at], f[at + 1]);
    for (int at = 12; at < 24; at += 4) std::swap(f[at], f[at + 3]), std::swap(f[at + 1], f[at + 2]);
    WriteFile(dir.File("swapped.rgb"), f);
    EXPECT_EQ(ToolPixels("sgi:swapped.rgb", ""), TopDown(bm));
}

TEST_F(WriteTest, ToolReadsJpegWithinItsQuality)
{
    // Four flat quarters; the codec's halved colour planes blur a few pixels at the edges
    // between them, so only pixels away from those edges are held to the quality's tolerance.
    QBitMap bm(32, 32, 32, 0);
    for (int y = 0; y < 32; y++)
        for (int x = 0; x < 32; x++) {
            uint8_t* p = bm.GetAddress(x, y);
            p[0] = x < 16 ? 200 : 30, p[1] = y < 16 ? 220 : 40, p[2] = 90, p[3] = 1;
        }
    ASSERT_TRUE(bm.WriteJPG("pic.jpg", 90));
    std::vector<uint8_t> got = ToolPixels("pic.jpg");
    std::vector<uint8_t> want = TopDown(bm);
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); i++) {
        int x = int(i / 4 % 32), y = int(i / 4 / 32);
        if (i % 4 == 3) {
            EXPECT_EQ(got[i], 255);
        } else if (std::abs(x - 16) > 4 && std::abs(y - 16) > 4) {
            EXPECT_NEAR(got[i], want[i], 10) << x << "," << y;
        }
    }
}

// ---- limits and failures ----

TEST_F(WriteTest, UnsupportedFormatWarnsAndMakesNoFile)
{
    QBitMap bm(32, 2, 2, 0);
    EXPECT_FALSE(bm.Write("x.tga", 7, 0));
    EXPECT_FALSE(bm.Write("y.tga", -1, 0));
    EXPECT_FALSE(FileExists(dir.File("x.tga")));
    EXPECT_TRUE(Logged("QBitMap:Write(); unsupported format 7 to write 'x.tga'")) << Log();
    EXPECT_TRUE(Logged("QBitMap:Write(); unsupported format -1 to write 'y.tga'")) << Log();
}

TEST_F(WriteTest, WidthOf8192IsTheWidestRgbAndTarga)
{
    QBitMap wide(32, 8192, 1, 0);
    Paint(wide);
    ASSERT_TRUE(wide.WriteRGB("w.rgb"));
    ASSERT_TRUE(wide.WriteTGA("w.tga", QBM_FORMAT_TGA));
    QImage rgb("w.rgb"), tga("w.tga");
    EXPECT_EQ(Memory(rgb), Memory(wide));
    EXPECT_EQ(Memory(tga), Memory(wide));

    QBitMap wider(32, 8193, 1, 0);
    EXPECT_FALSE(wider.WriteRGB("x.rgb"));
    EXPECT_FALSE(wider.Write("x.tga", QBM_FORMAT_TGA_GREY, 0));
    EXPECT_FALSE(FileExists(dir.File("x.rgb")));
    EXPECT_FALSE(FileExists(dir.File("x.tga")));
    std::string log = Log();
    EXPECT_NE(log.find("(ERR  ): [-] QBitMap:Write; image too wide ["), std::string::npos) << log;
    EXPECT_NE(log.find("(ERR  ): [-] QBitMap:WriteTGA(); image too wide ["), std::string::npos) << log;
    EXPECT_TRUE(wider.WriteJPG("x.jpg", 50)) << "the JPEG writer has no such limit";
}

TEST_F(WriteTest, HeightsTheReadersCannotTakeAreRefused)
{
    QBitMap tall(32, 1, 32768, 0);
    EXPECT_FALSE(tall.WriteTGA("t.tga", QBM_FORMAT_TGA));
    EXPECT_TRUE(Logged("QBitMap:WriteTGA(); image too high")) << Log();
    ASSERT_TRUE(tall.WriteRGB("t.rgb"));
    QImage back("t.rgb");
    EXPECT_EQ(back.GetHeight(), 32768);
}

TEST_F(WriteTest, FilesThatCannotBeOpened)
{
    QBitMap bm(32, 2, 2, 0);
    const std::string missing = dir.File("no/such/dir/");
    EXPECT_FALSE(bm.WriteRGB((missing + "a.rgb").c_str()));
    EXPECT_FALSE(bm.WriteTGA((missing + "a.tga").c_str(), QBM_FORMAT_TGA));
    EXPECT_EQ(Log().find("(WARN"), std::string::npos) << "no message from the RGB and Targa writers";
    EXPECT_FALSE(bm.WriteJPG((missing + "a.jpg").c_str(), 80));
    EXPECT_TRUE(Logged("QBitMap::WriteJPG(" + missing + "a.jpg); can't open file")) << Log();
}

TEST_F(WriteTest, FullDiskIsAFailedWrite)
{
    QBitMap bm(32, 300, 300, 0);
    Paint(bm);
    EXPECT_FALSE(bm.WriteTGA("/dev/full", QBM_FORMAT_TGA));
    EXPECT_FALSE(bm.WriteRGB("/dev/full"));
    EXPECT_FALSE(bm.WriteJPG("/dev/full", 80));
    EXPECT_TRUE(Logged("QBitMap:WriteTGA(/dev/full); write failed")) << Log();
    EXPECT_TRUE(Logged("QBitMap:WriteRGB(/dev/full); write failed")) << Log();
    EXPECT_NE(Log().find("QBitMap::WriteJPG(/dev/full); "), std::string::npos) << Log();
}

TEST_F(WriteTest, LibraryErrorIsAReportNotAnExit)
{
    QBitMap tall(32, 1, 65501, 0); // beyond the codec's largest side
    EXPECT_FALSE(tall.WriteJPG("tall.jpg", 80));
    EXPECT_NE(Log().find("[-] QBitMap::WriteJPG(tall.jpg); "), std::string::npos) << Log();
    QBitMap fine(32, 3, 3, 0);
    EXPECT_TRUE(fine.WriteJPG("fine.jpg", 80)) << "the next write starts afresh";
}

TEST_F(WriteTest, BitmapWithoutPixelsIsNotWritten)
{
    QBitMap empty(32, 0, 0, 0);
    EXPECT_FALSE(empty.Write("e.rgb", QBM_FORMAT_RGB, 0));
    EXPECT_FALSE(empty.Write("e.tga", QBM_FORMAT_TGA, 0));
    EXPECT_FALSE(empty.Write("e.jpg", QBM_FORMAT_JPG, 80));
    EXPECT_TRUE(Logged("QBitMap:Write(); no 32-bit pixels to write 'e.jpg'")) << Log();
}

TEST_F(WriteTest, FailedAllocationsEndCleanly)
{
    QBitMap bm(32, 9, 7, 0);
    Paint(bm);
    bool done = false;
    for (int nth = 1; nth < 40 && !done; nth++) {
        const int blocks = qGetAllocCount();
        qSetAllocFailure(nth);
        bool ok = bm.WriteJPG("f.jpg", 80);
        qSetAllocFailure(0);
        ASSERT_LE(qGetAllocCount() - blocks, 1) << nth;
        ASSERT_GE(qGetAllocCount() - blocks, 0) << nth;
        if (!ok) {
            EXPECT_TRUE(Logged("QBitMap:WriteJPG(f.jpg); no memory for RGB image buffer")) << nth << Log();
        }
        done = ok;
    }
    EXPECT_TRUE(done);
}

// ---- the converter ----

#ifndef QIMGCONV_PATH
#define QIMGCONV_PATH ""
#endif

class ConverterTest : public WriteTest {
protected:
    RunResult Convert(const std::string& args)
    {
        EXPECT_STRNE(QIMGCONV_PATH, "") << "the converter's path is not known to this program";
        return RunCommand(ShellQuote(QIMGCONV_PATH) + " " + args, dir.Path());
    }
};

TEST_F(ConverterTest, ConvertsBetweenEveryFormat)
{
    QBitMap bm(32, 7, 5, 0);
    Paint(bm);
    ASSERT_TRUE(bm.WriteTGA("in.tga", QBM_FORMAT_TGA));
    RunResult rgb = Convert("in.tga out.rgb");
    ASSERT_EQ(rgb.exitCode, 0) << rgb.err;
    RunResult tga = Convert("out.rgb again.TGA");
    ASSERT_EQ(tga.exitCode, 0) << tga.err;
    EXPECT_EQ(ReadFile(dir.File("again.TGA")), ReadFile(dir.File("in.tga")));
    QImage back("out.rgb");
    EXPECT_EQ(Memory(back), Memory(bm));

    RunResult grey = Convert("in.tga grey.tga grey");
    ASSERT_EQ(grey.exitCode, 0) << grey.err;
    EXPECT_EQ(ReadFile(dir.File("grey.tga")).size(), 18u + 35);

    RunResult jpg = Convert("in.tga out.jpg 20");
    ASSERT_EQ(jpg.exitCode, 0) << jpg.err;
    RunResult best = Convert("in.tga best.jpe 100");
    ASSERT_EQ(best.exitCode, 0) << best.err;
    EXPECT_LT(ReadFile(dir.File("out.jpg")).size(), ReadFile(dir.File("best.jpe")).size());
    EXPECT_FALSE(FileExists(dir.File("QLOG.txt"))) << "the command leaves no log file";
}

TEST_F(ConverterTest, ConvertsALayeredFileIntoItsComposition)
{
    // One opaque layer, 2x1, red 200 and 100: the composition takes each colour one short.
    std::string psd = "8BPS";
    psd += std::string("\0\1\0\0\0\0\0\0\0\3\0\0\0\1\0\0\0\2\0\x08\0\3", 22);
    psd += std::string(8, '\0'); // colour mode data, resources
    std::string record = std::string("\0\0\0\0\0\0\0\0\0\0\0\1\0\0\0\2\0\1\0\0\0\0\0\4", 24) + "8BIMnorm" +
                         std::string("\xFF\0\0\0\0\0\0\x0C\0\0\0\0\0\0\0\0\0\0\0\0", 20);
    std::string info = std::string("\0\1", 2) + record + std::string("\0\0\xC8\x64", 4);
    psd += std::string("\0\0\0", 3) + char(info.size() + 8) + std::string("\0\0\0", 3) + char(info.size()) + info;
    psd += std::string(4, '\0');
    WriteFile(dir.File("layers.psd"), psd);
    RunResult r = Convert("layers.psd out.tga");
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.err.find("Layers=1\n"), std::string::npos) << r.err;
    QImage back("out.tga");
    ASSERT_EQ(back.GetWidth(), 2);
    EXPECT_EQ(std::vector<uint8_t>(back.GetAddress(0, 0), back.GetAddress(0, 0) + 8),
              std::vector<uint8_t>({199, 0, 0, 0, 99, 0, 0, 0}));
}

TEST_F(ConverterTest, FailuresAreReportedWithNonZeroStatus)
{
    RunResult none = Convert("");
    EXPECT_NE(none.exitCode, 0);
    EXPECT_NE(none.err.find("usage: qimgconv <in"), std::string::npos) << none.err;
    EXPECT_EQ(std::count(none.err.begin(), none.err.end(), '\n'), 1) << "one line";

    QBitMap bm(32, 3, 3, 0);
    ASSERT_TRUE(bm.WriteTGA("in.tga", QBM_FORMAT_TGA));
    for (const char* args : {"in.tga out.png", "in.tga out.tga 80", "in.tga out.jpg 0", "in.tga out.jpg 101",
                             "in.tga out.jpg grey", "in.tga out.rgb grey", "a b c d"}) {
        RunResult bad = Convert(args);
        EXPECT_NE(bad.exitCode, 0) << args;
        EXPECT_NE(bad.err.find("usage: qimgconv"), std::string::npos) << args;
    }

    RunResult missing = Convert("absent.tga out.tga");
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.err.find("QImage ctor: can't load 'absent.tga'"), std::string::npos) << missing.err;

    WriteFile(dir.File("pic.png"), "whatever");
    RunResult empty = Convert("pic.png out.tga");
    EXPECT_EQ(empty.exitCode, 1);
    EXPECT_NE(empty.err.find("qimgconv: 'pic.png' holds no pixels"), std::string::npos) << empty.err;

    RunResult unwritable = Convert("in.tga no/dir/out.tga");
    EXPECT_EQ(unwritable.exitCode, 1);
    EXPECT_NE(unwritable.err.find("qimgconv: can't write 'no/dir/out.tga'"), std::string::npos) << unwritable.err;
    EXPECT_FALSE(FileExists(dir.File("QLOG.txt")));
}
