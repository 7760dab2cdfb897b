// QProgress: a bar that shows how far long work has come, with an optional text over it.
// QProgressDialog: a modal dialog with a label, such a bar and a Cancel button, which the long work
// polls: Poll runs the waiting events, calls the application's idle procedure every 'interval'
// milliseconds, and says false once the user cancelled.
#pragma once

#include "toolkit/qdialog.h"
#include "toolkit/qevent.h"

#include <cstdint>

namespace tarvik {

class QColor;
class QFont;
class QButton;
class QLabel;

class QProgress : public QWindow {
public:
    QProgress(QWindow* parent, QRect* r, const char* text);
    ~QProgress() override;

    const char* ClassName() const override { return "QProgress"; }
    void Paint(QRect* r) override;

    // Both values are scaled down together by tens until neither is above 1000.
    void SetProgress(int cur, int max, bool repaint);
    void SetText(const char* t);

    QColor* textColor; // owned; black
    char* text;        // owned copy; may be null
    QFont* font;       // borrowed; the system font
    int32_t textAlign; // 0 centred; 1 left at x 6; 2 left at x 0
    int32_t current, maximum;
};

enum QProgressFlags : uint32_t {
    QPDF_NO_CANCEL = 1, // no Cancel button
    QPDF_CANCELLED = 2, // the user cancelled
};

class QProgressDialog : public QDialog {
public:
    QProgressDialog(QWindow* parent, QRect* r, const char* title, const char* text, int flags);
    ~QProgressDialog() override;

    const char* ClassName() const override { return "QProgressDialog"; }
    bool Create() override; // also focuses Cancel and runs the waiting events, to show at once
    bool ProcessEvent(QEvent* e) override;

    bool Poll(); // false once cancelled: the work must stop
    void SetProgress(int cur, int max);
    void SetText(const char* t);
    bool IsCancelled() const { return progressFlags & QPDF_CANCELLED; }

    uint32_t progressFlags; // QPDF_*
    QButton* cancelButton;  // owned; may be null
    QLabel* label;          // owned
    QProgress* progress;    // owned
    QTimer timer;
    int32_t interval;       // milliseconds between idle calls; 100
};

} // namespace tarvik
