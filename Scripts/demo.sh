#!/bin/bash
# ./dev demo: the library on a private network, with real adapters, addresses and registry under Wine. Exits 0 only
# when the host was told the right list at every step.
#
# usage (inside the toolchain's root): lab.sh --own-network demo.sh BUILD_FOLDER
set -euo pipefail
here=$(dirname "$0")
bin=$1/bin
. "$here/lab-network.sh"
. "$here/watch-events.sh"

title() { printf '\n\033[1m%s\033[0m\n' "$*"; }
note() { printf '  %s\n' "$*"; }
# qela ARGUMENT...; what it prints is indented under the step that runs it.
qela() { "$here/wine.sh" "$bin/qela.exe" "$@"; }
show() {
  printf '  $ qela'
  printf ' %q' "$@"
  printf '\n'
  qela "$@" | sed 's/^/    /'
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

set_dns_suffix eu-office.corp.example
add_adapter wifi0

title "1. An administrator defines two locations"
show location add Office --dns-suffix '*-office.corp.example' --gateway 10.20.0.1
show location add Home --gateway 192.168.77.1

title "2. The firewall starts watching; the machine is nowhere"
start_watch "$here/wine.sh" "$bin/qela.exe" watch --json
note "current: $(jq -r '[.current[].name] | if . == [] then "no location" else join(", ") end' <<<"$event")"

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

title "All as it should be."
