// The text table reader: the channel table with its factors, times with a colon, the count of
// lines, what happens to short lines and wide heads, the properties it adds, and input that is no
// table at all, which must end in a plain report, quickly.
#include "foundation/qapphooks.h"
#include "foundation/qfile.h"
#include "telemetry/analyse_export.h"
#include "telemetry/analyse_signals.h"
#include "tests/telemetry/telemetry_fixture.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <regex>
#include <string>
#include <vector>

using namespace tarvik;
using namespace tarvik::test;

namespace {

class ImportAsciiTest : public TelemetryTest {
protected:
    void TearDown() override { qappHooks = nullptr; }

    // Writes 'text' to 'name' and imports it into 'set'.
    bool Load(const std::string& text, const char* name = "run.txt")
    {
        WriteFile(name, text);
        bool ok = false;
        err = StderrOf([&] { ok = set->ImportASCII(name); });
        return ok;
    }

    std::vector<std::string> Ids() const
    {
        std::vector<std::string> ids;
        for (int i = 0; i < set->signalCount; i++) ids.push_back(set->signals[i]->GetId());
        return ids;
    }

    std::unique_ptr<PSignals> set = std::make_unique<PSignals>();
    std::string err; // standard error of the last Load
};

using S = std::vector<std::string>;

// "Time", "LAP_DI" and 'more' columns c0, c1, ..., tab-separated, with a line end.
std::string WideHead(int more)
{
    std::string head = "Time\tLAP_DI";
    for (int i = 0; i < more; i++) head += "\tc" + std::to_string(i);
    return head + "\n";
}

std::string Repeat(const std::string& piece, int n)
{
    std::string out;
    for (int i = 0; i < n; i++) out += piece;
    return out;
}

const char* noTime = "PSignals::ImportASCII: no time or distance field found - refusing to load\n";

std::string dialogTitle, dialogText;
void RecordDialog(const char* title, const char* text)
{
    dialogTitle = title;
    dialogText = text;
}

} // namespace

// ---- The table ----

TEST_F(ImportAsciiTest, TimeAndDistanceLoadWithALap)
{
    ASSERT_TRUE(Load("Time\tLAP_DI\n0.0\t1.5\n0.02\t2.5\n"));
    EXPECT_EQ(err, "2 signals\n2 lines of data\n");
    EXPECT_FALSE(LogExists());
    EXPECT_EQ(Ids(), (S{"time", "distance", "lap"}));
    PSignal* time = set->signals[0];
    PSignal* distance = set->signals[1];
    PSignal* lap = set->signals[2];
    EXPECT_EQ(time->count, 2);
    EXPECT_EQ(time->data[1], 0.02f);
    EXPECT_EQ(distance->data[0], 1.5f);
    EXPECT_EQ(distance->data[1], 2.5f);
    EXPECT_EQ(lap->count, 2);
    EXPECT_EQ(lap->data[0], 1.0f);
    EXPECT_EQ(lap->data[1], 1.0f);
    // The step is 100 Hz whatever the column Time says; the lap keeps none.
    EXPECT_EQ(time->timestep, 0.01f);
    EXPECT_EQ(distance->timestep, 0.01f);
    EXPECT_EQ(lap->timestep, 0.0f);
}

TEST_F(ImportAsciiTest, PropertiesInOrder)
{
    std::filesystem::create_directories("sub/dir");
    ASSERT_TRUE(Load("Time\tLAP_DI\n1\t2\n", "sub/dir/run.txt"));
    EXPECT_STREQ(set->fileName.cstr(), "sub/dir/run.txt");
    ASSERT_EQ(set->propertyCount, 6);
    const char* names[] = {"filename", "car", "track", "date", "time", "comment"};
    for (int i = 0; i < 6; i++) EXPECT_STREQ(set->propertyName[i].cstr(), names[i]);
    EXPECT_STREQ(set->propertyValue[0].cstr(), "run.txt");
    EXPECT_STREQ(set->propertyValue[1].cstr(), "unknown_car");
    EXPECT_STREQ(set->propertyValue[2].cstr(), "zandvoort");
    EXPECT_TRUE(std::regex_match(set->propertyValue[3].cstr(), std::regex("[0-3][0-9]-[01][0-9]-[0-9]{4}")));
    EXPECT_TRUE(std::regex_match(set->propertyValue[4].cstr(), std::regex("[0-2][0-9]:[0-5][0-9]:[0-6][0-9]")));
    EXPECT_STREQ(set->propertyValue[5].cstr(), "Imported by Lapgraph");
    EXPECT_EQ(set->metaCount, 0);
}

