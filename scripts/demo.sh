#!/usr/bin/env bash
# Sets up, builds and runs the demonstration of the store, then a short
# session with the propmap tool on a copy of the sample profile.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh build/release
./build/release/propmap_demo "$@"

tool=$PWD/build/release/tools/propmap/propmap
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp examples/profiles.xml "$work/profiles.xml"
cd "$work"
# Prints the command, runs it and shows a non-zero exit status.
run() {
  echo "\$ propmap $*"
  local status=0
  "$tool" "$@" || status=$?
  [ "$status" -eq 0 ] || echo "(exit $status)"
}
echo
echo "== the propmap tool on a copy of the sample profile"
run ls Window
run get Window/Width --type tSTRING --raw
run set Window/Width 1920 --type tDWORD
run diff profiles.xml.bak2 profiles.xml
run set Window/Width wide --type tDWORD
echo '{"format": "propmap", "keys": [{"name": "Window", "values": [{"name": "Dpi", "type": "tWORD", "value": 96}]}]}' \
  >patch.json
run import patch.json --dry-run
run tree Window/Panels --depth 1
run find dock Window
run export Window/Panels/Explorer
run restore profiles.xml --from bak2 --yes
run check profiles.xml
