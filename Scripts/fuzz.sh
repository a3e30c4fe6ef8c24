#!/bin/bash
# Feeds hostile bytes to all that reads bytes. ./dev reads the command line with what stands here, too: what is wrong with
# it is told before minutes go into the toolchain.
# usage: lab.sh fuzz.sh FOLDER_OF_PROGRAMS [ARGUMENT...]
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

fuzz_usage() {
  cat <<'TEXT'
usage: ./dev fuzz [--for TIME] [TARGET...]
       ./dev fuzz --list

  --for TIME   how long, such as 90s, 10m or 2h; 5m if it is not given
  --list       names the targets, one a line
  TARGET       only these

Half of the time goes to the targets under Wine, once as they are and once with every block of memory at the end of a
page; the other half to those that can be built for this machine, with Clang's checks. Every target begins with the
inputs of Tests/Fuzz/Corpus and changes them, each day otherwise.

An input that a target fails with is left in build/fuzz, and the command that repeats it is told.

Exit codes: 0 all held; 1 a target failed; 2 the command line is wrong.
TEXT
}

# read_fuzz_line [ARGUMENT...]: sets fuzz_seconds, fuzz_list and fuzz_targets. Help ends the script, and so does misuse.
read_fuzz_line() {
  fuzz_seconds=300 fuzz_list='' fuzz_targets=()
  local time='' seconds
  while [ $# -gt 0 ]; do
    case $1 in
      -h | --help) fuzz_usage; exit 0 ;;
      --list) fuzz_list=1 ;;
      --for)
        read_time fuzz "${2:-}"
        fuzz_seconds=$seconds time=given
        shift
        ;;
      -*) misuse "./dev fuzz takes --for TIME, --list and names of targets; here is: $1" ;;
      *) fuzz_targets+=("$1") ;;
    esac
    shift
  done
  if [ -n "$fuzz_list" ] && [ -n "$time${fuzz_targets[*]:-}" ]; then misuse "./dev fuzz --list takes nothing else"; fi
}

[ "${BASH_SOURCE[0]}" = "$0" ] || return 0
bin=$1
shift
read_fuzz_line "$@"
cd "$kSource"

fuzz_tests() { Scripts/wine.sh "$bin/FuzzTests.exe" "$@"; }
mapfile -t known < <(fuzz_tests --list | tr -d '\r')
if [ -n "$fuzz_list" ]; then
  printf '%s\n' "${known[@]}"
  exit 0
fi
for target in ${fuzz_targets[@]+"${fuzz_targets[@]}"}; do
  [[ " ${known[*]} " = *" $target "* ]] || misuse "there is no target $target; there are: ${known[*]}"
done

mkdir -p build/fuzz
share=$(((fuzz_seconds + 1) / 2))
under_wine=(--for "$share" --corpus Tests/Fuzz/Corpus --finds build/fuzz ${fuzz_targets[@]+"${fuzz_targets[@]}"})
say "feeding hostile bytes to the targets under Wine for $share s, with guards too"
# Both at once: there are two processors almost everywhere.
fuzz_tests "${under_wine[@]}" --guard >build/fuzz/guarded.log 2>&1 &
guarded=$!
failed=0
fuzz_tests "${under_wine[@]}" || failed=1
wait "$guarded" || failed=1
say "with every block of memory at the end of a page"
cat build/fuzz/guarded.log

# Those that can be built for this machine.
if [ -x Scripts/fuzz-native.sh ]; then
  Scripts/fuzz-native.sh "$share" ${fuzz_targets[@]+"${fuzz_targets[@]}"} || failed=1
fi
exit "$failed"
