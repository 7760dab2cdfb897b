// The honest baseline: the same table as sgf2ascii writes, one fprintf per value, through a
// stdio stream with a 1 MB buffer. Loads with the same reader, so only the export differs.
//   fprintf_export <file.sgf> <table.txt>
#include "foundation/qmessage.h"
#include "telemetry/analyse_signals.h"
#include "telemetry/analyse_signaltypes.h"

#include <cstdio>
#include <cstring>

using namespace tarvik;

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: fprintf_export <file.sgf> <table.txt>\n");
        return 2;
    }
    qmsgSetLogFile(false);
    PSignals* set = new PSignals;
    if (!set->Import(argv[1])) return 1;
    FILE* f = std::fopen(argv[2], "w");
    if (!f) return 1;
    std::setvbuf(f, nullptr, _IOFBF, 1 << 20);
    std::fprintf(f, "#\n# ASCII signal export\n# Writer: Ostrand PSignals exporter v1.2\n#\n");
    std::fprintf(f, "# Properties: %d\n", set->propertyCount);
    for (int i = 0; i < set->propertyCount; i++)
        std::fprintf(f, "# Property %d: %s = %s\n", i + 1, set->propertyName[i].cstr(), set->propertyValue[i].cstr());
    std::fprintf(f, "#\n# Metaproperties: %d\n", set->metaCount);
    for (int i = 0; i < set->metaCount; i++)
        std::fprintf(f, "# Metaproperty %d: %s = %s\n", i + 1, set->metaName[i].cstr(), set->metaValue[i].cstr());
    std::fprintf(f, "#\ntime distance");
    PSignal* distance = set->FindSignal("distance");
    for (int i = 0; i < set->signalCount; i++) {
        const char* id = set->signals[i]->GetId();
        if (std::strcmp(id, "time") && std::strcmp(id, "distance") && set->signals[i]->count)
            std::fprintf(f, " %s", id);
    }
    std::fprintf(f, "\n");
    const int rows = set->signals[0]->count;
    const float step = set->signals[0]->timestep;
    float last = -999999.0f;
    for (int n = 0; n < rows; n++) {
        std::fprintf(f, "%f", double(float(n) * step - 0.0f));
        float d = distance->data[n];
        if (last + 0.001f > d) d = last + 0.001f;
        last = d;
        std::fprintf(f, "%c%f", ' ', double(d));
        for (int i = 0; i < set->signalCount; i++) {
            const PSignal* s = set->signals[i];
            const char* id = s->GetId();
            if (!s->count || !std::strcmp(id, "time") || !std::strcmp(id, "distance")) continue;
            std::fprintf(f, "%c%f", ' ', double(s->GetValue(n)));
        }
        std::fprintf(f, "\n");
    }
    bool ok = std::fclose(f) == 0;
    delete set;
    return ok ? 0 : 1;
}
