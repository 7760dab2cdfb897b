// QImage: the choice of reader, each reader's variants, and what a bad file gives.
#include "images/qimage.h"

#include "images/qarchive.h"

#include "foundation/qapphooks.h"
#include "foundation/qfilesys.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include <jpeglib.h>

using namespace tarvik;
using namespace tarvik::test;

namespace {

// A picture as files hold it: rows from the top, four bytes a pixel. Odd sizes and distinct
// channel values make flips, swaps and stride errors show at once.
struct Picture {
    int w, h;
    std::vector<uint8_t> rgba;
    uint8_t* At(int x, int y) { return &rgba[(size_t(y) * w + x) * 4]; }
};

Picture MakePicture(int w, int h, bool alpha = true)
{
    Picture p{w, h, std::vector<uint8_t>(size_t(w) * h * 4)};
    for (int y = 0; y < h; y++)
        for (int x = 0; x < w; x++) {
            uint8_t* q = p.At(x, y);
            q[0] = uint8_t(x * 29 + 1), q[1] = uint8_t(y * 37 + 2), q[2] = uint8_t(x * 5 + y * 11 + 3);
            q[3] = alpha ? uint8_t(250 - x - 3 * y) : 255;
        }
    return p;
}

// Green and blue set to 'gb', alpha to 'a'; -1 copies the red.
Picture Grey(Picture p, int gb, int a)
{
    for (size_t i = 0; i < p.rgba.size(); i += 4) {
        p.rgba[i + 1] = p.rgba[i + 2] = uint8_t(gb < 0 ? p.rgba[i] : gb);
        p.rgba[i + 3] = uint8_t(a < 0 ? p.rgba[i] : a);
    }
    return p;
}

// What the bitmap holds, rows from the top again.
std::vector<uint8_t> TopDown(const QBitMap& bm)
{
    std::vector<uint8_t> out;
    for (int y = bm.GetMemory() ? bm.GetHeight() - 1 : -1; y >= 0; y--)
        out.insert(out.end(), bm.GetAddress(0, y), bm.GetAddress(bm.GetWidth(), y));
    return out;
}

// 'n' bytes of 'v', little-endian unless 'big'.
void Put(std::string& s, int64_t v, int n, bool big = false)
{
    for (int i = 0; i < n; i++) s += char(v >> 8 * (big ? n - 1 - i : i));
}

std::string TgaHeader(int type, int w, int h, int depth, bool top, int idLength = 0, int colorMapType = 0)
{
    std::string s = std::string{char(idLength), char(colorMapType), char(type)} + std::string(9, '\0');
    Put(s, w, 2), Put(s, h, 2);
    return s + char(depth) + char(top ? 32 : 0) + std::string(size_t(idLength), 'i');
}

// 'n' pixels from (x, y) as Targa and BMP store them: grey, or blue, green, red and (32 bits) alpha.
std::string FilePixels(Picture& p, int x, int y, int n, int depth)
{
    std::string s;
    for (const uint8_t* q = p.At(x, y); n-- > 0; q += 4)
        for (int c : {2, 1, 0, 3})
            if (depth == 8 ? c == 0 : c < 3 || depth == 32) s += char(q[c]);
    return s;
}

// The file rows in the order the origin bit asks for; with 'rle' each row as runs and literals.
std::string Tga(Picture& p, int depth, bool top, bool rle)
{
    std::string s = TgaHeader(rle ? 10 : depth == 8 ? 3 : 2, p.w, p.h, depth, top);
    for (int i = 0; i < p.h; i++) {
        int y = top ? i : p.h - 1 - i, run = 1;
        for (int x = 0; x < p.w; x += run, run = 1) {
            while (rle && x + run < p.w && run < 128 && std::memcmp(p.At(x, y), p.At(x + run, y), 4) == 0) run++;
            if (!rle)
                s += FilePixels(p, x, y, 1, depth);
            else if (run > 1)
                s += char(0x80 | (run - 1)) + FilePixels(p, x, y, 1, depth);
            else
                run = std::min(3, p.w - x), s += char(run - 1) + FilePixels(p, x, y, run, depth);
        }
    }
    return s;
}

std::string RgbHeader(bool big, bool rle, int w, int h, int z)
{
    std::string s = big ? "\x01\xDA" : "\xDA\x01";
    for (int v : {(rle ? 1 : 0) << 8 | 1, 3, w, h, z}) Put(s, v, 2, big);
    return s + std::string(512 - s.size(), '\0');
}

// Planes bottom row first; with 'rle' a row is one literal packet, but the first row of each plane
// starts with a run of one.
std::string Rgb(Picture& p, int planes, bool big, bool rle)
{
    std::string s = RgbHeader(big, rle, p.w, p.h, planes), rows, table;
    for (int z = 0; z < planes; z++)
        for (int y = p.h - 1; y >= 0; y--) {
            Put(table, 512 + 8 * planes * p.h + int64_t(rows.size()), 4, big);
            int x = rle && y == p.h - 1;
            if (x) rows += std::string{'\1', char(p.At(0, y)[z])};
            if (rle) rows += char(0x80 | (p.w - x));
            for (; x < p.w; x++) rows += char(p.At(x, y)[z]);
            if (rle) rows += '\0';
        }
    return rle ? s + table + std::string(table.size(), '\0') + rows : s + rows;
}

std::string Bmp(Picture& p, int bits, bool topDown, int compression = 0)
{
    int stride = (p.w * bits + 31) / 32 * 4;
    std::string s = "BM";
    for (int v : {54 + stride * p.h, 0, 54, 40, p.w, topDown ? -p.h : p.h}) Put(s, v, 4);
    Put(s, 1, 2), Put(s, bits, 2), Put(s, compression, 4);
    s += std::string(20, '\0');
    for (int i = 0; i < p.h; i++) {
        std::string row = FilePixels(p, 0, topDown ? i : p.h - 1 - i, p.w, bits);
        row.resize(size_t(stride), '\x55');
        s += row;
    }
    return s;
}

// Palette entry i: red 7i+1, green 5i, blue 3i+shift, alpha 200+i.
std::string Cmap(int sizeWord, int shift)
{
    std::string s(8, 'c');
    Put(s, sizeWord, 4);
    for (int i = 0; i < 16; i++) s += std::string{char(i * 3 + shift), char(i * 5), char(i * 7 + 1), char(200 + i)};
    return s;
}

// nibbles[y][x] from the top. The second record's palette has shift 0, the first's 100.
std::string Mip(const std::vector<std::vector<int>>& nibbles, int firstType, int imageType, int rowBytes,
                int cmapSize = 64)
{
    int h = int(nibbles.size()), w = int(nibbles[0].size());
    std::string s = "PIM " + std::string(8, 't') + std::string(12, 'r') + char(firstType);
    Put(s, 999, 4), Put(s, 999, 4);
    s += std::string(11, 's') + (firstType == 0 || firstType == 1 ? Cmap(cmapSize, 100) : "");
    s += std::string(12, 'k') + std::string(12, 'r') + char(imageType);
    Put(s, w, 4), Put(s, h, 4), Put(s, rowBytes, 4);
    s += "sss" + (imageType == 2 ? Cmap(cmapSize, 0) : "") + std::string(12, 'k');
    for (auto& row : nibbles) {
        std::string bytes(size_t(rowBytes), '\0');
        for (int x = 0; x < w; x++) bytes[size_t(x / 2)] |= char(row[size_t(x)] << (x & 1 ? 0 : 4));
        s += bytes;
    }
    return s;
}

// A JPEG written by the library: left half (40, 100, 160, 220); right half 200 - 50k, 20 more on top.
std::string Jpeg(int w, int h, int components, J_COLOR_SPACE space, int quality = 95,
                 const jpeg_scan_info* script = nullptr, int scans = 0)
{
    jpeg_compress_struct c;
    jpeg_error_mgr err;
    unsigned char* out = nullptr;
    unsigned long size = 0;
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    jpeg_mem_dest(&c, &out, &size);
    c.image_width = JDIMENSION(w), c.image_height = JDIMENSION(h);
    c.input_components = components, c.in_color_space = space;
    jpeg_set_defaults(&c), jpeg_set_quality(&c, quality, TRUE);
    c.scan_info = script, c.num_scans = scans;
    jpeg_start_compress(&c, TRUE);
    std::vector<uint8_t> line(size_t(w) * components);
    for (int y = 0; y < h; y++) {
        for (int x = 0; x < w; x++)
            for (int k = 0; k < components; k++)
                line[size_t(x * components + k)] = uint8_t(x < w / 2 ? 40 + 60 * k : 200 - 50 * k + (y < h / 2) * 20);
        JSAMPROW row = line.data();
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c), jpeg_destroy_compress(&c);
    std::string s(reinterpret_cast<char*>(out), size);
    free(out);
    return s;
}

// A grey progressive JPEG of flat blocks, its AC scan 'scans' times over, a few bytes each, and no
// DC scan: the decoder warns, and walks every block again for each scan.
std::string ManyScans(int side, int scans)
{
    static const jpeg_scan_info script[2] = {{1, {0}, 0, 0, 0, 0}, {1, {0}, 1, 63, 0, 0}};
    const std::string s = Jpeg(side, side, 1, JCS_GRAYSCALE, 95, script, 2);
    const size_t acTable = s.find("\xFF\xC4", s.find("\xFF\xDA")), acScan = s.find("\xFF\xDA", acTable);
    std::string out = s.substr(0, s.find("\xFF\xC4")) + s.substr(acTable, acScan - acTable);
    for (int i = 0; i < scans; i++) out += s.substr(acScan, s.size() - 2 - acScan);
    return out + "\xFF\xD9";
}

// Writes 'bytes' under 'name' in a fresh directory (unless 'bytes' is null), loads it, and gives
// what the load left: the log, standard output and error, the picture. 'fast' installs an
// application with no file system of its own, which sends Targa to the fast road.
struct Load {
    std::string log, out, err;
    bool ok = false;
    int w = 0, h = 0;
    std::vector<uint8_t> pixels;
};

const QAppHooks appHooks = {};
Load LoadBytes(const std::string& name, const std::string* bytes, bool fast = false)
{
    TempDir dir(true);
    qmsgReset();
    if (bytes) WriteFile(dir.File(name), *bytes);
    Load r;
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    {
        qappHooks = fast ? &appHooks : nullptr;
        QImage im(name.c_str());
        r.ok = im.IsOK(), r.w = im.GetWidth(), r.h = im.GetHeight(), r.pixels = TopDown(im);
        if (bytes) { // the same bytes from memory take the same road to the same picture
            QImage copy(name.c_str(), reinterpret_cast<const uint8_t*>(bytes->data()), long(bytes->size()));
            EXPECT_TRUE(copy.IsOK() == r.ok && TopDown(copy) == r.pixels) << name;
        }
        qappHooks = nullptr;
    }
    r.out = testing::internal::GetCapturedStdout();
    r.err = testing::internal::GetCapturedStderr();
    r.log = LogWithoutTimes(ReadFile(dir.File("QLOG.txt")));
    return r;
}
Load LoadBytes(const std::string& name, const std::string& b, bool fast = false) { return LoadBytes(name, &b, fast); }

bool Logged(const Load& r, const std::string& text) { return r.log.find("[-] " + text + " [") != std::string::npos; }

testing::AssertionResult IsPicture(const Load& l, const Picture& p)
{
    if (l.ok && l.w == p.w && l.h == p.h && l.pixels == p.rgba) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "ok " << l.ok << ", " << l.w << "x" << l.h << ", other pixels\n" << l.log;
}
#define EXPECT_PICTURE(load, picture) EXPECT_TRUE(IsPicture(load, picture))

} // namespace

