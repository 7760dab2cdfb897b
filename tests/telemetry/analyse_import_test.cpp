// The .sgf reader: the layout byte by byte, the failures of the head and the chunks with their exact
// words, files that end early or lie about their counts, the repair of the time step, and the choice
// of reader by file name.
#include "telemetry/analyse_signals.h"
#include "tests/telemetry/telemetry_fixture.h"
#include "tools/sgfwriter.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

using namespace tarvik;
using namespace tarvik::test;

namespace {

class ImportTest : public TelemetryTest {
protected:
    // Writes 'bytes' to rec.sgf and imports them into 'set'; the log starts empty.
    bool Load(PSignals& set, const std::string& bytes)
    {
        qmsgReset();
        std::remove(dir.File("QLOG.txt").c_str());
        WriteFile("rec.sgf", bytes);
        bool ok = false;
        err = StderrOf([&] { ok = set.ImportSGF("rec.sgf"); });
        return ok;
    }
    std::string err; // standard error of the last Load
};

std::string FromHex(const char* hex)
{
    std::string out;
    for (const char* p = hex; p[0] && p[1]; p += 2) {
        if (*p == ' ') p++;
        out += char(std::stoi(std::string(p, 2), nullptr, 16));
    }
    return out;
}

// A recording with a step of one second, so that no repair is reported, edited by 'edit'.
template <class Edit>
std::string Sgf(Edit edit)
{
    SgfWriter w;
    w.timestep = 1.0f;
    edit(w);
    return w.Build();
}

// 'bytes' with the int16 length in front of the first 'text' replaced by 'length'.
std::string WithLength(std::string bytes, const std::string& text, int16_t length)
{
    size_t at = bytes.find(text);
    bytes[at - 2] = char(length & 0xFF);
    bytes[at - 1] = char((length >> 8) & 0xFF);
    return bytes;
}

std::string LoadLine(int chunks, const std::string& step = "1.000000")
{
    return "PSignals:Load() timestep " + step + ", " + std::to_string(chunks) + " signals\n";
}
std::string SignalLine(int i, const std::string& name, int samples)
{
    return "Load signal " + std::to_string(i) + ": " + name + " (" + std::to_string(samples) + " samples)\n";
}

// "p<properties> m<meta-properties>", then name/count of each signal.
std::string Summary(const PSignals& set)
{
    std::string s = "p" + std::to_string(set.propertyCount) + " m" + std::to_string(set.metaCount);
    for (int i = 0; i < set.signalCount; i++)
        s += " " + std::string(set.signals[i]->GetId()) + "/" + std::to_string(set.signals[i]->count);
    return s;
}

const int32_t missingLimit = 1 << 20;

} // namespace

// ---- The layout ----

TEST_F(ImportTest, EightyByteExampleLoadsOneTimeSignal)
{
    const std::string bytes = FromHex("53474630 01000000 00000000 50524F50 00000000 4D505250 00000000"
                                      "53474E4C 00000000 02000000 74696D65"
                                      "00000000 00000000 00000000 00000000 00000000 00000000 00000000"
                                      "00000000 0AD7233C");
    ASSERT_EQ(bytes.size(), 80u);
    PSignals set;
    EXPECT_TRUE(Load(set, bytes));
    EXPECT_EQ(err, "PSignals:Load() timestep 0.000000, 1 signals\n"
                   "Load signal 0: time (2 samples)\n"
                   "Timestep is 0 - fixing by time signal\n"
                   "Timestep corrected to 0.0100\n");
    EXPECT_FALSE(LogExists()); // info reports don't reach the log
    EXPECT_EQ(Summary(set), "p0 m0 time/2");
    EXPECT_EQ(set.signals[0]->data[0], 0.0f);
    EXPECT_EQ(set.signals[0]->data[1], 0.01f);
    EXPECT_EQ(set.signals[0]->timestep, 0.01f);
    EXPECT_STREQ(set.fileName.cstr(), "rec.sgf");

    // The writer the other cases use lays out the same bytes.
    SgfWriter w;
    w.Add("time", {0.0f, 0.01f});
    EXPECT_EQ(w.Build(), bytes);
}

