// QImage's readers against an independent decoder: the same picture, written by ImageMagick in each
// format and layout we read, must load to the pixels ImageMagick decodes from that very file.
//
// Each case first checks that the file really has the layout it is named after (storage, planes,
// origin, padding, sampling), so that a case cannot quietly test something easier. The pictures are
// odd-sized and asymmetric with distinct channels, so a flip, a channel swap, a stride error or a
// lost alpha shows as a difference. ImageMagick is required: without it the tests fail.
#include "images/qimage.h"

#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <string>

using namespace tarvik;
using namespace tarvik::test;

namespace {

enum Compare {
    SAME_RGBA,       // every byte equal
    JPEG_RGBA,       // every byte within 2: two builds of one decoder may round apart
    GREY_IN_ALPHA,   // colour equal, and our alpha is the grey value
    CMYK_FIRST_THREE // our colour is the first three bytes of the decoded CMYK line, alpha 255; the
                     // file stores them inverted (its Adobe marker says so), which ImageMagick undoes
};

struct Case {
    const char* name;
    const char* picture; // ImageMagick source arguments; "pattern.pam" is made in code
    const char* options; // how to write it
    const char* file;    // the written file, with ImageMagick's format prefix
    const char* layout;  // what Layout() must find in it
    Compare compare;
    bool turnTopDown = false; // a BMP rewritten top row first with its height negated
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

// Photographs get an alpha that grows to the right and downwards, where a case needs one.
#define ALPHA_RAMP "-alpha set -channel A -fx '0.45+0.55*(i+2*j)/(w+2*h)' +channel "

const Case cases[] = {
    {"SgiVerbatim3Planes", "pattern.pam", "-alpha off -compress None", "sgi:a.rgb", "sgi verbatim, 3 planes", SAME_RGBA},
    {"SgiVerbatim4Planes", "pattern.pam", "-compress None", "sgi:a.rgb", "sgi verbatim, 4 planes", SAME_RGBA},
    {"SgiVerbatimPhoto", "wizard:", "-compress None", "sgi:a.rgb", "sgi verbatim, 3 planes", SAME_RGBA},
    {"SgiRle3Planes", "rose:", "-compress RLE", "sgi:a.rgb", "sgi rle, 3 planes", SAME_RGBA},
    {"SgiRle4Planes", "pattern.pam", "-compress RLE", "sgi:a.rgb", "sgi rle, 4 planes", SAME_RGBA},
    {"SgiRle4PlanesPhoto", "rose:", ALPHA_RAMP "-compress RLE", "sgi:a.rgb", "sgi rle, 4 planes", SAME_RGBA},

    {"Tga24Top", "pattern.pam", "-alpha off -orient TopLeft", "a.tga", "tga type 2, 24 bits, top", SAME_RGBA},
    {"Tga24Bottom", "rose:", "-orient BottomLeft", "a.tga", "tga type 2, 24 bits, bottom", SAME_RGBA},
    {"Tga32Top", "pattern.pam", "-orient TopLeft", "a.tga", "tga type 2, 32 bits, top", SAME_RGBA},
    {"Tga32Bottom", "pattern.pam", "-orient BottomLeft", "a.tga", "tga type 2, 32 bits, bottom", SAME_RGBA},
    {"Tga24RleTop", "logo:", "-type TrueColor -orient TopLeft -compress RLE", "a.tga", "tga type 10, 24 bits, top", SAME_RGBA},
    {"Tga24RleBottom", "-size 61x45 -seed 7 plasma:fractal", "-orient BottomLeft -compress RLE", "a.tga",
     "tga type 10, 24 bits, bottom", SAME_RGBA},
    {"Tga32RleTop", "rose:", ALPHA_RAMP "-orient TopLeft -compress RLE", "a.tga", "tga type 10, 32 bits, top",
     SAME_RGBA},
    {"Tga32RleBottom", "pattern.pam", "-orient BottomLeft -compress RLE", "a.tga", "tga type 10, 32 bits, bottom",
     SAME_RGBA},
    {"TgaGreyTop", "wizard:", "-type Grayscale -orient TopLeft", "a.tga", "tga type 3, 8 bits, top", GREY_IN_ALPHA},
    {"TgaGreyBottom", "pattern.pam", "-alpha off -type Grayscale -orient BottomLeft", "a.tga",
     "tga type 3, 8 bits, bottom", GREY_IN_ALPHA},

    // Widths 37, 70 and 61 leave 1, 2 and 1 bytes of padding after each row.
    {"Bmp24Pattern", "pattern.pam", "-alpha off -type TrueColor", "bmp3:a.bmp", "bmp 24 bits, height 23", SAME_RGBA},
    {"Bmp24Photo", "rose:", "-type TrueColor", "bmp3:a.bmp", "bmp 24 bits, height 46", SAME_RGBA},
    {"Bmp24TopDown", "-size 61x45 -seed 7 plasma:fractal", "-type TrueColor", "bmp3:a.bmp",
     "bmp 24 bits, height -45", SAME_RGBA, true},

    {"JpegColour420", "rose:", "-sampling-factor 4:2:0", "a.jpg", "jpeg baseline, 3 components, 2x2", JPEG_RGBA},
    {"JpegColour444", "pattern.pam", "-alpha off -sampling-factor 4:4:4", "a.jpg",
     "jpeg baseline, 3 components, 1x1", JPEG_RGBA},
    {"JpegOddSize420", "-size 61x45 -seed 7 plasma:fractal", "-sampling-factor 4:2:0", "a.jpg",
     "jpeg baseline, 3 components, 2x2", JPEG_RGBA},
    {"JpegProgressive", "logo:", "-interlace JPEG -sampling-factor 4:2:0", "a.jpg",
     "jpeg progressive, 3 components, 2x2", JPEG_RGBA},
    {"JpegGrey", "wizard:", "-type Grayscale", "a.jpg", "jpeg baseline, 1 components, 1x1", JPEG_RGBA},
    {"JpegCmyk", "rose:", "-colorspace CMYK", "a.jpg", "jpeg baseline, 4 components, 1x1", CMYK_FIRST_THREE},
};

// 37x23, top row first: red across, green down, blue along the diagonal, alpha in 128..255 and
// a lopsided block near the top left corner.
std::string Pattern()
{
    const int w = 37, h = 23;
    std::string pam = "P7\nWIDTH 37\nHEIGHT 23\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n";
    for (int y = 0; y < h; y++) {
        for (int x = 0; x < w; x++) {
            bool block = x >= 3 && x < 12 && y >= 2 && y < 7;
            pam += char(block ? 250 : x * 7);
            pam += char(block ? 20 : y * 11);
            pam += char(block ? 120 : (x + y) * 4);
            pam += char(block ? 200 : 255 - (x * 3 + y * 2) % 128);
        }
    }
    return pam;
}

unsigned BE16(const std::string& b, size_t at) { return unsigned(uint8_t(b[at])) << 8 | uint8_t(b[at + 1]); }
unsigned LE16(const std::string& b, size_t at) { return unsigned(uint8_t(b[at])) | unsigned(uint8_t(b[at + 1])) << 8; }

// The layout of a written file in a few words, from its header bytes.
std::string Layout(const std::string& b)
{
    char text[80] = "too short";
    if (b.size() < 64) return text;
    const uint8_t* u = reinterpret_cast<const uint8_t*>(b.data());
    if (u[0] == 0x01 && u[1] == 0xDA) {
        std::snprintf(text, sizeof text, "sgi %s, %u planes", u[2] == 1 ? "rle" : "verbatim", BE16(b, 10));
    } else if (u[0] == 'B' && u[1] == 'M') {
        std::snprintf(text, sizeof text, "bmp %u bits, height %d", LE16(b, 28),
                      int32_t(LE16(b, 22) | LE16(b, 24) << 16));
    } else if (u[0] == 0xFF && u[1] == 0xD8) {
        // Walk the markers to the frame header: its kind, components and the first one's sampling.
        for (size_t at = 2; at + 12 < b.size() && u[at] == 0xFF; at += 2 + BE16(b, at + 2)) {
            int m = u[at + 1];
            if (m == 0xC0 || m == 0xC1 || m == 0xC2) {
                std::snprintf(text, sizeof text, "jpeg %s, %d components, %dx%d", m == 0xC2 ? "progressive" : "baseline",
                              u[at + 9], u[at + 11] >> 4, u[at + 11] & 15);
                break;
            }
        }
    } else {
        std::snprintf(text, sizeof text, "tga type %d, %d bits, %s", u[2], u[16], u[17] & 32 ? "top" : "bottom");
    }
    return text;
}

// A bottom-up 24-bit BMP turned into the same picture stored top row first, height negated.
std::string TopDown(const std::string& bmp)
{
    const size_t offBits = LE16(bmp, 10) | LE16(bmp, 12) << 16;
    const int w = int(LE16(bmp, 18)), h = int(LE16(bmp, 22));
    const size_t stride = (size_t(w) * 3 + 3) / 4 * 4;
    std::string out = bmp.substr(0, offBits);
    const uint32_t negated = uint32_t(-h);
    for (int i = 0; i < 4; i++) out[22 + i] = char(negated >> (8 * i));
    for (int y = h - 1; y >= 0; y--) out += bmp.substr(offBits + stride * y, stride);
    return out;
}

// Our load of 'path' as RGBA bytes, top row first like ImageMagick's raw output.
std::string OursTopFirst(const std::string& path, int* width)
{
    QImage image(path.c_str());
    *width = image.GetWidth();
    if (!image.IsOK()) return "";
    std::string rgba;
    for (int y = image.GetHeight() - 1; y >= 0; y--)
        rgba.append(reinterpret_cast<const char*>(image.GetAddress(0, y)), size_t(image.GetWidth()) * 4);
    return rgba;
}

class QImageCrossCheckTest : public testing::TestWithParam<Case> {
protected:
    // Runs ImageMagick's convert in the test's directory and gives its standard output.
    std::string Convert(const std::string& args)
    {
        RunResult r = RunCommand("convert " + args, dir.Path());
        EXPECT_EQ(r.exitCode, 0) << "convert " << args << "\n" << r.err << "(tools/install-deps.sh installs it)";
        return r.out;
    }

