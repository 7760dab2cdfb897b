// QPSD and QImage::ReadPSD: the header's account in the log, the composition of the layers, what
// damaged files give, and qimgconv turning a layered file into a picture.
#include "images/qpsd.h"

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "images/qimage.h"
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using namespace tarvik;
using namespace tarvik::test;

#ifndef QIMGCONV_PATH
#define QIMGCONV_PATH ""
#endif

namespace {

using Bytes = std::vector<uint8_t>;

void Put16(std::string& s, int v) { s += char(v >> 8 & 0xFF), s += char(v & 0xFF); }
void Put32(std::string& s, int64_t v) { Put16(s, int(v >> 16 & 0xFFFF)), Put16(s, int(v & 0xFFFF)); }

// Compression 0 is verbatim, 1 run-length; a mask size of 20 brings a rectangle along; 'extraFix'
// makes the extra data size lie; 'raw', when set, is every channel's data as it stands in the file.
struct Layer {
    int top = 0, left = 0, bottom = 0, right = 0, opacity = 255, flags = 0, compression = 0, maskSize = 0;
    std::vector<std::pair<int, Bytes>> channels; // id and plane, rows from the top of the layer
    std::string name = "layer", adjustments, raw; // the adjustments stand behind the name
    int64_t extraFix = 0;
};

// One colour, with a transparency channel first when 'alpha' is 0 to 255.
Layer Solid(int top, int left, int h, int w, int r, int g, int b, int alpha = -1)
{
    Layer l;
    l.top = top, l.left = left, l.bottom = top + h, l.right = left + w;
    const size_t n = size_t(w) * h;
    if (alpha >= 0) l.channels.push_back({-1, Bytes(n, uint8_t(alpha))});
    for (int c : {0, 1, 2}) l.channels.push_back({c, Bytes(n, uint8_t(c == 0 ? r : c == 1 ? g : b))});
    return l;
}

int PaintedValue(int i, int c) { return c == 0 ? 10 + i * 16 : c == 1 ? 200 - i * 9 : i % 5 * 50 + i / 5; }

// 5x3 and opaque, every pixel differing in every channel, so that flips and swaps show.
Layer Painted(int compression)
{
    Layer l = Solid(0, 0, 3, 5, 0, 0, 0, 255);
    l.compression = compression, l.name = "back";
    for (int i = 0; i < 15; i++)
        for (int c = 0; c < 3; c++) l.channels[size_t(c) + 1].second[size_t(i)] = uint8_t(PaintedValue(i, c));
    return l;
}

// What Painted gives on a cleared canvas: colour v*255>>8 and alpha 255*255>>8, both one short.
Bytes PaintedPixels()
{
    Bytes out;
    for (int i = 0; i < 60; i++) out.push_back(uint8_t(i % 4 == 3 ? 254 : PaintedValue(i / 4, i % 4) * 255 / 256));
    return out;
}

std::string ChannelData(const Layer& l, const Bytes& plane)
{
    if (!l.raw.empty()) return l.raw;
    std::string s, packets;
    Put16(s, l.compression);
    if (l.compression == 0 || plane.empty()) return s + std::string(plane.begin(), plane.end());
    const int w = l.right - l.left, h = l.bottom - l.top;
    for (int y = 0; y < h; y++) { // run-length rows, each a literal packet (of at most 128 here)
        Put16(s, w + 1);
        packets += char(w - 1) + std::string(plane.begin() + y * w, plane.begin() + (y + 1) * w);
    }
    return s + packets;
}

struct Psd {
    int width = 5, height = 3;
    std::string sig = "8BPS";
    int version = 1, depth = 8, mode = 3;
    std::vector<Layer> layers;
    bool negativeCount = false, merged = true; // a merged picture of 77s, which the reader must not read
    uint32_t colourData = 0;                  // the length claimed; the data is never there
    int count = 0;                            // the layer count written, if not 0
};

std::string Build(const Psd& p)
{
    std::string s = p.sig, info, section;
    for (int v : {p.version, 0, 0, 0, 3}) Put16(s, v);
    Put32(s, p.height), Put32(s, p.width), Put16(s, p.depth), Put16(s, p.mode);
    Put32(s, p.colourData), Put32(s, 0); // resources
    if (!p.layers.empty()) {
        Put16(info, p.count ? p.count : int(p.layers.size()) * (p.negativeCount ? -1 : 1));
        for (const Layer& l : p.layers) {
            for (int v : {l.top, l.left, l.bottom, l.right}) Put32(info, v);
            Put16(info, int(l.channels.size()));
            for (const auto& c : l.channels)
                Put16(info, c.first), Put32(info, int64_t(ChannelData(l, c.second).size()));
            info += "8BIMnorm" + std::string{char(l.opacity), 0, char(l.flags), 0};
            std::string extra, name = char(l.name.size()) + l.name;
            Put32(extra, l.maskSize);
            if (l.maskSize == 20) // rectangle, colour, flags, padding
                for (int v : {1, 1, 2, 2, 0}) Put32(extra, v);
            Put32(extra, 8);
            name.resize((name.size() + 3) / 4 * 4, '\0');
            extra += std::string(8, '\xFF') + name + l.adjustments; // blending ranges first
            Put32(info, int64_t(extra.size()) + l.extraFix);
            info += extra;
        }
        for (const Layer& l : p.layers)
            for (const auto& c : l.channels) info += ChannelData(l, c.second);
        if (info.size() % 2) info += '\0';
        Put32(section, int64_t(info.size()));
        section += info + std::string(4, '\0'); // global layer mask
    }
    Put32(s, int64_t(section.size()));
    s += section;
    if (p.merged) s += std::string(2, '\0') + std::string(size_t(p.width) * p.height * 3, char(77));
    return s;
}

struct Load {
    bool ok = false;
    int w = 0, h = 0;
    Bytes pixels;         // rows from the top
    std::string err, log; // standard error: the info lines and warnings; QLOG.txt: the warnings
};

Bytes TopDown(const QBitMap& bm)
{
    Bytes out;
    for (int y = bm.GetMemory() ? bm.GetHeight() - 1 : -1; y >= 0; y--)
        out.insert(out.end(), bm.GetAddress(0, y), bm.GetAddress(bm.GetWidth(), y));
    return out;
}

// Loads 'bytes' saved as 'name' through QImage; with 'save' false, a file that isn't there.
Load LoadBytes(const std::string& bytes, const std::string& name = "pic.psd", bool save = true)
{
    TempDir dir(true);
    qmsgReset();
    if (save) WriteFile(dir.File(name), bytes);
    Load r;
    testing::internal::CaptureStderr();
    {
        QImage im(name.c_str());
        r.ok = im.IsOK(), r.w = im.GetWidth(), r.h = im.GetHeight(), r.pixels = TopDown(im);
        // The same bytes from memory give the same picture.
        QImage copy(name.c_str(), reinterpret_cast<const uint8_t*>(bytes.data()), long(save ? bytes.size() : 0));
        EXPECT_TRUE(copy.IsOK() == r.ok && TopDown(copy) == r.pixels) << name;
    }
    r.err = testing::internal::GetCapturedStderr();
    r.log = LogWithoutTimes(ReadFile(dir.File("QLOG.txt")));
    return r;
}

Load LoadPsd(const Psd& p) { return LoadBytes(Build(p)); }

Bytes Px(const Load& r, int x, int y)
{
    if (x < 0 || y < 0 || x >= r.w || y >= r.h || r.pixels.empty()) return {};
    return Bytes(&r.pixels[(size_t(y) * r.w + x) * 4], &r.pixels[(size_t(y) * r.w + x) * 4 + 4]);
}

Bytes V(int r, int g, int b, int a) { return {uint8_t(r), uint8_t(g), uint8_t(b), uint8_t(a)}; }

const Bytes blank(5 * 3 * 4, 0);

::testing::AssertionResult Has(const std::string& text, const std::string& part)
{
    if (text.find(part) != std::string::npos) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "\"" << part << "\" not found in:\n" << text;
}

::testing::AssertionResult Logged(const Load& r, const std::string& s) { return Has(r.log, "[-] " + s + " ["); }

} // namespace

