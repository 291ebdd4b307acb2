#!/usr/bin/env bash
# system_headers.sh SOURCE: in src/, tools/ and live/, only src/platform depends on the operating system: no other file
# includes a header of a system or has a macro that names one. The public header is apart: it declares the
# function as imported for programs on Windows.
set -euo pipefail
cd "$1"
headers='(unistd|fcntl|poll|signal|csignal|termios|pthread|dlfcn|spawn|pwd|grp|langinfo|locale\.h|xlocale|clocale|fenv|cfenv|io|direct|process|share|conio|windows|winsock2|psapi|shlobj|shellapi|malloc|sched|semaphore|syslog|utime|ftw|glob|fnmatch|libgen|dirent|netdb|(sys|linux|mach|mach-o|netinet|arpa)/[a-z_]+)(\.h)?'
macros='(_WIN32|_WIN64|WIN32|__MINGW32__|__MINGW64__|_MSC_VER|__CYGWIN__|__APPLE__|__MACH__|__linux__|__linux|__gnu_linux__|__unix__|__FreeBSD__|__wasi__|__wasm__|__EMSCRIPTEN__|__GLIBC__|_POSIX_VERSION)'
found=$(find src tools live -name '*.h' -o -name '*.cpp' -o -name '*.c' |
  grep -vE '^src/platform/|^src/api/vorlen_solver\.h$' |
  xargs grep -nE "^ *# *include *<$headers>|\b$macros\b" || true)
[ -z "$found" ] && exit 0
echo "depends on the operating system, and is not in src/platform:"
echo "$found"
exit 1
