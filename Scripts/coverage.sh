#!/bin/bash
# ./dev coverage, inside the toolchain's root: which lines and branches of what ships the tests reach.
set -euo pipefail
. "$(dirname "$0")/common.sh"
cd "$kSource"
preset=mingw-coverage
report=build/coverage
list=Tests/Coverage/unreached.txt
kLineGoal=97
kBranchGoal=90

say "configuring ($preset)"
cmake --preset "$preset" >build/configure.log 2>&1 || { cat build/configure.log >&2; exit 1; }
say "building"
cmake --build --preset "$preset" --target qela UnitTests ContractTests KitTests QelaFailureTests HttpsIntegrationTests \
  AddressChangeIntegrationTests ExampleHost KitExampleHost >&2

rm -rf "$report"
mkdir -p "$report"
find "build/$preset" -name '*.gcda' -delete
# Programs write their counts into the build folder when they end, and modules when they are unloaded. The path that they
# know has no drive, and some run on another one than that of the checkout. What goes wrong there has to be known: the
# figures would be too low.
export GCOV_PREFIX=Z: GCOV_ERROR_FILE=Z:$PWD/$report/complaints.txt

# Left out is what looks at the files that ship, which counters change (LibraryImage, ShippedImage, package, the texts in
# LogDocument.EveryNarrowFormat); what measures optimised code (CostsLittleStack); what starts no module of ours (scripts,
# windows-truth); the benchmark, which judges nothing, and what runs for long elsewhere (fuzz, soak); and what unloads a
# module under conditions in which its counts cannot be written. SLOWER stretches the other tests' goals of time;
# TORTURE_SEED has the same calls fail each day.
say "testing"
failed=0
GTEST_FILTER='-*.CostsLittleStack*' SLOWER=100 TORTURE_SEED=20261122 Scripts/lab.sh ctest --preset "$preset" -C WholeSet \
  -LE '^(alone|package|scripts|windows-truth|bench|fuzz|soak)$' \
  -E 'LibraryImage|ShippedImage|LogDocument.EveryNarrowFormat|LoadUnload.KeepsTheError|FailsWhileItIsLoadedAndUnloaded|_NOT_BUILT' >&2 ||
  { say "the figures are of tests that failed (see above)"; failed=1; }
[ ! -s "$report/complaints.txt" ] || { say "counts were lost:"; sort "$report/complaints.txt" | uniq -c >&2; failed=1; }

# Left out of the lines: those without a word, such as brackets, where nothing of ours stands. Left out of the branches: that
# any call may throw, which the compiler counts at each; what cleans up then and never had to (coverage-gcov.sh); and
# those on lines without code.
say "summing up"
gcovr --root . --object-directory "build/$preset" --gcov-executable "$PWD/Scripts/coverage-gcov.sh" -j "$(nproc)" \
  --filter 'FwClient/' --filter 'HostLibraries/' --filter 'QeLaC/' --filter 'Tools/' \
  --exclude-lines-by-pattern '^\W*$' --exclude-throw-branches --exclude-unreachable-branches --merge-mode-functions=separate \
  --json "$report/lines.json" --json-summary "$report/summary.json" --html-details "$report/index.html" \
  --html-title "Coverage of what ships" "build/$preset" >"$report/gcovr.log" 2>&1 || { cat "$report/gcovr.log" >&2; exit 1; }

# A line of the table for each file, each folder, and all.
jq -r '
  def row($name): [$name,
    (map(.line_total) | add), (map(.line_total - .line_covered) | add),
    (map(.branch_total) | add), (map(.branch_total - .branch_covered) | add)] | @tsv;
  .files | sort_by(.filename) |
  (.[] | . as $file | [$file] | row($file.filename)),
  (group_by(.filename | sub("/[^/]*$"; ""))[] | row(.[0].filename | sub("[^/]*$"; ""))),
  row("all")' "$report/summary.json" >"$report/table.tsv"
awk -F'\t' -v lineGoal="$kLineGoal" -v branchGoal="$kBranchGoal" '
  function percent(all, missed) { return all == 0 ? 100 : 100 * (all - missed) / all }
  BEGIN { printf "%-62s %7s %9s %7s %9s %9s %7s\n", "", "lines", "unreached", "%", "branches", "untaken", "%" }
  { lines = percent($2, $3); branches = percent($4, $5)
    printf "%-62s %7d %9d %7.2f %9d %9d %7.2f\n", $1, $2, $3, lines, $4, $5, branches }
  END {
    if (lines < lineGoal) { printf "dev: the tests reach less than %d %% of the lines: write some\n", lineGoal > "/dev/stderr"; failed = 1 }
    if (branches < branchGoal) { printf "dev: the tests take less than %d %% of the branches: write some\n", branchGoal > "/dev/stderr"; failed = 1 }
    exit failed
  }' "$report/table.tsv" || failed=1

# A line is known by its text, so that edits elsewhere in its file do not matter; and by the lines before it too, as many as
# it takes, where others read the same.
jq -r '.files[] | .file as $file | .lines[] | select(.count == 0 and ."gcovr/noncode" != true and ."gcovr/excluded" != true) | [$file, .line_number] | @tsv' \
  "$report/lines.json" |
  awk -F'\t' '
  function load(name,   line) {
    lineCount = 0
    split("", text)
    while ((getline line < name) > 0) { gsub(/^[ \t]+|[ \t\r]+$/, "", line); if (line != "") { text[++lineCount] = line; at[name, ++numbers[name]] = lineCount } else ++numbers[name] }
    close(name)
    loaded = name
  }
  function alike(a, b, lines,   i) {
    for (i = 0; i < lines; ++i) if (text[a - i] != text[b - i]) return 0
    return 1
  }
  { if (loaded != $1) load($1)
    line = at[$1, $2]
    lines = 1
    for (other = 1; other <= lineCount; ++other)
      while (other != line && lines < line && alike(line, other, lines)) ++lines
    key = text[line]
    for (i = 1; i < lines; ++i) key = text[line - i] " / " key
    print $1 ": " key
  }' | LC_ALL=C sort >"$report/unreached.txt"
awk '!/^(#|$)/ && !/  # [^ ]/ { print "dev: " FILENAME ":" FNR ": the reason is missing: end the line with two blanks, #, a blank and the reason"; bad = 1 }
  END { exit bad }' "$list" >&2 || failed=1
# What depends on which thread comes first is reached by some runs; its reason begins so.
listed() { awk -v but="$1" '!/^(#|$)/ && (but == "" || !index($0, but)) { sub(/  #( .*)?$/, ""); print }' "$list" | LC_ALL=C sort; }
differing() { LC_ALL=C comm "$1" "$report/unreached.txt" "$2"; }
listed '' >"$report/listed.txt"
listed '  # sometimes: ' >"$report/always.txt"
if [ -n "$(differing -23 "$report/listed.txt")" ]; then
  say "no test reaches these lines, and $list does not list them. Write a test, or remove the line; what no test can reach goes into the list with its reason:"
  differing -23 "$report/listed.txt" >&2
  failed=1
fi
if [ -n "$(differing -13 "$report/always.txt")" ]; then
  say "$list lists these lines, and a test reaches them or they are gone. Remove them from the list:"
  differing -13 "$report/always.txt" >&2
  failed=1
fi
say "page by page: $report/index.html"
exit "$failed"
