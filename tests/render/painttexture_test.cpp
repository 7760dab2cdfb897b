// Windows painted with a render texture through the toolkit's texture hooks: the cells of a grid,
// the dimmed alpha, the pressed offset and the stretched part, drawn under a private X server and
// read back pixel by pixel; the reports of a window that has nothing to paint.
#include "toolkit/glext.h" // first of the OpenGL headers

#include "foundation/qmessage.h"
#include "images/qbitmap.h"
#include "render/dglobal.h"
#include "render/dtexture.h"
#include "tests/render/rendertest.h"
#include "tests/support/testsupport.h"
#include "tests/toolkit/xserver.h"
#include "toolkit/qapp.h"
#include "toolkit/qcanvas.h"
#include "toolkit/qtexhooks.h"
#include "toolkit/qwindow.h"

#include <cmath>
#include <functional>
#include <string>

namespace tarvik {
namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

const int W = 64, H = 48;         // the shell
const int TEX = 64;               // the texture is TEX x TEX, cells 32 x 16 along its top edge
const uint32_t bg = 0x1E3C50FFu;  // what the shell is cleared to

// Every texel differs from its neighbours: column c, row m counted from the picture's bottom.
uint32_t Texel(int c, int m) { return uint32_t(c * 3 + 2) << 24 | uint32_t(m * 3 + 5) << 16 | 90u << 8 | 255u; }

uint32_t Blend(uint32_t src, uint32_t dst, float a)
{
    uint32_t out = 0xFF;
    for (int shift = 8; shift <= 24; shift += 8)
        out |= uint32_t(std::lround(a * float(src >> shift & 255) + (1 - a) * float(dst >> shift & 255))) << shift;
    return out;
}

class PaintTextureTest : public test::XServerTest {
protected:
    void SetUp() override
    {
        test::XServerTest::SetUp();
        if (IsSkipped()) return;
        d3FreeDGlobal();
        CaptureStderr();
        new QApp("painttex");
        app->shell = new QWindow(nullptr, 0, 0, W, H);
        app->shell->SetFlags(QWF_X);
        bool made = app->shell->Create();
        win = new QWindow(app->shell, 10, 8, 32, 16);
        made = made && win->Create();
        d3GetDGlobal();
        QBitMap bm(32, TEX, TEX, 0);
        for (int m = 0; m < TEX; m++)
            for (int c = 0; c < TEX; c++) {
                uint32_t v = Texel(c, m);
                uint8_t* p = bm.GetAddress(c, m);
                p[0] = uint8_t(v >> 24), p[1] = uint8_t(v >> 16), p[2] = uint8_t(v >> 8), p[3] = uint8_t(v);
            }
        tex = new DBitMapTexture;
        tex->EnableMipmap(false);
        tex->FromBitMap(&bm);
        std::string err = GetCapturedStderr();
        ASSERT_TRUE(made) << err;
        ASSERT_NE(tex->GetID(), 0u) << err;
        tex->Select();
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST); // every texel exactly
        tex->SetWrap(GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE, GL_REPEAT, GL_REPEAT);
    }
    void TearDown() override
    {
        if (!app) return;
        CaptureStderr();
        if (tex && tex->Detach()) delete tex;
        delete win;
        d3FreeDGlobal();
        delete app;
        GetCapturedStderr();
    }

    // Clears the shell, runs 'paint', and names the first pixel that is not want(x, y) within
    // 'tolerance' per channel; "" when all are.
    std::string Check(const std::function<void()>& paint, const std::function<uint32_t(int, int)>& want, int tolerance)
    {
        QCanvas* cv = app->shell->GetCanvas();
        cv->Select();
        glClearColor((bg >> 24) / 255.0f, (bg >> 16 & 255) / 255.0f, (bg >> 8 & 255) / 255.0f, 1);
        glClear(GL_COLOR_BUFFER_BIT);
        paint();
        QBitMap bm(32, W, H, 0);
        glReadBuffer(GL_BACK);
        cv->ReadPixels(&bm, 0, 0, -1, -1, 0, 0);
        for (int y = 0; y < H; y++)
            for (int x = 0; x < W; x++) {
                const uint8_t* p = bm.GetAddress(x, H - 1 - y);
                uint32_t w = want(x, y);
                for (int i = 0; i < 3; i++)
                    if (std::abs(int(p[i]) - int(w >> (24 - 8 * i) & 255)) > tolerance)
                        return std::to_string(x) + "," + std::to_string(y) + " channel " + std::to_string(i) +
                               ": " + std::to_string(p[i]) + " want " + std::to_string(w >> (24 - 8 * i) & 255);
            }
        return "";
    }

