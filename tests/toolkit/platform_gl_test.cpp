// OpenGL surfaces, contexts and display modes of the native window layer under a private X server,
// whose renderer draws in software. Pixels are read back from the buffers and from the window.
#include "platform/platform_window.h"
#include "tests/toolkit/xserver.h"

#include <epoxy/gl.h>

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/Xrandr.h>

#include <cstring>

namespace tarvik {
namespace {

const PlatformSurfaceFormat plainFormat = {24, 8, 24, 8, false};

class PlatformGLTest : public test::XServerTest {
protected:
    void SetUp() override
    {
        test::XServerTest::SetUp();
        if (IsSkipped()) return;
        ASSERT_TRUE(PlatformDisplayOpen(nullptr));
        errors = PlatformDisplayErrorCount();
        other = XOpenDisplay(nullptr);
        ASSERT_NE(other, nullptr);
    }
    void TearDown() override
    {
        if (IsSkipped()) return;
        PlatformDisplayClose(); // destroys the contexts left and restores the display mode
        if (addedMode != None) {
            XRRDeleteOutputMode(other, output, addedMode);
            XRRDestroyMode(other, addedMode);
        }
        if (other) XSync(other, False), XCloseDisplay(other);
        EXPECT_EQ(PlatformDisplayErrorCount(), errors);
    }

    PlatformWindow* MakeWindow(const PlatformSurfaceFormat& format, PlatformSurfaceInfo* info = nullptr)
    {
        return PlatformWindowCreateGL(nullptr, "GL", 20, 30, 65, 47, 0, &format, info);
    }

    // Adds 800 x 600 at 60 Hz to the modes of the server's output.
    bool AddMode()
    {
        XRRScreenResources* res = XRRGetScreenResources(other, DefaultRootWindow(other));
        if (!res || res->noutput < 1) return false;
        output = res->outputs[0];
        XRRFreeScreenResources(res);
        char name[] = "800x600";
        XRRModeInfo info;
        memset(&info, 0, sizeof(info));
        info.width = 800, info.height = 600, info.dotClock = 40000000;
        info.hSyncStart = 840, info.hSyncEnd = 968, info.hTotal = 1056;
        info.vSyncStart = 601, info.vSyncEnd = 605, info.vTotal = 628;
        info.name = name, info.nameLength = 7;
        addedMode = XRRCreateMode(other, DefaultRootWindow(other), &info);
        if (addedMode == None) return false;
        XRRAddOutputMode(other, output, addedMode);
        XSync(other, False);
        return PlatformDisplayErrorCount() == errors;
    }

    // The size of the screen as the server has it now.
    int ServerScreenSize()
    {
        Window root;
        int x, y;
        unsigned w = 0, h = 0, border, depth;
        XGetGeometry(other, DefaultRootWindow(other), &root, &x, &y, &w, &h, &border, &depth);
        return int(w * 10000 + h);
    }

