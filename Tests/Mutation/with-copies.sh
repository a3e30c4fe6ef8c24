#!/bin/bash
# Runs a command where the copies with the faults' switches lie in the sources' places, and the build of them in that of
# mingw-release: paths in log lines and in the compiler's cache stay as they are. Nobody else sees it.
# usage: with-copies.sh COMMAND [ARGUMENT...]
set -euo pipefail
[ $# -gt 0 ] || { echo "with-copies.sh: error: name a command" >&2; exit 2; }
root=$(cd "$(dirname "$0")/../.." && pwd)
if [ "${QELA_MUTATION_MOUNTED:-}" != "$$" ]; then
  QELA_MUTATION_MOUNTED=$$ exec unshare --mount /bin/bash "$0" "$@"
fi
unset QELA_MUTATION_MOUNTED
for folder in FwClient QeLaC HostLibraries; do
  mount --bind "$root/build/mutation/src/$folder" "$root/$folder"
done
mkdir -p "$root"/build/{mutation/mingw-release,mingw-release}
mount --bind "$root/build/mutation/mingw-release" "$root/build/mingw-release"
exec "$@"