TEST(QImageTypeTest, FirstSubstringOfTheUpperCasedNameWinsAndMissingFilesFailWithTheWarning)
{
    const std::pair<std::string, int> cases[] = {
        {"a.tga.jpg", QIMAGE_TGA}, {"shot.jpe", QIMAGE_JPG}, {"a.tga.bak", QIMAGE_TGA}, {"x.Rgb", QIMAGE_RGB},
        {"x.bmp.psd", QIMAGE_PSD}, {"x.mip", QIMAGE_MIP}, {"x.png.bmp", QIMAGE_PNG}, {"x.gif", QIMAGE_UNKNOWN},
        // Only the first 255 characters are looked at.
        {std::string(251, 'a') + ".tga", QIMAGE_TGA}, {std::string(252, 'a') + ".tga", QIMAGE_UNKNOWN},
    };
    for (const auto& c : cases) EXPECT_EQ(QImage::GetImageFileType(c.first.c_str()), c.second) << c.first;
    EXPECT_EQ(QImage::GetImageFileType(nullptr), QIMAGE_UNKNOWN);

    EXPECT_TRUE(LoadBytes("x.png", "not read at all").ok); // no reader: a picture of nothing
    for (const char* name : {"x.gif", "no.tga", "no.rgb", "no.bmp", "no.mip", "no.jpg"}) {
        Load r = name[0] == 'x' ? LoadBytes(name, "GIF89a") : LoadBytes(name, nullptr);
        EXPECT_FALSE(r.ok) << name;
        EXPECT_EQ(r.out, std::string(name) == "no.jpg" ? "Can't open no.jpg\n" : "") << name;
        EXPECT_TRUE(Logged(r, "QImage ctor: can't load '" + std::string(name) + "'")) << r.log;
        EXPECT_EQ(r.log.find("MIP image"), std::string::npos) << r.log; // no reader speaks of a missing file
    }
    // A folder of a picture's name reads as missing, never as a file too large for memory.
    TempDir dir(true);
    for (const char* name : {"d.bmp", "d.jpg", "d.psd", "d.tga"}) {
        ASSERT_TRUE(QMakeDirectory(name));
        testing::internal::CaptureStderr();
        QImage image(name);
        const std::string err = testing::internal::GetCapturedStderr();
        EXPECT_FALSE(image.IsOK()) << name;
        EXPECT_EQ(err.find("memory"), std::string::npos) << err;
    }
}

