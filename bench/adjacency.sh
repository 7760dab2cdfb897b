#!/usr/bin/env bash
# Geometry figures of a geob: builds adjacency_bench and runs it. For a closed mesh (a torus grid)
# and a soup of random triangles of 3 000, 30 000 and 64 998 indices it prints the time of
# DGeob::BuildAdjacency (best of N) beside the plain search through the whole list for every edge
# (once), and checks that both give the same list; then the time of RethinkNormals and
# CalculateTangentArray on the largest closed mesh, whose texture is mirrored halfway round.
#   bench/adjacency.sh [N]        (N: rounds of ours, default 5)
# BUILD_DIR picks another build directory than build/.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$top/build}
cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j2 --target adjacency_bench >/dev/null
"$build/bench/adjacency_bench" "${1:-5}"
