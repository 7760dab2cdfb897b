// QFont tells the canvas what size a text has and how to draw it. Behind it stands either a set of
// OpenGL display lists made from a core font of the display, or a DTexFont whose glyphs are quads
// cut from a texture. QGC is what a canvas in its QCV_USEX mode calls: its operations do nothing.
//
// A font owns its display lists, its core font and its texture font. The lists are made in the
// context current at creation and shared by the contexts of the application; they are deleted
// with the font only while a context is current, and otherwise go with the contexts.
//
// Widths of a display-list font follow the three parts of each character (platform_window.h):
// a positive left bearing a gives a + b, else a positive right bearing c gives c + b, else b. A
// character with ink clear of both edges is so measured to its ink's right edge, short of its
// advance by c; one that touches an edge is measured to its advance, or beyond by an overhang.
#pragma once

#include "foundation/qobject.h"
#include "images/qdrawable.h"

#include <cstdint>

namespace tarvik {

class DTexFont;
class qstring;
struct PlatformFont;

class QFont : public QObject {
public:
    QFont();
    ~QFont() override; // frees the display lists or the texture font it made

    const char* ClassName() const override { return "QFont"; }

    // A display-list font from a core font of the display (an X logical font description or an
    // alias such as "fixed"). False, with a report, when the font or a GL context is missing.
    bool CreateFromNative(const char* name);
    // A texture font from a baked glyph file (see dtexfont.h). False, with a report, on failure.
    bool CreateFromFile(const char* fileName);

    float GetHeight() const;
    float GetAscent() const;
    float GetWidth(const char* text, int len) const;
    float GetWidth(const qstring* s, int len) const;
    float GetWidth(const uint16_t* text, int len) const;
    float GetCharWidth(int code) const;
    uint32_t GetListBase() const { return listBase; }
    DTexFont* GetTexFont() const { return texFont; }

    DTexFont* texFont;         // owned; null for a display-list font
    PlatformFont* nativeFont;  // owned
    int32_t height;            // pixels, of a display-list font
    int32_t ascent;
    uint32_t listBase;         // 256 lists, one per code; 0 for none

private:
    template <typename Char> float Width(const Char* text, int len) const;
    void Release(); // back to an empty font
};

// The file of the system font, baked from a scalable font when the tree is built.
const char* QFontSystemFile();
// The application's system font: the texture font of QFontSystemFile(), else the core font "fixed";
// null, with a warning, when neither can be had. Needs a current OpenGL context.
QFont* QFontCreateSystem();

class QGC {
public:
    void SetFont(QFont* f) { font = f; }
    void FillRect(int x, int y, int wid, int hgt) {}
    void SetColor(const QColor* c) {}
    void SetColor(int kind, int alpha) {}
    void FillTriangle(int x1, int y1, int x2, int y2, int x3, int y3) {}
    void Text(const char* text, int x, int y, int len) {}

    QFont* font = nullptr; // borrowed
};

} // namespace tarvik
