# What the integration tests share. Sourced with the folder of the built programs as first argument.
set -euo pipefail
bin=$1
tests=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
. "$tests/../../Scripts/lab-network.sh"
. "$tests/../../Scripts/watch-events.sh"

qela() { "$tests/../../Scripts/wine.sh" "$bin/qela.exe" "$@"; }

# start_qela_watch [OPTION...]
start_qela_watch() { start_watch "$tests/../../Scripts/wine.sh" "$bin/qela.exe" watch --json "$@"; }

# it SENTENCE: names what the next lines prove.
it() {
  sentence=$*
  printf '%s\n' "- $*"
}

# expect ACTUAL EXPECTED
expect() {
  [ "$1" = "$2" ] && return
  printf 'FAILED: %s\n  expected: %s\n  found:    %s\n' "$sentence" "$2" "$1" >&2
  exit 1
}
