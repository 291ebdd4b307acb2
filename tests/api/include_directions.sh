#!/usr/bin/env bash
# include_directions.sh SRC: the subsystems include each other one way only, without a circle.
set -euo pipefail
cd "$1"
declare -A knows=(
  [platform]="platform"
  [integrator]="integrator"
  [recipe]="recipe|platform"
  [model]="model|recipe|platform"
  [strain]="strain|model|recipe"
  [results]="results|model|recipe"
  [api]="api|results|strain|model|recipe|integrator|platform"
)
status=0
for folder in */; do
  folder=${folder%/}
  wrong=$(find "$folder" -name '*.h' -o -name '*.cpp' | xargs grep -nE '#include "[a-z]+/' |
    grep -vE "#include \"(${knows[$folder]})/" || true)
  [ -z "$wrong" ] || { echo "$folder may only include ${knows[$folder]}:"; echo "$wrong"; status=1; }
done
exit $status
