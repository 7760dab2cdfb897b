#include "toolkit/qevent.h"

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "platform/platform.h"
#include "platform/platform_window.h"
#include "toolkit/qapp.h"
#include "toolkit/qwindow.h"
#include "toolkit/qwinmgr.h"
#include "toolkit/qxwindow.h"

#include <cstring>

namespace tarvik {

// ---- QTimer ----------------------------------------------------------------------------------------

QTimer::QTimer() : flags(0), ticks(0), last(0), frequency(PlatformCounterFrequency()) {}

void QTimer::Start()
{
    if (flags & 1) return;
    last = PlatformCounter();
    flags |= 1;
}

void QTimer::Stop()
{
    if (!(flags & 1)) return;
    uint64_t now = PlatformCounter();
    ticks += now - last;
    last = now;
    flags &= ~1u;
}

void QTimer::Reset()
{
    ticks = 0;
    last = PlatformCounter();
    flags |= 1;
}

uint32_t QTimer::GetMilliSeconds()
{
    if (flags & 1) {
        uint64_t now = PlatformCounter();
        ticks += now - last;
        last = now;
    }
    // A counter slower than 1 kHz would divide by zero; count its ticks as milliseconds then.
    uint64_t perMs = frequency / 1000;
    if (perMs == 0) perMs = 1;
    return uint32_t(ticks / perMs);
}

QTimer* QEventTimer()
{
    static QTimer timer;
    return &timer;
}

// ---- The ring --------------------------------------------------------------------------------------

namespace {

// Process-wide; indices wrap by masking with size - 1, so size is a power of two (or 0 before
// QEventInit, when every push finds the ring full).
struct EventRing {
    QEvent* entries; // owned, from qcalloc
    int size;
    int count;
    int head; // the oldest entry
    int tail; // the next free entry
};
EventRing ring = {nullptr, 0, 0, 0, 0};

// What the translator remembers between native records. The window last under the mouse lives in
// the window manager, beside focus and capture.
struct TranslatorState {
    bool clickHeld;       // a press is remembered; kept apart from the time so that a press at 0 ms counts
    uint32_t clickTime;   // milliseconds of the global timer
    int clickButton;
    int clickX, clickY;   // relative to the window that got the press
    int deadKey;          // 0 none, 1..8 a row of the dead-key table
};
TranslatorState input = {false, 0, 0, 0, 0, 0};
uint32_t keysHeld; // QMOD_ bits of the modifier keys down, as the window procedure saw their messages

const uint32_t doubleClickMs = 300;

} // namespace

void QEventInit(int size)
{
    if (ring.entries) return;
    int n = 1;
    while (n < size && n < (1 << 30)) n <<= 1;
    ring.entries = static_cast<QEvent*>(qcalloc(size_t(n) * sizeof(QEvent)));
    if (!ring.entries) {
        QERROR("QEventInit(); out of memory (%d events)", n);
        ring.size = 0;
    } else {
        ring.size = n;
    }
    ring.count = ring.head = ring.tail = 0;
    PlatformSetMessageProc(QWindowProc);
    // A clock that stands still makes every event time 0, and no double click could happen.
    QEventTimer()->Start();
}

void QEventShutdown()
{
    if (ring.entries) PlatformSetMessageProc(nullptr);
    qfree(ring.entries);
    ring = EventRing{nullptr, 0, 0, 0, 0};
    QEventResetInput();
    QEventTimer()->Stop(); // started with the ring; counts on from here at the next QEventInit
}

void QEventResetInput()
{
    input = TranslatorState{false, 0, 0, 0, 0, 0};
    keysHeld = 0;
}

int QEventCount() { return ring.count; }
int QEventRingSize() { return ring.size; }

void QEventPush(QEvent* e)
{
    if (e->type == QEVENT_EXPOSE) return; // windows repaint when invalidated, never through the ring
    if (ring.count >= ring.size) {
        QWARNING("QEventPush(); out of space");
        return;
    }
    // A dragged window needs only the latest position: overwrite its queued motion in place.
    if (e->type == QEVENT_MOTIONNOTIFY && e->win && (e->win->GetFlags() & QWF_MERGE_MOTION)) {
        int mask = ring.size - 1;
        for (int i = 0; i < ring.count; i++) {
            QEvent* q = &ring.entries[(ring.head + i) & mask];
            if (q->type == QEVENT_MOTIONNOTIFY && q->win == e->win) {
                q->x = e->x;
                q->y = e->y;
                return;
            }
        }
    }
    ring.entries[ring.tail] = *e;
    ring.tail = (ring.tail + 1) & (ring.size - 1);
    ring.count++;
}

void QEventPump()
{
    if (PlatformDisplayIsOpen()) PlatformPumpMessages();
}

bool QEventsPending()
{
    QEventPump();
    return ring.count > 0;
}

// Without a display nothing can ever arrive; rather than wait forever the caller gets a zeroed
// QEVENT_NONE record, which every consumer passes over.
void QEventPop(QEvent* e)
{
    while (ring.count == 0) {
        if (!PlatformDisplayIsOpen()) {
            QEventClear(e);
            e->type = QEVENT_NONE;
            return;
        }
        QEventPump();
        if (ring.count == 0) PlatformWaitMessage(100);
    }
    *e = ring.entries[ring.head];
    ring.head = (ring.head + 1) & (ring.size - 1);
    ring.count--;
}

void QEventRemoveWindow(QWindow* w)
{
    int mask = ring.size - 1;
    for (int i = 0; i < ring.count; i++) {
        QEvent* q = &ring.entries[(ring.head + i) & mask];
        if (q->win == w) {
            q->win = nullptr;
            q->type = QEVENT_NONE;
        }
    }
}

void QEventClear(QEvent* e) { std::memset(e, 0, sizeof *e); }

void QEventCopy(QEvent* dst, const QEvent* src) { *dst = *src; }

void QGetCursorPos(int* x, int* y) { PlatformGetCursorPos(x, y); }

// ---- The window procedure --------------------------------------------------------------------------

namespace {

QWindow* Shell() { return app ? app->shell : nullptr; }

void PushForShell(int type)
{
    QEvent e;
    QEventClear(&e);
    e.type = type;
    e.win = Shell();
    QEventPush(&e);
}

} // namespace

void QEventClearModifiers() { keysHeld = 0; }

bool QWindowProc(const PlatformMessage* msg)
{
    QNativeEvent native;
    std::memset(&native, 0, sizeof native);
    native.window = msg->window;
    switch (msg->kind) {
    case PLATFORM_MSG_KEYDOWN:
    case PLATFORM_MSG_KEYUP: {
        native.kind = msg->kind == PLATFORM_MSG_KEYDOWN ? QNATIVE_KEYPRESS : QNATIVE_KEYRELEASE;
        native.key = msg->key;
        // The modifiers as the keys came, not as the loop has handled them yet: alt and F4 typed
        // quickly reach one pump together, and alt+F4 must still close, a dead key still compose.
        if (native.key == QK_SHIFT || native.key == QK_CTRL || native.key == QK_ALT) {
            uint32_t bit = native.key == QK_SHIFT ? QMOD_SHIFT : native.key == QK_CTRL ? QMOD_CTRL : QMOD_ALT;
            if (native.kind == QNATIVE_KEYPRESS)
                keysHeld |= bit;
            else
                keysHeld &= ~bit;
        }
        native.modifiers = keysHeld >> 16;
        QEventTranslate(&native);
        // Alt+F4 goes on to the platform, whose default handling closes the window.
        return !(native.kind == QNATIVE_KEYPRESS && native.key == QK_F4 && native.modifiers == 8);
    }
    case PLATFORM_MSG_BUTTONDOWN:
    case PLATFORM_MSG_BUTTONUP:
    case PLATFORM_MSG_MOTION:
        native.kind = msg->kind == PLATFORM_MSG_BUTTONDOWN ? QNATIVE_BUTTONPRESS
                      : msg->kind == PLATFORM_MSG_BUTTONUP ? QNATIVE_BUTTONRELEASE
                                                           : QNATIVE_MOTION;
        native.button = msg->kind == PLATFORM_MSG_MOTION ? 0 : msg->button;
        native.x = native.rawX = msg->x;
        native.y = native.rawY = msg->y;
        native.time = QEventTimer()->GetMilliSeconds();
        QEventTranslate(&native);
        return true;
    case PLATFORM_MSG_WHEEL: {
        // The wheel comes with a screen position; the toolkit wants it in the client area of the
        // shell's native window, which is where the wheel is read.
        int x = msg->x, y = msg->y;
        QWindow* shell = Shell();
        QXWindow* xw = shell ? shell->GetXWindow() : nullptr;
        if (xw && xw->GetPlatformWindow()) {
            x = msg->screenX;
            y = msg->screenY;
            PlatformScreenToClient(xw->GetPlatformWindow(), &x, &y);
        }
        native.kind = QNATIVE_WHEEL;
        native.delta = msg->delta;
        native.x = native.rawX = x;
        native.y = native.rawY = y;
        native.time = QEventTimer()->GetMilliSeconds();
        QEventTranslate(&native);
        return true;
    }
    case PLATFORM_MSG_SIZE:
        native.kind = QNATIVE_RESIZE;
        native.wid = msg->width;
        native.hgt = msg->height;
        QEventTranslate(&native);
        return true;
    case PLATFORM_MSG_PAINT:
        // Windows repaint through their own invalidation; the platform does the rest.
        native.kind = QNATIVE_PAINT;
        QEventTranslate(&native);
        return false;
    case PLATFORM_MSG_CLOSE:
        PushForShell(QEVENT_CLOSE);
        return true;
    case PLATFORM_MSG_ACTIVATE:
        keysHeld = 0; // keys let go in another application never come back here
        PushForShell(QEVENT_ACTIVATE);
        return true;
    default:
        return false;
    }
}

// ---- The translator --------------------------------------------------------------------------------

namespace {

struct DeadKeyRow {
    uint32_t trigger;
    struct {
        uint32_t letter, composed;
    } letters[6]; // ends at a letter 0
};

// Row i is dead-key state i + 1.
const DeadKeyRow deadKeys[8] = {
    {0x800BA, {{'A', 0x104}, {'E', 0x10A}, {'I', 0x10E}, {'O', 0x113}, {'U', 0x119}, {'Y', 0x11B}}},
    {0x800C0, {{'A', 0x100}, {'E', 0x107}, {'I', 0x10B}, {'O', 0x110}, {'U', 0x116}}},
    {0x800DE, {{'A', 0x101}, {'E', 0x108}, {'I', 0x10C}, {'O', 0x111}, {'U', 0x117}, {'Y', 0x11A}}},
    {0x90036, {{'A', 0x102}, {'E', 0x109}, {'I', 0x10D}, {'O', 0x112}, {'U', 0x118}}},
    {0x900C0, {{'A', 0x103}, {'N', 0x10F}, {'O', 0x114}}},
    {0x800BE, {{'A', 0x105}}},
    {0x800BC, {{'C', 0x106}}},
    {0x800BF, {{'O', 0x115}}},
};

// Plain windows take coordinates relative to themselves; an X window's native client area is its
// own coordinate space already.
void MakeRelative(QEvent* e)
{
    if (e->win && !e->win->IsX()) {
        e->x -= e->win->x;
        e->y -= e->win->y;
    }
}

} // namespace

uint32_t QEventDeadKey(uint32_t code)
{
    // A modifier key pressed alone leaves a pending dead key for the letter that follows it.
    if (code == QK_SHIFT || code == QK_CTRL || code == QK_ALT) return code;
    for (int i = 0; i < 8; i++) {
        if (deadKeys[i].trigger == code) {
            input.deadKey = i + 1;
            return code;
        }
    }
    int state = input.deadKey;
    input.deadKey = 0;
    if (state == 0) return code;
    for (const auto& l : deadKeys[state - 1].letters) {
        if (l.letter == 0) break;
        if (l.letter == (code & 0xFFFF)) return (code & 0x7FFF0000) | l.composed;
    }
    return code;
}

void QEventTranslate(const QNativeEvent* native)
{
    QEvent e;
    QEventClear(&e);
    QWindowManager* wm = app ? app->wm : nullptr;
    uint32_t code = (native->modifiers << 16) | native->key;

    switch (native->kind) {
    case QNATIVE_KEYPRESS:
    case QNATIVE_KEYRELEASE:
        e.type = native->kind == QNATIVE_KEYPRESS ? QEVENT_KEYPRESS : QEVENT_KEYRELEASE;
        e.n = native->kind == QNATIVE_KEYPRESS ? QEventDeadKey(code) : code;
        e.x = e.rawX = native->x;
        e.y = e.rawY = native->y;
        // Keys go to the focus, or else to whatever lies at the native window's corner. They carry
        // no position of their own; the corner made relative to the target follows the same rule
        // as the mouse's coordinates.
        if (wm) e.win = wm->GetFocus() ? wm->GetFocus() : wm->FindWindowAt(native->window, 0, 0);
        MakeRelative(&e);
        QEventPush(&e);
        return;
    case QNATIVE_RESIZE:
        e.type = QEVENT_RESIZE;
        e.wid = native->wid;
        e.hgt = native->hgt;
        if (wm) e.win = wm->FindXWindow(native->window);
        QEventPush(&e);
        return;
    case QNATIVE_BUTTONPRESS:
    case QNATIVE_BUTTONRELEASE:
    case QNATIVE_MOTION:
    case QNATIVE_WHEEL:
        break;
    default: // paint, and anything unknown: nothing is queued
        return;
    }

    e.type = native->kind == QNATIVE_BUTTONPRESS     ? QEVENT_BUTTONPRESS
             : native->kind == QNATIVE_BUTTONRELEASE ? QEVENT_BUTTONRELEASE
             : native->kind == QNATIVE_MOTION        ? QEVENT_MOTIONNOTIFY
                                                     : QEVENT_WHEEL;
    e.n = native->kind == QNATIVE_WHEEL    ? uint32_t(native->delta)
          : native->kind == QNATIVE_MOTION ? 0
                                           : uint32_t(native->button);
    e.x = e.rawX = native->x;
    e.y = e.rawY = native->y;
    if (wm) {
        e.win = wm->GetCapture() ? wm->GetCapture() : wm->FindWindowAt(native->window, native->x, native->y);
        MakeRelative(&e);
        if (e.win && e.win != wm->GetMouseWindow()) {
            QEvent crossing = e;
            crossing.type = QEVENT_ENTER;
            QEventPush(&crossing);
            crossing.type = QEVENT_LEAVE;
            crossing.win = wm->GetMouseWindow();
            QEventPush(&crossing);
            wm->SetMouseWindow(e.win);
        }
    }

    if (e.type == QEVENT_BUTTONPRESS) {
        if (input.clickHeld && input.clickButton == native->button) {
            if (native->time - input.clickTime < doubleClickMs) {
                QEventPush(&e);
                e.type = QEVENT_DBLCLICK;
            }
            // A third press soon after the second makes another double click; the first press's
            // position stays, and only a motion forgets it.
            input.clickTime = native->time;
        } else {
            input.clickHeld = true;
            input.clickTime = native->time;
            input.clickButton = native->button;
            input.clickX = e.x;
            input.clickY = e.y;
        }
    } else if (e.type == QEVENT_MOTIONNOTIFY) {
        if (input.clickHeld && (e.x != input.clickX || e.y != input.clickY)) input.clickHeld = false;
    }
    QEventPush(&e);
}

} // namespace tarvik
