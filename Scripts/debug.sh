#!/bin/bash
# Runs one test as ctest does, under the debugger, and stops where it fails. Without a terminal it tells where, and ends.
# usage: lab.sh debug.sh PRESET TEST
set -euo pipefail
scripts=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
. "$scripts/common.sh"
preset=$1
test=$2
port=2345 # the network is private

readarray -t command < <(ctest --preset "$preset" --show-only=json-v1 | jq -r --arg name "$test" '.tests[] | select(.name == $name).command[]')
[ ${#command[@]} -gt 0 ] || misuse "no test has the name $test (./dev test --debug -N lists them)"
program=${command[1]}
[[ $program == *.exe ]] || misuse "$test is a script; ./dev debug runs tests that are programs"

# In a session of its own, so that Ctrl-C reaches the debugger alone. Not winedbg, which serves as well but swallows what
# the program prints.
setsid "$scripts/wine.sh" /usr/share/ucrt64/gdbserver.exe --once "localhost:$port" "Z:$program" "${command[@]:2}" \
  --gtest_break_on_failure --gtest_catch_exceptions=0 </dev/null &
server=$!
while [ -z "$(ss -Hltn "sport = :$port")" ]; do kill -0 "$server" 2>/dev/null || fail "gdbserver did not start"; done

options=(-q -nx -iex 'set pagination off' -iex 'set confirm off')
[ -t 0 ] || options+=(-batch)
# Libraries are found in files, which is quicker than asking the server for them.
x86_64-w64-mingw32ucrt-gdb "${options[@]}" -ex "set sysroot /nowhere" \
  -ex "set solib-search-path $(dirname "$program"):/usr/lib/x86_64-linux-gnu/wine/x86_64-windows" \
  -ex "file $program" -ex "target remote :$port" -ex continue -ex backtrace -ex 'set pagination on'
