#!/usr/bin/env bash
# library_symbols.sh LIBRARY SOVERSION OBJECT...: the library exports only runSurfChem and has the right SONAME, and none
# of its object files uses a function that ends or changes the host's process or writes to its streams. The object files
# are checked rather than the library because the C++ library and the XML library do refer to such functions.
set -euo pipefail
library=$1
soversion=$2
shift 2
if [ $# -eq 0 ]; then
  echo "no object files given"
  exit 2
fi

forbidden=(
  exit _exit _Exit quick_exit at_quick_exit atexit abort __assert_fail raise kill
  printf vprintf __printf_chk __vprintf_chk puts putchar putc perror fprintf vfprintf __fprintf_chk __vfprintf_chk fputs
  fputc fwrite stdout stderr stdin
  _ZSt4cout _ZSt4cerr _ZSt4clog _ZSt3cin
  setlocale _ZNSt6locale6globalERKS_
  chdir fchdir umask setenv unsetenv putenv clearenv getenv signal sigaction sigprocmask
  fesetround feenableexcept system fork srand
)

status=0
exported=$(nm -D --defined-only "$library" | awk '{print $3}' | sort)
if [ "$exported" != "runSurfChem" ]; then
  printf 'exported symbols, expected only runSurfChem:\n%s\n' "$exported"
  status=1
fi
soname=$(objdump -p "$library" | awk '$1 == "SONAME" {print $2}')
if [ "$soname" != "libVorlenSolver.so.$soversion" ]; then
  echo "SONAME is $soname, expected libVorlenSolver.so.$soversion"
  status=1
fi
for object in "$@"; do
  # Undefined symbols without their version, which follows an @.
  used=$(nm --undefined-only "$object" | awk '{sub(/@.*/, "", $2); print $2}')
  found=$(grep -Fxf <(printf '%s\n' "${forbidden[@]}") <<<"$used" || true)
  if [ -n "$found" ]; then
    echo "$(basename "$object") uses:" $found
    status=1
  fi
done
[ $status -ne 0 ] || echo "$# object files"
exit $status
