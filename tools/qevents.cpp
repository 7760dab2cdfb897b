// qevents: opens a window and prints every event the toolkit makes of the input it gets, one line
// each, as the application's own event procedure sees them. Two states take turns on the space bar;
// each change is recorded on the tape, which control plus S saves as bc.vcr and control plus L plays
// back. F11 and control+alt+F11 take screenshots. Closing the window ends the program.
//
//   qevents [-size WxH] [-quiet]
#include "foundation/qmessage.h"
#include "platform/platform_window.h"
#include "toolkit/qapp.h"
#include "toolkit/qevent.h"
#include "toolkit/qstate.h"
#include "toolkit/qwindow.h"
#include "toolkit/qxwindow.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace tarvik;

namespace {

bool quiet;

const char* TypeName(int type)
{
    switch (type) {
    case QEVENT_NONE: return "none";
    case QEVENT_KEYPRESS: return "keypress";
    case QEVENT_KEYRELEASE: return "keyrelease";
    case QEVENT_BUTTONPRESS: return "buttonpress";
    case QEVENT_BUTTONRELEASE: return "buttonrelease";
    case QEVENT_MOTIONNOTIFY: return "motion";
    case QEVENT_ENTER: return "enter";
    case QEVENT_LEAVE: return "leave";
    case QEVENT_RESIZE: return "resize";
    case QEVENT_WHEEL: return "wheel";
    case QEVENT_ACTIVATE: return "activate";
    case QEVENT_DBLCLICK: return "dblclick";
    case QEVENT_FOCUSIN: return "focusin";
    case QEVENT_FOCUSOUT: return "focusout";
    case QEVENT_CLOSE: return "close";
    default: return "other";
    }
}

// Sees every event that no window took; prints it and lets it go on to the states.
bool PrintEvent(QEvent* e)
{
    if (quiet) return false;
    std::printf("%-13s n=0x%05x x=%d y=%d raw=%d,%d size=%dx%d win=%s\n", TypeName(e->type), unsigned(e->n), e->x,
                e->y, e->rawX, e->rawY, e->wid, e->hgt, e->win ? e->win->GetName() : "-");
    std::fflush(stdout);
    return false;
}

QState* states[2];

bool StateEvent(QEvent* e)
{
    if (e->type != QEVENT_KEYPRESS || e->n != QK_SPACE) return false;
    QStateManager* sm = app->GetStateManager();
    sm->GotoState(sm->GetCurrent() == states[0] ? states[1] : states[0], false);
    return true;
}

void EnterState()
{
    QStateManager* sm = app->GetStateManager();
    std::printf("state %s, frame %d of %d\n", sm->GetCurrent()->name, sm->GetFrame(), sm->GetFrames());
    std::fflush(stdout);
}

void Idle() { PlatformWaitMessage(50); }

} // namespace

int main(int argc, char** argv)
{
    int wid = 480, hgt = 320;
    for (int i = 1; i < argc; i++) {
        if (!std::strcmp(argv[i], "-size") && i + 1 < argc && std::sscanf(argv[i + 1], "%dx%d", &wid, &hgt) == 2) {
            i++;
        } else if (!std::strcmp(argv[i], "-quiet")) {
            quiet = true;
        } else {
            std::fprintf(stderr, "usage: qevents [-size WxH] [-quiet]\n");
            return 2;
        }
    }
    if (wid < 1 || hgt < 1 || wid > 16384 || hgt > 16384) {
        std::fprintf(stderr, "qevents: the size must be between 1x1 and 16384x16384\n");
        return 2;
    }

    QApp* a = new QApp("qevents");
    a->title = "qevents";
    a->sm = new QStateManager();
    QState one("one", StateEvent, nullptr, EnterState, nullptr);
    QState two("two", StateEvent, nullptr, EnterState, nullptr);
    states[0] = &one;
    states[1] = &two;

    QWindow* shell = new QWindow(nullptr, 0, 0, wid, hgt);
    shell->SetName("shell");
    shell->SetFlags(QWF_X);
    a->shell = shell;
    if (!shell->Create() || !shell->GetXWindow()->GetNativeHandle()) {
        std::fprintf(stderr, "qevents: no window could be opened (is DISPLAY set?)\n");
        delete a;
        return 1;
    }
    a->SetEventProc(PrintEvent);
    a->SetIdleProc(Idle);
    a->sm->GotoState(&one, false);
    for (;;) a->Run1(); // a close event for the window ends the program through QApp::Exit
}
