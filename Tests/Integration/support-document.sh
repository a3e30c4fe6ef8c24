# What the cases of Docs/support.md begin with. Sourced, behind lab.sh and document.sh.
. "$tests/../../Scripts/https-servers.sh"
trap '[ -z "${https:-}" ] || stop_https_servers' EXIT

# begin_case SUFFIX ADDRESS/PREFIX GATEWAY: a machine without locations, joined to that network.
begin_case() {
  set_dns_suffix "$1"
  unset LOGLIB_FILE
  if [ -n "${https:-}" ]; then
    stop_https_servers
    https=
    ip link delete lan0
    ip netns delete lan0-far
  fi
  ip link show wifi0 >/dev/null 2>&1 || add_adapter wifi0
  ip address flush dev wifi0 scope global
  ip route flush dev wifi0
  reg delete 'HKLM\SOFTWARE\Corvane\Tessel\Firewall\LA' /v la /f >"$PWD/reg" 2>&1 || true
  rm -f ./*
  join_network wifi0 "$2" "$3"
}

# store NAME OPTION...: a location that the machine has had for long, and set.json.
store() {
  qela location add "$@" >"$PWD/out" 2>&1 || failed "$(<"$PWD/out")"
  qela export set.json >"$PWD/out" 2>&1
}

# run_service: the service starts and calculates, and its log is service.log.
run_service() { LOGLIB_FILE=Z:$PWD/service.log qela current >"$PWD/out" 2>&1; }

# start_service: the same, and it goes on.
start_service() {
  start_watch env LOGLIB_FILE=Z:"$PWD/service.log" "$tests/../../Scripts/wine.sh" "$bin/qela.exe" watch --json
}
until_service_sees_a_change() {
  until [ "$(jq -r .cause <<<"${event:-}")" = "address change" ]; do next_event; done
}
stop_service() {
  kill -INT "$watch_pid"
  wait "$watch_pid"
  exec 3<&-
}

# when_decided NAME COMMAND...: does it in the background, as soon as a calculation that is still to come has decided about
# the location. Every command that follows logs to commands.log.
when_decided() {
  local name=$1
  shift
  : >commands.log
  export LOGLIB_FILE=Z:$PWD/commands.log
  { grep -q -m 1 "returning matched criterias . for location $name" < <(tail -n +1 -f commands.log) && "$@"; } &
}
