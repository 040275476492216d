#!/usr/bin/env bash
# Fuzzes what takes foreign bytes:
#   scripts/fuzz.sh [SECONDS] [TARGET...]   each target (default: all) for so long (default: 60)
#   scripts/fuzz.sh --brief [TARGET...]     each for a fixed number of inputs, the same every time
# As many targets run at a time as there are processors.
# What it learns stays in build/fuzz/corpus, what it finds in build/fuzz/crashes. Fails on a finding.
set -uo pipefail
# shellcheck source=scripts/common.sh
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

build=$root/build/fuzz
targets=(dispatcher server_loop flash_images upgrade_files registry_records config_json
  report_descriptor)
# Inputs of a brief run: some seconds each.
declare -A brief_runs=([dispatcher]=5000 [server_loop]=800 [flash_images]=3000
  [upgrade_files]=2000 [registry_records]=6000 [config_json]=600
  [report_descriptor]=200000)
# The longest inputs, where those that a target makes of its seeds would be slow and say no more.
declare -A longest=([dispatcher]=512 [server_loop]=400 [registry_records]=2048
  [report_descriptor]=4096)

prepare() {
  build_preset fuzz || return
  rm -rf "$build/seeds"
  "$build/bin/make_seeds" "$build/seeds"
}

# run TARGET ARGUMENT...: one target, its output in a log, and a line that says what became of it.
run() {
  local target=$1 log=$logs/fuzz-$1.log crashes=$build/crashes/$1 status=0 options=()
  shift
  mkdir -p "$crashes"
  [[ ${longest[$target]-} ]] && options+=("-max_len=${longest[$target]}")
  [[ -e $build/seeds/$target.dict ]] && options+=("-dict=$build/seeds/$target.dict")
  mkdir -p "$scratch/$target"
  (cd "$scratch/$target" && PERILINK_FUZZ_FOLDER=registry "${fixed[@]}" \
    "$build/bin/fuzz_$target" -print_final_stats=1 -len_control=0 -timeout=20 -rss_limit_mb=4096 \
    "-artifact_prefix=$crashes/" "${options[@]}" "$@" "$build/seeds/$target") >"$log" 2>&1 ||
    status=$?
  report "$target" "$log" "$status"
  return "$status"
}

report() {
  local target=$1 log=$2 status=$3 executions coverage inputs result=clean
  executions=$(sed -n 's/^stat::number_of_executed_units: //p' "$log")
  read -r coverage inputs <<<"$(sed -nE \
    's|^#[0-9]+.* cov: ([0-9]+) .* corp: ([0-9]+)/.*|\1 \2|p' "$log" | tail -n 1)"
  ((status == 0)) || result=FOUND
  printf '%-17s %9s executions, %5s edges, %5s inputs kept: %s\n' "$target" "${executions:-?}" \
    "${coverage:-?}" "${inputs:-?}" "$result"
  ((status == 0)) && return
  grep -E -m 3 'violated:|ERROR:|runtime error:' "$log"
  echo "  its log: $log"
  echo "  to repeat it: $(sed -n "s|.*Test unit written to |$build/bin/fuzz_$target |p" "$log")"
}

main() {
  local seconds=60 brief=no target running=0 failed=0 fixed=()
  if [[ ${1-} == --brief ]]; then
    brief=yes
    shift
  elif [[ ${1-} =~ ^[0-9]+$ ]]; then
    seconds=$1
    shift
  fi
  for target in "$@"; do
    [[ ${brief_runs[$target]-} ]] || fail "there is no target '$target', only: ${targets[*]}"
  done
  (($# > 0)) && targets=("$@")

  quiet fuzz-setup install_missing "${run_packages[@]}" "${fuzz_packages[@]}" || exit 1
  quiet fuzz-build prepare || exit 1
  # In memory where that can be had: a target's registry is a file that it writes all the time.
  scratch=$(mktemp -d -p "$([[ -w /dev/shm ]] && echo /dev/shm || echo "${TMPDIR:-/tmp}")")
  trap 'rm -rf "$scratch"' EXIT
  # Addresses steer a fuzzer as well.
  setarch "$(uname -m)" -R true 2>/dev/null && fixed=(setarch "$(uname -m)" -R)
  for target in "${targets[@]}"; do
    if ((running >= jobs)); then
      wait -n || failed=1
      ((running -= 1))
    fi
    if [[ $brief == yes ]]; then
      run "$target" -seed=1 -reload=0 "-runs=${brief_runs[$target]}" "$(mktemp -d -p "$scratch")" &
    else
      mkdir -p "$build/corpus/$target"
      run "$target" "-max_total_time=$seconds" "$build/corpus/$target" &
    fi
    ((running += 1))
  done
  while ((running > 0)); do
    wait -n || failed=1
    ((running -= 1))
  done
  return "$failed"
}

main "$@"
