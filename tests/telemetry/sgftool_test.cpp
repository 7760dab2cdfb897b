// The command end to end in a fresh directory: exit codes, tables, laps and refusals.
#include "tests/support/testsupport.h"
#include "tools/sgfwriter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

using namespace tarvik;
using namespace tarvik::test;

namespace {

RunResult Tool(const TempDir& dir, const std::string& args, const std::string& shell = "")
{
    return RunCommand(shell + ShellQuote(SGFTOOL_PATH) + " " + args, dir.Path());
}

int Occurrences(const std::string& text, const std::string& what)
{
    int n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) n++;
    return n;
}

bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

std::vector<std::vector<std::string>> ParseCsv(const std::string& text)
{
    std::vector<std::vector<std::string>> rows;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        rows.emplace_back();
        std::istringstream fields(line);
        for (std::string f; std::getline(fields, f, ',');) rows.back().push_back(f);
    }
    return rows;
}

// Three laps of 40, 50 and 60 samples at 10 m/s, 0.1 s apart: one metre a sample. 'distance'
// restarts with each lap, or runs on (then the lap distance comes from the velocity); 'lap' is
// there or the laps are found from the restarts.
// Laps of 40, 50 and 60 samples at 10 m/s. Unless it runs on, the distance restarts each lap at
// 'offset': the line was crossed that far before the lap's first sample.
SgfWriter ThreeLaps(bool lapSignal, bool runsOn, float offset = 0.0f)
{
    SgfWriter w;
    w.timestep = 0.1f;
    std::vector<float> time, distance, velocity, lap;
    const int lengths[] = {40, 50, 60};
    int k = 0;
    for (int l = 0; l < 3; l++)
        for (int i = 0; i < lengths[l]; i++, k++) {
            time.push_back(float(k) * 0.1f);
            distance.push_back(runsOn ? float(k) + 100.0f : float(i) + offset);
            velocity.push_back(10.0f);
            lap.push_back(float(l + 1));
        }
    w.Add("time", time);
    w.Add("distance", distance);
    w.Add("velocity", velocity);
    if (lapSignal) w.Add("lap", lap);
    w.meta = {{"unit.velocity", "m/s"}, {"unit.distance", "m"}};
    return w;
}

SgfWriter Small()
{
    SgfWriter w;
    w.timestep = 0.5f;
    w.properties = {{"car", "a"}};
    w.Add("time", {0.0f, 0.5f, 1.0f});
    w.Add("distance", {0.0f, 2.0f, 1.0f});
    w.Add("rpm", {1000.0f, 1500.0f, -2.25f});
    return w;
}

} // namespace

TEST(SgfToolTest, ExitCodesAndUsage)
{
    const struct {
        const char* args;
        int code;
        const char* out; // in standard output
        const char* err; // in standard error
    } cases[] = {{"", 2, "", "Usage: sgftool <command>"},
                 {"bogus", 2, "", "unknown command bogus"},
                 {"--help", 0, "Usage: sgftool <command>", ""},
                 {"info --help", 0, "Usage: sgftool info", ""},
                 {"export --help", 0, "Usage: sgftool export", ""},
                 {"export", 2, "", "no recording given"},
                 {"export run.sgf --format xml", 2, "", "Usage: sgftool export"},
                 {"export run.sgf --lap", 2, "", "--lap needs a value"},
                 {"export run.sgf --lap=3", 2, "", "unknown option --lap=3"},
                 {"export run.sgf --lap 3x", 2, "", "--lap needs a lap number"},
                 {"export run.sgf -j 0", 2, "", "-j needs a number"},
                 {"export run.sgf --from 5 --to 1", 2, "", "--from is after --to"},
                 {"export run.sgf --lap 1 --fastest", 2, "", "exclude each other"},
                 {"export run.sgf other.sgf -o -", 2, "", "-o - takes one recording"},
                 {"export run.sgf --format text --units", 2, "", "need csv or tsv"},
                 {"export run.sgf other.sgf -o one.csv", 2, "", "need -o to name a folder"},
                 {"info run.sgf", 0, "run.sgf\n", ""},
                 {"info run.sgf none.sgf", 1, "run.sgf\n", "Failed to load 'none.sgf'"},
                 {"export run.sgf", 0, "", ""},
                 {"export none.sgf run.sgf", 1, "", "Failed to load 'none.sgf'"}};
    for (const auto& c : cases) {
        TempDir dir;
        ASSERT_TRUE(Small().Save(dir.File("run.sgf")));
        RunResult r = Tool(dir, c.args);
        EXPECT_EQ(r.exitCode, c.code) << c.args << "\n" << r.err;
        EXPECT_TRUE(Has(r.out, c.out)) << c.args << "\n" << r.out;
        EXPECT_TRUE(Has(r.err, c.err)) << c.args << "\n" << r.err;
        // A failed input is in the log; the good one is converted all the same.
        if (c.code == 1) {
            EXPECT_TRUE(Has(ReadFile(dir.File("QLOG.txt")), "Failed to load 'none.sgf'")) << c.args;
        }
        if (c.code != 2 && !Has(c.args, "--help") && std::string(c.args).find("export") == 0) {
            EXPECT_EQ(ReadFile(dir.File("run.csv")), "time,distance,lapdist,rpm\n"
                                                     "0.000000,0.000000,0.000000,1000.000000\n"
                                                     "0.500000,2.000000,2.000000,1500.000000\n"
                                                     "1.000000,2.001000,1.000000,-2.250000\n")
                << c.args;
        }
    }
}

