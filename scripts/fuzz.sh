#!/usr/bin/env bash
# fuzz.sh [bounded|long [SECONDS]]: builds the libFuzzer target of the
# document reader with clang in build/fuzz (AddressSanitizer + UBSan) and runs it.
#   bounded (default): replays every kept crash input in fuzz/crashes, then a
#     fixed number of runs over the seed corpus; new inputs go to a temporary
#     directory, so the repository is not touched. Used by scripts/test.sh.
#   long: runs for SECONDS (default 3600) on all cores, growing fuzz/corpus and
#     writing any crashing input to fuzz/crashes, where bounded mode replays it
#     from then on (keep it in the repository once the fault is fixed).
set -euo pipefail
cd "$(dirname "$0")/.."
mode=${1:-bounded}
dir=build/fuzz
if [ ! -f "$dir/build.ninja" ]; then
  CC=clang CXX=clang++ cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DPROPMAP_SANITIZE=address,undefined -DPROPMAP_FUZZ=ON -DPROPMAP_BUILD_BENCH=OFF >/dev/null
fi
cmake --build "$dir" --target profile_reader_fuzz -- -j"$(nproc)"
fuzzer=$dir/fuzz/profile_reader_fuzz
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
options=(-dict=fuzz/profile.dict -max_len=65536 -timeout=10 -rss_limit_mb=2048)

crashes=(fuzz/crashes/*)
if [ -e "${crashes[0]}" ]; then
  echo "replaying ${#crashes[@]} kept crash input(s)"
  "$fuzzer" "${options[@]}" "${crashes[@]}"
fi

case "$mode" in
  bounded)
    work=$(mktemp -d)
    trap 'rm -rf "$work"' EXIT
    "$fuzzer" "${options[@]}" -runs=200000 -seed=1 -print_final_stats=1 "$work" fuzz/corpus 2>&1 | tail -n 3
    ;;
  long)
    seconds=${2:-3600}
    "$fuzzer" "${options[@]}" -max_total_time="$seconds" -jobs="$(nproc)" -workers="$(nproc)" \
      -artifact_prefix=fuzz/crashes/ fuzz/corpus
    ;;
  *)
    echo "usage: $0 [bounded|long [SECONDS]]" >&2
    exit 2
    ;;
esac
