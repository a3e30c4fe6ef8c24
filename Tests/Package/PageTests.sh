#!/bin/bash
# The page for hosts, and the README: what they show can be built as it stands. Files of one section lie in one folder; where one of them
# is CMakeLists.txt it is built, else each is compiled.
. "$(dirname "$0")/package.sh"
. "$(dirname "$0")/code-blocks.sh"
folder=$unpacked/page
rm -rf "$folder"
mkdir "$folder"
page=$unpacked/pages.md
cat "$package"/docs/{hosting,README}.md >"$page"

it "names a file for every block of code"
expect "$(grep -n '^```[a-z]' "$page" | grep -vE '```(c|cpp|cmake) [A-Za-z_]+\.[a-z]+$')" ''
code_blocks "$page" "$folder"
[ "$(find "$folder" -type f | wc -l)" = "$(grep -cE '^```(c|cpp|cmake) ' "$page")" ] || failed "two blocks of a section have one name"

for section in "$folder"/*; do
  name=page/${section##*/}
  it "builds $(cd "$section" && echo *)"
  if [ -e "$section/CMakeLists.txt" ]; then
    build_with_cmake "$name" "$name/build"
  else
    for file in "$section"/*; do
      compiler=(x86_64-w64-mingw32ucrt-gcc -std=c99)
      [[ $file = *.c ]] || compiler=(x86_64-w64-mingw32ucrt-g++ -std=c++20)
      answer elsewhere "${compiler[@]}" -Wall -Wextra -Werror -Ipackage/include -c "$name/${file##*/}" -o /dev/null
      expect_answer 0 '' ''
    done
  fi
done
