#!/bin/bash
# The samples, built from the unpacked package alone and run on a private network.
. "$(dirname "$0")/package.sh"
. "$(dirname "$0")/hosts.sh"
# shellcheck source=../../Scripts/wine-machine.sh
. "$scripts/wine-machine.sh"
samples=$unpacked/samples

it "has samples of at most 60 lines each"
for sample in "$package"/samples/*.c* "$package"/samples/*/*; do
  [ "$(wc -l <"$sample")" -le 60 ] || failed "${sample##*/} has $(wc -l <"$sample") lines"
done

it "builds them where there is no checkout"
build_with_cmake package/samples samples
elsewhere env GOOS=windows GOARCH=amd64 CGO_ENABLED=0 GOTOOLCHAIN=local GOPROXY=off GOCACHE=/mnt/go-cache \
  go build -o /mnt/samples/go_host.exe package/samples/go/host.go >"$samples.log" 2>&1 || failed "cannot be built:" "$(<"$samples.log")"

set_dns_suffix lab.test
add_adapter wifi0
qela location add Office --gateway 10.20.0.1 2>/dev/null >&2

it "runs a host in C"
start_host wine "$samples/c_host.exe"
next_line "current:"
join_network wifi0 10.20.0.15/24 10.20.0.1
next_line "current: Office"

it "lets an edit by qela reach it"
qela location add Everywhere 2>/dev/null >&2
next_line "current: Office Everywhere"
end_host

it "runs a host in Go"
start_host wine "$samples/go_host.exe"
next_line "current: Office Everywhere"
leave_network wifi0 10.20.0.15/24
next_line "current: Everywhere"
end_host

it "runs a host in C++"
start_host wine "$samples/cxx_host.exe"
next_line "current: Everywhere"
join_network wifi0 10.20.0.15/24 10.20.0.1
next_line "current: Office Everywhere"
end_host

it "runs a host's own test"
answer wine "$samples/host_test.exe"
expect "$code ${out%$'\r'}" "0 passed: the machine joins the office, the host swaps its rules"

# Wine has no event log: it writes what is reported to the standard error that its services were started with.
stop_machine
mkfifo "$samples/events"
exec 5<>"$samples/events"
rm "$samples/events"
WINEDEBUG=-all,+eventlog start_machine /dev/fd/5
# next_event TEXT: the next event is this.
next_event() {
  local line
  until [[ ${line:-} = *ReportEventW*L\"* ]]; do
    IFS= read -r -t 20 line <&5 || failed "no event within 20 seconds; expected: $1"
  done
  line=${line#*L\"}
  expect "${line%\"*}" "$1"
}
state() { wine sc query QeLaSample | sed -n 's/.*STATE *: [0-9]* *\([A-Z_]*\).*/\1/p'; }
# control WHAT: tells the service, and waits until it has followed.
x86_64-w64-mingw32ucrt-gcc -Wall -Werror -municode -o "$samples/control_service.exe" "$tests/control_service.c" -ladvapi32
control() { wine "$samples/control_service.exe" QeLaSample "$1" || failed "the service does not follow: $1"; }

it "runs a Windows service, which tells the event log"
wine sc create QeLaSample binPath= "$(wine winepath -w "$samples/service.exe" | tr -d '\r')" >/dev/null
expect "$(state)" STOPPED
wine sc start QeLaSample >/dev/null
next_event "current: Office Everywhere"
control running
expect "$(state)" RUNNING

it "lets an edit by qela reach the service"
qela location remove Everywhere 2>/dev/null >&2
next_event "current: Office"

it "pauses it: it is told nothing until it continues"
control pause
expect "$(state)" PAUSED
qela location add Everywhere 2>/dev/null >&2
leave_network wifi0 10.20.0.15/24
control continue
expect "$(state)" RUNNING
next_event "current: Everywhere"

it "stops it"
control stop
expect "$(state)" STOPPED
