// PTextOut: the ASCII export's output stream. Text goes into one large buffer that is written in
// big blocks; numbers are formatted without printf, byte for byte as "%f" would print them.
//
// Write failures are remembered, not reported: the caller asks Failed() at the end, once, where it
// knows the file name.
#pragma once

#include <cstddef>
#include <cstdio>

namespace tarvik {

// Writes 'value' as "%f" does for a float widened to double: six decimals, correctly rounded
// (ties to even), "-" for negative values including -0, and "nan", "-nan", "inf", "-inf".
// 'out' has room for at least 64 characters; returns the number written (no terminator).
int FormatFloatF6(char* out, float value);

class PTextOut {
public:
    enum { BUFFER_BYTES = 1 << 20 };

    explicit PTextOut(FILE* stream); // borrowed; the caller closes it
    ~PTextOut();
    PTextOut(const PTextOut&) = delete;
    PTextOut& operator=(const PTextOut&) = delete;

    void Char(char c)
    {
        if (end - pos < 1) Drain();
        *pos++ = c;
    }
    void Text(const char* text);
    void Float(float value)
    {
        if (end - pos < 64) Drain();
        pos += FormatFloatF6(pos, value);
    }
    bool Flush(); // writes what is buffered; false if any write so far failed
    bool Failed() const { return failed; }

private:
    void Drain();

    FILE* stream;
    char* buffer; // owned
    char* pos;
    char* end;
    bool failed;
};

} // namespace tarvik
