// QImage: the choice of reader, each reader's variants, and what a bad file gives.
#include "images/qimage.h"

#include "images/qarchive.h"

#include "foundation/qapphooks.h"
#include "foundation/qfilesys.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <cstdio>
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
            q[0] = uint8_t(x * 29 + 1);
            q[1] = uint8_t(y * 37 + 2);
            q[2] = uint8_t(x * 5 + y * 11 + 3);
            q[3] = alpha ? uint8_t(250 - x - 3 * y) : 255;
        }
    return p;
}

// What the bitmap holds, rows from the top again.
std::vector<uint8_t> TopDown(const QBitMap& bm)
{
    std::vector<uint8_t> out;
    if (!bm.GetMemory()) return out;
    for (int y = bm.GetHeight() - 1; y >= 0; y--) {
        const uint8_t* row = bm.GetAddress(0, y);
        out.insert(out.end(), row, row + size_t(bm.GetWidth()) * 4);
    }
    return out;
}

void Put16LE(std::string& s, int v) { s += char(v & 0xFF); s += char(v >> 8 & 0xFF); }
void Put32LE(std::string& s, int64_t v) { Put16LE(s, int(v & 0xFFFF)); Put16LE(s, int(v >> 16 & 0xFFFF)); }
void Put16BE(std::string& s, int v) { s += char(v >> 8 & 0xFF); s += char(v & 0xFF); }
void Put32BE(std::string& s, uint32_t v) { Put16BE(s, int(v >> 16)); Put16BE(s, int(v & 0xFFFF)); }

// ---- Targa ----

std::string TgaHeader(int type, int w, int h, int depth, bool top, int idLength = 0, int colorMapType = 0)
{
    std::string s;
    s += char(idLength);
    s += char(colorMapType);
    s += char(type);
    s += std::string(5, '\0');
    Put16LE(s, 0);
    Put16LE(s, 0);
    Put16LE(s, w);
    Put16LE(s, h);
    s += char(depth);
    s += char(top ? 32 : 0);
    s += std::string(size_t(idLength), 'i');
    return s;
}

std::string TgaPixel(const uint8_t* q, int depth)
{
    if (depth == 8) return std::string(1, char(q[0]));
    std::string s{char(q[2]), char(q[1]), char(q[0])};
    if (depth == 32) s += char(q[3]);
    return s;
}

// The file rows in the order the origin bit asks for; with 'rle' each row as runs and literals.
std::string Tga(Picture& p, int depth, bool top, bool rle)
{
    std::string s = TgaHeader(rle ? 10 : depth == 8 ? 3 : 2, p.w, p.h, depth, top);
    for (int i = 0; i < p.h; i++) {
        int y = top ? i : p.h - 1 - i;
        for (int x = 0; x < p.w;) {
            if (!rle) {
                s += TgaPixel(p.At(x++, y), depth);
                continue;
            }
            int run = 1;
            while (x + run < p.w && run < 128 && std::memcmp(p.At(x, y), p.At(x + run, y), 4) == 0) run++;
            if (run > 1) {
                s += char(0x80 | (run - 1));
                s += TgaPixel(p.At(x, y), depth);
                x += run;
            } else {
                int n = std::min(3, p.w - x);
                s += char(n - 1);
                for (int k = 0; k < n; k++) s += TgaPixel(p.At(x + k, y), depth);
                x += n;
            }
        }
    }
    return s;
}

// ---- SGI RGB ----

std::string RgbHeader(bool bigEndian, bool rle, int w, int h, int z)
{
    std::string s;
    auto put16 = [&](int v) { bigEndian ? Put16BE(s, v) : Put16LE(s, v); };
    if (bigEndian) s += "\x01\xDA"; else s += "\xDA\x01";
    put16((rle ? 1 : 0) << 8 | 1);
    put16(3);
    put16(w);
    put16(h);
    put16(z);
    s += std::string(512 - s.size(), '\0');
    return s;
}