// Every refusal, with the words it logs. 'ok' loads keep a zero bitmap of the file's size.
TEST(QImageTest, RefusalsOfEveryReader)
{
    Picture p = MakePicture(3, 2, false);
    std::vector<std::vector<int>> nib = {{1, 2, 3}, {4, 5, 6}};
    std::string tooWide = TgaHeader(2, 16385, 1, 24, false) + std::string(16385 * 3, 'x');
    std::string colormap = TgaHeader(2, 1, 1, 24, false, 0, 1) + "xyz";
    std::string depth16 = TgaHeader(2, 2, 2, 16, false) + std::string(8, 'x');
    std::string rgbTable = Rgb(p, 3, true, true), bmp = Bmp(p, 24, false), bmpHuge = bmp, mip = Mip(nib, 0, 2, 2);
    rgbTable[512 + 4 * 4 + 1] = '\x7F'; // the start of plane 2's first row, far outside the file
    bmpHuge[18] = bmpHuge[19] = bmpHuge[22] = bmpHuge[23] = '\x7F', bmpHuge[30] = 2;
    std::string bmpWide = bmp.substr(0, 18) + std::string("\xF0\xFF\xFF\x7F\0\0\0\x60", 8) + bmp.substr(26);
    std::string jpeg = Jpeg(16, 16, 3, JCS_RGB), jpegWide = jpeg, jpegLying = jpeg;
    size_t sof = jpeg.find("\xFF\xC0");
    ASSERT_NE(sof, std::string::npos);
    jpegWide.replace(sof + 7, 2, "\x40\x01"); // 16385 columns
    jpegLying.replace(sof + 5, 4, std::string("\x40\x00\x40\x00", 4));
    struct Case { bool fast; std::string name, file, words; bool ok; };
    // clang-format off
    const Case cases[] = {
        {false, "s.tga", tooWide, "QImage:ReadTGA(); too wide", false},
        {false, "s.tga", colormap, "QImage:ReadTGA(); colormap is not supported", false},
        {false, "s.tga", depth16, "QImage:ReadTGA(); no image loader for type 2, pixDepth 16", true},
        {false, "s.tga", TgaHeader(2, 16384, 16384, 32, false) + "xx", "QImage:ReadTGA(s.tga); 16384x16384 is more than the file holds", false},
        {true, "f.tga", tooWide, "QImage:ReadTGA(f.tga); too wide (max width=16384)", false},
        {true, "f.tga", colormap, "QImage:ReadTGA(f.tga); colormap is not supported", false},
        {true, "f.tga", depth16, "QImage:ReadTGA(); no image loader for type 2, pixDepth 16", false},
        {true, "f.tga", "", "QImage:ReadTGA(); no memory to read 'f.tga'", false},
        {true, "f.tga", TgaHeader(2, 0, 3, 24, false), "QImage:ReadTGA(f.tga); 0x3 is more than the file holds", false},
        {true, "f.tga", TgaHeader(2, 3, -1, 24, false) + "abcdefghi", "QImage:ReadTGA(f.tga); 3x-1 is more than the file holds", false},
        {true, "f.tga", TgaHeader(10, 300, 300, 24, false, 200), "QImage:ReadTGA(f.tga); 300x300 is more than the file holds", false},
        {false, "w.rgb", RgbHeader(true, false, 16385, 1, 4) + std::string(16385 * 4, 'x'), "w.rgb width 16385 out of bounds", false},
        {false, "t.rgb", rgbTable, "QImage::ReadRGB(t.rgb); row 0 of plane 2 starts at 8323654, outside the data", false},
        {false, "l.rgb", RgbHeader(true, false, 16384, 65535, 4) + "tiny", "QImage::ReadRGB(l.rgb); 16384x65535x4 needs 1073725952 bytes, the file has 516", false},
        {false, "l.rgb", RgbHeader(true, true, 16384, 65535, 4) + "tiny", "QImage::ReadRGB(l.rgb); 16384x65535x4 needs 16776960 bytes, the file has 516", false},
        {false, "z.rgb", RgbHeader(true, false, 0, 5, 3), "QBitMap::Alloc() failed on 0x5, depth 32, flags 0", false},
        {false, "u.bmp", Bmp(p, 24, false, 1), "QImage:ReadBMP(u.bmp); unsupported #bits (24) or compression (1)", true},
        {false, "s.bmp", bmp.substr(0, bmp.size() - 4), "QImage:ReadBMP(s.bmp); 3x2 is more than the file holds", false},
        {false, "s.bmp", "BM", "QImage:ReadBMP(s.bmp); 0x0 is more than the file holds", false},
        {false, "h.bmp", bmpHuge, "QImage:ReadBMP(h.bmp); 32639x32639 is more than the file holds", false},
        {false, "h.bmp", bmpWide, "QImage:ReadBMP(h.bmp); 2147483632x1610612736 is more than the file holds", false},
        {false, "t.jpg", jpeg.substr(0, jpeg.size() / 2), "QImage:ReadJPG(t.jpg); Premature end of JPEG file", false},
        {false, "t.jpg", jpeg.substr(0, jpeg.size() - 20), "QImage:ReadJPG(t.jpg); Premature end of JPEG file", false},
        {false, "n.jpg", "\xFF\xD8\xFF\xD9", "QImage:ReadJPG(n.jpg); JPEG datastream contains no image", false},
        {false, "e.jpg", "", "QImage:ReadJPG(e.jpg); Empty input file", false},
        {false, "w.jpg", jpegWide, "QImage:ReadJPG(); (w.jpg) is 16385x16 large; supported only upto 16384x16384", false},
        {false, "w.jpg", jpegLying, "QImage:ReadJPG(w.jpg); 16384x16384 is more than the file holds", false},
        // 20 KB of scans: no room for the coefficients of 4096x4096 (a bit a block at least).
        {false, "m.jpg", ManyScans(4096, 600), "QImage:ReadJPG(m.jpg); 4096x4096 is more than the file holds", false},
        {false, "m.jpg", ManyScans(64, 101), "QImage:ReadJPG(m.jpg); more than 100 scans", false},
        {false, "x.mip", "PIX " + mip.substr(4), "MIP image doesn't have correct header", false},
        {false, "x.mip", Mip(nib, 0, 2, 2, 65), "MIP with CMAP size!=64; unexpected", false},
        {false, "x.mip", Mip(nib, 0, 3, 2), "MIP type 3 not yet supported", false},
        {false, "x.mip", Mip(nib, 5, 1, 2), "QImage:ReadMIP(x.mip); no CMAP chunk: no palette to apply", false},
        {false, "x.mip", Mip(nib, 0, 2, 1), "QImage:ReadMIP(x.mip); 3x2 with 1 bytes a row is more than the file holds", false},
        {false, "x.mip", mip.substr(0, mip.size() - 1), "QImage:ReadMIP(x.mip); 3x2 with 2 bytes a row is more than the file holds", false},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name + ": " + c.words);
        Load r = LoadBytes(c.name, c.file, c.fast);
        EXPECT_EQ(r.ok, c.ok);
        EXPECT_TRUE(Logged(r, c.words)) << r.log;
        if (c.ok) EXPECT_TRUE(r.w > 0 && r.pixels == std::vector<uint8_t>(size_t(r.w) * r.h * 4, 0));
        else EXPECT_TRUE(Logged(r, "QImage ctor: can't load '" + c.name + "'")) << r.log;
    }
}

