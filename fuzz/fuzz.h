// Shared by the fuzz targets: each defines LLVMFuzzerTestOneInput and runs under libFuzzer, or,
// built without it, under replay_main.cpp, which feeds it the files named on its command line.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace tarvik {
// Silences the log file once per process: a fuzz run must not write QLOG.txt a million times.
void FuzzSetup();
// Writes the input to a file of this process in the temporary folder, with the given ending, and
// gives its name, for readers that take only a file name. The file is overwritten by the next
// input. Readers with an entry from memory are fed through it instead: no file work per input.
const char* FuzzWriteFile(const char* ending, const uint8_t* data, size_t size);
} // namespace tarvik
