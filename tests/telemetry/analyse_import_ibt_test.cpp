// The disk telemetry reader: a small file written here read back with its channels mapped, its
// values, units and properties; damaged copies refused with their report and the set untouched;
// the session text's hostile shapes; the signal limit; failed allocations; and, where the shared
// data folder is present, the real recording against the table made from it.
#include "telemetry/analyse_import_logger.h"

#include "foundation/qhelpers.h"
#include "telemetry/analyse_signals.h"
#include "tests/telemetry/telemetry_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

using namespace tarvik;
using namespace tarvik::test;

namespace {

enum { T_CHAR, T_BOOL, T_INT, T_BITFIELD, T_FLOAT, T_DOUBLE };
const int typeBytes[] = {1, 1, 4, 4, 4, 8};

struct IbtVar {
    std::string name, unit;
    int type;
    int count;
    std::vector<double> first; // the first element per record; later elements hold 999
};

void Put(std::string& b, size_t at, uint64_t v, int bytes)
{
    for (int i = 0; i < bytes; i++)
        b[at + i] = char((v >> (8 * i)) & 0xFF);
}
void Put32(std::string& b, size_t at, int64_t v)
{
    Put(b, at, uint64_t(v), 4);
}

// Writes a file of the layout the reader expects: header and disk header, the variable table at
// 144, the session text, then the records with the variables packed in table order.
struct IbtWriter {
    int tickRate = 60;
    int64_t startDate = 951782400 + 3723; // 2000-02-29 01:02:03 UTC
    std::string yaml;
    std::vector<IbtVar> vars;
    int records = 0;

