#include "foundation/qhelpers.h"
#include "telemetry/analyse_import_logger.h"
#include "tests/telemetry/telemetry_fixture.h"

#include <cmath>
#include <cstdio>
#include <sstream>

namespace tarvik {
namespace test {

namespace {

using Importer = bool (*)(PSignals&, const char*, const uint8_t*, size_t);

bool ImportText(Importer import, PSignals& set, const std::string& bytes)
{
    return import(set, "fixture.csv", reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

std::vector<float> Samples(const PSignals& set, const char* name)
{
    const PSignal* s = set.FindSignal(name);
    if (!s) return {};
    return std::vector<float>(s->data, s->data + s->count);
}

std::string Property(const PSignals& set, const char* name)
{
    for (int i = 0; i < set.propertyCount; i++)
        if (set.propertyName[i] == name) return set.propertyValue[i].cstr();
    return "<none>";
}

std::string Meta(const PSignals& set, const char* name)
{
    for (int i = 0; i < set.metaCount; i++)
        if (set.metaName[i] == name) return set.metaValue[i].cstr();
    return "<none>";
}

void ExpectNear(const std::vector<float>& got, const std::vector<float>& want, const char* what)
{
    ASSERT_EQ(got.size(), want.size()) << what;
    for (size_t i = 0; i < want.size(); i++) EXPECT_NEAR(got[i], want[i], 1e-3) << what << " [" << i << "]";
}

// Byte order mark, CR LF, a doubled quote, blank lines, an empty cell, a short and a long row, and a
// last line without its line end. The beacons put the rows into laps 0, 0, 0, 1, 1, 2.
const std::string kart = "\xEF\xBB\xBF\"Format\",\"PiBoSo CSV File\"\r\n"
                         "\"Venue\",\"Quote \"\"Q\"\" Ring\"\r\n"
                         "\"Vehicle\",\"Kart\"\r\n"
                         "\"User\",\"Tester\"\r\n"
                         "\"Date\",\"11/19/23\"\r\n"
                         "\"Time\",\"16:57:27\"\r\n"
                         "\"Sample Rate\",\"10\"\r\n"
                         "\"Beacon Markers\",\"0.25, 0.45\"\r\n"
                         "\r\n"
                         "\"Time\",\"Distance\",\"Speed\",\"Throttle\",\"LatAcc\",\"LonAcc\",\"Steer\",\"Note\"\r\n"
                         "\"s\",\"m\",\"km/h\",\"%\",\"G\",\"G\",\"deg\",\"\"\r\n"
                         "\r\n"
                         "\"0.002\",\"10.0\",\"36\",\"50\",\"1\",\"-0.5\",\"-12.5\",\"7\"\r\n"
                         "\"0.101\",\"12.5\",\"72\",\"\",\"0.5\",\"0\",\"0\",\"8\"\r\n"
                         "\"0.199\",\"15.0\",\"108\",\"100\",\"0\",\"0.25\",\"3\"\r\n"
                         "\"0.301\",\"1.0\",\"36\",\"0\",\"0\",\"0\",\"0\",\"9\",\"extra\"\r\n"
                         "\"0.400\",\"3.0\",\"18\",\"0\",\"0\",\"0\",\"0\",\"10\"\r\n"
                         "\"0.500\",\"5.0\",\"18\",\"0\",\"0\",\"0\",\"0\",\"11\"";

// Irregular stamps around a lap crossing at 10.07 s, a speed from two sources, empty cells and a
// short row. Rising 100 m/s, so that the lap distance is easy to follow.
const std::string lapTimer = "This file is created using a lap timer\r\n"
                             "Format,3\r\n"
                             "Session title,\"Test day\"\r\n"
                             "Track name,\"Ring, North\"\r\n"
                             "Driver name,\r\n"
                             "\r\n"
                             "timestamp,lap_number,elapsed_time,distance_traveled,speed,lateral_acc,speed,"
                             "accelerator_pos,rpm\r\n"
                             "unix time,,s,m,m/s,G,km/h,%,rpm\r\n"
                             ",,,,100: gps,calc,200: obd,200: obd,200: obd\r\n"
                             "1700000000.00,1,10.00,100,10,0.5,36,50,1000\r\n"
                             "1700000000.03,1,10.03,103,,0.5,36,50,1000\r\n"
                             "1700000000.07,2,10.07,107,20,0.5,36,50,1000\r\n"
                             "1700000000.10,2,10.10,110\r\n"
                             "1700000000.12,2,10.12,112,,0.5,36,50,1000\r\n"
                             "1700000000.20,2,10.20,120,30,0.5,36,50,1000\r\n";

class ImportCsvTest : public TelemetryTest {};

} // namespace

TEST_F(ImportCsvTest, KartChannelsMapOntoSystemNamesAndUnits)
{
    PSignals set;
    ASSERT_TRUE(ImportText(PImportPibosoCsv, set, kart)) << Log();
    const char* order[] = {"time", "distance", "velocity", "throttle", "steering", "acc_x", "acc_z", "lap", "laptime", "Note"};
    ASSERT_EQ(set.signalCount, 10);
    for (int i = 0; i < 10; i++) {
        EXPECT_STREQ(set.signals[i]->GetId(), order[i]);
        EXPECT_EQ(set.signals[i]->count, 6);
        EXPECT_FLOAT_EQ(set.signals[i]->timestep, 0.1f);
    }
    ExpectNear(Samples(set, "time"), {0, 0.1f, 0.2f, 0.3f, 0.4f, 0.5f}, "time");
    ExpectNear(Samples(set, "distance"), {10, 12.5f, 15, 1, 3, 5}, "distance");
    ExpectNear(Samples(set, "velocity"), {10, 20, 30, 10, 5, 5}, "velocity");
    ExpectNear(Samples(set, "throttle"), {0.5f, 0.5f, 1, 0, 0, 0}, "throttle");
    ExpectNear(Samples(set, "acc_x"), {9.81f, 4.905f, 0, 0, 0, 0}, "acc_x");
    ExpectNear(Samples(set, "acc_z"), {-4.905f, 0, 2.4525f, 0, 0, 0}, "acc_z");
    ExpectNear(Samples(set, "steering"), {-12.5f, 0, 3, 0, 0, 0}, "steering");
    ExpectNear(Samples(set, "lap"), {0, 0, 0, 1, 1, 2}, "lap");
    ExpectNear(Samples(set, "laptime"), {0.002f, 0.101f, 0.199f, 0.051f, 0.15f, 0.05f}, "laptime");
    ExpectNear(Samples(set, "Note"), {7, 8, 8, 9, 10, 11}, "Note");
    EXPECT_EQ(Property(set, "track"), "Quote \"Q\" Ring");
    EXPECT_EQ(Property(set, "car"), "Kart");
    EXPECT_EQ(Property(set, "driver"), "Tester");
    EXPECT_EQ(Property(set, "date"), "19-11-2023");
    EXPECT_EQ(Meta(set, "unit.velocity"), "m/s");
    EXPECT_EQ(Meta(set, "unit.Note"), "-");
    EXPECT_EQ(Meta(set, "source.format"), "PiBoSo CSV File");
    EXPECT_TRUE(Contains(Log(), "2 rows with another number of cells than the 8 channel names")) << Log();
}

TEST_F(ImportCsvTest, KartSemicolonsTakeCommaDecimalsAndLapsComeFromDistanceResets)
{
    const std::string text = "\"Format\";\"PiBoSo CSV File\"\n\"Sample Rate\";\"20\"\n"
                             "\"Time\";\"Distance\";\"Speed\"\n\"s\";\"m\";\"km/h\"\n"
                             "\"0,00\";\"100,5\";\"3,6\"\n\"0,05\";\"200,5\";\"7,2\"\n\"0,10\";\"3,0\";\"7,2\"\n";
    PSignals set;
    ASSERT_TRUE(ImportText(PImportPibosoCsv, set, text)) << Log();
    EXPECT_FLOAT_EQ(set.signals[0]->timestep, 0.05f);
    ExpectNear(Samples(set, "distance"), {100.5f, 200.5f, 3}, "distance");
    ExpectNear(Samples(set, "velocity"), {1, 2, 2}, "velocity");
    ExpectNear(Samples(set, "lap"), {0, 0, 1}, "lap");
    ExpectNear(Samples(set, "laptime"), {0, 0.05f, 0}, "laptime");
}

TEST_F(ImportCsvTest, LapTimerResamplesOntoABaseThroughTheLapCrossing)
{
    PSignals set;
    ASSERT_TRUE(ImportText(PImportLapTimerCsv, set, lapTimer)) << Log();
    // Samples at 10.02, 10.07 (the crossing), 10.12 and 10.17 s.
    for (int i = 0; i < set.signalCount; i++) {
        EXPECT_EQ(set.signals[i]->count, 4) << set.signals[i]->GetId();
        EXPECT_FLOAT_EQ(set.signals[i]->timestep, 0.05f);
    }
    ExpectNear(Samples(set, "time"), {0, 0.05f, 0.1f, 0.15f}, "time");
    ExpectNear(Samples(set, "distance"), {0, 0, 5, 10}, "distance");
    ExpectNear(Samples(set, "lap"), {1, 2, 2, 2}, "lap");
    ExpectNear(Samples(set, "laptime"), {0, 0, 0.05f, 0.1f}, "laptime");
    // The empty cells of the satellite speed are bridged by its own neighbours.
    ExpectNear(Samples(set, "velocity"), {10 + 10 * 2 / 7.0f, 20, 20 + 10 * 5 / 13.0f, 20 + 10 * 10 / 13.0f}, "velocity");
    ExpectNear(Samples(set, "speed"), {36, 36, 36, 36}, "speed");
    ExpectNear(Samples(set, "acc_x"), {4.905f, 4.905f, 4.905f, 4.905f}, "acc_x");
    ExpectNear(Samples(set, "throttle"), {0.5f, 0.5f, 0.5f, 0.5f}, "throttle");
    EXPECT_EQ(set.FindSignal("timestamp"), nullptr);
    EXPECT_EQ(Property(set, "track"), "Ring, North");
    EXPECT_EQ(Property(set, "driver"), "<none>");
    EXPECT_EQ(Property(set, "date"), "14-11-2023");
    EXPECT_EQ(Property(set, "time"), "22:13:20");
    EXPECT_EQ(Meta(set, "unit.speed"), "km/h");
    EXPECT_TRUE(Contains(Log(), "1 rows with another number of cells")) << Log();
}

TEST_F(ImportCsvTest, EachFormatIsKnownByItsHead)
{
    auto bytes = [](const std::string& s) { return reinterpret_cast<const uint8_t*>(s.data()); };
    EXPECT_TRUE(PLooksLikePibosoCsv(bytes(kart), kart.size()));
    EXPECT_FALSE(PLooksLikeLapTimerCsv(bytes(kart), kart.size()));
    EXPECT_TRUE(PLooksLikeLapTimerCsv(bytes(lapTimer), lapTimer.size()));
    EXPECT_FALSE(PLooksLikePibosoCsv(bytes(lapTimer), lapTimer.size()));
    EXPECT_FALSE(PLooksLikePibosoCsv(bytes(kart), 10)); // the mark cut off
    EXPECT_FALSE(PLooksLikeLapTimerCsv(bytes(lapTimer), 60)); // no names yet
}

TEST_F(ImportCsvTest, DamagedInputsAreRefusedWithTheirReportOrReadSanely)
{
    const std::string kartHead = "\"Format\",\"PiBoSo CSV File\"\n\"Sample Rate\",\"10\"\n";
    const std::string kartNames = kartHead + "\"Time\",\"Distance\",\"Speed\"\n\"s\",\"m\",\"km/h\"\n";
    const std::string lapHead = "Format,3\ntimestamp,elapsed_time,speed\nunix time,s,m/s\n";
    std::string wide = "Time,Distance";
    for (int c = 2; c < 10000; c++) wide += ",c" + std::to_string(c);
    std::string wideLap = "timestamp,elapsed_time";
    for (int c = 2; c < 10000; c++) wideLap += ",c" + std::to_string(c);
    std::string sparse = "Time";
    for (int c = 1; c < 3000; c++) sparse += ",c" + std::to_string(c);
    sparse += "\n";
    for (int r = 0; r < 6000; r++) sparse += "1\n";

    struct Case {
        const char* what;
        Importer import;
        std::string text;
        bool ok;
        const char* report;
    } cases[] = {
        {"empty", PImportPibosoCsv, "", false, "no line of channel names"},
        {"garbage", PImportPibosoCsv, std::string("\0\xff\"\"\"\r\r,;\t", 10), false, "no line of channel names"},
        {"no data rows", PImportPibosoCsv, kartNames + "\n\n", false, "no rows of data"},
        {"no distance", PImportPibosoCsv, kartHead + "Time,Speed,Gear\n0,1,2\n", false, "no Time or Distance"},
        {"no rate, one row", PImportPibosoCsv, "Time,Distance,Speed\n0,1,2\n", false, "no sample rate"},
        {"cut in a quote", PImportPibosoCsv, kartNames + "\"0.0\",\"1", true, ""},
        {"huge number", PImportPibosoCsv, kartNames + "0,1,2\n0.1,1e999,3\n", true, "1 cells that aren't numbers"},
        {"10000 columns", PImportPibosoCsv, kartHead + wide + "\n0,1\n", true, "9002 channels dropped"},
        {"few bytes, many cells", PImportPibosoCsv, sparse, false, "can't be in a file of"},
        {"lap timer garbage", PImportLapTimerCsv, "\"\n\"\"\n,,,", false, "no line of channel names"},
        {"lap timer no time", PImportLapTimerCsv, lapHead + ",,1\n,,2\n", false, "no row has a time"},
        {"lap timer time runs back", PImportLapTimerCsv, lapHead + "0,1,1\n0,0.5,2\n0,2,3\n", true,
         "1 rows with a time before the row above"},
        {"lap timer hours apart", PImportLapTimerCsv, lapHead + "0,0,1\n0,0.01,2\n0,0.02,3\n0,1e6,4\n", false, "too many samples"},
        {"lap timer 10000 columns", PImportLapTimerCsv, "Format,3\n" + wideLap + "\n0,1\n0,2\n", true, "channels dropped"},
        {"lap timer one row", PImportLapTimerCsv, lapHead + "0,5,7\n", true, ""},
    };
    for (const Case& c : cases) {
        qmsgReset();
        std::remove(dir.File("QLOG.txt").c_str());
        PSignals set;
        EXPECT_EQ(ImportText(c.import, set, c.text), c.ok) << c.what << "\n" << Log();
        EXPECT_TRUE(Contains(Log(), c.report)) << c.what;
        if (!c.ok) { EXPECT_EQ(set.signalCount, 0) << c.what; }
        for (int i = 0; i < set.signalCount; i++) EXPECT_EQ(set.signals[i]->count, set.signals[0]->count) << c.what;
        if (c.ok) { EXPECT_LE(set.signalCount, int(PSignals::MAX_SIGNALS)) << c.what; }
    }
}

TEST_F(ImportCsvTest, EveryTruncationLoadsWholeSignalsOrNothing)
{
    for (Importer import : {PImportPibosoCsv, PImportLapTimerCsv}) {
        const std::string& text = import == PImportPibosoCsv ? kart : lapTimer;
        for (size_t n = 0; n <= text.size(); n++) {
            PSignals set;
            bool ok = ImportText(import, set, text.substr(0, n));
            if (!ok) { EXPECT_EQ(set.signalCount, 0) << n; }
            for (int i = 0; i < set.signalCount; i++) {
                EXPECT_EQ(set.signals[i]->count, set.signals[0]->count) << n;
                EXPECT_GT(set.signals[i]->count, 0) << n;
            }
        }
    }
}

TEST_F(ImportCsvTest, EachFailedAllocationIsAReportedFailureThatLeaksNothing)
{
    for (Importer import : {PImportPibosoCsv, PImportLapTimerCsv}) {
        const std::string& text = import == PImportPibosoCsv ? kart : lapTimer;
        for (int nth = 1;; nth++) {
            ASSERT_LT(nth, 1000);
            PSignals* set = new PSignals;
            const int before = qGetAllocCount();
            qSetAllocFailure(nth);
            const bool ok = ImportText(import, *set, text);
            qSetAllocFailure(0);
            if (!ok) { EXPECT_EQ(set->signalCount, 0); }
            delete set;
            // A failed allocation counts without being freed; one that no failure reached counts nothing.
            EXPECT_EQ(qGetAllocCount() - before, ok ? 0 : 1) << nth;
            if (ok) break;
            EXPECT_TRUE(Contains(Log(), "out of memory")) << nth;
        }
    }
}

// The files that the converter of the shared test data made from the two real exports: channel
// names and the first rows must agree within the rounding of the table.
TEST_F(ImportCsvTest, RealExportsMatchTheConvertedTables)
{
    struct Column {
        const char* column;
        const char* signal;
        double factor;
    };
    const Column columns[] = {
        {"LAP_DI", "distance", 1},   {"LAP", "lap", 1},          {"VVEH", "velocity", 3.6},  {"RPM", "rpm", 1},
        {"GEAR", "gear", 1},         {"THROTTLE", "throttle", 100}, {"BRAKE", "brake", 100}, {"STEER", "steering", 1 / 57.29578},
        {"ACC_X", "acc_z", 1 / 9.81}, {"ACC_Y", "acc_x", 1 / 9.81}, {"YAWRATE", "YawVel", 1}, {"CHT", "CylHeadTemp", 1},
        {"POSX", "PosX", 1},         {"POSY", "PosY", 1},        {"TPS", "throttle_pos", 1}, {"LOAD", "engine_load", 1},
        {"VOBD", "speed_obd", 3.6},  {"BEARING", "bearing", 1},  {"ALT", "altitude", 1},     {"LAPTIM", "laptime", 1},
        {"Time", "time", 1},
    };
    struct Dataset {
        const char* stem;
        Importer import;
        int firstSample; // the sample of the import at the table's first row
    } datasets[] = {{"krp_essay_short", PImportPibosoCsv, 0}, {"racechrono_tianma_lap13", PImportLapTimerCsv, 79}};
    const std::string folder = "/work/shared/data/";
    for (const Dataset& d : datasets) {
        const std::string source = ReadFile(folder + d.stem + ".source.csv");
        const std::string table = ReadFile(folder + d.stem + ".tsv");
        if (source.empty() || table.empty()) continue; // the shared data is not on every machine
        PSignals set;
        ASSERT_TRUE(ImportText(d.import, set, source)) << d.stem << Log();
        std::istringstream lines(table);
        std::string line, cell;
        std::getline(lines, line);
        std::vector<std::string> names;
        for (std::istringstream head(line); std::getline(head, cell, '\t');) names.push_back(cell);
        for (int row = 0; row < 40 && std::getline(lines, line); row++) {
            std::istringstream cells(line);
            for (const std::string& columnName : names) {
                std::getline(cells, cell, '\t');
                const Column* col = nullptr;
                for (const Column& c : columns)
                    if (columnName == c.column) col = &c;
                ASSERT_NE(col, nullptr) << d.stem << " has no mapping for " << columnName;
                const PSignal* s = set.FindSignal(col->signal);
                ASSERT_NE(s, nullptr) << d.stem << " " << col->signal;
                double want = std::atof(cell.c_str());
                size_t colon = cell.find(':');
                if (colon != std::string::npos) want += 0.001 * std::atof(cell.c_str() + colon + 1);
                double got = s->data[d.firstSample + row] * col->factor;
                if (columnName == "Time") got -= s->data[d.firstSample];
                const size_t point = cell.find_first_of(".:");
                const int decimals = point == std::string::npos ? 0 : int(cell.size() - point - 1);
                EXPECT_NEAR(got, want, 0.51 * std::pow(10.0, -decimals) + 1e-5 * std::fabs(want))
                    << d.stem << " row " << row << " " << columnName;
            }
        }
    }
}

} // namespace test
} // namespace tarvik
