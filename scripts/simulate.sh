#!/usr/bin/env bash
# Runs the seeded simulation of library and devices, on all processors at once:
#   scripts/simulate.sh [SEEDS [FIRST]]   so many seeds (default: 10000) from FIRST on (default: 1)
# Names each seed that fails, and says how many seeds a second of processor time ran.
set -uo pipefail
# shellcheck source=scripts/common.sh
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

program=$root/build/native/bin/server_simulation
# Short enough that the processors end together, long enough that starting costs nothing.
batch=2500

prepare() {
  cmake -S "$root" --preset native &&
    cmake --build "$root/build/native" --parallel "$jobs" --target server_simulation
}

main() {
  local seeds=${1:-10000} first=${2:-1}
  [[ $seeds =~ ^[1-9][0-9]*$ && $first =~ ^[0-9]+$ ]] || fail "usage: simulate.sh [SEEDS [FIRST]]"
  quiet simulation-setup install_missing "${run_packages[@]}" || exit 1
  quiet simulation-build prepare || exit 1
  for ((from = first; from < first + seeds; from += batch)); do
    echo "$from $((first + seeds - from < batch ? first + seeds - from : batch))"
  done | xargs --max-args=2 --max-procs="$jobs" "$program" |
    awk '/ seeds, / { seeds += $1; failed += $3; seconds += $1 / $5; next }
         { print }
         END { printf "%d seeds, %d failed, %.0f a second of processor time\n", seeds, failed,
                      seeds / seconds
               exit failed != 0 }'
}

main "$@"
