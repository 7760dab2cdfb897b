// The text import on any bytes, and the export of whatever it loaded, both from memory.
#include "fuzz/fuzz.h"
#include "fuzz/fuzz_telemetry.h"

#include "foundation/qfile.h"
#include "telemetry/analyse_signals.h"

using namespace tarvik;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSetup();
    if (size > (1u << 22)) return 0;
    PSignals* set = new PSignals;
    set->fileName = "fuzz.txt";
    QFile file("fuzz.txt", const_cast<uint8_t*>(data), int(size));
    if (set->ReadASCII(file)) FuzzExport(*set, size, -1, 0);
    delete set;
    return 0;
}
