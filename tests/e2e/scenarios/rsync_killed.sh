#!/usr/bin/env bash
# rsync is killed on the server in the middle of a copy
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"

open_source
slow_source 1 20000

step "In the first copy"
begin_migration
check "the copy runs" until_copying 1
kill_rsync_on_server
end_migration
check_status 1
# Its reader or its writer may find out first.
check "the reason is rsync's" grep -Eq \
  "^qxmigrate: stage 'rSync' failed: rsync failed \(code (3072|2560)\) : " "$out"
check_rolled_back
check_services_run

step "The next attempt succeeds"
fast_source
migrate
check_status 0
on_server /etc/init.d/nginx start >/dev/null
on_server /etc/init.d/ticker start >/dev/null
close_source
