// JPEG through the system's libjpeg (API version 62).
//
// The library's own error handler ends the process. Ours turns a fatal error into a jump back to
// the reader, which reports it with the file name and returns false, and it sends the library's
// warnings to the log. A stream that ends early is a failed load: its missing lines would be grey.
#include "images/qimage.h"

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"

#include <csetjmp>
#include <cstdio>
#include <cstring>

#include <jpeglib.h>
#include <jerror.h>

namespace tarvik {

namespace {

struct JpegError {
    jpeg_error_mgr mgr; // first: the library sees a jpeg_error_mgr*
    jmp_buf jump;
    const char* fileName;
    bool truncated;
};

void OnError(j_common_ptr info)
{
    JpegError* e = reinterpret_cast<JpegError*>(info->err);
    char text[JMSG_LENGTH_MAX];
    info->err->format_message(info, text);
    QWARNING("QImage:ReadJPG(%s); %s", e->fileName, text);
    std::longjmp(e->jump, 1);
}

void OnMessage(j_common_ptr info, int level)
{
    if (level >= 0) return; // trace output
    JpegError* e = reinterpret_cast<JpegError*>(info->err);
    if (info->err->msg_code == JWRN_JPEG_EOF) e->truncated = true;
    // One report per kind of damage: a broken stream can warn on every line.
    if (info->err->num_warnings++ > 0) return;
    char text[JMSG_LENGTH_MAX];
    info->err->format_message(info, text);
    QWARNING("QImage:ReadJPG(%s); %s", e->fileName, text);
}

} // namespace

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
static bool Decode(jpeg_decompress_struct* cinfo, JpegError* err, QBitMap* bm, long fileSize, uint8_t** line)
{
    if (setjmp(err->jump)) return false;

    jpeg_read_header(cinfo, TRUE);
    const long w = long(cinfo->image_width), h = long(cinfo->image_height);
    if (w > QIMAGE_MAX_WIDTH || h > QIMAGE_MAX_WIDTH) {
        QWARNING("QImage:ReadJPG(); (%s) is %ldx%ld large; supported only upto %dx%d", err->fileName, w, h,
                 QIMAGE_MAX_WIDTH, QIMAGE_MAX_WIDTH);
        return false;
    }
    // A few hundred bytes claiming 16384x16384 would decode to a gigabyte of grey. No coded JPEG
    // packs near a thousand pixels into a byte, so the claim is weighed before the pixels exist.
    if (w * h > 1024 * fileSize + (1 << 20)) {
        QWARNING("QImage:ReadJPG(%s); %ldx%ld is more than the file holds", err->fileName, w, h);
        return false;
    }
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
        if (jpeg_read_scanlines(cinfo, rows, 1) != 1) break;
        // The first line of the stream is the top of the picture, the bitmap's last row.
        PutLine(*line, int(h - cinfo->output_scanline), bm, cinfo->num_components, err->fileName);
    }
    jpeg_finish_decompress(cinfo);
    return !err->truncated;
}

bool QImage::ReadJPG(const char* fileName)
{
    FILE* f = fileName ? qfopen(fileName, "rb") : nullptr;
    if (!f) {
        std::printf("Can't open %s\n", fileName ? fileName : "(null)");
        return false;
    }
    std::fseek(f, 0, SEEK_END);
    long fileSize = std::ftell(f);
    std::fseek(f, 0, SEEK_SET);

    jpeg_decompress_struct cinfo;
    JpegError err;
    std::memset(&cinfo, 0, sizeof cinfo);
    std::memset(&err, 0, sizeof err);
    cinfo.err = jpeg_std_error(&err.mgr);
    err.mgr.error_exit = OnError;
    err.mgr.emit_message = OnMessage;
    err.fileName = fileName;
    jpeg_CreateDecompress(&cinfo, 62, sizeof cinfo);
    jpeg_stdio_src(&cinfo, f);

    uint8_t* line = nullptr;
    bool ok = Decode(&cinfo, &err, this, fileSize, &line);
    if (line) qfree(line);
    jpeg_destroy_decompress(&cinfo);
    qfclose(f);
    return ok;
}

} // namespace tarvik
