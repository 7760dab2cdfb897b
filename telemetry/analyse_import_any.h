// Loading a recording whatever wrote it: the readers of other loggers' exports get the first look,
// the system's own formats (PSignals::Import) the rest.
//
// The whole file is read into memory once for the readers that recognise their format by its
// bytes; when none claims it, the block is freed before the own import reads the file by name,
// so that a large recording is never held twice.
#pragma once

namespace tarvik {

class PSignals;

// Loads 'fileName' into 'set'. False after a report naming the file: it can't be read, or the
// reader that took it failed.
bool PImportAny(PSignals& set, const char* fileName);

} // namespace tarvik
