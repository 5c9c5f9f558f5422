#!/usr/bin/env bash
# Usage: check-debs.sh BUILD_DIR TEST_SOURCE_DIR WORK_DIR
set -euo pipefail
build=$1 source=$2 work=$3
rm -rf "$work"
mkdir -p "$work"

echo "== cpack"
(cd "$build" && cpack -G DEB -B "$work/debs" >"$work/cpack.log") || { cat "$work/cpack.log"; exit 1; }
mapfile -t debs < <(ls "$work"/debs/*.deb)
[ ${#debs[@]} -eq 3 ] || { echo "expected 3 packages, got: ${debs[*]}"; exit 1; }
for name in liborv-gw-modbus2 liborv-gw-modbus-dev orv-gw-modbusd; do
  ls "$work"/debs/${name}_*.deb >/dev/null
done

echo "== dependencies"
runtime_depends=$(dpkg-deb -f "$work"/debs/liborv-gw-modbus2_*.deb Depends)
echo "liborv-gw-modbus2: $runtime_depends"
for dep in libmodbus5 libspdlog1 libfmt9 libcxxtools; do
  grep -q "$dep" <<<"$runtime_depends" || { echo "missing dependency $dep"; exit 1; }
done
daemon_depends=$(dpkg-deb -f "$work"/debs/orv-gw-modbusd_*.deb Depends)
echo "orv-gw-modbusd: $daemon_depends"
grep -q 'liborv-gw-modbus2 (= ' <<<"$daemon_depends"
grep -q libsystemd0 <<<"$daemon_depends"
dpkg-deb -e "$work"/debs/orv-gw-modbusd_*.deb "$work/control"
grep -qx /etc/orv-gw-modbus/orv-gw-modbusd.json "$work/control/conffiles"

echo "== lintian"
# Tags suppressed on purpose are explained in lintian-suppressions.
lintian --suppress-tags-from-file "$source/lintian-suppressions" --fail-on error,warning \
  "${debs[@]}" | tee "$work/lintian.log"

echo "== outside plug-in against the unpacked development package"
root=$work/root
for deb in "${debs[@]}"; do dpkg -x "$deb" "$root"; done
libdir=$(dirname "$(find "$root" -name 'liborv-gw-modbus.so.2' | head -n 1)")
cmake -S "$source/outside-map" -B "$work/outside" -DCMAKE_PREFIX_PATH="$root/usr" \
  -DCMAKE_BUILD_TYPE=Release >"$work/outside-configure.log"
cmake --build "$work/outside" >"$work/outside-build.log"

echo "== the packaged daemon checks its packaged configuration with that plug-in"
sed "s#\"pluginDirectory\": \"[^\"]*\"#\"pluginDirectory\": \"$work/outside\"#" \
  "$root/etc/orv-gw-modbus/orv-gw-modbusd.json" >"$work/site.json"
LD_LIBRARY_PATH=$libdir "$root/usr/bin/orv-gw-modbusd" --check-config --config "$work/site.json" | tee "$work/check.log"
grep -qx "configuration OK" "$work/check.log"
echo "deb check passed"
