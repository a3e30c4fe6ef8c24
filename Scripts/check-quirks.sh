#!/bin/bash
# Whether every test that is named as a guard exists: in each row of the table in Docs/quirks.md, and behind "guarded by"
# in comments. A row without a guard is an error too. Needs no toolchain.
set -euo pipefail
cd "$(dirname "$0")/.."

missing=0
complain() {
  printf 'check-quirks: %s\n' "$*" >&2
  missing=1
}

tests=$(find . -path ./build -prune -o -name '*Tests.cpp' -print0 | xargs -0 cat | tr '\n' ' ' |
  sed -nE 's/TEST(_F|_P)?\( *([A-Za-z0-9_]+), *([A-Za-z0-9_]+) *\)/\n\2.\3\n/gp' | grep -E '^[A-Za-z0-9_]+\.[A-Za-z0-9_]+$' | sort -u)

# The rows are those of the one table that has the column "Guarded by".
rows=$(sed -n '/| Guarded by |$/,/^$/p' Docs/quirks.md | tail -n +3 | sed '/^$/d')
[ -n "$rows" ] || complain "Docs/quirks.md has no table with the column \"Guarded by\""
while IFS= read -r row; do
  guards=$(sed -E 's/ *\|$//; s/.*\| *//' <<<"$row" | grep -oE '[A-Za-z0-9_]+\.[A-Za-z0-9_]+' || true)
  [ -n "$guards" ] || complain "Docs/quirks.md: no test in the row: $row"
  for guard in $guards; do
    grep -qxF "$guard" <<<"$tests" || complain "Docs/quirks.md: there is no test $guard"
  done
done <<<"$rows"

# A comment may name a suite instead of a test.
comments=$(find FwClient HostStandIns ScriptedWindows Tools Tests Bench \( -name '*.h' -o -name '*.cpp' \) -print0 | xargs -0 cat |
  sed -E 's|^ *// ?||' | tr '\n' ' ' | grep -oE '[Gg]uarded by [A-Za-z0-9_.]+' | sed -E 's/.* //; s/\.$//' | sort -u)
for guard in $comments; do
  grep -qE "^$guard(\.|$)|^${guard}[A-Za-z0-9_]*\." <<<"$tests" || complain "a comment names the test $guard, which does not exist"
done
exit "$missing"
