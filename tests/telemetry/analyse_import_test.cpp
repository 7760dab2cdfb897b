// The .sgf reader: the layout byte by byte, the failures of the head with their exact words, the
// repair of the time step, the limits, and files that end early, lie about their counts or carry
// values the format has no use for. Plus the choice of reader by file name.
#include "telemetry/analyse_signals.h"
#include "telemetry/analyse_signaltypes.h"
#include "tests/telemetry/telemetry_fixture.h"
#include "tools/sgfwriter.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

using namespace tarvik;
using namespace tarvik::test;

namespace {

using ImportTest = TelemetryTest;

struct Outcome {
    bool ok;
    std::string err; // standard error during the import
};

Outcome ImportFile(PSignals& set, const char* name)
{
    bool ok = false;
    std::string err = StderrOf([&] { ok = set.ImportSGF(name); });
    return Outcome{ok, err};
}

Outcome ImportBytes(PSignals& set, const std::string& bytes, const char* name = "rec.sgf")
{
    WriteFile(name, bytes);
    return ImportFile(set, name);
}

std::string FromHex(const char* hex)
{
    std::string out;
    int nibbles = 0, value = 0;
    for (const char* p = hex; *p; p++) {
        if (*p == ' ') continue;
        value = value * 16 + (*p <= '9' ? *p - '0' : *p - 'A' + 10);
        if (++nibbles == 2) {
            out += char(value);
            nibbles = value = 0;
        }
    }
    return out;
}

// A chunk assembled by hand, so that its count can say anything.
std::string Chunk(const std::string& name, int32_t declared, const std::vector<float>& samples)
{
    std::string out = "SGNL";
    SgfWriter::PutInt32(out, 0);
    SgfWriter::PutInt32(out, declared);
    std::string padded = name;
    padded.resize(32, '\0');
    out += padded;
    for (float v : samples) SgfWriter::PutFloat(out, v);
    return out;
}

// Magic, chunk count, step, "PROP" with no properties, "MPRP" with none.
std::string EmptyHead(int32_t chunks, float step)
{
    std::string out = "SGF0";
    SgfWriter::PutInt32(out, chunks);
    SgfWriter::PutFloat(out, step);
    out += "PROP";
    SgfWriter::PutInt32(out, 0);
    out += "MPRP";
    SgfWriter::PutInt32(out, 0);
    return out;
}

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
    Outcome r = ImportBytes(set, bytes);
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(r.err, "PSignals:Load() timestep 0.000000, 1 signals\n"
                     "Load signal 0: time (2 samples)\n"
                     "Timestep is 0 - fixing by time signal\n"
                     "Timestep corrected to 0.0100\n");
    EXPECT_FALSE(LogExists()); // info reports don't reach the log
    ASSERT_EQ(set.signalCount, 1);
    PSignal* time = set.signals[0];
    EXPECT_STREQ(time->GetId(), "time");
    EXPECT_EQ(time->count, 2);
    EXPECT_EQ(time->data[0], 0.0f);
    EXPECT_EQ(time->data[1], 0.01f);
    EXPECT_EQ(time->timestep, 0.01f);
    EXPECT_EQ(set.propertyCount, 0);
    EXPECT_EQ(set.metaCount, 0);
    EXPECT_STREQ(set.fileName.cstr(), "rec.sgf");

    // The writer the other cases use lays out the same bytes.
    SgfWriter w;
    w.Add("time", {0.0f, 0.01f});
    EXPECT_EQ(w.Build(), bytes);
}

