# The sample that calls every function, from a compiler of the other ABI. Sourced.

# build_other_abi PACKAGE FOLDER [VERSION]: FOLDER/every_function.exe, with no headers but the compiler's own, and linked with
# the .lib. FOLDER holds other_abi_start.c; VERSION ends the names of the tools. An import library for the C run time is made
# here, because the system's own comes with Windows' compilers only.
build_other_abi() {
  local package=$1 folder=$2 version=${3:-} headers source
  headers=$(clang"$version" -print-resource-dir)/include
  printf 'LIBRARY ucrtbase.dll\nEXPORTS\nexit\nmemcpy\nmemset\nputs\n' >"$folder/ucrtbase.def"
  for source in "$package/samples/every_function.c" "$folder/other_abi_start.c"; do
    clang"$version" --target=x86_64-pc-windows-msvc -std=c99 -Wall -Wextra -Wpedantic -Werror -O2 -ffreestanding -nostdinc -isystem "$headers" \
      -I"$package/include" -c "$source" -o "$folder/$(basename "$source" .c).obj"
  done
  llvm-dlltool"$version" -m i386:x86-64 -d "$folder/ucrtbase.def" -l "$folder/ucrtbase.lib"
  lld-link"$version" /nodefaultlib /entry:start /subsystem:console /out:"$folder/every_function.exe" "$folder/every_function.obj" \
    "$folder/other_abi_start.obj" "$package/lib/QeLaC.lib" "$folder/ucrtbase.lib"
}
