# Programs that run until their standard input ends, and the lines that they print. Sourced.

# start_host COMMAND...: runs it with a standard input that stays open; what it prints is read with next_line.
start_host() {
  host_folder=$(mktemp -d)
  mkfifo "$host_folder/in" "$host_folder/out"
  "$@" <"$host_folder/in" >"$host_folder/out" 2>"$host_folder/err" &
  host=$!
  exec 4>"$host_folder/in" 3<"$host_folder/out"
}
# next_line TEXT: the host's next line is this.
next_line() {
  local line
  IFS= read -r -t 20 line <&3 || failed "no line within 20 seconds; expected: $1" "$(tail -n 30 "$host_folder/err")"
  expect "${line%$'\r'}" "$1"
}
# end_host: ends its input; it must end well and have said nothing more.
end_host() {
  exec 4>&-
  local rest
  rest=$(cat <&3)
  expect "$rest" ''
  wait "$host" || failed "the host ended with exit code $?"
  exec 3<&-
  rm -r "$host_folder"
}
