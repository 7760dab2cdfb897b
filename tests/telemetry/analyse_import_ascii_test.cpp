// The text table reader: the channel table with its factors, times with a colon, the count of
// lines, short lines, wide heads, the properties it adds, and input that is no table at all.
#include "foundation/qapphooks.h"
#include "foundation/qfile.h"
#include "telemetry/analyse_signals.h"
#include "tests/telemetry/telemetry_fixture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <regex>
#include <string>

using namespace tarvik;
using namespace tarvik::test;

namespace {

class ImportAsciiTest : public TelemetryTest {
protected:
    void TearDown() override { qappHooks = nullptr; }

    // Writes 'text' to 'name' and imports it into a fresh set; the log starts empty.
    bool Load(const std::string& text, const char* name = "run.txt")
    {
        set = std::make_unique<PSignals>();
        qmsgReset();
        std::remove(dir.File("QLOG.txt").c_str());
        WriteFile(name, text);
        bool ok = false;
        err = StderrOf([&] { ok = set->ImportASCII(name); });
        return ok;
    }

    // "id=v0,v1,..." for each signal, its count of values printed with %g.
    std::string Values() const
    {
        std::string out;
        for (int i = 0; i < set->signalCount; i++) {
            out += std::string(i ? " " : "") + set->signals[i]->GetId() + "=";
            for (int n = 0; n < set->signals[i]->count; n++) {
                char text[32];
                std::snprintf(text, sizeof text, "%s%g", n ? "," : "", double(set->signals[i]->data[n]));
                out += text;
            }
        }
        return out;
    }

    std::unique_ptr<PSignals> set;
    std::string err; // standard error of the last Load
};

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

const std::string noTime = "PSignals::ImportASCII: no time or distance field found - refusing to load\n";

std::string dialogTitle, dialogText;
void RecordDialog(const char* title, const char* text)
{
    dialogTitle = title;
    dialogText = text;
}

} // namespace

// ---- The table ----

TEST_F(ImportAsciiTest, TimeAndDistanceLoadWithALapAndSixProperties)
{
    std::filesystem::create_directories("sub/dir");
    ASSERT_TRUE(Load("Time\tLAP_DI\n0.0\t1.5\n0.02\t2.5\n", "sub/dir/run.txt"));
    EXPECT_EQ(err, "2 signals\n2 lines of data\n");
    EXPECT_FALSE(LogExists());
    EXPECT_EQ(Values(), "time=0,0.02 distance=1.5,2.5 lap=1,1");
    // The step is 100 Hz whatever the column Time says; the lap keeps none.
    EXPECT_EQ(set->signals[0]->timestep, 0.01f);
    EXPECT_EQ(set->signals[1]->timestep, 0.01f);
    EXPECT_EQ(set->signals[2]->timestep, 0.0f);

    EXPECT_STREQ(set->fileName.cstr(), "sub/dir/run.txt");
    ASSERT_EQ(set->propertyCount, 6);
    const char* names[] = {"filename", "car", "track", "date", "time", "comment"};
    for (int i = 0; i < 6; i++) EXPECT_STREQ(set->propertyName[i].cstr(), names[i]);
    EXPECT_STREQ(set->propertyValue[0].cstr(), "run.txt");
    EXPECT_STREQ(set->propertyValue[1].cstr(), "unknown_car");
    EXPECT_STREQ(set->propertyValue[2].cstr(), "zandvoort");
    EXPECT_TRUE(std::regex_match(set->propertyValue[3].cstr(), std::regex("[0-3]\\d-[01]\\d-\\d{4}")));
    EXPECT_TRUE(std::regex_match(set->propertyValue[4].cstr(), std::regex("[0-2]\\d:[0-5]\\d:[0-6]\\d")));
    EXPECT_STREQ(set->propertyValue[5].cstr(), "Imported by Lapgraph");
    EXPECT_EQ(set->metaCount, 0);
}

