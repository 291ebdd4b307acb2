#!/bin/bash
# Builds the library and its command-line tool, runs a recipe, shows the layers and writes a report: ./run.sh [RECIPE]
# The default recipe is the multiple quantum well in examples/. Works from any folder.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# Separate from the tests' build, which is configured differently.
build="$root/build/run"

if [ $# -gt 1 ] || [[ "${1:-}" == -* ]]; then
  echo "usage: ./run.sh [RECIPE]" >&2
  exit 2
fi
recipe="${1:-$root/examples/ingan_gan_mqw.xml}"

say() { echo "== $*"; }

# Runs a command and shows its output only if it fails.
quietly() {
  local log="$build/run.log"
  if ! "$@" >"$log" 2>&1; then
    cat "$log" >&2
    echo "run.sh: command failed: $*" >&2
    exit 1
  fi
}

say "Looking for compiler, libraries and Python"
"$root/scripts/setup.sh" run
mkdir -p "$build"

say "Building the library and the tool in build/run"
(cd "$root" && quietly cmake --preset release --compile-no-warning-as-error -B "$build" -DVORLEN_TESTS=OFF)
quietly cmake --build "$build" --target vorlen

say "Running $recipe"
name=$(basename "$recipe" .xml)
"$build/tools/vorlen" run "$recipe" -o "$build/$name.result.txt"

say "Writing the report (HTML)"
python=$("$root/scripts/interpreter.sh" numpy pandas jinja2)
VORLEN="$build/tools/vorlen" VORLEN_LIBRARY="$build/src/api/libVorlenSolver.so" PYTHONPATH="$root/python" \
  "$python" -m vorlen report "$build/$name.result.txt" --recipe "$recipe" -o "$build/$name.html"
