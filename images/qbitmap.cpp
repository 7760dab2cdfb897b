#include "images/qbitmap.h"

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"

#include <climits>
#include <cstring>

namespace tarvik {

QBitMap::QBitMap(int depth_, int wid_, int hgt_, int flags_)
    : flags(flags_), depth(depth_), wid(wid_), hgt(hgt_), mem(nullptr), memSize(0)
{
    if (depth_ != 0 && wid_ != 0 && hgt_ != 0) Alloc(depth_, wid_, hgt_, flags_, nullptr);
}

QBitMap::~QBitMap() { Free(); }

void QBitMap::Free()
{
    if (!mem) return;
    if (!(flags & QBM_EXTERNAL_MEM)) qfree(mem);
    flags &= ~QBM_EXTERNAL_MEM;
    mem = nullptr;
    memSize = depth = wid = hgt = 0;
}

bool QBitMap::Alloc(int depth_, int wid_, int hgt_, int flags_, uint8_t* memory)
{
    Free();
    depth = depth_;
    hgt = hgt_;
    wid = wid_;
    flags = flags_;
    // The size is computed in 64 bits: a width and a height from a file must not wrap it into a
    // small block that the pixel loops would then overrun. Sizes the field cannot hold, negative
    // and empty sizes have no pixels to give.
    int64_t size = int64_t((depth_ + 7) / 8) * wid_ * hgt_;
    bool sane = depth_ > 0 && wid_ > 0 && hgt_ > 0 && size <= INT_MAX;
    memSize = sane ? int(size) : 0;
    if (memory) {
        mem = memory;
        flags = flags_ | QBM_EXTERNAL_MEM;
        return true;
    }
    if (sane) mem = static_cast<uint8_t*>(qcalloc(size_t(size)));
    if (!mem) QWARNING("QBitMap::Alloc() failed on %dx%d, depth %d, flags %d\n", wid_, hgt_, depth_, flags_);
    return mem != nullptr;
}

void QBitMap::Clear()
{
    if (mem && memSize > 0) std::memset(mem, 0, size_t(memSize));
}

bool QBitMap::HasTransparency() const
{
    const uint8_t* p = mem;
    for (int i = pixels(); i > 0; i--, p += 4)
        if (p[3] < 255) return true;
    return false;
}

int QBitMap::KeyOutMagenta()
{
    int keyed = 0;
    uint8_t* p = mem;
    for (int i = pixels(); i > 0; i--, p += 4) {
        if (p[0] == 255 && p[1] == 0 && p[2] == 255) {
            std::memset(p, 0, 4);
            keyed++;
        }
    }
    return keyed;
}

void QBitMap::SetAlpha(int alpha)
{
    uint8_t* p = mem;
    for (int i = pixels(); i > 0; i--, p += 4) p[3] = uint8_t(alpha);
}

void QBitMap::SetColorAt(int x, int y, const QColor& color)
{
    if (x < 0 || x >= wid || y < 0 || y >= hgt) {
        QWARNING("QBitMap:SetColorAt(%d,%d) out of range (%dx%d)", x, y, wid, hgt);
        return;
    }
    if (!pixels()) return;
    uint8_t* p = GetAddress(x, hgt - y - 1);
    p[0] = uint8_t(color.GetR());
    p[1] = uint8_t(color.GetG());
    p[2] = uint8_t(color.GetB());
    p[3] = uint8_t(color.GetA());
}

void QBlit(QBitMap* sbm, int sx, int sy, QBitMap* dbm, int dx, int dy, int wid, int hgt, int blend,
           uint8_t copyAlpha)
{
    if (wid > 0 && hgt > 0) BlitCopy(sbm, sx, sy, dbm, dx, dy, wid, hgt, blend, copyAlpha);
}

void BlitCopy(QBitMap* sbm, int sx, int sy, QBitMap* dbm, int dx, int dy, int wid, int hgt, int blend,
              uint8_t copyAlpha)
{
    // A bitmap without pixels is no source or target either.
    if (!sbm || !sbm->GetMemory()) {
        QWARNING("[BlitCopy] sbm is NULL");
        return;
    }
    if (!dbm || !dbm->GetMemory()) {
        QWARNING("[BlitCopy] dbm is NULL");
        return;
    }
    // The callers clip; negative origins are caught here as well, so that no blit ever reaches
    // outside either block. Differences in 64 bits: no subtraction may wrap.
    if (sx < 0 || int64_t(sbm->GetWidth()) - sx < wid) {
        QWARNING("[BlitCopy] BlitCopy source width goes out of range");
        return;
    }
    if (sy < 0 || int64_t(sbm->GetHeight()) - sy < hgt) {
        QWARNING("[BlitCopy] BlitCopy source height goes out of range");
        return;
    }
    if (dx < 0 || int64_t(dbm->GetWidth()) - dx < wid) {
        QWARNING("[BlitCopy] BlitCopy destination width goes out of range");
        return;
    }
    if (dy < 0 || int64_t(dbm->GetHeight()) - dy < hgt) {
        QWARNING("[BlitCopy] BlitCopy destination height goes out of range");
        return;
    }
    if (wid <= 0 || hgt <= 0) return;

    const size_t srcStride = size_t(sbm->GetWidth()) * 4;
    const size_t dstStride = size_t(dbm->GetWidth()) * 4;
    const uint8_t* src = sbm->GetAddress(sx, sy);
    uint8_t* dst = dbm->GetAddress(dx, dy);
    if (blend <= 0) {
        // memmove: a bitmap may be blitted onto itself.
        for (int y = 0; y < hgt; y++, src += srcStride, dst += dstStride) std::memmove(dst, src, size_t(wid) * 4);
        return;
    }
    for (int y = 0; y < hgt; y++, src += srcStride, dst += dstStride) {
        const uint8_t* s = src;
        uint8_t* d = dst;
        for (int x = 0; x < wid; x++, s += 4, d += 4) {
            unsigned a = s[3], ia = 255 - a;
            d[0] = uint8_t((s[0] * a + d[0] * ia) / 255);
            d[1] = uint8_t((s[1] * a + d[1] * ia) / 255);
            d[2] = uint8_t((s[2] * a + d[2] * ia) / 255);
            if (copyAlpha) d[3] = uint8_t((d[3] * ia + s[3] * a) / 255);
        }
    }
}

QBlitQueue::QBlitQueue(QCanvas* owner)
    : canvas(owner),
      entries(static_cast<QBlitEntry*>(qcalloc(sizeof(QBlitEntry) * MAX_ENTRIES))),
      maxEntries(MAX_ENTRIES),
      numEntries(0)
{
    // Without its records the queue holds nothing: every AddBlit then overflows into an execution
    // of the empty list, and the record is dropped.
    if (!entries) maxEntries = 0;
}

QBlitQueue::~QBlitQueue()
{
    if (entries) qfree(entries);
}

bool QBlitQueue::AddBlit(QBitMap* bitmap, int srcX, int srcY, int wid, int hgt, int dstX, int dstY, uint32_t flags)
{
    if (numEntries >= maxEntries) {
        QWARNING("QBlitQueue: overflow; executing current list");
        if (numEntries != 0 && canvas && qcanvasHooks && qcanvasHooks->ExecuteBlitQueue)
            qcanvasHooks->ExecuteBlitQueue(canvas);
        // A canvas that did not empty the list leaves no room: the oldest records are dropped
        // rather than writing past the block.
        if (numEntries >= maxEntries) numEntries = 0;
        if (maxEntries == 0) return true;
    }
    entries[numEntries++] = QBlitEntry{bitmap, srcX, srcY, wid, hgt, dstX, dstY, flags};
    return true;
}

QBlitEntry* QBlitQueue::GetBlit(int index)
{
    if (index < 0 || index >= numEntries) return nullptr;
    return &entries[index];
}

} // namespace tarvik
