#!/usr/bin/env bash
# Ctrl-C during the first copy and during the second
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"

open_source

step "In the first copy"
slow_source 1 20000
begin_migration
check "the copy runs" until_copying 1
kill -INT "$migration"
end_migration
check_status 130
check_says "qxmigrate: cancelled in stage 'rSync'"
check_rolled_back
check_services_run

step "In the second copy, services stopped"
add_service_with_large_dump
slow_source 2 20000
begin_migration --stop-service dumper
check "the second copy runs" until_copying 2
check "nginx is stopped" until_so 5 eval '! service_runs nginx'
check "ticker is stopped" until_so 5 eval '! service_runs ticker'
kill -INT "$migration"
end_migration
check_status 130
check_says "qxmigrate: cancelled in stage 'rSync2'"
check_rolled_back
check_services_run
check "the third service was started, too" test ! -e "$(lab root $server)/srv/www/dump"
remove_service_with_large_dump
close_source