// The most properties and meta-properties there is room for, empty texts, a name of 32 bytes
// without its zero, and one name twice: all kept, in file order.
TEST_F(ImportTest, FullTablesAndSignalsKeepFileOrder)
{
    SgfWriter w;
    w.timestep = 1.0f;
    w.properties = {{"car", "blue one"}, {"", "x"}, {"track", ""}};
    for (int i = 3; i < 30; i++) w.properties.push_back({"p" + std::to_string(i), "v" + std::to_string(i)});
    for (int i = 0; i < 1000; i++) w.meta.push_back({"m" + std::to_string(i), "w" + std::to_string(i)});
    w.Add("speed", {1.0f, 2.0f, 3.0f});
    w.Add("speed", {4.0f, 5.0f, 6.0f});
    w.Add(std::string(32, 'n'), {7.0f});
    w.Add("abcdefghijklmnopqrstuvwxyz01234", {8.0f}); // 31: fits with its zero
    PSignals set;
    EXPECT_TRUE(Load(set, w.Build()));
    EXPECT_FALSE(LogExists());
    ASSERT_EQ(Summary(set),
              "p30 m1000 speed/3 speed/3 " + std::string(31, 'n') + "/1 abcdefghijklmnopqrstuvwxyz01234/1");
    EXPECT_STREQ(set.propertyValue[0].cstr(), "blue one");
    EXPECT_TRUE(set.propertyName[1].IsEmpty());
    EXPECT_STREQ(set.propertyValue[1].cstr(), "x");
    EXPECT_STREQ(set.propertyName[2].cstr(), "track");
    EXPECT_TRUE(set.propertyValue[2].IsEmpty());
    EXPECT_STREQ(set.propertyValue[29].cstr(), "v29");
    EXPECT_STREQ(set.metaName[999].cstr(), "m999");
    EXPECT_STREQ(set.metaValue[999].cstr(), "w999");
    EXPECT_EQ(set.signals[1]->data[2], 6.0f);
    EXPECT_EQ(set.signals[3]->data[0], 8.0f);
    for (int i = 0; i < 4; i++) {
        EXPECT_EQ(set.signals[i]->timestep, 1.0f);
        EXPECT_EQ(set.signals[i]->flags, uint32_t(PSignal::PSF_OWN_DEF)); // no type file: private entries
    }
    EXPECT_EQ(set.FindSignal("speed"), set.signals[0]);
}

// ---- Damaged heads and chunks: one field changed each ----

