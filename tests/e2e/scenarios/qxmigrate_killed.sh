#!/usr/bin/env bash
# qxmigrate is killed in one stage after the other: clean removes what it left, or the
# next attempt goes on from it
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"

# pause_tool TOOL WORD: from now on this tool of the node, called with the word, says so
# and sleeps.
pause_tool() {
  [ -e "/usr/sbin/$1.real" ] || mv "/usr/sbin/$1" "/usr/sbin/$1.real"
  rm -f "$work/paused"
  cat >"/usr/sbin/$1" <<TOOL
#!/bin/sh
case " \$* " in *" $2 "*) touch $work/paused; exec sleep 600 ;; esac
exec /usr/sbin/$1.real "\$@"
TOOL
  chmod 755 "/usr/sbin/$1"
}

continue_tool() { mv "/usr/sbin/$1.real" "/usr/sbin/$1"; }

kill_migration() {
  kill -KILL "$migration"
  end_migration
  check_status 137
  check_services_run
}

check_interrupted() {
  check "qxctl status says so" grep -Eq \
    "^  left by a migration that was interrupted at [-0-9T:]+Z; qxmigrate clean $ctid removes it, or run it again\$" \
    <(qxctl status $ctid)
  check "qxmigrate list says so" grep -Eq "^$ctid-[-0-9TZ]+ +interrupted " <(qxmigrate list)
}

clean() {
  qxmigrate clean $ctid >"$out" 2>&1 || status=$?
  sed 's/^/    | /' "$out"
}

check_clean() {
  status=0
  clean
  check_status 0
  check_rolled_back
  check_no "no folder of it in /tmp" find /tmp -maxdepth 1 -name 'qxmigrate.*'
  check "nothing is interrupted any more" eval '! grep -q interrupted <(qxmigrate list)'
  clean
  check_says "There is nothing to clean."
}

open_source
add_service_with_large_dump

step "While the private area is made"
pause_tool mkqxfs $private
begin_migration
check "it is being made" until_so 60 test -e "$work/paused"
kill_migration
continue_tool mkqxfs
check "the configuration is left" test -e /etc/sysconfig/qx-scripts/$ctid.conf
check_interrupted
check_clean

step "In the first copy"
slow_source 1 20000
begin_migration
check "the copy runs" until_copying 1
check "a migration that runs is not cleaned" eval '! qxmigrate clean $ctid >/dev/null 2>&1'
kill_migration
check_equal "the lock names the dead process" "$migration migrating" \
  "$(paste -sd' ' /run/qx/lock/$ctid.lck)"
check_interrupted
check_clean

step "In the second copy, services stopped"
slow_source 2 20000
begin_migration --stop-service dumper
check "the second copy runs" until_copying 2
check "nginx is stopped" until_so 5 eval '! service_runs nginx'
kill_migration
check_nothing_runs
check "the third service was started, too" \
  until_so 10 test ! -e "$(lab root $server)/srv/www/dump"
check_interrupted
number=$(stat -c %i "$(container_root)/usr/bin/perl")
fast_source

step "The next attempt goes on from it, and is killed while it adapts the copy"
pause_tool qxctl runscript
begin_migration
check "it adapts" until_so 300 test -e "$work/paused"
kill_migration
continue_tool qxctl
check "it went on from the copy" grep -q "is kept in $private.migrated for the next attempt" "$out"
check_equal "the same files" "$number" "$(stat -c %i "$(container_root)/usr/bin/perl")"
check_interrupted

step "The next attempt is killed while it registers the container"
pause_tool qxctl convert
begin_migration
check "it registers" until_so 300 test -e "$work/paused"
kill_migration
continue_tool qxctl
check_equal "the same files" "$number" "$(stat -c %i "$(container_root)/usr/bin/perl")"

step "This one was complete, and clean says so"
status=0
clean
check_status 0
check "says that it is registered" grep -q "Container $ctid was complete already, and is registered now" "$out"
check "the container is registered, not mounted" \
  grep -q "^container $ctid: exists, not mounted, stopped, registered\$" <(qxctl status $ctid)
check_not_locked
check_nothing_runs
check "nothing is kept" test ! -e $private.migrated

step "It is not touched by the next attempt"
migrate
check_status 1
check "the container is there" test -d "$(container_root)/etc"
remove_service_with_large_dump
close_source
