// The whole road of an input event under a private X server: xdotool's input, the platform's
// messages, QWindowProc, the translator, the ring and QApp::Run1, checked as the events Run1 hands on.
#include "platform/platform_window.h"
#include "tests/support/testsupport.h"
#include "tests/toolkit/xserver.h"
#include "toolkit/qapp.h"
#include "toolkit/qevent.h"
#include "toolkit/qwindow.h"
#include "toolkit/qwinmgr.h"
#include "toolkit/qxwindow.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

namespace tarvik {
namespace {

std::vector<QEvent> events; // as Run1 left them, modifiers included

bool SwallowClose(QEvent* e)
{
    return e->type == QEVENT_CLOSE; // else Run1 would end the program
}

class QEventX11Test : public test::XServerTest {
protected:
    void SetUp() override
    {
        test::XServerTest::SetUp();
        if (IsSkipped()) return;
        new QApp("x11test");
        app->SetEventProc(SwallowClose);
        shell = new QWindow(nullptr, 100, 100, 320, 240);
        app->shell = shell;
        shell->SetFlags(QWF_X);
        ASSERT_TRUE(shell->Create());
        ASSERT_TRUE(RunUntil([] { return Count(QEVENT_ACTIVATE); }));
        events.clear();
    }
    void TearDown() override { delete app; }

    // Steps the loop until 'done' holds; false after 5 seconds without it.
    template <class Done>
    static bool RunUntil(Done done)
    {
        auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (!done()) {
            if (std::chrono::steady_clock::now() > end) return false;
            if (app->Run1() == 2) PlatformWaitMessage(50);
            else events.push_back(app->event);
        }
        return true;
    }
    static int Count(int type)
    {
        int n = 0;
        for (const QEvent& e : events)
            n += e.type == type;
        return n;
    }
    void Xdotool(const std::string& args)
    {
        test::RunResult r = test::RunCommand("xdotool " + args, "/");
        ASSERT_EQ(r.exitCode, 0) << args << ": " << r.err;
    }
    std::string Id() { return std::to_string(PlatformWindowId(shell->GetXWindow()->GetPlatformWindow())); }

    QWindow* shell = nullptr; // owned by the application
};

// Key codes with the modifiers that Run1 tracks from the modifier keys themselves.
TEST_F(QEventX11Test, KeysCarryModifierBits)
{
    struct Case {
        const char* keys;
        std::vector<uint32_t> codes; // press and release codes in order; a release gets 1 << 31
    } cases[] = {
        {"keydown Control_L keydown Shift_L key s keyup Shift_L keyup Control_L",
         {0x40011, 0x50010, 0x50053, 0x80050053, 0x80040010, 0x80000011}},
        {"key shift+Tab", {0x10010, 0x10009, 0x80000010, 0x80000009}},
        {"key KP_Enter", {13, 0x8000000D}},
    };
    for (const Case& c : cases) {
        events.clear();
        Xdotool(c.keys);
        int wanted = int(c.codes.size());
        ASSERT_TRUE(RunUntil([&] { return Count(QEVENT_KEYPRESS) + Count(QEVENT_KEYRELEASE) >= wanted; }))
            << c.keys;
        std::vector<uint32_t> codes;
        for (const QEvent& e : events) {
            if (e.type != QEVENT_KEYPRESS && e.type != QEVENT_KEYRELEASE) continue;
            codes.push_back(e.n | (e.type == QEVENT_KEYRELEASE ? 0x80000000u : 0));
            EXPECT_EQ(e.win, shell) << c.keys;
        }
        EXPECT_EQ(codes, c.codes) << c.keys;
    }
}

TEST_F(QEventX11Test, SecondQuickPressIsADoubleClick)
{
    Xdotool("mousemove --window " + Id() + " 10 20 click --repeat 2 --delay 50 1");
    ASSERT_TRUE(RunUntil([] { return Count(QEVENT_BUTTONRELEASE) == 2; }));
    std::vector<int> buttons;
    for (const QEvent& e : events) {
        if (e.type != QEVENT_BUTTONPRESS && e.type != QEVENT_BUTTONRELEASE && e.type != QEVENT_DBLCLICK)
            continue;
        buttons.push_back(e.type * 10 + int(e.n));
        EXPECT_EQ(e.win, shell);
        EXPECT_EQ(e.x * 1000 + e.y, 10020);
    }
    EXPECT_EQ(buttons, std::vector<int>({41, 51, 41, 501, 51}));
}

TEST_F(QEventX11Test, MotionAndWheelInClientCoordinates)
{
    Xdotool("mousemove --window " + Id() + " 40 50 click 4 click 5");
    ASSERT_TRUE(RunUntil([] { return Count(QEVENT_WHEEL) == 2; }));
    std::vector<int> got; // type, n, x, y; a motion repeated at the same place counts once
    for (const QEvent& e : events) {
        std::vector<int> one = {e.type, int(e.n), e.x, e.y};
        if ((e.type == QEVENT_MOTIONNOTIFY || e.type == QEVENT_WHEEL) &&
            (got.size() < 4 || !std::equal(one.begin(), one.end(), got.end() - 4)))
            got.insert(got.end(), one.begin(), one.end());
    }
    EXPECT_EQ(got, std::vector<int>({QEVENT_MOTIONNOTIFY, 0, 40, 50, QEVENT_WHEEL, 120, 40, 50, QEVENT_WHEEL,
                                     -120, 40, 50}));
    EXPECT_EQ(app->GetMouseX() * 1000 + app->GetMouseY(), 40050);
}

// Alt and F4 typed at once reach one pump together: the window procedure still sees alt held.
TEST_F(QEventX11Test, AltF4ClosesTheShell)
{
    Xdotool("key alt+F4");
    ASSERT_TRUE(RunUntil([] { return Count(QEVENT_CLOSE) == 1; }));
    EXPECT_EQ(events.back().win, shell);
}

TEST_F(QEventX11Test, ResizeReachesTheShell)
{
    shell->GetXWindow()->Size(200, 150);
    ASSERT_TRUE(RunUntil([] { return Count(QEVENT_RESIZE) == 1; }));
    EXPECT_EQ(events.back().win, shell);
    EXPECT_EQ(events.back().wid * 1000 + events.back().hgt, 200150);
}

} // namespace
} // namespace tarvik

