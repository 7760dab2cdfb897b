// The export modifier's words file on any bytes, and its lookups.
#include "fuzz/fuzz.h"

#include "foundation/qfile.h"
#include "telemetry/analyse_modifier.h"

using namespace tarvik;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSetup();
    if (size > (1u << 20)) return 0;
    AsciiExportModifier* modifier = new AsciiExportModifier;
    QFile file("fuzz.mod", const_cast<uint8_t*>(data), int(size));
    qstring error;
    modifier->Load(file, &error);
    qstring name("speed");
    modifier->Rename(name);
    modifier->GetFactor(name);
    delete modifier;
    return 0;
}
