#!/bin/bash
# Checks the whole tree: ./test.sh [--fast]
# Formatting; build and tests of the presets release and asan; overlapping calls under tsan; the same bytes from the
# builds of both compilers, with and without optimisation; static analysis. --fast: formatting, and the preset release
# alone.
# A failed phase does not end the run. The summary at the end names it, and the exit status is 1.
set -uo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")" || exit 1
fast=no
case "${1:-}" in
  "") ;;
  --fast) fast=yes ;;
  *)
    echo "usage: ./test.sh [--fast]" >&2
    exit 2
    ;;
esac

jobs=$(nproc)
logs=build/test-logs
mkdir -p "$logs"
summary=()
failures=0

# phase TITLE COMMAND...: runs the command, and notes how it ended and how long it took. Returns its status.
phase() {
  local title=$1 start=$SECONDS status=0 verdict=ok
  shift
  echo "== $title"
  "$@" || status=$?
  if [ $status -ne 0 ]; then
    verdict=FAILED
    failures=$((failures + 1))
  fi
  summary+=("$(printf '%-7s %4d s  %s' "$verdict" $((SECONDS - start)) "$title")")
  return $status
}

# quietly LOG COMMAND...: the command's output goes to a file, and is shown when the command fails.
quietly() {
  local log="$logs/$1" status=0
  shift
  "$@" >"$log" 2>&1 || status=$?
  [ $status -eq 0 ] || cat "$log"
  return $status
}

sources() {
  local folders=()
  for folder in "$@"; do
    [ -d "$folder" ] && folders+=("$folder")
  done
  find "${folders[@]}" -type f \( -name '*.cpp' -o -name '*.c' -o -name '*.h' \) -print0
}

check_format() {
  local log=$logs/format.log
  if ! sources src tests tools bench examples | xargs -0 clang-format --dry-run -Werror >"$log" 2>&1; then
    echo "not formatted (clang-format -i mends it):"
    sed -n 's/:[0-9]*:[0-9]*: error:.*//p' "$log" | sort -u
    return 1
  fi
}

# build PRESET [OPTION OF CMAKE...] [-- TARGET]
build() {
  local preset=$1 target=all
  shift
  local options=()
  while [ $# -gt 0 ] && [ "$1" != -- ]; do
    options+=("$1")
    shift
  done
  [ $# -gt 0 ] && target=$2
  quietly "configure-$preset.log" cmake --preset "$preset" "${options[@]}" &&
    quietly "build-$preset.log" cmake --build "build/$preset" --target "$target" -j "$jobs"
}

# Shows the closing lines of ctest, and before them the output of what failed.
run_tests() {
  local log="$logs/ctest-$1.log" status=0
  ctest --preset "$1" -j "$jobs" >"$log" 2>&1 || status=$?
  if [ $status -ne 0 ]; then
    grep -v -e '^ *Start ' -e ' Passed ' "$log"
  else
    sed -n '/tests passed,/,$p' "$log"
  fi
  return $status
}

compare_builds() {
  python3 tests/functional/same_bytes.py build/{release,debug,clang}/src/api/libVorlenSolver.so -- examples/*.xml
}

analyse() {
  find src tools -name '*.cpp' -print0 | xargs -0 -n 1 -P "$jobs" clang-tidy -p build/release --quiet \
    --extra-arg=-Wno-unknown-warning-option 2>/dev/null
}

phase "Packages" tools/setup.sh test || exit 1
phase "Formatting" check_format
phase "Build: release" build release -DVORLEN_TESTS=ON && phase "Tests: release" run_tests release
if [ $fast = no ]; then
  phase "Build: asan" build asan -DVORLEN_TESTS=ON && phase "Tests: asan" run_tests asan
  phase "Build: tsan" build tsan -DVORLEN_TESTS=ON -DVORLEN_TOOLS=OFF -- thread_tests &&
    phase "Tests: tsan" run_tests tsan
  phase "Build: debug, the library" build debug -- VorlenSolver &&
    phase "Build: clang, the library" build clang -- VorlenSolver &&
    phase "Same bytes: release, debug, clang" compare_builds
  phase "Static analysis" analyse
fi

echo "== Summary"
printf '%s\n' "${summary[@]}"
if [ $failures -gt 0 ]; then
  echo "$failures failed"
  exit 1
fi
echo "all passed in $SECONDS s"
