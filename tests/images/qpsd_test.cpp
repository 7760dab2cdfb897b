// QPSD and QImage::ReadPSD: the header's account in the log, the composition of the layers, and
// what damaged files give.
#include "images/qpsd.h"

#include "foundation/qfile.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "images/qimage.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

using namespace tarvik;
using namespace tarvik::test;

namespace {

void Put16(std::string& s, int v) { s += char(v >> 8 & 0xFF); s += char(v & 0xFF); }
void Put32(std::string& s, int64_t v) { Put16(s, int(v >> 16 & 0xFFFF)); Put16(s, int(v & 0xFFFF)); }

// Run-length packets of the file's kind: a run of 2..128 copies is 257 - count, 1..128 literal
// bytes are count - 1; 0x80 (129 copies) is only written by hand.
std::string PackRow(const uint8_t* p, int n)
{
    std::string out;
    int i = 0;
    while (i < n) {
        int run = 1;
        while (i + run < n && run < 128 && p[i + run] == p[i]) run++;
        if (run >= 2) {
            out += char(257 - run);
            out += char(p[i]);
            i += run;
            continue;
        }
        int lit = 1;
        while (i + lit < n && lit < 128 && !(i + lit + 1 < n && p[i + lit] == p[i + lit + 1])) lit++;
        out += char(lit - 1);
        out.append(reinterpret_cast<const char*>(p + i), size_t(lit));
        i += lit;
    }
    return out;
}

struct Channel {
    int id;
    std::vector<uint8_t> plane; // rows from the top of the layer
};

struct Layer {
    int top = 0, left = 0, bottom = 0, right = 0;
    std::vector<Channel> channels;
    int opacity = 255;
    int flags = 0;
    std::string name = "layer";
    int compression = 0;  // 0 verbatim, 1 run-length, anything else as it stands
    int maskSize = 0;     // 0 or 20 make a good record; 20 brings a mask rectangle along
    std::string adjustments; // data of the record behind the name, which the reader skips
    int64_t extraFix = 0; // added to the extra data size, to make it lie
    int64_t Width() const { return int64_t(right) - left; }
    int64_t Height() const { return int64_t(bottom) - top; }
};

// A layer of one colour, with a transparency channel first when 'alpha' is 0 to 255.
Layer Solid(int top, int left, int h, int w, int r, int g, int b, int alpha = -1)
{
    Layer l;
    l.top = top, l.left = left, l.bottom = top + h, l.right = left + w;
    size_t n = size_t(w) * h;
    if (alpha >= 0) l.channels.push_back({-1, std::vector<uint8_t>(n, uint8_t(alpha))});
    l.channels.push_back({0, std::vector<uint8_t>(n, uint8_t(r))});
    l.channels.push_back({1, std::vector<uint8_t>(n, uint8_t(g))});
    l.channels.push_back({2, std::vector<uint8_t>(n, uint8_t(b))});
    return l;
}

std::string ChannelData(const Layer& l, const Channel& c)
{
    std::string s;
    Put16(s, l.compression);
    if (l.Width() * l.Height() == 0) return s;
    if (l.compression == 0) {
        s.append(c.plane.begin(), c.plane.end());
    } else if (l.compression == 1) {
        std::string packets;
        for (int y = 0; y < l.Height(); y++) {
            std::string row = PackRow(&c.plane[size_t(y * l.Width())], int(l.Width()));
            Put16(s, int(row.size()));
            packets += row;
        }
        s += packets;
    }
    return s;
}

struct Psd {
    int width = 5, height = 3;
    std::string sig = "8BPS";
    int version = 1, depth = 8, mode = 3;
    std::vector<Layer> layers;
    bool negativeCount = false;
    std::string resources;  // image resources section
    bool merged = true;     // the merged picture after the layers, which the reader must not read
    int mergedValue = 77;
};

std::string Build(const Psd& p)
{
    std::string s = p.sig;
    Put16(s, p.version);
    s += std::string(6, '\0');
    Put16(s, 3);
    Put32(s, p.height);
    Put32(s, p.width);
    Put16(s, p.depth);
    Put16(s, p.mode);
    Put32(s, 0);
    Put32(s, int64_t(p.resources.size()));
    s += p.resources;

    std::string info;
    if (!p.layers.empty()) {
        Put16(info, p.negativeCount ? -int(p.layers.size()) : int(p.layers.size()));
        for (const Layer& l : p.layers) {
            Put32(info, l.top);
            Put32(info, l.left);
            Put32(info, l.bottom);
            Put32(info, l.right);
            Put16(info, int(l.channels.size()));
            for (const Channel& c : l.channels) {
                Put16(info, c.id);
                Put32(info, int64_t(ChannelData(l, c).size()));
            }
            info += "8BIMnorm";
            info += char(l.opacity);
            info += char(0);
            info += char(l.flags);
            info += char(0);
            std::string extra;
            Put32(extra, l.maskSize);
            if (l.maskSize == 20) {
                Put32(extra, 1), Put32(extra, 1), Put32(extra, 2), Put32(extra, 2);
                extra += std::string(4, '\0');
            }
            Put32(extra, 8);
            extra += std::string(8, '\xFF'); // blending ranges
            std::string name = char(l.name.size()) + l.name;
            while (name.size() % 4) name += '\0';
            extra += name + l.adjustments;
            Put32(info, int64_t(extra.size()) + l.extraFix);
            info += extra;
        }
        for (const Layer& l : p.layers)
            for (const Channel& c : l.channels) info += ChannelData(l, c);
        if (info.size() % 2) info += '\0';
    }
    std::string section;
    if (!info.empty()) {
        Put32(section, int64_t(info.size()));
        section += info;
        Put32(section, 0); // global layer mask
    }
    Put32(s, int64_t(section.size()));
    s += section;
    if (p.merged) {
        Put16(s, 0);
        s += std::string(size_t(p.width) * p.height * 3, char(p.mergedValue));
    }
    return s;
}

struct Load {
    bool ok = false;
    int w = 0, h = 0;
    std::vector<uint8_t> pixels; // rows from the top
    std::string err;             // standard error: the info lines and the warnings
    std::string log;             // QLOG.txt: the warnings
};

Load LoadBytes(const std::string& bytes, const std::string& name = "pic.psd")
{
    TempDir dir(true);
    qmsgReset();
    WriteFile(dir.File(name), bytes);
    Load r;
    testing::internal::CaptureStderr();
    {
        QImage im(name.c_str());
        r.ok = im.IsOK();
        r.w = im.GetWidth();
        r.h = im.GetHeight();
        if (im.GetMemory())
            for (int y = r.h - 1; y >= 0; y--) {
                const uint8_t* row = im.GetAddress(0, y);
                r.pixels.insert(r.pixels.end(), row, row + size_t(r.w) * 4);
            }
    }
    r.err = testing::internal::GetCapturedStderr();
    r.log = LogWithoutTimes(ReadFile(dir.File("QLOG.txt")));
    return r;
}

std::vector<uint8_t> Px(const Load& r, int x, int y)
{
    if (x < 0 || y < 0 || x >= r.w || y >= r.h || r.pixels.empty()) return {};
    const uint8_t* p = &r.pixels[(size_t(y) * r.w + x) * 4];
    return {p[0], p[1], p[2], p[3]};
}

std::vector<uint8_t> V(int r, int g, int b, int a) { return {uint8_t(r), uint8_t(g), uint8_t(b), uint8_t(a)}; }

bool Logged(const Load& r, const std::string& text) { return r.log.find("[-] " + text + " [") != std::string::npos; }

::testing::AssertionResult Says(const std::string& text, const std::string& part)
{
    if (text.find(part) != std::string::npos) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "\"" << part << "\" not found in:\n" << text;
}

// A 5x3 layer whose every pixel differs in every channel, so that flips and swaps show.
Layer Painted(int compression)
{
    Layer l;
    l.bottom = 3, l.right = 5, l.compression = compression, l.name = "back";
    std::vector<uint8_t> a(15), r(15), g(15), b(15);
    for (int i = 0; i < 15; i++) {
        a[i] = 255;
        r[i] = uint8_t(10 + i * 16);
        g[i] = uint8_t(200 - i * 9);
        b[i] = uint8_t(i % 5 * 50 + i / 5);
    }
    l.channels = {{-1, a}, {0, r}, {1, g}, {2, b}};
    return l;
}

// What Painted gives on a cleared canvas: colour v*255>>8 and alpha 255*255>>8, both one short.
std::vector<uint8_t> PaintedPixels()
{
    std::vector<uint8_t> out;
    for (int i = 0; i < 15; i++) {
        out.push_back(uint8_t((10 + i * 16) * 255 >> 8));
        out.push_back(uint8_t((200 - i * 9) * 255 >> 8));
        out.push_back(uint8_t((i % 5 * 50 + i / 5) * 255 >> 8));
        out.push_back(254);
    }
    return out;
}

} // namespace

