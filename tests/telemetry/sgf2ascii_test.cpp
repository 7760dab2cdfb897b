// The command as a user runs it: the real binary in a fresh directory, its standard streams, the
// log file and the table compared byte for byte.
#include "tests/support/testsupport.h"
#include "tools/sgfwriter.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

using namespace tarvik;
using namespace tarvik::test;

namespace {

const std::string banner = "SGF2ASCII v7.7.0\n";
const std::string usage = "Usage: sgf2ascii <sgffile> <textfile>\n"
                          "Converts Tarvik SGF (Tarvik Telemetry Data) binary files to ASCII files.\n";

RunResult Sgf2Ascii(const TempDir& dir, const std::string& args)
{
    return RunCommand(ShellQuote(SGF2ASCII_PATH) + (args.empty() ? "" : " " + args), dir.Path());
}

// Log lines without their time, with the location reduced to its shape, so they compare exactly.
std::string NormalizedLog(const TempDir& dir)
{
    std::string log = LogWithoutTimes(ReadFile(dir.File("QLOG.txt")));
    static const std::regex location(R"( \[[a-z0-9_]+\.cpp:[0-9]+ / [A-Za-z_:]+\]\n)");
    return std::regex_replace(log, location, " [@]\n");
}

SgfWriter SmallRecording()
{
    SgfWriter w;
    w.timestep = 0.5f;
    w.properties = {{"car", "a"}};
    w.Add("time", {0.0f, 0.5f});
    w.Add("distance", {0.0f, 2.0f});
    w.Add("rpm", {1000.0f, 1500.0f});
    return w;
}

const std::string smallTable = "#\n"
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
                               "0.500000 2.000000 1500.000000\n";

} // namespace

TEST(Sgf2AsciiTest, TooFewArgumentsPrintUsageAndTouchNothing)
{
    for (const char* args : {"", "only.sgf"}) {
        TempDir dir;
        RunResult r = Sgf2Ascii(dir, args);
        EXPECT_EQ(r.exitCode, 0);
        EXPECT_EQ(r.out, banner + usage);
        EXPECT_EQ(r.err, "");
        EXPECT_FALSE(FileExists(dir.File("QLOG.txt")));
        EXPECT_FALSE(FileExists(dir.File("only.sgf")));
    }
}

TEST(Sgf2AsciiTest, ConvertsRecordingWithInfoReportsAndNoLogFile)
{
    TempDir dir;
    ASSERT_TRUE(SmallRecording().Save(dir.File("run.sgf")));
    RunResult r = Sgf2Ascii(dir, "run.sgf out.txt extra ignored");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, banner);
    EXPECT_EQ(r.err, "Loading 'run.sgf'...\n"
                     "PSignals:Load() timestep 0.000000, 3 signals\n"
                     "Load signal 0: time (2 samples)\n"
                     "Load signal 1: distance (2 samples)\n"
                     "Load signal 2: rpm (2 samples)\n"
                     "Timestep is 0 - fixing by time signal\n"
                     "Timestep corrected to 0.5000\n"
                     "Converting to 'out.txt'...\n"
                     "Exporting to ASCII succesful.\n");
    EXPECT_EQ(ReadFile(dir.File("out.txt")), smallTable);
    EXPECT_FALSE(FileExists(dir.File("QLOG.txt")));
    EXPECT_FALSE(FileExists(dir.File("extra")));
}

TEST(Sgf2AsciiTest, MissingRecordingIsWarnedLoggedAndWritesNoTable)
{
    TempDir dir;
    RunResult r = Sgf2Ascii(dir, "none.sgf out.txt");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, banner);
    EXPECT_EQ(r.err, "Loading 'none.sgf'...\n"
                     "PSignals:ImportSGF(); can't open file (none.sgf)\n"
                     "Failed to load 'none.sgf'\n");
    EXPECT_EQ(NormalizedLog(dir), "(INFO ): [-] --- application start ---\n"
                                  "(WARN ): [-] PSignals:ImportSGF(); can't open file (none.sgf) [@]\n"
                                  "(ERR  ): [-] Failed to load 'none.sgf' [@]\n");
    EXPECT_FALSE(FileExists(dir.File("out.txt")));
}

TEST(Sgf2AsciiTest, LogLocationNamesTheSourceFileAndMethod)
{
    TempDir dir;
    Sgf2Ascii(dir, "none.sgf out.txt");
    std::string log = ReadFile(dir.File("QLOG.txt"));
    EXPECT_NE(log.find("[analyse_import.cpp:"), std::string::npos) << log;
    EXPECT_NE(log.find(" / PSignals::ImportSGF]\n"), std::string::npos) << log;
    EXPECT_NE(log.find("[sgf2ascii.cpp:"), std::string::npos) << log;
    EXPECT_EQ(log.find('/' + std::string("work")), std::string::npos) << "a build path leaked into the log";
}