TEST(QImageTgaTest, EveryKindAndOriginGivesThePictureAndPacketsStayInTheirRow)
{
    Picture colour = MakePicture(7, 5), opaque = MakePicture(7, 5, false);
    for (bool top : {false, true})
        for (bool rle : {false, true}) {
            SCOPED_TRACE(std::string(top ? "top" : "bottom") + (rle ? " rle" : ""));
            EXPECT_PICTURE(LoadBytes("a.tga", Tga(colour, 32, top, rle)), colour);
            EXPECT_PICTURE(LoadBytes("a.tga", Tga(opaque, 24, top, rle)), opaque);
            EXPECT_PICTURE(LoadBytes("a.TGA", Tga(colour, 32, top, rle), true), colour);
            EXPECT_PICTURE(LoadBytes("a.TGA", Tga(opaque, 24, top, rle), true), opaque);
        }
    Picture grey = Grey(MakePicture(3, 2), -1, -1); // grey goes to all four bytes, alpha included
    EXPECT_PICTURE(LoadBytes("g.tga", Tga(grey, 8, false, false)), grey);
    Picture wide = MakePicture(16384, 1, false);
    EXPECT_PICTURE(LoadBytes("w.tga", Tga(wide, 24, false, false)), wide);

    // 3x2, one packet of five copies covers row 0 and is cut there; row 1 starts with the next packet.
    std::string s = TgaHeader(10, 3, 2, 24, false, 4) + "\x84\x01\x02\x03" + "\x02\x10\x20\x30\x40\x50\x60\x70\x80\x90";
    const std::vector<uint8_t> want = {0x30, 0x20, 0x10, 255, 0x60, 0x50, 0x40, 255, 0x90, 0x80, 0x70, 255,
                                       3, 2, 1, 255, 3, 2, 1, 255, 3, 2, 1, 255};
    EXPECT_EQ(LoadBytes("p.tga", s).pixels, want);
    // Data that ends inside a packet: the rest stays black, the load stands.
    Load cut = LoadBytes("p.tga", s.substr(0, s.size() - 3));
    EXPECT_TRUE(cut.ok && cut.pixels[5] == 0x50 && cut.pixels[8] == 0) << cut.log;
}

