// The export modifier: reading the words file, renaming, factors and separators, the limit of
// conversions, and what a modifier changes in the exported table.
#include "telemetry/analyse_export.h"
#include "telemetry/analyse_modifier.h"
#include "telemetry/analyse_signals.h"
#include "tests/telemetry/telemetry_fixture.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

using namespace tarvik;
using namespace tarvik::test;

namespace {

using ModifierTest = TelemetryTest;

// The modifier holds a thousand conversions; keep it off the stack.
struct Loaded {
    std::unique_ptr<AsciiExportModifier> modifier{new AsciiExportModifier};
    bool ok = false;
    qstring error;
    std::string err; // standard error during the load
};

Loaded LoadModifier(const std::string& words, const char* name = "mod.txt")
{
    WriteFile(name, words);
    Loaded l;
    l.err = StderrOf([&] { l.ok = l.modifier->Load(name, &l.error); });
    return l;
}

std::string Renamed(const AsciiExportModifier& m, const char* name)
{
    qstring s(name);
    m.Rename(s);
    return s.cstr();
}

struct Exported {
    bool ok;
    std::string err;
    std::string text;
};

Exported ExportWith(PSignals& set, const char* modifierFile, uint32_t triggerFlags = 0)
{
    PExportOptions options;
    options.fileName = "out.txt";
    options.modifierFile = modifierFile;
    options.triggerFlags = triggerFlags;
    bool ok = false;
    std::string err = StderrOf([&] { ok = set.ExportASCII(options); });
    return Exported{ok, err, ReadFile("out.txt")};
}

// time, distance, speed, gear and rpm with two samples each.
void FillCar(PSignals& set)
{
    AddFilled(set, "time", {0.0f, 1.0f});
    AddFilled(set, "distance", {0.0f, 5.0f});
    AddFilled(set, "speed", {10.0f, 20.0f});
    AddFilled(set, "gear", {3.0f, 4.0f});
    AddFilled(set, "rpm", {1000.0f, 2000.0f});
}

const std::string plainHead = "#\n# ASCII signal export\n# Writer: Ostrand PSignals exporter v1.2\n#\n"
                              "# Properties: 0\n#\n# Metaproperties: 0\n#\n";

} // namespace

// ---- Reading the file ----

TEST_F(ModifierTest, ConversionsRenameAndScaleTheFirstMatchOnly)
{
    Loaded l = LoadModifier("speed kmh 3.6\n  gear\t-\n1 \"engine speed\" \"rev counter\" 2 speed mph 0.62");
    EXPECT_TRUE(l.ok);
    EXPECT_EQ(l.err, "");
    EXPECT_EQ(l.modifier->GetCount(), 4);
    EXPECT_EQ(l.modifier->GetSeparator(), ' ');
    EXPECT_EQ(Renamed(*l.modifier, "speed"), "kmh");
    EXPECT_EQ(l.modifier->GetFactor("speed"), 3.6f);
    EXPECT_EQ(Renamed(*l.modifier, "gear"), "-");
    EXPECT_EQ(Renamed(*l.modifier, "engine speed"), "rev counter");
    EXPECT_EQ(l.modifier->GetFactor("engine speed"), 2.0f);
    EXPECT_EQ(Renamed(*l.modifier, "rpm"), "rpm");
    EXPECT_EQ(l.modifier->GetFactor("rpm"), 1.0f);
    EXPECT_EQ(Renamed(*l.modifier, "Speed"), "Speed");
}

TEST_F(ModifierTest, SeparatorWordsAndTheLastOneCounts)
{
    EXPECT_EQ(LoadModifier("separator tab").modifier->GetSeparator(), '\t');
    EXPECT_EQ(LoadModifier("separator comma").modifier->GetSeparator(), ',');
    EXPECT_EQ(LoadModifier("separator tab separator space").modifier->GetSeparator(), ' ');
    Loaded l = LoadModifier("separator space rpm r 1 separator comma");
    EXPECT_TRUE(l.ok);
    EXPECT_EQ(l.modifier->GetSeparator(), ',');
    EXPECT_EQ(l.modifier->GetCount(), 1);
}

