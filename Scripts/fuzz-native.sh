#!/bin/bash
# The targets whose units need no Windows, built for this machine with Clang's checks of addresses and of undefined
# behaviour and its fuzzer. Inside the toolchain's root, from the checkout.
# usage: fuzz-native.sh SECONDS [TARGET...]
# The targets share the time, and run two at a time. What is found lies in build/fuzz, and what repeats it is told. With
# --replay instead of the seconds the inputs of Tests/Fuzz/Corpus are run once each.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$kSource"
seconds=${1:?the seconds, or --replay}
shift
build=build/native-fuzz
programs=$build/targets
finds=build/fuzz

# Leaks are looked for at the end of each program, too.
export ASAN_OPTIONS=quarantine_size_mb=32:allocator_may_return_null=1:detect_stack_use_after_return=0
export UBSAN_OPTIONS=print_stacktrace=1

say "building the targets for this machine"
cmake -S Tests/Fuzz/Native -B "$build" -G Ninja -DCMAKE_CXX_COMPILER=clang++-19 -DCMAKE_CXX_COMPILER_LAUNCHER=ccache \
  >"$build.log" 2>&1 || { cat "$build.log" >&2; exit 1; }
cmake --build "$build" >>"$build.log" 2>&1 || { tail -n 40 "$build.log" >&2; exit 1; }

mkdir -p "$programs" "$finds"
rm -f "$programs"/*
for program in "$build"/*Target; do
  while read -r name; do ln "$program" "$programs/$name"; done < <("$program" --targets)
done
# Of those that are asked for, the ones that there are.
mapfile -t targets < <(cd "$programs" && if [ $# -gt 0 ]; then ls "$@" 2>/dev/null; else ls; fi)
[ ${#targets[@]} -gt 0 ] || { say "none of them can be built for this machine"; exit 0; }

# run TARGET: its report goes to a file of its own.
run() {
  local target=$1 corpus=build/fuzz/corpus-$1 seeds=Tests/Fuzz/Corpus/$1 log=$build/$1.log options status=0
  mkdir -p "$corpus" "$seeds"
  options=(-max_len=2000 -timeout=20 -rss_limit_mb=2500 -print_final_stats=1 -reload=0 "-artifact_prefix=$finds/$target-")
  "$programs/$target" --tokens >"$build/$target.dict"
  if [ "$seconds" = --replay ]; then
    options+=(-runs=0 "$seeds")
  else
    options+=("-max_total_time=$share" "-dict=$build/$target.dict" "$corpus" "$seeds")
  fi
  "$programs/$target" "${options[@]}" >"$log" 2>&1 || status=$?
  awk -v target="$target" '
    /stat::number_of_executed_units/ {inputs = $2}
    /stat::average_exec_per_sec/ {rate = $2}
    /stat::slowest_unit_time_sec/ {slowest = $2}
    END {printf "%-18s %12d inputs %8d a second, slowest %d s\n", target, inputs, rate, slowest}' "$log"
  [ "$status" -eq 0 ] || {
    grep -m3 -E '^fuzz: |ERROR: |runtime error: ' "$log" >&2 || true
    local find
    find=$(sed -n 's/.*Test unit written to //p' "$log" | tail -n 1)
    printf '%s fails%s; its report is %s\n' "$target" \
      "${find:+. To repeat it: ./dev shell -c '$programs/$target $find'}" "$log" >&2
    return 1
  }
}

share=0
if [ "$seconds" = --replay ]; then
  say "running the corpora of ${#targets[@]} targets"
else
  share=$((seconds * 2 / ${#targets[@]}))
  [ "$share" -gt 0 ] || share=1
  say "running ${#targets[@]} targets, $share s each"
fi
export -f run
export build programs finds seconds share
printf '%s\0' "${targets[@]}" | xargs -0 -P2 -I{} bash -c 'run {}' || exit 1
