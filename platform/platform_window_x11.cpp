// Native windows and their input on the X Window System: the one display connection, the windows
// made on it, and the translation of its events into PlatformMessage records. The Xlib calls of
// the tree live in this folder: here, and for OpenGL surfaces and display modes beside it. Nothing
// here logs, since the log stands above this folder: failures return false or null and the toolkit
// reports them. Errors the display sends back are counted by our own handler instead of ending the
// process, as Xlib's default handler would.
#include "platform/platform_x11_internal.h"

#include <X11/XKBlib.h>
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>

#include <errno.h>
#include <poll.h>
#include <time.h>

#include <cstring>
#include <string>
#include <vector>

namespace tarvik {

namespace x11 {

DisplayState ds;
int errorCount = 0;

} // namespace x11

using x11::ds;
using x11::errorCount;

namespace {

const long eventMask = KeyPressMask | KeyReleaseMask | ButtonPressMask | ButtonReleaseMask |
                       PointerMotionMask | EnterWindowMask | LeaveWindowMask | FocusChangeMask |
                       StructureNotifyMask | ExposureMask;

const int mapWaitMs = 2000; // a window manager that never maps a window must not hang the caller

PlatformMessageProc messageProc = nullptr;

int RecordError(Display*, XErrorEvent*)
{
    errorCount++;
    return 0;
}

PlatformWindow* FindWindow(Window xid)
{
    if (xid == None) return nullptr;
    for (PlatformWindow* w : ds.windows)
        if (w->xid == xid) return w;
    return nullptr;
}

bool IsOurs(const PlatformWindow* window)
{
    for (PlatformWindow* w : ds.windows)
        if (w == window) return true;
    return false;
}

int64_t NowMs()
{
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return int64_t(t.tv_sec) * 1000 + t.tv_nsec / 1000000;
}

// Waits until the display's connection has something to read, or 'timeoutMs' passed.
void PollConnection(int timeoutMs)
{
    pollfd p{ConnectionNumber(ds.display), POLLIN, 0};
    while (poll(&p, 1, timeoutMs) < 0 && errno == EINTR) {
    }
}

// The modifier bit that Num_Lock sets; it decides between the two meanings of the keypad keys.
unsigned FindNumLockMask()
{
    unsigned mask = 0;
    KeyCode numLock = XKeysymToKeycode(ds.display, XK_Num_Lock);
    XModifierKeymap* map = XGetModifierMapping(ds.display);
    if (!map) return 0;
    for (int mod = 0; mod < 8 && numLock; mod++)
        for (int i = 0; i < map->max_keypermod; i++)
            if (map->modifiermap[mod * map->max_keypermod + i] == numLock) mask |= 1u << mod;
    XFreeModifiermap(map);
    return mask;
}

// ---- keys -------------------------------------------------------------------------------------

struct KeyMapping {
    uint32_t keysym;
    uint8_t key;
};

// Keysyms outside the ranges of KeysymToKey, sorted by keysym for the binary search.
constexpr KeyMapping keyTable[] = {
    {XK_space, 32},          {XK_apostrophe, 0xDE},    {XK_comma, 0xBC},        {XK_minus, 0xBD},
    {XK_period, 0xBE},       {XK_slash, 0xBF},         {XK_semicolon, 0xBA},    {XK_equal, 0xBB},
    {XK_bracketleft, 0xDB},  {XK_backslash, 0xDC},     {XK_bracketright, 0xDD}, {XK_grave, 0xC0},
    {XK_ISO_Level3_Shift, 18}, {XK_ISO_Left_Tab, 9},   {XK_BackSpace, 8},       {XK_Tab, 9},
    {XK_Return, 13},         {XK_Pause, 19},           {XK_Scroll_Lock, 145},   {XK_Escape, 27},
    {XK_Home, 36},           {XK_Left, 37},            {XK_Up, 38},             {XK_Right, 39},
    {XK_Down, 40},           {XK_Prior, 33},           {XK_Next, 34},           {XK_End, 35},
    {XK_Insert, 45},         {XK_Menu, 93},            {XK_Num_Lock, 144},      {XK_KP_Enter, 13},
    {XK_KP_Home, 36},        {XK_KP_Left, 37},         {XK_KP_Up, 38},          {XK_KP_Right, 39},
    {XK_KP_Down, 40},        {XK_KP_Prior, 33},        {XK_KP_Next, 34},        {XK_KP_End, 35},
    {XK_KP_Insert, 45},      {XK_KP_Delete, 110},      {XK_KP_Multiply, 106},   {XK_KP_Add, 107},
    {XK_KP_Subtract, 109},   {XK_KP_Decimal, 110},     {XK_KP_Divide, 111},     {XK_Shift_L, 16},
    {XK_Shift_R, 16},        {XK_Control_L, 17},       {XK_Control_R, 17},      {XK_Caps_Lock, 20},
    {XK_Meta_L, 18},         {XK_Meta_R, 18},          {XK_Alt_L, 18},          {XK_Alt_R, 18},
    {XK_Super_L, 91},        {XK_Super_R, 92},         {XK_Delete, 46},
};
constexpr int keyTableSize = int(sizeof(keyTable) / sizeof(keyTable[0]));

constexpr bool KeyTableSorted()
{
    for (int i = 1; i < keyTableSize; i++)
        if (keyTable[i - 1].keysym >= keyTable[i].keysym) return false;
    return true;
}
static_assert(KeyTableSorted(), "keyTable must be sorted by keysym for the binary search");

// The virtual key code of a keysym; 0 for the keys the toolkit has no code for.
uint32_t KeysymToKey(KeySym sym)
{
    if (sym >= XK_a && sym <= XK_z) return uint32_t('A' + (sym - XK_a));
    if (sym >= XK_A && sym <= XK_Z) return uint32_t('A' + (sym - XK_A));
    if (sym >= XK_0 && sym <= XK_9) return uint32_t('0' + (sym - XK_0));
    if (sym >= XK_KP_0 && sym <= XK_KP_9) return uint32_t(96 + (sym - XK_KP_0));
    if (sym >= XK_F1 && sym <= XK_F24) return uint32_t(112 + (sym - XK_F1));
    int lo = 0, hi = keyTableSize - 1;
    while (lo <= hi) {
        int mid = (lo + hi) / 2;
        if (keyTable[mid].keysym == sym) return keyTable[mid].key;
        if (keyTable[mid].keysym < sym) lo = mid + 1;
        else hi = mid - 1;
    }
    return 0;
}

// The key as the unshifted keysym names it, so that 'S' is 'S' with or without shift. The keypad
// is the exception: with Num Lock on, its digits and decimal point stand in the second column.
uint32_t KeyOfEvent(XKeyEvent* ev)
{
    KeySym sym = XLookupKeysym(ev, 0);
    if (ev->state & ds.numLockMask) {
        KeySym second = XLookupKeysym(ev, 1);
        if ((second >= XK_KP_0 && second <= XK_KP_9) || second == XK_KP_Decimal) sym = second;
    }
    return KeysymToKey(sym);
}

// ---- focus ------------------------------------------------------------------------------------

bool IsApplicationFocusChange(const XFocusChangeEvent& ev)
{
    if (ev.mode == NotifyGrab || ev.mode == NotifyUngrab) return false;
    return ev.detail != NotifyInferior && ev.detail != NotifyPointer;
}

// Any focus-in of ours but one that only follows the pointer: with the focus on the root window
// and the mouse over one of ours, the keys reach us, yet the application is not the active one.
Bool IsFocusInOfOurs(Display*, XEvent* ev, XPointer found)
{
    if (ev->type == FocusIn && ev->xfocus.detail != NotifyPointer && ev->xfocus.mode != NotifyGrab &&
        ev->xfocus.mode != NotifyUngrab && FindWindow(ev->xfocus.window))
        *reinterpret_cast<bool*>(found) = true;
    return False; // only looks: the queue keeps every event
}

// A focus-out of one of our windows is no loss for the application when the focus moves on to
// another of them: the focus-in that follows is queued already, or the display says so.
bool FocusStaysWithUs()
{
    bool found = false;
    XEvent unused;
    XEventsQueued(ds.display, QueuedAfterReading);
    XCheckIfEvent(ds.display, &unused, IsFocusInOfOurs, reinterpret_cast<XPointer>(&found));
    if (found) return true;
    Window focus = None;
    int revert = 0;
    XGetInputFocus(ds.display, &focus, &revert);
    return FindWindow(focus) != nullptr;
}

// ---- dispatch ---------------------------------------------------------------------------------

bool Deliver(const PlatformMessage& msg)
{
    return messageProc ? messageProc(&msg) : false;
}

// Fills 'msg' from 'ev' and tells whether it makes a message.
bool Translate(XEvent* ev, PlatformWindow* w, PlatformMessage* msg)
{
    switch (ev->type) {
    case KeyPress:
    case KeyRelease:
        msg->key = KeyOfEvent(&ev->xkey);
        if (!msg->key) return false;
        msg->kind = ev->type == KeyPress ? PLATFORM_MSG_KEYDOWN : PLATFORM_MSG_KEYUP;
        msg->x = ev->xkey.x, msg->y = ev->xkey.y;
        msg->screenX = ev->xkey.x_root, msg->screenY = ev->xkey.y_root;
        return true;
    case ButtonPress:
    case ButtonRelease: {
        const XButtonEvent& b = ev->xbutton;
        msg->x = b.x, msg->y = b.y, msg->screenX = b.x_root, msg->screenY = b.y_root;
        if (b.button >= 1 && b.button <= 3) {
            msg->kind = ev->type == ButtonPress ? PLATFORM_MSG_BUTTONDOWN : PLATFORM_MSG_BUTTONUP;
            msg->button = int(b.button);
            return true;
        }
        // The wheel is buttons 4 (away from the user) and 5, one press per notch; 6 and 7 tilt it.
        if (ev->type == ButtonPress && (b.button == 4 || b.button == 5)) {
            msg->kind = PLATFORM_MSG_WHEEL;
            msg->delta = b.button == 4 ? 120 : -120;
            return true;
        }
        return false;
    }
    case MotionNotify:
        msg->kind = PLATFORM_MSG_MOTION;
        msg->x = ev->xmotion.x, msg->y = ev->xmotion.y;
        msg->screenX = ev->xmotion.x_root, msg->screenY = ev->xmotion.y_root;
        return true;
    case EnterNotify:
    case LeaveNotify:
        // Crossings of a grab say nothing about where the mouse is.
        if (ev->xcrossing.mode != NotifyNormal) return false;
        msg->kind = PLATFORM_MSG_MOTION;
        msg->x = ev->xcrossing.x, msg->y = ev->xcrossing.y;
        msg->screenX = ev->xcrossing.x_root, msg->screenY = ev->xcrossing.y_root;
        return true;
    case FocusIn:
        if (!IsApplicationFocusChange(ev->xfocus) || ds.appActive) return false;
        ds.appActive = true;
        msg->kind = PLATFORM_MSG_ACTIVATE;
        msg->active = true;
        return true;
    case FocusOut:
        if (!IsApplicationFocusChange(ev->xfocus) || !ds.appActive || FocusStaysWithUs()) return false;
        ds.appActive = false;
        msg->kind = PLATFORM_MSG_ACTIVATE;
        msg->active = false;
        return true;
    case ConfigureNotify:
        if (ev->xconfigure.window != w->xid) return false;
        if (ev->xconfigure.width == w->width && ev->xconfigure.height == w->height) return false;
        w->width = ev->xconfigure.width, w->height = ev->xconfigure.height;
        msg->kind = PLATFORM_MSG_SIZE;
        msg->width = w->width, msg->height = w->height;
        return true;
    case Expose:
        msg->kind = PLATFORM_MSG_PAINT;
        msg->x = ev->xexpose.x, msg->y = ev->xexpose.y;
        msg->width = ev->xexpose.width, msg->height = ev->xexpose.height;
        return true;
    case ClientMessage:
        if (ev->xclient.message_type != ds.wmProtocols || ev->xclient.format != 32) return false;
        if (Atom(ev->xclient.data.l[0]) != ds.wmDeleteWindow) return false;
        msg->kind = PLATFORM_MSG_CLOSE;
        return true;
    default:
        return false;
    }
}

void Dispatch(XEvent* ev)
{
    if (ev->type == MappingNotify) { // the keyboard changed: the cached keysyms are stale
        XRefreshKeyboardMapping(&ev->xmapping);
        if (ev->xmapping.request == MappingModifier) ds.numLockMask = FindNumLockMask();
        return;
    }
    PlatformWindow* w = FindWindow(ev->xany.window);
    if (!w) return;
    PlatformMessage msg;
    memset(&msg, 0, sizeof(msg));
    msg.window = w;
    if (!Translate(ev, w, &msg)) return;
    bool consumed = Deliver(msg);
    // The default handling of a declined key: F4 closes the window, as long as it still stands.
    if (!consumed && msg.kind == PLATFORM_MSG_KEYDOWN && msg.key == 115 && IsOurs(w)) {
        PlatformMessage close;
        memset(&close, 0, sizeof(close));
        close.kind = PLATFORM_MSG_CLOSE;
        close.window = w;
        Deliver(close);
    }
}

// ---- windows ----------------------------------------------------------------------------------


// The title is 8-bit text in Latin-1; the name of the newer convention is UTF-8.
std::string Latin1ToUtf8(const char* text)
{
    std::string out;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; p++) {
        if (*p < 0x80) {
            out += char(*p);
        } else {
            out += char(0xC0 | (*p >> 6));
            out += char(0x80 | (*p & 0x3F));
        }
    }
    return out;
}

void SetSizeHints(PlatformWindow* w, int x, int y)
{
    XSizeHints hints;
    memset(&hints, 0, sizeof(hints));
    // Static gravity: the position is that of the client area, not of a frame around it.
    hints.flags = USPosition | USSize | PWinGravity;
    hints.x = x, hints.y = y, hints.width = w->width, hints.height = w->height;
    hints.win_gravity = StaticGravity;
    if (w->flags & PLATFORM_WINDOW_NO_BORDER_SIZING) {
        hints.flags |= PMinSize | PMaxSize;
        hints.min_width = hints.max_width = w->width;
        hints.min_height = hints.max_height = w->height;
    }
    XSetWMNormalHints(ds.display, w->xid, &hints);
}

void SetTopLevelProperties(PlatformWindow* w, const char* title, int x, int y)
{
    Display* d = ds.display;
    XStoreName(d, w->xid, title);
    std::string utf8 = Latin1ToUtf8(title);
    XChangeProperty(d, w->xid, ds.netWmName, ds.utf8String, 8, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(utf8.data()), int(utf8.size()));
    char className[] = "OpenGL";
    XClassHint classHint = {program_invocation_short_name, className};
    XSetClassHint(d, w->xid, &classHint);
    XSetWMProtocols(d, w->xid, &ds.wmDeleteWindow, 1);
    XWMHints wmHints;
    memset(&wmHints, 0, sizeof(wmHints));
    wmHints.flags = InputHint | StateHint;
    wmHints.input = True;
    wmHints.initial_state = NormalState;
    XSetWMHints(d, w->xid, &wmHints);
    SetSizeHints(w, x, y);
}

bool WaitUntilMapped(Window xid)
{
    XEvent ev;
    int64_t deadline = NowMs() + mapWaitMs;
    for (;;) {
        // Takes the map notification only; everything else stays queued for the pump.
        if (XCheckTypedWindowEvent(ds.display, xid, MapNotify, &ev)) return true;
        int64_t left = deadline - NowMs();
        if (left <= 0) return false;
        PollConnection(int(left));
    }
}

bool WindowIsViewable(Window xid)
{
    XWindowAttributes attr;
    return XGetWindowAttributes(ds.display, xid, &attr) && attr.map_state == IsViewable;
}

// The display destroys a window's descendants with it; their records stay until the toolkit lets
// them go, but must no longer name a window.
void ForgetDescendants(PlatformWindow* ancestor)
{
    for (PlatformWindow* w : ds.windows) {
        if (w->parent == ancestor) {
            ForgetDescendants(w);
            x11::WindowGoing(w);
            w->xid = None;
            w->parent = nullptr;
        }
    }
}

} // namespace

