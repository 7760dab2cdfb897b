#include "toolkit/qxwindow.h"

#include "foundation/qmessage.h"
#include "platform/platform_window.h"
#include "toolkit/qapp.h"

namespace tarvik {

QXWindow::QXWindow(QXWindow* parentWin, int x0, int y0, int w, int h)
    : native(nullptr), parent(parentWin), flags(4), icon(nullptr), x(x0), y(y0), wid(w), hgt(h)
{
}

QXWindow::~QXWindow()
{
    if (native) PlatformWindowDestroy(native);
}

bool QXWindow::Create()
{
    if (native) return true;
    if (!PlatformDisplayOpen(nullptr)) {
        QERROR("QXWindow::Create(); no display to open the window on");
        return false;
    }
    int nativeFlags = 0;
    if (flags & QXWF_NO_SIZING) nativeFlags |= PLATFORM_WINDOW_NO_BORDER_SIZING;
    if (!parent && app && (app->gfxFlags & QAPP_GFX_POPUP)) nativeFlags |= PLATFORM_WINDOW_POPUP;
    const char* title = app ? app->title.cstr() : "";
    native = PlatformWindowCreate(parent ? parent->native : nullptr, title, x, y, wid, hgt, nativeFlags);
    if (!native) {
        QERROR("QXWindow::Create(); can't create a native window of %dx%d", wid, hgt);
        return false;
    }
    return true;
}

void QXWindow::Destroy()
{
    QERROR("QXWindow:Destroy NYI");
}

void QXWindow::Swap() {}

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
