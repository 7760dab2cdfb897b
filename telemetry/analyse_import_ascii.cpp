// Reading a measuring tool's tab-separated table into a PSignals.
//
// Line 1 names the channels; each further line holds one value per channel. Runs of tabs fold, so
// a field is never empty and an empty field shifts the rest. Channel names map to this system's
// signals by a fixed table with unit factors. A value with a colon is "seconds:milliseconds".
#include "telemetry/analyse_signals.h"

#include "foundation/qapphooks.h"
#include "foundation/qfile.h"
#include "foundation/qmessage.h"
#include "foundation/qmisc.h"
#include "foundation/qsplit.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tarvik {

namespace {

struct ChannelMap {
    const char* column;
    const char* signal;
    float factor;
};

// The file's X axis goes to acc_z, Y to acc_x and Z to acc_y.
const ChannelMap channelMap[] = {
    {"LAP_DI", "distance", 1.0f},  {"Time", "time", 1.0f},       {"LAPTIM", "laptime", 1.0f},
    {"ACC_X", "acc_z", 9.81f},     {"ACC_Y", "acc_x", 9.81f},    {"ACC_Z", "acc_y", 9.81f},
    {"VVEH", "velocity", 0.2777778f}, {"STEER", "steering", 57.29578f},
};

// More samples than this (plus four per byte of the file) can't come from a real table: every
// data line holds a value for each column. Only a file of mostly empty lines under a wide head
// gets there, and it is refused rather than allocated and exported as zeros by the gigabyte.
const long long maxSpareBytes = 64LL << 20;

float FieldValue(const qstring& field)
{
    const char* text = field.cstr();
    if (!std::strchr(text, ':')) return float(std::atof(text));
    char buf[256]; // such a field has at most 255 characters
    std::snprintf(buf, sizeof buf, "%s", text);
    char* colon = std::strchr(buf, ':');
    if (!colon) return float(std::atoi(buf)); // the colon lay beyond the 255 characters
    *colon = 0;
    return float(std::atoi(buf)) + 0.001f * float(std::atoi(colon + 1));
}

} // namespace

bool PSignals::ImportASCII(const char* name)
{
    fileName = name;
    QFile file(name, QFile::READ | QFile::MEMORY);
    if (!file.IsOpen()) {
        QWARNING("PSignals:ImportASCII(); can't open file (%s)", name);
        return false;
    }
    return ReadASCII(file);
}

bool PSignals::ReadASCII(QFile& file)
{
    const char* name = fileName.cstr();

    qstring line;
    file.GetLine(line);
    QSplit head(line.cstr(), QSplit::QSPLIT_TAB);
    QINFO("%d signals\n", head.GetCount());
    int columns = head.GetCount();
    if (columns > MAX_SIGNALS) {
        QWARNING("PSignals:ImportASCII(); too many signals in file (%s, max=%d, file has %d)", name,
                 int(MAX_SIGNALS), columns);
        if (qappHooks && qappHooks->ShowTextDialog) qappHooks->ShowTextDialog("Warning", "Too many signals in ASCII file");
        columns = MAX_SIGNALS;
    }

    // Count the data lines; a last line without a line end is never read as data.
    const long dataStart = file.Tell();
    int lines = 0;
    file.GetLine(line);
    while (!file.IsEOF()) {
        lines++;
        file.GetLine(line);
    }
    QINFO("%d lines of data\n", lines);
    file.Seek(dataStart, QFile::SEEK_FROM_START);

    if ((long long)lines * columns * 4 > maxSpareBytes + 4LL * file.Size()) {
        QWARNING("PSignals:ImportASCII(); %d lines of %d columns can't be in a file of %ld bytes - refusing to load (%s)",
                 lines, columns, file.Size(), name);
        return false;
    }

    PSignal* column[MAX_SIGNALS];
    float factor[MAX_SIGNALS];
    int added = 0;
    bool haveTime = false, haveDistance = false;
    for (int c = 0; c < columns; c++) {
        const char* columnName = head.GetValue(c).cstr();
        const char* signalName = columnName;
        factor[c] = 1.0f;
        for (const ChannelMap& m : channelMap)
            if (std::strcmp(m.column, columnName) == 0) {
                signalName = m.signal;
                factor[c] = m.factor;
            }
        if (std::strcmp(columnName, "Time") == 0) haveTime = true;
        if (std::strcmp(columnName, "LAP_DI") == 0) haveDistance = true;
        column[c] = AddSignal(signalName, lines);
        if (!column[c]) break;
        added++;
    }
    if (!haveTime || !haveDistance) {
        QERROR("%s: no time or distance field found - refusing to load", "PSignals::ImportASCII");
        return false;
    }

    for (int l = 0; l < lines; l++) {
        file.GetLine(line);
        QSplit fields(line.cstr(), QSplit::QSPLIT_TAB);
        if (fields.GetCount() != columns) {
            QERROR("%s: line %d has %d fields, expected %d (signals)", "PSignals::ImportASCII", l + 1,
                   fields.GetCount(), columns);
            break;
        }
        for (int c = 0; c < added; c++)
            if (column[c]->data) column[c]->data[l] = FieldValue(fields.GetValue(c)) * factor[c];
    }

    // The whole table is one lap. A table of 1000 columns leaves no slot for it.
    if (PSignal* lap = AddSignal("lap", lines)) {
        if (lap->data) {
            for (int l = 0; l < lines; l++) lap->data[l] = 1.0f;
            lap->count = lines;
        }
    }
    for (int c = 0; c < added; c++) {
        if (column[c]->data) column[c]->count = lines;
        column[c]->timestep = 0.01f;
    }

    qstring shortName(name);
    shortName.CutPath();
    AddProperty("filename", shortName.cstr());
    AddProperty("car", "unknown_car");
    AddProperty("track", "zandvoort");
    AddProperty("date", QCurrentDate());
    AddProperty("time", QCurrentTime());
    AddProperty("comment", "Imported by Lapgraph");
    return true;
}

} // namespace tarvik
