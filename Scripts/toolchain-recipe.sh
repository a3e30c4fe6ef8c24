# What goes into the toolchain's root. Sourced by toolchain.sh; any change of this file makes a new root.

readonly kSuite=trixie
readonly kPackages=(
  # Shipping compiler and build
  g++-mingw-w64-ucrt64 cmake ninja-build ccache googletest
  # Second compiler, format and tidy (./dev check)
  clang-19 clang-tidy-19 clang-format-19 lld-19
  # What runs the result, and the network it runs in
  wine wine64 mount iproute2 nginx-light dnsmasq-base tinyproxy-bin openssl jq tcc
)
# Unpacked, not installed: only their headers are wanted, and their dependencies (Boost, the native
# libraries) would add hundreds of megabytes.
readonly kHeaderPackages=(libmsgpack-cxx-dev libspdlog-dev libfmt-dev libcli11-dev nlohmann-json3-dev)
# Built for Windows along with our own, so only their sources are wanted. Each lies unpacked in /usr/src/NAME, as
# googletest's does.
readonly kSourcePackages=(benchmark)

# fill_root ROOT: what is neither a package nor Wine's prefix. The empty files and folders are what enter-root.sh mounts
# over.
fill_root() {
  mkdir -p "$1"/{src,ccache,opt/lab/runs,etc/ssl/certs}
  touch "$1"/etc/{hosts,resolv.conf,ssl/certs/ca-certificates.crt}
  cp "$kSource/Scripts/ipv6-route-shim.c" "$kSource/Scripts/wine-prefix.sh" "$1/opt/lab/"
  chroot "$1" tcc -shared -nostdlib -o /opt/lab/shim.so /opt/lab/ipv6-route-shim.c
}