TEST_F(ImportAsciiTest, ChannelTableRenamesAndScales)
{
    ASSERT_TRUE(Load("LAP_DI\tTime\tLAPTIM\tACC_X\tACC_Y\tACC_Z\tVVEH\tSTEER\tRPM\tvveh\n"
                     "2\t1\t3\t1.0\t-0.5\t2\t123.4\t0.5\t3000\t7\n"));
    EXPECT_EQ(Ids(), (S{"distance", "time", "laptime", "acc_z", "acc_x", "acc_y", "velocity", "steering", "RPM", "vveh",
                        "lap"}));
    auto value = [&](const char* id) { return set->FindSignal(id)->data[0]; };
    EXPECT_EQ(value("distance"), 2.0f);
    EXPECT_EQ(value("time"), 1.0f);
    EXPECT_EQ(value("laptime"), 3.0f);
    EXPECT_EQ(value("acc_z"), 1.0f * 9.81f);
    EXPECT_EQ(value("acc_x"), -0.5f * 9.81f);
    EXPECT_EQ(value("acc_y"), 2.0f * 9.81f);
    EXPECT_EQ(value("velocity"), float(std::atof("123.4")) * 0.2777778f);
    EXPECT_EQ(value("steering"), 0.5f * 57.29578f);
    EXPECT_EQ(value("RPM"), 3000.0f);
    EXPECT_EQ(value("vveh"), 7.0f); // names compare exactly
}

TEST_F(ImportAsciiTest, ColonValuesAreSecondsAndMilliseconds)
{
    ASSERT_TRUE(Load("Time\tLAP_DI\tLAPTIM\tVVEH\n1:500\t12:5\t0:999\t3:600\n"));
    EXPECT_EQ(set->signals[0]->data[0], 1.0f + 0.001f * 500.0f);
    EXPECT_FLOAT_EQ(set->signals[0]->data[0], 1.5f);
    EXPECT_EQ(set->signals[1]->data[0], 12.0f + 0.001f * 5.0f);
    EXPECT_FLOAT_EQ(set->signals[1]->data[0], 12.005f);
    EXPECT_EQ(set->signals[2]->data[0], 0.001f * 999.0f);
    EXPECT_EQ(set->signals[3]->data[0], (3.0f + 0.001f * 600.0f) * 0.2777778f); // the factor comes after
}

TEST_F(ImportAsciiTest, FurtherLapColumnComesFirst)
{
    ASSERT_TRUE(Load("Time\tLAP_DI\tlap\n0\t0\t7\n1\t1\t8\n"));
    EXPECT_EQ(Ids(), (S{"time", "distance", "lap", "lap"}));
    EXPECT_EQ(set->FindSignal("lap"), set->signals[2]);
    EXPECT_EQ(set->signals[2]->data[1], 8.0f);
    EXPECT_EQ(set->signals[2]->timestep, 0.01f);
    EXPECT_EQ(set->signals[3]->data[1], 1.0f);
}

// ---- Counting lines ----

TEST_F(ImportAsciiTest, HeadLineOnlyLoadsEmptySignals)
{
    ASSERT_TRUE(Load("Time\tLAP_DI\n"));
    EXPECT_EQ(err, "2 signals\n0 lines of data\n");
    ASSERT_EQ(set->signalCount, 3);
    for (int i = 0; i < 3; i++) EXPECT_EQ(set->signals[i]->count, 0);

    PExportOptions options;
    options.fileName = "out.txt";
    bool ok = false;
    StderrOf([&] { ok = set->ExportASCII(options); });
    EXPECT_TRUE(ok);
    std::string table = ReadFile("out.txt");
    const std::string tail = "#\ntime distance\n";
    ASSERT_GE(table.size(), tail.size());
    EXPECT_EQ(table.substr(table.size() - tail.size()), tail);
}

