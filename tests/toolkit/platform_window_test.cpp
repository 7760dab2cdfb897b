// The native window layer under a private X server: real input from xdotool, checked as the
// PlatformMessage records the procedure receives.
#include "platform/platform_window.h"
#include "tests/support/testsupport.h"
#include "tests/toolkit/xserver.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace tarvik {
namespace {

std::vector<PlatformMessage> received;
bool consumeKeys = true;

bool Record(const PlatformMessage* msg)
{
    received.push_back(*msg);
    return msg->kind == PLATFORM_MSG_KEYDOWN ? consumeKeys : true;
}

// Pumps until 'done' holds; false after 5 seconds without it.
bool PumpUntil(const std::function<bool()>& done)
{
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) return false;
        PlatformWaitMessage(50);
        PlatformPumpMessages();
    }
    return true;
}

int CountOf(int kind, uint32_t key = 0)
{
    int n = 0;
    for (const PlatformMessage& m : received)
        n += m.kind == kind && (!key || m.key == key);
    return n;
}

std::vector<uint32_t> KeysOf(int kind)
{
    std::vector<uint32_t> keys;
    for (const PlatformMessage& m : received)
        if (m.kind == kind) keys.push_back(m.key);
    return keys;
}

class PlatformWindowTest : public test::XServerTest {
protected:
    void SetUp() override
    {
        test::XServerTest::SetUp();
        if (IsSkipped()) return;
        ASSERT_TRUE(PlatformDisplayOpen(nullptr));
        received.clear();
        consumeKeys = true;
        PlatformSetMessageProc(Record);
        errors = PlatformDisplayErrorCount();
        window = PlatformWindowCreate(nullptr, "Fen\xEAtre", 100, 100, 320, 240, 0);
        ASSERT_NE(window, nullptr);
        ASSERT_TRUE(PumpUntil([] { return CountOf(PLATFORM_MSG_ACTIVATE) && CountOf(PLATFORM_MSG_PAINT); }));
        other = XOpenDisplay(nullptr);
        ASSERT_NE(other, nullptr);
    }
    void TearDown() override
    {
        if (other) XCloseDisplay(other);
        if (IsSkipped()) return;
        EXPECT_EQ(PlatformDisplayErrorCount(), errors);
        PlatformDisplayClose();
        PlatformSetMessageProc(nullptr);
    }

    void Xdotool(const std::string& args)
    {
        test::RunResult r = test::RunCommand("xdotool " + args, "/");
        ASSERT_EQ(r.exitCode, 0) << args << ": " << r.err;
    }
    std::string Id() { return std::to_string(PlatformWindowId(window)); }

    PlatformWindow* window = nullptr;
    Display* other = nullptr; // the test's own connection, a client beside the layer
    int errors = 0;
};

TEST_F(PlatformWindowTest, NewWindowIsViewableFocusedAndDescribed)
{
    for (const PlatformMessage& m : received) {
        EXPECT_TRUE(m.kind != PLATFORM_MSG_ACTIVATE || m.active);
        EXPECT_TRUE(m.kind != PLATFORM_MSG_PAINT || m.width * 1000 + m.height == 320240);
    }

    Window xid = PlatformWindowId(window), focus = None, root;
    int revert, x, y;
    unsigned w, h, border, depth;
    XGetInputFocus(other, &focus, &revert);
    EXPECT_EQ(focus, xid);
    XGetGeometry(other, xid, &root, &x, &y, &w, &h, &border, &depth);
    EXPECT_EQ(std::vector<int>({x, y, int(w), int(h)}), std::vector<int>({100, 100, 320, 240}));
    XClassHint hint;
    ASSERT_TRUE(XGetClassHint(other, xid, &hint));
    EXPECT_STREQ(hint.res_class, "OpenGL");
    XFree(hint.res_name), XFree(hint.res_class);
    XTextProperty name;
    ASSERT_TRUE(XGetTextProperty(other, xid, &name, XInternAtom(other, "_NET_WM_NAME", False)));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(name.value), name.nitems), "Fen\xC3\xAAtre");
    XFree(name.value);
    Atom* protocols = nullptr;
    int count = 0;
    ASSERT_TRUE(XGetWMProtocols(other, xid, &protocols, &count));
    ASSERT_EQ(count, 1);
    EXPECT_EQ(protocols[0], XInternAtom(other, "WM_DELETE_WINDOW", False));
    XFree(protocols);

    int cx = 110, cy = 125;
    PlatformScreenToClient(window, &cx, &cy);
    EXPECT_EQ(cx * 1000 + cy, 10025);
    PlatformDisplaySize(&cx, &cy);
    EXPECT_EQ(cx * 1000 + cy, 1024768);
    PlatformPumpMessages();
    EXPECT_FALSE(PlatformWaitMessage(0));
}

