// The recording reader on any bytes, and the export of whatever it loaded, both from memory.
#include "fuzz/fuzz.h"
#include "fuzz/fuzz_telemetry.h"

#include "foundation/qfile.h"
#include "telemetry/analyse_signals.h"

using namespace tarvik;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSetup();
    if (size > (1u << 24)) return 0;
    PSignals* set = new PSignals;
    set->fileName = "fuzz.sgf";
    QFile file("fuzz.sgf", const_cast<uint8_t*>(data), int(size));
    if (set->ReadSGF(file)) FuzzExport(*set, size, size & 1 ? 1 : -1, uint32_t(size & 3));
    delete set;
    return 0;
}
