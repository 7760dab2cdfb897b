#include "foundation/qask.h"

#include "platform/platform.h"

namespace tarvik {

bool QAskUser(const char* caption, const char* text, int flags, uint32_t)
{
    const bool okOnly = flags & QASK_OK_ONLY;
    // Without anyone to answer, a box with one button has been seen; a real question is refused.
    const PlatformAnswer safe = okOnly ? PLATFORM_ANSWER_OK : PLATFORM_ANSWER_CANCEL;
    PlatformAnswer a = PlatformQuestion(caption, text, okOnly ? PLATFORM_BUTTONS_OK : PLATFORM_BUTTONS_OK_CANCEL,
                                        nullptr, safe);
    return a != PLATFORM_ANSWER_OK;
}

} // namespace tarvik
