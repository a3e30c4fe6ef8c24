#!/bin/bash
# ./dev package --verify, inside the toolchain's root: makes the zip once more, from a copy of the sources in another folder and
# without what the compiler remembers, and compares the two.
# The linker writes whole names of objects into PDBs. So the copy is seen where ./dev shows every checkout.
# usage: verify-package.sh ZIP
set -euo pipefail
. "$(dirname "$0")/common.sh"
zip=$1
copy=$(mktemp -d)
trap 'rm -rf "$copy"' EXIT
say "building once more, from a copy in $copy"
(cd "$kSource" && find . -path ./build -prune -o -path ./.git -prune -o ! -type d -print0 | tar cf - --null -T -) | tar xf - -C "$copy"
mkdir "$copy/build"
# shellcheck disable=SC2016 # the inner shell's
unshare --mount /bin/bash -c 'mount --bind "$0" "$1" && CCACHE_DISABLE=1 exec "$1/Scripts/inside.sh" package' "$copy" "$kSource" >&2
again=$(echo "$copy"/build/*/package/*.zip)
if cmp "$zip" "$again" >&2; then
  say "both builds gave the same bytes"
else
  say "these files differ:"
  (cd "${again%.zip}" && sha256sum --quiet -c "${zip%.zip}/SHA256SUMS") >&2 2>/dev/null || true
  exit 1
fi