TEST_F(PlatformWindowTest, FlagsGiveFixedSizeOrPopup)
{
    struct Case {
        int flags;
        bool fixedSize, overrideRedirect;
    } cases[] = {
        {0, false, false},
        {PLATFORM_WINDOW_NO_BORDER_SIZING, true, false},
        {PLATFORM_WINDOW_POPUP, false, true},
    };
    for (const Case& c : cases) {
        PlatformWindow* w = PlatformWindowCreate(nullptr, "flags", 10, 10, 64, 48, c.flags);
        ASSERT_NE(w, nullptr);
        XSizeHints hints;
        long supplied = 0;
        XGetWMNormalHints(other, PlatformWindowId(w), &hints, &supplied);
        bool fixed = (hints.flags & PMinSize) && (hints.flags & PMaxSize) && hints.min_width == 64 &&
                     hints.max_width == 64 && hints.min_height == 48 && hints.max_height == 48;
        XWindowAttributes attr;
        XGetWindowAttributes(other, PlatformWindowId(w), &attr);
        EXPECT_EQ(fixed, c.fixedSize) << c.flags;
        EXPECT_EQ(bool(attr.override_redirect), c.overrideRedirect) << c.flags;
        EXPECT_EQ(attr.map_state, IsViewable) << c.flags;
        PlatformWindowDestroy(w);
    }
}

// Every key of the table, pressed and released in one run, by keysym name or by key code: the keys
// on the right, super and the keypad with Num Lock on go by code, so that xdotool adds no shift to them.
// Three spare codes get keysyms that the server's keymap lacks. 0: no message.
TEST_F(PlatformWindowTest, KeysGiveVirtualKeyCodes)
{
    struct Spare {
        int code;
        KeySym sym;
    } spares[] = {{191, XK_F13}, {197, XK_F24}, {202, XK_ISO_Left_Tab}};
    KeySym saved[3];
    for (int i = 0; i < 3; i++) {
        int perCode = 0;
        KeySym* syms = XGetKeyboardMapping(other, KeyCode(spares[i].code), 1, &perCode);
        saved[i] = syms[0];
        XFree(syms);
        XChangeKeyboardMapping(other, spares[i].code, 1, &spares[i].sym, 1);
    }
    XSync(other, False);
    struct Case {
        const char* name;
        uint32_t key;
    } cases[] = {
        {"a", 'A'}, {"z", 'Z'}, {"0", '0'}, {"9", '9'}, {"BackSpace", 8}, {"Tab", 9}, {"Return", 13},
        {"KP_Enter", 13}, {"Pause", 19}, {"Caps_Lock", 20}, {"Caps_Lock", 20}, {"Escape", 27}, {"space", 32},
        {"Prior", 33}, {"Next", 34}, {"End", 35}, {"Home", 36}, {"Left", 37}, {"Up", 38}, {"Right", 39},
        {"Down", 40}, {"Insert", 45}, {"Delete", 46}, {"Shift_L", 16}, {"62", 16}, {"Control_L", 17},
        {"105", 17}, {"Alt_L", 18}, {"108", 18}, {"ISO_Level3_Shift", 18}, {"Super_L", 91},
        {"134", 92}, {"Menu", 93}, {"KP_Home", 36}, {"KP_Up", 38}, {"KP_Insert", 45}, {"KP_Delete", 110},
        {"KP_Multiply", 106}, {"KP_Add", 107}, {"KP_Subtract", 109}, {"KP_Divide", 111}, {"F1", 112},
        {"F12", 123}, {"Scroll_Lock", 145}, {"Scroll_Lock", 145}, {"semicolon", 0xBA}, {"equal", 0xBB},
        {"comma", 0xBC}, {"minus", 0xBD}, {"period", 0xBE}, {"slash", 0xBF}, {"grave", 0xC0},
        {"bracketleft", 0xDB}, {"backslash", 0xDC}, {"bracketright", 0xDD}, {"apostrophe", 0xDE},
        {"XF86AudioPlay", 0}, {"Num_Lock", 144}, {"79", 103}, {"90", 96}, {"91", 110}, {"Num_Lock", 144},
        {"191", 124}, {"197", 135}, {"202", 9},
    };
    std::string args = "key --delay 0";
    std::vector<uint32_t> expected;
    for (const Case& c : cases) {
        args += std::string(" ") + c.name;
        if (c.key) expected.push_back(c.key);
    }
    received.clear();
    Xdotool(args);
    ASSERT_TRUE(PumpUntil([&] { return CountOf(PLATFORM_MSG_KEYUP) >= int(expected.size()); }));
    EXPECT_EQ(KeysOf(PLATFORM_MSG_KEYDOWN), expected);
    EXPECT_EQ(KeysOf(PLATFORM_MSG_KEYUP), expected);
    for (int i = 0; i < 3; i++)
        XChangeKeyboardMapping(other, spares[i].code, 1, &saved[i], 1);
}

