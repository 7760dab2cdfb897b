// Targa: true colour (24 and 32 bits, verbatim or run-length) and 8-bit grey.
//
// Two roads share one decoder. ReadTGA takes the file whole from the application's file system, so
// a Targa can come out of an archive; ReadTGASlow, the road of programs without an application
// object, takes a plain file. They differ in their words and in one result: the slow road accepts
// an unsupported kind and leaves an all-zero bitmap of the file's size.
#include "images/qimage.h"

#include "images/qimage_file.h"

#include "foundation/qapphooks.h"
#include "foundation/qfile.h"
#include "foundation/qfilesys.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"

#include <cstdio>
#include <cstring>

namespace tarvik {

namespace {

enum { TGA_HEADER_SIZE = 18 };

void ParseHeader(const uint8_t* b, QTGAHeader* h)
{
    h->idLength = b[0];
    h->colorMapType = b[1];
    h->imageType = b[2];
    std::memcpy(h->colorMapSpec, b + 3, 5);
    h->xOrigin = int16_t(QGetLE16(b + 8));
    h->yOrigin = int16_t(QGetLE16(b + 10));
    h->width = int16_t(QGetLE16(b + 12));
    h->height = int16_t(QGetLE16(b + 14));
    h->pixDepth = b[16];
    h->descriptor = b[17];
}

// Bytes per pixel of a supported kind, 0 for any other.
int PixelBytes(int imageType, int pixDepth)
{
    if ((imageType == 2 || imageType == 10) && (pixDepth == 24 || pixDepth == 32)) return pixDepth / 8;
    if (imageType == 3 && pixDepth == 8) return 1;
    return 0;
}

inline void StorePixel(uint8_t* d, const uint8_t* s, int bpp)
{
    if (bpp == 1) {
        d[0] = d[1] = d[2] = d[3] = s[0]; // grey goes to alpha as well
    } else {
        d[0] = s[2];
        d[1] = s[1];
        d[2] = s[0];
        d[3] = bpp == 4 ? s[3] : 255;
    }
}

// One verbatim row; the caller has made sure the file holds it.
void CopyRow(const uint8_t* s, uint8_t* d, int width, int bpp)
{
    if (bpp == 3) {
        for (int x = 0; x < width; x++, s += 3, d += 4) {
            d[0] = s[2]; d[1] = s[1]; d[2] = s[0]; d[3] = 255;
        }
    } else if (bpp == 4) {
        for (int x = 0; x < width; x++, s += 4, d += 4) {
            d[0] = s[2]; d[1] = s[1]; d[2] = s[0]; d[3] = s[3];
        }
    } else {
        for (int x = 0; x < width; x++, s++, d += 4) d[0] = d[1] = d[2] = d[3] = *s;
    }
}

// One run-length row: packets until the row is full. A packet that runs past the row's end is not
// carried into the next row; its surplus is dropped. Stops at the end of the data.
const uint8_t* ExpandRow(const uint8_t* p, const uint8_t* end, uint8_t* d, int width, int bpp)
{
    int x = 0;
    while (x < width && p < end) {
        int c = *p++;
        int n = (c & 0x7F) + 1;
        int keep = n < width - x ? n : width - x;
        if (c & 0x80) {
            if (end - p < bpp) return end;
            uint8_t px[4];
            StorePixel(px, p, bpp);
            p += bpp;
            uint32_t word;
            std::memcpy(&word, px, 4);
            for (int i = 0; i < keep; i++, d += 4) std::memcpy(d, &word, 4);
        } else {
            long avail = (end - p) / bpp;
            if (keep > avail) keep = int(avail);
            CopyRow(p, d, keep, bpp);
            d += size_t(keep) * 4;
            if (end - p < long(n) * bpp) return end;
            p += long(n) * bpp;
        }
        x += keep;
    }
    return p;
}

} // namespace

bool QImage::ReadTGAHeader(const char* fileName, QTGAHeader* header)
{
    FILE* f = fileName ? qfopen(fileName, "rb") : nullptr;
    if (!f) return false;
    // Three reads, one per group: identification (3 bytes), colour map (5), image (10).
    uint8_t raw[TGA_HEADER_SIZE] = {};
    size_t a = std::fread(raw, 1, 3, f);
    size_t b = std::fread(raw + 3, 1, 5, f);
    size_t c = std::fread(raw + 8, 1, 10, f);
    qfclose(f);
    (void)a, (void)b, (void)c; // a short file leaves zeros: a width of 0, which the reader refuses
    ParseHeader(raw, header);
    return true;
}

bool QImage::ReadTGA(const char* fileName)
{
    if (!qappHooks) return ReadTGASlow(fileName);

    QVirtualFileSystem* vfs = qappHooks->GetFileSystem ? qappHooks->GetFileSystem() : nullptr;
    QFile* file = vfs ? vfs->OpenFile(fileName, QFile::READ | QFile::MEMORY)
                      : new QFile(fileName, QFile::READ | QFile::MEMORY);
    if (!file) return false;
    if (!file->IsOpen()) {
        delete file;
        return false;
    }
    // An empty file stays a stream and has no block; neither has one whose block could not be had.
    if (!file->GetMemory()) {
        delete file;
        QWARNING("QImage:ReadTGA(); no memory to read '%s'", fileName);
        return false;
    }
    bool ok = DecodeTGA(fileName, file->GetMemory(), file->GetMemorySize(), false);
    delete file;
    return ok;
}

bool QImage::ReadTGASlow(const char* fileName)
{
    QTGAHeader h;
    if (!ReadTGAHeader(fileName, &h)) return false;
    uint8_t* data;
    long size;
    QImageLoad got = QImageLoadFile(fileName, &data, &size);
    if (got == QIMAGE_LOAD_MISSING) return false;
    if (got == QIMAGE_LOAD_NO_MEMORY) {
        QWARNING("QImage:ReadTGA(); out of memory");
        return false;
    }
    bool ok = DecodeTGA(fileName, data, size, true);
    qfree(data);
    return ok;
}

bool QImage::DecodeTGA(const char* fileName, const uint8_t* data, long size, bool slow)
{
    uint8_t raw[TGA_HEADER_SIZE] = {};
    std::memcpy(raw, data, size < long(TGA_HEADER_SIZE) ? size_t(size) : size_t(TGA_HEADER_SIZE));
    QTGAHeader h;
    ParseHeader(raw, &h);
    const int width = h.width, height = h.height;
    const int bpp = PixelBytes(h.imageType, h.pixDepth);

    if (width > QIMAGE_MAX_WIDTH) {
        if (slow) QWARNING("QImage:ReadTGA(); too wide");
        else QWARNING("QImage:ReadTGA(%s); too wide (max width=%d)", fileName, QIMAGE_MAX_WIDTH);
        return false;
    }
    if (h.colorMapType != 0) {
        if (slow) QWARNING("QImage:ReadTGA(); colormap is not supported");
        else QWARNING("QImage:ReadTGA(%s); colormap is not supported", fileName);
        return false;
    }
    // The size the header claims against what the data can give, before any pixel is allocated:
    // a verbatim image needs all its bytes, a run-length packet of 1+bpp bytes gives at most 128
    // pixels, and a kind without a decoder may claim no more than a run-length one could.
    const long first = TGA_HEADER_SIZE + h.idLength;
    const long long left = size > first ? size - first : 0;
    const long long pixels = (long long)width * height;
    long long most = bpp == 0 ? left / 2 * 128
                   : h.imageType == 10 ? left / (1 + bpp) * 128
                   : left / bpp;
    if (width <= 0 || height <= 0 || pixels > most) {
        QWARNING("QImage:ReadTGA(%s); %dx%d is more than the file holds", fileName, width, height);
        return false;
    }

    if (!Alloc(32, width, height, flags, nullptr)) {
        QWARNING("QImage:ReadTGA(); out of memory");
        return false;
    }
    if (bpp == 0) {
        QWARNING("QImage:ReadTGA(); no image loader for type %d, pixDepth %d", h.imageType, h.pixDepth);
        return slow; // the slow road leaves the zero bitmap and calls it a picture
    }

    const bool topFirst = (h.descriptor & 32) != 0;
    const uint8_t* p = data + first;
    const uint8_t* end = data + size;
    const size_t stride = size_t(width) * 4;
    for (int y = 0; y < height; y++) {
        uint8_t* d = mem + stride * (topFirst ? height - 1 - y : y);
        if (h.imageType == 10) {
            p = ExpandRow(p, end, d, width, bpp);
        } else {
            CopyRow(p, d, width, bpp);
            p += size_t(width) * bpp;
        }
    }
    return true;
}

} // namespace tarvik
