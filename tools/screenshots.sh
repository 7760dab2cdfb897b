#!/usr/bin/env bash
# Makes the README's pictures: sgftool in a terminal on a virtual X display, the per-lap CSV
# tables it writes as a plot of speed against lap distance, and the qwindows demo after a Tab and a
# click. Writes docs/*.png.
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
cmake -S "$top" -B "$top/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$top/build" -j"$(nproc)" --target sgftool qwindows >/dev/null
work=$(mktemp -d)
trap 'kill "${xvfb:-0}" 2>/dev/null || true; rm -rf "$work"' EXIT
mkdir -p "$top/docs"

# A free display number: the first without a lock file.
display=90
while [ -e "/tmp/.X$display-lock" ]; do display=$((display + 1)); done
Xvfb ":$display" -screen 0 760x560x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
export DISPLAY=":$display"
for _ in $(seq 50); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done 2>/dev/null || sleep 1

cp "$top/examples/lap.sgf" "$work/"
cat > "$work/show.sh" <<SHOW
cd "$work"
printf '\$ sgftool info lap.sgf\n'
"$top/build/sgftool" info lap.sgf 2>/dev/null | sed -n '/sample rate/,\$p'
printf '\$ sgftool export lap.sgf --split-laps --units\n'
"$top/build/sgftool" export lap.sgf --split-laps --units 2>/dev/null && ls lap.lap*.csv
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
(cd "$work" && "$top/build/qwindows" -quiet) &
demo=$!
for _ in $(seq 50); do xdotool search --name '^qwindows$' >/dev/null 2>&1 && break; sleep 0.1; done
sleep 0.5
win=$(xdotool search --name '^qwindows$' | head -1)
xdotool key Tab key Tab
xdotool mousemove --window "$win" 60 190 click 1
sleep 0.5
import -window "$win" "$top/docs/qwindows.png"
kill "$demo" 2>/dev/null || true

echo "wrote docs/sgftool-info.png, docs/sgftool-laps.png and docs/qwindows.png"
