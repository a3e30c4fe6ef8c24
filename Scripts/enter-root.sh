#!/bin/bash
# Runs inside fresh namespaces, before the change of root: mounts what the root needs, then enters it.
# The mounts vanish with the namespace.
set -euo pipefail
. "$(dirname "$0")/common.sh"
mount_system "$LAB_ROOT"
mount --bind "$kSource" "$LAB_ROOT/src"
mkdir -p "$kCache/ccache"
mount --bind "$kCache/ccache" "$LAB_ROOT/ccache"
mkdir -p "$LAB_ROOT/run/user" "$LAB_ROOT/run/netns"

# Names and trust of the private network: the computer has a DNS domain (the search list is every adapter's
# suffix), and the only name server is one that a test starts itself.
printf 'nameserver 127.0.0.1\nsearch lab.test\n' >"$LAB_ROOT/run/resolv.conf"
printf '127.0.0.1 localhost\n127.0.1.1 labhost.lab.test labhost\n' >"$LAB_ROOT/run/hosts"
mount --bind "$LAB_ROOT/run/resolv.conf" "$LAB_ROOT/etc/resolv.conf"
mount --bind "$LAB_ROOT/run/hosts" "$LAB_ROOT/etc/hosts"
hostname labhost
# Wine's server holds descriptors for every program and keeps the limit that it is started with, which for a Debian
# login is too low for a test that starts discovery hundreds of times.
ulimit -Sn "$(ulimit -Hn)"
ip link set lo up

exec chroot "$LAB_ROOT" /usr/bin/env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 TERM="${TERM:-dumb}" \
  CCACHE_DIR=/ccache CCACHE_MAXSIZE=2G WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml=' XDG_RUNTIME_DIR=/run/user \
  LAB_SHIM=/opt/lab/shim.so LAB_TEMPLATE=/opt/lab/prefix "$@"