TEST_F(ImportTest, PropertiesMetaPropertiesAndSignalsKeepFileOrder)
{
    SgfWriter w;
    w.timestep = 1.0f;
    w.properties = {{"car", "blue one"}, {"", "x"}, {"track", ""}};
    w.meta = {{"m1", "v1"}, {"m2", "v2"}};
    w.Add("speed", {1.0f, 2.0f, 3.0f});
    w.Add("speed", {4.0f, 5.0f, 6.0f}); // the same name twice gives two signals
    w.Add("lap", {1.0f, 1.0f, 2.0f});
    PSignals set;
    Outcome r = ImportBytes(set, w.Build());
    EXPECT_TRUE(r.ok);
    EXPECT_FALSE(LogExists());
    ASSERT_EQ(set.propertyCount, 3);
    EXPECT_STREQ(set.propertyName[0].cstr(), "car");
    EXPECT_STREQ(set.propertyValue[0].cstr(), "blue one");
    EXPECT_TRUE(set.propertyName[1].IsEmpty());
    EXPECT_STREQ(set.propertyValue[1].cstr(), "x");
    EXPECT_STREQ(set.propertyName[2].cstr(), "track");
    EXPECT_TRUE(set.propertyValue[2].IsEmpty());
    ASSERT_EQ(set.metaCount, 2);
    EXPECT_STREQ(set.metaName[1].cstr(), "m2");
    EXPECT_STREQ(set.metaValue[1].cstr(), "v2");
    ASSERT_EQ(set.signalCount, 3);
    EXPECT_STREQ(set.signals[0]->GetId(), "speed");
    EXPECT_STREQ(set.signals[1]->GetId(), "speed");
    EXPECT_EQ(set.signals[1]->data[2], 6.0f);
    EXPECT_EQ(set.signals[2]->data[2], 2.0f);
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(set.signals[i]->count, 3);
        EXPECT_EQ(set.signals[i]->timestep, 1.0f);
        EXPECT_EQ(set.signals[i]->flags, uint32_t(PSignal::PSF_OWN_DEF)); // no type file: private entries
    }
    EXPECT_EQ(set.FindSignal("speed"), set.signals[0]);
}

TEST_F(ImportTest, NameOfThirtyTwoBytesWithoutZeroIsCutToThirtyOne)
{
    const std::string full(32, 'n');
    const std::string longest = "abcdefghijklmnopqrstuvwxyz01234"; // 31: fits with its zero
    SgfWriter w;
    w.timestep = 1.0f;
    w.Add(full, {1.0f});
    w.Add(longest, {2.0f});
    PSignals set;
    Outcome r = ImportBytes(set, w.Build());
    EXPECT_TRUE(r.ok);
    ASSERT_EQ(set.signalCount, 2);
    EXPECT_EQ(std::string(set.signals[0]->GetId()), std::string(31, 'n'));
    EXPECT_EQ(std::string(set.signals[1]->GetId()), longest);
    EXPECT_EQ(set.signals[1]->data[0], 2.0f);
}

TEST_F(ImportTest, ExactlyThirtyPropertiesAndThousandMetaPropertiesAreAccepted)
{
    SgfWriter w;
    w.timestep = 1.0f;
    for (int i = 0; i < 30; i++) w.properties.push_back({"p" + std::to_string(i), "v" + std::to_string(i)});
    for (int i = 0; i < 1000; i++) w.meta.push_back({"m" + std::to_string(i), "w" + std::to_string(i)});
    w.Add("rpm", {3.0f});
    PSignals set;
    Outcome r = ImportBytes(set, w.Build());
    EXPECT_TRUE(r.ok);
    EXPECT_FALSE(LogExists());
    EXPECT_EQ(set.propertyCount, 30);
    EXPECT_STREQ(set.propertyValue[29].cstr(), "v29");
    EXPECT_EQ(set.metaCount, 1000);
    EXPECT_STREQ(set.metaName[999].cstr(), "m999");
    EXPECT_STREQ(set.metaValue[999].cstr(), "w999");
    ASSERT_EQ(set.signalCount, 1);
    EXPECT_EQ(set.signals[0]->data[0], 3.0f);
}

// ---- Failures of the head ----

TEST_F(ImportTest, MissingFileIsWarnedAndFails)
{
    PSignals set;
    Outcome r = ImportFile(set, "missing.sgf");
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.err, "PSignals:ImportSGF(); can't open file (missing.sgf)\n");
    EXPECT_TRUE(Contains(Log(), "(WARN ): [-] PSignals:ImportSGF(); can't open file (missing.sgf) ["));
    EXPECT_STREQ(set.fileName.cstr(), "missing.sgf");
}

TEST_F(ImportTest, WrongMagicAndTooShortFileFail)
{
    SgfWriter w;
    w.magic = "SGF1";
    w.Add("time", {0.0f, 1.0f});
    for (const std::string& bytes : {w.Build(), std::string("SGF")}) {
        PSignals set;
        Outcome r = ImportBytes(set, bytes);
        EXPECT_FALSE(r.ok);
        EXPECT_EQ(r.err, "PSignals:ImportSGF(); unknown file header (rec.sgf)\n");
        EXPECT_EQ(set.signalCount, 0);
    }
}

