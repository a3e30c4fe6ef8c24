#!/bin/bash
# ./dev check, inside the toolchain's root. Every step runs; it fails when any found something.
set -uo pipefail
. "$(dirname "$0")/common.sh"
. "$kSource/Scripts/toolchain.sh"
cd "$kSource" || exit 1
failed=0

say "format"
cpp_sources | xargs -0 clang-format-19 --dry-run -Werror || failed=1

say "guards"
Scripts/check-quirks.sh || failed=1

say "scripts"
shell_sources | xargs -0 shellcheck || failed=1

say "toolchain"
tell_drift ""
for package in "${kPackages[@]}" "${kHeaderPackages[@]}" "${kSourcePackages[@]/#/src:}"; do
  for name in $package; do
    grep -q "^$name " "$kLock" || { say "Scripts/toolchain.lock does not name $name, which the recipe asks for: run ./dev lock"; failed=1; }
  done
done

# What ships has to build with it. Its warnings about the tests are clang-tidy's to tell.
say "second compiler"
cmake --preset clang-check >build/configure-clang.log 2>&1 || { cat build/configure-clang.log >&2; exit 1; }
cmake --build --preset clang-check --target QeLaLib QeLaC qela -- -k 0 || failed=1

say "clang-tidy"
# The compile commands of the second compiler: clang-tidy understands them as they are. A source is passed over when it
# was found clean with the same settings and the same headers of ours. Samples are built from the package alone, and
# Tests/Fuzz/Native for the building machine, so that nothing here knows how to compile them.
mkdir -p build/tidy
# Of the toolchain, the versions of clang-tidy and of what our sources include.
settings=$({
  clang-tidy-19 --version
  cat .clang-tidy cmake/ProjectOptions.cmake cmake/*-ucrt64.cmake
  headers=${kHeaderPackages[*]}
  grep -E "^(clang-tidy|libclang-cpp|libclang-common|libllvm|src:|[^ ]*mingw-w64)|^(${headers// /|}) " "$kLock"
} | sha256sum)
# with_headers: for each source a line of its name and those of the headers that it includes, directly or not. A header
# is known by its last name, so that a line may name too many, and never too few.
with_headers() {
  cpp_sources | grep -zvE '^(Samples|Tests/Fuzz/Native)/' | xargs -0 awk '
    FNR == 1 { name = FILENAME; sub(".*/", "", name); files[name] = files[name] " " FILENAME; if (FILENAME ~ /cpp$/) sources[FILENAME] }
    /^#include/ { sub(/[">]$/, "", $2); sub(/.*[\/<"]/, "", $2); includes[FILENAME] = includes[FILENAME] " " $2 }
    END {
      for (source in sources) {
        split("", seen)
        line = ""
        queue = source
        while (queue != "") {
          split(queue, now)
          queue = ""
          for (i in now) {
            if (now[i] in seen) continue
            seen[now[i]]
            line = line " " now[i]
            count = split(includes[now[i]], names)
            for (j = 1; j <= count; ++j) queue = queue files[names[j]]
          }
        }
        print substr(line, 2)
      }
    }' | sort
}
# tidy "SOURCE HEADER...": what it says comes at once, so that two that run side by side do not mix.
tidy() {
  local files key said
  read -ra files <<<"$1"
  key=$(cat "${files[@]}" "${files[0]%%/*}/.clang-tidy" - <<<"$settings" 2>/dev/null | sha256sum | cut -c1-40)
  [ ! -e "build/tidy/$key" ] || return 0
  if said=$(clang-tidy-19 --quiet -p build/clang-check "${files[0]}" 2>&1); then
    touch "build/tidy/$key"
  else
    grep -vE '^[0-9]+ warnings? (and [0-9]+ errors? )?generated|^Suppressed ' <<<"$said"
    return 1
  fi
}
export -f tidy
export settings
with_headers | tr '\n' '\0' | xargs -0 -n1 -P"$(nproc)" bash -c 'tidy "$0"' >&2 || failed=1

if [ "$failed" -eq 0 ]; then say "clean"; else say "something was found (see above)"; fi
exit "$failed"
