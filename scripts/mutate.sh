#!/usr/bin/env bash
# Plants faults in src/ and lists those that no test notices (docs/mutants.md):
#   scripts/mutate.sh [--sample N] [--matrix] [ROOM...]    --help says the rest
# Fails when a fault survives that scripts/mutate/equivalent.txt doesn't name.
set -uo pipefail
# shellcheck source=scripts/common.sh
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

quiet mutate-setup install_missing "${run_packages[@]}" "${mutate_packages[@]}" ||
  fail "setting up failed"
# A fault may ask for all the memory there is, and dies often: at a bound, and without a trace.
ulimit -c 0 -v 8388608
mkdir -p "$root/build/mutate"
(flock 9 && exec /usr/bin/python3 "$root/scripts/mutate/run.py" "$@") 9>"$root/build/mutate/lock"
