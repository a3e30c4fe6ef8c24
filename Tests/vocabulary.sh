# The words in which tests that are scripts are written. Sourced. A test ends at the first thing that is not as expected.

# it SENTENCE: names what the next lines prove.
it() {
  sentence=$*
  printf '%s\n' "- $*"
}

# failed LINE...: ends the test, and tells what it was about.
failed() {
  printf 'FAILED: %s\n' "$sentence" >&2
  printf '  %s\n' "$@" >&2
  exit 1
}

# expect ACTUAL EXPECTED
expect() { [ "$1" = "$2" ] || failed "expected: $2" "found:    $1"; }

# answer COMMAND...: runs it; $code, $out and $err are what it answered, which the next words judge.
answer() {
  local folder
  folder=$(mktemp -d)
  asked=$*
  code=0
  "$@" >"$folder/out" 2>"$folder/err" </dev/null || code=$?
  out=$(<"$folder/out")
  err=$(<"$folder/err")
  rm -r "$folder"
}
not_answered() { failed "$1" "command: $asked" "code:    $code" "stdout:  $out" "stderr:  $err"; }

expect_code() { [ "$code" -eq "$1" ] || not_answered "expected exit code $1"; }
# expect_out TEXT, expect_err TEXT: the text is part of it.
expect_out() { [[ $out == *"$1"* ]] || not_answered "expected on stdout: $1"; }
expect_err() { [[ $err == *"$1"* ]] || not_answered "expected on stderr: $1"; }
# expect_answer CODE OUT ERR: exactly these.
expect_answer() { [[ $code = "$1" && $out = "$2" && $err = "$3" ]] || not_answered "expected: $1, \"$2\", \"$3\""; }
# expect_json FILTER [JQ_OPTION...]: the output is one line of JSON for which the filter holds.
expect_json() {
  local filter=$1
  shift
  { [[ $out != *$'\n'* ]] && jq -e "$@" "$filter" <<<"$out" >/dev/null; } || not_answered "expected of the JSON: $filter"
}
