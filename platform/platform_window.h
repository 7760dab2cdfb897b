// Native windows and their input, as the toolkit sees them.
//
// One display connection per process, opened by the first window and kept until
// PlatformDisplayClose. The display's own events are turned here into PlatformMessage records, the
// native messages of the toolkit: kinds of input with their data, key codes already mapped to the
// virtual key codes the toolkit uses (13 enter, either enter key; 16 shift; 17 control; 18 alt;
// 'A'..'Z' whatever the shift state; 112.. function keys). The messages reach the one message
// procedure inside PlatformPumpMessages, on the thread that pumps. Nothing above this folder sees a
// display, window-system or GL header.
#pragma once

#include <cstdint>

namespace tarvik {

struct PlatformWindow; // a native window; opaque

enum PlatformMessageKind {
    PLATFORM_MSG_NONE = 0,
    PLATFORM_MSG_KEYDOWN,    // key: virtual key code
    PLATFORM_MSG_KEYUP,      // key
    PLATFORM_MSG_BUTTONDOWN, // button 1 left, 2 middle, 3 right; x, y
    PLATFORM_MSG_BUTTONUP,   // button; x, y
    PLATFORM_MSG_MOTION,     // x, y
    PLATFORM_MSG_WHEEL,      // delta: 120 per notch, positive away from the user; screenX, screenY
    PLATFORM_MSG_SIZE,       // width, height: the new client size
    PLATFORM_MSG_PAINT,      // x, y, width, height: a part to repaint
    PLATFORM_MSG_CLOSE,      // the close box, or the default handling of a key
    PLATFORM_MSG_ACTIVATE,   // active: the application got (true) or lost (false) the focus
};

// One native message. Coordinates x, y are in the client area of 'window'; screenX, screenY in the
// whole screen.
struct PlatformMessage {
    int kind;
    PlatformWindow* window;
    uint32_t key;
    int button;
    int delta;
    int x, y;
    int screenX, screenY;
    int width, height;
    bool active;
};

// The message procedure: true when the message is consumed. A key-down message it declines gets the
// platform's default handling, under which F4 closes the window (the procedure declines it only
// with alt held).
typedef bool (*PlatformMessageProc)(const PlatformMessage* msg);
void PlatformSetMessageProc(PlatformMessageProc proc);

// Opens the display named, or the one of the environment with null. False when there is none (the
// caller reports: this layer stands below the log). Opening an open display is true at once.
bool PlatformDisplayOpen(const char* name);
bool PlatformDisplayIsOpen();
// Destroys the windows and GL contexts that are left, and gives the desktop its display mode back.
void PlatformDisplayClose();
void PlatformDisplaySize(int* width, int* height); // of the default screen; 0 x 0 without a display
// The requests the display refused since the process started. They are counted, never fatal; a
// caller that must know compares the count around a PlatformSync.
int PlatformDisplayErrorCount();

enum PlatformWindowFlags {
    PLATFORM_WINDOW_NO_BORDER_SIZING = 1, // the window manager may not resize it
    PLATFORM_WINDOW_POPUP = 2,            // no decoration, kept above the others
};

// A window with its client area at x, y (in the parent's client area, or on the screen), shown and
// given the keyboard focus. Null on failure, for the caller to report. Sizes below 1 count as 1.
PlatformWindow* PlatformWindowCreate(PlatformWindow* parent, const char* title, int x, int y, int width,
                                     int height, int flags);
void PlatformWindowDestroy(PlatformWindow* window);
void PlatformWindowMove(PlatformWindow* window, int x, int y);
void PlatformWindowSize(PlatformWindow* window, int width, int height);
void PlatformWindowFocus(PlatformWindow* window);
unsigned long PlatformWindowId(PlatformWindow* window); // the display's own number, for outside tools
// Reads what the display shows of the window's client area from x, y (top-down, in the client
// area), width x height pixels, into 'rgbaBottomUp': four bytes a pixel, red, green, blue and 255,
// the bottom row first, as a 32-bit QBitMap holds them. False, with nothing written, when the
// window isn't shown or the rectangle leaves the client area. What covers the window on the
// screen may show in the pixels.
bool PlatformWindowReadPixels(PlatformWindow* window, int x, int y, int width, int height, uint8_t* rgbaBottomUp);

// Dispatches every message that waits, then returns.
void PlatformPumpMessages();
// Waits up to timeoutMs for a message to arrive (without dispatching it); false on timeout or
// without a display.
bool PlatformWaitMessage(int timeoutMs);
// Waits until the display has handled every request sent so far.
void PlatformSync();

void PlatformGetCursorPos(int* x, int* y); // screen coordinates; 0, 0 without a display
// Converts screen coordinates to the client area of 'window'.
void PlatformScreenToClient(PlatformWindow* window, int* x, int* y);

} // namespace tarvik

