// QArchive: many compressed files in one container file, and QArchiveWriter, which makes one.
//
// Container layout, all numbers little-endian:
//
//   0   4 bytes  "QARC"
//   4   uint32   version, 1
//   8   uint32   offset of the directory in the file
//   12  uint32   size of the directory in bytes
//   16  ...      members, then the directory (the writer puts it last, so it can stream members)
//
// The directory is a run of entries: a zero-terminated name without directories, the member's
// offset (uint32) and its expanded size (uint32). A member is any number of skipped blocks (a tag
// byte other than 'D', a uint32 length, that many bytes), the tag 'D', then chunks: a uint16 size
// and that many bytes, a size of 0 ending the member. Every chunk expands on its own to at most
// MAX_CHUNK bytes; copies never reach into an earlier chunk.
//
// Chunk bytes: byte 0 is STORED_CHUNK (the rest is the data as it is) or anything else (compressed).
// A compressed chunk is a big-endian control word at bytes 1-2, walked from bit 15 down, and items:
// bit 0 a literal byte; bit 1 two bytes a, b with a copy of (b & 15) + 3 bytes from a*16 + (b >> 4)
// back; bit 1 with those 12 bits 0: four bytes 0, b, c, d, giving d repeated b*256 + c + 16 times.
// After 16 items the next two bytes are the next control word, wherever the walk stands.
//
// Contract: the archive never trusts the file. Open refuses a directory that does not parse to its
// end; a member is only allocated after its size has been checked against the bytes behind its
// offset; the decoder never writes beyond the block it is given. Every fault is reported once and
// gives false. One object is one open file; it is not for two threads at a time.
#pragma once

#include "foundation/qfilesys.h"
#include "foundation/qobject.h"
#include "foundation/qoutput.h"

#include <cstdint>
#include <cstdio>

namespace tarvik {

class QFile;
class qstring;

// Called once per chunk while a member expands; false stops the expansion (quietly, with false).
typedef bool (*QArchiveProgressFunc)(void* user, long position, int total);

enum {
    QARCHIVE_NO_OUTPUT_FILE = 1, // DecompressFile flag: expand into memory only
};

class QArchive : public QObject, public QVfsArchive {
  public:
    enum {
        MAX_CHUNK = 20000, // largest chunk, stored and expanded
        HEADER_SIZE = 16,
        VERSION = 1,
        STORED_CHUNK = 128, // first byte of a chunk stored as it is
        MEMBER_TAG = 'D',
    };

    QArchive();
    explicit QArchive(const char* fileName); // calls Open; IsOpen() tells
    ~QArchive() override;

    const char* ClassName() const override { return "QArchive"; }

    bool Open(const char* fileName); // reads the head and the directory; reports why not
    // The same on an archive in memory, which must outlive the object; 'name' names it in reports.
    bool OpenMemory(const char* name, const void* data, size_t size);
    void Close();
    bool IsOpen() const { return file != nullptr; }

    void SetProgress(QArchiveProgressFunc func, void* user, int total);

    // The entry at the walk's cursor, then the cursor moves on. False at the end of the directory.
    // 'offset' and 'size' may be null.
    bool GetNextEntry(qstring& name, int* offset, int* size);
    // Restarts the walk and looks for exactly this name, case counting. With 'seek' the file is
    // moved to the member, ready for DecompressFile.
    bool FindEntry(const char* name, bool seek);

    // Expands the member at the file's position: into 'memory' (which has room for exactly
    // 'memorySize' bytes) if given, and into the file 'outName' unless 'flags' has
    // QARCHIVE_NO_OUTPUT_FILE. '*expanded' gets the bytes expanded, also on failure. The file is
    // written whole or not at all: a member that fails leaves the old file of that name as it was.
    bool DecompressFile(const char* outName, int flags, int* expanded, void* memory, int memorySize);
    // The same into a stream the caller opened and closes, 'outName' naming it in reports; for a
    // caller that checks the expanded size before the output takes its name.
    bool DecompressToStream(FILE* out, const char* outName, int* expanded);

