#!/usr/bin/env bash
# the server's agent dies in the middle of the first copy
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"

open_source
slow_source 1 20000
begin_migration
check "the copy runs" until_copying 1
kill_agent
end_migration
check_status 1
check "the reason is the connection" grep -q "^qxmigrate: stage 'rSync' failed: " "$out"
check_rolled_back
check_services_run

step "An agent that is started again serves the next attempt"
fast_source
renew_source
migrate
check_status 0
on_server /etc/init.d/nginx start >/dev/null
on_server /etc/init.d/ticker start >/dev/null
close_source
