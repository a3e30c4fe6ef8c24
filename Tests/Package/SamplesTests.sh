#!/bin/bash
# The samples, built from the unpacked package alone and run on a private network.
. "$(dirname "$0")/package.sh"

it "has samples of at most 60 lines each"
for sample in $(find "$package/samples" -name '*.c' -o -name '*.cpp' -o -name '*.go'); do
  [ "$(wc -l <"$sample")" -le 60 ] || failed "${sample##*/} has $(wc -l <"$sample") lines"
done

it "builds them where there is no checkout"
samples=$unpacked/samples
build_with_cmake "$package/samples" "$samples" "${gnu[@]}"

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

it "runs a host in C++"
start_host wine "$samples/cxx_host.exe"
next_line "current: Office Everywhere"
leave_network wifi0 10.20.0.15/24
next_line "current: Everywhere"
end_host

it "runs a host's own test"
answer wine "$samples/host_test.exe"
expect "$code ${out%$'\r'}" "0 passed: the machine joins the office, the host swaps its rules"

it "runs a Windows service, which tells the event log"
log=$unpacked/service.log
wine sc create QeLaSample binPath= "$(wine winepath -w "$samples/service.exe" | tr -d '\r')" >/dev/null
