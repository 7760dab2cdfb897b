// Small services: wildcard matching, sleeping, powers of two, byte swapping, date and time texts.
#pragma once

#include <cstdint>

namespace tarvik {

// Wildcard comparison without regard to case: '*' any run, '?' any one character, '!' negates the
// match of the rest of the pattern, '(' and ')' are ignored. Runs in pattern x text steps and
// text-sized memory, whatever the pattern: no backtracking blow-up, no recursion.
bool QMatch(const char* pattern, const char* text);

void QSleep(int microseconds); // in whole milliseconds; under 1000 gives up the time slice
int QNearestPowerOf2(int n, bool round);
uint16_t QSwap16(uint16_t v);
uint32_t QSwap32(uint32_t v);

// Local date and time by strftime, in static buffers of 40 characters that each call overwrites.
const char* QCurrentDate(const char* format = nullptr); // null: "%d-%m-%Y"
const char* QCurrentTime(const char* format = nullptr); // null: "%H:%M:%S"

} // namespace tarvik
