#!/bin/bash
# qela's commands against the shipped library, with real adapters and registry.
. "$(dirname "$0")/lab.sh"

kValueKey='HKLM\SOFTWARE\Corvane\Tessel\Firewall\LA'

# The stored value as reg shows it; "absent" without one.
stored() {
  local text
  text=$(reg query "$kValueKey" /v la) || text=absent
  tr -d '\r' <<<"$text"
}
store() { reg add "$kValueKey" /v la "$@" /f >/dev/null; }
index_of() { ip -o link show "$1" | cut -d: -f1; }
id_of() { qela locations --json | jq -r --arg name "$1" '[.locations[] | select(.name == $name)][0].id'; }

set_dns_suffix corp.example
add_adapter wifi0

it "reading commands work without a stored set and write nothing"
for reading in adapters locations current "watch --for 0"; do
  # shellcheck disable=SC2086
  answer qela $reading
  expect_code 0
  expect "$err" ""
done
expect "$(stored)" absent
answer qela locations; expect_out "No location is stored."
answer qela locations --json; expect_json '. == {"schema": 1, "locations": []}'
answer qela current; expect_out "No location is current."
answer qela current --json; expect_json '. == {"schema": 1, "current": []}'
answer qela adapters; expect_out "No network adapter is up."
answer qela adapters --json; expect_json '. == {"schema": 1, "adapters": [], "macAddresses": []}'

join_network wifi0 10.20.0.15/24 10.20.0.1

it "adapters shows what the library saw, behind the options that take it"
answer qela adapters
expect_code 0
expect_out ": wifi0 ("
expect_out "  --gateway         10.20.0.1"
expect_out "  --dns-suffix      corp.example"
expect_out "  --dns-server      127.0.0.1"
expect_out "  address           10.20.0.15"
answer qela adapters --json
expect_json '.adapters | length == 1'
expect_json '.adapters[0] | keys_unsorted == ["index","description","media","macAddresses","ipAddresses","gateways","dhcpEnabled","dhcpServer",
  "dhcpV6Server","dnsSuffix","dnsServers","winsPrimary","winsSecondary"]'
expect_json '.adapters[0] | .description == "wifi0" and .gateways == ["10.20.0.1"] and .dnsSuffix == "corp.example" and
  .dnsServers == ["127.0.0.1"] and .dhcpEnabled == false and .dhcpServer == "" and (.ipAddresses | index("10.20.0.15") != null)'
expect_json '.adapters[0].index == $index' --argjson index "$(index_of wifi0)"

it "add stores a location that is current where its criteria hold"
answer qela location add 'Büro 日' --gateway 10.20.0.1 --dns-suffix '*.example' --note 'a "note"'
expect_code 0
expect_out 'Added "Büro 日"'
expect_err "takes this over at once where its host reloads on edit"
answer qela current
expect_out "Büro 日 [$(index_of wifi0) wifi0]"
expect_out "  --dns-suffix      *.example"
answer qela current --json
expect_json '.current | length == 1 and .[0].name == "Büro 日" and (.[0].id | length) == 36'
expect_json '.current[0].adapters == [{"index": $index, "description": "wifi0"}]' --argjson index "$(index_of wifi0)"
expect_json '.current[0].criteria | .dnsSuffixes == ["*.example"] and .gateways == ["10.20.0.1"] and .managementServer == false'
answer qela locations --json
expect_json '.locations | length == 1'
expect_json '.locations[0] | .name == "Büro 日" and .enabled and .note == "a \"note\"" and
  .criteria == {"dnsSuffixes":["*.example"],"gateways":["10.20.0.1"],"dhcpServers":[],"dnsServers":[],"primaryWins":[],
    "secondaryWins":[],"registry":[],"httpsHosts":[],"managementServer":false}'

it "add tells ID and name in JSON, and keeps every kind of criterion"
answer qela location add Everything --dns-suffix a --gateway 10.0.0.1 --gateway 10.0.0.2 --dhcp-server 10.0.0.3 --dns-server FE80::4 \
  --primary-wins 10.0.0.5 --secondary-wins 10.0.0.6 --registry 'HKEY_LOCAL_MACHINE\SOFTWARE\' --https-host host.example \
  --management-server --disabled --json
expect_code 0
expect_json '.name == "Everything" and .action == "added" and (.id | length) == 36'
answer qela locations --json
expect_json '.locations[1] | .enabled == false and .note == "" and
  .criteria == {"dnsSuffixes":["a"],"gateways":["10.0.0.1","10.0.0.2"],"dhcpServers":["10.0.0.3"],"dnsServers":["fe80::4"],
    "primaryWins":["10.0.0.5"],"secondaryWins":["10.0.0.6"],"registry":["HKEY_LOCAL_MACHINE\\SOFTWARE\\"],
    "httpsHosts":["host.example"],"managementServer":true}'
