#!/usr/bin/env bash
# Usage: verify-unit.sh SYSTEMD_ANALYZE UNIT_FILE MAN_DIR
# The unit's documentation links are looked up among the built pages.
# systemd-analyze exits 0 on some findings it prints, so any output fails too.
set -uo pipefail
output=$(MANPATH=$3 "$1" verify "$2" 2>&1)
status=$?
echo "$output"
[ $status -eq 0 ] && [ -z "$output" ]
