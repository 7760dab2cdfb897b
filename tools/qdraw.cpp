// qdraw: what the canvas draws, in one window. Text in both kinds of font (the system texture font,
// scaled, slanted and bold, and a core font of the display drawn from display lists), rectangles in
// each blend mode over a pattern, lines, points, gradients, and a stage of sprites (gels) that
// effects move about. Space stops and starts the sprites, F11 writes a screenshot of the stage and
// control+alt+F11 one of the whole window; Escape or closing the window ends the program.
//
//   qdraw [-quiet] [-frames N]     -frames: stop the sprites after N frames (for pictures)
//
// The whole window is painted for each frame, the static parts first and the gels over them, and
// then the buffers are swapped: a frame never relies on what the back buffer kept from an earlier one,
// which the drivers don't agree on.
#include "images/qbitmap.h"
#include "platform/platform_window.h"
#include "toolkit/dtexfont.h"
#include "toolkit/qapp.h"
#include "toolkit/qcanvas.h"
#include "toolkit/qevent.h"
#include "toolkit/qfont.h"
#include "toolkit/qgel.h"
#include "toolkit/qwindow.h"
#include "toolkit/qxwindow.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace tarvik;

namespace {

const int shellWid = 640, shellHgt = 480;
const int frameMs = 25;
const QRect stageRect(330, 240, 300, 230); // where the gels play, in the shell

bool quiet;
bool dirty = true;   // the window needs painting even with the sprites stopped
bool running = true; // the sprites move
int framesLeft = -1; // frames until the sprites stop by themselves; -1: never
int framesDone;

QFont* coreFont;  // owned: a core font of the display, drawn from display lists
QFont* fancyFont; // owned: a second texture font of the system font's file, for scaling and slanting

// ---- the sprites ----

QBitMap* stageBitmap; // owned: the stage's background, a gel at the lowest depth
QBitmapGel* stageGel; // owned

struct Sprite {
    QBitMap* bitmap; // owned
    QBitmapGel* gel; // owned
    QMoveFX* move;   // owned: the effect under way
    int waypoints[4][2];
    int frames;      // per leg
    int next;        // the waypoint the next leg goes to
};
Sprite sprites[3];

uint8_t ToByte(float v)
{
    return uint8_t(v <= 0 ? 0 : v >= 255 ? 255 : v + 0.5f);
}

// A ball lit from the top left, with a soft edge in its alpha.
QBitMap* MakeBall(int size, float r, float g, float b)
{
    QBitMap* bm = new QBitMap(32, size, size, 0);
    float radius = float(size) * 0.5f - 0.5f;
    for (int y = 0; y < size; y++) {
        for (int x = 0; x < size; x++) {
            float dx = float(x) - radius, dy = float(y) - radius;
            float d = std::sqrt(dx * dx + dy * dy);
            float lx = dx + radius * 0.35f, ly = dy + radius * 0.35f;
            float light = 1.2f - std::sqrt(lx * lx + ly * ly) / (radius * 1.6f);
            QColor c(ToByte(r * light), ToByte(g * light), ToByte(b * light), ToByte((radius + 0.5f - d) * 255));
            bm->SetColorAt(x, y, c);
        }
    }
    return bm;
}

// A diamond outlined in white around a half-transparent inside.
QBitMap* MakeDiamond(int size, int r, int g, int b)
{
    QBitMap* bm = new QBitMap(32, size, size, 0);
    int half = size / 2;
    for (int y = 0; y < size; y++) {
        for (int x = 0; x < size; x++) {
            int d = std::abs(x - half) + std::abs(y - half);
            if (d <= half - 3) bm->SetColorAt(x, y, QColor(r, g, b, 150));
            else if (d <= half) bm->SetColorAt(x, y, QColor(255, 255, 255, 255));
        }
    }
    return bm;
}

// A card with a darker border and a stripe, opaque.
QBitMap* MakeCard(int wid, int hgt)
{
    QBitMap* bm = new QBitMap(32, wid, hgt, 0);
    for (int y = 0; y < hgt; y++) {
        for (int x = 0; x < wid; x++) {
            bool border = x < 2 || y < 2 || x >= wid - 2 || y >= hgt - 2;
            bool stripe = y >= hgt / 2 - 3 && y < hgt / 2 + 3;
            if (border) bm->SetColorAt(x, y, QColor(20, 40, 90, 255));
            else if (stripe) bm->SetColorAt(x, y, QColor(250, 210, 60, 255));
            else bm->SetColorAt(x, y, QColor(70, 120, 220, 255));
        }
    }
    return bm;
}

// A dark grid with a lighter line every 20 pixels: it shows where the gels pass.
QBitMap* MakeStage(int wid, int hgt)
{
    QBitMap* bm = new QBitMap(32, wid, hgt, 0);
    for (int y = 0; y < hgt; y++) {
        for (int x = 0; x < wid; x++) {
            bool line = x % 20 == 0 || y % 20 == 0;
            int shade = (x / 20 + y / 20) % 2 ? 38 : 30;
            if (line) bm->SetColorAt(x, y, QColor(60, 90, 110, 255));
            else bm->SetColorAt(x, y, QColor(shade, shade + 8, shade + 20, 255));
        }
    }
    return bm;
}

void StartLeg(Sprite& s)
{
    int* to = s.waypoints[s.next];
    s.next = (s.next + 1) % 4;
    delete s.move; // leaves the manager
    s.move = new QMoveFX(s.gel, to[0], to[1], s.frames);
    app->fxManager->Add(s.move);
}

// After each frame: a sprite whose leg is done sets off on the next, and the frame count may stop them.
void AfterFrame(QFXManager*)
{
    for (Sprite& s : sprites)
        if (s.move->IsDone()) StartLeg(s);
    framesDone++;
    if (framesLeft > 0 && --framesLeft == 0) {
        running = false;
        dirty = true; // the heading tells how to start them again
        if (!quiet) {
            std::printf("qdraw: stopped after %d frames\n", framesDone);
            std::fflush(stdout);
        }
    }
}

void MakeGels(QWindow* stage)
{
    QCanvas* cv = stage->GetCanvas();
    // Gels stand in the stage's coordinates; what pokes out of it is clipped (in the shell's).
    cv->SetClip(stageRect);
    cv->SetFlags(QCV_CLIP);
    app->fxList = new QGelList(cv);
    app->fxManager = new QFXManager(app->fxList);
    app->fxManager->swap = 1;
    app->fxManager->frameFunc = AfterFrame;

    stageBitmap = MakeStage(stageRect.wid, stageRect.hgt);
    stageGel = new QBitmapGel(stageBitmap, 0, 0, 0, 0);
    app->fxList->Add(stageGel);

    // Three sprites at three depths, on paths that cross: the ball passes under the diamond and
    // over the card.
    Sprite init[3] = {
        {MakeCard(64, 40), nullptr, nullptr, {{20, 20}, {210, 30}, {200, 180}, {30, 170}}, 60, 1},
        {MakeBall(44, 230, 70, 50), nullptr, nullptr, {{230, 20}, {30, 60}, {120, 180}, {240, 150}}, 45, 1},
        {MakeDiamond(50, 60, 200, 120), nullptr, nullptr, {{125, 95}, {40, 20}, {220, 100}, {60, 180}}, 70, 1},
    };
    for (int i = 0; i < 3; i++) {
        sprites[i] = init[i];
        Sprite& s = sprites[i];
        s.gel = new QBitmapGel(s.bitmap, s.waypoints[0][0], s.waypoints[0][1], 10 + i, QGEL_MOVES);
        app->fxList->Add(s.gel);
        StartLeg(s);
    }
}

// ---- the static part ----

// Text in a font that may be missing: without one the canvas would report every frame.
void Label(QCanvas* cv, QFont* font, const char* text, int x, int y)
{
    if (!font) return;
    cv->SetFont(font);
    cv->Text(text, x, y, -1);
}

void Heading(QCanvas* cv, const char* text, int x, int y)
{
    cv->SetColor(150, 200, 230, 255);
    Label(cv, coreFont ? coreFont : app->sysFont, text, x, y);
}

void PaintFonts(QCanvas* cv)
{
    cv->SetBlending(false);
    cv->SetColor(24, 32, 44, 255);
    cv->FillRect(10, 8, 620, 96);
    Heading(cv, "Fonts", 18, 12);
    QFont* sys = app->sysFont;
    if (sys) {
        const char* text = "The system font: glyphs cut from one texture";
        cv->SetFont(sys);
        cv->SetColor(255, 255, 255, 255);
        cv->Text(text, 18, 32, -1);
        // Measured, not guessed: the underline is as long as the font says the text is.
        int w = int(sys->GetWidth(text, -1));
        int base = 32 + int(sys->GetHeight()) + 1;
        cv->SetColor(250, 200, 60, 255);
        cv->Line(18, base, 18 + w, base);
        cv->Text("<- measured", 26 + w, 32, -1);
    }
    if (fancyFont) {
        DTexFont* tf = fancyFont->GetTexFont();
        tf->scaleX = tf->scaleY = 2;
        tf->shear = 5;
        tf->flags = 0;
        cv->SetFont(fancyFont);
        cv->SetColor(255, 150, 60, 255);
        cv->Text("Scaled, slanted", 18, 54, -1);
        tf->scaleX = 1.5f;
        tf->scaleY = 2;
        tf->shear = 0;
        tf->flags = DTF_BOLD;
        tf->boldOffset = 1;
        cv->SetColor(120, 220, 255, 255);
        cv->Text("and bold", 300, 54, -1);
    }
    if (coreFont) {
        cv->SetFont(coreFont);
        cv->SetColor(150, 240, 150, 255);
        char text[128];
        std::snprintf(text, sizeof(text), "Core font %s: one display list per character, 0123456789", coreFont->GetName());
        cv->Text(text, 18, 86, -1);
    }
}

// A checker with a blue band through it, then an orange rectangle of alpha 128 in each blend mode.
void PaintBlends(QCanvas* cv)
{
    static const char* const names[5] = {"0 off", "1 alpha", "2 constant", "3 premult", "4 add"};
    const int top = 126, hgt = 64;
    cv->SetBlending(false);
    cv->SetColor(24, 32, 44, 255);
    cv->FillRect(10, 108, 620, 106);
    Heading(cv, "Blend modes", 18, 110);
    // The pattern's alpha is 0: mode 4 adds what the frame buffer's alpha still lets through.
    for (int y = 0; y < hgt; y += 8) {
        for (int x = 0; x < 604; x += 8) {
            bool light = (x / 8 + y / 8) % 2 == 0;
            if (y >= 24 && y < 40)
                cv->SetColor(light ? 60 : 30, light ? 120 : 80, 255, 0);
            else
                cv->SetColor(light ? 255 : 0, light ? 255 : 0, light ? 255 : 0, 0);
            cv->FillRect(18 + x, top + y, 8, 8);
        }
    }
    for (int mode = 0; mode < 5; mode++) {
        int x = 28 + mode * 120;
        cv->SetBackground(0xB0B0B0FF); // mode 2 weighs the source by this, the pattern by its rest
        cv->SetBlendMode(mode);
        cv->SetColor(255, 140, 0, 128);
        cv->FillRect(x, top + 8, 100, hgt - 16);
        cv->SetBlending(false);
        cv->SetColor(230, 230, 230, 255);
        Label(cv, app->sysFont, names[mode], x + 4, top + hgt + 6);
    }
    cv->SetBlending(false);
}

void PaintLines(QCanvas* cv)
{
    cv->SetBlending(false);
    cv->SetColor(24, 32, 44, 255);
    cv->FillRect(10, 220, 310, 250);
    Heading(cv, "Lines and points", 18, 224);

    // A fan of lines, each from white at the hub to a colour of the wheel at its end.
    const int cx = 90, cy = 340, radius = 70;
    QColor hub(255, 255, 255, 255);
    for (int i = 0; i < 24; i++) {
        double a = i * 2 * M_PI / 24;
        QColor rim(ToByte(float(127 + 127 * std::cos(a))), ToByte(float(127 + 127 * std::cos(a - 2.094))),
                   ToByte(float(127 + 127 * std::cos(a + 2.094))), 255);
        cv->Line(cx, cy, cx + int(radius * std::cos(a)), cy + int(radius * std::sin(a)), &hub, &rim);
    }
    // Points of the sizes 1 to 8.
    for (int i = 0; i < 8; i++) {
        cv->SetColor(255, 90 + i * 20, 60 + i * 24, 255);
        cv->Plot(24 + i * 18, 440, i + 1);
    }
    // A rectangle with a colour at each corner, a triangle with one at each point, and a frame.
    QColor tl(255, 60, 60, 255), tr(255, 230, 60, 255), br(60, 200, 255, 255), bl(160, 60, 255, 255);
    cv->FillRect(185, 256, 120, 70, &tl, &tr, &br, &bl);
    QColor r(255, 0, 0, 255), g(0, 255, 0, 255), b(0, 0, 255, 255);
    cv->FillTriangle(245, 340, 305, 440, 185, 440, &r, &g, &b);
    cv->SetColor(255, 255, 255, 255);
    cv->Frame(181, 252, 128, 78);
    cv->SetColor(200, 200, 200, 255);
    Label(cv, app->sysFont, "sizes 1-8", 24, 450);
}

void PaintStatic()
{
    QCanvas* cv = app->shell->GetCanvas();
    cv->Set2D();
    cv->SetBlending(false);
    cv->SetColor(12, 16, 22, 255);
    cv->FillRect(0, 0, shellWid, shellHgt);
    PaintFonts(cv);
    PaintBlends(cv);
    PaintLines(cv);
    cv->SetColor(24, 32, 44, 255);
    cv->FillRect(stageRect.x, 220, stageRect.wid, stageRect.y - 220);
    Heading(cv, running ? "Gels (space stops them)" : "Gels (space starts them)", stageRect.x + 8, 224);
}

// Every frame paints the whole window: the static part, then the stage gel marked dirty, which makes
// every gel above it repaint too. The manager steps the effects and swaps.
void Idle()
{
    using Clock = std::chrono::steady_clock;
    static Clock::time_point due = Clock::now();
    if (!running && !dirty) {
        PlatformWaitMessage(50);
        return;
    }
    if (running) {
        Clock::time_point now = Clock::now();
        if (now < due) {
            PlatformWaitMessage(int(std::chrono::duration_cast<std::chrono::milliseconds>(due - now).count()) + 1);
            return;
        }
        due = now + std::chrono::milliseconds(frameMs);
    }
    dirty = false;
    PaintStatic();
    stageGel->MarkDirty(false);
    if (running) {
        app->fxManager->Frame(false);
    } else {
        app->fxList->Redraw();
        app->shell->GetXWindow()->Swap();
    }
}

class Shell : public QWindow {
public:
    Shell() : QWindow(nullptr, 0, 0, shellWid, shellHgt)
    {
        SetName("shell");
        SetFlags(QWF_X | QWF_NO_BACKGROUND);
    }

