// Field splitting of every type and mode on any text; the first byte chooses them.
#include "fuzz/fuzz.h"

#include "foundation/qsplit.h"

#include <string>

using namespace tarvik;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSetup();
    if (size < 1) return 0;
    int type = data[0] & 7, flags = (data[0] >> 3) & 1, keyMode = (data[0] & 16) ? 0 : 8;
    std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    QSplit split(text.c_str(), type, flags, keyMode);
    for (int i = -1; i <= split.GetCount(); i++) {
        split.GetValue(i).GetLength();
        split.GetName(i).GetLength();
    }
    return 0;
}
