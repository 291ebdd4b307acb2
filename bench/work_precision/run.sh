#!/bin/bash
# Builds the comparison with SUNDIALS IDA, runs it and updates docs/figures/work_precision.{csv,svg}:
#   bench/work_precision/run.sh [PROBLEM...]
# With problem names only these are run, and the table and plot are written to build/work_precision instead. A complete
# run takes several minutes. BUILD_DIR names another build folder.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)
build=${BUILD_DIR:-$root/build/work_precision}
if [ $# -eq 0 ]; then
  figures="$root/docs/figures"
else
  figures="$build"
fi

"$root/scripts/setup.sh" bench

# The first interpreter that has matplotlib: the one on the path may not be the distribution's.
python=""
for candidate in python3 /usr/bin/python3; do
  if "$candidate" -c 'import matplotlib' 2>/dev/null; then
    python=$candidate
    break
  fi
done
if [ -z "$python" ]; then
  echo "run.sh: no Python with matplotlib found (Debian: python3-matplotlib)" >&2
  exit 1
fi

cd "$root"
cmake --preset release -B "$build" -DVORLEN_BENCH=ON -DVORLEN_TESTS=OFF -DVORLEN_TOOLS=OFF
cmake --build "$build" --target work_precision
mkdir -p "$figures"
"$build/bench/work_precision/work_precision" "$root/tests/data/recipes" "$here/recipes" "$build/new.csv" "$@"
mv "$build/new.csv" "$figures/work_precision.csv"
"$python" "$here/plot.py" "$figures/work_precision.csv" "$figures/work_precision.svg"
