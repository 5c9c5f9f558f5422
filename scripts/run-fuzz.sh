#!/usr/bin/env bash
# Usage: run-fuzz.sh FUZZ_BUILD_DIR SECONDS [keep]
# Runs each libFuzzer program of FUZZ_BUILD_DIR (built by `make build-fuzz`:
# clang, ASan and UBSan) for SECONDS on top of its committed corpus
# (tests/fuzz/corpus/). With "keep", the inputs a run finds that reach code
# the kept ones do not are added to the committed corpus under
# corpus/<target>/found/, which the replay test runs for the invariants
# alone. An input that breaks an
# invariant or trips a sanitizer stays under tests/fuzz/crashes/<target>/
# and fails the run.
set -euo pipefail
build=${1:?usage: run-fuzz.sh FUZZ_BUILD_DIR SECONDS [keep]}
seconds=${2:?usage: run-fuzz.sh FUZZ_BUILD_DIR SECONDS [keep]}
keep=${3:-}
fuzz=$(cd "$(dirname "$0")/../tests/fuzz" && pwd)
targets=(ProcessRequest SeedLoader Deserializer RtuFrameReader DaemonConfig)

# Adds to corpus/TARGET/found/ those of the inputs in NEW that reach code
# the inputs kept there before do not (libFuzzer's merge), so that the
# committed corpus grows by what is new, not by every step of the search.
keepNew() {
  local target=$1 new=$2
  local found="$fuzz/corpus/$target/found"
  mkdir -p "$found"
  local before
  before=$(ls "$found" | wc -l)
  "$build/tests/fuzz/${target}Fuzz" -merge=1 "$found" "$new" 2>>"$build/$target.log"
  echo "   $(($(ls "$found" | wc -l) - before)) of $(ls "$new" | wc -l) new inputs kept in corpus/$target/found/"
}

failed=()
for target in "${targets[@]}"; do
  new="$fuzz/new-corpus/$target"
  crashes="$fuzz/crashes/$target"
  rm -rf "$new"
  mkdir -p "$new" "$crashes"
  echo "== ${target}Fuzz for ${seconds} s"
  if ! UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 "$build/tests/fuzz/${target}Fuzz" \
      -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
      -artifact_prefix="$crashes/" "$new" "$fuzz/corpus/$target" 2>"$build/$target.log"; then
    failed+=("$target")
  fi
  grep -E "^(stat::number_of_executed_runs|stat::new_units_added|Done)" "$build/$target.log" || true
  if [[ "$keep" == keep && -n "$(ls -A "$new")" ]]; then
    keepNew "$target" "$new"
  fi
done
if ((${#failed[@]})); then
  echo "fuzzing failed for: ${failed[*]} (see $build/<target>.log and tests/fuzz/crashes/)" >&2
  exit 1
fi
