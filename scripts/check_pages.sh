#!/usr/bin/env bash
# Holds perictl's manual pages and completions, as a build has made them, against what formatters and
# shells want, and against what perictl's own help says:
#   check_pages.sh BUILD_FOLDER
set -euo pipefail
shopt -s extglob
perictl=$1/bin/perictl share=$1/share
pages=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
  echo "$1" >&2
  exit 1
}

# What a shell offers behind a line, a word a line.
in_bash() {
  bash -c 'source "$1"; read -ra COMP_WORDS <<<"$2x"; COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMP_WORDS[COMP_CWORD]=${COMP_WORDS[COMP_CWORD]%x}; _perictl 2>/dev/null
    printf "%s\n" "${COMPREPLY[@]}"' - "$share/bash-completion/completions/perictl" "$1"
}
in_fish() {
  fish --no-config -c "source $share/fish/vendor_completions.d/perictl.fish; complete -C '$1'" |
    cut -f 1
}

# offers WORDS...: whether each shell offers these behind the line.
offers() {
  local line=$1 shell word offered
  shift
  for shell in in_bash in_fish; do
    offered=$'\n'$("$shell" "$line")$'\n'
    for word in "$@"; do
      [[ $offered == *$'\n'"$word"?(=)$'\n'* ]] || fail "$shell does not complete '$line' to $word"
    done
  done
}

# check COMMAND...: its page, its options and the commands below it.
check() {
  local line="perictl${*:+ $*} " page option commands
  page=$share/man/man1/$(tr ' ' - <<<"perictl${*:+ $*}").1
  mandoc -T lint -W warning "$page" || fail "$page is no sound page"
  pages=$((pages + 1))
  text=$(<"$page")
  "$perictl" "$@" --help >"$work/help"
  mapfile -t options < <(sed -nE 's/^  (-[a-z], )?(--[a-z-]+).*/\2/p' "$work/help")
  for option in "${options[@]}"; do
    [[ $text == *"${option//-/\\-}"* ]] || fail "$page says nothing of $option"
  done
  offers "$line-" "${options[@]}"
  mapfile -t commands < <(sed -n '/^Commands:/,/^$/s/^  \([a-z][a-z-]*\) .*/\1/p' "$work/help")
  ((${#commands[@]} == 0)) && return
  offers "$line" "${commands[@]}"
  for command in "${commands[@]}"; do check "$@" "$command"; done
}

bash -n "$share/bash-completion/completions/perictl"
shellcheck --shell=bash "$share/bash-completion/completions/perictl"
zsh -n "$share/zsh/site-functions/_perictl"
fish --no-execute "$share/fish/vendor_completions.d/perictl.fish"
check
((pages == $(find "$share/man" -name '*.1' | wc -l))) || fail "there are pages of no command"
offers "perictl config save --format " json image
offers "perictl set report" report_rate=
offers "perictl upgrade run $work/he" "$work/help"
echo "$pages pages and three completions are sound"
