#!/usr/bin/env bash
# Runs a Windows program under Wine, in a prefix of this build's own:
#   scripts/wine.sh PREFIX PROGRAM [ARGUMENT...]     runs the program
#   scripts/wine.sh PREFIX --stop                    ends what still runs in the prefix
set -euo pipefail

wine=/usr/lib/wine/wine64
server=/usr/lib/wine/wineserver64
mkdir -p "$1"
WINEPREFIX=$(cd "$1" && pwd)
export WINEPREFIX WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml='
shift

if [[ $1 == --stop ]]; then
  # It tells by its exit code whether anything ran; either is fine.
  "$server" -k || true
  exit 0
fi

# Starts Wine's server and services before the program does: they outlive it, and would keep the
# pipes open in which its caller waits for the end of its output. Makes the prefix the first time.
start_wine() {
  "$server" -p || return 0  # it runs already
  if [[ ! -e $WINEPREFIX/ready ]]; then
    # Windows need no display. The desktop that comes up with a new prefix has not been told so, and
    # while it runs no window can be made: all is ended, and started again.
    "$wine" reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f || return
    "$server" -k || return
    "$server" -w
    touch "$WINEPREFIX/ready"
    "$server" -p || return
  fi
  "$wine" cmd /c exit
}

# Several programs may come here at once.
exec 9>"$WINEPREFIX/lock"
flock 9
if ! start_wine >"$WINEPREFIX/start.log" 2>&1 </dev/null 9>&-; then
  cat "$WINEPREFIX/start.log" >&2
  exit 1
fi
exec 9>&-
exec "$wine" "$@"
