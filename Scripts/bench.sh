#!/bin/bash
# Runs the benchmark on a machine with three adapters.
# usage: lab.sh --own-network bench.sh FOLDER_OF_PROGRAMS [ARGUMENT...]
set -euo pipefail
scripts=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
. "$scripts/lab-network.sh"
bin=$1
shift

set_dns_suffix eu-office.corp.example
add_adapter wifi0
add_adapter lan0
add_adapter virtual0
join_network lan0 10.30.0.15/16 10.30.0.1
join_network virtual0 172.16.5.4/16 172.16.0.1
ip address add fd00:77::4/64 dev lan0 nodad
join_network wifi0 10.20.0.15/24 10.20.0.1

exec "$scripts/wine.sh" "$bin/QeLaBench.exe" "$@"
