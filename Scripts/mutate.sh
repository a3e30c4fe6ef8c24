#!/bin/bash
# Puts single faults into copies of the sources and tells which of them no test notices: Tests/Mutation does it. ./dev
# reads the command line with what stands here, too: what is wrong with it is told before minutes go into the toolchain.
# usage: mutate.sh [ARGUMENT...]
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

mutate_usage() {
  cat <<'TEXT'
usage: ./dev mutate [--count N] [--seed N] [--unit NAME] [--mutant ID] [--list]

Puts single faults into copies of the sources (a condition turned round, a bound moved, a call left out, two calls
swapped, another text or severity in the log, a handle not released) and runs the tests that pass each with it: what
stays green is noticed by no test.

  --count N    judges N faults, spread over all units and kinds (1000)
  --seed N     takes others (1)
  --unit NAME  takes those of one source, by its file's name without the ending (AddressTable)
  --mutant ID  judges one fault again, and shows what the test says that notices it
  --list       names the faults with their numbers, and judges none

What is found out is kept in build/mutation and not asked again, unless the source or, for survivors, a test has changed.
Nothing that ships, and nothing in the checkout outside build, has a fault at any time.

Exit codes: 0 every fault was noticed or stands in Tests/Mutation/equivalent.txt; 1 some survived, or the copies could
not be built; 2 the command line is wrong.
TEXT
}

# read_mutate_line [ARGUMENT...]: Help ends the script, and so does misuse.
read_mutate_line() {
  while [ $# -gt 0 ]; do
    case $1 in
      --count | --seed | --mutant)
        [[ ${2:-} =~ ^[1-9][0-9]{0,8}$ ]] || misuse "./dev mutate: $1 takes a number from 1 on; here is: ${2:-nothing}"
        shift
        ;;
      --unit)
        [[ ${2:-} =~ ^[[:alnum:]_]+$ ]] ||
          misuse "./dev mutate: --unit takes a source's name without the ending; here is: ${2:-nothing}"
        shift
        ;;
      --list) ;;
      -h | --help) mutate_usage; exit 0 ;;
      *) misuse "./dev mutate does not know $1. ./dev mutate --help tells what it takes." ;;
    esac
    shift
  done
}

[ "${BASH_SOURCE[0]}" = "$0" ] || return 0
read_mutate_line "$@"
cd "$kSource"
[ -e build/mingw-release/compile_commands.json ] || cmake --preset mingw-release >build/configure.log 2>&1 || { cat build/configure.log >&2; exit 1; }
export PYTHONDONTWRITEBYTECODE=1
exec python3 Tests/Mutation/mutate.py "$@"
