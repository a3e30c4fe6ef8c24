# Makes the toolchain: a Debian 13 root with the compilers, Wine, the test servers and the header-only
# libraries, cached outside the checkout. Sourced by ./dev; needs root.
#
# The cache's name holds a hash of this file and of what it installs, so that a change of the list makes a
# new root and an old checkout keeps finding its own.

readonly kSuite=trixie
readonly kPackages=(
  # Shipping compiler and build
  g++-mingw-w64-ucrt64 cmake ninja-build ccache googletest
  # Second compiler, format and tidy (./dev check)
  clang-19 clang-tidy-19 clang-format-19 lld-19
  # What runs the result, and the network it runs in
  wine wine64 iproute2 nginx-light dnsmasq-base tinyproxy-bin openssl jq tcc
)
# Unpacked, not installed: only their headers are wanted, and their dependencies (Boost, the native
# libraries) would add hundreds of megabytes.
readonly kHeaderPackages=(libmsgpack-cxx-dev libspdlog-dev libfmt-dev libcli11-dev nlohmann-json3-dev)

toolchain_key() {
  cat "$kSource/Scripts/toolchain.sh" "$kSource/Scripts/wine-prefix.sh" "$kSource/Scripts/ipv6-route-shim.c" | sha256sum | cut -c1-16
}

# Installs the two host packages that the toolchain needs where they are missing.
install_host_tools() {
  local missing=()
  command -v mmdebstrap >/dev/null || missing+=(mmdebstrap)
  command -v ip >/dev/null || missing+=(iproute2)
  command -v unshare >/dev/null || missing+=(util-linux)
  [ ${#missing[@]} -eq 0 ] && return
  command -v apt-get >/dev/null || fail "this needs ${missing[*]}, and there is no apt-get to install them with. Use Debian 12 or 13."
  say "installing ${missing[*]} on this machine"
  { apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"; } >"$kLog" 2>&1 ||
    { tail -n 20 "$kLog" >&2; fail "apt-get could not install ${missing[*]}. Check the network and the package sources, then run the command again."; }
}

# Makes $kRoot unless it is there. A root becomes visible under its name only when it is whole.
make_toolchain() {
  [ -e "$kRoot/.ready" ] && return
  install_host_tools
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
    --customize-hook='chroot "$1" apt-get clean' \
    "$kSuite" "$making" 2>&1 | tee "$kLog" | sed -u -n 's/^I: /dev:   /p' ||
    { tail -n 20 "$kLog" >&2; fail "the toolchain could not be made (whole log: $kLog). Check the network, then run the command again."; }

  # One include folder a library: the packages' /usr/include as a whole would be the same folder for all.
  mkdir -p "$making"/{src,ccache,opt/lab/runs,etc/ssl/certs}
  touch "$making"/etc/{hosts,resolv.conf,ssl/certs/ca-certificates.crt}
  cp "$kSource/Scripts/ipv6-route-shim.c" "$making/opt/lab/"
  chroot "$making" tcc -shared -nostdlib -o /opt/lab/shim.so /opt/lab/ipv6-route-shim.c || fail "the route shim did not compile."
  cp "$kSource/Scripts/wine-prefix.sh" "$making/opt/lab/"
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
