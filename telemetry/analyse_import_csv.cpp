#include "telemetry/analyse_import_logger.h"

namespace tarvik {

bool PLooksLikePibosoCsv(const uint8_t*, size_t) { return false; }
bool PImportPibosoCsv(PSignals&, const char*, const uint8_t*, size_t) { return false; }
bool PLooksLikeLapTimerCsv(const uint8_t*, size_t) { return false; }
bool PImportLapTimerCsv(PSignals&, const char*, const uint8_t*, size_t) { return false; }

} // namespace tarvik