// ---- the log's account of a file ----

TEST(QPSDTest, LogIsAFullAccountOfTheFile)
{
    Psd p;
    p.layers = {Painted(0), Solid(1, 2, 2, 2, 9, 8, 7, 200)};
    p.layers[1].name = "top";
    p.layers[1].flags = 2;
    Load r = LoadBytes(Build(p));
    ASSERT_TRUE(r.ok) << r.err;
    const char* lines[] = {
        "hdr: size=5x3\n", "sig: 8BPS, version 1\n", "Mode=3, channels=3, depth 8\n", "Layers=2\n",
        "layer 0: top 0, left 0, bottom 3, right 5, 4 chns\n", "  channel 0: id -1, length 17\n",
        "  channel 3: id 2, length 17\n", "  blend mode key: norm\n", "  layer visible\n", "Extra data size: 24\n",
        "Layer mask size: 0\n", "Layer blending range size: 8\n", "  Layer name len: 4\n", "  Layer name    : back\n",
        "layer 1: top 1, left 2, bottom 3, right 4, 4 chns\n", "  layer invisible\n", "  Layer name    : top\n",
        "Bytecount array: 3 high\n", "Layer 0, channel 0: compression 0\n", "  imageData size: 15\n",
        "Layer 1, channel 3: compression 0\n", "  imageData size: 4\n", "QPSD:Render() layer 0\n",
    };
    for (const char* line : lines) EXPECT_TRUE(Says(r.err, line));
    EXPECT_FALSE(Says(r.err, "QPSD:Render() layer 1\n")) << "a hidden layer is not rendered";
    // The pixel data starts right behind the last record.
    std::string file = Build(p);
    size_t loc = file.find(std::string("\0\0", 2) + std::string(15, char(255)), file.find("top") + 3);
    char text[64];
    std::snprintf(text, sizeof text, "  Image data file loc: 0x%x\n", unsigned(loc));
    EXPECT_TRUE(Says(r.err, text));
    EXPECT_EQ(r.log, "") << "a good file gives no warning";
}

