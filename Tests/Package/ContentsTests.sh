#!/bin/bash
# What lies in the package, and what its lists say of it.
. "$(dirname "$0")/package.sh"
cd "$package"

it "holds what the checksums name, unchanged"
sha256sum --quiet -c SHA256SUMS || failed "a checksum is wrong"
expect "$(find . -type f ! -name SHA256SUMS -printf '%P\n' | LC_ALL=C sort)" "$(sed 's/^[^ ]*  //' SHA256SUMS)"

it "is made of the same bytes again"
again=$(mktemp -d)
"$scripts/package.sh" "$build" "$again" 2>/dev/null
cmp "$again"/*.zip "$build"/package/*.zip || failed "the two differ"
rm -r "$again"

it "has modules that are linked to the same bytes again"
again=$(mktemp -d)
for module in QeLaLib QeLaC LogLib blframework KzVariantExport; do
  # What the build itself runs, with the results put elsewhere, whose name stands in the PDB. That the compiler gives the
  # same objects again is seen by ./dev package --verify.
  link=$(cd "$build" && ninja -t commands "bin/$module.dll" | tail -n 1 | sed "s#\($build/\)\?\(bin/$module\.\|lib/lib$module\.dll\.\)#$again/\2#g")
  mkdir -p "$again/bin" "$again/lib"
  (cd "$build" && eval "$link") || failed "$module.dll cannot be linked again"
  cmp "$again/bin/$module.dll" "bin/$module.dll" || failed "the two $module.dll differ"
done
rm -r "$again"

it "names the folder that it was built in nowhere but in the PDBs"
expect "$(grep -rlF "$build" --exclude='*.pdb' .)" ''

it "has every module with its PDB beside it"
for module in QeLaLib.dll QeLaC.dll LogLib.dll blframework.dll KzVariantExport.dll qela.exe; do
  [[ -s bin/$module && -s bin/${module%.*}.pdb ]] || failed "bin/$module or its PDB is missing"
done

it "has what completes qela's command lines in Bash and PowerShell"
bash -n completion/qela.bash
grep -q 'Register-ArgumentCompleter -Native -CommandName qela' completion/qela.ps1 || failed "completion/qela.ps1 registers nothing"

it "says the same version everywhere"
version=$(sed -n 's/^#define QELA_VERSION_TEXT "\(.*\)"/\1/p' include/QeLaVersion.h)
[[ $(echo "$build"/package/*.zip) = */QeLaLib-$version-win64.zip ]] || failed "the zip's name has another version than $version"
answer qela --version
expect "$(head -n 1 <<<"$out")" "qela $version"
expect_out "QeLaLib.dll $version ("
for module in bin/*.dll bin/*.exe; do
  strings -el "$module" | grep -qx "$version.0" || failed "$module's resource does not name $version.0"
done
expect "$(jq -r '.packages[] | select(.name == "QeLaLib").versionInfo' sbom.spdx.json)" "$version"

it "names in the bill of materials every file and all that is linked in"
expect "$(jq -r '.files[] | .checksums[1].checksumValue + "  " + .fileName[2:]' sbom.spdx.json | LC_ALL=C sort)" \
  "$(grep -v ' sbom.spdx.json$' SHA256SUMS | LC_ALL=C sort)"
linked() {
  jq -r --arg of "SPDXRef-File-bin-$1" '[.relationships[] | select(.relationshipType == "STATIC_LINK" and .spdxElementId == $of).relatedSpdxElement[8:]] | join(" ")' sbom.spdx.json
}
[[ $(linked QeLaLib.dll) = *libmsgpack-cxx-dev* && $(linked QeLaLib.dll) != *spdlog* ]] || failed "QeLaLib.dll: $(linked QeLaLib.dll)"
[[ $(linked LogLib.dll) = *libfmt-dev*libspdlog-dev* && $(linked LogLib.dll) != *msgpack* ]] || failed "LogLib.dll: $(linked LogLib.dll)"
[[ $(linked qela.exe) = *libcli11-dev*nlohmann-json3-dev* ]] || failed "qela.exe: $(linked qela.exe)"
for module in QeLaLib.dll QeLaC.dll LogLib.dll blframework.dll KzVariantExport.dll qela.exe; do
  [[ $(linked "$module") = *g---mingw-w64-ucrt64*mingw-w64-ucrt64-dev* ]] || failed "$module lacks the run time: $(linked "$module")"
done

it "resolves an address to a function's name with the PDB"
offset=$(llvm-readobj-19 --coff-exports bin/QeLaLib.dll | awk '/Name: GetQeLaApiSmart/ {found = 1} found && /RVA:/ {print $2; exit}')
expect "$(llvm-symbolizer-19 --relative-address --obj=bin/QeLaLib.dll "$offset" | head -n 1)" GetQeLaApiSmart
# One that only the PDB knows: segment and offset there count from the section.
inner=$(llvm-pdbutil-19 dump -publics bin/QeLaLib.pdb | awk '/`_Z17IsDomainReachable/ {getline; sub(/.*addr = 0001:/, ""); print $1; exit}')
expect "$(llvm-symbolizer-19 --relative-address --obj=bin/QeLaLib.dll $((10#$inner + 0x1000)) | head -n 1 | cut -d'(' -f1)" IsDomainReachable
