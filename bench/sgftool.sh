#!/usr/bin/env bash
# sgftool's speed beside sgf2ascii, in one run:
#  - the 2 000 000-sample recording (40 channels) as CSV with sgftool against the text table of
#    sgf2ascii, wall time, best of N interleaved rounds; and the two roads inside one process
#    (bench/sgftool_roads: the recording loaded once, processor time), which the machine's other
#    work disturbs less. Goal: the CSV road costs at most 1.1x the text road.
#  - 40 recordings converted with -j 2 against one at a time. Goal: at least 1.7x on 2 cores.
#   bench/sgftool.sh [--rounds N]
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
rounds=3
[ "${1:-}" = "--rounds" ] && rounds=$2
bash "$top/tools/install-deps.sh" >/dev/null
cmake -S "$top" -B "$top/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$top/build" -j"$(nproc)" --target sgf2ascii sgftool makesgf sgftool_roads >/dev/null
work="$top/build/bench-data"
mkdir -p "$work"
cd "$work"

seconds() { # wall seconds of a command, its output thrown away
  local t0 t1
  t0=$(date +%s%N)
  "$@" >/dev/null 2>&1
  t1=$(date +%s%N)
  awk -v a="$t0" -v b="$t1" 'BEGIN { printf "%.3f", (b - a) / 1e9 }'
}
best() { awk -v a="$1" -v b="$2" 'BEGIN { print (a == "" || b < a) ? b : a }'; }

rec=rec_2000000.sgf
[ -f "$rec" ] || "$top/build/makesgf" "$rec" 1 100 27 2000000 >/dev/null
text=""; csv=""
for ((r = 0; r < rounds; r++)); do
  text=$(best "$text" "$(seconds "$top/build/sgf2ascii" "$rec" t.txt)"); rm -f t.txt
  csv=$(best "$csv" "$(seconds "$top/build/sgftool" export "$rec" --format csv -o t.csv)"); rm -f t.csv
done
echo "--- 40 channels x 2 000 000 samples, best of $rounds"
printf '%-40s %8.3f s\n' "sgf2ascii (text table)" "$text" "sgftool export --format csv" "$csv"
awk -v c="$csv" -v t="$text" 'BEGIN { printf "csv / text, whole commands: %.2fx (goal: at most 1.1x)\n", c / t }'
"$top/build/bench/sgftool_roads" "$rec" "$((rounds + 2))" 2>/dev/null | sed 's/^/roads in one process: /'

mkdir -p many out1 out2
for i in $(seq -w 1 40); do
  [ -f "many/r$i.sgf" ] || "$top/build/makesgf" "many/r$i.sgf" 1 100 27 60000 >/dev/null
done
one=""; two=""
for ((r = 0; r < rounds; r++)); do
  one=$(best "$one" "$(seconds "$top/build/sgftool" export many/*.sgf -o out1 -j 1)")
  two=$(best "$two" "$(seconds "$top/build/sgftool" export many/*.sgf -o out2 -j 2)")
done
cmp -s out1/r01.csv out2/r01.csv || { echo "-j 2 wrote another table than -j 1"; exit 1; }
rm -rf out1 out2
echo "--- 40 recordings of 40 channels x 60 000 samples, best of $rounds ($(nproc) processors)"
printf '%-40s %8.3f s\n' "sgftool export -j 1" "$one" "sgftool export -j 2" "$two"
awk -v a="$one" -v b="$two" 'BEGIN { printf "speed-up -j 2: %.2fx (goal: at least 1.7x)\n", a / b }'
