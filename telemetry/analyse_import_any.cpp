#include "telemetry/analyse_import_any.h"

#include "foundation/qfile.h"
#include "foundation/qmessage.h"
#include "platform/platform.h"
#include "telemetry/analyse_import_logger.h"
#include "telemetry/analyse_signals.h"

#include <cstdint>
#include <cstdio>

namespace tarvik {

namespace {

typedef bool (*LooksLike)(const uint8_t* data, size_t size);
typedef bool (*Reader)(PSignals& set, const char* name, const uint8_t* data, size_t size);

const struct {
    LooksLike looksLike;
    Reader read;
} readers[] = {
    {PLooksLikeIbt, PImportIbt},
    {PLooksLikePibosoCsv, PImportPibosoCsv},
    {PLooksLikeLapTimerCsv, PImportLapTimerCsv},
};

} // namespace

bool PImportAny(PSignals& set, const char* fileName)
{
    // Every reader knows its files by their first bytes, so only those are read to ask; a recording
    // of this system's own kinds is then read once, by its own import.
    enum { HEAD_BYTES = 65536 };
    static uint8_t head[HEAD_BYTES];
    bool notRegular = false;
    FILE* f = PlatformOpenRegularFile(fileName, &notRegular);
    if (!f && notRegular) {
        QWARNING("PImportAny(%s): can't open file (not a regular file)", fileName);
        return false;
    }
    if (!f) return set.Import(fileName); // a missing file is reported there, in the import's words
    const size_t got = std::fread(head, 1, sizeof head, f);
    std::fclose(f);
    for (const auto& r : readers) {
        if (!r.looksLike(head, got)) continue;
        QFile file(fileName, QFile::READ | QFile::MEMORY); // a block too large is reported there
        if (!file.GetMemory()) {
            QWARNING("PImportAny(%s): can't read the file into memory", fileName);
            return false;
        }
        set.fileName = fileName;
        return r.read(set, fileName, file.GetMemory(), size_t(file.GetMemorySize()));
    }
    return set.Import(fileName);
}

} // namespace tarvik
