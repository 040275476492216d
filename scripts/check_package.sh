#!/usr/bin/env bash
# Makes the packages and tries them as their users would: installs them in a clean, small Debian
# without a network, runs perictl there, builds and runs hosts with CMake and with pkg-config, and
# removes them again, after which nothing may be left of them. The small Debian is fetched once.
set -euo pipefail
# shellcheck source=scripts/common.sh
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"
packages=$root/build/packages system=$root/build/packages/root
# What is needed to build hosts, and what the packages say that they depend on.
system_packages=g++,cmake,make,pkgconf,python3,libnettle8,libudev1

# Where lintian has no say: nobody uploads these packages to Debian, cpack calls ldconfig though a
# trigger would do, and the platform library's names are used by libraries of the same version alone.
exceptions=(initial-upload-closes-no-bugs maintscript-calls-ldconfig
  shared-library-symbols-not-tracked)

# In the small Debian, with the one file system that a program needs to find itself.
inside() {
  # shellcheck disable=SC2016  # the inner shell expands it
  as_root unshare --mount sh -ec 'mount -t proc proc "$0/proc"; exec chroot "$0" "$@"' "$system" \
    env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/tmp/home LC_ALL=C.UTF-8 "$@"
}

# Every file of the small Debian, but for what dpkg writes down about its own work.
list_files() {
  as_root find "$system" -xdev \( -path "$system/var/lib/dpkg" -o -path "$system/var/log" \
    -o -path "$system/var/cache/ldconfig" \) -prune \
    -o -type d -printf '%P %y %m\n' -o -printf '%P %y %s %m %l\n' |
    grep -v '^etc/ld.so.cache ' | sort
}

make_system() {
  [[ -e $system/ready ]] && return
  as_root rm -rf "$system"
  as_root mmdebstrap --variant=minbase --aptopt='APT::Install-Recommends "false"' \
    --include="$system_packages" bookworm "$system"
  as_root touch "$system/ready"
}

# The same symbols as were promised to those who link with it.
check_symbols() {
  dpkg-gensymbols -plibperilink0 -v99 -c4 -q "-P$1" "-I$root/build/package/control/symbols" -O/dev/null \
    -e"$1"/usr/lib/*/libperilink.so.0
}

try_packages() {
  inside perictl --version
  inside perictl list --virtual | grep -F 'virtual-mouse (virtual)'
  inside test -s /usr/share/man/man1/perictl-set.1.gz
  inside test -s /usr/share/perilink/70-perilink.rules
  # shellcheck disable=SC2016  # the inner shell expands it
  inside sh -ec '
    cmake -S /tmp/examples -B /tmp/build -DCMAKE_BUILD_TYPE=Debug
    cmake --build /tmp/build
    cd /tmp/build && ctest --no-tests=error --output-on-failure
    cc /tmp/examples/find.c -o /tmp/find $(pkg-config --cflags --libs perilink)
    export LD_PRELOAD=$(echo /usr/lib/*/perilink/libperilink_virtual_mouse.so)
    /tmp/find | grep -F "has version 0102"
    # Python finds module and library where they are installed.
    python3 /tmp/examples/host.py'
}

"$root/scripts/package.sh"
lintian --fail-on error,warning --suppress-tags "$(IFS=,; echo "${exceptions[*]}")" \
  "$packages"/*.deb
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
dpkg-deb -x "$packages"/libperilink0_*.deb "$work/library"
check_symbols "$work/library"

make_system
list_files >"$work/before"
# Whatever happens from here on, a system with traces is not used again.
trap 'rm -rf "$work"; as_root rm -f "$system/ready"' EXIT
as_root cp "$packages"/*.deb "$system/tmp"
as_root cp -r "$root/examples" "$system/tmp/examples"
inside sh -c 'dpkg -i /tmp/*.deb'
try_packages
inside sh -c 'rm -rf /tmp/*; dpkg --purge python3-perilink libperilink-dev perilink libperilink0'
list_files | diff "$work/before" -
trap 'rm -rf "$work"' EXIT
