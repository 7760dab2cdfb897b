#include "toolkit/qapp.h"

#include "toolkit/glext.h" // first of the OpenGL headers

#include "foundation/qapphooks.h"
#include "foundation/qfilesys.h"
#include "foundation/qmessage.h"
#include "images/qbitmap.h"
#include "platform/platform_window.h"
#include "toolkit/qcanvas.h"
#include "toolkit/qfont.h"
#include "toolkit/qglcontext.h"
#include "toolkit/qfxmanager.h"
#include "toolkit/qstate.h"
#include "toolkit/qwindow.h"
#include "toolkit/qwinmgr.h"
#include "toolkit/qxwindow.h"

#include <cstdio>
#include <cstring>

namespace tarvik {

QApp* app = nullptr;
bool (*QApp::screenshotReader)(QWindow* window, QBitMap* into) = nullptr;

namespace {

// What the window shows. On a native window the display is asked: it holds exactly what the user
// sees, where a software renderer's front buffer reads back empty once it has been swapped. Without
// one, or when the display can't say, the front buffer is read through the canvas.
bool ReadWindowFront(QWindow* window, QBitMap* into)
{
    QCanvas* cv = window->GetCanvas();
    if (cv) cv->Select();
    QXWindow* xw = window->GetXWindow();
    PlatformWindow* native = xw ? xw->GetPlatformWindow() : nullptr;
    // A plain child lies at its absolute position in its ancestor's native window.
    int nx = window->IsX() ? 0 : window->x, ny = window->IsX() ? 0 : window->y;
    if (native &&
        PlatformWindowReadPixels(native, nx, ny, into->GetWidth(), into->GetHeight(), into->GetMemory()))
        return true;
    QGLContext* gl = cv && cv->GetGLContext() ? cv->GetGLContext() : QGLContext::GetCurrent();
    if (!cv || !gl || !gl->GetNative()) return false;
    glReadBuffer(GL_FRONT);
    cv->ReadPixels(into, 0, 0, -1, -1, 0, 0);
    glReadBuffer(GL_BACK);
    return true;
}

// What the foundation asks of the application: always of the one behind 'app', so that the hooks
// never outlive it.
const char* HookName() { return app ? app->appName : nullptr; }

void* HookBoxOwner()
{
    if (!app || !app->shell) return nullptr;
    QXWindow* xw = app->shell->GetXWindow();
    return xw ? xw->GetNativeHandle() : nullptr;
}

QVirtualFileSystem* HookFileSystem() { return app ? app->vfs : nullptr; }
QLanguage* HookLanguage() { return app ? app->language : nullptr; }

const QAppHooks appHooks = {HookName, HookBoxOwner, nullptr, HookFileSystem, HookLanguage, nullptr};

} // namespace

QApp::QApp(const char* name)
    : flags(0), idleProc(nullptr), eventProc(nullptr), exitProc(nullptr), keyProc(), cleanupProc(),
      cleanupProcs(0), gfxFlags(0), gfxWidth(640), gfxHeight(480), gfxBits(32), gfxStencilBits(0),
      gfxAlphaBits(8), gfxDepthBits(24), gfxRefresh(0), wm(nullptr), sysFont(nullptr), shell(nullptr),
      sm(nullptr), modifiers(0), mouseX(0), mouseY(0), buttons(0), language(nullptr), bc(nullptr),
      fxManager(nullptr), fxList(nullptr), vfs(nullptr)
{
    if (app) QERROR("QApp: a second application object; the first is forgotten");
    std::snprintf(appName, sizeof(appName), "%s", name ? name : "-");
    title = appName;
    QEventClear(&event);
    app = this;
    QEventInit();
    QCanvasInstallHooks();
    screenshotReader = ReadWindowFront;
    wm = new QWindowManager();
    qappHooks = &appHooks;
}

QApp::~QApp()
{
    // The system font first, while the windows' contexts still hold its lists and texture.
    delete sysFont;
    sysFont = nullptr;
    // Windows leave the manager in their destructors, so they go before it.
    delete bc;
    bc = nullptr;
    delete shell;
    shell = nullptr;
    delete sm;
    sm = nullptr;
    delete fxManager;
    fxManager = nullptr;
    delete fxList;
    fxList = nullptr;
    delete wm;
    wm = nullptr;
    if (app == this) {
        app = nullptr;
        qappHooks = nullptr;
        QEventShutdown();
        PlatformDisplayClose();
    }
}

bool QApp::AddCleanupProc(Proc proc)
{
    if (cleanupProcs < MAX_CLEANUP_PROCS) {
        cleanupProc[cleanupProcs++] = proc;
        return true;
    }
    QERROR("QApp::AddCleanupProc(); out of space - memory leaks WILL occur!");
    return false;
}

void QApp::ClearModifiers()
{
    modifiers &= ~QMOD_MASK;
    QEventClearModifiers();
}

bool QApp::SetKeyProc(int index, EventProc proc)
{
    if (index < 0 || index >= MAX_KEY_PROCS) return false;
    keyProc[index] = proc;
    return true;
}

void QApp::Exit(int code)
{
    if (exitProc) exitProc();
    for (int i = 0; i < cleanupProcs; i++) {
        QINFO("QApp: calling cleanup proc %d...\n", i);
        if (cleanupProc[i]) cleanupProc[i]();
        QINFO("  cleanup %d returned.\n", i);
    }
    if (flags & QAPPF_KEEP_ALIVE) {
        flags &= ~QAPPF_KEEP_ALIVE;
        return;
    }
    if (app == this) {
        delete this;
        app = nullptr;
    }
    qexit(code);
}

int QApp::Run1()
{
    if (!QEventsPending()) {
        if (idleProc) idleProc();
        return 2;
    }
    QEventPop(&event);
    return Step();
}

void QApp::RunEvents(QState* start, QState* globalState)
{
    if (sm) {
        sm->SetGlobalState(globalState);
        if (start) {
            sm->GotoState(start, false);
            if (start->frameProc) start->frameProc();
        }
    }
    while (QEventsPending()) {
        QEventPop(&event);
        Step();
    }
}

// The input state follows the event first, so that every hook sees the modifiers as they now
// stand; then the hooks, the windows, the application and the states may each swallow it.
int QApp::Step()
{
    QEvent* e = &event;
    switch (e->type) {
    case QEVENT_KEYPRESS: {
        uint32_t k = e->n & 0xFFFF;
        if (k == QK_SHIFT) modifiers |= QMOD_SHIFT;
        if (k == QK_CTRL) modifiers |= QMOD_CTRL;
        if (k == QK_ALT) modifiers |= QMOD_ALT;
        e->n = k | modifiers;
        // The code compared carries the modifiers: F11 with alt alone takes no picture.
        if (e->n == QK_F11) TakeScreenshot(false);
        if (e->n == (QK_F11 | QMOD_CTRL | QMOD_ALT)) TakeScreenshot(true);
        break;
    }
    case QEVENT_KEYRELEASE: {
        uint32_t k = e->n & 0xFFFF;
        if (k == QK_SHIFT) modifiers &= ~QMOD_SHIFT;
        if (k == QK_CTRL) modifiers &= ~QMOD_CTRL;
        if (k == QK_ALT) modifiers &= ~QMOD_ALT;
        e->n = k | modifiers;
        break;
    }
    case QEVENT_BUTTONPRESS: buttons |= 1u << (e->n & 31); break;
    case QEVENT_BUTTONRELEASE: buttons &= ~(1u << (e->n & 31)); break;
    case QEVENT_MOTIONNOTIFY:
        mouseX = e->rawX;
        mouseY = e->rawY;
        break;
    case QEVENT_ACTIVATE: modifiers &= ~QMOD_MASK; break; // a key let go elsewhere can't stay held here
    default: break;
    }

    if (e->type == QEVENT_KEYPRESS || e->type == QEVENT_KEYRELEASE) {
        for (EventProc proc : keyProc)
            if (proc && proc(e)) return 0;
    }
    if (wm && wm->ProcessEvent(e)) return 0;
    if (eventProc && eventProc(e)) return 0;
    if (sm && sm->ProcessEvent(e)) return 0;
    if (e->type == QEVENT_CLOSE && e->win == shell) Exit(0);
    return 1;
}

void QApp::Refresh()
{
    if (!fxManager) return;
    fxManager->Run();
    if (!bc || !fxList) return;
    while (fxList->AnyDirty()) fxManager->Frame(false);
}

bool QApp::NextScreenshotName(const char* prefix, qstring& name) const
{
    char buffer[1024];
    const char* dir = screenshotDir.cstr();
    bool slash = dir[0] && dir[std::strlen(dir) - 1] != '/';
    for (int n = 1; n <= 99999; n++) {
        std::snprintf(buffer, sizeof(buffer), "%s%s%s%05d.tga", dir, slash ? "/" : "", prefix, n);
        if (!QFileExists(buffer, true)) {
            name = buffer;
            return true;
        }
    }
    return false;
}

void QApp::TakeScreenshot(bool ofShell)
{
    const char* what = ofShell ? "UI" : "BC";
    qstring name;
    if (!NextScreenshotName(ofShell ? "ui" : "bc", name)) {
        QWARNING("QApp: no free screenshot name for '%s'", ofShell ? "ui" : "bc");
        return;
    }
    QINFO("> Saving screenshot of %s in '%s'\n", what, name.cstr());
    QWindow* window = ofShell ? shell : bc;
    if (!window) {
        QINFO("> No %s present.\n", what);
        return;
    }
    SaveScreenShot(window, name.cstr());
}

bool QApp::SaveScreenShot(QWindow* window, const char* fileName)
{
    if (!screenshotReader) {
        QWARNING("QApp::SaveScreenShot(); this program can't read windows back, '%s' not written", fileName);
        return false;
    }
    QBitMap bm(32, window->GetWidth(), window->GetHeight(), 0);
    if (!bm.GetMemory() || !screenshotReader(window, &bm)) return false;
    bm.SetAlpha(255);
    return bm.Write(fileName, QBM_FORMAT_TGA, 80);
}

} // namespace tarvik
