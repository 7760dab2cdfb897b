// qstring: the string type of the whole tree.
//
// A small value class owning one zero-terminated buffer from calloc/realloc. A default-constructed
// string owns no buffer and counts as empty everywhere; cstr() never yields null. Every copy is
// deep. The buffer grows exactly as far as asked (no doubling) and never shrinks while the string
// lives: Empty() and the Cut operations only move the terminator.
//
// Narrow (8-bit) text is the real thing. Wide (16-bit) text can be stored, compared and measured;
// nearly every other operation refuses it with a report and behaves as if nothing was found.
#pragma once

#include <cstdint>

namespace tarvik {

typedef uint16_t qwchar;

class qstring {
public:
    enum { QSTRF_WIDE = 1 };

    qstring(int initial = 32); // no buffer; the argument has no effect
    qstring(const char* text); // always has a buffer: length + 32
    qstring(const qstring& other);
    ~qstring();

    qstring& operator=(const qstring& other);
    qstring& operator=(const char* text);
    qstring& operator=(const qwchar* text);
    qstring& operator=(int value);

    int GetLength() const;
    bool IsEmpty() const;
    bool IsNotEmpty() const { return !IsEmpty(); }
    bool IsWide() const { return (flags & QSTRF_WIDE) != 0; }
    const char* cstr() const; // "<unicodestr-nyi>" for a wide string
    const qwchar* wstr() const { return ws; }
    int GetCapacity() const { return capacity; }

    bool operator==(const char* text) const;
    bool operator!=(const char* text) const;
    bool operator==(const qstring& other) const { return *this == other.cstr(); }
    bool operator!=(const qstring& other) const { return *this != other.cstr(); }
    bool operator<(const qstring& other) const; // case-blind order
    char& operator[](int index);

    int Find(const char* what) const;
    int FindChar(char c) const;
    bool Contains(const char* what) const;

    void Empty();
    void Resize(int newCapacity);
    qstring& operator+=(const char* text);
    qstring& operator+=(const qstring& text);
    qstring& operator+=(char c);
    qstring& operator+=(int value);
    qstring operator+(const qstring& right) const;
    qstring operator+(const char* right) const;

    void CutFirst();
    void CutLast();
    void ToLower();
    void ToUpper(); // Latin-1 aware
    bool Replace(const char* from, const char* to); // the first occurrence only
    qstring GetSubstring(int from, int to) const;   // both inclusive; to == -1 means the last
    bool CutExtension(); // at the last '.', separators not regarded
    bool CutFile();      // at the last '/' or '\', separator included
    bool CutPath();      // everything up to and including the last separator

    bool ValidateInt(qstring* reason) const;
    bool ValidateFloat(qstring* reason) const;

private:
    void MakeNarrow();
    void FreeBuffers();
    void EnsureNarrow(int needed); // capacity for 'needed' characters, terminator included

    uint32_t flags;
    char* s;      // owned narrow buffer, or null
    qwchar* ws;   // owned wide buffer, or null
    int capacity; // characters in the buffer, terminator included
};

} // namespace tarvik
