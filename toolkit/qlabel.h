// QLabel: static text, or an image from a file, that can be clicked (any button pushes a
// QEVENT_CLICK naming the label). It sizes itself to its text or image when made.
#pragma once

#include "toolkit/qwindow.h"

#include <cstdint>

namespace tarvik {

class QFont;
class QColor;
class QBitMap;
class QImage;

enum : int { QLABEL_IMAGE = 1 };        // constructor flag: 'text' names an image file
enum : uint32_t { QLABELF_BOLD = 1 };   // labelFlags: the text struck twice, one pixel apart

class QLabel : public QWindow {
public:
    QLabel(QWindow* parent, QRect* r, const char* text, int flags);
    ~QLabel() override;

    const char* ClassName() const override { return "QLabel"; }
    void Paint(QRect* r) override;
    bool OnButtonPress(int button, int px, int py) override;

    void SetText(const char* t); // keeps the size; repaints
    const char* GetText() const { return text; }

    QColor* color;       // owned; white
    char* text;          // owned copy; may be null
    QBitMap* bitmap;     // painted when set: 'image', or the blank stand-in for a missing file
    QImage* image;       // owned
    QFont* font;         // borrowed; the system font
    uint32_t labelFlags; // QLABELF_*
};

} // namespace tarvik