TEST(SgfToolTest, TextFormatIsWhatSgf2AsciiWrites)
{
    TempDir dir;
    ASSERT_TRUE(Small().Save(dir.File("small.sgf")));
    ASSERT_TRUE(ThreeLaps(true, false).Save(dir.File("laps.sgf")));
    SgfWriter shortOne = Small();
    shortOne.signals[2].samples.resize(1); // a short signal: reported, written as 0
    ASSERT_TRUE(shortOne.Save(dir.File("short.sgf")));
    ASSERT_EQ(RunCommand(ShellQuote(MAKESGF_PATH) + " lap.sgf 2 10", dir.Path()).exitCode, 0);
    ASSERT_EQ(RunCommand(ShellQuote(MAKESGF_PATH) + " run.txt 1 10", dir.Path()).exitCode, 0);
    for (const char* input : {"small.sgf", "laps.sgf", "short.sgf", "lap.sgf", "run.txt"}) {
        RunCommand(ShellQuote(SGF2ASCII_PATH) + " " + input + " expected.txt", dir.Path());
        const std::string expected = ReadFile(dir.File("expected.txt"));
        ASSERT_GT(expected.size(), 100u) << input;
        RunResult r = Tool(dir, std::string("export ") + input + " --format text -o got.txt");
        EXPECT_EQ(r.exitCode, 0) << input << r.err;
        EXPECT_TRUE(ReadFile(dir.File("got.txt")) == expected) << input;
        r = Tool(dir, std::string("export ") + input + " --format text -o -");
        EXPECT_TRUE(r.out == expected) << input;
    }
}

TEST(SgfToolTest, OneLapHasItsOwnDistanceFromZero)
{
    // A distance that restarts each lap is the logger's own lap distance and is taken as it stands.
    const struct {
        bool lapSignal, runsOn;
        float offset;
    } cases[] = {{true, false, 0.0f}, {false, false, 0.0f}, {true, true, 0.0f}, {true, false, 0.5f}};
    for (const auto& c : cases) {
        TempDir dir;
        ASSERT_TRUE(ThreeLaps(c.lapSignal, c.runsOn, c.offset).Save(dir.File("run.sgf")));
        RunResult r = Tool(dir, "export run.sgf --lap 3 -o lap3.csv --units");
        ASSERT_EQ(r.exitCode, 0) << r.err;
        auto rows = ParseCsv(ReadFile(dir.File("lap3.csv")));
        ASSERT_EQ(rows.size(), 61u) << c.lapSignal << c.runsOn;
        EXPECT_EQ(rows[0][0], "time[s]");
        EXPECT_EQ(rows[0][2], "lapdist[m]");
        EXPECT_EQ(rows[0][3], "velocity[m/s]");
        for (size_t i = 1; i < rows.size(); i++) {
            EXPECT_NEAR(std::stod(rows[i][2]), double(i - 1) + c.offset, 1e-3) << i; // lapdist: 0 to 59 m
            EXPECT_NEAR(std::stod(rows[i][0]), double(i - 1) * 0.1, 1e-5) << i;
        }

        // The lap's own distance also in the summary, and the units of the meta-properties.
        if (c.offset != 0.0f) continue;
        r = Tool(dir, "info run.sgf");
        EXPECT_TRUE(Has(r.out, "    velocity m/s             150             10             10\n")) << r.out;
        // Laps 1 and 2 cover less than 90% of lap 3's distance: they don't count as complete.
        EXPECT_TRUE(Has(r.out, "      lap     start[s]      time[s]  distance[m]\n"
                               "        1        0.000        4.000         39.0\n"
                               "        2        4.000        5.000         49.0\n"
                               "        3        9.000        6.000         59.0  fastest\n"))
            << r.out;
    }
}