// ---- composition ----

TEST(QPSDTest, OneOpaqueLayerComesOutOneShortAndTopRowFirst)
{
    for (int compression : {0, 1}) {
        Psd p;
        p.layers = {Painted(compression)};
        Load r = LoadBytes(Build(p));
        ASSERT_TRUE(r.ok) << r.err;
        ASSERT_EQ(r.w, 5);
        ASSERT_EQ(r.h, 3);
        EXPECT_EQ(r.pixels, PaintedPixels()) << "compression " << compression;
    }
}

TEST(QPSDTest, WithoutTransparencyChannelAlphaStaysZero)
{
    Psd p;
    p.layers = {Solid(0, 0, 3, 5, 255, 255, 255)};
    Load r = LoadBytes(Build(p));
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(Px(r, 0, 0), V(254, 254, 254, 0));
    EXPECT_EQ(Px(r, 4, 2), V(254, 254, 254, 0));
}

TEST(QPSDTest, UpperLayerIsWeighedByItsTransparency)
{
    Psd p;
    p.layers = {Solid(0, 0, 3, 5, 200, 100, 50, 255), Solid(1, 1, 1, 3, 0, 0, 255, 128)};
    Load r = LoadBytes(Build(p));
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(Px(r, 0, 0), V(199, 99, 49, 254));
    // alpha (254*127 + 128*128) >> 8, red 199*127 >> 8, blue (255*128 + 49*127) >> 8
    EXPECT_EQ(Px(r, 1, 1), V(98, 49, 151, 190));
    EXPECT_EQ(Px(r, 3, 1), V(98, 49, 151, 190));
    EXPECT_EQ(Px(r, 4, 1), V(199, 99, 49, 254));
    EXPECT_EQ(Px(r, 2, 2), V(199, 99, 49, 254));
}

