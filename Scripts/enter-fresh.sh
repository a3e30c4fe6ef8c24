#!/bin/bash
# Runs inside fresh namespaces: enters a plain Debian that has an adapter in a network (10.20.0.15, gateway 10.20.0.1), and of this
# machine nothing but the folder that becomes root's home.
# usage: enter-fresh.sh ROOT HOME COMMAND [ARGUMENT...]
set -euo pipefail
. "$(dirname "$0")/common.sh"
. "$(dirname "$0")/lab-network.sh"
root=$1 home=$2
shift 2
mount_system "$root"
mount --bind "$home" "$root/root"
mount -t tmpfs tmpfs /run
mkdir /run/netns
ip link set lo up
add_adapter lan0
join_network lan0 10.20.0.15/24 10.20.0.1
exec chroot "$root" /usr/bin/env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml=' \
  LAB_SHIM=/root/tools/shim.so "$@"
