// The window tree and the window manager without a display: a root window that plays shell (an X
// window whose native handle stays null) and plain children of it, driven by events handed straight
// to QWindowManager::ProcessEvent.
#include "toolkit/qwinmgr.h"

#include "tests/support/testsupport.h"
#include "toolkit/qapp.h"
#include "toolkit/qevent.h"
#include "toolkit/qwindow.h"
#include "toolkit/qxwindow.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace tarvik {
namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

std::string trail;          // "name " for each ProcessEvent, "name* " for each direct OnKeyPress
std::vector<QWindow*> made; // windows a test made and that still live

// A window that notes what reaches it, and eats, deletes itself or deletes another window on request.
// A 'plain' one keeps the default handlers and notes nothing.
class Probe : public QWindow {
public:
    Probe(QWindow* p, const char* name, int x0, int y0, int w, int h) : QWindow(p, x0, y0, w, h)
    {
        SetName(name);
    }
    ~Probe() override { made.erase(std::remove(made.begin(), made.end(), this), made.end()); }
    bool ProcessEvent(QEvent* e) override { return plain ? QWindow::ProcessEvent(e) : Saw(""); }
    bool OnKeyPress(int key, int px, int py) override
    {
        return plain ? QWindow::OnKeyPress(key, px, py) : Saw("*");
    }
    bool eats = false, dies = false, plain = false;
    QWindow* kills = nullptr;

private:
    bool Saw(const char* how)
    {
        trail += std::string(GetName()) + how + " ";
        delete kills;
        kills = nullptr;
        if (!dies) return eats;
        delete this;
        return false;
    }
};

std::string Name(const QWindow* w) { return w ? w->GetName() : "-"; }
std::string Pos(const QWindow* w) { return std::to_string(w->x) + "," + std::to_string(w->y); }
bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

class QWinMgrTest : public testing::Test {
protected:
    void SetUp() override
    {
        trail.clear();
        a = new QApp("wmtest");
        wm = a->wm;
        root = new Probe(nullptr, "root", 7, 9, 200, 100); // not at (0,0): children must not care
        root->SetFlags(QWF_X | QWF_CREATED);
        root->xwin = new QXWindow(nullptr, 0, 0, 200, 100);
        wm->AddWindow(root);
        a->shell = root;
    }
    void TearDown() override { DeleteMade(), delete a; }
    static void DeleteMade() { while (!made.empty()) delete made.back(); } // each leaves 'made' itself
    Probe* Make(QWindow* parent, const char* name, int x0 = 0, int y0 = 0, int w = 10, int h = 10)
    {
        Probe* win = new Probe(parent, name, x0, y0, w, h);
        made.push_back(win);
        EXPECT_TRUE(win->Create());
        return win;
    }
    Probe* MakeDialog(const char* name, int x0, int y0)
    {
        Probe* d = Make(root, name, x0, y0, 100, 100);
        d->SetFlags(QWF_GROUP);
        d->group = d; // before any child is made: children take the group at construction
        return d;
    }
    std::string Order() const
    {
        std::string s;
        for (QWindow* w : wm->GetWindows()) s += Name(w) + " ";
        return s;
    }
    static std::string Queued()
    {
        std::string s;
        for (QEvent e; QEventCount() > 0;) {
            QEventPop(&e);
            s += e.type == QEVENT_FOCUSIN ? "in:" : e.type == QEVENT_FOCUSOUT ? "out:" : "?:";
            s += Name(e.win) + " ";
        }
        return s;
    }
    bool Send(int type, QWindow* win, uint32_t n = 0)
    {
        QEvent e = {type, 0, 0, 0, 0, n, 0, 0, 0, win};
        return wm->ProcessEvent(&e);
    }
    test::TempDir dir{true}; // warnings go to QLOG.txt in the current directory
    QApp* a = nullptr;
    QWindowManager* wm = nullptr;
    Probe* root = nullptr;
};