TEST(SgfToolTest, SplitLapsWritesOneTablePerLap)
{
    TempDir dir;
    ASSERT_TRUE(ThreeLaps(true, false).Save(dir.File("run.sgf")));
    RunResult r = Tool(dir, "export run.sgf --split-laps --format tsv");
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const size_t lines[] = {41, 51, 61};
    for (int lap = 1; lap <= 3; lap++) {
        const std::string table = ReadFile(dir.File("run.lap0" + std::to_string(lap) + ".tsv"));
        EXPECT_EQ(size_t(std::count(table.begin(), table.end(), '\n')), lines[lap - 1]) << lap;
        EXPECT_EQ(table.substr(0, 44), "time\tdistance\tlapdist\tvelocity\tlap\n0.000000\t") << lap;
        EXPECT_EQ(Occurrences(table, "\t" + std::to_string(lap) + ".000000\n"), int(lines[lap - 1] - 1)) << lap;
    }
    EXPECT_FALSE(FileExists(dir.File("run.tsv")));
    EXPECT_FALSE(FileExists(dir.File("run.lap04.tsv")));

    // Into a folder, and only the laps that reach into the time window (lap 2 runs from 4 to 8.9 s).
    std::filesystem::create_directory(dir.File("out"));
    r = Tool(dir, "export run.sgf --split-laps -o out --from 5 --to 8.5");
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_FALSE(FileExists(dir.File("out/run.lap01.csv")));
    EXPECT_EQ(size_t(Occurrences(ReadFile(dir.File("out/run.lap02.csv")), "\n")), 37u); // head, 5.0 to 8.5 s
    EXPECT_FALSE(FileExists(dir.File("out/run.lap03.csv"))); // from 9 s on
}

TEST(SgfToolTest, CsvReadsBackWithPythonsCsvModule)
{
    if (RunCommand("command -v python3", "/").exitCode != 0) GTEST_SKIP() << "no python3";
    TempDir dir;
    SgfWriter w;
    w.timestep = 0.25f;
    w.Add("time", {0.0f, 0.25f, 0.5f});
    w.Add("distance", {0.0f, 1.5f, 3.0f});
    w.Add("a,\"b", {1.0f / 3.0f, -7.125f, 123456.789f}); // a name that must be quoted
    w.Add("c d", {0.0f, -0.0000004f, 1e9f});
    ASSERT_TRUE(w.Save(dir.File("run.sgf")));
    ASSERT_EQ(Tool(dir, "export run.sgf").exitCode, 0);
    WriteFile(dir.File("read.py"), "import csv\n"
                                   "rows = list(csv.reader(open('run.csv', newline='')))\n"
                                   "print('|'.join(rows[0]))\n"
                                   "for r in rows[1:]: print(' '.join('%.6f' % float(v) for v in r))\n");
    RunResult r = RunCommand("python3 read.py", dir.Path());
    ASSERT_EQ(r.exitCode, 0) << r.err;
    std::string expected = "time|distance|lapdist|a,\"b|c d\n";
    char line[256];
    for (int k = 0; k < 3; k++) {
        const float a[] = {1.0f / 3.0f, -7.125f, 123456.789f}, c[] = {0.0f, -0.0000004f, 1e9f};
        std::snprintf(line, sizeof line, "%.6f %.6f %.6f %.6f %.6f\n", k * 0.25, k * 1.5, k * 1.5, double(a[k]),
                      double(c[k]));
        expected += line;
    }
    EXPECT_EQ(r.out, expected);
}

