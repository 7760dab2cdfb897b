// The ASCII export without a modifier file: the whole text of small recordings, the two computed
// columns, lap filtering, trigger columns and the ways an export fails or leaves columns out.
#include "telemetry/analyse_export.h"
#include "telemetry/analyse_signals.h"
#include "tests/telemetry/telemetry_fixture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace tarvik;
using namespace tarvik::test;

namespace {

using ExportTest = TelemetryTest;

// The head of a set without properties.
const std::string head = "#\n# ASCII signal export\n# Writer: Ostrand PSignals exporter v1.2\n#\n"
                         "# Properties: 0\n#\n# Metaproperties: 0\n#\n";

struct Exported {
    bool ok;
    std::string err;  // standard error during the export
    std::string text; // the output file
};

Exported Export(PSignals& set, int32_t lap = -1, uint32_t triggerFlags = 0, const char* file = "out.txt")
{
    PExportOptions options;
    options.fileName = file;
    options.lap = lap;
    options.triggerFlags = triggerFlags;
    bool ok = false;
    std::string err = StderrOf([&] { ok = set.ExportASCII(options); });
    return Exported{ok, err, ReadFile(file)};
}

} // namespace

// The formatter's rare numbers come out as printf writes them: -0, a tie at the seventh
// decimal (to even), and the largest float. Control characters of the head are escaped, so that
// each of its lines is a comment.
TEST_F(ExportTest, SmallRecordingGivesTheWholeText)
{
    PSignals set;
    set.AddProperty("car", "a\nb");
    set.AddProperty("dir\\name", "\r\t\x01\x7f\xe9");
    set.metaName[0] = "session";
    set.metaValue[0] = "race";
    set.metaName[1] = "weather";
    set.metaValue[1] = "dry";
    set.metaCount = 2;
    AddFilled(set, "time", {0.0f, 0.5f, 1.0f}, 0.5f);
    AddFilled(set, "distance", {0.0f, 2.0f, 2.5f}, 0.5f);
    AddFilled(set, "rpm", {1000.0f, -0.0f, 0.0078125f}, 0.5f);
    AddFilled(set, "gear", {-3.4028235e38f, 0.0234375f, -1e-7f}, 0.5f);
    Exported e = Export(set);
    EXPECT_TRUE(e.ok);
    EXPECT_EQ(e.err, "");
    EXPECT_FALSE(LogExists());
    EXPECT_EQ(e.text, "#\n"
                      "# ASCII signal export\n"
                      "# Writer: Ostrand PSignals exporter v1.2\n"
                      "#\n"
                      "# Properties: 2\n"
                      "# Property 1: car = a\\nb\n"
                      "# Property 2: dir\\\\name = \\r\\t\\x01\\x7F\xe9\n"
                      "#\n"
                      "# Metaproperties: 2\n"
                      "# Metaproperty 1: session = race\n"
                      "# Metaproperty 2: weather = dry\n"
                      "#\n"
                      "time distance rpm gear\n"
                      "0.000000 0.000000 1000.000000 -340282346638528859811704183484516925440.000000\n"
                      "0.500000 2.000000 -0.000000 0.023438\n"
                      "1.000000 2.500000 0.007812 -0.000000\n");
}

