#!/usr/bin/env bash
# man_lint.sh PAGE TOOL: the manual passes the linters that are installed
# (exit 77, skipped, when none is) and describes every command the tool has.
set -uo pipefail
page=$1 tool=$2
linted=0 status=0
if command -v mandoc >/dev/null; then
  mandoc -T lint -W warning "$page" || status=1
  linted=1
fi
if command -v man >/dev/null && command -v groff >/dev/null; then
  out=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 -l "$page" 2>&1 >/dev/null)
  [ -z "$out" ] || { echo "$out"; status=1; }
  linted=1
fi
commands=$("$tool" --help | sed -n '/^Subcommands:/,/^$/p' | awk '/^  [a-z]/ {print $1}')
[ -n "$commands" ] || { echo "no commands in propmap --help"; exit 1; }
for cmd in $commands; do
  grep -Eq "^\.BI? \"?$cmd( |\"|$)" "$page" || { echo "the manual does not describe '$cmd'"; status=1; }
done
[ "$status" = 0 ] && [ "$linted" = 0 ] && { echo "no man page linter installed"; exit 77; }
exit "$status"
