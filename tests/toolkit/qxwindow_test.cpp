// Native OpenGL windows under a private X server: the creation sequence with its reports, the
// context's pixels read back, shared textures, full-screen fall-backs, and what outside tools see.
#include "toolkit/glext.h" // first of the OpenGL headers

#include "platform/platform_window.h"
#include "tests/support/testsupport.h"
#include "tests/toolkit/xserver.h"
#include "toolkit/qapp.h"
#include "toolkit/qglcontext.h"
#include "toolkit/qwindow.h"
#include "toolkit/qxwindow.h"

#include <cstdlib>
#include <set>
#include <sstream>
#include <string>

namespace tarvik {
namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

class QXWindowTest : public test::XServerTest {
protected:
    void SetUp() override
    {
        test::XServerTest::SetUp();
        if (IsSkipped()) return;
        new QApp("xwintest");
    }
    void TearDown() override { delete app; } // and the shell with it

    // An X window of the application, with what its creation reported.
    QWindow* Make(int w, int h, uint32_t flags = 0, std::string* err = nullptr)
    {
        QWindow* win = new QWindow(nullptr, 20, 30, w, h);
        win->SetFlags(QWF_X | flags);
        CaptureStderr();
        EXPECT_TRUE(win->Create());
        std::string e = GetCapturedStderr();
        if (err) *err = e;
        return win;
    }

    // Clears the window's back buffer to red, green, blue (0..255) through its context and reads
    // the middle back as 0xRRGGBB.
    static uint32_t ClearAndRead(QXWindow* xw, int r, int g, int b)
    {
        QGLContext* c = xw->GetContext();
        c->Select();
        glClearColor(r / 255.0f, g / 255.0f, b / 255.0f, 1);
        c->Clear(GL_COLOR_BUFFER_BIT);
        glReadBuffer(GL_BACK);
        unsigned char p[4] = {};
        glReadPixels(xw->GetWidth() / 2, xw->GetHeight() / 2, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, p);
        return uint32_t(p[0] << 16 | p[1] << 8 | p[2]);
    }

    // The middle of the window as the display shows it, as 0xRRGGBB; the software driver keeps no
    // front buffer of its own to read back, so the display is asked.
    static uint32_t ShownPixel(QXWindow* xw)
    {
        PlatformSync();
        std::string id = std::to_string(PlatformWindowId(xw->GetPlatformWindow()));
        std::string crop = "1x1+" + std::to_string(xw->GetWidth() / 2) + "+" + std::to_string(xw->GetHeight() / 2);
        test::RunResult r = test::RunCommand("import -window " + id + " -crop " + crop + " txt:-", "/");
        // "0,0: (8224,32896,49344)  #20208080C0C0  srgb(32,128,192)": 16 bits a channel
        size_t at = r.out.find("0,0:");
        at = at == std::string::npos ? at : r.out.find('#', at);
        if (at == std::string::npos || r.out.size() < at + 13) return 0xFFFFFFFF;
        std::string hex = r.out.substr(at + 1, 12);
        return uint32_t(std::strtoul((hex.substr(0, 2) + hex.substr(4, 2) + hex.substr(8, 2)).c_str(), nullptr, 16));
    }

    test::TempDir dir{true}; // the warnings' QLOG.txt
};

TEST_F(QXWindowTest, ShellClearsThroughItsContextAndIsSetUpFor2D)
{
    app->shell = Make(61, 47);
    QXWindow* xw = app->shell->GetXWindow();
    ASSERT_NE(xw->GetContext()->GetNative(), nullptr);
    EXPECT_EQ(QGLContext::GetCurrent(), xw->GetContext());
    for (uint32_t rgb : {0x2080C0u, 0xF01000u}) {
        EXPECT_EQ(ClearAndRead(xw, rgb >> 16, rgb >> 8 & 0xFF, rgb & 0xFF), rgb);
        xw->Swap();
        EXPECT_EQ(ShownPixel(xw), rgb);
    }
    GLint viewport[4], drawBuffer = 0;
    glGetIntegerv(GL_VIEWPORT, viewport);
    glGetIntegerv(GL_DRAW_BUFFER, &drawBuffer);
    EXPECT_EQ(viewport[2] * 1000 + viewport[3], 61047);
    EXPECT_EQ(drawBuffer, GL_BACK);
    // The ortho matrix stands on the model view: pixel (60, 46) lands at the top right corner.
    GLfloat m[16];
    glGetFloatv(GL_MODELVIEW_MATRIX, m);
    EXPECT_FLOAT_EQ(m[0] * 60 + m[12], 60.0f / 61 * 2 - 1);
    EXPECT_FLOAT_EQ(m[5] * 46 + m[13], 46.0f / 47 * 2 - 1);
}

TEST_F(QXWindowTest, HeightZeroHasViewportHeightOne)
{
    app->shell = Make(50, 0);
    GLint viewport[4];
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_EQ(viewport[2] * 1000 + viewport[3], 50001);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR)); // no empty projection either
}

