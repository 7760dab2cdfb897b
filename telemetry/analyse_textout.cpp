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
    typedef unsigned __int128 u128;
    const u128 n = u128(uint64_t(m) * 15625u);
    u128 q; // value * 10^6, rounded half to even as printf rounds
    if (k >= 0) {
        q = n << k;
    } else if (k <= -40) {
        q = 0; // n < 2^38 lies below half of 2^-k
    } else {
        const int s = -k;
        q = n >> s;
        const u128 rest = n & ((u128(1) << s) - 1);
        const u128 half = u128(1) << (s - 1);
        if (rest > half || (rest == half && (q & 1))) q++;
    }

    char digits[48];
    int d = 0;
    u128 whole = q / 1000000;
    uint32_t frac = uint32_t(q % 1000000);
    do {
        digits[d++] = char('0' + int(whole % 10));
        whole /= 10;
    } while (whole);
    while (d > 0) *p++ = digits[--d];
    *p++ = '.';
    for (int i = 5; i >= 0; i--) {
        p[i] = char('0' + frac % 10);
        frac /= 10;
    }
    return int(p - out) + 6;
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