TEST(QPSDTest, TransparencyBehindTheColoursWeighsTheNextPixel)
{
    Psd p;
    Layer l;
    l.bottom = 1, l.right = 3;
    l.channels = {{0, {200, 200, 200}}, {1, {0, 0, 0}}, {2, {0, 0, 0}}, {-1, {0, 255, 128}}};
    p.width = 3, p.height = 1;
    p.layers = {l};
    Load r = LoadBytes(Build(p));
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(Px(r, 0, 0), V(199, 0, 0, 0));   // a starts at 255; then alpha (0 + 0*0) >> 8
    EXPECT_EQ(Px(r, 1, 0), V(0, 0, 0, 254));   // a is 0 from pixel 0
    EXPECT_EQ(Px(r, 2, 0), V(199, 0, 0, 64));  // a is 255 from pixel 1; alpha 128*128 >> 8
}

TEST(QPSDTest, HiddenLayersAndOpacityDoNotChangeThePicture)
{
    Psd p;
    p.layers = {Solid(0, 0, 3, 5, 200, 100, 50, 255), Solid(0, 0, 3, 5, 1, 2, 3, 255)};
    p.layers[1].flags = 2 | 8; // hidden, and a bit that means nothing here
    Load hidden = LoadBytes(Build(p));
    EXPECT_TRUE(Says(hidden.err, "  layer invisible\n"));
    EXPECT_EQ(Px(hidden, 2, 1), V(199, 99, 49, 254));

    p.layers[1].flags = 0;
    p.layers[1].opacity = 10;
    Load faint = LoadBytes(Build(p));
    p.layers[1].opacity = 255;
    Load full = LoadBytes(Build(p));
    EXPECT_EQ(faint.pixels, full.pixels);
    EXPECT_EQ(Px(full, 2, 1), V(0, 1, 2, 254));
}

TEST(QPSDTest, LayersStickingOutOnEverySideAreCutAtTheCanvas)
{
    // Each of four 3x3 layers overhangs one corner of the 5x3 canvas; the plane's own pixels
    // differ, so a wrong offset into the plane shows.
    Psd p;
    const int tops[] = {-1, -2, 1, 2}, lefts[] = {-2, 3, -1, 4};
    for (int k = 0; k < 4; k++) {
        Layer l;
        l.top = tops[k], l.left = lefts[k], l.bottom = l.top + 3, l.right = l.left + 3, l.compression = k & 1;
        std::vector<uint8_t> r(9);
        for (int i = 0; i < 9; i++) r[i] = uint8_t(k * 60 + i * 5 + 1);
        l.channels = {{-1, std::vector<uint8_t>(9, 255)}, {0, r}};
        p.layers.push_back(l);
    }
    Load r = LoadBytes(Build(p));
    ASSERT_TRUE(r.ok) << r.err;
    std::vector<uint8_t> expect(15 * 4, 0);
    for (int k = 3; k >= 0; k--) // the upper layer wins: its alpha is opaque
        for (int y = 0; y < 3; y++)
            for (int x = 0; x < 3; x++) {
                int cx = lefts[k] + x, cy = tops[k] + y;
                if (cx < 0 || cy < 0 || cx >= 5 || cy >= 3) continue;
                uint8_t* d = &expect[size_t(cy * 5 + cx) * 4];
                if (d[3]) continue;
                d[0] = uint8_t((k * 60 + (y * 3 + x) * 5 + 1) * 255 >> 8);
                d[3] = 254;
            }
    EXPECT_EQ(r.pixels, expect);
}

TEST(QPSDTest, ChannelsOtherThanColourAndTransparencyAreNotPainted)
{
    Psd p;
    Layer l = Solid(0, 0, 3, 5, 40, 50, 60, 255);
    l.channels.push_back({-2, std::vector<uint8_t>(15, 99)}); // the layer mask
    l.channels.push_back({3, std::vector<uint8_t>(15, 98)});
    l.channels.push_back({-3, std::vector<uint8_t>(15, 97)});
    p.layers = {l};
    Load r = LoadBytes(Build(p));
    ASSERT_TRUE(r.ok);
    for (int i = 0; i < 15; i++) EXPECT_EQ(Px(r, i % 5, i / 5), V(39, 49, 59, 254));
}

