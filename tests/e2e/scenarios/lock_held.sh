#!/usr/bin/env bash
# a container id that is locked is left alone
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"

open_source
sleep 1000 &
holder=$!
mkdir -p /run/qx/lock
printf '%d\nstarting\n' $holder >/run/qx/lock/$ctid.lck

step "A live process holds the lock"
migrate
check_status 1
check_says "qxmigrate: stage 'lockVPS' failed: Unable to lock CT $ctid already locked by process #$holder"
check_equal "its lock is still there" "$holder starting" "$(paste -sd' ' /run/qx/lock/$ctid.lck)"
check "no private area" test ! -e $private
check "no configuration" test ! -e /etc/sysconfig/qx-scripts/$ctid.conf
check_services_run

step "The holder is gone: a stale lock does not hinder"
kill $holder
wait $holder || true
migrate
check_status 0
check_not_locked
check "the container is registered" grep -q registered <(qxctl status $ctid)
on_server /etc/init.d/nginx start >/dev/null
on_server /etc/init.d/ticker start >/dev/null
close_source
