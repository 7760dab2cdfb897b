#include "toolkit/qapp.h"

#include "foundation/qapphooks.h"
#include "foundation/qfilesys.h"
#include "foundation/qlanguage.h"
#include "images/qbitmap.h"
#include "tests/support/testsupport.h"
#include "toolkit/qevent.h"
#include "toolkit/qstate.h"
#include "toolkit/qwindow.h"
#include "toolkit/qwinmgr.h"
#include "toolkit/qxwindow.h"

#include <gtest/gtest.h>

#include <string>

namespace tarvik {
namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

std::string trail; // who saw what, in order

void Cleanup0() { trail += "c0 "; }
void Cleanup1() { trail += "c1 "; }
void Idle() { trail += "idle "; }

QEvent MakeEvent(int type, uint32_t n, QWindow* win = nullptr)
{
    QEvent e;
    QEventClear(&e);
    e.type = type;
    e.n = n;
    e.win = win;
    return e;
}

// Pushes one event and runs one step of the loop.
int Step(int type, uint32_t n, QWindow* win = nullptr)
{
    QEvent e = MakeEvent(type, n, win);
    QEventPush(&e);
    return app->Run1();
}

class QAppTest : public testing::Test {
protected:
    void SetUp() override
    {
        trail.clear();
        a = new QApp("apptest");
    }
    void TearDown() override { delete a; }
    QApp* a = nullptr;
};

TEST_F(QAppTest, CleanupTableHoldsAHundredAndRunsThemFirstRegisteredFirst)
{
    a->flags |= QAPPF_KEEP_ALIVE;
    EXPECT_TRUE(a->AddCleanupProc(Cleanup0));
    EXPECT_TRUE(a->AddCleanupProc(Cleanup1));
    for (int i = 2; i < 100; i++) EXPECT_TRUE(a->AddCleanupProc(nullptr));
    CaptureStderr();
    EXPECT_FALSE(a->AddCleanupProc(Cleanup0));
    a->Exit(5); // keeps the process: the bit goes, the table stays
    std::string err = GetCapturedStderr();
    EXPECT_NE(err.find("QApp::AddCleanupProc(); out of space - memory leaks WILL occur!"), std::string::npos);
    EXPECT_NE(err.find("QApp: calling cleanup proc 99...\n"), std::string::npos);
    EXPECT_NE(err.find("  cleanup 99 returned.\n"), std::string::npos);
    EXPECT_EQ(trail, "c0 c1 ");
    EXPECT_EQ(a->cleanupProcs, 100);
    EXPECT_EQ(a->flags & QAPPF_KEEP_ALIVE, 0u);
    EXPECT_EQ(app, a);
}

TEST(QAppDeathTest, SecondExitEndsTheProcessAfterTheCleanupsRanAgain)
{
    EXPECT_EXIT(
        {
            QApp* a = new QApp("apptest");
            a->flags |= QAPPF_KEEP_ALIVE;
            a->AddCleanupProc([] { fputs("cleanup ran\n", stderr); });
            a->Exit(3);
            a->Exit(7);
        },
        testing::ExitedWithCode(7), "cleanup ran\n(.|\n)*cleanup ran\n");
}

TEST(QAppDeathTest, CloseForShellEndsTheProgramWithZero)
{
    EXPECT_EXIT(
        {
            QApp* a = new QApp("apptest");
            a->shell = new QWindow(nullptr, 0, 0, 10, 10);
            Step(QEVENT_CLOSE, 0, a->shell);
            fputs("still running\n", stderr);
            std::exit(1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(QAppTest, EmptyQueueCallsTheIdleProcAndReturnsTwo)
{
    EXPECT_EQ(a->Run1(), 2);
    a->SetIdleProc(Idle);
    EXPECT_EQ(a->Run1(), 2);
    EXPECT_EQ(trail, "idle ");
}

// A window that takes the keyboard focus and swallows what it is told to.
class Swallower : public QWindow {
public:
    explicit Swallower(QWindow* p) : QWindow(p, 0, 0, 10, 10) {}
    bool ProcessEvent(QEvent* e) override
    {
        trail += "win ";
        return swallow;
    }
    bool swallow = false;
};

bool KeyHookNo(QEvent*) { trail += "key0 "; return false; }
bool KeyHookYes(QEvent*) { trail += "key1 "; return true; }
bool AppNo(QEvent*) { trail += "app "; return false; }
bool AppYes(QEvent*) { trail += "app "; return true; }
bool StateNo(QEvent*) { trail += "state "; return false; }
bool StateYes(QEvent*) { trail += "state "; return true; }

TEST_F(QAppTest, HooksThenWindowsThenApplicationThenStatesMaySwallow)
{
    // An X window whose native window was never made: enough for the list, no display needed.
    QWindow* root = new QWindow(nullptr, 0, 0, 100, 100);
    root->SetFlags(QWF_X | QWF_CREATED);
    root->xwin = new QXWindow(nullptr, 0, 0, 100, 100);
    a->wm->AddWindow(root);
    a->shell = root;
    Swallower* win = new Swallower(root);
    ASSERT_TRUE(win->Create());
    a->wm->SetFocus(win);
    while (QEventCount()) a->Run1(); // the focus events

    a->sm = new QStateManager();
    QState state("s", StateNo, nullptr, nullptr, nullptr);
    a->sm->GotoState(&state, true);

    struct Case {
        int type;
        QApp::EventProc hook, appProc;
        bool winSwallows;
        QState::EventProc stateProc;
        int result;
        const char* trail;
    } cases[] = {
        {QEVENT_KEYPRESS, KeyHookYes, AppYes, true, StateYes, 0, "key0 key1 "},
        {QEVENT_KEYPRESS, KeyHookNo, AppYes, true, StateYes, 0, "key0 key0 win "},
        {QEVENT_KEYRELEASE, KeyHookNo, AppYes, false, StateYes, 0, "key0 key0 win win app "},
        {QEVENT_KEYPRESS, KeyHookNo, AppNo, false, StateYes, 0, "key0 key0 win win app state "},
        {QEVENT_KEYPRESS, KeyHookNo, AppNo, false, StateNo, 1, "key0 key0 win win app state "},
        {QEVENT_BUTTONPRESS, KeyHookYes, AppNo, false, StateNo, 1, "win app state "}, // key hooks see keys only
        {QEVENT_CLOSE, KeyHookYes, nullptr, false, StateNo, 1, "win state "}, // close for another window
    };
    for (const Case& c : cases) {
        trail.clear();
        a->SetKeyProc(0, KeyHookNo);
        a->SetKeyProc(3, c.hook);
        a->SetEventProc(c.appProc);
        win->swallow = c.winSwallows;
        state.eventProc = c.stateProc;
        EXPECT_EQ(Step(c.type, 'A', win), c.result) << c.trail;
        EXPECT_EQ(trail, c.trail);
    }
    delete win;
    a->sm->GotoState(nullptr, true);
}

TEST_F(QAppTest, InputStateFollowsTheEvents)
{
    QEvent seen;
    struct Case {
        int type;
        uint32_t n;
        uint32_t wantN, wantModifiers, wantButtons;
    } cases[] = {
        {QEVENT_KEYPRESS, QK_CTRL | QMOD_ALT, QK_CTRL | QMOD_CTRL, QMOD_CTRL, 0}, // the native bits are replaced
        {QEVENT_KEYPRESS, 'S', 0x40053, QMOD_CTRL, 0},
        {QEVENT_KEYPRESS, QK_SHIFT, QK_SHIFT | QMOD_SHIFT | QMOD_CTRL, QMOD_SHIFT | QMOD_CTRL, 0},
        {QEVENT_KEYRELEASE, QK_CTRL, QK_CTRL | QMOD_SHIFT, QMOD_SHIFT, 0},
        {QEVENT_BUTTONPRESS, 3, 3, QMOD_SHIFT, 8},
        {QEVENT_BUTTONPRESS, 1, 1, QMOD_SHIFT, 10},
        {QEVENT_BUTTONRELEASE, 3, 3, QMOD_SHIFT, 2},
        {QEVENT_KEYPRESS, QK_ALT, QK_ALT | QMOD_SHIFT | QMOD_ALT, QMOD_SHIFT | QMOD_ALT, 2},
        {QEVENT_ACTIVATE, 0, 0, 0, 2}, // focus lost: no key stays held
        {QEVENT_KEYRELEASE, 'S', 'S', 0, 2},
    };
    for (const Case& c : cases) {
        Step(c.type, c.n);
        seen = a->event;
        EXPECT_EQ(seen.n, c.wantN) << c.type << " " << c.n;
        EXPECT_EQ(a->GetModifiers(), c.wantModifiers) << c.type << " " << c.n;
        EXPECT_EQ(a->GetButtons(), c.wantButtons) << c.type << " " << c.n;
    }
    QEvent motion = MakeEvent(QEVENT_MOTIONNOTIFY, 0);
    motion.rawX = 17;
    motion.rawY = -4;
    QEventPush(&motion);
    a->Run1();
    EXPECT_EQ(a->GetMouseX(), 17);
    EXPECT_EQ(a->GetMouseY(), -4);
}

void StartFrame() { trail += "frame "; }
bool GlobalSees(QEvent* e) { trail += "global "; return e->n == 'G'; }

TEST_F(QAppTest, RunEventsRecordsTheStartStateAndEmptiesTheQueue)
{
    test::TempDir dir(true); // the first tape is made in the current directory
    a->sm = new QStateManager();
    QState global("global", GlobalSees, nullptr, nullptr, nullptr);
    QState start("start", StateNo, StartFrame, nullptr, nullptr);
    for (uint32_t n : {uint32_t('G'), uint32_t('x'), uint32_t('G')}) {
        QEvent e = MakeEvent(QEVENT_KEYPRESS, n);
        QEventPush(&e);
    }
    a->RunEvents(&start, &global);
    EXPECT_EQ(trail, "frame global global state global ");
    EXPECT_EQ(QEventCount(), 0);
    EXPECT_EQ(a->sm->GetCurrent(), &start);
    EXPECT_EQ(a->sm->GetFrames(), 1);
    a->RunEvents(nullptr, nullptr); // nothing waits: returns at once
    EXPECT_EQ(a->sm->GetGlobalState(), nullptr);
    a->sm->GotoState(nullptr, true);
}

bool (*const readBack)(QWindow*, QBitMap*) = [](QWindow* w, QBitMap* bm) {
    bm->Clear();
    bm->SetColorAt(0, 0, QColor(10, 20, 30, 0));
    return true;
};

TEST_F(QAppTest, F11PhotographsTheCanvasWindowAndControlAltF11TheShell)
{
    test::TempDir dir;
    a->screenshotDir = dir.Path().c_str();
    test::WriteFile(dir.File("bc00001.tga"), "x");
    test::WriteFile(dir.File("bc00002.tga"), "x");
    struct Case {
        uint32_t held; // modifier key held before F11
        const char* report;
    } cases[] = {
        {0, "> Saving screenshot of BC in '%s/bc00003.tga'\n> No BC present.\n"},
        {QK_ALT, ""}, // the code carries the modifier: no picture
        {QK_CTRL, "> Saving screenshot of UI in '%s/ui00001.tga'\n> No UI present.\n"},
    };
    for (const Case& c : cases) {
        if (c.held) Step(QEVENT_KEYPRESS, c.held);
        CaptureStderr();
        Step(QEVENT_KEYPRESS, QK_F11);
        std::string err = GetCapturedStderr();
        char want[512];
        std::snprintf(want, sizeof(want), c.report, dir.Path().c_str());
        if (*want)
            EXPECT_NE(err.find(want), std::string::npos) << err;
        else
            EXPECT_EQ(err.find("Saving screenshot"), std::string::npos) << err;
    }
    // Control and alt are both held now.
    a->shell = new QWindow(nullptr, 0, 0, 3, 2);
    QApp::screenshotReader = readBack;
    CaptureStderr();
    Step(QEVENT_KEYPRESS, QK_F11);
    std::string err = GetCapturedStderr();
    QApp::screenshotReader = nullptr;
    EXPECT_NE(err.find("> Saving screenshot of UI in '" + dir.File("ui00001.tga") + "'\n"), std::string::npos) << err;
    std::string tga = test::ReadFile(dir.File("ui00001.tga"));
    ASSERT_EQ(tga.size(), 18u + 3 * 2 * 4) << "a 3x2 picture of 32 bits";
    // Row 0 at the bottom, pixels stored blue, green, red, alpha; the alpha is set to 255.
    EXPECT_EQ(tga.substr(18 + 3 * 4, 4), std::string("\x1e\x14\x0a\xff", 4));
}

TEST_F(QAppTest, ScreenshotNamesSkipFilesOfEarlierRuns)
{
    test::TempDir dir;
    a->screenshotDir = (dir.Path() + "/").c_str();
    qstring name;
    ASSERT_TRUE(a->NextScreenshotName("ui", name));
    EXPECT_EQ(std::string(name.cstr()), dir.File("ui00001.tga"));
    test::WriteFile(dir.File("ui00001.tga"), "");
    test::WriteFile(dir.File("ui00003.tga"), "");
    ASSERT_TRUE(a->NextScreenshotName("ui", name));
    EXPECT_EQ(std::string(name.cstr()), dir.File("ui00002.tga"));
}

TEST_F(QAppTest, FoundationSeesTheApplicationOnlyWhileItLives)
{
    ASSERT_NE(qappHooks, nullptr);
    EXPECT_STREQ(qappHooks->GetName(), "apptest");
    QLanguage language;
    a->language = &language;
    EXPECT_EQ(qappHooks->GetLanguage(), &language);
    EXPECT_EQ(qappHooks->GetBoxOwner(), nullptr); // no shell
    a->language = nullptr;
    delete a;
    a = nullptr;
    EXPECT_EQ(app, nullptr);
    EXPECT_EQ(qappHooks, nullptr);
    a = new QApp("again");
    EXPECT_STREQ(qappHooks->GetName(), "again");
}

} // namespace
} // namespace tarvik
