#!/bin/bash
# The compiler's own reader of counters, without the branches that only an exception leads to and none has been led to: they are
# what the compiler itself adds to each statement, to destroy what was made half. Called by gcovr, in a folder of its own.
x86_64-w64-mingw32ucrt-gcov "$@"
code=$?
shopt -s nullglob
for file in *.gcov; do
  # A block that is only reached so, and was not, has dollars for its count.
  awk '/^ *[^:]+: *[0-9]+:/ { cleans = 0 }
    /-block +[0-9]+$/ { cleans = /^ *\$\$\$\$\$:/ }
    !(cleans && /^branch .* never executed/)' "$file" >"$file.new" && mv "$file.new" "$file"
done
exit "$code"
