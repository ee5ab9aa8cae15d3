#!/bin/sh
# The Windows service under wine's service control manager (install twice,
# start, stop, remove twice), after two foreground runs with faulting components.
# Usage: service-test.sh <bin dir of the Windows build> <work dir>
# A wine prefix of its own, <work dir>/prefix or KESTREL_SERVICE_WINEPREFIX,
# keeps its service and wineserver apart from other tests.
set -u
BIN=$1
WORK=$2
SERVICE="KESTREL Control Win V3"
DISPLAY_NAME="KESTREL Control Win V3 Version 3.5.5.0"

export WINEPREFIX="${KESTREL_SERVICE_WINEPREFIX:-$WORK/prefix}"
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY WAYLAND_DISPLAY

failures=0
fail() {
  echo "FAILED: $*"
  failures=$((failures + 1))
}
# expect <what> <text> <pattern>: the text contains the fixed string.
expect() {
  case "$2" in
    *"$3"*) echo "ok: $1" ;;
    *) fail "$1: expected [$3] in [$2]" ;;
  esac
}

mkdir -p "$WORK"
if [ ! -f "$WINEPREFIX/system.reg" ]; then
  echo "creating the wine prefix $WINEPREFIX"
  wine wineboot --init >/dev/null 2>&1
  wineserver -w
fi
# One wineserver (and with it one service control manager) for all commands.
wineserver -p

# A private copy of the program: its host log lands beside it.
APP="$WORK/app"
rm -rf "$APP"
mkdir -p "$APP"
cp "$BIN"/KESTRELControl.exe "$BIN"/*.dll "$BIN"/KESTRELControl.cfg "$APP"/ 2>/dev/null
cp "$BIN"/svcquery.exe "$WORK"/
LOG="$APP/$SERVICE.log"
HOST="$APP/KESTRELControl.exe"
APP_WIN=$(wine winepath -w "$HOST" 2>/dev/null | tr -d '\r')

run() { timeout 120 wine "$@" 2>/dev/null | tr -d '\r'; }
host() {
  timeout 120 wine "$HOST" "$@" >/dev/null 2>&1
  echo $?
}
query() { run "$WORK/svcquery.exe" "$@"; }

cleanup() {
  timeout 120 wine "$HOST" -u >/dev/null 2>&1
  wineserver -k 2>/dev/null
}
trap cleanup EXIT

# Faults in the foreground: during start-up the run loop is never entered; in
# the communication cycle the runtime stops in order. Both end by themselves.
printf '[ComponentManager]\r\nComponent.0=CmpTestFaultInit\r\n' > "$APP/FaultInit.cfg"
printf '[ComponentManager]\r\nComponent.0=CmpTestFaultCycle\r\n' > "$APP/FaultCycle.cfg"
rm -f "$LOG"
host -r FaultInit.cfg >/dev/null
log=$(tr -d '\r' < "$LOG")
expect "fault during start-up" "$log" ": *** Exception during CMInit() occurred!"
case "$log" in *"Service stopped"*) fail "start-up fault: the run loop was entered" ;; esac
rm -f "$LOG"
host -r FaultCycle.cfg >/dev/null
log=$(tr -d '\r' < "$LOG")
expect "fault in the cycle: started" "$log" ": $SERVICE Service started"
expect "fault in the cycle: orderly stop" "$log" ": $SERVICE Service stopped"
case "$log" in *"Exception during CMExit"*) fail "fault in the cycle: exception during CMExit" ;; esac

# A leftover of an interrupted run would make the install fail.
timeout 120 wine "$HOST" -u >/dev/null 2>&1
rm -f "$LOG"

# Install: exit code non-zero means success on Windows.
status=$(host -i)
[ "$status" != 0 ] || fail "-i returned $status"
config=$(query config "$SERVICE")
expect "quoted path" "$config" "BINARY_PATH_NAME=\"$APP_WIN\""
expect "display name" "$config" "DISPLAY_NAME=$DISPLAY_NAME"
expect "automatic start" "$config" "START_TYPE=2"
expect "own process" "$config" "SERVICE_TYPE=16"

# Installing twice fails with the system's text.
status=$(host -i)
[ "$status" = 0 ] || fail "second -i returned $status"
exists_text=$(query message 1073)
[ -n "$exists_text" ] || fail "no system text for error 1073"
expect "second install" "$(tr -d '\r' < "$LOG")" "***ERROR***: CreateService failed: $exists_text"

# Start: the service reports running.
status=$(host -s)
[ "$status" != 0 ] || fail "-s returned $status"
expect "running" "$(query state "$SERVICE")" "STATE=4"
expect "sc query" "$(run sc query "$SERVICE")" "RUNNING"

# Stop: stopped.
status=$(host -e)
[ "$status" != 0 ] || fail "-e returned $status"
expect "stopped" "$(query state "$SERVICE")" "STATE=1"

log=$(tr -d '\r' < "$LOG")
expect "log separator" "$log" ": --------------------------------------------------------------------------"
expect "log started" "$log" ": $SERVICE Service started"
expect "log config" "$log" ": Config file:"
expect "log config path" "$log" "KESTRELControl.cfg"
expect "log stopped" "$log" ": $SERVICE Service stopped"
# Every line: date, time, text, CR LF.
bad=$(grep -c -v -E '^[0-9]{2}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}: .*'"$(printf '\r')"'$' "$LOG")
[ "$bad" = 0 ] || fail "$bad host log lines without date, time or CR LF"

# Uninstall removes it; a second uninstall cannot open it.
status=$(host -u)
[ "$status" != 0 ] || fail "-u returned $status"
expect "removed" "$(query state "$SERVICE")" "ERROR=1060"
status=$(host -u)
[ "$status" = 0 ] || fail "-u of a missing service returned $status"
missing_text=$(query message 1060)
expect "missing service" "$(tr -d '\r' < "$LOG")" "***ERROR***: OpenService failed: $missing_text"

trap - EXIT
wineserver -k 2>/dev/null
if [ "$failures" != 0 ]; then
  echo "$failures check(s) failed"
  exit 1
fi
echo "all checks passed"