TEST(QPSDTest, NegativeCountMeansThatManyLayers)
{
    Psd p;
    p.negativeCount = true;
    p.layers = {Solid(0, 0, 1, 1, 10, 0, 0, 255), Solid(0, 1, 1, 1, 0, 20, 0, 255), Solid(0, 2, 1, 1, 0, 0, 30, 255)};
    Load r = LoadBytes(Build(p));
    EXPECT_TRUE(Says(r.err, "Layers=-3\n"));
    EXPECT_EQ(Px(r, 0, 0), V(9, 0, 0, 254));
    EXPECT_EQ(Px(r, 1, 0), V(0, 19, 0, 254));
    EXPECT_EQ(Px(r, 2, 0), V(0, 0, 29, 254));
}

TEST(QPSDTest, FlatFileGivesBlankTransparentCanvas)
{
    Psd p; // no layers, a merged picture of 77s
    Load r = LoadBytes(Build(p));
    ASSERT_TRUE(r.ok) << r.err;
    EXPECT_EQ(r.w, 5);
    EXPECT_EQ(r.h, 3);
    EXPECT_EQ(r.pixels, std::vector<uint8_t>(60, 0));
    EXPECT_TRUE(Says(r.err, "Layers=0\n"));
}

// ---- the run-length planes ----

TEST(QPSDTest, RunLengthPacketsCountAsTheFileSays)
{
    // One row of 260: 0x80 repeats 129 times, 0x81 128 times, 0xFF twice, then a literal of 1.
    Psd p;
    p.width = 260, p.height = 1;
    Layer l;
    l.bottom = 1, l.right = 260, l.compression = 99; // written by hand below
    l.channels = {{0, {}}};
    p.layers = {l};
    std::string file = Build(p);
    std::string plane;
    Put16(plane, 1);
    Put16(plane, 9);
    plane += std::string("\x80\x0A\x81\x14\xFF\x1E\x00\x28", 8);
    size_t at = file.find(std::string("\0\x63", 2), file.find("layer") + 5);
    ASSERT_NE(at, std::string::npos);
    file.replace(at, 2, plane);
    Load r = LoadBytes(file);
    ASSERT_TRUE(r.ok) << r.err;
    EXPECT_EQ(Px(r, 0, 0)[0], 10 * 255 >> 8);
    EXPECT_EQ(Px(r, 128, 0)[0], 10 * 255 >> 8);
    EXPECT_EQ(Px(r, 129, 0)[0], 20 * 255 >> 8);
    EXPECT_EQ(Px(r, 256, 0)[0], 20 * 255 >> 8);
    EXPECT_EQ(Px(r, 257, 0)[0], 30 * 255 >> 8);
    EXPECT_EQ(Px(r, 258, 0)[0], 30 * 255 >> 8);
    EXPECT_EQ(Px(r, 259, 0)[0], 40 * 255 >> 8);
}

TEST(QPSDTest, PacketsPastTheRowEndAreCutThere)
{
    // Rows of 3: row 0 is a run of 5 (two too many), row 1 a literal of 4 (one too many).
    Psd p;
    p.width = 3, p.height = 2;
    Layer l;
    l.bottom = 2, l.right = 3, l.compression = 99;
    l.channels = {{0, {}}};
    p.layers = {l};
    std::string file = Build(p);
    std::string plane;
    Put16(plane, 1);
    Put16(plane, 2);
    Put16(plane, 5);
    plane += std::string("\xFC\x50\x03\x40\x41\x42\x43", 7);
    size_t at = file.find(std::string("\0\x63", 2), file.find("layer") + 5);
    file.replace(at, 2, plane);
    Load r = LoadBytes(file);
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(Px(r, 2, 0)[0], 0x50 * 255 >> 8);
    EXPECT_EQ(Px(r, 0, 1)[0], 0x40 * 255 >> 8);
    EXPECT_EQ(Px(r, 2, 1)[0], 0x42 * 255 >> 8);
}

TEST(QPSDTest, EmptyPlaneTakesOnlyItsCompressionWord)
{
    Psd p;
    Layer empty = Solid(1, 1, 0, 4, 1, 2, 3, 255); // no rows
    p.layers = {empty, Painted(1)};
    Load r = LoadBytes(Build(p));
    ASSERT_TRUE(r.ok) << r.err;
    EXPECT_EQ(r.pixels, PaintedPixels());
    QPSD psd(nullptr);
    std::string bytes = Build(p);
    QFile f("x.psd", &bytes[0], int(bytes.size()));
    testing::internal::CaptureStderr();
    ASSERT_TRUE(psd.Load(f));
    testing::internal::GetCapturedStderr();
    ASSERT_EQ(psd.GetLayerCount(), 2);
    for (int c = 0; c < 4; c++) EXPECT_EQ(psd.GetLayer(0)->imageData[c], nullptr);
    EXPECT_STREQ(psd.GetLayer(1)->name, "back");
    EXPECT_EQ(psd.GetLayer(2), nullptr);
}

