# Shared by ./run and ./test: where things are, installing what is missing, quiet steps.
# shellcheck shell=bash disable=SC2034

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
logs=$root/build/logs
jobs=$(nproc)

# What building and running perictl needs.
run_packages=(cmake ninja-build g++ python3 libcli11-dev nlohmann-json3-dev nettle-dev libgtest-dev
  libbenchmark-dev libudev-dev)
# What the virtual machine of scripts/vm.sh needs.
vm_packages=(qemu-system-x86 cpio python3)
# What fuzzing needs beyond it.
fuzz_packages=(clang-14 libclang-rt-14-dev)
# What the tests need beyond it.
test_packages=(git "${fuzz_packages[@]}" clang-format-14 shellcheck binutils googletest pkgconf
  g++-mingw-w64-x86-64-posix wine64 llvm-14 lld-14 mandoc bash zsh fish mono-mcs)
# What packages and their test need beyond the first.
package_packages=(dpkg-dev zip g++-mingw-w64-x86-64-posix llvm-14 lld-14 clang-14 wine64 lintian
  mmdebstrap)
# What measuring the coverage needs beyond the first.
coverage_packages=(gcovr)
# What planting faults needs beyond the first.
mutate_packages=(python3-clang-14 libclang-common-14-dev)

fail() {
  printf '%s: %s\n' "${0##*/}" "$1" >&2
  exit 1
}

# quiet NAME COMMAND...: runs the command with its output in a log, shown only when it fails.
quiet() {
  local name=$1 log=$logs/$1.log status=0
  shift
  mkdir -p "$logs"
  "$@" >"$log" 2>&1 </dev/null || status=$?
  if ((status != 0)); then
    {
      printf -- '---- %s failed (exit code %d); the end of %s:\n' "$name" "$status" "$log"
      tail -n 120 "$log"
      printf -- '----\n'
    } >&2
  fi
  return "$status"
}

as_root() {
  if ((EUID == 0)); then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    echo "packages are missing; run as root or install sudo: $*"
    return 1
  fi
}

install_missing() {
  local package missing=()
  for package in "$@"; do
    [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) == installed ]] ||
      missing+=("$package")
  done
  ((${#missing[@]} == 0)) && return
  echo "installing: ${missing[*]}"
  as_root apt-get update || return
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends \
    "${missing[@]}"
}

# build_preset PRESET [TARGET...]: one at a time, when several ./run are started at once.
build_preset() {
  local preset=$1
  shift
  mkdir -p "$root/build"
  (
    flock 9 &&
      cmake -S "$root" --preset "$preset" &&
      cmake --build "$root/build/$preset" --parallel "$jobs" ${1+--target "$@"}
  ) 9>"$root/build/lock"
}
