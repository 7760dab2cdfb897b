// QButton: a push button with a caption, a drawn symbol ("$PLAY", "$REWIND", ...) or images for its
// two states, with press tracking, a keyboard shortcut and a tab stop.
//
// A press takes the focus and the mouse capture; the button follows the mouse while it is held
// (pressState 1 over it, 2 away from it) and clicks on a release over it: it pushes an event of type
// 'sendEvent' (QEVENT_CLICK unless changed) naming itself. With 'sendEvent' QEVENT_KEYPRESS the
// button types its shortcut instead, tagged QEVENT_TAG_SHORTCUT so that no button acts on it again.
// The colours and the source rectangles are owned; the textures and the font are borrowed.
#pragma once

#include "toolkit/qwindow.h"
#include "foundation/qstring.h"

#include <cstdint>

namespace tarvik {

class QFont;
class QColor;
class DTexture;

enum QButtonFlags : uint32_t {
    QBF_FLAT = 2,       // no body, only the text
    QBF_PASS_KEY = 4,   // the shortcut's key press goes on to the other windows
    QBF_NO_BEVEL = 8,   // no background, no bevel, no offset when pressed
    QBF_ENABLED = 16,   // the mouse can press it; the text is in full colour
    QBF_LIT = 32,       // a white veil over the body, the text in PX_DKTEAL
    QBF_FIT_TEXT = 64,  // the caption is cut to fit the width, five lines at most
    QBF_DOWN = 128,     // looks pressed without being so
};

class QButton : public QWindow {
public:
    QButton(QWindow* parent, QRect* r, const char* text); // null text: empty caption
    ~QButton() override;

    const char* ClassName() const override { return "QButton"; }
    void Paint(QRect* r) override;
    bool OnButtonPress(int button, int px, int py) override;
    bool OnButtonRelease(int button, int px, int py) override;
    bool OnKeyPress(int key, int px, int py) override;
    bool OnMotion(int px, int py) override;

    void SetText(const char* t);
    void SetShortcut(int key, uint32_t word = 0); // the second argument is not read
    void SetPassKey(bool on);
    const char* GetText() const { return text.cstr(); }

    QColor* colDark;
    QColor* colLight;
    QColor* colText;
    QColor* colTextDown;
    QColor* colMark;
    int32_t pressState;   // 0 up, 1 pressed with the mouse over it, 2 pressed with the mouse away
    int32_t align;        // 0 centred; 1 left, 4 in; 2 left; 1 and 2 centre vertically only
    uint32_t buttonFlags; // QBF_*, initially QBF_ENABLED | QBF_NO_BEVEL
    qstring text;
    QFont* font;          // borrowed; initially the system font
    int32_t shortcut;     // key code that presses the button; 0 none
    int32_t sendEvent;    // event type of a click; QEVENT_CLICK
    DTexture* texUp;      // borrowed; optional images for the two states
    DTexture* texDown;
    QRect* rectUp;        // owned; source rectangles in those images, null for the whole image
    QRect* rectDown;

private:
    void DrawCaption(QRect* r, int bevel);
    bool DrawSymbol(QRect* r, int bevel); // false when the caption isn't a symbol name
};

} // namespace tarvik
