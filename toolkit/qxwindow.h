// QXWindow: a native window with an OpenGL context, top level or a child of another native window.
// The one class of the toolkit that deals with the platform's windows; everything above it sees a
// drawable with a size and a context. The native window and the context exist from Create to the
// destructor. A full-screen window switches the display to the application's mode (gfxWidth,
// gfxHeight, gfxBits, gfxRefresh) for its life and gives the desktop its mode back when it goes.
//
// Native failures are reported and the sequence goes on with what it has: a window whose surface
// or context was refused stands on the screen and shows nothing.
#pragma once

#include "images/qdrawable.h"

#include <cstdint>

namespace tarvik {

struct PlatformWindow;

enum QXWindowFlags : uint32_t {
    QXWF_FULLSCREEN = 8,
    QXWF_NO_SIZING = 16, // no sizing border
};

class QGLContext;

class QXWindow : public QDrawable {
public:
    QXWindow(QXWindow* parentWin, int x0, int y0, int w, int h);
    ~QXWindow() override; // deletes the context, restores the display mode, destroys the window

    const char* ClassName() const override { return "QXWindow"; }
    void* GetNativeHandle() const override { return native; }
    bool Create() override;
    void Destroy() override; // reports "QXWindow:Destroy NYI"
    int GetWidth() const override { return wid; }
    int GetHeight() const override { return hgt; }
    virtual void Swap(); // shows the back buffer

    void Move(int nx, int ny);
    void Size(int w, int h);
    bool IsFullScreen() const { return flags & QXWF_FULLSCREEN; }
    void SetFullScreen() { flags |= QXWF_FULLSCREEN; }
    void SetIcon(void* newIcon) { icon = newIcon; }
    void SetFlags(uint32_t bits) { flags |= bits; }
    PlatformWindow* GetPlatformWindow() const { return native; }
    QGLContext* GetContext() const { return glContext; } // null before Create

private:
    PlatformWindow* EnableOpenGL(PlatformWindow* parentNative, const char* title, int nx, int ny, int w, int h,
                                 int nativeFlags);
    void SwitchToFullScreen();

    PlatformWindow* native; // owned
    QXWindow* parent;       // borrowed
    QXWindow* shareWith;    // borrowed: the shell's native window, whose context this one shares
    QGLContext* glContext;  // owned
    uint32_t flags;         // QXWindowFlags; 4 at construction
    void* icon;             // borrowed; the platform names the window class and its icon itself
    int32_t x, y, wid, hgt;
};

} // namespace tarvik