TEST_F(PlatformWindowTest, LetterKeepsItsCodeUnderShiftAndControl)
{
    received.clear();
    Xdotool("keydown Control_L keydown Shift_L key s keyup Shift_L keyup Control_L");
    ASSERT_TRUE(PumpUntil([] { return CountOf(PLATFORM_MSG_KEYUP, 17); }));
    std::vector<uint32_t> sequence;
    for (const PlatformMessage& m : received)
        sequence.push_back(m.kind == PLATFORM_MSG_KEYDOWN ? m.key : 1000 + m.key);
    EXPECT_EQ(sequence, std::vector<uint32_t>({17, 16, 'S', 1000 + 'S', 1016, 1017}));
    EXPECT_EQ(received[2].window, window);
}

TEST_F(PlatformWindowTest, HeldKeyRepeatsKeyDownsWithoutKeyUps)
{
    received.clear();
    Xdotool("keydown a sleep 1.5 keyup a");
    ASSERT_TRUE(PumpUntil([] { return CountOf(PLATFORM_MSG_KEYUP); }));
    EXPECT_GE(CountOf(PLATFORM_MSG_KEYDOWN, 'A'), 2);
    EXPECT_EQ(CountOf(PLATFORM_MSG_KEYUP), 1);
    EXPECT_EQ(received.back().kind, PLATFORM_MSG_KEYUP);
}

// Buttons, a double click, the wheel and its tilt, a move, and leaving the window at the screen's
// corner (window at 100, 100), which only the crossing tells.
TEST_F(PlatformWindowTest, ButtonsWheelAndMotion)
{
    received.clear();
    Xdotool("mousemove --window " + Id() + " 10 20 click 1 click 2 click 3 click --repeat 2 --delay 50 1 " +
            "click 4 click 5 click 6 click 7 mousemove --window " + Id() + " 33 44 mousemove 5 5");
    ASSERT_TRUE(PumpUntil([] {
        return !received.empty() && received.back().kind == PLATFORM_MSG_MOTION && received.back().x == -95;
    }));
    struct Expected {
        int kind, value, x, y; // value: button or wheel delta
    } expected[] = {
        {PLATFORM_MSG_MOTION, 0, 10, 20},     {PLATFORM_MSG_BUTTONDOWN, 1, 10, 20},
        {PLATFORM_MSG_BUTTONUP, 1, 10, 20},   {PLATFORM_MSG_BUTTONDOWN, 2, 10, 20},
        {PLATFORM_MSG_BUTTONUP, 2, 10, 20},   {PLATFORM_MSG_BUTTONDOWN, 3, 10, 20},
        {PLATFORM_MSG_BUTTONUP, 3, 10, 20},   {PLATFORM_MSG_BUTTONDOWN, 1, 10, 20},
        {PLATFORM_MSG_BUTTONUP, 1, 10, 20},   {PLATFORM_MSG_BUTTONDOWN, 1, 10, 20},
        {PLATFORM_MSG_BUTTONUP, 1, 10, 20},   {PLATFORM_MSG_WHEEL, 120, 110, 120},
        {PLATFORM_MSG_WHEEL, -120, 110, 120}, {PLATFORM_MSG_MOTION, 0, 33, 44},
        {PLATFORM_MSG_MOTION, 0, -95, -95},
    };
    // The pointer's arrival may show as a crossing and a motion at the same place: one position.
    std::vector<PlatformMessage> got;
    for (const PlatformMessage& m : received)
        if (got.empty() || m.kind != PLATFORM_MSG_MOTION || got.back().kind != PLATFORM_MSG_MOTION ||
            got.back().x != m.x || got.back().y != m.y)
            got.push_back(m);
    ASSERT_EQ(got.size(), sizeof(expected) / sizeof(expected[0]));
    for (size_t i = 0; i < got.size(); i++) {
        const Expected& e = expected[i];
        const PlatformMessage& m = got[i];
        bool wheel = m.kind == PLATFORM_MSG_WHEEL;
        EXPECT_EQ(m.kind, e.kind) << i;
        EXPECT_EQ(wheel ? m.delta : m.button, e.value) << i;
        EXPECT_EQ(wheel ? m.screenX : m.x, e.x) << i;
        EXPECT_EQ(wheel ? m.screenY : m.y, e.y) << i;
    }
    int x = 0, y = 0;
    PlatformGetCursorPos(&x, &y);
    EXPECT_EQ(x * 1000 + y, 5005);
}

