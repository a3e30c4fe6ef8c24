#!/bin/bash
# Address changes that come while the library does not listen reach the host without a further change.
. "$(dirname "$0")/lab.sh"

add_adapter wifi0
ip link set wifi0 up

it "reports every change that comes during a probe, during the callback, and before discovery starts"
"$tests/../../Scripts/wine.sh" "$bin/AddressChangeIntegrationTests.exe" --gtest_brief=1
