#!/usr/bin/env bash
# man_page.sh TOOL OUT: the propmap(1) page from the tool's --help and the
# --help of each command, through help2man.
set -euo pipefail
tool=$1 out=$2
include=$(mktemp)
trap 'rm -f "$include"' EXIT
{
  echo "[COMMANDS]"
  for cmd in get set ls tree rm clean cp export import diff check restore watch; do
    echo ".SS $cmd"
    echo ".nf"
    "$tool" "$cmd" --help | sed 's/\\/\\\\/g; s/^\./\\\&./'
    echo ".fi"
  done
} >"$include"
help2man --no-info --no-discard-stderr --name="inspect, edit, compare and repair propmap profiles" \
  --include="$include" --output="$out" "$tool"
