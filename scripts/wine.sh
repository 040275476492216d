#!/usr/bin/env bash
# Runs a Windows program under Wine, in a prefix of this build's own:
#   scripts/wine.sh PREFIX PROGRAM [ARGUMENT...]          runs the program
#   scripts/wine.sh PREFIX --prove PROGRAM [ARGUMENT...]  starts Wine anew and runs the program; if
#                                                         it fails, once more in a new prefix
#   scripts/wine.sh PREFIX --stop                         ends what still runs in the prefix
set -euo pipefail

wine=/usr/lib/wine/wine64
server=/usr/lib/wine/wineserver64
mkdir -p "$1"
prefix=$(cd "$1" && pwd)
export WINEPREFIX=$prefix/wine WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml='
clean=$prefix/clean
shift

# It tells by its exit code whether anything ran; either is fine.
stop_wine() {
  [[ -d $WINEPREFIX ]] || return 0
  "$server" -k || true
  "$server" -w || true
}

# Windows need no display. The desktop that comes up with a new prefix has not been told so, and
# while it runs no window can be made: all is ended, and started again.
make_prefix() {
  rm -rf "$WINEPREFIX" "$clean"
  mkdir -p "$WINEPREFIX" "$clean.new"
  "$server" -p &&
    "$wine" reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f || return
  stop_wine
  cp "$WINEPREFIX"/{system,user,userdef}.reg "$clean.new" && mv "$clean.new" "$clean"
}

# Starts Wine's server, services and desktop before the program does: they outlive it, and would keep
# the pipes open in which its caller waits for the end of its output. A desktop ends when nobody has
# a window on it, so that a program with one stays. The registry, which forgets no
# device and keeps what an end at the wrong moment has left in it, is the one of the new prefix.
start_wine() {
  "$server" -k0 2>/dev/null && return  # it runs already
  [[ -d $clean ]] || make_prefix || return
  cp "$clean"/*.reg "$WINEPREFIX" || return
  "$server" -p && "$wine" cmd /c exit || return
  "$wine" notepad &
  "$wine" rundll32 none,none  # ends when it has had a window
}

# locked COMMAND...: several programs may come here at once.
locked() {
  (
    flock 9
    "$@" >"$prefix/start.log" 2>&1 </dev/null 9>&- || { cat "$prefix/start.log" >&2; exit 1; }
  ) 9>"$prefix/lock"
}

restart_wine() { stop_wine && start_wine; }
remake_wine() { stop_wine && rm -rf "$clean" && start_wine; }

case $1 in
  --stop) stop_wine ;;
  --prove)
    shift
    locked restart_wine && "$wine" "$@" && exit
    locked remake_wine
    exec "$wine" "$@"
    ;;
  *)
    locked start_wine
    exec "$wine" "$@"
    ;;
esac