TEST(QImageTgaTest, TheFastRoadTakesATargaOutOfAnArchive)
{
    TempDir dir(true);
    Picture p = MakePicture(6, 4);
    std::string tga = Tga(p, 32, true, true);
    QArchiveWriter writer;
    ASSERT_TRUE(QMakeDirectory("data") && writer.Create("data/pack.qar") &&
                writer.AddMember("Car.TGA", tga.data(), int(tga.size())) && writer.Finish());

    static QVirtualFileSystem* vfs;
    QVirtualFileSystem files;
    QArchive archive("data/pack.qar");
    ASSERT_TRUE(archive.IsOpen() && files.AddArchive(&archive));
    vfs = &files;
    QAppHooks hooks = {};
    hooks.GetFileSystem = [] { return vfs; };
    qappHooks = &hooks;
    testing::internal::CaptureStderr();
    QImage fromArchive("data/car.tga"); // not on disk: the archive of that directory has it
    QImage elsewhere("other/car.tga");
    testing::internal::GetCapturedStderr();
    qappHooks = nullptr;
    EXPECT_TRUE(fromArchive.IsOK() && TopDown(fromArchive) == p.rgba);
    EXPECT_FALSE(elsewhere.IsOK());
}

TEST(QImageRgbTest, VerbatimAndRunLengthInBothByteOrdersAndRunsCutAtTheRowAndTheData)
{
    Picture colour = MakePicture(5, 3), opaque = MakePicture(5, 3, false), grey = Grey(MakePicture(4, 2), 255, 255);
    for (bool big : {true, false})
        for (bool rle : {false, true}) {
            SCOPED_TRACE(std::string(big ? "big" : "little") + (rle ? " rle" : ""));
            EXPECT_PICTURE(LoadBytes("a.rgb", Rgb(colour, 4, big, rle)), colour);
            EXPECT_PICTURE(LoadBytes("a.rgb", Rgb(opaque, 3, big, rle)), opaque); // no alpha plane: 255
            EXPECT_PICTURE(LoadBytes("g.rgb", Rgb(grey, 1, big, rle)), grey);     // one plane: red only
        }
    Picture wide = MakePicture(16384, 1);
    EXPECT_PICTURE(LoadBytes("w.rgb", Rgb(wide, 4, true, false)), wide);

    // Row 0: a run of 100 in a row of 3, then nothing; row 1 starts at the last byte of the file.
    std::string s = RgbHeader(true, true, 3, 2, 1);
    for (int v : {512 + 16, 512 + 16 + 4, 0, 0}) Put(s, v, 4, true);
    Load r = LoadBytes("c.rgb", s + std::string("\x64\x07\x00\x00\x85", 5));
    ASSERT_TRUE(r.ok) << r.log;
    // Top row: row 1, whose literal has no bytes; bottom row: the run, cut at three pixels.
    EXPECT_EQ(std::vector<int>({r.pixels[0], r.pixels[12], r.pixels[20]}), std::vector<int>({0, 7, 7}));
}

