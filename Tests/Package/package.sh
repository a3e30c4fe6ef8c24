# What the tests of the package share. Sourced with the build folder as first argument.
set -euo pipefail
build=$1
tests=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
scripts=$(cd "$tests/../../Scripts" && pwd)
unpacked=$build/unpacked
package=$unpacked/package
. "$tests/../vocabulary.sh"
. "$scripts/lab-network.sh"

gnu=(-DCMAKE_SYSTEM_NAME=Windows -DCMAKE_C_COMPILER=x86_64-w64-mingw32ucrt-gcc -DCMAKE_CXX_COMPILER=x86_64-w64-mingw32ucrt-g++)

# build_with_cmake SOURCES BUILD OPTION...: as somebody who has the package and no checkout.
build_with_cmake() {
  local sources=$1 to=$2
  shift 2
  cmake -G Ninja -S "$sources" -B "$to" -DCMAKE_PREFIX_PATH="$package" "$@" >"$to.log" 2>&1 && cmake --build "$to" >>"$to.log" 2>&1 ||
    failed "cannot be built:" "$(cat "$to.log")"
}

wine() { "$scripts/wine.sh" "$@"; }
qela() { wine "$package/bin/qela.exe" "$@"; }

# start_host COMMAND...: runs it with a standard input that stays open; what it prints is read with next_line.
start_host() {
  host_folder=$(mktemp -d)
  mkfifo "$host_folder/in" "$host_folder/out"
  "$@" <"$host_folder/in" >"$host_folder/out" &
  host=$!
  exec 4>"$host_folder/in" 3<"$host_folder/out"
}
# next_line TEXT: the host's next line is this.
next_line() {
  local line
  IFS= read -r -t 20 line <&3 || failed "no line within 20 seconds; expected: $1"
  expect "${line%$'\r'}" "$1"
}
# end_host: ends its input; it must end well and have said nothing more.
end_host() {
  exec 4>&-
  local rest
  rest=$(cat <&3)
  expect "$rest" ''
  wait "$host" || failed "the host ended with exit code $?"
  exec 3<&-
  rm -r "$host_folder"
}
