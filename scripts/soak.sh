#!/usr/bin/env bash
# Lets a host live with a virtual mouse in real time, and looks for what grows or goes wrong:
#   scripts/soak.sh [MINUTES]   (default: 60)
set -uo pipefail
# shellcheck source=scripts/common.sh
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

prepare() {
  cmake -S "$root" --preset native &&
    cmake --build "$root/build/native" --parallel "$jobs" --target soak
}

quiet soak-setup install_missing "${run_packages[@]}" || exit 1
quiet soak-build prepare || exit 1
exec "$root/build/native/bin/soak" "${1:-60}"
