#!/usr/bin/env bash
# a running server becomes a registered container, true to the last attribute
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"

step "The server holds everything that a file system can hold"
bash "$QX_E2E/curiosities.sh" "$(lab root $server)"
open_source

step "Migrate"
migrate --ip 192.0.2.101/24 --nameserver 192.0.2.1
check_status 0
for stage in lockVPS createDstSrv getUsageDiskSpace getFreeDiskSpace dumpQuota startRSyncServer \
  rSync waitRSyncServer stopServices startRSyncServer2 rSync2 waitRSyncServer2 restoreQuota \
  tuneDstSrv finish; do
  check "stage $stage was shown" stage_is_done "$stage"
done
check_says "Container $ctid is ready."
check_says "  copied by the engine: everything"
check_says "  copied by the engine: what has changed since the last pass"
# The lab's servers are on overlays, of which the kernel tells nothing.
check "the report says what was looked for and what was tracked" grep -Eq \
  '^  changes on /(: tracked| \(overlay\): looked for everywhere, as the file system cannot be watched); (on .*; )?on /run: tracked; (on .*; )?[1-9][0-9]* directories visited$' "$out"

step "The container is registered, unlocked and not mounted"
qxctl status $ctid
check "qxctl says registered" grep -q '^container 101: exists, not mounted, stopped, registered$' \
  <(qxctl status $ctid)
check_not_locked
check_no "nothing is mounted" grep -F "/var/lib/qx/root/$ctid" /proc/mounts
check_nothing_runs

step "The services that were named stay stopped, the others run"
check "nginx is stopped" until_so 5 eval '! service_runs nginx'
check "ticker is stopped" until_so 5 eval '! service_runs ticker'
check "cron runs" service_runs cron
check "sshd runs" service_runs ssh

step "The copy is the server"
check_is_the_server

step "The second copy has what the service wrote until it was stopped"
ticker=$(container_root)/var/lib/ticker
check_equal "the journal and the table agree" "$(tail -n 1 "$ticker/begun")" \
  "$(tail -n 1 "$ticker/ended")"
check_equal "up to the moment of stopping" "$(cat "$ticker/stopped-at")" \
  "$(tail -n 1 "$ticker/ended")"
check_equal "without a gap" "$(wc -l <"$ticker/ended")" "$(tail -n 1 "$ticker/ended")"

step "The agent leaves nothing behind"
on_server /etc/init.d/ticker start >/dev/null
on_server /etc/init.d/nginx start >/dev/null
close_source
