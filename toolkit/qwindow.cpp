#include "toolkit/qwindow.h"

#include <epoxy/gl.h>

#include "foundation/qmessage.h"
#include "toolkit/qapp.h"
#include "toolkit/qcanvas.h"
#include "toolkit/qevent.h"
#include "toolkit/qglcontext.h"
#include "toolkit/qtexhooks.h"
#include "toolkit/qwinmgr.h"
#include "toolkit/qxwindow.h"

namespace tarvik {

namespace {

QWindowManager* Manager() { return app ? app->wm : nullptr; }

// The render library's textures, or null in a program without it, which is said once.
const QTextureHooks* TextureHooks()
{
    static bool told = false;
    if (!qtextureHooks && !told) {
        QWARNING("QWindow:PaintTexture(); no texture support in this program");
        told = true;
    }
    return qtextureHooks;
}

// The state both texture paints share: the canvas's 2-D set-up made afresh, the texture bound
// with repeating wraps, texturing on, no culling or lighting. False, with nothing changed but the
// canvas's set-up, when no context is current.
bool BeginTexturePaint(QCanvas* cv, const QTextureHooks* hooks, DTexture* tex, bool blend)
{
    cv->Set3D();
    cv->Set2D();
    if (!QGLContext::GetCurrent()) return false;
    hooks->Select(tex);
    glEnable(GL_TEXTURE_2D);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    if (blend)
        glEnable(GL_BLEND);
    else
        glDisable(GL_BLEND);
    glDisable(GL_CULL_FACE);
    glDisable(GL_LIGHTING);
    hooks->SetWrap(tex, GL_REPEAT, GL_REPEAT);
    return true;
}

// Texturing goes off again, since the canvas's own primitives expect it off; the blending and
// colour changed behind the canvases' back.
void EndTexturePaint()
{
    glDisable(GL_TEXTURE_2D);
    QCanvas::InvalidateGLState();
}

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

void QWindow::PaintTexture()
{
    if (!tex) {
        QWARNING("QWindow:PaintTexture(); no texture");
        return;
    }
    if (texGrid.wid == 0) {
        QWARNING("QWindow:PaintTexture(); texGrid.wid=0");
        return;
    }
    const QTextureHooks* hooks = TextureHooks();
    if (!hooks) return;
    const int texW = hooks->GetWidth(tex), texH = hooks->GetHeight(tex);
    if (texW <= 0 || texH <= 0) {
        QWARNING("QWindow:PaintTexture(); texture has no size");
        return;
    }
    const float cellW = 1.0f / (float(texW) / float(texGrid.wid)); // one cell in texture coordinates
    cv->SetBlending(true);
    if (!BeginTexturePaint(cv, hooks, tex, true)) return;

    bool dimmed = (flags & QWF_DISABLED) || (group && group != this && !group->IsEnabled());
    // The stretched form leaves GL_REPLACE behind, which would drop this colour's alpha.
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
    glColor4f(1, 1, 1, dimmed ? 0.3f : 0.95f);

    const int cx = wid / 2 + texOffX + x, cy = hgt / 2 + texOffY + y;
    const float hw = float(wid) * 0.5f, hh = float(hgt) * 0.5f;
    // Rows turn upward against the height of the shell, the main native window.
    const QWindow* shell = app ? app->shell : nullptr;
    const float top = float((shell ? shell->GetHeight() : cv->GetHeight()) - 1);
    const float s0 = float(texFrame) * cellW, s1 = float(texFrame + 1) * cellW;
    const float t0 = 1.0f, t1 = 1.0f - float(texGrid.hgt) / float(texH);
    glBegin(GL_QUADS);
    glTexCoord2f(s1, t0);
    glVertex2f(float(cx) + hw, top - (float(cy) - hh));
    glTexCoord2f(s0, t0);
    glVertex2f(float(cx) - hw, top - (float(cy) - hh));
    glTexCoord2f(s0, t1);
    glVertex2f(float(cx) - hw, top - (float(cy) + hh));
    glTexCoord2f(s1, t1);
    glVertex2f(float(cx) + hw, top - (float(cy) + hh));
    glEnd();
    EndTexturePaint();
}

void QWindow::PaintTextureStretched(DTexture* t, QRect* src, QRect* dst)
{
    if (!t) {
        QWARNING("QWindow:PaintTexture(); no texture");
        return;
    }
    const QTextureHooks* hooks = TextureHooks();
    if (!hooks) return;
    const int texW = hooks->GetWidth(t), texH = hooks->GetHeight(t);
    if (texW <= 0 || texH <= 0) {
        QWARNING("QWindow:PaintTexture(); texture has no size");
        return;
    }
    QRect to = dst ? QRect(dst->x + x, dst->y + y, dst->wid, dst->hgt) : QRect(x, y, wid, hgt);
    QRect from = src ? *src : QRect(0, 0, texW, texH);
    if (!BeginTexturePaint(cv, hooks, t, false)) return;
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE);

    const float h = float(cv->GetHeight());
    const float left = float(to.x), right = float(to.x + to.wid);
    const float top = h - float(to.y), bottom = h - float(to.y + to.hgt);
    const float s0 = float(from.x) / float(texW), s1 = float(from.x + from.wid) / float(texW);
    const float t0 = float(from.y) / float(texH), t1 = float(from.y + from.hgt) / float(texH);
    glBegin(GL_QUADS);
    glTexCoord2f(s1, t0);
    glVertex2f(right, top);
    glTexCoord2f(s0, t0);
    glVertex2f(left, top);
    glTexCoord2f(s0, t1);
    glVertex2f(left, bottom);
    glTexCoord2f(s1, t1);
    glVertex2f(right, bottom);
    glEnd();
    EndTexturePaint();
}

void QWindow::Notify(QEvent* e) const
{
    QEventPush(e);
}

} // namespace tarvik
