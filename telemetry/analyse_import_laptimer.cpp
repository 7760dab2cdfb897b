// Reading the "CSV v3" export of a lap timing app into a PSignals.
//
// The file: key/value lines of a head ("Format,3", "Track name", "Driver name" ...), a line of
// channel names beginning with "timestamp", a line of units and a line naming each channel's
// source ("100: gps", "calc", "200: obd"). The app merges its sources into one table, so rows
// come at irregular times and a channel may leave cells empty where its source had nothing.
//
// Every channel is resampled onto one regular base: 20 samples a second, or the median step of
// the stamps where the file is sparser than that. The base is laid so that the first lap crossing
// falls on a sample, and a lap starts at distance 0 there. Values between two rows of a channel
// are interpolated linearly from that channel's own cells, so an empty cell is bridged by its
// neighbours; before the first cell and after the last the value holds. Counters and headings
// (lap, sector, fix, satellites, bearing) hold the last value instead of blending two. Rows without a time
// or with a time before the row above are left out. A short row reads its missing cells as empty;
// cells beyond the names are ignored.
//
// "distance" is the distance into the lap: the distance travelled less its value at the lap's
// crossing (before the first crossing, at the start of the recording); "laptime" likewise.
#include "telemetry/analyse_import_csv.h"
#include "telemetry/analyse_import_logger.h"
#include "telemetry/analyse_signals.h"

#include "foundation/qmessage.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>

namespace tarvik {

namespace {

const char* const reader = "PImportLapTimerCsv";
const double baseStep = 0.05; // seconds: the rate of the app's computed channels

enum Role { ROLE_LINEAR, ROLE_HOLD, ROLE_TIME, ROLE_DISTANCE, ROLE_LAPTIME };

struct Mapping {
    const char* column;
    const char* signal;
    const char* unit;
    CsvKind kind;
    double usual;
    Role role;
};

const Mapping mappings[] = {
    {"distance_traveled", "distance", "m", CSV_LENGTH, 1.0, ROLE_DISTANCE},
    {"speed", "velocity", "m/s", CSV_SPEED, 1.0, ROLE_LINEAR},
    {"rpm", "rpm", "1/min", CSV_PLAIN, 1.0, ROLE_LINEAR},
    {"accelerator_pos", "throttle", "0..1", CSV_PERCENT, 0.01, ROLE_LINEAR},
    {"lateral_acc", "acc_x", "m/s^2", CSV_ACCEL, 9.81, ROLE_LINEAR},
    {"longitudinal_acc", "acc_z", "m/s^2", CSV_ACCEL, 9.81, ROLE_LINEAR},
    {"lap_number", "lap", "-", CSV_PLAIN, 1.0, ROLE_HOLD},
};

const char* const heldColumns[] = {"fragment_id", "fix_type", "satellites", "bearing", "sector"};

bool IsNames(const CsvRow& row)
{
    if (row.cells < 2) return false;
    if (std::strcmp(row.Cell(0), "timestamp") == 0) return true;
    for (int c = 0; c < row.cells; c++)
        if (std::strcmp(row.Cell(c), "elapsed_time") == 0) return true;
    return false;
}

// The part of a source after "<number>: ", which tells apart channels of one name.
const char* SourceTag(const char* source)
{
    const char* colon = std::strchr(source, ':');
    if (!colon) return source;
    colon++;
    while (*colon == ' ') colon++;
    return colon;
}

// Samples of one channel with a value, in time order.
struct Series {
    const double* t;
    const double* v;
    int count;

