#!/bin/bash
# The HTTPS probe against servers, proxy, name server and user as they are.
. "$(dirname "$0")/lab.sh"
. "$tests/../../Scripts/https-servers.sh"

start_https_servers
trap stop_https_servers EXIT

it "answers for every kind of server, proxy and user"
"$tests/../../Scripts/wine.sh" "$bin/HttpsIntegrationTests.exe" --gtest_brief=1 --gtest_filter=-SlowHttps.*

it "went through the proxy where the proxy had to help"
expect "$(grep -c 'CONNECT inner.lab.test:443' "$https/proxy.log" | sed 's/^[1-9].*/some/')" some

it "makes a location current whose host answers, and no other"
qela location add Office --https-host ok.lab.test >/dev/null
qela location add Guarded --https-host s401.lab.test >/dev/null
qela location add Elsewhere --https-host s404.lab.test >/dev/null
qela location add Impostor --https-host untrusted.lab.test >/dev/null
expect "$(names_of_current)" "Office Guarded"

it "takes one of several hosts for enough"
qela location add Either --https-host refused.lab.test --https-host ok.lab.test >/dev/null
expect "$(names_of_current)" "Office Guarded Either"

it "finds nothing when the servers are gone"
kill -QUIT "$(<"$https/web.pid")"
while [ -n "$(ss -Hltn 'sport = :443 and src 127.0.0.1')" ]; do :; done
expect "$(names_of_current)" ""
