// The export modifier: its words file, its limit, and what it changes in the exported table.
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
    std::string err, text;
};

// Exports 'set' to out.txt through the modifier file 'words' (none if null) or 'modifierFile'.
Exported ExportWith(PSignals& set, const char* words, const char* modifierFile = "mod.txt", uint32_t triggerFlags = 0)
{
    if (words) WriteFile(modifierFile, words);
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
const std::string plainTable = "time distance speed gear rpm\n"
                               "0.000000 0.000000 10.000000 3.000000 1000.000000\n"
                               "1.000000 5.000000 20.000000 4.000000 2000.000000\n";

} // namespace

TEST_F(ModifierTest, ConversionsRenameAndScaleTheFirstMatchOnly)
{
    Loaded l = LoadModifier("speed kmh 3.6\n  gear\t-\n1 \"engine speed\" \"rev counter\" 2 speed mph 0.62");
    EXPECT_TRUE(l.ok);
    EXPECT_EQ(l.err, "");
    EXPECT_EQ(l.modifier->GetCount(), 4);
    EXPECT_EQ(l.modifier->GetSeparator(), ' ');
    const struct {
        const char *name, *renamed;
        float factor;
    } cases[] = {{"speed", "kmh", 3.6f}, {"gear", "-", 1.0f}, {"engine speed", "rev counter", 2.0f},
                 {"rpm", "rpm", 1.0f}, {"Speed", "Speed", 1.0f}};
    for (const auto& c : cases) {
        EXPECT_EQ(Renamed(*l.modifier, c.name), c.renamed);
        EXPECT_EQ(l.modifier->GetFactor(c.name), c.factor) << c.name;
    }
}

TEST_F(ModifierTest, SeparatorWordsAndTheLastOneCounts)
{
    EXPECT_EQ(LoadModifier("separator tab").modifier->GetSeparator(), '\t');
    EXPECT_EQ(LoadModifier("separator tab separator space").modifier->GetSeparator(), ' ');
    Loaded l = LoadModifier("separator space rpm r 1 separator comma");
    EXPECT_TRUE(l.ok);
    EXPECT_EQ(l.modifier->GetSeparator(), ',');
    EXPECT_EQ(l.modifier->GetCount(), 1);

    l = LoadModifier("separator semicolon rpm r 2");
    EXPECT_FALSE(l.ok);
    EXPECT_STREQ(l.error.cstr(), "Unknown separator name (semicolon)");
    EXPECT_EQ(l.modifier->GetCount(), 1); // the load went on
}

TEST_F(ModifierTest, MissingFileAndMissingWords)
{
    std::unique_ptr<AsciiExportModifier> m(new AsciiExportModifier);
    qstring error;
    EXPECT_FALSE(m->Load("nofile.mod", &error));
    EXPECT_STREQ(error.cstr(), "file not found");

    // An empty file, or white space at the end, gives one conversion of empty words; a missing
    // word gives empty text and factor zero.
    Loaded l = LoadModifier("");
    EXPECT_TRUE(l.ok);
    EXPECT_EQ(l.modifier->GetCount(), 1);
    EXPECT_EQ(l.modifier->GetSeparator(), ' ');
    EXPECT_EQ(Renamed(*l.modifier, "rpm"), "rpm");
    EXPECT_EQ(l.modifier->GetFactor(""), 0.0f);
    EXPECT_EQ(LoadModifier("rpm r 2").modifier->GetCount(), 1);
    EXPECT_EQ(LoadModifier("rpm r 2\n").modifier->GetCount(), 2);
    l = LoadModifier("rpm x");
    EXPECT_EQ(l.modifier->GetCount(), 1);
    EXPECT_EQ(Renamed(*l.modifier, "rpm"), "x");
    EXPECT_EQ(l.modifier->GetFactor("rpm"), 0.0f);
}

