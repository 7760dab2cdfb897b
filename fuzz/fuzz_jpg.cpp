// The JPEG reader on any bytes.
#include "fuzz/fuzz.h"

#include "images/qimage.h"

using namespace tarvik;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSetup();
    if (size > (1u << 12)) return 0; // each byte may stand for a thousand pixels
    QImage image("fuzz.jpg", data, long(size)); // from memory: no file per input
    if (image.IsOK()) image.HasTransparency(); // touches every pixel the reader claims to have
    return 0;
}
