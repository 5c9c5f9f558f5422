#!/usr/bin/env bash
# Usage: test-all.sh BUILD ASAN_BUILD TSAN_BUILD FUZZ_BUILD
# What `make test` runs: the optimised build and every test; the
# AddressSanitizer/UndefinedBehaviorSanitizer build and its tests; the
# ThreadSanitizer build and the threaded tests; every fuzz target for 10 s.
# The tests spend most of their time waiting on sockets, serial lines and
# timers, so the next builds compile meanwhile, at a lower priority than the
# tests: the sanitizer build during the first tests, the race detector's
# build and the fuzz programs (which then run) during the sanitizer's tests.
# Every run is reported, with its time; the script fails when any fails.
set -uo pipefail
build=${1:?usage: test-all.sh BUILD ASAN_BUILD TSAN_BUILD FUZZ_BUILD}
asan=${2:?usage: test-all.sh BUILD ASAN_BUILD TSAN_BUILD FUZZ_BUILD}
tsan=${3:?usage: test-all.sh BUILD ASAN_BUILD TSAN_BUILD FUZZ_BUILD}
fuzz=${4:?usage: test-all.sh BUILD ASAN_BUILD TSAN_BUILD FUZZ_BUILD}
start=$SECONDS
declare -A results
# What each build and test run took, for the log.
TIMEFORMAT="== %R s wall, %U s user, %S s sys"

# Runs "make TARGET VARIABLE=VALUE" in the background at a lower priority,
# its output and its time in LOG; the job's id is left in $!.
make_in_background() {
  local log=$1
  shift
  echo "== make $* in the background (log: $log)"
  { time nice -n 10 make --no-print-directory "$@"; } >"$log" 2>&1 &
}

# Waits for the background job PID; on failure shows its LOG.
finished() {
  local pid=$1 log=$2
  wait "$pid"
  local status=$?
  tail -n 1 "$log"
  ((status == 0)) || cat "$log" >&2
  return $status
}

# Runs "make TARGET ..." in the foreground and records its result under NAME.
run() {
  local name=$1
  shift
  local began=$SECONDS
  echo "== $name"
  time make --no-print-directory "$@"
  local status=$?
  results[$name]="$( ((status == 0)) && echo passed || echo FAILED) in $((SECONDS - began)) s"
  return $status
}

summary() {
  echo "== make test: $((SECONDS - start)) s"
  local failed=0 name
  for name in "tests of $build" "tests of $asan" "tests of $tsan" "fuzzing ($fuzz)"; do
    echo "   $name: ${results[$name]:-not run}"
    [[ ${results[$name]:-} == passed* ]] || failed=1
  done
  return $failed
}

run "build of $build" build BUILD="$build" || { summary; exit 1; }

mkdir -p "$build"
make_in_background "$build/asan-build.log" build-asan ASAN_BUILD="$asan"
asan_build=$!
run "tests of $build" test-normal-only BUILD="$build"
finished "$asan_build" "$build/asan-build.log" || { echo "the sanitizer build failed" >&2; summary; exit 1; }

make_in_background "$build/tsan-build.log" build-tsan TSAN_BUILD="$tsan"
tsan_build=$!
make_in_background "$build/fuzz.log" test-fuzz FUZZ_BUILD="$fuzz"
fuzzing=$!
run "tests of $asan" test-asan-only ASAN_BUILD="$asan"

if finished "$tsan_build" "$build/tsan-build.log"; then
  run "tests of $tsan" test-tsan-only TSAN_BUILD="$tsan"
else
  echo "the race detector's build failed" >&2
fi

began=$SECONDS
finished "$fuzzing" "$build/fuzz.log"
fuzzed=$?
grep -E "^== [A-Za-z]+Fuzz |^Done" "$build/fuzz.log"
results["fuzzing ($fuzz)"]="$( ((fuzzed == 0)) && echo passed || echo FAILED), waited $((SECONDS - began)) s for it"
summary
