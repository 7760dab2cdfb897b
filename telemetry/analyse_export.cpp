#include "telemetry/analyse_export.h"

#include "foundation/qmessage.h"
#include "foundation/qoutput.h"
#include "platform/platform.h"
#include "telemetry/analyse_modifier.h"
#include "telemetry/analyse_signals.h"
#include "telemetry/analyse_signaltypes.h"
#include "telemetry/analyse_textout.h"

#include <cmath>
#include <cstdio>
#include <limits>
#include <vector>

namespace tarvik {

namespace {

bool IsTimeOrDistance(const qstring& id) { return id == "time" || id == "distance"; }

// A signal shorter than the first is reported for each row past its end, with its first this many
// rows: one long signal beside a thousand short ones would otherwise give a report per value of
// the table, millions of them, and the conversion would take hours. The rest are counted, once.
const int maxShortReports = 10;

// Round halves away from zero and compare as a whole number. A lap that reads NaN or lies outside
// every int never matches.
bool IsLap(float value, int32_t lap) { return double(std::round(value)) == double(lap); }

// Every line of the head starts with '#': a line feed or carriage return in a name or value would
// start a line that a reader takes for data. Control characters are written as escapes, and the
// backslash doubled, so that the text still reads back exactly. Bytes from 128 up stay as they
// are: they are letters of the text's own encoding.
void WriteEscaped(PTextOut& out, const char* text)
{
    static const char hex[] = "0123456789ABCDEF";
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; p++) {
        const unsigned char c = *p;
        if (c >= 0x20 && c != 0x7F && c != '\\') {
            out.Char(char(c));
            continue;
        }
        out.Char('\\');
        switch (c) {
        case '\\': out.Char('\\'); break;
        case '\n': out.Char('n'); break;
        case '\r': out.Char('r'); break;
        case '\t': out.Char('t'); break;
        default:
            out.Char('x');
            out.Char(hex[c >> 4]);
            out.Char(hex[c & 15]);
        }
    }
}

// "# <Plural>: n", then "# <Title> i: name = value" for each pair, then "#".
void WritePairs(PTextOut& out, const char* plural, const char* title, const qstring* names, const qstring* values,
                int count)
{
    char line[64];
    std::snprintf(line, sizeof line, "# %s: %d\n", plural, count);
    out.Text(line);
    for (int i = 0; i < count; i++) {
        std::snprintf(line, sizeof line, "# %s %d: ", title, i + 1);
        out.Text(line);
        WriteEscaped(out, names[i].cstr());
        out.Text(" = ");
        WriteEscaped(out, values[i].cstr());
        out.Char('\n');
    }
    out.Text("#\n");
}

void WriteHead(PTextOut& out, const PSignals& set)
{
    out.Text("#\n# ASCII signal export\n# Writer: Ostrand PSignals exporter v1.2\n#\n");
    WritePairs(out, "Properties", "Property", set.propertyName, set.propertyValue, set.propertyCount);
    WritePairs(out, "Metaproperties", "Metaproperty", set.metaName, set.metaValue, set.metaCount);
}

} // namespace

bool PSignals::ExportASCII(const PExportOptions& options)
{
    const char* name = options.fileName.cstr();
    AsciiExportModifier* modifier = nullptr; // owned for the length of the export
    if (options.modifierFile.IsNotEmpty()) {
        modifier = new AsciiExportModifier;
        qstring reason;
        if (!modifier->Load(options.modifierFile.cstr(), &reason)) {
            qstring text("Could not read modifier file (");
            text += options.modifierFile;
            text += "): ";
            text += reason;
            PlatformMessageBox("Error", text.cstr(), nullptr);
            delete modifier;
            modifier = nullptr;
        }
    }

    // The table takes the place of what stands at its name, so it must never be the recording it
    // is made from: the same name, or a link of either kind to it.
    if (PlatformSameFile(fileName.cstr(), name)) {
        QWARNING("PSignals::ExportASCII(%s) failed - output is the input file", name);
        delete modifier;
        return false;
    }
    // Written beside the old table and renamed into place only when complete, so that a full disk
    // or a killed process leaves the old one as it was.
    QOutput output;
    if (!output.Open(name)) {
        QWARNING("PSignals::ExportASCII(%s) failed - can't open file", name);
        delete modifier;
        return false;
    }
    bool complete, written;
    {
        PTextOut out(output.Stream());
        complete = WriteASCII(out, options, modifier);
        written = out.Flush();
    }
    delete modifier;
    // A table without a distance column is kept too, as far as it got: its error line is in it.
    if (written) {
        written = output.Commit();
    } else {
        output.Abandon();
    }
    if (!written) {
        QWARNING("PSignals::ExportASCII(%s) failed - can't write file", name);
        return false;
    }
    return complete;
}

