#include "toolkit/qwindow.h"

#include "foundation/qmessage.h"
#include "toolkit/qapp.h"
#include "toolkit/qcanvas.h"
#include "toolkit/qevent.h"
#include "toolkit/qwinmgr.h"
#include "toolkit/qxwindow.h"

namespace tarvik {

namespace {

QWindowManager* Manager() { return app ? app->wm : nullptr; }

} // namespace

QWindow::QWindow(QWindow* parentWin, int x0, int y0, int w, int h)
    : x(x0), y(y0), wid(w), hgt(h), relX(x0), relY(y0), icon(nullptr), xwin(nullptr), parent(parentWin),
      group(parentWin ? parentWin->group : nullptr), flags(0), eventMask(0), tabStop(-1), userData(0),
      tex(nullptr), texFrame(0), texOffX(0), texOffY(0)
{
    // A child draws into its parent's drawable, offset by its absolute position.
    cv = parent && parent->cv ? new QCanvas(parent->cv) : new QCanvas(this);
    ComputeAbsolute(&x, &y);
    cv->SetOrigin(x, y);
}

QWindow::~QWindow()
{
    if (flags & QWF_CREATED) {
        QWindowManager* wm = Manager();
        // A window the manager doesn't know stops here; the drawable still deletes the canvas.
        if (wm && !wm->RemoveWindow(this)) return;
        QEventRemoveWindow(this);
    }
    delete cv;
    cv = nullptr;
    if (flags & QWF_X) {
        delete xwin;
        xwin = nullptr;
    }
}

// Children of shell, and windows without a parent, place themselves in absolute coordinates.
void QWindow::ComputeAbsolute(int* ax, int* ay) const
{
    *ax = relX;
    *ay = relY;
    if (parent && !(app && parent == app->shell)) {
        *ax += parent->x;
        *ay += parent->y;
    }
}

bool QWindow::Create()
{
    QWindowManager* wm = Manager();
    if (!wm) {
        QERROR("QWindow::Create() without an application object");
        return false;
    }
    if (!(flags & QWF_X)) {
        if (!GetXWindow()) {
            QERROR("QWindow::Create() without a parent real X window");
            return false;
        }
        flags |= QWF_CREATED;
        wm->AddWindow(this);
        return true;
    }

    QXWindow* parentX = parent ? parent->GetXWindow() : nullptr;
    delete xwin;
    xwin = new QXWindow(parentX, x, y, wid, hgt);
    if (flags & QWF_FULLSCREEN) xwin->SetFullScreen();
    if (icon) xwin->SetIcon(icon);
    xwin->Create();
    // From now on the window draws into its own native window, at its origin.
    delete cv;
    cv = new QCanvas(this);
    cv->SetGLContext(xwin->GetContext());
    cv->SetBuffer(true);
    flags |= QWF_CREATED;
    wm->AddWindow(this);
    return true;
}

void QWindow::Destroy()
{
    if (xwin) xwin->Destroy();
}

void QWindow::Hide()
{
    if (flags & QWF_HIDDEN) return;
    if (flags & QWF_X) {
        QWARNING("Can't hide X QWindow");
        return;
    }
    InvalidateParent(QRect(x, y, wid, hgt));
    flags |= QWF_HIDDEN;
}

void QWindow::Show()
{
    if (!(flags & QWF_HIDDEN)) return;
    flags &= ~QWF_HIDDEN;
    Invalidate(nullptr);
}

bool QWindow::ProcessEvent(QEvent* e)
{
    switch (e->type) {
    case QEVENT_KEYPRESS: return OnKeyPress(int(e->n), e->x, e->y);
    case QEVENT_KEYRELEASE: return OnKeyRelease(int(e->n), e->x, e->y);
    case QEVENT_BUTTONPRESS: return OnButtonPress(int(e->n), e->x, e->y);
    case QEVENT_BUTTONRELEASE: return OnButtonRelease(int(e->n), e->x, e->y);
    case QEVENT_MOTIONNOTIFY: return OnMotion(e->x, e->y);
    case QEVENT_ENTER: return OnEnter();
    case QEVENT_LEAVE: return OnLeave();
    case QEVENT_EXPOSE: return OnExpose(e->x, e->y, e->wid, e->hgt);
    case QEVENT_RESIZE: return OnResize(e->wid, e->hgt);
    case QEVENT_FOCUSIN: return OnFocusIn();
    case QEVENT_FOCUSOUT: return OnFocusOut();
    default: return false;
    }
}

bool QWindow::OnKeyPress(int key, int px, int py)
{
    QWindowManager* wm = Manager();
    if (!wm || !wm->TabbingEnabled()) return false;
    if (uint32_t(key) == QK_TAB) {
        wm->FocusNext();
        return true;
    }
    if (uint32_t(key) == (QMOD_SHIFT | QK_TAB)) {
        wm->FocusPrevious();
        return true;
    }
    return false;
}

bool QWindow::OnExpose(int ex, int ey, int ew, int eh)
{
    Paint(nullptr);
    return true;
}

bool QWindow::OnFocusIn()
{
    Invalidate(nullptr);
    return false;
}

bool QWindow::OnFocusOut()
{
    Invalidate(nullptr);
    return false;
}

QXWindow* QWindow::GetXWindow() const
{
    for (const QWindow* w = this; w; w = w->parent)
        if (w->xwin) return w->xwin;
    return nullptr;
}

bool QWindow::IsEnabled() const
{
    if (flags & QWF_DISABLED) return false;
    if (!group || group == this) return true;
    return group->IsEnabled();
}

bool QWindow::HasFocus() const
{
    QWindowManager* wm = Manager();
    return wm && wm->GetFocus() == this;
}

bool QWindow::Accepts(uint32_t mask) const
{
    if (flags & (QWF_HIDDEN | QWF_DISABLED)) return false;
    return (eventMask & mask) != 0;
}

void QWindow::SetTabStop(int n)
{
    if (n == -2) {
        QWindowManager* wm = Manager();
        n = (wm ? wm->GetMaxTabStop() : -1) + 1;
    }
    tabStop = n;
}

void QWindow::Enable(bool on)
{
    if (on)
        flags &= ~QWF_DISABLED;
    else
        flags |= QWF_DISABLED;
}

bool QWindow::Move(int nx, int ny, bool repaint)
{
    relX = nx;
    relY = ny;
    int ax, ay;
    ComputeAbsolute(&ax, &ay);
    if ((flags & QWF_CREATED) && (flags & QWF_X)) {
        if (xwin) xwin->Move(ax, ay);
        x = ax;
        y = ay;
        return true;
    }
    if (!(flags & QWF_CREATED)) repaint = false;
    if (repaint) InvalidateParent(QRect(x, y, wid, hgt));
    x = ax;
    y = ay;
    cv->SetOrigin(ax, ay);
    if (repaint) Invalidate(nullptr);
    return true;
}

bool QWindow::MoveRelative(int dx, int dy, bool repaint)
{
    return Move(relX + dx, relY + dy, repaint);
}

bool QWindow::Size(int w, int h)
{
    if (!(flags & QWF_CREATED)) {
        wid = w;
        hgt = h;
        return true;
    }
    if (flags & QWF_X) {
        if (xwin) xwin->Size(w, h);
        wid = w;
        hgt = h;
        return true;
    }
    InvalidateParent(QRect(x, y, wid, hgt));
    wid = w;
    hgt = h;
    Invalidate(nullptr);
    return true;
}

bool QWindow::Reposition(bool repaint)
{
    if (!parent) return false;
    return Move(relX, relY, repaint);
}

void QWindow::Invalidate(QRect* r)
{
    QEvent e;
    QEventClear(&e);
    e.type = QEVENT_EXPOSE;
    if (r) {
        e.x = r->x;
        e.y = r->y;
        e.wid = r->wid;
        e.hgt = r->hgt;
    } else {
        e.wid = wid;
        e.hgt = hgt;
    }
    e.win = this;
    if (!(flags & QWF_X)) QEventPush(&e);
}

// 'r' is in absolute coordinates; the parent's expose is relative to the parent.
void QWindow::InvalidateParent(const QRect& r)
{
    if (!parent) return;
    QRect local(r.x - parent->x, r.y - parent->y, r.wid, r.hgt);
    parent->Invalidate(&local);
}

void QWindow::PaintBackground()
{
    if (flags & QWF_NO_BACKGROUND) return;
    QRect r(0, 0, wid, hgt);
    if (cv->UsesX()) {
        cv->SetColor(PX_TEAL, -1);
        cv->FillRect(&r);
        return;
    }
    if (QWindowManager* wm = Manager()) wm->PaintBackground(this, &r);
}

void QWindow::Notify(QEvent* e) const
{
    QEventPush(e);
}

} // namespace tarvik
