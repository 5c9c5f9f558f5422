#!/usr/bin/env bash
# Usage: run-demo.sh BUILD_DIR CONFIG
set -euo pipefail
build=$1 config=$2
daemon=$build/daemon/orv-gw-modbusd
if [ ! -x "$daemon" ]; then
  echo "The daemon is not built yet; once it is, 'make demo' runs:"
  echo "  $daemon --config $config"
  exit 0
fi
exec "$daemon" --config "$config"
