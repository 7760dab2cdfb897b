// Readers of other data loggers' exports into a signal set.
//
// Each reader works on the whole file in memory, never trusts it, and maps the logger's channels
// and units onto the names and units of this system ("time", "distance", "velocity" m/s, "rpm",
// "gear", "throttle" and "brake" 0..1, "steering" degrees, "acc_x"/"acc_z" m/s^2, "lap", "sector");
// every other channel keeps its own name. Units go into meta-properties "unit.<channel>". All
// signals of one import have the same count and time step, so that the export reads them as rows.
// A reader reports why it failed, in its own words with the name, and returns false; the set then
// holds what it held before or less, never a half signal.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarvik {

class PSignals;

// The binary disk telemetry of a racing simulator (".ibt": header, variable table, session text
// in YAML, fixed-rate records).
bool PLooksLikeIbt(const uint8_t* data, size_t size);
bool PImportIbt(PSignals& set, const char* name, const uint8_t* data, size_t size);

// The CSV export of a kart simulator's logger (first line "PiBoSo CSV File" or similar head).
bool PLooksLikePibosoCsv(const uint8_t* data, size_t size);
bool PImportPibosoCsv(PSignals& set, const char* name, const uint8_t* data, size_t size);

// The "CSV v3" export of a lap timing app: irregular time stamps, resampled to a regular base.
bool PLooksLikeLapTimerCsv(const uint8_t* data, size_t size);
bool PImportLapTimerCsv(PSignals& set, const char* name, const uint8_t* data, size_t size);

} // namespace tarvik
