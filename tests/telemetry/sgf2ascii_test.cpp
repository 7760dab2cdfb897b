// The real binary in a fresh directory: its streams, exit code, log and table, byte for byte.
#include "tests/support/testsupport.h"
#include "tools/sgfwriter.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

using namespace tarvik;
using namespace tarvik::test;

namespace {

const std::string banner = "SGF2ASCII v7.7.0\n";
const std::string logStart = "(INFO ): [-] --- application start ---\n";

// 'shell' runs before the command in the same shell: limits, links.
RunResult Sgf2Ascii(const TempDir& dir, const std::string& args, const std::string& shell = "")
{
    return RunCommand(shell + ShellQuote(SGF2ASCII_PATH) + (args.empty() ? "" : " " + args), dir.Path());
}

// Log lines without their time, with the location reduced to its shape, so they compare exactly.
std::string NormalizedLog(const TempDir& dir)
{
    std::string log = LogWithoutTimes(ReadFile(dir.File("QLOG.txt")));
    static const std::regex location(R"( \[[a-z0-9_]+\.cpp:[0-9]+ / [A-Za-z_:]+\]\n)");
    return std::regex_replace(log, location, " [@]\n");
}

bool EndsWith(const std::string& text, const std::string& tail)
{
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
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

const std::string smallTable = "#\n# ASCII signal export\n# Writer: Ostrand PSignals exporter v1.2\n#\n"
                               "# Properties: 1\n# Property 1: car = a\n#\n# Metaproperties: 0\n#\n"
                               "time distance rpm\n"
                               "0.000000 0.000000 1000.000000\n"
                               "0.500000 2.000000 1500.000000\n";

} // namespace

TEST(Sgf2AsciiTest, TooFewArgumentsPrintUsageAndTouchNothing)
{
    for (const char* args : {"", "only.sgf", "-h", "--help"}) {
        TempDir dir;
        RunResult r = Sgf2Ascii(dir, args);
        EXPECT_EQ(r.exitCode, 0);
        EXPECT_EQ(r.out, banner + "Usage: sgf2ascii <sgffile> <textfile>\n"
                                  "Converts Tarvik SGF (Tarvik Telemetry Data) binary files to ASCII files.\n"
                                  "An input whose name holds no \".sgf\" is read as a measuring tool's "
                                  "tab-separated table.\n");
        EXPECT_EQ(r.err, "");
        EXPECT_FALSE(FileExists(dir.File("QLOG.txt")));
        EXPECT_FALSE(FileExists(dir.File("only.sgf")));
    }
}

TEST(Sgf2AsciiTest, ConvertsRecordingsWithInfoReportsAndNoLogFile)
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

    // ".sgf" is found without regard to case and anywhere in the name.
    for (const char* name : {"LAP.SGF", "run.sgf.txt"}) {
        ASSERT_TRUE(SmallRecording().Save(dir.File(name)));
        EXPECT_NE(Sgf2Ascii(dir, std::string(name) + " t.txt").err.find("Exporting to ASCII succesful."), std::string::npos);
        EXPECT_EQ(ReadFile(dir.File("t.txt")), smallTable) << name;
    }
}

TEST(Sgf2AsciiTest, FailedLoadsAreReportedAndWriteNoTable)
{
    const struct {
        const char* name;
        const char* magic; // null: no file; "/": a folder
        const char* reason;
    } cases[] = {{"none.sgf", nullptr, "PSignals:ImportSGF(); can't open file (none.sgf)"},
                 {"bad.sgf", "SGF1", "PSignals:ImportSGF(); unknown file header (bad.sgf)"},
                 {"run.txt", nullptr, "PSignals:ImportASCII(); can't open file (run.txt)"}, // other names: text import
                 {"dir.sgf", "/", "PSignals:ImportSGF(); can't open file (dir.sgf)"},
                 {"dir.txt", "/", "PSignals:ImportASCII(); can't open file (dir.txt)"}};
    for (const auto& c : cases) {
        TempDir dir;
        if (c.magic && c.magic[0] == '/') {
            std::filesystem::create_directory(dir.File(c.name));
        } else if (c.magic) {
            SgfWriter w = SmallRecording();
            w.magic = c.magic;
            ASSERT_TRUE(w.Save(dir.File(c.name)));
        }
        // Reading a folder once never ended: the limit on processor time ends such a run.
        RunResult r = Sgf2Ascii(dir, std::string(c.name) + " out.txt", "ulimit -t 5; ");
        EXPECT_EQ(r.exitCode, 0);
        EXPECT_EQ(r.out, banner);
        const std::string failed = "Failed to load '" + std::string(c.name) + "'";
        EXPECT_EQ(r.err, "Loading '" + std::string(c.name) + "'...\n" + c.reason + "\n" + failed + "\n");
        EXPECT_EQ(NormalizedLog(dir), logStart + "(WARN ): [-] " + c.reason + " [@]\n(ERR  ): [-] " + failed + " [@]\n");
        EXPECT_FALSE(FileExists(dir.File("out.txt")));
    }

    // The location names source file and method, with no build path; the line has time and severity.
    TempDir dir;
    Sgf2Ascii(dir, "none.sgf out.txt");
    std::string log = ReadFile(dir.File("QLOG.txt"));
    EXPECT_NE(log.find("[analyse_import.cpp:"), std::string::npos) << log;
    EXPECT_NE(log.find(" / PSignals::ImportSGF]\n"), std::string::npos) << log;
    EXPECT_EQ(log.find('/' + std::string("work")), std::string::npos) << "a build path leaked into the log";
    static const std::regex line(R"([A-Z][a-z]{2} [A-Z][a-z]{2} [0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} \(ERR  \): \[-\] Failed to load 'none.sgf' \[sgf2ascii.cpp:[0-9]+ / Read\]\n)");
    EXPECT_TRUE(std::regex_search(log, line)) << log;
}

