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

} // namespace tarvik
