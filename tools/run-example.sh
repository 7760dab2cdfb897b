#!/usr/bin/env bash
# Builds sgf2ascii and converts the shipped example recording; shows the head of the table.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
bash "$top/tools/install-deps.sh"
cmake -S "$top" -B "$top/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
# Also the tools that the README's other commands run, so that each of them works as written.
cmake --build "$top/build" -j"$(nproc)" --target sgf2ascii sgftool makesgf qimgconv qarchive
mkdir -p "$top/build/example"
cd "$top/build/example"
"$top/build/sgf2ascii" "$top/examples/lap.sgf" lap.txt
echo "--- head of build/example/lap.txt ---"
sed -n 1,30p lap.txt
# The same command reads a measuring tool's tab-separated table.
"$top/build/sgf2ascii" "$top/examples/run.txt" run.txt 2>/dev/null
echo "--- build/example/run.txt, from the table examples/run.txt: column line and first rows ---"
# awk reads the whole table: a reader that stops early would end the writer with SIGPIPE, which
# pipefail turns into a failure of the script.
awk '!/^#/ && shown++ < 4' run.txt
