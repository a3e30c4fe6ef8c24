#!/bin/bash
# The C interface from a compiler of the other ABI: another calling convention for C++, another layout of its types, another
# linker, another run time. What works there is plain C.
. "$(dirname "$0")/package.sh"
sample=$package/samples/every_function.c

it "has a sample that calls every function of the header"
expect "$(grep -oE '\bqela_[a-z_]+\(' "$sample" | sort -u)" "$(grep -oE 'QELA_CALL qela_[a-z_]+\(' "$package/include/qela.h" | sed 's/.* //' | sort)"

it "builds it with no headers but the compiler's own, and links it with the .lib"
work=$unpacked/other-abi
mkdir -p "$work"
cp "$tests/other_abi_start.c" "$package"/bin/*.dll "$work/"
printf 'LIBRARY ucrtbase.dll\nEXPORTS\nexit\nmemcpy\nmemset\nputs\n' >"$work/ucrtbase.def"
build_other_abi() {
  local headers source
  headers=$(clang-19 -print-resource-dir)/include
  for source in package/samples/every_function.c other-abi/other_abi_start.c; do
    clang-19 --target=x86_64-pc-windows-msvc -std=c99 -Wall -Wextra -Wpedantic -Werror -O2 -ffreestanding -nostdinc -isystem "$headers" \
      -Ipackage/include -c "$source" -o "other-abi/$(basename "$source" .c).obj"
  done
  llvm-dlltool-19 -m i386:x86-64 -d other-abi/ucrtbase.def -l other-abi/ucrtbase.lib
  lld-link-19 /nodefaultlib /entry:start /subsystem:console /out:other-abi/every_function.exe other-abi/every_function.obj \
    other-abi/other_abi_start.obj package/lib/QeLaC.lib other-abi/ucrtbase.lib
}
export -f build_other_abi
elsewhere /bin/bash -euc build_other_abi >"$work/log" 2>&1 || failed "cannot be built:" "$(<"$work/log")"

it "runs it"
set_dns_suffix lab.test
add_adapter wifi0
join_network wifi0 10.20.0.15/24 10.20.0.1
answer wine "$work/every_function.exe"
expect "$code ${out%$'\r'}" "0 every function was called"