// ---- records and their lengths ----

TEST(QPSDTest, MaskOfTwentyPassesOtherSizesAreRefused)
{
    Psd p;
    p.layers = {Painted(0)};
    p.layers[0].maskSize = 20;
    Load twenty = LoadBytes(Build(p));
    EXPECT_EQ(twenty.pixels, PaintedPixels()) << "the mask is read past, not applied";

    p.layers[0].maskSize = 36;
    Load refused = LoadBytes(Build(p));
    EXPECT_TRUE(Logged(refused, "Unsupported layer mask size (36)")) << refused.log;
    // A refused file still gives a picture of its canvas, with nothing painted.
    EXPECT_TRUE(refused.ok);
    EXPECT_EQ(refused.pixels, std::vector<uint8_t>(60, 0));
}

TEST(QPSDTest, ExtraDataSizeDecidesWhereTheNextRecordStarts)
{
    Psd p;
    p.layers = {Painted(0), Solid(0, 0, 1, 1, 0, 0, 250, 255)};
    p.layers[0].adjustments = "8BIMluni" + std::string("\0\0\0\4abcd", 8);
    p.layers[1].name = std::string(127, 'n');
    Load r = LoadBytes(Build(p));
    ASSERT_TRUE(r.ok) << r.err;
    EXPECT_EQ(Px(r, 0, 0), V(0, 0, 249, 254));
    const std::vector<uint8_t> painted = PaintedPixels();
    EXPECT_EQ(Px(r, 1, 0), std::vector<uint8_t>(painted.begin() + 4, painted.begin() + 8));
    EXPECT_TRUE(Says(r.err, "  Layer name len: 127\n"));
    EXPECT_TRUE(Says(r.err, "  Layer name    : " + std::string(127, 'n') + "\n"));
}

TEST(QPSDTest, NameLengthWithTopBitIsNegativeAndNoName)
{
    Psd p;
    p.layers = {Painted(0)};
    p.layers[0].name = std::string(130, 'x'); // the length byte 130 reads as -126
    Load r = LoadBytes(Build(p));
    EXPECT_TRUE(Says(r.err, "  Layer name len: -126\n"));
    EXPECT_TRUE(Says(r.err, "  Layer name    : \n"));
    EXPECT_EQ(r.pixels, PaintedPixels()) << "the record's end comes from its extra data size";
}

TEST(QPSDTest, MoreThanFiftyLayersKeepTheFirstFifty)
{
    Psd p;
    p.width = 51, p.height = 1;
    for (int i = 0; i < 51; i++) p.layers.push_back(Solid(0, i, 1, 1, i + 1, 0, 0, 255));
    Load r = LoadBytes(Build(p));
    EXPECT_TRUE(Logged(r, "PSD has 51 layers; only the first 50 are read")) << r.log;
    EXPECT_TRUE(Says(r.err, "layer 50: top 0, left 50, bottom 1, right 51, 4 chns\n"));
    EXPECT_EQ(Px(r, 49, 0), V(50 * 255 >> 8, 0, 0, 254));
    EXPECT_EQ(Px(r, 50, 0), V(0, 0, 0, 0));
}

TEST(QPSDTest, RecordsBeyondTheTablesAreRefused)
{
    Psd p;
    Layer many;
    many.bottom = 1, many.right = 1;
    for (int c = 0; c < 25; c++) many.channels.push_back({0, {1}});
    p.layers = {many};
    Load channels = LoadBytes(Build(p));
    EXPECT_TRUE(Logged(channels, "PSD layer 0 has 25 channels (max 24)")) << channels.log;
    EXPECT_EQ(channels.pixels, std::vector<uint8_t>(60, 0));

    p.layers = {Solid(5, 0, 1, 1, 1, 2, 3)};
    p.layers[0].bottom = 2; // bottom above top
    Load upside = LoadBytes(Build(p));
    EXPECT_TRUE(Logged(upside, "PSD layer 0 size 1x-3 out of bounds (max 30000x30000)")) << upside.log;

    p.layers = {Solid(0, 0, 1, 1, 1, 2, 3)};
    p.layers[0].left = -2000000000, p.layers[0].right = 2000000000;
    Load wide = LoadBytes(Build(p));
    EXPECT_TRUE(Logged(wide, "PSD layer 0 size 4000000000x1 out of bounds (max 30000x30000)")) << wide.log;
}

