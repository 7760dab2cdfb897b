// Replays inputs through a fuzz target without libFuzzer: each argument is a file, or a directory
// whose files are replayed. Exits 0 if every input ran through; a fault shows as a crash or a
// sanitizer report, as it would under the fuzzer.
#include "fuzz/fuzz.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

static int ReplayFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "replay: can't read %s\n", path.c_str());
        return 1;
    }
    std::vector<uint8_t> data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(data.data(), data.size());
    return 0;
}

int main(int argc, char** argv)
{
    int failures = 0, count = 0;
    for (int i = 1; i < argc; i++) {
        std::filesystem::path p(argv[i]);
        if (std::filesystem::is_directory(p)) {
            for (const auto& e : std::filesystem::directory_iterator(p))
                if (e.is_regular_file()) failures += ReplayFile(e.path()), count++;
        } else {
            failures += ReplayFile(p), count++;
        }
    }
    std::fprintf(stderr, "replay: %d inputs\n", count);
    return failures ? 1 : 0;
}