void PlatformSetMessageProc(PlatformMessageProc proc)
{
    messageProc = proc;
}

bool PlatformDisplayOpen(const char* name)
{
    if (ds.display) return true;
    Display* d = XOpenDisplay(name);
    if (!d) return false;
    XSetErrorHandler(RecordError);
    ds.display = d;
    ds.screen = DefaultScreen(d);
    ds.root = RootWindow(d, ds.screen);
    ds.wmProtocols = XInternAtom(d, "WM_PROTOCOLS", False);
    ds.wmDeleteWindow = XInternAtom(d, "WM_DELETE_WINDOW", False);
    ds.netWmName = XInternAtom(d, "_NET_WM_NAME", False);
    ds.utf8String = XInternAtom(d, "UTF8_STRING", False);
    ds.numLockMask = FindNumLockMask();
    ds.appActive = false;
    // A held key repeats its key-downs without key-ups in between, as the toolkit expects.
    Bool supported = False;
    XkbSetDetectableAutoRepeat(d, True, &supported);
    return true;
}

bool PlatformDisplayIsOpen()
{
    return ds.display != nullptr;
}

void PlatformDisplayClose()
{
    if (!ds.display) return;
    x11::CloseGL();
    x11::CloseDisplayModes();
    for (PlatformWindow* w : ds.windows)
        delete w;
    ds.windows.clear();
    XCloseDisplay(ds.display); // destroys the windows of this connection
    ds = x11::DisplayState();
}

