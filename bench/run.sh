#!/usr/bin/env bash
# Conversion speed: builds the tree, generates two recordings (40 channels x 60 000 and
# x 2 000 000 samples), converts each with sgf2ascii and with the fprintf baseline, writes the
# same number of bytes with dd (the floor), and prints wall time, MB/s, rows/s, peak memory and
# the ratios. Everything runs in bench-data/ under the build directory.
#   bench/run.sh [--quick] [--rounds N]    (--quick: the small recording only; N defaults to 3)
#
# This machine's page cache runs at memory speed and its timings swing by 2x from run to run, so
# sgf2ascii, dd and io_floor (the import and the writes without formatting) take turns, N rounds
# each, every run writing a new file after the last one was deleted, and the best round of each
# is printed. The baseline (about 18 s) runs once.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
bash "$top/tools/install-deps.sh" >/dev/null
cmake -S "$top" -B "$top/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$top/build" -j"$(nproc)" --target sgf2ascii makesgf fprintf_export io_floor >/dev/null
work="$top/build/bench-data"
mkdir -p "$work"
cd "$work"

sizes=(60000 2000000)
rounds=3
while [ $# -gt 0 ]; do
  case "$1" in
    --quick) sizes=(60000) ;;
    --rounds) rounds="$2"; shift ;;
    *) echo "usage: bench/run.sh [--quick] [--rounds N]"; exit 2 ;;
  esac
  shift
done

# Wall seconds (clock read around the run: /usr/bin/time prints hundredths only) and peak resident
# kilobytes of a command, from /usr/bin/time -v.
measure() {
  local t0 t1
  t0=$(date +%s%N)
  /usr/bin/time -v "$@" >/dev/null 2>time.log || { cat time.log; exit 1; }
  t1=$(date +%s%N)
  wall=$(awk -v a="$t0" -v b="$t1" 'BEGIN { printf "%.4f", (b - a) / 1e9 }')
  rss=$(awk -F': ' '/Maximum resident set size/ {print $2}' time.log)
}

printf '%-22s %10s %10s %12s %10s %9s\n' "run" "seconds" "MB/s" "rows/s" "peak MB" "samples MB"
for samples in "${sizes[@]}"; do
  rec="rec_${samples}.sgf"
  [ -f "$rec" ] || "$top/build/makesgf" "$rec" 1 100 27 "$samples" >/dev/null
  sampleMB=$(awk -v s="$samples" 'BEGIN { printf "%.1f", s * 40 * 4 / 1048576 }')

  measure "$top/build/bench/fprintf_export" "$rec" base.txt
  base=$wall; baseRss=$rss
  "$top/build/sgf2ascii" "$rec" ours.txt >/dev/null 2>&1
  cmp -s ours.txt base.txt || { echo "the baseline's table differs from sgf2ascii's"; exit 1; }
  bytes=$(stat -c %s ours.txt)
  mb=$(awk -v b="$bytes" 'BEGIN { printf "%.1f", b / 1048576 }')
  rm -f base.txt ours.txt

  ours=""; floor=""; io=""; oursRss=0
  blocks=$(( (bytes + 1048575) / 1048576 ))
  for ((round = 0; round < rounds; round++)); do
    measure "$top/build/sgf2ascii" "$rec" ours.txt
    rm -f ours.txt
    ours=$(awk -v a="$ours" -v b="$wall" 'BEGIN { print (a == "" || b < a) ? b : a }')
    [ "$rss" -gt "$oursRss" ] && oursRss=$rss
    measure dd if=/dev/zero of=floor.bin bs=1M count="$blocks" status=none
    rm -f floor.bin
    floor=$(awk -v a="$floor" -v b="$wall" 'BEGIN { print (a == "" || b < a) ? b : a }')
    measure "$top/build/bench/io_floor" "$rec" io.txt "$bytes"
    rm -f io.txt
    io=$(awk -v a="$io" -v b="$wall" 'BEGIN { print (a == "" || b < a) ? b : a }')
  done

  row() { awk -v n="$1" -v t="$2" -v mb="$mb" -v r="$samples" -v rss="$3" -v s="$sampleMB" \
    'BEGIN { t = t > 0 ? t : 0.001; printf "%-22s %10.3f %10.1f %12.0f %10.1f %9s\n", n, t, mb / t, r / t, rss / 1024, s }'; }
  echo "--- 40 channels x $samples samples: table $mb MB (best of $rounds for sgf2ascii and dd)"
  row "sgf2ascii" "$ours" "$oursRss"
  row "fprintf baseline" "$base" "$baseRss"
  row "dd floor" "$floor" 0
  row "import + writes only" "$io" 0
  awk -v o="$ours" -v b="$base" -v f="$floor" 'BEGIN {
    o = o > 0 ? o : 0.001; f = f > 0 ? f : 0.001
    printf "baseline/ours %.1fx   ours/floor %.2fx\n", b / o, o / f }'
  awk -v i="$io" -v f="$floor" -v o="$ours" 'BEGIN { f = f > 0 ? f : 0.001
    printf "import + writes only / floor %.2fx (formatting takes %.0f%% of our time)\n", i / f, 100 * (o - i) / o }'
  awk -v r="$oursRss" -v s="$sampleMB" 'BEGIN {
    printf "peak memory %.1f MB = samples %.1f MB + %.1f MB\n", r / 1024, s, r / 1024 - s }'
done
