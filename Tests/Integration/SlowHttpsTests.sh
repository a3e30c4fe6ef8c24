#!/bin/bash
# Hosts that keep silent: Windows' own time-outs end the wait. Each case is a process of its own, side by side.
. "$(dirname "$0")/lab.sh"
. "$tests/../../Scripts/https-servers.sh"

start_https_servers
trap stop_https_servers EXIT
program() { "$tests/../../Scripts/wine.sh" "$bin/HttpsIntegrationTests.exe" "$@" </dev/null; }

it "gives up on hosts that keep silent"
cases=$(program --gtest_list_tests --gtest_filter='SlowHttps.*' | tr -d '\r' | sed -n 's/^  //p')
[ -n "$cases" ]
runs=()
for case in $cases; do
  program --gtest_brief=1 --gtest_filter="SlowHttps.$case" &
  runs+=($!)
done
for run in "${runs[@]}"; do wait "$run"; done
