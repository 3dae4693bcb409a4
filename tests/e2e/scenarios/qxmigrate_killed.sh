#!/usr/bin/env bash
# qxmigrate dies: the server sees to itself
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"

open_source
add_service_with_large_dump

step "In the second copy, services stopped"
slow_source 2 20000
begin_migration --stop-service dumper
check "the second copy runs" until_copying 2
check "nginx is stopped" until_so 5 eval '! service_runs nginx'
kill -KILL "$migration"
end_migration
check_status 137
check_nothing_runs
check_services_run
check "the third service was started, too" \
  until_so 10 test ! -e "$(lab root $server)/srv/www/dump"

step "The node's half is there to be looked at"
check_equal "the lock names the dead process" "$migration migrating" \
  "$(paste -sd' ' /run/qx/lock/$ctid.lck)"
check "the files are there" test -d "$(container_root)/etc"
migrate
check_status 1
check_says "qxmigrate: stage 'createDstSrv' failed: Both CT private area and config file already exist. Refuse migrating into an already existing CT."
check_not_locked

step "The administrator removes it, and the next attempt succeeds"
qxctl destroy $ctid
check_rolled_back
fast_source
migrate
check_status 0
on_server /etc/init.d/nginx start >/dev/null
on_server /etc/init.d/ticker start >/dev/null
remove_service_with_large_dump
close_source
