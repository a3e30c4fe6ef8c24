#!/bin/bash
# Processes that edit the stored set at the same time, and such that are killed while they write it.
. "$(dirname "$0")/lab.sh"

folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
cd "$folder"

it "300 edits each of two processes at once are all kept"
qela location add Left --disabled >/dev/null 2>&1
qela location add Right --disabled >/dev/null 2>&1
# edit NAME: each edit adds a criterion, so that one that is lost stays lost.
edit() {
  local run
  for ((run = 1; run <= 300; ++run)); do
    qela location set "$1" --add-dns-suffix "$run.example" >/dev/null 2>"$1.err" || return 1
  done
}
edit Left &
left=$!
edit Right || failed "an edit failed: $(<Right.err)"
wait $left || failed "an edit failed: $(<Left.err)"
expect "$(qela locations --json | jq -c '[.locations[] | .criteria.dnsSuffixes == [range(300) | "\(. + 1).example"]]')" "[true,true]"

it "a process that is killed while it writes leaves the old set or the new one"
jq -n '{schema: 1, locations: [range(2000) | {id: "a\(.)", name: "Old"}]}' >old.json
jq '.locations[].name = "New"' old.json >new.json
qela apply old.json --delete-missing >/dev/null 2>&1
start=$(date +%s%N)
qela apply new.json >/dev/null 2>&1
delay=$((($(date +%s%N) - start) / 1000)) # in microseconds; it moves to where the write is
old=0
new=0
killed=0
for ((run = 0; run < 30 || (run < 200 && (old == 0 || new == 0)); ++run)); do
  qela apply old.json >/dev/null 2>&1
  "$tests/../../Scripts/wine.sh" "$bin/qela.exe" apply new.json >/dev/null 2>&1 &
  editor=$!
  # A moment after which to end it is what this is about, no wait for something.
  sleep "$(printf '%d.%06d' $((delay / 1000000)) $((delay % 1000000)))"
  kill -KILL $editor 2>/dev/null || true
  { wait $editor || killed=$((killed + 1)); } 2>/dev/null
  names=$(qela locations --json | jq -c '[.locations[].name] | unique + [length]')
  case $names in
    '["Old",2000]') old=$((old + 1)) delay=$((delay + delay / 16)) ;;
    '["New",2000]') new=$((new + 1)) delay=$((delay - delay / 16)) ;;
    *) failed "neither the old set nor the new one: $names" ;;
  esac
done
[[ $old -gt 0 && $new -gt 0 && $killed -gt 0 ]] || failed "of $run ends $old were before the write, $new behind it, and $killed before the end"
