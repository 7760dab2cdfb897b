// The tables of sgftool: the text export as sgf2ascii writes it, and CSV and TSV for other tools.
//
// CSV follows RFC 4180 with LF line ends (what pandas, numpy and the csv module read): one line
// of column names, quoted where they hold the separator, a quote or a line end, then one line per
// row. Numbers are those of the text export ("%f" of the float), written by its row formatter, so
// that both roads cost the same; a row past the end of a signal shorter than the first has "nan"
// there, which the readers take for a missing value. TSV is the same with tabs.
//
// The computed columns lead: time (from the first written row), distance (forced to rise, as in
// the text export) and lapdist (see sgftool_laps.cpp); the recording's other channels follow in
// set order, or in the order asked for.
#include "telemetry/sgftool.h"

#include "foundation/qmessage.h"
#include "foundation/qoutput.h"
#include "foundation/qstring.h"
#include "platform/platform.h"
#include "telemetry/analyse_export.h"
#include "telemetry/analyse_modifier.h"
#include "telemetry/analyse_signals.h"
#include "telemetry/analyse_textout.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>

namespace tarvik {

namespace {

enum { TIME_COLUMN, DISTANCE_COLUMN, LAPDIST_COLUMN, COMPUTED_COLUMNS };

struct Column {
    const PSignal* signal; // null for the computed columns
    float factor;
    std::string header;
    std::string unit; // empty if unknown
};

struct Range {
    int first, end; // rows
};

bool IsComputed(const char* id)
{
    return std::strcmp(id, "time") == 0 || std::strcmp(id, "distance") == 0 || std::strcmp(id, "lapdist") == 0;
}

std::string Renamed(const AsciiExportModifier* modifier, const char* id)
{
    if (!modifier) return id;
    qstring name(id);
    modifier->Rename(name);
    return name.cstr();
}

std::string UnitOf(const PSignals& set, const char* id)
{
    const char* unit = ToolUnit(set, id);
    return unit ? unit : "";
}

// The columns of a table, or false after a report naming the channels there are.
bool MakeColumns(const PSignals& set, const ToolExportOptions& options, const AsciiExportModifier* modifier,
                 std::vector<Column>* columns)
{
    std::string distanceUnit = UnitOf(set, "distance");
    std::string timeUnit = UnitOf(set, "time");
    columns->push_back(Column{nullptr, 1.0f, Renamed(modifier, "time"), timeUnit.empty() ? "s" : timeUnit});
    columns->push_back(Column{nullptr, 1.0f, Renamed(modifier, "distance"), distanceUnit});
    columns->push_back(Column{nullptr, 1.0f, Renamed(modifier, "lapdist"), distanceUnit});

    std::vector<const PSignal*> chosen;
    if (options.channels.empty()) {
        for (int i = 0; i < set.signalCount; i++) chosen.push_back(set.signals[i]);
    } else {
        std::string unknown;
        for (const std::string& name : options.channels) {
            const PSignal* s = set.FindSignal(name.c_str());
            if (s) chosen.push_back(s);
            else if (!IsComputed(name.c_str())) unknown += (unknown.empty() ? "'" : ", '") + name + "'";
        }
        if (!unknown.empty()) {
            std::string there = "time, distance, lapdist";
            for (int i = 0; i < set.signalCount; i++)
                if (!IsComputed(set.signals[i]->GetId())) there += std::string(", ") + set.signals[i]->GetId();
            QERROR("sgftool: %s has no channel %s; its channels are: %s", set.fileName.cstr(), unknown.c_str(),
                   there.c_str());
            return false;
        }
    }
    for (const PSignal* s : chosen) {
        const char* id = s->GetId();
        if (IsComputed(id) || s->count == 0) continue;
        const std::string header = Renamed(modifier, id);
        if (header == "-") continue;
        const float factor = modifier ? modifier->GetFactor(qstring(id)) : 1.0f;
        columns->push_back(Column{s, factor, header, UnitOf(set, id)});
    }
    if (options.units)
        for (Column& c : *columns)
            if (!c.unit.empty()) c.header += "[" + c.unit + "]";
    return true;
}

void WriteField(PTextOut& out, const std::string& text, char separator)
{
    if (text.find_first_of(std::string(1, separator) + "\"\r\n") == std::string::npos) {
        out.Text(text.c_str());
        return;
    }
    out.Char('"');
    for (char c : text) {
        if (c == '"') out.Char('"');
        out.Char(c);
    }
    out.Char('"');
}

// Fills rows of the table, row-major, 'width' values each: the samples 'sample[0..m)'. 'state'
// carries the rising distance and the first row's time from block to block.
struct TableState {
    float lastDistance = -999999.0f;
    float baseTime = 0.0f;
    bool first = true;
};

void FillRows(const PSignals& set, const ToolLaps& laps, const std::vector<Column>& columns, const int* sample, int m,
              float* table, TableState* state)
{
    const size_t width = columns.size();
    const float step = ToolStep(set);
    const PSignal* distance = set.FindSignal("distance");
    for (int r = 0; r < m; r++) {
        float* v = table + size_t(r) * width;
        const int k = sample[r];
        const float time = float(k) * step;
        if (state->first) {
            state->baseTime = time;
            state->first = false;
        }
        v[TIME_COLUMN] = time - state->baseTime;
        float d = distance && k < distance->count ? distance->data[k] : -std::numeric_limits<float>::infinity();
        if (state->lastDistance + 0.001f > d) d = state->lastDistance + 0.001f;
        v[DISTANCE_COLUMN] = d;
        state->lastDistance = d;
        v[LAPDIST_COLUMN] = laps.lapdist[size_t(k)];
    }
    // Column by column: one short stream per signal rather than a jump between all of them per value.
    const int last = sample[m - 1];
    for (size_t j = COMPUTED_COLUMNS; j < width; j++) {
        const PSignal* s = columns[j].signal;
        const float f = columns[j].factor;
        float* v = table + j;
        if (last < s->count) {
            for (int r = 0; r < m; r++, v += width) *v = s->data[sample[r]] * f;
        } else { // a signal shorter than the first has no value in the rows past its end
            for (int r = 0; r < m; r++, v += width)
                *v = sample[r] < s->count ? s->data[sample[r]] * f : std::numeric_limits<float>::quiet_NaN();
        }
    }
}

void WriteRows(PTextOut& out, const PSignals& set, const ToolLaps& laps, const std::vector<Column>& columns,
               const std::vector<Range>& ranges, char separator)
{
    enum { BLOCK_ROWS = 256 };
    const size_t width = columns.size();
    std::vector<float> table(BLOCK_ROWS * width);
    int sample[BLOCK_ROWS];
    const size_t rowBytes = RowBytes(int(width));
    TableState state;
    for (const Range& range : ranges) {
        for (int n = range.first; n < range.end;) {
            int m = 0;
            for (; n < range.end && m < BLOCK_ROWS; n++) sample[m++] = n;
            FillRows(set, laps, columns, sample, m, &table[0], &state);
            for (int r = 0; r < m; r++)
                out.Commit(FormatRowF6(out.Reserve(rowBytes), &table[size_t(r) * width], int(width), separator));
        }
    }
}

// The rows on a regular time base of 'hz' from the first row's time, each column interpolated
// linearly between the two rows around it.
void WriteResampled(PTextOut& out, const PSignals& set, const ToolLaps& laps, const std::vector<Column>& columns,
                    const std::vector<Range>& ranges, char separator, double hz)
{
    const size_t width = columns.size();
    std::vector<int> sample;
    for (const Range& range : ranges)
        for (int k = range.first; k < range.end; k++) sample.push_back(k);
    if (sample.empty()) return;
    std::vector<float> source(sample.size() * width);
    TableState state;
    FillRows(set, laps, columns, &sample[0], int(sample.size()), &source[0], &state);

    // The rows' times in double from their indices: the float column would move the points by
    // its rounding, and a value that falls on a row would come out a little off.
    const double step = double(ToolStep(set));
    std::vector<double> at(sample.size());
    for (size_t i = 0; i < sample.size(); i++) at[i] = double(sample[i] - sample[0]) * step;

    std::vector<float> row(width);
    const size_t rowBytes = RowBytes(int(width));
    const size_t rows = sample.size();
    size_t j = 0;
    for (long long i = 0;; i++) {
        const double t = double(i) / hz;
        if (t > at[rows - 1] + 1e-9) break;
        while (j + 1 < rows && at[j + 1] <= t + 1e-9) j++;
        const float* a = &source[j * width];
        const float* b = j + 1 < rows ? a + width : a;
        const double ta = at[j], tb = j + 1 < rows ? at[j + 1] : ta;
        const double f = tb > ta ? (t - ta) / (tb - ta) : 0.0;
        for (size_t c = 0; c < width; c++) row[c] = float(double(a[c]) + (double(b[c]) - double(a[c])) * f);
        row[TIME_COLUMN] = float(t);
        out.Commit(FormatRowF6(out.Reserve(rowBytes), &row[0], int(width), separator));
    }
}

// JSON text: quotes, backslashes and control characters escaped; text that is not UTF-8 is taken
// as Latin-1, byte by byte, so that the file always parses.
void WriteJsonString(PTextOut& out, const char* text)
{
    bool utf8 = true;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p && utf8;) {
        int follow = *p < 0x80 ? 0 : (*p & 0xE0) == 0xC0 ? 1 : (*p & 0xF0) == 0xE0 ? 2 : (*p & 0xF8) == 0xF0 ? 3 : -1;
        if (follow < 0 || (follow == 1 && *p < 0xC2)) utf8 = false;
        p++;
        for (int i = 0; i < follow && utf8; i++, p++) utf8 = (*p & 0xC0) == 0x80;
    }
    char escape[8];
    out.Char('"');
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; p++) {
        if (*p == '"' || *p == '\\') {
            out.Char('\\');
            out.Char(char(*p));
        } else if (*p < 0x20 || (*p >= 0x80 && !utf8)) {
            std::snprintf(escape, sizeof escape, "\\u%04x", *p);
            out.Text(escape);
        } else {
            out.Char(char(*p));
        }
    }
    out.Char('"');
}