TEST_F(QWinMgrTest, AbsolutePositionsAddNoShellAndFollowAParentOnlyThroughReposition)
{
    Probe* c = Make(root, "c", 10, 20);
    Probe* g = Make(c, "g", 1, 1);
    EXPECT_EQ(Pos(c) + " " + Pos(g), "10,20 11,21");
    c->Move(30, 40, true);
    EXPECT_EQ(Pos(g), "11,21"); // a moved parent leaves its children where they were
    EXPECT_TRUE(g->Reposition(true));
    EXPECT_EQ(Pos(g), "31,41");
    c->MoveRelative(-5, 5, false);
    EXPECT_EQ(Pos(c), "25,45");
    EXPECT_FALSE(root->Reposition(false)); // no parent

    Probe* d = MakeDialog("d", 100, 10);
    Probe* k = Make(d, "k", 2, 3);
    Probe* m = Make(k, "m", 1, 1);
    d->Move(120, 30, false);
    wm->RepositionChildren(c, false); // not a group: nothing moves
    EXPECT_EQ(Pos(k) + " " + Pos(g), "102,13 31,41");
    wm->RepositionChildren(d, false);
    EXPECT_EQ(Pos(k) + " " + Pos(m), "122,33 123,34");

    Probe orphan(nullptr, "orphan", 0, 0, 5, 5);
    CaptureStderr();
    EXPECT_FALSE(orphan.Create());
    EXPECT_TRUE(Has(GetCapturedStderr(), "QWindow::Create() without a parent real X window"));
    EXPECT_FALSE(orphan.GetFlags() & QWF_CREATED);
    EXPECT_FALSE(wm->Contains(&orphan));
}

TEST_F(QWinMgrTest, HideAndShowAreIdempotentAndHiddenOrDisabledWindowsTakeNoKeys)
{
    Probe* w = Make(root, "w");
    w->SetEventMask(11); // a button's mask
    EXPECT_TRUE(w->Accepts(8) && !w->Accepts(4));
    w->Hide(), w->Hide();
    EXPECT_FALSE(w->IsVisible() || w->Accepts(8));
    w->Show(), w->Show();
    EXPECT_TRUE(w->IsVisible() && w->Accepts(8));
    w->Enable(false);
    EXPECT_FALSE(w->Accepts(8));

    CaptureStderr();
    root->Hide();
    EXPECT_TRUE(Has(GetCapturedStderr(), "Can't hide X QWindow"));
    EXPECT_TRUE(root->IsVisible());
    root->SetFlags(QWF_HIDDEN);
    CaptureStderr();
    root->Hide(); // already hidden: not even the warning
    EXPECT_EQ(GetCapturedStderr(), "");
}

TEST_F(QWinMgrTest, FindWindowAtTakesTheLatestVisibleEnabledWindowUnderThePoint)
{
    Make(root, "lower", 10, 10, 50, 50);
    Probe* upper = Make(root, "upper", 30, 30, 50, 50);
    struct Case { uint32_t upperFlags; int px, py; const char* want; };
    const Case cases[] = {
        {0, 40, 40, "upper"},          {0, 20, 20, "lower"}, {QWF_HIDDEN, 40, 40, "lower"},
        {QWF_DISABLED, 40, 40, "lower"}, {0, 79, 79, "upper"}, {0, 80, 80, "root"},
        {0, 3, 3, "root"}, // shell is an X window: its own rectangle counts from (0, 0)
        {0, 200, 50, "-"},
    };
    for (const Case& c : cases) {
        upper->ClearFlags(QWF_HIDDEN | QWF_DISABLED);
        upper->SetFlags(c.upperFlags);
        EXPECT_EQ(Name(wm->FindWindowAt(nullptr, c.px, c.py)), c.want) << c.px << "," << c.py;
    }
    EXPECT_EQ(wm->FindXWindow(nullptr), root);
}

TEST_F(QWinMgrTest, ActiveGroupStaysOnTopAndEventsOutsideItDieWithoutBubbling)
{
    Probe* d = MakeDialog("d", 100, 0);
    Probe* button = Make(d, "button", 10, 10);
    Probe* inner = Make(button, "inner", 1, 1);
    Probe* outside = Make(root, "outside", 0, 0, 150, 100);
    wm->SetActiveGroup(d, true);
    EXPECT_EQ(Order(), "inner button d outside root ");
    Make(root, "late");
    Make(d, "member");
    EXPECT_EQ(Order(), "member inner button d late outside root ");
    EXPECT_EQ(Name(wm->FindWindowAt(nullptr, 50, 50)), "outside"); // below the dialog, outside it
    EXPECT_EQ(Name(wm->FindWindowAt(nullptr, 120, 50)), "d");

    EXPECT_FALSE(Send(QEVENT_BUTTONPRESS, outside));
    EXPECT_FALSE(Send(QEVENT_CLICK, outside));
    EXPECT_EQ(trail, "");
    EXPECT_FALSE(Send(QEVENT_BUTTONPRESS, inner));
    EXPECT_EQ(trail, "inner button d root "); // shell has no group, but the target decides

    d->Enable(false); // a disabled dialog disables what belongs to it, however deep
    EXPECT_FALSE(button->IsEnabled() || inner->IsEnabled());
    wm->SetActiveGroup(outside, true); // not a group leader: no group at all
    EXPECT_EQ(wm->GetActiveGroup(), nullptr);
    trail.clear();
    EXPECT_FALSE(Send(QEVENT_CLICK, outside));
    EXPECT_EQ(trail, "outside root ");
}

