# Zips that are the same bytes when they are made of the same sources. Sourced after common.sh.

kVersion=$(sed -n 's/^project(QeLaLib VERSION \([0-9.]*\).*/\1/p' "$kSource/CMakeLists.txt")
# The time of every file: the day of the newest release that the change log names; before there is one, the first day
# that a zip can name.
kDay=$(sed -n 's/^## \[[0-9.]*\] - \([0-9-]*\)$/\1/p' "$kSource/CHANGELOG.md" | head -n 1)
kDay=${kDay:-1980-01-01}

# make_zip FOLDER: FOLDER.zip beside it, with the checksums of all that the folder holds.
make_zip() {
  local folder=$1 name=${1##*/} files list
  rm -f "$folder/SHA256SUMS" "$folder.zip"
  files=$(find "$folder" -type f -printf '%P\n' | LC_ALL=C sort)
  (cd "$folder" && xargs -d '\n' sha256sum <<<"$files" >SHA256SUMS)
  list=$(mktemp)
  printf 'SHA256SUMS\n%s\n' "$files" | sed "s|^|$name/|" >"$list"
  (cd "${folder%/*}" && TZ=UTC cmake -E tar cf "$name.zip" --format=zip --mtime="$kDay 00:00:00 UTC" --files-from="$list")
  rm "$list"
  # Before each file the zip has its times of reading and of the inode's change, too. The one that was set takes their place.
  perl -0777 -pi -e '
    my ($entries, $at) = unpack "x10 v x4 V", substr $_, rindex $_, "PK\5\6";
    for my $entry (1 .. $entries) {
      my ($name, $extra, $comment, $file) = unpack "x28 v3 x8 V", substr $_, $at;
      my ($before, $length) = unpack "x26 v2", substr $_, $file;
      substr($_, $file + 30 + $before, $length) =~ s/(UT\x0d\0\x07)(.{4}).{8}/$1$2$2$2/s or die "an entry has no times\n";
      $at += 46 + $name + $extra + $comment;
    }' "$folder.zip"
  say "made $folder.zip ($(stat -c %s "$folder.zip") bytes, SHA-256 $(sha256sum <"$folder.zip" | cut -c1-64))"
}
