#!/usr/bin/env bash
# so many servers are migrated to one node at the same time
# servers: each
# number: 8
# shellcheck source=tests/e2e/ssh-lib.sh
. "$QX_E2E/ssh-lib.sh"

# Makes the shared functions speak of this server and its container.
choose() {
  server=s$1
  ctid=$((100 + $1))
  private=/var/lib/qx/private/$ctid
  work=/tmp/e2e/$server
  out=$work/qxmigrate.out
  mkdir -p "$work"
}

declare -A runs
began=$SECONDS
for ((i = 1; i <= QX_NUMBER; i++)); do
  choose "$i"
  open_source
  begin_migration
  runs[$i]=$migration
done
for ((i = 1; i <= QX_NUMBER; i++)); do
  choose "$i"
  migration=${runs[$i]}
  end_migration >/dev/null
  check_equal "exit status of $server" 0 "$status"
  [ "$status" = 0 ] || tail -n 3 "$out"
done
printf '        %d servers, %d s\n' "$QX_NUMBER" $((SECONDS - began))

for ((i = 1; i <= QX_NUMBER; i++)); do
  choose "$i"
  check "container $ctid is what $server is" \
    eval 'qxmigrate verify $ctid >"$out" 2>&1 || ! sed "s/^/        /" "$out"'
  check_not_locked
  start_services
  close_source
done
check_equal "each has a journal" "$QX_NUMBER" "$(qxmigrate list | grep -c succeeded)"
check_nothing_runs
