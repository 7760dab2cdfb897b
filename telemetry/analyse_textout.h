// PTextOut: the ASCII export's output stream. Text goes into one large buffer that is written in
// big blocks; numbers are formatted without printf, byte for byte as "%f" would print them.
//
// Write failures are remembered, not reported: the caller asks Failed() at the end, once, where it
// knows the file name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#else
#include <cmath>
#endif

namespace tarvik {

enum { MAX_FLOAT_F6 = 48 }; // the longest "%f" of a float: "-340282346638528859811704183484516925440.000000"

// Writes 'value' as "%f" does for a float widened to double: six decimals, correctly rounded
// (ties to even), "-" for negative values including -0, and "nan", "-nan", "inf", "-inf".
// 'out' has room for MAX_FLOAT_F6 characters; returns the number written (no terminator).
inline int FormatFloatF6(char* out, float value);

// Writes a table row: the values, 'separator' between them, '\n' at the end. 'out' has room for
// RowBytes(count); returns the end of the text written. Bytes are those of FormatFloatF6; on
// processors with the 512-bit byte instructions eight values are formatted at once.
char* FormatRowF6(char* out, const float* values, int count, char separator);
inline size_t RowBytes(int count) { return size_t(count) * (MAX_FLOAT_F6 + 1) + 64; }

class PTextOut {
public:
    enum { BUFFER_BYTES = 1 << 20 };

    explicit PTextOut(FILE* stream); // borrowed; the caller closes it. Null: the text is dropped
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
        if (end - pos < MAX_FLOAT_F6) Drain();
        pos += FormatFloatF6(pos, value);
    }

    // Room for 'bytes' at once (at most BUFFER_BYTES): write there, then Commit the new end.
    // A table row reserves once, so its values need no checks of their own.
    char* Reserve(size_t bytes)
    {
        if (size_t(end - pos) < bytes) Drain();
        return pos;
    }
    void Commit(char* newPos) { pos = newPos; }

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

// --- the formatter's fast path, inline for the export's row loop -----------------------------------

namespace f6 {

extern const char pairs[201];
int FormatRare(char* out, float value); // NaN, infinities and values from 2^43 up: out of line

// The row formatter's two roads. The vector road needs VectorRowAvailable(); UseVectorRow picks
// the road for FormatRowF6 (the fastest available by default) and returns whether it was taken.
char* FormatRowScalar(char* p, const float* values, int count, char separator);
char* FormatRowVector(char* p, const float* values, int count, char separator);
bool VectorRowAvailable();
bool UseVectorRow(bool vector);

// Nearest integer, ties to even (the default rounding mode), of a value below 2^63.
inline uint64_t RoundToInteger(double x)
{
#if defined(__SSE2__)
    return uint64_t(_mm_cvtsd_si64(_mm_set_sd(x)));
#else
    return uint64_t(std::nearbyint(x));
#endif
}

inline char* WholeDigits(char* p, uint64_t v)
{
    int len = 1; // telemetry's whole parts are short: count with comparisons, not divisions
    if (v >= 10) len = v >= 100 ? v >= 1000 ? v >= 10000 ? v >= 100000 ? 6 : 5 : 4 : 3 : 2;
    for (uint64_t t = v / 1000000; t > 0; t /= 10) len++;
    char* q = p + len;
    while (v >= 100) {
        q -= 2;
        std::memcpy(q, pairs + 2 * (v % 100), 2);
        v /= 100;
    }
    if (v >= 10) std::memcpy(q - 2, pairs + 2 * v, 2);
    else q[-1] = char('0' + v);
    return p + len;
}

} // namespace f6

inline int FormatFloatF6(char* out, float value)
{
    uint32_t bits;
    std::memcpy(&bits, &value, 4);
    const uint32_t biased = bits >> 23 & 0xFF;
    // Up to 2^43 (and for NaN and the infinities, never) the fast path: the magnitude times 10^6
    // is exact in a double (24 significant bits times 20), and the conversion to an integer in the
    // default rounding mode rounds half to even, as printf does.
    if (biased >= 127 + 43) return f6::FormatRare(out, value);
    const uint32_t magnitudeBits = bits & 0x7FFFFFFFu;
    float magnitude;
    std::memcpy(&magnitude, &magnitudeBits, 4);
    const uint64_t q = f6::RoundToInteger(double(magnitude) * 1e6); // value * 10^6
    char* p = out;
    *p = '-';
    p += bits >> 31; // also for -0 and for negatives that round to zero
    const uint64_t whole = q / 1000000;
    const uint32_t frac = uint32_t(q - whole * 1000000);
    p = f6::WholeDigits(p, whole);
    const uint32_t hi = frac / 10000, rest = frac - hi * 10000, mid = rest / 100, lo = rest - mid * 100;
    p[0] = '.';
    std::memcpy(p + 1, f6::pairs + 2 * hi, 2);
    std::memcpy(p + 3, f6::pairs + 2 * mid, 2);
    std::memcpy(p + 5, f6::pairs + 2 * lo, 2);
    return int(p + 7 - out);
}

} // namespace tarvik