TEST_F(QXWindowTest, SecondWindowSharesTexturesWithTheShellOnly)
{
    for (bool viaShell : {true, false}) {
        QWindow* first = Make(40, 30);
        if (viaShell) app->shell = first;
        first->GetXWindow()->GetContext()->Select();
        GLuint tex = 0;
        glGenTextures(1, &tex);
        glBindTexture(GL_TEXTURE_2D, tex); // a name becomes a texture when first bound
        QWindow* second = Make(40, 30);
        second->GetXWindow()->GetContext()->Select();
        EXPECT_EQ(glIsTexture(tex), viaShell ? GL_TRUE : GL_FALSE) << viaShell;
        delete second;
        app->shell = nullptr;
        delete first;
    }
}

TEST_F(QXWindowTest, DebugSwitchRoutesDriverMessagesToTheLog)
{
    app->shell = Make(16, 16); // resolves the debug entry point
    if (!gll::glDebugMessageCallbackARB) GTEST_SKIP() << "the driver has no debug output";
    for (bool on : {false, true}) {
        QGLSetDebug(on);
        QWindow* win = Make(16, 16); // its first Select installs the callback, or not
        CaptureStderr();
        glEnable(0x1234);
        std::string err = GetCapturedStderr();
        EXPECT_EQ(err.find("type Error, severity High]") != std::string::npos, on) << err;
        delete win;
    }
    QGLSetDebug(false);
}

TEST_F(QXWindowTest, SurfaceReports)
{
    // Fragments of the lines, in order; the numbers of the chosen format are the server's.
    const char* chosen = ": 24 color bits, 24 depthbuffer bits, 0 stencil bits, 8 alpha, stereo: 0.\n";
    const char* software = ") uses software rendering; will be slow!\n";
    struct Case {
        uint32_t gfxFlags;
        int depthBits;
        std::vector<const char*> lines;
        bool drawn;
    } cases[] = {
        {0, 24, {chosen, software}, true},
        {QAPP_GFX_STEREO, 24,
         {"Quad-buffered stereo enabled - PFD_STEREO flag set",
          "Requested STEREO (quadbuffered) but no suitable pixelformat present", chosen, software},
         true},
        {0, 99,
         {"(QXWindow) ChoosePixelFormat() failed",
          "QGLContext(); wglCreateContext() failed to create OpenGL context; does not look good!"},
         false},
    };
    for (const Case& c : cases) {
        app->gfxFlags = c.gfxFlags;
        app->gfxDepthBits = c.depthBits;
        std::string err;
        QWindow* win = Make(33, 22, 0, &err);
        size_t at = 0;
        for (const char* line : c.lines) {
            at = err.find(line, at);
            EXPECT_NE(at, std::string::npos) << line << " in\n" << err;
            if (at == std::string::npos) break;
        }
        EXPECT_EQ(err.find("Pixel format (") != std::string::npos, c.drawn) << err;
        QXWindow* xw = win->GetXWindow();
        EXPECT_NE(PlatformWindowId(xw->GetPlatformWindow()), 0u); // the window stands either way
        if (c.drawn) {
            EXPECT_EQ(ClearAndRead(xw, 1, 2, 3), 0x010203u);
        }
        delete win;
    }
}

