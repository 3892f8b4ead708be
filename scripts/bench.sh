#!/usr/bin/env bash
# bench.sh [extra Google Benchmark flags]: builds a Release tree in build/bench,
# runs the peer comparison (pugixml and Boost.PropertyTree on the same
# generated profiles) and the memory probe of each side in a fresh process,
# prints the table of times and ratios, and writes build/bench/compare.json,
# build/bench/ratios.json, docs/bench-ratios.svg and the README's table.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
dir=build/bench
BUILD_TARGETS="peer_compare compare_memory" bash scripts/build.sh "$dir" -DCMAKE_BUILD_TYPE=Release
mkdir -p "$dir/run" docs
# Saves are fsync'ed in the run directory, on the disk the tree is on.
(cd "$dir/run" && ../bench/peer_compare --benchmark_repetitions=3 --benchmark_report_aggregates_only=true \
  --benchmark_out=../compare.json --benchmark_out_format=json "$@")
: > "$dir/memory.jsonl"
for side in propmap-host propmap pugixml ptree; do
  (cd "$dir/run" && ../bench/compare_memory "$side" 2) >> "$dir/memory.jsonl"
done
python3 scripts/bench_report.py "$dir/compare.json" "$dir/memory.jsonl" "$dir" README.md
cp "$dir/ratios.svg" docs/bench-ratios.svg
