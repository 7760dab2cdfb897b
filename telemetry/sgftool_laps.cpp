// Laps of a recording and the distance within each lap.
//
// Laps come from the signal 'lap' (runs of one rounded value) where there is one, else from the
// resets of 'distance'. Where the distance restarts with each lap it already is the lap distance,
// the logger's own, and is taken as it stands (it starts a little above 0, where the line was
// crossed between two samples). Where it runs on through the laps, the velocity is integrated
// from the lap's start (trapezoids over the step), and without a velocity the distance at the
// lap's first row is subtracted.
#include "telemetry/sgftool.h"

#include "foundation/qstring.h"
#include "telemetry/analyse_signals.h"

#include <cmath>
#include <limits>

namespace tarvik {

namespace {

const float nan = std::numeric_limits<float>::quiet_NaN();

float Sample(const PSignal* s, int k) { return s && k < s->count ? s->data[k] : nan; }

// A drop of the distance counts as a new lap when it takes back at least half of what the lap
// covered so far, and a metre at least: noise on a standing car is no lap.
bool IsReset(float before, float now, float lapStart)
{
    const float covered = before - lapStart;
    return now < before - std::fmax(1.0f, 0.5f * covered);
}

// The lap a value of 'lap' names, rounded half away from zero as the text export rounds it; false
// for NaN and values outside int.
bool LapNumber(float value, int* number)
{
    const double r = std::round(double(value));
    if (!(r > -2147483648.0 && r < 2147483647.0)) return false;
    *number = int(r);
    return true;
}

} // namespace

int ToolRows(const PSignals& set) { return set.signalCount > 0 ? set.signals[0]->count : 0; }

float ToolStep(const PSignals& set) { return set.signalCount > 0 ? set.signals[0]->timestep : 0.0f; }

const char* ToolUnit(const PSignals& set, const char* channel)
{
    qstring key("unit.");
    key += channel;
    for (int i = 0; i < set.metaCount; i++)
        if (set.metaName[i] == key) return set.metaValue[i].cstr();
    return nullptr;
}

void ToolFindLaps(const PSignals& set, ToolLaps* out)
{
    const int rows = ToolRows(set);
    const float step = ToolStep(set);
    const PSignal* lap = set.FindSignal("lap");
    const PSignal* distance = set.FindSignal("distance");
    const PSignal* velocity = set.FindSignal("velocity");
    out->laps.clear();
    out->lapdist.assign(size_t(rows), 0.0f);
    out->fastest = -1;
    out->fromLapSignal = lap != nullptr;
    out->integrated = false;

    if (lap) {
        const int n = lap->count < rows ? lap->count : rows;
        for (int k = 0; k < n; k++) {
            int number;
            if (!LapNumber(lap->data[k], &number)) continue;
            if (!out->laps.empty() && out->laps.back().end == k && out->laps.back().number == number) {
                out->laps.back().end = k + 1;
            } else {
                out->laps.push_back(ToolLap{number, k, k + 1, 0.0f});
            }
        }
    } else if (distance && rows > 0) {
        int first = 0, number = 1;
        for (int k = 1; k < rows; k++) {
            if (!IsReset(Sample(distance, k - 1), Sample(distance, k), Sample(distance, first))) continue;
            out->laps.push_back(ToolLap{number++, first, k, 0.0f});
            first = k;
        }
        out->laps.push_back(ToolLap{number, first, rows, 0.0f});
    }

    // Where 'lap' says, the distance may run on through the laps: then the velocity measures them.
    bool resets = !lap || out->laps.size() < 2;
    for (size_t i = 1; i < out->laps.size() && !resets; i++) {
        const int k = out->laps[i].first;
        resets = k > 0 && Sample(distance, k) < Sample(distance, k - 1) - 1.0f;
    }
    out->integrated = !resets && velocity;

    for (ToolLap& l : out->laps) {
        float* d = &out->lapdist[0];
        if (out->integrated) {
            double sum = 0.0;
            d[l.first] = 0.0f;
            for (int k = l.first + 1; k < l.end; k++) {
                sum += 0.5 * (double(Sample(velocity, k - 1)) + double(Sample(velocity, k))) * double(step);
                d[k] = float(sum);
            }
        } else {
            const float start = resets ? 0.0f : Sample(distance, l.first);
            for (int k = l.first; k < l.end; k++) d[k] = Sample(distance, k) - start;
        }
        l.distance = d[l.end - 1];
    }

    // The fastest of the laps that cover the circuit: at least 90% of the longest lap's distance,
    // so that an out-lap or a lap cut short by the end of the recording is not taken.
    float longest = 0.0f;
    for (const ToolLap& l : out->laps)
        if (l.distance > longest) longest = l.distance;
    for (size_t i = 0; i < out->laps.size(); i++) {
        const ToolLap& l = out->laps[i];
        if (!(longest > 0.0f) || !(l.distance >= 0.9f * longest) || l.end - l.first < 2) continue;
        if (out->fastest < 0 || l.end - l.first < out->laps[size_t(out->fastest)].end - out->laps[size_t(out->fastest)].first)
            out->fastest = int(i);
    }
}

} // namespace tarvik
