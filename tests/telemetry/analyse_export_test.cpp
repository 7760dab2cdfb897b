// The ASCII export without a modifier file: the whole text of small recordings, the two computed
// columns, lap filtering, trigger columns and the ways an export fails or leaves columns out.
#include "telemetry/analyse_export.h"
#include "telemetry/analyse_signals.h"
#include "tests/telemetry/telemetry_fixture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

using namespace tarvik;
using namespace tarvik::test;

namespace {

using ExportTest = TelemetryTest;

using Pairs = std::vector<std::pair<std::string, std::string>>;

std::string Head(const Pairs& properties = {}, const Pairs& meta = {})
{
    std::string text = "#\n# ASCII signal export\n# Writer: Ostrand PSignals exporter v1.2\n#\n";
    text += "# Properties: " + std::to_string(properties.size()) + "\n";
    for (size_t i = 0; i < properties.size(); i++)
        text += "# Property " + std::to_string(i + 1) + ": " + properties[i].first + " = " + properties[i].second + "\n";
    text += "#\n# Metaproperties: " + std::to_string(meta.size()) + "\n";
    for (size_t i = 0; i < meta.size(); i++)
        text += "# Metaproperty " + std::to_string(i + 1) + ": " + meta[i].first + " = " + meta[i].second + "\n";
    return text + "#\n";
}

// A value as the export prints it.
std::string Fixed(float value)
{
    char text[64];
    std::snprintf(text, sizeof text, "%f", double(value));
    return text;
}

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

TEST_F(ExportTest, SmallRecordingGivesTheWholeText)
{
    PSignals set;
    set.AddProperty("car", "a");
    AddFilled(set, "time", {0.0f, 0.5f}, 0.5f);
    AddFilled(set, "distance", {0.0f, 2.0f}, 0.5f);
    AddFilled(set, "rpm", {1000.0f, 1500.0f}, 0.5f);
    Exported e = Export(set);
    EXPECT_TRUE(e.ok);
    EXPECT_EQ(e.err, "");
    EXPECT_FALSE(LogExists());
    EXPECT_EQ(e.text, "#\n"
                      "# ASCII signal export\n"
                      "# Writer: Ostrand PSignals exporter v1.2\n"
                      "#\n"
                      "# Properties: 1\n"
                      "# Property 1: car = a\n"
                      "#\n"
                      "# Metaproperties: 0\n"
                      "#\n"
                      "time distance rpm\n"
                      "0.000000 0.000000 1000.000000\n"
                      "0.500000 2.000000 1500.000000\n");
}

TEST_F(ExportTest, MetaPropertiesAreNumberedInTheHead)
{
    PSignals set;
    set.metaName[0] = "session";
    set.metaValue[0] = "race";
    set.metaName[1] = "weather";
    set.metaValue[1] = "dry";
    set.metaCount = 2;
    AddFilled(set, "distance", {1.0f});
    Exported e = Export(set);
    EXPECT_TRUE(e.ok);
    EXPECT_EQ(e.text, Head({}, {{"session", "race"}, {"weather", "dry"}}) + "time distance\n0.000000 1.000000\n");
}

TEST_F(ExportTest, DistanceRisesByAtLeastOneThousandthPerRow)
{
    PSignals set;
    AddFilled(set, "time", {0.0f, 1.0f, 2.0f, 3.0f});
    AddFilled(set, "distance", {10.0f, 10.0f, 9.0f, 12.0f});
    Exported e = Export(set);
    EXPECT_TRUE(e.ok);
    // The sums are 32-bit floats, so the third row shows the rounding of 10.001 + 0.001.
    const float second = 10.0f + 0.001f, third = second + 0.001f;
    EXPECT_EQ(Fixed(second), "10.001000");
    EXPECT_NEAR(third, 10.002f, 1e-5f);
    EXPECT_EQ(e.text, Head() + "time distance\n"
                               "0.000000 10.000000\n"
                               "1.000000 " + Fixed(second) + "\n"
                               "2.000000 " + Fixed(third) + "\n"
                               "3.000000 12.000000\n");
}

TEST_F(ExportTest, SamplesPastTheEndOfAShortDistanceAreAbsent)
{
    PSignals set;
    AddFilled(set, "rpm", {1.0f, 2.0f, 3.0f, 4.0f});
    PSignal* distance = AddFilled(set, "distance", {5.0f, 6.0f, 100.0f, 100.0f});
    distance->count = 2; // the buffer holds more than the signal
    Exported e = Export(set);
    EXPECT_TRUE(e.ok);
    EXPECT_EQ(e.err, "");
    EXPECT_EQ(e.text, Head() + "time distance rpm\n"
                               "0.000000 5.000000 1.000000\n"
                               "1.000000 6.000000 2.000000\n"
                               "2.000000 " + Fixed(6.0f + 0.001f) + " 3.000000\n"
                               "3.000000 " + Fixed(6.0f + 0.001f + 0.001f) + " 4.000000\n");
}

TEST_F(ExportTest, TimeColumnComesFromTheFirstSignalsStep)
{
    PSignals set;
    AddFilled(set, "rpm", {1.0f, 2.0f, 3.0f}, 0.25f);
    AddFilled(set, "time", {0.0f, 1.0f, 2.0f}, 1.0f);
    AddFilled(set, "distance", {0.0f, 1.0f, 2.0f}, 1.0f);
    Exported e = Export(set);
    EXPECT_TRUE(e.ok);
    EXPECT_EQ(e.text, Head() + "time distance rpm\n"
                               "0.000000 0.000000 1.000000\n"
                               "0.250000 1.000000 2.000000\n"
                               "0.500000 2.000000 3.000000\n");
}

TEST_F(ExportTest, EmptyFirstSignalGivesHeadAndColumnLineOnly)
{
    PSignals set;
    set.AddSignal("rpm", 0);
    AddFilled(set, "time", {0.0f, 1.0f});
    AddFilled(set, "distance", {0.0f, 1.0f});
    Exported e = Export(set);
    EXPECT_TRUE(e.ok);
    EXPECT_EQ(e.err, "Skip signal 0 (rpm) due to lack of signal data\n");
    EXPECT_EQ(e.text, Head() + "time distance\n");
}

TEST_F(ExportTest, EmptySignalIsLeftOutWithAnInfoLine)
{
    PSignals set;
    AddFilled(set, "time", {0.0f, 1.0f});
    AddFilled(set, "distance", {0.0f, 1.0f});
    set.AddSignal("gear", 2);
    AddFilled(set, "rpm", {7.0f, 8.0f});
    Exported e = Export(set);
    EXPECT_TRUE(e.ok);
    EXPECT_EQ(e.err, "Skip signal 2 (gear) due to lack of signal data\n");
    EXPECT_FALSE(LogExists());
    EXPECT_EQ(e.text, Head() + "time distance rpm\n0.000000 0.000000 7.000000\n1.000000 1.000000 8.000000\n");
}

TEST_F(ExportTest, ShortSignalReportsEachMissingRowAndWritesZero)
{
    PSignals set;
    AddFilled(set, "time", {0.0f, 1.0f, 2.0f});
    AddFilled(set, "distance", {0.0f, 1.0f, 2.0f});
    AddFilled(set, "rpm", {9.0f});
    Exported e = Export(set);
    EXPECT_TRUE(e.ok);
    EXPECT_EQ(e.err, "GetValue index (1) out of range 0..0 (rpm)\n"
                     "GetValue index (2) out of range 0..0 (rpm)\n");
    EXPECT_EQ(e.text, Head() + "time distance rpm\n"
                               "0.000000 0.000000 9.000000\n"
                               "1.000000 1.000000 0.000000\n"
                               "2.000000 2.000000 0.000000\n");
}

TEST_F(ExportTest, MissingDistanceLeavesTheErrorBehindTheColumnText)
{
    PSignals set;
    set.fileName = "rec.sgf";
    set.AddProperty("car", "a");
    AddFilled(set, "time", {0.0f, 1.0f});
    AddFilled(set, "rpm", {1.0f, 2.0f});
    Exported e = Export(set);
    EXPECT_FALSE(e.ok);
    EXPECT_EQ(e.err, "");
    EXPECT_EQ(e.text, Head({{"car", "a"}}) +
                          "time distance** ERROR: No distance signal found - won't work in ASCII export (rec.sgf)\n");
}

TEST_F(ExportTest, UnwritableOutputIsWarnedAndFails)
{
    PSignals set;
    AddFilled(set, "distance", {0.0f});
    Exported e = Export(set, -1, 0, "no/such/dir/out.txt");
    EXPECT_FALSE(e.ok);
    EXPECT_EQ(e.err, "PSignals::ExportASCII(no/such/dir/out.txt) failed - can't open file\n");
    EXPECT_TRUE(Contains(Log(), "(WARN ): [-] PSignals::ExportASCII(no/such/dir/out.txt) failed - can't open file ["));
}

// ---- Lap filtering ----

TEST_F(ExportTest, LapFilterWritesOnlyThatLapWithTimeFromZero)
{
    PSignals set;
    AddFilled(set, "time", {0.0f, 0.5f, 1.0f, 1.5f, 2.0f}, 0.5f);
    AddFilled(set, "distance", {0.0f, 1.0f, 2.0f, 3.0f, 4.0f}, 0.5f);
    AddFilled(set, "lap", {1.0f, 1.0f, 2.0f, 2.0f, 3.0f}, 0.5f);
    Exported e = Export(set, 2);
    EXPECT_TRUE(e.ok);
    EXPECT_EQ(e.err, "");
    EXPECT_EQ(e.text, Head() + "time distance lap\n"
                               "0.000000 2.000000 2.000000\n"
                               "0.500000 3.000000 2.000000\n");
}

TEST_F(ExportTest, LapValuesAreRoundedHalfAwayFromZero)
{
    PSignals set;
    AddFilled(set, "distance", {0.0f, 1.0f, 2.0f, 3.0f, 4.0f, 5.0f});
    AddFilled(set, "lap", {1.5f, -1.5f, 2.4f, -2.5f, 2.5f, -2.4f});
    Exported up = Export(set, 2);
    EXPECT_TRUE(up.ok);
    EXPECT_EQ(up.text, Head() + "time distance lap\n"
                                "0.000000 0.000000 1.500000\n"
                                "2.000000 2.000000 2.400000\n");
    Exported down = Export(set, -2);
    EXPECT_TRUE(down.ok);
    EXPECT_EQ(down.text, Head() + "time distance lap\n"
                                  "0.000000 1.000000 -1.500000\n"
                                  "4.000000 5.000000 -2.400000\n");
}

TEST_F(ExportTest, RowsPastTheEndOfAShortLapSignalBelongToNoLap)
{
    PSignals set;
    AddFilled(set, "distance", {0.0f, 1.0f, 2.0f, 3.0f});
    PSignal* lap = AddFilled(set, "lap", {2.0f, 2.0f, 2.0f, 2.0f});
    lap->count = 2; // the buffer holds more than the signal
    Exported e = Export(set, 2);
    EXPECT_TRUE(e.ok);
    EXPECT_EQ(e.text, Head() + "time distance lap\n"
                               "0.000000 0.000000 2.000000\n"
                               "1.000000 1.000000 2.000000\n");
}

TEST_F(ExportTest, LapAskedForWithoutLapSignalWritesEveryRow)
{
    PSignals set;
    AddFilled(set, "distance", {0.0f, 1.0f});
    AddFilled(set, "Lap", {3.0f, 4.0f}); // not the lap signal
    Exported e = Export(set, 3);
    EXPECT_TRUE(e.ok);
    EXPECT_EQ(e.err, "ExportASCII with lap=3 can only work if a 'lap' signal is present in the telemetry data\n");
    EXPECT_TRUE(Contains(Log(), "(WARN ): [-] ExportASCII with lap=3 can only work if a 'lap' signal is present"));
    EXPECT_EQ(e.text, Head() + "time distance Lap\n0.000000 0.000000 3.000000\n1.000000 1.000000 4.000000\n");
}

// ---- Trigger columns ----

TEST_F(ExportTest, TriggerFlagsTurnLapAndSectorIntoChangeMarks)
{
    PSignals set;
    AddFilled(set, "distance", {0.0f, 1.0f, 2.0f, 3.0f});
    AddFilled(set, "lap", {1.0f, 1.0f, 2.0f, 2.0f});
    AddFilled(set, "sector", {0.0f, 1.0f, 1.0f, 2.0f});
    const std::string columns = Head() + "time distance lap sector\n";

    EXPECT_EQ(Export(set, -1, 0).text, columns + "0.000000 0.000000 1.000000 0.000000\n"
                                                 "1.000000 1.000000 1.000000 1.000000\n"
                                                 "2.000000 2.000000 2.000000 1.000000\n"
                                                 "3.000000 3.000000 2.000000 2.000000\n");
    EXPECT_EQ(Export(set, -1, PExportOptions::PEO_LAP_TRIGGER).text, columns + "0.000000 0.000000 0.000000 0.000000\n"
                                                                               "1.000000 1.000000 0.000000 1.000000\n"
                                                                               "2.000000 2.000000 1.000000 1.000000\n"
                                                                               "3.000000 3.000000 0.000000 2.000000\n");
    EXPECT_EQ(Export(set, -1, PExportOptions::PEO_SECTOR_TRIGGER).text,
              columns + "0.000000 0.000000 1.000000 0.000000\n"
                        "1.000000 1.000000 1.000000 1.000000\n"
                        "2.000000 2.000000 2.000000 0.000000\n"
                        "3.000000 3.000000 2.000000 1.000000\n");
    Exported both = Export(set, 2, PExportOptions::PEO_LAP_TRIGGER | PExportOptions::PEO_SECTOR_TRIGGER);
    EXPECT_TRUE(both.ok);
    EXPECT_EQ(both.text, columns + "0.000000 2.000000 1.000000 0.000000\n"
                                   "1.000000 3.000000 0.000000 1.000000\n");
}
