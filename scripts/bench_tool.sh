#!/usr/bin/env bash
# bench_tool.sh [MEGABYTES]: the propmap tool on a generated profile (10 MB by
# default): wall time (best of 3) and peak RSS of ls, tree, --json tree and
# both exports, with the two ratios the JSON output is held to: peak RSS of
# --json tree at most 1.5 times that of ls (which holds the loaded tree too),
# and --json tree no slower than the XML export. Writes build/bench/tool.json.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
size=${1:-10}
dir=build/bench
BUILD_TARGETS="propmap propmap_tool generate_profile" bash scripts/build.sh "$dir" -DCMAKE_BUILD_TYPE=Release
run=$dir/tool-run
mkdir -p "$run"
tool=$PWD/$dir/tools/propmap/propmap
profile=$run/profile-${size}mb.xml
[ -f "$profile" ] || "$dir/bench/generate_profile" "$size" "$profile"
bytes=$(stat -c %s "$profile")

# "SECONDS KILOBYTES" of the best of three runs (least time; the largest peak).
measure() {
  local best="" peak=0 t k
  for _ in 1 2 3; do
    /usr/bin/time -f "%e %M" -o "$run/time.txt" "$tool" -p "$profile" "$@" >/dev/null
    read -r t k < "$run/time.txt"
    [ -z "$best" ] || awk -v a="$t" -v b="$best" 'BEGIN { exit !(a < b) }' && best=$t
    [ "$k" -gt "$peak" ] && peak=$k
  done
  echo "$best $peak"
}

declare -A seconds rss
for name in ls tree json-tree export-xml export-json; do
  case $name in
    ls) args=(ls) ;;
    tree) args=(tree) ;;
    json-tree) args=(--json tree) ;;
    export-xml) args=(export) ;;
    export-json) args=(export --format json) ;;
  esac
  read -r seconds[$name] rss[$name] < <(measure "${args[@]}")
done

printf '%-12s %9s %12s\n' command seconds "peak RSS MB"
for name in ls tree json-tree export-xml export-json; do
  printf '%-12s %9s %12.1f\n' "$name" "${seconds[$name]}" "$(awk -v k="${rss[$name]}" 'BEGIN { print k / 1024 }')"
done
rss_ratio=$(awk -v a="${rss[json-tree]}" -v b="${rss[ls]}" 'BEGIN { print a / b }')
time_ratio=$(awk -v a="${seconds[json-tree]}" -v b="${seconds[export-xml]}" 'BEGIN { print a / b }')
printf 'profile %s bytes; --json tree: %.2f x the peak RSS of ls (target <= 1.5), %.2f x the time of export (target <= 1)\n' \
  "$bytes" "$rss_ratio" "$time_ratio"
{
  printf '{"profile_bytes": %s, "rss_ratio_json_tree_to_ls": %.3f, "time_ratio_json_tree_to_export": %.3f, "runs": {' \
    "$bytes" "$rss_ratio" "$time_ratio"
  sep=""
  for name in ls tree json-tree export-xml export-json; do
    printf '%s"%s": {"seconds": %s, "peak_rss_kb": %s}' "$sep" "$name" "${seconds[$name]}" "${rss[$name]}"
    sep=", "
  done
  printf '}}\n'
} > "$dir/tool.json"
