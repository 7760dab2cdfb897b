// The lap timer's CSV reader on any bytes, and the export of whatever it loaded, both from memory.
#include "fuzz/fuzz.h"
#include "fuzz/fuzz_telemetry.h"

#include "telemetry/analyse_import_logger.h"

using namespace tarvik;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSetup();
    return FuzzLoggerReader(PLooksLikeLapTimerCsv, PImportLapTimerCsv, "fuzz.csv", data, size);
}
