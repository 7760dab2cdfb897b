#!/usr/bin/env bash
# Conversion speed: builds the tree, generates two recordings (40 channels x 60 000 and
# x 2 000 000 samples), converts each with sgf2ascii and with the fprintf baseline, writes the
# same number of bytes with dd (the floor), and prints wall time, MB/s, rows/s, peak memory and
# the ratios. Everything runs in bench-data/ under the build directory.
#   bench/run.sh [--quick]     (--quick: the small recording only)
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
bash "$top/tools/install-deps.sh" >/dev/null
cmake -S "$top" -B "$top/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$top/build" -j"$(nproc)" --target sgf2ascii makesgf fprintf_export >/dev/null
work="$top/build/bench-data"
mkdir -p "$work"
cd "$work"

sizes=(60000 2000000)
[ "${1:-}" = "--quick" ] && sizes=(60000)

# Wall seconds and peak resident kilobytes of a command, from /usr/bin/time -v.
measure() {
  /usr/bin/time -v "$@" >/dev/null 2>time.log || { cat time.log; exit 1; }
  wall=$(awk -F': ' '/Elapsed \(wall clock\)/ {print $2}' time.log |
    awk -F: '{ if (NF == 3) print $1*3600 + $2*60 + $3; else print $1*60 + $2 }')
  rss=$(awk -F': ' '/Maximum resident set size/ {print $2}' time.log)
}

printf '%-22s %10s %10s %12s %10s %9s\n' "run" "seconds" "MB/s" "rows/s" "peak MB" "samples MB"
for samples in "${sizes[@]}"; do
  rec="rec_${samples}.sgf"
  [ -f "$rec" ] || "$top/build/makesgf" "$rec" 1 100 27 "$samples" >/dev/null
  sampleMB=$(awk -v s="$samples" 'BEGIN { printf "%.1f", s * 40 * 4 / 1048576 }')

  measure "$top/build/sgf2ascii" "$rec" ours.txt
  ours=$wall; oursRss=$rss
  bytes=$(stat -c %s ours.txt)
  mb=$(awk -v b="$bytes" 'BEGIN { printf "%.1f", b / 1048576 }')

  measure "$top/build/bench/fprintf_export" "$rec" base.txt
  base=$wall; baseRss=$rss
  cmp -s ours.txt base.txt || { echo "the baseline's table differs from sgf2ascii's"; exit 1; }
  rm -f base.txt

  blocks=$(( (bytes + 1048575) / 1048576 ))
  measure dd if=/dev/zero of=floor.bin bs=1M count="$blocks" status=none
  floor=$wall
  rm -f floor.bin ours.txt

  row() { awk -v n="$1" -v t="$2" -v mb="$mb" -v r="$samples" -v rss="$3" -v s="$sampleMB" \
    'BEGIN { t = t > 0 ? t : 0.001; printf "%-22s %10.2f %10.1f %12.0f %10.1f %9s\n", n, t, mb / t, r / t, rss / 1024, s }'; }
  echo "--- 40 channels x $samples samples: table $mb MB"
  row "sgf2ascii" "$ours" "$oursRss"
  row "fprintf baseline" "$base" "$baseRss"
  row "dd floor" "$floor" 0
  awk -v o="$ours" -v b="$base" -v f="$floor" 'BEGIN {
    o = o > 0 ? o : 0.001; f = f > 0 ? f : 0.001
    printf "baseline/ours %.1fx   ours/floor %.2fx\n", b / o, o / f }'
done
