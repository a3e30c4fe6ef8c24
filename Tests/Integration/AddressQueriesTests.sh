#!/bin/bash
# The library's answers about addresses and adapters of a real machine, as the console host shows them.
. "$(dirname "$0")/lab.sh"

three_adapters

# yes ARGUMENT...: qela answers the question so; no and refused likewise.
yes() { answer qela "$@" && expect_code 0 && expect "$out" match; }
no() { answer qela "$@" && expect_code 5 && expect "$out" "no match"; }
refused() { answer qela "$@" && expect_code 2 && expect "$out" ""; }

it "matches given addresses with a single address, a subnet and a range"
yes match --address 10.0.0.2 --address 10.0.0.1 --exact 10.0.0.1
no match --address 10.0.0.1 --exact 10.0.0.01
yes match --address 192.168.1.255 --subnet 192.168.1.0/24
no match --address 192.168.2.0 --subnet 192.168.1.0/24
yes match --address 10.0.0.9 --range 10.0.0.1 10.0.0.10
yes match --address fe80::1%5 --subnet fe80::/10
no match --address 10.0.0.1 --range :: ffff::
answer qela match --address 10.0.0.1 --subnet 10.0.0.0/8 --json
expect_answer 0 '{"schema":1,"match":true}' ''

it "matches the addresses of the adapters that are up"
yes match --adapters --exact 10.20.0.15
yes match --adapters --subnet 172.16.0.0/12
yes match --adapters --subnet fd00:77::/64
no match --adapters --subnet 10.77.0.0/24
no match --adapters --subnet 127.0.0.0/8

it "tells when a question may not be the one that was meant"
# notes EXPECTED ARGUMENT...: what stands beside the answer.
notes() {
  answer qela match --address 10.0.0.1 "${@:2}"
  expect "$err" "$1"
}
notes '' --subnet 10.0.0.0/8
notes 'qela: note: "10.0.0.0/0" is a single address to the library, which takes the IPv4 prefix 0 as 32' --subnet 10.0.0.0/0
notes 'qela: note: "10.0.0.0" has no prefix; the library takes the number that the address begins with' --subnet 10.0.0.0
notes 'qela: note: "10.0.0.0/x" has a prefix that is not a number; the library takes the digits that it begins with' --subnet 10.0.0.0/x
notes 'qela: note: "10.0/8" has no numeric address; the library matches nothing with it' --subnet 10.0/8
notes 'qela: note: "10.9" is not a full numeric address; the library reads as much of it as it can, or resolves it as a name' --range 10.0.0.0 10.9

it "refuses a question that is not one"
refused match --address 10.0.0.1
refused match --subnet 10.0.0.0/8
refused match --adapters --address 10.0.0.1 --subnet 10.0.0.0/8
refused match --address 10.0.0.1 --exact 10.0.0.1 --subnet 10.0.0.0/8
refused match --address 10.0.0.1 --range 10.0.0.0
refused media --is nonsense
refused media --index 2

it "shows the physical addresses of the adapters that are up"
expect "$(qela macs | tr -d '\r' | sort)" $'02-00-00-00-00-07\n0A-1B-2C-3D-4E-5F'
expect "$(qela macs --json | jq -c '.macAddresses | sort')" '["02-00-00-00-00-07","0A-1B-2C-3D-4E-5F"]'

it "shows media types and answers questions about them"
media=$(qela media --json)
expect "$(jq -c '[.adapters[] | [.description, .media]] | sort' <<<"$media")" \
  '[["virtual0","virtual"],["wifi0","wired"]]'
wifi=$(jq '.adapters[] | select(.description == "wifi0").index' <<<"$media")
expect "$(qela media | grep -c "^$wifi wired wifi0")" 1
yes media --is wired
no media --is wireless
no media --is virtual --index "$wifi"
yes media --is virtual --is wired --index "$wifi"
no media --is wired --index 99999
