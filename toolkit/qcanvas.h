// QCanvas: the 2-D drawing surface of the toolkit. Every drawable has one. It draws with OpenGL
// through a QGLContext in the coordinates of a window, origin at the top left and y downward, and
// turns them into OpenGL's bottom-up coordinates with the height of its drawable. It can also write
// into a QBitMap (QCV_BITMAP), postpone pixel transfers in a QBlitQueue (QCV_QUEUE), or pass drawing
// to a QGC (QCV_USEX), whose operations do nothing.
//
// The canvas owns its colour and its queue; the drawable, context, font, bitmap and gc are
// borrowed. Without a context it leaves the context alone and draws into whatever is current; with
// no context current at all it draws nothing.
//
// The canvases remember what they last sent to the current context (the 2-D set-up and its size,
// the blend switch and function, the constant colour, the current colour) and skip a call whose
// state is already in force, so that a screenful of small primitives costs little more than the
// primitives. The memory is dropped when another context becomes current or a context is handed to
// a canvas. Code that changes that state behind the canvases' back (its own matrices, blending or
// glColor on a context that canvases draw into) calls QCanvas::InvalidateGLState afterwards.
#pragma once

#include "foundation/qobject.h"
#include "images/qdrawable.h"

#include <cstdint>

namespace tarvik {

class QFont;
class QGC;
class QGLContext;
class QBitMap;
struct QBlitQueue;

enum QCanvasFlags : uint32_t {
    QCV_CLIP = 4,     // FillRect and DrawPixels clip to 'clip'
    QCV_QUEUE = 8,    // DrawPixels adds to the queue instead of drawing
    QCV_USEX = 16,    // drawing goes to the gc
    QCV_BITMAP = 32,  // DrawPixels writes into 'bitmap'
    QCV_3D = 64,      // the 3-D set-up is in force
    QCV_YUP = 128,    // FillRect takes y upward, in OpenGL's direction
};

enum QCanvasBlend {
    QCV_BLEND_OFF = 0,
    QCV_BLEND_ALPHA = 1,    // source alpha, one minus source alpha
    QCV_BLEND_CONSTANT = 2, // the constant colour 'background'
    QCV_BLEND_PREMULT = 3,  // one, one minus source alpha
    QCV_BLEND_ADD = 4,      // source alpha saturate, one
};

enum QColorKind {
    PX_WHITE = 0, PX_BLACK, PX_LTGRAY, PX_FACE, PX_GRAY, PX_RED, PX_DKTEAL, PX_TEAL, PX_MEDTEAL, PX_LTTEAL, PX_PALE,
    PX_VEIL,
};

class QCanvas : public QObject {
public:
    explicit QCanvas(QDrawable* d);
    explicit QCanvas(QCanvas* parent); // a child window's canvas on its parent's drawable
    ~QCanvas() override;

    const char* ClassName() const override { return "QCanvas"; }
    virtual int GetWidth() const;
    virtual int GetHeight() const;
    virtual void Line(int x1, int y1, int x2, int y2) { Line(x1, y1, x2, y2, nullptr, nullptr); }
    virtual void Plot(int x, int y, int size);
    virtual void Text(const char* text, int x, int y, int len); // y: the line's top; len -1: all

