// The layered paint file reader on any bytes, from memory, through QImage: QPSD's load and the
// composition of its layers, the road of a texture.
#include "fuzz/fuzz.h"

#include "images/qimage.h"

using namespace tarvik;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSetup();
    if (size > (1u << 22)) return 0;
    QImage image("fuzz.psd", data, long(size));
    if (image.IsOK()) image.HasTransparency(); // touches every pixel of the canvas
    return 0;
}
