#!/bin/bash
# The zip of the tests for a Windows machine, unpacked where there is no checkout, as far as Wine takes it.
. "$(dirname "$0")/package.sh"

work=$(mktemp -d "$build/bundle.XXXXXX")
trap 'rm -rf "$work"' EXIT
for each in first second; do "$scripts/package-tests.sh" "$build" "$work/$each" 2>/dev/null; done
zip=$(echo "$work"/first/*.zip)
bundle="$work/two words (x)"
mkdir "$bundle"
(cd "$bundle" && cmake -E tar xf "$zip" && mv QeLaLib-*/* . && rmdir QeLaLib-*)
cd "$bundle"

# run_tests [FILTER]: what it says is in $out, without Windows' line ends; the report lies in report.
run_tests() {
  answer wine cmd /c run-tests.cmd "$@"
  out=${out//$'\r'/}
  summary=$(tr -d '\r' <report/summary.txt)
}
lab=$(grep -vc '^#' needs-the-lab.txt)
elevated=$(grep -vc '^#' needs-elevation.txt)

it "is the same bytes each time"
cmp "$zip" "$work"/second/*.zip || failed "two zips of one build differ"

it "holds what the checksums name, unchanged"
sha256sum --quiet -c SHA256SUMS || failed "a checksum is wrong"
expect "$(find . -type f ! -name SHA256SUMS -printf '%P\n' | LC_ALL=C sort)" "$(sed 's/^[^ ]*  //' SHA256SUMS)"

it "holds every test program but those that scripts of the lab start"
for program in "$build"/bin/*Tests.exe "$build"/bin/*ExampleHost.exe; do
  name=$(basename "$program" .exe)
  [ -e "bin/$name.exe" ] || [[ $name = *IntegrationTests ]] || failed "$name is missing"
  [ ! -e "bin/$name.exe" ] || grep -qE "^(if .*)?call :(whole|each|host) $name( .*)?"$'\r' run-tests.cmd || failed "$name is not run"
done

it "names what needs the lab, with the reason"
for script in "$tests"/../Integration/*Tests.sh; do
  grep -qE "^Integration\.$(basename "$script" .sh) needs .*: .+" needs-the-lab.txt || failed "no line for $script"
done

it "names tests that there are in the list of those that need elevation"
while read -r name reason; do
  answer wine bin/WindowsTruthTests.exe --gtest_list_tests --gtest_filter="$name"
  expect_out "  ${name#*.}"
  [ -n "$reason" ] || failed "$name has no reason"
done < <(grep -v '^#' needs-elevation.txt | tr -d '\r')

it "runs tests from a folder with blanks in its name, and counts them"
run_tests "HostileFiles.*:CalculationScenes.*:KitVersion*:QelaFailure.ASave*:WindowsTruth*.AKey*"
expect_code 0
expect "$err" ''
expect_out "Runs elevated."
found=$(grep -ho '<testcase ' report/junit/*.xml | wc -l)
[ "$found" -ge 6 ] || failed "only $found tests have a record"
expect "$(tail -n 1 <<<"$out")" "$found passed, 0 failed, $lab skipped"
expect "$(tail -n 1 <<<"$summary")" "$found passed, 0 failed, $lab skipped"

it "leaves a record of each process, and no output of tests that passed"
for record in UnitTests ContractTests.CalculationScenes.LogAskAndStoreWhatIsOnRecord WindowsTruthTests.WindowsTruthElevated.AKeyOfTheMachineCanBeMadeWatchedWrittenAndFlushed; do
  grep -q '<testcase name=' "report/junit/$record.xml" || failed "no record $record"
done
expect "$(ls report/logs)" UnitTests.txt

it "says what it skipped, and where the report lies"
expect "$(grep -c '^skipped Integration\..*: needs the private network' <<<"$summary")" "$(echo "$tests"/../Integration/*Tests.sh | wc -w)"
[[ $out == *"Send back"*"two words (x)\\report"* ]] || failed "it does not say where the report lies:" "$out"
for fact in ver ipconfig systeminfo qela-adapters; do
  [ -s "report/machine/$fact.txt" ] || failed "$fact.txt is missing or empty"
done

it "passes over what needs elevation where the user has none"
rm "$WINEPREFIX"/drive_c/windows/system32/reg.exe
run_tests "WindowsTruth*.AKey*"
expect_code 0
expect_out "Runs as a normal user."
expect "$(grep -c '^skipped WindowsTruthElevated\.' <<<"$summary")" "$elevated"
expect "${out##* passed, }" "0 failed, $((lab + elevated)) skipped"

it "counts a test that Wine cannot pass as skipped"
run_tests "WindowsTruth.AProxySetOnARequest*:WindowsTruth.OneEvent*"
expect_code 0
expect "$(tail -n 1 <<<"$out")" "1 passed, 0 failed, $((lab + elevated + 1)) skipped"

it "fails when a test fails, and keeps what it printed"
rm bin/Tests/Data/calculation-scenes.txt
run_tests "CalculationScenes.*:HostileFiles.*"
expect_code 1
expect "$(tail -n 1 <<<"$out")" "1 passed, 1 failed, $((lab + elevated)) skipped"
expect_out "FAILED CalculationScenes.LogAskAndStoreWhatIsOnRecord"
grep -q 'FAILED' report/logs/ContractTests.CalculationScenes.LogAskAndStoreWhatIsOnRecord.txt || failed "its output is gone"

it "fails when a test of many in one process fails"
rm bin/Tests/Data/*.bin
run_tests "HostileFiles.*:LenientUtf*"
expect_code 1
expect_out "FAILED UnitTests: 1 tests"
[[ $summary == *"HostileFiles.AreAnsweredByEveryClass"* ]] || failed "the summary does not name it:" "$summary"

it "fails when a program cannot start, and runs the others"
: >bin/QeLaC.dll
run_tests "KitVersion*:LenientUtf*"
expect_code 1
expect_out "FAILED KitTests"
expect_out " passed, 1 failed"

it "fails when nothing was run"
run_tests "ThereIsNoSuchTest.*"
expect_code 1
