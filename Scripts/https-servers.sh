# An HTTPS network for the demo and the network tests: a test authority, name servers, web servers, a proxy. Sourced by
# scripts that lab.sh --own-network runs, after lab-network.sh: the namespace is theirs alone. Everything answers under
# lab.test.
#
#   ok, s401, s403, s404, s500   answer HTTPS with that status (ok: 200); the machine trusts their certificate
#   untrusted, wrong-name        answer 200, with a certificate of an unknown authority, or of another host
#   refused                      has an address where nothing listens
#   nowhere                      is a name that DNS does not know
#   unreachable, lost            no machine has the address; a machine has it and swallows what it is sent
#   silent                       takes the connection and never greets
#   mute                         greets in TLS and never answers the request
#   inner                        is known only to the proxy's own name server, and answers 200
#   management                   has an address in DNS, which is all that is asked of a management server
#   proxy                        tinyproxy on port 8888, in a network of its own, whose name server knows every host
#   wpad                         plain HTTP: /wpad.dat and /proxy.pac name the proxy, /direct.pac names none
#
# Logs: $https/requests (web servers), $https/proxy.log (proxy), $https/queries (the machine's name server).

# start_https_servers: all of them; returns when they answer. Sets $https, their folder.
start_https_servers() {
  https=$(mktemp -d)
  chmod 755 "$https"
  set_dns_suffix lab.test
  make_authority trusted
  make_authority unknown
  make_certificate trusted server ok s401 s403 s404 s500 inner mute silent
  make_certificate trusted other right-name
  make_certificate unknown stranger untrusted
  # The machine's only authority; programs read the file when they start.
  cat "$https/trusted.pem" >/etc/ssl/certs/ca-certificates.crt

  # The proxy's network: the machine reaches it over a cable, as 10.77.0.2.
  add_adapter lan0
  ip address add 10.77.0.1/24 dev lan0
  ip link set lan0 up
  ip -n lan0-far link set lo up
  ip -n lan0-far address add 10.77.0.2/24 dev far
  # An address on the cable whose machine swallows what it gets.
  ip neighbour add 10.77.0.9 lladdr 02:00:00:00:00:09 dev lan0 nud permanent

  start_name_server --host-record=management.lab.test,10.77.0.3
  ip netns exec lan0-far dnsmasq --conf-file=/dev/null --no-resolv --no-hosts --user=root --listen-address=127.0.0.1 \
    --bind-interfaces --local=/test/ --pid-file="$https/far-dns.pid" --address=/lab.test/10.77.0.1
  start_web_servers
  start_proxy
  start_silent_listener 127.0.0.4
}

# start_name_server [OPTION...]: the machine's, in place of the one that runs.
start_name_server() {
  stop_server dns ':53'
  # Without --local the servers would refuse to tell that a host has no IPv6 address, and the lookup would fail.
  dnsmasq --conf-file=/dev/null --no-resolv --no-hosts --user=root --listen-address=127.0.0.1 --bind-interfaces \
    --local=/test/ --pid-file="$https/dns.pid" --log-queries --log-facility="$https/queries" \
    --host-record=ok.lab.test,127.0.0.1 --host-record=s401.lab.test,127.0.0.1 --host-record=s403.lab.test,127.0.0.1 \
    --host-record=s404.lab.test,127.0.0.1 --host-record=s500.lab.test,127.0.0.1 \
    --host-record=untrusted.lab.test,127.0.0.1 --host-record=wrong-name.lab.test,127.0.0.1 \
    --host-record=wpad.lab.test,127.0.0.1 --host-record=refused.lab.test,127.0.0.2 --host-record=mute.lab.test,127.0.0.1 \
    --host-record=silent.lab.test,127.0.0.4 --host-record=unreachable.lab.test,10.77.0.8 \
    --host-record=lost.lab.test,10.77.0.9 \
    --host-record=proxy.lab.test,10.77.0.2 "$@"
}

# stop_server NAME PORT: ends the server of that name, if it runs, and returns when its port on the machine is free.
stop_server() {
  [ -e "$https/$1.pid" ] || return 0
  kill -TERM "$(<"$https/$1.pid")"
  while [ -n "$(ss -Hlntu "src 127.0.0.1$2")" ]; do :; done
  rm -f "$https/$1.pid"
}