    QWindow* win = nullptr;       // a 32 x 16 child of the shell at (10, 8)
    DBitMapTexture* tex = nullptr;
};

TEST_F(PaintTextureTest, CellsAlphaAndOffsets)
{
    QWindow dialog(nullptr, 0, 0, 1, 1);
    dialog.SetFlags(QWF_DISABLED);
    struct Case {
        int frame, offX, offY;
        uint32_t flags;
        QWindow* group;
        float alpha;
    } cases[] = {
        {0, 0, 0, 0, nullptr, 0.95f},
        {1, 0, 0, 0, nullptr, 0.95f},
        {1, 1, 1, 0, nullptr, 0.95f},              // a pressed button's shift
        {0, 0, 0, QWF_DISABLED, nullptr, 0.3f},
        {1, 0, 0, 0, &dialog, 0.3f},               // in a disabled dialog
    };
    win->tex = tex;
    win->texGrid = QRect(0, 0, 32, 16);
    for (const Case& c : cases) {
        win->texFrame = c.frame, win->texOffX = c.offX, win->texOffY = c.offY;
        win->ClearFlags(QWF_DISABLED);
        win->SetFlags(c.flags);
        win->group = c.group;
        // The quad's rows come out one lower than the window's: y turns with the shell's height - 1.
        int left = win->x + c.offX, top = win->y + c.offY + 1;
        auto want = [&](int x, int y) {
            if (x < left || x >= left + 32 || y < top || y >= top + 16) return bg;
            return Blend(Texel(c.frame * 32 + x - left, TEX - 1 - (y - top)), bg, c.alpha);
        };
        EXPECT_EQ(Check([&] { win->PaintTexture(); }, want, 1), "") << "frame " << c.frame << " alpha " << c.alpha;
    }
    win->group = nullptr;
    EXPECT_EQ(tex->GetWrapS() * 10 + tex->GetWrapT(), GL_REPEAT * 11u);
}

TEST_F(PaintTextureTest, StretchedPartReplacesThePixels)
{
    struct Case {
        QRect src;
        bool toDst;
        QRect dst;
    } cases[] = {
        {{8, 40, 4, 3}, true, {2, 3, 8, 6}}, // twice the size, at (12, 11) in the shell
        {{5, 9, 32, 16}, false, {}},         // the whole window, one texel a pixel
    };
    for (const Case& c : cases) {
        QRect to = c.toDst ? QRect(c.dst.x + win->x, c.dst.y + win->y, c.dst.wid, c.dst.hgt)
                           : QRect(win->x, win->y, win->wid, win->hgt);
        auto want = [&](int x, int y) {
            if (!to.Contains(x, y)) return bg;
            // Texel rows count down the quad from src.y.
            return Texel(c.src.x + (2 * (x - to.x) + 1) * c.src.wid / (2 * to.wid),
                         c.src.y + (2 * (y - to.y) + 1) * c.src.hgt / (2 * to.hgt));
        };
        QRect src = c.src, dst = c.dst;
        EXPECT_EQ(Check([&] { win->PaintTextureStretched(tex, &src, c.toDst ? &dst : nullptr); }, want, 0), "")
            << c.src.x << "," << c.src.y;
    }
    GLint mode = 0;
    glGetTexEnviv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, &mode);
    EXPECT_EQ(mode, GL_REPLACE);
}

// Without a display: nothing here reaches OpenGL.
TEST(PaintTextureReportTest, NothingToPaint)
{
    test::TempDir dir(true); // the warnings' QLOG.txt
    qmsgReset();
    QWindow w(nullptr, 0, 0, 20, 10);
    // Never looked into: the toolkit can't, and without hooks it doesn't ask.
    DTexture* opaque = reinterpret_cast<DTexture*>(&w);
    const QTextureHooks* saved = qtextureHooks;
    qtextureHooks = nullptr;

    CaptureStderr();
    w.PaintTexture();
    w.tex = opaque;
    w.PaintTexture();
    w.texGrid = QRect(0, 0, 10, 10);
    w.PaintTexture();
    w.PaintTextureStretched(nullptr, nullptr, nullptr);
    w.PaintTexture(); // said once only, though other reports came between
    w.PaintTextureStretched(opaque, nullptr, nullptr);
    std::string err = GetCapturedStderr();
    qtextureHooks = saved;

    EXPECT_EQ(err, "QWindow:PaintTexture(); no texture\n"
                   "QWindow:PaintTexture(); texGrid.wid=0\n"
                   "QWindow:PaintTexture(); no texture support in this program\n"
                   "QWindow:PaintTexture(); no texture\n");
}

} // namespace
} // namespace tarvik
