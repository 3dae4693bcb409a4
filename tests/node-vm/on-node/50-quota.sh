#!/usr/bin/env bash
# disk limits of users and groups hold inside, and its own tools show them
# shellcheck source=tests/node-vm/lib.sh
. /root/node-vm/lib.sh

remove 220
for unprivileged in no yes; do
  step "Limits (unprivileged: $unprivileged)"
  check "make" make 220 OSTEMPLATE=debian-12 STORAGE=ext4 DISKSPACE=1048576:1048576 \
    QUOTAUGIDLIMIT=100 UNPRIVILEGED=$unprivileged DISTRIBUTION=debian-12 HOSTNAME=quota
  quietly qxquota setlimit2 220 -u 1000 4096 8192 50 60
  quietly qxquota setlimit2 220 -g 2000 0 4096 0 0
  check "start" quietly qxctl start 220
  check "the system is up" until_so 240 systemd_is_up 220
  check "limits are enforced" quietly qxquota stat 220
  as_user() { inside 220 setpriv --reuid 1000 --regid "${group:-1000}" --clear-groups "$@"; }
  inside 220 install -d -o 1000 -g 1000 /srv/own
  check "a user can write what is below the limit" \
    as_user dd if=/dev/zero of=/srv/own/a bs=1K count=6000 status=none
  check "not what is above" eval '! as_user dd if=/dev/zero of=/srv/own/b bs=1K count=6000 status=none 2>/dev/null'
  check "nor more files than the limit" eval "! as_user sh -c 'touch \$(seq -f /srv/own/n%g 1 80)' 2>/dev/null"
  inside 220 sh -c 'rm -rf /srv/own/*'
  check "a group's limit counts" eval \
    '! group=2000 as_user dd if=/dev/zero of=/srv/own/b bs=1K count=6000 status=none 2>/dev/null'
  found=$(inside 220 repquota -n / 2>&1 || true)
  if [ $unprivileged = no ]; then
    check "repquota inside shows them" grep -Eq '#1000 .* 8192 ' <<<"$found"
    check_equal "of all file systems, too" "$found" "$(inside 220 repquota -an 2>&1 || true)"
  else
    # The kernel answers root of the host only; what is missing inside is the device.
    check "repquota inside says why it cannot" grep -q 'device /dev/loop' <<<"$found"
  fi
  check "stop" quietly qxctl stop 220
  check_equal "limits are kept while it is stopped" 10 \
    "$(qxquota stat 220 >/dev/null 2>&1 && echo 0 || echo $?)"
  check "destroy" quietly qxctl destroy 220
done
