# The Wine server of $WINEPREFIX, which is to Windows programs what switching the machine on and off is. Sourced.

# The server and the services start with their output away: they would inherit the caller's pipe, keep it open and hang
# whoever reads it. The errors of services go to the file that the argument names.
start_machine() {
  LD_PRELOAD=$LAB_SHIM wineserver -p </dev/null >/dev/null 2>&1
  LD_PRELOAD=$LAB_SHIM wine wineboot </dev/null >/dev/null 2>"${1:-/dev/null}"
}

stop_machine() {
  wineserver -k >/dev/null 2>&1 || true
  wineserver -w >/dev/null 2>&1 || true
}
