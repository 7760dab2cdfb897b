// qwindows: the toolkit's windows on the screen. A shell window with four tiles, its child windows:
// Tab and shift+Tab move the keyboard focus around them (the focused tile wears a white frame),
// a click gives a tile the focus and changes its shade, and the keys 1 to 4 press the tiles from
// anywhere. Escape or closing the window ends the program. Everything is drawn through the
// canvases of the windows: a tile's canvas stands on the shell's drawable at the tile's place.
//
//   qwindows [-quiet]
#include "platform/platform_window.h"
#include "toolkit/qapp.h"
#include "toolkit/qcanvas.h"
#include "toolkit/qevent.h"
#include "toolkit/qfont.h"
#include "toolkit/qwindow.h"
#include "toolkit/qwinmgr.h"
#include "toolkit/qxwindow.h"

#include <cstdio>
#include <cstring>

using namespace tarvik;

namespace {

bool quiet;
bool dirty = true; // the scene needs painting

void Say(const char* format, const char* name, int a = 0, int b = 0, int c = 0)
{
    if (quiet) return;
    std::printf(format, name, a, b, c);
    std::fflush(stdout);
}

void SetRGB(QCanvas* cv, uint32_t rgb)
{
    cv->SetColor(int(rgb >> 16 & 255), int(rgb >> 8 & 255), int(rgb & 255), 255);
}

class Tile : public QWindow {
public:
    Tile(QWindow* parentWin, const char* label, int x0, int y0, uint32_t rgb, uint32_t key)
        : QWindow(parentWin, x0, y0, 120, 80), colour(rgb), shortcut(key)
    {
        SetName(label);
        SetEventMask(QWEM_KEYS_FIRST); // the shortcut works wherever the focus is
        Create();
        SetTabStop(-2);
    }

    // In the tile's own coordinates: its canvas has its origin at the tile's corner.
    void Paint(QRect*) override
    {
        cv->SetBlending(false);
        if (HasFocus()) {
            SetRGB(cv, 0xFFFFFF);
            cv->Frame(-4, -4, wid + 8, hgt + 8);
            cv->Frame(-3, -3, wid + 6, hgt + 6);
        }
        SetRGB(cv, presses & 1 ? colour >> 1 & 0x7F7F7F : colour);
        cv->FillRect(0, 0, wid, hgt);
        if (!app->sysFont) return;
        char text[64];
        std::snprintf(text, sizeof(text), "%s\nkey %c, pressed %d", GetName(), char(shortcut), presses);
        QRect r(0, 0, wid, hgt);
        cv->SetFont(app->sysFont);
        SetRGB(cv, 0xFFFFFF);
        cv->TextML(text, &r, 3);
    }

    bool OnExpose(int, int, int, int) override
    {
        dirty = true; // painted with the rest in the idle step, never alone
        return true;
    }

    bool OnButtonPress(int button, int px, int py) override
    {
        Press();
        Say("%s clicked at %d,%d with button %d\n", GetName(), px, py, button);
        app->wm->SetFocus(this);
        return true;
    }

    bool OnKeyPress(int key, int px, int py) override
    {
        if (uint32_t(key) == shortcut) {
            Press();
            Say("%s pressed by its key\n", GetName());
            return true;
        }
        return QWindow::OnKeyPress(key, px, py);
    }

    bool OnFocusIn() override
    {
        Say("%s has the focus\n", GetName());
        dirty = true;
        return false;
    }

    bool OnFocusOut() override
    {
        dirty = true;
        return false;
    }

private:
    void Press()
    {
        presses++;
        dirty = true;
    }

    uint32_t colour;
    uint32_t shortcut;
    int presses = 0;
};

class Shell : public QWindow {
public:
    Shell(int w, int h) : QWindow(nullptr, 0, 0, w, h)
    {
        SetName("shell");
        SetFlags(QWF_X | QWF_NO_BACKGROUND);
    }

    bool OnResize(int w, int h) override
    {
        wid = w;
        hgt = h;
        dirty = true;
        return true;
    }

    bool OnExpose(int, int, int, int) override
    {
        dirty = true;
        return true;
    }

    bool OnKeyPress(int key, int px, int py) override
    {
        if (uint32_t(key) == QK_ESCAPE) app->Exit(0);
        return QWindow::OnKeyPress(key, px, py); // Tab and shift+Tab
    }
};

void PaintAll()
{
    if (!dirty) {
        PlatformWaitMessage(50);
        return;
    }
    dirty = false;
    QCanvas* cv = app->shell->GetCanvas();
    cv->Set2D();
    cv->SetBlending(false);
    SetRGB(cv, 0x203040);
    cv->FillRect(0, 0, app->shell->GetWidth(), app->shell->GetHeight());
    if (app->sysFont) {
        cv->SetFont(app->sysFont);
        SetRGB(cv, 0xB0C0D0);
        cv->Text("Tab: next tile   1-4: press   Esc: quit", 30, 248, -1);
    }
    for (QWindow* w : app->wm->GetWindows())
        if (w != app->shell) w->Paint(nullptr);
    app->shell->GetXWindow()->Swap();
}

Tile* tiles[4]; // owned: the window manager only lists them

// The tiles are ours; they leave the manager's list as they go, before the application deletes it.
void DeleteTiles()
{
    for (Tile*& t : tiles) {
        delete t;
        t = nullptr;
    }
}

} // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; i++) {
        if (!std::strcmp(argv[i], "-quiet")) {
            quiet = true;
        } else {
            std::fprintf(stderr, "usage: qwindows [-quiet]\n");
            return 2;
        }
    }
    QApp* a = new QApp("qwindows");
    a->title = "qwindows";
    Shell* shell = new Shell(340, 276);
    a->shell = shell;
    if (!shell->Create() || !shell->GetXWindow()->GetNativeHandle()) {
        std::fprintf(stderr, "qwindows: no window could be opened (is DISPLAY set?)\n");
        delete a;
        return 1;
    }
    // Tiles go after the shell: the manager's list is front-first, so they lie above it.
    tiles[0] = new Tile(shell, "red", 30, 30, 0xD04040, '1');
    tiles[1] = new Tile(shell, "green", 190, 30, 0x40B050, '2');
    tiles[2] = new Tile(shell, "blue", 30, 150, 0x4060D0, '3');
    tiles[3] = new Tile(shell, "yellow", 190, 150, 0xE0C040, '4');
    a->AddCleanupProc(DeleteTiles);
    a->SetIdleProc(PaintAll);
    for (;;) a->Run1(); // closing the window ends the program through QApp::Exit
}
