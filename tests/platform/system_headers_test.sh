#!/usr/bin/env bash
# system_headers_test.sh SCRIPT: system_headers.sh passes a tree that keeps its rule and reports each way to break it.
set -euo pipefail
script=$1
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
mkdir -p "$tree"/{src/{platform/posix,api,recipe},tools,live}

# The file with this text, alone, is reported, or with "fine" it is not.
expect() {
  local verdict=$1 file=$2 text=$3 got=reported
  printf '%s\n' "$text" >"$tree/$file"
  "$script" "$tree" >/dev/null && got=fine
  rm "$tree/$file"
  [ "$got" = "$verdict" ] || { echo "$file with $text: $got, not $verdict"; exit 1; }
}

touch "$tree/src/recipe/some.cpp"
expect fine src/platform/posix/files.cpp '#include <unistd.h>'
expect fine src/api/vorlen_solver.h '#ifdef _WIN32'
expect fine src/recipe/a.cpp '#include <locale>'
expect fine src/recipe/a.cpp '#include <filesystem>'
expect reported src/recipe/a.cpp '#include <unistd.h>'
expect reported src/recipe/a.h '#include <sys/stat.h>'
expect reported src/api/a.cpp '  #  include <windows.h>'
expect reported src/api/a.cpp '#include <cfenv>'
expect reported tools/a.cpp '#if defined(_WIN32)'
expect reported live/a.c '#ifndef __APPLE__'
expect reported tools/a.h '#ifdef __linux__'
