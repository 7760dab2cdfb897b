#include "fuzz/fuzz.h"

#include "foundation/qmessage.h"

#include <cstdio>
#include <string>
#include "platform/platform.h"

namespace tarvik {

void FuzzSetup()
{
    static bool done = false;
    if (done) return;
    done = true;
    qmsgSetLogFile(false);
}

const char* FuzzWriteFile(const char* ending, const uint8_t* data, size_t size)
{
    static std::string name;
    name = "/tmp/tarvik-fuzz-" + std::to_string(PlatformProcessId()) + ending;
    FILE* f = std::fopen(name.c_str(), "wb");
    if (f) {
        std::fwrite(data, 1, size, f);
        std::fclose(f);
    }
    return name.c_str();
}

} // namespace tarvik