std::string Rgb(Picture& p, int planes, bool bigEndian, bool rle)
{
    std::string s = RgbHeader(bigEndian, rle, p.w, p.h, planes);
    if (!rle) {
        for (int z = 0; z < planes; z++)
            for (int y = p.h - 1; y >= 0; y--)
                for (int x = 0; x < p.w; x++) s += char(p.At(x, y)[z]);
        return s;
    }
    // Rows as one literal packet each, but the first, which is a run and a literal.
    std::string rows;
    std::vector<uint32_t> starts;
    const uint32_t dataStart = uint32_t(512 + 8 * planes * p.h);
    for (int z = 0; z < planes; z++)
        for (int y = p.h - 1; y >= 0; y--) {
            starts.push_back(dataStart + uint32_t(rows.size()));
            int x = 0;
            if (y == p.h - 1) {
                rows += char(1);
                rows += char(p.At(0, y)[z]);
                x = 1;
            }
            rows += char(0x80 | (p.w - x));
            for (; x < p.w; x++) rows += char(p.At(x, y)[z]);
            rows += char(0);
        }
    for (uint32_t v : starts) bigEndian ? Put32BE(s, v) : Put32LE(s, v);
    for (size_t i = 0; i < starts.size(); i++) bigEndian ? Put32BE(s, 0) : Put32LE(s, 0);
    return s + rows;
}

// ---- BMP ----

std::string Bmp(Picture& p, int bits, bool topDown, int compression = 0)
{
    int stride = (p.w * bits + 31) / 32 * 4;
    std::string s = "BM";
    Put32LE(s, 54 + stride * p.h);
    Put32LE(s, 0);
    Put32LE(s, 54);
    Put32LE(s, 40);
    Put32LE(s, p.w);
    Put32LE(s, topDown ? -p.h : p.h);
    Put16LE(s, 1);
    Put16LE(s, bits);
    Put32LE(s, compression);
    s += std::string(20, '\0');
    for (int i = 0; i < p.h; i++) {
        int y = topDown ? i : p.h - 1 - i;
        std::string row;
        for (int x = 0; x < p.w; x++) {
            const uint8_t* q = p.At(x, y);
            if (bits == 8) row += char(q[0]);
            else row += std::string{char(q[2]), char(q[1]), char(q[0])};
        }
        row.resize(size_t(stride), '\x55');
        s += row;
    }
    return s;
}

// ---- MIP ----

std::string Cmap(int sizeWord, int shift)
{
    std::string s(8, 'c');
    Put32LE(s, sizeWord);
    for (int i = 0; i < 16; i++) s += std::string{char(i * 3 + shift), char(i * 5), char(i * 7 + 1), char(200 + i)};
    return s;
}

// nibbles[y][x] from the top; the palette entry i is red 7i+1, green 5i, blue 3i+shift, alpha 200+i.
std::string Mip(const std::vector<std::vector<int>>& nibbles, int firstType, int imageType, int rowBytes,
                int cmapSize = 64)
{
    int h = int(nibbles.size()), w = int(nibbles[0].size());
    std::string s = "PIM " + std::string(8, 't');
    s += std::string(12, 'r') + char(firstType);
    Put32LE(s, 999);
    Put32LE(s, 999);
    s += std::string(11, 's');
    if (firstType == 0 || firstType == 1) s += Cmap(cmapSize, 100);
    s += std::string(12, 'k');
    s += std::string(12, 'r') + char(imageType);
    Put32LE(s, w);
    Put32LE(s, h);
    Put32LE(s, rowBytes);
    s += "sss";
    if (imageType == 2) s += Cmap(cmapSize, 0);
    s += std::string(12, 'k');
    for (auto& row : nibbles) {
        std::string bytes(size_t(rowBytes), '\0');
        for (int x = 0; x < w; x++) bytes[size_t(x / 2)] = char(bytes[size_t(x / 2)] | (x & 1 ? row[size_t(x)] : row[size_t(x)] << 4));
        s += bytes;
    }
    return s;
}

// ---- JPEG, written by the library ----

std::string Jpeg(int w, int h, int components, J_COLOR_SPACE space, int quality = 95)
{
    jpeg_compress_struct c;
    jpeg_error_mgr err;
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&c, &out, &size);
    c.image_width = JDIMENSION(w);
    c.image_height = JDIMENSION(h);
    c.input_components = components;
    c.in_color_space = space;
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, quality, TRUE);
    jpeg_start_compress(&c, TRUE);
    std::vector<uint8_t> line(size_t(w) * components);
    while (c.next_scanline < c.image_height) {
        int y = int(c.next_scanline);
        for (int x = 0; x < w; x++)
            for (int k = 0; k < components; k++) line[size_t(x * components + k)] = uint8_t(x < w / 2 ? 40 + 60 * k : 200 - 50 * k + (y < h / 2 ? 20 : 0));
        JSAMPROW row = line.data();
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    std::string s(reinterpret_cast<char*>(out), size);
    free(out);
    return s;
}

