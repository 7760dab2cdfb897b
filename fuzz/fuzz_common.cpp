#include "fuzz/fuzz.h"

#include "foundation/qmessage.h"

namespace tarvik {

void FuzzSetup()
{
    static bool done = false;
    if (done) return;
    done = true;
    qmsgSetLogFile(false);
}

} // namespace tarvik