TEST_F(ImportAsciiTest, LastLineWithoutLineEndIsNotData)
{
    ASSERT_TRUE(Load("Time\tLAP_DI\n1\t2\n3\t4"));
    EXPECT_EQ(err, "2 signals\n1 lines of data\n");
    EXPECT_EQ(set->signals[0]->count, 1);
    EXPECT_EQ(set->signals[1]->data[0], 2.0f);
}

TEST_F(ImportAsciiTest, CarriageReturnsAreIgnored)
{
    ASSERT_TRUE(Load("Time\tLAP_DI\r\n1\t2\r\n3\t4\r\n"));
    EXPECT_EQ(err, "2 signals\n2 lines of data\n");
    EXPECT_EQ(Ids(), (S{"time", "distance", "lap"}));
    EXPECT_EQ(set->signals[1]->data[1], 4.0f);

    set = std::make_unique<PSignals>();
    ASSERT_TRUE(Load("\rTi\rme\tLAP_DI\r\r\n1\r\t\r2\r\n"));
    EXPECT_EQ(Ids(), (S{"time", "distance", "lap"}));
    EXPECT_EQ(set->signals[0]->data[0], 1.0f);
    EXPECT_EQ(set->signals[1]->data[0], 2.0f);
}

TEST_F(ImportAsciiTest, ShortLineStopsReadingButLoads)
{
    ASSERT_TRUE(Load("Time\tLAP_DI\tRPM\n1\t2\t3\n4\t\t6\n7\t8\t9\n"));
    const std::string error = "PSignals::ImportASCII: line 2 has 2 fields, expected 3 (signals)";
    EXPECT_EQ(err, "3 signals\n3 lines of data\n" + error + "\n");
    EXPECT_TRUE(Contains(Log(), "(ERR  ): [-] " + error + " ["));
    ASSERT_EQ(set->signalCount, 4);
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(set->signals[i]->count, 3);
        EXPECT_EQ(set->signals[i]->data[0], float(i + 1));
        EXPECT_EQ(set->signals[i]->data[1], 0.0f); // rows from the short one on stay zero
        EXPECT_EQ(set->signals[i]->data[2], 0.0f);
    }
    EXPECT_EQ(set->signals[3]->data[2], 1.0f); // the lap is whole
    EXPECT_EQ(set->propertyCount, 6);
}

// ---- Required columns ----

TEST_F(ImportAsciiTest, TimeAndDistanceAreRequiredExactly)
{
    const char* tables[] = {"LAP_DI\tRPM\n1\t2\n", "Time\tdistance\n1\t2\n", "time\tLAP_DI\n1\t2\n"};
    for (const char* table : tables) {
        set = std::make_unique<PSignals>();
        qmsgReset();
        EXPECT_FALSE(Load(table)) << table;
        EXPECT_EQ(err, std::string("2 signals\n1 lines of data\n") + noTime) << table;
        EXPECT_EQ(set->signalCount, 2); // what was added stays
        EXPECT_EQ(set->propertyCount, 0);
        EXPECT_EQ(set->FindSignal("lap"), nullptr);
    }
    EXPECT_TRUE(Contains(Log(), "(ERR  ): [-] PSignals::ImportASCII: no time or distance field found - refusing to load ["));
}

TEST_F(ImportAsciiTest, MissingFileIsWarned)
{
    bool ok = true;
    err = StderrOf([&] { ok = set->ImportASCII("absent.txt"); });
    EXPECT_FALSE(ok);
    EXPECT_EQ(err, "PSignals:ImportASCII(); can't open file (absent.txt)\n");
    EXPECT_STREQ(set->fileName.cstr(), "absent.txt");
}

