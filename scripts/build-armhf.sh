#!/usr/bin/env bash
# Usage: build-armhf.sh BUILD_DIR [test]
# Cross-builds everything but the benchmarks for armhf and, with "test", runs
# the functional tests under qemu-arm (not the soak or stress tests: emulated
# float math and 64-bit division are far too slow for them).
set -euo pipefail
build=$1
root=$(cd "$(dirname "$0")/.." && pwd)
needed=(crossbuild-essential-armhf qemu-user)
missing=()
for p in "${needed[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo=""; [ "$(id -u)" -ne 0 ] && sudo=sudo
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
mkdir -p "$build"
sysroot=$(cd "$build" && pwd)/sysroot
"$root/scripts/armhf-sysroot.sh" "$sysroot"
cmake -S "$root" -B "$build" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/armhf-toolchain.cmake" \
  -DORV_ARMHF_SYSROOT="$sysroot" -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG" \
  -DORV_BUILD_BENCH=OFF
cmake --build "$build" -j "$(nproc)"
if [ "${2:-}" = test ]; then
  ctest --test-dir "$build" --output-on-failure -j "$(nproc)" -LE packaging -E 'Stress|Soak|install\.'
fi
