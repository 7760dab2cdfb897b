// QArchiveWriter: packing members into a new archive.
//
// The chunk format fixes only how a chunk decodes, so the packer is free to search. Every item has a
// fixed price in bits (a literal 9, a copy 17, a run 33, control bits included), which makes the
// cheapest parse of a chunk a shortest path: the packer finds the longest match at every position
// with hash chains over the chunk (copies never reach into an earlier chunk), then picks items by
// dynamic programming over the chunk, and stores the chunk as it is when that is no larger.
#include "images/qarchive.h"

#include "images/qbytes.h"

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"

#include <cctype>
#include <climits>
#include <cstring>

namespace tarvik {

namespace {

const int minCopy = 3;
const int maxCopy = 18;
const int maxOffset = 4095;
const int minRun = 16;
const int maxRun = 4111;
const int literalBits = 9;
const int copyBits = 17;
const int runBits = 33;
const int hashBits = 15;
const int defaultMaxChain = 128;

enum { ITEM_LITERAL = 0, ITEM_COPY = 1, ITEM_RUN = 2 };

bool SameIgnoringCase(const char* a, const char* b) {
    for (;; a++, b++) {
        int ca = std::tolower((unsigned char)*a), cb = std::tolower((unsigned char)*b);
        if (ca != cb) return false;
        if (!ca) return true;
    }
}

inline uint32_t Hash3(const uint8_t* p) {
    uint32_t v = uint32_t(p[0]) << 16 | uint32_t(p[1]) << 8 | p[2];
    return (v * 2654435761u) >> (32 - hashBits);
}

} // namespace

// Tables for one chunk, indexed by position in the chunk; reused for every chunk.
struct QArchivePackState {
    int16_t head[1 << hashBits];        // latest position of each hash, -1 for none
    int16_t chain[QArchive::MAX_CHUNK]; // the previous position with the same hash
    uint8_t matchLength[QArchive::MAX_CHUNK];
    uint16_t matchOffset[QArchive::MAX_CHUNK];
    uint16_t runLength[QArchive::MAX_CHUNK]; // equal bytes from here on, this one included
    uint32_t cost[QArchive::MAX_CHUNK + 1];  // cheapest bits to reach a position
    uint16_t step[QArchive::MAX_CHUNK + 1];  // length of the item that reaches it that cheaply
    uint8_t kind[QArchive::MAX_CHUNK + 1];
    uint16_t path[QArchive::MAX_CHUNK + 1]; // item start positions, last first
};

QArchiveWriter::QArchiveWriter()
    : maxChain(defaultMaxChain), file(nullptr), fileName(nullptr), written(0), failed(false),
      directory(nullptr), directorySize(0), directoryCapacity(0), pack(nullptr) {}

QArchiveWriter::~QArchiveWriter() {
    if (file) Abort();
    if (fileName) qfree(fileName);
    if (directory) qfree(directory);
    if (pack) qfree(pack);
}

bool QArchiveWriter::Create(const char* name) {
    if (file) Abort();
    if (fileName) qfree(fileName);
    fileName = nullptr;
    directorySize = 0;
    written = 0;
    failed = false;
    if (!name || !output.Open(name, PLATFORM_OUTPUT_BINARY)) {
        QERROR("QArchiveWriter:Create(); can't open '%s' for output", name ? name : "");
        return false;
    }
    file = output.Stream();
    fileName = qstrdup(name);
    // The head's directory fields are filled by Finish.
    uint8_t head[QArchive::HEADER_SIZE] = {'Q', 'A', 'R', 'C'};
    QPutLE32(head + 4, QArchive::VERSION);
    return Write(head, sizeof head);
}

bool QArchiveWriter::Write(const void* data, int n) {
    if (failed) return false;
    if (std::fwrite(data, 1, size_t(n), file) != size_t(n)) {
        QERROR("QArchiveWriter: can't write to '%s'", fileName);
        failed = true;
        return false;
    }
    written += n;
    return true;
}

bool QArchiveWriter::AppendDirectory(const void* data, int n) {
    if (directorySize + n > directoryCapacity) {
        int capacity = directoryCapacity ? directoryCapacity : 4096;
        while (capacity < directorySize + n)
            capacity *= 2;
        uint8_t* grown = static_cast<uint8_t*>(qmalloc(size_t(capacity)));
        if (!grown) {
            QERROR("QArchiveWriter: out of memory for the directory of '%s'", fileName);
            failed = true;
            return false;
        }
        if (directory) {
            std::memcpy(grown, directory, size_t(directorySize));
            qfree(directory);
        }
        directory = grown;
        directoryCapacity = capacity;
    }
    std::memcpy(directory + directorySize, data, size_t(n));
    directorySize += n;
    return true;
}

bool QArchiveWriter::AddMember(const char* name, const void* data, int size) {
    if (!file || failed) return false;
    if (!name || !name[0] || std::strchr(name, '/') || std::strchr(name, '\\') || size < 0 ||
        (size > 0 && !data)) {
        QERROR("QArchiveWriter:AddMember(%s); a member needs a name without directories", name ? name : "");
        return false;
    }
    for (const uint8_t* p = directory; p < directory + directorySize;) {
        const char* other = reinterpret_cast<const char*>(p);
        if (SameIgnoringCase(other, name)) {
            QERROR("QArchiveWriter:AddMember(%s); '%s' is in the archive already, and names are found "
                   "regardless of case",
                   name, other);
            return false;
        }
        p += std::strlen(other) + 9;
    }
    // The worst case is a stored chunk for every MAX_CHUNK - 1 bytes: offsets stay signed 32-bit.
    long worst = written + 1 + (long(size) / (QArchive::MAX_CHUNK - 1) + 1) * (QArchive::MAX_CHUNK + 2) + 2;
    if (worst > INT32_MAX) {
        QERROR("QArchiveWriter:AddMember(%s); the archive would pass 2 GB", name);
        return false;
    }

    long offset = written;
    uint8_t tag = QArchive::MEMBER_TAG;
    if (!Write(&tag, 1)) return false;
    const uint8_t* in = static_cast<const uint8_t*>(data);
    uint8_t chunk[2 + QArchive::MAX_CHUNK];
    for (int done = 0; done < size;) {
        int want = size - done < QArchive::MAX_CHUNK ? size - done : int(QArchive::MAX_CHUNK);
        int consumed = 0;
        int n = CompressChunk(in + done, want, chunk + 2, &consumed);
        chunk[0] = uint8_t(n);
        chunk[1] = uint8_t(n >> 8);
        if (!Write(chunk, 2 + n)) return false;
        done += consumed;
    }
    uint8_t endMark[2] = {0, 0};
    if (!Write(endMark, 2)) return false;

    uint8_t numbers[8];
    QPutLE32(numbers, uint32_t(offset));
    QPutLE32(numbers + 4, uint32_t(size));
    return AppendDirectory(name, int(std::strlen(name)) + 1) && AppendDirectory(numbers, 8);
}

bool QArchiveWriter::Finish() {
    if (!file) return false;
    long dirOffset = written;
    bool ok = !failed && (directorySize == 0 || Write(directory, directorySize));
    if (ok) {
        uint8_t fields[8];
        QPutLE32(fields, uint32_t(dirOffset));
        QPutLE32(fields + 4, uint32_t(directorySize));
        ok = std::fseek(file, 8, SEEK_SET) == 0 && std::fwrite(fields, 1, 8, file) == 8;
        if (!ok) QERROR("QArchiveWriter: can't write to '%s'", fileName);
    }
    if (!ok) {
        Abort();
        return false;
    }
    file = nullptr;
    // Buffered bytes reach the disk here; a failed flush or rename leaves the old file standing.
    if (!output.Commit()) {
        QERROR("QArchiveWriter: can't write to '%s'", fileName);
        return false;
    }
    return true;
}

void QArchiveWriter::Abort() {
    file = nullptr;
    output.Abandon();
}

int QArchiveWriter::CompressChunk(const uint8_t* in, int n, uint8_t* out, int* consumed) {
    if (n > QArchive::MAX_CHUNK) n = QArchive::MAX_CHUNK;
    if (n <= 0) {
        *consumed = 0;
        return 0;
    }
    // Without its tables the packer stores every chunk as it is. Otherwise a chunk is stored when
    // that is no larger, but only with three bytes or more, so that no chunk of three bytes or less
    // has to carry data.
    if (!pack) {
        pack = static_cast<QArchivePackState*>(qmalloc(sizeof(QArchivePackState)));
        if (!pack) QWARNING("QArchiveWriter: out of memory for the packer; storing chunks as they are");
    }
    QArchivePackState* s = pack;
    int bytes = INT_MAX; // the compressed chunk's size, if there is one
    int items = 0;
    if (s) {
        // Longest match at every position, within the chunk and the reach of a copy.
        std::memset(s->head, 0xFF, sizeof s->head);
        for (int i = 0; i < n; i++) {
            s->matchLength[i] = 0;
            s->matchOffset[i] = 0;
            if (n - i < minCopy) continue;
            uint32_t h = Hash3(in + i);
            int candidate = s->head[h];
            s->head[h] = int16_t(i);
            s->chain[i] = int16_t(candidate);
            int limit = n - i < maxCopy ? n - i : maxCopy;
            int best = minCopy - 1, bestOffset = 0;
            const uint8_t* here = in + i;
            for (int tries = maxChain; candidate >= 0 && i - candidate <= maxOffset && tries > 0; tries--) {
                const uint8_t* there = in + candidate;
                if (there[best] == here[best]) {
                    int len = 0;
                    while (len < limit && there[len] == here[len])
                        len++;
                    if (len > best) {
                        best = len;
                        bestOffset = i - candidate;
                        if (best == limit) break;
                    }
                }
                candidate = s->chain[candidate];
            }
            if (best >= minCopy) {
                s->matchLength[i] = uint8_t(best);
                s->matchOffset[i] = uint16_t(bestOffset);
            }
        }
        s->runLength[n - 1] = 1;
        for (int i = n - 2; i >= 0; i--)
            s->runLength[i] = in[i] == in[i + 1] ? uint16_t(s->runLength[i + 1] + 1) : 1;

        // Cheapest parse, front to back. Every copy length up to the longest match is possible at
        // the same price; a run is tried at its longest, which is where it pays.
        s->cost[0] = 0;
        for (int i = 1; i <= n; i++)
            s->cost[i] = UINT32_MAX;
        for (int i = 0; i < n; i++) {
            uint32_t c = s->cost[i];
            if (c + literalBits < s->cost[i + 1]) {
                s->cost[i + 1] = c + literalBits;
                s->step[i + 1] = 1;
                s->kind[i + 1] = ITEM_LITERAL;
            }
            if (s->runLength[i] >= minRun) {
                int len = s->runLength[i] < maxRun ? s->runLength[i] : maxRun;
                if (c + runBits < s->cost[i + len]) {
                    s->cost[i + len] = c + runBits;
                    s->step[i + len] = uint16_t(len);
                    s->kind[i + len] = ITEM_RUN;
                }
            }
            for (int len = minCopy; len <= s->matchLength[i]; len++) {
                if (c + copyBits < s->cost[i + len]) {
                    s->cost[i + len] = c + copyBits;
                    s->step[i + len] = uint16_t(len);
                    s->kind[i + len] = ITEM_COPY;
                }
            }
        }
        int itemBytes = 0;
        for (int j = n; j > 0; j -= s->step[j]) {
            s->path[items++] = uint16_t(j);
            itemBytes += s->kind[j] == ITEM_LITERAL ? 1 : s->kind[j] == ITEM_COPY ? 2 : 4;
        }
        bytes = 1 + 2 * ((items + 15) / 16) + itemBytes;
    }

    if (bytes > QArchive::MAX_CHUNK || (bytes >= n + 1 && n >= 3)) {
        int take = n < QArchive::MAX_CHUNK ? n : QArchive::MAX_CHUNK - 1;
        out[0] = QArchive::STORED_CHUNK;
        std::memcpy(out + 1, in, size_t(take));
        *consumed = take;
        return take + 1;
    }

    // The items, first to last; a control word goes in front of every sixteen.
    out[0] = 0;
    int control = 1, op = 3, used = 0;
    unsigned bits = 0;
    for (int m = items - 1; m >= 0; m--) {
        int end = s->path[m];
        int len = s->step[end];
        int start = end - len;
        if (used == 16) {
            out[control] = uint8_t(bits >> 8);
            out[control + 1] = uint8_t(bits);
            control = op;
            op += 2;
            bits = 0;
            used = 0;
        }
        if (s->kind[end] == ITEM_LITERAL) {
            out[op++] = in[start];
        } else if (s->kind[end] == ITEM_COPY) {
            bits |= 0x8000u >> used;
            int offset = s->matchOffset[start];
            out[op++] = uint8_t(offset >> 4);
            out[op++] = uint8_t((offset & 15) << 4 | (len - minCopy));
        } else {
            bits |= 0x8000u >> used;
            int count = len - minRun;
            out[op++] = 0;
            out[op++] = uint8_t(count >> 8);
            out[op++] = uint8_t(count);
            out[op++] = in[start];
        }
        used++;
    }
    out[control] = uint8_t(bits >> 8);
    out[control + 1] = uint8_t(bits);
    *consumed = n;
    return op;
}

} // namespace tarvik
