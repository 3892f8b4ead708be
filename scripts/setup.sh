#!/usr/bin/env bash
# Installs every Debian package the project needs. Safe to run again: packages
# already present are not touched, and apt is only consulted when one is missing.
set -euo pipefail
packages=(cmake ninja-build g++ libboost1.81-dev googletest libgtest-dev libgmock-dev libbenchmark-dev libexpat1-dev
  clang libclang-rt-14-dev libcli11-dev nlohmann-json3-dev mandoc pkgconf time libpugixml-dev python3)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo_cmd=""; [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo_cmd apt-get update -qq
  $sudo_cmd apt-get install -y -qq "${missing[@]}"
fi
