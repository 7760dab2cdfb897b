#include "toolkit/qcanvas.h"

#include "toolkit/glext.h" // first of the OpenGL headers

#include "foundation/qmessage.h"
#include "images/qbitmap.h"
#include "toolkit/dtexfont.h"
#include "toolkit/qfont.h"
#include "toolkit/qglcontext.h"

#include <cstring>

namespace tarvik {

namespace {

const float byteToFloat = 0.003921569f; // 1/255

// What the canvases last sent to one context. Each field has an 'unknown' value, which the next
// operation that needs the state replaces by sending it.
struct GLMemory {
    const QGLContext* context = nullptr;
    bool setup2D = false; // the 2-D set-up is in force, for a drawable of wid2D x hgt2D
    int wid2D = 0, hgt2D = 0;
    int blendOn = -1;     // GL_BLEND: 0, 1, -1 unknown
    GLenum src = 0, dst = 0; // blend function; 0 unknown
    bool constantKnown = false;
    uint32_t constant = 0; // the blend colour
    bool colorKnown = false;
    uint32_t color = 0;    // packed RGBA of the current colour
};

GLMemory memory;

// The memory of the current context; null when no context of ours is current, and everything is
// sent. Another context than the one remembered starts from nothing.
GLMemory* Memory()
{
    const QGLContext* current = QGLContext::GetCurrent();
    if (!current) return nullptr;
    if (memory.context != current) {
        memory = GLMemory();
        memory.context = current;
    }
    return &memory;
}

void SendColor(uint32_t rgba)
{
    GLMemory* m = Memory();
    if (m && m->colorKnown && m->color == rgba) return;
    glColor4f(float(rgba >> 24) * byteToFloat, float(rgba >> 16 & 255) * byteToFloat, float(rgba >> 8 & 255) * byteToFloat,
              float(rgba & 255) * byteToFloat);
    if (m) {
        m->colorKnown = true;
        m->color = rgba;
    }
}

void SetBlendOn(bool on)
{
    GLMemory* m = Memory();
    if (m && m->blendOn == int(on)) return;
    if (on)
        glEnable(GL_BLEND);
    else
        glDisable(GL_BLEND);
    if (m) m->blendOn = on;
}

void SetBlendFunc(GLenum src, GLenum dst)
{
    GLMemory* m = Memory();
    if (m && m->src == src && m->dst == dst) return;
    glBlendFunc(src, dst);
    if (m) {
        m->src = src;
        m->dst = dst;
    }
}

void SetBlendConstant(uint32_t rgba)
{
    // Without the entry point the constant colour stays whatever the driver has.
    if (!gll::glBlendColor) return;
    GLMemory* m = Memory();
    if (m && m->constantKnown && m->constant == rgba) return;
    gll::glBlendColor(float(rgba >> 24) * byteToFloat, float(rgba >> 16 & 255) * byteToFloat,
                      float(rgba >> 8 & 255) * byteToFloat, float(rgba & 255) * byteToFloat);
    if (m) {
        m->constantKnown = true;
        m->constant = rgba;
    }
}

// Clips a span [*pos, *pos + *len) to [lo, hi); 'skip' (may be null) moves on with a cut front.
void ClipSpan(int* pos, int* len, int lo, int hi, int* skip)
{
    if (*pos < lo) {
        int cut = lo - *pos;
        *len -= cut;
        *pos = lo;
        if (skip) *skip += cut;
    }
    if (*pos + *len > hi) *len = hi - *pos;
}

// After code that sets blending and colours of its own; the 2-D set-up stays known.
void ForgetBlendAndColor()
{
    const QGLContext* context = memory.context;
    bool setup2D = memory.setup2D;
    int w = memory.wid2D, h = memory.hgt2D;
    memory = GLMemory();
    memory.context = context;
    memory.setup2D = setup2D;
    memory.wid2D = w;
    memory.hgt2D = h;
}

const QCanvasHooks canvasHooks = {
    [](QCanvas* canvas) { delete canvas; },
    [](QCanvas* canvas) { canvas->Flush(); },
};

} // namespace

void QCanvasInstallHooks()
{
    qcanvasHooks = &canvasHooks;
}

void QCanvas::InvalidateGLState()
{
    memory = GLMemory();
}

QCanvas::QCanvas(QDrawable* d)
    : drawable(d), buffer(1), flags(0), font(nullptr), offX(0), offY(0), gl(nullptr), gc(nullptr), bitmap(nullptr),
      queue(nullptr), color(new QColor(255, 255, 255, 255)), background(255u), blend(QCV_BLEND_OFF), textStyle(0)
{
    color->SetName("cv.Color");
}

QCanvas::QCanvas(QCanvas* parent)
    : drawable(parent->drawable), buffer(parent->buffer), flags(0), font(parent->font), offX(0), offY(0),
      gl(parent->gl), gc(nullptr), bitmap(nullptr), queue(nullptr), color(new QColor(parent->color->GetRGBA())),
      background(255u), blend(QCV_BLEND_OFF), textStyle(parent->textStyle)
{
    color->SetName("cv.Color");
    SetBuffer(buffer != 0);
}

QCanvas::~QCanvas()
{
    delete queue;
    delete color;
}

int QCanvas::GetWidth() const
{
    return drawable ? drawable->GetWidth() : 0;
}

int QCanvas::GetHeight() const
{
    return DrawableHeight();
}

bool QCanvas::HasGL() const
{
    if (gl) return gl->GetNative() != nullptr;
    QGLContext* current = QGLContext::GetCurrent();
    return current && current->GetNative();
}

// ---- state ----

void QCanvas::SetColor(int kind, int alpha)
{
    if (flags & QCV_USEX) {
        // The gc takes colours, not kinds; it keeps the canvas's own.
        if (gc) gc->SetColor(color);
        return;
    }
    struct Kind {
        uint8_t r, g, b, a;
        bool takesAlpha;
    };
    static const Kind kinds[] = {
        {255, 255, 255, 255, false}, // PX_WHITE
        {0, 0, 0, 255, false},       // PX_BLACK
        {224, 224, 224, 255, false}, // PX_LTGRAY
        {212, 208, 200, 255, false}, // PX_FACE
        {128, 128, 128, 255, false}, // PX_GRAY
        {255, 0, 0, 255, false},     // PX_RED
        {39, 73, 78, 255, true},     // PX_DKTEAL
        {68, 126, 142, 128, true},   // PX_TEAL
        {83, 153, 165, 255, false},  // PX_MEDTEAL
        {110, 208, 221, 255, false}, // PX_LTTEAL
        {139, 201, 219, 255, false}, // PX_PALE
        {255, 255, 255, 255, true},  // PX_VEIL
    };
    if (kind < 0 || kind >= int(sizeof(kinds) / sizeof(kinds[0]))) {
        QWARNING("QCanvas::SetColor(%d) unknown PX_xxx", kind);
        color->Set(0, 255, 0, 255);
        return;
    }
    const Kind& k = kinds[kind];
    color->Set(k.r, k.g, k.b, k.takesAlpha && alpha != -1 ? alpha : k.a);
    if (kind == PX_TEAL || kind == PX_VEIL) blend = QCV_BLEND_ALPHA;
}

void QCanvas::SetColor(int r, int g, int b, int a)
{
    color->Set(r, g, b, a);
    if ((flags & QCV_USEX) && gc) gc->SetColor(color);
}

void QCanvas::SetColor(const QColor* c)
{
    color->Set(c);
    if ((flags & QCV_USEX) && gc) gc->SetColor(color);
}

void QCanvas::SetFont(QFont* f)
{
    font = f;
    if (gc) gc->SetFont(f);
}

void QCanvas::SetGLContext(QGLContext* c)
{
    gl = c;
    // A context handed over may be new, at the address of one that has gone: nothing remembered
    // of that address holds.
    if (c && memory.context == c) InvalidateGLState();
}

void QCanvas::SetBuffer(bool back)
{
    buffer = back ? 1 : 0;
    if (flags & QCV_USEX) return;
    Select();
    if (gl) gl->SetDrawBuffer(back ? GL_BACK : GL_FRONT);
}

void QCanvas::Select()
{
    if (gl && !(flags & QCV_USEX)) gl->Select();
}

void QCanvas::Set2D()
{
    flags &= ~QCV_3D;
    Select();
    if (!gl || (flags & QCV_USEX)) return;
    // The set-up depends on the size of the context's drawable; it is redone when that changes.
    QDrawable* target = gl->GetDrawable();
    int w = target ? target->GetWidth() : 0, h = target ? target->GetHeight() : 0;
    GLMemory* m = Memory();
    if (m && m->setup2D && m->wid2D == w && m->hgt2D == h) return;
    gl->Setup2D();
    if (m && QGLContext::GetCurrent() == m->context) {
        m->setup2D = true;
        m->wid2D = w;
        m->hgt2D = h;
    }
}

void QCanvas::Set3D()
{
    flags |= QCV_3D;
    if (!gl) return;
    gl->Setup3D(1000);
    if (GLMemory* m = Memory()) m->setup2D = false;
}

void QCanvas::ApplyBlend()
{
    switch (blend) {
    case QCV_BLEND_OFF: SetBlendOn(false); break;
    case QCV_BLEND_ALPHA:
        SetBlendOn(true);
        SetBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
        break;
    case QCV_BLEND_CONSTANT:
        SetBlendOn(true);
        SetBlendConstant(background.GetRGBA());
        SetBlendFunc(GL_CONSTANT_COLOR, GL_ONE_MINUS_CONSTANT_COLOR);
        break;
    case QCV_BLEND_PREMULT:
        SetBlendOn(true);
        SetBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
        break;
    case QCV_BLEND_ADD:
        SetBlendOn(true);
        SetBlendFunc(GL_SRC_ALPHA_SATURATE, GL_ONE);
        break;
    default: break; // no such mode: the state stays as it is
    }
}

// ---- primitives ----

void QCanvas::Plot(int x, int y, int size)
{
    if ((flags & QCV_USEX) || !HasGL()) return;
    x += offX;
    y += offY;
    Select();
    SendColor(color->GetRGBA());
    ApplyBlend();
    glPointSize(float(size));
    glBegin(GL_POINTS);
    glVertex2i(x, DrawableHeight() - y - 1);
    glEnd();
}

void QCanvas::Line(int x1, int y1, int x2, int y2, QColor* c1, QColor* c2)
{
    if (flags & QCV_USEX) {
        QERROR("Canvas:Line not supported for X");
        return;
    }
    if (!HasGL()) return;
    int h = DrawableHeight();
    Select();
    SendColor(color->GetRGBA());
    ApplyBlend();
    glBegin(GL_LINES);
    if (c1) SendColor(c1->GetRGBA());
    glVertex2i(x1 + offX, h - (y1 + offY) - 1);
    if (c2) SendColor(c2->GetRGBA());
    glVertex2i(x2 + offX, h - (y2 + offY) - 1);
    glEnd();
}

void QCanvas::FillRect(int x, int y, int wid, int hgt)
{
    FillRect(x, y, wid, hgt, color, color, color, color);
}

void QCanvas::FillRect(QRect* r, QColor* tl, QColor* tr, QColor* br, QColor* bl)
{
    FillRect(r->x, r->y, r->wid, r->hgt, tl, tr, br, bl);
}

void QCanvas::FillRect(int x, int y, int wid, int hgt, QColor* tl, QColor* tr, QColor* br, QColor* bl)
{
    Set2D();
    x += offX;
    y += offY;
    if (flags & QCV_CLIP) {
        // Left and top first: an overhang there can use the whole size up.
        if (x < clip.x) wid -= clip.x - x, x = clip.x;
        if (y < clip.y) hgt -= clip.y - y, y = clip.y;
        if (wid < 1 || hgt < 1) return;
        if (x + wid > clip.x + clip.wid) wid = clip.x + clip.wid - x;
        if (y + hgt > clip.y + clip.hgt) hgt = clip.y + clip.hgt - y;
        if (wid < 1 || hgt < 1) return;
    }
    if (flags & QCV_USEX) {
        if (gc) gc->FillRect(x, y, wid, hgt);
        return;
    }
    if (!HasGL()) return;
    Select();
    int bottom, top;
    if (flags & QCV_YUP) {
        top = y - 1;
        bottom = y - 1 - hgt;
    } else {
        int h = DrawableHeight();
        bottom = h - y - hgt;
        top = h - y;
        if (bottom < 0) bottom = 0; // the quad stays on the drawable
    }
    if (wid < 1 || top - bottom < 1) return;
    ApplyBlend();
    glBegin(GL_QUADS);
    SendColor(bl->GetRGBA());
    glVertex2i(x, bottom);
    SendColor(br->GetRGBA());
    glVertex2i(x + wid, bottom);
    SendColor(tr->GetRGBA());
    glVertex2i(x + wid, top);
    SendColor(tl->GetRGBA());
    glVertex2i(x, top);
    glEnd();
}

void QCanvas::Frame(int x, int y, int wid, int hgt)
{
    FillRect(x, y, 1, hgt);
    FillRect(x, y, wid, 1);
    FillRect(x + 1, (flags & QCV_YUP) ? y - hgt + 1 : y + hgt - 1, wid - 2, 1);
    FillRect(x + wid - 1, y, 1, hgt);
}

void QCanvas::Outline(int x, int y, int wid, int hgt)
{
    if (flags & QCV_USEX) QWARNING("QCanvas:Outline not support for ISX");
    Select();
    SetColor(139, 201, 219, 255); // PX_PALE, and it stays
    Frame(x, y, wid, hgt);
}

void QCanvas::FillTriangle(int x1, int y1, int x2, int y2, int x3, int y3, QColor* c1, QColor* c2, QColor* c3)
{
    if ((flags & QCV_USEX) || !HasGL()) return;
    QColor black(0, 0, 0, 255);
    const QColor* c[3] = {c1 ? c1 : &black, c2 ? c2 : &black, c3 ? c3 : &black};
    const int px[3] = {x1, x2, x3}, py[3] = {y1, y2, y3};
    int h = DrawableHeight();
    Select();
    ApplyBlend();
    glBegin(GL_TRIANGLES);
    for (int i = 0; i < 3; i++) {
        if (i == 0 || c[i] != c[i - 1]) SendColor(c[i]->GetRGBA());
        glVertex2i(px[i] + offX, h - (py[i] + offY));
    }
    glEnd();
}

// ---- pixels ----

void QCanvas::SetRasterPos(int x, int y)
{
    if (x >= 0 && y >= 0) {
        glRasterPos2i(x, y);
        return;
    }
    // A position off the viewport would be invalid and draw nothing; an empty bitmap moves the
    // valid one there.
    glRasterPos2i(0, 0);
    glBitmap(0, 0, 0, 0, float(x), float(y), nullptr);
}

void QCanvas::Blit(QBitMap* bm, int x, int y, int wid, int hgt, int sx, int sy, int copyAlpha)
{
    if (flags & QCV_USEX) {
        QERROR("QCanvas::Blit() not implemented for USEX");
        return;
    }
    DrawPixels(bm, x, y, wid, hgt, sx, sy, copyAlpha);
}

void QCanvas::DrawPixels(QBitMap* bm, int x, int y, int wid, int hgt, int sx, int sy, int copyAlpha)
{
    if (flags & QCV_USEX) {
        QERROR("QCanvas::DrawPixels() not implemented for USEX");
        return;
    }
    if (!bm || !bm->GetMemory()) return;
    bool glOk = HasGL();
    if (glOk) {
        Set2D();
        Select();
        ApplyBlend();
    }
    if (wid == -1) wid = bm->GetWidth();
    if (hgt == -1) hgt = bm->GetHeight();
    if (sx == -1) sx = 0;
    if (sy == -1) sy = 0;
    x += offX;
    y += offY;
    if (flags & QCV_CLIP) {
        ClipSpan(&x, &wid, clip.x, clip.x + clip.wid, &sx);
        ClipSpan(&y, &hgt, clip.y, clip.y + clip.hgt, &sy);
    }
    if (wid < 1 || hgt < 1) return;

    if (flags & QCV_BITMAP) {
        // QBlit checks the ranges itself, with its own reports.
        if (bitmap)
            QBlit(bm, sx, bm->GetHeight() - hgt - sy, bitmap, x, bitmap->GetHeight() - y - hgt, wid, hgt, blend != 0,
                  uint8_t(copyAlpha));
        return;
    }
    // GL reads what the rows say: a part beyond the bitmap would be read past its memory.
    if (sx < 0 || sy < 0) return;
    if (wid > bm->GetWidth() - sx) wid = bm->GetWidth() - sx;
    if (hgt > bm->GetHeight() - sy) hgt = bm->GetHeight() - sy;
    if (wid < 1 || hgt < 1) return;
    int dstRow = DrawableHeight() - y - hgt;
    int srcRow = bm->GetHeight() - hgt - sy;

    if (flags & QCV_QUEUE) {
        if (!queue) queue = new QBlitQueue(this);
        queue->AddBlit(bm, sx, srcRow, wid, hgt, x, dstRow, blend != 0 ? QBLIT_BLEND : 0);
        return;
    }
    if (!glOk) return;
    Select();
    glPixelStorei(GL_UNPACK_ROW_LENGTH, bm->GetWidth());
    glPixelStorei(GL_UNPACK_SKIP_ROWS, srcRow);
    glPixelStorei(GL_UNPACK_SKIP_PIXELS, sx);
    SetRasterPos(x, dstRow);
    if (blend != 0) {
        SetBlendOn(true);
        SetBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    }
    glPushAttrib(GL_DEPTH_BUFFER_BIT);
    glDepthMask(GL_FALSE);
    glDrawPixels(wid, hgt, bm->GetDepth() == 32 ? GL_RGBA : GL_RGB, GL_UNSIGNED_BYTE, bm->GetMemory());
    glPopAttrib();
    // Texture uploads elsewhere take whole bitmaps with the default unpacking.
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    glPixelStorei(GL_UNPACK_SKIP_ROWS, 0);
    glPixelStorei(GL_UNPACK_SKIP_PIXELS, 0);
}

void QCanvas::Flush()
{
    Select();
    if (!queue || queue->numEntries == 0) return;
    if (HasGL()) ExecuteQueue();
    queue->numEntries = 0;
}

// One walk: the blend function once, GL_BLEND switched only where the records change it.
void QCanvas::ExecuteQueue()
{
    SetBlendOn(false);
    SetBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    bool blending = false;
    for (int i = 0; i < queue->numEntries; i++) {
        const QBlitEntry& e = queue->entries[i];
        if ((e.flags & QBLIT_SKIP) || !e.bitmap || !e.bitmap->GetMemory()) continue;
        glPixelStorei(GL_UNPACK_ROW_LENGTH, e.bitmap->GetWidth());
        glPixelStorei(GL_UNPACK_SKIP_ROWS, e.srcY);
        glPixelStorei(GL_UNPACK_SKIP_PIXELS, e.srcX);
        SetRasterPos(e.dstX, e.dstY);
        bool want = (e.flags & QBLIT_BLEND) != 0;
        if (want != blending) {
            SetBlendOn(want);
            blending = want;
        }
        glDrawPixels(e.wid, e.hgt, GL_RGBA, GL_UNSIGNED_BYTE, e.bitmap->GetMemory());
    }
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    glPixelStorei(GL_UNPACK_SKIP_ROWS, 0);
    glPixelStorei(GL_UNPACK_SKIP_PIXELS, 0);
}

void QCanvas::ReadPixels(QBitMap* bm, int x, int y, int wid, int hgt, int dx, int dy)
{
    if (!bm || !bm->GetMemory() || !HasGL()) return;
    Set2D();
    if (wid == -1) wid = bm->GetWidth();
    if (hgt == -1) hgt = bm->GetHeight();
    int skipPixels = dx + offX;
    int skipRows = bm->GetHeight() - hgt - (dy + offY);
    if (wid < 1 || hgt < 1) return;
    if (skipPixels < 0 || skipRows < 0 || skipPixels + wid > bm->GetWidth() || skipRows + hgt > bm->GetHeight()) {
        QERROR("QCanvas::ReadPixels(); %dx%d at %d,%d doesn't fit the bitmap (%dx%d)", wid, hgt, skipPixels, skipRows,
               bm->GetWidth(), bm->GetHeight());
        return;
    }
    glPixelStorei(GL_PACK_ROW_LENGTH, bm->GetWidth());
    glPixelStorei(GL_PACK_SKIP_PIXELS, skipPixels);
    glPixelStorei(GL_PACK_SKIP_ROWS, skipRows);
    SetBlendOn(false);
    glDisable(GL_DEPTH_TEST);
    glReadPixels(x + offX, DrawableHeight() - (y + offY) - hgt, wid, hgt, GL_RGBA, GL_UNSIGNED_BYTE, bm->GetMemory());
    glPixelStorei(GL_PACK_ROW_LENGTH, 0);
    glPixelStorei(GL_PACK_SKIP_PIXELS, 0);
    glPixelStorei(GL_PACK_SKIP_ROWS, 0);
}

// ---- text ----

void QCanvas::Text(const char* text, int x, int y, int len)
{
    if (!font) {
        QERROR("QCanvas:Text(); no font selected");
        return;
    }
    if (len == -1) len = int(std::strlen(text));
    x += offX;
    y += offY;
    int baseline = int(font->GetAscent() + float(y));
    if (flags & QCV_USEX) {
        if (textStyle != 0) QWARNING("QCanvas:Text() doesn't support textstyles in X GC's");
        if (gc) gc->Text(text, x, baseline, len);
        return;
    }
    if (len < 1 || !HasGL()) return;
    Select();
    int glY = DrawableHeight() - baseline;
    ApplyBlend();
    if (textStyle != 0) {
        QERROR("QCanvas:Text(); can't handle styles nyi/win32");
        return;
    }
    if (DTexFont* tf = font->GetTexFont()) {
        tf->color.Set(color);
        tf->Paint(text, x, glY, len);
    } else {
        SendColor(color->GetRGBA());
        glRasterPos2i(0, 0);
        glBitmap(0, 0, 0, 0, float(x), float(glY), nullptr);
        glListBase(font->GetListBase());
        glCallLists(len, GL_UNSIGNED_BYTE, text);
    }
    // The font sets blending and colours of its own.
    ForgetBlendAndColor();
}

void QCanvas::TextML(const char* text, QRect* r, int textFlags)
{
    const int bufferSize = 1024, maxLines = 30;
    size_t n = std::strlen(text);
    if (n >= size_t(bufferSize)) {
        QWARNING("QCanvas::TextML(); text>temp buffer");
        return;
    }
    char copy[bufferSize];
    std::memcpy(copy, text, n + 1);
    const char* lines[maxLines];
    int count = 1;
    lines[0] = copy;
    for (char* p = copy; *p; p++) {
        if (*p != '\n') continue;
        *p = 0;
        if (count == maxLines) {
            QWARNING("QCanvas::TextML() max #lines reached (10)");
            count--; // the next line takes the place of the last
        }
        lines[count++] = p + 1;
    }
    int lineHgt = font ? int(font->GetHeight() * 4.0f * 0.25f) : 0;
    int blockHgt = lineHgt * count;
    int y = (textFlags & 2) ? (r->hgt - blockHgt) / 2 + r->y : r->y;
    for (int i = 0; i < count; i++) {
        int x = r->x;
        if ((textFlags & 1) && font) x = int((float(r->wid) - font->GetWidth(lines[i], -1)) * 0.5f + float(r->x));
        Text(lines[i], x, y, -1);
        y += lineHgt;
    }
}

} // namespace tarvik
