# A machine on a network whose name server may know the management server, and the list that the management agent keeps.
# Sourced after lab.sh.

readonly kAgentKey='HKLM\SOFTWARE\Quillon\Mervo\Shared Components\Framework'
state=$(mktemp -d)
export LOGLIB_FILE=$state/log
trap 'stop_name_server; rm -rf "$state"' EXIT

set_dns_suffix lab.test
add_adapter wifi0
join_network wifi0 10.20.0.15/24 10.20.0.1

# start_name_server [DNSMASQ_OPTION...]: returns when it answers. It knows no name below corp.test but those of the
# options.
start_name_server() {
  dnsmasq --conf-file=/dev/null --no-resolv --no-hosts --user=root --listen-address=127.0.0.1 --bind-interfaces \
    --local=/corp.test/ --pid-file="$state/dnsmasq.pid" --log-queries --log-facility="$state/queries" "$@"
}

# KILL, since it may be stopped. The next one needs its port, so wait until that is free.
stop_name_server() {
  [ -e "$state/dnsmasq.pid" ] || return 0
  kill -KILL "$(<"$state/dnsmasq.pid")"
  rm "$state/dnsmasq.pid"
  while [ -n "$(ss -Huln 'sport = :53')" ]; do :; done
}

# set_server_list TEXT [VIEW]: VIEW is 64 or 32.
set_server_list() { reg add "$kAgentKey" /v ZeltServerList /d "$1" /f "/reg:${2:-64}" >/dev/null; }

# Calculates anew: $current are the names of the current locations, $log what the library wrote about it.
probe() {
  rm -f "$LOGLIB_FILE"
  current=$(names_of_current)
  log=$(cut -f 6 "$LOGLIB_FILE")
}

# logged TEXT: the library has written the line since the last probe began.
logged() { grep -qxF -- "$1" <<<"$log" || failed "not logged: $1"; }

qela location add Managed --management-server >/dev/null
