// QApp: the one application object of a windowed program. It owns the window manager, the state
// manager and the display settings, keeps the keyboard and mouse state, runs the event loop one step
// at a time and ends the process in an orderly way.
//
// Constructing it sets the process-wide 'app', allocates the event ring, starts the event timer and
// fills the foundation's application hooks, so that the log names the application and file lookups
// see its archives; destroying it empties them again. A console program never makes one, and 'app'
// stays null there.
#pragma once

#include "foundation/qstring.h"
#include "toolkit/qevent.h"

#include <cstdint>

namespace tarvik {

class QWindowManager;
class QStateManager;
class QWindow;
class QFont;
class QFXManager;
class QGelList;
class QLanguage;
class QVirtualFileSystem;
class QBitMap;
class QState;

enum QAppFlags : uint32_t {
    QAPPF_KEEP_ALIVE = 1, // the next Exit runs the cleanups and returns, and clears this bit
};

enum QAppGfxFlags : uint32_t {
    QAPP_GFX_SHORT_FULLSCREEN = 1, // a full-screen client is one pixel less high than gfxHeight
    QAPP_GFX_POPUP = 2,            // windowed native windows are borderless, top-most pop-ups
    QAPP_GFX_STEREO = 4,           // ask for quad-buffered stereo
};

class QApp {
public:
    typedef void (*Proc)();
    typedef bool (*EventProc)(QEvent* e);
    enum { MAX_CLEANUP_PROCS = 100, MAX_KEY_PROCS = 5 };

    explicit QApp(const char* appName);
    QApp(const QApp&) = delete;
    QApp& operator=(const QApp&) = delete;
    virtual ~QApp();

    bool AddCleanupProc(Proc proc);
    void Exit(int code); // returns only while QAPPF_KEEP_ALIVE is set
    int Run1();          // 0 handled, 1 not handled, 2 no event was pending
    void RunEvents(QState* start, QState* globalState);
    void Refresh();

    void SetEventProc(EventProc proc) { eventProc = proc; }
    void SetIdleProc(Proc proc) { idleProc = proc; }
    void SetExitProc(Proc proc) { exitProc = proc; }
    bool SetKeyProc(int index, EventProc proc); // false for an index outside 0..4

    uint32_t GetModifiers() const { return modifiers; }
    void ClearModifiers(); // also the window procedure's view of the keys held
    int GetMouseX() const { return mouseX; }
    int GetMouseY() const { return mouseY; }
    uint32_t GetButtons() const { return buttons; }

    QWindowManager* GetWindowManager() const { return wm; }
    QStateManager* GetStateManager() const { return sm; }
    QWindow* GetShell() const { return shell; }
    QWindow* GetBC() const { return bc; }
    QFont* GetSysFont() const { return sysFont; }
    QVirtualFileSystem* GetFileSystem() const { return vfs; }

    // Screenshots: "%s%05d.tga" in screenshotDir (empty: the current directory), the number the
    // first from 1 upward that no file has. The prefix is "bc" or "ui". False if the name can't be
    // made (more than 99999 files).
    bool NextScreenshotName(const char* prefix, qstring& name) const;
    void TakeScreenshot(bool ofShell); // F11: bc; control+alt+F11: shell
    bool SaveScreenShot(QWindow* window, const char* fileName);

    // Reads what a window shows into a 32-bit bitmap of its size. The constructor sets the canvas's
    // reader; while it is null a screenshot is reported and nothing is written.
    static bool (*screenshotReader)(QWindow* window, QBitMap* into);

    uint32_t flags;
    char appName[64];
    qstring title;
    Proc idleProc;
    EventProc eventProc;
    Proc exitProc;
    EventProc keyProc[MAX_KEY_PROCS];
    Proc cleanupProc[MAX_CLEANUP_PROCS];
    int32_t cleanupProcs;
    uint32_t gfxFlags;
    int32_t gfxWidth, gfxHeight, gfxBits;
    int32_t gfxStencilBits, gfxAlphaBits, gfxDepthBits;
    int32_t gfxRefresh;         // Hz; 0 or less: no wish
    QWindowManager* wm;         // owned
    QFont* sysFont;             // owned; made with the first window's context
    QWindow* shell;             // owned: deleted with the application
    QStateManager* sm;          // owned; may be null
    QEvent event;               // the event being processed
    uint32_t modifiers;         // QMOD_SHIFT | QMOD_CTRL | QMOD_ALT of the keys held
    int32_t mouseX, mouseY;
    uint32_t buttons;           // bit 1 << n for button n held
    QLanguage* language;        // borrowed
    QWindow* bc;                // owned; may be null
    QFXManager* fxManager;      // owned; may be null
    QGelList* fxList;           // owned; may be null
    QVirtualFileSystem* vfs;    // borrowed; may be null
    qstring screenshotDir;

private:
    int Step(); // Run1 after the queue has been found not empty
};

extern QApp* app; // the one application object, or null

} // namespace tarvik