TEST_F(ModifierTest, ThousandConversionsFitAndMoreOverwriteTheLast)
{
    std::string words;
    for (int i = 0; i < 1000; i++) words += "c" + std::to_string(i) + " n" + std::to_string(i) + " 2 ";
    Loaded exact = LoadModifier(words.substr(0, words.size() - 1)); // no white space at the end
    EXPECT_TRUE(exact.ok);
    EXPECT_EQ(exact.err, "");
    EXPECT_EQ(exact.modifier->GetCount(), 1000);
    EXPECT_EQ(Renamed(*exact.modifier, "c999"), "n999");

    Loaded over = LoadModifier(words + "c1000 n1000 3");
    EXPECT_TRUE(over.ok);
    EXPECT_EQ(over.err, "AsciiExportModifier:Load(); too many signal conversions defined; only 1000 supported\n");
    EXPECT_TRUE(Contains(Log(), "(ERR  ): [-] AsciiExportModifier:Load(); too many signal conversions defined"));
    EXPECT_EQ(over.modifier->GetCount(), 1000);
    EXPECT_EQ(Renamed(*over.modifier, "c998"), "n998");
    EXPECT_EQ(Renamed(*over.modifier, "c999"), "c999"); // overwritten
    EXPECT_EQ(Renamed(*over.modifier, "c1000"), "n1000");
    EXPECT_EQ(over.modifier->GetFactor("c1000"), 3.0f);
}

// A modifier drops the head; '-' drops a column; time and distance are only renamed.
TEST_F(ModifierTest, ExportRenamesScalesDropsAndSeparates)
{
    const struct {
        const char* words;
        const char* table;
    } cases[] = {
        {"speed kmh 3.6\ngear - 1\nrpm rpm 1\nrpm x 5",
         "time distance kmh rpm\n0.000000 0.000000 36.000000 1000.000000\n1.000000 5.000000 72.000000 2000.000000\n"},
        {"separator tab gear - 1",
         "time\tdistance\tspeed\trpm\n0.000000\t0.000000\t10.000000\t1000.000000\n1.000000\t5.000000\t20.000000\t2000.000000\n"},
        {"gear - 1 separator comma",
         "time,distance,speed,rpm\n0.000000,0.000000,10.000000,1000.000000\n1.000000,5.000000,20.000000,2000.000000\n"},
        {"time seconds 100 distance - 1000 speed - 1 gear - 1 rpm - 1", "seconds -\n0.000000 0.000000\n1.000000 5.000000\n"},
        {"", plainTable.c_str()},
    };
    PSignals set;
    FillCar(set);
    for (const auto& c : cases) {
        Exported e = ExportWith(set, c.words);
        EXPECT_TRUE(e.ok);
        EXPECT_EQ(e.err, "");
        EXPECT_EQ(e.text, c.table) << c.words;
    }
}

TEST_F(ModifierTest, FactorPlaysNoPartForTriggerColumns)
{
    PSignals set;
    AddFilled(set, "distance", {0.0f, 1.0f});
    AddFilled(set, "lap", {1.0f, 2.0f});
    AddFilled(set, "sector", {1.0f, 2.0f});
    Exported e = ExportWith(set, "lap laps 10 sector s 10", "mod.txt", PExportOptions::PEO_LAP_TRIGGER);
    EXPECT_TRUE(e.ok);
    EXPECT_EQ(e.text, "time distance laps s\n0.000000 0.000000 0.000000 10.000000\n1.000000 1.000000 1.000000 20.000000\n");
}

TEST_F(ModifierTest, UnreadableModifierIsShownAndDroppedAsAWhole)
{
    PSignals set;
    FillCar(set);
    Exported e = ExportWith(set, nullptr, "nofile.mod");
    EXPECT_TRUE(e.ok);
    EXPECT_EQ(e.err, "[Error] Could not read modifier file (nofile.mod): file not found\n");
    EXPECT_EQ(e.text, plainHead + plainTable);

    e = ExportWith(set, "rpm revs 2 separator semicolon", "bad.mod");
    EXPECT_TRUE(e.ok);
    EXPECT_EQ(e.err, "[Error] Could not read modifier file (bad.mod): Unknown separator name (semicolon)\n");
    EXPECT_EQ(e.text, plainHead + plainTable);
}
