// SgfWriter: builds .sgf telemetry recordings byte by byte.
//
// The command only reads recordings; this writer exists so that examples, tests, fuzz seeds and
// benchmarks can make their own. Every field of the layout can be set, including the ones that a
// good file never holds (a wrong magic, a lying count), so that damaged files are easy to make.
//
// Layout: "SGF0", int32 chunk count, float32 step, "PROP", int32 count, pairs of counted strings
// (int16 length + bytes), "MPRP", int32 count, pairs, then per signal: "SGNL", int32 (unused),
// int32 sample count, 32-byte zero-padded name, float32 samples. All little-endian.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tarvik {

struct SgfSignal {
    std::string name;           // written into 32 bytes, zero-padded (cut to 32)
    std::vector<float> samples;
    int64_t declaredCount = -1; // the count written in the chunk; -1: the number of samples
    int32_t unused = 0;
    std::string tag = "SGNL";
};

class SgfWriter {
public:
    std::string magic = "SGF0";
    int64_t declaredSignals = -1; // -1: the number of signals
    float timestep = 0.0f;
    std::string propTag = "PROP";
    std::string metaTag = "MPRP"; // empty: an old file without meta-properties (8 bytes of zero instead)
    int64_t declaredProperties = -1;
    int64_t declaredMeta = -1;
    std::vector<std::pair<std::string, std::string>> properties;
    std::vector<std::pair<std::string, std::string>> meta;
    std::vector<SgfSignal> signals;

    SgfSignal& Add(const std::string& name, std::vector<float> samples);
    std::string Build() const;
    bool Save(const std::string& path) const;

    // Pieces of the layout, for tests that assemble files by hand.
    static void PutInt32(std::string& out, int32_t v);
    static void PutFloat(std::string& out, float v);
    static void PutText(std::string& out, const std::string& text); // int16 length + bytes
};

} // namespace tarvik
