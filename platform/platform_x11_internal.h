// What the X11 files of this folder share: the display connection, the window record, and the
// creation of a window with a given visual. The windows and their input live in
// platform_window_x11.cpp, the OpenGL surfaces and contexts in platform_gl_x11.cpp, the display
// modes in platform_mode_x11.cpp. Private to those three files.
#pragma once

#include "platform/platform_window.h"

// Before any other GL header, as epoxy requires; it brings Xlib with it.
#include <epoxy/glx.h>

#include <X11/Xlib.h>

#include <vector>

namespace tarvik {

struct PlatformWindow {
    Window xid;             // None once the display destroyed it together with an ancestor
    PlatformWindow* parent; // borrowed; null for a top-level window
    int flags;
    int width, height;  // the client size last reported, so that a move gives no SIZE
    GLXFBConfig config; // the OpenGL surface's configuration; null for a window without one
    Colormap colormap;  // owned, for the visual of 'config'; None with the default visual
};

namespace x11 {

struct DisplayState {
    Display* display = nullptr;
    int screen = 0;
    Window root = None;
    Atom wmProtocols = None, wmDeleteWindow = None, netWmName = None, utf8String = None;
    unsigned numLockMask = 0;
    bool appActive = false;               // one of our windows holds the keyboard focus
    std::vector<PlatformWindow*> windows; // owned
};

extern DisplayState ds;
extern int errorCount; // the requests the display refused

// What a window is drawn with. 'colormap' passes to the window when it is made; a failed creation
// leaves it with the caller.
struct SurfaceFormat {
    Visual* visual;
    int depth;
    Colormap colormap;  // None: the default one
    GLXFBConfig config; // null for a window without OpenGL
};

// The window of PlatformWindowCreate with the given visual; null on failure.
PlatformWindow* CreateNativeWindow(PlatformWindow* parent, const char* title, int x, int y, int width, int height,
                                   int flags, const SurfaceFormat& format);
bool IsOurWindow(const PlatformWindow* window);

// Called by the window code: a window of the display is about to go; a context current on it is
// released first.
void WindowGoing(const PlatformWindow* window);
// Called by PlatformDisplayClose before the connection goes: the contexts left are destroyed, the
// desktop gets its display mode back.
void CloseGL();
void CloseDisplayModes();

} // namespace x11
} // namespace tarvik
