// QImage: a QBitMap that fills itself from an image file when it is constructed.
//
// The reader is picked by the letters in the name (".TGA" anywhere in it, whatever the case), and
// every reader leaves a 32-bit bitmap in the one layout of QBitMap, whatever the file held. Failure
// is no exception: the object stays, holds what was loaded, and IsOK() says false.
//
// Files come from anywhere. Every reader loads the file into one block and decodes from it through
// bounds that know the end of the data, and checks the size a header claims against the bytes the
// file has before it allocates pixels: a few bytes claiming 16384x16384 are refused, not allocated.
// A file already in memory goes the same road from its block (ReadMemory), with no file opened.
#pragma once

#include "images/qbitmap.h"

#include <cstdint>

namespace tarvik {

enum {
    QIMAGE_RGB = 0,
    QIMAGE_TGA = 1,
    QIMAGE_UNKNOWN = 2,
    QIMAGE_JPG = 3,
    QIMAGE_BMP = 4,
    QIMAGE_PSD = 5,
    QIMAGE_MIP = 6,
    QIMAGE_PNG = 7,
};

enum { QIMAGE_MAX_WIDTH = 16384 }; // widest RGB, Targa and JPEG accepted; JPEG height too

// The 108 bytes at the head of an SGI RGB file, numbers already in the machine's order.
struct QRGBHeader {
    uint16_t imagic;
    uint16_t type;
    uint16_t dim;
    uint16_t xsize;
    uint16_t ysize;
    uint16_t zsize;
    uint32_t min;
    uint32_t max;
    uint32_t wasteBytes;
    char name[80];
    uint32_t colorMap;
};

// The 18 bytes at the head of a Targa, in the three groups it is read in.
struct QTGAHeader {
    uint8_t idLength;
    uint8_t colorMapType;
    uint8_t imageType;
    uint8_t colorMapSpec[5];
    int16_t xOrigin;
    int16_t yOrigin;
    int16_t width;
    int16_t height;
    uint8_t pixDepth;
    uint8_t descriptor; // bit value 32: the first row in the file is the top of the picture
};

class QImage : public QBitMap {
public:
    QImage(const char* fileName, int depth = 0, int wid = 0, int hgt = 0, int flags = 0);
    // A file already in memory, named 'name' for the choice of reader and for the reports; the
    // block is only read, and not kept.
    QImage(const char* name, const uint8_t* data, long size);
    ~QImage() override;

    const char* ClassName() const override { return "QImage"; }
    void DbgReport() const override; // "@%p: Object %s (class %s) fileName='%s'\n"

    bool IsOK() const { return error == 0; }

    bool Read(const char* fileName);
    bool ReadMemory(const char* name, const uint8_t* data, long size); // the reader Read would pick
    static int GetImageFileType(const char* fileName);

    bool ReadRGB(const char* fileName);
    bool ReadTGA(const char* fileName);     // from memory, through the application's file system
    bool ReadTGASlow(const char* fileName); // from a plain file
    bool ReadBMP(const char* fileName);
    bool ReadJPG(const char* fileName);
    bool ReadMIP(const char* fileName);
    bool ReadPSD(const char* fileName);

    bool ReadRGBHeader(const char* fileName, QRGBHeader* header); // sets byteSwap
    static bool ReadTGAHeader(const char* fileName, QTGAHeader* header);

private:
    // The readers from the file's bytes; the Read functions load the file whole and call these.
    bool DecodeRGB(const char* fileName, const uint8_t* data, long size);
    void ParseRGBHeader(const uint8_t* raw, QRGBHeader* header); // 108 bytes; sets byteSwap
    bool DecodeTGA(const char* fileName, const uint8_t* data, long size, bool slow);
    bool DecodeBMP(const char* fileName, const uint8_t* data, long size);
    bool DecodeJPG(const char* fileName, const uint8_t* data, long size);
    bool DecodeMIP(const char* fileName, const uint8_t* data, long size);
    bool DecodePSD(const char* fileName, const uint8_t* data, long size);

    bool byteSwap; // the RGB file's numbers are big-endian
    int32_t error; // 0 after a good load, 1 after a failed one
};

} // namespace tarvik
