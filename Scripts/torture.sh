#!/bin/bash
# Fails every call of every function that the library and the kit import, one after the other, in every scene that there is. ./dev reads the command
# line with what stands here, too: what is wrong with it is told before minutes go into the toolchain.
# usage: lab.sh torture.sh FOLDER_OF_PROGRAMS [ARGUMENT...]
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

torture_usage() {
  cat <<'TEXT'
usage: ./dev torture [--scene NAME] [--import NAME[:CALL[:once|on[:ERROR]]]] [--list]

Runs scenes (first calls, edits, a calculation, discovery, loading, ...) again and again, and in each run lets one call
of one imported function fail: each call, once and from then on, with each error that is realistic for the function.
In and after each run nothing crashes, hangs, leaks or answers what it should not, and the next run is as it should be.

  --scene NAME    only the scenes whose name has this in it
  --import NAME   only this function ("memory" is malloc, calloc, realloc, _strdup and HeapAlloc together), or:
    NAME:CALL     only its call of that number;  NAME:CALL:once  only that one, without those that follow, or
    NAME:CALL:on  that one and all that follow;  NAME:CALL:once:ERROR  only with that error (or result, without one)
  --list          the scenes, and how often each calls each function; nothing fails

Each failure is shown with the command that repeats it. All of it takes about ten minutes on two processors.
Exit codes: 0 all went well; 1 something failed; 2 the command line is wrong.
TEXT
}

# read_torture_line [ARGUMENT...]: sets scene, import and list. Help ends the script, and so does misuse.
read_torture_line() {
  scene='' import='' list=false
  while [ $# -gt 0 ]; do
    case $1 in
      --help | -h) torture_usage; exit 0 ;;
      --list) list=true ;;
      --scene | --import)
        [[ ${2:---} != --* ]] || misuse "./dev torture $1 needs a name; ./dev torture --list shows them"
        if [ "$1" = --scene ]; then scene=$2; else import=$2; fi
        shift
        ;;
      *) misuse "./dev torture does not know $1; ./dev torture --help tells what it knows" ;;
    esac
    shift
  done
  [ -z "$import" ] || [[ $import =~ ^[A-Za-z_][A-Za-z0-9_]*(:[1-9][0-9]{0,8}(:(once|on)(:-?[0-9]{1,18})?)?)?$ ]] ||
    misuse "./dev torture --import takes NAME[:CALL[:once|on[:ERROR]]], where CALL counts from 1; here is: $import"
  [ -z "$import" ] || ! $list || misuse "./dev torture --list lists all functions; leave --import out"
}

[ "${BASH_SOURCE[0]}" = "$0" ] || return 0
bin=$1
shift
read_torture_line "$@"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# scenes PROGRAM: those that it has, as GoogleTest names them.
scenes() {
  Scripts/wine.sh "$bin/$1.exe" --gtest_list_tests --gtest_filter='*EveryImport.Fails*' | tr -d '\r' |
    awk -v program="$1" '/^[^ ]+EveryImport\./ {suite = $1} /^  / {print program, suite $1}'
}
{ scenes ContractTests; scenes KitTests; } >"$work/all"
# The longest go first, for the sake of the other processor.
{ grep Discovery "$work/all"; grep -v Discovery "$work/all"; } | grep -iF -- "$scene" >"$work/chosen" ||
  misuse "no scene has \"$scene\" in its name; there are:
$(cut -d' ' -f2 "$work/all")"

