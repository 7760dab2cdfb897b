// Shared by the fuzz targets: each defines LLVMFuzzerTestOneInput and runs under libFuzzer, or,
// built without it, under replay_main.cpp, which feeds it the files named on its command line.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace tarvik {
// Silences the log file once per process: a fuzz run must not write QLOG.txt a million times.
void FuzzSetup();
} // namespace tarvik
