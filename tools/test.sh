#!/usr/bin/env bash
# Builds the tree and runs every test: once as built for use, once under AddressSanitizer and
# UndefinedBehaviorSanitizer (leaks included). Any failure or sanitizer report fails the run.
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
echo "all tests passed"
