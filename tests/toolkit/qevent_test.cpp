// The event ring, the translator (targets, relative coordinates, enter and leave, double clicks,
// dead keys), the window procedure and QTimer, driven by synthetic native records without a display.
#include "toolkit/qevent.h"

#include "platform/platform.h"
#include "platform/platform_window.h"
#include "tests/support/testsupport.h"
#include "toolkit/qapp.h"
#include "toolkit/qwindow.h"
#include "toolkit/qwinmgr.h"
#include "toolkit/qxwindow.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

using namespace tarvik;
using namespace tarvik::test;

namespace {

void Push(int type, uint32_t n, QWindow* win = nullptr, int x = 0, int rawX = 0)
{
    QEvent e;
    QEventClear(&e);
    e.type = type, e.n = n, e.win = win, e.x = x, e.rawX = rawX;
    QEventPush(&e);
}

std::vector<QEvent> Drain()
{
    std::vector<QEvent> out(QEventCount());
    for (QEvent& e : out) QEventPop(&e);
    return out;
}

// Queued events as "type" or, with names for the windows, "type:window:x,y", space-separated.
std::string Show(const std::vector<QEvent>& events, const std::map<QWindow*, std::string>* names = nullptr)
{
    std::string s;
    for (const QEvent& e : events) {
        s += (s.empty() ? "" : " ") + std::to_string(e.type);
        if (names) s += ":" + (e.win ? names->at(e.win) : "-") + ":" + std::to_string(e.x) + "," + std::to_string(e.y);
    }
    return s;
}

// A fresh ring and translator for each test; the log goes to a temporary folder.
class RingTest : public testing::Test {
protected:
    static void Fresh(int size) { QEventShutdown(), QEventInit(size); }
    void TearDown() override { QEventShutdown(); }
    TempDir dir{true};
};

TEST_F(RingTest, FullRingWarnsAndKeepsItsFour)
{
    Fresh(4);
    for (uint32_t n = 1; n <= 4; n++) Push(QEVENT_KEYPRESS, n);
    testing::internal::CaptureStderr();
    Push(QEVENT_EXPOSE, 9); // never queued, so not even a warning
    Push(QEVENT_KEYPRESS, 5);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "QEventPush(); out of space\n");
    std::vector<QEvent> got = Drain();
    ASSERT_EQ(got.size(), 4u);
    for (uint32_t i = 0; i < 4; i++) EXPECT_EQ(got[i].n, i + 1);
}

TEST_F(RingTest, IndicesWrapInOrder)
{
    Fresh(3);
    ASSERT_EQ(QEventRingSize(), 4); // rounded up to a power of two
    Push(QEVENT_KEYPRESS, 1), Push(QEVENT_KEYPRESS, 2);
    EXPECT_EQ(Drain().size(), 2u);
    for (uint32_t n = 3; n <= 6; n++) Push(QEVENT_KEYPRESS, n);
    std::vector<QEvent> got = Drain();
    ASSERT_EQ(got.size(), 4u);
    for (uint32_t i = 0; i < 4; i++) EXPECT_EQ(got[i].n, i + 3);
}

TEST_F(RingTest, RemoveWindowCancelsItsEntriesInPlace)
{
    Fresh(8);
    int a, b; // only compared, never followed
    QWindow* wa = reinterpret_cast<QWindow*>(&a);
    QWindow* wb = reinterpret_cast<QWindow*>(&b);
    Push(QEVENT_KEYPRESS, 1, wa), Push(QEVENT_KEYPRESS, 1, wb), Push(QEVENT_KEYPRESS, 1, wa);
    QEventRemoveWindow(wa);
    std::map<QWindow*, std::string> names = {{wb, "b"}};
    EXPECT_EQ(Show(Drain(), &names), "1:-:0,0 2:b:0,0 1:-:0,0");
}

