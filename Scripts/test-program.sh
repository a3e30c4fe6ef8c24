#!/bin/bash
# Runs a test program under Wine. GoogleTest keeps a file for as long as its tests run: a program that ended before they did has
# failed, whatever its exit code. A thread that ends for want of memory takes the process along with the code 0.
file=$(mktemp -u)
TEST_PREMATURE_EXIT_FILE=Z:$file "$(dirname "$0")/wine.sh" "$@"
code=$?
if [ -e "$file" ]; then
  rm "$file"
  echo "the program ended in the middle of a test, with exit code $code" >&2
  exit 1
fi
exit "$code"
