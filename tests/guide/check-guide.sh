#!/usr/bin/env bash
# Builds the example map of docs/writing-a-map.md from the guide's own text
# against a scratch installation, once with CMake and once with the
# guide's pkg-config command line.
# Usage: check-guide.sh BUILD_DIR GUIDE WORK_DIR
set -euo pipefail
build=$1 guide=$2 work=$3
here=$(cd "$(dirname "$0")" && pwd)
prefix=$work/prefix
source=$work/source
rm -rf "$work"
mkdir -p "$work"

cmake --install "$build" --prefix "$prefix" >"$work/install.log"
"$here/extract-blocks.py" "$guide" "$source"

echo "== CMake"
cmake -S "$source" -B "$work/cmake-build" -DCMAKE_PREFIX_PATH="$prefix" >"$work/configure.log"
cmake --build "$work/cmake-build" >"$work/build.log"
test -f "$work/cmake-build/libexample-map.so"

echo "== pkg-config"
libdir=$(dirname "$(find "$prefix" -name 'liborv-gw-modbus.so.2.0.0' | head -n 1)")
export PKG_CONFIG_PATH=$libdir/pkgconfig
(cd "$source" && bash build-with-pkg-config.sh)
test -f "$source/libexample-map.so"
echo "guide example built"