// Writes 'bytes' under 'name' in a fresh directory, loads it, and gives the log of the load.
struct Load {
    std::string log;
    std::string out; // standard output
    std::string err; // standard error, where info reports go
    bool ok = false;
    int w = 0, h = 0;
    std::vector<uint8_t> pixels;
};

Load LoadBytes(const std::string& name, const std::string& bytes)
{
    TempDir dir(true);
    qmsgReset();
    WriteFile(dir.File(name), bytes);
    Load r;
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    {
        QImage im(name.c_str());
        r.ok = im.IsOK();
        r.w = im.GetWidth();
        r.h = im.GetHeight();
        r.pixels = TopDown(im);
    }
    r.out = testing::internal::GetCapturedStdout();
    r.err = testing::internal::GetCapturedStderr();
    r.log = LogWithoutTimes(ReadFile(dir.File("QLOG.txt")));
    return r;
}

bool Logged(const Load& r, const std::string& text) { return r.log.find("[-] " + text + " [") != std::string::npos; }

#define EXPECT_PICTURE(load, picture)                                                                           \
    do {                                                                                                        \
        EXPECT_TRUE((load).ok) << (load).log;                                                                   \
        EXPECT_EQ((load).w, (picture).w);                                                                       \
        EXPECT_EQ((load).h, (picture).h);                                                                       \
        EXPECT_TRUE((load).pixels == (picture).rgba) << (load).log;                                              \
    } while (0)

// Installs an application with no file system of its own, which sends Targa to the fast road.
const QAppHooks appHooks = {};
struct WithApp {
    WithApp() { qappHooks = &appHooks; }
    ~WithApp() { qappHooks = nullptr; }
};

} // namespace

TEST(QImageTypeTest, FirstSubstringOfTheUpperCasedNameWins)
{
    EXPECT_EQ(QImage::GetImageFileType("a.tga.jpg"), QIMAGE_TGA);
    EXPECT_EQ(QImage::GetImageFileType("shot.jpe"), QIMAGE_JPG);
    EXPECT_EQ(QImage::GetImageFileType("a.tga.bak"), QIMAGE_TGA);
    EXPECT_EQ(QImage::GetImageFileType("x.Rgb"), QIMAGE_RGB);
    EXPECT_EQ(QImage::GetImageFileType("x.bmp.psd"), QIMAGE_PSD);
    EXPECT_EQ(QImage::GetImageFileType("x.mip"), QIMAGE_MIP);
    EXPECT_EQ(QImage::GetImageFileType("x.png.bmp"), QIMAGE_PNG);
    EXPECT_EQ(QImage::GetImageFileType("x.gif"), QIMAGE_UNKNOWN);
    EXPECT_EQ(QImage::GetImageFileType(nullptr), QIMAGE_UNKNOWN);
    // Only the first 255 characters are looked at.
    EXPECT_EQ(QImage::GetImageFileType((std::string(251, 'a') + ".tga").c_str()), QIMAGE_TGA);
    EXPECT_EQ(QImage::GetImageFileType((std::string(252, 'a') + ".tga").c_str()), QIMAGE_UNKNOWN);
}

TEST(QImageTypeTest, UnknownAndMissingFilesFailWithTheConstructorsWarning)
{
    Load unknown = LoadBytes("x.gif", "GIF89a");
    EXPECT_FALSE(unknown.ok);
    EXPECT_TRUE(Logged(unknown, "QImage ctor: can't load 'x.gif'")) << unknown.log;

    Load png = LoadBytes("x.png", "not read at all");
    EXPECT_TRUE(png.ok);
    EXPECT_TRUE(png.pixels.empty());

    TempDir dir(true);
    for (const char* name : {"no.tga", "no.rgb", "no.bmp", "no.mip", "no.jpg"}) {
        qmsgReset();
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        bool ok = QImage(name).IsOK();
        std::string out = testing::internal::GetCapturedStdout();
        testing::internal::GetCapturedStderr();
        EXPECT_FALSE(ok) << name;
        EXPECT_EQ(out, std::string(name) == "no.jpg" ? "Can't open no.jpg\n" : "") << name;
        std::string log = LogWithoutTimes(ReadFile("QLOG.txt"));
        EXPECT_NE(log.find("[-] QImage ctor: can't load '" + std::string(name) + "' ["), std::string::npos) << log;
        EXPECT_EQ(log.find("MIP image"), std::string::npos) << log; // no reader speaks of a missing file
    }
}

