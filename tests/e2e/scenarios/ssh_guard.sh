#!/usr/bin/env bash
# the agent and the shell that brought it die together, with services stopped
# long
# shellcheck source=tests/e2e/ssh-lib.sh
. "$QX_E2E/ssh-lib.sh"

open_source
place=$(lab root $server)/var/qxagent.tmp
add_service_with_large_dump

step "The guard is none of the login's"
slow_source 2 20000
begin_migration --stop-service dumper
check "the second copy runs" until_copying 2
check "nginx is stopped" until_so 5 eval '! service_runs nginx'
guard=$(on_server pgrep -f '^/bin/sh /var/qxagent.tmp/bin/guard.sh' | head -n 1)
check "the guard runs" test -n "$guard"
check_equal "in a session of its own" "$guard" "$(on_server ps -o sid= -p "$guard" | tr -d ' ')"
check "in a scope of its own" grep -Eq '/run-[^/]*\.scope$' <(on_server cat "/proc/$guard/cgroup")

step "Agent and starter die"
on_server pkill -KILL -f -- '(^|/)(ld-linux[^ ]* .*qxagent serve|sh -c D=/var/qxagent.tmp)'
end_migration
check_status 1
check_services_run
check "the third service was started, too" \
  until_so 10 test ! -e "$(lab root $server)/srv/www/dump"
check "the folder is gone" until_so 20 nothing_arrived
check "the guard has left" until_so 20 eval '! on_server pgrep -f guard.sh'
check_rolled_back

step "A stopped agent is ended, and whoever should clean up after it is stopped, too"
fast_source
slow_source 2 20000
begin_migration --stop-service dumper
check "the second copy runs" until_copying 2
on_server pkill -STOP -f '^/var/qxagent.tmp/lib/ld-linux'
on_server kill -STOP "$(<"$place/pid")"
end_migration
check_status 1
check "nginx runs on the server" until_so 200 service_runs nginx
check_services_run
fast_source
remove_service_with_large_dump
close_source
