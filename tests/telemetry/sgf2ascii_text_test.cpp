// The command on a text table: the real binary in a fresh directory, its standard error, the log
// file and the written table compared byte for byte.
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <regex>
#include <string>

using namespace tarvik::test;

namespace {

RunResult Sgf2Ascii(const TempDir& dir, const std::string& args)
{
    return RunCommand(ShellQuote(SGF2ASCII_PATH) + " " + args, dir.Path());
}

std::string NormalizedLog(const TempDir& dir)
{
    std::string log = LogWithoutTimes(ReadFile(dir.File("QLOG.txt")));
    static const std::regex location(R"( \[[a-z0-9_]+\.cpp:[0-9]+ / [A-Za-z_:]+\]\n)");
    return std::regex_replace(log, location, " [@]\n");
}

std::string F(float v)
{
    char text[64];
    std::snprintf(text, sizeof text, "%f", double(v));
    return text;
}

float Atof(const char* text) { return float(std::atof(text)); }

const std::string table = "Time\tLAP_DI\tVVEH\tSTEER\tACC_X\tRPM\n"
                          "0.000\t0.0\t100.0\t0.1\t0.5\t3000\n"
                          "0.020\t1:500\t123.4\t-0.2\t-1.0\t3500\n"
                          "0.040\t1.2\t50\t0\t0.25\t4000\n"
                          "0.060\t5.0\t60\t0\t0\t4100"; // no line end: never read

// The head that the export writes for an imported table, with the date and time of the run.
std::string Head(const std::string& date, const std::string& time)
{
    return "#\n"
           "# ASCII signal export\n"
           "# Writer: Ostrand PSignals exporter v1.2\n"
           "#\n"
           "# Properties: 6\n"
           "# Property 1: filename = run.txt\n"
           "# Property 2: car = unknown_car\n"
           "# Property 3: track = zandvoort\n"
           "# Property 4: date = " + date + "\n"
           "# Property 5: time = " + time + "\n"
           "# Property 6: comment = Imported by Lapgraph\n"
           "#\n"
           "# Metaproperties: 0\n"
           "#\n";
}

// Takes the date and time lines out of a written table, checking their form.
bool DateAndTime(const std::string& text, std::string& date, std::string& time)
{
    std::smatch m;
    static const std::regex stamp("# Property 4: date = ([0-3][0-9]-[01][0-9]-[0-9]{4})\n"
                                  "# Property 5: time = ([0-2][0-9]:[0-5][0-9]:[0-6][0-9])\n");
    if (!std::regex_search(text, m, stamp)) return false;
    date = m[1];
    time = m[2];
    return true;
}

} // namespace

TEST(Sgf2AsciiTextTest, TableConvertsWithComputedColumns)
{
    TempDir dir;
    WriteFile(dir.File("run.txt"), table);
    RunResult r = Sgf2Ascii(dir, "run.txt out.txt");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "SGF2ASCII v7.7.0\n");
    EXPECT_EQ(r.err, "Loading 'run.txt'...\n"
                     "6 signals\n"
                     "3 lines of data\n"
                     "Converting to 'out.txt'...\n"
                     "Exporting to ASCII succesful.\n");
    EXPECT_FALSE(FileExists(dir.File("QLOG.txt")));

    std::string written = ReadFile(dir.File("out.txt"));
    std::string date, time;
    ASSERT_TRUE(DateAndTime(written, date, time)) << written;

    // Values as the import stores them, and rows as the export computes them, in 32-bit floats.
    const char* rows[3][6] = {{"0.000", "0.0", "100.0", "0.1", "0.5", "3000"},
                              {"0.020", nullptr, "123.4", "-0.2", "-1.0", "3500"},
                              {"0.040", "1.2", "50", "0", "0.25", "4000"}};
    std::string expected = Head(date, time) + "time distance velocity steering acc_z RPM lap\n";
    float last = -999999.0f;
    for (int n = 0; n < 3; n++) {
        float distance = rows[n][1] ? Atof(rows[n][1]) : 1.0f + 0.001f * 500.0f;
        if (last + 0.001f > distance) distance = last + 0.001f;
        last = distance;
        expected += F(float(n) * 0.01f - 0.0f) + " " + F(distance) + " " + F(Atof(rows[n][2]) * 0.2777778f * 1.0f) + " " +
                    F(Atof(rows[n][3]) * 57.29578f * 1.0f) + " " + F(Atof(rows[n][4]) * 9.81f * 1.0f) + " " +
                    F(Atof(rows[n][5]) * 1.0f) + " " + F(1.0f) + "\n";
    }
    EXPECT_EQ(written, expected);
    // The distance of the third row, 1.2, fell behind and was lifted.
    EXPECT_NE(written.find("\n0.020000 1.501000 "), std::string::npos) << written;
}

TEST(Sgf2AsciiTextTest, TableWithoutTimeIsRefused)
{
    TempDir dir;
    WriteFile(dir.File("run.txt"), "time\tLAP_DI\n1\t2\n");
    RunResult r = Sgf2Ascii(dir, "run.txt out.txt");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, "Loading 'run.txt'...\n"
                     "2 signals\n"
                     "1 lines of data\n"
                     "PSignals::ImportASCII: no time or distance field found - refusing to load\n"
                     "Failed to load 'run.txt'\n");
    EXPECT_EQ(NormalizedLog(dir), "(INFO ): [-] --- application start ---\n"
                                  "(ERR  ): [-] PSignals::ImportASCII: no time or distance field found - refusing to load [@]\n"
                                  "(ERR  ): [-] Failed to load 'run.txt' [@]\n");
    EXPECT_FALSE(FileExists(dir.File("out.txt")));
}

TEST(Sgf2AsciiTextTest, ShortLineIsLoggedAndTheRestIsZero)
{
    TempDir dir;
    WriteFile(dir.File("run.txt"), "Time\tLAP_DI\tRPM\n0\t1\t5\n0\t\t6\n");
    RunResult r = Sgf2Ascii(dir, "run.txt out.txt");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, "Loading 'run.txt'...\n"
                     "3 signals\n"
                     "2 lines of data\n"
                     "PSignals::ImportASCII: line 2 has 2 fields, expected 3 (signals)\n"
                     "Converting to 'out.txt'...\n"
                     "Exporting to ASCII succesful.\n");
    EXPECT_EQ(NormalizedLog(dir), "(INFO ): [-] --- application start ---\n"
                                  "(ERR  ): [-] PSignals::ImportASCII: line 2 has 2 fields, expected 3 (signals) [@]\n");
    std::string written = ReadFile(dir.File("out.txt"));
    std::string date, time;
    ASSERT_TRUE(DateAndTime(written, date, time)) << written;
    EXPECT_EQ(written, Head(date, time) + "time distance RPM lap\n"
                                          "0.000000 1.000000 5.000000 1.000000\n"
                                          "0.010000 1.001000 0.000000 1.000000\n");
}
