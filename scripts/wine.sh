#!/bin/bash
# Runs a Windows program under Wine, without a window and without messages of Wine's own: scripts/wine.sh PROGRAM [ARGUMENT...]
# Wine's folder (registry, drive C) is WINEPREFIX, or build/wine. The status is that of the program.
set -euo pipefail

export WINEPREFIX=${WINEPREFIX:-$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)/build/wine}
export WINEDEBUG=-all WINEARCH=win64
# No menus of the desktop, no offers to install a browser or .NET.
export WINEDLLOVERRIDES="mscoree,mshtml,winemenubuilder.exe,winedbg.exe="
unset DISPLAY WAYLAND_DISPLAY
wine=$(command -v wine64 || echo /usr/lib/wine/wine64)
if [ ! -x "$wine" ]; then
  echo "wine.sh: Wine is missing; scripts/setup.sh test installs it" >&2
  exit 127
fi
# With random addresses, the kernel sometimes places the heap of a new process at 0x7ffe0000, which Wine needs. The process
# then ends with status 1 before it has started: about one of 3000 did. A sandbox may forbid to turn them off.
run=("$wine")
if setarch -R true 2>/dev/null; then
  run=(setarch -R "$wine")
fi
# Several programs may start at once. One of them creates the folder, and starts Wine's server and services: with the
# first program, these would keep the streams of that program open until they end, 10 s after the last program. The server
# says by its status if it runs already.
server=$(command -v wineserver64 || command -v wineserver || echo /usr/lib/wine/wineserver64)
mkdir -p "$WINEPREFIX"
(
  flock 9
  if [ ! -e "$WINEPREFIX/.vorlen-ready" ]; then
    "${run[@]}" wineboot --init </dev/null >/dev/null 2>&1 9>&-
    touch "$WINEPREFIX/.vorlen-ready"
  fi
  if "$server" -p10 </dev/null >/dev/null 2>&1 9>&-; then
    "${run[@]}" cmd /c rem </dev/null >/dev/null 2>&1 9>&- || true
  fi
) 9>"$WINEPREFIX/.vorlen-lock"
exec "${run[@]}" "$@"
