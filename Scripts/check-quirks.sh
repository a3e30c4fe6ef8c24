#!/bin/bash
# Whether every test that is named as a guard exists: in each row of the table in Docs/quirks.md and of those in
# Docs/windows-truth.md, and behind "guarded by" in comments. A row without a guard is an error too, unless it says that
# there is none yet. Needs no toolchain.
set -euo pipefail
cd "$(dirname "$0")/.."

missing=0
complain() {
  printf 'check-quirks: %s\n' "$*" >&2
  missing=1
}

tests=$(find . -path ./build -prune -o -name '*Tests.cpp' -print0 | xargs -0 cat | tr '\n' ' ' |
  sed -nE 's/TEST(_F|_P)?\( *([A-Za-z0-9_]+), *([A-Za-z0-9_]+) *\)/\n\2.\3\n/gp' | grep -E '^[A-Za-z0-9_]+\.[A-Za-z0-9_]+$' | sort -u)

# check_rows DOCUMENT COLUMN: the rows of the tables whose last column has this name.
check_rows() {
  local document=$1 column=$2 rows row last guard guards
  rows=$(awk -v head="| $column |" '/^$/ { inside = 0 } inside && !/^[|]-/ { print } index($0, head) { inside = 1 }' "$document")
  [ -n "$rows" ] || complain "$document has no table with the column \"$column\""
  while IFS= read -r row; do
    last=$(sed -E 's/ *\|$//; s/.*\| *//' <<<"$row")
    [[ $last != "none yet: "* ]] || continue
    guards=$(grep -oE '[A-Za-z0-9_]+\.[A-Za-z0-9_]+' <<<"$last" || true)
    [ -n "$guards" ] || complain "$document: no test in the row: $row"
    for guard in $guards; do
      grep -qxF "$guard" <<<"$tests" || complain "$document: there is no test $guard"
    done
  done <<<"$rows"
}
check_rows Docs/quirks.md "Guarded by"
check_rows Docs/windows-truth.md "Shown by"

# A comment may name a suite instead of a test.
comments=$(find FwClient HostLibraries ScriptedWindows Tools Tests Bench \( -name '*.h' -o -name '*.cpp' \) -print0 | xargs -0 cat |
  sed -E 's|^ *// ?||' | tr '\n' ' ' | grep -oE '[Gg]uarded by [A-Za-z0-9_.]+' | sed -E 's/.* //; s/\.$//' | sort -u)
for guard in $comments; do
  grep -qE "^$guard(\.|$)|^${guard}[A-Za-z0-9_]*\." <<<"$tests" || complain "a comment names the test $guard, which does not exist"
done
exit "$missing"
