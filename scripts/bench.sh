#!/usr/bin/env bash
# Sets up what is missing, builds, measures every figure that the library is to reach, and prints
# them as one Markdown table. Fails when a limit is passed. Takes about two minutes, on a machine
# that has nothing else to do.
set -uo pipefail
# shellcheck source=scripts/common.sh
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

benchmarks=(flash_read_bench protocol_bench upgrade_bench exchange_bench server_bench
  hidraw_bench)
results=$root/build/bench
files=()

quiet setup install_missing "${run_packages[@]}" "${test_packages[@]}" || fail "setting up failed"
quiet native-build build_preset native "${benchmarks[@]}" kernel_bench || fail "the build failed"
quiet windows-build build_preset windows perilink windows_bench || fail "the build for Windows failed"

rm -rf "$results"
mkdir -p "$results"
for benchmark in "${benchmarks[@]}"; do
  files+=("$results/$benchmark.json")
  quiet "$benchmark" "$root/build/native/bin/$benchmark" "--benchmark_out=${files[-1]}" ||
    fail "$benchmark failed"
done
# Over the kernel's own HID, in the virtual machine.
files+=("$results/kernel_bench.json")
quiet kernel_bench "$root/scripts/vm.sh" --keep "$results" \
  "$root/build/native/bin/kernel_bench" "--benchmark_out=${files[-1]}" || fail "kernel_bench failed"
# On Windows' HID stack.
files+=("$results/windows_bench.json")
quiet windows_bench "$root/scripts/wine.sh" "$root/build/wine" --prove \
  "$root/build/windows/bin/windows_bench.exe" "${files[-1]}" || fail "windows_bench failed"
"$root/scripts/wine.sh" "$root/build/wine" --stop
# Its verdict is in the table.
files+=("$results/dll.json")
"$root/scripts/check_dll.sh" "$root/build/windows/bin/perilink.dll" "${files[-1]}" >/dev/null || true

exec "$root/scripts/bench_table.py" "${files[@]}"
