# The host agent on a server, the way it is brought there by hand: the product's
# files below /var/qxagent.tmp, which no migration copies, and a socket that the
# node sees through the server's root directory.
# shellcheck shell=bash

AGENT_PLACE=/var/qxagent.tmp

agent_main() {
  local verb=${1:-} server=${2:-}
  server_check "$server"
  ! server_is_vm "$server" || die "agent: $server is a virtual machine; reach it over ssh"
  case $verb in
    start) agent_start "$server" "${@:3}" ;;
    stop) agent_stop "$server" ;;
    pid) agent_pid "$server" ;;
    source) printf 'unix:%s%s/agent.sock\n' "$(server_root "$server")" "$AGENT_PLACE" ;;
    *) die "agent: unknown verb '$verb'" ;;
  esac
}

agent_install() {
  local target
  target=$(server_root "$1")$AGENT_PLACE
  [ ! -d "$target/usr" ] || return 0
  [ -d "$LAB_HERE/product" ] || die "agent: no product on the node, see run --install"
  install -d -m 700 "$target"
  cp -a "$LAB_HERE/product/." "$target/"
  agent_add_rsync "$target/usr/local/share/qxlinmigrate" "$target/lib"
}

# The server has no rsync; it gets the node's, with what that one needs, where
# the product's rsync looks for them.
agent_add_rsync() {
  local share=$1 lib=$2
  mkdir -p "$lib"
  cp -L /usr/bin/rsync "$share/rsync.stock"
  ldd /usr/bin/rsync | awk '$3 ~ /^\// { print $3 } $1 ~ /^\// { print $1 }' |
    xargs -I{} cp -L {} "$lib/"
}

# agent_start SERVER [OPTION of qxagent serve...]
agent_start() {
  local server=$1 root name sanitizer=()
  shift
  root=$(server_root "$server")
  agent_install "$server"
  # One that was built with a sanitizer, and what it starts, heeds the caller's options.
  for name in ASAN_OPTIONS TSAN_OPTIONS; do
    [ -z "${!name:-}" ] || sanitizer+=("$name=${!name}")
  done
  # Of a dead agent: its successor would replace it, but that is waited for below.
  rm -f "$root$AGENT_PLACE/agent.sock"
  # In a session of its own: it outlives the command that starts it.
  # shellcheck disable=SC2016
  server_exec "$server" env "${sanitizer[@]}" /bin/sh -c '
    place=$1 && shift
    cd /
    QXA_TMPDIR=$place setsid "$place/usr/local/bin/qxagent" serve \
      --listen "unix:$place/agent.sock" "$@" </dev/null >"$place/agent.log" 2>&1 &
    echo $! >"$place/agent.pid"' sh "$AGENT_PLACE" "$@" </dev/null
  wait_for 10 test -S "$root$AGENT_PLACE/agent.sock" || {
    cat "$root$AGENT_PLACE/agent.log" >&2
    die "the agent on $server does not start"
  }
}

# Prints the agent's pid on the server; fails when it does not run.
agent_pid() {
  local file
  file=$(server_root "$1")$AGENT_PLACE/agent.pid
  [ -e "$file" ] && server_exec "$1" kill -0 "$(cat "$file")" 2>/dev/null </dev/null &&
    cat "$file"
}

agent_ended() { ! agent_pid "$1" >/dev/null; }

# Stops the agent and removes what was brought.
agent_stop() {
  local pid
  if pid=$(agent_pid "$1"); then
    server_exec "$1" kill "$pid" </dev/null
    wait_for 30 agent_ended "$1" || die "the agent on $1 does not end"
  fi
  rm -rf "$(server_root "$1")$AGENT_PLACE"
}
