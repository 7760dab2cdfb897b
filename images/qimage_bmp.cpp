// BMP: uncompressed 24-bit colour and 8-bit grey. Rows are padded to four bytes as the format has
// them; a negative height marks a picture stored from the top row down. The palette of an 8-bit
// file is not used: its index is taken as the grey value.
#include "images/qimage.h"

#include "images/qimage_file.h"

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"

namespace tarvik {

bool QImage::ReadBMP(const char* fileName)
{
    uint8_t* data;
    long size;
    QImageLoad got = QImageLoadFile(fileName, &data, &size);
    if (got == QIMAGE_LOAD_MISSING) return false;
    if (got == QIMAGE_LOAD_NO_MEMORY) {
        QWARNING("QImage:ReadBMP(); (%s) out of memory", fileName);
        return false;
    }
    bool ok = DecodeBMP(fileName, data, size);
    qfree(data);
    return ok;
}

bool QImage::DecodeBMP(const char* fileName, const uint8_t* data, long size)
{
    // File header (14 bytes) and the first 40 bytes of the information header; a short file reads
    // zeros past its end, which the checks below refuse.
    uint8_t head[54] = {};
    for (long i = 0; i < 54 && i < size; i++) head[i] = data[i];
    const uint32_t offBits = QGetLE32(head + 10);
    const int32_t biWidth = int32_t(QGetLE32(head + 18));
    const int32_t biHeight = int32_t(QGetLE32(head + 22));
    const int bitCount = QGetLE16(head + 28);
    const int compression = int(QGetLE32(head + 30));

    const bool topDown = biHeight < 0;
    const long long width = biWidth;
    const long long height = topDown ? -(long long)biHeight : biHeight;
    const bool supported = compression == 0 && (bitCount == 24 || bitCount == 8);
    const long long stride = (width * (supported ? bitCount : 8) + 31) / 32 * 4;
    const long long left = size > long(offBits) ? size - long(offBits) : 0;
    // A supported kind must hold all its rows (the last one may lack its padding). A kind without a
    // decoder still gets a bitmap of its size, but only a size its compression could reach: a
    // run-length pair of bytes gives at most 255 pixels. The sides are checked first: with both
    // below 2^31 and the width below 2^29 no product here leaves 64 bits.
    const bool sides = width > 0 && height > 0 && width <= 0x7FFFFFFF / 4;
    const long long need = !sides ? 0
                          : supported ? stride * (height - 1) + (width * bitCount + 7) / 8
                          : width * height / 128;
    if (!sides || need > left) {
        QWARNING("QImage:ReadBMP(%s); %lldx%lld is more than the file holds", fileName, width, height);
        return false;
    }

    if (!Alloc(32, int(width), int(height), 0, nullptr)) {
        QWARNING("QImage:ReadBMP(); (%s) out of memory", fileName);
        return false;
    }
    if (!supported) {
        QWARNING("QImage:ReadBMP(%s); unsupported #bits (%d) or compression (%d)", fileName, bitCount, compression);
        return true;
    }

    const int w = int(width), h = int(height);
    const uint8_t* rows = data + offBits;
    for (int y = 0; y < h; y++) {
        const uint8_t* s = rows + stride * y;
        uint8_t* d = mem + size_t(w) * 4 * size_t(topDown ? h - 1 - y : y);
        if (bitCount == 24) {
            for (int x = 0; x < w; x++, s += 3, d += 4) {
                d[0] = s[2]; d[1] = s[1]; d[2] = s[0]; d[3] = 255;
            }
        } else {
            for (int x = 0; x < w; x++, s++, d += 4) {
                d[0] = d[1] = d[2] = *s; d[3] = 255;
            }
        }
    }
    return true;
}

} // namespace tarvik
