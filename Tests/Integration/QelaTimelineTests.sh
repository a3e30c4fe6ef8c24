#!/bin/bash
# qela timeline on a log that the library has written here, and its page in a browser.
. "$(dirname "$0")/lab.sh"
. "$tests/browser.sh"

folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
cd "$folder"

index_of() { ip -o link show "$1" | cut -d: -f1; }

add_adapter wifi0
add_adapter lan0
join_network wifi0 10.20.0.15/24 10.20.0.1
qela location add Office --gateway 10.20.0.1 >/dev/null 2>&1
qela location add Home --gateway 192.168.2.1 >/dev/null 2>&1

it "a log is written while the machine moves"
start_qela_watch --verbose 2>host.log
leave_network wifi0 10.20.0.15/24
next_event
expect "$(jq -r .event <<<"$event")" silent
join_network wifi0 192.168.2.7/24 192.168.2.1
next_change Home
join_network lan0 10.20.0.15/24 10.20.0.1
next_change Office Home
leave_network wifi0 192.168.2.7/24
next_change Office
end_watch

it "the timeline tells what the host was told, and what it was not"
answer qela timeline --from-log host.log --json
expect_code 0
expect_json '.files == ["host.log"] and .calculations >= 5 and .hasTimes and .unknown == [] and .slow == [] and .clockSetBack == []'
expect_json '[.locations[].name] == ["Office", "Home"]'
expect_json '.locations[0].periods | length == 2 and .[0].endedBy == "not current" and .[1].endedBy == "log" and .[1].to == null and
  .[1].adapters == [{"index": $lan, "description": "lan0"}]' --argjson lan "$(index_of lan0)"
# Windows may wake the library more often than something changes for a location.
edges=$(jq -c '[.changes[] | select(.entered + .left != [])]' <<<"$out")
expect "$(jq -c '[.[] | [(.entered | map(.name)), .left, .reported]]' <<<"$edges")" \
  '[[["Office"],[],null],[[],["Office"],false],[["Home"],[],true],[["Office"],[],true],[[],["Home"],true]]'
expect "$(jq -c '[.[].cause]' <<<"$edges")" '[null,"address change","address change","address change","address change"]'
expect "$(jq -c '.[2].changes[0] | [.index, .what, .fields.gateways]' <<<"$edges")" \
  "[$(index_of wifi0),\"changed\",{\"before\":[],\"after\":[\"192.168.2.1\"]}]"
# Where it says that a calculation begins, one does.
lines=$(jq -r '[.[].at.line] | join(" ")' <<<"$edges")
for line in $lines; do
  expect "$(sed -n "${line}p" host.log | cut -f6 | tr -d '\r')" "Calculating current locations..."
done

# These five calculations at times that are easily reckoned with: at 12:00, 12:10, 12:30, 12:45 and 13:00. The third takes
# four seconds, and the last message comes at 13:20.
awk -F '\t' -v OFS='\t' -v lines="$lines" '
  BEGIN { split("12:00 12:10 12:30 12:45 13:00", at, " "); split(lines, edges, " ") }
  /Calculating current locations/ {
    isLeftOut = FNR != edges[calculation + 1]
    if (!isLeftOut) { calculation++; second = 0 }
  }
  /received an address change notification|thread stopping/ { isLeftOut = 0 }
  calculation == 3 && /returning matched criterias/ { second = 4 }
  calculation { $1 = "2025-11-21T" at[calculation] ":0" second ".000+01:00" }
  calculation == 5 && /Raising a location changed event/ { isLast = 1 }
  isLast { $1 = "2025-11-21T13:20:00.000+01:00" }
  !isLeftOut { print }' host.log >moved.log

it "the timeline tells people the same"
answer qela timeline --from-log moved.log
expect_code 0
expect "$(sed -n '1,9p' <<<"$out")" "5 calculations in moved.log, from 2025-11-21T12:00:00.000+01:00 to 2025-11-21T13:20:00.000+01:00.

Office
  from 2025-11-21T12:00:00.000+01:00 to 2025-11-21T12:10:00.000+01:00, 10 min 0 s, on adapter $(index_of wifi0) (wifi0)
  from 2025-11-21T12:45:00.000+01:00 to the end of the log, 35 min 0 s, on adapter $(index_of lan0) (lan0)

Home
  from 2025-11-21T12:30:04.000+01:00 to 2025-11-21T13:00:00.000+01:00, 29 min 56 s, on adapter $(index_of wifi0) (wifi0)"
expect_out "    the host was not called for it"
expect_out "4.0 s, and no question to a server took long"

it "a log without times is told in its order"
cut -f 2- moved.log >timeless.log
answer qela timeline --from-log timeless.log --json
expect_json '.hasTimes == false and .calculations == 5 and .begin == null and
  [.locations[1].periods[] | .from.time, .from.calculation, .to.calculation] == [null, 3, 5]'

it "what a log is missing ends what is known, until the next whole calculation"
awk '/Calculating current locations/ { calculation++ } !(calculation == 2 && /returning matched criterias 0 for location Office/)' moved.log >holed.log
expect "$(($(wc -l <moved.log) - $(wc -l <holed.log)))" 1
answer qela timeline --from-log holed.log --json
expect_json '.unknown | length == 1 and .[0].from.calculation == 2 and .[0].to.calculation == 3 and .[0].reason != ""'
expect_json '.locations[0].periods[0].endedBy == "unknown" and (.changes[1] | .beforeIsKnown == false and .reported == null)'

