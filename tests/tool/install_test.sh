#!/usr/bin/env bash
# install_test.sh BUILD_DIR SOURCE_DIR [build-consumer]: cmake --install into
# a temporary prefix, then run the installed tool on a copy of the sample and
# (unless sanitized) build a host against the installed package.
set -euo pipefail
build=$(cd "$1" && pwd) source=$(cd "$2" && pwd) consumer=${3:-1}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >/dev/null
for f in bin/propmap lib/propmap/libpropmap.so lib/libprhost.a include/propmap/host/store.h \
  share/man/man1/propmap.1 lib/cmake/propmap/propmapConfig.cmake lib/pkgconfig/propmap.pc \
  share/bash-completion/completions/propmap share/zsh/site-functions/_propmap \
  share/fish/vendor_completions.d/propmap.fish; do
  [ -e "$work/prefix/$f" ] || { echo "not installed: $f"; exit 1; }
done
tool=$work/prefix/bin/propmap
"$tool" --version | grep -qx "module: $work/prefix/lib/propmap/libpropmap.so" || {
  echo "the installed tool does not use the installed module"; "$tool" --version; exit 1; }
cp "$source/examples/profiles.xml" "$work/profiles.xml"
cd "$work"
[ "$("$tool" get Window/Width --value-only)" = 1680 ]
"$tool" set Window/Width 1920 --type dword
[ "$("$tool" get Window/Width --value-only)" = 1920 ]
if [ "$consumer" = 1 ]; then
  cmake -S "$source/tests/tool/consumer" -B "$work/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
  cmake --build "$work/consumer" >/dev/null
  "$work/consumer/consumer" | grep -qx "registered 23 methods"
  # The same host built with pkg-config alone; its flags are quoted for a
  # shell to read (the module's path is a string), as make's recipes do.
  flags=$(PKG_CONFIG_PATH=$work/prefix/lib/pkgconfig pkg-config --cflags --libs propmap)
  eval "c++ -std=c++20 -o \"$work/pc-consumer\" \"$source/tests/tool/consumer/consumer.cc\" $flags"
  "$work/pc-consumer" | grep -qx "registered 23 methods"
fi
echo "installed and ran from $work/prefix"