// Without a display nothing can ever arrive, and waiting would hang the program; without an
// application the translator still queues, with no target.
TEST_F(RingTest, NoDisplayNoApplication)
{
    ASSERT_FALSE(PlatformDisplayIsOpen());
    ASSERT_EQ(app, nullptr);
    Fresh(8);
    QEvent e, none;
    std::memset(&e, 0x55, sizeof e);
    QEventPop(&e);
    QEventClear(&none);
    none.type = QEVENT_NONE;
    EXPECT_EQ(std::memcmp(&e, &none, sizeof e), 0);

    QNativeEvent n{};
    n.kind = QNATIVE_BUTTONPRESS, n.button = 1, n.x = 5;
    QEventTranslate(&n);
    std::map<QWindow*, std::string> nobody;
    EXPECT_EQ(Show(Drain(), &nobody), "4:-:5,0");
}

// An application with an X window at the null native handle (never created, so records with
// window == nullptr fall on it) and two plain children side by side.
class TranslateTest : public RingTest {
protected:
    void SetUp() override
    {
        a = new QApp("test");
        shell = a->shell;
        Fresh(64);
        root = new QWindow(nullptr, 0, 0, 640, 480);
        root->SetFlags(QWF_X | QWF_CREATED); // made by hand: Create would open a display
        root->xwin = new QXWindow(nullptr, 0, 0, 640, 480);
        a->wm->AddWindow(root);
        left = new QWindow(root, 100, 50, 200, 100);
        right = new QWindow(root, 300, 50, 200, 100);
        EXPECT_TRUE(left->Create() && right->Create());
        root->x = 20, root->y = 10; // where the native window stands; its own events never subtract it
        names = {{root, "root"}, {left, "left"}, {right, "right"}};
    }
    void TearDown() override
    {
        a->shell = shell;
        delete right;
        delete left;
        delete root;
        delete a;
        RingTest::TearDown();
    }
    static void Native(int kind, int x, int y = 60, int button = 1, uint32_t time = 0, uint32_t key = 0,
                       uint32_t modifiers = 0)
    {
        QNativeEvent n{};
        n.kind = kind, n.x = n.rawX = x, n.y = n.rawY = y, n.button = button, n.time = time;
        n.key = key, n.modifiers = modifiers, n.wid = 800, n.hgt = 600;
        QEventTranslate(&n);
    }
    std::string Got() { return Show(Drain(), &names); }

    QApp* a = nullptr;
    QWindow* shell = nullptr; // whatever the application made, put back before it goes
    QWindow *root = nullptr, *left = nullptr, *right = nullptr; // left: 100,50..300,150; right: 300,50..
    std::map<QWindow*, std::string> names;
};

TEST_F(TranslateTest, DoubleClicks)
{
    const int P = QNATIVE_BUTTONPRESS, R = QNATIVE_BUTTONRELEASE, M = QNATIVE_MOTION;
    struct Case {
        std::vector<std::vector<int>> steps; // kind, x, button, time
        const char* types;
    } cases[] = {
        {{{P, 120, 1, 0}, {R, 120, 1, 50}, {P, 120, 1, 299}}, "4 5 4 50"},
        {{{P, 120, 1, 0}, {P, 120, 1, 300}}, "4 4"},
        {{{P, 120, 1, 0}, {M, 121, 0, 10}, {P, 121, 1, 20}}, "4 6 4"},       // moved a pixel
        {{{P, 120, 1, 0}, {M, 120, 0, 10}, {P, 120, 1, 20}}, "4 6 4 50"},    // motion in place
        {{{P, 120, 1, 0}, {P, 120, 1, 250}, {P, 120, 1, 500}}, "4 4 50 4 50"}, // timed from the second
        {{{P, 120, 1, 0}, {P, 120, 3, 100}}, "4 4"},                         // another button
    };
    Native(M, 120); // the crossing into 'left' out of the way
    Drain();
    for (const Case& c : cases) {
        QEventResetInput();
        for (const std::vector<int>& s : c.steps) Native(s[0], s[1], 60, s[2], uint32_t(s[3]));
        EXPECT_EQ(Show(Drain()), c.types) << c.types;
    }
}

TEST_F(TranslateTest, EnterAheadOfLeaveAndRelativeCoordinates)
{
    for (int x : {110, 111, 310, 600}) Native(QNATIVE_MOTION, x, 60 + x / 300 * 10);
    EXPECT_EQ(Got(), "7:left:10,10 8:-:10,10 6:left:10,10 6:left:11,10 "
                     "7:right:10,20 8:left:10,20 6:right:10,20 7:root:600,80 8:right:600,80 6:root:600,80");
}

