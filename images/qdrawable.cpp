#include "images/qdrawable.h"

#include "foundation/qmessage.h"

namespace tarvik {

const QCanvasHooks* qcanvasHooks = nullptr;

bool QRect::Contains(int32_t px, int32_t py) const
{
    // 64 bits: a rectangle at the edge of the int range must not wrap around.
    return px >= x && int64_t(px) < int64_t(x) + wid && py >= y && int64_t(py) < int64_t(y) + hgt;
}

void QRect::Inset(int32_t n)
{
    x += n;
    y += n;
    wid -= 2 * n;
    hgt -= 2 * n;
    if (wid < 1) wid = 1;
    if (hgt < 1) hgt = 1;
}

QColor::QColor(int r, int g, int b, int a) { Set(r, g, b, a); }

QColor::~QColor() {}

void QColor::Set(int r, int g, int b, int a)
{
    value = uint32_t(r & 0xFF) << 24 | uint32_t(g & 0xFF) << 16 | uint32_t(b & 0xFF) << 8 | uint32_t(a & 0xFF);
}

void QColor::DbgReport() const
{
    QINFO("@%p %s (class %s), RGBA=0x%08x\n", static_cast<const void*>(this), GetName(), ClassName(), value);
}

QDrawable::~QDrawable()
{
    if (cv && qcanvasHooks && qcanvasHooks->Delete) qcanvasHooks->Delete(cv);
    cv = nullptr;
}

bool QDrawable::Create()
{
    QERROR("QDrawable::Create() base class called");
    return true;
}

void QDrawable::Destroy()
{
    QERROR("QDrawable::Destroy() base class called");
}

} // namespace tarvik
