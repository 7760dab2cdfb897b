// Reading the CSV export of a kart simulator's logger into a PSignals.
//
// The file: key/value lines of a head ("Venue", "Vehicle", "Sample Rate", "Beacon Markers" ...),
// a line of channel names that begins with "Time", a line of units, and one row per sample at the
// head's rate. The logger's stamps jitter by a few milliseconds around the nominal rate, so each
// row is one sample and the time is its index over the rate. "Distance" is the distance into the
// lap, restarting at every beacon: it stays so as the recording's distance (the export makes it
// rise), and "lap" counts the beacons passed (0 is the out-lap), "laptime" the time since the last.
// A file without beacons counts a lap where the distance falls back.
//
// An empty, missing or non-numeric cell carries the value before it in its channel (rows before
// the first value take that first value; a channel without any reads 0); cells beyond the names
// are ignored. A file whose separator is ';' or a tab may write its decimals with a comma.
#include "telemetry/analyse_import_csv.h"
#include "telemetry/analyse_import_logger.h"
#include "telemetry/analyse_signals.h"

#include "foundation/qmessage.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>

namespace tarvik {

namespace {

const char* const reader = "PImportPibosoCsv";

enum Role { ROLE_COLUMN, ROLE_TIME, ROLE_LAP, ROLE_LAPTIME };

struct Mapping {
    const char* column;
    const char* signal;
    const char* unit;
    CsvKind kind;
    double usual; // the factor for a column without a unit
};

const Mapping mappings[] = {
    {"Distance", "distance", "m", CSV_LENGTH, 1.0},
    {"Speed", "velocity", "m/s", CSV_SPEED, 1.0 / 3.6},
    {"Engine", "rpm", "1/min", CSV_PLAIN, 1.0},
    {"Gear", "gear", "-", CSV_PLAIN, 1.0},
    {"Throttle", "throttle", "0..1", CSV_PERCENT, 0.01},
    {"Brake", "brake", "0..1", CSV_PERCENT, 0.01},
    {"Clutch", "clutch", "0..1", CSV_PERCENT, 0.01},
    {"Steer", "steering", "deg", CSV_ANGLE, 1.0},
    {"LatAcc", "acc_x", "m/s^2", CSV_ACCEL, 9.81}, // lateral
    {"LonAcc", "acc_z", "m/s^2", CSV_ACCEL, 9.81}, // longitudinal
};

// The head has a line "Time" too, the time of day: the names are more than two, or "Time", "Distance".
bool IsNames(const CsvRow& row)
{
    const char* first = row.Cell(0);
    if (std::strcmp(first, "Time") != 0 && std::strcmp(first, "time") != 0) return false;
    return row.cells >= 3 || (row.cells == 2 && std::strcmp(row.Cell(1), "Distance") == 0);
}

// The first separator outside quotes on the first line.
char FindSeparator(const uint8_t* data, size_t size)
{
    bool quoted = false;
    for (size_t i = 0; i < size && data[i] != '\n' && data[i] != '\r'; i++) {
        if (data[i] == '"') quoted = !quoted;
        else if (!quoted && (data[i] == ',' || data[i] == ';' || data[i] == '\t')) return char(data[i]);
    }
    return ',';
}

// Empty cells take the value before them; leading ones the first value of the channel.
void CarryValues(CsvTable& table, int column)
{
    double* v = table.values.items + size_t(column) * size_t(table.rows);
    int first = 0;
    while (first < table.rows && std::isnan(v[first])) first++;
    double last = first < table.rows ? v[first] : 0.0;
    for (int r = 0; r < table.rows; r++) {
        if (std::isnan(v[r])) v[r] = last;
        else last = v[r];
    }
}

// The median of the positive steps between stamps, 0 if there is none, -1 out of memory.
double MedianStep(const double* t, int rows)
{
    CsvArray<double> steps;
    if (rows < 2) return 0.0;
    if (!steps.Reserve(size_t(rows))) return -1.0;
    int n = 0;
    for (int r = 1; r < rows; r++)
        if (t[r] > t[r - 1]) steps.items[n++] = t[r] - t[r - 1];
    if (n == 0) return 0.0;
    std::nth_element(steps.items, steps.items + n / 2, steps.items + n);
    return steps.items[n / 2];
}

// The beacon times of the head, sorted. The list is one cell; with comma decimals its numbers
// are parted by ';' or spaces only. -1 out of memory.
int ReadBeacons(const char* text, bool commaDecimal, CsvArray<double>& beacons)
{
    size_t length = std::strlen(text);
    if (!beacons.Reserve(length / 2 + 1)) return -1;
    int n = 0;
    char number[64];
    for (const char* p = text; *p;) {
        size_t k = 0;
        while (*p && (*p == ';' || *p == ' ' || *p == '\t' || (!commaDecimal && *p == ','))) p++;
        while (*p && !(*p == ';' || *p == ' ' || *p == '\t' || (!commaDecimal && *p == ','))) {
            if (k + 1 < sizeof number) number[k++] = *p;
            p++;
        }
        number[k] = 0;
        double v;
        if (k && CsvNumber(number, commaDecimal, &v)) beacons.items[n++] = v;
    }
    std::sort(beacons.items, beacons.items + n);
    return n;
}

// "mm/dd/yy" as the system writes dates, "dd-mm-yyyy"; anything else as it stands.
void AddDate(PSignals& set, const char* text)
{
    int month, day, year;
    char tail;
    if (std::sscanf(text, "%d/%d/%d%c", &month, &day, &year, &tail) == 3 && month >= 1 && month <= 12 && day >= 1 &&
        day <= 31 && year >= 0 && year <= 9999) {
        char date[32];
        std::snprintf(date, sizeof date, "%02d-%02d-%04d", day, month, year < 100 ? 2000 + year : year);
        CsvAddProperty(set, "date", date);
    } else {
        CsvAddProperty(set, "date", text);
    }
}

} // namespace

bool PLooksLikePibosoCsv(const uint8_t* data, size_t size)
{
    static const char mark[] = "piboso csv";
    const size_t markLength = sizeof mark - 1;
    size_t line = 0;
    while (line < size && line < 512 && data[line] != '\n' && data[line] != '\r') line++;
    for (size_t i = 0; i + markLength <= line; i++) {
        size_t k = 0;
        while (k < markLength && char(data[i + k] | 0x20) == mark[k]) k++;
        if (k == markLength) return true;
    }
    return false;
}

bool PImportPibosoCsv(PSignals& set, const char* name, const uint8_t* data, size_t size)
{
    const int room = CsvRoom(set) - 2; // lap and laptime
    if (room < 2) {
        QERROR("%s: the recording has no room for more signals (%s)", reader, name);
        return false;
    }
    CsvLayout layout;
    layout.separator = FindSeparator(data, size);
    layout.commaDecimal = layout.separator != ',';
    layout.isNames = IsNames;
    layout.maxColumns = room;
    CsvTable* table = new (std::nothrow) CsvTable;
    if (!table) {
        QERROR("%s: out of memory (%s)", reader, name);
        return false;
    }
    bool ok = CsvReadTable(*table, layout, reader, name, data, size);
    const int timeColumn = ok ? table->FindColumn("Time") : -1;
    const int distanceColumn = ok ? table->FindColumn("Distance") : -1;
    if (ok && (timeColumn < 0 || distanceColumn < 0)) {
        QERROR("%s: no Time or Distance channel - refusing to load (%s)", reader, name);
        ok = false;
    }
    double step = 0.0;
    if (ok) {
        for (int c = 0; c < table->columns; c++) CarryValues(*table, c);
        const char* rateText = table->Head("Sample Rate");
        double rate;
        if (rateText && CsvNumber(rateText, layout.commaDecimal, &rate) && rate > 0.001 && rate <= 100000.0)
            step = 1.0 / rate;
        else
            step = MedianStep(table->values.items + size_t(timeColumn) * size_t(table->rows), table->rows);
        if (step < 0.0) {
            QERROR("%s: out of memory for %d rows (%s)", reader, table->rows, name);
            ok = false;
        } else if (!(step > 0.0)) {
            QERROR("%s: no sample rate in the head and no time step in the rows (%s)", reader, name);
            ok = false;
        }
    }
    CsvArray<double> beacons;
    int beaconCount = 0;
    if (ok) {
        const char* beaconText = table->Head("Beacon Markers");
        beaconCount = beaconText ? ReadBeacons(beaconText, layout.commaDecimal, beacons) : 0;
        if (beaconCount < 0) {
            QERROR("%s: out of memory for the beacons (%s)", reader, name);
            ok = false;
        }
    }
    CsvChannel* channels = ok ? new (std::nothrow) CsvChannel[table->columns + 2] : nullptr;
    if (ok && !channels) {
        QERROR("%s: out of memory for %d channels (%s)", reader, table->columns, name);
        ok = false;
    }
    int count = 0;
    if (ok) {
        // Channels of this system's names first, so that a column of the same name yields to them.
        channels[count].name = "time";
        channels[count].unit = "s";
        channels[count].role = ROLE_TIME;
        count++;
        for (const Mapping& m : mappings) {
            int c = table->FindColumn(m.column);
            double factor;
            if (c < 0 || !CsvUnitFactor(m.kind, table->units.Cell(c), m.usual, &factor)) continue;
            CsvChannel& ch = channels[count++];
            ch.name = m.signal;
            ch.unit = m.unit;
            ch.column = c;
            ch.factor = factor;
        }
        channels[count].name = "lap";
        channels[count].unit = "-";
        channels[count].role = ROLE_LAP;
        count++;
        channels[count].name = "laptime";
        channels[count].unit = "s";
        channels[count].role = ROLE_LAPTIME;
        count++;
        for (int c = 0; c < table->columns; c++) {
            bool taken = c == timeColumn;
            for (int i = 0; i < count && !taken; i++) taken = channels[i].column == c;
            if (taken) continue;
            CsvChannel& ch = channels[count];
            ch.name = table->names.Cell(c);
            ch.unit = *table->units.Cell(c) ? table->units.Cell(c) : "-";
            ch.column = c;
            CsvUniqueName(channels, count + 1, count, nullptr);
            count++;
        }
        ok = CsvAddSignals(set, channels, count, table->rows, CsvFloat(step), reader, name);
    }
    if (ok) {
        CsvReportDropped(table->dropped, reader, name);
        if (table->raggedRows)
            QWARNING("%s: %d rows with another number of cells than the %d channel names: missing cells carry the "
                     "value before them, extra ones are ignored (%s)",
                     reader, table->raggedRows, table->names.total, name);
        if (table->badCells)
            QWARNING("%s: %d cells that aren't numbers carry the value before them (%s)", reader, table->badCells, name);

        const double* raw = table->values.items + size_t(timeColumn) * size_t(table->rows);
        const double* dist = table->values.items + size_t(distanceColumn) * size_t(table->rows);
        for (int i = 0; i < count; i++) {
            CsvChannel& ch = channels[i];
            float* out = ch.signal->data;
            if (ch.role == ROLE_TIME) {
                for (int r = 0; r < table->rows; r++) out[r] = CsvFloat(r * step);
            } else if (ch.role == ROLE_COLUMN) {
                const double* v = table->values.items + size_t(ch.column) * size_t(table->rows);
                for (int r = 0; r < table->rows; r++) out[r] = CsvFloat(v[r] * ch.factor);
            } else {
                int lap = 0;
                double lapStart = 0.0;
                for (int r = 0; r < table->rows; r++) {
                    if (beaconCount > 0) {
                        lap = int(std::upper_bound(beacons.items, beacons.items + beaconCount, raw[r]) - beacons.items);
                        lapStart = lap > 0 ? beacons.items[lap - 1] : 0.0;
                    } else if (r > 0 && dist[r] < dist[r - 1] * 0.5 && dist[r - 1] - dist[r] > 10.0) {
                        lap++;
                        lapStart = raw[r];
                    }
                    out[r] = ch.role == ROLE_LAP ? float(lap) : CsvFloat(raw[r] - lapStart);
                }
            }
        }

        qstring shortName(name);
        shortName.CutPath();
        CsvAddProperty(set, "filename", shortName.cstr());
        CsvAddProperty(set, "track", table->Head("Venue"));
        CsvAddProperty(set, "car", table->Head("Vehicle"));
        CsvAddProperty(set, "driver", table->Head("User"));
        if (const char* date = table->Head("Date")) AddDate(set, date);
        CsvAddProperty(set, "time", table->Head("Time"));
        CsvAddProperty(set, "session", table->Head("Segment"));
        CsvAddProperty(set, "comment", table->Head("Comment"));
        CsvAddMeta(set, "source.format", table->Head("Format"));
        for (int i = 0; i < count; i++) CsvAddMeta(set, (qstring("unit.") + channels[i].name).cstr(), channels[i].unit.cstr());
        set.fileName = name;
    }
    delete[] channels;
    delete table;
    return ok;
}

} // namespace tarvik