// Each case: the signals, the lap asked for, the trigger flags, and what comes after the head.
TEST_F(ExportTest, ColumnsRowsAndLaps)
{
    struct Signal {
        const char* name;
        std::vector<float> samples;
        float step;
        int count; // -1: as many as samples; less: the buffer holds more than the signal
    };
    const uint32_t lapTrigger = PExportOptions::PEO_LAP_TRIGGER;
    const uint32_t sectorTrigger = PExportOptions::PEO_SECTOR_TRIGGER;
    const std::vector<Signal> laps = {{"distance", {0, 1, 2, 3}, 1, -1},
                                      {"lap", {1, 1, 2, 2}, 1, -1},
                                      {"sector", {0, 1, 1, 2}, 1, -1}};
    const std::string lapsHead = "time distance lap sector\n";
    const std::vector<float> halves = {1.5f, -1.5f, 2.4f, -2.5f, 2.5f, -2.4f};
    struct Case {
        const char* what;
        std::vector<Signal> signals;
        int32_t lap;
        uint32_t flags;
        bool ok;
        std::string err;
        std::string text;
    } cases[] = {
        // Distance rises by at least 0.001 a row, in 32-bit sums: 10.001 + 0.001 shows its rounding.
        {"falling distance", {{"time", {0, 1, 2, 3}, 1, -1}, {"distance", {10, 10, 9, 12}, 1, -1}}, -1, 0, true,
         "",
         "time distance\n0.000000 10.000000\n1.000000 10.001000\n2.000000 10.002001\n3.000000 12.000000\n"},
        {"short distance", {{"rpm", {1, 2, 3, 4}, 1, -1}, {"distance", {5, 6, 100, 100}, 1, 2}}, -1, 0, true,
         "",
         "time distance rpm\n0.000000 5.000000 1.000000\n1.000000 6.000000 2.000000\n2.000000 6.001000 3.000000\n"
         "3.000000 6.002000 4.000000\n"},
        // The time column counts the first signal's steps.
        {"first step", {{"rpm", {1, 2, 3}, 0.25f, -1}, {"time", {0, 1, 2}, 1, -1}, {"distance", {0, 1, 2}, 1, -1}},
         -1, 0, true, "",
         "time distance rpm\n0.000000 0.000000 1.000000\n0.250000 1.000000 2.000000\n"
         "0.500000 2.000000 3.000000\n"},
        {"empty first", {{"rpm", {}, 1, -1}, {"time", {0, 1}, 1, -1}, {"distance", {0, 1}, 1, -1}}, -1, 0, true,
         "Skip signal 0 (rpm) due to lack of signal data\n", "time distance\n"},
        {"empty third",
         {{"time", {0, 1}, 1, -1}, {"distance", {0, 1}, 1, -1}, {"gear", {5, 6}, 1, 0}, {"rpm", {7, 8}, 1, -1}}, -1,
         0, true, "Skip signal 2 (gear) due to lack of signal data\n",
         "time distance rpm\n0.000000 0.000000 7.000000\n1.000000 1.000000 8.000000\n"},
        // As a text table of a head line only loads.
        {"all empty", {{"time", {}, 1, -1}, {"distance", {}, 1, -1}, {"lap", {}, 1, -1}}, -1, 0, true,
         "Skip signal 0 (time) due to lack of signal data\n"
         "Skip signal 1 (distance) due to lack of signal data\n"
         "Skip signal 2 (lap) due to lack of signal data\n",
         "time distance\n"},
        {"short rpm", {{"time", {0, 1, 2}, 1, -1}, {"distance", {0, 1, 2}, 1, -1}, {"rpm", {9}, 1, -1}}, -1, 0, true,
         "GetValue index (1) out of range 0..0 (rpm)\nGetValue index (2) out of range 0..0 (rpm)\n",
         "time distance rpm\n0.000000 0.000000 9.000000\n1.000000 1.000000 0.000000\n"
         "2.000000 2.000000 0.000000\n"},
        {"no distance", {{"time", {0, 1}, 1, -1}, {"rpm", {1, 2}, 1, -1}}, -1, 0, false, "",
         "time distance** ERROR: No distance signal found - won't work in ASCII export (rec.sgf)\n"},
        // A lap's rows only, the time from zero; lap values round half away from zero.
        {"lap 2",
         {{"time", {0, 0.5f, 1, 1.5f, 2}, 0.5f, -1}, {"distance", {0, 1, 2, 3, 4}, 0.5f, -1},
          {"lap", {1, 1, 2, 2, 3}, 0.5f, -1}},
         2, 0, true, "", "time distance lap\n0.000000 2.000000 2.000000\n0.500000 3.000000 2.000000\n"},
        {"halves up", {{"distance", {0, 1, 2, 3, 4, 5}, 1, -1}, {"lap", halves, 1, -1}}, 2, 0, true, "",
         "time distance lap\n0.000000 0.000000 1.500000\n2.000000 2.000000 2.400000\n"},
        {"halves down", {{"distance", {0, 1, 2, 3, 4, 5}, 1, -1}, {"lap", halves, 1, -1}}, -2, 0, true, "",
         "time distance lap\n0.000000 1.000000 -1.500000\n4.000000 5.000000 -2.400000\n"},
        // Rows past the end of a short lap signal belong to no lap.
        {"short lap", {{"distance", {0, 1, 2, 3}, 1, -1}, {"lap", {2, 2, 2, 2}, 1, 2}}, 2, 0, true, "",
         "time distance lap\n0.000000 0.000000 2.000000\n1.000000 1.000000 2.000000\n"},
        {"no lap signal", {{"distance", {0, 1}, 1, -1}, {"Lap", {3, 4}, 1, -1}}, 3, 0, true,
         "ExportASCII with lap=3 can only work if a 'lap' signal is present in the telemetry data\n",
         "time distance Lap\n0.000000 0.000000 3.000000\n1.000000 1.000000 4.000000\n"},
        // Trigger flags turn lap and sector into marks of change.
        {"no triggers", laps, -1, 0, true, "",
         lapsHead + "0.000000 0.000000 1.000000 0.000000\n1.000000 1.000000 1.000000 1.000000\n"
                    "2.000000 2.000000 2.000000 1.000000\n3.000000 3.000000 2.000000 2.000000\n"},
        {"lap trigger", laps, -1, lapTrigger, true, "",
         lapsHead + "0.000000 0.000000 0.000000 0.000000\n1.000000 1.000000 0.000000 1.000000\n"
                    "2.000000 2.000000 1.000000 1.000000\n3.000000 3.000000 0.000000 2.000000\n"},
        {"sector trigger", laps, -1, sectorTrigger, true, "",
         lapsHead + "0.000000 0.000000 1.000000 0.000000\n1.000000 1.000000 1.000000 1.000000\n"
                    "2.000000 2.000000 2.000000 0.000000\n3.000000 3.000000 2.000000 1.000000\n"},
        {"both triggers, lap 2", laps, 2, lapTrigger | sectorTrigger, true, "",
         lapsHead + "0.000000 2.000000 1.000000 0.000000\n1.000000 3.000000 0.000000 1.000000\n"},
    };
    for (const Case& c : cases) {
        qmsgReset();
        PSignals set;
        set.fileName = "rec.sgf";
        for (const Signal& s : c.signals) {
            PSignal* added = AddFilled(set, s.name, s.samples, s.step);
            if (s.count >= 0) added->count = s.count;
        }
        Exported e = Export(set, c.lap, c.flags);
        EXPECT_EQ(e.ok, c.ok) << c.what;
        EXPECT_EQ(e.err, c.err) << c.what;
        EXPECT_EQ(e.text, head + c.text) << c.what;
    }
    EXPECT_TRUE(Contains(Log(), "(WARN ): [-] ExportASCII with lap=3 can only work if a 'lap' signal"));
}

