#!/usr/bin/env bash
# where no direct connection is wanted, the copy goes through ssh, and there is no other
# shellcheck source=tests/e2e/ssh-lib.sh
. "$QX_E2E/ssh-lib.sh"

open_source
begin_migration --ip 192.0.2.101/24 --bwlimit 20M --direct off
check "the first copy runs" until_copying 1
check_equal "the server has no connection but ssh's" "" \
  "$(on_servers_network ss -tnH state established not sport = :22)"
end_migration
check_status 0
check_says "Container $ctid is ready."
check_says "  copied by the engine: everything"
check_says "  copied by the engine: what has changed since the last pass"
check_no "nothing goes past ssh" grep 'the copy goes directly' "$out"

step "The copy is the server"
check_is_the_server
check_nothing_runs
start_services
close_source