TEST(Sgf2AsciiTest, LogLineHasTimeSeverityAndApplication)
{
    TempDir dir;
    Sgf2Ascii(dir, "none.sgf out.txt");
    std::string log = ReadFile(dir.File("QLOG.txt"));
    static const std::regex line(R"([A-Z][a-z]{2} [A-Z][a-z]{2} [0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} \(ERR  \): \[-\] Failed to load 'none.sgf' \[sgf2ascii.cpp:[0-9]+ / Read\]\n)");
    EXPECT_TRUE(std::regex_search(log, line)) << log;
}

TEST(Sgf2AsciiTest, WrongMagicFailsTheLoad)
{
    TempDir dir;
    SgfWriter w = SmallRecording();
    w.magic = "SGF1";
    ASSERT_TRUE(w.Save(dir.File("bad.sgf")));
    RunResult r = Sgf2Ascii(dir, "bad.sgf out.txt");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, "Loading 'bad.sgf'...\n"
                     "PSignals:ImportSGF(); unknown file header (bad.sgf)\n"
                     "Failed to load 'bad.sgf'\n");
    EXPECT_FALSE(FileExists(dir.File("out.txt")));
}

TEST(Sgf2AsciiTest, UnwritableTableIsWarnedAndReportedAsFailedExport)
{
    TempDir dir;
    ASSERT_TRUE(SmallRecording().Save(dir.File("run.sgf")));
    RunResult r = Sgf2Ascii(dir, "run.sgf no/such/dir/out.txt");
    EXPECT_EQ(r.exitCode, 0);
    std::string tail = "Converting to 'no/such/dir/out.txt'...\n"
                       "PSignals::ExportASCII(no/such/dir/out.txt) failed - can't open file\n"
                       "Failed to export ASCII\n";
    ASSERT_GE(r.err.size(), tail.size());
    EXPECT_EQ(r.err.substr(r.err.size() - tail.size()), tail);
    EXPECT_EQ(NormalizedLog(dir), "(INFO ): [-] --- application start ---\n"
                                  "(WARN ): [-] PSignals::ExportASCII(no/such/dir/out.txt) failed - can't open file [@]\n"
                                  "(ERR  ): [-] Failed to export ASCII [@]\n");
}

TEST(Sgf2AsciiTest, FullDiskFailsTheExport)
{
    TempDir dir;
    if (!FileExists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
    ASSERT_TRUE(SmallRecording().Save(dir.File("run.sgf")));
    RunResult r = Sgf2Ascii(dir, "run.sgf /dev/full");
    EXPECT_EQ(r.exitCode, 0);
    std::string tail = "Converting to '/dev/full'...\n"
                       "PSignals::ExportASCII(/dev/full) failed - can't write file\n"
                       "Failed to export ASCII\n";
    ASSERT_GE(r.err.size(), tail.size());
    EXPECT_EQ(r.err.substr(r.err.size() - tail.size()), tail);
    EXPECT_EQ(NormalizedLog(dir), "(INFO ): [-] --- application start ---\n"
                                  "(WARN ): [-] PSignals::ExportASCII(/dev/full) failed - can't write file [@]\n"
                                  "(ERR  ): [-] Failed to export ASCII [@]\n");
}

TEST(Sgf2AsciiTest, RecordingWithoutDistanceLeavesTheErrorInTheTable)
{
    TempDir dir;
    SgfWriter w;
    w.Add("time", {0.0f, 0.1f});
    w.Add("rpm", {1.0f, 2.0f});
    ASSERT_TRUE(w.Save(dir.File("nodist.sgf")));
    RunResult r = Sgf2Ascii(dir, "nodist.sgf out.txt");
    EXPECT_EQ(r.exitCode, 0);
    std::string table = ReadFile(dir.File("out.txt"));
    std::string tail = "#\ntime distance** ERROR: No distance signal found - won't work in ASCII export (nodist.sgf)\n";
    ASSERT_GE(table.size(), tail.size());
    EXPECT_EQ(table.substr(table.size() - tail.size()), tail);
    EXPECT_NE(r.err.find("Failed to export ASCII\n"), std::string::npos);
}

TEST(Sgf2AsciiTest, NameIsMatchedWithoutCaseAndAnywhere)
{
    TempDir dir;
    ASSERT_TRUE(SmallRecording().Save(dir.File("LAP.SGF")));
    ASSERT_TRUE(SmallRecording().Save(dir.File("run.sgf.txt")));
    EXPECT_NE(Sgf2Ascii(dir, "LAP.SGF a.txt").err.find("Exporting to ASCII succesful."), std::string::npos);
    EXPECT_NE(Sgf2Ascii(dir, "run.sgf.txt b.txt").err.find("Exporting to ASCII succesful."), std::string::npos);
    EXPECT_EQ(ReadFile(dir.File("a.txt")), smallTable);
    EXPECT_EQ(ReadFile(dir.File("b.txt")), smallTable);
}

TEST(Sgf2AsciiTest, OtherNamesTakeTheTextImport)
{
    TempDir dir;
    RunResult r = Sgf2Ascii(dir, "run.txt out.txt");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, "Loading 'run.txt'...\n"
                     "PSignals:ImportASCII(); can't open file (run.txt)\n"
                     "Failed to load 'run.txt'\n");
}

