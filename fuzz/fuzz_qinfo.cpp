// Tree files on any bytes: parse, look up, iterate, write back to memory-backed temporary storage.
#include "fuzz/fuzz.h"

#include "foundation/qinfo.h"

#include <cstdio>
#include <string>
#include "platform/platform.h"

using namespace tarvik;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSetup();
    if (size > (1u << 20)) return 0;
    static const std::string path = "/dev/shm/tarvik-fuzz-qinfo-" + std::to_string(PlatformProcessId()) + ".ini";
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return 0;
    std::fwrite(data, 1, size, f);
    std::fclose(f);

    QInfo* info = new QInfo(path.c_str(), QInfo::QIF_SILENT);
    char value[QInfo::MAX_PATH];
    info->GetString("a.b", value, "x");
    info->GetInt("a", 0);
    info->GetFloat("a.c", 0.0f);
    float floats[3];
    info->GetFloats("color", 3, floats, nullptr);
    QInfoIterator it(info, nullptr);
    qstring p;
    int steps = 0;
    while (it.GetNext(p, true) && steps++ < 100000) info->GetString(p.cstr(), value, nullptr);
    info->SetString("z.y", "1");
    info->Write(path.c_str(), false);
    delete info;
    std::remove(path.c_str());
    return 0;
}
