#!/usr/bin/env bash
# disk limits of users and groups hold inside, and its own tools show them
# shellcheck source=tests/node-vm/lib.sh
. /root/node-vm/lib.sh

small_template
remove 220

# as_user TEXT: as user 1000, in its group or in the one that $group says.
as_user() {
  if [ "$template" = small ]; then
    inside 220 su -s /bin/sh -c "$1" "user${group:-}" 2>/dev/null
  else
    inside 220 setpriv --reuid 1000 --regid "${group:-1000}" --clear-groups sh -c "$1" 2>/dev/null
  fi
}
write() { as_user "dd if=/dev/zero of=/srv/own/$1 bs=1024 count=$2"; }

# limits_hold: those that were set before the start.
limits_hold() {
  inside 220 mkdir -p /srv/own
  inside 220 chown 1000:1000 /srv/own
  check "limits are enforced" quietly qxquota stat 220
  check "a user can write what is below the limit" write a 6000
  check "not what is above" eval '! write b 6000'
  check "nor more files than the limit" eval "! as_user 'for n in \$(seq 80); do touch /srv/own/n\$n || exit 1; done'"
  inside 220 sh -c 'rm -rf /srv/own/*'
  check "without the group, it can again" write a 6000
  inside 220 rm -f /srv/own/a
  check "a group can write what is below its limit" eval 'group=2000 write c 100'
  check "a group's limit counts" eval '! group=2000 write b 6000'
}

for unprivileged in no yes; do
  step "Limits (unprivileged: $unprivileged)"
  template=small
  [ $unprivileged = yes ] || template=debian-12
  check "make" make 220 OSTEMPLATE=$template STORAGE=ext4 DISKSPACE=1048576:1048576 \
    QUOTAUGIDLIMIT=100 UNPRIVILEGED=$unprivileged DISTRIBUTION=debian-12 HOSTNAME=quota
  quietly qxquota setlimit2 220 -u 1000 4096 8192 50 60
  quietly qxquota setlimit2 220 -g 2000 0 4096 0 0
  check "start" quietly qxctl start 220
  if [ $template = small ]; then
    check "the system is up" until_so 30 inside 220 test -e /booted
    inside 220 sh -c 'echo user2000:x:1000:2000::/tmp:/bin/sh >>/etc/passwd'
  else
    check "the system is up" until_so 240 systemd_is_up 220
  fi
  limits_hold
  if [ $unprivileged = no ]; then
    found=$(inside 220 repquota -n / 2>&1 || true)
    check "repquota inside shows them" grep -Eq '^#1000 .* 8192 ' <<<"$found"
    check_equal "of all file systems, too" "$found" "$(inside 220 repquota -an 2>&1 || true)"
  fi
  if [ $template = small ]; then
    kib() { inside 220 df -k / | awk 'NR == 2 { print $2 }'; }
    size=$(kib)
    check "more space while it runs" quietly qxctl set 220 DISKSPACE=1114112:1114112
    inside 220 poweroff
    check "it powers itself off" until_so 30 eval '! grep -qs . /run/qx/220.init'
    check "start" up 220
    check "the image has grown: from $size to $(kib) KiB" test "$(kib)" -gt $((size + 32768))
    check_no "no mount of it is handed on" awk '/\/220[ \/]/ && /shared:/' /proc/self/mountinfo
  fi
  check "stop" quietly qxctl stop 220
  check_no "no loop device is left" losetup -j /var/lib/qx/private/220/.qx-image
  check_equal "limits are kept while it is stopped" 10 \
    "$(qxquota stat 220 >/dev/null 2>&1 && echo 0 || echo $?)"
  check "destroy" quietly qxctl destroy 220
done
