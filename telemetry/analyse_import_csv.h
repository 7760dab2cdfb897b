// What the CSV readers of other loggers' exports share: a bounded cursor over the bytes, a table
// of numbers read through it, and the commit of finished signals into a set.
//
// The cursor never reads outside the bytes it was given and moves forward by at least one byte per
// row, so any input ends. The table is sized by the bytes of the file: it is refused, not
// allocated, when its rows and columns couldn't have come from a file of that size. Working
// memory comes from qmalloc, and a failed allocation is a reported failure like any other.
#pragma once

#include "foundation/qhelpers.h"
#include "foundation/qstring.h"

#include <cstddef>
#include <cstdint>

namespace tarvik {

class PSignals;
class PSignal;

enum {
    CSV_MAX_COLUMNS = 10000, // cells of a row beyond this are passed over
    CSV_MAX_HEAD_LINES = 200, // lines searched for the line of channel names
    CSV_MAX_HEAD = 64, // key/value lines of the head that are kept
};

// A growable array of plain values. Grows by doubling; Reserve says by its result whether it could.
template <class T>
class CsvArray {
public:
    CsvArray() = default;
    ~CsvArray() { if (items) qfree(items); }
    CsvArray(const CsvArray&) = delete;
    CsvArray& operator=(const CsvArray&) = delete;

    bool Reserve(size_t n)
    {
        if (n <= capacity) return true;
        size_t grown = capacity * 2 > n ? capacity * 2 : n;
        T* p = static_cast<T*>(qmalloc(grown * sizeof(T)));
        if (!p) return false;
        for (size_t i = 0; i < capacity; i++) p[i] = items[i];
        if (items) qfree(items);
        items = p;
        capacity = grown;
        return true;
    }

    T* items = nullptr; // owned
    size_t capacity = 0;
};

// One row as the cursor read it: the cells' bytes with quotes taken off, each ended by a 0.
struct CsvRow {
    const char* Cell(int i) const { return i >= 0 && i < cells ? text.items + start.items[i] : ""; }
    bool IsBlank() const; // no cell holds anything but spaces
    bool CopyFrom(const CsvRow& other);

    CsvArray<char> text;
    CsvArray<uint32_t> start;
    int cells = 0;  // kept cells, at most CSV_MAX_COLUMNS
    int total = 0;  // cells in the row, kept or not
    bool failed = false; // an allocation failed; the row is incomplete
};

// Reads rows of separated cells: quotes after RFC 4180 (a doubled quote stands for one, a line end
// inside quotes belongs to the cell), CR LF, LF or a lone CR as line end, a UTF-8 byte order mark
// skipped. A quote that is never closed runs to the end of the data; bytes after a closing quote
// belong to the cell.
class CsvCursor {
public:
    CsvCursor(const uint8_t* data, size_t size, char separator);
    bool ReadRow(CsvRow& row); // false at the end of the data, or when row.failed
    int Line() const { return rowLine; } // the line where the last row read began, from 1

private:
    const uint8_t* p;
    const uint8_t* end;
    char sep;
    int line;
    int rowLine;
};

// Parses a whole cell as a number: spaces around it, a sign, digits with one decimal mark ('.',
// or ',' where 'commaDecimal'), an exponent. False for anything else, and for a value beyond the
// float range, which no channel of a logger holds.
bool CsvNumber(const char* text, bool commaDecimal, double* value);

struct CsvLayout {
    char separator;
    bool commaDecimal;
    bool (*isNames)(const CsvRow& row); // recognises the line of channel names
    int maxColumns;                     // columns kept, beyond which a column is dropped
};

// The numbers of a file, column by column. Lines before the names are the head, read as key and
// value. Up to two lines after the names that hold no number describe the columns (units, then
// the source of each channel). Blank lines are passed over everywhere. A row with fewer cells than
// there are names reads NaN for the missing ones; cells beyond the names are ignored. An empty or
// non-numeric cell reads NaN; each format decides what stands in its place.
struct CsvTable {
    double Value(int column, int row) const { return values.items[size_t(column) * size_t(rows) + size_t(row)]; }
    int FindColumn(const char* name) const; // exact, case-blind; -1 if absent
    const char* Head(const char* key) const; // the head's value for key, case-blind; null if absent

    qstring headKey[CSV_MAX_HEAD], headValue[CSV_MAX_HEAD];
    int headCount = 0;
    CsvRow names, units, sources; // units and sources have no cells when the file has no such line
    int columns = 0;      // kept columns
    int dropped = 0;      // named columns beyond maxColumns
    int rows = 0;
    int raggedRows = 0;   // rows with another number of cells than there are names
    int badCells = 0;     // cells that hold something other than a number
    CsvArray<double> values; // columns * rows, column by column
};

// Reads the table; reports with 'reader' and 'name' and returns false when the file has no line of
// names, no data row, or more rows and columns than its size allows.
bool CsvReadTable(CsvTable& table, const CsvLayout& layout, const char* reader, const char* name,
                  const uint8_t* data, size_t size);

// A sample as a float; a value beyond the float range (a huge cell times a unit's factor) is cut
// to the largest float rather than left to an undefined conversion.
float CsvFloat(double value);

// The factor from a channel's unit to this system's unit, for the kinds of mapped channels.
enum CsvKind { CSV_PLAIN, CSV_SPEED, CSV_ACCEL, CSV_PERCENT, CSV_ANGLE, CSV_LENGTH };
// False for a unit this system can't convert; an empty unit takes 'usual'.
bool CsvUnitFactor(CsvKind kind, const char* unit, double usual, double* factor);

// One signal to be made: its name, unit and where its samples come from (the format decides).
struct CsvChannel {
    qstring name;
    qstring unit;
    int column = -1;
    double factor = 1.0;
    int role = 0;
    PSignal* signal = nullptr; // borrowed from the set once added
};

// Gives 'channel' a name that no earlier channel has: the name as it is, else with "_<tag>", else
// with a number behind. An empty name becomes "column<column+1>".
void CsvUniqueName(CsvChannel* channels, int count, int index, const char* tag);

// Adds a signal of 'samples' samples and 'step' seconds per sample for each channel, all or none:
// on a failed allocation the signals added are taken out again and the failure is reported.
bool CsvAddSignals(PSignals& set, CsvChannel* channels, int count, int samples, float step, const char* reader,
                   const char* name);

// A property or meta-property, while there is room; an empty value is left out.
void CsvAddProperty(PSignals& set, const char* key, const char* value);
void CsvAddMeta(PSignals& set, const char* key, const char* value);

// The refusals shared by the readers. A set has room for so many more signals; the reader says
// how many of the columns it turns into signals, and drops the rest with one report.
int CsvRoom(const PSignals& set);
void CsvReportDropped(int dropped, const char* reader, const char* name);
// More samples than this cannot come from a file of 'size' bytes: a real one holds a cell of at
// least two bytes for each.
bool CsvSamplesFit(long long samples, size_t size);

} // namespace tarvik
