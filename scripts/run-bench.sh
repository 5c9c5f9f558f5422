#!/usr/bin/env bash
# Usage: run-bench.sh BUILD_DIR [benchmark options...]
# Builds the benchmark programs in BUILD_DIR if needed and runs each of them.
# Every program prints Google Benchmark's table and then the ratio of each
# case to its baseline measured in the same run (and NotificationBench the
# memory a data point costs). Each program takes a few seconds; extra
# options (e.g. --benchmark_filter=FC3) go to every program.
set -euo pipefail
build=${1:?usage: run-bench.sh BUILD_DIR [benchmark options...]}
shift
programs=(ProcessRequestBench AccessorBench NotificationBench DeviceAndAlarmBench RtuTurnaroundBench)
cmake --build "$build" -j "$(nproc)" --target "${programs[@]}"
for program in "${programs[@]}"; do
  echo
  echo "== $program"
  "$build/bench/$program" "$@"
done
