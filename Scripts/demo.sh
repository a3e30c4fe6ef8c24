#!/bin/bash
# ./dev demo: the library on a private network, with real adapters, addresses and registry under Wine. Exits 0 only
# when the host was told the right list at every step.
#
# usage (inside the toolchain's root): lab.sh --own-network demo.sh BUILD_FOLDER
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
bin=$(cd "$1/bin" && pwd)
. "$here/lab-network.sh"
. "$here/watch-events.sh"
. "$here/https-servers.sh"

title() { printf '\n\033[1m%s\033[0m\n' "$*"; }
note() { printf '  %s\n' "$*"; }
# qela ARGUMENT...; what it prints is indented under the step that runs it.
qela() { "$here/wine.sh" "$bin/qela.exe" "$@"; }
show() {
  printf '  $ qela'
  printf ' %q' "$@"
  printf '\n'
  qela "$@" 2>&1 | sed 's/^/    /'
}

# told NAME...: waits for the host to be told exactly these current locations.
told() {
  local begun=$EPOCHREALTIME
  next_change "$@" || { note "FAILED"; exit 1; }
  jq -r --arg ms "$(awk "BEGIN {printf \"%d\", ($EPOCHREALTIME - $begun) * 1000}")" '
    "  host called back after \($ms) ms:",
    "    entered: \(if .entered == [] then "-" else [.entered[].name] | join(", ") end)",
    "    left:    \(if .left == [] then "-" else [.left[].name] | join(", ") end)",
    "    current: \(if .current == [] then "no location" else
       [.current[] | "\(.name) on \([.adapters[].description] | join(", "))"] | join("; ") end)"' <<<"$event"
}

# expect_at_start: the watch began at no location.
expect_at_start() {
  [ "$(jq -c .current <<<"$event")" = '[]' ] || { note "FAILED: at the start, the host was told $event"; exit 1; }
  note "current: no location"
}

set_dns_suffix eu-office.corp.example
add_adapter wifi0

title "1. An administrator defines two locations"
show location add Office --dns-suffix '*-office.corp.example' --gateway 10.20.0.1
show location add Home --gateway 192.168.77.1

title "2. The firewall starts watching; the machine is nowhere"
start_watch "$here/wine.sh" "$bin/qela.exe" watch --json
expect_at_start

title "3. The machine joins the office network (10.20.0.15, gateway 10.20.0.1)"
join_network wifi0 10.20.0.15/24 10.20.0.1
told Office

title "4. It moves home (192.168.77.30, gateway 192.168.77.1)"
leave_network wifi0 10.20.0.15/24
told
join_network wifi0 192.168.77.30/24 192.168.77.1
told Home

title "5. It leaves"
leave_network wifi0 192.168.77.30/24
told
end_watch

title "6. A new process finds the locations in the registry"
show locations
stored=$(qela locations --json | jq -c '[.locations[].name]')
[ "$stored" = '["Office","Home"]' ] || { note "FAILED: stored are $stored"; exit 1; }

title "7. The administrator rolls a set out: it is judged, tried on recorded machines, and applied"
roll_out=$(mktemp -d)
cd "$roll_out"
join_network wifi0 10.20.0.15/24 10.20.0.1
show snapshot office-pc.json
leave_network wifi0 10.20.0.15/24
join_network wifi0 192.168.77.30/24 192.168.77.1
show snapshot home-laptop.json
leave_network wifi0 192.168.77.30/24
set_dns_suffix hotel.example
join_network wifi0 10.20.0.77/24 10.20.0.1
show snapshot hotel-laptop.json
leave_network wifi0 10.20.0.77/24
set_dns_suffix eu-office.corp.example
qela export set.json >/dev/null
jq '.locations[0].criteria.dnsSuffixes = ["*-office.corp.example."] | .locations[1].criteria = {}' set.json >bad.json
note "A set with two mistakes:"
! show lint bad.json || { note "FAILED: nothing was found"; exit 1; }
jq '.locations[1].note = "at home"' set.json >good.json
note "A good one, on three machines:"
show test --set good.json --machines office-pc.json home-laptop.json hotel-laptop.json
tested=$(qela test --set good.json --machines office-pc.json home-laptop.json hotel-laptop.json | tr -d '\r' | paste -sd ' ')
[ "$tested" = "office-pc: Office home-laptop: Home hotel-laptop: none" ] || { note "FAILED: $tested"; exit 1; }
note "What it would change here, and the change:"
! show apply good.json --dry-run || { note "FAILED: nothing would be changed"; exit 1; }
show apply good.json
cd "$here"
rm -r "$roll_out"

title "8. A location that no one can forge: a web host that shows our certificate, and our management server"
start_https_servers
trap stop_https_servers EXIT
"$here/wine.sh" reg add 'HKLM\SOFTWARE\Quillon\Mervo\Shared Components\Framework' /v ZeltServerList /f \
  /d 'management.lab.test|10.77.0.3|443' >/dev/null
show location add Headquarters --https-host ok.lab.test --management-server

title "9. The machine is on a network where another web host has the name, with a certificate of its own"
start_web_servers stranger
start_watch "$here/wine.sh" "$bin/qela.exe" watch --json
expect_at_start

# Windows tells of new addresses, not of servers that come and go: one more address makes the library look again.
addresses=0
look_again() { ip address add "10.77.1.$((++addresses))/24" dev lan0; }

title "10. It comes to headquarters, where web host and name server are the right ones"
start_web_servers
look_again
told Headquarters

title "11. The name server no longer knows the management server"
start_name_server
look_again
told

title "12. It does again, but the web host is gone"
start_name_server --host-record=management.lab.test,10.77.0.3
look_again
told Headquarters
stop_server web ':443'
look_again
told
end_watch

title "13. Support asks why it is not at headquarters any more"
why=$(qela explain Headquarters) || [ $? -eq 5 ] || { note "FAILED: $why"; exit 1; }
printf '  $ qela explain Headquarters\n'
printf '%s\n' "$why" | sed 's/^/    /'
[[ $why = *"Headquarters is not current: adapter "*" fails at the web host: ok.lab.test: error 12029 "* ]] ||
  { note "FAILED: this is not the reason"; exit 1; }

title "All as it should be."
