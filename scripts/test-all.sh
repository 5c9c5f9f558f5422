#!/usr/bin/env bash
# Usage: test-all.sh BUILD ASAN_BUILD
# What `make test` runs: the optimised build and every test, then the
# AddressSanitizer/UndefinedBehaviorSanitizer build and its tests. The tests
# spend most of their time waiting on sockets, serial lines and timers, so
# the sanitizer build compiles meanwhile, at a lower priority than the tests.
# Both test runs are reported; the script fails when either fails.
set -uo pipefail
build=${1:?usage: test-all.sh BUILD ASAN_BUILD}
asan=${2:?usage: test-all.sh BUILD ASAN_BUILD}

make --no-print-directory build BUILD="$build" || exit 1

log="$build/asan-build.log"
echo "== building $asan in the background (log: $log)"
nice -n 10 make --no-print-directory build-asan ASAN_BUILD="$asan" >"$log" 2>&1 &
asan_build=$!

echo "== tests of $build"
make --no-print-directory test-normal-only BUILD="$build"
normal=$?

wait "$asan_build"
asan_built=$?
tail -n 3 "$log"
if ((asan_built != 0)); then
  cat "$log" >&2
  echo "the sanitizer build failed" >&2
  exit 1
fi

echo "== tests of $asan"
make --no-print-directory test-asan-only ASAN_BUILD="$asan"
sanitized=$?

((normal == 0)) || echo "tests of $build failed" >&2
((sanitized == 0)) || echo "tests of $asan failed" >&2
((normal == 0 && sanitized == 0))
