#include "foundation/qfile.h"

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "foundation/qstring.h"
#include "platform/platform.h"

#include <climits>
#include <cstring>

namespace tarvik {

// The line buffer of Read(qstring&), shared by all QFile objects.
static char* lineBuffer;
static int lineBufferSize;

static const char* StreamMode(int mode)
{
    switch (mode) {
    case QFile::READ: return "rb";
    case QFile::WRITE: return "wb";
    case QFile::READ_WRITE: return "rb+";
    case QFile::WRITE_READ: return "wb+";
    case QFile::READ_TEXT: return "r";
    case QFile::APPEND_TEXT: return "a";
    case QFile::APPEND_READ_TEXT: return "a+";
    case QFile::APPEND: return "ab";
    case QFile::WRITE_TEXT: return "w";
    default: return nullptr;
    }
}

QFile::QFile(const char* name, int modeArg)
    : stream(nullptr), mode(modeArg & 0xFF), ungetChar(0), flags(0), mem(nullptr), memSize(0), memPos(0)
{
    SetName(name);
    bool preload = (modeArg & MEMORY) != 0;
    if (preload && mode == READ_TEXT) {
        QERROR("QFile ctor: READ_TEXT and MEMORY flags are incompatible (buggy); turning off MEMORY");
        preload = false;
    }
    const char* how = StreamMode(mode);
    if (!how || !name) return;
    // A folder opens for reading on this system, and every read of it fails without reaching the
    // end: it is not open, as a missing file isn't.
    PlatformFileStatus status;
    if (PlatformStat(name, &status) && status.isDirectory) return;
    stream = qfopen(name, how);
    if (!stream || !preload) return;
    if (mode != READ) {
        QWARNING("QFile:ctor MEMORY req'd for '%s' but incompatible mode given", name);
        return;
    }

    std::fseek(stream, 0, SEEK_END);
    long size = std::ftell(stream);
    if (size <= 0) { // an empty file stays a stream; so does one whose size can't be told
        std::fseek(stream, 0, SEEK_SET);
        return;
    }
    uint8_t* block = size <= INT_MAX ? static_cast<uint8_t*>(qmalloc(size_t(size))) : nullptr;
    if (!block) {
        QWARNING("QFile:ctor; not enough memory to preload file '%s'", name);
        memSize = 0;
        std::fseek(stream, 0, SEEK_SET);
        return;
    }
    std::fseek(stream, 0, SEEK_SET);
    size_t got = std::fread(block, 1, size_t(size), stream);
    qfclose(stream);
    stream = nullptr;
    mem = block;
    memSize = int(got); // a file that shrank under us holds what could be read
    memPos = 0;
    flags |= QFF_OWN_MEMORY;
}

QFile::QFile(const char* name, void* memory, int size)
    : stream(nullptr), mode(READ), ungetChar(0), flags(0), mem(static_cast<uint8_t*>(memory)),
      memSize(size < 0 ? 0 : size), memPos(0)
{
    SetName(name);
}

QFile::~QFile()
{
    if (mem && (flags & QFF_OWN_MEMORY)) qfree(mem);
    mem = nullptr;
    if (stream) qfclose(stream);
    stream = nullptr;
    if (lineBuffer) qfree(lineBuffer);
    lineBuffer = nullptr;
    lineBufferSize = 0;
}

void QFile::SetWideLines(bool on)
{
    if (on) flags |= QFF_WIDE_LINES;
    else flags &= ~uint32_t(QFF_WIDE_LINES);
}

bool QFile::IsEOF() const
{
    if (flags & QFF_UNGOT) return false;
    if (mem) return memPos > memSize;
    // A read that failed ends the data as well: it would fail again, and never reach the end.
    if (stream) return std::feof(stream) != 0 || std::ferror(stream) != 0;
    return true;
}

long QFile::Tell() const
{
    if (mem) return memPos;
    if (stream) return std::ftell(stream);
    return 0;
}

long QFile::Size()
{
    if (mem) return memSize;
    if (!stream) return 0;
    long here = std::ftell(stream);
    std::fseek(stream, 0, SEEK_END);
    long size = std::ftell(stream);
    std::fseek(stream, here, SEEK_SET);
    return size;
}

bool QFile::Seek(long offset, int origin)
{
    if (origin < SEEK_FROM_START || origin > SEEK_FROM_HERE) return false;
    if (mem) {
        // The position stays within the block.
        long pos = memPos > memSize ? memSize : memPos;
        if (origin == SEEK_FROM_START) pos = offset;
        else if (origin == SEEK_FROM_END) pos = long(memSize) - offset;
        else pos += offset;
        if (pos < 0) pos = 0;
        if (pos > memSize) pos = memSize;
        memPos = int(pos);
        return true;
    }
    if (!stream) return false;
    static const int whence[] = {SEEK_SET, SEEK_END, SEEK_CUR};
    return std::fseek(stream, offset, whence[origin]) == 0;
}

void QFile::Flush()
{
    if (stream) std::fflush(stream);
}

int QFile::Read(void* buffer, int n)
{
    if (n <= 0 || (!mem && !stream)) return 0;
    uint8_t* out = static_cast<uint8_t*>(buffer);
    int done = 0;
    if (flags & QFF_UNGOT) {
        out[done++] = ungetChar;
        flags &= ~uint32_t(QFF_UNGOT);
        if (done == n) return done;
    }
    int want = n - done;
    if (mem) {
        int left = memPos >= memSize ? 0 : memSize - memPos;
        if (want <= left) {
            std::memcpy(out + done, mem + memPos, size_t(want));
            memPos += want;
            return n;
        }
        if (left > 0) std::memcpy(out + done, mem + memPos, size_t(left));
        memPos = memSize + 1; // the read ran into the end: IsEOF() says so from now on
        return done + left;
    }
    return done + int(std::fread(out + done, 1, size_t(want), stream));
}

int QFile::ReadBE16(void* value)
{
    uint8_t b[2] = {0, 0};
    int n = Read(b, 2);
    uint16_t v = uint16_t(b[0] << 8 | b[1]);
    std::memcpy(value, &v, 2);
    return n;
}

int QFile::ReadBE32(void* value)
{
    uint8_t b[4] = {0, 0, 0, 0};
    int n = Read(b, 4);
    uint32_t v = uint32_t(b[0]) << 24 | uint32_t(b[1]) << 16 | uint32_t(b[2]) << 8 | b[3];
    std::memcpy(value, &v, 4);
    return n;
}

int QFile::Read(qstring& text)
{
    if (!mem && !stream) return 0;
    uint8_t b[2] = {0, 0};
    Read(b, 2);
    int len = int16_t(uint16_t(b[0] | b[1] << 8));
    if (len <= 0) {
        text.Empty();
        return len;
    }
    if (len + 1 > lineBufferSize) {
        char* grown = static_cast<char*>(qmalloc(size_t(len) + 1));
        if (!grown) {
            QWARNING("QFile:Read(s); out of memory");
            return 0;
        }
        if (lineBuffer) qfree(lineBuffer);
        lineBuffer = grown;
        lineBufferSize = len + 1;
    }
    int got = Read(lineBuffer, len);
    lineBuffer[got] = 0; // a string cut off by the end of the file holds what was there
    text = lineBuffer;
    return len;
}

int QFile::NextChar()
{
    if (flags & QFF_UNGOT) {
        flags &= ~uint32_t(QFF_UNGOT);
        return ungetChar;
    }
    if (mem) {
        if (memPos < memSize) return mem[memPos++];
        memPos = memSize + 1;
        return -1;
    }
    if (stream) {
        int c = std::getc(stream);
        return c == EOF ? -1 : c;
    }
    return -1;
}

int QFile::GetChar()
{
    if (!mem && !stream && !(flags & QFF_UNGOT)) return 0;
    int c = NextChar();
    return c < 0 ? 255 : c;
}

void QFile::UnGetChar(int ch)
{
    ungetChar = uint8_t(ch);
    flags |= QFF_UNGOT;
}

int QFile::GetLine(char* buffer, int size)
{
    if (!buffer || size <= 0) return 0;
    buffer[0] = 0;
    if (size < 2) return 0;
    int n = 0;
    while (n < size - 1) {
        int c = NextChar();
        if (c < 0 || c == '\n') break;
        if (c == '\r') continue;
        buffer[n++] = char(c);
    }
    buffer[n] = 0;
    return n;
}

int QFile::GetLine(qstring& text)
{
    const int size = 10239;
    if (flags & QFF_WIDE_LINES) {
        static qwchar wide[size];
        int n = 0;
        while (n < size - 1) {
            int lo = NextChar();
            if (lo < 0) break;
            int hi = NextChar();
            if (hi < 0) break;
            qwchar c = qwchar(lo | hi << 8);
            if (c == '\n') break;
            if (c == '\r') continue;
            wide[n++] = c;
        }
        wide[n] = 0;
        text = wide;
        return n;
    }
    static char line[size];
    int n = GetLine(line, size);
    text = line;
    return n;
}

static bool IsBlank(int c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

void QFile::SkipWhiteSpace()
{
    int c;
    do c = NextChar();
    while (c >= 0 && IsBlank(c));
    if (c >= 0) UnGetChar(c);
}

int QFile::GetWord(char* buffer, int size)
{
    if (size == -1) size = 2000000000;
    if (!buffer || size <= 0) return 0;
    buffer[0] = 0;
    SkipWhiteSpace();
    int c = NextChar();
    if (c < 0) return 0;
    int n = 0;
    if (c == '"') {
        while (n < size - 1) {
            c = NextChar();
            if (c < 0 || c == '"') break;
            buffer[n++] = char(c);
        }
    } else {
        for (;;) {
            if (n >= size - 1) { // no room: the character stays for the next read
                UnGetChar(c);
                break;
            }
            buffer[n++] = char(c);
            c = NextChar();
            if (c < 0) break;
            if (IsBlank(c)) {
                UnGetChar(c);
                break;
            }
        }
    }
    buffer[n] = 0;
    return n;
}

int QFile::GetWord(qstring& text)
{
    char word[1024];
    int n = GetWord(word, sizeof word);
    text = word;
    return n;
}

int QFile::Write(const void* data, int n)
{
    if (mem || !stream || n <= 0) return 0;
    return int(std::fwrite(data, 1, size_t(n), stream));
}

int QFile::Write(const qstring& text)
{
    if (mem || !stream) return 0;
    const char* t = text.cstr(); // a wide string writes its placeholder text
    int len = qstrlen(t);
    Write(t, len);
    return len;
}

int QFile::Write(const qstring& text, bool counted)
{
    if (!counted) return Write(text);
    if (mem || !stream) return 0;
    const char* t = text.cstr();
    int len = qstrlen(t);
    if (len > 32767) len = 32767; // the length field is a signed 16-bit number
    uint8_t b[2] = {uint8_t(len & 0xFF), uint8_t(len >> 8)};
    int n = Write(b, 2);
    return n + Write(t, len);
}

} // namespace tarvik
