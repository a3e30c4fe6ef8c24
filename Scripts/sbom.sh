#!/bin/bash
# Writes the software bill of materials of an installed folder: SPDX 2.3, JSON, to standard output. What went into a
# module is read from the build itself, down to the headers that its sources included.
# usage: sbom.sh BUILD_FOLDER INSTALLED_FOLDER VERSION DATE
set -euo pipefail
build=$1 installed=$2 version=$3 date=$4

# Of packages that lie unpacked in /opt/deps, by the first part of their headers' names.
declare -A unpacked=([msgpack]=libmsgpack-cxx-dev [msgpack.hpp]=libmsgpack-cxx-dev [spdlog]=libspdlog-dev [fmt]=libfmt-dev
  [CLI]=libcli11-dev [nlohmann]=nlohmann-json3-dev)
declare -A licences=([libmsgpack-cxx-dev]=BSL-1.0 [libspdlog-dev]=MIT [libfmt-dev]=MIT [libcli11-dev]=BSD-3-Clause
  [nlohmann-json3-dev]=MIT [mingw-w64-common]=ZPL-2.1 [mingw-w64-ucrt64-dev]="ZPL-2.1 AND MIT"
  [g++-mingw-w64-ucrt64]="GPL-3.0-or-later WITH GCC-exception-3.1"
  [gcc-mingw-w64-ucrt64]="GPL-3.0-or-later WITH GCC-exception-3.1")

# objects_of TARGET: what is linked into it, and not only against it.
objects_of() {
  local input
  ninja -C "$build" -t query "$1" | sed -n '/^  input:/,/^  outputs:/ s/^    \(| \)\{0,1\}\([^|].*\)/\2/p' | while read -r input; do
    case $input in
      *.obj) printf '%s\n' "$input" ;;
      *.dll.a) ;;
      *.a) objects_of "$input" ;;
    esac
  done
}

# parts_of MODULE: "PACKAGE VERSION" of all that others wrote and that is in bin/MODULE.
parts_of() {
  local files top
  files=$({
    objects_of "bin/$1" | xargs -d '\n' ninja -C "$build" -t deps | sed -n 's/^ *\(\/.*\)/\1/p'
    # The run time, which is linked statically.
    for library in libstdc++.a libgcc.a libmingw32.a libwinpthread.a; do x86_64-w64-mingw32ucrt-g++ -print-file-name="$library"; done
  } | sort -u | xargs -d '\n' realpath -m | sort -u)
  {
    sed -n 's#^/opt/deps/usr/include/\([^/]*\).*#\1#p' <<<"$files" | sort -u | while read -r top; do
      cat "/opt/lab/unpacked/${unpacked[$top]:?no package is known for $top}"
    done
    grep '^/usr/' <<<"$files" | xargs -d '\n' dpkg-query -S | sed 's/:.*//' | sort -u | xargs dpkg-query -W -f '${Package} ${Version}\n'
  } | sort -u
}

modules=$(cd "$installed/bin" && ls ./*.dll ./*.exe)
links='[]'
for module in $modules; do
  module=${module#./}
  links=$(parts_of "$module" | jq -Rn --arg module "$module" --argjson links "$links" \
    '$links + [inputs | split(" ") | {module: $module, package: .[0], version: .[1]}]')
done
[ "$(jq -r --arg known "${!licences[*]}" '[.[].package] | unique - ($known | split(" ")) | .[]' <<<"$links")" = "" ] ||
  { printf 'sbom.sh: error: no licence is known for a package among: %s\n' "$(jq -r '[.[].package] | unique | join(" ")' <<<"$links")" >&2; exit 3; }

files=$(cd "$installed" && find . -type f -printf '%P\n' | LC_ALL=C sort | while read -r file; do
  printf '%s %s %s\n' "$(sha1sum <"$file" | cut -c1-40)" "$(sha256sum <"$file" | cut -c1-64)" "$file"
done)

jq -Rn --arg version "$version" --arg date "$date" --argjson links "$links" --arg files "$files" \
  --arg verification "$(cut -d' ' -f1 <<<"$files" | LC_ALL=C sort | tr -d '\n' | sha1sum | cut -c1-40)" \
  --argjson licences "$(for package in "${!licences[@]}"; do jq -n --arg k "$package" --arg v "${licences[$package]}" '{($k): $v}'; done | jq -s add)" '
  def id: gsub("[^A-Za-z0-9.-]"; "-");
  ($files | split("\n") | map(capture("^(?<sha1>[^ ]+) (?<sha256>[^ ]+) (?<name>.*)$"))) as $all |
  {
    spdxVersion: "SPDX-2.3",
    dataLicense: "CC0-1.0",
    SPDXID: "SPDXRef-DOCUMENT",
    name: "QeLaLib-\($version)",
    documentNamespace: "https://qelalib.invalid/spdx/\($version)/\($verification)",
    creationInfo: {created: $date, creators: ["Organization: The QeLaLib authors", "Tool: Scripts/sbom.sh"]},
    packages: ([{
      name: "QeLaLib", SPDXID: "SPDXRef-QeLaLib", versionInfo: $version, supplier: "Organization: The QeLaLib authors",
      downloadLocation: "NOASSERTION", filesAnalyzed: true, packageVerificationCode: {packageVerificationCodeValue: $verification},
      licenseConcluded: "Apache-2.0", licenseDeclared: "Apache-2.0", copyrightText: "Copyright 2026 the QeLaLib authors"
    }] + ($links | map({package, version}) | unique | map({
      name: .package, SPDXID: ("SPDXRef-" + (.package | id)), versionInfo: .version, supplier: "Organization: Debian",
      downloadLocation: "NOASSERTION", filesAnalyzed: false,
      licenseConcluded: $licences[.package], licenseDeclared: $licences[.package], copyrightText: "NOASSERTION",
      externalRefs: [{referenceCategory: "PACKAGE-MANAGER", referenceType: "purl",
        referenceLocator: "pkg:deb/debian/\(.package | @uri)@\(.version | @uri)?distro=trixie"}]
    }))),
    files: ($all | map({
      fileName: ("./" + .name), SPDXID: ("SPDXRef-File-" + (.name | id)),
      checksums: [{algorithm: "SHA1", checksumValue: .sha1}, {algorithm: "SHA256", checksumValue: .sha256}],
      licenseConcluded: "NOASSERTION", copyrightText: "NOASSERTION"
    })),
    relationships: (
      [{spdxElementId: "SPDXRef-DOCUMENT", relationshipType: "DESCRIBES", relatedSpdxElement: "SPDXRef-QeLaLib"}]
      + ($all | map({spdxElementId: "SPDXRef-QeLaLib", relationshipType: "CONTAINS", relatedSpdxElement: ("SPDXRef-File-" + (.name | id))}))
      + ($links | map({spdxElementId: ("SPDXRef-File-" + ("bin/" + .module | id)), relationshipType: "STATIC_LINK", relatedSpdxElement: ("SPDXRef-" + (.package | id))})))
  }'
