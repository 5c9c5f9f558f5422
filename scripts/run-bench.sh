#!/usr/bin/env bash
# Usage: run-bench.sh BUILD_DIR [benchmark options...]
# Builds the benchmark programs in BUILD_DIR if needed and runs each of them.
# Every program prints Google Benchmark's table and then the ratio of each
# case to its baseline measured in the same run (and NotificationBench the
# memory a data point costs). Each program takes a few seconds; extra
# options (e.g. --benchmark_filter=FC3) go to every program. Last comes
# EndToEndBench, the real request path over TCP beside a bare libmodbus
# server (about 30 s; it takes its own options from END_TO_END_OPTIONS,
# e.g. "--seconds=2").
set -euo pipefail
build=${1:?usage: run-bench.sh BUILD_DIR [benchmark options...]}
shift
programs=(ProcessRequestBench AccessorBench NotificationBench DeviceAndAlarmBench RtuTurnaroundBench)
cmake --build "$build" -j "$(nproc)" --target "${programs[@]}" EndToEndBench
for program in "${programs[@]}"; do
  echo
  echo "== $program"
  "$build/bench/$program" "$@"
done
echo
echo "== EndToEndBench"
# shellcheck disable=SC2086
"$build/bench/EndToEndBench" ${END_TO_END_OPTIONS:-}
