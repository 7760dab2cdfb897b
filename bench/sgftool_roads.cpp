// The cost of sgftool's CSV table against its text table (the sgf2ascii road) on one recording
// loaded once: both written to /dev/null in turns, the best of N rounds of each printed, as
// processor time (the machine is shared, and its wall times swing with the other work on it).
//   sgftool_roads <recording> [rounds] [scalar]   ("scalar": without the 512-bit row formatter)
#include "telemetry/analyse_import_any.h"
#include "telemetry/analyse_signals.h"
#include "telemetry/analyse_textout.h"
#include "telemetry/sgftool.h"

#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace tarvik;

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: sgftool_roads <recording> [rounds]\n");
        return 2;
    }
    const int rounds = argc > 2 ? std::atoi(argv[2]) : 5;
    const bool vector = f6::UseVectorRow(!(argc > 3 && std::strcmp(argv[3], "scalar") == 0));
    PSignals* set = new PSignals;
    if (!PImportAny(*set, argv[1])) return 1;
    const std::vector<std::string> inputs = {argv[1]};
    double best[2] = {1e9, 1e9};
    for (int r = 0; r < rounds; r++)
        for (int road = 0; road < 2; road++) {
            ToolExportOptions options;
            options.format = road == 0 ? TOOL_TEXT : TOOL_CSV;
            const std::clock_t t0 = std::clock();
            if (!ToolExport(*set, options, nullptr, "/dev/null", inputs)) return 1;
            const double s = double(std::clock() - t0) / CLOCKS_PER_SEC;
            if (s < best[road]) best[road] = s;
        }
    std::printf("%s, %d rows x %d signals: text %.3f s, csv %.3f s, csv/text %.3f\n", vector ? "vector" : "scalar", ToolRows(*set), set->signalCount,
                best[0], best[1], best[1] / best[0]);
    delete set;
    return 0;
}
