#!/usr/bin/env bash
# the link is cut during the first copy and during the second: both ends notice
# long
# shellcheck source=tests/e2e/ssh-lib.sh
. "$QX_E2E/ssh-lib.sh"

# cut_in STAGE: cuts the link, and waits for both ends to notice.
cut_in() {
  local cut=$SECONDS
  lab cut $server
  check "the server stops copying by itself within a minute" until_so 60 server_is_quiet
  printf '        after %d s\n' $((SECONDS - cut))
  check "and clears up" until_so 15 nothing_arrived
  end_migration
  printf '        qxmigrate ended %d s after the cut\n' $((SECONDS - cut))
  check_status 1
  check "the stage was $1" grep -q "^qxmigrate: stage '$1' failed: " "$out"
  check_begins "qxmigrate: the server could not be told, and undoes its part by itself"
  check "qxmigrate noticed and was done within a minute" test $((SECONDS - cut)) -le 60
  check_services_run
  lab join $server
  fast_source
  check_rolled_back
}

server_is_quiet() { ! on_server pgrep -f 'rsync.*--server' >/dev/null; }

open_source

step "In the first copy"
slow_source 1 20000
begin_migration
check "the copy runs" until_copying 1
cut_in rSync

step "In the second copy, services stopped"
add_service_with_large_dump
slow_source 2 20000
begin_migration --stop-service dumper
check "the second copy runs" until_copying 2
check "nginx is stopped" until_so 5 eval '! service_runs nginx'
cut_in rSync2
check "the third service was started, too" test ! -e "$(lab root $server)/srv/www/dump"

step "The next attempt succeeds"
migrate
check_status 0
remove_service_with_large_dump
start_services
close_source