    void SetColor(int kind, int alpha);
    void SetColor(int r, int g, int b, int a);
    void SetColor(const QColor* c);
    QColor* GetColor() const { return color; }
    void SetBlending(bool on) { blend = on ? QCV_BLEND_ALPHA : QCV_BLEND_OFF; }
    void SetBlendMode(int mode) { blend = mode; }
    int GetBlendMode() const { return blend; }
    void SetBackground(uint32_t rgba) { background.Set(int(rgba >> 24), int(rgba >> 16 & 255), int(rgba >> 8 & 255), int(rgba & 255)); }
    void SetFont(QFont* f);
    QFont* GetFont() const { return font; }
    void SetOrigin(int x, int y) { offX = x; offY = y; }
    int GetOriginX() const { return offX; }
    int GetOriginY() const { return offY; }
    void SetClip(const QRect& r) { clip = r; }
    const QRect& GetClip() const { return clip; }
    void SetGLContext(QGLContext* c);
    QGLContext* GetGLContext() const { return gl; }
    void SetBuffer(bool back);
    void SetFlags(uint32_t mask) { flags |= mask; }
    void ClearFlags(uint32_t mask) { flags &= ~mask; }
    uint32_t GetFlags() const { return flags; }
    void SetBitmap(QBitMap* bm) { bitmap = bm; }
    void SetGC(QGC* g) { gc = g; }
    QGC* GetGC() const { return gc; }
    void SetTextStyle(int style) { textStyle = style; } // anything but 0 draws no text
    int GetBuffer() const { return buffer; }
    QDrawable* GetDrawable() const { return drawable; }
    void Select();
    void Set2D();
    void Set3D();
    bool UsesX() const { return flags & QCV_USEX; }

    void Line(int x1, int y1, int x2, int y2, QColor* c1, QColor* c2);
    void Outline(int x, int y, int wid, int hgt);
    void Outline(QRect* r) { Outline(r->x, r->y, r->wid, r->hgt); }
    void Inline(int x, int y, int wid, int hgt) { Outline(x, y, wid, hgt); }
    void Frame(int x, int y, int wid, int hgt);
    void Frame(QRect* r) { Frame(r->x, r->y, r->wid, r->hgt); }
    void FillRect(int x, int y, int wid, int hgt);
    void FillRect(QRect* r) { FillRect(r->x, r->y, r->wid, r->hgt); }
    void FillRect(QRect* r, QColor* tl, QColor* tr, QColor* br, QColor* bl);
    void FillRect(int x, int y, int wid, int hgt, QColor* tl, QColor* tr, QColor* br, QColor* bl);
    void FillTriangle(int x1, int y1, int x2, int y2, int x3, int y3, QColor* c1, QColor* c2, QColor* c3);
    void TextML(const char* text, QRect* r, int textFlags); // 1: centre lines, 2: centre the block
    void Blit(QBitMap* bm, int x, int y, int wid, int hgt, int sx, int sy, int copyAlpha);
    // wid, hgt -1: the bitmap's size; sx, sy -1: 0. y and sy count from the top, of the window and
    // of the bitmap. A part beyond the bitmap is not drawn.
    void DrawPixels(QBitMap* bm, int x, int y, int wid, int hgt, int sx, int sy, int copyAlpha);
    // Into bm at column dx + offX, row dy + offY from the top; a block that doesn't fit is refused
    // with a report. The read buffer is the caller's to choose.
    void ReadPixels(QBitMap* bm, int x, int y, int wid, int hgt, int dx, int dy);
    void Flush(); // draws the queued transfers in one walk and empties the queue

    QBlitQueue* GetQueue() const { return queue; }

    // Forgets what the canvases sent to the current context; the next operation sends it again.
    static void InvalidateGLState();

private:
    bool HasGL() const; // a context to draw into: ours, or with none of ours the current one
    int DrawableHeight() const { return drawable ? drawable->GetHeight() : 0; }
    void ApplyBlend();
    void ExecuteQueue();
    static void SetRasterPos(int x, int y); // also below 0, where glRasterPos can't go

    QDrawable* drawable; // borrowed
    int32_t buffer;      // 1 back, 0 front
    uint32_t flags;
    QFont* font;         // borrowed
    int32_t offX, offY;
    QRect clip;
    QGLContext* gl;      // borrowed
    QGC* gc;             // borrowed
    QBitMap* bitmap;     // borrowed
    QBlitQueue* queue;   // owned, made on first use
    QColor* color;       // owned
    QColor background;
    int32_t blend;
    int32_t textStyle;
};

// Installs the canvas hooks of the drawables: deleting a canvas, running its postponed blits.
// QApp's constructor calls it.
void QCanvasInstallHooks();

} // namespace tarvik