TEST(QPSDTest, LogIsAFullAccountOfTheFile)
{
    Psd p;
    p.layers = {Painted(0), Solid(1, 2, 2, 2, 9, 8, 7, 200)};
    p.layers[1].name = "top";
    p.layers[1].flags = 2;
    const std::string file = Build(p);
    Load r = LoadBytes(file);
    ASSERT_TRUE(r.ok) << r.err;
    for (const char* line :
         {"hdr: size=5x3\n", "sig: 8BPS, version 1\n", "Mode=3, channels=3, depth 8\n", "Layers=2\n",
          "layer 0: top 0, left 0, bottom 3, right 5, 4 chns\n", "  channel 0: id -1, length 17\n",
          "  channel 3: id 2, length 17\n", "  blend mode key: norm\n", "  layer visible\n",
          "Extra data size: 24\n", "Layer mask size: 0\n", "Layer blending range size: 8\n",
          "  Layer name len: 4\n", "  Layer name    : back\n", "  layer invisible\n", "  Layer name    : top\n",
          "layer 1: top 1, left 2, bottom 3, right 4, 4 chns\n", "Bytecount array: 3 high\n",
          "Layer 0, channel 0: compression 0\n", "  imageData size: 15\n", "Layer 1, channel 3: compression 0\n",
          "  imageData size: 4\n", "QPSD:Render() layer 0\n"})
        EXPECT_TRUE(Has(r.err, line));
    EXPECT_FALSE(Has(r.err, "QPSD:Render() layer 1\n")) << "a hidden layer is not rendered";
    EXPECT_EQ(r.pixels, PaintedPixels()) << "nor painted";
    EXPECT_TRUE(Has(r.err, "  Image data file loc: 0xcc\n")) << "right behind the last record";
    EXPECT_EQ(r.log.find("(WARN"), std::string::npos) << "a good file gives no warning";
}