TEST_F(ImportTest, DamagedFilesGiveTheirReportAndKeepWhatCameBefore)
{
    using W = SgfWriter;
    const std::string sgf = "PSignals:ImportSGF(); ", tag = "PSignals:ImportSGF(rec.sgf): ";
    const std::string aborting = " - aborting load (rec.sgf)\n";
    std::vector<float> full(size_t(missingLimit + 8), 1.5f);
    struct Case {
        const char* what;
        std::string bytes;
        bool ok;
        std::string err;
        std::string loaded; // as Summary() gives it
        bool logged;
    } cases[] = {
        {"wrong magic", Sgf([](W& w) { w.magic = "SGF1"; w.Add("a", {1}); }), false,
         sgf + "unknown file header (rec.sgf)\n", "p0 m0", true},
        {"three bytes", "SGF", false, sgf + "unknown file header (rec.sgf)\n", "p0 m0", true},
        {"no PROP", Sgf([](W& w) { w.propTag = "PORP"; w.Add("a", {1}); }), false,
         LoadLine(1) + sgf + "no properties found\n", "p0 m0", true},
        {"31 properties", Sgf([](W& w) { w.declaredProperties = 31; }), false,
         LoadLine(0) + tag + "too many properties defined (31 defined, max 30)\n", "p0 m0", true},
        {"-1 properties", Sgf([](W& w) { w.declaredProperties = 0xFFFFFFFFLL; }), false,
         LoadLine(0) + tag + "negative number of properties (-1)\n", "p0 m0", true},
        {"value of length -5",
         WithLength(Sgf([](W& w) { w.properties = {{"car", "a"}, {"track", "oval"}}; }), "oval", -5), false,
         LoadLine(0) + tag + "text of negative length (-5) in property 2\n", "p1 m0", true},
        {"1001 meta-properties",
         Sgf([](W& w) { w.properties = {{"car", "a"}}; w.declaredMeta = 1001; w.Add("a", {1}); }), false,
         LoadLine(1) + tag + "too many meta-properties defined (1001 defined, max 1000)\n", "p1 m0", true},
        {"-2 meta-properties", Sgf([](W& w) { w.declaredMeta = 0xFFFFFFFELL; }), false,
         LoadLine(0) + tag + "negative number of meta-properties (-2)\n", "p0 m0", true},
        {"name of length -32768",
         WithLength(Sgf([](W& w) { w.meta = {{"m", "v"}, {"wet", "no"}}; }), "wet", -32768), false,
         LoadLine(0) + tag + "text of negative length (-32768) in meta-property 2\n", "p0 m1", true},
        // An old file holds 8 bytes of zero where the meta-properties stand now.
        {"old file",
         Sgf([](W& w) { w.metaTag = ""; w.properties = {{"car", "a"}}; w.Add("a", {1}); w.Add("b", {2}); }),
         true,
         LoadLine(2) + sgf + "no meta-properties found (old file format)\n" + SignalLine(0, "a", 1) +
             SignalLine(1, "b", 1),
         "p1 m0 a/1 b/1", true},
        {"5 chunks announced, 3 there",
         Sgf([](W& w) { w.declaredSignals = 5; w.Add("a", {1}); w.Add("b", {2}); w.Add("c", {3}); }), true,
         LoadLine(5) + SignalLine(0, "a", 1) + SignalLine(1, "b", 1) + SignalLine(2, "c", 1),
         "p0 m0 a/1 b/1 c/1", false},
        {"0 chunks", Sgf([](W& w) { w.declaredSignals = 0; w.Add("a", {1}); }), true, LoadLine(0), "p0 m0",
         false},
        {"-1 chunks", Sgf([](W& w) { w.declaredSignals = 0xFFFFFFFFLL; w.Add("a", {1}); }), true,
         LoadLine(-1), "p0 m0", false},
        {"SGNX", Sgf([](W& w) { w.Add("a", {1}); w.Add("b", {2}).tag = "SGNX"; w.Add("c", {3}); }), true,
         LoadLine(3) + SignalLine(0, "a", 1) + sgf + "no SGNL found" + aborting, "p0 m0 a/1", true},
        {"-3 samples",
         Sgf([](W& w) { w.Add("a", {1}); w.Add("b", {2}).declaredCount = 0xFFFFFFFDLL; w.Add("c", {3}); }),
         true,
         LoadLine(3) + SignalLine(0, "a", 1) + SignalLine(1, "b", -3) + sgf +
             "negative sample count -3 for signal b" + aborting,
         "p0 m0 a/1", true},
        {"two billion samples in 100 bytes",
         Sgf([](W& w) { w.Add("big", {1, 2, 3, 4, 5, 6, 7}).declaredCount = 2000000000; }), true,
         LoadLine(1) + SignalLine(0, "big", 2000000000) + sgf +
             "signal big claims 2000000000 samples, the file holds 7" + aborting,
         "p0 m0", true},
        // A recording cut off may miss up to 2^20 samples, or as many as make it as long as an
        // earlier signal; one more is a lie.
        {"2^20 samples missing", Sgf([](W& w) { w.Add("a", {1, 2}).declaredCount = missingLimit + 2; }), true,
         LoadLine(1) + SignalLine(0, "a", missingLimit + 2), "p0 m0 a/1048578", false},
        {"2^20 + 1 missing",
         Sgf([](W& w) { w.Add("a", {1}); w.Add("b", {1, 2}).declaredCount = missingLimit + 3; }), true,
         LoadLine(2) + SignalLine(0, "a", 1) + SignalLine(1, "b", missingLimit + 3) + sgf +
             "signal b claims 1048579 samples, the file holds 2" + aborting,
         "p0 m0 a/1", true},
        {"all missing of one as long as the last",
         Sgf([&](W& w) { w.Add("a", full); w.Add("b", {}).declaredCount = missingLimit + 8; }), true,
         LoadLine(2) + SignalLine(0, "a", missingLimit + 8) + SignalLine(1, "b", missingLimit + 8),
         "p0 m0 a/1048584 b/1048584", false},
    };
    for (const Case& c : cases) {
        PSignals set;
        EXPECT_EQ(Load(set, c.bytes), c.ok) << c.what;
        EXPECT_EQ(err, c.err) << c.what;
        EXPECT_EQ(Summary(set), c.loaded) << c.what;
        EXPECT_EQ(LogExists(), c.logged) << c.what;
    }
}

