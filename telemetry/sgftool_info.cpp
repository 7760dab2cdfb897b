// The summary of a recording for a reader: properties, rate, channels with their range, laps.
#include "telemetry/sgftool.h"

#include "telemetry/analyse_signals.h"

#include <cmath>
#include <cstring>

namespace tarvik {

void ToolWriteInfo(FILE* out, const PSignals& set, const ToolLaps& laps)
{
    std::fprintf(out, "%s\n", set.fileName.cstr());
    std::fprintf(out, "  properties: %d\n", set.propertyCount);
    for (int i = 0; i < set.propertyCount; i++)
        std::fprintf(out, "    %s = %s\n", set.propertyName[i].cstr(), set.propertyValue[i].cstr());
    const int rows = ToolRows(set);
    const float step = ToolStep(set);
    if (step > 0.0f) {
        std::fprintf(out, "  sample rate: %g Hz (step %g s), %d rows, %.3f s\n", 1.0 / double(step), double(step),
                     rows, double(rows) * double(step));
    } else {
        std::fprintf(out, "  sample rate: unknown (step %g s), %d rows\n", double(step), rows);
    }

    int width = 7;
    for (int i = 0; i < set.signalCount; i++) {
        const int n = int(std::strlen(set.signals[i]->GetId()));
        if (n > width) width = n;
    }
    std::fprintf(out, "  channels: %d\n", set.signalCount);
    std::fprintf(out, "    %-*s %-8s %10s %14s %14s\n", width, "channel", "unit", "samples", "minimum", "maximum");
    for (int i = 0; i < set.signalCount; i++) {
        const PSignal* s = set.signals[i];
        float lo = INFINITY, hi = -INFINITY;
        for (int k = 0; k < s->count; k++) {
            const float v = s->data[k];
            if (v < lo) lo = v; // NaN compares false and is left out
            if (v > hi) hi = v;
        }
        const char* unit = ToolUnit(set, s->GetId());
        if (lo > hi) {
            std::fprintf(out, "    %-*s %-8s %10d %14s %14s\n", width, s->GetId(), unit ? unit : "-", s->count, "-", "-");
        } else {
            std::fprintf(out, "    %-*s %-8s %10d %14.6g %14.6g\n", width, s->GetId(), unit ? unit : "-", s->count,
                         double(lo), double(hi));
        }
    }

    std::fprintf(out, "  laps: %d (%s)\n", int(laps.laps.size()),
                 laps.fromLapSignal ? "signal 'lap'" : "resets of 'distance'");
    if (laps.laps.empty()) return;
    std::fprintf(out, "    %5s %12s %12s %12s\n", "lap", "start[s]", "time[s]", "distance[m]");
    for (size_t i = 0; i < laps.laps.size(); i++) {
        const ToolLap& l = laps.laps[i];
        std::fprintf(out, "    %5d %12.3f %12.3f %12.1f%s\n", l.number, double(l.first) * double(step),
                     double(l.end - l.first) * double(step), double(l.distance),
                     int(i) == laps.fastest ? "  fastest" : "");
    }
}

} // namespace tarvik