TEST(Sgf2AsciiTest, DamagedRecordingsEndWithExitCodeZero)
{
    TempDir dir;
    std::string good = SmallRecording().Build();
    for (size_t cut = 0; cut < good.size(); cut += 7) {
        WriteFile(dir.File("cut.sgf"), good.substr(0, cut));
        RunResult r = Sgf2Ascii(dir, "cut.sgf out.txt");
        EXPECT_EQ(r.exitCode, 0) << "cut at " << cut;
    }
}

TEST(Sgf2AsciiTest, LinksNoWindowSystem)
{
    TempDir dir;
    RunResult r = RunCommand("ldd " + ShellQuote(SGF2ASCII_PATH), dir.Path());
    ASSERT_EQ(r.exitCode, 0);
    for (const char* lib : {"libX11", "libGL", "libQt", "libxcb", "libjpeg"})
        EXPECT_EQ(r.out.find(lib), std::string::npos) << lib;
}

TEST(Sgf2AsciiTest, ShippedExampleIsWhatMakesgfMakes)
{
    TempDir dir;
    RunResult r = RunCommand(ShellQuote(MAKESGF_PATH) + " lap.sgf 3 20", dir.Path());
    ASSERT_EQ(r.exitCode, 0) << r.err;
    std::string made = ReadFile(dir.File("lap.sgf"));
    EXPECT_GT(made.size(), 1000u);
    EXPECT_TRUE(made == ReadFile(std::string(EXAMPLES_DIR) + "/lap.sgf"))
        << "examples/lap.sgf differs from what makesgf makes: regenerate it";
}

TEST(Sgf2AsciiTest, ShippedTableIsWhatMakesgfMakes)
{
    TempDir dir;
    RunResult r = RunCommand(ShellQuote(MAKESGF_PATH) + " run.txt 1 10", dir.Path());
    ASSERT_EQ(r.exitCode, 0) << r.err;
    std::string made = ReadFile(dir.File("run.txt"));
    EXPECT_GT(made.size(), 1000u);
    EXPECT_TRUE(made == ReadFile(std::string(EXAMPLES_DIR) + "/run.txt"))
        << "examples/run.txt differs from what makesgf makes: regenerate it";
}

TEST(Sgf2AsciiTest, ExampleConvertsWithoutWarnings)
{
    TempDir dir;
    RunResult r = Sgf2Ascii(dir, ShellQuote(std::string(EXAMPLES_DIR) + "/lap.sgf") + " lap.txt");
    EXPECT_NE(r.err.find("Exporting to ASCII succesful."), std::string::npos) << r.err;
    EXPECT_FALSE(FileExists(dir.File("QLOG.txt")));
    std::string table = ReadFile(dir.File("lap.txt"));
    EXPECT_NE(table.find("\ntime distance velocity rpm gear throttle brake steering acc_x acc_z lap sector laptime\n"
                         "0.000000 0.000000 "),
              std::string::npos);
}

#if defined(__SANITIZE_ADDRESS__)
#define TARVIK_UNDER_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TARVIK_UNDER_SANITIZER 1
#endif
#endif

TEST(Sgf2AsciiTest, SmallMemoryReportsAndEndsCleanly)
{
#ifdef TARVIK_UNDER_SANITIZER
    GTEST_SKIP() << "the sanitizers reserve more address space than the limit allows";
#else
    // 20 signals of 1 000 000 samples need 80 MB; the process gets 40 MB of address space.
    TempDir dir;
    SgfWriter w;
    std::vector<float> samples(1000000, 1.0f);
    w.Add("time", samples);
    w.Add("distance", samples);
    for (int i = 0; i < 18; i++) w.Add("s" + std::to_string(i), samples);
    ASSERT_TRUE(w.Save(dir.File("big.sgf")));
    RunResult r = RunCommand("ulimit -v 40000; " + ShellQuote(SGF2ASCII_PATH) + " big.sgf out.txt", dir.Path());
    EXPECT_TRUE(r.exitCode == 0 || r.exitCode == 3) << r.exitCode << "\n" << r.err;
    EXPECT_NE(r.err.find("out of memory"), std::string::npos) << r.err;
    EXPECT_NE(ReadFile(dir.File("QLOG.txt")).find("out of memory"), std::string::npos);
#endif
}

TEST(Sgf2AsciiTest, ValgrindFindsNoErrorOnTheExamples)
{
#ifdef TARVIK_UNDER_SANITIZER
    GTEST_SKIP() << "valgrind and the sanitizers don't run together";
#else
    TempDir dir;
    if (RunCommand("command -v valgrind", dir.Path()).exitCode != 0) GTEST_SKIP() << "no valgrind here";
    for (const char* example : {"lap.sgf", "run.txt"}) {
        RunResult r = RunCommand("valgrind -q --error-exitcode=1 --leak-check=full --errors-for-leak-kinds=definite " +
                                     ShellQuote(SGF2ASCII_PATH) + " " +
                                     ShellQuote(std::string(EXAMPLES_DIR) + "/" + example) + " out.txt",
                                 dir.Path());
        EXPECT_EQ(r.exitCode, 0) << example << "\n" << r.err;
        EXPECT_NE(r.err.find("Exporting to ASCII succesful."), std::string::npos) << r.err;
    }
#endif
}
