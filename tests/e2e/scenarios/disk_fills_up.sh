#!/usr/bin/env bash
# a disk that fills up during the copy
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"

open_source
mkdir -p /var/lib/qx
mount -t tmpfs -o size=512m,mode=755 small /var/lib/qx
# Used space counts as space that the disk can give: the check passes.
head -c 400M /dev/zero >/var/lib/qx/ballast

migrate
check_status 1
check_says "qxmigrate: stage 'rSync' failed: rsync failed (code 2816) : "
check "rsync's own words follow" grep -q "No space left on device (28)" "$out"
check_rolled_back
check_services_run
close_source