TEST_F(QWinMgrTest, FocusChangesQueueOutThenInAndRemovalClearsFocusAndCaptureSilently)
{
    Probe *x = Make(root, "x"), *y = Make(root, "y");
    std::string seen;
    for (Probe* to : {x, x, y, static_cast<Probe*>(nullptr)}) {
        wm->SetFocus(to);
        seen += "| " + Queued();
    }
    EXPECT_EQ(seen, "| in:x | | out:x in:y | out:y ");

    wm->SetFocus(y), wm->SetCapture(y), Queued();
    EXPECT_TRUE(y->HasFocus());
    delete y;
    EXPECT_TRUE(wm->GetFocus() == nullptr && wm->GetCapture() == nullptr);
    EXPECT_EQ(QEventCount(), 0);

    Probe stray(root, "stray", 0, 0, 5, 5); // never created
    char want[128];
    std::snprintf(want, sizeof want, "QWindowManager:RemoveWindow: win %p was NOT found (stray)\n",
                  static_cast<void*>(&stray));
    CaptureStderr();
    EXPECT_FALSE(wm->RemoveWindow(&stray));
    EXPECT_TRUE(Has(GetCapturedStderr(), want));
}

TEST_F(QWinMgrTest, TabOrderWrapsTreatsEqualStopsAsOneSkipsMinusOneAndFollowsTheTabKey)
{
    // Made in this order; among equal stops the later one lies in front and wins.
    struct Stop { const char* name; int tabStop; uint32_t flags; };
    const Stop stops[] = {{"a", 2, 0},  {"b", 0, 0},           {"c", 5, 0},           {"d", 2, 0},
                          {"e", -1, 0}, {"f", 9, QWF_HIDDEN}, {"g", 4, QWF_DISABLED}};
    for (const Stop& s : stops) {
        Probe* w = Make(root, s.name);
        w->tabStop = s.tabStop;
        w->SetFlags(s.flags);
    }
    std::string seen;
    for (int i = 0; i < 4; i++) wm->FocusNext(), seen += Name(wm->GetFocus()) + " ";
    for (int i = 0; i < 3; i++) wm->FocusPrevious(), seen += Name(wm->GetFocus()) + " ";
    wm->FocusLast();
    seen += Name(wm->GetFocus()) + " ";
    wm->FocusFirst();
    seen += Name(wm->GetFocus());
    EXPECT_EQ(seen, "b d c b c d b c b");

    // Tab and shift+Tab in the default key handler of the focus window, unless tabbing is off.
    for (QWindow* w : made) static_cast<Probe*>(w)->plain = true;
    QWindow* b = wm->GetFocus();
    EXPECT_TRUE(Send(QEVENT_KEYPRESS, b, QK_TAB));
    EXPECT_EQ(Name(wm->GetFocus()), "d");
    EXPECT_TRUE(Send(QEVENT_KEYPRESS, b, QMOD_SHIFT | QK_TAB));
    EXPECT_EQ(Name(wm->GetFocus()), "b");
    wm->EnableTabbing(false);
    EXPECT_FALSE(Send(QEVENT_KEYPRESS, b, QK_TAB));
    EXPECT_EQ(Name(wm->GetFocus()), "b");

    EXPECT_EQ(wm->GetMaxTabStop(), 9); // hidden windows count
    Probe* h = Make(root, "h");
    h->SetTabStop(-2);
    EXPECT_EQ(h->tabStop, 10);
}

