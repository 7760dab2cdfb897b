#include "images/qimage.h"

#include "images/qimage_file.h"
#include "images/qpsd.h"

#include "foundation/qapphooks.h"
#include "foundation/qfile.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "platform/platform.h"

#include <climits>
#include <cstdio>
#include <cstring>

namespace tarvik {

QImageLoad QImageLoadFile(const char* name, uint8_t** data, long* size)
{
    *data = nullptr;
    *size = 0;
    // Only a regular file: a folder would seek to a size no file has, and a pipe would hold the
    // load until a writer came. Both read as a file that isn't there.
    bool notRegular = false;
    FILE* f = name ? PlatformOpenRegularFile(name, &notRegular) : nullptr;
    if (!f) return QIMAGE_LOAD_MISSING;
    long length = -1;
    if (std::fseek(f, 0, SEEK_END) == 0) length = std::ftell(f);
    std::fseek(f, 0, SEEK_SET);
    // One byte more than the file: an empty file still gets a block to point at.
    uint8_t* block = length >= 0 && length < INT_MAX ? static_cast<uint8_t*>(qmalloc(size_t(length) + 1)) : nullptr;
    if (!block) {
        std::fclose(f);
        return QIMAGE_LOAD_NO_MEMORY;
    }
    size_t got = std::fread(block, 1, size_t(length), f);
    std::fclose(f);
    *data = block;
    *size = long(got); // a file that shrank under us holds what could be read
    return QIMAGE_LOAD_OK;
}

QImage::QImage(const char* fileName, int depth_, int wid_, int hgt_, int flags_)
    : QBitMap(depth_, wid_, hgt_, flags_), byteSwap(false), error(0)
{
    SetName(fileName);
    error = Read(fileName) ? 0 : 1;
    if (error) QWARNING("QImage ctor: can't load '%s'", fileName ? fileName : "(null)");
}

QImage::QImage(const char* name, const uint8_t* data, long size)
    : QBitMap(0, 0, 0, 0), byteSwap(false), error(0)
{
    SetName(name);
    error = ReadMemory(name, data, size) ? 0 : 1;
    if (error) QWARNING("QImage ctor: can't load '%s'", name ? name : "(null)");
}

QImage::~QImage() {}

void QImage::DbgReport() const
{
    const char* name = GetName();
    const char* file = std::strcmp(name, "<null-named>") == 0 ? "<undefined>" : name;
    QINFO("@%p: Object %s (class %s) fileName='%s'\n", static_cast<const void*>(this), name, ClassName(), file);
}

int QImage::GetImageFileType(const char* fileName)
{
    char upper[256];
    std::snprintf(upper, sizeof upper, "%s", fileName ? fileName : "");
    qstrupr(upper);
    static const struct { const char* text; int type; } kinds[] = {
        {".RGB", QIMAGE_RGB}, {".TGA", QIMAGE_TGA}, {".JPG", QIMAGE_JPG}, {".JPE", QIMAGE_JPG},
        {".PSD", QIMAGE_PSD}, {".MIP", QIMAGE_MIP}, {".PNG", QIMAGE_PNG}, {".BMP", QIMAGE_BMP},
    };
    for (const auto& k : kinds)
        if (std::strstr(upper, k.text)) return k.type;
    return QIMAGE_UNKNOWN;
}

bool QImage::Read(const char* fileName)
{
    switch (GetImageFileType(fileName)) {
    case QIMAGE_RGB: return ReadRGB(fileName);
    case QIMAGE_TGA: return ReadTGA(fileName);
    case QIMAGE_JPG: return ReadJPG(fileName);
    case QIMAGE_BMP: return ReadBMP(fileName);
    case QIMAGE_PSD: return ReadPSD(fileName);
    case QIMAGE_MIP: return ReadMIP(fileName);
    case QIMAGE_PNG: return true; // recognised, but there is no reader: nothing is loaded
    default: return false;
    }
}

bool QImage::ReadMemory(const char* name, const uint8_t* data, long size)
{
    static const uint8_t none = 0; // the decoders may point at an empty file's block
    if (!data || size < 0) data = &none, size = 0;
    switch (GetImageFileType(name)) {
    case QIMAGE_RGB: return DecodeRGB(name, data, size);
    case QIMAGE_TGA: return DecodeTGA(name, data, size, !qappHooks); // the road ReadTGA would take
    case QIMAGE_JPG: return DecodeJPG(name, data, size);
    case QIMAGE_BMP: return DecodeBMP(name, data, size);
    case QIMAGE_PSD: return DecodePSD(name, data, size);
    case QIMAGE_MIP: return DecodeMIP(name, data, size);
    case QIMAGE_PNG: return true;
    default: return false;
    }
}

bool QImage::ReadPSD(const char* fileName)
{
    uint8_t* data;
    long size;
    if (QImageLoadFile(fileName, &data, &size) != QIMAGE_LOAD_OK) {
        QWARNING("QImage: can't read PSD '%s'\n", fileName ? fileName : "(null)");
        return false;
    }
    bool ok = DecodePSD(fileName, data, size);
    qfree(data);
    return ok;
}

// The layers of the file composed into this bitmap. A file whose layers could not all be read
// still gives the picture of its canvas, blank where nothing was read; only no canvas is a failure.
bool QImage::DecodePSD(const char* fileName, const uint8_t* data, long size)
{
    QPSD psd(nullptr);
    if (size <= INT_MAX) {
        QFile file(fileName, const_cast<uint8_t*>(data), int(size)); // only read, never freed
        psd.Load(file);
    }
    if ((long long)psd.GetRows() * psd.GetColumns() == 0) {
        QWARNING("QImage: can't read PSD '%s'\n", fileName ? fileName : "(null)");
        return false;
    }
    if (!Alloc(32, psd.GetColumns(), psd.GetRows(), 0, nullptr)) return false;
    psd.Render(this);
    return true;
}

} // namespace tarvik
