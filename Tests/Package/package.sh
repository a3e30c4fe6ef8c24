# What the tests of the package share. Sourced with the build folder as first argument.
set -euo pipefail
build=$1
tests=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
scripts=$(cd "$tests/../../Scripts" && pwd)
unpacked=$build/unpacked
package=$unpacked/package
. "$tests/../vocabulary.sh"
# shellcheck source=../../Scripts/lab-network.sh
. "$scripts/lab-network.sh"

# elsewhere COMMAND...: on a machine that has what was unpacked, in the folder /mnt, and neither the checkout nor what the
# library is built with.
elsewhere() {
  # shellcheck disable=SC2016 # the inner shell's
  unshare --mount /bin/bash -c 'mount --bind "$0" /mnt && mount -t tmpfs tmpfs /src && mount -t tmpfs tmpfs /opt/deps && cd /mnt && exec "$@"' \
    "$unpacked" "$@"
}

gnu=(-DCMAKE_SYSTEM_NAME=Windows -DCMAKE_C_COMPILER=x86_64-w64-mingw32ucrt-gcc -DCMAKE_CXX_COMPILER=x86_64-w64-mingw32ucrt-g++)
configure_with_cmake() { elsewhere cmake -G Ninja -S "/mnt/$1" -B "/mnt/$2" -DCMAKE_PREFIX_PATH=/mnt/package "${gnu[@]}" "${@:3}"; }

# build_with_cmake SOURCES BUILD: folders of what was unpacked.
build_with_cmake() {
  { configure_with_cmake "$@" && elsewhere cmake --build "/mnt/$2"; } >"$unpacked/$2.log" 2>&1 ||
    failed "cannot be built:" "$(cat "$unpacked/$2.log")"
}

wine() { "$scripts/wine.sh" "$@"; }
qela() { wine "$package/bin/qela.exe" "$@"; }