void WritePairsJson(PTextOut& out, const char* key, const qstring* names, const qstring* values, int count)
{
    out.Text("  \"");
    out.Text(key);
    out.Text("\": {");
    for (int i = 0; i < count; i++) {
        out.Text(i ? ",\n    " : "\n    ");
        WriteJsonString(out, names[i].cstr());
        out.Text(": ");
        WriteJsonString(out, values[i].cstr());
    }
    out.Text(count ? "\n  },\n" : "},\n");
}

void WriteMeta(PTextOut& out, const PSignals& set, const std::vector<Column>& columns)
{
    char number[64];
    out.Text("{\n  \"source\": ");
    WriteJsonString(out, set.fileName.cstr());
    const double step = double(ToolStep(set));
    if (std::isfinite(step)) std::snprintf(number, sizeof number, ",\n  \"step\": %.9g,\n", step);
    else std::snprintf(number, sizeof number, ",\n  \"step\": null,\n"); // JSON has no NaN
    out.Text(number);
    WritePairsJson(out, "properties", set.propertyName, set.propertyValue, set.propertyCount);
    WritePairsJson(out, "metaproperties", set.metaName, set.metaValue, set.metaCount);
    out.Text("  \"columns\": [");
    for (size_t i = 0; i < columns.size(); i++) {
        out.Text(i ? ",\n    {\"name\": " : "\n    {\"name\": ");
        WriteJsonString(out, columns[i].header.c_str());
        out.Text(", \"unit\": ");
        WriteJsonString(out, columns[i].unit.c_str());
        out.Char('}');
    }
    out.Text("\n  ]\n}\n");
}

