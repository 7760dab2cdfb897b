#!/usr/bin/env bash
# Texture figures: builds textures_bench and runs it on 1 000 small Targa files (64x64, 32 bits),
# first without OpenGL (D3_USE_OPENGL clear: the pictures are read and decoded and become texture
# objects, nothing is uploaded), then on a private virtual X server with every texture uploaded
# with its mipmaps. Each run prints the first pass (d3LoadTextureMap, DBitMapTexture, the pool's
# Add) beside the second (the same names found in the pool and attached), and their ratio; the
# second must be at least 100 times faster. The files live in bench-data/textures/ under the build
# directory and are read from the page cache. Best of N runs of each road.
#   bench/textures.sh [N]        (N: runs per road, default 3)
# BUILD_DIR picks another build directory than build/.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$top/build}
runs=${1:-3}
cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j2 --target textures_bench >/dev/null
work="$build/bench-data/textures"
mkdir -p "$work"
cd "$work"

# The run with the fastest first pass of 'runs' runs.
best() {
  local line out=""
  for _ in $(seq "$runs"); do
    line=$("$@" 2>/dev/null | tail -n 1)
    if [ -z "$out" ] || awk -v a="$line" -v b="$out" 'BEGIN { split(a, x, " "); split(b, y, " "); exit !(x[5] + 0 < y[5] + 0) }'; then
      out=$line
    fi
  done
  echo "$out"
}

best "$build/bench/textures_bench" "$work" 1000
if command -v xvfb-run >/dev/null; then
  best xvfb-run -a -s "-screen 0 640x480x24" "$build/bench/textures_bench" "$work" 1000 --gl
else
  echo "opengl: xvfb-run is not installed"
fi
