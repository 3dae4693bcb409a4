#!/usr/bin/env bash
# what a failed migration copied is kept, and the next attempt goes on with it
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"

open_source
add_service_with_large_dump

step "The second copy fails"
slow_source 2 20000
begin_migration --stop-service dumper --keep-on-failure
check "the second copy runs" until_copying 2
kill_rsync_on_server
end_migration
check_status 1
check "the reason is rsync's" grep -Eq \
  "^qxmigrate: stage 'rSync2' failed: rsync failed \(code (3072|2560)\) : " "$out"
check "the private area is kept" test -d $private.migrated/fs/etc
check_rolled_back
check_services_run
number=$(stat -c %i $private.migrated/fs/usr/bin/perl)

step "What was kept is kept again when the next attempt fails, without being told to"
slow_source 2 20000
begin_migration --stop-service dumper
check "the second copy runs" until_copying 2
kill_rsync_on_server
end_migration
check_status 1
check "it says so" grep -q "is kept if this one fails, too" "$out"
check_equal "the same files" "$number" "$(stat -c %i $private.migrated/fs/usr/bin/perl)"
check_rolled_back
check_services_run

step "An attempt whose plan is blocked changes nothing"
fast_source
migrate_measured --fresh --stop-service no-such
check_status 2
check_equal "the copy is there" "$number" "$(stat -c %i $private.migrated/fs/usr/bin/perl)"

step "The next attempt takes it up"
fast_source
migrate
check_status 0
check_equal "the same files" "$number" "$(stat -c %i "$(container_root)/usr/bin/perl")"
check "nothing is kept any more" test ! -e $private.migrated
check "the container is registered" grep -q registered <(qxctl status $ctid)
remove_service_with_large_dump
check_is_the_server --expect <(cat <<'END'
/etc/init.d         time     the third service was removed again
/etc/init.d/dumper  added    the third service was removed again
/srv/www            time     the third service was removed again
END
)
on_server /etc/init.d/nginx start >/dev/null
on_server /etc/init.d/ticker start >/dev/null
close_source