// ---- Targa ----

TEST(QImageTgaTest, EveryKindAndOriginGivesThePicture)
{
    Picture colour = MakePicture(7, 5);
    Picture opaque = MakePicture(7, 5, false);
    for (bool top : {false, true})
        for (bool rle : {false, true}) {
            SCOPED_TRACE(std::string(top ? "top" : "bottom") + (rle ? " rle" : ""));
            EXPECT_PICTURE(LoadBytes("a.tga", Tga(colour, 32, top, rle)), colour);
            EXPECT_PICTURE(LoadBytes("a.tga", Tga(opaque, 24, top, rle)), opaque);
            WithApp app;
            EXPECT_PICTURE(LoadBytes("a.TGA", Tga(colour, 32, top, rle)), colour);
        }

    // Grey goes to all four bytes, alpha included.
    Picture grey = MakePicture(3, 2);
    for (size_t i = 0; i < grey.rgba.size(); i += 4) grey.rgba[i + 1] = grey.rgba[i + 2] = grey.rgba[i + 3] = grey.rgba[i];
    EXPECT_PICTURE(LoadBytes("g.tga", Tga(grey, 8, false, false)), grey);
}

TEST(QImageTgaTest, IdentificationIsSkippedAndRunLengthPacketsStayInTheirRow)
{
    // 3x2, one packet of five copies covers row 0 and is cut there; row 1 starts with the next packet.
    std::string s = TgaHeader(10, 3, 2, 24, false, 4);
    s += "\x84\x01\x02\x03";
    s += "\x02\x10\x20\x30\x40\x50\x60\x70\x80\x90";
    Load r = LoadBytes("p.tga", s);
    ASSERT_TRUE(r.ok) << r.log;
    const uint8_t want[] = {0x30, 0x20, 0x10, 255, 0x60, 0x50, 0x40, 255, 0x90, 0x80, 0x70, 255,
                            3, 2, 1, 255, 3, 2, 1, 255, 3, 2, 1, 255};
    EXPECT_EQ(r.pixels, std::vector<uint8_t>(want, want + sizeof want));

    // Data that ends inside a packet: the rest stays black, the load stands.
    Load cut = LoadBytes("p.tga", s.substr(0, s.size() - 3));
    EXPECT_TRUE(cut.ok);
    EXPECT_EQ(cut.pixels[5], 0x50);
    EXPECT_EQ(cut.pixels[8], 0);
}

