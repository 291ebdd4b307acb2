#!/usr/bin/env bash
# macos_sources.sh COMPILER FOLDER SOURCE...: the sources compile with __APPLE__ instead of __linux__, and do not use
# functions of Linux that macOS lacks. The system's headers are still those of this machine, so this does not prove that
# the sources compile on macOS. FOLDER is src.
set -euo pipefail
compiler=$1
folder=$2
shift 2
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
[ $# -gt 0 ] || { echo "no sources given"; exit 2; }
status=0
for source in "$@"; do
  "$compiler" -std=c++20 -fsyntax-only -U__linux__ -U__linux -Ulinux -D__APPLE__ -I "$here/macos" -I "$folder" \
    -include "$here/macos/missing_names.h" "$source" || status=1
done
[ $status -ne 0 ] || echo "$# sources"
exit $status
