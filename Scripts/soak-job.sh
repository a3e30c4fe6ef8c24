#!/bin/bash
# Runs a job of the soak on a machine with one adapter, whose addresses it may change.
# usage: lab.sh --own-network soak-job.sh FOLDER_OF_PROGRAMS JOB [OPTION...]
# What is measured goes to standard error.
set -euo pipefail
scripts=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
. "$scripts/lab-network.sh"
bin=$1
job=$2
shift 2

add_adapter wifi0
ip link set wifi0 up
# Wine takes an IPv4 address for one of IPv6 where the machine has none.
ip address add 10.9.9.9/24 dev wifi0
# The jobs are tests, whose names begin with the job's.
"$scripts/wine.sh" "$bin/SoakTests.exe" --gtest_brief=1 "--gtest_filter=Soak.${job^}*" --ip "$@" | ip -batch -