// ---- refusals and damage ----

TEST(QPSDTest, HeaderChecksInOrderEachRefusingTheFile)
{
    struct Case {
        const char* sig;
        int version, depth, mode;
        const char* words;
    } cases[] = {
        {"8BPX", 2, 16, 4, "Not a PSD file"},
        {"8BPS", 2, 16, 4, "PSD version not 1"},
        {"8BPS", 1, 16, 4, "PSD has no 8-bit/channel (depth)"},
        {"8BPS", 1, 8, 4, "PSD not RGB"},
    };
    for (const Case& c : cases) {
        Psd p;
        p.sig = c.sig, p.version = c.version, p.depth = c.depth, p.mode = c.mode;
        p.layers = {Painted(0)};
        Load r = LoadBytes(Build(p));
        EXPECT_TRUE(Logged(r, c.words)) << r.log;
        EXPECT_EQ(r.log.find("(WARN", r.log.find("(WARN") + 1), std::string::npos) << "one report: " << r.log;
        // The canvas of a refused file is still a picture, blank.
        EXPECT_TRUE(r.ok) << c.words;
        EXPECT_EQ(r.pixels, std::vector<uint8_t>(60, 0)) << c.words;
    }
}

TEST(QPSDTest, CanvasOfNoPixelsOrAbsurdSizeIsNoPicture)
{
    Psd p;
    p.width = 0;
    Load none = LoadBytes(Build(p));
    EXPECT_FALSE(none.ok);
    EXPECT_TRUE(Logged(none, "QImage: can't read PSD 'pic.psd'")) << none.log;
    EXPECT_TRUE(Logged(none, "QImage ctor: can't load 'pic.psd'")) << none.log;

    p.width = 300000, p.merged = false;
    Load huge = LoadBytes(Build(p));
    EXPECT_FALSE(huge.ok);
    EXPECT_TRUE(Logged(huge, "PSD size 300000x3 out of bounds (max 16384x16384)")) << huge.log;
    EXPECT_TRUE(Logged(huge, "QImage: can't read PSD 'pic.psd'")) << huge.log;

    p.width = 16384, p.height = 16384;
    Load claim = LoadBytes(Build(p));
    EXPECT_FALSE(claim.ok);
    EXPECT_TRUE(Logged(claim, "PSD size 16384x16384 is more than the file holds")) << claim.log;

    // A refused header with an absurd size must not leave that size behind for the picture.
    p.mode = 4;
    Load cmyk = LoadBytes(Build(p));
    EXPECT_FALSE(cmyk.ok);
    EXPECT_TRUE(Logged(cmyk, "PSD not RGB"));
    EXPECT_EQ(cmyk.w * cmyk.h, 0);

    p.height = -1;
    Load negative = LoadBytes(Build(p));
    EXPECT_FALSE(negative.ok);
}

TEST(QPSDTest, MissingFileIsReportedAsUnreadable)
{
    TempDir dir(true);
    qmsgReset();
    testing::internal::CaptureStderr();
    QImage im("absent.psd");
    testing::internal::GetCapturedStderr();
    EXPECT_FALSE(im.IsOK());
    std::string log = LogWithoutTimes(ReadFile(dir.File("QLOG.txt")));
    EXPECT_NE(log.find("[-] QImage: can't read PSD 'absent.psd'"), std::string::npos) << log;
}

