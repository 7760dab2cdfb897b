// Shared by the telemetry fuzz targets: the export of what a reader loaded, with no file behind it.
#pragma once

#include "telemetry/analyse_export.h"
#include "telemetry/analyse_signals.h"
#include "telemetry/analyse_textout.h"

#include <cstddef>
#include <cstdint>

namespace tarvik {

// Formats the table of 'set' through the export's own code and drops the text. A table far larger
// than its input (a cut-off chunk keeps its announced length; one long signal beside a thousand
// short ones) costs milliseconds and shows nothing that a small one doesn't, so it is skipped: a
// table read from an honest input holds fewer values than twice the input's bytes.
inline void FuzzExport(PSignals& set, size_t inputSize, int32_t lap, uint32_t triggerFlags)
{
    static PTextOut sink(nullptr); // one buffer for the whole run
    const long long rows = set.signalCount > 0 ? set.signals[0]->count : 0;
    if (rows * (set.signalCount + 2) > 4096 + 2 * (long long)inputSize) return;
    PExportOptions options;
    options.fileName = "fuzz.txt";
    options.lap = lap;
    options.triggerFlags = triggerFlags;
    set.WriteASCII(sink, options, nullptr);
    sink.Flush();
}

// One reader of another logger's files on any bytes: its test of the first bytes, its import, and
// the export of whatever it loaded.
inline int FuzzLoggerReader(bool (*looksLike)(const uint8_t*, size_t),
                            bool (*read)(PSignals&, const char*, const uint8_t*, size_t), const char* name,
                            const uint8_t* data, size_t size)
{
    if (size > (1u << 24)) return 0;
    looksLike(data, size);
    PSignals* set = new PSignals;
    set->fileName = name;
    if (read(*set, name, data, size)) FuzzExport(*set, size, size & 1 ? 1 : -1, uint32_t(size & 3));
    delete set;
    return 0;
}

} // namespace tarvik
