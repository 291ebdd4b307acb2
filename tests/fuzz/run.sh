#!/bin/bash
# Runs the fuzz targets: tests/fuzz/run.sh [SECONDS [FOLDER OF THE TARGETS]]
# SECONDS (default 60) is the time for all three targets; fuzz_run runs beside the other two. The random seed is fixed.
# An input that crashes a target, triggers a sanitizer, violates an assertion or takes 10 s is saved in build/fuzz/found,
# and the exit status is 1. The corpora in build/fuzz/corpus are kept, so that the next run continues from them.
set -uo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/../.." || exit 1
seconds=${1:-60}
targets=${2:-build/fuzz/tests/fuzz}
if ! [[ $seconds =~ ^[0-9]+$ ]]; then
  echo "usage: tests/fuzz/run.sh [SECONDS [FOLDER OF THE TARGETS]]" >&2
  exit 2
fi
seeds=build/fuzz/seeds
corpus=build/fuzz/corpus
found=build/fuzz/found
mkdir -p "$corpus"/{reader,nesting,run} "$found"
python3 tests/fuzz/seeds.py "$seeds" || exit 1

# feed TARGET SHARE SEEDS...: SHARE is a percentage of the seconds.
feed() {
  local target=$1 share=$2
  shift 2
  "$targets/fuzz_$target" -seed=1 -max_total_time=$((seconds * share / 100 + 1)) -max_len=4096 -timeout=10 \
    -dict="$seeds/recipe.dict" -artifact_prefix="$found/$target-" -print_final_stats=1 "$corpus/$target" "$@" \
    >"$corpus/$target.log" 2>&1
}

failures=0
feed run 45 "$seeds/recipes" &
feed reader 35 "$seeds/recipes" "$seeds/xml" || failures=$((failures + 1))
feed nesting 20 "$seeds/xml" "$seeds/recipes" || failures=$((failures + 1))
wait $! || failures=$((failures + 1))
for target in reader nesting run; do
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$corpus/$target.log")
  coverage=$(sed -n 's/^#[0-9]*\t.* cov: \([0-9]*\) .*/\1/p' "$corpus/$target.log" | tail -n 1)
  if [ -n "$executions" ] && [ -n "$coverage" ]; then
    echo "$target: $executions executions, $coverage edges covered"
  else
    echo "$target: no executions; the log:"
    tail -n 40 "$corpus/$target.log"
    failures=$((failures + 1))
  fi
done
if [ $failures -gt 0 ]; then
  echo "stopped by the inputs in $found:"
  grep -h -E "^(SUMMARY|==[0-9]+== ERROR)|runtime error|Test unit written" "$corpus"/*.log
  exit 1
fi
