#!/bin/bash
# qela where a location names a web host that keeps silent: what needs no answer does not wait for it.
. "$(dirname "$0")/lab.sh"
. "$tests/../../Scripts/https-servers.sh"

start_https_servers
trap stop_https_servers EXIT
add_adapter wifi0
join_network wifi0 10.20.0.15/24 10.20.0.1
add_adapter wifi1
join_network wifi1 10.21.0.15/24 10.21.0.1
folder=$(mktemp -d)

it "edits and shows a set that names the silent host without waiting for it"
# The silent host alone would take 21 seconds an adapter.
begun=$SECONDS
qela location add Silent --https-host silent.lab.test >"$folder/out" 2>&1
for command in "locations" "locations --json" "location show Silent" "location disable Silent" "location enable Silent" \
  "location set Silent --note slow" "location rename Silent Quiet" "adapters" "macs" "media" "match --adapters --exact 10.20.0.15"; do
  # shellcheck disable=SC2086
  qela $command >"$folder/out" 2>&1 || failed "qela $command" "$(<"$folder/out")"
done
[ $((SECONDS - begun)) -lt 15 ] || failed "$((SECONDS - begun)) seconds"

# start_waiting COMMAND...: starts qela COMMAND, whose standard error is read from 4.
start_waiting() {
  mkfifo "$folder/err"
  "$tests/../../Scripts/wine.sh" "$bin/qela.exe" "$@" >"$folder/out" 2>"$folder/err" &
  pid=$!
  exec 4<"$folder/err"
  rm "$folder/err"
}
# until_probe: the log tells that the location is being tested.
until_probe() {
  local line
  until [[ ${line:-} = *"IsCurrentLocation checking location Quiet"* ]]; do
    IFS= read -r -t 20 line <&4 || failed "the calculation does not begin"
  done
}

it "answers the first Ctrl-C at once and ends with the second"
for command in current watch; do
  start_waiting "$command" --verbose
  until_probe
  kill -INT "$pid"
  until [[ ${line:-} = *"Ctrl-C"* ]]; do IFS= read -r -t 5 line <&4 || failed "no answer to Ctrl-C"; done
  [[ $line = *'this ends when the web host silent.lab.test (location "Quiet") has answered or timed out'* ]] || failed "$line"
  line=
  begun=$EPOCHREALTIME
  kill -INT "$pid"
  code=0
  wait "$pid" || code=$?
  expect "$code" 130
  awk "BEGIN {exit !($EPOCHREALTIME - $begun < 1)}" || failed "the second Ctrl-C took longer than a second"
  expect "$(<"$folder/out")" ""
  exec 4<&-
done

it "says on a terminal what it waits for, and nothing elsewhere"
mkfifo "$folder/terminal"
exec 4<>"$folder/terminal"
TERM=xterm script -qfc "$tests/../../Scripts/wine.sh $bin/qela.exe current" "$folder/terminal" >/dev/null </dev/null &
pid=$!
until [[ ${line:-} = *'waiting for the web host silent.lab.test (location "Quiet"), 2 s'* ]]; do
  IFS= read -r -d $'\r' -t 20 line <&4 || failed "it says nothing"
done
kill "$pid"
wait "$pid" || true
