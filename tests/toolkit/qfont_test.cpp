// Fonts: the width rules of both kinds, the glyph file's writer and reader with damaged files, and
// text painted under a private X server with its ink read back against the measured box.
#include "toolkit/glext.h" // first of the OpenGL headers

#include "foundation/qstring.h"
#include "images/qbitmap.h"
#include "platform/platform_window.h"
#include "tests/support/testsupport.h"
#include "tests/toolkit/xserver.h"
#include "toolkit/dtexfont.h"
#include "toolkit/qapp.h"
#include "toolkit/qfont.h"
#include "toolkit/qglcontext.h"
#include "toolkit/qwindow.h"
#include "toolkit/qxwindow.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace tarvik {
namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

// Five glyphs of advances 1, 2, 4, 8, 16, so that a sum names the glyphs in it: 'A' 'B' from glyph
// 0, 'X' 'Y' 'Z' from glyph 2. Each is 4 x 9 pixels with a left bearing of 1, and has its own
// column of a 16 x 16 picture.
void MakeTable(DTexFont* f)
{
    DTexGlyph g[5] = {};
    for (int i = 0; i < 5; i++) {
        g[i].wid = 4;
        g[i].hgt = 9;
        g[i].advance = float(1 << i);
        g[i].bearing = 1;
        g[i].s0 = i * 0.125f, g[i].s1 = i * 0.125f + 0.125f;
        g[i].t1 = 9 / 16.0f;
    }
    f->SetGlyphs(g, 5, 'A');
    f->lastChar = 'Z';
    f->lineHeight = 9;
    f->baseline = 2;
    const int32_t first[] = {'A', 'X'}, last[] = {'B', 'Z'}, index[] = {0, 2};
    ASSERT_TRUE(f->SetRanges(2, first, last, index));
}

TEST(DTexFontTest, WidthsFollowTheRanges)
{
    DTexFont f;
    MakeTable(&f);
    struct Case {
        const char* text;
        float width;
    } cases[] = {
        {"AB", 3},  {"XYZ", 28},
        {"@A", 1},  // below firstChar: nothing
        {"A[", 1},  // above lastChar: nothing
        {"C", 0},   // in the gap: 'X''s range gives it a negative index
        {"W", 2},   // also in the gap, but its index 1 is a glyph: glyph 1 it is
        {"", 0},
    };
    for (const Case& c : cases) EXPECT_EQ(f.GetWidth(c.text, -1), c.width) << c.text;
    EXPECT_EQ(f.GetWidth("XYZ", 2), 12);
    const uint16_t wide[] = {'Z', 0x105A, 'A', 0};
    EXPECT_EQ(f.GetWidth(wide, -1), 17);
    f.scaleX = 2, f.spacing = 0.5f;
    EXPECT_EQ(f.GetWidth("AZ", -1), 2 * 1 + 0.5f + 2 * 16 + 0.5f);
    f.scaleY = 3;
    EXPECT_EQ(f.GetHeight(), 27);
}

TEST(DTexFontTest, WithoutPictureNothingIsPaintedAndXComesBack)
{
    DTexFont f;
    MakeTable(&f);
    EXPECT_EQ(f.Paint("AXZ", 17, 5, -1), 17);
    EXPECT_EQ(f.Paint(nullptr, 17, 5, -1), 17);
}

TEST(QFontTest, TextureFontWidthRules)
{
    QFont font;
    font.texFont = new DTexFont();
    MakeTable(font.texFont);
    font.texFont->spacing = -3; // 'A' -2, 'B' -1, 'X' 1, 'Y' 5, 'Z' 13
    struct Case {
        const char* text;
        int len;
        float width;
    } cases[] = {
        {"ZA", -1, 2 + 13 - 2}, // a last character of negative width counts at its size
        {"AZ", -1, 11},         // a first one does not
        {"ZA", 1, 13},          // the last one within len
        {"ZA", 0, 0},
        {"AA", -2, 0},
        {"@Z", -1, 13},         // below firstChar: nothing
    };
    for (const Case& c : cases) EXPECT_EQ(font.GetWidth(c.text, c.len), c.width) << c.text << " " << c.len;
    EXPECT_EQ(font.GetWidth(static_cast<const char*>(nullptr), 3), 0);
    qstring narrow("ZA");
    qstring wide;
    const qwchar w[] = {'Z', 'A', 0};
    wide = w;
    EXPECT_EQ(font.GetWidth(&narrow, -1), 13);
    EXPECT_EQ(font.GetWidth(&wide, -1), 13);
    EXPECT_EQ(font.GetHeight(), 9);
    EXPECT_EQ(font.GetAscent(), 9); // a texture font's ascent is its height
}