TEST(QPSDTest, LayersWeighByTransparencyAloneAndHiddenOnesAreLeftOut)
{
    Psd p;
    p.layers = {Solid(0, 0, 3, 5, 200, 100, 50, 255), Solid(1, 1, 1, 3, 0, 0, 255, 128),
                Solid(0, 4, 1, 1, 1, 2, 3, 255), Solid(0, 0, 3, 5, 7, 7, 7, 255), Solid(2, 3, 1, 2, 0, 0, 255)};
    for (int id : {-2, 3, -3}) p.layers[0].channels.push_back({id, Bytes(15, uint8_t(99 + id))}); // -2: mask
    p.layers[2].opacity = 10, p.layers[2].flags = 8; // neither applies
    p.layers[3].flags = 2 | 8;                       // hidden
    p.layers[4].channels.push_back({-1, Bytes(2, 0)}); // behind the colours: it weighs the next pixel
    Bytes want;
    for (int i = 0; i < 15; i++) {
        // alpha (254*127 + 128*128) >> 8, red 199*127 >> 8, blue (255*128 + 49*127) >> 8; the last
        // two: the blue at alpha 255, then the colour kept at alpha 0, both alphas 254*255 >> 8
        const Bytes px = i == 4 ? V(0, 1, 2, 254) : i >= 6 && i <= 8 ? V(98, 49, 151, 190)
                       : i == 13 ? V(0, 0, 254, 253) : i == 14 ? V(198, 98, 48, 253) : V(199, 99, 49, 254);
        want.insert(want.end(), px.begin(), px.end());
    }
    EXPECT_EQ(LoadPsd(p).pixels, want);
}

