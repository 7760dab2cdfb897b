#include "foundation/qoutput.h"

namespace tarvik {

bool QOutput::Open(const char* name, int flags)
{
    Abandon();
    out = PlatformOutputOpen(name, flags);
    return out != nullptr;
}

bool QOutput::Commit()
{
    PlatformOutput* o = out;
    out = nullptr;
    return PlatformOutputCommit(o);
}

void QOutput::Abandon()
{
    PlatformOutputAbandon(out);
    out = nullptr;
}

} // namespace tarvik