TEST_F(ModifierTest, UnknownSeparatorGivesTheReasonAndFalse)
{
    Loaded l = LoadModifier("separator semicolon rpm r 2");
    EXPECT_FALSE(l.ok);
    EXPECT_STREQ(l.error.cstr(), "Unknown separator name (semicolon)");
    EXPECT_EQ(l.modifier->GetCount(), 1); // the load went on
}

TEST_F(ModifierTest, MissingFileGivesFileNotFound)
{
    std::unique_ptr<AsciiExportModifier> m(new AsciiExportModifier);
    qstring error;
    EXPECT_FALSE(m->Load("nofile.mod", &error));
    EXPECT_STREQ(error.cstr(), "file not found");
}

TEST_F(ModifierTest, EmptyFileGivesOneConversionOfEmptyWords)
{
    Loaded l = LoadModifier("");
    EXPECT_TRUE(l.ok);
    EXPECT_EQ(l.modifier->GetCount(), 1);
    EXPECT_EQ(l.modifier->GetSeparator(), ' ');
    EXPECT_EQ(Renamed(*l.modifier, "rpm"), "rpm");
    EXPECT_EQ(l.modifier->GetFactor(""), 0.0f);
}

TEST_F(ModifierTest, TrailingWhiteSpaceAndMissingWordsGiveEmptyTextAndFactorZero)
{
    EXPECT_EQ(LoadModifier("rpm r 2").modifier->GetCount(), 1);
    EXPECT_EQ(LoadModifier("rpm r 2\n").modifier->GetCount(), 2);
    Loaded l = LoadModifier("rpm x");
    EXPECT_EQ(l.modifier->GetCount(), 1);
    EXPECT_EQ(Renamed(*l.modifier, "rpm"), "x");
    EXPECT_EQ(l.modifier->GetFactor("rpm"), 0.0f);
}

TEST_F(ModifierTest, ThousandConversionsFitAndMoreOverwriteTheLast)
{
    std::string words;
    for (int i = 0; i < 1000; i++) words += "c" + std::to_string(i) + " n" + std::to_string(i) + " 2 ";
    words += "c1000 n1000 3"; // no white space at the end: no empty conversion follows
    Loaded exact = LoadModifier(words.substr(0, words.size() - std::string(" c1000 n1000 3").size()));
    EXPECT_TRUE(exact.ok);
    EXPECT_EQ(exact.err, "");
    EXPECT_EQ(exact.modifier->GetCount(), 1000);
    EXPECT_EQ(Renamed(*exact.modifier, "c999"), "n999");

    Loaded over = LoadModifier(words);
    EXPECT_TRUE(over.ok);
    EXPECT_EQ(over.err, "AsciiExportModifier:Load(); too many signal conversions defined; only 1000 supported\n");
    EXPECT_TRUE(Contains(Log(), "(ERR  ): [-] AsciiExportModifier:Load(); too many signal conversions defined"));
    EXPECT_EQ(over.modifier->GetCount(), 1000);
    EXPECT_EQ(Renamed(*over.modifier, "c998"), "n998");
    EXPECT_EQ(Renamed(*over.modifier, "c999"), "c999"); // overwritten
    EXPECT_EQ(Renamed(*over.modifier, "c1000"), "n1000");
    EXPECT_EQ(over.modifier->GetFactor("c1000"), 3.0f);
}

// ---- The modifier in the export ----

TEST_F(ModifierTest, ExportRenamesScalesAndDropsWithoutHead)
{
    WriteFile("mod.txt", "speed kmh 3.6\ngear - 1\nrpm rpm 1\nrpm x 5");
    PSignals set;
    FillCar(set);
    Exported e = ExportWith(set, "mod.txt");
    EXPECT_TRUE(e.ok);
    EXPECT_EQ(e.err, "");
    EXPECT_EQ(e.text, "time distance kmh rpm\n"
                      "0.000000 0.000000 36.000000 1000.000000\n"
                      "1.000000 5.000000 72.000000 2000.000000\n");
}