int PlatformDisplayErrorCount()
{
    return errorCount;
}

void PlatformDisplaySize(int* width, int* height)
{
    *width = ds.display ? DisplayWidth(ds.display, ds.screen) : 0;
    *height = ds.display ? DisplayHeight(ds.display, ds.screen) : 0;
}

namespace x11 {

bool IsOurWindow(const PlatformWindow* window)
{
    return IsOurs(window);
}

PlatformWindow* CreateNativeWindow(PlatformWindow* parent, const char* title, int x, int y, int width,
                                   int height, int flags, const SurfaceFormat& format)
{
    if (parent && (!IsOurs(parent) || parent->xid == None)) return nullptr;
    Display* d = ds.display;
    // The display has no windows of size 0; the toolkit's sizes of 0 count as 1.
    width = width < 1 ? 1 : width;
    height = height < 1 ? 1 : height;

    XSetWindowAttributes attr;
    memset(&attr, 0, sizeof(attr));
    attr.event_mask = eventMask;
    attr.colormap = format.colormap != None ? format.colormap : DefaultColormap(d, ds.screen);
    attr.border_pixel = 0;
    // A pop-up goes around the window manager: no frame, and above the managed windows.
    attr.override_redirect = !parent && (flags & PLATFORM_WINDOW_POPUP) ? True : False;
    unsigned long mask = CWEventMask | CWColormap | CWBorderPixel | CWOverrideRedirect;
    // A window without OpenGL is cleared to black by the display. An OpenGL window has no
    // background: the display would clear what was drawn before every exposure and resize.
    if (!format.config) {
        attr.background_pixel = BlackPixel(d, ds.screen);
        mask |= CWBackPixel;
    }

    int errorsBefore = errorCount;
    Window xid = XCreateWindow(d, parent ? parent->xid : ds.root, x, y, unsigned(width), unsigned(height), 0,
                               format.depth, InputOutput, format.visual, mask, &attr);
    XSync(d, False);
    if (!xid || errorCount != errorsBefore) {
        if (xid) XDestroyWindow(d, xid);
        return nullptr;
    }
    PlatformWindow* w = new PlatformWindow{xid, parent, flags, width, height, format.config, format.colormap};
    ds.windows.push_back(w);
    if (!parent) SetTopLevelProperties(w, title ? title : "", x, y);

    XMapRaised(d, xid);
    WaitUntilMapped(xid);
    if (WindowIsViewable(xid)) XSetInputFocus(d, xid, RevertToParent, CurrentTime);
    XSync(d, False);
    return w;
}

} // namespace x11

