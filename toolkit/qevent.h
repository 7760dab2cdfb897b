// The event queue: one process-wide ring of QEvent records through which all input of a windowed
// program flows, the translator that turns native records into events for QWindows, and QTimer.
//
// The road of an event: a native message reaches QWindowProc inside QEventPump; QWindowProc makes a
// flat native record (QNativeEvent) of it; QEventTranslate picks the target window, makes the
// coordinates relative to it, adds enter, leave and double clicks, resolves dead keys and pushes;
// QApp::Run1 takes the oldest event. Everything runs on the thread that pumps, so pushes and pops
// never overlap. The ring is allocated once, by QEventInit, and never grows: a full ring loses
// events, one warning each.
#pragma once

#include <cstdint>

namespace tarvik {

class QWindow;
struct PlatformMessage;
struct PlatformWindow;

enum QEventType {
    QEVENT_NONE = 1,          // cancelled by QEventRemoveWindow; nothing reacts to it
    QEVENT_KEYPRESS = 2,      // n: key code with the modifiers in the upper half
    QEVENT_KEYRELEASE = 3,
    QEVENT_BUTTONPRESS = 4,   // n: button 1, 2, 3
    QEVENT_BUTTONRELEASE = 5,
    QEVENT_MOTIONNOTIFY = 6,
    QEVENT_ENTER = 7,
    QEVENT_LEAVE = 8,
    QEVENT_EXPOSE = 12,       // never queued
    QEVENT_RESIZE = 22,       // wid, hgt: the new client size
    QEVENT_WHEEL = 30,        // n: the wheel's delta
    QEVENT_ACTIVATE = 31,     // the application got or lost the focus; win is shell
    QEVENT_DBLCLICK = 50,     // n: button
    QEVENT_CLICK = 100,       // a button or label was clicked; win is that widget
    QEVENT_FOCUSIN = 102,
    QEVENT_FOCUSOUT = 103,
    QEVENT_CLOSE = 105,
};

// Modifier bits of key codes, and the key codes that the toolkit itself looks at.
enum : uint32_t {
    QMOD_SHIFT = 0x10000,
    QMOD_CTRL = 0x40000,
    QMOD_ALT = 0x80000,
    QMOD_MASK = QMOD_SHIFT | QMOD_CTRL | QMOD_ALT,
};
enum QKeyCode : uint32_t {
    QK_BACKSPACE = 8, QK_TAB = 9, QK_ENTER = 13, QK_SHIFT = 16, QK_CTRL = 17, QK_ALT = 18, QK_ESCAPE = 27,
    QK_SPACE = 32, QK_LEFT = 37, QK_UP = 38, QK_RIGHT = 39, QK_DOWN = 40, QK_DELETE = 46,
    QK_F1 = 112, QK_F4 = 115, QK_F11 = 122, QK_F12 = 123,
    QK_COMPOSED_FIRST = 0x100, QK_COMPOSED_LAST = 0x11B, // letters made from a dead key and a vowel
};

// Marks a key press that a button made for its shortcut.
enum : uint32_t { QEVENT_TAG_SHORTCUT = 0x676256 };

// Ten words, copied whole by value.
struct QEvent {
    int32_t type;
    int32_t x, y;     // relative to win, or a rectangle's corner
    int32_t wid, hgt; // expose and resize
    uint32_t n;       // key code with modifiers, button, or wheel delta
    int32_t rawX, rawY; // in the client area of the native window
    uint32_t tag;
    QWindow* win;     // target; may be null
};

// The flat native record: input as the platform gave it, before a target window is known.
enum QNativeKind {
    QNATIVE_KEYPRESS = 1,
    QNATIVE_KEYRELEASE,
    QNATIVE_BUTTONPRESS,
    QNATIVE_BUTTONRELEASE,
    QNATIVE_MOTION,
    QNATIVE_WHEEL,
    QNATIVE_RESIZE,
    QNATIVE_PAINT,
};
struct QNativeEvent {
    int kind;
    PlatformWindow* window; // the native window it happened in
    uint32_t key;           // virtual key code
    uint32_t modifiers;     // 1 shift, 4 control, 8 alt
    int button;             // 1, 2, 3
    int delta;              // wheel
    int x, y, rawX, rawY;   // client coordinates of 'window'
    int wid, hgt;           // resize: the client size
    uint32_t time;          // milliseconds of the global QTimer
};

// A stopwatch on the platform's high-resolution counter. A new one is stopped, at 0.
class QTimer {
public:
    QTimer();
    void Start();   // nothing if it runs
    void Stop();
    void Reset();   // zero, and running, whatever it did before
    bool IsRunning() const { return flags & 1; }
    uint32_t GetMilliSeconds();

private:
    uint32_t flags;    // bit value 1: running
    uint64_t ticks;    // counted so far
    uint64_t last;     // counter at the last look
    uint64_t frequency;
};

QTimer* QEventTimer(); // the global timer that times the events; started by QEventInit

// Allocates the ring (a power of two; other sizes round up) and starts the global timer. A second
// call with the ring in place changes nothing. 256 entries hold more than a burst between two steps.
void QEventInit(int size = 256);
void QEventShutdown(); // frees the ring, forgets the translator's memory, stops the global timer

void QEventPush(QEvent* e);
bool QEventsPending();    // pumps, then tells whether the ring holds an event
// The oldest event; with an empty ring it waits for one while a display is open. Without a display
// nothing can ever come, so it gives a zeroed record of type QEVENT_NONE instead of hanging.
void QEventPop(QEvent* e);
void QEventPump();
void QEventRemoveWindow(QWindow* w);
void QEventClear(QEvent* e);
void QEventCopy(QEvent* dst, const QEvent* src);
void QGetCursorPos(int* x, int* y);

int QEventCount();    // entries in use
int QEventRingSize(); // entries allocated

// The window procedure: turns a native message into a native record, or pushes a close or an
// activation for shell directly. False when the message should get the platform's default handling.
bool QWindowProc(const PlatformMessage* msg);

// The window procedure keeps its own view of the modifier keys held, from the key messages as they
// come; QApp::ClearModifiers empties it too.
void QEventClearModifiers();

void QEventTranslate(const QNativeEvent* native);
uint32_t QEventDeadKey(uint32_t code);
void QEventResetInput(); // forgets the click memory and the dead-key state

} // namespace tarvik
