#!/usr/bin/env bash
# DDS figures: builds dds_bench and runs it on a 4096x4096 DXT5 file with its full chain of 13
# mipmap levels (22 MB of blocks): the best of N loads through DDDS::Load (read and every block
# flipped) beside the best of N single freads of the same bytes into one block (the floor), and
# their ratio, which should stay at or below 1.5. The preloading road (the file in memory first,
# as archive members come) is printed as well. The file lives in bench-data/dds/ under the build
# directory and is read from the page cache. The machine's load moves the figures; the script
# runs the program R times and prints each line.
#   bench/dds.sh [N] [R]        (N: loads per road and run, default 50; R: runs, default 3)
# BUILD_DIR picks another build directory than build/.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$top/build}
loads=${1:-50}
runs=${2:-3}
cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j2 --target dds_bench >/dev/null
work="$build/bench-data/dds"
mkdir -p "$work"
for _ in $(seq "$runs"); do
  "$build/bench/dds_bench" "$work" "$loads"
done
