#!/usr/bin/env bash
# Fuzzes what takes foreign bytes:
#   scripts/fuzz.sh [--keep] [SECONDS] [TARGET...]   each target (default: all), 60 s or so long
#   scripts/fuzz.sh [--keep] --runs N [TARGET...]    each for so many inputs
#   scripts/fuzz.sh --replay [TARGET...]             the corpus in fuzz/corpus alone
# Runs are those of a fast build, and start from the corpus and from what earlier ones have learnt,
# which stays in build/fuzz/corpus. What they know is then replayed with sanitizers, as the
# corpus is by --replay. --keep makes the smallest corpus that runs the same code of it, and puts it
# into fuzz/corpus.
# As many targets run at a time as there are processors. What is found stays in build/fuzz/crashes.
# Fails on a finding.
set -uo pipefail
# shellcheck source=scripts/common.sh
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

parsers=(saved_record registry_text report_descriptor flash_image compare key_events reply_matching
  upgrade_files config_json model_json phrases)
rooms=(dispatcher server_loop download registry_records config_record config_words)
fast=$root/build/fuzz
sanitized=$root/build/asan
crashes=$fast/crashes
runner=()
texts=(registry_text config_json model_json phrases config_words)

# Under a `runner`, if there is one.
run_target() {
  local build=$1 target=$2
  shift 2
  mkdir -p "$crashes/$target"
  (cd "$scratch" && TMPDIR=$scratch "${runner[@]}" "$build/bin/fuzz_$target" -timeout=20 \
    -rss_limit_mb=4096 "-artifact_prefix=$crashes/$target/" "$@")
}

# What a long run knows, and what it starts from.
corpora() {
  local target=$1 folder
  for folder in "$fast/corpus/$target" "$root/fuzz/corpus/$target"; do
    [[ -d $folder ]] && echo "$folder"
  done
}

# fuzz TARGET ARGUMENT...: one target in the fast build, and a line that says what became of it.
fuzz() {
  local target=$1 log=$logs/fuzz-$1.log status=0 folders options=() seconds
  shift
  # Texts may be longer, and have words.
  [[ " ${texts[*]} " == *" $target "* ]] && options=(-max_len=1024 "-dict=$root/fuzz/words.dict")
  mkdir -p "$fast/corpus/$target"
  mapfile -t folders < <(corpora "$target")
  TIMEFORMAT='%U %S'
  seconds=$({
    time run_target "$fast" "$target" -max_len=512 -len_control=0 -reload=0 -detect_leaks=0 \
      -print_final_stats=1 "${options[@]}" "$@" "${folders[@]}" >"$log" 2>&1
  } 2>&1) || status=$?
  report "$target" "$log" "$status" "$seconds"
  return "$status"
}

report() {
  local target=$1 log=$2 status=$3 seconds=$4 executions edges inputs
  executions=$(sed -n 's/^stat::number_of_executed_units: //p' "$log")
  read -r edges inputs <<<"$(sed -nE 's|^#[0-9]+.* cov: ([0-9]+) .* corp: ([0-9]+)/.*|\1 \2|p' \
    "$log" | tail -n 1)"
  printf '%-17s %10s executions, %6d a processor second, %5s edges, %4s inputs known: %s\n' \
    "$target" "${executions:-?}" \
    "$(awk -v n="${executions:-0}" '{ print int(n / ($1 + $2 + 0.01)) }' <<<"$seconds")" \
    "${edges:-?}" "${inputs:-?}" "$(verdict "$status")"
  ((status == 0)) || explain "$fast" "$target" "$log"
}

verdict() {
  if (($1 == 0)); then echo clean; else echo FOUND; fi
}

explain() {
  local build=$1 target=$2 log=$3
  grep -E -m 3 'violated:|ERROR:|runtime error:' "$log"
  echo "  its log: $log"
  echo "  to repeat it: $build/bin/fuzz_$target" \
    "$(sed -nE 's/.*(Test unit written to |Running: )//p' "$log" | tail -n 1)"
}

