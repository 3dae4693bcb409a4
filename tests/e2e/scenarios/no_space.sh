#!/usr/bin/env bash
# too small a disk is refused before anything is copied
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"

open_source
mkdir -p /var/lib/qx
mount -t tmpfs -o size=64m,mode=755 small /var/lib/qx

migrate
check_status 1
check_says "qxmigrate: failed after stage 'getFreeDiskSpace': There is not enough free disk space for p2v."
check "the sizes were shown" grep -Eq 'Disk usage: required [0-9]+M, available 64M$' "$out"
check_rolled_back
check_services_run
close_source