    // The value at 't' after the rules above; 'j' is the first sample after 't', kept between calls.
    double At(double time, bool hold, int& j) const
    {
        while (j < count && t[j] <= time) j++;
        if (j == 0) return v[0];
        if (j == count || hold) return v[j - 1];
        const double a = (time - t[j - 1]) / (t[j] - t[j - 1]);
        return v[j - 1] + a * (v[j] - v[j - 1]);
    }
    double AtAny(double time) const
    {
        int j = int(std::upper_bound(t, t + count, time) - t);
        return At(time, false, j);
    }
};

// Collects the rows of a column that hold a value, at the kept rows' times.
int Collect(const CsvTable& table, int column, const int* rowOf, const double* times, int kept, double* t, double* v)
{
    int m = 0;
    for (int k = 0; k < kept; k++) {
        double x = table.Value(column, rowOf[k]);
        if (std::isnan(x)) continue;
        t[m] = times[k];
        v[m] = x;
        m++;
    }
    return m;
}

// Unix seconds as "dd-mm-yyyy" and "hh:mm:ss", UTC.
void AddUnixTime(PSignals& set, double seconds)
{
    if (!(seconds > 0.0 && seconds < 253402300800.0)) return; // up to the year 9999
    long long s = (long long)seconds;
    long long days = s / 86400, rest = s % 86400;
    // Civil date from days since 1970-01-01, counting in eras of 400 years from March 2000.
    long long z = days + 719468, era = z / 146097;
    long long doe = z - era * 146097;
    long long yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    long long doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    long long mp = (5 * doy + 2) / 153;
    int day = int(doy - (153 * mp + 2) / 5 + 1);
    int month = int(mp < 10 ? mp + 3 : mp - 9);
    int year = int(yoe + era * 400 + (month <= 2));
    char text[32];
    std::snprintf(text, sizeof text, "%02d-%02d-%04d", day, month, year);
    CsvAddProperty(set, "date", text);
    std::snprintf(text, sizeof text, "%02d:%02d:%02d", int(rest / 3600), int(rest / 60 % 60), int(rest % 60));
    CsvAddProperty(set, "time", text);
}

struct Work {
    CsvTable table;
    CsvArray<int> rowOf;     // kept row k is table row rowOf[k]
    CsvArray<double> times;  // and stands at times[k]
    CsvArray<double> crossT; // lap crossings: time and distance there
    CsvArray<double> crossD;
    CsvArray<double> t, v; // one channel's samples with a value
    CsvArray<double> steps;
};

} // namespace

bool PLooksLikeLapTimerCsv(const uint8_t* data, size_t size)
{
    CsvCursor cursor(data, size < 65536 ? size : 65536, ',');
    CsvRow row;
    bool format = false;
    for (int l = 0; l < 20 && cursor.ReadRow(row); l++) {
        if (std::strcmp(row.Cell(0), "Format") == 0 && std::strcmp(row.Cell(1), "3") == 0) format = true;
        if (IsNames(row)) return format;
    }
    return false;
}

bool PImportLapTimerCsv(PSignals& set, const char* name, const uint8_t* data, size_t size)
{
    const int room = CsvRoom(set) - 1; // laptime
    if (room < 2) {
        QERROR("%s: the recording has no room for more signals (%s)", reader, name);
        return false;
    }
    Work* w = new (std::nothrow) Work;
    if (!w) {
        QERROR("%s: out of memory (%s)", reader, name);
        return false;
    }
    CsvTable& table = w->table;
    CsvLayout layout;
    layout.separator = ',';
    layout.commaDecimal = false;
    layout.isNames = IsNames;
    layout.maxColumns = room;
    bool ok = CsvReadTable(table, layout, reader, name, data, size);

    int timeColumn = ok ? table.FindColumn("elapsed_time") : -1;
    const int unixColumn = ok ? table.FindColumn("timestamp") : -1;
    if (timeColumn < 0) timeColumn = unixColumn;
    const int lapColumn = ok ? table.FindColumn("lap_number") : -1;
    const int distanceColumn = ok ? table.FindColumn("distance_traveled") : -1;
    if (ok && timeColumn < 0) {
        QERROR("%s: no elapsed_time or timestamp channel - refusing to load (%s)", reader, name);
        ok = false;
    }
    const int rows = ok ? table.rows : 0;
    if (ok && !(w->rowOf.Reserve(size_t(rows)) && w->times.Reserve(size_t(rows)) && w->crossT.Reserve(size_t(rows)) &&
                w->crossD.Reserve(size_t(rows)) && w->t.Reserve(size_t(rows)) && w->v.Reserve(size_t(rows)) &&
                w->steps.Reserve(size_t(rows)))) {
        QERROR("%s: out of memory for %d rows (%s)", reader, rows, name);
        ok = false;
    }

    // The rows that stand in time order, and the median step between them.
    int kept = 0, backwards = 0;
    for (int r = 0; ok && r < rows; r++) {
        double t = table.Value(timeColumn, r);
        if (std::isnan(t)) continue;
        if (kept > 0 && t < w->times.items[kept - 1]) {
            backwards++;
            continue;
        }
        w->rowOf.items[kept] = r;
        w->times.items[kept++] = t;
    }
    if (ok && kept == 0) {
        QERROR("%s: no row has a time (%s)", reader, name);
        ok = false;
    }
    double step = baseStep;
    if (ok) {
        int n = 0;
        for (int k = 1; k < kept; k++)
            if (w->times.items[k] > w->times.items[k - 1]) w->steps.items[n++] = w->times.items[k] - w->times.items[k - 1];
        if (n > 0) {
            std::nth_element(w->steps.items, w->steps.items + n / 2, w->steps.items + n);
            if (w->steps.items[n / 2] > step) step = w->steps.items[n / 2];
        }
    }

    // Lap crossings: the first row of each new lap number.
    int crossings = 0;
    if (ok && lapColumn >= 0) {
        double last = NAN;
        for (int k = 0; k < kept; k++) {
            double lap = table.Value(lapColumn, w->rowOf.items[k]);
            if (std::isnan(lap)) continue;
            if (!std::isnan(last) && lap != last) w->crossT.items[crossings++] = w->times.items[k];
            last = lap;
        }
    }

    // The base: sample 'anchor' stands exactly at the first crossing.
    const double first = ok ? w->times.items[0] : 0.0, lastTime = ok ? w->times.items[kept - 1] : 0.0;
    const double crossing = crossings > 0 ? w->crossT.items[0] : first;
    const double before = std::floor((crossing - first) / step + 1e-9);
    // In doubles until it is known to fit: stamps may lie up to the float range apart.
    const double wanted = before + std::floor((lastTime - crossing) / step + 1e-9) + 1.0;
    const long long samples = ok && wanted <= double(INT_MAX / 8) ? (long long)wanted : 0;
    auto timeOf = [&](int i) { return crossing + (double(i) - before) * step; };

    CsvChannel* channels = nullptr;
    int count = 0;
    if (ok) {
        channels = new (std::nothrow) CsvChannel[table.columns + 2];
        if (!channels) {
            QERROR("%s: out of memory for %d channels (%s)", reader, table.columns, name);
            ok = false;
        }
    }
    if (ok) {
        channels[count].name = "time";
        channels[count].unit = "s";
        channels[count].role = ROLE_TIME;
        channels[count].column = timeColumn;
        count++;
        for (const Mapping& m : mappings) {
            int c = table.FindColumn(m.column);
            // Of several channels of one name, the one from satellites gives the speed.
            if (std::strcmp(m.column, "speed") == 0)
                for (int k = 0; k < table.columns; k++)
                    if (std::strcmp(table.names.Cell(k), "speed") == 0 && std::strstr(table.sources.Cell(k), "gps")) {
                        c = k;
                        break;
                    }
            double factor;
            if (c < 0 || !CsvUnitFactor(m.kind, table.units.Cell(c), m.usual, &factor)) continue;
            CsvChannel& ch = channels[count++];
            ch.name = m.signal;
            ch.unit = m.unit;
            ch.column = c;
            ch.factor = factor;
            ch.role = m.role;
        }
        if (lapColumn >= 0 && count < table.columns + 2) {
            channels[count].name = "laptime";
            channels[count].unit = "s";
            channels[count].role = ROLE_LAPTIME;
            count++;
        }
        for (int c = 0; c < table.columns; c++) {
            bool taken = c == timeColumn || c == unixColumn;
            for (int i = 0; i < count && !taken; i++) taken = channels[i].column == c;
            if (taken || count >= table.columns + 2) continue;
            CsvChannel& ch = channels[count];
            ch.name = table.names.Cell(c);
            ch.unit = *table.units.Cell(c) ? table.units.Cell(c) : "-";
            ch.column = c;
            ch.role = ROLE_LINEAR;
            for (const char* held : heldColumns)
                if (std::strcmp(held, ch.name.cstr()) == 0) ch.role = ROLE_HOLD;
            CsvUniqueName(channels, count + 1, count, SourceTag(table.sources.Cell(c)));
            count++;
        }
        // A channel without a single value has nothing to resample and is left out.
        int kept2 = 0;
        for (int i = 0; i < count; i++) {
            bool any = channels[i].column < 0 || channels[i].role == ROLE_TIME;
            for (int k = 0; k < kept && !any; k++) any = !std::isnan(table.Value(channels[i].column, w->rowOf.items[k]));
            if (!any) continue;
            if (kept2 != i) {
                channels[kept2].name = channels[i].name;
                channels[kept2].unit = channels[i].unit;
                channels[kept2].column = channels[i].column;
                channels[kept2].factor = channels[i].factor;
                channels[kept2].role = channels[i].role;
            }
            kept2++;
        }
        count = kept2;
        if (samples == 0 || !CsvSamplesFit(samples * count, size)) {
            QERROR("%s: %d rows over %.1f s make too many samples at %g s apart - refusing to load (%s)", reader, kept,
                   lastTime - first, step, name);
            ok = false;
        }
    }
    if (ok) ok = CsvAddSignals(set, channels, count, int(samples), CsvFloat(step), reader, name);

    if (ok) {
        CsvReportDropped(table.dropped, reader, name);
        if (table.raggedRows)
            QWARNING("%s: %d rows with another number of cells than the %d channel names: missing cells are taken as "
                     "empty, extra ones are ignored (%s)",
                     reader, table.raggedRows, table.names.total, name);
        if (table.badCells)
            QWARNING("%s: %d cells that aren't numbers are taken as empty (%s)", reader, table.badCells, name);
        if (backwards) QWARNING("%s: %d rows with a time before the row above left out (%s)", reader, backwards, name);

        const int n = int(samples);
        // The distance at each crossing, from the distance channel itself.
        if (distanceColumn >= 0) {
            Series d{w->t.items, w->v.items,
                     Collect(table, distanceColumn, w->rowOf.items, w->times.items, kept, w->t.items, w->v.items)};
            for (int k = 0; k < crossings; k++) w->crossD.items[k] = d.count ? d.AtAny(w->crossT.items[k]) : 0.0;
        }
        for (int i = 0; i < count; i++) {
            CsvChannel& ch = channels[i];
            float* out = ch.signal->data;
            if (ch.role == ROLE_TIME) {
                for (int s = 0; s < n; s++) out[s] = CsvFloat(s * step);
                continue;
            }
            if (ch.role == ROLE_LAPTIME) {
                int k = 0;
                double start = timeOf(0);
                for (int s = 0; s < n; s++) {
                    const double t = timeOf(s);
                    while (k < crossings && w->crossT.items[k] <= t) start = w->crossT.items[k++];
                    out[s] = CsvFloat(t - start);
                }
                continue;
            }
            Series series{w->t.items, w->v.items,
                          Collect(table, ch.column, w->rowOf.items, w->times.items, kept, w->t.items, w->v.items)};
            int j = 0, k = 0;
            double base = 0.0;
            for (int s = 0; s < n; s++) {
                const double t = timeOf(s);
                double value = series.At(t, ch.role == ROLE_HOLD, j);
                if (ch.role == ROLE_DISTANCE) {
                    if (s == 0) base = value;
                    while (k < crossings && w->crossT.items[k] <= t) base = w->crossD.items[k++];
                    value -= base;
                }
                out[s] = CsvFloat(value * ch.factor);
            }
        }

        qstring shortName(name);
        shortName.CutPath();
        CsvAddProperty(set, "filename", shortName.cstr());
        CsvAddProperty(set, "track", table.Head("Track name"));
        CsvAddProperty(set, "car", table.Head("Vehicle"));
        CsvAddProperty(set, "driver", table.Head("Driver name"));
        CsvAddProperty(set, "session", table.Head("Session title"));
        if (unixColumn >= 0) {
            Series u{w->t.items, w->v.items,
                     Collect(table, unixColumn, w->rowOf.items, w->times.items, kept, w->t.items, w->v.items)};
            if (u.count) AddUnixTime(set, u.AtAny(timeOf(0)));
        }
        const char* format = table.Head("Format");
        CsvAddMeta(set, "source.format", format && std::strcmp(format, "3") == 0 ? "CSV v3" : format);
        char text[64];
        std::snprintf(text, sizeof text, "linear, %g s per sample", step);
        CsvAddMeta(set, "resampling", text);
        for (int i = 0; i < count; i++)
            CsvAddMeta(set, (qstring("unit.") + channels[i].name).cstr(), channels[i].unit.cstr());
        set.fileName = name;
    }
    delete[] channels;
    delete w;
    return ok;
}

} // namespace tarvik