TEST_F(ImportTest, MissingPropTagFails)
{
    SgfWriter w;
    w.propTag = "PORP";
    w.Add("time", {0.0f, 1.0f});
    PSignals set;
    Outcome r = ImportBytes(set, w.Build());
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.err, "PSignals:Load() timestep 0.000000, 1 signals\n"
                     "PSignals:ImportSGF(); no properties found\n");
    EXPECT_EQ(set.signalCount, 0);
}

TEST_F(ImportTest, ThirtyOnePropertiesFailWithCountZero)
{
    SgfWriter w;
    w.declaredProperties = 31;
    PSignals set;
    Outcome r = ImportBytes(set, w.Build());
    EXPECT_FALSE(r.ok);
    EXPECT_TRUE(Contains(r.err, "PSignals:ImportSGF(rec.sgf): too many properties defined (31 defined, max 30)\n"));
    EXPECT_EQ(set.propertyCount, 0);
}

TEST_F(ImportTest, ThousandAndOneMetaPropertiesFailButPropertiesStay)
{
    SgfWriter w;
    w.properties = {{"car", "a"}};
    w.declaredMeta = 1001;
    w.Add("time", {0.0f, 1.0f});
    PSignals set;
    Outcome r = ImportBytes(set, w.Build());
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.err, "PSignals:Load() timestep 0.000000, 1 signals\n"
                     "PSignals:ImportSGF(rec.sgf): too many meta-properties defined (1001 defined, max 1000)\n");
    EXPECT_EQ(set.metaCount, 0);
    EXPECT_EQ(set.propertyCount, 1);
    EXPECT_STREQ(set.propertyValue[0].cstr(), "a");
    EXPECT_EQ(set.signalCount, 0);
}

TEST_F(ImportTest, OldFileWithoutMetaTagSkipsEightBytesAndLoads)
{
    SgfWriter w;
    w.metaTag = "";
    w.timestep = 2.0f;
    w.properties = {{"car", "a"}};
    w.Add("time", {0.0f, 2.0f});
    w.Add("distance", {0.0f, 5.0f});
    PSignals set;
    Outcome r = ImportBytes(set, w.Build());
    EXPECT_TRUE(r.ok);
    EXPECT_TRUE(Contains(r.err, "PSignals:ImportSGF(); no meta-properties found (old file format)\n"));
    EXPECT_FALSE(Contains(r.err, "SGNL"));
    EXPECT_EQ(set.metaCount, 0);
    EXPECT_EQ(set.propertyCount, 1);
    ASSERT_EQ(set.signalCount, 2);
    EXPECT_STREQ(set.signals[1]->GetId(), "distance");
    EXPECT_EQ(set.signals[1]->data[1], 5.0f);
}

TEST_F(ImportTest, NegativeCountsAreWarnedAndFail)
{
    SgfWriter props;
    props.declaredProperties = 0xFFFFFFFFLL; // -1 as int32
    PSignals a;
    Outcome r = ImportBytes(a, props.Build());
    EXPECT_FALSE(r.ok);
    EXPECT_TRUE(Contains(r.err, "PSignals:ImportSGF(rec.sgf): negative number of properties (-1)\n"));
    EXPECT_EQ(a.propertyCount, 0);

    SgfWriter meta;
    meta.declaredMeta = 0xFFFFFFFELL; // -2
    PSignals b;
    r = ImportBytes(b, meta.Build());
    EXPECT_FALSE(r.ok);
    EXPECT_TRUE(Contains(r.err, "PSignals:ImportSGF(rec.sgf): negative number of meta-properties (-2)\n"));
    EXPECT_EQ(b.metaCount, 0);
}

