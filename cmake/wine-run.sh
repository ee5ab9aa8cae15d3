#!/bin/sh
# Runs a Windows program of the build under wine64 with a private prefix.
# The prefix lives in the build tree unless KESTREL_WINEPREFIX names one;
# the first run creates it.
: "${KESTREL_WINEPREFIX:=${TMPDIR:-/tmp}/kestrel-wine-$(id -u)}"
export WINEPREFIX="$KESTREL_WINEPREFIX"
export WINEDEBUG="${WINEDEBUG:--all}"
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=}"
if [ ! -f "$WINEPREFIX/system.reg" ]; then
  mkdir -p "$WINEPREFIX"
  wine wineboot --init >/dev/null 2>&1 || true
  wineserver -w 2>/dev/null || true
fi
exec wine "$@"
