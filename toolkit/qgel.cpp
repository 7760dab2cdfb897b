#include "toolkit/qgel.h"

#include "images/qbitmap.h"
#include "toolkit/qapp.h"
#include "toolkit/qcanvas.h"
#include "toolkit/qwindow.h"
#include "toolkit/qxwindow.h"

#include <algorithm>

namespace tarvik {

// ---- QGel ----

QGel::QGel(int x, int y, int z0, uint32_t flags0)
    : pos(), flags(flags0), z(z0), prevPos(), prev2Pos(), next(nullptr), list(nullptr)
{
    pos.x = x;
    pos.y = y;
    prevPos = pos;
    prev2Pos = pos;
}

QGel::~QGel()
{
    if (list) list->Remove(this);
}

QCanvas* QGel::GetCanvas() const { return list ? list->canvas : nullptr; }

void QGel::SetPos(int x, int y)
{
    pos.x = x;
    pos.y = y;
    if (flags & QGEL_MOVES) {
        MarkDirty(true);
        return;
    }
    prevPos = pos;
    prev2Pos = pos;
    MarkDirty(false);
}

void QGel::SetZ(int newZ)
{
    if (newZ == z) return;
    z = newZ;
    if (list) list->Unsort();
    MarkDirty(true);
}

void QGel::Hide()
{
    flags |= QGEL_HIDDEN;
    MarkDirty(true);
}

void QGel::Show()
{
    flags &= ~uint32_t(QGEL_HIDDEN);
    MarkDirty(true);
}

// ---- QGelList ----

QGelList::QGelList(QCanvas* cv) : flags(SORTED), head(nullptr), canvas(cv) {}

QGelList::~QGelList()
{
    for (QGel* g = head; g;) {
        QGel* n = g->next;
        g->next = nullptr;
        g->list = nullptr;
        g = n;
    }
    head = nullptr;
}

void QGelList::Add(QGel* gel)
{
    if (!gel) return;
    if (gel->list) gel->list->Remove(gel);
    QGel** link = &head;
    while (*link) link = &(*link)->next;
    *link = gel;
    gel->next = nullptr;
    gel->list = this;
    gel->MarkDirty(true);
    Unsort();
}

bool QGelList::Remove(QGel* gel)
{
    for (QGel** link = &head; *link; link = &(*link)->next) {
        if (*link != gel) continue;
        *link = gel->next;
        gel->next = nullptr;
        gel->list = nullptr;
        return true;
    }
    return false;
}

void QGelList::Sort()
{
    if (flags & SORTED) return;
    // Neighbours swap only when the left one lies deeper than the right: equal depths keep their order.
    bool swapped = true;
    while (swapped) {
        swapped = false;
        for (QGel** link = &head; *link && (*link)->next; link = &(*link)->next) {
            QGel* a = *link;
            QGel* b = a->next;
            if (a->z <= b->z) continue;
            a->next = b->next;
            b->next = a;
            *link = b;
            swapped = true;
        }
    }
    flags |= SORTED;
}

void QGelList::SavePositions()
{
    for (QGel* g = head; g; g = g->next) {
        if (!(g->flags & QGEL_MOVES)) continue;
        g->prev2Pos = g->prevPos;
        g->prevPos = g->pos;
    }
}

bool QGelList::Overlap(const QGel* a, const QGel* b, QRect* rect, const QGelPos* at)
{
    const QGelPos& p = at ? *at : a->prev2Pos;
    int x = p.x, y = p.y, w = a->GetWidth(), h = a->GetHeight();
    int bx = b->pos.x, by = b->pos.y, bw = b->GetWidth(), bh = b->GetHeight();
    rect->x = std::max(x, bx);
    rect->y = std::max(y, by);
    rect->wid = std::min(x + w, bx + bw) - rect->x;
    rect->hgt = std::min(y + h, by + bh) - rect->y;
    return rect->wid > 0 && rect->hgt > 0;
}

// The gels above 'gel' that it covers now or covered in this buffer repaint in full later in the
// same pass; those below mend the place it has left.
void QGelList::Spread(QGel* gel)
{
    QRect rect;
    for (QGel* o = head; o; o = o->next) {
        if (o == gel || (o->flags & QGEL_HIDDEN)) continue;
        if (o->z > gel->z) {
            if (Overlap(gel, o, &rect, &gel->pos) || Overlap(gel, o, &rect, nullptr)) o->flags |= QGEL_DIRTY;
        } else if (Overlap(gel, o, &rect, nullptr)) {
            rect.x -= o->pos.x;
            rect.y -= o->pos.y;
            o->PaintPart(&rect);
        }
    }
}

void QGelList::Redraw()
{
    Sort();
    if (canvas) canvas->SetFlags(QCV_QUEUE);
    for (QGel* g = head; g; g = g->next) {
        if (!(g->flags & QGEL_DIRTY)) continue;
        Spread(g);
        g->Paint();
        if (g->flags & QGEL_DIRTY_TWICE)
            g->flags &= ~uint32_t(QGEL_DIRTY_TWICE);
        else
            g->flags &= ~uint32_t(QGEL_DIRTY);
    }
    if (canvas) {
        canvas->Flush();
        canvas->ClearFlags(QCV_QUEUE);
    }
    for (QGel* g = head; g; g = g->next) g->PaintDone();
}

bool QGelList::AnyDirty() const
{
    for (const QGel* g = head; g; g = g->next)
        if (g->flags & QGEL_DIRTY) return true;
    return false;
}

// ---- QFX and QFXManager ----

QFX::~QFX()
{
    if (manager) manager->Remove(this);
}

QFXManager::QFXManager(QGelList* gelList) : effects(nullptr), swap(0), gels(gelList), frameFunc(nullptr) {}

QFXManager::~QFXManager()
{
    for (QFX* fx = effects; fx;) {
        QFX* n = fx->next;
        fx->next = nullptr;
        fx->manager = nullptr;
        fx = n;
    }
    effects = nullptr;
}

void QFXManager::Add(QFX* fx)
{
    if (!fx) return;
    if (fx->manager) fx->manager->Remove(fx);
    QFX** link = &effects;
    while (*link) link = &(*link)->next;
    *link = fx;
    fx->next = nullptr;
    fx->manager = this;
}

bool QFXManager::Remove(QFX* fx)
{
    for (QFX** link = &effects; *link; link = &(*link)->next) {
        if (*link != fx) continue;
        *link = fx->next;
        fx->next = nullptr;
        fx->manager = nullptr;
        return true;
    }
    return false;
}

void QFXManager::Frame(bool noSwap)
{
    if (gels) gels->SavePositions();
    for (QFX* fx = effects; fx; fx = fx->next) fx->Step();
    if (gels) gels->Redraw();
    if (frameFunc) frameFunc(this);
    if (noSwap || !swap || !app || !app->bc) return;
    if (QXWindow* xw = app->bc->GetXWindow()) xw->Swap();
}

void QFXManager::Run()
{
    while (effects) {
        bool pending = false;
        for (QFX* fx = effects; fx && !pending; fx = fx->next) pending = !fx->IsDone();
        if (!pending) return;
        Frame(false);
    }
}

// ---- QBitmapGel ----

QBitmapGel::QBitmapGel(QBitMap* bm, int x, int y, int z0, uint32_t flags0) : QGel(x, y, z0, flags0), bitmap(bm) {}

int QBitmapGel::GetWidth() const { return bitmap ? bitmap->GetWidth() : 0; }
int QBitmapGel::GetHeight() const { return bitmap ? bitmap->GetHeight() : 0; }

void QBitmapGel::Paint() { Draw(0, 0, GetWidth(), GetHeight()); }

void QBitmapGel::PaintPart(QRect* r) { Draw(r->x, r->y, r->wid, r->hgt); }

void QBitmapGel::Draw(int x, int y, int wid, int hgt)
{
    QCanvas* cv = GetCanvas();
    if (!cv || !bitmap || IsHidden() || wid < 1 || hgt < 1) return;
    // The canvas's blend mode is the caller's: borrowed for the one transfer, given back after.
    int mode = cv->GetBlendMode();
    cv->SetBlending(true);
    cv->DrawPixels(bitmap, pos.x + x, pos.y + y, wid, hgt, x, y, 0);
    cv->SetBlendMode(mode);
}

// ---- QMoveFX ----

QMoveFX::QMoveFX(QGel* g, int tx, int ty, int n)
    : gel(g), fromX(0), fromY(0), toX(tx), toY(ty), frames(std::max(n, 1)), step(0)
{
}

void QMoveFX::Step()
{
    if (!gel || step >= frames) return;
    if (step == 0) {
        fromX = gel->pos.x;
        fromY = gel->pos.y;
    }
    step++;
    // 64-bit products: a long way over many frames must not wrap.
    int x = fromX + int(int64_t(toX - fromX) * step / frames);
    int y = fromY + int(int64_t(toY - fromY) * step / frames);
    gel->SetPos(x, y);
}

} // namespace tarvik
