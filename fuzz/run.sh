#!/usr/bin/env bash
# Builds every fuzz target with clang's libFuzzer (ASan + UBSan) and runs each for SECONDS.
#   fuzz/run.sh SECONDS [target ...]
# Findings land in fuzz/out/<target>/; a crash file replays with build-fuzz/fuzz/fuzz_<target> FILE.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
top=$(cd "$here/.." && pwd)
seconds=${1:?usage: fuzz/run.sh SECONDS [target ...]}
shift
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for f in "$here"/fuzz_*.cpp; do
    t=$(basename "$f" .cpp); t=${t#fuzz_}
    [ "$t" = common ] || targets+=("$t")
  done
fi

bash "$top/tools/install-deps.sh"
CC=clang CXX=clang++ cmake -S "$top" -B "$top/build-fuzz" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DTARVIK_FUZZ=ON -DTARVIK_TESTS=OFF >/dev/null
cmake --build "$top/build-fuzz" -j"$(nproc)"
bash "$here/make-seeds.sh" "$top/build-fuzz"

for t in "${targets[@]}"; do
  mkdir -p "$here/out/$t" "$here/corpus/$t"
  echo "=== fuzz_$t for ${seconds}s"
  (cd "$here/out/$t" && "$top/build-fuzz/fuzz/fuzz_$t" "$here/corpus/$t" \
    -max_total_time="$seconds" -max_len=65536 -rss_limit_mb=2048 -close_fd_mask=2 -print_final_stats=1 2>&1 |
    grep -E '^(#[0-9]+ +DONE|stat::number_of_executed_units|stat::peak_rss|.*cov:|==[0-9]+==ERROR|SUMMARY)' | tail -n 6) || true
done
