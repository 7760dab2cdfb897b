// QWindow: the toolkit's own window, a rectangle inside a native window with a parent, a place in
// the window manager's list and virtual event handlers. A plain child shares the native window of
// its nearest ancestor that has one; an X window (QWF_X) owns a QXWindow.
//
// A window goes: constructed (not on screen, not in the list), created (QWF_CREATED, in the list),
// destroyed. Its destructor takes it out of the list and cancels its queued events, so that no
// queued event ever names a dead window. It never owns its children.
#pragma once

#include "images/qdrawable.h"

#include <cstdint>

namespace tarvik {

struct QEvent;
class QXWindow;
class DTexture;

enum QWindowFlags : uint32_t {
    QWF_HIDDEN = 1,           // not shown; skipped by hit testing and tabbing
    QWF_DISABLED = 2,         // takes no input
    QWF_X = 4,                // has a native window of its own
    QWF_CREATED = 8,          // Create has run; in the window manager's list
    QWF_MERGE_MOTION = 16,    // queued motion events for it are merged
    QWF_NO_TILE = 64,         // the background is a plain fill
    QWF_FULLSCREEN = 0x100,   // X windows: full-screen native window
    QWF_NO_BACKGROUND = 0x400,
    QWF_GROUP = 0x800,        // a dialog, a group leader
};

// Bits of eventMask.
enum : uint32_t { QWEM_KEYS_FIRST = 8 }; // gets every key press ahead of the focus road

class QWindow : public QDrawable {
public:
    QWindow(QWindow* parentWin, int x0, int y0, int w, int h);
    ~QWindow() override;

    const char* ClassName() const override { return "QWindow"; }
    bool Create() override;
    void Destroy() override;
    int GetWidth() const override { return wid; }
    int GetHeight() const override { return hgt; }

    virtual void Hide();
    virtual void Show();
    virtual void Paint(QRect* r) {}
    virtual bool ProcessEvent(QEvent* e);
    virtual bool OnButtonPress(int button, int px, int py) { return false; }
    virtual bool OnButtonRelease(int button, int px, int py) { return false; }
    virtual bool OnKeyPress(int key, int px, int py);
    virtual bool OnKeyRelease(int key, int px, int py) { return false; }
    virtual bool OnMotion(int px, int py) { return false; }
    virtual bool OnExpose(int ex, int ey, int ew, int eh);
    virtual bool OnResize(int w, int h) { return false; }
    virtual bool OnFocusIn();
    virtual bool OnFocusOut();
    virtual bool OnEnter() { return true; }
    virtual bool OnLeave() { return true; }

    QXWindow* GetXWindow() const; // of this window or of the nearest ancestor that has one
    QWindow* GetParent() const { return parent; }
    bool IsEnabled() const;
    bool IsVisible() const { return !(flags & QWF_HIDDEN); }
    bool IsX() const { return flags & QWF_X; }
    bool HasFocus() const;
    bool Accepts(uint32_t mask) const;
    void SetEventMask(uint32_t mask) { eventMask = mask; }
    void SetTabStop(int n); // -2: one more than the highest in the window manager
    void GetPos(QRect* r) const { *r = QRect(x, y, wid, hgt); }

    bool Move(int nx, int ny, bool repaint);
    bool MoveRelative(int dx, int dy, bool repaint);
    bool Size(int w, int h);
    bool Reposition(bool repaint);

    void Invalidate(QRect* r);
    void Notify(QEvent* e) const;
    // Fills the window with the window manager's tile, or plain teal (QWF_NO_TILE, no tile, or a
    // canvas that draws through a gc); nothing with QWF_NO_BACKGROUND.
    void PaintBackground();
    // Draws 'tex' over the window, cell 'texFrame' of the grid 'texGrid' (cells side by side along
    // the texture's top edge), moved by texOffX, texOffY, at alpha 0.3 when disabled, else 0.95.
    void PaintTexture();
    // Draws the part 'src' of 't' (null: all of it; in texels, y from the texture's first row)
    // over the window or over 'dst' (window coordinates, null: the window), unblended. Leaves the
    // texture environment at GL_REPLACE.
    void PaintTextureStretched(DTexture* t, QRect* src, QRect* dst);

    void SetFlags(uint32_t bits) { flags |= bits; }
    void ClearFlags(uint32_t bits) { flags &= ~bits; }
    uint32_t GetFlags() const { return flags; }
    void Enable(bool on);

    int32_t x, y, wid, hgt; // absolute position in the native window, and size
    int32_t relX, relY;     // as the caller gave it, relative to the parent
    void* icon;             // handed on to the native window
    QXWindow* xwin;         // owned when QWF_X is set; null in plain children
    QWindow* parent;        // borrowed
    QWindow* group;         // the dialog this window belongs to; a dialog points to itself
    uint32_t flags;
    uint32_t eventMask;
    int32_t tabStop;        // -1: not in the tab order
    uint32_t userData;
    DTexture* tex;          // borrowed
    QRect texGrid;
    int32_t texFrame;
    int32_t texOffX, texOffY;

private:
    void ComputeAbsolute(int* ax, int* ay) const; // from relX, relY and the parent
    void InvalidateParent(const QRect& r);
};

} // namespace tarvik