    std::string Build() const
    {
        const size_t varAt = 144, infoAt = varAt + 144 * vars.size();
        size_t recordBytes = 0;
        std::vector<size_t> offset;
        for (const IbtVar& v : vars) {
            offset.push_back(recordBytes);
            recordBytes += size_t(typeBytes[v.type] * v.count);
        }
        const size_t recordAt = infoAt + yaml.size();
        std::string b(recordAt + recordBytes * size_t(records), '\0');
        const int64_t head[][2] = {{0, 2},
                                   {4, 1},
                                   {8, tickRate},
                                   {16, int64_t(yaml.size())},
                                   {20, int64_t(infoAt)},
                                   {24, int64_t(vars.size())},
                                   {28, int64_t(varAt)},
                                   {32, 1},
                                   {36, int64_t(recordBytes)},
                                   {52, int64_t(recordAt)},
                                   {140, records}};
        for (const auto& field : head)
            Put32(b, size_t(field[0]), field[1]);
        Put(b, 112, uint64_t(startDate), 8);
        for (size_t i = 0; i < vars.size(); i++) {
            const size_t at = varAt + 144 * i;
            Put32(b, at, vars[i].type);
            Put32(b, at + 4, int64_t(offset[i]));
            Put32(b, at + 8, vars[i].count);
            std::memcpy(&b[at + 16], vars[i].name.data(), std::min<size_t>(32, vars[i].name.size()));
            std::memcpy(&b[at + 112], vars[i].unit.data(), std::min<size_t>(32, vars[i].unit.size()));
        }
        b.replace(infoAt, yaml.size(), yaml);
        for (int r = 0; r < records; r++)
            for (size_t i = 0; i < vars.size(); i++)
                for (int e = 0; e < vars[i].count; e++) {
                    const IbtVar& v = vars[i];
                    const double x = e == 0 ? v.first[size_t(r)] : 999.0;
                    const size_t at =
                        recordAt + size_t(r) * recordBytes + offset[i] + size_t(e * typeBytes[v.type]);
                    uint64_t bits = uint64_t(int64_t(x));
                    if (v.type == T_FLOAT) {
                        const float f = float(x);
                        std::memcpy(&bits, &f, 4);
                    } else if (v.type == T_DOUBLE) {
                        std::memcpy(&bits, &x, 8);
                    }
                    Put(b, at, bits, typeBytes[v.type]);
                }
        return b;
    }
};

const char* const sessionText = "---\n"
                                "WeekendInfo:\n"
                                " TrackDisplayName: Test Ring\n"
                                " TrackConfigName: Short\n"
                                " TrackLength: 2.50 km\n"
                                " EventType: Test\n"
                                "DriverInfo:\n"
                                " DriverCarIdx: 1\n"
                                " Drivers:\n"
                                " - CarIdx: 0\n"
                                "   UserName: Pace Car\n"
                                "   CarScreenName: Safety Car\n"
                                " - CarIdx: 1\n"
                                "   UserName: \"Ann Example\"\n"
                                "   CarScreenName: Kart 100\n"
                                " - CarIdx: 2\n"
                                "   UserName: Someone Else\n"
                                "SplitTimeInfo:\n"
                                " Sectors:\n"
                                " - SectorNum: 0\n"
                                "   SectorStartPct: 0.000000\n"
                                " - SectorNum: 2\n"
                                "   SectorStartPct: 0.600000\n"
                                " - SectorNum: 1\n"
                                "   SectorStartPct: 0.250000\n"
                                "...\n";

// Five records; every channel distinct from every other, so that a swap or a wrong factor shows.
IbtWriter Fixture()
{
    IbtWriter w;
    w.yaml = sessionText;
    w.records = 5;
    w.vars = {
        {"SessionTime", "s", T_DOUBLE, 1, {10.0, 10.5, 11.0, 11.5, 12.0}},
        {"DriverTag", "", T_CHAR, 8, {65, 66, 67, 68, 69}},
        {"LongAccel", "m/s^2", T_FLOAT, 1, {-2, -3, -4, -5, -6}},
        {"LapDist", "m", T_FLOAT, 1, {100, 101.5, 103, 104.5, 106}},
        {"Speed", "m/s", T_FLOAT, 1, {20, 21, 22, 23, 24}},
        {"RPM", "revs/min", T_FLOAT, 1, {3000, 3010, 3020, 3030, 3040}},
        {"Gear", "", T_INT, 1, {-1, 0, 1, 2, 3}},
        {"Throttle", "%", T_FLOAT, 1, {0, 0.25, 0.5, 0.75, 1}},
        {"Brake", "%", T_FLOAT, 1, {1, 0.5, 0, 0, 0}},
        {"SteeringWheelAngle", "rad", T_FLOAT, 1, {0.5, -0.25, 0, 1, -1}},
        {"LatAccel", "m/s^2", T_FLOAT, 1, {1, 2, 3, 4, 5}},
        {"Lap", "", T_INT, 1, {3, 3, 3, 4, 4}},
        {"LapDistPct", "%", T_FLOAT, 1, {0.1f, 0.3f, 0.7f, -1, 0.25f}},
        {"EngineWarnings", "flags", T_BITFIELD, 1, {2147483648.0, 1, 0, 0, 0}},
        {"OnPitRoad", "", T_BOOL, 1, {1, 0, 0, 1, 0}},
        {"Torque_ST", "N*m", T_FLOAT, 6, {2, 4, 6, 8, 10}},
    };
    return w;
}

class IbtTest : public TelemetryTest {
protected:
    bool Load(PSignals& set, const std::string& bytes, const char* name = "rec.ibt")
    {
        bool ok = false;
        err = StderrOf([&] {
            ok = PImportIbt(set, name, reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        });
        return ok;
    }
    std::string err; // standard error of the last Load
};

std::string Ids(const PSignals& set)
{
    std::string s;
    for (int i = 0; i < set.signalCount; i++)
        s += (i ? " " : "") + std::string(set.signals[i]->GetId());
    return s;
}

std::string Property(const PSignals& set, const char* name)
{
    for (int i = 0; i < set.propertyCount; i++)
        if (set.propertyName[i] == name) return set.propertyValue[i].cstr();
    return "<none>";
}

std::string Meta(const PSignals& set, const std::string& name)
{
    for (int i = 0; i < set.metaCount; i++)
        if (set.metaName[i] == name.c_str()) return set.metaValue[i].cstr();
    return "<none>";
}

std::vector<float> Values(const PSignals& set, const char* name)
{
    const PSignal* s = set.FindSignal(name);
    return s ? std::vector<float>(s->data, s->data + s->count) : std::vector<float>();
}

TEST_F(IbtTest, MapsChannelsInAFixedOrderWithUnitsAndProperties)
{
    PSignals set;
    ASSERT_TRUE(Load(set, Fixture().Build())) << err;
    EXPECT_EQ("time distance velocity rpm gear throttle brake steering acc_x acc_z lap sector SessionTime "
              "LapDistPct EngineWarnings OnPitRoad Torque_ST",
              Ids(set));
    for (int i = 0; i < set.signalCount; i++) {
        EXPECT_EQ(5, set.signals[i]->count) << set.signals[i]->GetId();
        EXPECT_FLOAT_EQ(1.0f / 60.0f, set.signals[i]->timestep) << set.signals[i]->GetId();
    }
    EXPECT_EQ("m/s", Meta(set, "unit.velocity"));
    EXPECT_EQ("deg", Meta(set, "unit.steering"));
    EXPECT_EQ("0..1", Meta(set, "unit.throttle"));
    EXPECT_EQ("N*m", Meta(set, "unit.Torque_ST"));
    EXPECT_EQ("-", Meta(set, "unit.OnPitRoad"));
    EXPECT_EQ(set.signalCount, set.metaCount);
    EXPECT_EQ("Test Ring - Short", Property(set, "track"));
    EXPECT_EQ("Kart 100", Property(set, "car")); // the entry of DriverCarIdx, not the first
    EXPECT_EQ("Ann Example", Property(set, "driver"));
    EXPECT_EQ("29-02-2000", Property(set, "date"));
    EXPECT_EQ("01:02:03", Property(set, "time"));
    EXPECT_EQ("Test", Property(set, "session"));
    EXPECT_EQ("2.50 km", Property(set, "tracklength"));
    EXPECT_EQ("60 Hz", Property(set, "samplerate"));
}

TEST_F(IbtTest, ReadsValuesWithTheirFactorsAndTypes)
{
    PSignals set;
    ASSERT_TRUE(Load(set, Fixture().Build())) << err;
    using V = std::vector<float>;
    EXPECT_EQ((V{0, 1 / 60.0f, 2 / 60.0f, 3 / 60.0f, 4 / 60.0f}), Values(set, "time"));
    EXPECT_EQ((V{100, 101.5f, 103, 104.5f, 106}), Values(set, "distance"));
    EXPECT_EQ((V{20, 21, 22, 23, 24}), Values(set, "velocity"));
    EXPECT_EQ((V{-1, 0, 1, 2, 3}), Values(set, "gear"));
    EXPECT_EQ((V{1, 2, 3, 4, 5}), Values(set, "acc_x"));      // lateral
    EXPECT_EQ((V{-2, -3, -4, -5, -6}), Values(set, "acc_z")); // longitudinal
    EXPECT_EQ((V{3, 3, 3, 4, 4}), Values(set, "lap"));
    EXPECT_EQ((V{10, 10.5f, 11, 11.5f, 12}), Values(set, "SessionTime"));     // double
    EXPECT_EQ((V{2147483648.0f, 1, 0, 0, 0}), Values(set, "EngineWarnings")); // unsigned
    EXPECT_EQ((V{1, 0, 0, 1, 0}), Values(set, "OnPitRoad"));
    EXPECT_EQ((V{2, 4, 6, 8, 10}), Values(set, "Torque_ST")); // first element of the array
    EXPECT_EQ((V{0, 1, 2, 0, 1}), Values(set, "sector"));     // starts given out of order
    const V steer = Values(set, "steering");
    ASSERT_EQ(5u, steer.size());
    EXPECT_NEAR(28.64789, steer[0], 1e-4);
    EXPECT_NEAR(-57.29578, steer[4], 1e-4);
    EXPECT_TRUE(set.FindSignal("DriverTag") == nullptr); // text
}

TEST_F(IbtTest, IsKnownByItsHead)
{
    const std::string good = Fixture().Build();
    auto Looks = [](const std::string& b) {
        return PLooksLikeIbt(reinterpret_cast<const uint8_t*>(b.data()), b.size());
    };
    EXPECT_TRUE(Looks(good));
    EXPECT_FALSE(Looks(good.substr(0, 143)));
    std::string v1 = good;
    Put32(v1, 0, 1);
    EXPECT_FALSE(Looks(v1));
    EXPECT_FALSE(Looks("Time\tLAP_DI\n" + std::string(200, '1')));
}

struct Damage {
    const char* what;
    std::function<void(std::string&)> edit;
    const char* report;
};

size_t VarAt(int i)
{
    return 144 + 144 * size_t(i);
}

TEST_F(IbtTest, RefusesADamagedFileWithItsReportAndKeepsTheSet)
{
    const std::string good = Fixture().Build();
    const Damage cases[] = {
        {"cut in the header", [](std::string& b) { b.resize(100); },
         "100 bytes are too few for the header (144)"},
        {"cut in the table", [](std::string& b) { b.resize(VarAt(3)); },
         "the table of 16 variables at 144 lies outside the file of 576 bytes"},
        {"cut in the text", [](std::string& b) { b.resize(VarAt(16) + 10); },
         "the session text (479 bytes at 2448) lies outside the file of 2458 bytes"},
        {"cut in the records", [](std::string& b) { b.pop_back(); },
         "5 records announced, the file holds 4 of 89 bytes"},
        {"version", [](std::string& b) { Put32(b, 0, 3); }, "version 3, only 2 is read"},
        {"no tick rate", [](std::string& b) { Put32(b, 8, 0); }, "tick rate 0 outside 1..10000"},
        {"no variables", [](std::string& b) { Put32(b, 24, 0); }, "0 variables, expected 1..4096"},
        {"too many variables", [](std::string& b) { Put32(b, 24, 5000); },
         "5000 variables, expected 1..4096"},
        {"table offset negative", [](std::string& b) { Put32(b, 28, -144); },
         "the table of 16 variables at -144"},
        {"table offset past end", [](std::string& b) { Put32(b, 28, 0x7FFFFFFF); },
         "the table of 16 variables at 2147483647 lies outside"},
        {"text offset huge", [](std::string& b) { Put32(b, 20, 0x7FFFFFFF); },
         "the session text (479 bytes at 2147483647)"},
        {"text length huge", [](std::string& b) { Put32(b, 16, 0x7FFFFFFF); },
         "the session text (2147483647 bytes"},
        {"no buffers", [](std::string& b) { Put32(b, 32, 0); }, "0 buffers, expected 1..4"},
        {"record length zero", [](std::string& b) { Put32(b, 36, 0); }, "record length 0 outside 1..1048576"},
        {"record length huge", [](std::string& b) { Put32(b, 36, 0x7FFFFFFF); },
         "record length 2147483647 outside"},
        {"records past end", [](std::string& b) { Put32(b, 52, 0x7FFFFFFF); },
         "records at 2147483647, outside the file"},
        {"record count zero", [](std::string& b) { Put32(b, 140, 0); },
         "0 records announced, the file holds 5"},
        {"record count huge", [](std::string& b) { Put32(b, 140, 0x7FFFFFFF); },
         "2147483647 records announced, the file holds 5"},
        {"type unknown", [](std::string& b) { Put32(b, VarAt(4), 6); },
         "variable 4 (Speed) has the unknown type 6"},
        {"variable past record", [](std::string& b) { Put32(b, VarAt(4) + 4, 86); },
         "variable 4 (Speed), 1 values at 86, doesn't fit a record of 89 bytes"},
        {"variable offset negative", [](std::string& b) { Put32(b, VarAt(4) + 4, -4); },
         "variable 4 (Speed), 1 values at -4"},
        {"element count zero", [](std::string& b) { Put32(b, VarAt(4) + 8, 0); },
         "variable 4 (Speed), 0 values at"},
        {"element count huge", [](std::string& b) { Put32(b, VarAt(4) + 8, 0x7FFFFFFF); },
         "variable 4 (Speed), 2147483647 values at"},
        {"array past record", [](std::string& b) { Put32(b, VarAt(15) + 8, 7); },
         "variable 15 (Torque_ST), 7 values at 65, doesn't fit a record of 89 bytes"},
    };
    for (const Damage& c : cases) {
        SCOPED_TRACE(c.what);
        std::string bytes = good;
        c.edit(bytes);
        PSignals set;
        AddFilled(set, "kept", {1, 2});
        set.AddProperty("kept", "yes");
        EXPECT_FALSE(Load(set, bytes, "bad.ibt"));
        EXPECT_TRUE(Contains(err, std::string("PImportIbt(bad.ibt): ") + c.report));
        EXPECT_EQ(1, Occurrences(err, "PImportIbt"));
        EXPECT_EQ("kept", Ids(set));
        EXPECT_EQ(1, set.propertyCount);
        EXPECT_EQ(0, set.metaCount);
    }
}

TEST_F(IbtTest, RefusesEveryCutOffCopy)
{
    const std::string good = Fixture().Build();
    for (size_t n = 0; n < good.size(); n++) {
        PSignals set;
        ASSERT_FALSE(Load(set, good.substr(0, n))) << n;
        ASSERT_EQ(0, set.signalCount) << n;
    }
}

TEST_F(IbtTest, RefusesVariablesThatShareTheirBytes)
{
    IbtWriter w;
    w.records = 4;
    for (int i = 0; i < 8; i++)
        w.vars.push_back({"b" + std::to_string(i), "", T_BOOL, 1, {1, 0, 1, 0}});
    std::string b = w.Build();
    Put32(b, 36, 2); // records of 2 bytes: 16 of them lie in the file
    Put32(b, 140, 16);
    for (int i = 0; i < 8; i++)
        Put32(b, VarAt(i) + 4, 0);
    PSignals set;
    EXPECT_FALSE(Load(set, b));
    EXPECT_TRUE(Contains(err, "PImportIbt(rec.ibt): 8 variables share a record of 2 bytes"));
    EXPECT_EQ(0, set.signalCount);
}

TEST_F(IbtTest, KeepsDuplicateNamesOnce)
{
    IbtWriter w = Fixture();
    w.vars.push_back({"Speed", "km/h", T_FLOAT, 1, {9, 9, 9, 9, 9}});   // mapped from the first already
    w.vars.push_back({"distance", "m", T_FLOAT, 1, {8, 8, 8, 8, 8}});   // the name of a mapped signal
    w.vars.push_back({"OnPitRoad", "", T_FLOAT, 1, {7, 7, 7, 7, 7}});   // a second of an extra
    w.vars.push_back({"Odd\tName\n", "", T_FLOAT, 1, {6, 6, 6, 6, 6}}); // controls in a name
    PSignals set;
    ASSERT_TRUE(Load(set, w.Build())) << err;
    EXPECT_EQ(18, set.signalCount);
    EXPECT_EQ((std::vector<float>{20, 21, 22, 23, 24}), Values(set, "velocity"));
    EXPECT_EQ((std::vector<float>{100, 101.5f, 103, 104.5f, 106}), Values(set, "distance"));
    EXPECT_EQ((std::vector<float>{1, 0, 0, 1, 0}), Values(set, "OnPitRoad"));
    EXPECT_EQ("Odd_Name_", std::string(set.signals[17]->GetId()));
}

struct TextCase {
    const char* what;
    std::string yaml;
    const char* track;
    bool sector;
};

TEST_F(IbtTest, ScansAnyTextWithoutTrustingIt)
{
    const std::string huge(200000, 'x');
    const char nulText[] = "WeekendInfo:\n TrackDisplayName: A\0B\nSplitTimeInfo:\n SectorStartPct: 0\n";
    const std::string nul(nulText, sizeof nulText - 1);
    std::string many = "SplitTimeInfo:\n";
    for (int i = 0; i < 500; i++)
        many += " SectorStartPct: 0." + std::to_string(i) + "\n";
    const TextCase cases[] = {
        {"empty", "", "<none>", false},
        {"one endless line", "WeekendInfo:\n TrackDisplayName: " + huge, nullptr, false},
        {"no line end at all", huge, "<none>", false},
        {"ends at a NUL", nul, "A", false},
        {"key at the top level", "TrackDisplayName: Top\nSectorStartPct: 0\n", "<none>", false},
        {"bad sector starts",
         "SplitTimeInfo:\n SectorStartPct: x\n SectorStartPct: -0.5\n SectorStartPct: 2\n", "<none>", false},
        {"more starts than kept", many, "<none>", true},
        {"colons only", std::string(5000, ':') + "\n" + std::string(5000, '\n'), "<none>", false},
        {"controls in a value", "WeekendInfo:\n TrackDisplayName: a\tb\r\n", "a_b", false},
    };
    for (const TextCase& c : cases) {
        SCOPED_TRACE(c.what);
        IbtWriter w = Fixture();
        w.yaml = c.yaml;
        PSignals set;
        ASSERT_TRUE(Load(set, w.Build())) << err;
        if (c.track)
            EXPECT_EQ(c.track, Property(set, "track"));
        else
            EXPECT_EQ(127u, Property(set, "track").size());
        EXPECT_EQ(c.sector, set.FindSignal("sector") != nullptr);
        for (float s : Values(set, "sector"))
            EXPECT_TRUE(s >= 0 && s < 64) << s;
    }
}

TEST_F(IbtTest, LeavesOutVariablesPastTheSignalLimit)
{
    IbtWriter w;
    w.records = 1;
    for (int i = 0; i < 1100; i++)
        w.vars.push_back({"v" + std::to_string(i), "", T_INT, 1, {double(i)}});
    PSignals set;
    ASSERT_TRUE(Load(set, w.Build())) << err;
    EXPECT_EQ(int(PSignals::MAX_SIGNALS), set.signalCount);
    EXPECT_TRUE(Contains(err, "PImportIbt(rec.ibt): 101 variables left out, a set holds 1000 signals"));
    EXPECT_EQ("v998", std::string(set.signals[999]->GetId()));
    EXPECT_EQ(998.0f, set.signals[999]->data[0]);
}

TEST_F(IbtTest, EveryFailedAllocationEndsCleanly)
{
    const std::string good = Fixture().Build();
    for (int nth = 1;; nth++) {
        SCOPED_TRACE(nth);
        const int before = qGetAllocCount();
        bool ok;
        {
            PSignals set;
            AddFilled(set, "kept", {1, 2});
            qSetAllocFailure(nth);
            ok = Load(set, good);
            qSetAllocFailure(0);
            if (!ok) {
                EXPECT_EQ("kept", Ids(set));
                EXPECT_EQ(0, set.metaCount);
            } else {
                EXPECT_EQ(18, set.signalCount); // the one kept and 17
            }
        }
        EXPECT_EQ(before + (ok ? 0 : 1), qGetAllocCount()); // a failed allocation counts too
        if (ok) break;
        ASSERT_LT(nth, 1000);
    }
}

// The recording in the shared data folder, where it exists, against the table made from it by the
// converter there: every column of the table has its channel, with the same values in every row.
TEST_F(IbtTest, ReadsTheRealRecordingLikeTheTableMadeFromIt)
{
    const std::string folder = "/work/shared/data/";
    const std::string bytes = ReadFile(folder + "iracing_amg_spielberg.source.ibt");
    const std::string table = ReadFile(folder + "iracing_amg_spielberg.tsv");
    if (bytes.empty() || table.empty()) GTEST_SKIP() << "no shared data folder";
    PSignals set;
    ASSERT_TRUE(Load(set, bytes, "amg.ibt")) << err;
    EXPECT_EQ(269, set.signalCount); // 267 variables, 12 mapped, time and sector added, no text
    EXPECT_EQ("Red Bull Ring - Grand Prix", Property(set, "track"));
    EXPECT_EQ("10-04-2023", Property(set, "date"));

    // Each table value times the factor is the signal's; the table's rounding sets the tolerance.
    const std::pair<const char*, const char*> columns[] = {
        {"Time", "time"},     {"LAP_DI", "distance"}, {"LAP", "lap"},           {"SECTOR", "sector"},
        {"VVEH", "velocity"}, {"RPM", "rpm"},         {"GEAR", "gear"},         {"THROTTLE", "throttle"},
        {"BRAKE", "brake"},   {"CLUTCH", "clutch"},   {"STEER", "steering"},    {"ACC_X", "acc_z"},
        {"ACC_Y", "acc_x"},   {"ACC_Z", "acc_y"},     {"LAPPCT", "LapDistPct"}, {"OILTEMP", "OilTemp"}};
    const double factors[] = {1,    1,    1,          1,    1 / 3.6, 1,    1,    0.01,
                              0.01, 0.01, 57.2957795, 9.81, 9.81,    9.81, 0.01, 1};
    std::istringstream in(table);
    std::string line, cell;
    std::getline(in, line);
    std::vector<std::string> head;
    for (std::istringstream h(line); std::getline(h, cell, '\t');)
        head.push_back(cell);
    std::vector<int> at;
    for (const auto& c : columns) {
        at.push_back(int(std::find(head.begin(), head.end(), c.first) - head.begin()));
        ASSERT_LT(size_t(at.back()), head.size()) << c.first;
        ASSERT_TRUE(set.FindSignal(c.second)) << c.second;
    }
    int row = 0, misses = 0;
    for (; std::getline(in, line); row++) {
        std::vector<std::string> cells;
        for (std::istringstream l(line); std::getline(l, cell, '\t');)
            cells.push_back(cell);
        for (size_t k = 0; k < at.size(); k++) {
            const PSignal* s = set.FindSignal(columns[k].second);
            const std::string& text = cells[size_t(at[k])];
            const size_t point = text.find('.');
            const int decimals = point == std::string::npos ? 0 : int(text.size() - point - 1);
            const double want = std::atof(text.c_str()) * factors[k];
            const double tolerance = 0.5 * std::pow(10.0, -decimals) * factors[k] + 1e-6 * std::fabs(want);
            if (row < s->count && std::fabs(want - s->data[row]) > tolerance && misses++ < 5)
                ADD_FAILURE() << columns[k].second << " row " << row << ": " << s->data[row] << " against "
                              << want;
        }
    }
    EXPECT_EQ(3371, row);
    for (int i = 0; i < set.signalCount; i++)
        EXPECT_EQ(3371, set.signals[i]->count) << set.signals[i]->GetId();
    EXPECT_EQ(0, misses);
}

} // namespace
