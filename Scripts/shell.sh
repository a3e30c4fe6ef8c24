#!/bin/bash
# ./dev shell: bash on a machine with two adapters, of which one has joined a network.
# usage: lab.sh --own-network shell.sh [ARGUMENT_OF_BASH...]
set -euo pipefail
scripts=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
. "$scripts/lab-network.sh"

set_dns_suffix lab.test
add_adapter wifi0
add_adapter lan0
join_network wifi0 10.20.0.15/24 10.20.0.1

# The verbs go along: leave_network wifi0 10.20.0.15/24
export -f set_dns_suffix add_adapter join_network leave_network
export PATH=$scripts/tools:$PATH
export WINEPATH='Z:\src\build\mingw-release\bin' # wine UnitTests.exe
# The checkout belongs to the user outside.
export GIT_CONFIG_COUNT=1 GIT_CONFIG_KEY_0=safe.directory GIT_CONFIG_VALUE_0=/src
exec /bin/bash "$@"
