// QWindowManager: all created QWindows of the application in one stacking list (index 0 is the top,
// seen first by hit testing and events), the keyboard focus, the mouse capture, the tab order and
// the active group that makes a dialog modal. It does not own the windows: each removes itself in
// its destructor. 'mouseWin' is compared only, never followed, so it may go stale.
#pragma once

#include <cstdint>
#include <deque>

namespace tarvik {

class QWindow;
class QBitMap;
struct QEvent;
struct QRect;
struct PlatformWindow;

enum : uint32_t { QWMF_NO_TABBING = 2 };

class QWindowManager {
public:
    typedef void (*AddProc)(QWindow* w, void* data);

    QWindowManager();
    QWindowManager(const QWindowManager&) = delete;
    QWindowManager& operator=(const QWindowManager&) = delete;

    bool AddWindow(QWindow* w);
    bool RemoveWindow(QWindow* w);
    bool Contains(const QWindow* w) const;

    QWindow* FindWindowAt(PlatformWindow* native, int x, int y) const;
    QWindow* FindXWindow(PlatformWindow* native) const;

    bool SetFocus(QWindow* w);
    QWindow* GetFocus() const { return focus; }
    void FocusFirst();
    void FocusLast();
    void FocusNext();
    void FocusPrevious();
    int GetMaxTabStop() const;
    bool TabbingEnabled() const { return !(flags & QWMF_NO_TABBING); }
    void EnableTabbing(bool on);

    void SetCapture(QWindow* w) { capture = w; }
    void ReleaseCapture() { capture = nullptr; }
    QWindow* GetCapture() const { return capture; }

    void SetActiveGroup(QWindow* w, bool raise);
    QWindow* GetActiveGroup() const { return activeGroup; }
    bool RaiseGroup();

    bool ProcessEvent(QEvent* e);
    void RepositionChildren(QWindow* leader, bool repaint);
    // Tiles 'r' (null: the whole window) of w's canvas with 'background', or fills it with teal
    // when there is no tile or w has QWF_NO_TILE.
    void PaintBackground(QWindow* w, QRect* r);

    void SetAddProc(AddProc proc, void* data) { addProc = proc; addData = data; }
    void SetBackground(QBitMap* bm) { background = bm; }
    QBitMap* GetBackground() const { return background; }

    QWindow* GetMouseWindow() const { return mouseWin; }
    void SetMouseWindow(QWindow* w) { mouseWin = w; }

    const std::deque<QWindow*>& GetWindows() const { return windows; }

private:
    bool IsCandidate(const QWindow* w) const;
    void RepositionTree(QWindow* parentWin, bool repaint);

    std::deque<QWindow*> windows; // borrowed; front is the top
    QWindow* focus;
    QWindow* capture;
    QWindow* mouseWin;
    QBitMap* background;          // borrowed
    uint32_t flags;
    AddProc addProc;
    void* addData;
    QWindow* activeGroup;
};

} // namespace tarvik