bool PSignals::WriteASCII(PTextOut& out, const PExportOptions& options, const AsciiExportModifier* modifier)
{
    const char separator = modifier ? modifier->GetSeparator() : ' ';
    if (!modifier) WriteHead(out, *this);

    qstring timeName("time"), distanceName("distance");
    if (modifier) {
        modifier->Rename(timeName);
        modifier->Rename(distanceName);
    }
    out.Text(timeName.cstr());
    out.Char(separator);
    out.Text(distanceName.cstr());

    const PSignal* distance = FindSignal("distance");
    if (!distance) {
        out.Text("** ERROR: No distance signal found - won't work in ASCII export (");
        out.Text(fileName.cstr());
        out.Text(")\n");
        return false;
    }
    const PSignal* lapSignal = FindSignal("lap");
    if (!lapSignal && options.lap != -1)
        QWARNING("ExportASCII with lap=%d can only work if a 'lap' signal is present in the telemetry data",
                 options.lap);

    // The columns after time and distance, in set order, with their factors and trigger modes.
    struct Column {
        const PSignal* signal;
        float factor;
        bool trigger;
        int reported; // rows past the end of a short signal reported so far
    };
    std::vector<Column> columns;
    columns.reserve(size_t(signalCount));
    for (int i = 0; i < signalCount; i++) {
        const PSignal* s = signals[i];
        qstring id(s->GetId());
        qstring column(id);
        float factor = 1.0f;
        bool skip = false;
        if (modifier) {
            factor = modifier->GetFactor(id);
            modifier->Rename(column);
            skip = column == "-";
        }
        if (s->count == 0) {
            QINFO("Skip signal %d (%s) due to lack of signal data\n", i, id.cstr());
            skip = true;
        }
        if (skip || IsTimeOrDistance(id)) continue;
        out.Char(separator);
        out.Text(column.cstr());
        bool trigger = (id == "lap" && (options.triggerFlags & PExportOptions::PEO_LAP_TRIGGER)) ||
                       (id == "sector" && (options.triggerFlags & PExportOptions::PEO_SECTOR_TRIGGER));
        columns.push_back(Column{s, factor, trigger, 0});
    }
    out.Char('\n');

    const int rows = signals[0]->count;
    const float step = signals[0]->timestep;
    const bool filterLap = options.lap != -1 && lapSignal;
    float lastDistance = -999999.0f;
    float baseTime = 0.0f;
    bool first = true;
    long long unreported = 0; // values past the end of short signals beyond the reported rows
    // Rows go out in blocks: the samples of a block are gathered column by column into a row-major
    // table (one short stream per signal instead of a jump between all of them per value), then
    // each row is formatted at once, eight values at a time where the processor can. A block in
    // which some signal runs short is gathered row by row, so its reports come in table order.
    enum { BLOCK_ROWS = 256 };
    const size_t width = columns.size() + 2;
    std::vector<float> table(BLOCK_ROWS * width);
    std::vector<int> sample(BLOCK_ROWS);
    const size_t rowBytes = RowBytes(int(width));
    int n = 0;
    while (n < rows) {
        int m = 0;
        for (; n < rows && m < BLOCK_ROWS; n++) {
            // Samples past the end of a short lap signal belong to no lap.
            if (filterLap && (n >= lapSignal->count || !IsLap(lapSignal->data[n], options.lap))) continue;
            sample[size_t(m++)] = n;
        }
        if (m == 0) break;
        const int last = sample[size_t(m - 1)];

        for (int r = 0; r < m; r++) {
            float* v = &table[size_t(r) * width];
            const int k = sample[size_t(r)];
            float time = float(k) * step;
            if (first) {
                baseTime = time;
                first = false;
            }
            v[0] = time - baseTime;
            // Missing samples of a short distance signal are absent: the column just keeps rising.
            float d = k < distance->count ? distance->data[k] : -std::numeric_limits<float>::infinity();
            if (lastDistance + 0.001f > d) d = lastDistance + 0.001f;
            v[1] = d;
            lastDistance = d;
        }

        bool whole = true;
        for (const Column& c : columns) whole = whole && last < c.signal->count;
        if (whole) {
            for (size_t j = 0; j < columns.size(); j++) {
                const Column& c = columns[j];
                float* v = &table[j + 2];
                if (c.trigger) {
                    for (int r = 0; r < m; r++, v += width) *v = c.signal->GetTriggerValue(sample[size_t(r)]);
                } else {
                    const float* data = c.signal->data;
                    for (int r = 0; r < m; r++, v += width) *v = data[sample[size_t(r)]] * c.factor;
                }
            }
        } else {
            for (int r = 0; r < m; r++) {
                const int k = sample[size_t(r)];
                float* v = &table[size_t(r) * width + 2];
                for (Column& c : columns) {
                    if (k < c.signal->count) {
                        *v = c.trigger ? c.signal->GetTriggerValue(k) : c.signal->data[k] * c.factor;
                    } else if (c.reported < maxShortReports) {
                        c.reported++; // the read reports the short signal
                        *v = c.trigger ? c.signal->GetTriggerValue(k) : c.signal->GetValue(k) * c.factor;
                    } else {
                        unreported++;
                        *v = c.trigger ? 0.0f : 0.0f * c.factor; // what the read would give
                    }
                    v++;
                }
            }
        }

        for (int r = 0; r < m; r++)
            out.Commit(FormatRowF6(out.Reserve(rowBytes), &table[size_t(r) * width], int(width), separator));
    }
    if (unreported > 0)
        QERROR("PSignals::ExportASCII(%s): %lld more values past the end of short signals written as 0.000000, "
               "not reported one by one",
               options.fileName.cstr(), unreported);
    return true;
}

} // namespace tarvik
