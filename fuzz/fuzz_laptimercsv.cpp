// The lap timer's CSV reader on any bytes, and the export of whatever it loaded, both from memory.
#include "fuzz/fuzz.h"
#include "fuzz/fuzz_telemetry.h"

#include "telemetry/analyse_import_logger.h"
#include "telemetry/analyse_signals.h"

using namespace tarvik;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSetup();
    if (size > (1u << 24)) return 0;
    PLooksLikeLapTimerCsv(data, size);
    PSignals* set = new PSignals;
    set->fileName = "fuzz.csv";
    if (PImportLapTimerCsv(*set, "fuzz.csv", data, size)) FuzzExport(*set, size, size & 1 ? 1 : -1, uint32_t(size & 3));
    delete set;
    return 0;
}
