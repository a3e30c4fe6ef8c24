#!/bin/bash
# The library's answers about addresses and adapters of a real machine, as the console host shows them.
. "$(dirname "$0")/lab.sh"

three_adapters

# answer ARGUMENT...: what qela prints, and its exit code.
answer() {
  local code=0
  qela "$@" 2>/dev/null || code=$?
  printf '%s\n' "[$code]"
}
yes=$'match\n[0]'
no=$'no match\n[5]'

it "matches given addresses with a single address, a subnet and a range"
expect "$(answer match --address 10.0.0.2 --address 10.0.0.1 --exact 10.0.0.1)" "$yes"
expect "$(answer match --address 10.0.0.1 --exact 10.0.0.01)" "$no"
expect "$(answer match --address 192.168.1.255 --subnet 192.168.1.0/24)" "$yes"
expect "$(answer match --address 192.168.2.0 --subnet 192.168.1.0/24)" "$no"
expect "$(answer match --address 10.0.0.9 --range 10.0.0.1 10.0.0.10)" "$yes"
expect "$(answer match --address fe80::1%5 --subnet fe80::/10)" "$yes"
expect "$(answer match --address 10.0.0.1 --range :: ffff::)" "$no"
expect "$(answer match --address 10.0.0.1 --subnet 10.0.0.0/8 --json)" $'{"match":true}\n[0]'

it "matches the addresses of the adapters that are up"
expect "$(answer match --adapters --exact 10.20.0.15)" "$yes"
expect "$(answer match --adapters --subnet 172.16.0.0/12)" "$yes"
expect "$(answer match --adapters --subnet fd00:77::/64)" "$yes"
expect "$(answer match --adapters --subnet 10.77.0.0/24)" "$no"
expect "$(answer match --adapters --subnet 127.0.0.0/8)" "$no"

it "tells when a question may not be the one that was meant"
# note ARGUMENT...: the message that stands beside the answer.
note() { qela match --address 10.0.0.1 "$@" 2>&1 >/dev/null || true; }
expect "$(note --subnet 10.0.0.0/8)" ''
expect "$(note --subnet 10.0.0.0/0)" \
  'qela: note: "10.0.0.0/0" is a single address to the library, which takes the IPv4 prefix 0 as 32'
expect "$(note --subnet 10.0.0.0)" \
  'qela: note: "10.0.0.0" has no prefix; the library takes the number that the address begins with'
expect "$(note --subnet 10.0.0.0/x)" \
  'qela: note: "10.0.0.0/x" has a prefix that is not a number; the library takes the digits that it begins with'
expect "$(note --subnet 10.0/8)" 'qela: note: "10.0/8" has no numeric address; the library matches nothing with it'
expect "$(note --range 10.0.0.0 10.9)" \
  'qela: note: "10.9" is not a full numeric address; the library reads as much of it as it can, or resolves it as a name'

it "refuses a question that is not one"
expect "$(answer match --address 10.0.0.1)" '[2]'
expect "$(answer match --subnet 10.0.0.0/8)" '[2]'
expect "$(answer match --adapters --address 10.0.0.1 --subnet 10.0.0.0/8)" '[2]'
expect "$(answer match --address 10.0.0.1 --exact 10.0.0.1 --subnet 10.0.0.0/8)" '[2]'
expect "$(answer match --address 10.0.0.1 --range 10.0.0.0)" '[2]'
expect "$(answer media --is nonsense)" '[2]'
expect "$(answer media --index 2)" '[2]'

it "shows the physical addresses of the adapters that are up"
expect "$(qela macs | tr -d '\r' | sort)" $'02-00-00-00-00-07\n0A-1B-2C-3D-4E-5F'
expect "$(qela macs --json | jq -c '.macAddresses | sort')" '["02-00-00-00-00-07","0A-1B-2C-3D-4E-5F"]'

it "shows media types and answers questions about them"
media=$(qela media --json)
expect "$(jq -c '[.adapters[] | [.description, .media]] | sort' <<<"$media")" \
  '[["virtual0","virtual"],["wifi0","wired"]]'
wifi=$(jq '.adapters[] | select(.description == "wifi0").index' <<<"$media")
expect "$(qela media | grep -c "^$wifi wired wifi0")" 1
expect "$(answer media --is wired)" "$yes"
expect "$(answer media --is wireless)" "$no"
expect "$(answer media --is virtual --index "$wifi")" "$no"
expect "$(answer media --is virtual --is wired --index "$wifi")" "$yes"
expect "$(answer media --is wired --index 99999)" "$no"
