#!/bin/bash
# Runs a command under a Wine of its own: a fresh copy of the template prefix (made of links, so it takes
# milliseconds) and a server of its own, both gone when the command ends.
#
# usage: lab.sh [--own-network] COMMAND [ARGUMENT...]
#   --own-network   in a network of its own too: interfaces, addresses, and the files that name its servers, hosts and
#                   trusted authorities. Wine answers questions about adapters from the network in which its server was
#                   started, so a test that changes the network needs both.
set -euo pipefail
. "$(dirname "$0")/common.sh"
. "$(dirname "$0")/wine-machine.sh"
if [ "${1:-}" = --own-network ]; then
  shift
  exec unshare --net --mount /bin/bash "$0" --inside-own-network "$@"
fi
if [ "${1:-}" = --inside-own-network ]; then
  shift
  ip link set lo up
  own=$(mktemp -d)
  for file in /etc/resolv.conf /etc/hosts /etc/ssl/certs/ca-certificates.crt; do
    cp "$file" "$own/"
    mount --bind "$own/$(basename "$file")" "$file"
  done
  rm -r "$own" # what is mounted stays
  mount -t tmpfs tmpfs /run/netns
fi
[ $# -gt 0 ] || misuse "lab.sh needs a command: lab.sh [--own-network] COMMAND [ARGUMENT...]"

run=$(mktemp -d /opt/lab/runs/XXXXXX)
export WINEPREFIX=$run/prefix
cp -al "$LAB_TEMPLATE" "$WINEPREFIX"
# The registry is written in place: these must not be links to the template.
for hive in system.reg user.reg userdef.reg; do
  cp --remove-destination "$LAB_TEMPLATE/$hive" "$WINEPREFIX/$hive"
done

finish() {
  stop_machine
  rm -rf "$run"
}
trap finish EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

start_machine
"$@"
