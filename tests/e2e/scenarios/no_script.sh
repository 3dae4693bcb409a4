#!/usr/bin/env bash
# a distribution without a post-migration script is refused at once
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"

open_source
distribution=plan9-4
migrate
check_status 1
check_says "qxmigrate: stage 'init' failed: Couldn't find a proper post migration script for the given distribution 'plan9-4'. For the list of supported distributions look for *.conf files in the /etc/sysconfig/qx-scripts/dists directory on the destination Hardware Node."
check_rolled_back
check_services_run
close_source