// One output: standard output for "-", else a file written whole or not at all.
class Output {
public:
    bool Open(const std::string& output, const std::vector<std::string>& inputs)
    {
        name = output;
        if (name == "-") {
            text = new PTextOut(stdout);
            return true;
        }
        if (!ToolOutputAllowed(name, inputs)) return false;
        if (!file.Open(name.c_str())) {
            QERROR("sgftool: can't open '%s' for writing (%s)", name.c_str(), std::strerror(errno));
            return false;
        }
        text = new PTextOut(file.Stream());
        return true;
    }
    PTextOut& Text() { return *text; }
    bool Close()
    {
        bool ok = text->Flush();
        delete text;
        text = nullptr;
        if (name == "-") {
            if (!ok) QERROR("sgftool: can't write to standard output");
            return ok;
        }
        if (ok) ok = file.Commit();
        else file.Abandon();
        if (!ok) QERROR("sgftool: can't write '%s' (%s)", name.c_str(), std::strerror(errno));
        return ok;
    }
    ~Output() { delete text; }

private:
    std::string name;
    QOutput file;
    PTextOut* text = nullptr; // owned while open
};

// The rows of laps numbered 'lap' (all rows for -1) within the time window.
std::vector<Range> Select(const PSignals& set, const ToolLaps& laps, int lap, const ToolExportOptions& options)
{
    std::vector<Range> ranges;
    if (lap == -1) ranges.push_back(Range{0, ToolRows(set)});
    for (const ToolLap& l : laps.laps)
        if (lap != -1 && l.number == lap) ranges.push_back(Range{l.first, l.end});
    // A row's time as the table computes it, so that "--to 2" takes the row that reads 2.000000.
    const float step = ToolStep(set);
    std::vector<Range> cut;
    for (Range r : ranges) {
        while (r.first < r.end && double(float(r.first) * step) < options.from) r.first++;
        while (r.end > r.first && double(float(r.end - 1) * step) > options.to) r.end--;
        if (r.first < r.end) cut.push_back(r);
    }
    return cut;
}

