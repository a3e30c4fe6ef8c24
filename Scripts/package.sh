#!/bin/bash
# Installs what was built into a folder and makes the zip of it there, of which the same sources give the same bytes.
# usage: package.sh BUILD_FOLDER FOLDER
set -euo pipefail
. "$(dirname "$0")/common.sh"
. "$(dirname "$0")/zip.sh"
build=$1 work=$2
package=$work/QeLaLib-$kVersion-win64
rm -rf "$work"
mkdir -p "$work"
DESTDIR='' cmake --install "$build" --prefix "$package" >"$work/install.log" || { cat "$work/install.log" >&2; exit 1; }
"$kSource/Scripts/sbom.sh" "$build" "$package" "$kVersion" "${kDay}T00:00:00Z" >"$work/sbom"
mv "$work/sbom" "$package/sbom.spdx.json"
make_zip "$package"
