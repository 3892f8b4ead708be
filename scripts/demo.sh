#!/usr/bin/env bash
# Sets up, builds and runs the demonstration of the store.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh build/release
./build/release/propmap_demo "$@"
