// The BMP reader on any bytes.
#include "fuzz/fuzz.h"

#include "images/qimage.h"

using namespace tarvik;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSetup();
    if (size > (1u << 20)) return 0;
    QImage image("fuzz.bmp", data, long(size)); // from memory: no file per input
    if (image.IsOK()) image.HasTransparency(); // touches every pixel the reader claims to have
    return 0;
}