TEST(QPSDTest, LayersStickingOutOnEverySideAreCutAtTheCanvas)
{
    // Each opaque 3x3 layer overhangs one corner of the 5x3 canvas, the upper one winning; its
    // reds differ, so that a wrong offset into the plane shows.
    Psd p;
    const int tops[] = {-1, -2, 1, 2}, lefts[] = {-2, 3, -1, 4};
    Bytes expect = blank;
    for (int k = 0; k < 4; k++) {
        p.layers.push_back(Solid(tops[k], lefts[k], 3, 3, 0, 0, 0, 255));
        Layer& l = p.layers.back();
        l.channels.resize(2), l.compression = k & 1;
        for (int i = 0, x, y; i < 9; i++) {
            l.channels[1].second[size_t(i)] = uint8_t(k * 60 + i * 5 + 1);
            if ((x = lefts[k] + i % 3) < 0 || (y = tops[k] + i / 3) < 0 || x >= 5 || y >= 3) continue;
            expect[size_t(y * 5 + x) * 4] = uint8_t((k * 60 + i * 5 + 1) * 255 >> 8);
            expect[size_t(y * 5 + x) * 4 + 3] = 254;
        }
    }
    EXPECT_EQ(LoadPsd(p).pixels, expect);
}

TEST(QPSDTest, RunLengthPacketsCountAsTheFileSaysAndStopAtTheRowEnd)
{
    // One row of 260: 0x80 repeats 129 times, 0x81 128 times, 0xFF twice, then a literal of 1.
    Psd p;
    p.width = 260, p.height = 1, p.layers = {Solid(0, 0, 1, 260, 0, 0, 0)};
    p.layers[0].channels.resize(1);
    p.layers[0].raw = std::string("\0\1\0\x09\x80\x0A\x81\x14\xFF\x1E\x00\x28", 12);
    Load r = LoadPsd(p);
    const int at[] = {0, 128, 129, 256, 257, 258, 259}, value[] = {10, 10, 20, 20, 30, 30, 40};
    for (int i = 0; i < 7; i++) EXPECT_EQ(Px(r, at[i], 0), V(value[i] * 255 >> 8, 0, 0, 0)) << at[i];

    // Rows of 3: row 0 a literal of 4 (one too many), row 1 a run of 5 (two too many).
    p.width = p.layers[0].right = 3, p.height = p.layers[0].bottom = 2;
    p.layers[0].raw = std::string("\0\1\0\5\0\2\x03\x40\x41\x42\x43\xFC\x50", 13);
    r = LoadPsd(p);
    for (int i = 0; i < 6; i++) EXPECT_EQ(r.pixels[size_t(i) * 4], (i < 3 ? 0x40 + i : 0x50) * 255 >> 8) << i;
}

TEST(QPSDTest, ExtraDataSizeNotNameOrMaskDecidesWhereTheNextRecordStarts)
{
    Psd p;
    p.layers = {Solid(1, 1, 0, 4, 1, 2, 3, 255), Painted(1), Solid(0, 0, 1, 1, 0, 0, 250, 255),
                Solid(0, 2, 1, 1, 0, 0, 240, 255)};
    p.layers[0].adjustments = "8BIMluni" + std::string("\0\0\0\4abcd", 8); // and no rows: only a word a plane
    p.layers[1].maskSize = 20;                                              // read past, not applied
    p.layers[2].name = std::string(127, 'n');
    p.layers[3].name = std::string(130, 'x'); // the length byte reads as -126: no name
    Load r = LoadPsd(p);
    ASSERT_TRUE(r.ok) << r.err;
    Bytes want = PaintedPixels();
    want[0] = want[1] = want[8] = want[9] = 0, want[2] = 249, want[10] = 239;
    EXPECT_EQ(r.pixels, want);
    for (const char* line : {"  Layer name len: 127\n", "  Layer name len: -126\n", "  Layer name    : \n"})
        EXPECT_TRUE(Has(r.err, line));
    EXPECT_TRUE(Has(r.err, "  Layer name    : " + std::string(127, 'n') + "\n"));
}