TEST_F(TranslateTest, TargetsOfKeysButtonsAndResize)
{
    Native(QNATIVE_KEYPRESS, 0, 0, 0, 0, 'A'); // no focus: the X window at the native corner
    EXPECT_EQ(Got(), "2:root:0,0");
    a->wm->SetFocus(right);
    Drain();
    Native(QNATIVE_KEYPRESS, 0, 0, 0, 0, 'B', 1); // the corner relative to the focus
    a->wm->SetCapture(left);
    Native(QNATIVE_BUTTONPRESS, 350); // over right, captured by left
    a->wm->ReleaseCapture();
    Native(QNATIVE_RESIZE, 0);
    std::vector<QEvent> got = Drain();
    EXPECT_EQ(Show(got, &names), "2:right:-300,-50 7:left:250,10 8:-:250,10 4:left:250,10 22:root:0,0");
    EXPECT_EQ(got[0].n, 0x10042u);
    EXPECT_EQ(got[4].wid * 10000 + got[4].hgt, 8000600);
}

TEST_F(TranslateTest, MotionMerging)
{
    struct Case {
        uint32_t flags;
        int ring;
        const char* queued;
        bool warns;
    } cases[] = {
        {QWF_MERGE_MOTION, 64, "6:left:150,0 2:left:0,0", false},
        {0, 64, "6:left:110,0 2:left:0,0 6:left:150,0", false},
        {QWF_MERGE_MOTION, 2, "6:left:110,0 2:left:0,0", true}, // a full ring loses it even so
    };
    for (const Case& c : cases) {
        Fresh(c.ring);
        left->ClearFlags(QWF_MERGE_MOTION);
        left->SetFlags(c.flags);
        testing::internal::CaptureStderr();
        Push(QEVENT_MOTIONNOTIFY, 0, left, 110, 1), Push(QEVENT_KEYPRESS, 0, left),
            Push(QEVENT_MOTIONNOTIFY, 0, left, 150, 2);
        EXPECT_EQ(testing::internal::GetCapturedStderr().empty(), !c.warns) << c.queued;
        std::vector<QEvent> got = Drain();
        EXPECT_EQ(Show(got, &names), c.queued);
        EXPECT_EQ(got[0].rawX, 1); // a merged entry keeps its raw position
    }
}

TEST_F(TranslateTest, DeadKeys)
{
    struct Case {
        std::vector<uint32_t> in, out;
    } cases[] = {
        {{0x800BA, 0x10045}, {0x800BA, 0x1010A}}, // composed, with the letter's modifiers
        {{0x800BA, 'B', 'E'}, {0x800BA, 'B', 'E'}}, // any other key clears
        {{0x800BA, 16, 'E'}, {0x800BA, 16, 0x10A}}, // shift alone keeps it
        {{0x800BA, 0x40010, 'E'}, {0x800BA, 0x40010, 'E'}}, // shift with control clears
        {{0x800BC, 'A'}, {0x800BC, 'A'}},
        {{0x800BA, 0x900C0, 'N'}, {0x800BA, 0x900C0, 0x10F}},
        {{0x800DE, 'Y', 0x90036, 'U', 0x800BE, 'A', 0x800BC, 'C', 0x800BF, 'O', 0x800C0, 'I'},
         {0x800DE, 0x11A, 0x90036, 0x118, 0x800BE, 0x105, 0x800BC, 0x106, 0x800BF, 0x115, 0x800C0, 0x10B}},
    };
    for (const Case& c : cases) {
        QEventResetInput();
        std::vector<uint32_t> out;
        for (uint32_t code : c.in) out.push_back(QEventDeadKey(code));
        EXPECT_EQ(out, c.out) << c.in[0];
    }
    // Releases pass a pending dead key by.
    QEventResetInput();
    Native(QNATIVE_KEYPRESS, 0, 0, 0, 0, 0xBA, 8);
    Native(QNATIVE_KEYRELEASE, 0, 0, 0, 0, 'E', 1);
    Native(QNATIVE_KEYPRESS, 0, 0, 0, 0, 'E', 1);
    std::vector<QEvent> got = Drain();
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(std::vector<uint32_t>({got[0].n, got[1].n, got[2].n}),
              std::vector<uint32_t>({0x800BA, 0x10045, 0x1010A}));
}

