#include "telemetry/analyse_import_logger.h"

namespace tarvik {

bool PLooksLikeIbt(const uint8_t*, size_t) { return false; }
bool PImportIbt(PSignals&, const char*, const uint8_t*, size_t) { return false; }

} // namespace tarvik
