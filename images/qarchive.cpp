// QArchive: opening a container, walking its directory, expanding members.
#include "images/qarchive.h"

#include "images/qbytes.h"

#include "foundation/qfile.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "foundation/qoutput.h"
#include "foundation/qstring.h"

#include <cctype>
#include <climits>
#include <cstring>

namespace tarvik {

namespace {

const char archiveMagic[4] = {'Q', 'A', 'R', 'C'};

// No member can expand to more than this many times the file bytes behind its offset. A chunk gives
// at most MAX_CHUNK bytes, and the densest chunk that reaches it is a size word, the first byte, one
// control word and five runs of four bytes: 25 bytes of file for 20000 of output. A size beyond
// that is a lie, refused before anything is allocated for it.
const long maxExpansion = 800;

// Compared after lower-casing both sides with the C library's tolower, as qstrlwr does.
bool SameIgnoringCase(const char* a, const char* b) {
    for (;; a++, b++) {
        int ca = std::tolower((unsigned char)*a), cb = std::tolower((unsigned char)*b);
        if (ca != cb) return false;
        if (!ca) return true;
    }
}

// One directory entry, parsed without copying its name. Null when no complete entry starts at 'p'.
const uint8_t* ParseEntry(const uint8_t* p, const uint8_t* end, const char** name, int* offset, int* size) {
    if (p >= end) return nullptr;
    const uint8_t* zero = static_cast<const uint8_t*>(std::memchr(p, 0, size_t(end - p)));
    if (!zero || end - (zero + 1) < 8) return nullptr;
    *name = reinterpret_cast<const char*>(p);
    // Sizes and offsets above INT_MAX come out negative, and nothing accepts a negative one.
    *offset = int32_t(QGetLE32(zero + 1));
    *size = int32_t(QGetLE32(zero + 5));
    return zero + 9;
}

int Fault(const char** fault, const char* why) {
    if (fault) *fault = why;
    return -1;
}

} // namespace

QArchive::QArchive()
    : file(nullptr), fileSize(0), progressTotal(0), progressFunc(nullptr), progressUser(nullptr),
      directory(nullptr), directorySize(0), cursor(nullptr) {}

QArchive::QArchive(const char* fileName) : QArchive() {
    Open(fileName);
}

QArchive::~QArchive() {
    Close();
}

void QArchive::Close() {
    if (file) qfclose(file);
    file = nullptr;
    if (directory) qfree(directory);
    directory = nullptr;
    directorySize = 0;
    cursor = nullptr;
    fileSize = 0;
}

bool QArchive::Open(const char* fileName) {
    Close();
    if (!fileName || !fileName[0]) {
        QERROR("QArchive:Open(); no file name");
        return false;
    }
    FILE* f = qfopen(fileName, "rb");
    if (!f) {
        QERROR("QArchive:Open(); can't open '%s'", fileName);
        return false;
    }
    return OpenStream(fileName, f);
}

bool QArchive::OpenMemory(const char* name, const void* data, size_t size) {
    Close();
    FILE* f = qfopenmem(data, size);
    if (!f) {
        QERROR("QArchive:Open(); can't open '%s'", name);
        return false;
    }
    return OpenStream(name, f);
}

bool QArchive::OpenStream(const char* fileName, FILE* f) {
    long size = -1;
    if (std::fseek(f, 0, SEEK_END) == 0) size = std::ftell(f);
    std::fseek(f, 0, SEEK_SET);
    uint8_t head[HEADER_SIZE];
    if (size < HEADER_SIZE || std::fread(head, 1, HEADER_SIZE, f) != HEADER_SIZE ||
        std::memcmp(head, archiveMagic, 4) != 0) {
        QERROR("QArchive:Open(); '%s' is not an archive", fileName);
        qfclose(f);
        return false;
    }
    if (QGetLE32(head + 4) != VERSION) {
        QERROR("QArchive:Open(); '%s' has version %u (can read %d)", fileName, QGetLE32(head + 4), VERSION);
        qfclose(f);
        return false;
    }
    // Offsets are signed 32-bit in the interface: a file past that can't be addressed.
    if (size > INT32_MAX) {
        QERROR("QArchive:Open(); '%s' is larger than 2 GB", fileName);
        qfclose(f);
        return false;
    }

    // The directory is checked against the file's size in 64 bits before any of it is allocated.
    int64_t dirOffset = QGetLE32(head + 8), dirSize = QGetLE32(head + 12);
    if (dirOffset < HEADER_SIZE || dirOffset + dirSize > size) {
        QERROR("QArchive:Open(); directory of '%s' lies outside the file (offset %lld, size %lld, file %ld)",
               fileName, (long long)dirOffset, (long long)dirSize, size);
        qfclose(f);
        return false;
    }
    uint8_t* dir = static_cast<uint8_t*>(qmalloc(size_t(dirSize)));
    if (!dir) {
        QERROR("QArchive:Open(); out of memory for the directory of '%s' (%lld bytes)", fileName,
               (long long)dirSize);
        qfclose(f);
        return false;
    }
    if (std::fseek(f, long(dirOffset), SEEK_SET) != 0 ||
        std::fread(dir, 1, size_t(dirSize), f) != size_t(dirSize)) {
        QERROR("QArchive:Open(); can't read the directory of '%s'", fileName);
        qfree(dir);
        qfclose(f);
        return false;
    }

    // Every entry has to parse, so that a walk never meets half an entry.
    const uint8_t* end = dir + dirSize;
    int count = 0;
    for (const uint8_t* p = dir; p < end; count++) {
        const char* name;
        int offset, entrySize;
        const uint8_t* next = ParseEntry(p, end, &name, &offset, &entrySize);
        if (!next) {
            if (!std::memchr(p, 0, size_t(end - p)))
                QERROR("QArchive:Open(); '%s': name of entry %d has no end", fileName, count + 1);
            else
                QERROR("QArchive:Open(); '%s': entry %d runs past the end of the directory", fileName,
                       count + 1);
            qfree(dir);
            qfclose(f);
            return false;
        }
        p = next;
    }

    // The virtual file system knows an archive by this name: one that lost it is of no use.
    SetName(fileName);
    if (std::strcmp(GetName(), fileName) != 0) {
        QERROR("QArchive:Open(); out of memory for the name '%s'", fileName);
        qfree(dir);
        qfclose(f);
        return false;
    }
    file = f;
    fileSize = size;
    directory = dir;
    directorySize = int32_t(dirSize);
    cursor = nullptr;
    return true;
}

void QArchive::SetProgress(QArchiveProgressFunc func, void* user, int total) {
    progressFunc = func;
    progressUser = user;
    progressTotal = total;
}

bool QArchive::GetNextEntry(qstring& name, int* offset, int* size) {
    if (!file || !directory) return false;
    const uint8_t* end = directory + directorySize;
    const char* entryName;
    int entryOffset, entrySize;
    const uint8_t* next = ParseEntry(cursor ? cursor : directory, end, &entryName, &entryOffset, &entrySize);
    if (!next) {
        cursor = end;
        return false;
    }
    cursor = next;
    name = entryName;
    if (offset) *offset = entryOffset;
    if (size) *size = entrySize;
    return true;
}

bool QArchive::FindEntry(const char* name, bool seek) {
    cursor = nullptr;
    if (!file || !name) return false;
    const uint8_t* end = directory + directorySize;
    const char* entryName;
    int offset, size;
    for (const uint8_t* p = directory; (p = ParseEntry(p, end, &entryName, &offset, &size)) != nullptr;) {
        cursor = p;
        if (std::strcmp(entryName, name) != 0) continue;
        return seek ? SeekMember(offset, size) : true;
    }
    cursor = end;
    return false;
}

bool QArchive::SeekMember(int offset, int size) {
    if (offset < HEADER_SIZE || offset >= fileSize) {
        QERROR("QArchive: member offset %d lies outside '%s' (%ld bytes)", offset, GetName(), fileSize);
        return false;
    }
    if (size > 0 && int64_t(size) > int64_t(fileSize - offset) * maxExpansion) {
        QERROR("QArchive: member of %d bytes can't come from the %ld bytes behind offset %d in '%s'", size,
               fileSize - offset, offset, GetName());
        return false;
    }
    if (std::fseek(file, offset, SEEK_SET) != 0) {
        QERROR("QArchive: can't seek to offset %d in '%s'", offset, GetName());
        return false;
    }
    return true;
}

bool QArchive::ReadBytes(void* buffer, int n) {
    return std::fread(buffer, 1, size_t(n), file) == size_t(n);
}

int QArchive::DecompressChunk(const uint8_t* in, uint8_t* out, int n, int outSize, const char** fault) {
    if (n <= 0) return 0;
    if (outSize < 0) outSize = 0;
    // A stored chunk of any size holds n - 1 bytes; the writer only stores three bytes or more.
    if (in[0] == STORED_CHUNK) {
        int length = n - 1;
        int fits = length < outSize ? length : outSize;
        if (fits > 0) std::memcpy(out, in + 1, size_t(fits));
        return length;
    }
    if (n <= 3) return 0;

    // Output positions stay below MAX_CHUNK in a good chunk; a bad one may count on, in an int, to at
    // most 4111 bytes for every 4 input bytes, and what lies past 'outSize' is never written.
    unsigned control = unsigned(in[1]) << 8 | in[2];
    int bits = 16;
    int ip = 3, op = 0;
    while (ip < n) {
        if (bits == 0) {
            if (n - ip < 2) return Fault(fault, "control word cut off at the end of the chunk");
            control = unsigned(in[ip]) << 8 | in[ip + 1];
            ip += 2;
            bits = 16;
            if (ip == n) break; // a control word with no items behind it says nothing
        }
        bits--;
        if (!(control & 0x8000)) {
            if (op < outSize) out[op] = in[ip];
            op++;
            ip++;
        } else {
            if (n - ip < 2) return Fault(fault, "copy cut off at the end of the chunk");
            unsigned a = in[ip], b = in[ip + 1];
            if (a == 0 && b < 16) {
                if (n - ip < 4) return Fault(fault, "run cut off at the end of the chunk");
                int length = int(b) * 256 + in[ip + 2] + 16;
                uint8_t value = in[ip + 3];
                ip += 4;
                if (op < outSize)
                    std::memset(out + op, value, size_t(length < outSize - op ? length : outSize - op));
                op += length;
            } else {
                int offset = int(a) * 16 + int(b >> 4);
                int length = int(b & 15) + 3;
                ip += 2;
                if (offset > op) return Fault(fault, "copy reaches before the start of the chunk");
                if (op < outSize) {
                    // Byte by byte: a copy that overlaps itself repeats what it has just written.
                    int m = length < outSize - op ? length : outSize - op;
                    uint8_t* d = out + op;
                    const uint8_t* s = d - offset;
                    for (int k = 0; k < m; k++)
                        d[k] = s[k];
                }
                op += length;
            }
        }
        control <<= 1;
    }
    return op;
}

bool QArchive::DecompressFile(const char* outName, int flags, int* expanded, void* memory, int memorySize) {
    if (flags & QARCHIVE_NO_OUTPUT_FILE) return Expand(nullptr, outName, expanded, memory, memorySize);
    if (expanded) *expanded = 0;
    if (!file) {
        QERROR("QArchive:DecompressFile(); no archive open");
        return false;
    }
    QOutput out;
    if (!outName || !out.Open(outName, PLATFORM_OUTPUT_BINARY)) {
        QERROR("Can't open '%s' for output", outName ? outName : "");
        return false;
    }
    if (!Expand(out.Stream(), outName, expanded, memory, memorySize)) return false; // 'out' abandoned
    // Buffered bytes reach the disk only here: a failed commit is a failed write.
    if (!out.Commit()) {
        std::printf("Can't write to %s\n", outName);
        return false;
    }
    return true;
}

bool QArchive::DecompressToStream(FILE* out, const char* outName, int* expanded) {
    if (!out) {
        if (expanded) *expanded = 0;
        QERROR("Can't open '%s' for output", outName ? outName : "");
        return false;
    }
    return Expand(out, outName ? outName : "", expanded, nullptr, 0);
}

bool QArchive::Expand(FILE* out, const char* outName, int* expanded, void* memory, int memorySize) {
    if (expanded) *expanded = 0;
    if (!file) {
        QERROR("QArchive:DecompressFile(); no archive open");
        return false;
    }
    // Skipped blocks, up to the data tag. Each one is checked against the file, so the walk ends.
    for (;;) {
        int tag = std::fgetc(file);
        if (tag == MEMBER_TAG) break;
        uint8_t length[4];
        if (tag == EOF || !ReadBytes(length, 4) || long(QGetLE32(length)) > fileSize - std::ftell(file)) {
            QERROR("QArchive: member in '%s' ends before its data", GetName());
            return false;
        }
        std::fseek(file, long(QGetLE32(length)), SEEK_CUR);
    }

    uint8_t* mem = static_cast<uint8_t*>(memory);
    int memLeft = mem && memorySize > 0 ? memorySize : 0;
    int total = 0;
    bool ok = true;
    uint8_t word[2];
    int chunk = ReadBytes(word, 2) ? word[0] | word[1] << 8 : -1;
    while (chunk != 0) {
        if (chunk < 0) {
            QERROR("QArchive: member in '%s' ends before its end mark", GetName());
            ok = false;
            break;
        }
        if (chunk > MAX_CHUNK) {
            QERROR("QArchive: attempt to read decompress chunk of size %d (max %d)", chunk, int(MAX_CHUNK));
            ok = false;
            break;
        }
        long position = std::ftell(file);
        if (progressFunc && !progressFunc(progressUser, position, progressTotal)) {
            ok = false;
            break;
        }
        if (!ReadBytes(inBuffer, chunk)) {
            QERROR("QArchive: member in '%s' cut short in a chunk of %d bytes at %ld", GetName(), chunk,
                   position);
            ok = false;
            break;
        }
        uint8_t* target = mem ? mem : outBuffer;
        int room = mem ? (memLeft < MAX_CHUNK ? memLeft : int(MAX_CHUNK)) : int(MAX_CHUNK);
        const char* fault = "";
        int length = DecompressChunk(inBuffer, target, chunk, room, &fault);
        if (length < 0) {
            QERROR("QArchive: damaged chunk at %ld in '%s': %s", position, GetName(), fault);
            ok = false;
            break;
        }
        if (length > MAX_CHUNK) {
            QERROR("QArchive: decompressed chunk overflow of size %d (max %d)", length, int(MAX_CHUNK));
            ok = false;
            break;
        }
        if (mem && length > memLeft) {
            // What fitted stays in the block, as a member cut short leaves what came.
            total += memLeft;
            QERROR("QArchive: member in '%s' expands beyond its size of %d bytes", GetName(), memorySize);
            ok = false;
            break;
        }
        total += length;
        if (mem) {
            mem += length;
            memLeft -= length;
        }
        if (out && std::fwrite(target, 1, size_t(length), out) != size_t(length)) {
            std::printf("Can't write to %s\n", outName);
            ok = false;
            break;
        }
        chunk = ReadBytes(word, 2) ? word[0] | word[1] << 8 : -1;
    }
    if (expanded) *expanded = total;
    return ok;
}

bool QArchive::LoadFile(const char* name, void** memory, int* size) {
    *memory = nullptr;
    *size = 0;
    cursor = nullptr;
    if (!file || !name) return false;
    const uint8_t* end = directory + directorySize;
    const char* entryName;
    int offset, entrySize;
    for (const uint8_t* p = directory;
         (p = ParseEntry(p, end, &entryName, &offset, &entrySize)) != nullptr;) {
        cursor = p;
        if (!SameIgnoringCase(entryName, name)) continue;
        // An empty member can be extracted to a file, but a block of 0 bytes is no file in memory.
        if (entrySize < 1) {
            QWARNING("QArchive:LoadFile(%s); member has size %d in '%s'", name, entrySize, GetName());
            return false;
        }
        if (!SeekMember(offset, entrySize)) return false;
        void* block = qmalloc(size_t(entrySize));
        if (!block) {
            QERROR("QArchive:LoadFile(%s); out of memory for %d bytes", name, entrySize);
            return false;
        }
        *memory = block;
        *size = entrySize;
        int expanded = 0;
        if (!DecompressFile("", QARCHIVE_NO_OUTPUT_FILE, &expanded, block, entrySize)) return false;
        // A member that ends early would leave the rest of the block as it came from the allocator.
        if (expanded != entrySize) {
            QERROR("QArchive:LoadFile(%s); member expands to %d bytes, directory says %d", name, expanded,
                   entrySize);
            return false;
        }
        return true;
    }
    cursor = end;
    return false;
}

QFile* QArchive::OpenFile(const char* name) {
    void* memory = nullptr;
    int size = 0;
    if (!LoadFile(name, &memory, &size)) {
        if (memory) qfree(memory);
        return nullptr;
    }
    QFile* member = new QFile(name, memory, size);
    member->KeepMemory();
    return member;
}

} // namespace tarvik
