#!/usr/bin/env bash
# build.sh DIR [cmake options...]: configure (once) and build one tree.
set -euo pipefail
dir=$1; shift
cd "$(dirname "$0")/.."
if [ ! -f "$dir/build.ninja" ]; then
  cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
fi
cmake --build "$dir" -- -j"$(nproc)"