TEST_F(ImportTest, NegativeTextLengthFailsAndKeepsTheEarlierPairs)
{
    std::string bytes = "SGF0";
    SgfWriter::PutInt32(bytes, 0);
    SgfWriter::PutFloat(bytes, 0.0f);
    bytes += "PROP";
    SgfWriter::PutInt32(bytes, 3);
    SgfWriter::PutText(bytes, "car");
    SgfWriter::PutText(bytes, "a");
    SgfWriter::PutText(bytes, "track");
    bytes += "\xFB\xFF"; // a length of -5
    bytes += "oval and more";
    PSignals set;
    Outcome r = ImportBytes(set, bytes);
    EXPECT_FALSE(r.ok);
    EXPECT_TRUE(Contains(r.err, "PSignals:ImportSGF(rec.sgf): text of negative length (-5) in property 2\n"));
    ASSERT_EQ(set.propertyCount, 1);
    EXPECT_STREQ(set.propertyName[0].cstr(), "car");

    std::string meta = EmptyHead(0, 0.0f);
    meta.resize(meta.size() - 4);
    SgfWriter::PutInt32(meta, 2);
    SgfWriter::PutText(meta, "m");
    SgfWriter::PutText(meta, "v");
    meta += std::string("\x00\x80", 2); // -32768
    PSignals other;
    r = ImportBytes(other, meta);
    EXPECT_FALSE(r.ok);
    EXPECT_TRUE(Contains(r.err, "PSignals:ImportSGF(rec.sgf): text of negative length (-32768) in meta-property 2\n"));
    ASSERT_EQ(other.metaCount, 1);
    EXPECT_STREQ(other.metaValue[0].cstr(), "v");
}

// ---- The chunks ----

TEST_F(ImportTest, ThousandAndOneChunksLoadTheFirstThousand)
{
    SgfWriter w;
    w.timestep = 1.0f;
    for (int i = 0; i < 1001; i++) w.Add("s" + std::to_string(i), {float(i)});
    PSignals set;
    Outcome r = ImportBytes(set, w.Build());
    EXPECT_TRUE(r.ok);
    EXPECT_TRUE(Contains(r.err, "PSignals:ImportSGF(); too many signals in file (rec.sgf, max=1000, file has 1001)\n"
                                "PSignals:Load() timestep 1.000000, 1000 signals\n"));
    EXPECT_FALSE(Contains(r.err, "out of signals"));
    ASSERT_EQ(set.signalCount, 1000);
    EXPECT_STREQ(set.signals[999]->GetId(), "s999");
    EXPECT_EQ(set.signals[999]->data[0], 999.0f);
    EXPECT_EQ(set.FindSignal("s1000"), nullptr);
}

TEST_F(ImportTest, FewerChunksThanAnnouncedLoadSilently)
{
    SgfWriter w;
    w.timestep = 1.0f;
    w.declaredSignals = 5;
    w.Add("a", {1.0f});
    w.Add("b", {2.0f});
    w.Add("c", {3.0f});
    PSignals set;
    Outcome r = ImportBytes(set, w.Build());
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(r.err, "PSignals:Load() timestep 1.000000, 5 signals\n"
                     "Load signal 0: a (1 samples)\n"
                     "Load signal 1: b (1 samples)\n"
                     "Load signal 2: c (1 samples)\n");
    EXPECT_FALSE(LogExists());
    EXPECT_EQ(set.signalCount, 3);
}

TEST_F(ImportTest, ZeroOrNegativeChunkCountLoadsNothingWithDefaultStep)
{
    for (int64_t declared : {int64_t(0), int64_t(0xFFFFFFFFLL)}) {
        SgfWriter w;
        w.declaredSignals = declared;
        w.Add("time", {0.0f, 0.5f});
        PSignals set;
        Outcome r = ImportBytes(set, w.Build());
        EXPECT_TRUE(r.ok);
        EXPECT_TRUE(Contains(r.err, "No 'time' signal found to fix timestep; using 0.1 seconds (10 Hz)\n"));
        EXPECT_EQ(set.signalCount, 0);
    }
}

TEST_F(ImportTest, OtherTagThanSignalStopsTheLoadButSucceeds)
{
    SgfWriter w;
    w.timestep = 1.0f;
    w.Add("a", {1.0f});
    w.Add("b", {2.0f}).tag = "SGNX";
    w.Add("c", {3.0f});
    PSignals set;
    Outcome r = ImportBytes(set, w.Build());
    EXPECT_TRUE(r.ok);
    EXPECT_TRUE(Contains(r.err, "Load signal 0: a (1 samples)\n"
                                "PSignals:ImportSGF(); no SGNL found - aborting load (rec.sgf)\n"));
    EXPECT_TRUE(Contains(Log(), "(WARN ): [-] PSignals:ImportSGF(); no SGNL found - aborting load (rec.sgf) ["));
    ASSERT_EQ(set.signalCount, 1);
}

