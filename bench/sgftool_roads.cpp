// The cost of sgftool's CSV table against its text table (the sgf2ascii road) on one recording
// loaded once: both written to /dev/null in turns, the best of N rounds of each printed.
//   sgftool_roads <recording> [rounds]
#include "telemetry/analyse_import_any.h"
#include "telemetry/analyse_signals.h"
#include "telemetry/sgftool.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

using namespace tarvik;

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: sgftool_roads <recording> [rounds]\n");
        return 2;
    }
    const int rounds = argc > 2 ? std::atoi(argv[2]) : 5;
    PSignals* set = new PSignals;
    if (!PImportAny(*set, argv[1])) return 1;
    const std::vector<std::string> inputs = {argv[1]};
    double best[2] = {1e9, 1e9};
    for (int r = 0; r < rounds; r++)
        for (int road = 0; road < 2; road++) {
            ToolExportOptions options;
            options.format = road == 0 ? TOOL_TEXT : TOOL_CSV;
            const auto t0 = std::chrono::steady_clock::now();
            if (!ToolExport(*set, options, nullptr, "/dev/null", inputs)) return 1;
            const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
            if (s < best[road]) best[road] = s;
        }
    std::printf("%d rows x %d signals: text %.3f s, csv %.3f s, csv/text %.3f\n", ToolRows(*set), set->signalCount,
                best[0], best[1], best[1] / best[0]);
    delete set;
    return 0;
}