TEST(QImageTgaTest, RefusalsOfBothRoads)
{
    Picture wide = MakePicture(16384, 1, false);
    EXPECT_TRUE(LoadBytes("w.tga", Tga(wide, 24, false, false)).ok);

    std::string tooWide = TgaHeader(2, 16385, 1, 24, false) + std::string(16385 * 3, 'x');
    std::string colormap = TgaHeader(2, 1, 1, 24, false, 0, 1) + "xyz";
    std::string unsupported = TgaHeader(2, 2, 2, 16, false) + std::string(8, 'x');
    std::string lying = TgaHeader(2, 16384, 16384, 32, false) + "xx";

    Load slow = LoadBytes("s.tga", tooWide);
    EXPECT_FALSE(slow.ok);
    EXPECT_TRUE(Logged(slow, "QImage:ReadTGA(); too wide")) << slow.log;
    slow = LoadBytes("s.tga", colormap);
    EXPECT_FALSE(slow.ok);
    EXPECT_TRUE(Logged(slow, "QImage:ReadTGA(); colormap is not supported")) << slow.log;
    slow = LoadBytes("s.tga", unsupported);
    EXPECT_TRUE(slow.ok); // the slow road keeps the zero bitmap of the file's size
    EXPECT_EQ(slow.pixels, std::vector<uint8_t>(16, 0));
    EXPECT_TRUE(Logged(slow, "QImage:ReadTGA(); no image loader for type 2, pixDepth 16")) << slow.log;
    slow = LoadBytes("s.tga", lying);
    EXPECT_FALSE(slow.ok);
    EXPECT_TRUE(Logged(slow, "QImage:ReadTGA(s.tga); 16384x16384 is more than the file holds")) << slow.log;

    WithApp app;
    Load fast = LoadBytes("f.tga", tooWide);
    EXPECT_FALSE(fast.ok);
    EXPECT_TRUE(Logged(fast, "QImage:ReadTGA(f.tga); too wide (max width=16384)")) << fast.log;
    fast = LoadBytes("f.tga", colormap);
    EXPECT_TRUE(Logged(fast, "QImage:ReadTGA(f.tga); colormap is not supported")) << fast.log;
    fast = LoadBytes("f.tga", unsupported);
    EXPECT_FALSE(fast.ok);
    EXPECT_TRUE(Logged(fast, "QImage:ReadTGA(); no image loader for type 2, pixDepth 16")) << fast.log;
    fast = LoadBytes("f.tga", "");
    EXPECT_FALSE(fast.ok);
    EXPECT_TRUE(Logged(fast, "QImage:ReadTGA(); no memory to read 'f.tga'")) << fast.log;
    for (std::string bad : {TgaHeader(2, 0, 3, 24, false), TgaHeader(2, 3, -1, 24, false) + "abcdefghi",
                            TgaHeader(10, 300, 300, 24, false, 200)}) {
        fast = LoadBytes("f.tga", bad);
        EXPECT_FALSE(fast.ok);
        EXPECT_NE(fast.log.find("is more than the file holds"), std::string::npos) << fast.log;
    }
}

TEST(QImageTgaTest, TheFastRoadTakesATargaOutOfAnArchive)
{
    TempDir dir(true);
    Picture p = MakePicture(6, 4);
    std::string tga = Tga(p, 32, true, true);
    QArchiveWriter writer;
    ASSERT_TRUE(writer.Create("data/pack.qar") || (QMakeDirectory("data") && writer.Create("data/pack.qar")));
    ASSERT_TRUE(writer.AddMember("Car.TGA", tga.data(), int(tga.size())));
    ASSERT_TRUE(writer.Finish());

    static QVirtualFileSystem* vfs;
    QVirtualFileSystem files;
    QArchive archive("data/pack.qar");
    ASSERT_TRUE(archive.IsOpen());
    ASSERT_TRUE(files.AddArchive(&archive));
    vfs = &files;
    QAppHooks hooks = {};
    hooks.GetFileSystem = [] { return vfs; };
    qappHooks = &hooks;
    testing::internal::CaptureStderr();
    QImage fromArchive("data/car.tga"); // not on disk: the archive of that directory has it
    QImage elsewhere("other/car.tga");
    testing::internal::GetCapturedStderr();
    qappHooks = nullptr;
    EXPECT_TRUE(fromArchive.IsOK());
    EXPECT_TRUE(TopDown(fromArchive) == p.rgba);
    EXPECT_FALSE(elsewhere.IsOK());
}

// ---- SGI RGB ----

TEST(QImageRgbTest, VerbatimAndRunLengthInBothByteOrders)
{
    Picture colour = MakePicture(5, 3);
    for (bool big : {true, false})
        for (bool rle : {false, true}) {
            SCOPED_TRACE(std::string(big ? "big" : "little") + (rle ? " rle" : ""));
            EXPECT_PICTURE(LoadBytes("a.rgb", Rgb(colour, 4, big, rle)), colour);
            // Without an alpha plane the alpha is 255, whatever the storage.
            Picture opaque = MakePicture(5, 3, false);
            EXPECT_PICTURE(LoadBytes("a.rgb", Rgb(opaque, 3, big, rle)), opaque);
        }
    // One plane: red only, green, blue and alpha 255.
    Picture grey = MakePicture(4, 2);
    for (size_t i = 0; i < grey.rgba.size(); i += 4) grey.rgba[i + 1] = grey.rgba[i + 2] = grey.rgba[i + 3] = 255;
    EXPECT_PICTURE(LoadBytes("g.rgb", Rgb(grey, 1, true, true)), grey);
    EXPECT_PICTURE(LoadBytes("g.rgb", Rgb(grey, 1, true, false)), grey);
}

