// The expression evaluator on any text.
#include "fuzz/fuzz.h"

#include "foundation/qeval.h"

#include <string>

using namespace tarvik;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSetup();
    std::string text(reinterpret_cast<const char*>(data), size);
    Eval(text.c_str());
    return 0;
}
