// Eval: a short text to a signed 32-bit integer: 4*1024, $FF00, 1|8, (2+3)*4.
//
// A recursive-descent parser writes a postfix program of at most 40 numbers and operators, and a
// small stack machine runs it. Integers only; values wrap around in 32 bits; division and
// remainder by zero give 0. It never fails: a character that fits nowhere ends the expression and
// what was parsed so far is evaluated. The state is static: one caller at a time.
//
// Limits that keep any text harmless: an expression that needs more than 40 program entries ends
// where the 41st would go, with a warning, and gives the value of the longest leading part of its
// program that forms a whole expression (1+1+...+1 with 30 ones gives 20); nesting deeper than
// 200 brackets or prefixes ends the expression there. An operator that finds fewer than two values
// on the machine's stack is skipped, so "2*" is 2.
#pragma once

#include <cstdint>

namespace tarvik {

int32_t Eval(const char* text);

} // namespace tarvik
