#include "telemetry/analyse_textout.h"

#include <cstdint>
#include <cstring>

namespace tarvik {

namespace {

// Prints m * 2^e, a whole number of up to 128 bits and more, by long division of its 256-bit form.
// Only floats above 2^83 come here; telemetry rarely holds them.
int PrintBigWhole(char* out, uint32_t m, int e)
{
    uint32_t words[8] = {0};
    for (int i = 0; i < 24; i++)
        if (m >> i & 1) words[(e + i) / 32] |= 1u << ((e + i) % 32);
    char rev[80];
    int r = 0;
    for (bool more = true; more;) {
        uint64_t rem = 0;
        more = false;
        for (int i = 7; i >= 0; i--) {
            uint64_t cur = rem << 32 | words[i];
            words[i] = uint32_t(cur / 10);
            rem = cur % 10;
            more |= words[i] != 0;
        }
        rev[r++] = char('0' + rem);
    }
    int n = 0;
    while (r > 0) out[n++] = rev[--r];
    return n;
}

const char pairs[] = "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
                     "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
                     "8081828384858687888990919293949596979899";

int WriteWhole(char* out, uint64_t v)
{
    char rev[24];
    int r = 0;
    while (v >= 100) {
        const char* d = pairs + 2 * (v % 100);
        v /= 100;
        rev[r++] = d[1];
        rev[r++] = d[0];
    }
    if (v >= 10) {
        rev[r++] = pairs[2 * v + 1];
        rev[r++] = pairs[2 * v];
    } else {
        rev[r++] = char('0' + v);
    }
    for (int i = 0; i < r; i++) out[i] = rev[r - 1 - i];
    return r;
}

// ".dddddd"
int WriteFraction(char* out, uint32_t frac)
{
    out[0] = '.';
    const uint32_t hi = frac / 10000, mid = frac / 100 % 100, lo = frac % 100;
    std::memcpy(out + 1, pairs + 2 * hi, 2);
    std::memcpy(out + 3, pairs + 2 * mid, 2);
    std::memcpy(out + 5, pairs + 2 * lo, 2);
    return 7;
}

} // namespace

int FormatFloatF6(char* out, float value)
{
    uint32_t bits;
    std::memcpy(&bits, &value, 4);
    const int biased = int(bits >> 23 & 0xFF);
    const uint32_t fraction = bits & 0x7FFFFF;
    char* p = out;
    if (bits >> 31) *p++ = '-'; // also for -0 and for negatives that round to zero
    if (biased == 0xFF) {
        std::memcpy(p, fraction ? "nan" : "inf", 3);
        return int(p - out) + 3;
    }
    // value = m * 2^e exactly, so value * 10^6 = m * 5^6 * 2^(e+6): an integer shifted by k.
    const uint32_t m = biased ? (fraction | 0x800000u) : fraction;
    const int e = biased ? biased - 150 : -149;
    const int k = e + 6;
    if (k > 89) { // m * 5^6 < 2^38: shifted further it leaves 128 bits; the value has no fraction
        p += PrintBigWhole(p, m, e);
        std::memcpy(p, ".000000", 7);
        return int(p - out) + 7;
    }
    // Whole values of up to 2^25 millionths times 2^38 fit 64 bits; only huge ones need 128.
    const uint64_t n = uint64_t(m) * 15625u; // m * 5^6 < 2^38
    uint64_t whole, frac;
    if (k > 25) {
        typedef unsigned __int128 u128;
        const u128 q = u128(n) << k;
        const u128 w = q / 1000000;
        frac = uint64_t(q % 1000000);
        char rev[48];
        int r = 0;
        u128 x = w;
        do {
            rev[r++] = char('0' + int(x % 10));
            x /= 10;
        } while (x);
        while (r > 0) *p++ = rev[--r];
        return int(p - out) + WriteFraction(p, uint32_t(frac));
    }
    uint64_t q; // value * 10^6, rounded half to even as printf rounds
    if (k >= 0) {
        q = n << k;
    } else if (k <= -40) {
        q = 0; // n < 2^38 lies below half of 2^-k
    } else {
        const int sh = -k;
        q = n >> sh;
        const uint64_t rest = n & ((uint64_t(1) << sh) - 1);
        const uint64_t half = uint64_t(1) << (sh - 1);
        if (rest > half || (rest == half && (q & 1))) q++;
    }
    whole = q / 1000000;
    frac = q % 1000000;
    p += WriteWhole(p, whole);
    return int(p - out) + WriteFraction(p, uint32_t(frac));
}

PTextOut::PTextOut(FILE* s) : stream(s), buffer(new char[BUFFER_BYTES]), failed(false)
{
    pos = buffer;
    end = buffer + BUFFER_BYTES;
}

PTextOut::~PTextOut()
{
    delete[] buffer;
}

void PTextOut::Text(const char* text)
{
    size_t n = std::strlen(text);
    while (n > 0) {
        if (pos == end) Drain();
        size_t room = size_t(end - pos);
        size_t take = n < room ? n : room;
        std::memcpy(pos, text, take);
        pos += take;
        text += take;
        n -= take;
    }
}

void PTextOut::Drain()
{
    size_t n = size_t(pos - buffer);
    if (n && !failed && std::fwrite(buffer, 1, n, stream) != n) failed = true;
    pos = buffer;
}

bool PTextOut::Flush()
{
    Drain();
    if (!failed && std::fflush(stream) != 0) failed = true;
    return !failed;
}

} // namespace tarvik