TEST(SgfToolTest, RefusesToWriteOverAnInputOrIntoAMissingFolder)
{
    const struct {
        const char* shell;
        const char* args;
        const char* err;
    } cases[] = {{"", "export run.sgf -o run.sgf", "refusing to write 'run.sgf': it is the input 'run.sgf'"},
                 {"ln run.sgf hard.csv; ", "export run.sgf -o hard.csv", "it is the input"},
                 {"ln -s run.sgf run.csv; ", "export run.sgf", "it is the input"},
                 {"", "export run.txt --format text", "refusing to write 'run.txt'"},
                 {"", "export run.sgf -o nodir/", "the output folder 'nodir/' does not exist"},
                 {"", "export run.sgf -o nodir/out.csv", "can't open 'nodir/out.csv' for writing"},
                 {"mkdir a out; cp run.sgf a/; ", "export a/run.sgf run.sgf -o out", "two recordings would be written to 'out/run.csv'"}};
    for (const auto& c : cases) {
        TempDir dir;
        ASSERT_TRUE(Small().Save(dir.File("run.sgf")));
        const std::string recording = ReadFile(dir.File("run.sgf"));
        WriteFile(dir.File("run.txt"), "Time\tLAP_DI\n0\t1\n");
        RunResult r = Tool(dir, c.args, c.shell);
        EXPECT_EQ(r.exitCode, 1) << c.args;
        EXPECT_TRUE(Has(r.err, c.err)) << c.args << "\n" << r.err;
        EXPECT_TRUE(Has(ReadFile(dir.File("QLOG.txt")), c.err)) << c.args;
        EXPECT_TRUE(ReadFile(dir.File("run.sgf")) == recording) << c.args;
        EXPECT_EQ(ReadFile(dir.File("run.txt")), "Time\tLAP_DI\n0\t1\n");
        EXPECT_FALSE(FileExists(dir.File("nodir")));
        EXPECT_FALSE(FileExists(dir.File("out/run.csv")));
    }
}

TEST(SgfToolTest, UnknownChannelListsTheChannels)
{
    TempDir dir;
    ASSERT_TRUE(Small().Save(dir.File("run.sgf")));
    RunResult r = Tool(dir, "export run.sgf --channels rpm,speed");
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(Has(r.err, "run.sgf has no channel 'speed'; its channels are: time, distance, lapdist, rpm\n")) << r.err;
    EXPECT_FALSE(FileExists(dir.File("run.csv")));

    // Known ones come in the order asked for.
    ASSERT_TRUE(ThreeLaps(true, false).Save(dir.File("laps.sgf")));
    r = Tool(dir, "export laps.sgf --channels lap,velocity -o -");
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out.substr(0, r.out.find('\n')), "time,distance,lapdist,lap,velocity");
}

TEST(SgfToolTest, OptionsPickRowsAndColumns)
{
    const struct {
        const char* args;
        const char* header;
        size_t rows;
        const char* firstRow; // the first row after the header
        const char* lastRow;
    } cases[] = {
        {"--fastest", "time,distance,lapdist,velocity,lap", 60, "0.000000,0.000000,0.000000,10.000000,3.000000",
         "5.900001,59.000000,59.000000,10.000000,3.000000"}, // 14.9 - 9.0 in floats, as the text export

        {"--from 1 --to 2", "time,distance,lapdist,velocity,lap", 11, "0.000000,10.000000,10.000000,10.000000,1.000000",
         "1.000000,20.000000,20.000000,10.000000,1.000000"},
        // Lap 2 at 20 Hz: halfway values between the rows, the last row where the lap's time ends.
        {"--lap 2 --resample 20", "time,distance,lapdist,velocity,lap", 99,
         "0.000000,0.000000,0.000000,10.000000,2.000000", "4.900000,49.000000,49.000000,10.000000,2.000000"},
        {"--channels lap --units --format tsv", "time[s]\tdistance[m]\tlapdist[m]\tlap", 150,
         "0.000000\t0.000000\t0.000000\t1.000000", "14.900001\t59.000000\t59.000000\t3.000000"},
        {"--modifier mod.txt", "Zeit,distance,lapdist,speed", 150, "0.000000,0.000000,0.000000,36.000000",
         "14.900001,59.000000,59.000000,36.000000"},
    };
    for (const auto& c : cases) {
        TempDir dir;
        ASSERT_TRUE(ThreeLaps(true, false).Save(dir.File("run.sgf")));
        WriteFile(dir.File("mod.txt"), "time Zeit 1\nvelocity speed 3.6\nlap - 1\n");
        RunResult r = Tool(dir, std::string("export run.sgf -o - ") + c.args);
        ASSERT_EQ(r.exitCode, 0) << c.args << "\n" << r.err;
        std::vector<std::string> lines;
        std::istringstream in(r.out);
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        ASSERT_EQ(lines.size(), c.rows + 1) << c.args;
        EXPECT_EQ(lines[0], c.header) << c.args;
        EXPECT_EQ(lines[1], c.firstRow) << c.args;
        EXPECT_EQ(lines.back(), c.lastRow) << c.args;
        if (std::string(c.args) == "--lap 2 --resample 20") {
            EXPECT_EQ(lines[2], "0.050000,0.500000,0.500000,10.000000,2.000000");
        }
    }
}

