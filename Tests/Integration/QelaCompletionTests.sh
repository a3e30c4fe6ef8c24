#!/bin/bash
# What Bash offers for the command lines of qela, by the file that the package has.
. "$(dirname "$0")/lab.sh"
. "$tests/../../Tools/qela/completion/qela.bash"

# offered WORD...: what is offered for the last word, a line each, in order.
offered() {
  COMP_WORDS=(qela "$@")
  COMP_CWORD=$#
  COMPREPLY=()
  _qela qela "${!#}" "${COMP_WORDS[COMP_CWORD - 1]}"
  printf '%s\n' "${COMPREPLY[@]}" | sort
}

# walk [COMMAND...]: everything that the help of the command and of those below it tells is offered, and nothing else.
walk() {
  local help command commands
  help=$(qela "$@" --help | tr -d '\r')
  expect "$(offered "$@" --)" "$(grep -oE '^ +(-[a-z],)?--[a-z-]+' <<<"$help" | grep -oE -- '--.*' | sort -u)"
  commands=$(sed -n '/^Subcommands:/,/^$/p' <<<"$help" | grep -oE '^  [a-z]+' | tr -d ' ' | sort) || true
  [ -n "$commands" ] || return 0
  expect "$(offered "$@" '')" "$commands"
  for command in $commands; do walk "$@" "$command"; done
}

it "every command and option of the help is offered"
walk

it "names of stored locations are offered as the shell needs them written"
qela location add 'Büro "1" 日' --disabled >/dev/null 2>&1
expect "$(offered location enable B)" "$(printf %q 'Büro "1" 日')"