TEST_F(ImportTest, ThousandAndOneChunksLoadTheFirstThousand)
{
    SgfWriter w;
    w.timestep = 1.0f;
    for (int i = 0; i < 1001; i++) w.Add("s" + std::to_string(i), {float(i)});
    PSignals set;
    EXPECT_TRUE(Load(set, w.Build()));
    std::string expected = "PSignals:ImportSGF(); too many signals in file (rec.sgf, max=1000, file has 1001)\n";
    expected += LoadLine(1000);
    for (int i = 0; i < 1000; i++) expected += SignalLine(i, "s" + std::to_string(i), 1);
    EXPECT_EQ(err, expected);
    ASSERT_EQ(set.signalCount, 1000);
    EXPECT_EQ(set.signals[999]->data[0], 999.0f);
}

TEST_F(ImportTest, RefusedSignalsAreSkippedOverToTheNextChunk)
{
    PSignals set;
    for (int i = 0; i < 999; i++) set.AddSignal("x", 0);
    EXPECT_TRUE(Load(set, Sgf([](SgfWriter& w) {
        w.Add("a", {1, 2});
        w.Add("b", {3, 4, 5});
        w.Add("c", {6});
    })));
    EXPECT_EQ(err, LoadLine(3) + SignalLine(0, "a", 2) + SignalLine(1, "b", 3) +
                       "PSignals:AddSignal(); out of signals (max=1000)\n" + SignalLine(2, "c", 1) +
                       "PSignals:AddSignal(); out of signals (max=1000)\n");
    ASSERT_EQ(set.signalCount, 1000);
    EXPECT_STREQ(set.signals[999]->GetId(), "a");
    EXPECT_EQ(set.signals[999]->data[1], 2.0f);
}

// A good file cut at every length: never a crash or a read past a buffer; each chunk whose head is
// complete loads with its announced count, silently, and samples not in the file keep the buffer's
// initial value (-1 for the lap, 0 otherwise).
TEST_F(ImportTest, EveryPrefixOfAGoodFileLoadsSafely)
{
    SgfWriter w;
    w.timestep = 1.0f;
    w.properties = {{"car", "a"}};
    w.meta = {{"m", "v"}};
    w.Add("time", {0.5f, 0.25f});
    w.Add("distance", {3.0f, 1.0f});
    w.Add("lap", {1.0f, 2.0f});
    const std::string full = w.Build();
    const size_t chunkSize = 44 + 2 * 4;
    const size_t firstChunk = full.size() - 3 * chunkSize;

    for (size_t len = 0; len < full.size(); len++) {
        PSignals set;
        bool ok = Load(set, full.substr(0, len));
        if (len < 16) {
            EXPECT_FALSE(ok) << len;
        }
        int heads = 0;
        std::string report = LoadLine(3);
        for (size_t k = 0; k < 3; k++)
            if (len >= firstChunk + k * chunkSize + 44) report += SignalLine(heads++, w.signals[k].name, 2);
        if (len >= firstChunk) {
            EXPECT_TRUE(ok) << len;
            EXPECT_EQ(err, report) << len;
        }
        ASSERT_EQ(set.signalCount, heads) << len;
        for (int k = 0; k < heads; k++) {
            EXPECT_EQ(set.signals[k]->count, 2) << len;
            for (size_t i = 0; i < 2; i++) {
                const size_t end = firstChunk + size_t(k) * chunkSize + 44 + 4 * (i + 1);
                if (len < end && len > end - 4) continue; // cut inside the sample: any value
                const float initial = k == 2 ? -1.0f : 0.0f, read = w.signals[size_t(k)].samples[i];
                EXPECT_EQ(set.signals[k]->data[i], len >= end ? read : initial) << len;
            }
        }
    }
}