TEST(QImageRgbTest, WidthLimitTablesAndLyingSizes)
{
    Picture wide = MakePicture(16384, 1);
    EXPECT_TRUE(LoadBytes("w.rgb", Rgb(wide, 4, true, false)).ok);
    Load r = LoadBytes("w.rgb", RgbHeader(true, false, 16385, 1, 4) + std::string(16385 * 4, 'x'));
    EXPECT_FALSE(r.ok);
    EXPECT_TRUE(Logged(r, "w.rgb width 16385 out of bounds")) << r.log;

    // A start table entry that points outside the file.
    Picture p = MakePicture(3, 2);
    std::string file = Rgb(p, 3, true, true);
    file[512 + 4 * 4 + 1] = '\x7F';
    r = LoadBytes("t.rgb", file);
    EXPECT_FALSE(r.ok);
    EXPECT_NE(r.log.find("starts at"), std::string::npos) << r.log;

    for (bool rle : {false, true}) {
        r = LoadBytes("l.rgb", RgbHeader(true, rle, 16384, 65535, 4) + "tiny");
        EXPECT_FALSE(r.ok);
        EXPECT_NE(r.log.find("the file has 516"), std::string::npos) << r.log;
    }
    r = LoadBytes("z.rgb", RgbHeader(true, false, 0, 5, 3));
    EXPECT_FALSE(r.ok);
}

TEST(QImageRgbTest, RunLengthRowsAreCutAtTheRowAndAtTheData)
{
    // Row 0: a run of 100 in a row of 3, then nothing; row 1 starts at the last byte of the file.
    std::string s = RgbHeader(true, true, 3, 2, 1);
    Put32BE(s, 512 + 16);
    Put32BE(s, 512 + 16 + 4);
    Put32BE(s, 0);
    Put32BE(s, 0);
    s += std::string("\x64\x07\x00\x00\x85", 5);
    Load r = LoadBytes("c.rgb", s);
    ASSERT_TRUE(r.ok) << r.log;
    EXPECT_EQ(r.pixels[0], 0);  // top row: row 1, whose literal has no bytes
    EXPECT_EQ(r.pixels[12], 7); // bottom row: the run, cut at three pixels
    EXPECT_EQ(r.pixels[20], 7);
}

// ---- BMP ----

TEST(QImageBmpTest, PaddedRowsTopDownAndGrey)
{
    Picture p = MakePicture(5, 3, false);
    EXPECT_PICTURE(LoadBytes("a.bmp", Bmp(p, 24, false)), p);
    EXPECT_PICTURE(LoadBytes("a.bmp", Bmp(p, 24, true)), p);
    Picture q = MakePicture(4, 2, false);
    EXPECT_PICTURE(LoadBytes("a.bmp", Bmp(q, 24, false)), q);

    Picture grey = MakePicture(3, 3, false);
    for (size_t i = 0; i < grey.rgba.size(); i += 4) grey.rgba[i + 1] = grey.rgba[i + 2] = grey.rgba[i];
    EXPECT_PICTURE(LoadBytes("g.bmp", Bmp(grey, 8, false)), grey);
}

TEST(QImageBmpTest, UnsupportedKindsAndShortFiles)
{
    Picture p = MakePicture(3, 2, false);
    Load r = LoadBytes("u.bmp", Bmp(p, 24, false, 1));
    EXPECT_TRUE(r.ok); // an all-zero bitmap of the file's size
    EXPECT_EQ(r.pixels, std::vector<uint8_t>(24, 0));
    EXPECT_TRUE(Logged(r, "QImage:ReadBMP(u.bmp); unsupported #bits (24) or compression (1)")) << r.log;

    std::string whole = Bmp(p, 24, false);
    r = LoadBytes("s.bmp", whole.substr(0, whole.size() - 3));
    EXPECT_TRUE(r.ok); // the last row may lack its padding
    r = LoadBytes("s.bmp", whole.substr(0, whole.size() - 4));
    EXPECT_FALSE(r.ok);
    EXPECT_TRUE(Logged(r, "QImage:ReadBMP(s.bmp); 3x2 is more than the file holds")) << r.log;
    r = LoadBytes("s.bmp", "BM");
    EXPECT_FALSE(r.ok);
    std::string huge = whole;
    huge[18] = huge[19] = huge[22] = huge[23] = '\x7F';
    huge[30] = 2;
    r = LoadBytes("h.bmp", huge);
    EXPECT_FALSE(r.ok);
}

