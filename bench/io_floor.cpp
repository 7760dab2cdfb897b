// What sgf2ascii costs before any number is formatted: the same import (one read per channel,
// straight into the signal buffers), then as many bytes as the table has, written through the
// export's output stream in the same blocks. Its time against dd's shows how much of the floor
// is left for formatting.
//   io_floor <file.sgf> <out.txt> <bytes>
#include "foundation/qmessage.h"
#include "telemetry/analyse_signals.h"
#include "telemetry/analyse_textout.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

using namespace tarvik;

int main(int argc, char** argv)
{
    if (argc < 4) {
        std::fprintf(stderr, "usage: io_floor <file.sgf> <out.txt> <bytes>\n");
        return 2;
    }
    qmsgSetLogFile(false);
    PSignals* set = new PSignals;
    if (!set->Import(argv[1])) return 1;
    FILE* f = std::fopen(argv[2], "w");
    if (!f) return 1;
    const unsigned long long bytes = std::strtoull(argv[3], nullptr, 10);
    {
        PTextOut out(f);
        std::vector<char> row(256, '7');
        for (unsigned long long done = 0; done < bytes; done += row.size()) {
            const size_t n = size_t(bytes - done < row.size() ? bytes - done : row.size());
            char* p = out.Reserve(n);
            std::memcpy(p, row.data(), n);
            out.Commit(p + n);
        }
        if (!out.Flush()) return 1;
    }
    bool ok = std::fclose(f) == 0;
    delete set;
    return ok ? 0 : 1;
}