// ---- The time step ----

// Only whole seconds of the stored step count, cut towards zero; a step of 0 is repaired from the
// time signal, or set to 0.1 s without one of two samples.
TEST_F(ImportTest, StepIsCutToWholeSecondsAndZeroIsRepaired)
{
    using Signals = std::vector<std::pair<std::string, std::vector<float>>>;
    const std::string repair = "Timestep is 0 - fixing by time signal\n";
    const std::string tenHertz =
        repair + "No 'time' signal found to fix timestep; using 0.1 seconds (10 Hz)\n";
    struct Case {
        float stored;
        const char* whole; // the step as the first report gives it
        Signals signals;
        std::string err; // after the "Load signal" lines
        float step;
    } cases[] = {
        {0.01f, "0.000000", {{"rpm", {1, 2, 3}}, {"time", {0, 0.02f, 0.04f}}},
         repair + "Timestep corrected to 0.0200\n", 0.02f},
        {-0.9f, "0.000000", {{"time", {0.0f, 0.25f}}}, repair + "Timestep corrected to 0.2500\n", 0.25f},
        {1.5f, "1.000000", {{"time", {0.0f, 0.02f}}}, "", 1.0f},
        {2.99f, "2.000000", {{"time", {0.0f, 0.02f}}}, "", 2.0f},
        {0.0f, "0.000000", {{"time", {3}}, {"rpm", {1}}}, tenHertz, 0.1f},
        {0.0f, "0.000000", {{"Time", {0.0f, 0.5f}}}, tenHertz, 0.1f}, // names count exactly
    };
    for (const Case& c : cases) {
        SgfWriter w;
        w.timestep = c.stored;
        for (const auto& s : c.signals) w.Add(s.first, s.second);
        PSignals set;
        EXPECT_TRUE(Load(set, w.Build()));
        std::string expected = LoadLine(int(c.signals.size()), c.whole);
        for (size_t i = 0; i < c.signals.size(); i++)
            expected += SignalLine(int(i), c.signals[i].first, int(c.signals[i].second.size()));
        EXPECT_EQ(err, expected + c.err) << c.stored;
        EXPECT_EQ(LogExists(), c.step == 0.1f) << c.stored;
        for (int i = 0; i < set.signalCount; i++) EXPECT_EQ(set.signals[i]->timestep, c.step) << c.stored;
    }
}

// ---- The choice of reader ----

TEST_F(ImportTest, NamesContainingSgfInAnyCaseTakeTheBinaryReader)
{
    for (const char* name : {"LAP.SGF", "run.sgf.txt", "a.Sgf", "run.txt"}) {
        PSignals set;
        bool ok = true;
        std::string report = StderrOf([&] { ok = set.Import(name); });
        const std::string reader = name == std::string("run.txt") ? "ImportASCII" : "ImportSGF";
        const std::string expected = "PSignals:" + reader + "(); can't open file (" + name + ")";
        EXPECT_FALSE(ok);
        EXPECT_EQ(report, expected + "\n");
        EXPECT_TRUE(Contains(Log(), "(WARN ): [-] " + expected + " ["));
        EXPECT_STREQ(set.fileName.cstr(), name);
    }
    WriteFile("LAP.SGF", Sgf([](SgfWriter& w) { w.Add("rpm", {1}); }));
    PSignals set;
    bool ok = false;
    StderrOf([&] { ok = set.Import("LAP.SGF"); });
    EXPECT_TRUE(ok);
    EXPECT_EQ(Summary(set), "p0 m0 rpm/1");
}
