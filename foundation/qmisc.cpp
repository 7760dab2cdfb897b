#include "foundation/qmisc.h"

#include "foundation/qmessage.h"
#include "platform/platform.h"

#include <cctype>
#include <cstring>
#include <ctime>
#include <vector>

namespace tarvik {

bool QMatch(const char* pattern, const char* text)
{
    if (!pattern) pattern = "";
    if (!text) text = "";
    const size_t P = std::strlen(pattern), T = std::strlen(text);

    // match[t] answers "does pattern[p..] match text[t..]?", computed for p from the end of the
    // pattern backwards; each row needs only the row behind it and its own later places.
    std::vector<unsigned char> next(T + 1), cur(T + 1);
    for (size_t t = 0; t <= T; t++) next[t] = t == T;
    for (size_t p = P; p-- > 0;) {
        const char c = pattern[p];
        for (size_t t = T + 1; t-- > 0;) {
            bool m;
            switch (c) {
            case '!': m = !next[t]; break;
            case '(':
            case ')': m = next[t]; break;
            case '*':
                // At the end of the pattern anything matches; at the end of the text nothing does;
                // otherwise the rest is tried at this place and at each later one.
                if (p + 1 == P) m = true;
                else if (t == T) m = false;
                else m = next[t] || (t + 1 < T && cur[t + 1]);
                break;
            case '?': m = t < T && next[t + 1]; break;
            default:
                m = t < T && std::tolower(static_cast<unsigned char>(c)) ==
                                 std::tolower(static_cast<unsigned char>(text[t])) &&
                    next[t + 1];
                break;
            }
            cur[t] = m;
        }
        next.swap(cur);
    }
    return next[0] != 0;
}

void QSleep(int microseconds)
{
    PlatformSleepMs(microseconds / 1000);
}

int QNearestPowerOf2(int n, bool round)
{
    if (round) QERROR("QNearestPowerOf2(); rounding not yet implemented");
    int p = 1;
    while (p < n && p < (1 << 30)) p <<= 1;
    return p;
}

uint16_t QSwap16(uint16_t v) { return uint16_t(v >> 8 | v << 8); }

uint32_t QSwap32(uint32_t v)
{
    return v >> 24 | (v >> 8 & 0xFF00u) | (v << 8 & 0xFF0000u) | v << 24;
}

static const char* FormatNow(char* out, size_t size, const char* format)
{
    std::time_t now = std::time(nullptr);
    const std::tm* local = std::localtime(&now);
    if (!local || !std::strftime(out, size, format, local)) out[0] = 0;
    return out;
}

const char* QCurrentDate(const char* format)
{
    static char text[40];
    return FormatNow(text, sizeof text, format ? format : "%d-%m-%Y");
}

const char* QCurrentTime(const char* format)
{
    static char text[40];
    return FormatNow(text, sizeof text, format ? format : "%H:%M:%S");
}

} // namespace tarvik