// Line 2 holds "seconds:milliseconds" where the column takes it; the factor applies after.
TEST_F(ImportAsciiTest, ChannelTableRenamesScalesAndReadsColons)
{
    ASSERT_TRUE(Load("LAP_DI\tTime\tLAPTIM\tACC_X\tACC_Y\tACC_Z\tVVEH\tSTEER\tRPM\tvveh\n"
                     "2\t1\t3\t1.0\t-0.5\t2\t123.4\t0.5\t3000\t7\n"
                     "12:5\t1:500\t0:999\t1\t1\t1\t3:600\t1\t1\t1\n"));
    std::string ids;
    for (int i = 0; i < set->signalCount; i++) ids += std::string(set->signals[i]->GetId()) + " ";
    // The file's X axis is acc_z, Y acc_x, Z acc_y; names compare exactly.
    EXPECT_EQ(ids, "distance time laptime acc_z acc_x acc_y velocity steering RPM vveh lap ");
    const float g = 9.81f, kmh = 0.2777778f, deg = 57.29578f;
    const float expected[2][10] = {
        {2, 1, 3, g, -0.5f * g, 2 * g, float(std::atof("123.4")) * kmh, 0.5f * deg, 3000, 7},
        {12.0f + 0.001f * 5.0f, 1.0f + 0.001f * 500.0f, 0.001f * 999.0f, g, g, g,
         (3.0f + 0.001f * 600.0f) * kmh, deg, 1, 1}};
    for (int line = 0; line < 2; line++)
        for (int i = 0; i < 10; i++) EXPECT_EQ(set->signals[i]->data[line], expected[line][i]) << line << i;
    EXPECT_FLOAT_EQ(set->signals[0]->data[1], 12.005f);
    EXPECT_FLOAT_EQ(set->signals[1]->data[1], 1.5f);
}

TEST_F(ImportAsciiTest, FurtherLapColumnComesFirst)
{
    ASSERT_TRUE(Load("Time\tLAP_DI\tlap\n0\t0\t7\n1\t1\t8\n"));
    EXPECT_EQ(Values(), "time=0,1 distance=0,1 lap=7,8 lap=1,1");
    EXPECT_EQ(set->FindSignal("lap"), set->signals[2]);
    EXPECT_EQ(set->signals[2]->timestep, 0.01f);
}

// ---- Counting lines, short lines, required columns ----

TEST_F(ImportAsciiTest, LinesAreCountedAndCheckedAgainstTheHead)
{
    const std::string two = "2 signals\n1 lines of data\n";
    const std::string shortLine = "PSignals::ImportASCII: line 2 has 2 fields, expected 3 (signals)\n";
    struct Case {
        const char* text;
        bool ok;
        std::string err;
        const char* values;
        bool logged;
    } cases[] = {
        {"Time\tLAP_DI\n", true, "2 signals\n0 lines of data\n", "time= distance= lap=", false},
        {"Time\tLAP_DI\n1\t2\n3\t4", true, two, "time=1 distance=2 lap=1", false}, // no line end: not data
        {"Time\tLAP_DI\r\n1\t2\r\n3\t4\r\n", true, "2 signals\n2 lines of data\n",
         "time=1,3 distance=2,4 lap=1,1", false},
        {"\rTi\rme\tLAP_DI\r\r\n1\r\t\r2\r\n", true, two, "time=1 distance=2 lap=1", false},
        // From a short line on, the rows stay zero; the lap is whole.
        {"Time\tLAP_DI\tRPM\n1\t2\t3\n4\t\t6\n7\t8\t9\n", true, "3 signals\n3 lines of data\n" + shortLine,
         "time=1,0,0 distance=2,0,0 RPM=3,0,0 lap=1,1,1", true},
        // What was added stays, without data, lap or properties.
        {"LAP_DI\tRPM\n1\t2\n", false, two + noTime, "distance= RPM=", true},
        {"Time\tdistance\n1\t2\n", false, two + noTime, "time= distance=", true},
        {"time\tLAP_DI\n1\t2\n", false, two + noTime, "time= distance=", true},
        {"", false, "0 signals\n0 lines of data\n" + noTime, "", true},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Load(c.text), c.ok) << c.text;
        EXPECT_EQ(err, c.err) << c.text;
        EXPECT_EQ(Values(), c.values) << c.text;
        EXPECT_EQ(set->propertyCount, c.ok ? 6 : 0) << c.text;
        EXPECT_EQ(LogExists(), c.logged) << c.text;
        if (c.logged) {
            EXPECT_TRUE(Contains(Log(), "(ERR  ): [-] PSignals::ImportASCII: ")) << c.text;
        }
    }
}

// ---- Wide heads ----

