// Loading a recording whatever wrote it: the readers of other loggers' exports get the first look,
// the system's own formats (PSignals::Import) the rest.
//
// The readers are asked with the file's first 64 KB; the one that claims it gets the whole file in
// memory. When none does, the system's own import reads the file by name, once.
#pragma once

namespace tarvik {

class PSignals;

// Loads 'fileName' into 'set'. False after a report naming the file: it can't be read, or the
// reader that took it failed.
bool PImportAny(PSignals& set, const char* fileName);

} // namespace tarvik