PlatformWindow* PlatformWindowCreate(PlatformWindow* parent, const char* title, int x, int y, int width,
                                     int height, int flags)
{
    if (!PlatformDisplayOpen(nullptr)) return nullptr;
    x11::SurfaceFormat format = {DefaultVisual(ds.display, ds.screen), DefaultDepth(ds.display, ds.screen), None,
                                 nullptr};
    return x11::CreateNativeWindow(parent, title, x, y, width, height, flags, format);
}

void PlatformWindowDestroy(PlatformWindow* window)
{
    if (!window || !IsOurs(window)) return;
    for (size_t i = 0; i < ds.windows.size(); i++) {
        if (ds.windows[i] == window) {
            ds.windows.erase(ds.windows.begin() + long(i));
            break;
        }
    }
    ForgetDescendants(window);
    x11::WindowGoing(window);
    if (window->xid != None && ds.display) XDestroyWindow(ds.display, window->xid);
    if (window->colormap != None && ds.display) XFreeColormap(ds.display, window->colormap);
    if (ds.display) XFlush(ds.display);
    delete window;
}

void PlatformWindowMove(PlatformWindow* window, int x, int y)
{
    if (!ds.display || !window || window->xid == None) return;
    XMoveWindow(ds.display, window->xid, x, y);
    XFlush(ds.display);
}

