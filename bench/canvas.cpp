// The canvas against plain OpenGL: one frame is a screenful of text (80 columns x 40 lines) and
// 10 000 filled rectangles (4..28 pixels a side, each its own colour), drawn through QCanvas::Text
// and QCanvas::FillRect, beside the same pixels drawn with immediate-mode calls written here:
// glBegin(GL_QUADS) once with a glColor per rectangle, glRasterPos and glCallLists per line for
// the display-list font, and for the texture font one textured quad per glyph from the same glyph
// table and picture, its state set once a frame. Each frame ends with glFinish. The two roads take
// turns frame by frame; the median of N frames of each is printed, the best in brackets, and the
// ratio of the medians. Before timing, a frame of each road is read back and the two compared.
//   canvas [N] [--profile rects|dl|tex]      (N: frames per road, default 30)
// --profile draws only canvas frames of one kind, N of them, and prints nothing else: a run to
// put under a profiler. DISPLAY must name an X server with OpenGL.
#include "toolkit/glext.h" // first of the OpenGL headers

#include "foundation/qmessage.h"
#include "images/qbitmap.h"
#include "toolkit/dtexfont.h"
#include "toolkit/qapp.h"
#include "toolkit/qcanvas.h"
#include "toolkit/qfont.h"
#include "toolkit/qglcontext.h"
#include "toolkit/qwindow.h"
#include "toolkit/qxwindow.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using namespace tarvik;

namespace {

const int columns = 80, lines = 40, rectCount = 10000;
const int minSide = 4, maxSide = 28;
const uint8_t textR = 255, textG = 240, textB = 160; // not white: the texture font modulates

struct Rect {
    int x, y, wid, hgt; // window coordinates, y downward
    uint8_t r, g, b;
};

struct Scene {
    int wid = 0, hgt = 0;
    std::vector<Rect> rects;
    std::vector<std::string> text; // 'lines' lines of 'columns' characters
};

// The drawing of one frame, and a name for the table.
struct Road {
    const char* name;
    bool rects, text;
};

uint32_t seed = 12345;
uint32_t Random(uint32_t range)
{
    seed = seed * 1664525u + 1013904223u;
    return (seed >> 8) % range;
}

double Now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// ---- the canvas ----

void CanvasFrame(QCanvas* cv, QFont* font, const Scene& s, const Road& road)
{
    glClear(GL_COLOR_BUFFER_BIT);
    if (road.rects) {
        for (const Rect& r : s.rects) {
            cv->SetColor(r.r, r.g, r.b, 255);
            cv->FillRect(r.x, r.y, r.wid, r.hgt);
        }
    }
    if (road.text) {
        cv->SetFont(font);
        cv->SetColor(textR, textG, textB, 255);
        int lineHgt = int(font->GetHeight());
        for (int i = 0; i < lines; i++) cv->Text(s.text[size_t(i)].c_str(), 0, i * lineHgt, columns);
    }
    glFinish();
}

// ---- the same by hand ----

void PlainRects(const Scene& s)
{
    glDisable(GL_BLEND);
    glBegin(GL_QUADS);
    for (const Rect& r : s.rects) {
        int bottom = s.hgt - r.y - r.hgt, top = s.hgt - r.y;
        glColor4ub(r.r, r.g, r.b, 255);
        glVertex2i(r.x, bottom);
        glVertex2i(r.x + r.wid, bottom);
        glVertex2i(r.x + r.wid, top);
        glVertex2i(r.x, top);
    }
    glEnd();
}

void PlainListText(QFont* font, const Scene& s)
{
    int lineHgt = int(font->GetHeight()), ascent = int(font->GetAscent());
    glDisable(GL_BLEND);
    glColor4ub(textR, textG, textB, 255); // latched by each glRasterPos
    glListBase(font->GetListBase());
    for (int i = 0; i < lines; i++) {
        glRasterPos2i(0, 0);
        glBitmap(0, 0, 0, 0, 0, float(s.hgt - (i * lineHgt + ascent)), nullptr);
        glCallLists(columns, GL_UNSIGNED_BYTE, s.text[size_t(i)].c_str());
    }
}

// The texture font's glyphs as DTexFont::Paint places them (scale 1, no slant, not bold), from our
// own copy of its picture.
void PlainTexText(QFont* font, GLuint texture, const Scene& s)
{
    const DTexFont* tf = font->GetTexFont();
    int lineHgt = int(font->GetHeight());
    glBindTexture(GL_TEXTURE_2D, texture);
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    if (gll::glBlendFuncSeparate)
        gll::glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_SRC_ALPHA_SATURATE, GL_ONE);
    glEnable(GL_TEXTURE_2D);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
    const float k = 0.003921569f; // 1/255, as the font converts its colour
    glColor4f(textR * k, textG * k, textB * k, 1);
    for (int i = 0; i < lines; i++) {
        float x = 0, y = float(s.hgt - (i * lineHgt + lineHgt));
        const char* text = s.text[size_t(i)].c_str();
        glBegin(GL_QUADS);
        for (int c = 0; c < columns; c++) {
            const DTexGlyph* g = tf->FindGlyph(static_cast<unsigned char>(text[c]));
            if (!g) continue;
            float left = x + g->bearing, right = left + float(g->wid), top = y + float(g->hgt);
            glTexCoord2f(g->s0, g->t0);
            glVertex2f(left, y);
            glTexCoord2f(g->s0, g->t1);
            glVertex2f(left, top);
            glTexCoord2f(g->s1, g->t1);
            glVertex2f(right, top);
            glTexCoord2f(g->s1, g->t0);
            glVertex2f(right, y);
            x += g->advance;
        }
        glEnd();
    }
    glDisable(GL_BLEND);
    glDisable(GL_TEXTURE_2D);
}

