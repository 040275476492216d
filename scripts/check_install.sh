#!/usr/bin/env bash
# Installs a build into an empty folder, moves that folder, and builds and runs the examples on it,
# once with CMake's find_package and once with pkg-config:
#   check_install.sh BUILD_FOLDER [windows]
set -euo pipefail
build=$1 system=${2-linux}
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/first" >"$work/files"
mv "$work/first" "$work/installed"
# A copy, so that nothing around them in the repository helps.
cp -r "$root/examples" "$work/examples"

toolchain=()
compiler=gcc
program=$work/installed/bin/find
run=(env "LD_PRELOAD=$work/installed/lib/perilink/libperilink_virtual_mouse.so" "$program")
expected='has version 0102'
if [[ $system == windows ]]; then
  toolchain=("-DCMAKE_TOOLCHAIN_FILE=$root/cmake/mingw-w64.cmake")
  compiler=x86_64-w64-mingw32-gcc-posix
  program+=.exe
  run=("$root/scripts/wine.sh" "$root/build/wine" "$program")
  expected='no such device'
fi

if [[ $system == linux ]]; then
  # What belongs to perictl is found beside it.
  "$work/installed/bin/perictl" list --virtual | grep -F 'virtual-mouse (virtual)'
  mandoc "$work/installed/share/man/man1/perictl-set.1" | grep -F 'the resolution of the current level'
fi

cmake -G Ninja -S "$work/examples" -B "$work/build" "${toolchain[@]}" \
  -DCMAKE_PREFIX_PATH="$work/installed" -DCMAKE_BUILD_TYPE=Debug
cmake --build "$work/build"
ctest --test-dir "$work/build" --no-tests=error --output-on-failure

export PKG_CONFIG_PATH=$work/installed/lib/pkgconfig
# What a host of the other Windows compilers does, with a compiler and a linker that work as theirs.
if [[ $system == windows ]]; then
  clang-14 --target=x86_64-pc-windows-msvc -ffreestanding -I "$work/installed/include" -xc -c - \
    -o "$work/other.obj" <<<'#include <perilink/perilink.h>
      int Start(void) {
        uint32_t count = 7;
        char** paths = UsbFinderC_FindHidDevicesByKey("vid_1234", &count);
        UsbFinderC_Free(paths, (int32_t)count);
        return (int)count + 42;
      }'
  lld-link-14 /entry:Start /subsystem:console /nodefaultlib "/out:$work/installed/bin/other.exe" \
    "$work/other.obj" "$work/installed/lib/perilink.lib"
  status=0
  "$root/scripts/wine.sh" "$root/build/wine" "$work/installed/bin/other.exe" || status=$?
  ((status == 42))
  # The version as the system shows it: in the resources, as UTF-16.
  version=$(pkg-config --modversion perilink)
  for file in perilink.dll perictl.exe; do
    strings -e l "$work/installed/bin/$file" | grep -A 1 -x FileVersion | grep -cxF "$version"
  done
fi

read -ra flags <<<"$(pkg-config --cflags --libs perilink)"
"$compiler" "$work/examples/find.c" -o "$program" "${flags[@]}" \
  "-Wl,-rpath,$work/installed/lib"
output=$("${run[@]}" || true)
echo "$output"
[[ $output == *"$expected"* ]]