# run PROGRAM SCENE PART
run() {
  local code=0 start=$SECONDS file=$work/$2.${3%/*}
  TORTURE_ONLY=$import TORTURE_CALLS=$($list && echo 0 || echo all) TORTURE_PART=$3 TORTURE_REPORT=Z:$file.report \
    Scripts/test-program.sh "$bin/$1.exe" --gtest_filter="$2" >"$file.log" 2>&1 || code=$?
  $list || say "$2${3:+ (part ${3/\// of })}: $([ "$code" = 0 ] && echo passed || echo FAILED) after $((SECONDS - start)) s"
  echo "$code" >"$file.code"
}
# Discovery takes as long as all others, and waits for most of it.
while read -r program name; do
  parts=('')
  if [[ $name = *Library*Discovery* ]] && ! $list && [[ $import != *:* ]]; then parts=({1..6}/6); fi
  for part in "${parts[@]}"; do
    [ "$(jobs -rp | wc -l)" -lt $(($(nproc) + 2)) ] || wait -n
    run "$program" "$name" "$part" </dev/null &
  done
done <"$work/chosen"
wait

failed=()
while read -r _ name; do
  cat "$work/$name".*report >"$work/$name.all" 2>/dev/null || true
  if grep -qvx 0 "$work/$name".*code; then failed+=("$name"); fi
done <"$work/chosen"
for name in "${failed[@]}"; do
  printf '\n%s:\n' "$name"
  grep -hv '^\[\|^ *$\|^Running\|^Note:' "$work/$name".*log | head -n 200
done

# One call alone, of which there may be none.
if [ -n "$import" ] && [ ${#failed[@]} = 0 ]; then
  cat "$work"/*.all | awk -F'\t' -v name="${import%%:*}" '$2 == name' >"$work/only"
  [ -s "$work/only" ] || misuse "the chosen scenes' modules do not import ${import%%:*}; ./dev torture --list shows what they do"
  if ! awk -F'\t' '$4 > 0 {put = 1} END {exit !put}' "$work/only"; then
    misuse "${import%%:*} has no such failure in the chosen scenes: $(cut -f6 "$work/only" | sort -u | paste -sd ' ')"
  fi
  if ! awk -F'\t' '$5 > 0 {reached = 1} END {exit !reached}' "$work/only"; then
    misuse "no chosen scene comes to that call of ${import%%:*}; the most that one makes are $(cut -f3 "$work/only" | sort -n | tail -n 1)"
  fi
fi

# A table for each module: its imports, the calls in each scene, what was put in.
table() { # MODULE SUITE
  local names=() name
  mapfile -t names < <(cut -d' ' -f2 "$work/chosen" | grep "^$2\.")
  [ ${#names[@]} -gt 0 ] || return 0
  printf '\n%s, by scene:\n' "$1"
  local letter=65 reports=()
  for name in "${names[@]}"; do
    printf "  %b  %s\n" "\\x$(printf %x $letter)" "${name#*.}"
    letter=$((letter + 1))
    reports+=("$work/$name.all")
  done
  awk -F'\t' -v list="$list" -v import="$import" '
    FNR == 1 {++scene}
    !($2 in known) {known[$2]; names[++count] = $2}
    {
      calls[$2, scene] = $3
      called[$2] += $3
      putIn[$2] += $4
      reached[$2] += $5
      if ($3 > 0 && length($6) > length(told[$2])) told[$2] = $6
      if ($6 ~ /^-?[0-9]/) can[$2] = 1
      if ($7 == "failed") bad[$2] = 1
    }
    END {
      printf "%-32s", "import"
      for (i = 1; i <= scene; ++i) printf "%8c", 64 + i
      print list == "true" ? "  errors" : "  failures  missed  result  errors"
      for (pass = 1; pass <= 2; ++pass)
        for (n = 1; n <= count; ++n) {
          name = names[n]
          if (!called[name] || (pass == 1) != (name in can) || (import && !putIn[name])) continue
          printf "%-32s", substr(name, 1, 31)
          for (i = 1; i <= scene; ++i) printf "%8s", calls[name, i]
          if (list != "true" && pass == 1)
            printf "  %8d  %6d  %6s", reached[name], putIn[name] - reached[name], bad[name] ? "FAILED" : "ok"
          else if (list != "true") printf "%26s", ""
          print "  " told[name]
        }
      for (n = 1; n <= count; ++n) if (!called[names[n]]) {++others; line = line " " names[n]}
      if (others && !import) print others " more are not called" (list == "true" ? ":" line : "; ./dev torture --list names them")
    }' "${reports[@]}" | fold -s -w 180
}
table QeLaLib.dll LibraryEveryImport
table QeLaC.dll KitEveryImport
table LogLib.dll LogEveryImport
table blframework.dll CredentialsEveryImport

if ! $list; then
  echo
  cat "$work"/*.all | awk -F'\t' -v scenes="$(wc -l <"$work/chosen")" -v failed=${#failed[@]} -v seconds=$SECONDS '
    $4 > 0 {sub(/[.].*/, "", $1); imports[$1, $2]; putIn += $4; reached += $5}
    END {
      for (i in imports) ++functions
      printf "scenes: %d; functions that failed: %d; failures: %d, and %d that no run came to; scenes that failed: %d (%d s)\n",
        scenes, functions, reached, putIn - reached, failed, seconds
    }'
fi
[ ${#failed[@]} = 0 ]