TEST_F(ImportTest, CutShortLastChunkKeepsItsCountAndInitialValues)
{
    SgfWriter w;
    w.timestep = 1.0f;
    w.Add("speed", {1.0f, 2.0f}).declaredCount = 4;
    PSignals set;
    Outcome r = ImportBytes(set, w.Build());
    EXPECT_TRUE(r.ok);
    EXPECT_FALSE(LogExists());
    ASSERT_EQ(set.signalCount, 1);
    PSignal* s = set.signals[0];
    EXPECT_EQ(s->count, 4);
    EXPECT_EQ(s->data[1], 2.0f);
    EXPECT_EQ(s->data[2], 0.0f);
    EXPECT_EQ(s->data[3], 0.0f);

    SgfWriter laps;
    laps.timestep = 1.0f;
    laps.Add("lap", {3.0f}).declaredCount = 3;
    PSignals other;
    r = ImportBytes(other, laps.Build());
    EXPECT_TRUE(r.ok);
    ASSERT_EQ(other.signalCount, 1);
    EXPECT_EQ(other.signals[0]->count, 3);
    EXPECT_EQ(other.signals[0]->data[0], 3.0f);
    EXPECT_EQ(other.signals[0]->data[1], -1.0f);
    EXPECT_EQ(other.signals[0]->data[2], -1.0f);
}

TEST_F(ImportTest, FileEndingInsideChunkHeadEndsTheLoopSilently)
{
    SgfWriter w;
    w.timestep = 1.0f;
    w.Add("a", {1.0f, 2.0f});
    w.Add("b", {3.0f, 4.0f});
    std::string bytes = w.Build();
    bytes.resize(bytes.size() - 8 - 20); // 24 bytes of b's head remain
    PSignals set;
    Outcome r = ImportBytes(set, bytes);
    EXPECT_TRUE(r.ok);
    EXPECT_FALSE(LogExists());
    EXPECT_FALSE(Contains(r.err, "Load signal 1"));
    ASSERT_EQ(set.signalCount, 1);
    EXPECT_EQ(set.signals[0]->data[1], 2.0f);
}

TEST_F(ImportTest, NegativeSampleCountStopsTheLoadButSucceeds)
{
    std::string bytes = EmptyHead(3, 1.0f) + Chunk("a", 1, {1.0f}) + Chunk("b", -3, {2.0f}) + Chunk("c", 1, {3.0f});
    PSignals set;
    Outcome r = ImportBytes(set, bytes);
    EXPECT_TRUE(r.ok);
    EXPECT_TRUE(Contains(r.err, "PSignals:ImportSGF(); negative sample count -3 for signal b - aborting load (rec.sgf)\n"));
    ASSERT_EQ(set.signalCount, 1);
    EXPECT_STREQ(set.signals[0]->GetId(), "a");
}

TEST_F(ImportTest, HugeAnnouncedCountInSmallFileAllocatesNothing)
{
    std::string bytes = EmptyHead(1, 1.0f) + Chunk("big", 2000000000, {1, 2, 3, 4, 5, 6, 7});
    ASSERT_EQ(bytes.size(), 100u);
    PSignals set;
    auto start = std::chrono::steady_clock::now();
    Outcome r = ImportBytes(set, bytes);
    auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_LT(seconds, 20.0); // a guard: two billion samples must not be touched
    EXPECT_TRUE(r.ok);
    EXPECT_TRUE(Contains(r.err, "PSignals:ImportSGF(); signal big claims 2000000000 samples, the file holds 7 - "
                                "aborting load (rec.sgf)\n"));
    EXPECT_EQ(set.signalCount, 0);
}

TEST_F(ImportTest, MissingSamplesAreToleratedUpToTheLimit)
{
    const int32_t limit = 1 << 20;
    // Exactly 'limit' samples missing: a recording that was cut off.
    PSignals accepted;
    Outcome r = ImportBytes(accepted, EmptyHead(1, 1.0f) + Chunk("a", limit + 2, {1.0f, 2.0f}));
    EXPECT_TRUE(r.ok);
    EXPECT_FALSE(LogExists());
    ASSERT_EQ(accepted.signalCount, 1);
    EXPECT_EQ(accepted.signals[0]->count, limit + 2);
    EXPECT_EQ(accepted.signals[0]->data[1], 2.0f);
    EXPECT_EQ(accepted.signals[0]->data[limit + 1], 0.0f);

    // One more is a lie; the signals before it stay.
    PSignals refused;
    r = ImportBytes(refused, EmptyHead(2, 1.0f) + Chunk("a", 1, {1.0f}) + Chunk("b", limit + 3, {1.0f, 2.0f}));
    EXPECT_TRUE(r.ok);
    EXPECT_TRUE(Contains(r.err, "PSignals:ImportSGF(); signal b claims 1048579 samples, the file holds 2 - "
                                "aborting load (rec.sgf)\n"));
    ASSERT_EQ(refused.signalCount, 1);
    EXPECT_STREQ(refused.signals[0]->GetId(), "a");
}