TEST(QPSDTest, LayerCountIsTheFirstFiftyOfItsSizeAndNoneMeansABlankCanvas)
{
    Psd p;
    p.negativeCount = true;
    p.layers = {Solid(0, 0, 1, 1, 10, 0, 0, 255), Solid(0, 1, 1, 1, 0, 20, 0, 255), Solid(0, 2, 1, 1, 0, 0, 30, 255)};
    Load r = LoadPsd(p);
    EXPECT_TRUE(Has(r.err, "Layers=-3\n"));
    EXPECT_EQ(Bytes(&r.pixels[0], &r.pixels[12]), Bytes({9, 0, 0, 254, 0, 19, 0, 254, 0, 0, 29, 254}));

    r = LoadPsd(Psd());
    ASSERT_TRUE(r.ok && r.w == 5 && r.h == 3) << r.err;
    EXPECT_EQ(r.pixels, blank) << "the merged picture is not read";
    EXPECT_TRUE(Has(r.err, "Layers=0\n"));

    p.negativeCount = false, p.layers.clear();
    p.width = 51, p.height = 1;
    for (int i = 0; i < 51; i++) p.layers.push_back(Solid(0, i, 1, 1, i + 1, 0, 0, 255));
    r = LoadPsd(p);
    EXPECT_TRUE(Logged(r, "PSD has 51 layers; only the first 50 are read"));
    EXPECT_TRUE(Has(r.err, "layer 50: top 0, left 50, bottom 1, right 51, 4 chns\n"));
    EXPECT_EQ(Px(r, 49, 0), V(50 * 255 >> 8, 0, 0, 254));
    EXPECT_EQ(Px(r, 50, 0), V(0, 0, 0, 0));
    p.count = 30000, p.layers.back().extraFix = 100000; // records past the data are not read
    r = LoadPsd(p);
    EXPECT_TRUE(Has(r.err, "layer 50: ") && !Has(r.err, "layer 1000: "));
}

TEST(QPSDTest, RefusedFilesSayWhyInTheirOwnWords)
{
    // A refused header, record or mask gives a blank picture of its canvas with one report; a canvas
    // of no pixels or of an absurd size gives none. The header's checks come in order: each case
    // keeps the later faults of the one before.
    struct Case {
        void (*change)(Psd&);
        bool picture;
        const char* words;
    } cases[] = {
        {[](Psd& p) { p.sig = "8BPX", p.version = 2, p.depth = 16, p.mode = 4; }, true, "Not a PSD file"},
        {[](Psd& p) { p.version = 2, p.depth = 16, p.mode = 4; }, true, "PSD version not 1"},
        {[](Psd& p) { p.depth = 16, p.mode = 4; }, true, "PSD has no 8-bit/channel (depth)"},
        {[](Psd& p) { p.mode = 4; }, true, "PSD not RGB"},
        {[](Psd& p) { p.layers[0].maskSize = 36; }, true, "Unsupported layer mask size (36)"},
        {[](Psd& p) { p.layers[0].channels.resize(25, {0, Bytes(15)}); }, true,
         "PSD layer 0 has 25 channels (max 24)"},
        {[](Psd& p) { p.layers[0].top = 5, p.layers[0].bottom = 2; }, true,
         "PSD layer 0 size 5x-3 out of bounds (max 30000x30000)"},
        {[](Psd& p) { p.layers[0].left = -2000000000, p.layers[0].right = 2000000000; }, true,
         "PSD layer 0 size 4000000000x3 out of bounds (max 30000x30000)"},
        {[](Psd& p) { p.layers[0].raw = std::string(2, '\0'), p.merged = false; }, true,
         "PSD layer 0 of 5x3 in 4 channels is more than the file holds; only the first 0 layers are read"},
        {[](Psd& p) { p.width = 0; }, false, "QImage: can't read PSD 'pic.psd'"},
        {[](Psd& p) { p.width = 300000, p.merged = false; }, false,
         "PSD size 300000x3 out of bounds (max 16384x16384)"},
        {[](Psd& p) { p.width = p.height = 16384, p.merged = false; }, false,
         "PSD size 16384x16384 is more than the file holds"},
        // A refused header must not leave its absurd size behind for the picture.
        {[](Psd& p) { p.width = p.height = 16384, p.merged = false, p.mode = 4; }, false, "PSD not RGB"},
        {[](Psd& p) { p.height = -1, p.merged = false, p.mode = 4; }, false, "PSD not RGB"},
        // Lying lengths: the reader stays inside the file and says nothing.
        {[](Psd& p) { p.colourData = 0xFFFFFFF0; }, true, nullptr},
        {[](Psd& p) { p.layers.push_back(p.layers[0]), p.layers[1].extraFix = 0x7FFFFFF0; }, true, nullptr},
        {[](Psd& p) { p.layers.push_back(p.layers[0]), p.layers[1].extraFix = -400; }, true, nullptr},
    };
    for (const Case& c : cases) {
        Psd p;
        p.layers = {Painted(0)};
        c.change(p);
        Load r = LoadPsd(p);
        EXPECT_EQ(r.ok, c.picture) << c.words;
        EXPECT_EQ(r.pixels, c.picture ? blank : Bytes()) << c.words;
        if (c.words) {
            EXPECT_TRUE(Logged(r, c.words));
        }
        if (c.picture) { // one report, or none
            EXPECT_EQ(r.log.find("(WARN", c.words ? r.log.find("(WARN") + 1 : 0), std::string::npos) << r.log;
        } else {
            EXPECT_EQ(r.w * r.h, 0) << c.words;
            EXPECT_TRUE(Logged(r, "QImage: can't read PSD 'pic.psd'"));
            EXPECT_TRUE(Logged(r, "QImage ctor: can't load 'pic.psd'"));
        }
    }
    Load none = LoadBytes("", "absent.psd", false);
    EXPECT_FALSE(none.ok);
    EXPECT_TRUE(Logged(none, "QImage: can't read PSD 'absent.psd'"));
}

