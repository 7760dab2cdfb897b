#!/usr/bin/env bash
# Canvas figures: builds canvas_bench and runs it on a private virtual X server, where OpenGL is
# the software renderer. A frame is a screenful of text (80 columns x 40 lines) and 10 000 filled
# rectangles of random sizes and colours, drawn through the canvas and again with plain
# immediate-mode calls; the table gives the median (best) milliseconds of a frame of each, frames
# a second, and the ratio canvas/plain, once for the display-list font and once for the texture
# font, with the rectangles and the text also alone. The canvas should cost at most 1.3 times the
# plain calls. The machine's load moves the figures; the script runs the program R times.
#   bench/canvas.sh [N] [R]        (N: frames per road and run, default 30; R: runs, default 2)
# BUILD_DIR picks another build directory than build/.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$top/build}
frames=${1:-30}
runs=${2:-2}
cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j2 --target canvas_bench >/dev/null
if ! command -v Xvfb >/dev/null; then
  echo "canvas: Xvfb is not installed"
  exit 1
fi

# A free display number: the first without a lock file.
display=90
while [ -e "/tmp/.X$display-lock" ]; do display=$((display + 1)); done
Xvfb ":$display" -screen 0 1024x768x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
trap 'kill "$xvfb" 2>/dev/null || true' EXIT
export DISPLAY=":$display"
for _ in $(seq 50); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done 2>/dev/null || sleep 1

# The window's reports (software rendering, pixel format) are shown only when a run fails.
log=$(mktemp)
trap 'kill "$xvfb" 2>/dev/null || true; rm -f "$log"' EXIT
for _ in $(seq "$runs"); do
  "$build/bench/canvas_bench" "$frames" 2>"$log" || { cat "$log"; exit 1; }
done