    // The member of this name, whatever its case, in a block from qmalloc of exactly '*size' bytes.
    // '*memory' is null or a block that belongs to the caller, false result included: a member cut
    // short leaves what expanded so far.
    bool LoadFile(const char* name, void** memory, int* size);
    QFile* OpenFile(const char* name); // LoadFile in a memory QFile that frees the block; or null

    // Expands one chunk of 'n' bytes into 'out', which has room for 'outSize' bytes. Gives the length
    // the chunk expands to; bytes beyond 'outSize' are counted, never written. A damaged chunk gives
    // -1 and '*fault' (if given) says why, in a static text.
    static int DecompressChunk(const uint8_t* in, uint8_t* out, int n, int outSize,
                               const char** fault = nullptr);

    // QVfsArchive: the virtual file system asks with bare member names.
    const char* GetArchiveFileName() const override { return GetName(); }
    bool HasFile(const char* name) override { return FindEntry(name, false); }
    QFile* OpenMember(const char* name) override { return OpenFile(name); }

  private:
    bool OpenStream(const char* fileName, FILE* f); // takes 'f' over, from qfopen or qfopenmem
    bool SeekMember(int offset, int size); // checks the entry against the file, then seeks
    bool Expand(FILE* out, const char* outName, int* expanded, void* memory, int memorySize);
    bool ReadBytes(void* buffer, int n);

    FILE* file; // owned, from qfopen; null while no archive is open
    long fileSize;
    int progressTotal;
    QArchiveProgressFunc progressFunc;
    void* progressUser; // borrowed
    uint8_t* directory; // owned
    int32_t directorySize;
    const uint8_t* cursor; // into 'directory'; null starts the walk at the beginning
    uint8_t inBuffer[MAX_CHUNK];
    uint8_t outBuffer[MAX_CHUNK];
};

// QArchiveWriter: packs members into a new archive. Members are compressed chunk by chunk as they
// are added and written at once to a temporary file beside the target; the directory waits in
// memory until Finish, and the archive takes its name only then. Until Finish succeeds, an old file
// of that name stays as it was.
class QArchiveWriter {
  public:
    QArchiveWriter();
    ~QArchiveWriter(); // an unfinished archive is abandoned
    QArchiveWriter(const QArchiveWriter&) = delete;
    QArchiveWriter& operator=(const QArchiveWriter&) = delete;

    bool Create(const char* fileName);
    // A name without directories, unique regardless of case (LoadFile could not tell them apart).
    bool AddMember(const char* name, const void* data, int size);
    bool Finish(); // writes the directory and the head, and puts the archive in place
    void Abort();  // leaves no trace; an old file of the name stands

    long GetPackedSize() const { return written; }
    // Where the bytes go until Finish: the temporary file, or the name itself for a device or
    // pipe. A caller that packs a folder skips it, so that the archive never packs itself.
    const char* GetWorkName() const { return output.WorkName(); }

    // Packs up to 'n' (at most MAX_CHUNK) bytes into one chunk, 'out' having room for MAX_CHUNK
    // bytes. Gives the chunk's size; '*consumed' gets the input bytes it holds, which is 'n' unless
    // only a stored chunk of MAX_CHUNK - 1 bytes would fit.
    int CompressChunk(const uint8_t* in, int n, uint8_t* out, int* consumed);

    int maxChain; // candidates tried per position by the match finder; more packs tighter, slower

  private:
    bool Write(const void* data, int n);
    bool AppendDirectory(const void* data, int n);

    QOutput output;
    FILE* file;     // borrowed from 'output'; null while no archive is being written
    char* fileName; // owned, from qstrdup
    long written;
    bool failed;        // a write failed; Finish refuses
    uint8_t* directory; // owned, grows by doubling
    int directorySize;
    int directoryCapacity;
    struct QArchivePackState* pack; // owned: the match finder's and the parser's tables
};

} // namespace tarvik
