// The recording reader on any bytes, and the export of whatever it loaded.
#include "fuzz/fuzz.h"

#include "foundation/qfile.h"
#include "telemetry/analyse_export.h"
#include "telemetry/analyse_signals.h"

using namespace tarvik;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSetup();
    if (size > (1u << 24)) return 0;
    PSignals* set = new PSignals;
    set->fileName = "fuzz.sgf";
    QFile file("fuzz.sgf", const_cast<uint8_t*>(data), int(size));
    if (set->ReadSGF(file)) {
        PExportOptions options;
        options.fileName = "/dev/null";
        options.lap = size & 1 ? 1 : -1;
        options.triggerFlags = uint32_t(size & 3);
        set->ExportASCII(options);
    }
    delete set;
    return 0;
}