// A declined F4 closes the window; a consumed one or another declined key does not.
TEST_F(PlatformWindowTest, DeclinedF4GetsCloseByDefault)
{
    struct Case {
        const char* keys;
        bool consume;
        uint32_t last; // the key released last
        bool closes;
    } cases[] = {
        {"alt+F4", false, 18, true},
        {"F5", false, 116, false},
        {"F4", true, 115, false},
    };
    for (const Case& c : cases) {
        received.clear();
        consumeKeys = c.consume;
        Xdotool(std::string("key ") + c.keys);
        ASSERT_TRUE(PumpUntil([&] { return CountOf(PLATFORM_MSG_KEYUP, c.last); })) << c.keys;
        EXPECT_EQ(CountOf(PLATFORM_MSG_CLOSE), c.closes ? 1 : 0) << c.keys;
        for (size_t i = 1; i < received.size(); i++) {
            if (received[i].kind != PLATFORM_MSG_CLOSE) continue;
            EXPECT_EQ(received[i - 1].kind * 1000 + received[i - 1].key, PLATFORM_MSG_KEYDOWN * 1000 + 115);
            EXPECT_EQ(received[i].window, window);
        }
    }
}

TEST_F(PlatformWindowTest, DeleteWindowProtocolGivesClose)
{
    auto sendProtocol = [&](const char* atomName) {
        XEvent ev{};
        ev.xclient.type = ClientMessage;
        ev.xclient.window = PlatformWindowId(window);
        ev.xclient.message_type = XInternAtom(other, "WM_PROTOCOLS", False);
        ev.xclient.format = 32;
        ev.xclient.data.l[0] = long(XInternAtom(other, atomName, False));
        XSendEvent(other, PlatformWindowId(window), False, NoEventMask, &ev);
    };
    received.clear();
    sendProtocol("WM_TAKE_FOCUS");
    sendProtocol("WM_DELETE_WINDOW");
    XSync(other, False);
    ASSERT_TRUE(PumpUntil([] { return !received.empty(); }));
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].kind, PLATFORM_MSG_CLOSE);
    EXPECT_EQ(received[0].window, window);
}

// The focus moving between our own windows is no change for the application.
TEST_F(PlatformWindowTest, ActivationFollowsTheApplication)
{
    std::vector<bool> activations;
    auto settle = [&] {
        PlatformSync();
        PlatformPumpMessages();
        for (const PlatformMessage& m : received)
            if (m.kind == PLATFORM_MSG_ACTIVATE) activations.push_back(m.active);
        received.clear();
    };
    received.clear();
    PlatformWindow* second = PlatformWindowCreate(nullptr, "second", 500, 100, 100, 100, 0);
    PlatformWindow* child = PlatformWindowCreate(window, "child", 10, 10, 50, 50, 0);
    ASSERT_TRUE(second && child);
    settle();
    PlatformWindowFocus(window);
    settle();
    PlatformWindowFocus(second);
    settle();
    EXPECT_EQ(activations, std::vector<bool>());

    // The keys follow the mouse while the root window has the focus; that is no activation.
    XWarpPointer(other, None, DefaultRootWindow(other), 0, 0, 0, 0, 120, 120);
    XSetInputFocus(other, DefaultRootWindow(other), RevertToNone, CurrentTime);
    XSync(other, False);
    ASSERT_TRUE(PumpUntil([] { return CountOf(PLATFORM_MSG_ACTIVATE); }));
    settle();
    PlatformWindowFocus(child);
    settle();
    EXPECT_EQ(activations, std::vector<bool>({false, true}));
}

TEST_F(PlatformWindowTest, SizeOnlyWhenTheClientSizeChanges)
{
    received.clear();
    PlatformWindowMove(window, 150, 150);
    PlatformWindowSize(window, 200, 100);
    PlatformWindowMove(window, 160, 170);
    PlatformWindowSize(window, 210, 110);
    PlatformSync();
    PlatformPumpMessages();
    std::vector<int> sizes;
    for (const PlatformMessage& m : received)
        if (m.kind == PLATFORM_MSG_SIZE) sizes.push_back(m.width * 1000 + m.height);
    EXPECT_EQ(sizes, std::vector<int>({200100, 210110}));
    int x = 160, y = 170;
    PlatformScreenToClient(window, &x, &y);
    EXPECT_EQ(x * 1000 + y, 0);
}

// The display destroys a child with its parent; the child's record goes later without an error.
TEST_F(PlatformWindowTest, ChildOutlivedByItsRecord)
{
    PlatformWindow* child = PlatformWindowCreate(window, "child", 5, 5, 20, 20, 0);
    ASSERT_NE(child, nullptr);
    PlatformWindowDestroy(window);
    PlatformWindowMove(child, 1, 1);
    PlatformWindowDestroy(child);
    PlatformSync();
    PlatformPumpMessages();
}

} // namespace
} // namespace tarvik