TEST(QImageBmpTest, PaddedRowsTopDownAndGrey)
{
    Picture p = MakePicture(5, 3, false), q = MakePicture(4, 2, false), grey = Grey(MakePicture(3, 3, false), -1, 255);
    EXPECT_PICTURE(LoadBytes("a.bmp", Bmp(p, 24, false)), p);
    EXPECT_PICTURE(LoadBytes("a.bmp", Bmp(p, 24, true)), p);
    EXPECT_PICTURE(LoadBytes("a.bmp", Bmp(q, 24, false)), q);
    EXPECT_PICTURE(LoadBytes("g.bmp", Bmp(grey, 8, false)), grey);
    std::string noPad = Bmp(p, 24, false);
    EXPECT_PICTURE(LoadBytes("s.bmp", noPad.substr(0, noPad.size() - 1)), p); // the last row may lack its padding
}

TEST(QImageJpgTest, ComponentsGiveOpaquePixels)
{
    Load colour = LoadBytes("c.jpg", Jpeg(19, 13, 3, JCS_RGB));
    ASSERT_TRUE(colour.ok && colour.w == 19) << colour.log;
    // The top row comes first from the file.
    const int at[] = {0, 2, 18 * 4 + 1, (12 * 19 + 18) * 4 + 1}, want[] = {40, 160, 170, 150};
    for (int i = 0; i < 4; i++) EXPECT_NEAR(colour.pixels[size_t(at[i])], want[i], 3) << at[i];
    for (size_t i = 3; i < colour.pixels.size(); i += 4) ASSERT_EQ(colour.pixels[i], 255);

    Load grey = LoadBytes("g.jpeg", Jpeg(9, 9, 1, JCS_GRAYSCALE));
    ASSERT_TRUE(grey.ok) << grey.log;
    EXPECT_NEAR(grey.pixels[0], 40, 2);
    EXPECT_TRUE(grey.pixels[0] == grey.pixels[1] && grey.pixels[3] == 255);

    // Four components, wider than 12288 pixels: the line buffer must hold them.
    Load cmyk = LoadBytes("k.jpg", Jpeg(12300, 2, 4, JCS_CMYK, 50));
    EXPECT_TRUE(cmyk.ok && cmyk.w == 12300 && cmyk.pixels.back() == 255) << cmyk.log;
}

