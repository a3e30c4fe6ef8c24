# Verbs for a private network with one machine in it, for the demo and the network tests. Sourced by scripts that
# lab.sh --own-network runs: the namespace is theirs alone, and ends with them.

# The DNS suffix of every adapter. Wine reads it when a process starts.
set_dns_suffix() { printf 'nameserver 127.0.0.1\nsearch %s\n' "$1" >/etc/resolv.conf; }

# add_adapter NAME: an Ethernet adapter with a cable, down, without addresses. The cable's far end lies in a namespace
# of its own, so that the machine does not see it as an adapter.
add_adapter() {
  ip netns add "$1-far"
  ip link add "$1" type veth peer name far netns "$1-far"
  ip -n "$1-far" link set far up
}

# join_network ADAPTER ADDRESS/PREFIX GATEWAY
# Gateway first: Windows tells of new addresses, not of new routes, so the address must come last, as it does when a
# DHCP client has set the rest.
join_network() {
  local index
  index=$(ip -o link show dev "$1" | cut -d: -f1)
  ip link set "$1" up
  ip route replace default via "$3" dev "$1" onlink metric "$index" # a default route an adapter
  ip address add "$2" dev "$1"
}

# leave_network ADAPTER ADDRESS/PREFIX
leave_network() {
  ip route del default dev "$1" 2>/dev/null || true
  ip address del "$2" dev "$1"
}
