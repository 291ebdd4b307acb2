#!/bin/bash
# Prints the first Python that has all of these modules: python/interpreter.sh MODULE...
# Debian's modules are seen by /usr/bin/python3, which need not be the python3 that comes first in PATH.
for candidate in python3 /usr/bin/python3; do
  path=$(command -v "$candidate") || continue
  if "$path" -c 'import importlib, sys; [importlib.import_module(name) for name in sys.argv[1:]]' "$@" 2>/dev/null; then
    echo "$path"
    exit 0
  fi
done
echo "no Python found with the modules $*; scripts/setup.sh test installs what the tests need, scripts/setup.sh run what ./run.sh needs" >&2
exit 1