// ---- Wide heads ----

TEST_F(ImportAsciiTest, ThousandColumnsLeaveNoSlotForTheLap)
{
    std::string values = "1" + Repeat("\t2", 999) + "\n";
    ASSERT_TRUE(Load(WideHead(998) + values));
    EXPECT_EQ(err, "1000 signals\n1 lines of data\nPSignals:AddSignal(); out of signals (max=1000)\n");
    ASSERT_EQ(set->signalCount, 1000);
    EXPECT_STREQ(set->signals[999]->GetId(), "c997");
    EXPECT_EQ(set->signals[999]->data[0], 2.0f); // the values were read
    EXPECT_EQ(set->signals[999]->count, 1);
    EXPECT_EQ(set->FindSignal("lap"), nullptr);
}

TEST_F(ImportAsciiTest, MoreThanThousandColumnsGoOnWithTheFirstThousand)
{
    static QAppHooks hooks{};
    hooks.ShowTextDialog = RecordDialog;
    qappHooks = &hooks;
    dialogTitle = dialogText = "";
    std::string values = Repeat("1\t", 1001) + "\n";
    ASSERT_TRUE(Load(WideHead(999) + values + values, "wide.txt"));
    qappHooks = nullptr;
    const std::string warning = "PSignals:ImportASCII(); too many signals in file (wide.txt, max=1000, file has 1001)";
    EXPECT_EQ(err, "1001 signals\n" + warning + "\n2 lines of data\n"
                   "PSignals::ImportASCII: line 1 has 1001 fields, expected 1000 (signals)\n"
                   "PSignals:AddSignal(); out of signals (max=1000)\n");
    EXPECT_TRUE(Contains(Log(), "(WARN ): [-] " + warning + " ["));
    EXPECT_EQ(dialogTitle, "Warning");
    EXPECT_EQ(dialogText, "Too many signals in ASCII file");
    ASSERT_EQ(set->signalCount, 1000);
    EXPECT_STREQ(set->signals[999]->GetId(), "c997");
    for (int i = 0; i < 1000; i += 111) {
        EXPECT_EQ(set->signals[i]->count, 2);
        EXPECT_EQ(set->signals[i]->data[0], 0.0f);
    }
}

TEST_F(ImportAsciiTest, ImpossiblyManyEmptyLinesAreRefused)
{
    // 999 columns of 4 bytes per line may take 64 MB more than four times the file's size. With
    // the head padded so, that many lines fill the allowance exactly: 4 x 999 x L = 2^26 + 4 x (H + L).
    std::string head = WideHead(997);
    head.insert(head.size() - 1, ((998 - ((1LL << 24) + (long long)head.size()) % 998) % 998), 'x');
    const long long limitLines = ((1LL << 24) + (long long)head.size()) / 998;
    ASSERT_EQ(4 * 999 * limitLines, (64LL << 20) + 4 * ((long long)head.size() + limitLines));
    ASSERT_TRUE(Load(head + std::string(size_t(limitLines), '\n'), "many.txt"));
    EXPECT_TRUE(Contains(err, "PSignals::ImportASCII: line 1 has 0 fields, expected 999 (signals)\n"));
    EXPECT_EQ(set->signals[0]->count, limitLines);

    set = std::make_unique<PSignals>();
    const long long over = limitLines + 1;
    EXPECT_FALSE(Load(head + std::string(size_t(over), '\n'), "many.txt"));
    const std::string warning = "PSignals:ImportASCII(); " + std::to_string(over) +
                                " lines of 999 columns can't be in a file of " +
                                std::to_string(head.size() + size_t(over)) + " bytes - refusing to load (many.txt)";
    EXPECT_EQ(err, "999 signals\n" + std::to_string(over) + " lines of data\n" + warning + "\n");
    EXPECT_EQ(set->signalCount, 0);

    set = std::make_unique<PSignals>();
    auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(Load(head + std::string(3000000, '\n'), "many.txt"));
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 20.0);
    EXPECT_TRUE(Contains(err, "3000000 lines of 999 columns can't be in a file of"));
}

