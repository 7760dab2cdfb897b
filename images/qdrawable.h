// The small types the window toolkit and the raster images share: the rectangle QRect, the packed
// colour QColor, and QDrawable, the base of whatever a canvas draws into.
//
// A drawable owns its canvas. The canvas class belongs to the toolkit, which stands above this
// library, so a drawable never sees its definition: the toolkit fills qcanvasHooks at start-up with
// the two things the images need of a canvas (deleting it, running its postponed blits). Without
// the toolkit no canvas exists and the hooks stay null.
#pragma once

#include "foundation/qobject.h"

#include <cstdint>

namespace tarvik {

class QCanvas;

struct QCanvasHooks {
    void (*Delete)(QCanvas* canvas);          // destroys a canvas that a drawable owned
    void (*ExecuteBlitQueue)(QCanvas* canvas); // draws and empties the canvas's postponed blits
};

extern const QCanvasHooks* qcanvasHooks; // null until the toolkit sets it

struct QRect {
    int32_t x, y, wid, hgt;

    QRect() : x(0), y(0), wid(0), hgt(0) {}
    QRect(int32_t x0, int32_t y0, int32_t w, int32_t h) : x(x0), y(y0), wid(w), hgt(h) {}

    void SetXY(int32_t nx, int32_t ny) { x = nx; y = ny; }
    void SetSize(int32_t w, int32_t h) { wid = w; hgt = h; }
    bool Contains(int32_t px, int32_t py) const;
    void Inset(int32_t n); // both corners inward by n; wid and hgt stay at 1 or more
};

// A colour packed in one word: red in the highest byte, then green, blue, alpha in the lowest.
class QColor : public QObject {
public:
    QColor(int r, int g, int b, int a);
    explicit QColor(uint32_t packed) : value(packed) {}
    ~QColor() override;

    const char* ClassName() const override { return "QColor"; }
    void DbgReport() const override; // "@%p %s (class %s), RGBA=0x%08x\n"

    void Set(int r, int g, int b, int a);
    void Set(const QColor* c) { value = c->value; }
    uint32_t GetRGBA() const { return value; }

    int GetR() const { return int(value >> 24); }
    int GetG() const { return int(value >> 16 & 0xFF); }
    int GetB() const { return int(value >> 8 & 0xFF); }
    int GetA() const { return int(value & 0xFF); }

private:
    uint32_t value;
};

class QDrawable : public QObject {
public:
    QDrawable() : cv(nullptr) {}
    ~QDrawable() override; // deletes the canvas through qcanvasHooks

    const char* ClassName() const override { return "QDrawable"; }

    virtual void* GetNativeHandle() const { return nullptr; } // the query of the base: nothing native
    virtual bool Create();   // the base reports and returns true
    virtual void Destroy();  // the base reports
    virtual int GetWidth() const = 0;
    virtual int GetHeight() const = 0;

    QCanvas* GetCanvas() const { return cv; }
    void SetCanvas(QCanvas* canvas) { cv = canvas; } // the drawable owns it from here on

protected:
    QCanvas* cv; // owned
};

} // namespace tarvik
