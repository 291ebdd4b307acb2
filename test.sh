#!/bin/bash
# Checks the whole tree: ./test.sh [--fast|--coverage|--packages]
# Formatting; build and tests of the presets release and asan; the Python package; overlapping calls with tsan; identical
# results from both compilers, with and without optimisation; the builds for Windows (under Wine) and 64-bit ARM (in qemu);
# Debian packages; a minute of fuzzing; static analysis.
#   --fast      only formatting and the preset release
#   --coverage  test coverage of src/; fails below the limits in report_coverage
#   --packages  the Debian packages on a fresh Debian 12; needs root and the network
# A failed phase does not stop the run; the summary lists it, and the exit status is 1.
set -uo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")" || exit 1
mode=${1:-all}
case "$mode" in
  all | --fast | --coverage | --packages) ;;
  *)
    echo "usage: ./test.sh [--fast|--coverage|--packages]" >&2
    exit 2
    ;;
esac

jobs=$(nproc)
# Builds share their object files: the packages contain the same code as the release build.
export CCACHE_DIR=$PWD/build/ccache CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
export CCACHE_DEPEND=1  # without a separate run of the preprocessor
# Paths in the tree count from its top: a test builds the source archive of the Python package in another folder.
export CCACHE_BASEDIR=$PWD
# run.sh, which a test runs, builds the same without -Werror, and only after the release build has passed with it.
export CCACHE_IGNOREOPTIONS=-Werror
logs=build/test-logs
mkdir -p "$logs"
summary=()
failures=0

# phase TITLE COMMAND...: runs the command and records its status and duration. Returns its status.
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

# quietly LOG COMMAND...: writes the command's output to a file and shows it only if the command fails.
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
  if ! sources src tests tools live bench examples | xargs -0 clang-format --dry-run -Werror >"$log" 2>&1; then
    echo "not formatted (fix with clang-format -i):"
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

# run_tests PRESET [OPTION OF CTEST...]: shows the summary of ctest, after the output of failed tests.
run_tests() {
  local log="$logs/ctest-$1.log" status=0
  ctest --preset "$@" -j "$jobs" >"$log" 2>&1 || status=$?
  if [ $status -ne 0 ]; then
    grep -v -e '^ *Start ' -e ' Passed ' "$log"
  else
    sed -n '/tests passed,/,$p' "$log"
  fi
  return $status
}

compare_builds() {
  python3 tests/functional/same_bytes.py build/{release,debug,clang}/src/api/libVorlenSolver.so --staged -- \
    examples/*.xml tests/data/recipes/*.xml
}

# Hosts in C, and the numbers of all recipes.
test_arm64() {
  run_tests arm64 -R '^(api\.AHost(InC|ThatOpensTheLibraryWhileItRuns)|numbers\..*)$'
}

# One process more than there are processors: the tests wait a fifth of their time for programs and browsers.
test_python() {
  local python
  python=$(scripts/interpreter.sh pandas pytest xdist hypothesis selenium) || return 1
  VORLEN=$PWD/build/release/tools/vorlen VORLEN_LIBRARY=$PWD/build/release/src/api/libVorlenSolver.so \
    VORLEN_ENGINES=required \
    "$python" -B -m pytest -q -c python/pyproject.toml -n $((jobs + 1)) --dist loadfile python/tests
}

# By Debian's mypy, which finds the types of Debian's numpy. Only two modules differ between systems.
check_types() {
  local status=0 system mypy=(/usr/bin/mypy --config-file python/pyproject.toml --no-error-summary)
  "${mypy[@]}" --cache-dir build/mypy python/vorlen python/vorlen_command.py python/build_wheel || status=1
  for system in win32 darwin; do
    "${mypy[@]}" --cache-dir build/mypy_systems --follow-imports=skip --platform "$system" \
      python/vorlen/_base/{system,windows}.py || status=1
  done
  return $status
}

analyse() {
  local status=0 types
  # For the options of each file: the other builds compile those of the tool in batches.
  quietly configure-analysis.log cmake --preset release -B build/analysis -DVORLEN_TESTS=OFF -DVORLEN_LIVE=OFF \
    -DVORLEN_TOOL_UNITY=OFF || return 1
  # Beside the others, because it runs on one processor.
  check_types >"$logs/mypy.log" 2>&1 &
  types=$!
  # Without src/platform/windows, which needs headers of Windows.
  find src tools -name '*.cpp' -not -path '*/windows/*' -print0 | xargs -0 -n 1 -P "$jobs" clang-tidy -p build/analysis --quiet \
    --extra-arg=-Wno-unknown-warning-option --extra-arg=-Wreserved-identifier 2>/dev/null || status=1
  cppcheck --enable=warning,style,performance,portability --suppressions-list=.cppcheck-suppressions \
    --error-exitcode=1 --std=c++20 --language=c++ -I src -I src/api -I tools -j "$jobs" --quiet --template=gcc \
    src tools live || status=1
  wait "$types" || { cat "$logs/mypy.log"; status=1; }
  return $status
}

# Branches taken only by exceptions of the standard library are not counted: runSurfChem catches these, and separate tests
# make allocations fail. Branches in unreachable code are not counted either.
report_coverage() {
  gcovr --root . --filter src/ --exclude-throw-branches --exclude-unreachable-branches --txt --print-summary \
    --fail-under-line 98 --fail-under-branch 90 -j "$jobs" build/coverage
}

# Otherwise the counts of an earlier run would be added.
forget_counts() { find build/coverage -name '*.gcda' -delete; }

phase "Packages" scripts/setup.sh test || exit 1
case "$mode" in
  --coverage)
    phase "Build: coverage" build coverage -DVORLEN_TESTS=ON -DVORLEN_TOOLS=OFF && forget_counts &&
      phase "Tests: coverage" run_tests coverage && phase "Coverage of src/" report_coverage
    ;;
  --packages) phase "Packages on a fresh Debian" tests/package/clean_debian.sh ;;
  *)
    phase "Formatting" check_format
    phase "Build: release" build release -DVORLEN_TESTS=ON && phase "Tests: release" run_tests release
    ;;
esac
if [ "$mode" = all ]; then
  phase "Python" test_python
  phase "Build: asan" build asan -DVORLEN_TESTS=ON && phase "Tests: asan" run_tests asan
  phase "Build: tsan" build tsan -DVORLEN_TESTS=ON -DVORLEN_TOOLS=OFF -- thread_tests &&
    phase "Tests: tsan" run_tests tsan
  phase "Build: debug, the library" build debug -- VorlenSolver &&
    phase "Build: clang, the library" build clang -- VorlenSolver &&
    phase "Same bytes: release, debug, clang" compare_builds
  phase "Build: windows" build windows -DVORLEN_TESTS=ON && phase "Tests: windows (Wine)" run_tests windows
  phase "Build: arm64, the library" build arm64 -DVORLEN_TESTS=ON -- platform_hosts && phase "Tests: arm64" test_arm64
  phase "Build: package" build package &&
    phase "Debian packages" quietly packages.log tests/package/debian_packages.sh build/package
  phase "Build: fuzz" build fuzz -- fuzz_targets && phase "Fuzzing, one minute" tests/fuzz/run.sh 60
  phase "Static analysis" analyse
fi

echo "== Summary"
printf '%s\n' "${summary[@]}"
if [ $failures -gt 0 ]; then
  echo "$failures failed"
  exit 1
fi
echo "all passed in $SECONDS s"
