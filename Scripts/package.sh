#!/bin/bash
# Installs what was built into a folder and makes the zip of it there, of which the same sources give the same bytes.
# usage: package.sh BUILD_FOLDER FOLDER
set -euo pipefail
. "$(dirname "$0")/common.sh"
build=$1 work=$2
version=$(sed -n 's/^project(QeLaLib VERSION \([0-9.]*\).*/\1/p' "$kSource/CMakeLists.txt")
# The day of the newest release that the change log names; before there is one, the first that a zip can name.
day=$(sed -n 's/^## \[[0-9.]*\] - \([0-9-]*\)$/\1/p' "$kSource/CHANGELOG.md" | head -n 1)
day=${day:-1980-01-01}
name=QeLaLib-$version-win64
rm -rf "$work"
mkdir -p "$work"
DESTDIR='' cmake --install "$build" --prefix "$work/$name" >"$work/install.log" || { cat "$work/install.log" >&2; exit 1; }
"$kSource/Scripts/sbom.sh" "$build" "$work/$name" "$version" "${day}T00:00:00Z" >"$work/sbom"
mv "$work/sbom" "$work/$name/sbom.spdx.json"
cd "$work/$name"
find . -type f -printf '%P\n' | LC_ALL=C sort | xargs -d '\n' sha256sum >"$work/sums"
mv "$work/sums" SHA256SUMS
cd ..
find "$name" -type f | LC_ALL=C sort >files
TZ=UTC cmake -E tar cf "$name.zip" --format=zip --mtime="$day 00:00:00 UTC" --files-from=files
# Before each file the zip has its times of reading and of the inode's change, too. The one that was set takes their place.
perl -0777 -pi -e '
  my ($entries, $at) = unpack "x10 v x4 V", substr $_, rindex $_, "PK\5\6";
  for my $entry (1 .. $entries) {
    my ($name, $extra, $comment, $file) = unpack "x28 v3 x8 V", substr $_, $at;
    my ($before, $length) = unpack "x26 v2", substr $_, $file;
    substr($_, $file + 30 + $before, $length) =~ s/(UT\x0d\0\x07)(.{4}).{8}/$1$2$2$2/s or die "an entry has no times\n";
    $at += 46 + $name + $extra + $comment;
  }' "$name.zip"
say "made $work/$name.zip ($(stat -c %s "$name.zip") bytes, SHA-256 $(sha256sum <"$name.zip" | cut -c1-64))"
