#!/usr/bin/env bash
# Holds a built library's export table against the list of exports and the public headers:
#   check_exports.sh LIBRARY EXPORTS_DEF INCLUDE_FOLDER
# Exported, listed and declared names are the same; an alias has the address of its target; names
# that are functions of their own have addresses of their own.
set -euo pipefail
library=$1 def=$2 include=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
bad=0

complain() {
  echo "$1" >&2
  bad=1
}

# "NAME ADDRESS" of every export, by the format's own tables.
read_exports() {
  case $library in
    *.dll)
      x86_64-w64-mingw32-objdump -p "$library" | awk '
        /Export RVA/ { gsub(/[][]/, " "); address[$1] = $4 }
        /^\[Ordinal\/Name Pointer\] Table/ { names = 1; next }
        names && !NF { names = 0 }
        names { gsub(/[][]/, " "); print $NF, address[$1] }'
      ;;
    *) nm -D --defined-only "$library" | awk '{ print $3, $1 }' ;;
  esac | sort
}

# "NAME TARGET" of every line of the list, a function of its own being its own target.
read_list() {
  sed -e 's/;.*//' -e 's/=/ /' -e '/^LIBRARY/d; /^EXPORTS/d' "$def" |
    awk 'NF == 1 { print $1, $1 } NF == 2 { print $1, $2 } NF > 2 { print "unreadable:", $0 }' |
    sort
}

# The names that the headers declare, comments left out.
read_declared() {
  grep -hv '^ *#' "$include"/perilink/*.h | gcc -fpreprocessed -E -P -x c++ - | tr '\n' ' ' |
    grep -oE 'PERILINK_API[^;{(]*[ *&][A-Za-z0-9_]+ *\(' | sed -E 's/ *\($//; s/.*[ *&]//' | sort
}

read_exports >"$work/exports"
read_list >"$work/list"
read_declared >"$work/declared"
cut -d' ' -f1 "$work/exports" >"$work/exported"
cut -d' ' -f1 "$work/list" >"$work/listed"
[[ -s $work/exported ]] || complain "$library exports nothing that could be read"

# same WHAT A WHAT B: the sorted lists of names hold the same names, each once.
same() {
  local lines
  lines=$({ diff "$2" "$4" || true; } | sed -n "s/^< /$1 but not $3: /p; s/^> /$3 but not $1: /p")
  [[ -z $lines ]] || complain "$lines"
}
for file in listed declared; do
  twice=$(uniq -d "$work/$file")
  [[ -z $twice ]] || complain "$file twice: $twice"
done
same exported "$work/exported" listed "$work/listed"
same listed "$work/listed" declared "$work/declared"

addresses=$(awk '
  NR == FNR { address[$1] = $2; next }
  $1 != $2 && address[$1] != address[$2] { print $1 " is not at the address of " $2 }
  $1 == $2 && ($1 in address) {
    if (address[$1] in holder) print $1 " shares its address with " holder[address[$1]]
    holder[address[$1]] = $1
  }' "$work/exports" "$work/list")
[[ -z $addresses ]] || complain "$addresses"

((bad == 0)) && echo "$(wc -l <"$work/exports") exports"
exit "$bad"