// The glyph file: a table written, damaged one field at a time, and read back.
class GlyphFileTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        MakeTable(&table);
        QBitMap picture(32, 16, 16, 0);
        picture.SetColorAt(3, 4, QColor(10, 20, 30, 40));
        ASSERT_TRUE(picture.Write(dir.File("p.tga").c_str(), QBM_FORMAT_TGA, 0));
        CaptureStderr();
        ASSERT_TRUE(table.Write(dir.File("good.tfnt").c_str(), "p.tga"));
        GetCapturedStderr();
        good = test::ReadFile(dir.File("good.tfnt"));
    }

    // Loads 'bytes' into a font that holds the good table; the report, or "" when it loaded.
    std::string LoadOver(const std::string& bytes, DTexFont* f)
    {
        test::WriteFile(dir.File("bad.tfnt"), bytes);
        CaptureStderr();
        EXPECT_TRUE(f->Load(dir.File("good.tfnt").c_str()));
        bool ok = f->Load(dir.File("bad.tfnt").c_str());
        std::string err = GetCapturedStderr();
        return ok ? "" : err;
    }

    test::TempDir dir{true};
    DTexFont table;
    std::string good;
};

TEST_F(GlyphFileTest, RoundTrip)
{
    DTexFont f;
    CaptureStderr();
    ASSERT_TRUE(f.Load(dir.File("good.tfnt").c_str())) << GetCapturedStderr();
    GetCapturedStderr();
    EXPECT_EQ(f.firstChar, 'A');
    EXPECT_EQ(f.lastChar, 'Z');
    EXPECT_EQ(f.lineHeight * 10 + f.baseline, 92);
    ASSERT_EQ(f.ranges, 2);
    EXPECT_EQ(f.rangeFirst[1] * 10000 + f.rangeLast[1] * 10 + f.rangeIndex[1], 'X' * 10000 + 'Z' * 10 + 2);
    ASSERT_EQ(f.GetGlyphCount(), 5);
    EXPECT_EQ(std::memcmp(f.GetGlyphs(), table.GetGlyphs(), 5 * sizeof(DTexGlyph)), 0);
    const QBitMap* p = f.GetPicture();
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->GetWidth() * 100 + p->GetHeight(), 1616);
    EXPECT_EQ(p->GetAddress(3, 16 - 1 - 4)[3], 40); // the picture came along, bottom-up
    EXPECT_EQ(f.GetWidth("AXZ", -1), 21);
}

TEST_F(GlyphFileTest, DamagedFilesAreRefusedAndTheOldFontStays)
{
    // Offsets: name length 8, name 10, firstChar 15, lastChar 19, lineHeight 23, baseline 27,
    // ranges 31, range 0 at 35, range 1 at 47, glyph count 59, glyph 0 at 63 (32 bytes each).
    auto with = [&](size_t at, uint32_t v) {
        std::string b = good;
        for (int i = 0; i < 4; i++) b[at + i] = char(v >> (8 * i));
        return b;
    };
    uint32_t nan = 0x7FC00000, half = 0x3FC00000; // 1.5f
    struct Case {
        const char* field;
        std::string bytes;
        const char* why;
    } cases[] = {
        {"magic", "TFNX" + good.substr(4), "not a glyph file"},
        {"version", with(4, 2), "unknown version"},
        {"name length", good.substr(0, 8) + '\0' + good.substr(9), "picture name"},
        {"name", good.substr(0, 10) + "../p." + good.substr(15), "picture name"},
        {"first char", with(15, 0xFFFFFFFF), "first character"},
        {"last char", with(19, '@'), "last character"},
        {"line height", with(23, 0), "line height"},
        {"baseline", with(27, 10), "baseline"},
        {"range count", with(31, 6), "range count"},
        {"range order", with(47, 'B'), "range 1 not ascending"},
        {"range bounds", with(43, 4), "range 0 outside the glyphs"},
        {"range first", with(35, 'C'), "range 0 outside the characters"},
        {"glyph count", with(59, 6), "cut short"},
        {"huge count", with(59, 0x10000), "cut short"},
        {"negative count", with(59, 0x80000000), "glyph count"},
        {"trailing", good + "x", "bytes behind the glyphs"},
        {"width", with(63, 0xFFFFFFFF), "glyph 0 size"},
        {"advance", with(63 + 8, nan), "glyph 0 advance"},
        {"texture", with(63 + 32 + 16, half), "glyph 1 texture coordinates"},
    };
    for (const Case& c : cases) {
        DTexFont f;
        std::string err = LoadOver(c.bytes, &f);
        EXPECT_NE(err.find("DTexFont: '" + dir.File("bad.tfnt") + "' is damaged (" + c.why + ")"), std::string::npos)
            << c.field << ": " << err;
        EXPECT_EQ(f.GetWidth("AXZ", -1), 21) << c.field; // the table loaded before
        EXPECT_NE(f.GetPicture(), nullptr) << c.field;
    }
    for (size_t cut = 0; cut < good.size(); cut++) {
        DTexFont f;
        EXPECT_NE(LoadOver(good.substr(0, cut), &f), "") << cut;
    }
    DTexFont f;
    CaptureStderr();
    ASSERT_TRUE(f.Load(dir.File("good.tfnt").c_str()));
    std::remove(dir.File("p.tga").c_str());
    EXPECT_FALSE(f.Load(dir.File("good.tfnt").c_str()));
    EXPECT_NE(GetCapturedStderr().find("DTexFont: can't load the glyph picture"), std::string::npos);
    EXPECT_NE(f.GetPicture(), nullptr);
}