// ---- Input that is no table ----

TEST_F(ImportAsciiTest, EmptyFileHasNoHead)
{
    EXPECT_FALSE(Load(""));
    EXPECT_EQ(err, std::string("0 signals\n0 lines of data\n") + noTime);
    EXPECT_EQ(set->signalCount, 0);
}

TEST_F(ImportAsciiTest, BinaryGarbageEndsInAReport)
{
    std::mt19937 rng(7);
    std::string bytes;
    for (int i = 0; i < 200000; i++) bytes += char(rng() & 0xFF);
    EXPECT_FALSE(Load(bytes, "garbage.bin"));
    EXPECT_TRUE(Contains(err, noTime));
}

TEST_F(ImportAsciiTest, TenMegabyteLineIsReadInPieces)
{
    auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(Load("Time\tLAP_DI\n" + std::string(10000000, '5') + "\n1\t2\n"));
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 20.0);
    EXPECT_TRUE(Contains(err, "PSignals::ImportASCII: line 1 has 1 fields, expected 2 (signals)\n"));
    int lines = set->signals[0]->count;
    EXPECT_GT(lines, 1);
    EXPECT_TRUE(Contains(err, "2 signals\n" + std::to_string(lines) + " lines of data\n"));
    EXPECT_EQ(set->signals[0]->data[0], 0.0f);
}

TEST_F(ImportAsciiTest, FiveThousandColumns)
{
    std::string head = "Time\tLAP_DI" + Repeat("\tx", 4998) + "\n";
    std::string values = Repeat("3\t", 5000) + "\n";
    ASSERT_TRUE(Load(head + values));
    EXPECT_TRUE(Contains(err, "5000 signals\nPSignals:ImportASCII(); too many signals in file (run.txt, max=1000, file has 5000)\n"));
    EXPECT_TRUE(Contains(err, "line 1 has 5000 fields, expected 1000 (signals)\n"));
    EXPECT_EQ(set->signalCount, 1000);
}

TEST_F(ImportAsciiTest, LongFieldWithColonIsReadFromItsFirst255Characters)
{
    // Beyond 255 characters the "500" would count; cut there, the milliseconds are zero.
    std::string early = "3:" + std::string(253, '0') + "500" + std::string(42, 'x');
    std::string late = std::string(280, '0') + "7:9" + std::string(17, '0');
    ASSERT_EQ(early.size(), 300u);
    ASSERT_EQ(late.size(), 300u);
    ASSERT_TRUE(Load("Time\tLAP_DI\n" + early + "\t" + late + "\n"));
    EXPECT_EQ(set->signals[0]->data[0], 3.0f);
    EXPECT_EQ(set->signals[1]->data[0], 0.0f); // the colon lies past the cut
}

// ---- The reader on an open file ----

TEST_F(ImportAsciiTest, ReaderWorksOnAFileInMemory)
{
    std::string text = "Time\tLAP_DI\tVVEH\n0\t1\t36\n0.01\t2\t72\n";
    QFile file("mem.txt", &text[0], int(text.size()));
    set->fileName = "dir/mem.txt";
    bool ok = false;
    err = StderrOf([&] { ok = set->ReadASCII(file); });
    EXPECT_TRUE(ok);
    EXPECT_EQ(err, "3 signals\n2 lines of data\n");
    EXPECT_EQ(set->signals[2]->data[1], 72.0f * 0.2777778f);
    EXPECT_STREQ(set->propertyValue[0].cstr(), "mem.txt");

    // The same text from disk through the import gives the same set.
    PSignals fromDisk;
    WriteFile("disk.txt", text);
    StderrOf([&] { ok = fromDisk.ImportASCII("disk.txt"); });
    EXPECT_TRUE(ok);
    ASSERT_EQ(fromDisk.signalCount, set->signalCount);
    for (int i = 0; i < set->signalCount; i++)
        for (int n = 0; n < 2; n++) EXPECT_EQ(fromDisk.signals[i]->data[n], set->signals[i]->data[n]);
}
