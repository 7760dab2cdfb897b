#!/usr/bin/env bash
# Image load speed: builds image_load, makes one 4096x4096 photograph (the rose picture scaled up,
# with noise so that run-length storage gains little, as in real photographs) and writes it in
# each format we read. Per format it prints our megapixels a second (best of N loads in one
# process) beside ImageMagick's decode of the same file to raw RGBA, and for JPEG beside the
# library's own djpeg, which is the bar: all we add is the reordering of the pixels. The outside
# tools are timed as whole commands, best of N, so their figures include starting the program.
# Everything runs in bench-data/ under the build directory.
#   bench/images.sh [N]        (N: loads per format, default 5)
# BUILD_DIR picks another build directory than build/.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$top/build}
runs=${1:-5}
bash "$top/tools/install-deps.sh" >/dev/null
cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j"$(nproc)" --target image_load >/dev/null
work="$build/bench-data"
mkdir -p "$work"
cd "$work"

side=4096
mpx=$(awk -v s="$side" 'BEGIN { printf "%.2f", s * s / 1e6 }')
[ -f photo.ppm ] || convert rose: -resize "${side}x${side}!" -attenuate 0.4 +noise Gaussian -depth 8 photo.ppm
# The alpha for the 32-bit files: the picture's own grey, so that it varies like the colour.
[ -f photo.pam ] || convert photo.ppm \( +clone -colorspace Gray \) -alpha off -compose CopyOpacity \
  -composite -depth 8 photo.pam

# name | ImageMagick output | source | write options
formats=(
  "sgi verbatim|sgi:img_verbatim.rgb|photo.ppm|-compress None"
  "sgi rle|sgi:img_rle.rgb|photo.ppm|-compress RLE"
  "tga 32-bit verbatim|img_verbatim.tga|photo.pam|-compress None"
  "tga 32-bit rle|img_rle.tga|photo.pam|-compress RLE"
  "bmp 24-bit|bmp3:img.bmp|photo.ppm|-type TrueColor"
  "jpeg q90 4:4:4|img_444.jpg|photo.ppm|-quality 90 -sampling-factor 4:4:4"
  "jpeg q90 4:2:0|img_420.jpg|photo.ppm|-quality 90 -sampling-factor 4:2:0"
)

# Best wall seconds of 'runs' runs of a command.
best() {
  local b=1e30 t0 t1
  for _ in $(seq "$runs"); do
    t0=$(date +%s%N)
    "$@" >/dev/null 2>&1 || { echo "failed: $*" >&2; exit 1; }
    t1=$(date +%s%N)
    b=$(awk -v b="$b" -v t="$(( t1 - t0 ))" 'BEGIN { t /= 1e9; print (t < b ? t : b) }')
  done
  echo "$b"
}
rate() { awk -v m="$mpx" -v t="$1" 'BEGIN { printf "%.0f", m / t }'; }

echo "--- ${side}x${side} ($mpx Mpx), best of $runs; Mpx/s, higher is faster; the bar is djpeg for JPEG, ImageMagick otherwise"
printf '%-22s %8s %10s %14s %10s %10s\n' "format" "file MB" "ours" "ImageMagick" "djpeg" "ours/bar"
for f in "${formats[@]}"; do
  IFS='|' read -r name out src opts <<<"$f"
  file=${out#*:}
  # shellcheck disable=SC2086 # the options are words
  [ -f "$file" ] || convert "$src" -depth 8 $opts "$out"
  mb=$(awk -v b="$(stat -c %s "$file")" 'BEGIN { printf "%.1f", b / 1048576 }')
  line=$("$build/bench/image_load" "$file" "$runs")
  ours=$(awk '{ printf "%.0f", $(NF-1) }' <<<"$line")
  seconds=$(best convert "$out" -depth 8 rgba:/dev/null)
  im=$(rate "$seconds")
  bar=$im
  dj="-"
  if [[ $file == *.jpg ]]; then
    seconds=$(best djpeg -outfile /dev/null "$file")
    dj=$(rate "$seconds")
    bar=$dj
  fi
  ratio=$(awk -v o="$ours" -v b="$bar" 'BEGIN { printf "%.2fx", o / b }')
  printf '%-22s %8s %10s %14s %10s %10s\n' "$name" "$mb" "$ours" "$im" "$dj" "$ratio"
done
