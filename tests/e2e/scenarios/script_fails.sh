#!/usr/bin/env bash
# the post-migration script fails when all is copied
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"

open_source
script=/etc/sysconfig/qx-scripts/dists/scripts/failing.sh
printf '[GLOBAL]\nPOST_MIGRATE=failing.sh\n' >/etc/sysconfig/qx-scripts/dists/debian-12.conf
printf '#!/bin/sh\necho "the script does not like it" >&2\nexit 3\n' >$script
chmod 755 $script

migrate
check_status 1
check_says "qxmigrate: stage 'tuneDstSrv' failed: Deserializer command '/usr/sbin/qxctl --skiplock runscript $ctid $script' returned a non-successful status: 768. Program error output follows:
    the script does not like it"
check_rolled_back
check_services_run
close_source