stop_https_servers() {
  local pids
  # Read once: a server removes its file when it ends. A stopped process takes the signal only when it goes on.
  mapfile -t pids < <(cat "$https"/*.pid)
  kill -TERM "${pids[@]}" 2>/dev/null || true
  kill -CONT "${pids[@]}" 2>/dev/null || true
  rm -rf "$https"
}

# make_authority NAME: $https/NAME.pem and its key.
make_authority() {
  openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 30 -subj "/O=Lab/CN=Authority $1" \
    -addext basicConstraints=critical,CA:TRUE -addext keyUsage=critical,keyCertSign,cRLSign \
    -keyout "$https/$1.key" -out "$https/$1.pem" 2>/dev/null
}

# make_certificate AUTHORITY NAME HOST...: $https/NAME.pem and its key, for these hosts.
make_certificate() {
  local authority=$1 name=$2
  shift 2
  local names
  names=$(printf ',DNS:%s.lab.test' "$@")
  openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 30 -subj "/O=Lab/CN=$1.lab.test" \
    -CA "$https/$authority.pem" -CAkey "$https/$authority.key" -addext "subjectAltName=${names#,}" \
    -addext basicConstraints=critical,CA:FALSE -addext extendedKeyUsage=serverAuth \
    -keyout "$https/$name.key" -out "$https/$name.pem" 2>/dev/null
}

# start_web_servers [CERTIFICATE]: in place of those that run. CERTIFICATE is what ok.lab.test shows instead of its own.
start_web_servers() {
  stop_server web ':443'
  local host status
  {
    printf 'user root; worker_processes 1; pid %s/web.pid; events {}\nhttp {\n' "$https"
    printf '  log_format name "$host $status"; access_log %s/requests name;\n' "$https"
    for host in client_body proxy fastcgi uwsgi scgi; do printf '  %s_temp_path %s/temp;\n' "$host" "$https"; done
    tls_server "${1:-server}" 'ok.lab.test inner.lab.test' 'return 200;'
    for status in 401 403 404 500; do tls_server server "s$status.lab.test" "return $status;"; done
    tls_server other wrong-name.lab.test 'return 200;'
    tls_server stranger untrusted.lab.test 'return 200;'
    tls_server server mute.lab.test 'location / { proxy_pass http://127.0.0.4:443; }'
    printf '  server { listen 127.0.0.1:80; server_name wpad.lab.test; default_type application/x-ns-proxy-autoconfig;\n'
    printf '    location = /wpad.dat { return 200 "%s"; }\n' "$(proxy_script 'PROXY proxy.lab.test:8888')"
    printf '    location = /proxy.pac { return 200 "%s"; }\n' "$(proxy_script 'PROXY proxy.lab.test:8888')"
    printf '    location = /direct.pac { return 200 "%s"; }\n' "$(proxy_script DIRECT)"
    printf '    location / { return 404; } }\n}\n'
  } >"$https/web.conf"
  nginx -e "$https/web-errors" -p "$https" -c "$https/web.conf"
}

# tls_server CERTIFICATE NAMES ANSWER
tls_server() {
  printf '  server { listen 127.0.0.1:443 ssl; listen 10.77.0.1:443 ssl; server_name %s;\n' "$2"
  printf '    %s ssl_certificate %s; ssl_certificate_key %s; }\n' "$3" "$https/$1.pem" "$https/$1.key"
}

proxy_script() { printf 'function FindProxyForURL(url, host) { return \\"%s\\"; }' "$1"; }

start_proxy() {
  printf '%s\n' 'Port 8888' 'Listen 10.77.0.2' 'Timeout 60' 'ConnectPort 443' 'LogLevel Connect' 'MaxClients 20' \
    "LogFile \"$https/proxy.log\"" "PidFile \"$https/proxy.pid\"" >"$https/proxy.conf"
  : >"$https/proxy.log"
  ip netns exec lan0-far tinyproxy -c "$https/proxy.conf"
  while [ -z "$(ip netns exec lan0-far ss -Hltn 'sport = :8888')" ]; do :; done
}

# start_silent_listener ADDRESS: a server on port 443 that is stopped before it takes a connection, so the system does.
start_silent_listener() {
  openssl s_server -quiet -accept "$1:443" -cert "$https/server.pem" -key "$https/server.key" </dev/null >/dev/null 2>&1 &
  disown
  printf '%s\n' "$!" >"$https/listener.pid"
  while [ -z "$(ss -Hltn "src $1:443")" ]; do :; done
  kill -STOP "$(<"$https/listener.pid")"
}
