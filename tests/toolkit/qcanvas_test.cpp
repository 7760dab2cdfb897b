// The canvas: colours, bitmap targets, the blit queue's rows, the multi-line layout and the window
// tiling without a display; every primitive drawn into a window under a private X server and read
// back; a real F11 photographing what was swapped.
#include "toolkit/glext.h" // first of the OpenGL headers

#include "images/qbitmap.h"
#include "platform/platform_window.h"
#include "tests/support/testsupport.h"
#include "tests/toolkit/xserver.h"
#include "toolkit/dtexfont.h"
#include "toolkit/qapp.h"
#include "toolkit/qcanvas.h"
#include "toolkit/qfont.h"
#include "toolkit/qwindow.h"
#include "toolkit/qwinmgr.h"
#include "toolkit/qxwindow.h"

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace tarvik {
namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

// Pixel (x, y), y from the top, as 0xRRGGBBAA.
uint32_t Px(const QBitMap& bm, int x, int y)
{
    const uint8_t* p = bm.GetAddress(x, bm.GetHeight() - 1 - y);
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

// An asymmetric picture: every pixel tells where it came from.
void Paint(QBitMap* bm)
{
    for (int y = 0; y < bm->GetHeight(); y++)
        for (int x = 0; x < bm->GetWidth(); x++) bm->SetColorAt(x, y, QColor(x * 20 + 10, y * 30 + 5, 77, 255));
}

// The first pixel that differs from want(x, y), ignoring alpha with 'rgbOnly'; "" when none does.
std::string Diff(const QBitMap& bm, const std::function<uint32_t(int, int)>& want, bool rgbOnly = true)
{
    uint32_t mask = rgbOnly ? 0xFFFFFF00u : 0xFFFFFFFFu;
    for (int y = 0; y < bm.GetHeight(); y++)
        for (int x = 0; x < bm.GetWidth(); x++)
            if ((Px(bm, x, y) ^ want(x, y)) & mask)
                return std::to_string(x) + "," + std::to_string(y) + ": " + std::to_string(Px(bm, x, y)) +
                       " want " + std::to_string(want(x, y));
    return "";
}

bool In(int x, int y, const QRect& r) { return r.wid > 0 && r.hgt > 0 && r.Contains(x, y); }

class CanvasTest : public testing::Test {
protected:
    void SetUp() override { QCanvasInstallHooks(); }
    test::TempDir dir{true}; // the warnings' QLOG.txt
};

TEST_F(CanvasTest, SetColorKinds)
{
    struct Case {
        int kind, alpha;
        uint32_t rgba;
        int blend;
        bool warns;
    } cases[] = {
        {PX_TEAL, -1, 0x447E8E80, 1, false}, {PX_TEAL, 200, 0x447E8EC8, 1, false},
        {PX_LTGRAY, 200, 0xE0E0E0FF, 0, false}, {PX_DKTEAL, -1, 0x27494EFF, 0, false},
        {PX_DKTEAL, 9, 0x27494E09, 0, false}, {PX_VEIL, 30, 0xFFFFFF1E, 1, false},
        {PX_PALE, 3, 0x8BC9DBFF, 0, false}, {12, -1, 0x00FF00FF, 0, true}, {-1, 5, 0x00FF00FF, 0, true},
    };
    for (const Case& c : cases) {
        QCanvas cv(static_cast<QDrawable*>(nullptr));
        CaptureStderr();
        cv.SetColor(c.kind, c.alpha);
        std::string err = GetCapturedStderr();
        EXPECT_EQ(cv.GetColor()->GetRGBA(), c.rgba) << c.kind << " " << c.alpha;
        EXPECT_EQ(cv.GetBlendMode(), c.blend) << c.kind;
        std::string warning = "QCanvas::SetColor(" + std::to_string(c.kind) + ") unknown PX_xxx";
        EXPECT_EQ(err.find(warning) != std::string::npos, c.warns) << err;
    }
}

// A canvas on a bitmap: DrawPixels goes through QBlit, rows turned top-down to memory order.
TEST_F(CanvasTest, DrawPixelsIntoABitmap)
{
    struct Case {
        int x, y, wid, hgt, sx, sy;
        bool clip;
        QRect at;        // where the picture lands
        int shiftX, shiftY; // source pixel = target pixel - at + shift
    } cases[] = {
        {3, 2, -1, -1, -1, -1, false, {3, 2, 8, 6}, 0, 0},
        {3, 2, 4, 3, 2, 1, false, {3, 2, 4, 3}, 2, 1},
        {-5, -2, -1, -1, 0, 0, true, {0, 0, 3, 4}, 5, 2}, // the clip moves sx and sy on
        {18, 12, -1, -1, 0, 0, true, {18, 12, 2, 2}, 0, 0},
    };
    QBitMap source(32, 8, 6, 0);
    Paint(&source);
    for (const Case& c : cases) {
        QBitMap* target = new QBitMap(32, 20, 14, 0);
        target->SetCanvas(new QCanvas(target)); // deleted with the bitmap, through the hooks
        QCanvas* cv = target->GetCanvas();
        cv->SetBitmap(target);
        cv->SetFlags(c.clip ? QCV_BITMAP | QCV_CLIP : QCV_BITMAP);
        cv->SetClip(QRect(0, 0, 20, 14));
        cv->DrawPixels(&source, c.x, c.y, c.wid, c.hgt, c.sx, c.sy, 0);
        EXPECT_EQ(Diff(*target, [&](int x, int y) {
            return In(x, y, c.at) ? Px(source, x - c.at.x + c.shiftX, y - c.at.y + c.shiftY) : 0u;
        }, false), "") << c.x << "," << c.y;
        delete target;
    }
}

// The rows a queued transfer keeps: GL's bottom-up rows of window and bitmap; a clipped left edge
// moves the source column, an unclipped one stays negative for the raster move.
TEST_F(CanvasTest, QueuedBlitsKeepBottomUpRows)
{
    QBitMap source(32, 8, 6, 0);
    QBitMap window(32, 40, 30, 0);
    QCanvas cv(&window);
    cv.SetOrigin(2, 1);
    cv.SetFlags(QCV_QUEUE);
    cv.SetClip(QRect(0, 0, 40, 30));
    cv.DrawPixels(&source, 5, 7, 4, 3, 1, 2, 0);
    cv.SetBlending(true);
    cv.DrawPixels(&source, -5, 0, -1, -1, -1, -1, 0);
    cv.SetFlags(QCV_CLIP);
    cv.DrawPixels(&source, -5, 0, -1, -1, -1, -1, 0);
    cv.DrawPixels(&source, -12, 0, -1, -1, -1, -1, 0); // clipped away whole: nothing queued
    ASSERT_NE(cv.GetQueue(), nullptr);
    std::vector<std::vector<int>> got;
    for (int i = 0; i < cv.GetQueue()->numEntries; i++) {
        const QBlitEntry* e = cv.GetQueue()->GetBlit(i);
        got.push_back({e->srcX, e->srcY, e->wid, e->hgt, e->dstX, e->dstY, int(e->flags)});
    }
    EXPECT_EQ(got, (std::vector<std::vector<int>>{
                       {1, 1, 4, 3, 7, 19, 0},  // source row 6-3-2, target row 30-8-3
                       {0, 0, 8, 6, -3, 23, 1}, // a negative column stays for the raster move
                       {3, 0, 5, 6, 0, 23, 1},  // the clip moves the source column on
                   }));
}

// A canvas that records the lines TextML hands to Text.
class RecordingCanvas : public QCanvas {
public:
    RecordingCanvas() : QCanvas(static_cast<QDrawable*>(nullptr)) {}
    void Text(const char* text, int x, int y, int len) override
    {
        calls.push_back(std::string(text) + "@" + std::to_string(x) + "," + std::to_string(y));
    }
    std::vector<std::string> calls;
};

// A texture font whose glyphs are 6 pixels wide and 10 high, so widths are known without a display.
struct StubFont {
    StubFont()
    {
        DTexGlyph g = {};
        g.wid = 6;
        g.hgt = 10;
        g.advance = 6;
        std::vector<DTexGlyph> glyphs(96, g);
        font.texFont = new DTexFont;
        font.texFont->SetGlyphs(glyphs.data(), 96, 32);
        font.texFont->scaleX = font.texFont->scaleY = 1;
        font.texFont->spacing = 0;
    }
    QFont font;
};

// Lines split at line feeds, at most 30; the layout in the rectangle (10, 20, 100, 50) with 6
// pixels a character and 10 a line.
TEST_F(CanvasTest, TextMLLayoutAndLimits)
{
    StubFont stub;
    auto Lines = [](int feeds) {
        std::string text = "L0";
        for (int i = 1; i <= feeds; i++) text += "\nL" + std::to_string(i);
        return text;
    };
    struct Case {
        std::string text;
        int flags;
        size_t count;
        const char *first, *last, *warning;
    } cases[] = {
        {"ab\ncdef", 0, 2, "ab@10,20", "cdef@10,30", nullptr},
        {"ab\ncdef", 1, 2, "ab@54,20", "cdef@48,30", nullptr}, // (100 - 12) / 2 + 10, (100 - 24) / 2 + 10
        {"ab\ncdef", 3, 2, "ab@54,35", "cdef@48,45", nullptr}, // (50 - 20) / 2 + 20
        {"", 2, 1, "@10,40", "@10,40", nullptr},
        {Lines(29), 0, 30, "L0@10,20", "L29@10,310", nullptr},
        {Lines(30), 0, 30, "L0@10,20", "L30@10,310", "QCanvas::TextML() max #lines reached (10)"},
        {std::string(1023, 'x'), 0, 1, nullptr, nullptr, nullptr},
        {std::string(1024, 'x'), 0, 0, nullptr, nullptr, "QCanvas::TextML(); text>temp buffer"},
    };
    QRect r(10, 20, 100, 50);
    for (const Case& c : cases) {
        RecordingCanvas cv;
        cv.SetFont(&stub.font);
        CaptureStderr();
        cv.TextML(c.text.c_str(), &r, c.flags);
        std::string err = GetCapturedStderr();
        ASSERT_EQ(cv.calls.size(), c.count) << c.text.size() << " bytes";
        if (c.first) {
            EXPECT_EQ(cv.calls.front(), c.first);
            EXPECT_EQ(cv.calls.back(), c.last);
        }
        size_t at = c.warning ? err.find(c.warning) : std::string::npos;
        EXPECT_EQ(err.find("QCanvas::TextML"), at) << err;
        if (c.warning) {
            EXPECT_EQ(err.find(c.warning, at + 1), std::string::npos) << "warns once";
        }
    }
}

// Windows and their canvases: a child draws at its absolute position; the manager's tile lies on
// a grid from the window's origin.
TEST_F(CanvasTest, WindowCanvasesAndTiling)
{
    QApp* a = new QApp("canvastest");
    QWindow* root = new QWindow(nullptr, 0, 0, 20, 14);
    QWindow* child = new QWindow(root, 3, 4, 10, 8);
    EXPECT_EQ(child->GetCanvas()->GetDrawable(), root);
    EXPECT_EQ(child->GetCanvas()->GetOriginX() * 100 + child->GetCanvas()->GetOriginY(), 304);
    root->Move(5, 6, false);
    child->Reposition(false);
    EXPECT_EQ(child->GetCanvas()->GetOriginX() * 100 + child->GetCanvas()->GetOriginY(), 810);

    QBitMap tile(32, 8, 6, 0), target(32, 20, 14, 0);
    Paint(&tile);
    a->wm->SetBackground(&tile);
    QCanvas* cv = root->GetCanvas();
    cv->SetOrigin(0, 0);
    cv->SetBitmap(&target);
    cv->SetFlags(QCV_BITMAP);
    QRect part(5, 3, 12, 9);
    a->wm->PaintBackground(root, &part);
    EXPECT_EQ(Diff(target, [&](int x, int y) { return In(x, y, part) ? Px(tile, x % 8, y % 6) : 0u; }, false), "");
    root->PaintBackground();
    EXPECT_EQ(Diff(target, [&](int x, int y) { return Px(tile, x % 8, y % 6); }, false), "");
    delete child;
    delete root;
    delete a;
}

// ---- drawn into a window and read back ----

class CanvasWindowTest : public test::XServerTest {
protected:
    static const int W = 64, H = 48;
    void SetUp() override
    {
        test::XServerTest::SetUp();
        if (IsSkipped()) return;
        new QApp("canvaswin");
        win = new QWindow(nullptr, 0, 0, W, H);
        app->bc = win;
        win->SetFlags(QWF_X);
        ASSERT_TRUE(win->Create());
        cv = win->GetCanvas();
        ASSERT_NE(cv->GetGLContext(), nullptr);
    }
    void TearDown() override { delete app; }

    void Clear(uint32_t rgba)
    {
        cv->Select();
        glClearColor((rgba >> 24) / 255.0f, (rgba >> 16 & 255) / 255.0f, (rgba >> 8 & 255) / 255.0f,
                     (rgba & 255) / 255.0f);
        glClear(GL_COLOR_BUFFER_BIT);
    }
    void Read(QBitMap* bm)
    {
        glReadBuffer(GL_BACK);
        cv->ReadPixels(bm, 0, 0, -1, -1, 0, 0);
    }

    QWindow* win = nullptr; // owned by the application, as its bc
    QCanvas* cv = nullptr;
};

TEST_F(CanvasWindowTest, FillRectFlagsAndEdges)
{
    struct Case {
        uint32_t flags;
        QRect rect, drawn;
    } cases[] = {
        {0, {5, 6, 10, 7}, {5, 6, 10, 7}},
        {QCV_CLIP, {2, 3, 10, 10}, {8, 8, 4, 5}}, // clip 8, 8, 20, 20
        {QCV_CLIP, {30, 26, 10, 10}, {30, 26, 0, 0}}, // clip 8..27: below it
        {QCV_CLIP, {9, 9, 0, 5}, {0, 0, 0, 0}},
        {0, {10, 40, 5, 20}, {10, 40, 5, 8}},     // bottom edge cut at the window's
        {QCV_YUP, {5, 20, 10, 6}, {5, H - 1 - 18, 10, 6}}, // GL rows 13..18
    };
    for (const Case& c : cases) {
        Clear(0x000000FF);
        cv->ClearFlags(~0u);
        cv->SetFlags(c.flags);
        cv->SetClip(QRect(8, 8, 20, 20));
        cv->SetColor(200, 100, 50, 255);
        QRect r = c.rect;
        cv->FillRect(&r);
        QBitMap bm(32, W, H, 0);
        Read(&bm);
        EXPECT_EQ(Diff(bm, [&](int x, int y) { return In(x, y, c.drawn) ? 0xC86432FFu : 0x000000FFu; }), "")
            << c.flags << " " << c.rect.x << "," << c.rect.y;
    }
    // The cut bottom edge carries the bottom colours: the last row is nearly white, not grey.
    Clear(0x000000FF);
    cv->ClearFlags(~0u);
    QColor dark(0, 0, 0, 255), light(240, 240, 240, 255);
    QRect r(0, H - 8, W, 16);
    cv->FillRect(&r, &dark, &dark, &light, &light);
    QBitMap bm(32, W, H, 0);
    Read(&bm);
    EXPECT_GT(Px(bm, 5, H - 1) >> 24, 200u);
}

TEST_F(CanvasWindowTest, BlendModesOnKnownColours)
{
    struct Case {
        int mode;
        uint32_t dst, src, want; // alpha of 'want' not compared
    } cases[] = {
        {0, 0x6432C8FF, 0xC8640033, 0xC8640000},
        {1, 0x6432C8FF, 0xC8640033, 0x783CA000}, // 200*.2+100*.8, 100*.2+50*.8, 200*.8
        {2, 0x6432C8FF, 0xC8640033, 0x78465000}, // constant (.2, .4, .6): per channel
        {3, 0x6432C8FF, 0x14640033, 0x648CA000}, // src + dst*.8
        {4, 0x6432C899, 0xC8640033, 0x8C46C800}, // min(.2, 1-.6) * src + dst
        {1, 0x6432C8FF, 0xC8640033, 0x783CA000}, // back from 4: the function follows
    };
    for (const Case& c : cases) {
        Clear(c.dst);
        cv->SetBlendMode(c.mode);
        cv->SetBackground(0x336699FF);
        cv->SetColor(int(c.src >> 24), int(c.src >> 16 & 255), int(c.src >> 8 & 255), int(c.src & 255));
        cv->FillRect(0, 0, W, H);
        QBitMap bm(32, W, H, 0);
        Read(&bm);
        EXPECT_EQ(Px(bm, 7, 9) & 0xFFFFFF00u, c.want) << "mode " << c.mode;
    }
}

TEST_F(CanvasWindowTest, FramesLinesPointsAndTriangles)
{
    const uint32_t black = 0x000000FF, pale = 0x8BC9DBFF, red = 0xFF0000FF;
    QBitMap bm(32, W, H, 0);
    Clear(black);
    cv->Outline(4, 5, 10, 8);
    EXPECT_EQ(cv->GetColor()->GetRGBA(), pale);
    Read(&bm);
    EXPECT_EQ(Diff(bm, [&](int x, int y) {
        return In(x, y, QRect(4, 5, 10, 8)) && !In(x, y, QRect(5, 6, 8, 6)) ? pale : black;
    }), "");

    // Lines and points: inner pixels exact, the two end pixels of a line may go either way. A
    // line's vertices lie on the edge between two rows (columns for a vertical one); the driver
    // may give it either, the one below (left) of the edge or the one above (right).
    Clear(black);
    cv->SetColor(PX_RED, -1);
    cv->Line(5, 10, 20, 10);
    cv->Line(30, 3, 30, 12);
    cv->Plot(40, 20, 1);
    Read(&bm);
    int col = Px(bm, 30, 7) == red ? 30 : 29, row = Px(bm, 12, 10) == red ? 10 : 11;
    const int ends[][2] = {{5, row}, {20, row}, {col, 3}, {col, 12}};
    EXPECT_EQ(Diff(bm, [&](int x, int y) {
        for (const auto& e : ends)
            if (x == e[0] && y == e[1]) return Px(bm, x, y);
        bool on = (y == row && x > 5 && x < 20) || (x == col && y > 3 && y < 12) || (x == 40 && y == 20);
        return on ? red : black;
    }), "");

    Clear(0x808080FF);
    QColor green(0, 255, 0, 255);
    cv->FillTriangle(10, 10, 40, 10, 10, 40, &green, &green, &green);
    cv->FillTriangle(50, 30, 60, 30, 50, 40, nullptr, nullptr, nullptr); // no colour: black
    Read(&bm);
    EXPECT_EQ(Px(bm, 15, 15), 0x00FF00FFu);
    EXPECT_EQ(Px(bm, 35, 35), 0x808080FFu);
    EXPECT_EQ(Px(bm, 52, 32), 0x000000FFu);
}

TEST_F(CanvasWindowTest, DrawPixelsQueueAndReadBack)
{
    QBitMap source(32, 8, 6, 0);
    Paint(&source);
    struct Case {
        int x, y, wid, hgt, sx, sy;
        uint32_t flags;
        QRect at;
        int shiftX, shiftY;
    } cases[] = {
        {10, 12, -1, -1, -1, -1, 0, {10, 12, 8, 6}, 0, 0},
        {10, 12, 4, 3, 2, 1, 0, {10, 12, 4, 3}, 2, 1},
        {-3, 5, -1, -1, 0, 0, 0, {0, 5, 5, 6}, 3, 0},        // the raster move left of the window
        {-3, 5, -1, -1, 0, 0, QCV_CLIP, {0, 5, 5, 6}, 3, 0}, // sx moved by the clip
        {20, H - 2, -1, -1, 0, 0, 0, {20, H - 2, 8, 2}, 0, 0}, // below the bottom
        {30, 20, -1, -1, 0, 0, QCV_QUEUE, {30, 20, 8, 6}, 0, 0},
    };
    for (const Case& c : cases) {
        Clear(0x000000FF);
        cv->ClearFlags(~0u);
        cv->SetFlags(c.flags);
        cv->SetClip(QRect(0, 0, W, H));
        cv->DrawPixels(&source, c.x, c.y, c.wid, c.hgt, c.sx, c.sy, 0);
        cv->Flush();
        if (c.flags & QCV_QUEUE) {
            EXPECT_EQ(cv->GetQueue()->numEntries, 0);
        }
        QBitMap bm(32, W, H, 0);
        Read(&bm);
        EXPECT_EQ(Diff(bm, [&](int x, int y) {
            return In(x, y, c.at) ? Px(source, x - c.at.x + c.shiftX, y - c.at.y + c.shiftY) : 0x000000FFu;
        }), "") << c.x << "," << c.y << " flags " << c.flags;
    }
    // A part of the window into a place of a bitmap: 4x3 from 11, 13 to column 2, row 1.
    Clear(0x000000FF);
    cv->ClearFlags(~0u);
    cv->DrawPixels(&source, 10, 12, -1, -1, 0, 0, 0);
    QBitMap part(32, 8, 6, 0);
    glReadBuffer(GL_BACK);
    cv->ReadPixels(&part, 11, 13, 4, 3, 2, 1);
    EXPECT_EQ(Diff(part, [&](int x, int y) {
        return In(x, y, QRect(2, 1, 4, 3)) ? Px(source, x - 1, y) : 0u;
    }, false), "");
}

// A real F11: the picture on disk is what was in the back buffer before the swap, opaque.
TEST_F(CanvasWindowTest, F11PhotographsWhatWasSwapped)
{
    test::TempDir shots;
    app->screenshotDir = shots.Path().c_str();
    Clear(0x102030FF);
    QBitMap tile(32, 8, 6, 0);
    Paint(&tile);
    cv->SetColor(250, 20, 90, 255);
    cv->FillRect(3, 4, 20, 10);
    cv->DrawPixels(&tile, 40, 30, -1, -1, 0, 0, 0);
    QBitMap before(32, W, H, 0);
    Read(&before);
    win->GetXWindow()->Swap();

    PlatformWindowFocus(win->GetXWindow()->GetPlatformWindow());
    test::RunResult r = test::RunCommand("xdotool key F11", "/");
    ASSERT_EQ(r.exitCode, 0) << r.err;
    std::string file = shots.File("bc00001.tga");
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!test::FileExists(file) && std::chrono::steady_clock::now() < end)
        if (app->Run1() == 2) PlatformWaitMessage(50);
    // Targa rows bottom-up as in the bitmap, blue, green, red, alpha.
    std::string want;
    for (int i = 0; i < W * H; i++) {
        const uint8_t* p = before.GetMemory() + i * 4;
        want += {char(p[2]), char(p[1]), char(p[0]), char(0xFF)};
    }
    std::string tga = test::ReadFile(file);
    ASSERT_EQ(tga.size(), 18u + W * H * 4);
    EXPECT_TRUE(tga.substr(18) == want);
}

} // namespace
} // namespace tarvik
