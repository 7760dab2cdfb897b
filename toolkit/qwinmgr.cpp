#include "toolkit/qwinmgr.h"

#include "foundation/qmessage.h"
#include "images/qbitmap.h"
#include "toolkit/qcanvas.h"
#include "toolkit/qevent.h"
#include "toolkit/qwindow.h"
#include "toolkit/qxwindow.h"

#include <algorithm>
#include <climits>

namespace tarvik {

QWindowManager::QWindowManager()
    : focus(nullptr), capture(nullptr), mouseWin(nullptr), background(nullptr), flags(0), addProc(nullptr),
      addData(nullptr), activeGroup(nullptr)
{
}

bool QWindowManager::AddWindow(QWindow* w)
{
    windows.push_front(w);
    if (activeGroup && w->group != activeGroup) RaiseGroup();
    if (addProc) addProc(w, addData);
    return true;
}

bool QWindowManager::RemoveWindow(QWindow* w)
{
    auto it = std::find(windows.begin(), windows.end(), w);
    if (it == windows.end()) {
        QWARNING("QWindowManager:RemoveWindow: win %p was NOT found (%s)\n", static_cast<void*>(w), w->GetName());
        return false;
    }
    if (focus == w) focus = nullptr;
    if (capture == w) capture = nullptr;
    if (activeGroup == w) activeGroup = nullptr; // a new window at the old address must not inherit the group
    windows.erase(it);
    return true;
}

bool QWindowManager::Contains(const QWindow* w) const
{
    return std::find(windows.begin(), windows.end(), w) != windows.end();
}

bool QWindowManager::RaiseGroup()
{
    if (!activeGroup) return false;
    std::stable_partition(windows.begin(), windows.end(),
                          [this](const QWindow* w) { return w->group == activeGroup; });
    return true;
}

void QWindowManager::SetActiveGroup(QWindow* w, bool raise)
{
    if (w == activeGroup) return;
    if (w && (w->GetFlags() & QWF_GROUP)) {
        activeGroup = w;
        if (raise) RaiseGroup();
    } else {
        activeGroup = nullptr;
    }
}

QWindow* QWindowManager::FindWindowAt(PlatformWindow* native, int px, int py) const
{
    for (QWindow* w : windows) {
        QXWindow* xw = w->GetXWindow();
        if (!xw || xw->GetPlatformWindow() != native) continue;
        if (!w->IsVisible() || !w->IsEnabled()) continue;
        QRect r(w->x, w->y, w->wid, w->hgt);
        if (w->IsX()) r.SetXY(0, 0);
        if (r.Contains(px, py)) return w;
    }
    return nullptr;
}

QWindow* QWindowManager::FindXWindow(PlatformWindow* native) const
{
    for (QWindow* w : windows)
        if (w->IsX() && w->xwin && w->xwin->GetPlatformWindow() == native) return w;
    return nullptr;
}

bool QWindowManager::SetFocus(QWindow* w)
{
    if (w == focus) return true;
    QEvent e;
    if (focus) {
        QEventClear(&e);
        e.type = QEVENT_FOCUSOUT;
        e.win = focus;
        QEventPush(&e);
    }
    focus = w;
    if (w) {
        QEventClear(&e);
        e.type = QEVENT_FOCUSIN;
        e.win = w;
        QEventPush(&e);
    }
    return true;
}

bool QWindowManager::IsCandidate(const QWindow* w) const
{
    return w->IsEnabled() && w->IsVisible();
}

void QWindowManager::FocusFirst()
{
    QWindow* best = nullptr;
    for (QWindow* w : windows)
        if (IsCandidate(w) && w->tabStop >= 0 && (!best || w->tabStop < best->tabStop)) best = w;
    if (best) SetFocus(best);
}

void QWindowManager::FocusLast()
{
    QWindow* best = nullptr;
    for (QWindow* w : windows)
        if (IsCandidate(w) && w->tabStop > -1 && (!best || w->tabStop > best->tabStop)) best = w;
    if (best) SetFocus(best);
}

void QWindowManager::FocusNext()
{
    int from = focus ? focus->tabStop : -1;
    QWindow* best = nullptr;
    for (QWindow* w : windows)
        if (IsCandidate(w) && w->tabStop > from && (!best || w->tabStop < best->tabStop)) best = w;
    if (best)
        SetFocus(best);
    else
        FocusFirst();
}

void QWindowManager::FocusPrevious()
{
    int from = focus ? focus->tabStop : INT_MAX;
    QWindow* best = nullptr;
    for (QWindow* w : windows)
        if (IsCandidate(w) && w->tabStop < from && w->tabStop > -1 && (!best || w->tabStop > best->tabStop))
            best = w;
    if (best)
        SetFocus(best);
    else
        FocusLast();
}

int QWindowManager::GetMaxTabStop() const
{
    int most = -1;
    for (const QWindow* w : windows) most = std::max(most, int(w->tabStop));
    return most;
}

void QWindowManager::EnableTabbing(bool on)
{
    if (on)
        flags &= ~QWMF_NO_TABBING;
    else
        flags |= QWMF_NO_TABBING;
}

namespace {

bool Bubbles(int type)
{
    switch (type) {
    case QEVENT_KEYPRESS: case QEVENT_KEYRELEASE: case QEVENT_BUTTONPRESS: case QEVENT_BUTTONRELEASE:
    case QEVENT_MOTIONNOTIFY: case QEVENT_DBLCLICK: case QEVENT_CLICK: case QEVENT_FOCUSIN: case QEVENT_FOCUSOUT:
        return true;
    default:
        return false;
    }
}

} // namespace

bool QWindowManager::ProcessEvent(QEvent* e)
{
    QWindow* target = e->win;
    if (!target || !Contains(target)) return false;

    bool key = e->type == QEVENT_KEYPRESS || e->type == QEVENT_KEYRELEASE;
    bool mouse = e->type == QEVENT_BUTTONPRESS || e->type == QEVENT_BUTTONRELEASE || e->type == QEVENT_MOTIONNOTIFY;
    if (key && focus && focus->ProcessEvent(e)) return true;
    if (mouse && capture && capture->ProcessEvent(e)) return true;
    if (!Contains(target)) return false; // a handler may have deleted it

    if (e->type == QEVENT_KEYPRESS) {
        // A copy of the list: a shortcut's handler may add or remove windows.
        std::deque<QWindow*> order(windows);
        for (QWindow* w : order)
            if (Contains(w) && w->Accepts(QWEM_KEYS_FIRST) && w->OnKeyPress(int(e->n), e->x, e->y)) return true;
        if (!Contains(target)) return false;
    }

    for (QWindow* w = target; w; w = w->parent) {
        if (e->type != QEVENT_EXPOSE && !w->IsEnabled()) return false;
        if (activeGroup && target->group != activeGroup) return false;
        bool listed = Contains(w);
        if (w->ProcessEvent(e)) return true;
        if (!Bubbles(e->type)) return false;
        // A parent's handler may delete its own window: its 'parent' can't be read any more.
        if (!Contains(target) || (listed && !Contains(w))) return false;
    }
    return false;
}

void QWindowManager::RepositionTree(QWindow* parentWin, bool repaint)
{
    std::deque<QWindow*> order(windows);
    for (QWindow* w : order) {
        if (w->parent != parentWin) continue;
        w->Reposition(repaint);
        RepositionTree(w, repaint);
    }
}

void QWindowManager::RepositionChildren(QWindow* leader, bool repaint)
{
    if (!leader || !(leader->GetFlags() & QWF_GROUP)) return;
    RepositionTree(leader, repaint);
}

// The tile lies on a grid from the window's origin; each cell is cut to 'r' and blitted from the
// matching place in the tile.
void QWindowManager::PaintBackground(QWindow* w, QRect* r)
{
    QCanvas* cv = w->GetCanvas();
    if (!cv) return;
    QRect all(0, 0, w->GetWidth(), w->GetHeight());
    if (!r) r = &all;
    int bw = background ? background->GetWidth() : 0, bh = background ? background->GetHeight() : 0;
    if (!background || (w->GetFlags() & QWF_NO_TILE) || bw < 1 || bh < 1) {
        cv->Select();
        cv->SetColor(PX_TEAL, -1);
        cv->FillRect(r);
        return;
    }
    int col0 = r->x / bw, col1 = (r->x + r->wid - 1) / bw;
    int row0 = r->y / bh, row1 = (r->y + r->hgt - 1) / bh;
    cv->Select();
    cv->SetBlending(false);
    for (int col = col0; col <= col1; col++) {
        for (int row = row0; row <= row1; row++) {
            int cellX = col * bw, cellY = row * bh;
            int ix = std::max(cellX, r->x), iy = std::max(cellY, r->y);
            int iw = std::min(cellX + bw, r->x + r->wid) - ix, ih = std::min(cellY + bh, r->y + r->hgt) - iy;
            if (iw > 0 && ih > 0) cv->Blit(background, ix, iy, iw, ih, ix - cellX, iy - cellY, 1);
        }
    }
}

} // namespace tarvik
