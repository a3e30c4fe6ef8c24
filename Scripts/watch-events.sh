# Reads what `qela watch --json` tells, for the demo and the network tests. Sourced.
#
# Waits are for events, each with a deadline; nothing sleeps.

readonly kEventDeadlineSeconds=20
readonly kNudgeSeconds=4
nudges=0

# start_watch QELA_COMMAND...: starts the command in the background and waits for its first event.
start_watch() {
  watch_folder=$(mktemp -d)
  mkfifo "$watch_folder/events"
  "$@" >"$watch_folder/events" &
  watch_pid=$!
  exec 3<"$watch_folder/events"
  next_event
  [ "$(jq -r .event <<<"$event")" = start ] || { echo "the first event is no start: $event" >&2; return 1; }
}

# Reads the next event into $event.
#
# Wine loses a change of address that comes between the thread's wake-up and its next request, which on a busy machine
# may be long apart. Where nothing comes, one more address, on the loopback device, makes the thread look again.
next_event() {
  local begun=$SECONDS
  until IFS= read -r -t "$kNudgeSeconds" event <&3; do
    [ $((SECONDS - begun)) -lt "$kEventDeadlineSeconds" ] || { echo "no event within $kEventDeadlineSeconds seconds" >&2; return 1; }
    nudges=$((nudges + 1))
    ip address add "127.0.2.$nudges/8" dev lo
  done
}

# next_change NAME...: the next event must be a change whose current locations are exactly these, in this order.
next_change() {
  next_event || return 1
  local expected found
  expected=$(jq -cn '$ARGS.positional' --args -- "$@")
  found=$(jq -c 'if .event == "change" then [.current[].name] else "no change: \(.)" end' <<<"$event")
  [ "$found" = "$expected" ] || { echo "expected $expected, but the host was told $found" >&2; return 1; }
}

# Ends the watch as Ctrl-C does and checks that no change is left over and that it ends well.
end_watch() {
  kill -INT "$watch_pid"
  next_event || return 1
  [ "$(jq -r .event <<<"$event")" = end ] || { echo "an event too many: $event" >&2; return 1; }
  wait "$watch_pid" || { echo "qela watch ended with exit code $?" >&2; return 1; }
  exec 3<&-
  rm -r "$watch_folder"
}