// A failed export leaves whatever stood at the output's name: the recording itself, under any
// name, or the table of an earlier run when the new one can't be written whole.
TEST(Sgf2AsciiTest, FailedExportsAreReportedAndLeaveTheOldFile)
{
    const struct {
        const char* shell; // run before the command
        const char* input;
        const char* target;
        const char* reason;
    } cases[] = {{"", "run.sgf", "no/such/dir/out.txt", "can't open file"},
                 {"", "run.sgf", "/dev/full", "can't write file"}, // a device is written directly
                 {"ulimit -f 8; ", "run.sgf", "out.txt", "can't write file"},
                 {"", "run.sgf", "run.sgf", "output is the input file"},
                 {"", "run.txt", "run.txt", "output is the input file"},
                 {"ln run.sgf hard.txt; ", "run.sgf", "hard.txt", "output is the input file"},
                 {"ln -s run.sgf soft.txt; ", "run.sgf", "soft.txt", "output is the input file"}};
    SgfWriter big = SmallRecording();
    for (SgfSignal& s : big.signals) s.samples.resize(2000, 1.0f); // a table of some 40 KB
    const std::string recording = big.Build(), table = "Time\tLAP_DI\n0\t1\n", old = "an older table\n";
    for (const auto& c : cases) {
        TempDir dir;
        WriteFile(dir.File("run.sgf"), recording);
        WriteFile(dir.File("run.txt"), table);
        WriteFile(dir.File("out.txt"), old);
        RunResult r = Sgf2Ascii(dir, std::string(c.input) + " " + c.target, c.shell);
        EXPECT_EQ(r.exitCode, 0) << c.target;
        const std::string warning = "PSignals::ExportASCII(" + std::string(c.target) + ") failed - " + c.reason;
        EXPECT_TRUE(EndsWith(r.err, "Converting to '" + std::string(c.target) + "'...\n" + warning +
                                        "\nFailed to export ASCII\n"))
            << r.err;
        EXPECT_EQ(NormalizedLog(dir), logStart + "(WARN ): [-] " + warning + " [@]\n(ERR  ): [-] Failed to export ASCII [@]\n");
        EXPECT_TRUE(ReadFile(dir.File("run.sgf")) == recording) << c.target;
        EXPECT_EQ(ReadFile(dir.File("run.txt")), table);
        EXPECT_EQ(ReadFile(dir.File("out.txt")), old);
        // No temporary file is left: the three files, the log and a link.
        const auto files = std::distance(std::filesystem::directory_iterator(dir.Path()), {});
        EXPECT_EQ(files, c.shell[0] == 'l' ? 5 : 4) << c.target;
    }

    // Without a distance signal the error is left in the table.
    TempDir dir;
    SgfWriter w;
    w.Add("time", {0.0f, 0.1f});
    w.Add("rpm", {1.0f, 2.0f});
    ASSERT_TRUE(w.Save(dir.File("nodist.sgf")));
    RunResult r = Sgf2Ascii(dir, "nodist.sgf out.txt");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_TRUE(EndsWith(ReadFile(dir.File("out.txt")),
                         "#\ntime distance** ERROR: No distance signal found - won't work in ASCII export (nodist.sgf)\n"));
    EXPECT_NE(r.err.find("Failed to export ASCII\n"), std::string::npos);
}

TEST(Sgf2AsciiTest, LinksNoWindowSystem)
{
    TempDir dir;
    RunResult r = RunCommand("ldd " + ShellQuote(SGF2ASCII_PATH), dir.Path());
    ASSERT_EQ(r.exitCode, 0);
    for (const char* lib : {"libX11", "libGL", "libQt", "libxcb", "libjpeg"}) EXPECT_EQ(r.out.find(lib), std::string::npos) << lib;
}

TEST(Sgf2AsciiTest, ShippedExamplesAreWhatMakesgfMakesAndConvertWithoutWarnings)
{
    TempDir dir;
    for (const char* args : {"lap.sgf 3 20", "run.txt 1 10"}) {
        RunResult r = RunCommand(ShellQuote(MAKESGF_PATH) + " " + args, dir.Path());
        ASSERT_EQ(r.exitCode, 0) << r.err;
        std::string name = std::string(args).substr(0, 7);
        std::string made = ReadFile(dir.File(name));
        EXPECT_GT(made.size(), 1000u);
        EXPECT_TRUE(made == ReadFile(std::string(EXAMPLES_DIR) + "/" + name))
            << "examples/" << name << " differs from what makesgf makes: regenerate it";
    }
    TempDir out;
    RunResult r = Sgf2Ascii(out, ShellQuote(std::string(EXAMPLES_DIR) + "/lap.sgf") + " lap.txt");
    EXPECT_NE(r.err.find("Exporting to ASCII succesful."), std::string::npos) << r.err;
    EXPECT_FALSE(FileExists(out.File("QLOG.txt")));
    EXPECT_NE(ReadFile(out.File("lap.txt"))
                  .find("\ntime distance velocity rpm gear throttle brake steering acc_x acc_z lap sector laptime\n"
                        "0.000000 0.000000 "),
              std::string::npos);
}

// The address sanitizer reserves more address space than this limit allows.
#ifndef __SANITIZE_ADDRESS__
TEST(Sgf2AsciiTest, SmallMemoryReportsAndEndsCleanly)
{
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
}
#endif
