#!/bin/bash
# ./dev check, inside the toolchain's root: format, the tests that documents name, the second compiler's warnings,
# clang-tidy. Runs all of them and fails when any found something.
set -uo pipefail
cd /src
failed=0
. Scripts/common.sh

say "format"
cpp_sources | xargs -0 clang-format-19 --dry-run -Werror || failed=1

say "guards"
Scripts/check-quirks.sh || failed=1

say "second compiler"
cmake --preset clang-check >build/configure-clang.log 2>&1 || { cat build/configure-clang.log >&2; exit 1; }
cmake --build --preset clang-check -- -k 0 || failed=1

say "clang-tidy"
# The compile commands of the second compiler: clang-tidy understands them as they are. Sources that are unchanged since
# they were last found clean are passed over; headers and settings count, through the preprocessed text.
mkdir -p build/tidy
tidy() {
  local source=$1 key
  key=$( { clang-tidy-19 --version; cat .clang-tidy; sha256sum "$source"; find FwClient HostStandIns ScriptedWindows Tools Tests Bench -name '*.h' -print0 | sort -z | xargs -0 cat; } | sha256sum | cut -c1-40)
  [ -e "build/tidy/$key" ] && return 0
  clang-tidy-19 --quiet -p build/clang-check "$source" 2>/dev/null || return 1
  touch "build/tidy/$key"
}
export -f tidy
find FwClient HostStandIns Tools -name '*.cpp' -print0 | sort -z | xargs -0 -n1 -P"$(nproc)" bash -c 'tidy "$0"' || failed=1

[ "$failed" -eq 0 ] && say "clean" || say "something was found (see above)"
exit "$failed"