TEST_F(ImportTest, MissingSamplesAreToleratedUpToTheLongestLoadedSignal)
{
    const int32_t n = (1 << 20) + 8;
    std::vector<float> samples(size_t(n), 1.5f);
    PSignals set;
    Outcome r = ImportBytes(set, EmptyHead(2, 1.0f) + Chunk("a", n, samples) + Chunk("b", n, {}));
    EXPECT_TRUE(r.ok);
    EXPECT_FALSE(LogExists());
    ASSERT_EQ(set.signalCount, 2);
    EXPECT_EQ(set.signals[0]->data[n - 1], 1.5f);
    EXPECT_EQ(set.signals[1]->count, n);
    EXPECT_EQ(set.signals[1]->data[n - 1], 0.0f);
}

TEST_F(ImportTest, RefusedSignalsAreSkippedOverToTheNextChunk)
{
    SgfWriter w;
    w.timestep = 1.0f;
    w.Add("a", {1.0f, 2.0f});
    w.Add("b", {3.0f, 4.0f, 5.0f});
    w.Add("c", {6.0f});
    PSignals set;
    for (int i = 0; i < 999; i++) set.AddSignal("x", 0);
    Outcome r = ImportBytes(set, w.Build());
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(Occurrences(r.err, "PSignals:AddSignal(); out of signals (max=1000)\n"), 2);
    EXPECT_TRUE(Contains(r.err, "Load signal 2: c (1 samples)\n"));
    EXPECT_FALSE(Contains(r.err, "SGNL"));
    ASSERT_EQ(set.signalCount, 1000);
    EXPECT_STREQ(set.signals[999]->GetId(), "a");
}

// A good file cut at every length: never a crash or a read past a buffer, and each chunk whose head
// is complete is loaded with its announced count.
TEST_F(ImportTest, EveryPrefixOfAGoodFileLoadsSafely)
{
    SgfWriter w;
    w.properties = {{"car", "a"}};
    w.meta = {{"m", "v"}};
    w.Add("time", {0.0f, 0.5f});
    w.Add("distance", {0.0f, 1.0f});
    w.Add("lap", {1.0f, 1.0f});
    const std::string full = w.Build();
    const size_t chunkSize = 44 + 2 * 4;
    const size_t firstChunk = full.size() - 3 * chunkSize;

    for (size_t len = 0; len < full.size(); len++) {
        PSignals set;
        Outcome r = ImportBytes(set, full.substr(0, len));
        if (len < 16) {
            EXPECT_FALSE(r.ok) << len;
        }
        if (len >= firstChunk) {
            EXPECT_TRUE(r.ok) << len;
        }
        int heads = 0;
        for (size_t k = 0; k < 3; k++)
            if (len >= firstChunk + k * chunkSize + 44) heads++;
        ASSERT_EQ(set.signalCount, heads) << len;
        for (int k = 0; k < heads; k++) {
            const PSignal* s = set.signals[k];
            const float initial = k == 2 ? -1.0f : 0.0f;
            EXPECT_EQ(s->count, 2) << len;
            for (size_t i = 0; i < 2; i++) {
                const size_t end = firstChunk + size_t(k) * chunkSize + 44 + 4 * (i + 1);
                if (len >= end) {
                    EXPECT_EQ(s->data[i], w.signals[size_t(k)].samples[i]) << len;
                } else if (len <= end - 4) {
                    EXPECT_EQ(s->data[i], initial) << len;
                }
            }
        }
    }
}

// ---- The time step ----

