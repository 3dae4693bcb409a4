#!/usr/bin/env bash
# the migration ends while a script is stopping a service, which ignores "start" meanwhile
# long
# shellcheck source=tests/e2e/ssh-lib.sh
. "$QX_E2E/ssh-lib.sh"

open_source
script=$(lab root $server)/etc/init.d/slow
cat >"$script" <<'END'
#!/bin/sh
case $1 in
  start) [ -e /run/slow.stopping ] || touch /run/slow ;;
  stop) touch /run/slow.stopping; sleep 8; rm -f /run/slow /run/slow.stopping ;;
esac
END
chmod 755 "$script"
on_server /etc/init.d/slow start

is_stopping() { on_server test -e /run/slow.stopping; }
slow_runs() { ! is_stopping && on_server test -e /run/slow; }

# The stage of the migration in which the service is being stopped.
begin_to_stop() {
  begin_migration --stop-service slow
  check "the service is being stopped" until_so 60 is_stopping
}

check_slow_runs() {
  check_services_run
  check "the slow service was started when it had stopped" until_so 30 slow_runs
  check "nothing was left below /var" until_so 30 nothing_arrived
}

step "The agent dies"
begin_to_stop
kill_agent
end_migration
check_status 1
check_slow_runs

step "Agent and starter die"
begin_to_stop
on_server pkill -KILL -f -- '(^|/)(ld-linux[^ ]* .*qxagent serve|sh -c D=/var/qxagent.tmp)'
end_migration
check_status 1
check_slow_runs

step "Ctrl-C"
begin_to_stop
kill -INT "$migration"
end_migration
check_status 130
check_slow_runs

step "The guard dies at its work, too"
begin_to_stop
on_server pkill -KILL -f /var/qxagent.tmp
end_migration
check_status 1
on_server mv /var/qxagent.tmp /var/qxagent.tmp.left
plan=0
qxmigrate plan "$source" --ctid 103 --duration 0 >"$work/plan.out" 2>&1 || plan=$?
check "the plan is made" test "$plan" -le 2
check_slow_runs
check "and the guard's folder is gone" on_server test ! -e /var/qxagent.tmp.left

step "What was stopped before a boot stays stopped"
begin_to_stop
on_server pkill -KILL -f /var/qxagent.tmp
end_migration
check "it has stopped" until_so 20 eval '! is_stopping'
on_server sed -i '1s/.*/8b1e4d0e-2f2a-4f0b-9a3c-0d5c6e7f8a9b/' /var/qxagent.tmp/stopped-services
qxmigrate plan "$source" --ctid 103 --duration 0 >"$work/plan.out" 2>&1 || plan=$?
check "nothing is started" eval '! slow_runs && ! service_runs nginx'
check "the folder is gone" until_so 10 nothing_arrived
start_services
rm -f "$script"
on_server rm -f /run/slow
close_source