answer qela locations
expect_out "Everything (disabled)"
expect_out "  --registry        HKEY_LOCAL_MACHINE\\SOFTWARE\\"
expect_out "  --management-server"

it "reading commands leave the stored set as it is"
before=$(stored)
for reading in adapters locations current "watch --for 0" "locations --json" "location --help"; do
  # shellcheck disable=SC2086
  answer qela $reading
  expect_code 0
done
expect "$(stored)" "$before"

it "a name that is taken is refused unless forced"
answer qela location add Everything
expect_code 3
expect_err 'a location named "Everything" is stored already'
expect "$(stored)" "$before"
answer qela location add Everything --force --disabled
expect_code 0
expect_err "a location without criteria is current everywhere"

it "a name that fits several locations is answered with their IDs"
answer qela locations --json
ids=$(jq -r '.locations[] | select(.name == "Everything") | .id' <<<"$out")
before=$(stored)
for change in remove enable disable; do
  answer qela location "$change" Everything
  expect_code 3
  for id in $ids; do expect_err "$id"; done
  expect "$out" ""
done
expect "$(stored)" "$before"

it "an ID names one of them"
answer qela location remove "$(head -n 1 <<<"$ids")" --json
expect_code 0
expect_json '.action == "removed" and .id == $id' --arg id "$(head -n 1 <<<"$ids")"
answer qela locations --json
expect_json '[.locations[].name] == ["Büro 日", "Everything"]'
expect_json '.locations[1].id == $id' --arg id "$(tail -n 1 <<<"$ids")"

it "a location that is not there is told"
before=$(stored)
for change in remove enable disable; do
  answer qela location "$change" 'büro 日'
  expect_code 3
  expect_err 'no location has the name or ID "büro 日"'
done
expect "$(stored)" "$before"

it "a disabled location is not current until it is enabled"
answer qela location disable 'Büro 日' --json
expect_code 0
expect_json '.action == "disabled"'
answer qela current --json; expect_json '.current == []'
before=$(stored)
answer qela location disable 'Büro 日' --json
expect_code 0
expect_json '.action == "unchanged"'
expect "$(stored)" "$before"
answer qela location enable 'Büro 日'
expect_out 'Enabled "Büro 日"'
answer qela current --json; expect_json '.current[0].name == "Büro 日"'

it "locations can be listed in brief, by name, and those that are disabled or current only"
answer qela locations --brief
expect "$(tr -d '\r' <<<"$out")" $'Büro 日\nEverything (disabled)'
answer qela locations --name 'büro ?' --json --brief; expect_json '.locations | length == 1 and (.[0] | keys_unsorted) == ["id","name"]'
answer qela locations --disabled --json; expect_json '[.locations[].name] == ["Everything"]'
answer qela locations --current --json; expect_json '[.locations[].name] == ["Büro 日"]'
answer qela locations --name 'x*'; expect_out "No stored location is of this kind."

it "criteria can be taken from an adapter, and are shown before they are stored"
answer qela location add Here --from-adapter "$(index_of wifi0)" --json
expect_code 0
expect_err "Criteria of adapter $(index_of wifi0), wifi0:"
expect_err "  --gateway         10.20.0.1"
answer qela location show Here --json
expect_json '.criteria | .gateways == ["10.20.0.1"] and .dnsSuffixes == ["corp.example"] and .dnsServers == ["127.0.0.1"]'
answer qela location remove Here; expect_code 0

it "errors are JSON where JSON is asked for"
answer qela location show Nowhere --json
expect_code 3
jq -e '.schema == 1 and .error.code == 3 and (.error.message | contains("Nowhere"))' <<<"$err" >/dev/null || failed "$err"

it "a value given twice is stored once"
answer qela location add Twice --gateway 10.0.0.1 --gateway 10.0.0.1
expect_code 0
expect_err '"10.0.0.1" is given twice'
answer qela locations --json; expect_json '.locations[2].criteria.gateways == ["10.0.0.1"]'
answer qela location remove Twice; expect_code 0

it "wrong command lines exit with 2 and change nothing"
before=$(stored)
answer qela; expect_code 2; expect_err "--help"
answer qela bogus; expect_code 2; expect_err "unknown command: bogus"
answer qela location add; expect_code 2
answer qela location add X --gateway ''; expect_code 2; expect_err "--gateway: the value must not be empty"
answer qela location add X --gateway 10.1; expect_code 2
answer qela watch --for never; expect_code 2
expect "$(stored)" "$before"