namespace tarvik {

// ---- OpenGL surfaces and contexts ---------------------------------------------------------------
//
// A window that is to show OpenGL gets a surface format before it is made: the frame-buffer
// configuration closest to the wish (double-buffered, RGBA, at least the bits asked for). The
// window then carries that configuration for its whole life.

struct PlatformSurfaceFormat {
    int colorBits, alphaBits, depthBits, stencilBits;
    bool stereo;
};

// What was chosen: the configuration's number and its real bit counts, whether it is stereo, and
// whether the driver behind it renders in software.
struct PlatformSurfaceInfo {
    int id;
    int colorBits, alphaBits, depthBits, stencilBits;
    bool stereo;
    bool software;
};

// As PlatformWindowCreate, with a surface for OpenGL chosen from 'format'. Null when no
// configuration fits or the window can't be made; 'info' (may be null) tells what was chosen.
PlatformWindow* PlatformWindowCreateGL(PlatformWindow* parent, const char* title, int x, int y, int width,
                                       int height, int flags, const PlatformSurfaceFormat* format,
                                       PlatformSurfaceInfo* info);

struct PlatformGLContext; // opaque

// A rendering context for the surface of 'window', sharing textures and lists with 'share' when
// given. Null on failure.
PlatformGLContext* PlatformGLContextCreate(PlatformWindow* window, PlatformGLContext* share);
void PlatformGLContextDestroy(PlatformGLContext* context); // released first if it is current
// Makes 'context' current on 'window'; both null releases the current one. False on failure.
bool PlatformGLMakeCurrent(PlatformWindow* window, PlatformGLContext* context);
// An OpenGL function by name, or null when the driver has none of that name. Some drivers give a
// callable stub for any name that starts with "gl": a function of an extension is asked for only
// once the extension strings list it.
void* PlatformGLGetProcAddress(const char* name);
void PlatformGLSwap(PlatformWindow* window);

// ---- Display modes ------------------------------------------------------------------------------

struct PlatformDisplayMode {
    int width, height, bits;
    int refresh; // Hz; 0 when unknown
};
bool PlatformGetDisplayMode(PlatformDisplayMode* mode); // the mode the display is in now
// Switches the display to the mode, with its refresh rate when 'useRefresh' (and 'refresh' above 0),
// for as long as the process runs or until PlatformRestoreDisplayMode; the screen takes the mode's
// size. False when the display has no such mode; the bits must be the screen's depth, or 32 for a
// depth of 24.
bool PlatformSetDisplayMode(const PlatformDisplayMode* mode, bool useRefresh);
void PlatformRestoreDisplayMode(); // the desktop's mode back, if it was changed

} // namespace tarvik

namespace tarvik {

// ---- Core fonts ---------------------------------------------------------------------------------
//
// The display's own bitmap fonts, for text drawn with OpenGL display lists. A font is named by a
// logical font description or an alias of the display ("fixed", "9x15"). Its metrics are copied
// when it is opened: a font holds nothing on the display, may outlive the connection, and is
// measured without one.

struct PlatformFont; // opaque

PlatformFont* PlatformFontOpen(const char* name); // null without a display or with no such font
void PlatformFontClose(PlatformFont* font);
bool PlatformFontMetrics(const PlatformFont* font, int* ascent, int* descent); // pixels above, below the baseline
// The three parts of a character's width in pixels: a, from the pen to the ink's left edge (the
// left bearing, negative when the ink hangs out to the left); b, the ink's width; c, from the ink's
// right edge to the next pen position. a + b + c is the advance. A code the font lacks has the
// parts of the font's default character; false when that is missing too.
bool PlatformFontCharABC(const PlatformFont* font, int code, float* a, float* b, float* c);
int PlatformFontCharWidth(const PlatformFont* font, int code); // the advance; 0 as for ABC's false
// Compiles 'count' display lists from 'listBase' on, for the codes from 'first' on: each draws its
// character's bitmap at the raster position and moves the position by the advance. Needs the
// OpenGL context that is to own the lists to be current; false without one. Clears the context's
// OpenGL error flags.
bool PlatformFontMakeLists(const PlatformFont* font, int first, int count, unsigned listBase);

} // namespace tarvik
