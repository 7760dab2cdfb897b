// Compares the export's float formatter with printf("%f") for every 32-bit pattern (or a range).
//   f6check [first_hex last_hex]
// Two threads share the range. Prints the number of patterns checked and every difference found.
#include "telemetry/analyse_textout.h"

#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

using namespace tarvik;

static std::atomic<uint64_t> differences{0};

static void Check(uint64_t first, uint64_t last)
{
    char a[512], b[512];
    for (uint64_t i = first; i <= last; i++) {
        uint32_t bits = uint32_t(i);
        float f;
        std::memcpy(&f, &bits, 4);
        int n = FormatFloatF6(a, f);
        a[n] = 0;
        std::snprintf(b, sizeof b, "%f", double(f));
        if (std::strcmp(a, b) != 0 && differences++ < 20) std::printf("%08" PRIx32 ": %s != %s\n", bits, a, b);
    }
}

int main(int argc, char** argv)
{
    uint64_t first = 0, last = 0xFFFFFFFFull;
    if (argc == 3) {
        first = std::strtoull(argv[1], nullptr, 16);
        last = std::strtoull(argv[2], nullptr, 16);
    }
    uint64_t middle = first + (last - first) / 2;
    std::thread t1(Check, first, middle), t2(Check, middle + 1, last);
    t1.join();
    t2.join();
    std::printf("f6check: %" PRIu64 " patterns %08" PRIx64 "..%08" PRIx64 ", %" PRIu64 " differences\n",
                last - first + 1, first, last, differences.load());
    return differences ? 1 : 0;
}
