#!/bin/bash
# What ./dev does inside the toolchain's root, where the checkout is /src.
set -euo pipefail
cd /src
. Scripts/common.sh
command=$1
shift
preset=mingw-release

# build [TARGET...]: everything, or these targets and what they need.
build() {
  say "configuring ($preset)"
  cmake --preset "$preset" >build/configure.log 2>&1 || { cat build/configure.log >&2; exit 1; }
  say "building"
  cmake --build --preset "$preset" ${1:+--target "$@"} || exit 1
}

# make_package [--verify]: the zip for hosts; with --verify it has to become the same from a copy of the sources.
make_package() {
  build shipped
  Scripts/package.sh "$PWD/build/$preset" "$PWD/build/$preset/package"
  [ "${1:-}" != --verify ] || Scripts/verify-package.sh "$PWD"/build/"$preset"/package/*.zip || exit 1
}

case $command in
  build) build ;;
  test)
    if [ "${1:-}" = --debug ]; then
      shift
      preset=mingw-debug
    fi
    build
    say "testing"
    # The whole set shares processes where tests leave nothing behind; what is chosen runs one test a process.
    [ $# -gt 0 ] || set -- -C WholeSet -LE '^alone$'
    Scripts/lab.sh ctest --preset "$preset" "$@" || exit 1
    ;;
  demo)
    build qela
    say "starting the private network"
    Scripts/lab.sh --own-network Scripts/demo.sh "build/$preset" || exit 1
    ;;
  bench)
    build QeLaBench >&2 # standard output is the report's
    say "measuring"
    Scripts/lab.sh --own-network Scripts/bench.sh "build/$preset/bin" "$@"
    ;;
  package)
    if [ "${1:-}" = --tests ]; then
      build
      Scripts/package-tests.sh "$PWD/build/$preset"
    else
      make_package "$@"
    fi
    ;;
  image)
    build
    say "testing"
    Scripts/lab.sh ctest --preset "$preset" -R '(Image|Secrets)[.]|Package.Contents' || exit 1
    make_package --verify
    ;;
  torture)
    build ContractTests KitTests >&2
    say "failing imports"
    Scripts/lab.sh Scripts/torture.sh "build/$preset/bin" "$@" || exit
    ;;
  fuzz)
    build FuzzTests >&2
    Scripts/lab.sh Scripts/fuzz.sh "build/$preset/bin" "$@" || exit
    ;;
  soak)
    build SoakTests >&2
    Scripts/soak.sh "build/$preset/bin" "$@" || exit
    ;;
  coverage) Scripts/coverage.sh || exit 1 ;;
  mutate) Scripts/mutate.sh "$@" || exit ;;
  check) Scripts/check.sh || exit 1 ;;
  format) cpp_sources | xargs -0 clang-format-19 -i ;;
  debug)
    preset=mingw-debug
    build
    flock -u 8 # ./dev's lock of the checkout: the debugger may stay open
    Scripts/lab.sh Scripts/debug.sh "$preset" "$@"
    ;;
  shell) Scripts/lab.sh --own-network Scripts/shell.sh "$@" ;;
esac
