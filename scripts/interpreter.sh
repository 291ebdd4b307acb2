#!/bin/bash
# Prints the first Python that has all of these modules: scripts/interpreter.sh MODULE...
# Debian's modules belong to /usr/bin/python3, which may not be the first python3 on PATH.
for candidate in python3 /usr/bin/python3; do
  path=$(command -v "$candidate") || continue
  if "$path" -c 'import importlib, sys; [importlib.import_module(name) for name in sys.argv[1:]]' "$@" 2>/dev/null; then
    echo "$path"
    exit 0
  fi
done
echo "no Python with the modules $* found; install them with scripts/setup.sh test" >&2
exit 1
