// The disk telemetry reader on any bytes, from memory, and the export of whatever it loaded.
#include "fuzz/fuzz.h"
#include "fuzz/fuzz_telemetry.h"

#include "telemetry/analyse_import_logger.h"

using namespace tarvik;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSetup();
    return FuzzLoggerReader(PLooksLikeIbt, PImportIbt, "fuzz.ibt", data, size);
}