    bool OnExpose(int, int, int, int) override
    {
        dirty = true;
        return true;
    }

    bool OnKeyPress(int key, int px, int py) override
    {
        if (uint32_t(key) == QK_ESCAPE) app->Exit(0);
        if (uint32_t(key) == QK_SPACE) {
            running = !running;
            framesLeft = -1;
            dirty = true;
            return true;
        }
        return QWindow::OnKeyPress(key, px, py);
    }
};

// The stage: a plain child of the shell, and the application's bc, so that F11 takes its picture.
class Stage : public QWindow {
public:
    explicit Stage(QWindow* parentWin) : QWindow(parentWin, stageRect.x, stageRect.y, stageRect.wid, stageRect.hgt)
    {
        SetName("stage");
        Create();
    }

    bool OnExpose(int, int, int, int) override
    {
        dirty = true;
        return true;
    }
};

// Runs in QApp::Exit while the contexts stand, so that the fonts free their lists and textures.
void CleanUp()
{
    for (Sprite& s : sprites) {
        delete s.move;
        delete s.gel;
        delete s.bitmap;
        s = Sprite();
    }
    delete stageGel;
    delete stageBitmap;
    delete coreFont;
    delete fancyFont;
    stageGel = nullptr;
    stageBitmap = nullptr;
    coreFont = fancyFont = nullptr;
}

} // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; i++) {
        if (!std::strcmp(argv[i], "-quiet")) {
            quiet = true;
        } else if (!std::strcmp(argv[i], "-frames") && i + 1 < argc && std::atoi(argv[i + 1]) > 0) {
            framesLeft = std::atoi(argv[++i]);
        } else {
            std::fprintf(stderr, "usage: qdraw [-quiet] [-frames N]\n");
            return 2;
        }
    }
    QApp* a = new QApp("qdraw");
    a->title = "qdraw";
    Shell* shell = new Shell();
    a->shell = shell;
    if (!shell->Create() || !shell->GetXWindow()->GetNativeHandle()) {
        std::fprintf(stderr, "qdraw: no window could be opened (is DISPLAY set?)\n");
        delete a;
        return 1;
    }
    // The shell's context is current now: the fonts make their lists and textures in it.
    coreFont = new QFont();
    if (!coreFont->CreateFromNative("9x15") && !coreFont->CreateFromNative("fixed")) {
        delete coreFont;
        coreFont = nullptr;
    }
    fancyFont = new QFont();
    if (!fancyFont->CreateFromFile(QFontSystemFile()) || !fancyFont->GetTexFont()) {
        delete fancyFont;
        fancyFont = nullptr;
    }
    a->AddCleanupProc(CleanUp);
    a->bc = new Stage(shell);
    MakeGels(a->bc);
    a->SetIdleProc(Idle);
    for (;;) a->Run1(); // closing the window ends the program through QApp::Exit
}
