// The glyph file reader of the texture fonts on any bytes, from memory. A table that passes is
// measured with every code, so that the range arithmetic meets whatever the file claims.
#include "fuzz/fuzz.h"

#include "toolkit/dtexfont.h"

using namespace tarvik;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSetup();
    if (size > (1u << 22)) return 0;
    DTexFont font;
    if (!font.LoadMemory("fuzz.tfnt", data, long(size), nullptr)) return 0;
    uint16_t codes[258];
    for (int i = 0; i < 257; i++) codes[i] = uint16_t(font.firstChar - 1 + i);
    codes[257] = 0;
    font.spacing = -1;
    volatile float sink = font.GetWidth(codes, -1) + font.GetHeight();
    font.SetPicture(nullptr);
    (void)sink;
    return 0;
}
