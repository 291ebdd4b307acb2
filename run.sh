#!/bin/bash
# Builds everything that is installed, runs a recipe, shows the layers, writes a report and a live page:
# ./run.sh [RECIPE]
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
  if ! "$root/scripts/with_progress.sh" "$build/run.log" "$@"; then
    echo "run.sh: command failed: $*" >&2
    exit 1
  fi
}

say "Looking for compiler, libraries and Python"
"$root/scripts/setup.sh" run
mkdir -p "$build"
if [ -n "$(find "$build" ! -writable -print -quit)" ]; then
  echo "run.sh: files in $build belong to another user. To build again, type:
  sudo rm -r ${build@Q}" >&2
  exit 1
fi

say "Building the library, the tool and the Python package in build/run: a few minutes the first time"
(cd "$root" && quietly cmake --preset release --compile-no-warning-as-error -B "$build" -DVORLEN_TESTS=OFF)
NINJA_STATUS="%f of %t steps: " quietly cmake --build "$build"

say "Running $recipe"
name=$(basename "$recipe" .xml)
page="$build/$name.html"
live="$build/$name.live.html"
failed=0
"$build/tools/vorlen" run "$recipe" -o "$build/$name.result.txt" || failed=$?
if [ $failed -eq 0 ]; then
  say "Writing the report (HTML)"
  "$build/tools/vorlen" report "$build/$name.result.txt" --recipe "$recipe" -o "$page" || failed=$?
  if [ -e "$build/wasi/live/live.html" ]; then  # else the build has said what is missing
    say "Writing the live page (HTML)"
    "$build/tools/vorlen" live "$recipe" -o "$live" || failed=$?
  fi
fi

say "Done"
cat <<TEXT
The tool is $build/tools/vorlen
To call it as vorlen in this terminal, type:
  export PATH=${build@Q}/tools:"\$PATH"
To import vorlen in /usr/bin/python3, which has the packages that it needs, type:
  export PYTHONPATH=${root@Q}/python
TEXT
if [ $failed -ne 0 ]; then
  echo "The recipe has failed, see above; the build has not." >&2
  exit $failed
fi
echo "To see the report, open $page in a browser."
[ ! -e "$live" ] || echo "To change the recipe and watch the layers follow, open $live."
