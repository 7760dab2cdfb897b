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
void PlatformDisplayClose(); // destroys the windows that are left
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
