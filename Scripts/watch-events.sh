# Reads what `qela watch --json` tells, for the demo and the network tests. Sourced.
#
# Waits are for events, each with a deadline; nothing sleeps.

readonly kEventDeadlineSeconds=20

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
next_event() {
  IFS= read -r -t "$kEventDeadlineSeconds" event <&3 ||
    { echo "no event within $kEventDeadlineSeconds seconds" >&2; return 1; }
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