namespace tarvik {
namespace {

// A child of the shell that remembers the presses that reached its handler.
class Target : public QWindow {
public:
    Target(QWindow* parentWin, int x0, int y0) : QWindow(parentWin, x0, y0, 60, 40)
    {
        Create();
        SetTabStop(-2);
    }
    bool OnButtonPress(int button, int px, int py) override
    {
        pressed = this;
        at = px * 1000 + py;
        return true;
    }
    static QWindow* pressed;
    static int at;
};
QWindow* Target::pressed;
int Target::at;

// From a real click to the handler of the window that the window manager's hit test names; Tab
// moves the keyboard focus through the tab order.
TEST_F(QEventX11Test, RealClickReachesTheHitWindowAndTabMovesTheFocus)
{
    Target* left = new Target(shell, 10, 10);
    Target* right = new Target(shell, 40, 30); // added later: above left where they overlap
    PlatformWindow* native = shell->GetXWindow()->GetPlatformWindow();
    struct Case {
        int x, y;
        QWindow *hit, *pressed;
        int at;
    } cases[] = {{50, 40, right, right, 10010}, {15, 15, left, left, 5005}, {200, 200, shell, nullptr, 0}};
    for (const Case& c : cases) {
        Target::pressed = nullptr;
        Target::at = 0;
        EXPECT_EQ(app->wm->FindWindowAt(native, c.x, c.y), c.hit);
        events.clear();
        Xdotool("mousemove --window " + Id() + " " + std::to_string(c.x) + " " + std::to_string(c.y) + " click 1");
        ASSERT_TRUE(RunUntil([] { return Count(QEVENT_BUTTONRELEASE) == 1; }));
        EXPECT_EQ(Target::pressed, c.pressed) << c.x << "," << c.y;
        EXPECT_EQ(Target::at, c.at);
    }
    Xdotool("key Tab");
    ASSERT_TRUE(RunUntil([&] { return left->HasFocus(); }));
    Xdotool("key Tab");
    ASSERT_TRUE(RunUntil([&] { return right->HasFocus(); }));
    Xdotool("key shift+Tab");
    ASSERT_TRUE(RunUntil([&] { return left->HasFocus(); }));
    delete right;
    delete left;
}

} // namespace
} // namespace tarvik
