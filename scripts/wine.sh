#!/usr/bin/env bash
# Runs a Windows program under Wine, in a prefix of this build's own:
#   scripts/wine.sh PREFIX PROGRAM [ARGUMENT...]     runs the program
#   scripts/wine.sh PREFIX --stop                    ends what still runs in the prefix
set -euo pipefail

wine=/usr/lib/wine/wine64
export WINEPREFIX=$1
export WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml='
shift

if [[ $1 == --stop ]]; then
  [[ -d $WINEPREFIX ]] || exit 0
  # wineserver tells by its exit code whether anything ran; either is fine.
  /usr/lib/wine/wineserver64 -k || true
  exit 0
fi

# Windows need no display. Several tests may come here at once: one makes the prefix.
if [[ ! -e $WINEPREFIX/ready ]]; then
  mkdir -p "$WINEPREFIX"
  exec 9>"$WINEPREFIX/lock"
  flock 9
  if [[ ! -e $WINEPREFIX/ready ]]; then
    # The server outlives one program, so that each test need not start it.
    /usr/lib/wine/wineserver64 -p 9>&-
    "$wine" reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f >&2 9>&-
    touch "$WINEPREFIX/ready"
  fi
  exec 9>&-
fi
exec "$wine" "$@"
