# Makes the toolchain: a Debian 13 root with the compilers, Wine, the test servers and the header-only
# libraries, cached outside the checkout. Sourced by ./dev; needs root.
#
# The cache's name holds a hash of what goes into the root, so that a change of the recipe makes a new root and an old
# checkout keeps finding its own.

. "$kSource/Scripts/toolchain-recipe.sh"

toolchain_key() {
  cat "$kSource/Scripts/toolchain-recipe.sh" "$kSource/Scripts/wine-prefix.sh" "$kSource/Scripts/ipv6-route-shim.c" | sha256sum | cut -c1-16
}

# Installs the few host packages that making and entering the toolchain need, where they are missing.
install_host_tools() {
  local missing=()
  [ -e "$kRoot/.ready" ] || command -v mmdebstrap >/dev/null || missing+=(mmdebstrap)
  command -v ip >/dev/null || missing+=(iproute2)
  command -v mount >/dev/null || missing+=(mount)
  command -v unshare >/dev/null || missing+=(util-linux)
  [ ${#missing[@]} -gt 0 ] || return 0
  command -v apt-get >/dev/null || fail "this needs ${missing[*]}, and there is no apt-get to install them with. Use Debian 12 or 13."
  say "installing ${missing[*]} on this machine"
  { apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"; } >"$kLog" 2>&1 ||
    { tail -n 20 "$kLog" >&2; fail "apt-get could not install ${missing[*]}. Check the network and the package sources, then run the command again."; }
}

# Makes $kRoot unless it is there. A root becomes visible under its name only when it is whole.
make_toolchain() {
  install_host_tools
  [ ! -e "$kRoot/.ready" ] || return 0
  local free_kib
  free_kib=$(df -Pk "$kCache" | awk 'NR==2 {print $4}')
  [ "$free_kib" -gt 6000000 ] || fail "$kCache has $((free_kib / 1024)) MiB free; the toolchain needs about 4 GiB. Set QELA_CACHE to a folder with more room."
  say "making the toolchain in $kRoot (once; a few minutes, about 3 GiB)"
  local making="$kRoot.making"
  rm -rf --one-file-system "$making"
  local include
  include=$(IFS=,; echo "${kPackages[*]}")
  mmdebstrap --variant=apt --aptopt='APT::Install-Recommends "false"' \
    --dpkgopt='path-exclude=/usr/share/doc/*' --dpkgopt='path-exclude=/usr/share/man/*' --dpkgopt='path-exclude=/usr/share/locale/*' \
    --include="$include" \
    --customize-hook="chroot \"\$1\" sh -ec 'mkdir -p /opt/deps && cd /opt/deps && apt-get download -qq ${kHeaderPackages[*]} && for p in *.deb; do dpkg-deb -x \$p .; done && rm *.deb'" \
    --customize-hook="chroot \"\$1\" sh -ec 'sed -i s/^deb/deb-src/ /etc/apt/sources.list && apt-get update -qq && for p in ${kSourcePackages[*]}; do mkdir /tmp/\$p /usr/src/\$p && cd /tmp/\$p && apt-get source -qq --download-only \$p && tar -xf *.orig.tar.* -C /usr/src/\$p --strip-components=1 && cd / && rm -r /tmp/\$p || exit 1; done; sed -i s/^deb-src/deb/ /etc/apt/sources.list'" \
    --customize-hook='chroot "$1" apt-get clean' \
    "$kSuite" "$making" 2>&1 | tee "$kLog" | sed -u -n '/customize-hook/d; s/^I: /dev:   /p' ||
    { tail -n 20 "$kLog" >&2; fail "the toolchain could not be made (whole log: $kLog). Check the network, then run the command again."; }

  fill_root "$making" || fail "the root could not be completed."
  say "making the Wine prefix that every run starts from"
  in_root "$making" /bin/bash /opt/lab/wine-prefix.sh >"$kLog" 2>&1 || { tail -n 20 "$kLog" >&2; fail "Wine could not make its prefix (log: $kLog)."; }
  touch "$making/.ready"
  mv "$making" "$kRoot"
}

# Runs a command inside a root with its own network, mounts, processes, host name and IPC; everything that
# it starts ends with it.   in_root ROOT COMMAND...
in_root() {
  local root=$1
  shift
  kSource="$kSource" kCache="$kCache" LAB_ROOT="$root" unshare --net --mount --pid --fork --uts --ipc --kill-child \
    /bin/bash "$kSource/Scripts/enter-root.sh" "$@"
}