TEST(QPSDTest, LyingLengthsStayInsideTheFile)
{
    Psd p;
    p.layers = {Painted(1), Solid(0, 0, 2, 2, 1, 2, 3, 255)};
    p.layers[1].extraFix = 0x7FFFFFF0; // the second record's end lies far beyond the file
    Load beyond = LoadBytes(Build(p));
    EXPECT_TRUE(beyond.ok);
    EXPECT_EQ(beyond.w, 5);

    p.layers[1].extraFix = -400; // and before its start
    Load before = LoadBytes(Build(p));
    EXPECT_EQ(before.w, 5);

    p.layers[1].extraFix = 0;
    std::string file = Build(p);
    file.replace(26, 4, "\xFF\xFF\xFF\xF0", 4); // colour mode data longer than the file
    Load colour = LoadBytes(file);
    EXPECT_TRUE(colour.ok);
    EXPECT_EQ(colour.pixels, std::vector<uint8_t>(60, 0));
}

TEST(QPSDTest, EveryTruncationLoadsPartlyOrFailsCleanly)
{
    Psd p;
    p.layers = {Painted(1), Painted(0), Solid(-1, 3, 3, 4, 5, 6, 7, 128)};
    p.layers[1].maskSize = 20;
    p.merged = false;
    const std::string full = Build(p);
    const Load whole = LoadBytes(full);
    ASSERT_TRUE(whole.ok);
    const int blocks = qGetAllocCount();
    for (size_t n = 0; n < full.size(); n++) {
        Load r = LoadBytes(full.substr(0, n));
        ASSERT_TRUE(r.ok ? r.w == 5 && r.h == 3 : r.w * r.h == 0) << n;
        // A file cut inside the pixel data keeps the records and fills what it has.
        if (r.ok && n > full.size() - 15) {
            EXPECT_EQ(r.pixels[0], whole.pixels[0]) << n;
        }
        ASSERT_EQ(qGetAllocCount(), blocks) << n;
    }
}

TEST(QPSDTest, FailedAllocationsEndCleanly)
{
    Psd p;
    p.layers = {Painted(1), Painted(0)};
    const std::string bytes = Build(p);
    bool done = false;
    for (int nth = 1; nth < 100 && !done; nth++) {
        // A failed allocation still counts in the tally: a run may end one above where it began.
        const int blocks = qGetAllocCount();
        qSetAllocFailure(nth);
        Load r = LoadBytes(bytes);
        qSetAllocFailure(0);
        ASSERT_LE(qGetAllocCount() - blocks, 1) << nth;
        ASSERT_GE(qGetAllocCount() - blocks, 0) << nth;
        if (!r.ok) {
            EXPECT_TRUE(Logged(r, "QImage ctor: can't load 'pic.psd'")) << nth << r.log;
        }
        done = r.ok && r.pixels == PaintedPixels();
    }
    EXPECT_TRUE(done);
}

// ---- a second source: the layered files of an independent image tool ----

TEST(QPSDTest, LayeredFileOfImageMagickComposes)
{
    TempDir dir(true);
    // The first image is the tool's merged picture, the others are layers; the tool writes each
    // layer's transparency behind its colours, so the alpha weighs from the next pixel on.
    RunResult made = RunCommand(
        "convert -size 7x5 xc:'rgba(200,10,20,1)' \\( -size 3x2 xc:'rgba(0,0,255,0.5)' -repage +2+1 \\) "
        "\\( -size 4x4 xc:'rgba(0,250,0,1)' -repage -1+3 \\) -depth 8 layered.psd",
        dir.Path());
    ASSERT_EQ(made.exitCode, 0) << made.err;
    Load r = LoadBytes(ReadFile(dir.File("layered.psd")), "layered.psd");
    ASSERT_TRUE(r.ok) << r.err;
    ASSERT_EQ(r.w, 7);
    ASSERT_EQ(r.h, 5);
    EXPECT_EQ(Px(r, 0, 0), V(0, 0, 0, 0)) << "the merged picture is not read";
    EXPECT_EQ(Px(r, 2, 1), V(0, 0, 254, 64));
    EXPECT_EQ(Px(r, 3, 1), V(0, 0, 127, 64));
    EXPECT_EQ(Px(r, 4, 2), V(0, 0, 127, 64));
    EXPECT_EQ(Px(r, 5, 1), V(0, 0, 0, 0));
    EXPECT_EQ(Px(r, 0, 3), V(0, 249, 0, 254));
    EXPECT_EQ(Px(r, 2, 4), V(0, 249, 0, 254));
    EXPECT_EQ(Px(r, 3, 3), V(0, 0, 0, 0));
    EXPECT_TRUE(Says(r.err, "layer 1: top 3, left -1, bottom 7, right 3, 4 chns\n"));
}
