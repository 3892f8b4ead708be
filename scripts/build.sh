#!/usr/bin/env bash
# build.sh DIR [cmake options...]: configure (once) and build one tree.
# BUILD_TARGETS="a b" builds only those targets.
set -euo pipefail
dir=$1; shift
cd "$(dirname "$0")/.."
if [ ! -f "$dir/build.ninja" ]; then
  cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
fi
targets=()
for t in ${BUILD_TARGETS:-}; do targets+=(--target "$t"); done
cmake --build "$dir" "${targets[@]}" -- -j"$(nproc)"