it "every command has a help that tells the exit codes"
for help in "" adapters locations current watch location "location add" "location remove" "location enable" "location disable"; do
  # shellcheck disable=SC2086
  answer qela $help --help
  expect_code 0
  expect_out "Usage: qela"
  expect_out "4    a location set is stored but cannot be read"
  expect "$err" ""
done

it "tells its version and the library's, and what to do where there is no library"
answer qela --version
expect_code 0
expect_out "qela 1."
expect_out "QeLaLib.dll 1."
alone=$(mktemp -d)
cp "$bin"/{qela.exe,LogLib.dll,blframework.dll,KzVariantExport.dll} "$alone/"
answer "$tests/../../Scripts/wine.sh" "$alone/qela.exe" --version
expect_code 0
expect_out "QeLaLib.dll: none beside qela.exe"
answer "$tests/../../Scripts/wine.sh" "$alone/qela.exe" current
expect_code 1
expect_err "qela: error: QeLaLib.dll cannot be loaded (error 126). It belongs into the folder of qela.exe"
rm -r "$alone"

it "the library's log shows with --verbose only"
answer qela current --verbose; expect_err "Calculating current locations..."
answer qela current; expect "$err" ""

it "watch tells the start, each change at once, and the end"
start_qela_watch
# expect_event FILTER: the filter holds for the event that was read last.
expect_event() { jq -e "$1" <<<"$event" >/dev/null || failed "expected of the event: $1" "event: $event"; }
expect_event 'keys_unsorted == ["schema","event","time","current"] and .event == "start"'
expect_event '.time | test("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}[+-]\\d\\d:\\d\\d$")'
expect_event '[.current[].name] == ["Büro 日"] and .current[0].adapters[0].description == "wifi0"'
# The host is not called: nothing was reported before, and no location is current now.
leave_network wifi0 10.20.0.15/24
next_event
expect_event '.event == "silent" and .entered == [] and [.left[].name] == ["Büro 日"] and .current == []'
join_network wifi0 10.20.0.15/24 10.20.0.1
next_event
expect_event 'keys_unsorted == ["schema","event","time","entered","left","current","cause","changes"] and .event == "change"'
expect_event '.cause == "address change" and [.changes[].fields | keys_unsorted[]] == ["ipAddresses","gateways"]'
expect_event '[.entered[].name] == ["Büro 日"] and .entered[0].adapters[0].description == "wifi0" and .left == []'
expect_event '.current == .entered'
leave_network wifi0 10.20.0.15/24
next_event
expect_event '.event == "change" and .entered == [] and (.left[0] | keys_unsorted) == ["id","name"] and .current == []'
end_watch
expect_event '.event == "end" and .reason == "interrupted"'

it "watch writes for people, too, and ends by itself after --for"
join_network wifi0 10.20.0.15/24 10.20.0.1
answer qela watch --for 0
expect_code 0
expect_out "start    current: Büro 日 ["
expect_out "end      time"
answer qela watch --for 0 --json
expect "$(jq -r .event <<<"$out" | paste -sd ' ')" "start end"
expect "$(jq -r .reason <<<"$out" | tail -n 1)" "time"

it "locations outlive a restart of the machine"
answer qela locations --json
before=$out
stop_machine
start_machine
answer qela locations --json
expect "$out" "$before"
expect_json '[.locations[].name] == ["Büro 日", "Everything"]'

it "a stored set that cannot be read is refused by every command that needs it, and kept"
kept=$(id_of Everything)
# A MessagePack integer; a set cut off after its first location has begun; text.
for bad in '/t REG_BINARY /d 01' '/t REG_BINARY /d 919191969900' '/t REG_SZ /d text'; do
  # shellcheck disable=SC2086
  store $bad
  before=$(stored)
  for needing in locations current "watch --for 0" "location add New" "location add New --force" "location remove Everything" \
    "location enable $kept" "location disable $kept"; do
    # shellcheck disable=SC2086
    answer qela $needing
    expect_code 4
    expect_err "cannot be read"
    expect "$out" ""
  done
  expect "$(stored)" "$before"
  answer qela adapters; expect_code 0
done

it "an empty value holds nothing that could be lost"
store /t REG_BINARY
answer qela location add New --gateway 10.0.0.1
expect_code 0
answer qela locations --json; expect_json '[.locations[].name] == ["New"]'

it "removing the last location stores an empty set"
answer qela location remove New; expect_code 0
expect "$(stored | grep -oE '919190$')" 919190
answer qela locations; expect_code 0; expect_out "No location is stored."
