#include "telemetry/analyse_import_any.h"

#include "foundation/qhelpers.h"
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

// The whole file in one block from qmalloc, or null after a report. A file that grows while it is
// read is cut at the size it had; one that shrinks is a failed read.
uint8_t* ReadWhole(const char* name, size_t* size)
{
    bool notRegular = false;
    FILE* f = PlatformOpenRegularFile(name, &notRegular);
    if (!f) {
        QWARNING("PImportAny(%s): can't open file%s", name, notRegular ? " (not a regular file)" : "");
        return nullptr;
    }
    PlatformFileStatus status;
    if (!PlatformStat(name, &status) || status.size < 0 || uint64_t(status.size) > SIZE_MAX - 1) {
        QWARNING("PImportAny(%s): can't tell the file's size", name);
        std::fclose(f);
        return nullptr;
    }
    const size_t bytes = size_t(status.size);
    uint8_t* data = static_cast<uint8_t*>(qmalloc(bytes + 1)); // a zero-byte file still needs a block
    if (!data) {
        QWARNING("PImportAny(%s): out of memory for %llu bytes", name, (unsigned long long)bytes);
        std::fclose(f);
        return nullptr;
    }
    const size_t got = std::fread(data, 1, bytes, f);
    std::fclose(f);
    if (got != bytes) {
        QWARNING("PImportAny(%s): read %llu of %llu bytes", name, (unsigned long long)got, (unsigned long long)bytes);
        qfree(data);
        return nullptr;
    }
    *size = bytes;
    return data;
}

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
        size_t size = 0;
        uint8_t* data = ReadWhole(fileName, &size);
        if (!data) return false;
        set.fileName = fileName;
        const bool ok = r.read(set, fileName, data, size);
        qfree(data);
        return ok;
    }
    return set.Import(fileName);
}

} // namespace tarvik
