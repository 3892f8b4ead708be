#!/usr/bin/env bash
# fuzz.sh [bounded|long [SECONDS]] [TARGET...]: builds the libFuzzer targets
# with clang in build/fuzz (AddressSanitizer + UBSan) and runs them:
#   profile_reader_fuzz  the document reader
#   store_ops_fuzz       iRegistry call sequences on two stores against a model
# Each target has its seed corpus in fuzz/corpus/TARGET and its kept crash
# inputs in fuzz/crashes/TARGET.
#   bounded (default): replays every kept crash input, then a fixed number of
#     runs over the seed corpus; new inputs go to a temporary directory, so the
#     repository is not touched. Used by scripts/test.sh.
#   long: runs each target for SECONDS (default 3600) on all cores, growing its
#     corpus and writing any crashing input to its crashes directory, where
#     bounded mode replays it from then on (keep it in the repository once the
#     fault is fixed). Prints executions and coverage at the end.
set -euo pipefail
cd "$(dirname "$0")/.."
mode=${1:-bounded}
shift || true
seconds=3600
if [ "$mode" = long ] && [[ ${1:-} =~ ^[0-9]+$ ]]; then seconds=$1; shift; fi
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(profile_reader_fuzz store_ops_fuzz)
declare -A runs=([profile_reader_fuzz]=200000 [store_ops_fuzz]=30000)
declare -A extra=([profile_reader_fuzz]="-dict=fuzz/profile.dict -max_len=65536")

dir=build/fuzz
if [ ! -f "$dir/build.ninja" ]; then
  CC=clang CXX=clang++ cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DPROPMAP_SANITIZE=address,undefined -DPROPMAP_FUZZ=ON -DPROPMAP_BUILD_BENCH=OFF >/dev/null
fi
cmake --build "$dir" $(printf -- '--target %s ' "${targets[@]}") -- -j"$(nproc)"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

for target in "${targets[@]}"; do
  fuzzer=$dir/fuzz/$target
  # shellcheck disable=SC2206
  options=(${extra[$target]:-} -timeout=10 -rss_limit_mb=2048)
  corpus=fuzz/corpus/$target
  log=$(mktemp)
  crashes=(fuzz/crashes/$target/*)
  if [ -e "${crashes[0]}" ]; then
    echo "$target: replaying ${#crashes[@]} kept crash input(s)"
    "$fuzzer" "${options[@]}" "${crashes[@]}" >"$log" 2>&1 || { tail -n 40 "$log"; exit 1; }
  fi
  case "$mode" in
    bounded)
      work=$(mktemp -d)
      "$fuzzer" "${options[@]}" -runs="${runs[$target]}" -seed=1 "$work" "$corpus" >"$log" 2>&1 ||
        { tail -n 40 "$log"; exit 1; }
      grep -E '^#[0-9]+[[:space:]]+DONE' "$log" | sed "s/^/$target: /"
      rm -rf "$work"
      ;;
    long)
      mkdir -p "fuzz/crashes/$target"
      "$fuzzer" "${options[@]}" -max_total_time="$seconds" -jobs="$(nproc)" -workers="$(nproc)" \
        -artifact_prefix="fuzz/crashes/$target/" "$corpus"
      grep -h 'DONE' fuzz-*.log | sed "s/^/$target: /" || true
      rm -f fuzz-*.log
      ;;
    *)
      echo "usage: $0 [bounded|long [SECONDS]] [TARGET...]" >&2
      exit 2
      ;;
  esac
  rm -f "$log"
done
