#!/bin/sh
# Compares the working tree with another revision: speed of the benchmarks, and the bytes of every result.
#
#   bench/compare.sh REV [FILTER]
#
# REV is any revision that git knows. FILTER is a regular expression for the names of the benchmarks (default: all);
# "none" compares the bytes only. The present bench/ is compiled against both sources in Release mode with the same
# flags, in copies under build/compare/, so neither the working tree nor the repository is touched. The copy of REV is
# kept for the next comparison.
#
# Environment: ROUNDS (pairs of runs of each benchmark; default 7, or 3 for those that take seconds), MIN_TIME (s of one
# run, default 0.1), JOBS (parallel compilers, default all processors), CXX, CXXFLAGS, COMPARE_DIR (default
# build/compare).
#
# Exit status: 0; 1 if a result differs; 2 if a tree does not build, a benchmark fails, or the arguments are wrong.
set -eu

die() {
  echo "compare.sh: $*" >&2
  exit 2
}

if [ $# -lt 1 ] || [ $# -gt 2 ]; then
  die "usage: bench/compare.sh REV [FILTER]"
fi
root=$(cd "$(dirname "$0")/.." && pwd)
work=${COMPARE_DIR:-$root/build/compare}
"$root/scripts/setup.sh" bench || exit 2
revision=$(git -C "$root" rev-parse --verify --quiet "$1^{commit}") || die "unknown revision: $1"
base=$work/$(echo "$revision" | cut -c1-12)
present=$work/present
python=
for candidate in python3 /usr/bin/python3; do
  if "$candidate" -c 'import json, statistics' >/dev/null 2>&1; then
    python=$candidate
    break
  fi
done
[ -n "$python" ] || die "python3 not found"

# The copies keep file times, so that the next comparison compiles only what has changed.
copy_base() {
  if [ ! -f "$base/complete" ]; then
    rm -rf "$base"
    mkdir -p "$base/tree"
    git -C "$root" archive "$revision" | tar -x -C "$base/tree"
    touch "$base/complete"
  fi
  rm -rf "$base/tree/bench"
  cp -a "$root/bench" "$base/tree/bench"
}

copy_present() {
  rm -rf "$present/tree"
  mkdir -p "$present/tree"
  (cd "$root" && git ls-files -coz --exclude-standard | tar -c --null --ignore-failed-read -T - 2>/dev/null) |
    tar -x -C "$present/tree"
}

# build FOLDER: configures and compiles FOLDER/tree in FOLDER/build; the log is FOLDER/build.log.
build() {
  if [ -z "${CMAKE_CXX_COMPILER_LAUNCHER:-}" ] && command -v ccache >/dev/null; then
    CMAKE_CXX_COMPILER_LAUNCHER=ccache
    export CMAKE_CXX_COMPILER_LAUNCHER
  fi
  {
    cmake -S "$1/tree" -B "$1/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVORLEN_BENCH=ON -DVORLEN_WORK_PRECISION=OFF -DVORLEN_TESTS=OFF \
      -DVORLEN_TOOLS=OFF &&
      cmake --build "$1/build" -j"${JOBS:-$(nproc)}" --target vorlen_bench vorlen_bench_run
  } >"$1/build.log" 2>&1
}

copy_base
copy_present
echo "base:    $1 ($(git -C "$root" log -1 --format='%h %s' "$revision"))"
echo "present: $root"
if ! build "$base"; then
  grep -E 'error:|CMake Error' "$base/build.log" | head -n 10 >&2
  if grep -E -q '/tree/bench/.*error:' "$base/build.log"; then
    die "the present benchmarks do not compile against $1; log: $base/build.log"
  fi
  die "$1 does not build; log: $base/build.log"
fi
if ! build "$present"; then
  grep -E 'error:|CMake Error' "$present/build.log" | head -n 10 >&2
  die "the working tree does not build; log: $present/build.log"
fi

exec "$python" "$root/bench/compare.py" "$base/build/bench" "$present/build/bench" "$root" "${2:-.}"
