// JPEG through the system's libjpeg (API version 62).
//
// The library's errors come back through the manager of qjpeg.h as a failed load with a report,
// never an exit. A stream that ends early is a failed load too: its missing lines would be grey.
// The file is decoded from its block in memory, and its size bounds the decoder's work (qjpeg.h).
#include "images/qimage.h"

#include "images/qimage_file.h"
#include "images/qjpeg.h"

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"

#include <csetjmp>
#include <cstdio>
#include <cstring>

namespace tarvik {

// Plain static functions rather than members of an unnamed namespace: the log names them as they
// stand ("PutLine"), as it names the reader.

// One decoded line into bitmap row 'row' by the number of components.
static void PutLine(const uint8_t* s, int row, QBitMap* bm, int components, const char* name)
{
    uint8_t* d = bm->GetAddress(0, row);
    const int w = bm->GetWidth();
    switch (components) {
    case 3:
        for (int x = 0; x < w; x++, s += 3, d += 4) {
            d[0] = s[0]; d[1] = s[1]; d[2] = s[2]; d[3] = 255;
        }
        break;
    case 4:
        for (int x = 0; x < w; x++, s += 4, d += 4) {
            d[0] = s[0]; d[1] = s[1]; d[2] = s[2]; d[3] = 255;
        }
        break;
    case 1:
        for (int x = 0; x < w; x++, s++, d += 4) {
            d[0] = d[1] = d[2] = *s; d[3] = 255;
        }
        break;
    default:
        QWARNING("QImage:ReadJPG(%s); unsupported number of components (%d)", name, components);
        break;
    }
}

// The part that the library may leave by a jump. It owns nothing that needs a destructor; what it
// allocates is in 'line', which the caller frees whatever way this ends.
static bool Decode(jpeg_decompress_struct* cinfo, QJpegError* err, QJpegLimits* limits, QBitMap* bm,
                   const uint8_t* data, long size, uint8_t** line)
{
    if (setjmp(err->jump)) return false;

    jpeg_CreateDecompress(cinfo, 62, sizeof *cinfo);
    jpeg_mem_src(cinfo, data, (unsigned long)size);
    jpeg_read_header(cinfo, TRUE);
    const long w = long(cinfo->image_width), h = long(cinfo->image_height);
    if (w > QIMAGE_MAX_WIDTH || h > QIMAGE_MAX_WIDTH) {
        QWARNING("QImage:ReadJPG(); (%s) is %ldx%ld large; supported only upto %dx%d", err->fileName, w, h,
                 QIMAGE_MAX_WIDTH, QIMAGE_MAX_WIDTH);
        return false;
    }
    // A few hundred bytes claiming 16384x16384 would decode to a gigabyte of grey. No coded JPEG
    // packs near a thousand pixels into a byte, so the claim is weighed before the pixels exist.
    if (w * h > 1024 * size + (1 << 20)) {
        QWARNING("QImage:ReadJPG(%s); %ldx%ld is more than the file holds", err->fileName, w, h);
        return false;
    }
    if (!QJpegLimitDecompress(cinfo, limits, err, size)) return false;
    if (!bm->Alloc(32, int(w), int(h), 0, nullptr)) {
        QWARNING("QImage:ReadJPG(); (%s) out of memory", err->fileName);
        return false;
    }

    jpeg_start_decompress(cinfo);
    // Sized by the decoder's own line, so that no number of components can overrun it.
    *line = static_cast<uint8_t*>(qmalloc(size_t(cinfo->output_width) * cinfo->output_components + 16));
    if (!*line) {
        QWARNING("QImage:ReadJPG(); (%s) out of memory", err->fileName);
        return false;
    }
    while (cinfo->output_scanline < cinfo->output_height) {
        JSAMPROW rows[1] = {*line};
        if (jpeg_read_scanlines(cinfo, rows, 1) != 1) break; // finishing then reports the short picture
        // The first line of the stream is the top of the picture, the bitmap's last row.
        PutLine(*line, int(h - cinfo->output_scanline), bm, cinfo->num_components, err->fileName);
    }
    jpeg_finish_decompress(cinfo);
    return true;
}

bool QImage::ReadJPG(const char* fileName)
{
    uint8_t* data;
    long size;
    QImageLoad got = QImageLoadFile(fileName, &data, &size);
    if (got == QIMAGE_LOAD_MISSING) {
        std::printf("Can't open %s\n", fileName ? fileName : "(null)");
        return false;
    }
    if (got == QIMAGE_LOAD_NO_MEMORY) {
        QWARNING("QImage:ReadJPG(); (%s) out of memory", fileName);
        return false;
    }
    bool ok = DecodeJPG(fileName, data, size);
    qfree(data);
    return ok;
}

bool QImage::DecodeJPG(const char* fileName, const uint8_t* data, long size)
{
    jpeg_decompress_struct cinfo;
    QJpegError err;
    QJpegLimits limits; // the decoder's progress monitor while it runs
    std::memset(&cinfo, 0, sizeof cinfo);
    cinfo.err = QJpegErrorManager(&err, "QImage:ReadJPG", fileName);

    uint8_t* line = nullptr;
    bool ok = Decode(&cinfo, &err, &limits, this, data, size, &line);
    if (line) qfree(line);
    jpeg_destroy_decompress(&cinfo); // also after a jump, and after a failed creation
    return ok;
}

} // namespace tarvik
