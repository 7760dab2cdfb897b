#!/usr/bin/env bash
# Builds the tree and runs every test: once as built for use, once under AddressSanitizer and
# UndefinedBehaviorSanitizer (leaks included), and once built with clang, whose fuzz targets replay
# the kept regressions as the other builds' do. Any failure or sanitizer report fails the run.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
jobs=$(nproc)
bash "$top/tools/install-deps.sh"

cmake -S "$top" -B "$top/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$top/build" -j"$jobs"
ctest --test-dir "$top/build" -j"$jobs" --output-on-failure

cmake -S "$top" -B "$top/build-sanitize" -DCMAKE_BUILD_TYPE=Debug -DTARVIK_SANITIZE=ON >/dev/null
cmake --build "$top/build-sanitize" -j"$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir "$top/build-sanitize" -j"$jobs" --output-on-failure
# clang reads the same sources with other warnings; the fuzzing build (fuzz/run.sh) is clang's too.
CC=clang CXX=clang++ cmake -S "$top" -B "$top/build-clang" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$top/build-clang" -j"$jobs"
ctest --test-dir "$top/build-clang" -j"$jobs" --output-on-failure
echo "all tests passed"
