// QDialog: a movable, optionally modal window with a title bar. A modal dialog takes the window
// manager's active group for the span of its object (the constructor takes it, the destructor
// gives back the group it found), so modal dialogs stack. A draggable dialog follows the mouse while
// button 1 is held on it or on its title bar, holding the mouse capture meanwhile.
#pragma once

#include "toolkit/qwindow.h"

#include <cstdint>

namespace tarvik {

class QTitleBar;

enum QDialogFlags : uint32_t {
    QDLGF_DRAG = 1,  // can be dragged
    QDLGF_MODAL = 2, // takes the active group: other groups get no input
};

class QDialog : public QWindow {
public:
    // Told of each move by (dx, dy), and of the drag's end by (0, 0).
    typedef void (*MoveProc)(int dx, int dy, QDialog* dlg, uint32_t userData);

    QDialog(QWindow* parent, QRect* r, const char* title, int dialogFlags);
    ~QDialog() override;

    const char* ClassName() const override { return "QDialog"; }
    void Hide() override {}
    void Show() override {}
    void Paint(QRect* r) override;
    bool ProcessEvent(QEvent* e) override;
    virtual int Execute() { return 0; }
    virtual void SetTitle(const char* title);

    void SetMoveProc(MoveProc proc) { moveProc = proc; }
    bool IsDragging() const { return dragging; }

    QTitleBar* titleBar;   // owned
    int32_t dragX, dragY;  // the mouse on the screen at the last drag step
    uint32_t dialogFlags;  // QDLGF_*
    QWindow* prevGroup;    // the active group before this modal dialog
    bool dragging;
    QWindow* savedCapture; // the capture to give back after the drag
    MoveProc moveProc;     // may be null

private:
    void EndDragStep(bool repaint);
};

} // namespace tarvik
