# What the integration tests share. Sourced with the folder of the built programs as first argument.
set -euo pipefail
bin=$1
tests=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
. "$tests/../vocabulary.sh"
. "$tests/../../Scripts/lab-network.sh"
. "$tests/../../Scripts/watch-events.sh"
. "$tests/../../Scripts/wine-machine.sh"

qela() { "$tests/../../Scripts/wine.sh" "$bin/qela.exe" "$@"; }

# start_qela_watch [OPTION...]
start_qela_watch() { start_watch "$tests/../../Scripts/wine.sh" "$bin/qela.exe" watch --json "$@"; }

# three_adapters: wifi0 is joined to a network and virtual0 is up with an address, while unplugged0 is down with one.
three_adapters() {
  add_adapter wifi0
  add_adapter virtual0
  add_adapter unplugged0
  ip link set wifi0 address 0a:1b:2c:3d:4e:5f
  ip link set virtual0 address 02:00:00:00:00:07
  ip address add 10.77.0.1/24 dev unplugged0
  ip link set virtual0 up
  ip address add 172.16.5.4/16 dev virtual0
  ip address add fd00:77::4/64 dev wifi0 nodad
  join_network wifi0 10.20.0.15/24 10.20.0.1
}

# reg ARGUMENT...: Windows' program of that name.
reg() { "$tests/../../Scripts/wine.sh" reg "$@" </dev/null; }

# names_of_current: the names of the current locations.
names_of_current() { qela current --json | jq -r '[.current[].name] | join(" ")'; }
