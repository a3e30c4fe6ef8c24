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
cmake --build --preset clang-check --target QeLaLib qela -- -k 0 || failed=1

say "clang-tidy"
# The compile commands of the second compiler: clang-tidy understands them as they are. A source is passed over when it
# was found clean with the same settings and the same headers, of which any counts for every source.
mkdir -p build/tidy
common=$({
  clang-tidy-19 --version
  cat .clang-tidy ./*/.clang-tidy cmake/*.cmake
  cpp_sources | grep -z '\.h$' | xargs -0 cat
} | sha256sum)
# tidy SOURCE: what it says comes at once, so that two that run side by side do not mix.
tidy() {
  local key said
  key=$(cat "$1" - <<<"$common" | sha256sum | cut -c1-40)
  [ ! -e "build/tidy/$key" ] || return 0
  if said=$(clang-tidy-19 --quiet -p build/clang-check "$1" 2>&1); then
    touch "build/tidy/$key"
  else
    grep -vE '^[0-9]+ warnings? (and [0-9]+ errors? )?generated|^Suppressed ' <<<"$said"
    return 1
  fi
}
export -f tidy
export common
cpp_sources | grep -z '\.cpp$' | xargs -0 -n1 -P"$(nproc)" bash -c 'tidy "$0"' >&2 || failed=1

if [ "$failed" -eq 0 ]; then say "clean"; else say "something was found (see above)"; fi
exit "$failed"
