#!/usr/bin/env bash
# a second migration of a server is refused while the first runs; a dead one's files go
# shellcheck source=tests/e2e/ssh-lib.sh
. "$QX_E2E/ssh-lib.sh"

open_source
place=$(lab root $server)/var/qxagent.tmp

step "Two migrations of the same server"
slow_source 1 20000
begin_migration
check "the copy runs" until_copying 1
owner=$(<"$place/pid")
# The second waits some seconds for the end of the first, which is longer in coming.
kill -STOP "$migration"
other=0
qxmigrate "$source" --ctid 102 --no-measure --distribution "$distribution" >"$work/other.out" 2>&1 || other=$?
sed 's/^/    | /' "$work/other.out"
check_equal "the second ends with status 1" 1 "$other"
check "and names the process that is in its way" grep -qxF \
  "qxmigrate: stage 'connect' failed: another migration of root@$server is running: process $owner there. Wait for it, or end it on the server" \
  "$work/other.out"
check "it created nothing" test ! -e /var/lib/qx/private/102 -a ! -e /run/qx/lock/102.lck
kill -CONT "$migration"
fast_source
end_migration
check_status 0
check_agent_at_rest
qxctl destroy $ctid
start_services

step "Everything of a migration dies at once on the server"
slow_source 1 20000
begin_migration
check "the copy runs" until_copying 1
on_server pkill -KILL -f /var/qxagent.tmp
end_migration
check_status 1
check "its directory is left" test -f "$place/pid"
fast_source

step "The next one clears it away"
migrate
check_status 0
qxctl destroy $ctid >/dev/null
start_services

step "Everything dies at once while services are stopped"
add_service_with_large_dump
slow_source 2 20000
begin_migration --stop-service dumper
check "the second copy runs" until_copying 2
check "nginx is stopped" until_so 5 eval '! service_runs nginx'
on_server pkill -KILL -f /var/qxagent.tmp
end_migration
check_status 1
fast_source
check "nginx is still stopped" eval '! service_runs nginx'

step "The next connection starts them, whatever it is for"
plan=0
qxmigrate plan "$source" --ctid 103 --duration 0 >"$work/plan.out" 2>&1 || plan=$?
check "the plan is made" test "$plan" -le 2
check_services_run
check "the third service was started, too" test ! -e "$(lab root $server)/srv/www/dump"
remove_service_with_large_dump
close_source
