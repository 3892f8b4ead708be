#!/usr/bin/env bash
# Sets up, builds and runs every test: a plain build, the whole suite under
# AddressSanitizer + UndefinedBehaviorSanitizer, and the multi-threaded tests
# under ThreadSanitizer, and a bounded run of every fuzz
# target. Any failure or sanitizer report fails the run.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
jobs=$(nproc)

echo "== plain build"
bash scripts/build.sh build/release
ctest --test-dir build/release --output-on-failure -j"$jobs"

echo "== AddressSanitizer + UndefinedBehaviorSanitizer"
bash scripts/build.sh build/asan -DCMAKE_BUILD_TYPE=Debug -DPROPMAP_SANITIZE=address,undefined -DPROPMAP_BUILD_BENCH=OFF
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build/asan --output-on-failure -j"$jobs"

echo "== ThreadSanitizer (multi-threaded tests)"
BUILD_TARGETS="propmap concurrency_tests" bash scripts/build.sh build/tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPROPMAP_SANITIZE=thread -DPROPMAP_BUILD_BENCH=OFF
TSAN_OPTIONS=halt_on_error=1 ctest --test-dir build/tsan --output-on-failure -L concurrency -j"$jobs"

echo "== fuzzing (bounded): document reader, iRegistry call sequences"
bash scripts/fuzz.sh bounded
