# shellcheck shell=bash
# Every test script begins by sourcing this: strict mode, a scratch folder that goes with the script, and the reporting
# of failures. A script that goes on after failures ends with [ "$failures" -eq 0 ].

set -euo pipefail

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

failures=0
# fail MESSAGE...: reports a failure, and goes on.
fail() {
   echo "FAILED: $*"
   failures=$((failures + 1))
}

# stop MESSAGE...: reports a failure, and ends the script.
stop() {
   fail "$@"
   exit 1
}

# quietly COMMAND...: runs it, and shows its output only if it fails, which ends the script.
quietly() {
   "$@" >"$scratch/log" 2>&1 || {
      cat "$scratch/log"
      stop "$*"
   }
}
