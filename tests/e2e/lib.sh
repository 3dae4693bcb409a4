# What the scenarios share. A scenario runs on the lab's node, beside a server
# called alpha, and says what it finds (checks.sh).
#
# Servers are reached by $source alone, so that a scenario holds for every
# transport.
# shellcheck shell=bash

server=alpha
ctid=101
distribution=debian-12
private=/var/lib/qx/private/$ctid
work=/tmp/e2e
out=$work/qxmigrate.out
mkdir -p "$work"

# shellcheck source=tests/e2e/checks.sh
. "$QX_E2E/checks.sh"

# --- Saying what is so --------------------------------------------------------

# check_says TEXT: the migration printed this, character for character, in one
# or more whole lines.
check_says() {
  local found
  found=$(<"$out")
  check "says: ${1//$'\n'/ / }" grep_whole "$1" "$found"
}

grep_whole() { [[ $'\n'"$2"$'\n' == *$'\n'"$1"$'\n'* ]]; }

note_server_files() { lab files "$server" >"$work/files.before"; }

check_server_files() {
  lab files "$server" >"$work/files.after"
  check_no "the server's files are as they were" diff "$work/files.before" "$work/files.after"
}

# --- The server ---------------------------------------------------------------

# What depends on how the server is reached:
#   open_source     sets $source to what qxmigrate calls the server
#   close_source    ends what was started there, and checks that nothing is left
#   kill_agent      kills the server's agent
#   renew_source    makes the source usable again after that
#   slow_source COPY RATE
#                   the server sends the first or second copy of the next migration
#                   with so many KiB per second only: time to disturb it
#   fast_source     undoes it
#   check_agent_at_rest
#                   the agent is as it is between migrations
# shellcheck source=tests/e2e/transport_unix.sh
. "$QX_E2E/transport_${QX_E2E_TRANSPORT:-unix}.sh"

on_server() { lab exec "$server" "$@" </dev/null; }

kill_rsync_on_server() { on_server pkill -KILL -f -- 'rsync.*--server'; }

# A service that writes 300 MiB when it is stopped, as a database writes its
# tables: the second copy has something to do.
add_service_with_large_dump() {
  local root
  root=$(lab root "$server")
  cat >"$root/etc/init.d/dumper" <<'END'
#!/bin/sh
case $1 in
  start) rm -f /srv/www/dump ;;
  stop) head -c 300M /dev/urandom >/srv/www/dump ;;
esac
END
  chmod 755 "$root/etc/init.d/dumper"
}

remove_service_with_large_dump() { rm -f "$(lab root "$server")"/{etc/init.d/dumper,srv/www/dump}; }

service_runs() { on_server systemctl is-active --quiet "$1"; }

check_services_run() {
  check "nginx runs on the server" until_so 10 service_runs nginx
  check "ticker runs on the server" until_so 10 service_runs ticker
}

# --- The migration ------------------------------------------------------------

# migrate [OPTION...]: runs qxmigrate; sets $status.
migrate() {
  begin_migration "$@"
  end_migration
}

# The same, with limits that are measured.
migrate_measured() {
  no_measure=()
  migrate "$@"
  no_measure=(--no-measure)
}

no_measure=(--no-measure)

begin_migration() {
  : >"$out"
  # A job in the background is deaf to SIGINT unless told otherwise.
  env --default-signal=INT qxmigrate "$source" --ctid "$ctid" "${no_measure[@]}" --distribution "$distribution" \
    --hostname "$server" --stop-service nginx --stop-service ticker "$@" >"$out" 2>&1 &
  migration=$!
}

end_migration() {
  status=0
  wait "$migration" || status=$?
  sed 's/^/    | /' "$out"
}

stage_is_done() { grep -q "^$1  *.* done\$" "$out"; }

# until_copying NUMBER: until the first or second copy runs and has moved data.
until_copying() {
  local before=startRSyncServer
  [ "$1" = 1 ] || before=startRSyncServer2
  until_so 60 stage_is_done "$before" || return 1
  [ "$1" != 1 ] || until_so 60 has_files
}

has_files() { [ "$(find "$private/fs" 2>/dev/null | wc -l)" -gt 300 ]; }

container_root() { printf '%s/fs' "$private"; }

# check_is_the_server [OPTION...]: what differs between the container's files and the server's
# is expected; options are the comparison's.
check_is_the_server() {
  check "all differences are expected" "$QX_TREEDIFF" --expect "$QX_E2E/expect/running-server" \
    --expect "$QX_E2E/expect/debian-container" "$@" "$(lab view "$server")" "$(container_root)"
}

# --- What a failed migration leaves -------------------------------------------

check_nothing_runs() {
  check_no "no rsync runs on either side" still_running 'rsync.*--(server|fdin)'
  check_no "nothing else of the migration runs" still_running '^[^ ]*(qxmigrate|qxctl|mkqxfs|qxpkg|qxquota) '
  check_agent_at_rest
}

# Prints what runs with such a command line, on the node and on the server,
# after waiting some seconds for it.
still_running() {
  local end=$((SECONDS + 15)) found
  while :; do
    found=$(pgrep -af -- "$1") || return 0
    [ "$SECONDS" -lt "$end" ] || break
    sleep 0.1
  done
  printf '%s\n' "$found"
}

check_not_locked() { check "container $ctid is not locked" test ! -e /run/qx/lock/$ctid.lck; }

check_rolled_back() {
  check "no private area" test ! -e "$private"
  check "no configuration" test ! -e /etc/sysconfig/qx-scripts/$ctid.conf
  check_no "nothing is mounted" grep -F "/var/lib/qx/root/$ctid" /proc/mounts
  check "no root directory with files" test -z "$(ls -A /var/lib/qx/root/$ctid 2>/dev/null)"
  check_not_locked
  check_nothing_runs
}