TEST_F(QXWindowTest, FullScreenFallsBackWithoutFrequencyThenWithoutMode)
{
    // The server has its one mode of 1024 x 768 with no refresh rate to tell.
    struct Case {
        int width, height, refresh;
        const char* warning;
        const char* error;
    } cases[] = {
        {1024, 768, 75, "QXWindow: Can't set fullscreen mode 1024x768x32@75", nullptr},
        {1024, 768, 0, nullptr, nullptr},
        {800, 600, 0, nullptr, "QXWindow: Can't set fullscreen mode 800x600x32 even without setting the frequency"},
        {800, 600, 60, "QXWindow: Can't set fullscreen mode 800x600x32@60",
         "QXWindow: Can't set fullscreen mode 800x600x32 even without setting the frequency"},
    };
    for (const Case& c : cases) {
        app->gfxWidth = c.width, app->gfxHeight = c.height, app->gfxRefresh = c.refresh;
        std::string err;
        QWindow* win = Make(c.width, c.height, QWF_FULLSCREEN, &err);
        SCOPED_TRACE(err);
        EXPECT_EQ(err.find("QXWindow: Can't get the display settings"), std::string::npos);
        EXPECT_EQ(err.find("QXWindow: Can't set fullscreen mode") != std::string::npos, c.warning || c.error);
        if (c.warning) {
            EXPECT_NE(err.find(std::string(c.warning) + "\n"), std::string::npos);
        }
        if (c.error) {
            EXPECT_NE(err.find(c.error), std::string::npos);
        }
        EXPECT_EQ(ClearAndRead(win->GetXWindow(), 9, 8, 7), 0x090807u);
        delete win;
        int w = 0, h = 0;
        PlatformDisplaySize(&w, &h);
        EXPECT_EQ(w * 10000 + h, 1024 * 10000 + 768); // the desktop's mode, whatever happened
    }
}

TEST_F(QXWindowTest, OutsideToolsSeeClassAndSizeHints)
{
    for (bool fixed : {false, true}) {
        QXWindow xw(nullptr, 10, 10, 90, 70);
        if (fixed) xw.SetFlags(QXWF_NO_SIZING);
        CaptureStderr();
        ASSERT_TRUE(xw.Create());
        GetCapturedStderr();
        PlatformSync();
        std::string id = std::to_string(PlatformWindowId(xw.GetPlatformWindow()));
        test::RunResult r = test::RunCommand("xprop -id " + id + " WM_CLASS WM_NORMAL_HINTS", "/");
        ASSERT_EQ(r.exitCode, 0) << r.err;
        EXPECT_NE(r.out.find(", \"OpenGL\"\n"), std::string::npos) << r.out;
        EXPECT_EQ(r.out.find("minimum size: 90 by 70") != std::string::npos, fixed) << r.out;
        EXPECT_EQ(r.out.find("maximum size: 90 by 70") != std::string::npos, fixed) << r.out;
    }
}

// The compatibility profile's list as the display's own information tool prints it.
std::set<std::string> ToolExtensions()
{
    test::RunResult r = test::RunCommand("glxinfo", "/");
    std::string out = r.out;
    size_t at = out.find("OpenGL version string:");
    at = at == std::string::npos ? at : out.find("OpenGL extensions:", at);
    std::set<std::string> names;
    if (at == std::string::npos) return names;
    size_t end = out.find("\n\n", at);
    std::istringstream words(out.substr(at, end == std::string::npos ? end : end - at));
    for (std::string w; words >> w;) {
        if (w.back() == ',') w.pop_back();
        if (w.compare(0, 3, "GL_") == 0) names.insert(w);
    }
    return names;
}

TEST_F(QXWindowTest, ExtensionBitsAgreeWithTheDisplaysTool)
{
    std::set<std::string> listed = ToolExtensions();
    if (listed.empty()) GTEST_SKIP() << "glxinfo gave no extension list";
    app->shell = Make(16, 16);
    GLLExtensionManager* ext = app->shell->GetXWindow()->GetContext()->GetExtensions();
    ASSERT_TRUE(ext->GetState() & GLLS_CHECKED);
    struct Case {
        const char* name;
        uint32_t bit;
    } cases[] = {
        {"GL_ARB_multitexture", GLL_MULTITEXTURE},
        {"GL_ARB_vertex_buffer_object", GLL_VERTEX_BUFFER_OBJECT},
        {"GL_EXT_framebuffer_object", GLL_FRAMEBUFFER_OBJECT},
        {"GL_EXT_texture_filter_anisotropic", GLL_TEXTURE_FILTER_ANISOTROPIC},
        {"GL_NV_fog_distance", GLL_FOG_DISTANCE},
        {"GL_NV_framebuffer_multisample_coverage", GLL_FRAMEBUFFER_MULTISAMPLE_COVERAGE},
    };
    for (const Case& c : cases)
        EXPECT_EQ(ext->IsSupported(c.bit), listed.count(c.name) == 1) << c.name;
    EXPECT_TRUE(ext->IsSupported(GLL_MULTITEXTURE)); // else the comparison proves little
    EXPECT_NE(gll::glActiveTextureARB, nullptr);
    EXPECT_NE(gll::glCreateShader, nullptr); // the version is 2 or above
}

} // namespace
} // namespace tarvik