TEST_F(ModifierTest, SeparatorStandsBetweenAllColumns)
{
    PSignals set;
    FillCar(set);
    WriteFile("tab.txt", "separator tab gear - 1");
    EXPECT_EQ(ExportWith(set, "tab.txt").text, "time\tdistance\tspeed\trpm\n"
                                               "0.000000\t0.000000\t10.000000\t1000.000000\n"
                                               "1.000000\t5.000000\t20.000000\t2000.000000\n");
    WriteFile("comma.txt", "gear - 1 separator comma");
    EXPECT_EQ(ExportWith(set, "comma.txt").text, "time,distance,speed,rpm\n"
                                                 "0.000000,0.000000,10.000000,1000.000000\n"
                                                 "1.000000,5.000000,20.000000,2000.000000\n");
}

TEST_F(ModifierTest, TimeAndDistanceRenamesOnlyChangeTheColumnLine)
{
    WriteFile("mod.txt", "time seconds 100 distance - 1000 speed - 1 gear - 1 rpm - 1");
    PSignals set;
    FillCar(set);
    Exported e = ExportWith(set, "mod.txt");
    EXPECT_TRUE(e.ok);
    EXPECT_EQ(e.text, "seconds -\n0.000000 0.000000\n1.000000 5.000000\n");
}

TEST_F(ModifierTest, EmptyModifierFileOnlyDropsTheHead)
{
    WriteFile("mod.txt", "");
    PSignals set;
    FillCar(set);
    Exported e = ExportWith(set, "mod.txt");
    EXPECT_TRUE(e.ok);
    EXPECT_EQ(e.text, "time distance speed gear rpm\n"
                      "0.000000 0.000000 10.000000 3.000000 1000.000000\n"
                      "1.000000 5.000000 20.000000 4.000000 2000.000000\n");
}

TEST_F(ModifierTest, FactorPlaysNoPartForTriggerColumns)
{
    WriteFile("mod.txt", "lap laps 10 sector s 10");
    PSignals set;
    AddFilled(set, "distance", {0.0f, 1.0f});
    AddFilled(set, "lap", {1.0f, 2.0f});
    AddFilled(set, "sector", {1.0f, 2.0f});
    Exported e = ExportWith(set, "mod.txt", PExportOptions::PEO_LAP_TRIGGER);
    EXPECT_TRUE(e.ok);
    EXPECT_EQ(e.text, "time distance laps s\n"
                      "0.000000 0.000000 0.000000 10.000000\n"
                      "1.000000 1.000000 1.000000 20.000000\n");
}

TEST_F(ModifierTest, UnreadableModifierIsShownAndTheExportGoesOnWithHead)
{
    PSignals set;
    FillCar(set);
    Exported e = ExportWith(set, "nofile.mod");
    EXPECT_TRUE(e.ok);
    EXPECT_EQ(e.err, "[Error] Could not read modifier file (nofile.mod): file not found\n");
    EXPECT_EQ(e.text, plainHead + "time distance speed gear rpm\n"
                                  "0.000000 0.000000 10.000000 3.000000 1000.000000\n"
                                  "1.000000 5.000000 20.000000 4.000000 2000.000000\n");
}

TEST_F(ModifierTest, ModifierWithUnknownSeparatorIsDroppedAsAWhole)
{
    WriteFile("bad.mod", "rpm revs 2 separator semicolon");
    PSignals set;
    FillCar(set);
    Exported e = ExportWith(set, "bad.mod");
    EXPECT_TRUE(e.ok);
    EXPECT_EQ(e.err, "[Error] Could not read modifier file (bad.mod): Unknown separator name (semicolon)\n");
    EXPECT_EQ(e.text, plainHead + "time distance speed gear rpm\n"
                                  "0.000000 0.000000 10.000000 3.000000 1000.000000\n"
                                  "1.000000 5.000000 20.000000 4.000000 2000.000000\n");
}
