// The export's row formatter for processors with the 512-bit byte and word instructions: eight
// values at a time, no branch per value. Built with per-function target attributes, so the rest of
// the program stays baseline x86-64 and this road is taken only where the processor has it.
//
// A value takes the vector road when its whole part is below 10^7 and it is not NaN or infinite;
// a group of eight with any other value in it is printed by the scalar formatter instead.
//
// The road, for eight values:
//   q     = |v| * 10^6 rounded half to even           (exact in a double, as in FormatFloatF6)
//   whole = q / 10^6, frac = q mod 10^6                (floor of a biased product, see Split)
//   four 4-digit chunks per value: whole/10^4, whole mod 10^4, frac/10^4, frac mod 10^4
//   each chunk turns into four digits with 16-bit multiplies (Digits)
//   per value a 16-byte slot: '-', seven whole digits, '.', six fraction digits, separator
//   a keep-mask per slot drops the sign of positive values and the leading zeros of the whole
//   part (the units digit always stays); a byte compress packs the kept bytes together.
#include "telemetry/analyse_textout.h"

#if defined(__x86_64__) && defined(__GNUC__)

// The intrinsics leave the unused lanes of their results undefined on purpose, which GCC reads as
// a use of an uninitialised value once they are inlined here. Clang has no such warning group.
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>

#define TARVIK_AVX512 __attribute__((target("avx512f,avx512bw,avx512vl,avx512dq,avx512vbmi,avx512vbmi2,bmi2,popcnt")))

namespace tarvik {
namespace f6 {

namespace {

// floor(x / 10^k) for whole numbers x below 10^13, as floor(x * 10^-k + bias). The quotient's
// fractional part is a multiple of 10^-k; the product's error is a few 1e-9 at most. Exact
// multiples happen to round onto the integer with the two constants used here, and the bias
// (far above that error, far below 10^-k) keeps them there without relying on it.
TARVIK_AVX512 inline __m512d Split(__m512d x, double inverse, double bias)
{
    return _mm512_roundscale_pd(_mm512_fmadd_pd(x, _mm512_set1_pd(inverse), _mm512_set1_pd(bias)),
                                _MM_FROUND_TO_NEG_INF | _MM_FROUND_NO_EXC);
}

// Four 16-bit lanes that each hold the same chunk x < 10^4, times four, become its digits
// x/1000, x/100 mod 10, x/10 mod 10, x mod 10 (most significant first).
TARVIK_AVX512 inline __m512i Digits(__m512i x4)
{
    const __m512i divide = _mm512_set1_epi64(0x80003334147B20C5ll);  // 8389, 5243, 13108, 32768
    const __m512i shift = _mm512_set1_epi64(0x8000200008000080ll);   // 2^7, 2^11, 2^13, 2^15
    const __m512i ten = _mm512_set1_epi16(10);
    __m512i q = _mm512_mulhi_epu16(_mm512_mulhi_epu16(x4, divide), shift); // x/1000, x/100, x/10, x
    return _mm512_sub_epi16(q, _mm512_slli_epi64(_mm512_mullo_epi16(q, ten), 16));
}

} // namespace

// Formats 'count' values, each followed by 'separator'; the last is followed by '\n' instead.
// Writes up to 64 bytes past the text it returns the end of.
TARVIK_AVX512 char* FormatRowVector(char* p, const float* values, int count, char separator)
{
    // Slot bytes: 0..63 select from the digit vector (16 digits per value: eight whole, eight
    // fraction of which the first two are zero), 64.. from the constants '-', '.', separator.
    static const uint8_t slotIndex[64] = {
        64, 1,  2,  3,  4,  5,  6,  7,  65, 10, 11, 12, 13, 14, 15, 66, //
        64, 17, 18, 19, 20, 21, 22, 23, 65, 26, 27, 28, 29, 30, 31, 66, //
        64, 33, 34, 35, 36, 37, 38, 39, 65, 42, 43, 44, 45, 46, 47, 66, //
        64, 49, 50, 51, 52, 53, 54, 55, 65, 58, 59, 60, 61, 62, 63, 66};
    // Word k of the chunk vector: value k/4, chunk k%4 (whole high, whole low, fraction high, low);
    // the whole chunks come from the first operand's words, the fraction chunks from the second's.
    static const uint16_t chunkIndex[32] = {0,  16, 32, 48, 2,  18, 34, 50, 4,  20, 36, 52, 6,  22, 38, 54,
                                            8,  24, 40, 56, 10, 26, 42, 58, 12, 28, 44, 60, 14, 30, 46, 62};
    const __m512i slots = _mm512_loadu_si512(slotIndex);
    const __m512i chunkOrder = _mm512_loadu_si512(chunkIndex);
    const __m512i constants = _mm512_set1_epi32(int('-') | int('.') << 8 | int(uint8_t(separator)) << 16);
    const __m512i zeros = _mm512_set1_epi8('0');
    const __m256i magnitudeBits = _mm256_set1_epi32(0x7FFFFFFF);
    // Keep-mask parts per 16-bit slot: the whole digits' positions, and '.', fraction, separator.
    const uint64_t wholeBits = 0x00FE00FE00FE00FEull, alwaysBits = 0xFF00FF00FF00FF00ull;
    const uint64_t unitsBits = 0x0080008000800080ull, signBits = 0x0001000100010001ull;

    for (int i = 0; i < count; i += 8) {
        const int lanes = count - i < 8 ? count - i : 8;
        const __mmask8 live = __mmask8((1u << lanes) - 1);
        const __m256 v = _mm256_maskz_loadu_ps(live, values + i);
        const __m256i bits = _mm256_castps_si256(v);
        const __mmask8 negative = _mm256_movepi32_mask(bits) & live;
        const __m512d magnitude = _mm512_cvtps_pd(_mm256_castsi256_ps(_mm256_and_si256(bits, magnitudeBits)));
        const __m512d q = _mm512_roundscale_pd(_mm512_mul_pd(magnitude, _mm512_set1_pd(1e6)),
                                               _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
        // Whole parts of 10^7 and more, the infinities and NaN (unordered) leave the vector road.
        if (_mm512_mask_cmp_pd_mask(live, q, _mm512_set1_pd(1e13), _CMP_NLT_UQ)) {
            for (int k = 0; k < lanes; k++) {
                p += FormatFloatF6(p, values[i + k]);
                *p++ = separator;
            }
            continue;
        }
        const __m512d whole = Split(q, 1e-6, 1e-7);
        const __m512d frac = _mm512_fnmadd_pd(whole, _mm512_set1_pd(1e6), q);
        const __m512d wholeHigh = Split(whole, 1e-4, 1e-6);
        const __m512d fracHigh = Split(frac, 1e-4, 1e-6);
        const __m512d wholeLow = _mm512_fnmadd_pd(wholeHigh, _mm512_set1_pd(1e4), whole);
        const __m512d fracLow = _mm512_fnmadd_pd(fracHigh, _mm512_set1_pd(1e4), frac);
        // Chunks as 32-bit lanes: [whole high x8, whole low x8] and [fraction high x8, low x8].
        const __m512i wholeChunks = _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_cvttpd_epi32(wholeHigh)),
                                                       _mm512_cvttpd_epi32(wholeLow), 1);
        const __m512i fracChunks = _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_cvttpd_epi32(fracHigh)),
                                                      _mm512_cvttpd_epi32(fracLow), 1);
        // Four chunks per value in 16-bit words, times four for the digit multiplies.
        const __m512i chunks =
            _mm512_slli_epi16(_mm512_permutex2var_epi16(wholeChunks, chunkOrder, fracChunks), 2);

