#!/bin/sh
# Writes the source of a library that imports what another one imports, and does nothing.
# usage: imports.sh OBJDUMP LIBRARY
set -e
"$1" -p "$2" | awk '
  $2 == "<none>" && NF >= 4 { name[count++] = $4 }
  END {
    if (count == 0) exit 1
    print "extern \"C\" {"
    for (i = 0; i < count; ++i) printf "extern void* import%d __asm__(\"__imp_%s\");\n", i, name[i]
    print "extern __declspec(dllexport) void** const imports[];"
    print "void** const imports[] = {"
    for (i = 0; i < count; ++i) printf "    &import%d,\n", i
    print "};\n}"
  }'