it "a clock that goes back is told, and the order of the log stays"
sed '/T13:/s/T13:00/T11:00/' moved.log >back.log
answer qela timeline --from-log back.log --json
expect_json '.hasTimes == false and .clockSetBack == [{"at": .changes[4].at, "before": "2025-11-21T12:45:00.000+01:00",
  "after": "2025-11-21T11:00:00.000+01:00"}]'
expect_json '.locations[1].periods[0].to.calculation == 5'
answer qela timeline --from-log back.log
expect_out "
The log's clock:
  line "
expect_out "2025-11-21T11:00:00.000+01:00"

it "files that rotation has put aside belong to it, and no file is read twice"
head -n "$(($(grep -n 'Calculating current' moved.log | sed -n 3p | cut -d: -f1) + 4))" moved.log >service.log.1
tail -n "+$(($(wc -l <service.log.1) + 1))" moved.log >service.log
for arguments in '--from-log service.log' '--from-log service.log.1 --from-log service.log'; do
  # shellcheck disable=SC2086
  answer qela timeline $arguments --json
  expect_json '.files == ["service.log.1", "service.log"] and .calculations == 5 and .unknown == []'
  expect_json '.changes[2].at.file == "service.log.1" and .changes[3].at.file == "service.log"'
done

it "what cannot be done is told"
answer qela timeline --from-log none.log; expect_code 1; expect_err none.log
printf 'nothing of it\n' >other.log
answer qela timeline --from-log other.log; expect_code 1; expect_err "other.log: no calculation of the library's is in the log"
answer qela timeline --from-log moved.log --html no/page.html; expect_code 1; expect_err 'cannot be written'
sum=$(sha256sum moved.log)
answer qela timeline --from-log moved.log --html ../"${folder##*/}"/moved.log; expect_code 1; expect_err 'this is the log itself'
expect "$(sha256sum moved.log)" "$sum"
answer qela timeline; expect_code 2; expect_err --from-log
answer qela timeline --from-log moved.log --html ''; expect_code 2; expect_err '--html: the file must have a name'

it "what a page loads, and what a browser complains of, is seen by this test"
printf '<!doctype html><img src="http://elsewhere.test/a.png"><script>console.error("b")</script>' >loads.html
open_page loads.html
expect "$requests" http://elsewhere.test/a.png
[[ $complaints == *'"b"'* ]] || failed "expected a complaint" "$complaints"

it "the page needs nothing but itself, and a browser has nothing to complain of"
answer qela timeline --from-log moved.log --html page.html
expect_answer 0 "Wrote the timeline of 5 calculations to page.html." ""
page=$(<page.html)
answer qela timeline --from-log moved.log --html page.html --json
expect_json '.calculations == 5'
expect "$(<page.html)" "$page"
open_page page.html
expect "$complaints" ""
expect "$requests" ""

# expect_places FILTER PLACES: what the filter finds begins and ends there, in percent of the axis.
expect_places() {
  jq -e --argjson expected "$2" ".plot as \$plot | [$1 | [.left, .right] | map((. - \$plot.left) / (\$plot.right - \$plot.left) * 100)] |
    [flatten, (\$expected | flatten)] | transpose | all((.[0] - .[1] | fabs) < 0.2)" <<<"$measured" >/dev/null ||
    failed "expected of the page at width $width, $scheme: $1 at $2" "$measured"
}
# expect_measured FILTER: it holds for what the browser has measured.
expect_measured() { jq -e "$1" <<<"$measured" >/dev/null || failed "expected of the page at width $width, $scheme: $1" "$measured"; }

for width in 1280 420; do
  for scheme in light dark; do
    it "the bars are where their times are, and all can be read ($scheme, $width wide)"
    measure_page page.html "$width" "$scheme"
    expect_measured "(.width - $width | fabs) < 1"
    expect_places '.bars[]' '[[0, 12.5], [56.25, 100], [37.58, 75]]'
    expect_measured '[.bars[].title | split(" ")[0]] == ["Office", "Office", "Home"]'
    # One row a location; two bars of one location stand in one row, and each beside its label.
    expect_measured '.bars[0].top == .bars[1].top and .bars[2].top > .bars[1].bottom'
    expect_measured '.labels as $labels | .bars | all(. as $bar | $labels | any(.text == ($bar.title | split(" ")[0]) and
      .top < $bar.bottom and .bottom > $bar.top and .right < $bar.left))'
    # Marks: adapters that changed (4), the host that was not called, the slow calculation.
    expect_measured '.marks == {"change": 4, "unreported": 1, "slow": 1, "gap": 0}'
    expect_measured '.contrasts | all(. >= 4.5)'
    expect_measured ".background | if \"$scheme\" == \"dark\" then . < 0.05 else . > 0.9 end"
    expect_measured '.loads == []'
    # Only the picture and the tables scroll sideways, each by itself.
    expect_measured '.pageWidth <= .width'
    expect_measured '.description | test("Office \\(2 times\\), Home \\(1 time\\)")'
  done
done

it "where the log does not tell, the picture is hatched"
answer qela timeline --from-log holed.log --html holed.html
measure_page holed.html 1280 light
expect_places '.bars[]' '[[0, 12.5], [56.25, 100], [37.58, 75]]'
expect_measured '.marks.gap == 1 and .marks.unreported == 0'
expect_places .gap '[[12.5, 37.5]]'