void PlainFrame(QFont* font, GLuint texture, const Scene& s, const Road& road)
{
    glClear(GL_COLOR_BUFFER_BIT);
    if (road.rects) PlainRects(s);
    if (road.text) {
        if (font->GetTexFont())
            PlainTexText(font, texture, s);
        else
            PlainListText(font, s);
    }
    glFinish();
    // Blending and the colour changed behind the canvases' back.
    QCanvas::InvalidateGLState();
}

// ---- figures ----

std::vector<uint8_t> ReadBack(const Scene& s)
{
    std::vector<uint8_t> p(size_t(s.wid) * size_t(s.hgt) * 4);
    glReadBuffer(GL_BACK);
    glReadPixels(0, 0, s.wid, s.hgt, GL_RGBA, GL_UNSIGNED_BYTE, p.data());
    return p;
}

// Pixels that differ between a canvas frame and a plain frame; a road that draws something else
// would not be a fair reference.
long Differences(QCanvas* cv, QFont* font, GLuint texture, const Scene& s, const Road& road)
{
    CanvasFrame(cv, font, s, road);
    std::vector<uint8_t> a = ReadBack(s);
    PlainFrame(font, texture, s, road);
    std::vector<uint8_t> b = ReadBack(s);
    long n = 0;
    for (size_t i = 0; i < a.size(); i += 4) n += std::memcmp(&a[i], &b[i], 3) != 0;
    return n;
}

struct Timing {
    double median, best; // seconds a frame
};

Timing Summary(std::vector<double>& t)
{
    std::sort(t.begin(), t.end());
    size_t n = t.size();
    return {n % 2 ? t[n / 2] : (t[n / 2 - 1] + t[n / 2]) / 2, t[0]};
}

