// The command on a text table: its standard error, log and written table, byte for byte.
#include "tests/support/testsupport.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>

using namespace tarvik::test;

namespace {

struct Converted {
    RunResult run;
    std::string log;   // QLOG.txt without times, locations reduced to " [@]"
    std::string table; // out.txt with its date and time replaced by those found in it
    std::string head;  // the head the export writes for an imported table, with that date and time
};

Converted Convert(const std::string& text)
{
    TempDir dir;
    WriteFile(dir.File("run.txt"), text);
    Converted c;
    c.run = RunCommand(ShellQuote(SGF2ASCII_PATH) + " run.txt out.txt", dir.Path());
    static const std::regex location(R"( \[[a-z0-9_]+\.cpp:[0-9]+ / [A-Za-z_:]+\]\n)");
    c.log = std::regex_replace(LogWithoutTimes(ReadFile(dir.File("QLOG.txt"))), location, " [@]\n");
    c.table = ReadFile(dir.File("out.txt"));
    std::smatch m;
    static const std::regex stamp("# Property 4: date = ([0-3][0-9]-[01][0-9]-[0-9]{4})\n"
                                  "# Property 5: time = ([0-2][0-9]:[0-5][0-9]:[0-6][0-9])\n");
    if (std::regex_search(c.table, m, stamp))
        c.head = "#\n# ASCII signal export\n# Writer: Ostrand PSignals exporter v1.2\n#\n# Properties: 6\n"
                 "# Property 1: filename = run.txt\n# Property 2: car = unknown_car\n# Property 3: track = zandvoort\n"
                 "# Property 4: date = " + m.str(1) + "\n# Property 5: time = " + m.str(2) + "\n"
                 "# Property 6: comment = Imported by Lapgraph\n#\n# Metaproperties: 0\n#\n";
    return c;
}

} // namespace

TEST(Sgf2AsciiTextTest, TableConvertsWithComputedColumns)
{
    Converted c = Convert("Time\tLAP_DI\tVVEH\tSTEER\tACC_X\tRPM\n"
                          "0.000\t0.0\t100.0\t0.1\t0.5\t3000\n"
                          "0.020\t1:500\t123.4\t-0.2\t-1.0\t3500\n"
                          "0.040\t1.2\t50\t0\t0.25\t4000\n"
                          "0.060\t5.0\t60\t0\t0\t4100"); // no line end: never read
    EXPECT_EQ(c.run.exitCode, 0);
    EXPECT_EQ(c.run.out, "SGF2ASCII v7.7.0\n");
    EXPECT_EQ(c.run.err, "Loading 'run.txt'...\n6 signals\n3 lines of data\n"
                         "Converting to 'out.txt'...\nExporting to ASCII succesful.\n");
    EXPECT_EQ(c.log, "");
    ASSERT_NE(c.head, "") << c.table;

    // Products of 32-bit floats: 123.4 km/h is 34.277779 m/s, -0.2 radians -11.459156 degrees, and
    // ACC_X goes to acc_z in m/s2. The distance 1.2 fell behind 1:500 and was lifted.
    EXPECT_EQ(c.table, c.head + "time distance velocity steering acc_z RPM lap\n"
                                "0.000000 0.000000 27.777779 5.729578 4.905000 3000.000000 1.000000\n"
                                "0.010000 1.500000 34.277779 -11.459156 -9.810000 3500.000000 1.000000\n"
                                "0.020000 1.501000 13.888889 0.000000 2.452500 4000.000000 1.000000\n");
}

TEST(Sgf2AsciiTextTest, TableWithoutTimeIsRefused)
{
    Converted c = Convert("time\tLAP_DI\n1\t2\n");
    EXPECT_EQ(c.run.exitCode, 0);
    const std::string refused = "PSignals::ImportASCII: no time or distance field found - refusing to load";
    EXPECT_EQ(c.run.err, "Loading 'run.txt'...\n2 signals\n1 lines of data\n" + refused + "\nFailed to load 'run.txt'\n");
    EXPECT_EQ(c.log, "(INFO ): [-] --- application start ---\n(ERR  ): [-] " + refused +
                         " [@]\n(ERR  ): [-] Failed to load 'run.txt' [@]\n");
    EXPECT_EQ(c.table, "");
}

TEST(Sgf2AsciiTextTest, ShortLineIsLoggedAndTheRestIsZero)
{
    Converted c = Convert("Time\tLAP_DI\tRPM\n0\t1\t5\n0\t\t6\n");
    EXPECT_EQ(c.run.exitCode, 0);
    const std::string shortLine = "PSignals::ImportASCII: line 2 has 2 fields, expected 3 (signals)";
    EXPECT_EQ(c.run.err, "Loading 'run.txt'...\n3 signals\n2 lines of data\n" + shortLine +
                             "\nConverting to 'out.txt'...\nExporting to ASCII succesful.\n");
    EXPECT_EQ(c.log, "(INFO ): [-] --- application start ---\n(ERR  ): [-] " + shortLine + " [@]\n");
    ASSERT_NE(c.head, "") << c.table;
    EXPECT_EQ(c.table, c.head + "time distance RPM lap\n"
                                "0.000000 1.000000 5.000000 1.000000\n"
                                "0.010000 1.001000 0.000000 1.000000\n");
}