TEST_F(ImportAsciiTest, ThousandColumnsLeaveNoSlotForTheLap)
{
    ASSERT_TRUE(Load(WideHead(998) + "1" + Repeat("\t2", 999) + "\n"));
    EXPECT_EQ(err, "1000 signals\n1 lines of data\nPSignals:AddSignal(); out of signals (max=1000)\n");
    ASSERT_EQ(set->signalCount, 1000);
    EXPECT_STREQ(set->signals[999]->GetId(), "c997");
    EXPECT_EQ(set->signals[999]->count, 1);
    EXPECT_EQ(set->signals[999]->data[0], 2.0f);
    EXPECT_EQ(set->FindSignal("lap"), nullptr);
}

TEST_F(ImportAsciiTest, MoreThanThousandColumnsGoOnWithTheFirstThousand)
{
    static QAppHooks hooks{};
    hooks.ShowTextDialog = RecordDialog;
    qappHooks = &hooks;
    std::string values = Repeat("1\t", 1001) + "\n";
    ASSERT_TRUE(Load(WideHead(999) + values + values, "wide.txt"));
    const std::string warning =
        "PSignals:ImportASCII(); too many signals in file (wide.txt, max=1000, file has 1001)";
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
    const long long limit = ((1LL << 24) + (long long)head.size()) / 998;
    ASSERT_EQ(4 * 999 * limit, (64LL << 20) + 4 * ((long long)head.size() + limit));
    ASSERT_TRUE(Load(head + std::string(size_t(limit), '\n'), "many.txt"));
    EXPECT_TRUE(Contains(err, "PSignals::ImportASCII: line 1 has 0 fields, expected 999 (signals)\n"));
    EXPECT_EQ(set->signals[0]->count, limit);

    const std::string over = std::to_string(limit + 1);
    EXPECT_FALSE(Load(head + std::string(size_t(limit + 1), '\n'), "many.txt"));
    const std::string bytes = std::to_string(head.size() + size_t(limit + 1));
    EXPECT_EQ(err, "999 signals\n" + over + " lines of data\nPSignals:ImportASCII(); " + over +
                       " lines of 999 columns can't be in a file of " + bytes + " bytes - refusing to load (many.txt)\n");
    EXPECT_EQ(set->signalCount, 0);

    // Far more, so that lines x columns x 4 passes 2^32: still refused.
    EXPECT_FALSE(Load(head + std::string(3000000, '\n'), "many.txt"));
    EXPECT_TRUE(Contains(err, "3000000 lines of 999 columns can't be in a file of"));
}

// ---- Input that is no table ----

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
    ASSERT_TRUE(Load("Time\tLAP_DI\n" + std::string(10000000, '5') + "\n1\t2\n"));
    const int lines = set->signals[0]->count;
    EXPECT_GT(lines, 1);
    EXPECT_EQ(err, "2 signals\n" + std::to_string(lines) +
                       " lines of data\nPSignals::ImportASCII: line 1 has 1 fields, expected 2 (signals)\n");
    EXPECT_EQ(set->signals[0]->data[0], 0.0f);
}

TEST_F(ImportAsciiTest, LongFieldWithColonIsReadFromItsFirst255Characters)
{
    // Beyond 255 characters the "500" would count; cut there, the milliseconds are zero.
    std::string early = "3:" + std::string(253, '0') + "500" + std::string(42, 'x');
    std::string late = std::string(280, '0') + "7:9" + std::string(17, '0');
    ASSERT_TRUE(Load("Time\tLAP_DI\n" + early + "\t" + late + "\n"));
    EXPECT_EQ(set->signals[0]->data[0], 3.0f);
    EXPECT_EQ(set->signals[1]->data[0], 0.0f); // the colon lies past the cut
}

TEST_F(ImportAsciiTest, ReaderWorksOnAFileInMemory)
{
    std::string text = "Time\tLAP_DI\tVVEH\n0\t1\t36\n0.01\t2\t72\n";
    QFile file("mem.txt", &text[0], int(text.size()));
    set = std::make_unique<PSignals>();
    set->fileName = "dir/mem.txt";
    bool ok = false;
    err = StderrOf([&] { ok = set->ReadASCII(file); });
    EXPECT_TRUE(ok);
    EXPECT_EQ(err, "3 signals\n2 lines of data\n");
    EXPECT_EQ(set->signals[2]->data[1], 72.0f * 0.2777778f);
    EXPECT_STREQ(set->propertyValue[0].cstr(), "mem.txt");
}