void PlatformWindowSize(PlatformWindow* window, int width, int height)
{
    if (!ds.display || !window || window->xid == None) return;
    width = width < 1 ? 1 : width;
    height = height < 1 ? 1 : height;
    if (!window->parent && (window->flags & PLATFORM_WINDOW_NO_BORDER_SIZING)) {
        // The fixed size of the hints must move first, or a window manager refuses the new one.
        XSizeHints hints;
        memset(&hints, 0, sizeof(hints));
        long supplied = 0;
        XGetWMNormalHints(ds.display, window->xid, &hints, &supplied);
        hints.flags |= PMinSize | PMaxSize;
        hints.min_width = hints.max_width = width;
        hints.min_height = hints.max_height = height;
        XSetWMNormalHints(ds.display, window->xid, &hints);
    }
    XResizeWindow(ds.display, window->xid, unsigned(width), unsigned(height));
    XFlush(ds.display);
}

void PlatformWindowFocus(PlatformWindow* window)
{
    if (!ds.display || !window || window->xid == None || !WindowIsViewable(window->xid)) return;
    if (!window->parent) XRaiseWindow(ds.display, window->xid);
    XSetInputFocus(ds.display, window->xid, RevertToParent, CurrentTime);
    XFlush(ds.display);
}

unsigned long PlatformWindowId(PlatformWindow* window)
{
    return window ? window->xid : 0;
}

