#!/bin/bash
# Makes the package and unpacks it. Where it is unpacked already it stays, so that what was built from it need not be
# built again.   usage: unpack.sh BUILD_FOLDER
set -euo pipefail
build=$1
here=$(cd "$(dirname "$0")" && pwd)
"$here/../../Scripts/package.sh" "$build" "$build/package"
zip=$(echo "$build"/package/*.zip)
unpacked=$build/unpacked
sum=$(sha256sum <"$zip")
[ "$sum" != "$(cat "$unpacked/sum" 2>/dev/null)" ] || exit 0
mkdir -p "$unpacked"
# What a compiler remembers of its own library has nothing to do with the package.
find "$unpacked" -mindepth 1 -maxdepth 1 ! -name go-cache -exec rm -rf {} +
(cd "$unpacked" && cmake -E tar xf "$zip" && mv QeLaLib-*-win64 package)
echo "$sum" >"$unpacked/sum"
