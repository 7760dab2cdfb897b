#!/usr/bin/env bash
# Archive size and speed against gzip. Makes a folder of mixed files (text, binary, random; the same
# bytes on every machine), packs it with qarchive, and expands it with our decoder (archive_bench,
# every member into memory, best of N in one process). The same folder as a tar file is packed with
# gzip -9 and expanded with gzip -d to /dev/null, timed as a whole command, best of N. Sizes are
# given per kind of file and for the whole folder. Everything runs in bench-data/archive/ under the
# build directory.
#   bench/archive.sh [MB] [N]       (MB: folder size, default 100; N: rounds, default 3)
# BUILD_DIR picks another build directory than build/.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$top/build}
mb=${1:-100}
runs=${2:-3}
cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j2 --target qarchive archive_bench >/dev/null
work="$build/bench-data/archive"
rm -rf "$work"
mkdir -p "$work"
cd "$work"

now() { date +%s.%N; }
best_of() { # best_of N command...: the shortest wall time of N runs, in seconds
  local n=$1 best=
  shift
  for _ in $(seq "$n"); do
    local t0 t1
    t0=$(now)
    "$@" >/dev/null
    t1=$(now)
    best=$(awk -v a="$best" -v b="$t0" -v c="$t1" 'BEGIN { d = c - b; print (a == "" || d < a) ? d : a }')
  done
  echo "$best"
}
size() { stat -c %s "$1"; }

"$build/bench/archive_bench" make all "$mb"
for kind in text binary random; do
  mkdir -p "$kind"
  ln all/"$kind"_* "$kind"/
done

printf '%-8s %12s %12s %8s %12s %8s %10s\n' kind bytes ours ours% gzip-9 gzip% ours/gzip
for kind in text binary random all; do
  raw=$(du -sb --apparent-size "$kind" | cut -f1)
  "$build/qarchive" pack "$kind.arc" "$kind" >/dev/null
  tar -cf "$kind.tar" "$kind"
  gzip -9 -c "$kind.tar" > "$kind.tar.gz"
  a=$(size "$kind.arc")
  g=$(size "$kind.tar.gz")
  awk -v k="$kind" -v r="$raw" -v a="$a" -v g="$g" \
    'BEGIN { printf "%-8s %12d %12d %7.1f%% %12d %7.1f%% %10.3f\n", k, r, a, 100 * a / r, g, 100 * g / r, a / g }'
done

t_pack=$(best_of 1 "$build/qarchive" pack again.arc all)
t_gzip=$(best_of 1 gzip -9 -c all.tar)
read -r bytes t_ours ours_mbs < <("$build/bench/archive_bench" expand all.arc "$runs")
t_gunzip=$(best_of "$runs" gzip -d -c all.tar.gz)
tarbytes=$(size all.tar)
echo
awk -v b="$bytes" -v tb="$tarbytes" -v to="$t_ours" -v tg="$t_gunzip" -v tp="$t_pack" -v tz="$t_gzip" 'BEGIN {
  printf "expand   ours %8.1f MB/s   gzip -d %8.1f MB/s   (ours %.2fx)\n", b / 1e6 / to, tb / 1e6 / tg, (b / to) / (tb / tg)
  printf "pack     ours %8.1f MB/s   gzip -9 %8.1f MB/s\n", b / 1e6 / tp, tb / 1e6 / tz
}'
