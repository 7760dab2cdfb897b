// Tree files on any bytes, read from memory: parse, look up, iterate, change, and write to a device
// that swallows it, so that no input touches the file system.
#include "fuzz/fuzz.h"

#include "foundation/qinfo.h"

using namespace tarvik;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSetup();
    if (size > (1u << 20)) return 0;
    QInfo info("fuzz.ini", data, int(size), QInfo::QIF_SILENT);
    char value[QInfo::MAX_PATH];
    info.GetString("a.b", value, "x");
    info.GetInt("a", 0);
    info.GetFloat("a.c", 0.0f);
    float floats[3];
    info.GetFloats("color", 3, floats, nullptr);
    QInfoIterator it(&info, nullptr);
    qstring p;
    int steps = 0;
    while (it.GetNext(p, true) && steps++ < 100000) info.GetString(p.cstr(), value, nullptr);
    info.SetString("z.y", "1");
    info.Write("/dev/null", false);
    return 0;
}