// A signal shorter than the first is reported for its first ten rows past the end; further rows
// are written as zeros and counted in one report.
TEST_F(ExportTest, ShortSignalsReportTheirFirstTenMissingRows)
{
    PSignals set;
    std::vector<float> rows(25);
    for (size_t i = 0; i < rows.size(); i++) rows[i] = float(i);
    AddFilled(set, "distance", rows);
    AddFilled(set, "a", {7});
    AddFilled(set, "b", std::vector<float>(rows.begin(), rows.begin() + 20));
    Exported e = Export(set);
    EXPECT_TRUE(e.ok);
    std::string err;
    for (int i = 1; i <= 10; i++) err += "GetValue index (" + std::to_string(i) + ") out of range 0..0 (a)\n";
    for (int i = 20; i < 25; i++) err += "GetValue index (" + std::to_string(i) + ") out of range 0..19 (b)\n";
    EXPECT_EQ(e.err, err + "PSignals::ExportASCII(out.txt): 14 more values past the end of short signals written "
                           "as 0.000000, not reported one by one\n");
    EXPECT_TRUE(Contains(e.text, "\n11.000000 11.000000 0.000000 11.000000\n"));
    EXPECT_TRUE(Contains(e.text, "\n24.000000 24.000000 0.000000 0.000000\n"));
}
