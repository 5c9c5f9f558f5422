#!/usr/bin/env bash
# Usage: build-armhf.sh BUILD_DIR [test]
# Cross-builds everything but the benchmarks for armhf and, with "test", runs
# the functional tests under qemu-arm.
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
# Left out of the emulated run, by label: `packaging` (man pages, unit file,
# Debian packages: the machine's man, systemd-analyze and lintian check files
# that are the same for every CPU, and `make test` checks them),
# `outside-build` (a program built with this machine's compiler against the
# installation, which cannot link ARM libraries), `load` and `soak` (long
# runs under load, where emulated float math and 64-bit division measure qemu
# rather than the code). The test programs and the daemon they start run
# through qemu-arm (see orv_emulated_program in tests/CMakeLists.txt).
if [ "${2:-}" = test ]; then
  ctest --test-dir "$build" --output-on-failure -j "$(nproc)" -LE 'packaging|outside-build|load|soak'
fi