    Display* other = nullptr; // the test's own connection
    int errors = 0;
    RROutput output = None;
    RRMode addedMode = None;
};

// The pixel at 10, 10 of the buffer as 0xRRGGBBAA.
uint32_t ReadPixel(GLenum buffer)
{
    unsigned char p[4] = {};
    glReadBuffer(buffer);
    glReadPixels(10, 10, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, p);
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

TEST_F(PlatformGLTest, ClearedBackBufferReachesTheWindowOnSwap)
{
    PlatformSurfaceInfo info;
    memset(&info, 0xFF, sizeof(info));
    PlatformWindow* window = MakeWindow(plainFormat, &info);
    ASSERT_NE(window, nullptr);
    EXPECT_GT(info.id, 0);
    EXPECT_GE(info.colorBits, 24);
    EXPECT_GE(info.alphaBits, 8);
    EXPECT_GE(info.depthBits, 24);
    EXPECT_GE(info.stencilBits, 8);
    EXPECT_FALSE(info.stereo);
    EXPECT_TRUE(info.software);

    PlatformGLContext* context = PlatformGLContextCreate(window, nullptr);
    ASSERT_NE(context, nullptr);
    ASSERT_TRUE(PlatformGLMakeCurrent(window, context));
    // Through the layer's own resolution, not epoxy's.
    auto clearColor = reinterpret_cast<void (*)(float, float, float, float)>(PlatformGLGetProcAddress("glClearColor"));
    auto clear = reinterpret_cast<void (*)(GLbitfield)>(PlatformGLGetProcAddress("glClear"));
    ASSERT_TRUE(clearColor && clear);
    clearColor(0.2f, 0.4f, 0.6f, 1.0f);
    clear(GL_COLOR_BUFFER_BIT);
    EXPECT_EQ(ReadPixel(GL_BACK), 0x336699FFu);

    PlatformGLSwap(window);
    clearColor(1.0f, 0.0f, 0.0f, 1.0f);
    clear(GL_COLOR_BUFFER_BIT);
    EXPECT_EQ(ReadPixel(GL_BACK), 0xFF0000FFu);
    // The software renderer shows the front buffer in the window and keeps no copy that GL reads
    // back: the window's own pixels tell what the swap showed.
    glFinish();
    PlatformSync();
    XImage* image = XGetImage(other, PlatformWindowId(window), 10, 10, 1, 1, AllPlanes, ZPixmap);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(XGetPixel(image, 0, 0) & 0xFFFFFF, 0x336699u);
    XDestroyImage(image);

    // A window that goes takes the context off itself first.
    auto currentContext = reinterpret_cast<void* (*)()>(PlatformGLGetProcAddress("glXGetCurrentContext"));
    ASSERT_TRUE(currentContext);
    EXPECT_NE(currentContext(), nullptr);
    PlatformWindowDestroy(window);
    EXPECT_EQ(currentContext(), nullptr);
    EXPECT_TRUE(PlatformGLMakeCurrent(nullptr, nullptr));
    PlatformGLContextDestroy(context);
}

TEST_F(PlatformGLTest, SharedContextsSeeEachOthersTextures)
{
    PlatformWindow* window = MakeWindow(plainFormat);
    ASSERT_NE(window, nullptr);
    PlatformGLContext* first = PlatformGLContextCreate(window, nullptr);
    PlatformGLContext* shared = PlatformGLContextCreate(window, first);
    PlatformGLContext* alone = PlatformGLContextCreate(window, nullptr);
    ASSERT_TRUE(first && shared && alone);

    ASSERT_TRUE(PlatformGLMakeCurrent(window, first));
    GLuint texture = 0;
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture); // a name becomes a texture when first bound
    glFinish();
    ASSERT_TRUE(PlatformGLMakeCurrent(window, shared));
    EXPECT_TRUE(glIsTexture(texture));
    ASSERT_TRUE(PlatformGLMakeCurrent(window, alone));
    EXPECT_FALSE(glIsTexture(texture));
    PlatformGLContextDestroy(alone); // released first
    auto currentContext = reinterpret_cast<void* (*)()>(PlatformGLGetProcAddress("glXGetCurrentContext"));
    ASSERT_TRUE(currentContext);
    EXPECT_EQ(currentContext(), nullptr);
    ASSERT_TRUE(PlatformGLMakeCurrent(window, first));
    // The two left, one of them current, go with the display.
}

TEST_F(PlatformGLTest, SurfaceIsTheClosestConfigurationOrNone)
{
    struct Case {
        PlatformSurfaceFormat format;
        bool made;
    } cases[] = {
        {{24, 0, 16, 0, true}, true}, // no stereo in software: made without it
        {{24, 0, 0, 0, false}, true},
        {{32, 8, 24, 8, false}, true},
        {{24, 0, 64, 0, false}, false},
        {{24, 0, 0, 64, false}, false},
    };
    for (const Case& c : cases) {
        PlatformSurfaceInfo info;
        memset(&info, 0, sizeof(info));
        info.stereo = true;
        PlatformWindow* window = MakeWindow(c.format, &info);
        EXPECT_EQ(window != nullptr, c.made) << c.format.depthBits << " " << c.format.stencilBits;
        if (!window) continue;
        EXPECT_FALSE(info.stereo);
        EXPECT_GE(info.colorBits, 24);
        EXPECT_GE(info.alphaBits, c.format.alphaBits);
        EXPECT_GE(info.depthBits, c.format.depthBits);
        PlatformWindowDestroy(window);
    }
    PlatformWindow* plain = PlatformWindowCreate(nullptr, "plain", 0, 0, 10, 10, 0);
    ASSERT_NE(plain, nullptr);
    EXPECT_EQ(PlatformGLContextCreate(plain, nullptr), nullptr);
    EXPECT_EQ(PlatformGLGetProcAddress(""), nullptr);
    EXPECT_EQ(PlatformGLGetProcAddress(nullptr), nullptr);
}

TEST_F(PlatformGLTest, ModesOfTheServerAsStarted)
{
    PlatformDisplayMode now;
    ASSERT_TRUE(PlatformGetDisplayMode(&now));
    EXPECT_EQ(now.width * 10000 + now.height, 10240768);
    EXPECT_EQ(now.bits, 24);

    struct Case {
        PlatformDisplayMode mode;
        bool useRefresh, set;
    } cases[] = {
        {{1024, 768, 24, 0}, false, true},   {{1024, 768, 32, 0}, false, true},
        {{1024, 768, 16, 0}, false, false},  {{640, 480, 24, 0}, false, false},
        {{800, 600, 24, 60}, true, false},   {{1024, 768, 24, 75}, true, false},
        {{1024, 768, 24, 75}, false, true},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(PlatformSetDisplayMode(&c.mode, c.useRefresh), c.set) << c.mode.width << " " << c.mode.bits;
        EXPECT_EQ(ServerScreenSize(), 10240768);
    }
}

TEST_F(PlatformGLTest, AddedModeIsSetAndTheDesktopsComesBack)
{
    if (!AddMode()) GTEST_SKIP() << "the server takes no new modes";
    PlatformDisplayMode small = {800, 600, 24, 60}, smallFast = {800, 600, 24, 75}, desktop = {1024, 768, 24, 0};
    ASSERT_TRUE(PlatformSetDisplayMode(&small, true));
    PlatformDisplayMode now;
    ASSERT_TRUE(PlatformGetDisplayMode(&now));
    EXPECT_EQ(now.width * 10000 + now.height, 8000600);
    EXPECT_EQ(now.refresh, 60);
    EXPECT_EQ(ServerScreenSize(), 8000600);
    int width = 0, height = 0;
    PlatformDisplaySize(&width, &height);
    EXPECT_EQ(width * 10000 + height, 8000600);

    EXPECT_FALSE(PlatformSetDisplayMode(&smallFast, true));
    EXPECT_EQ(ServerScreenSize(), 8000600);
    EXPECT_TRUE(PlatformSetDisplayMode(&smallFast, false));
    EXPECT_TRUE(PlatformSetDisplayMode(&desktop, false));
    EXPECT_EQ(ServerScreenSize(), 10240768);

    ASSERT_TRUE(PlatformSetDisplayMode(&small, false));
    PlatformRestoreDisplayMode();
    EXPECT_EQ(ServerScreenSize(), 10240768);
    ASSERT_TRUE(PlatformSetDisplayMode(&small, false));
    PlatformDisplayClose();
    EXPECT_EQ(ServerScreenSize(), 10240768);
    ASSERT_TRUE(PlatformGetDisplayMode(&now)); // opens the display again
    EXPECT_EQ(now.width * 10000 + now.height, 10240768);
}

} // namespace
} // namespace tarvik