TEST_F(ImportTest, StepBelowOneSecondIsTakenFromTheTimeSignal)
{
    SgfWriter w;
    w.timestep = 0.01f;
    w.Add("rpm", {1.0f, 2.0f, 3.0f});
    w.Add("time", {0.0f, 0.02f, 0.04f});
    PSignals set;
    Outcome r = ImportBytes(set, w.Build());
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(r.err, "PSignals:Load() timestep 0.000000, 2 signals\n"
                     "Load signal 0: rpm (3 samples)\n"
                     "Load signal 1: time (3 samples)\n"
                     "Timestep is 0 - fixing by time signal\n"
                     "Timestep corrected to 0.0200\n");
    ASSERT_EQ(set.signalCount, 2);
    EXPECT_EQ(set.signals[0]->timestep, 0.02f);
    EXPECT_EQ(set.signals[1]->timestep, 0.02f);
}

TEST_F(ImportTest, StepOfASecondOrMoreIsCutToWholeSecondsWithoutRepair)
{
    for (float stored : {1.5f, 2.99f}) {
        SgfWriter w;
        w.timestep = stored;
        w.Add("time", {0.0f, 0.02f});
        PSignals set;
        Outcome r = ImportBytes(set, w.Build());
        const float whole = stored < 2.0f ? 1.0f : 2.0f;
        EXPECT_TRUE(r.ok);
        char expected[128];
        std::snprintf(expected, sizeof expected, "PSignals:Load() timestep %f, 1 signals\n", double(whole));
        EXPECT_EQ(r.err, std::string(expected) + "Load signal 0: time (2 samples)\n");
        EXPECT_EQ(set.signals[0]->timestep, whole);
    }
}

TEST_F(ImportTest, NegativeStepIsCutTowardsZero)
{
    SgfWriter w;
    w.timestep = -0.9f; // cut to 0, so it is repaired
    w.Add("time", {0.0f, 0.25f});
    PSignals set;
    Outcome r = ImportBytes(set, w.Build());
    EXPECT_TRUE(r.ok);
    EXPECT_TRUE(Contains(r.err, "Timestep corrected to 0.2500\n"));
    EXPECT_EQ(set.signals[0]->timestep, 0.25f);
}

TEST_F(ImportTest, TimeSignalWithOneSampleOrNoneGivesTenHertz)
{
    SgfWriter single;
    single.Add("time", {3.0f});
    single.Add("rpm", {1.0f});
    SgfWriter none;
    none.Add("Time", {0.0f, 0.5f}); // not the time signal: names count exactly
    for (const SgfWriter* w : {&single, &none}) {
        qmsgReset();
        PSignals set;
        Outcome r = ImportBytes(set, w->Build());
        EXPECT_TRUE(r.ok);
        EXPECT_TRUE(Contains(r.err, "Timestep is 0 - fixing by time signal\n"
                                    "No 'time' signal found to fix timestep; using 0.1 seconds (10 Hz)\n"));
        EXPECT_TRUE(Contains(Log(), "(WARN ): [-] No 'time' signal found to fix timestep; using 0.1 seconds (10 Hz) ["));
        for (int i = 0; i < set.signalCount; i++) EXPECT_EQ(set.signals[i]->timestep, 0.1f);
    }
}

// ---- The choice of reader ----

TEST_F(ImportTest, NamesContainingSgfInAnyCaseTakeTheBinaryReader)
{
    for (const char* name : {"LAP.SGF", "run.sgf.txt", "a.Sgf"}) {
        PSignals set;
        bool ok = true;
        std::string err = StderrOf([&] { ok = set.Import(name); });
        EXPECT_FALSE(ok);
        EXPECT_EQ(err, "PSignals:ImportSGF(); can't open file (" + std::string(name) + ")\n");
    }
    SgfWriter w;
    w.timestep = 1.0f;
    w.Add("rpm", {1.0f});
    WriteFile("LAP.SGF", w.Build());
    PSignals set;
    bool ok = false;
    StderrOf([&] { ok = set.Import("LAP.SGF"); });
    EXPECT_TRUE(ok);
    EXPECT_EQ(set.signalCount, 1);
    EXPECT_STREQ(set.fileName.cstr(), "LAP.SGF"); // as the caller spelled it
}

TEST_F(ImportTest, OtherNamesTakeTheTextReader)
{
    PSignals set;
    bool ok = true;
    std::string err = StderrOf([&] { ok = set.Import("run.txt"); });
    EXPECT_FALSE(ok);
    EXPECT_EQ(err, "PSignals:ImportASCII(); can't open file (run.txt)\n");
    EXPECT_TRUE(Contains(Log(), "(WARN ): [-] PSignals:ImportASCII(); can't open file (run.txt) ["));
}
