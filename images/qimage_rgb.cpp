// SGI RGB: verbatim planes or run-length rows, big- or little-endian by the magic.
#include "images/qimage.h"

#include "images/qimage_file.h"

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"

#include <cstdio>
#include <cstring>

namespace tarvik {

namespace {

enum { RGB_HEADER_SIZE = 108, RGB_DATA_START = 512, RGB_PLANES = 4 };

// Expands one run-length row into one channel of a bitmap row, four bytes apart. Stops at the row's
// end, at a zero count and at the end of the data: a packet that runs past the row is cut there.
void ExpandRow(const uint8_t* p, const uint8_t* end, uint8_t* out, int width)
{
    int x = 0;
    while (x < width && p < end) {
        int c = *p++;
        int n = c & 0x7F;
        if (n == 0) return;
        if (n > width - x) n = width - x;
        if (c & 0x80) {
            if (n > end - p) n = int(end - p);
            for (int i = 0; i < n; i++, out += 4) *out = p[i];
            p += c & 0x7F; // the whole literal is consumed, even the part cut at the row's end
        } else {
            if (p >= end) return;
            uint8_t v = *p++;
            for (int i = 0; i < n; i++, out += 4) *out = v;
        }
        x += n;
    }
}

} // namespace

// The header from its 108 bytes; sets byteSwap.
void QImage::ParseRGBHeader(const uint8_t* raw, QRGBHeader* header)
{
    // Bytes 0x01 0xDA: the numbers are big-endian. Any other magic is read little-endian as stored.
    byteSwap = raw[0] == 0x01 && raw[1] == 0xDA;
    auto u16 = [&](int at) { return byteSwap ? QGetBE16(raw + at) : QGetLE16(raw + at); };
    auto u32 = [&](int at) { return byteSwap ? QGetBE32(raw + at) : QGetLE32(raw + at); };
    header->imagic = u16(0);
    header->type = u16(2);
    header->dim = u16(4);
    header->xsize = u16(6);
    header->ysize = u16(8);
    header->zsize = u16(10);
    header->min = u32(12);
    header->max = u32(16);
    header->wasteBytes = u32(20);
    std::memcpy(header->name, raw + 24, sizeof header->name);
    header->colorMap = u32(104);
}

bool QImage::ReadRGBHeader(const char* fileName, QRGBHeader* header)
{
    FILE* f = fileName ? qfopen(fileName, "rb") : nullptr;
    if (!f) return false;
    uint8_t raw[RGB_HEADER_SIZE] = {};
    size_t got = std::fread(raw, 1, sizeof raw, f);
    qfclose(f);
    (void)got; // a short file leaves zeros, which the size checks of the reader refuse
    ParseRGBHeader(raw, header);
    return true;
}

bool QImage::ReadRGB(const char* fileName)
{
    uint8_t* data;
    long size;
    QImageLoad got = QImageLoadFile(fileName, &data, &size);
    if (got == QIMAGE_LOAD_MISSING) return false;
    if (got == QIMAGE_LOAD_NO_MEMORY) {
        QWARNING("QImage::Read: can't read rle chunk\n");
        return false;
    }
    bool ok = DecodeRGB(fileName, data, size);
    qfree(data);
    return ok;
}

bool QImage::DecodeRGB(const char* fileName, const uint8_t* data, long size)
{
    uint8_t raw[RGB_HEADER_SIZE] = {}; // a short file leaves zeros, which the size checks refuse
    std::memcpy(raw, data, size < long(RGB_HEADER_SIZE) ? size_t(size) : size_t(RGB_HEADER_SIZE));
    QRGBHeader h;
    ParseRGBHeader(raw, &h);
    const int xsize = h.xsize, ysize = h.ysize, zsize = h.zsize;
    const bool rle = (h.type >> 8) == 1;
    if (xsize > QIMAGE_MAX_WIDTH) {
        QWARNING("%s width %d out of bounds", fileName, xsize);
        return false;
    }

    // What the file must hold before pixels are allocated: the first plane of a verbatim file; the
    // two row tables of a run-length one, and data for its rows. A run-length packet of two bytes
    // gives at most 127 bytes of one channel, so no file whose rows each have their own data
    // expands more than 256 times; rows that share their data could, and are refused past that.
    long long need = rle ? RGB_DATA_START + 8LL * zsize * ysize : RGB_DATA_START + (long long)xsize * ysize;
    if (rle && 4LL * xsize * ysize / 256 > need) need = 4LL * xsize * ysize / 256;
    if (size < need) {
        QWARNING("QImage::ReadRGB(%s); %dx%dx%d needs %lld bytes, the file has %ld", fileName, xsize, ysize, zsize,
                 need, size);
        return false;
    }

    Alloc(32, xsize, ysize, flags, nullptr);
    if (!mem) return false;

    const size_t stride = size_t(xsize) * 4;
    bool ok = true;
    if (!rle) {
        // Four planes whatever zsize says, as long as the file has data. A plane the file lacks
        // (a grey or colour file without alpha) is 255, as in a run-length file, rather than the
        // last row read once more.
        long pos = RGB_DATA_START;
        for (int plane = 0; plane < RGB_PLANES; plane++) {
            for (int y = 0; y < ysize; y++) {
                long n = size - pos < xsize ? size - pos : xsize;
                uint8_t* out = mem + stride * y + plane;
                const uint8_t* in = data + pos;
                int x = 0;
                for (; x < n; x++, out += 4) *out = in[x];
                for (; x < xsize; x++, out += 4) *out = 255;
                if (n > 0) pos += n;
            }
        }
    } else {
        const long count = long(zsize) * ysize;
        const uint8_t* starts = data + RGB_DATA_START;
        const long chunkStart = RGB_DATA_START + 8 * count;
        const uint8_t* end = data + size;
        for (int plane = 0; plane < RGB_PLANES && ok; plane++) {
            for (int y = 0; y < ysize; y++) {
                uint8_t* out = mem + stride * y + plane;
                if (plane >= zsize) {
                    for (int x = 0; x < xsize; x++, out += 4) *out = 255;
                    continue;
                }
                const uint8_t* e = starts + 4 * (long(plane) * ysize + y);
                uint32_t start = byteSwap ? QGetBE32(e) : QGetLE32(e);
                if (start < uint32_t(chunkStart) || start >= uint32_t(size)) {
                    QWARNING("QImage::ReadRGB(%s); row %d of plane %d starts at %u, outside the data", fileName, y,
                             plane, start);
                    ok = false;
                    break;
                }
                ExpandRow(data + start, end, out, xsize);
            }
        }
    }
    return ok;
}

} // namespace tarvik