TEST(SgfToolTest, FolderOfOutputsInWorkerProcessesWithMeta)
{
    TempDir dir;
    ASSERT_TRUE(ThreeLaps(true, false).Save(dir.File("a.sgf")));
    ASSERT_TRUE(ThreeLaps(false, true).Save(dir.File("b.sgf")));
    ASSERT_TRUE(Small().Save(dir.File("c.sgf")));
    ASSERT_EQ(Tool(dir, "export a.sgf b.sgf c.sgf").exitCode, 0); // beside the inputs, one at a time
    std::filesystem::create_directory(dir.File("out"));
    RunResult r = Tool(dir, "export a.sgf b.sgf c.sgf none.sgf -o out -j 3 --meta");
    EXPECT_EQ(r.exitCode, 1) << r.err;
    for (const char* name : {"a", "b", "c"}) {
        const std::string table = ReadFile(dir.File(std::string("out/") + name + ".csv"));
        EXPECT_GT(table.size(), 50u) << name;
        EXPECT_EQ(table, ReadFile(dir.File(std::string(name) + ".csv"))) << name;
        EXPECT_TRUE(FileExists(dir.File(std::string("out/") + name + ".csv.meta.json"))) << name;
    }
    EXPECT_FALSE(FileExists(dir.File("out/none.csv")));
    EXPECT_TRUE(Has(ReadFile(dir.File("out/a.csv.meta.json")), "\"metaproperties\": {\n    \"unit.velocity\": \"m/s\",\n"));
    EXPECT_TRUE(Has(ReadFile(dir.File("out/c.csv.meta.json")),
                    "  \"properties\": {\n    \"car\": \"a\"\n  },\n  \"metaproperties\": {},\n  \"columns\": [\n"
                    "    {\"name\": \"time\", \"unit\": \"s\"},\n"));
    if (RunCommand("command -v python3", "/").exitCode == 0) {
        for (const char* name : {"a", "b", "c"}) {
            const std::string check = "python3 -c 'import json; json.load(open(\"out/" + std::string(name) + ".csv.meta.json\"))'";
            EXPECT_EQ(RunCommand(check, dir.Path()).exitCode, 0) << name;
        }
    }
}

// Odd recordings end in a table or a clean report, never in a crash: every sub-command and the
// options that walk laps and rows.
TEST(SgfToolTest, OddRecordingsEndCleanly)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    std::vector<SgfWriter> recordings(6);
    recordings[0].Add("time", {}); // no rows
    recordings[1].Add("rpm", {1.0f, 2.0f}); // no distance, no lap
    recordings[2].Add("time", {0.0f, 1.0f, 2.0f});
    recordings[2].Add("distance", {0.0f, 5.0f, 1.0f});
    recordings[2].Add("lap", {nan, 1e30f, 2.0f}); // laps that no int holds
    recordings[3].Add("time", {0.0f, 1.0f, 2.0f, 3.0f});
    recordings[3].Add("distance", {0.0f});         // short
    recordings[3].Add("lap", {1.0f, 1.0f});        // short
    recordings[3].Add("velocity", {nan, 1.0f, 2.0f, 3.0f});
    recordings[4].Add("distance", {0.0f, 10.0f, 0.0f, 10.0f, 0.0f}); // two laps from resets
    recordings[4].timestep = 0.0f;
    recordings[5] = ThreeLaps(true, true);
    recordings[5].signals[1].samples.resize(20); // distance runs out in lap 1
    const char* commands[] = {"info run.sgf", "export run.sgf -o -", "export run.sgf --split-laps",
                              "export run.sgf --fastest -o -", "export run.sgf --lap 2 --resample 3 -o -",
                              "export run.sgf --format text --split-laps", "export run.sgf --meta --units"};
    for (size_t i = 0; i < recordings.size(); i++) {
        for (const char* command : commands) {
            TempDir dir;
            ASSERT_TRUE(recordings[i].Save(dir.File("run.sgf")));
            RunResult r = Tool(dir, command, "ulimit -t 10; ");
            EXPECT_TRUE(r.exitCode == 0 || r.exitCode == 1) << i << ": " << command << " " << r.exitCode << "\n" << r.err;
            EXPECT_FALSE(Has(r.err, "Sanitizer") || Has(r.err, "runtime error")) << i << ": " << command << "\n" << r.err;
            if (r.exitCode == 1) {
                EXPECT_TRUE(Has(r.err, "sgftool: ") || Has(r.err, "Failed to load")) << i << command << r.err;
            }
        }
    }
}