TEST(QPSDTest, EveryTruncationAndFailedAllocationEndsCleanly)
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
        // Cut inside the pixel data, a file keeps its records and fills what it has.
        if (r.ok && n > full.size() - 15) {
            EXPECT_EQ(r.pixels[0], whole.pixels[0]) << n;
        }
        ASSERT_EQ(qGetAllocCount(), blocks) << n;
    }
    // Each allocation failing in turn ends in a reported failure, until the whole picture loads. A
    // failed allocation still counts in the tally: a run may end one above where it began.
    const uint8_t* bytes = reinterpret_cast<const uint8_t*>(full.data());
    bool done = false;
    for (int nth = 1; nth < 100 && !done; nth++) {
        const int before = qGetAllocCount();
        testing::internal::CaptureStderr();
        qSetAllocFailure(nth);
        bool ok;
        {
            QImage im("pic.psd", bytes, long(full.size()));
            ok = im.IsOK(), done = ok && TopDown(im) == whole.pixels;
        }
        qSetAllocFailure(0);
        const std::string err = testing::internal::GetCapturedStderr();
        ASSERT_TRUE(qGetAllocCount() - before == 0 || qGetAllocCount() - before == 1) << nth;
        EXPECT_TRUE(ok || Has(err, "QImage ctor: can't load 'pic.psd'")) << nth;
    }
    EXPECT_TRUE(done);
}

// 50 layers of 24 channels, 1800x1800 each, without their data: seconds of composing nothing, which
// the loader must refuse well within two seconds of processor time.
TEST(QPSDTest, LayersTheFileCannotHoldAreLeftOutBeforeAnyWork)
{
    Psd p;
    p.width = p.height = 1800, p.merged = false;
    Layer empty = Solid(0, 0, 1800, 1800, 0, 0, 0);
    empty.channels.assign(24, {0, Bytes()}), empty.name = std::string(127, 'n'); // room for the canvas
    p.layers.assign(50, empty);
    TempDir dir;
    WriteFile(dir.File("many.psd"), Build(p));
    RunResult r = RunCommand("ulimit -t 2 && " + ShellQuote(QIMGCONV_PATH) + " many.psd out.tga", dir.Path());
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_TRUE(Has(r.err, "PSD layer 0 of 1800x1800 in 24 channels is more than the file holds; only"));
}
