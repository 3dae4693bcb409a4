# Servers that are reached over ssh and have nothing installed.
# shellcheck shell=bash

open_source() {
  note_server_files
  source=root@$server
}

close_source() {
  check_agent_at_rest
  check_server_files
}

# Not the shell that started it and that cleans up after it.
kill_agent() { on_server pkill -KILL -f -- '^[^ ]*/ld-linux[^ ]* .*qxagent serve'; }

renew_source() { :; }

check_agent_at_rest() {
  check "nothing was left below /var" until_so 20 nothing_arrived
  check_no "no agent and no ssh of the migration runs" still_running 'qxagent|^ssh '
}

nothing_arrived() { [ ! -e "$(lab root "$server")/var/qxagent.tmp" ]; }

# The network is slow.
slow_source() {
  slower=
  : >"$out"
  if [ "$1" = 1 ]; then
    slow_network "$2"
  else
    slow_network_when_services_stopped "$2" &
    slower=$!
  fi
}

slow_network_when_services_stopped() {
  until stage_is_done stopServices; do sleep 0.02; done
  slow_network "$1"
}

on_servers_network() {
  local init
  init=$(lab view "$server")
  nsenter --net="${init%/root}/ns/net" "$@"
}

slow_network() {
  on_servers_network tc qdisc replace dev eth0 root tbf rate "$(($1 * 8))kbit" \
    burst 256kb latency 100ms
}

fast_source() {
  [ -z "${slower:-}" ] || kill "$slower" 2>/dev/null || true
  on_servers_network tc qdisc delete dev eth0 root 2>/dev/null || true
}