// 2000 scans of 4096x4096 in 66 KB, seconds of decoding: reported well within 2 s of processor time.
TEST(QImageJpgTest, ScansBeyondWhatTheFileHoldsEndTheLoadEarly)
{
    TempDir dir;
    WriteFile(dir.File("p.jpg"), ManyScans(4096, 2000));
    RunResult r = RunCommand("ulimit -t 2 && " + ShellQuote(QIMGCONV_PATH) + " p.jpg p.tga", dir.Path());
    EXPECT_EQ(r.exitCode, 1) << r.err;
    EXPECT_NE(r.err.find(" scans of 4096x4096 are more than the file holds"), std::string::npos) << r.err;
}

TEST(QImageMipTest, NibblesPickPaletteEntriesTopRowFirst)
{
    std::vector<std::vector<int>> nib = {{1, 2, 3}, {15, 0, 7}};
    // The second record's palette replaces the first's; an odd width drops the last nibble, and
    // rowBytes larger than needed does not set the step.
    Picture want{3, 2, {}};
    for (auto& row : nib)
        for (int i : row)
            want.rgba.insert(want.rgba.end(), {uint8_t(i * 7 + 1), uint8_t(i * 5), uint8_t(i * 3), uint8_t(200 + i)});
    Load r = LoadBytes("a.mip", Mip(nib, 0, 2, 2));
    EXPECT_PICTURE(r, want);
    EXPECT_NE(r.err.find("QImage:ReadMip(a.mip)\n"), std::string::npos) << r.err;

    Load first = LoadBytes("b.mip", Mip(nib, 1, 0, 2)); // the first record's palette only
    EXPECT_TRUE(first.ok && first.pixels[2] == 3 + 100) << first.log;
}

