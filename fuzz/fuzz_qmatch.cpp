// Wildcard matching on any pattern and text: the input is the pattern, a zero byte, the text.
#include "fuzz/fuzz.h"

#include "foundation/qmisc.h"

#include <string>

using namespace tarvik;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSetup();
    std::string input(reinterpret_cast<const char*>(data), size);
    size_t zero = input.find('\0');
    std::string pattern = input.substr(0, zero);
    std::string text = zero == std::string::npos ? std::string() : input.substr(zero + 1);
    QMatch(pattern.c_str(), text.c_str());
    return 0;
}