void Measure(QCanvas* cv, QFont* font, GLuint texture, const Scene& s, const Road& road, int frames)
{
    long diff = Differences(cv, font, texture, s, road);
    for (int i = 0; i < 3; i++) { // warm caches and the driver's state
        CanvasFrame(cv, font, s, road);
        PlainFrame(font, texture, s, road);
    }
    std::vector<double> canvas, plain;
    for (int i = 0; i < frames; i++) {
        double t0 = Now();
        CanvasFrame(cv, font, s, road);
        double t1 = Now();
        PlainFrame(font, texture, s, road);
        double t2 = Now();
        canvas.push_back(t1 - t0);
        plain.push_back(t2 - t1);
    }
    Timing c = Summary(canvas), p = Summary(plain);
    double ratio = c.median / p.median;
    std::printf("%-26s %7.2f (%6.2f) %7.2f (%6.2f) %8.1f %8.1f %7.2fx %s", road.name, c.median * 1e3, c.best * 1e3,
                p.median * 1e3, p.best * 1e3, 1 / c.median, 1 / p.median, ratio, ratio <= 1.3 ? "ok" : "OVER");
    if (diff) std::printf("  (%ld pixels differ)", diff);
    std::printf("\n");
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    int frames = 30;
    const char* profile = nullptr;
    for (int i = 1; i < argc; i++) {
        if (!std::strcmp(argv[i], "--profile") && i + 1 < argc)
            profile = argv[++i];
        else
            frames = std::atoi(argv[i]);
    }
    bool known = !profile;
    for (const char* kind : {"rects", "dl", "tex"}) known = known || !std::strcmp(profile, kind);
    if (frames < 1 || !known) {
        std::fprintf(stderr, "usage: canvas [N] [--profile rects|dl|tex]\n");
        return 2;
    }
    qmsgSetLogFile(false);
    new QApp("canvas");

    // A small shell makes the context in which the fonts are made; the window drawn into, sized
    // for the text of both fonts, shares their lists and textures.
    app->shell = new QWindow(nullptr, 0, 0, 64, 64);
    app->shell->SetFlags(QWF_X);
    if (!app->shell->Create() || !app->shell->GetXWindow()->GetContext()->GetNative()) {
        std::fprintf(stderr, "canvas: no OpenGL window\n");
        return 1;
    }
    QFont* listFont = new QFont();
    QFont* texFont = new QFont();
    if (!listFont->CreateFromNative("9x15") && !listFont->CreateFromNative("fixed")) return 1;
    if (!texFont->CreateFromFile(QFontSystemFile())) return 1;

    Scene s;
    for (int i = 0; i < lines; i++) {
        std::string line;
        for (int c = 0; c < columns; c++) line += char(32 + Random(95));
        s.text.push_back(line);
    }
    s.wid = 800;
    s.hgt = 600;
    for (QFont* f : {listFont, texFont}) {
        for (const std::string& line : s.text) s.wid = std::max(s.wid, int(f->GetWidth(line.c_str(), columns)) + 1);
        s.hgt = std::max(s.hgt, lines * int(f->GetHeight()));
    }
    for (int i = 0; i < rectCount; i++) {
        Rect r;
        r.wid = minSide + int(Random(maxSide - minSide + 1));
        r.hgt = minSide + int(Random(maxSide - minSide + 1));
        r.x = int(Random(uint32_t(s.wid - r.wid + 1)));
        r.y = int(Random(uint32_t(s.hgt - r.hgt + 1)));
        r.r = uint8_t(Random(256)), r.g = uint8_t(Random(256)), r.b = uint8_t(Random(256));
        s.rects.push_back(r);
    }

    QWindow* win = new QWindow(nullptr, 0, 0, s.wid, s.hgt);
    win->SetFlags(QWF_X);
    if (!win->Create() || !win->GetXWindow()->GetContext()->GetNative()) {
        std::fprintf(stderr, "canvas: no OpenGL window of %dx%d\n", s.wid, s.hgt);
        return 1;
    }
    QCanvas* cv = win->GetCanvas();
    cv->Select();
    glClearColor(0, 0, 0, 1);

    // The plain road's own texture of the font's picture, made as the font makes its own.
    GLuint texture = 0;
    const QBitMap* picture = texFont->GetTexFont()->GetPicture();
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, picture->GetWidth(), picture->GetHeight(), 0, GL_RGBA, GL_UNSIGNED_BYTE,
                 picture->GetMemory());

    const Road rectsOnly = {"10000 rectangles", true, false};
    const Road listText = {"display-list text", false, true};
    const Road texText = {"texture text", false, true};
    const Road listFrame = {"frame, display-list font", true, true};
    const Road texFrame = {"frame, texture font", true, true};

    if (profile) {
        bool rects = !std::strcmp(profile, "rects");
        QFont* f = !std::strcmp(profile, "tex") ? texFont : listFont;
        for (int i = 0; i < frames; i++) CanvasFrame(cv, f, s, rects ? rectsOnly : listText);
    } else {
        std::printf("%s; window %dx%d; %d frames a road, median (best) ms a frame\n",
                    reinterpret_cast<const char*>(glGetString(GL_RENDERER)), s.wid, s.hgt, frames);
        std::printf("%-26s %16s %16s %8s %8s %8s\n", "", "canvas ms", "plain ms", "canvas/s", "plain/s", "ratio");
        Measure(cv, listFont, texture, s, rectsOnly, frames);
        Measure(cv, listFont, texture, s, listText, frames);
        Measure(cv, texFont, texture, s, texText, frames);
        Measure(cv, listFont, texture, s, listFrame, frames);
        Measure(cv, texFont, texture, s, texFrame, frames);
    }

    // The lists and the textures go while a context is current.
    glDeleteTextures(1, &texture);
    delete listFont;
    delete texFont;
    delete win;
    app->flags |= QAPPF_KEEP_ALIVE;
    app->Exit(0);
    delete app;
    return 0;
}
