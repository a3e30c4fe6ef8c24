#!/bin/bash
# The C interface from a compiler of the other ABI: another calling convention for C++, another layout of its types, another
# linker, another run time. What works there is plain C.
. "$(dirname "$0")/package.sh"
. "$(dirname "$0")/other-abi.sh"
sample=$package/samples/every_function.c

it "has a sample that calls every function of the header"
expect "$(grep -oE '\bqela_[a-z_]+\(' "$sample" | sort -u)" "$(grep -oE 'QELA_CALL qela_[a-z_]+\(' "$package/include/qela.h" | sed 's/.* //' | sort)"

it "builds it with no headers but the compiler's own, and links it with the .lib"
work=$unpacked/other-abi
mkdir -p "$work"
cp "$tests/other_abi_start.c" "$package"/bin/*.dll "$work/"
export -f build_other_abi
elsewhere /bin/bash -euc 'build_other_abi package other-abi -19' >"$work/log" 2>&1 || failed "cannot be built:" "$(<"$work/log")"

it "runs it"
set_dns_suffix lab.test
add_adapter wifi0
join_network wifi0 10.20.0.15/24 10.20.0.1
answer wine "$work/every_function.exe"
expect_code 0 # which says all: its output is not flushed, and Wine may lose it (Docs/quirks.md)