// ---- JPEG ----

TEST(QImageJpgTest, ComponentsGiveOpaquePixels)
{
    Load colour = LoadBytes("c.jpg", Jpeg(19, 13, 3, JCS_RGB));
    ASSERT_TRUE(colour.ok) << colour.log;
    ASSERT_EQ(colour.w, 19);
    // Left half (40, 100, 160), right half top (220, 170, 120): the top row comes first from the file.
    EXPECT_NEAR(colour.pixels[0], 40, 3);
    EXPECT_NEAR(colour.pixels[2], 160, 3);
    EXPECT_NEAR(colour.pixels[18 * 4 + 1], 170, 3);
    EXPECT_NEAR(colour.pixels[(12 * 19 + 18) * 4 + 1], 150, 3);
    for (size_t i = 3; i < colour.pixels.size(); i += 4) ASSERT_EQ(colour.pixels[i], 255);

    Load grey = LoadBytes("g.jpeg", Jpeg(9, 9, 1, JCS_GRAYSCALE));
    ASSERT_TRUE(grey.ok) << grey.log;
    EXPECT_NEAR(grey.pixels[0], 40, 2);
    EXPECT_EQ(grey.pixels[0], grey.pixels[1]);
    EXPECT_EQ(grey.pixels[3], 255);

    // Four components, wider than 12288 pixels: the line buffer must hold them.
    Load cmyk = LoadBytes("k.jpg", Jpeg(12300, 2, 4, JCS_CMYK, 50));
    ASSERT_TRUE(cmyk.ok) << cmyk.log;
    EXPECT_EQ(cmyk.w, 12300);
    EXPECT_EQ(cmyk.pixels.back(), 255);
}

TEST(QImageJpgTest, BrokenStreamsAreFailedLoadsNotExits)
{
    std::string good = Jpeg(16, 16, 3, JCS_RGB);
    Load r = LoadBytes("t.jpg", good.substr(0, good.size() / 2));
    EXPECT_FALSE(r.ok);
    EXPECT_NE(r.log.find("QImage:ReadJPG(t.jpg); Premature end of JPEG file"), std::string::npos) << r.log;

    r = LoadBytes("n.jpg", "\xFF\xD8\xFF\xE0garbage that is no marker segment at all");
    EXPECT_FALSE(r.ok);
    EXPECT_NE(r.log.find("QImage:ReadJPG(n.jpg); "), std::string::npos) << r.log;
    EXPECT_TRUE(LoadBytes("e.jpg", "").log.find("QImage:ReadJPG(e.jpg); ") != std::string::npos);

    // The frame header claims 16385 columns: refused before any pixel exists.
    std::string wide = Jpeg(16, 16, 3, JCS_RGB);
    size_t sof = wide.find("\xFF\xC0");
    ASSERT_NE(sof, std::string::npos);
    wide[sof + 7] = '\x40';
    wide[sof + 8] = '\x01';
    r = LoadBytes("w.jpg", wide);
    EXPECT_FALSE(r.ok);
    EXPECT_TRUE(Logged(r, "QImage:ReadJPG(); (w.jpg) is 16385x16 large; supported only upto 16384x16384")) << r.log;
    wide[sof + 5] = '\x40';
    wide[sof + 6] = '\x00';
    wide[sof + 7] = '\x40';
    wide[sof + 8] = '\x00';
    r = LoadBytes("w.jpg", wide);
    EXPECT_FALSE(r.ok);
    EXPECT_TRUE(Logged(r, "QImage:ReadJPG(w.jpg); 16384x16384 is more than the file holds")) << r.log;
}

// ---- MIP ----

