// Options of the ASCII export of a PSignals (PSignals::ExportASCII).
//
// The table is anchored on two computed columns: the elapsed time from the first signal's step,
// and a distance forced to rise by at least 0.001 per row. All other signals follow in set order,
// every number printed as "%f" of a 32-bit float.
#pragma once

#include "foundation/qstring.h"

#include <cstdint>

namespace tarvik {

struct PExportOptions {
    enum { PEO_LAP_TRIGGER = 1, PEO_SECTOR_TRIGGER = 2 };

    qstring fileName;          // the text file to write
    qstring modifierFile;      // an AsciiExportModifier file; empty for none
    int32_t lap = -1;          // write only the rows of this lap; -1 writes every row
    uint32_t triggerFlags = 0; // PEO_*: write 'lap' or 'sector' as 0/1 trigger values
    int32_t reserved = 1;      // set by the command; the export doesn't read it
};

} // namespace tarvik
