// The Targa reader on any bytes, from memory, both roads: that of a program without an application
// (the slow road, which accepts an unknown kind) and that of the application.
#include "fuzz/fuzz.h"

#include "foundation/qapphooks.h"
#include "images/qimage.h"

using namespace tarvik;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSetup();
    if (size > (1u << 20)) return 0;
    {
        QImage slow("fuzz.tga", data, long(size));
        if (slow.IsOK()) slow.HasTransparency();
    }
    static const QAppHooks app = {};
    qappHooks = &app;
    {
        QImage fast("fuzz.tga", data, long(size));
        if (fast.IsOK()) fast.HasTransparency();
    }
    qappHooks = nullptr;
    return 0;
}
