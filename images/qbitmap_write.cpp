// QBitMap's writers: SGI RGB, Targa (32-bit and grey) and JPEG.
//
// The RGB and Targa files are the exact counterparts of the readers: what is written here comes
// back through QImage byte for byte. Headers are put together field by field in the byte order of
// their format (little-endian both, the RGB file too, against that format's habit), and rows go
// out through a row buffer. A file is written whole or not at all: the bytes go to a temporary file
// beside it, which takes the name only once complete (QOutput), so a write that fails is reported,
// gives false and leaves the old file as it was. A device is written directly. The bitmap is never
// changed by writing.
#include "images/qbitmap.h"

#include "images/qbytes.h"
#include "images/qjpeg.h"

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "foundation/qoutput.h"

#include <csetjmp>
#include <cstdio>
#include <cstring>

#include <jpeglib.h>

namespace tarvik {

namespace {

enum {
    RGB_HEADER_SIZE = 108,
    RGB_DATA_START = 512, // header plus zero padding
    RGB_MAX_HEIGHT = 65535, // the header's field
    TGA_HEADER_SIZE = 18,
    TGA_MAX_HEIGHT = 32767, // the reader takes the field as signed
};


// Every writer reads four bytes a pixel: a bitmap without them has nothing to write.
bool PixelsToWrite(const uint8_t* mem, int depth, const char* fileName)
{
    if (mem && depth == 32) return true;
    QWARNING("QBitMap:Write(); no 32-bit pixels to write '%s'", fileName ? fileName : "(null)");
    return false;
}

// Puts the file in place; false, with a report, if some write failed on the way or the close or
// the rename did, and then the old file stands.
bool Finish(QOutput& out, bool written, const char* fileName, const char* who)
{
    written = written && std::ferror(out.Stream()) == 0 && out.Commit();
    if (!written) {
        out.Abandon();
        QWARNING("QBitMap:%s(%s); write failed", who, fileName);
    }
    return written;
}

// The part that the library may leave by a jump: it holds nothing that needs a destructor, and what
// it opens is in 'out', which the caller commits or abandons whatever way this ends.
bool Compress(jpeg_compress_struct* cinfo, QJpegError* err, QOutput* out, const uint8_t* rgb, int wid,
              int hgt, int quality)
{
    if (setjmp(err->jump)) return false;

    jpeg_CreateCompress(cinfo, 62, sizeof *cinfo);
    if (!out->Open(err->fileName, PLATFORM_OUTPUT_BINARY)) {
        QWARNING("QBitMap::WriteJPG(%s); can't open file", err->fileName);
        return false;
    }
    jpeg_stdio_dest(cinfo, out->Stream());
    cinfo->image_width = JDIMENSION(wid);
    cinfo->image_height = JDIMENSION(hgt);
    cinfo->input_components = 3;
    cinfo->in_color_space = JCS_RGB;
    jpeg_set_defaults(cinfo);
    jpeg_set_quality(cinfo, quality, TRUE);
    jpeg_start_compress(cinfo, TRUE);
    while (cinfo->next_scanline < cinfo->image_height) {
        JSAMPROW line = const_cast<JSAMPROW>(rgb + size_t(cinfo->next_scanline) * size_t(wid) * 3);
        jpeg_write_scanlines(cinfo, &line, 1);
    }
    jpeg_finish_compress(cinfo);
    return true;
}

} // namespace

bool QBitMap::Write(const char* fileName, int format, int quality)
{
    switch (format) {
    case QBM_FORMAT_RGB: return WriteRGB(fileName);
    case QBM_FORMAT_TGA:
    case QBM_FORMAT_TGA_GREY: return WriteTGA(fileName, format);
    case QBM_FORMAT_JPG: return WriteJPG(fileName, quality);
    default:
        QWARNING("QBitMap:Write(); unsupported format %d to write '%s'", format, fileName ? fileName : "(null)");
        return false;
    }
}

bool QBitMap::WriteRGB(const char* fileName)
{
    if (wid > QBM_MAX_WRITE_WIDTH) {
        QERROR("QBitMap:Write; image too wide");
        return false;
    }
    if (hgt > RGB_MAX_HEIGHT) {
        QERROR("QBitMap:Write; image too high");
        return false;
    }
    if (!PixelsToWrite(mem, depth, fileName)) return false;
    QOutput out;
    if (!fileName || !out.Open(fileName, PLATFORM_OUTPUT_BINARY)) return false;
    FILE* f = out.Stream();

    // The header is little-endian, so that the reader takes the numbers as they stand.
    uint8_t head[RGB_DATA_START] = {};
    QPutLE16(head + 0, 474);   // imagic
    QPutLE16(head + 2, 1);     // type: its high byte 0 says verbatim planes
    QPutLE16(head + 4, 3);     // dim
    QPutLE16(head + 6, unsigned(wid));
    QPutLE16(head + 8, unsigned(hgt));
    QPutLE16(head + 10, 4);    // zsize: red, green, blue, alpha
    QPutLE32(head + 12, 0);    // min
    QPutLE32(head + 16, 255);  // max
    QPutLE32(head + 20, 0);    // wasteBytes
    std::strncpy(reinterpret_cast<char*>(head + 24), fileName, 79); // name; byte 103 stays zero
    QPutLE32(head + 104, 0);   // colorMap
    bool written = std::fwrite(head, 1, sizeof head, f) == sizeof head;

    // Plane by plane, memory row 0 first: the format's first row is the bottom of the picture too.
    uint8_t row[QBM_MAX_WRITE_WIDTH];
    for (int plane = 0; plane < 4 && written; plane++) {
        for (int y = 0; y < hgt && written; y++) {
            const uint8_t* s = GetAddress(0, y) + plane;
            for (int x = 0; x < wid; x++, s += 4) row[x] = *s;
            written = std::fwrite(row, 1, size_t(wid), f) == size_t(wid);
        }
    }
    return Finish(out, written, fileName, "WriteRGB");
}

bool QBitMap::WriteTGA(const char* fileName, int format)
{
    QINFO("WriteTGA(%s, format %d)\n", fileName ? fileName : "(null)", format);
    if (wid > QBM_MAX_WRITE_WIDTH) {
        QERROR("QBitMap:WriteTGA(); image too wide");
        return false;
    }
    if (hgt > TGA_MAX_HEIGHT) {
        QERROR("QBitMap:WriteTGA(); image too high");
        return false;
    }
    if (format != QBM_FORMAT_TGA && format != QBM_FORMAT_TGA_GREY) {
        QWARNING("QBitMap:Write(); unsupported format %d to write '%s'", format, fileName ? fileName : "(null)");
        return false;
    }
    if (!PixelsToWrite(mem, depth, fileName)) return false;
    QOutput out;
    if (!fileName || !out.Open(fileName, PLATFORM_OUTPUT_BINARY)) return false;
    FILE* f = out.Stream();

    const bool grey = format == QBM_FORMAT_TGA_GREY;
    uint8_t head[TGA_HEADER_SIZE] = {};
    head[2] = grey ? 3 : 2;           // imageType: grey or true colour, verbatim
    QPutLE16(head + 12, unsigned(wid) & 0xFFFF);
    QPutLE16(head + 14, unsigned(hgt) & 0xFFFF);
    head[16] = grey ? 8 : 32;         // pixDepth
    head[17] = 8;                     // descriptor: 8 attribute bits; bit 32 clear, bottom row first
    bool written = std::fwrite(head, 1, sizeof head, f) == sizeof head;

    uint8_t row[QBM_MAX_WRITE_WIDTH * 4];
    const size_t rowBytes = size_t(wid) * (grey ? 1 : 4);
    for (int y = 0; y < hgt && written; y++) {
        const uint8_t* s = GetAddress(0, y);
        uint8_t* d = row;
        if (grey) {
            for (int x = 0; x < wid; x++, s += 4) *d++ = s[0];
        } else {
            for (int x = 0; x < wid; x++, s += 4, d += 4) {
                d[0] = s[2]; d[1] = s[1]; d[2] = s[0]; d[3] = s[3];
            }
        }
        written = std::fwrite(row, 1, rowBytes, f) == rowBytes;
    }
    return Finish(out, written, fileName, "WriteTGA");
}

void QBitMap::GetFlippedRGB(const uint8_t* mem, uint8_t* out, int wid, int hgt)
{
    for (int y = hgt - 1; y >= 0; y--) {
        const uint8_t* s = mem + size_t(y) * wid * 4;
        for (int x = 0; x < wid; x++, s += 4, out += 3) {
            out[0] = s[0]; out[1] = s[1]; out[2] = s[2];
        }
    }
}

bool QBitMap::WriteJPG(const char* fileName, int quality)
{
    const char* name = fileName ? fileName : "(null)";
    if (!PixelsToWrite(mem, depth, name)) return false;
    if (!fileName) {
        QWARNING("QBitMap::WriteJPG(%s); can't open file", name);
        return false;
    }
    uint8_t* rgb = static_cast<uint8_t*>(qmalloc(size_t(wid) * size_t(hgt) * 3));
    if (!rgb) {
        QWARNING("QBitMap:WriteJPG(%s); no memory for RGB image buffer", name);
        return false;
    }
    GetFlippedRGB(mem, rgb, wid, hgt);

    jpeg_compress_struct cinfo;
    QJpegError err;
    std::memset(&cinfo, 0, sizeof cinfo);
    cinfo.err = QJpegErrorManager(&err, "QBitMap::WriteJPG", name);

    QOutput out;
    bool ok = Compress(&cinfo, &err, &out, rgb, wid, hgt, quality);
    jpeg_destroy_compress(&cinfo);
    qfree(rgb);
    if (!ok) return false; // the library has reported what went wrong; the old file stands
    return Finish(out, true, fileName, "WriteJPG");
}

} // namespace tarvik
