# ./dev package --fresh: the zip on a plain Debian, as a host's developer has it. Sourced by ./dev, after toolchain.sh.
#
# The root holds the packages that Docs/hosting.md names, in the newest versions and without what they recommend. It is kept
# in the cache; what is built in it is not.

readonly -A kDebianSuites=([12]=bookworm [13]=trixie)
# Plays the compiler of the other ABI, which hosts have on Windows.
readonly kOtherAbiPackages="clang lld llvm"

# fresh_packages RELEASE: what the page has a host's developer install. A comment that names a release is about that one only.
fresh_packages() {
  awk -v release="Debian $1" '/^    apt-get install / {
    split($0, part, / +# */)
    if (part[2] !~ /^Debian/ || part[2] ~ "^" release "($|[^0-9])") print substr(part[1], 21)
  }' "$kSource/Docs/hosting.md"
  printf '%s\n' "$kOtherAbiPackages"
}

# fresh_root RELEASE: the folder of its root.
fresh_root() { printf '%s/fresh-%s-%s' "$kCache" "$1" "$(fresh_packages "$1" | sha256sum | cut -c1-8)"; }

# try_fresh_debian ZIP RELEASE...: answers whether all went well; what did stands on standard output, a line for each try.
try_fresh_debian() {
  local zip=$1 failed=0 kLog=$kCache/last-fresh-setup.log release
  shift
  exec 7>"$kCache/.lock-fresh"
  flock -n 7 || { say "waiting for another ./dev that is making a plain Debian"; flock 7; }
  for release; do make_fresh_root "$release"; done
  exec 7>&-
  for release; do
    say "trying the zip on Debian $release"
    try_release "$zip" "$release" || failed=1
  done
  return "$failed"
}

# try_release ZIP RELEASE: in a shell of its own, so that its folder goes whatever happens.
try_release() (
  work=$(mktemp -d "$kCache/fresh-run.XXXXXX") || exit
  trap 'rm -rf "$work"' EXIT
  mkdir "$work/tools" && cp "$1" "$work/" &&
    cp "$kSource"/Scripts/{fresh-host.sh,wine-machine.sh,wine.sh} "$kSource"/Tests/vocabulary.sh \
      "$kSource"/Tests/Package/{hosts.sh,code-blocks.sh,other-abi.sh,other_abi_start.c,control_service.c} "$kRoot/opt/lab/shim.so" "$work/tools/" &&
    unshare --net --mount --pid --fork --uts --ipc --kill-child /bin/bash "$kSource/Scripts/enter-fresh.sh" "$(fresh_root "$2")" "$work" \
      /bin/bash /root/tools/fresh-host.sh "$2"
)

# make_fresh_root RELEASE: where there is none yet.
make_fresh_root() {
  local root
  root=$(fresh_root "$1")
  [ ! -e "$root/.ready" ] || return 0
  need_room 5000
  say "making a plain Debian $1 in $root (once; about 2.5 GiB)"
  rm -rf --one-file-system "$root.making"
  bootstrap "the plain Debian $1" "${kDebianSuites[$1]}" "$root.making" "$(fresh_packages "$1")"
  { touch "$root.making/.ready" && mv "$root.making" "$root"; } || fail "cannot write to $kCache. Set QELA_CACHE to a folder that can be written."
}
