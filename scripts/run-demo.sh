#!/usr/bin/env bash
# Usage: run-demo.sh BUILD_DIR CONFIG
# Runs the daemon on the demo map in the foreground; Ctrl-C stops it.
set -euo pipefail
build=$1 config=$2
echo "Starting orv-gw-modbusd on $config (Ctrl-C to stop)"
exec "$build/daemon/orv-gw-modbusd" --config "$config"
