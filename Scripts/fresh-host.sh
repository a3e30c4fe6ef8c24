#!/bin/bash
# Inside a plain Debian: unpacks the zip that lies in the home folder, follows its page for hosts, and runs what was built.
# Prints a line for each try, and behind one that failed what it said; exits 1 where one failed.
# usage: fresh-host.sh RELEASE
# shellcheck disable=SC1091 # what is sourced lies there beside this
set -euo pipefail
release=$1
cd "$HOME"
tools=$HOME/tools
. "$tools/vocabulary.sh"
. "$tools/hosts.sh"
. "$tools/code-blocks.sh"
. "$tools/other-abi.sh"
. "$tools/wine-machine.sh"
package=$HOME/package
page=$package/docs/hosting.md
failures=0

# try NAME FUNCTION: in a shell of its own, which ends at the first thing that is not as expected.
try() {
  sentence=$1
  (set -euo pipefail && "$2") >try.log 2>&1 </dev/null &
  if wait $!; then
    printf 'Debian %s: %s: ok\n' "$release" "$1"
  else
    printf 'Debian %s: %s: FAILED\n' "$release" "$1"
    sed 's/^/    /' try.log
    failures=$((failures + 1))
  fi
}

wine() { bash "$tools/wine.sh" "$@"; }

# The compilers of Debian 12 have other names than the page's, and no UCRT, so that the C++ interface is not for them.
for_this_release() { if [ "$release" = 12 ]; then sed 's/mingw32ucrt/mingw32/g'; else cat; fi; }
reason="QeLaApi.h: standard C++ types cross the library's border, so its host needs its run time: the UCRT and libstdc++ with its newer strings."
# The lines of the page that build the samples, and what it has every other project's configuration be told.
page_commands() { awk '/^    cmake -S samples / {inside = 1} inside && !/^    / {exit} inside {print substr($0, 5)}' "$page" | for_this_release; }
page_options() { page_commands | grep -oE -- '-DCMAKE_(SYSTEM_NAME|C_COMPILER|CXX_COMPILER)=[^ ]+'; }

unpack() {
  unzip -q ./*.zip
  mv QeLaLib-*/ package
  (cd package && sha256sum --quiet -c SHA256SUMS)
}

samples() {
  local commands
  commands=$(page_commands)
  [[ $commands == cmake*go\ build* ]] || failed "the page no longer shows how to build the samples"
  answer bash -euo pipefail -c "cd $package && $commands"
  expect_code 0
  [[ $out$err != *arning* ]] || not_answered "expected no warning"
  if [ "$release" = 12 ]; then
    expect_out "The samples in C++ are left out. $reason"
  else
    [ -e "$package/build/cxx_host.exe" ] || failed "the samples in C++ were not built"
  fi
}

# page_project LANGUAGE: the folder of the page's own project in it, written anew.
page_project() {
  rm -rf "page-$1"
  mkdir "page-$1"
  code_blocks "$page" "page-$1"
  dirname "$(grep -l "LANGUAGES $1)" "page-$1"/*/CMakeLists.txt)"
}

# configure FOLDER: as the page says.
configure() {
  local options
  mapfile -t options < <(page_options)
  answer cmake -S "$1" -B "$1/build" -DCMAKE_PREFIX_PATH="$package" "${options[@]}"
}

# page_host LANGUAGE LINE: builds it and runs it; the line is what it prints.
page_host() {
  local folder
  folder=$(page_project "$1")
  configure "$folder"
  expect_code 0
  answer cmake --build "$folder/build"
  expect_code 0
  host "$folder/build/my_host.exe" "$2"
}

# host PROGRAM LINE: runs one that prints the line and stays until its input ends.
host() {
  start_host wine "$1"
  next_line "$2"
  end_host
}

start_wine() {
  mkdir .wine # else the server, which comes first, finds no prefix
  start_machine
}
add_location() { wine package/bin/qela.exe location add Office --gateway 10.20.0.1; }
c_page() { page_host C "current locations: 1"; }
cxx_page() { page_host CXX Office; }
cxx_refused() {
  configure "$(page_project CXX)"
  [ "$code" -ne 0 ] || not_answered "expected a refusal"
  err=$(tr -s ' \n' ' ' <<<"$err") # CMake breaks long messages into lines
  expect_err "$reason"
}
c_host() { host package/build/c_host.exe "current: Office"; }
cxx_host() { host package/build/cxx_host.exe "current: Office"; }
go_host() { host package/build/host.exe "current: Office"; }
host_test() {
  answer wine package/build/host_test.exe
  expect "$code ${out%$'\r'}" "0 passed: the machine joins the office, the host swaps its rules"
}
# every_function [FOLDER]: its exit code says all; its output is not flushed, and Wine may lose it (Docs/quirks.md).
every_function() {
  answer wine "${1:-package/build}/every_function.exe"
  expect_code 0
}
other_abi() {
  mkdir other-abi
  cp "$tools"/other_abi_start.c package/bin/*.dll other-abi/
  build_other_abi package other-abi
  every_function other-abi
}
service() {
  local compiler
  compiler=$(page_options | sed -n 's/^-DCMAKE_C_COMPILER=//p')
  "$compiler" -municode -o control_service.exe "$tools/control_service.c" -ladvapi32
  wine sc create QeLaSample binPath= "$(wine winepath -w package/build/service.exe | tr -d '\r')"
  wine sc start QeLaSample
  wine control_service.exe QeLaSample running
  wine control_service.exe QeLaSample stop
}

try "the zip is unpacked, and holds what its checksums name" unpack
try "the samples are built, without a warning" samples
try "Wine starts" start_wine
try "qela adds a location" add_location
try "the page's host in C" c_page
try "samples/c_host.c" c_host
try "samples/go/host.go" go_host
try "samples/service.c" service
try "samples/every_function.c" every_function
try "samples/every_function.c, by a compiler of the other ABI" other_abi
if [ "$release" = 12 ]; then
  try "the page's host in C++ is refused with the reason" cxx_refused
else
  try "the page's host in C++" cxx_page
  try "samples/cxx_host.cpp" cxx_host
  try "samples/host_test.cpp" host_test
fi
[ "$failures" -eq 0 ]
