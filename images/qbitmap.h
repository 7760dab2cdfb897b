// QBitMap: the in-memory raster image of the tree, and the software blit between two of them.
//
// One pixel layout everywhere: four bytes a pixel, red, green, blue, alpha; rows without padding;
// memory row 0 is the bottom row of the picture. A bitmap can go to GL as GL_RGBA/GL_UNSIGNED_BYTE
// as it stands. Fresh pixels are zero (transparent black). The pixel operations read and write four
// bytes a pixel and leave bitmaps of another depth alone; Alloc sizes those, nothing here draws them.
//
// QBlitQueue holds up to 500 postponed transfers for a canvas, which executes them in one go. The
// queue never draws itself: when it overflows it asks the canvas, through qcanvasHooks, to execute.
#pragma once

#include "images/qdrawable.h"

#include <cstddef>
#include <cstdint>

namespace tarvik {

enum { QBM_EXTERNAL_MEM = 2 }; // 'mem' belongs to somebody else and is never freed here

// Output formats of QBitMap::Write.
enum {
    QBM_FORMAT_RGB = 0,      // SGI RGB, verbatim, four planes
    QBM_FORMAT_TGA = 1,      // Targa, 32 bits
    QBM_FORMAT_TGA_GREY = 2, // Targa, 8 bits grey: the red byte
    QBM_FORMAT_JPG = 3,      // JPEG; alpha is lost
};
enum { QBM_MAX_WRITE_WIDTH = 8192 }; // widest RGB and Targa written; the JPEG writer has no limit

class QBitMap : public QDrawable {
public:
    QBitMap(int depth, int wid, int hgt, int flags); // allocates unless one of the three is 0
    ~QBitMap() override;

    const char* ClassName() const override { return "QBitMap"; }
    int GetWidth() const override { return wid; }
    int GetHeight() const override { return hgt; }

    // (Re)defines the bitmap. With a non-null 'memory' the block is adopted as external memory.
    // False when the pixels cannot be had; the new sizes stay in the fields and mem is null.
    bool Alloc(int depth, int wid, int hgt, int flags, uint8_t* memory);

    uint8_t* GetAddress(int x, int y) const { return mem + (size_t(wid) * y + x) * 4; } // y bottom-up, unchecked
    uint8_t* GetMemory() const { return mem; }
    int GetDepth() const { return depth; }
    int GetFlags() const { return flags; }
    int GetMemSize() const { return memSize; }

    void Clear();
    bool HasTransparency() const;  // some alpha below 255
    int KeyOutMagenta();           // (255,0,255,any) becomes four zero bytes; returns the count
    void SetAlpha(int alpha);
    void SetColorAt(int x, int y, const QColor& color); // y from the top of the picture

    // Saves the 32-bit bitmap, which stays as it is. 'quality' (1..100) is for JPEG only. False
    // on an unsupported format, a size the format can't hold, or a file that can't be written.
    bool Write(const char* fileName, int format, int quality);
    bool WriteRGB(const char* fileName);
    bool WriteTGA(const char* fileName, int format); // QBM_FORMAT_TGA or QBM_FORMAT_TGA_GREY
    bool WriteJPG(const char* fileName, int quality);
    // Packs wid*hgt pixels into 'out' as red, green, blue, top row first: the last memory row
    // comes first. 'out' holds wid*hgt*3 bytes.
    static void GetFlippedRGB(const uint8_t* mem, uint8_t* out, int wid, int hgt);

protected:
    int pixels() const { return depth == 32 && mem ? wid * hgt : 0; }
    void Free();

    int flags;
    int depth;   // bits per pixel
    int wid;
    int hgt;
    uint8_t* mem; // owned unless flags has QBM_EXTERNAL_MEM
    int memSize;  // (depth+7)/8 * wid * hgt
};

// Copies (blend <= 0) or blends (blend > 0) a block of 32-bit pixels; coordinates in memory order.
// Range faults are warnings and leave the target untouched.
void BlitCopy(QBitMap* sbm, int sx, int sy, QBitMap* dbm, int dx, int dy, int wid, int hgt, int blend,
              uint8_t copyAlpha);
void QBlit(QBitMap* sbm, int sx, int sy, QBitMap* dbm, int dx, int dy, int wid, int hgt, int blend,
           uint8_t copyAlpha); // does nothing unless wid and hgt are above 0

enum { QBLIT_BLEND = 1, QBLIT_SKIP = 2 };

struct QBlitEntry {
    QBitMap* bitmap; // borrowed: the source of the pixels
    int32_t srcX;
    int32_t srcY;    // memory order (bottom-up)
    int32_t wid;
    int32_t hgt;
    int32_t dstX;
    int32_t dstY;    // GL order
    uint32_t flags;  // QBLIT_BLEND, QBLIT_SKIP
};

struct QBlitQueue {
    enum { MAX_ENTRIES = 500 };

    explicit QBlitQueue(QCanvas* owner);
    ~QBlitQueue();
    QBlitQueue(const QBlitQueue&) = delete;
    QBlitQueue& operator=(const QBlitQueue&) = delete;

    bool AddBlit(QBitMap* bitmap, int srcX, int srcY, int wid, int hgt, int dstX, int dstY, uint32_t flags);
    QBlitEntry* GetBlit(int index);

    QCanvas* canvas;     // borrowed: the canvas that owns the queue
    QBlitEntry* entries; // owned, MAX_ENTRIES records from qcalloc
    int32_t maxEntries;
    int32_t numEntries;
};

} // namespace tarvik
