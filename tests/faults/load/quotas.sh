#!/usr/bin/env bash
# a server, a virtual machine with quotas of its own, has limits for so many users
# number: 3000
# servers: alpha:vm
# shellcheck source=tests/e2e/ssh-lib.sh
. "$QX_E2E/ssh-lib.sh"

nothing_arrived() { on_server test ! -e /var/qxagent.tmp; }

first_user=5000
# Each has a file, as limits of who owns nothing are asked for by the plan only.
told() {
  local i
  for ((i = 0; i < QX_NUMBER; i++)); do
    printf 'user %d %d %d %d %d\n' $((first_user + i)) $((1000 + i)) $((2000 + i)) $((10 + i)) $((20 + i))
  done
}

step "Set them on the server"
told | lab exec $server bash -c '
  mkdir /srv/owned && cd /srv/owned
  perl -ane '"'"'
    open(my $file, ">", $F[1]) or die "$F[1]: $!";
    chown $F[1], $F[1], $file or die "$F[1]: $!";
    print "@F[1 .. 5]\n"'"'"' >/tmp/limits
  setquota -u -b / </tmp/limits
  sync'
open_source
began=$SECONDS
migrate --ip 192.0.2.101/24
check_status 0
printf '        %d users: %d s, read in %d s, set in %d s\n' "$QX_NUMBER" $((SECONDS - began)) \
  "$(stage_seconds dumpQuota)" "$(stage_seconds restoreQuota)"
qxquota stat $ctid -t >"$work/table" || true
check_no "each user has the limits that the server has" diff <(told) \
  <(awk '$1 == "user" && NF == 10 && $2 >= '$first_user' { print $1, $2, $4, $5, $8, $9 }' "$work/table" | sort -k2n)
start_services
close_source
