# What the scripts of ./dev share. Sourced.

# The checkout's folder.
kSource=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

say() { printf 'dev: %s\n' "$*" >&2; }
# fail MESSAGE: something that is needed is missing.
fail() { printf 'dev: error: %s\n' "$*" >&2; exit 3; }
# misuse MESSAGE: the command line is wrong.
misuse() { printf 'dev: error: %s\n' "$*" >&2; exit 2; }

# read_time COMMAND TEXT: sets $seconds to what the value of the command's --for is.
read_time() {
  [[ $2 =~ ^([1-9][0-9]{0,4})([smh])$ ]] ||
    misuse "./dev $1 --for takes a time such as 90s, 10m or 2h; here is: ${2:-nothing}"
  case ${BASH_REMATCH[2]} in s) seconds=1 ;; m) seconds=60 ;; *) seconds=3600 ;; esac
  seconds=$((BASH_REMATCH[1] * seconds))
}

# mount_system ROOT: in a mount namespace of its own, what every root needs of the machine.
mount_system() {
  mount --make-rprivate /
  mount --bind "$1" "$1" # the new root must be a mount point for ip netns
  mount -t proc proc "$1/proc"
  mount -t sysfs sys "$1/sys"
  mount --rbind /dev "$1/dev"
  mount -t tmpfs tmpfs "$1/run"
  mount -t tmpfs tmpfs "$1/tmp"
}

# cpp_sources, shell_sources: the files of ours, each ended by a NUL, under names that start at the checkout. The source in C
# in Scripts is left out: the toolchain is named after its bytes.
cpp_sources() {
  (cd "$kSource" && find . -path ./build -prune -o \( -name '*.h' -o -name '*.cpp' -o -name '*.c' ! -path './Scripts/*' \) -printf '%P\0' | sort -z)
}
shell_sources() { (cd "$kSource" && find dev .ci/run Scripts Tests Bench -path Tests/Fuzz/Corpus -prune -o -type f \( -name '*.sh' -o ! -name '*.*' \) -print0 | sort -z); }
