// Compares the export's float formatters with printf("%f") for every 32-bit pattern (or a range):
// the single-value formatter, and the row formatter on the road this processor takes (rows of 40).
//   f6check [first_hex last_hex]
// Two threads share the range. Prints its progress on standard error every few seconds, then the
// number of patterns checked and every difference found.
#include "telemetry/analyse_textout.h"

#include <atomic>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

using namespace tarvik;

static std::atomic<uint64_t> differences{0};
static std::atomic<uint64_t> checked{0};

static void Report(uint32_t bits, const char* what, const char* ours, const char* expected)
{
    if (differences++ < 20) std::printf("%08" PRIx32 " (%s): %s != %s\n", bits, what, ours, expected);
}

static void Check(uint64_t first, uint64_t last)
{
    constexpr uint64_t ROW = 40;
    float values[ROW];
    char expected[ROW][64], single[64], row[ROW * (MAX_FLOAT_F6 + 1) + 64];
    for (uint64_t i = first; i <= last; i += ROW) {
        const int count = int(last - i + 1 < ROW ? last - i + 1 : ROW);
        for (int k = 0; k < count; k++) {
            uint32_t bits = uint32_t(i + uint64_t(k));
            std::memcpy(&values[k], &bits, 4);
            std::snprintf(expected[k], sizeof expected[k], "%f", double(values[k]));
            single[FormatFloatF6(single, values[k])] = 0;
            if (std::strcmp(single, expected[k]) != 0) Report(bits, "value", single, expected[k]);
        }
        *FormatRowF6(row, values, count, ' ') = 0;
        const char* p = row;
        for (int k = 0; k < count; k++) {
            const size_t n = std::strlen(expected[k]);
            const char end = k + 1 < count ? ' ' : '\n';
            if (std::strncmp(p, expected[k], n) != 0 || p[n] != end) {
                Report(uint32_t(i + uint64_t(k)), "row", p, expected[k]);
                break;
            }
            p += n + 1;
        }
        checked += uint64_t(count);
    }
}

int main(int argc, char** argv)
{
    uint64_t first = 0, last = 0xFFFFFFFFull;
    if (argc == 3) {
        first = std::strtoull(argv[1], nullptr, 16);
        last = std::strtoull(argv[2], nullptr, 16);
    }
    std::printf("f6check: rows on the %s road\n", f6::VectorRowAvailable() ? "vector" : "scalar");
    std::fflush(stdout);
    uint64_t middle = first + (last - first) / 2;
    middle -= (middle - first) % 40; // whole rows for the first thread
    std::thread t1(Check, first, middle), t2(Check, middle + 1, last);
    const uint64_t total = last - first + 1;
    auto lastPrint = std::chrono::steady_clock::now();
    for (uint64_t done = 0; done < total;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        done = checked.load();
        auto now = std::chrono::steady_clock::now();
        if (done < total && now - lastPrint < std::chrono::seconds(5)) continue;
        lastPrint = now;
        std::fprintf(stderr, "f6check: %5.1f%% (%" PRIu64 " of %" PRIu64 "), %" PRIu64 " differences\n",
                     100.0 * double(done) / double(total), done, total, differences.load());
    }
    t1.join();
    t2.join();
    std::printf("f6check: %" PRIu64 " patterns %08" PRIx64 "..%08" PRIx64 ", %" PRIu64 " differences\n",
                last - first + 1, first, last, differences.load());
    return differences ? 1 : 0;
}
