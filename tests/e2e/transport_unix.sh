# Servers whose agent was started by hand and listens on a socket.
# shellcheck shell=bash

open_source() {
  note_server_files
  lab agent start "$server"
  source=$(lab agent source "$server")
}

close_source() {
  lab agent stop "$server"
  check_server_files
}

kill_agent() { on_server kill -KILL "$(lab agent pid "$server")"; }

renew_source() { lab agent start "$server"; }

check_agent_at_rest() { :; }

# A script takes the place of stock rsync.
slow_source() {
  local place
  place=$(lab root "$server")/var/qxagent.tmp
  printf '%s %s\n' "$1" "$2" >"$place/slow"
  rm -f "$place/copies"
  [ ! -d "$place/lib.quick" ] || return 0
  # Only a program of the server's own C library runs without this.
  mv "$place/lib" "$place/lib.quick"
  mv "$place/usr/local/share/qxlinmigrate/rsync.stock" "$place/rsync.quick"
  install -m 755 "$QX_E2E/slow_rsync" "$place/usr/local/share/qxlinmigrate/rsync.stock"
}

fast_source() { slow_source 0 0; }
