#!/bin/bash
# ./dev package --tests, inside the toolchain's root: makes the zip of the tests that run on a Windows machine, of which
# the same sources give the same bytes.
# usage: package-tests.sh BUILD_FOLDER [FOLDER_OF_THE_ZIP]
set -euo pipefail
. "$(dirname "$0")/common.sh"
. "$(dirname "$0")/zip.sh"
build=$1
bundle=${2:-$build/package-tests}/QeLaLib-$kVersion-tests-win64
rm -rf "$bundle"
mkdir -p "$bundle/bin/Tests/Fuzz" "$bundle/bin/Docs" "$bundle/docs"

for file in UnitTests.exe WindowsTruthTests.exe ContractTests.exe KitTests.exe QelaFailureTests.exe SoakTests.exe FuzzTests.exe ExampleHost.exe KitExampleHost.exe \
  WithLimit.exe qela.exe QeLaLib.dll QeLaC.dll LogLib.dll blframework.dll KzVariantExport.dll; do
  cp "$build/bin/$file" "$bundle/bin/"
done
# The parts of the checkout that tests read, where TestFile looks for them.
cp -R "$kSource/Tests/Data" "$bundle/bin/Tests/"
cp -R "$kSource/Tests/Fuzz/Corpus" "$bundle/bin/Tests/Fuzz/"
cp "$kSource/Docs/"{criteria.md,lint.md,log.md,location-set.schema.json,stored-form.md,timeouts.md} "$bundle/bin/Docs/"
cp "$kSource/Docs/windows-truth.md" "$bundle/docs/"
cp "$kSource/LICENSE" "$kSource/NOTICE" "$bundle/"

# needs REASON SCRIPT...: a line for each of these tests, with what the script's second line says of it.
needs() {
  local reason=$1 script folder name
  shift
  for script in "$@"; do
    folder=$(basename "$(dirname "$script")")
    name=$(basename "$script" .sh)
    printf '%s.%s %s: %s\n' "$folder" "$name" "$reason" "$(sed -n '2s/^# //p' "$script")"
  done
}
{
  printf '# Not in this folder: tests that make a machine of their own. Name, and the reason.\n'
  needs 'needs the private network and its servers' "$kSource"/Tests/Integration/*Tests.sh
  needs 'needs the compiler and the checkout' "$kSource"/Tests/Package/*Tests.sh "$kSource"/Tests/Scripts/*Tests.sh
  printf 'Bench.EveryJobWorks needs the private network: the benchmark changes addresses\n'
} >"$bundle/needs-the-lab.txt"

cp "$kSource"/Tests/Bundle/{README.txt,needs-elevation.txt,run-tests.cmd} "$bundle/"
# The command interpreter finds its labels only in lines that end as Windows' own do.
sed -i 's/$/\r/' "$bundle"/*.txt "$bundle/run-tests.cmd"
make_zip "$bundle"
