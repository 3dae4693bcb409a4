#!/usr/bin/env bash
# the server hangs in the middle of the second copy, without closing a connection
# long
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"

open_source
add_service_with_large_dump
slow_source 2 20000
begin_migration --stop-service dumper
check "the second copy runs" until_copying 2
lab freeze $server
end_migration
check_status 1
seconds=$(awk '$1 == "rSync2" { sub(/\..*/, "", $(NF - 2)); print $(NF - 2) }' "$out")
check "noticed within a minute (${seconds:-?} s)" test "${seconds:-61}" -le 60
check "the reason is the connection" grep -q "^qxmigrate: stage 'rSync2' failed: " "$out"

step "It wakes up, and sees to itself"
lab thaw $server
check_rolled_back
check_services_run
check "the third service was started, too" \
  until_so 10 test ! -e "$(lab root $server)/srv/www/dump"
remove_service_with_large_dump
close_source