// The road: focus (keys), capture (mouse), windows with event mask 8 (key press), then the parents.
TEST_F(QWinMgrTest, EventsTakeTheRoadFocusCaptureKeyWindowsThenParents)
{
    Probe* p = Make(root, "p", 0, 0, 50, 50);
    Probe* t = Make(p, "t");
    Probe *f = Make(root, "F"), *c = Make(root, "C"), *k = Make(root, "K"), *hidden = Make(root, "H");
    k->SetEventMask(8);
    hidden->SetEventMask(8);
    hidden->Hide();
    wm->SetFocus(f);
    wm->SetCapture(c);
    struct Case { int type; bool focusEats, captureEats, keyEats; const char* want; bool result; };
    const Case cases[] = {
        {QEVENT_KEYPRESS, true, false, false, "F ", true},
        {QEVENT_KEYPRESS, false, false, true, "F K* ", true},
        {QEVENT_KEYPRESS, false, true, false, "F K* t p root ", false},
        {QEVENT_KEYRELEASE, false, true, true, "F t p root ", false},
        {QEVENT_BUTTONPRESS, true, true, true, "C ", true},
        {QEVENT_BUTTONRELEASE, true, false, true, "C t p root ", false},
        {QEVENT_MOTIONNOTIFY, true, false, true, "C t p root ", false},
        {QEVENT_CLICK, true, true, true, "t p root ", false},
    };
    for (const Case& cs : cases) {
        f->eats = cs.focusEats, c->eats = cs.captureEats, k->eats = cs.keyEats;
        trail.clear();
        EXPECT_EQ(Send(cs.type, t), cs.result) << cs.type;
        EXPECT_EQ(trail, cs.want) << cs.type;
    }
    wm->SetFocus(nullptr), wm->ReleaseCapture(), k->eats = false;

    const int bubbling[] = {2, 3, 4, 5, 6, 50, 100, 102, 103}; // only these go on to the parent
    for (int type : {2, 3, 4, 5, 6, 7, 8, 12, 22, 30, 31, 50, 100, 102, 103, 105}) {
        bool up = std::find(std::begin(bubbling), std::end(bubbling), type) != std::end(bubbling);
        trail.clear();
        Send(type, t);
        EXPECT_EQ(trail, std::string(type == 2 ? "K* " : "") + (up ? "t p root " : "t ")) << type;
    }

    // Disabled windows stop the road, except for an expose; a window not in the list takes nothing.
    p->Enable(false);
    trail.clear();
    Send(QEVENT_BUTTONPRESS, t);
    t->Enable(false);
    Send(QEVENT_BUTTONPRESS, t);
    Send(QEVENT_EXPOSE, t);
    Probe stray(root, "stray", 0, 0, 5, 5);
    EXPECT_FALSE(Send(QEVENT_BUTTONPRESS, &stray));
    EXPECT_FALSE(Send(QEVENT_BUTTONPRESS, nullptr));
    EXPECT_EQ(trail, "t t ");
}

// A handler that deletes its own window ends the road; nothing reads the dead window afterwards.
TEST_F(QWinMgrTest, AHandlerThatDeletesItsWindowEndsTheRoad)
{
    struct Case { char dying; int type; bool focus; const char* want; };
    const Case cases[] = {
        {'t', QEVENT_CLICK, false, "t "},
        {'p', QEVENT_CLICK, false, "t p "}, // the target outlives its parent
        {'t', QEVENT_KEYPRESS, true, "t "},
        {'K', QEVENT_KEYPRESS, false, "K* t p root "},
    };
    for (const Case& cs : cases) {
        Probe* p = Make(root, "p", 0, 0, 50, 50);
        Probe* t = Make(p, "t");
        Probe* k = Make(root, "K");
        k->SetEventMask(8);
        (cs.dying == 't' ? t : cs.dying == 'p' ? p : k)->dies = true;
        if (cs.focus) wm->SetFocus(t);
        trail.clear();
        EXPECT_FALSE(Send(cs.type, t)) << cs.dying << " " << cs.type;
        EXPECT_EQ(trail, cs.want) << cs.dying << " " << cs.type;
        EXPECT_EQ(wm->GetFocus(), nullptr);
        DeleteMade();
        Queued();
    }

    // A shortcut's handler may delete another window with a shortcut, further down the list.
    Probe* later = Make(root, "L");
    Probe* first = Make(root, "K");
    later->SetEventMask(8);
    first->SetEventMask(8);
    first->kills = later;
    trail.clear();
    EXPECT_FALSE(Send(QEVENT_KEYPRESS, root));
    EXPECT_EQ(trail, "K* root ");
}

} // namespace
} // namespace tarvik
