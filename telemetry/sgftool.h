// sgftool: the pieces of the command, one concern per file.
//
//   sgftool.cpp         the command line, the outputs' names, the run over the inputs
//   sgftool_laps.cpp    laps and the distance within the lap
//   sgftool_info.cpp    the summary of a recording
//   sgftool_export.cpp  the tables (text, csv, tsv) and the meta file
//
// A recording is a PSignals whose rows are the samples of its first signal, as in the text export.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace tarvik {

class PSignals;
class AsciiExportModifier;

// --- sgftool_laps.cpp --------------------------------------------------------------------------

struct ToolLap {
    int number;     // the rounded value of 'lap', or 1, 2, ... counted from resets of 'distance'
    int first;      // first row
    int end;        // one past the last row
    float distance; // metres covered: the lap distance at its last row
};

struct ToolLaps {
    std::vector<ToolLap> laps;  // in row order
    std::vector<float> lapdist; // one per row: 0 at each lap's first row, 0 outside every lap
    int fastest = -1;           // index into laps; -1 when no lap is complete
    bool fromLapSignal = false; // else from resets of 'distance'
    bool integrated = false;    // lapdist from 'velocity' rather than from 'distance'
};

int ToolRows(const PSignals& set); // samples of the first signal; 0 for an empty set
float ToolStep(const PSignals& set);
void ToolFindLaps(const PSignals& set, ToolLaps* out);
const char* ToolUnit(const PSignals& set, const char* channel); // "unit.<channel>", or null

// --- sgftool_info.cpp --------------------------------------------------------------------------

void ToolWriteInfo(FILE* out, const PSignals& set, const ToolLaps& laps);

// --- sgftool_export.cpp ------------------------------------------------------------------------

enum ToolFormat { TOOL_TEXT, TOOL_CSV, TOOL_TSV };

struct ToolExportOptions {
    ToolFormat format = TOOL_CSV;
    int lap = -1;         // only this lap; -1 every row
    bool fastest = false; // only the fastest lap
    bool splitLaps = false;
    bool units = false;
    bool meta = false;
    std::vector<std::string> channels; // the columns after the computed ones; empty: all
    std::string modifierFile;
    double from = -1e300, to = 1e300; // seconds of the recording
    double resampleHz = 0;            // 0: the recording's own rows
};

const char* ToolExtension(ToolFormat format); // "txt", "csv", "tsv"

// Writes the tables of one recording. 'output' is a file name or "-" for standard output; the
// names of split laps and of the meta file derive from it. 'inputs' are refused as outputs.
// 'modifier' may be null. False after a report.
bool ToolExport(PSignals& set, const ToolExportOptions& options, const AsciiExportModifier* modifier,
                const std::string& output, const std::vector<std::string>& inputs);

// True if 'name' may be written: it is none of the inputs. Reports otherwise.
bool ToolOutputAllowed(const std::string& name, const std::vector<std::string>& inputs);

} // namespace tarvik
