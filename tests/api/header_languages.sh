#!/usr/bin/env bash
# header_languages.sh HEADER: the public header compiles on its own as C99 and later, and as C++98 and later, without
# warnings, with each installed compiler.
set -euo pipefail
header=$1
tried=0
status=0

# check COMPILER LANGUAGE STANDARD...
check() {
  local compiler=$1 language=$2 standard
  shift 2
  command -v "$compiler" >/dev/null || return 0
  for standard in "$@"; do
    tried=$((tried + 1))
    # Included twice: the include guard works.
    if ! printf '#include "%s"\n#include "%s"\nint use(char* text);\nint use(char* text) { return (int)runSurfChem("", "", text); }\n' \
      "$header" "$header" |
      "$compiler" -x "$language" "-std=$standard" -pedantic -Wall -Wextra -Wconversion -Wshadow -Wundef -Werror \
        -fsyntax-only -; then
      echo "$compiler -std=$standard rejects the header"
      status=1
    fi
  done
}

check gcc c c99 c11 c17
check clang c c99 c11 c17
check g++ c++ c++98 c++11 c++17 c++20
check clang++ c++ c++98 c++11 c++17 c++20
if [ $tried -eq 0 ]; then
  echo "no compiler found"
  exit 1
fi
echo "$tried compilations"
exit $status
