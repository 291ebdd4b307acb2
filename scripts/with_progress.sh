#!/bin/bash
# Runs a command with its output in a file: scripts/with_progress.sh LOG COMMAND...
# Every 10 s the last line of the output is shown; if the command fails, all of it. Exit status: the command's.
set -uo pipefail

log=$1
shift
: >"$log" || exit 1

# Ends with this script, even if that is killed. Without the redirection, "./run.sh | tee LOG" would wait for the sleep.
show_progress() {
  while sleep 10 >/dev/null 2>&1 && kill -0 $$ 2>/dev/null; do
    printf '   %4d s  %s\n' "$SECONDS" "$(tail -n 1 "$log" | tr -d '\r' | cut -c 1-100)"
  done
}
show_progress &
reporter=$!
trap 'kill "$reporter" 2>/dev/null; wait "$reporter" 2>/dev/null' EXIT

"$@" >"$log" 2>&1
status=$?
[ $status -eq 0 ] || cat "$log" >&2
exit $status