TEST(QImageTest, EachFailedAllocationIsAReportedFailureWithNothingLeaked)
{
    Picture p = MakePicture(5, 3);
    const std::pair<const char*, std::string> files[] = {
        {"a.tga", Tga(p, 32, true, true)}, {"a.rgb", Rgb(p, 4, true, true)}, {"a.bmp", Bmp(p, 24, true)},
        {"a.jpg", Jpeg(8, 8, 3, JCS_RGB)}, {"a.mip", Mip({{1, 2, 3}}, 0, 2, 2)},
    };
    for (const auto& f : files) {
        // Every allocation of the load in turn, and one past them all. A failed allocation still
        // counts in the tally, so a run may end one above where it began, never more.
        for (int nth = 1; nth <= 12; nth++) {
            int blocks = qGetAllocCount();
            testing::internal::CaptureStderr();
            qSetAllocFailure(nth);
            bool ok = QImage(f.first, reinterpret_cast<const uint8_t*>(f.second.data()), long(f.second.size())).IsOK();
            qSetAllocFailure(0);
            std::string err = testing::internal::GetCapturedStderr();
            EXPECT_TRUE(qGetAllocCount() - blocks == 0 || qGetAllocCount() - blocks == 1) << f.first << " " << nth;
            EXPECT_TRUE(ok || err.find("QImage ctor: can't load") != std::string::npos) << f.first << " " << nth;
            EXPECT_TRUE(ok || nth < 12) << f.first;
        }
    }
}
