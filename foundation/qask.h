// QAskUser: a question with OK, or OK and Cancel, for code that holds no window. It goes through
// the platform's box: a real window in a windowed program, the console in a console program.
#pragma once

#include <cstdint>

namespace tarvik {

enum : int { QASK_OK_ONLY = 1 }; // the only flag read; 0, 16 and 48 all give OK and Cancel

// False for OK, true for anything else (Cancel, a closed box, no answer to be had).
bool QAskUser(const char* caption, const char* text, int flags, uint32_t word = 0);

} // namespace tarvik
