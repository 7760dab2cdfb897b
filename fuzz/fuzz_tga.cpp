// The Targa reader on any bytes, both roads: the plain file and, with an application, the block in
// memory.
#include "fuzz/fuzz.h"

#include "foundation/qapphooks.h"
#include "images/qimage.h"

using namespace tarvik;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSetup();
    if (size > (1u << 20)) return 0;
    const char* name = FuzzWriteFile(".tga", data, size);
    {
        QImage slow(name);
        if (slow.IsOK()) slow.HasTransparency();
    }
    static const QAppHooks app = {};
    qappHooks = &app;
    {
        QImage fast(name);
        if (fast.IsOK()) fast.HasTransparency();
    }
    qappHooks = nullptr;
    return 0;
}
