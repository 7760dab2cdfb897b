#!/usr/bin/env bash
# Makes the README's pictures: sgftool in a terminal on a virtual X display, the per-lap CSV
# tables it writes as a plot of speed against lap distance, the qwindows demo after a Tab and a
# click, and qdraw, once as the display shows it and once as its own F11 screenshot wrote it.
# Writes docs/*.png. BUILD_DIR names the build tree to use (default build/).
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
bash "$top/tools/install-deps.sh" >/dev/null
missing=()
for p in xvfb xterm xfonts-base; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
build=${BUILD_DIR:-$top/build}
cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j"$(nproc)" --target sgftool qwindows qdraw sysfont >/dev/null
work=$(mktemp -d)
trap 'kill "${xvfb:-0}" 2>/dev/null || true; rm -rf "$work"' EXIT
mkdir -p "$top/docs"

# A free display number: the first without a lock file.
display=90
while [ -e "/tmp/.X$display-lock" ]; do display=$((display + 1)); done
# -noreset: the server would start over when its last client leaves, and a program started in that
# moment would find no display.
Xvfb ":$display" -screen 0 760x560x24 -nolisten tcp -noreset >/dev/null 2>&1 &
xvfb=$!
export DISPLAY=":$display"
for _ in $(seq 50); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done 2>/dev/null || sleep 1

cp "$top/examples/lap.sgf" "$work/"
cat > "$work/show.sh" <<SHOW
cd "$work"
printf '\$ sgftool info lap.sgf\n'
"$build/sgftool" info lap.sgf 2>/dev/null | sed -n '/sample rate/,\$p'
printf '\$ sgftool export lap.sgf --split-laps --units\n'
"$build/sgftool" export lap.sgf --split-laps --units 2>/dev/null && ls lap.lap*.csv
touch done
sleep 30
SHOW
xterm -geometry 92x34+0+0 -fa Mono -fs 10 -bg white -fg black -e bash "$work/show.sh" &
term=$!
for _ in $(seq 100); do [ -e "$work/done" ] && break; sleep 0.1; done
sleep 1
import -window root "$top/docs/sgftool-info.png"
kill "$term" 2>/dev/null || true

gnuplot -e "set terminal pngcairo size 760,360; set output '$top/docs/sgftool-laps.png';
  set datafile separator ','; set xlabel 'lapdist [m]'; set ylabel 'velocity [m/s]'; set key bottom right;
  plot for [i=1:3] sprintf('$work/lap.lap%02d.csv', i) using 'lapdist[m]':'velocity[m/s]' with lines title sprintf('lap %d', i)"
# The toolkit's first program: focus moved by Tab, then a click on the blue tile.
(cd "$work" && exec "$build/qwindows" -quiet) &
demo=$!
for _ in $(seq 50); do xdotool search --name '^qwindows$' >/dev/null 2>&1 && break; sleep 0.1; done
sleep 0.5
win=$(xdotool search --name '^qwindows$' | head -1)
xdotool key Tab key Tab
xdotool mousemove --window "$win" 60 190 click 1
sleep 0.5
import -window "$win" "$top/docs/qwindows.png"
kill "$demo" 2>/dev/null || true

# The canvas demo, its sprites stopped after 40 frames so that the picture is the same each time;
# then F11, with which the program writes the stage (its bc) as bc00001.tga. Targa keeps the bottom
# row first: -auto-orient turns it up.
(cd "$work" && exec "$build/qdraw" -frames 40 >"$work/qdraw.out") &
demo=$!
for _ in $(seq 100); do grep -q stopped "$work/qdraw.out" 2>/dev/null && break; sleep 0.1; done
sleep 0.3
win=$(xdotool search --name '^qdraw$' | head -1)
import -window "$win" "$top/docs/qdraw.png"
xdotool key F11
for _ in $(seq 50); do [ -s "$work/bc00001.tga" ] && break; sleep 0.1; done
sleep 0.3
convert "$work/bc00001.tga" -auto-orient "$top/docs/qdraw-f11.png"
kill "$demo" 2>/dev/null || true

echo "wrote docs/sgftool-info.png, docs/sgftool-laps.png, docs/qwindows.png, docs/qdraw.png and docs/qdraw-f11.png"
