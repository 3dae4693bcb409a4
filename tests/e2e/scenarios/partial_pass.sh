#!/usr/bin/env bash
# a second copy that leaves files out is made once more, and is not taken for complete
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"

# A file of the kernel's that cannot be read: "Input/output error".
unreadable=/sys/devices/platform/power/autosuspend_delay_ms
root=$(lab root $server)
for name in broken 'broken too'; do echo "of $name" >"$root/srv/www/$name"; done

break_files() {
  for name in broken 'broken too'; do on_server mount --bind $unreadable "/srv/www/$name"; done
}

mend_files() {
  for name in broken 'broken too'; do on_server umount "/srv/www/$name"; done
}

count_of() { grep -c "^$1  *.* done\$" "$out"; }

remove_container() {
  qxctl destroy $ctid >/dev/null
  on_server /etc/init.d/nginx start >/dev/null
  on_server /etc/init.d/ticker start >/dev/null
}

open_source
break_files
check "the file cannot be read" grep -q 'Input/output error' <(on_server cat /srv/www/broken 2>&1)

step "What cannot be read fails the migration"
migrate
check_status 1
check_says "  The second copy is not complete: 2 files are not as they are on the server.
    /srv/www/broken: cannot be read on the server: Input/output error
    /srv/www/broken too: cannot be read on the server: Input/output error
  It is made once more."
check_equal "the second copy is made twice" 2 "$(count_of rSync2)"
check "the reason, and what to do" grep -q "^qxmigrate: stage 'checkCopy' failed: 2 files are not as \
they are on the server, although the second copy was made twice. The first: /srv/www/broken: cannot \
be read on the server: Input/output error. Mend that, leave it out with --exclude, or go on without \
it with --accept-partial; 'qxmigrate show $ctid' lists what it is\$" "$out"
check_rolled_back
check_services_run
check "the journal lists the files" grep -q '^    /srv/www/broken too: cannot be read on the server' \
  <(qxmigrate show $ctid)

step "Unless that is accepted"
migrate --accept-partial
check_status 0
check "it is said in the end" grep -q "^qxmigrate: warning: container $ctid is not complete: 2 files" "$out"
check "the journal lists the files" grep -q '^    /srv/www/broken: cannot be read on the server' \
  <(qxmigrate show $ctid)
check "one of them is missing" test ! -s "$(container_root)/srv/www/broken"
check "all else is there" test -s "$(container_root)/srv/www/index.html"
mend_files
qxmigrate verify $ctid >"$out" 2>&1 || true
check "a comparison finds them" grep -q '/srv/www/broken' "$out"
remove_container

step "What can be read the second time is no failure"
break_files
begin_migration
stopped_in() { python3 "$QX_E2E/stop_in_stage.py" "$migration" /var/lib/qx/migrations "$1" >/dev/null; }
check "the second copy begins" stopped_in rSync2
kill -CONT "$migration"
check "and then the next" stopped_in startRSyncServer2
mend_files
kill -CONT "$migration"
end_migration
check_status 0
check_says "  The second copy is complete now."
check_equal "the second copy was made twice" 2 "$(count_of rSync2)"
check_equal "the file is there" "of broken" "$(cat "$(container_root)/srv/www/broken")"
check_no "nothing is left out" grep 'not as on the server' <(qxmigrate show $ctid)
remove_container

step "What is excluded is no failure"
break_files
migrate --exclude '/srv/www/broken*'
check_status 0
check_equal "the second copy was made once" 1 "$(count_of rSync2)"
mend_files
remove_container
close_source
