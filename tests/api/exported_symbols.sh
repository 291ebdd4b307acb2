#!/usr/bin/env bash
# exported_symbols.sh LIBRARY: the library exports runSurfChem and nothing else, under the SONAME that hosts link.
set -euo pipefail
exported=$(nm -D --defined-only "$1" | awk '{print $3}' | sort)
if [ "$exported" != "runSurfChem" ]; then
  printf 'exported symbols, expected runSurfChem alone:\n%s\n' "$exported"
  exit 1
fi
objdump -p "$1" | grep -qE '^ *SONAME +libVorlenSolver\.so\.1$' || { echo "SONAME is not libVorlenSolver.so.1"; exit 1; }
