#!/bin/bash
# What somebody reads whose compiler does not do for the C++ interface.
. "$(dirname "$0")/package.sh"

border="QeLaApi.h: standard C++ types cross the library's border"
other_compiler="$border, so its host needs its compiler, MinGW-w64 for x86-64. Other hosts include qela.h."
other_run_time="$border, so its host needs its run time: the UCRT and libstdc++ with its newer strings."
debug_mode="$border, and those of the debug mode are others. Compile without _GLIBCXX_DEBUG."

# compile COMPILER...: the header, which must be refused.
echo '#include <QeLaApi.h>' >"$unpacked/refused.cpp"
compile() {
  answer elsewhere "$@" -std=c++20 -Ipackage/include -fsyntax-only refused.cpp
  [ "$code" -ne 0 ] || failed "compiled all the same: $*"
}

it "refuses another compiler with a sentence"
compile clang++-19 --target=x86_64-pc-windows-msvc
expect_err "$other_compiler"

it "refuses another run time with a sentence"
compile x86_64-w64-mingw32ucrt-g++ -D_GLIBCXX_USE_CXX11_ABI=0
expect_err "$other_run_time"

it "refuses the debug mode with a sentence"
compile x86_64-w64-mingw32ucrt-g++ -D_GLIBCXX_DEBUG
expect_err "$debug_mode"

# project LANGUAGES COMPONENTS: one that asks for the package.
project() {
  rm -rf "$unpacked"/find{,-build}
  mkdir "$unpacked/find"
  printf '%s\n' 'cmake_minimum_required(VERSION 3.25)' "project(Host LANGUAGES $1)" "find_package(QeLaLib REQUIRED $2)" >"$unpacked/find/CMakeLists.txt"
}
# CMake breaks long messages into lines.
configure() {
  answer configure_with_cmake find find-build "$@"
  err=$(tr -s ' \n' ' ' <<<"$err")
}

it "says the same where the package is looked for"
project CXX 'COMPONENTS Cxx'
configure -DCMAKE_CXX_FLAGS=-D_GLIBCXX_DEBUG
expect_code 1
expect_err "$debug_mode"

it "looks again once the compiler does"
configure -DCMAKE_CXX_FLAGS=
expect_code 0

it "says so where a project has no C++"
project C 'COMPONENTS C Cxx'
configure
expect_code 1
expect_err "QeLaLib::Cxx needs the language CXX"

it "refuses an unknown component by name"
project C 'COMPONENTS C Rust'
configure
expect_code 1
expect_err "no component Rust"

it "does with C alone, and takes the C++ interface where it can have it"
project C ''
configure
expect_code 0
project C 'COMPONENTS C OPTIONAL_COMPONENTS Cxx'
configure
expect_code 0

it "keeps the reason for a project that could do with the C++ interface"
# shellcheck disable=SC2016 # CMake's
echo 'message(STATUS "${QeLaLib_Cxx_NOT_FOUND_MESSAGE}")' >>"$unpacked/find/CMakeLists.txt"
configure
expect_code 0
expect_out "QeLaLib::Cxx needs the language CXX"