        for (int half = 0; half < 2; half++) {
            const int first = half * 4;
            if (first >= lanes) break;
            // Each chunk to four lanes, then digits: 16 bytes per value, four values.
            __m512i digits[2];
            for (int pair = 0; pair < 2; pair++) {
                const int base = (first + pair * 2) * 4; // first chunk word of this pair of values
                const __m512i spread = _mm512_add_epi16(
                    _mm512_set_epi16(7, 7, 7, 7, 6, 6, 6, 6, 5, 5, 5, 5, 4, 4, 4, 4, //
                                     3, 3, 3, 3, 2, 2, 2, 2, 1, 1, 1, 1, 0, 0, 0, 0),
                    _mm512_set1_epi16(short(base)));
                digits[pair] = Digits(_mm512_permutexvar_epi16(spread, chunks));
            }
            const __m512i text = _mm512_add_epi8(
                _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_cvtepi16_epi8(digits[0])),
                                   _mm512_cvtepi16_epi8(digits[1]), 1),
                zeros);
            const __m512i slot = _mm512_permutex2var_epi8(text, slots, constants);

            // Whole digits are kept from the first that is not '0'; the units digit always.
            const uint64_t zeroDigits = _mm512_cmpeq_epi8_mask(slot, zeros);
            uint64_t keep = (~zeroDigits & wholeBits) | unitsBits;
            keep |= keep << 1;
            keep |= keep << 2;
            keep |= keep << 4;
            const int here = lanes - first < 4 ? lanes - first : 4;
            const uint64_t liveBits = here == 4 ? ~0ull : (1ull << (16 * here)) - 1;
            keep = ((keep & wholeBits) | alwaysBits | _pdep_u64(unsigned(negative) >> first & 0xF, signBits)) &
                   liveBits;
            _mm512_storeu_si512(p, _mm512_maskz_compress_epi8(keep, slot));
            p += _mm_popcnt_u64(keep);
        }
    }
    if (count > 0) p[-1] = '\n';
    return p;
}

bool VectorRowAvailable()
{
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq") &&
           __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vbmi2") &&
           __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("popcnt");
}

} // namespace f6
} // namespace tarvik

#else

namespace tarvik {
namespace f6 {
char* FormatRowVector(char* p, const float*, int, char) { return p; }
bool VectorRowAvailable() { return false; }
} // namespace f6
} // namespace tarvik

#endif