// Fonts on the screen: an application with a shell window, and the ink of a text read back.
class QFontDisplayTest : public test::XServerTest {
protected:
    enum { W = 240, H = 48 };
    void SetUp() override
    {
        test::XServerTest::SetUp();
        if (IsSkipped()) return;
        new QApp("fonttest");
        app->shell = new QWindow(nullptr, 0, 0, W, H);
        app->shell->SetFlags(QWF_X);
        CaptureStderr();
        app->shell->Create();
        GetCapturedStderr();
        if (!app->shell->GetXWindow()->GetContext()->GetNative()) GTEST_SKIP() << "no OpenGL context";
        glClearColor(0, 0, 0, 1);
        glClear(GL_COLOR_BUFFER_BIT);
    }
    void TearDown() override { delete app; }

    struct Box {
        int x0 = W, y0 = H, x1 = 0, y1 = 0; // ink from x0, y0 (bottom-up) to before x1, y1
        uint32_t rgb = 0;                    // of the last ink pixel
        bool Empty() const { return x1 == 0; }
    };
    static Box Ink()
    {
        std::vector<uint8_t> p(W * H * 4);
        glReadBuffer(GL_BACK);
        glReadPixels(0, 0, W, H, GL_RGBA, GL_UNSIGNED_BYTE, p.data());
        Box b;
        for (int y = 0; y < H; y++)
            for (int x = 0; x < W; x++) {
                const uint8_t* q = &p[(y * W + x) * 4];
                if (!(q[0] | q[1] | q[2])) continue;
                b.x0 = std::min(b.x0, x), b.y0 = std::min(b.y0, y);
                b.x1 = std::max(b.x1, x + 1), b.y1 = std::max(b.y1, y + 1);
                b.rgb = uint32_t(q[0] << 16 | q[1] << 8 | q[2]);
            }
        return b;
    }
    test::TempDir dir{true};
};

TEST_F(QFontDisplayTest, SystemFontComesWithTheFirstWindow)
{
    ASSERT_NE(app->sysFont, nullptr);
    bool baked = test::FileExists(QFontSystemFile());
    EXPECT_EQ(app->sysFont->GetTexFont() != nullptr, baked) << QFontSystemFile();
    EXPECT_GT(app->sysFont->GetHeight(), 8);
}

