#!/usr/bin/env bash
# Usage: check-install.sh BUILD_DIR CONSUMER_SOURCE WORK_DIR
set -euo pipefail
build=$1 consumer=$2 work=$3
prefix=$work/root/usr
rm -rf "$work"
mkdir -p "$work"

# Into a scratch root: the installation has absolute parts (/etc).
DESTDIR=$work/root cmake --install "$build" >"$work/install.log"

soname=$(readelf -d "$prefix/lib/liborv-gw-modbus.so.2.0.0" 2>/dev/null \
         || readelf -d "$prefix"/lib/*/liborv-gw-modbus.so.2.0.0)
grep -q 'Library soname: \[liborv-gw-modbus.so.2\]' <<<"$soname" \
  || { echo "soname liborv-gw-modbus.so.2 missing"; exit 1; }

echo "== installed headers include only installed headers"
# A header moved out of the public set must leave no installed header
# that still includes it.
include=$prefix/include
missing=$(grep -rhoE '#include ("[^"]+"|<(orv|cdsapi|zu)/[^>]+>)' "$include" \
  | sed -E 's/#include [<"](.*)[>"]/\1/' | sort -u \
  | while read -r header; do [ -f "$include/$header" ] || echo "$header"; done)
[ -z "$missing" ] || { echo "installed headers include headers that are not installed:"; echo "$missing"; exit 1; }

libdir=$(dirname "$(find "$prefix" -name 'liborv-gw-modbus.so.2.0.0' | head -n 1)")

echo "== find_package"
cmake -S "$consumer" -B "$work/cmake-build" -DCMAKE_PREFIX_PATH="$prefix" >"$work/configure.log"
cmake --build "$work/cmake-build" >"$work/build.log"
LD_LIBRARY_PATH=$libdir "$work/cmake-build/consumer"

echo "== pkg-config"
export PKG_CONFIG_PATH=$libdir/pkgconfig
# shellcheck disable=SC2046
c++ -o "$work/consumer-pc" "$consumer/consumer.cpp" $(pkg-config --cflags --libs orv-gw-modbus)
LD_LIBRARY_PATH=$libdir "$work/consumer-pc"
echo "install check passed"