    TempDir dir{true}; // the readers' log lands here, not in the source tree
};

TEST_P(QImageCrossCheckTest, LoadsTheSamePixelsAsAnIndependentDecoder)
{
    const Case& c = GetParam();
    WriteFile(dir.File("pattern.pam"), Pattern());
    Convert(std::string(c.picture) + " -depth 8 " + c.options + " " + c.file);

    const std::string file = c.file;
    const std::string written = file.substr(file.find(':') + 1); // npos + 1: no prefix
    const std::string path = dir.File(written);
    if (c.turnTopDown) WriteFile(path, TopDown(ReadFile(path)));
    ASSERT_EQ(Layout(ReadFile(path)), c.layout);

    // The reference: ImageMagick's decode of the very file, top row first. For CMYK its own four
    // channels, of which our reader keeps the first three as they come from the decoder.
    const bool cmyk = c.compare == CMYK_FIRST_THREE;
    std::string ref = Convert(std::string(c.file) + " -auto-orient -depth 8 " + (cmyk ? "cmyk:-" : "rgba:-"));
    int width = 0;
    std::string ours = OursTopFirst(path, &width);
    ASSERT_FALSE(ours.empty()) << written << " did not load";
    ASSERT_EQ(ours.size(), ref.size()) << "our size differs: width " << width;

    // Pictures with alpha must bring a varying one, or a lost alpha would pass unseen.
    if (std::string(c.layout).find("32 bits") != std::string::npos ||
        std::string(c.layout).find("4 planes") != std::string::npos) {
        bool varies = false;
        for (size_t i = 3; i < ref.size(); i += 4) varies |= uint8_t(ref[i]) != 255;
        EXPECT_TRUE(varies) << "the fixture has no alpha to lose";
    }

    const int tolerance = c.compare == JPEG_RGBA ? 2 : 0;
    for (size_t i = 0; i < ours.size(); i++) {
        const int channel = int(i % 4), got = uint8_t(ours[i]);
        int want = uint8_t(ref[i]);
        if (channel == 3 && c.compare == GREY_IN_ALPHA) want = uint8_t(ref[i - 3]);
        if (cmyk) want = channel == 3 ? 255 : 255 - want;
        if (std::abs(got - want) <= tolerance) continue;
        ADD_FAILURE() << written << ": pixel (" << i / 4 % size_t(width) << ", " << i / 4 / size_t(width)
                      << ") from the top, channel " << channel << ": ours " << got << ", reference " << want;
        break;
    }
}

INSTANTIATE_TEST_SUITE_P(ImageMagickFiles, QImageCrossCheckTest, testing::ValuesIn(cases),
                         [](const testing::TestParamInfo<Case>& param) { return std::string(param.param.name); });

} // namespace
