# What goes into the toolchain's root, layer by layer. Sourced by toolchain.sh; any change of this file makes a new root.
#
# A layer is added when a command first asks for it, so that a tool costs nothing before it is used. demo is the first
# and holds what every other stands on; the versions of all of them stand in toolchain.lock.

readonly kSuite=trixie
readonly kLayers=(demo test check package debug browser fuzz coverage mutate)

# Installed.
readonly -A kPackages=(
  # The shipping compiler and the build; what runs the result, and the network that it runs in.
  [demo]="g++-mingw-w64-ucrt64 cmake ninja-build ccache
    wine wine64 mount iproute2 nginx-light dnsmasq-base tinyproxy-bin openssl jq tcc"
  # googletest is sources, which are built for Windows along with our own.
  [test]="googletest"
  # Format, second compiler, tidy; scripts.
  [check]="clang-19 clang-tidy-19 clang-format-19 lld-19 shellcheck"
  # What makes and reads a PDB and a .lib; the compilers of the samples in other languages and for the other ABI.
  [package]="llvm-19 clang-19 lld-19 golang-go"
  # The debugger, and its other half in Wine; what one misses in a shell.
  [debug]="gdb-mingw-w64 gdb-mingw-w64-target git less nano"
  # What opens the pages that qela writes: the smallest that has a shell for scripts and needs no display.
  [browser]="chromium-headless-shell"
  # Clang's checks of addresses and of undefined behaviour, and its fuzzer, for what is built for this machine instead of
  # Windows.
  [fuzz]="clang-19 lld-19 libclang-rt-19-dev libstdc++-14-dev libc6-dev"
  # What sums up what the compiler's counters say.
  [coverage]="gcovr"
  # What reads the sources that faults are put into.
  [mutate]="python3-clang-19"
)
# Unpacked in /opt/deps, not installed: only their headers are wanted, and their dependencies (Boost, the native
# libraries) would add hundreds of megabytes.
readonly -A kHeaderPackages=(
  [demo]="libmsgpack-cxx-dev libspdlog-dev libfmt-dev libcli11-dev nlohmann-json3-dev"
)
# Built for Windows along with our own, so only their sources are wanted. Each lies unpacked in /usr/src/NAME, as
# googletest's does.
readonly -A kSourcePackages=(
  [test]="benchmark"
)

# fill_root ROOT: what is neither a package nor Wine's prefix. The empty files and folders are what enter-root.sh mounts
# over.
fill_root() {
  mkdir -p "$1"/{src,ccache,opt/lab/runs,etc/ssl/certs}
  touch "$1"/etc/{hosts,resolv.conf,ssl/certs/ca-certificates.crt}
  cp "$kSource/Scripts/ipv6-route-shim.c" "$kSource/Scripts/wine-prefix.sh" "$1/opt/lab/"
  chroot "$1" tcc -shared -nostdlib -o /opt/lab/shim.so /opt/lab/ipv6-route-shim.c
}
