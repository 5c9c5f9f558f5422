#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the demo need.
# Idempotent: only what is missing is installed, and the package lists are
# refreshed only when something has to be installed.
set -euo pipefail

packages=(
  build-essential cmake pkg-config
  libmodbus-dev libcxxtools-dev libspdlog-dev libfmt-dev libboost-dev
  nlohmann-json3-dev libgtest-dev libgmock-dev libbenchmark-dev
  mbpoll socat python3-pymodbus python3-serial python3-serial-asyncio
  libsystemd-dev systemd man-db groff-base lintian libcli11-dev
  clang
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "Installing missing packages: ${missing[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then
  sudo="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -q
$sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
