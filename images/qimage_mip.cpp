// MIP: 16 colours from a small palette, two pixels to a byte, the first row at the top.
#include "images/qimage.h"

#include "images/qimage_file.h"

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"

#include <cstring>

namespace tarvik {

namespace {

enum { CMAP_SIZE = 76, CMAP_HEAD = 12 };

// Reads forward through the block; past its end every byte is 0 and 'overrun' is set.
struct Cursor {
    const uint8_t* p;
    const uint8_t* end;
    bool overrun = false;

    void Skip(long n) { if (end - p < n) { overrun = true; p = end; } else p += n; }
    uint8_t U8() { if (p >= end) { overrun = true; return 0; } return *p++; }
    int32_t I32() { if (end - p < 4) { overrun = true; p = end; return 0; } int32_t v = int32_t(QGetLE32(p)); p += 4; return v; }
};

// A CMAP chunk: 12 bytes of head whose word at offset 8 is 64, then 16 entries blue, green, red,
// alpha. False on a wrong size.
bool ReadCMAP(Cursor& c, uint8_t* cmap)
{
    for (int i = 0; i < CMAP_SIZE; i++) cmap[i] = c.U8();
    return QGetLE32(cmap + 8) == 64;
}

} // namespace

bool QImage::ReadMIP(const char* fileName)
{
    QINFO("QImage:ReadMip(%s)\n", fileName);
    uint8_t* data;
    long size;
    QImageLoad got = QImageLoadFile(fileName, &data, &size);
    if (got == QIMAGE_LOAD_MISSING) return false;
    if (got == QIMAGE_LOAD_NO_MEMORY) {
        QWARNING("MIP out of memory while loading pixel data");
        return false;
    }
    bool ok = DecodeMIP(fileName, data, size);
    qfree(data);
    return ok;
}

bool QImage::DecodeMIP(const char* fileName, const uint8_t* data, long size)
{
    Cursor c{data, data + size};
    if (size < 4 || std::memcmp(data, "PIM ", 4) != 0) {
        QWARNING("MIP image doesn't have correct header");
        return false;
    }

    uint8_t cmap[CMAP_SIZE];
    bool havePalette = false;
    c.Skip(12 + 12);
    int firstType = c.U8();
    c.I32(); // width and height of the first record are overwritten by the second
    c.I32();
    c.Skip(11);
    if (firstType == 0 || firstType == 1) {
        if (!ReadCMAP(c, cmap)) {
            QWARNING("MIP with CMAP size!=64; unexpected");
            return false;
        }
        havePalette = true;
    }
    c.Skip(12 + 12);
    int imageType = c.U8();
    int32_t width = c.I32();
    int32_t height = c.I32();
    int32_t rowBytes = c.I32();
    c.Skip(3);
    if (imageType == 2) {
        if (!ReadCMAP(c, cmap)) {
            QWARNING("MIP with CMAP size!=64; unexpected");
            return false;
        }
        havePalette = true;
    }
    c.Skip(12);

    // Rows are read rowBytes apart in the file but decoded (width+1)/2 apart, so the data must hold
    // height rows of both lengths; and all of it must be in the file before pixels are allocated.
    const long long left = c.overrun ? 0 : c.end - c.p;
    const long long rowUsed = ((long long)width + 1) / 2;
    if (width <= 0 || height <= 0 || rowBytes < rowUsed || (long long)rowBytes * height > left) {
        QWARNING("QImage:ReadMIP(%s); %dx%d with %d bytes a row is more than the file holds", fileName, width, height,
                 rowBytes);
        return false;
    }
    if (!Alloc(32, width, height, 0, nullptr)) {
        QWARNING("QImage:ReadMIP(%s) out of memory", fileName);
        return false;
    }
    if (imageType != 0 && imageType != 1 && imageType != 2) {
        QWARNING("MIP type %d not yet supported", imageType);
        return false;
    }
    if (!havePalette) {
        QWARNING("QImage:ReadMIP(%s); no CMAP chunk: no palette to apply", fileName);
        return false;
    }

    uint8_t palette[16][4];
    for (int i = 0; i < 16; i++) {
        const uint8_t* e = cmap + CMAP_HEAD + 4 * i;
        palette[i][0] = e[2];
        palette[i][1] = e[1];
        palette[i][2] = e[0];
        palette[i][3] = e[3];
    }
    const uint8_t* s = c.p;
    for (int y = 0; y < height; y++) {
        uint8_t* d = GetAddress(0, height - 1 - y);
        for (int x = 0; x < width; x++, d += 4) {
            uint8_t b = s[x >> 1];
            std::memcpy(d, palette[x & 1 ? b & 0x0F : b >> 4], 4);
        }
        s += rowUsed; // rowBytes sets what is read, not the step from row to row
    }
    return true;
}

} // namespace tarvik