TEST_F(TranslateTest, WindowProcedure)
{
    a->shell = root;
    struct Case {
        int kind;
        uint32_t key, modifiers;
        bool consumed;
        const char* queued;
        uint32_t n;
    } cases[] = {
        {PLATFORM_MSG_KEYDOWN, 115, QMOD_ALT, false, "2:root:0,0", 0x80073}, // alt+F4: the platform closes
        {PLATFORM_MSG_KEYDOWN, 115, QMOD_ALT | QMOD_SHIFT, true, "2:root:0,0", 0x90073},
        {PLATFORM_MSG_KEYDOWN, 115, 0, true, "2:root:0,0", 115},
        {PLATFORM_MSG_KEYUP, 115, QMOD_ALT, true, "3:root:0,0", 0x80073},
        {PLATFORM_MSG_BUTTONDOWN, 0, 0, true, "7:left:20,10 8:-:20,10 4:left:20,10", 3},
        {PLATFORM_MSG_WHEEL, 0, 0, true, "7:left:20,10 8:-:20,10 30:left:20,10", uint32_t(-240)},
        {PLATFORM_MSG_PAINT, 0, 0, false, "", 0},
        {PLATFORM_MSG_SIZE, 0, 0, true, "22:root:0,0", 0},
        {PLATFORM_MSG_CLOSE, 0, 0, true, "105:root:0,0", 0},
        {PLATFORM_MSG_ACTIVATE, 0, 0, true, "31:root:0,0", 0},
    };
    for (const Case& c : cases) {
        // The procedure learns the modifiers from their own key messages.
        const uint32_t keys[][2] = {{QMOD_SHIFT, QK_SHIFT}, {QMOD_CTRL, QK_CTRL}, {QMOD_ALT, QK_ALT}};
        for (const auto& k : keys) {
            PlatformMessage down{};
            down.kind = PLATFORM_MSG_KEYDOWN, down.key = k[1];
            if (c.modifiers & k[0]) QWindowProc(&down);
        }
        Drain();
        a->wm->SetMouseWindow(nullptr);
        PlatformMessage m{};
        m.kind = c.kind, m.key = c.key, m.button = 3, m.delta = -240, m.x = 120, m.y = 60;
        m.screenX = 9999; // the shell's window was never created: the wheel keeps the client position
        EXPECT_EQ(QWindowProc(&m), c.consumed) << c.queued;
        std::vector<QEvent> got = Drain();
        EXPECT_EQ(Show(got, &names), c.queued);
        EXPECT_EQ(got.empty() ? 0 : got.back().n, c.n) << c.queued;
        QEventClearModifiers();
    }
}

// The stopwatch is watched against the platform's counter itself, never against a clock on the wall.
void WaitMs(uint64_t ms)
{
    uint64_t perMs = PlatformCounterFrequency() / 1000, start = PlatformCounter();
    while (PlatformCounter() - start < ms * perMs) {
    }
}

TEST(QTimerTest, StartStopReset)
{
    QTimer t;
    WaitMs(2);
    EXPECT_FALSE(t.IsRunning());
    EXPECT_EQ(t.GetMilliSeconds(), 0u); // a new timer is stopped
    t.Start();
    WaitMs(3);
    t.Start(); // running already: no restart
    EXPECT_GE(t.GetMilliSeconds(), 3u);
    t.Stop();
    uint32_t stopped = t.GetMilliSeconds();
    WaitMs(2);
    EXPECT_EQ(t.GetMilliSeconds(), stopped);
    t.Start();
    WaitMs(1);
    EXPECT_GT(t.GetMilliSeconds(), stopped); // on from where it stopped
    t.Stop();
    uint64_t before = PlatformCounter();
    t.Reset(); // zero and running, even from stopped
    EXPECT_TRUE(t.IsRunning());
    uint32_t ms = t.GetMilliSeconds();
    EXPECT_LE(ms, (PlatformCounter() - before) / (PlatformCounterFrequency() / 1000));

    QEventShutdown();
    EXPECT_FALSE(QEventTimer()->IsRunning());
    QEventInit(4); // the event timer runs with the ring
    EXPECT_TRUE(QEventTimer()->IsRunning());
    QEventShutdown();
}

} // namespace
