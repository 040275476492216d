#!/usr/bin/env bash
# The DLL needs nothing but the system's own DLLs, and stays small:
#   check_dll.sh DLL MAXIMUM_BYTES
set -euo pipefail
dll=$1 maximum=$2
bad=0

system=' advapi32 hid kernel32 msvcrt ole32 oleaut32 setupapi user32 '
while read -r import; do
  if [[ $system != *" $import "* ]]; then
    echo "$dll needs $import.dll, which is no system DLL" >&2
    bad=1
  fi
done < <(x86_64-w64-mingw32-objdump -p "$dll" | sed -n 's/^\tDLL Name: //p' |
  tr '[:upper:]' '[:lower:]' | sed 's/\.dll$//')

size=$(stat -c %s "$dll")
if ((size > maximum)); then
  echo "$dll has $size bytes, more than $maximum" >&2
  bad=1
fi
echo "$size bytes"
exit "$bad"
