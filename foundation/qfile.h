// QFile: a standard stream or a block of memory behind one reading interface.
//
// One character of push-back, line and word reading for text formats, counted strings for binary
// ones. With MEMORY added to READ the whole file is loaded when it is opened and every later read is
// memory access. A failed open is no report: the caller asks IsOpen(); a folder is not opened. With
// neither stream nor block every read yields 0 or empty text and IsEOF() answers true, as it does
// once a read of the stream has failed.
//
// Counted strings are read into one line buffer shared by all QFile objects; it is freed whenever
// any QFile is destroyed. That, and the shared buffer, assume one thread.
#pragma once

#include "foundation/qobject.h"

#include <cstdint>
#include <cstdio>

namespace tarvik {

class qstring;

class QFile : public QObject {
public:
    enum Mode {
        READ = 1,             // "rb"
        WRITE = 2,            // "wb"
        READ_WRITE = 3,       // "rb+"
        WRITE_READ = 4,       // "wb+"
        READ_TEXT = 5,        // "r"
        APPEND_TEXT = 6,      // "a"
        APPEND_READ_TEXT = 7, // "a+"
        APPEND = 8,           // "ab"
        WRITE_TEXT = 9,       // "w"
        MEMORY = 256,         // added to READ: load the whole file when opening
    };
    enum Origin { SEEK_FROM_START = 0, SEEK_FROM_END = 1, SEEK_FROM_HERE = 2 };
    enum Flags {
        QFF_UNGOT = 1,      // a pushed-back character waits
        QFF_OWN_MEMORY = 2, // the block is freed with the object
        QFF_WIDE_LINES = 4, // GetLine reads 16-bit characters, low byte first
    };

    QFile(const char* name, int mode);
    QFile(const char* name, void* memory, int size); // wraps a block; not owned until KeepMemory()
    ~QFile() override;

    const char* ClassName() const override { return "QFile"; }

    void KeepMemory() { flags |= QFF_OWN_MEMORY; }
    void SetWideLines(bool on);

    bool IsOpen() const { return mem || stream; }
    bool IsEOF() const;
    long Tell() const;
    long Size();
    bool Seek(long offset, int origin);
    void Flush();
    FILE* GetStream() const { return stream; } // for direct bulk reads; null in memory mode
    const uint8_t* GetMemory() const { return mem; } // the block in memory mode, else null
    int GetMemorySize() const { return memSize; }

    int Read(void* buffer, int n);
    int ReadBE16(void* value);
    int ReadBE32(void* value);
    int Read(qstring& text); // counted string: signed 16-bit length, then the bytes; a negative length empties 'text' and is returned as it is
    int GetChar();
    void UnGetChar(int ch);

    int GetLine(char* buffer, int size); // characters stored; reads at most size - 1
    int GetLine(qstring& text);
    void SkipWhiteSpace();
    int GetWord(char* buffer, int size); // size -1 stands for 2000000000; characters stored
    int GetWord(qstring& text);

    int Write(const void* data, int n);
    int Write(const qstring& text);
    int Write(const qstring& text, bool counted);

private:
    int NextChar(); // 0..255, or -1 at the end of the data

    FILE* stream;     // owned; null in memory mode or after a failed open
    int mode;         // low byte of the constructor's mode
    uint8_t ungetChar;
    uint32_t flags;
    uint8_t* mem;     // the block; owned if QFF_OWN_MEMORY
    int memSize;
    int memPos;       // may stand one byte beyond the end once a read has run into it
};

} // namespace tarvik