namespace {

// Where a colour channel lies in a pixel value of the image: shift and width of its mask.
struct Channel {
    int shift = 0, bits = 0;
    explicit Channel(unsigned long mask)
    {
        if (!mask) return;
        while (!(mask & 1)) mask >>= 1, shift++;
        while (mask & 1) mask >>= 1, bits++;
    }
    uint8_t Of(unsigned long pixel) const
    {
        unsigned long v = (pixel >> shift) & ((1ul << bits) - 1);
        if (bits >= 8) return uint8_t(v >> (bits - 8));
        return uint8_t(v * 255 / ((1ul << bits) - 1)); // a narrow channel spreads over 0..255
    }
};

} // namespace

bool PlatformWindowReadPixels(PlatformWindow* window, int x, int y, int width, int height, uint8_t* rgbaBottomUp)
{
    if (!ds.display || !IsOurs(window) || window->xid == None || !rgbaBottomUp || width < 1 || height < 1)
        return false;
    XWindowAttributes attr;
    if (!XGetWindowAttributes(ds.display, window->xid, &attr) || attr.map_state != IsViewable) return false;
    if (x < 0 || y < 0 || width > attr.width - x || height > attr.height - y) return false;
    int errorsBefore = errorCount;
    XImage* image = XGetImage(ds.display, window->xid, x, y, unsigned(width), unsigned(height), AllPlanes, ZPixmap);
    if (!image) return false;
    bool ok = errorCount == errorsBefore && image->red_mask && image->green_mask && image->blue_mask;
    if (ok) {
        Channel r(image->red_mask), g(image->green_mask), b(image->blue_mask);
        for (int row = 0; row < height; row++) {
            uint8_t* out = rgbaBottomUp + size_t(height - 1 - row) * size_t(width) * 4;
            for (int col = 0; col < width; col++, out += 4) {
                unsigned long pixel = XGetPixel(image, col, row);
                out[0] = r.Of(pixel);
                out[1] = g.Of(pixel);
                out[2] = b.Of(pixel);
                out[3] = 255;
            }
        }
    }
    XDestroyImage(image);
    return ok;
}

void PlatformPumpMessages()
{
    // The procedure may close the display under us; look again before every event.
    while (ds.display && XPending(ds.display) > 0) {
        XEvent ev;
        XNextEvent(ds.display, &ev);
        Dispatch(&ev);
    }
}

bool PlatformWaitMessage(int timeoutMs)
{
    if (!ds.display) return false;
    if (XPending(ds.display) > 0) return true;
    int64_t deadline = NowMs() + (timeoutMs > 0 ? timeoutMs : 0);
    for (;;) {
        int64_t left = deadline - NowMs();
        PollConnection(left > 0 ? int(left) : 0);
        // What arrived may be a reply or an error only; that is no message.
        if (XPending(ds.display) > 0) return true;
        if (left <= 0) return false;
    }
}

void PlatformSync()
{
    if (ds.display) XSync(ds.display, False);
}

void PlatformGetCursorPos(int* x, int* y)
{
    *x = *y = 0;
    if (!ds.display) return;
    Window rootReturn, child;
    int winX, winY;
    unsigned mask;
    XQueryPointer(ds.display, ds.root, &rootReturn, &child, x, y, &winX, &winY, &mask);
}

void PlatformScreenToClient(PlatformWindow* window, int* x, int* y)
{
    if (!ds.display || !window || window->xid == None) return;
    Window child;
    int cx = 0, cy = 0;
    if (XTranslateCoordinates(ds.display, ds.root, window->xid, *x, *y, &cx, &cy, &child)) *x = cx, *y = cy;
}

} // namespace tarvik
