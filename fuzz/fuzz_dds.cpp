// The DDS reader on any bytes, from memory: header, level sizes against the bytes there are, and
// the block flips of every level.
#include "fuzz/fuzz.h"

#include "render/dds.h"

#include <cstdint>

using namespace tarvik;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSetup();
    if (size > (1u << 24)) return 0;
    DDDS dds;
    if (dds.LoadMemory("fuzz.dds", data, int(size))) {
        // Every level the reader claims must be there in full: touch its first and last byte.
        unsigned sum = 0;
        for (int level = 0; level < DDDS::MAX_LEVELS; level++)
            if (const uint8_t* p = dds.GetPixels(level)) sum += p[0] + p[dds.GetSize(level) - 1];
        if (sum == 0xFFFFFFFF) return 1; // keeps the reads
    }
    return 0;
}
