#!/usr/bin/env bash
# Makes the packages, into build/packages:
#   perilink_*.deb          perictl, with manual pages, completions and what else belongs to it
#   libperilink0_*.deb      the library
#   libperilink-dev_*.deb   what hosts are built with, and virtual devices
#   python3-perilink_*.deb  the module for hosts in Python
#   perilink-*-windows.zip  all of it for 64-bit Windows
# The same sources make the same bytes.
set -uo pipefail
# shellcheck source=scripts/common.sh
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"
packages=$root/build/packages

# The newest entry of the change log tells the version and its day.
read -r version day < <(sed -nE 's/^## ([0-9.]+) \(([0-9-]+)\)$/\1 \2/p' "$root/CHANGELOG.md")
SOURCE_DATE_EPOCH=$(date -u -d "$day" +%s) || fail "CHANGELOG.md does not begin with a version"
export SOURCE_DATE_EPOCH

make_debian() (
  # As Debian builds its own: hardened. Without the symbols that would be stripped again.
  eval "$(DEB_BUILD_MAINT_OPTIONS=hardening=+all DEB_CFLAGS_MAINT_STRIP=-g \
    DEB_CXXFLAGS_MAINT_STRIP=-g dpkg-buildflags --export=sh)"
  build_preset package perilink perilink_platform perilink_sim perilink_sim_kernel \
    perilink_virtual_mouse perictl || return
  grep -q "^CMAKE_PROJECT_VERSION:STATIC=$version$" "$root/build/package/CMakeCache.txt" ||
    { echo "the newest entry of CHANGELOG.md is not the version that is built"; return 1; }
  rm -f "$packages"/*.deb
  (cd "$root/build/package" && umask 022 && cpack -B "$packages") || return
  rm -rf "$packages/_CPack_Packages"
)

make_windows() {
  local name=perilink-$version-windows
  build_preset windows perilink perilink_sim_core perictl || return
  rm -rf "${packages:?}/$name" "$packages/$name.zip"
  cmake --install "$root/build/windows" --prefix "$packages/$name" --strip &&
    cp "$root/CHANGELOG.md" "$packages/$name" &&
    cd "$packages" &&
    find "$name" -exec touch -d "@$SOURCE_DATE_EPOCH" {} + &&
    find "$name" -type f | LC_ALL=C sort | zip -X -q -@ "$name.zip" &&
    rm -r "$name"
}

quiet setup install_missing "${run_packages[@]}" "${package_packages[@]}" ||
  fail "setting up failed"
mkdir -p "$packages"
quiet package-debian make_debian || fail "no Debian packages could be made"
quiet package-windows make_windows || fail "no Windows archive could be made"
printf '%s\n' "$packages"/*.deb "$packages"/*.zip