TEST_F(QFontDisplayTest, CoreFontWidthsAndInk)
{
    QFont font;
    CaptureStderr();
    EXPECT_FALSE(font.CreateFromNative("-nobody-nothing-*"));
    EXPECT_NE(GetCapturedStderr().find("QFont::CreateFromNative(); can't find font '-nobody-nothing-*'"),
              std::string::npos);
    ASSERT_TRUE(font.CreateFromNative("fixed"));
    int ascent = 0, descent = 0;
    ASSERT_TRUE(PlatformFontMetrics(font.nativeFont, &ascent, &descent));
    EXPECT_EQ(font.GetHeight(), ascent + descent);
    EXPECT_EQ(font.GetAscent(), ascent);

    // Each width is the rule on the server's own parts; a glyph that touches an edge of its cell
    // is measured to its advance, one clear of both edges to its ink's right edge.
    std::string all;
    float sum = 0;
    int touching = 0, clear = 0;
    for (int code = 32; code < 127; code++) {
        float a, b, c;
        ASSERT_TRUE(PlatformFontCharABC(font.nativeFont, code, &a, &b, &c));
        float rule = a > 0 ? a + b : c > 0 ? c + b : b;
        EXPECT_EQ(font.GetCharWidth(code), rule) << code;
        EXPECT_EQ(a + b + c, PlatformFontCharWidth(font.nativeFont, code)) << code;
        if (a == 0 || c == 0) {
            touching++;
            EXPECT_EQ(rule, a + b + c) << code;
        }
        if (a > 0 && c > 0) {
            clear++;
            EXPECT_EQ(rule, a + b) << code;
        }
        all += char(code);
        sum += rule;
    }
    EXPECT_GT(touching * clear, 0); // both kinds were seen
    EXPECT_EQ(font.GetWidth(all.c_str(), -1), sum);

    // Every list moves the pen by its character's advance, blanks and missing codes included.
    for (int code = 0; code < 256; code++) {
        glRasterPos2i(0, 0);
        glBitmap(0, 0, 0, 0, 10, 10, nullptr);
        glCallList(font.GetListBase() + code);
        float pos[4];
        glGetFloatv(GL_CURRENT_RASTER_POSITION, pos);
        EXPECT_EQ(pos[0], 10 + PlatformFontCharWidth(font.nativeFont, code)) << code;
    }
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    glClear(GL_COLOR_BUFFER_BIT);

    // Drawn as the canvas draws it, from the baseline; capitals touch their cells' edges.
    const char* text = "WAVE";
    const int x = 20, base = 15;
    glColor4f(1, 1, 1, 1);
    glRasterPos2i(0, 0);
    glBitmap(0, 0, 0, 0, x, base, nullptr);
    glListBase(font.GetListBase());
    glCallLists(4, GL_UNSIGNED_BYTE, text);
    Box ink = Ink();
    ASSERT_FALSE(ink.Empty());
    EXPECT_GE(ink.x0, x);
    EXPECT_LE(ink.x1, x + font.GetWidth(text, -1));
    EXPECT_GT(ink.x1, x + font.GetWidth(text, -1) - 6); // the last glyph is there
    EXPECT_GE(ink.y0, base - descent);
    EXPECT_LE(ink.y1, base + ascent);
}

TEST_F(QFontDisplayTest, TextureFontInkAndPen)
{
    if (!test::FileExists(QFontSystemFile())) GTEST_SKIP() << "the system font was not baked";
    QFont font;
    CaptureStderr();
    ASSERT_TRUE(font.CreateFromFile(QFontSystemFile())) << GetCapturedStderr();
    GetCapturedStderr();
    DTexFont* tf = font.GetTexFont();
    const char* text = "Hello, World";
    const int x = 20, bottom = 10;
    tf->color.Set(255, 0, 0, 255);
    int pen = tf->Paint(text, x, bottom, -1);
    EXPECT_EQ(pen, int(x + font.GetWidth(text, -1))); // measured as it moves
    EXPECT_EQ(tf->Paint("\001\002", pen, bottom, -1), pen); // codes below firstChar move nothing
    Box ink = Ink();
    ASSERT_FALSE(ink.Empty());
    EXPECT_GE(ink.x0, x);
    EXPECT_LE(ink.x1, pen);
    EXPECT_GT(ink.x1, pen - 4);
    EXPECT_GE(ink.y0, bottom);
    EXPECT_LE(ink.y1, bottom + font.GetHeight());
    EXPECT_EQ(ink.rgb & 0x00FFFF, 0u) << std::hex << ink.rgb; // red: the colour modulates white glyphs

    glClear(GL_COLOR_BUFFER_BIT);
    tf->SetPicture(nullptr);
    EXPECT_EQ(tf->Paint(text, x, bottom, -1), x);
    EXPECT_TRUE(Ink().Empty());
}

} // namespace
} // namespace tarvik
