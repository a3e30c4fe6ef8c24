# Makes the toolchain: a Debian 13 root with the compilers, Wine, the test servers and the libraries that are built in,
# cached outside the checkout. Sourced by ./dev, after common.sh. prepare_cache comes first; what makes and enters roots
# needs root's rights.
#
# The root's name holds a hash of the versions in toolchain.lock and of what else goes into it, so that an upgrade is a
# commit that makes a new root, while an old checkout keeps finding its own.

. "$kSource/Scripts/toolchain-recipe.sh"

kLock=$kSource/Scripts/toolchain.lock

toolchain_key() {
  cat "$kLock" "$kSource"/Scripts/{toolchain-recipe.sh,wine-prefix.sh,ipv6-route-shim.c} | sha256sum | cut -c1-16
}

# Whether the folder can be made and its lock written. Says nothing, so that the message is one that helps.
writable() { { mkdir -p "$1" && : >>"$1/.lock"; } 2>/dev/null; }

# prepare_cache: makes $kCache, and names what lies in it.
prepare_cache() {
  writable "$kCache" || fail "cannot write to $kCache. Set QELA_CACHE to a folder that can be written."
  kLog=$kCache/last-setup.log
  kRoot=$kCache/root-$(toolchain_key)
}

# Whether no root is to be made by this run. $fresh are the releases that ./dev package --fresh tries.
roots_are_made() {
  local release
  [ "$command" != lock ] && [ -e "$kRoot/.ready" ] || return 1
  for release in "${fresh[@]}"; do [ -e "$(fresh_root "$release")/.ready" ] || return 1; done
}

