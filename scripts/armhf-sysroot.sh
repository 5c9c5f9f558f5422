#!/usr/bin/env bash
# Usage: armhf-sysroot.sh SYSROOT_DIR
# Fetches the armhf builds of the libraries the project links into a sysroot
# of its own, through a private apt state: the machine's dpkg never learns
# the armhf architecture (with it, `apt-get update` fails here on a security
# index mismatch, which would break every later build).
set -euo pipefail
sysroot=$1
state=$sysroot.apt
packages=(
  libmodbus5 libmodbus-dev
  libcxxtools10 libcxxtools-dev libssl3
  libfmt9 libfmt-dev libspdlog1.10 libspdlog-dev
  libsystemd0 libsystemd-dev libcap2 libgcrypt20 libgpg-error0 liblz4-1 liblzma5 libzstd1
  libgtest-dev libgmock-dev googletest
  libboost1.74-dev nlohmann-json3-dev libcli11-dev
)

if [ -f "$sysroot/.complete" ]; then
  exit 0
fi
mkdir -p "$state/lists/partial" "$state/cache/archives/partial" "$state/debs" "$sysroot"
touch "$state/status"
apt_options=(
  -o APT::Architecture=armhf -o APT::Architectures=armhf
  -o Dir::State="$state" -o Dir::State::status="$state/status"
  -o Dir::Cache="$state/cache" -o Debug::NoLocking=1
)
# The security index fails its check here (exit status 100) while the main
# ones load; a package missing from them makes the download below fail.
apt-get "${apt_options[@]}" update -q || echo "apt-get update: some indexes failed; going on with the rest"
(cd "$state/debs" && apt-get "${apt_options[@]}" download "${packages[@]}")
for deb in "$state"/debs/*.deb; do
  dpkg -x "$deb" "$sysroot"
done
# The .pc files name /usr (in prefix=, and in some also in exec_prefix=,
# libdir= and includedir=); inside the sysroot they must name the sysroot.
find "$sysroot" -name '*.pc' -exec sed -i -E "s#^(prefix|exec_prefix|libdir|includedir)=/usr#\\1=$sysroot/usr#" {} +
touch "$sysroot/.complete"
