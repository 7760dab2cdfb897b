// The shared CSV cursor, the table of numbers read through it and the commit into a set.
#include "telemetry/analyse_import_csv.h"

#include "foundation/qmessage.h"
#include "telemetry/analyse_signals.h"

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace tarvik {

namespace {

bool IsSpace(char c) { return c == ' ' || c == '\t'; }

bool SameText(const char* a, const char* b)
{
    for (;; a++, b++) {
        char x = *a >= 'A' && *a <= 'Z' ? char(*a + 32) : *a;
        char y = *b >= 'A' && *b <= 'Z' ? char(*b + 32) : *b;
        if (x != y) return false;
        if (!x) return true;
    }
}

// Memory allowed beyond what the file's size accounts for: room for a short file's tables.
const long long spareSamples = 1LL << 20;

} // namespace

bool CsvRow::IsBlank() const
{
    for (int i = 0; i < cells; i++)
        for (const char* c = Cell(i); *c; c++)
            if (!IsSpace(*c)) return false;
    return true;
}

bool CsvRow::CopyFrom(const CsvRow& other)
{
    size_t bytes = other.cells ? other.start.items[other.cells - 1] + std::strlen(other.Cell(other.cells - 1)) + 1 : 0;
    if (!text.Reserve(bytes + 1) || !start.Reserve(size_t(other.cells) + 1)) return false;
    if (bytes) std::memcpy(text.items, other.text.items, bytes);
    for (int i = 0; i < other.cells; i++) start.items[i] = other.start.items[i];
    cells = other.cells;
    total = other.total;
    return true;
}

CsvCursor::CsvCursor(const uint8_t* data, size_t size, char separator)
    : p(data), end(data + size), sep(separator), line(1), rowLine(1)
{
    if (size >= 3 && data[0] == 0xEF && data[1] == 0xBB && data[2] == 0xBF) p += 3;
}

bool CsvCursor::ReadRow(CsvRow& row)
{
    row.cells = row.total = 0;
    row.failed = false;
    if (p >= end) return false;
    rowLine = line;
    size_t used = 0;
    // Appends one byte of the current cell; a cell past the kept ones is only walked over.
    auto put = [&](char c) {
        if (row.total > CSV_MAX_COLUMNS) return;
        if (used + 1 >= row.text.capacity && !row.text.Reserve(used + 64)) {
            row.failed = true;
            return;
        }
        row.text.items[used++] = c;
    };
    for (;;) {
        row.total++;
        if (row.total <= CSV_MAX_COLUMNS) {
            if (!row.start.Reserve(size_t(row.cells) + 1)) row.failed = true;
            else row.start.items[row.cells++] = uint32_t(used);
        }
        if (p < end && *p == '"') {
            p++;
            while (p < end) {
                char c = char(*p++);
                if (c == '"') {
                    if (p < end && *p == '"') p++;
                    else break;
                } else if (c == '\n') {
                    line++;
                }
                put(c);
            }
        }
        while (p < end && char(*p) != sep && *p != '\n' && *p != '\r') put(char(*p++));
        put(0);
        if (row.failed) return false;
        if (p >= end) break;
        if (char(*p) == sep) {
            p++;
            continue;
        }
        if (*p == '\r') p++;
        if (p < end && *p == '\n') p++;
        line++;
        break;
    }
    return true;
}

bool CsvNumber(const char* text, bool commaDecimal, double* value)
{
    static const double powers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                     1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    const char* s = text;
    while (IsSpace(*s)) s++;
    bool negative = *s == '-';
    if (*s == '-' || *s == '+') s++;
    uint64_t mantissa = 0;
    int digits = 0, exponent = 0;
    bool point = false, any = false;
    for (;; s++) {
        if (*s >= '0' && *s <= '9') {
            any = true;
            // Beyond 19 significant digits the rest only moves the decimal point.
            if (digits < 19) {
                if (mantissa || *s != '0') digits++;
                mantissa = mantissa * 10 + uint64_t(*s - '0');
                if (point) exponent--;
            } else if (!point) {
                exponent++;
            }
        } else if (!point && (*s == '.' || (commaDecimal && *s == ','))) {
            point = true;
        } else {
            break;
        }
    }
    if (!any) return false;
    if (*s == 'e' || *s == 'E') {
        s++;
        bool negativeExp = *s == '-';
        if (*s == '-' || *s == '+') s++;
        if (*s < '0' || *s > '9') return false;
        int e = 0;
        for (; *s >= '0' && *s <= '9'; s++)
            if (e < 100000) e = e * 10 + (*s - '0');
        exponent += negativeExp ? -e : e;
    }
    while (IsSpace(*s)) s++;
    if (*s) return false;
    double v = double(mantissa);
    if (mantissa == 0) v = 0.0;
    else if (exponent >= 0 && exponent <= 22) v *= powers[exponent];
    else if (exponent < 0 && exponent >= -22) v /= powers[-exponent];
    else if (exponent > 400) v = HUGE_VAL;
    else if (exponent < -400) v = 0.0;
    else v *= std::pow(10.0, exponent);
    if (!(v <= FLT_MAX)) return false;
    *value = negative ? -v : v;
    return true;
}

int CsvTable::FindColumn(const char* name) const
{
    for (int c = 0; c < columns; c++)
        if (SameText(names.Cell(c), name)) return c;
    return -1;
}

const char* CsvTable::Head(const char* key) const
{
    for (int i = 0; i < headCount; i++)
        if (SameText(headKey[i].cstr(), key)) return headValue[i].cstr();
    return nullptr;
}

bool CsvSamplesFit(long long samples, size_t size) { return samples <= spareSamples + (long long)size / 2; }

bool CsvReadTable(CsvTable& table, const CsvLayout& layout, const char* reader, const char* name,
                  const uint8_t* data, size_t size)
{
    CsvCursor cursor(data, size, layout.separator);
    CsvRow row;
    bool named = false;
    for (int l = 0; l < CSV_MAX_HEAD_LINES && cursor.ReadRow(row); l++) {
        if (layout.isNames(row)) {
            if (!table.names.CopyFrom(row)) row.failed = true;
            named = true;
            break;
        }
        if (!row.IsBlank() && table.headCount < CSV_MAX_HEAD) {
            table.headKey[table.headCount] = row.Cell(0);
            table.headValue[table.headCount] = row.Cell(1);
            table.headCount++;
        }
    }
    if (row.failed) {
        QERROR("%s: out of memory reading the head (%s)", reader, name);
        return false;
    }
    if (!named) {
        QERROR("%s: no line of channel names in the first %d lines (%s)", reader, int(CSV_MAX_HEAD_LINES), name);
        return false;
    }
    table.columns = table.names.cells < layout.maxColumns ? table.names.cells : layout.maxColumns;
    table.dropped = table.names.total - table.columns;

    // Lines that describe the columns, then the first data row.
    CsvCursor first = cursor;
    int described = 0;
    double v;
    while (cursor.ReadRow(row)) {
        if (row.IsBlank()) {
            first = cursor;
            continue;
        }
        bool numeric = false;
        for (int c = 0; c < row.cells && !numeric; c++) numeric = CsvNumber(row.Cell(c), layout.commaDecimal, &v);
        if (numeric || described == 2) break;
        if (!(described == 0 ? table.units : table.sources).CopyFrom(row)) {
            row.failed = true;
            break;
        }
        described++;
        first = cursor;
    }
    if (row.failed) {
        QERROR("%s: out of memory reading the channel names (%s)", reader, name);
        return false;
    }

    long long rows = 0;
    for (cursor = first; cursor.ReadRow(row);)
        if (!row.IsBlank()) rows++;
    if (row.failed) {
        QERROR("%s: out of memory reading a row (%s)", reader, name);
        return false;
    }
    if (rows == 0) {
        QERROR("%s: no rows of data after the channel names (%s)", reader, name);
        return false;
    }
    const long long samples = rows * (table.columns > 0 ? table.columns : 1);
    if (!CsvSamplesFit(samples, size)) {
        QERROR("%s: %lld rows of %d channels can't be in a file of %zu bytes - refusing to load (%s)", reader, rows,
               table.columns, size, name);
        return false;
    }
    if (!table.values.Reserve(size_t(samples))) {
        QERROR("%s: out of memory for %lld rows of %d channels (%s)", reader, rows, table.columns, name);
        return false;
    }
    table.rows = int(rows);
    int r = 0;
    for (cursor = first; r < table.rows && cursor.ReadRow(row);) {
        if (row.IsBlank()) continue;
        if (row.total != table.names.total) table.raggedRows++;
        for (int c = 0; c < table.columns; c++) {
            const char* cell = c < row.cells ? row.Cell(c) : "";
            double& out = table.values.items[size_t(c) * size_t(rows) + size_t(r)];
            if (CsvNumber(cell, layout.commaDecimal, &out)) continue;
            out = NAN;
            while (IsSpace(*cell)) cell++;
            if (*cell) table.badCells++;
        }
        r++;
    }
    if (row.failed) {
        QERROR("%s: out of memory reading a row (%s)", reader, name);
        return false;
    }
    return true;
}

float CsvFloat(double value)
{
    if (value > FLT_MAX) return FLT_MAX;
    if (value < -FLT_MAX) return -FLT_MAX;
    return float(value);
}

bool CsvUnitFactor(CsvKind kind, const char* unit, double usual, double* factor)
{
    struct Unit {
        CsvKind kind;
        const char* text;
        double factor;
    };
    static const Unit units[] = {
        {CSV_SPEED, "m/s", 1.0},     {CSV_SPEED, "km/h", 1.0 / 3.6}, {CSV_SPEED, "kph", 1.0 / 3.6},
        {CSV_SPEED, "mph", 0.44704}, {CSV_ACCEL, "g", 9.81},          {CSV_ACCEL, "m/s^2", 1.0},
        {CSV_ACCEL, "m/s2", 1.0},    {CSV_PERCENT, "%", 0.01},        {CSV_PERCENT, "0..1", 1.0},
        {CSV_ANGLE, "deg", 1.0},     {CSV_ANGLE, "rad", 57.29578},    {CSV_LENGTH, "m", 1.0},
        {CSV_LENGTH, "km", 1000.0},
    };
    while (IsSpace(*unit)) unit++;
    if (!*unit || kind == CSV_PLAIN) {
        *factor = usual;
        return true;
    }
    for (const Unit& u : units)
        if (u.kind == kind && SameText(u.text, unit)) {
            *factor = u.factor;
            return true;
        }
    return false;
}

void CsvUniqueName(CsvChannel* channels, int count, int index, const char* tag)
{
    CsvChannel& ch = channels[index];
    if (ch.name.IsEmpty()) {
        char text[32];
        std::snprintf(text, sizeof text, "column%d", ch.column + 1);
        ch.name = text;
    }
    auto taken = [&](const qstring& name) {
        for (int i = 0; i < count; i++)
            if (i != index && channels[i].name == name) return true;
        return false;
    };
    if (!taken(ch.name)) return;
    qstring base(ch.name.cstr());
    if (tag && *tag) {
        qstring tagged = base + "_" + tag;
        if (!taken(tagged)) {
            ch.name = tagged;
            return;
        }
    }
    // The loop ends: of count + 1 numbers one is free.
    for (int n = 2;; n++) {
        qstring numbered = base + "_";
        numbered += n;
        if (!taken(numbered)) {
            ch.name = numbered;
            return;
        }
    }
}

bool CsvAddSignals(PSignals& set, CsvChannel* channels, int count, int samples, float step, const char* reader,
                   const char* name)
{
    const int before = set.signalCount;
    for (int i = 0; i < count; i++) {
        PSignal* s = set.AddSignal(channels[i].name.cstr(), samples);
        if (!s || (!s->data && samples > 0)) {
            for (int k = set.signalCount - 1; k >= before; k--) {
                delete set.signals[k];
                set.signals[k] = nullptr;
            }
            set.signalCount = before;
            QERROR("%s: out of memory for %d signals of %d samples (%s)", reader, count, samples, name);
            return false;
        }
        s->count = samples;
        s->timestep = step;
        channels[i].signal = s;
    }
    return true;
}

void CsvAddProperty(PSignals& set, const char* key, const char* value)
{
    if (value && *value && set.propertyCount < PSignals::MAX_PROPERTIES) set.AddProperty(key, value);
}

void CsvAddMeta(PSignals& set, const char* key, const char* value)
{
    if (!value || !*value || set.metaCount >= PSignals::MAX_METAPROPERTIES) return;
    set.metaName[set.metaCount] = key;
    set.metaValue[set.metaCount] = value;
    set.metaCount++;
}

int CsvRoom(const PSignals& set) { return PSignals::MAX_SIGNALS - set.signalCount; }

void CsvReportDropped(int dropped, const char* reader, const char* name)
{
    if (dropped > 0)
        QWARNING("%s: %d channels dropped, a recording holds at most %d signals (%s)", reader, dropped,
                 int(PSignals::MAX_SIGNALS), name);
}

} // namespace tarvik
