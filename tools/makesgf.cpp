// makesgf: writes a plausible car recording as an .sgf file, or as a data logger's table.
//
//   makesgf <file.sgf> [laps] [rate_hz] [extra_channels] [samples]
//   makesgf <file.txt> [laps] [rate_hz]      (tab-separated, the measuring tool's columns and units)
//
// A car drives laps of a fictional 2.4 km circuit: a speed profile limited by grip in the corners,
// by engine power and by braking, integrated over distance and sampled at a fixed rate. The
// channels are what a data logger records (time, lap distance, speed, rpm, gear, pedals, steering,
// g-forces, lap, sector, lap time) plus slowly drifting filler channels on request. The output is
// the same for the same arguments on every machine.
#include "tools/sgfwriter.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

using namespace tarvik;

namespace {

struct Segment {
    float length; // m
    float radius; // m; 0 for a straight
    float turn;   // +1 right, -1 left
};

// Start/finish straight, a hairpin, an esses, a long right, the back straight, a chicane, a sweeper.
const Segment track[] = {
    {420, 0, 0},   {90, 35, 1},  {180, 0, 0}, {70, 60, -1}, {70, 55, 1},   {120, 0, 0}, {220, 140, 1},
    {510, 0, 0},   {40, 28, -1}, {35, 30, 1}, {160, 0, 0},  {260, 180, -1}, {225, 0, 0},
};

const float gravity = 9.81f;
const float gripLat = 1.45f * gravity;  // m/s^2 of cornering grip
const float brakeDecel = 1.3f * gravity;
const float vmax = 72.0f;               // m/s
const float wheelRadius = 0.31f;
const float finalDrive = 3.9f;
const float gears[] = {3.2f, 2.25f, 1.7f, 1.35f, 1.1f, 0.92f};

float Accel(float v) { return std::fmax(0.4f, 7.5f * (1.0f - v / vmax)); } // engine-limited

// A small deterministic noise source, so that the channels look measured.
struct Noise {
    uint32_t state = 12345;
    float Next()
    {
        state = state * 1664525u + 1013904223u;
        return float((state >> 8) & 0xFFFF) / 65535.0f - 0.5f;
    }
};

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: makesgf <file.sgf|file.txt> [laps] [rate_hz] [extra_channels] [samples]\n");
        return 2;
    }
    const int laps = argc > 2 ? std::atoi(argv[2]) : 3;
    const float rate = argc > 3 ? float(std::atof(argv[3])) : 20.0f;
    const int extra = argc > 4 ? std::atoi(argv[4]) : 0;
    const long samples = argc > 5 ? std::atol(argv[5]) : 0; // > 0: exactly this many, laps as needed
    if (laps < 1 || rate <= 0.0f || extra < 0 || extra > 900 || samples < 0 || samples > 100000000) {
        std::fprintf(stderr, "makesgf: laps >= 1, rate > 0, 0 <= extra_channels <= 900, 0 <= samples <= 1e8\n");
        return 2;
    }

    // The track at 1 m resolution: curvature and the speed the grip allows.
    std::vector<float> curvature, limit;
    std::vector<int> sectorAt;
    int segmentIndex = 0;
    for (const Segment& s : track) {
        for (int m = 0; m < int(s.length); m++) {
            curvature.push_back(s.radius > 0 ? s.turn / s.radius : 0.0f);
            limit.push_back(s.radius > 0 ? std::fmin(vmax, std::sqrt(gripLat * s.radius)) : vmax);
            sectorAt.push_back(segmentIndex < 5 ? 0 : segmentIndex < 9 ? 1 : 2);
        }
        segmentIndex++;
    }
    const int lapLength = int(limit.size());

    // Speed profile: forward pass for acceleration, backward pass for braking, over a closed lap.
    std::vector<float> v(limit);
    for (int pass = 0; pass < 2; pass++)
        for (int i = 1; i <= lapLength; i++) {
            float prev = v[size_t(i - 1)];
            float& cur = v[size_t(i % lapLength)];
            cur = std::fmin(cur, std::sqrt(prev * prev + 2.0f * Accel(prev)));
        }
    for (int pass = 0; pass < 2; pass++)
        for (int i = lapLength - 1; i >= 0; i--) {
            float next = v[size_t((i + 1) % lapLength)];
            v[size_t(i)] = std::fmin(v[size_t(i)], std::sqrt(next * next + 2.0f * brakeDecel));
        }

    // Drive: integrate the profile over time, sampling at the rate.
    SgfWriter w;
    std::vector<float> ch[13];
    enum { TIME, DIST, VEL, RPM, GEAR, THR, BRK, STEER, ACCX, ACCZ, LAP, SECTOR, LAPTIME };
    Noise noise;
    const float dt = 1.0f / rate;
    double position = 0.0; // metres from the start of the first lap
    double lapStart = 0.0;
    int lap = 1;
    float prevSpeed = v[0];
    for (long n = 0; samples == 0 || n < samples; n++) {
        int metre = int(position) % lapLength;
        float speed = v[size_t(metre)];
        float along = float(position - std::floor(position));
        speed += (v[size_t((metre + 1) % lapLength)] - speed) * along;
        float accel = (speed - prevSpeed) / dt;
        prevSpeed = speed;

        float wheelRpm = speed / (2.0f * 3.14159265f * wheelRadius) * 60.0f;
        int gear = 1;
        while (gear < 6 && wheelRpm * finalDrive * gears[gear - 1] > 6800.0f) gear++;
        float rpm = std::fmax(1100.0f, wheelRpm * finalDrive * gears[gear - 1]);

        float t = float(n) * dt;
        ch[TIME].push_back(t);
        ch[DIST].push_back(float(position - lapStart));
        ch[VEL].push_back(speed + 0.05f * noise.Next());
        ch[RPM].push_back(std::round(rpm + 15.0f * noise.Next()));
        ch[GEAR].push_back(float(gear));
        ch[THR].push_back(accel > -0.5f ? std::fmin(1.0f, 0.25f + std::fmax(0.0f, accel) / 6.0f) : 0.0f);
        ch[BRK].push_back(accel < -2.0f ? std::fmin(1.0f, -accel / brakeDecel) : 0.0f);
        ch[STEER].push_back(curvature[size_t(metre)] * 2.7f * 15.0f * 57.29578f + 0.3f * noise.Next());
        ch[ACCX].push_back(speed * speed * curvature[size_t(metre)] + 0.2f * noise.Next());
        ch[ACCZ].push_back(accel + 0.2f * noise.Next());
        ch[LAP].push_back(float(lap));
        ch[SECTOR].push_back(float(sectorAt[size_t(metre)]));
        ch[LAPTIME].push_back(0.0f); // filled below

        position += double(speed) * dt;
        if (position - lapStart >= lapLength) {
            if (lap == laps && samples == 0) break;
            lapStart += lapLength;
            lap++;
        }
    }
    // Lap time: the time since the last start of a lap.
    float lapBegin = 0.0f;
    for (size_t i = 0; i < ch[TIME].size(); i++) {
        if (i > 0 && ch[LAP][i] != ch[LAP][i - 1]) lapBegin = ch[TIME][i];
        ch[LAPTIME][i] = ch[TIME][i] - lapBegin;
    }

    static const char* const names[] = {"time",     "distance", "velocity", "rpm", "gear",   "throttle", "brake",
                                        "steering", "acc_x",    "acc_z",    "lap", "sector", "laptime"};
    for (int c = 0; c < 13; c++) w.Add(names[c], ch[c]);
    for (int e = 0; e < extra; e++) {
        std::vector<float> filler(ch[TIME].size());
        float base = 60.0f + float(e % 40);
        for (size_t i = 0; i < filler.size(); i++)
            filler[i] = base + 5.0f * std::sin(float(i) * 0.001f * float(e + 1)) + 0.1f * noise.Next();
        w.Add("aux" + std::to_string(e), filler);
    }

    const std::string out = argv[1];
    if (out.size() < 4 || out.compare(out.size() - 4, 4, ".sgf") != 0) {
        // The measuring tool's table: its own channel names and units (km/h, %, rad, g, "s:ms").
        FILE* f = std::fopen(out.c_str(), "wb");
        if (!f) {
            std::fprintf(stderr, "makesgf: can't write %s\n", out.c_str());
            return 1;
        }
        std::fprintf(f, "Time\tLAP_DI\tLAPTIM\tLAP\tVVEH\tRPM\tGEAR\tTHROTTLE\tBRAKE\tSTEER\tACC_X\tACC_Y\n");
        for (size_t i = 0; i < ch[TIME].size(); i++) {
            int ms = int(std::lround(double(ch[LAPTIME][i]) * 1000.0));
            std::fprintf(f, "%.3f\t%.3f\t%d:%03d\t%d\t%.2f\t%.0f\t%.0f\t%.1f\t%.1f\t%.5f\t%.4f\t%.4f\n",
                         double(ch[TIME][i]), double(ch[DIST][i]), ms / 1000, ms % 1000, int(ch[LAP][i]),
                         double(ch[VEL][i]) * 3.6, double(ch[RPM][i]), double(ch[GEAR][i]), double(ch[THR][i]) * 100.0,
                         double(ch[BRK][i]) * 100.0, double(ch[STEER][i]) / 57.29578 / 15.0,
                         double(ch[ACCZ][i]) / 9.81, double(ch[ACCX][i]) / 9.81);
        }
        bool ok = std::fclose(f) == 0;
        std::printf("makesgf: %s, %d laps, %zu rows at %g Hz\n", out.c_str(), laps, ch[TIME].size(), double(rate));
        return ok ? 0 : 1;
    }

    w.timestep = dt;
    w.properties = {{"car", "Ostrand GT 2.0"},
                    {"track", "Haldvik Ring"},
                    {"date", "14-06-2026"},
                    {"time", "10:42:05"},
                    {"driver", "Test Driver"},
                    {"session", "Practice"},
                    {"samplerate", std::to_string(int(rate)) + " Hz"},
                    {"comment", "made by makesgf: " + std::to_string(laps) + " laps"}};
    w.meta = {{"unit.time", "s"},        {"unit.distance", "m"},  {"unit.velocity", "m/s"},
              {"unit.rpm", "1/min"},     {"unit.throttle", "0..1"}, {"unit.brake", "0..1"},
              {"unit.steering", "deg"},  {"unit.acc_x", "m/s^2"}, {"unit.acc_z", "m/s^2"}};
    if (!w.Save(argv[1])) {
        std::fprintf(stderr, "makesgf: can't write %s\n", argv[1]);
        return 1;
    }
    std::printf("makesgf: %s, %d laps, %zu samples at %g Hz, %zu signals\n", argv[1], laps, ch[TIME].size(),
                double(rate), w.signals.size());
    return 0;
}