# Installs the few host packages that making and entering the toolchain need, where they are missing. This is what root
# is needed for even where all the rest goes without.
install_host_tools() {
  local missing=() sudo=()
  roots_are_made || command -v mmdebstrap >/dev/null || missing+=(mmdebstrap)
  command -v ip >/dev/null || missing+=(iproute2)
  command -v mount >/dev/null || missing+=(mount)
  command -v unshare >/dev/null || missing+=(util-linux)
  [ "$(id -u)" -eq 0 ] || command -v newuidmap >/dev/null || missing+=(uidmap)
  [ ${#missing[@]} -gt 0 ] || return 0
  command -v apt-get >/dev/null || fail "this needs ${missing[*]}, and there is no apt-get to install them with. Use Debian 12 or 13."
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || fail "this needs ${missing[*]}, and there is no sudo. Run as root: apt-get install ${missing[*]}"
    sudo=(sudo)
  fi
  say "installing ${missing[*]} on this machine"
  { "${sudo[@]}" apt-get update -qq && "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"; } >"$kLog" 2>&1 ||
    { tail -n 20 "$kLog" >&2; fail "apt-get could not install ${missing[*]}. Check the network and the package sources, then run the command again."; }
}

# need_room MIB
need_room() {
  local free_mib
  free_mib=$(df -Pm "$kCache" | awk 'NR==2 {print $4}')
  [ "$free_mib" -gt "$1" ] || fail "$kCache has $free_mib MiB free; the toolchain needs $1 more. Set QELA_CACHE to a folder with more room."
}

# make_toolchain LAYER...: $kRoot with these layers, made as far as they are missing. A root becomes visible under its
# name only when its first layer is whole.
make_toolchain() {
  local layer
  if [ ! -e "$kRoot/.ready" ]; then
    say "making the toolchain in $kRoot (once; about 2 GiB)"
    rm -rf --one-file-system "$kRoot.making"
    make_root "$kRoot.making"
    tell_drift "$kRoot.making"
    mv "$kRoot.making" "$kRoot"
  fi
  for layer; do
    [ ! -e "$kRoot/.layer-$layer" ] || continue
    say "adding to the toolchain what ./dev $command needs"
    add_layer "$kRoot" "$layer"
    tell_drift "$kRoot"
  done
}

# pins LOCK: what makes apt choose the lock's version wherever there is one, and the newest where it is gone.
pins() { awk '!/^(#|src:)/ {printf "Package: %s\nPin: version %s\nPin-Priority: 1001\n\n", $1, $2}' "$1"; }

# bootstrap WHAT SUITE ROOT PACKAGES [OPTION...]: a root with these packages and what they need; the options are mmdebstrap's.
bootstrap() {
  local what=$1 suite=$2 root=$3 packages=${4//[[:space:]]/ }
  shift 4
  # In a mount namespace, so that no mount stays when this is ended.
  unshare --mount mmdebstrap --variant=apt --aptopt='APT::Install-Recommends "false"' --aptopt='Acquire::Languages "none"' \
    --dpkgopt='path-exclude=/usr/share/doc/*' --dpkgopt='path-exclude=/usr/share/man/*' --dpkgopt='path-exclude=/usr/share/locale/*' \
    "$@" --include="$packages" "$suite" "$root" 2>&1 | tee "$kLog" | sed -u -n '/-hook/d; s/^I: /dev:   /p' ||
    { tail -n 20 "$kLog" >&2; fail "$what could not be made (whole log: $kLog). Check the network, then run the command again."; }
}

# make_root ROOT: the first layer, with the lock's versions where the mirror has them and the newest where it has not.
make_root() {
  need_room 4000
  pins "$kLock" >"$kCache/pins"
  bootstrap "the toolchain" "$kSuite" "$1" "${kPackages[demo]}" \
    --setup-hook="mkdir -p \"\$1/etc/apt/preferences.d\" && cp '$kCache/pins' \"\$1/etc/apt/preferences.d/lock\""
  add_layer "$1" demo
  fill_root "$1" || fail "the root could not be completed."
  say "making the Wine prefix that every run starts from"
  in_root "$1" /bin/bash /opt/lab/wine-prefix.sh >"$kLog" 2>&1 || { tail -n 20 "$kLog" >&2; fail "Wine could not make its prefix (log: $kLog)."; }
  touch "$1/.ready"
}

# add_layer ROOT LAYER. One that was cut off is taken up where it ended.
add_layer() {
  cat /etc/resolv.conf >"$1/etc/resolv.conf"
  # With the machine's devices, because in a user namespace the root has none of its own.
  # shellcheck disable=SC2016 # the inner shell's
  unshare --mount /bin/bash -c 'mount --rbind /dev "$0/dev" && exec chroot "$0" "$@"' "$1" \
    /usr/bin/env DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 /bin/bash -s -- "${kPackages[$2]}" \
    "${kHeaderPackages[$2]:-}" "${kSourcePackages[$2]:-}" "$(grep '^src:' "$kLock")" <"$kSource/Scripts/toolchain-layer.sh" \
    >"$kLog" 2>&1 ||
    { tail -n 20 "$kLog" >&2; fail "the toolchain could not be completed (whole log: $kLog). Check the network, then run the command again."; }
  touch "$1/.layer-$2"
}

# root_versions ROOT: "PACKAGE VERSION", one a line, of all that lies in the root.
root_versions() {
  { dpkg-query --admindir="$1/var/lib/dpkg" -W -f '${Package} ${Version}\n'; cat "$1"/opt/lab/unpacked/*; } | LC_ALL=C sort -u
}

# drift ROOT: what the root has in other versions than the lock names, or without being named there.
drift() { LC_ALL=C comm -23 <(root_versions "$1") <(grep -v '^#' "$kLock"); }

tell_drift() {
  local differing
  differing=$(drift "$1")
  [ -z "$differing" ] || say "note: the mirror no longer has every version of toolchain.lock; taken instead: ${differing//$'\n'/, }"
}

# write_lock: the newest version of everything, in a root of its own, which becomes the root of the lock that is written.
write_lock() {
  local layer making=$kCache/root-newest.making lock=$kLock kLock=/dev/null
  rm -rf --one-file-system "$making"
  say "making a root of the newest versions"
  make_root "$making"
  for layer in "${kLayers[@]}"; do add_layer "$making" "$layer"; done
  {
    printf '%s\n' "# The versions of all that the toolchain's root holds. Written by ./dev lock."
    root_versions "$making"
  } >"$lock"
  kLock=$lock
  kRoot=$kCache/root-$(toolchain_key)
  if [ -e "$kRoot" ]; then
    rm -rf --one-file-system "$making"
  else
    pins "$kLock" >"$making/etc/apt/preferences.d/lock"
    mv "$making" "$kRoot"
  fi
}

# Runs a command inside a root with its own network, mounts, processes, host name and IPC; everything that
# it starts ends with it.   in_root ROOT COMMAND...
in_root() {
  local root=$1
  shift
  kCache="$kCache" LAB_ROOT="$root" unshare --net --mount --pid --fork --uts --ipc --kill-child \
    /bin/bash "$kSource/Scripts/enter-root.sh" "$@"
}
