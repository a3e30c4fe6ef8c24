#!/bin/bash
# ./dev package, inside the toolchain's root: installs what was built into a folder of its own and makes the zip of it,
# of which the same sources give the same bytes.
# usage: package.sh BUILD_FOLDER
set -euo pipefail
. "$(dirname "$0")/common.sh"
build=$1
version=$(sed -n 's/^project(QeLaLib VERSION \([0-9.]*\).*/\1/p' "$kSource/CMakeLists.txt")
# The day of the last release that the change log names.
day=$(sed -n 's/^## \[[0-9.]*\] - \([0-9-]*\)$/\1/p' "$kSource/CHANGELOG.md" | head -n 1)
name=QeLaLib-$version-win64
work=$build/package
rm -rf "$work"
mkdir -p "$work"
DESTDIR='' cmake --install "$build" --prefix "$work/$name" >"$work/install.log" || { cat "$work/install.log" >&2; exit 1; }
"$kSource/Scripts/sbom.sh" "$build" "$work/$name" "$version" "${day}T00:00:00Z" >"$work/sbom"
mv "$work/sbom" "$work/$name/sbom.spdx.json"
cd "$work/$name"
find . -type f ! -name SHA256SUMS -printf '%P\n' | LC_ALL=C sort | xargs -d '\n' sha256sum >SHA256SUMS
cd ..
find "$name" -type f | LC_ALL=C sort >files
TZ=UTC cmake -E tar cf "$name.zip" --format=zip --mtime="$day 00:00:00 UTC" --files-from=files
say "made $work/$name.zip ($(stat -c %s "$name.zip") bytes, SHA-256 $(sha256sum <"$name.zip" | cut -c1-64))"