TEST(QImageMipTest, NibblesPickPaletteEntriesTopRowFirst)
{
    std::vector<std::vector<int>> nib = {{1, 2, 3}, {15, 0, 7}};
    // The second record's palette replaces the first's; an odd width drops the last nibble, and
    // rowBytes larger than needed does not set the step.
    Load r = LoadBytes("a.mip", Mip(nib, 0, 2, 2));
    ASSERT_TRUE(r.ok) << r.log;
    ASSERT_EQ(r.w, 3);
    ASSERT_EQ(r.h, 2);
    auto entry = [](int i) { return std::vector<uint8_t>{uint8_t(i * 7 + 1), uint8_t(i * 5), uint8_t(i * 3), uint8_t(200 + i)}; };
    for (int y = 0; y < 2; y++)
        for (int x = 0; x < 3; x++)
            EXPECT_EQ(std::vector<uint8_t>(r.pixels.begin() + (y * 3 + x) * 4, r.pixels.begin() + (y * 3 + x) * 4 + 4),
                      entry(nib[size_t(y)][size_t(x)])) << x << "," << y;
    EXPECT_NE(r.err.find("QImage:ReadMip(a.mip)\n"), std::string::npos) << r.err;

    Load first = LoadBytes("b.mip", Mip(nib, 1, 0, 2)); // the first record's palette only
    ASSERT_TRUE(first.ok) << first.log;
    EXPECT_EQ(first.pixels[2], 3 + 100);
}

TEST(QImageMipTest, Refusals)
{
    std::vector<std::vector<int>> nib = {{1, 2, 3}, {4, 5, 6}};
    struct Case { std::string file; std::string words; } cases[] = {
        {"PIX " + Mip(nib, 0, 2, 2).substr(4), "MIP image doesn't have correct header"},
        {Mip(nib, 0, 2, 2, 65), "MIP with CMAP size!=64; unexpected"},
        {Mip(nib, 0, 3, 2), "MIP type 3 not yet supported"},
        {Mip(nib, 5, 1, 2), "QImage:ReadMIP(x.mip); no CMAP chunk: no palette to apply"},
        {Mip(nib, 0, 2, 1), "QImage:ReadMIP(x.mip); 3x2 with 1 bytes a row is more than the file holds"},
    };
    for (const Case& c : cases) {
        Load r = LoadBytes("x.mip", c.file);
        EXPECT_FALSE(r.ok) << c.words;
        EXPECT_TRUE(Logged(r, c.words)) << c.words << "\n" << r.log;
    }
    std::string cut = Mip(nib, 0, 2, 2);
    Load r = LoadBytes("x.mip", cut.substr(0, cut.size() - 1));
    EXPECT_FALSE(r.ok);
}

// ---- Every allocation failing in turn ----

TEST(QImageTest, EachFailedAllocationIsAReportedFailureWithNothingLeaked)
{
    Picture p = MakePicture(5, 3);
    const std::pair<const char*, std::string> files[] = {
        {"a.tga", Tga(p, 32, true, true)}, {"a.rgb", Rgb(p, 4, true, true)}, {"a.bmp", Bmp(p, 24, true)},
        {"a.jpg", Jpeg(8, 8, 3, JCS_RGB)}, {"a.mip", Mip({{1, 2, 3}}, 0, 2, 2)},
    };
    TempDir dir(true);
    for (const auto& f : files) {
        WriteFile(dir.File(f.first), f.second);
        // Every allocation of the load in turn, and one past them all. A failed allocation still
        // counts in the tally, so a run may end one above where it began, never more.
        for (int nth = 1; nth <= 12; nth++) {
            int blocks = qGetAllocCount();
            qmsgReset();
            testing::internal::CaptureStderr();
            qSetAllocFailure(nth);
            bool ok;
            {
                QImage im(f.first);
                ok = im.IsOK();
            }
            qSetAllocFailure(0);
            std::string err = testing::internal::GetCapturedStderr();
            EXPECT_LE(qGetAllocCount() - blocks, 1) << f.first << " " << nth;
            EXPECT_GE(qGetAllocCount() - blocks, 0) << f.first << " " << nth;
            if (!ok) {
                EXPECT_NE(err.find("QImage ctor: can't load"), std::string::npos) << f.first << " " << nth;
            }
            if (nth == 12) {
                EXPECT_TRUE(ok) << f.first;
            }
        }
    }
}
