#include "toolkit/qxwindow.h"

#include <epoxy/gl.h>

#include "foundation/qmessage.h"
#include "platform/platform_window.h"
#include "toolkit/qapp.h"
#include "toolkit/qfont.h"
#include "toolkit/qglcontext.h"
#include "toolkit/qwindow.h"

#include <cmath>

namespace tarvik {

QXWindow::QXWindow(QXWindow* parentWin, int x0, int y0, int w, int h)
    : native(nullptr), parent(parentWin), shareWith(nullptr), glContext(nullptr), flags(4), icon(nullptr), x(x0),
      y(y0), wid(w), hgt(h)
{
}

QXWindow::~QXWindow()
{
    delete glContext;
    glContext = nullptr;
    if (native && IsFullScreen()) PlatformRestoreDisplayMode();
    if (native) PlatformWindowDestroy(native);
}

// The platform names the window class "OpenGL" and gives it its icon and cursor; the window comes
// up shown, on top and with the keyboard focus, so those steps have no call of their own here.
bool QXWindow::Create()
{
    if (native) return true;
    if (!PlatformDisplayOpen(nullptr)) {
        QERROR("QXWindow::Create(); no display to open the window on");
        return false;
    }
    uint32_t gfxFlags = app ? app->gfxFlags : 0;

    // The wanted client rectangle. The short full-screen client keeps the viewport at full height.
    int cw = wid, ch = hgt;
    if (IsFullScreen() && (gfxFlags & QAPP_GFX_SHORT_FULLSCREEN)) ch--;
    if (IsFullScreen()) SwitchToFullScreen();

    int nx = x, ny = y, nativeFlags = 0;
    if (parent) {
        // a child: plain, in the parent's client area
    } else if (IsFullScreen()) {
        nativeFlags = PLATFORM_WINDOW_POPUP; // covers the screen from its corner
        nx = ny = 0;
    } else if (gfxFlags & QAPP_GFX_POPUP) {
        nativeFlags = PLATFORM_WINDOW_POPUP;
    } else if (flags & QXWF_NO_SIZING) {
        nativeFlags = PLATFORM_WINDOW_NO_BORDER_SIZING;
    }
    PlatformWindow* parentNative = parent ? parent->native : nullptr;
    const char* title = app ? app->title.cstr() : "";
    native = EnableOpenGL(parentNative, title, nx, ny, cw, ch, nativeFlags);
    if (!native) {
        // No surface for OpenGL: the window stands all the same, for its input.
        native = PlatformWindowCreate(parentNative, title, nx, ny, cw, ch, nativeFlags);
        if (!native) {
            QERROR("QXWindow::Create(); can't create a native window of %dx%d", cw, ch);
            return false;
        }
    }

    // The contexts of all windows share textures and lists with the shell's, made first.
    shareWith = app && app->shell ? app->shell->GetXWindow() : nullptr;
    QGLContext* share = shareWith && shareWith != this ? shareWith->glContext : nullptr;
    glContext = new QGLContext(this, 0, share, 0);
    glContext->Select();

    // A perspective of 45 degrees, near 0.1, far 100. A height of 0 counts as 1, for the viewport
    // and the aspect alike.
    int vh = hgt == 0 ? 1 : hgt;
    glContext->SetViewport(0, 0, wid, vh);
    glContext->SetMatrixMode(GL_PROJECTION);
    glContext->LoadIdentity();
    if (glContext->GetNative()) {
        const double fovyDeg = 45, zNear = 0.1, zFar = 100;
        double ymax = zNear * std::tan(fovyDeg * 0.5 * M_PI / 180);
        double xmax = ymax * double(wid) / vh;
        glFrustum(-xmax, xmax, -ymax, ymax, zNear, zFar);
    }
    glContext->SetMatrixMode(GL_MODELVIEW);
    glContext->LoadIdentity();

    glContext->Select(this, 0, 0);
    glContext->Setup2D();
    glContext->SetDrawBuffer(GL_FRONT);
    glContext->Clear(GL_COLOR_BUFFER_BIT);
    glContext->SetDrawBuffer(GL_BACK);

    // The application's system font comes with its first context; the others share its lists.
    if (app && !app->sysFont && glContext->GetNative()) app->sysFont = QFontCreateSystem();
    return true;
}

// Makes the native window with a surface for the application's wish: 24 colour bits and its alpha,
// depth and stencil bits, double-buffered; stereo on request.
PlatformWindow* QXWindow::EnableOpenGL(PlatformWindow* parentNative, const char* title, int nx, int ny, int w,
                                       int h, int nativeFlags)
{
    PlatformSurfaceFormat format;
    format.colorBits = 24;
    format.alphaBits = app ? app->gfxAlphaBits : 8;
    format.depthBits = app ? app->gfxDepthBits : 24;
    format.stencilBits = app ? app->gfxStencilBits : 0;
    format.stereo = app && (app->gfxFlags & QAPP_GFX_STEREO);
    if (format.stereo) QDEBUG("Quad-buffered stereo enabled - PFD_STEREO flag set");

    PlatformSurfaceInfo info = {};
    PlatformWindow* window =
        PlatformWindowCreateGL(parentNative, title, nx, ny, w, h, nativeFlags, &format, &info);
    if (!window) {
        QERROR("(QXWindow) ChoosePixelFormat() failed");
        return nullptr;
    }
    if (format.stereo && !info.stereo) QERROR("Requested STEREO (quadbuffered) but no suitable pixelformat present");
    QDEBUG("Pixfmt %d: %d color bits, %d depthbuffer bits, %d stencil bits, %d alpha, stereo: %d.", info.id,
           format.colorBits, format.depthBits, format.stencilBits, format.alphaBits, info.stereo ? 1 : 0);
    if (info.software) QWARNING("Pixel format (%d) uses software rendering; will be slow!", info.id);
    return window;
}

// Tries the application's mode with its refresh rate, then without one; the window is made
// whatever comes of it.
void QXWindow::SwitchToFullScreen()
{
    PlatformDisplayMode mode;
    if (!PlatformGetDisplayMode(&mode)) {
        QWARNING("QXWindow: Can't get the display settings");
        return;
    }
    mode.width = app ? app->gfxWidth : wid;
    mode.height = app ? app->gfxHeight : hgt;
    mode.bits = app ? app->gfxBits : 32;
    int refresh = app ? app->gfxRefresh : 0;
    if (refresh > 0) {
        mode.refresh = refresh;
        if (PlatformSetDisplayMode(&mode, true)) {
            QDEBUG("QXWindow: Set fullscreen mode to %dx%dx%d@%d", mode.width, mode.height, mode.bits, refresh);
            return;
        }
        QWARNING("QXWindow: Can't set fullscreen mode %dx%dx%d@%d", mode.width, mode.height, mode.bits, refresh);
    }
    if (!PlatformSetDisplayMode(&mode, false))
        QERROR("QXWindow: Can't set fullscreen mode %dx%dx%d even without setting the frequency", mode.width,
               mode.height, mode.bits);
}

void QXWindow::Destroy()
{
    QERROR("QXWindow:Destroy NYI");
}

void QXWindow::Swap()
{
    if (glContext) glContext->Swap();
}

void QXWindow::Move(int nx, int ny)
{
    if (native) PlatformWindowMove(native, nx, ny);
    x = nx;
    y = ny;
}

void QXWindow::Size(int w, int h)
{
    if (native) PlatformWindowSize(native, w, h);
    wid = w;
    hgt = h;
}

} // namespace tarvik
