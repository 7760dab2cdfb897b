// QTitleBar: the top strip of a dialog, across the parent's full width, with the title. A dialog is
// dragged by it. A click on its close button (set by the owner, never made here) becomes a
// QEVENT_CLOSE for the parent.
#pragma once

#include "toolkit/qwindow.h"

namespace tarvik {

class QFont;

class QTitleBar : public QWindow {
public:
    QTitleBar(QWindow* parent, const char* title, QFont* f); // null f: the system font
    ~QTitleBar() override;

    const char* ClassName() const override { return "QTitleBar"; }
    void Paint(QRect* r) override;
    bool ProcessEvent(QEvent* e) override;

    void SetTitle(const char* t);
    const char* GetTitle() const { return title; }

    QWindow* closeButton; // borrowed; null unless the owner sets one
    QFont* font;          // borrowed
    char* title;          // owned copy; may be null
};

} // namespace tarvik
