#include "telemetry/analyse_textout.h"

namespace tarvik {

namespace f6 {

const char pairs[201] = "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
                        "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
                        "8081828384858687888990919293949596979899";

namespace {

// Prints m * 2^e (e >= 0), a whole number of up to 128 bits, by long division of its 256-bit form.
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

int FormatRare(char* out, float value)
{
    uint32_t bits;
    std::memcpy(&bits, &value, 4);
    const int biased = int(bits >> 23 & 0xFF);
    const uint32_t fraction = bits & 0x7FFFFF;
    char* p = out;
    if (bits >> 31) *p++ = '-';
    if (biased == 0xFF) {
        std::memcpy(p, fraction ? "nan" : "inf", 3);
        return int(p - out) + 3;
    }
    // Here the value is at least 2^43 and so a whole number: m * 2^e with e >= 20.
    const uint32_t m = fraction | 0x800000u;
    const int e = biased - 150;
    if (e <= 40) { // m < 2^24: the shift stays within 64 bits
        p = WholeDigits(p, uint64_t(m) << e);
    } else {
        p += PrintBigWhole(p, m, e);
    }
    std::memcpy(p, ".000000", 7);
    return int(p - out) + 7;
}

char* FormatRowScalar(char* p, const float* values, int count, char separator)
{
    for (int i = 0; i < count; i++) {
        p += FormatFloatF6(p, values[i]);
        *p++ = separator;
    }
    if (count > 0) p[-1] = '\n';
    return p;
}

namespace {
bool vectorRow = VectorRowAvailable();
}

bool UseVectorRow(bool vector)
{
    vectorRow = vector && VectorRowAvailable();
    return vectorRow;
}

} // namespace f6

char* FormatRowF6(char* out, const float* values, int count, char separator)
{
    return f6::vectorRow ? f6::FormatRowVector(out, values, count, separator)
                         : f6::FormatRowScalar(out, values, count, separator);
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
    if (n && stream && !failed && std::fwrite(buffer, 1, n, stream) != n) failed = true;
    pos = buffer;
}

bool PTextOut::Flush()
{
    Drain();
    if (stream && !failed && std::fflush(stream) != 0) failed = true;
    return !failed;
}

} // namespace tarvik