// NAME.ext becomes NAME.lap07.ext; a name without extension gets the lap at its end.
std::string LapName(const std::string& output, int lap)
{
    char part[32];
    std::snprintf(part, sizeof part, ".lap%02d", lap);
    const size_t slash = output.find_last_of('/');
    const size_t dot = output.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash) || dot == slash + 1)
        return output + part;
    return output.substr(0, dot) + part + output.substr(dot);
}

bool WriteOne(PSignals& set, const ToolLaps& laps, const ToolExportOptions& options,
              const AsciiExportModifier* modifier, const std::vector<Column>& columns, int lap,
              const std::string& output, const std::vector<std::string>& inputs)
{
    Output out;
    if (!out.Open(output, inputs)) return false;
    bool complete = true;
    if (options.format == TOOL_TEXT) {
        PExportOptions text;
        text.fileName = output.c_str();
        text.lap = lap;
        text.triggerFlags = 0;
        text.reserved = 1;
        complete = set.WriteASCII(out.Text(), text, modifier);
        if (!complete) QERROR("sgftool: %s has no signal 'distance'", set.fileName.cstr());
    } else {
        const char separator = options.format == TOOL_TSV ? '\t' : ',';
        for (size_t i = 0; i < columns.size(); i++) {
            if (i) out.Text().Char(separator);
            WriteField(out.Text(), columns[i].header, separator);
        }
        out.Text().Char('\n');
        const std::vector<Range> ranges = Select(set, laps, lap, options);
        if (options.resampleHz > 0) WriteResampled(out.Text(), set, laps, columns, ranges, separator, options.resampleHz);
        else WriteRows(out.Text(), set, laps, columns, ranges, separator);
    }
    return out.Close() && complete;
}

} // namespace

const char* ToolExtension(ToolFormat format)
{
    return format == TOOL_TEXT ? "txt" : format == TOOL_TSV ? "tsv" : "csv";
}

bool ToolOutputAllowed(const std::string& name, const std::vector<std::string>& inputs)
{
    for (const std::string& input : inputs) {
        if (PlatformSameFile(input.c_str(), name.c_str())) {
            QERROR("sgftool: refusing to write '%s': it is the input '%s'", name.c_str(), input.c_str());
            return false;
        }
    }
    return true;
}

bool ToolExport(PSignals& set, const ToolExportOptions& options, const AsciiExportModifier* modifier,
                const std::string& output, const std::vector<std::string>& inputs)
{
    ToolLaps laps;
    ToolFindLaps(set, &laps);
    std::vector<Column> columns;
    if (!MakeColumns(set, options, modifier, &columns)) return false;
    if (options.format != TOOL_TEXT && !set.FindSignal("distance")) {
        QERROR("sgftool: %s has no signal 'distance'", set.fileName.cstr());
        return false;
    }

    int lap = options.lap;
    if (options.fastest) {
        if (laps.fastest < 0) {
            QERROR("sgftool: %s has no complete lap", set.fileName.cstr());
            return false;
        }
        lap = laps.laps[size_t(laps.fastest)].number;
    }
    if (lap != -1) {
        bool found = false;
        for (const ToolLap& l : laps.laps) found = found || l.number == lap;
        if (!found) {
            QERROR("sgftool: %s has no lap %d (%d laps)", set.fileName.cstr(), lap, int(laps.laps.size()));
            return false;
        }
    }

    // The text export picks its rows by the signal 'lap' alone.
    if (options.format == TOOL_TEXT && (lap != -1 || options.splitLaps) && !laps.fromLapSignal) {
        QERROR("sgftool: %s has no signal 'lap', by which the text table picks laps", set.fileName.cstr());
        return false;
    }

    bool ok = true;
    if (options.splitLaps) {
        std::vector<int> done;
        for (const ToolLap& l : laps.laps) {
            bool seen = false;
            for (int n : done) seen = seen || n == l.number;
            if (seen) continue;
            done.push_back(l.number);
            if (options.format != TOOL_TEXT && Select(set, laps, l.number, options).empty()) continue; // outside --from/--to
            ok = WriteOne(set, laps, options, modifier, columns, l.number, LapName(output, l.number), inputs) && ok;
        }
    } else {
        ok = WriteOne(set, laps, options, modifier, columns, lap, output, inputs);
    }

    if (ok && options.meta && output != "-") {
        Output out;
        ok = out.Open(output + ".meta.json", inputs);
        if (ok) {
            WriteMeta(out.Text(), set, columns);
            ok = out.Close();
        }
    }
    return ok;
}

} // namespace tarvik
