#!/usr/bin/env bash
# The DLL needs nothing but the system's own DLLs, and stays small:
#   check_dll.sh DLL [RESULTS]
# RESULTS gets its size as the benchmarks write their figures.
set -euo pipefail
dll=$1 results=${2-/dev/null}
limit_kb=350
foreign=()

system=' advapi32 hid kernel32 msvcrt ole32 oleaut32 setupapi user32 '
while read -r import; do
  [[ $system == *" $import "* ]] || foreign+=("$import.dll")
done < <(x86_64-w64-mingw32-objdump -p "$dll" | sed -n 's/^\tDLL Name: //p' |
  tr '[:upper:]' '[:lower:]' | sed 's/\.dll$//')

size=$(stat -c %s "$dll")
figure=$(printf '"measured": %d.%02d, "limit": %d' $((size / 1024)) $((size % 1024 * 100 / 1024)) \
  "$limit_kb")
((${#foreign[@]} == 0)) || figure="\"error_message\": \"needs ${foreign[*]}\", \"limit\": $limit_kb"
printf '{"benchmarks": [{"name": "dll", "label": "%s | KB", %s}]}\n' \
  'the stripped DLL, with only system DLLs imported' "$figure" >"$results"

echo "$size bytes, at most $((limit_kb * 1024)); beyond the system's own DLLs it needs: ${foreign[*]-}"
((size <= limit_kb * 1024 && ${#foreign[@]} == 0))
