# How ./dev gets root's rights when an ordinary user calls it: in a user namespace, where the user is root and what is
# made is the user's; where the machine does not allow that, with sudo. Sourced by ./dev, after toolchain.sh.

# without_root COMMAND [ARGUMENT...]: runs ./dev again with root's rights.
without_root() {
  local as_root=(unshare --user --map-root-user)
  export PATH=$PATH:/usr/sbin:/sbin # chroot is there, and users do not look there
  # What enter-root.sh mounts is what a machine may refuse.
  "${as_root[@]}" --net --mount --pid --fork /bin/sh -c 'mount -t proc proc /proc && mount -t sysfs sys /sys' >/dev/null 2>&1 ||
    use_sudo "this machine keeps user namespaces from ordinary users" \
      "allow them: sysctl kernel.unprivileged_userns_clone=1, or a container's options" "$@"

  # Not root's cache, where an ordinary user can neither write nor remove anything.
  kCache=${QELA_CACHE:-${XDG_CACHE_HOME:-~/.cache}/qela}
  [ "$1" = clean ] || { prepare_cache && install_host_tools; }
  # Packages hold files of many owners; the last one is nobody.
  "${as_root[@]}" --map-auto setpriv --reuid 65534 --regid 65534 --clear-groups true >/dev/null 2>&1 ||
    use_sudo "$(id -un) may use no user IDs in a namespace" \
      "allow some: apt-get install uidmap; usermod --add-subuids 100000-165535 --add-subgids 100000-165535 $(id -un)" "$@"
  # Whoever called sudo to become this user is unknown there.
  QELA_CACHE=$kCache exec env -u SUDO_UID "${as_root[@]}" --map-auto "$kSource/dev" "$@"
}

# use_sudo WHY REMEDY COMMAND [ARGUMENT...]
use_sudo() {
  local why=$1 remedy=$2
  shift 2
  command -v sudo >/dev/null || fail "root is needed, because $why, and there is no sudo. Run this as root, or $remedy"
  say "using sudo, because $why"
  exec sudo ${QELA_CACHE:+QELA_CACHE="$QELA_CACHE"} "$kSource/dev" "$@"
}