# replay TARGET FOLDER...: every input once, with sanitizers.
replay() {
  local target=$1 log=$logs/replay-$1.log status=0 inputs runner=(xargs -0 -n 5000)
  shift
  mapfile -t inputs < <(find "$@" -type f | LC_ALL=C sort)
  ((${#inputs[@]} > 0)) || fail "there is no corpus of '$target'"
  printf '%s\0' "${inputs[@]}" | run_target "$sanitized" "$target" >"$log" 2>&1 || status=$?
  printf '%-17s %10d inputs replayed: %s\n' "$target" "${#inputs[@]}" "$(verdict "$status")"
  ((status == 0)) || explain "$sanitized" "$target" "$log"
  return "$status"
}

# keep TARGET: the fewest inputs that run the same edges, as often where they are no more than these.
keep() {
  local target=$1 log=$logs/keep-$1.log merged=$scratch/keep-$1 folders counters count=0 most=120
  mapfile -t folders < <(corpora "$target")
  for counters in 1 0; do
    rm -rf "$merged" && mkdir "$merged" && run_target "$fast" "$target" -set_cover_merge=1 \
      "-use_counters=$counters" "$merged" "${folders[@]}" >"$log" 2>&1 || return
    count=$(find "$merged" -type f | wc -l)
    ((count <= most)) && break
  done
  # Inputs that somebody has named stay, whatever edges they run.
  mkdir -p "$root/fuzz/corpus/$target"
  find "$root/fuzz/corpus/$target" -type f -regextype egrep -regex '.*/[0-9a-f]{40}' -delete
  cp -r "$merged/." "$root/fuzz/corpus/$target"
  printf '%-17s %10d inputs in fuzz/corpus\n' "$target" "$count"
}

# each COMMAND ARGUMENT...: for every target, as many at a time as there are processors.
each() {
  local target running=0 status=0
  for target in "${targets[@]}"; do
    if ((running >= jobs)); then
      wait -n || status=1
      ((running -= 1))
    fi
    "$1" "$target" "${@:2}" &
    ((running += 1))
  done
  while ((running > 0)); do
    wait -n || status=1
    ((running -= 1))
  done
  return "$status"
}
replay_corpus() { replay "$1" "$root/fuzz/corpus/$1"; }
replay_known() {
  local folders
  mapfile -t folders < <(corpora "$1")
  replay "$1" "${folders[@]}"
}

main() {
  local mode=run keep='' bound=-max_total_time=60 target failed=0
  targets=("${parsers[@]}" "${rooms[@]}")
  [[ ${1-} == --keep ]] && keep=yes && shift
  case ${1-} in
    --replay) mode=replay && shift ;;
    --runs)
      [[ ${2-} =~ ^[0-9]+$ ]] || fail "--runs wants a number"
      bound=-runs=$2 && shift 2
      ;;
    [0-9]*) bound=-max_total_time=$1 && shift ;;
  esac
  for target in "$@"; do
    [[ " ${targets[*]} " == *" $target "* ]] ||
      fail "there is no target '$target', only: ${targets[*]}"
  done
  (($# > 0)) && targets=("$@")

  # In memory where that can be had: a target's registry is a file that it writes all the time.
  scratch=$(mktemp -d -p "$([[ -w /dev/shm ]] && echo /dev/shm || echo "${TMPDIR:-/tmp}")")
  trap 'rm -rf "$scratch"' EXIT
  quiet fuzz-setup install_missing "${run_packages[@]}" "${fuzz_packages[@]}" || exit 1
  quiet fuzz-replay-build build_preset asan "${targets[@]/#/fuzz_}" || exit 1
  if [[ $mode == replay ]]; then
    each replay_corpus
    return
  fi
  quiet fuzz-build build_preset fuzz "${targets[@]/#/fuzz_}" || exit 1
  each fuzz "$bound" || failed=1
  each replay_known || failed=1
  if [[ $keep == yes ]]; then each keep || failed=1; fi
  return "$failed"
}

main "$@"
