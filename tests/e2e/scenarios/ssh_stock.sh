#!/usr/bin/env bash
# a server whose environment asks for stock rsync gets it, and limits hold for that, too
# shellcheck source=tests/e2e/ssh-lib.sh
. "$QX_E2E/ssh-lib.sh"

# PAM gives it to every session, those of ssh among them.
echo QX_RSYNC_ENGINE=stock >>"$(lab root $server)/etc/environment"
bash "$QX_E2E/curiosities.sh" "$(lab root $server)"
open_source

begin_migration --ip 192.0.2.101/24 --bwlimit 50M --nice
check "the server's rsync gives way to others" \
  until_so 20 eval 'on_server ps -eo ni=,comm= | grep -q "^ *19 rsync"'
end_migration
check_status 0
check "it is no faster than it may be" test "$(stage_seconds rSync)" -ge 4
check_says "  copied by stock rsync, as the other end asks for it"
check_no "the engine copies nothing" grep 'copied by the engine' "$out"
check_is_the_server
start_services
close_source
