#!/usr/bin/env bash
# the host is rebooted: what ran is stopped in an orderly way and comes back
# shellcheck source=tests/node-vm/beside.sh
. "$QX_NODE_TESTS/beside.sh"

step "Two that come back, one that does not, one on a disk that comes late"
on_node bash -s <<'END'
. /root/node-vm/lib.sh
small_template
remove 241 242 243 244
make 241 OSTEMPLATE=small ONBOOT=yes BOOTORDER=2 UNPRIVILEGED=no IP_ADDRESS=192.0.2.141/24
make 242 OSTEMPLATE=small ONBOOT=yes BOOTORDER=1 UNPRIVILEGED=yes
make 243 OSTEMPLATE=small
mkdir -p /srv/btrfs/private
make 244 OSTEMPLATE=small ONBOOT=yes VE_PRIVATE=/srv/btrfs/private/244
for id in 241 242 243 244; do up $id; done
sed -i '/btrfs/s/defaults/defaults,nofail/' /etc/fstab
mkdir -p /etc/systemd/system/srv-btrfs.mount.d
printf '[Unit]\nRequires=late-disk.service\nAfter=late-disk.service\n' \
  >/etc/systemd/system/srv-btrfs.mount.d/late.conf
printf '[Unit]\nDefaultDependencies=no\n[Service]\nType=oneshot\nRemainAfterExit=yes\nExecStart=sleep 20\n' \
  >/etc/systemd/system/late-disk.service
systemctl daemon-reload
sync
trap - EXIT
END
check "four run" test "$(on_node qxctl list | grep -c running)" = 4

reboot_node

step "After the reboot"
runs() { on_node sh -c "qxctl status $1 | grep -q ', running,'"; }
check "241 runs" until_so 300 runs 241
check "242 runs" until_so 120 runs 242
check "243 does not" eval '! runs 243'
check "244, whose disk came late, runs" until_so 120 runs 244
check "243 was ended in an orderly way" on_node test -e /var/lib/qx/private/243/fs/ended
for area in /var/lib/qx/private/241 /var/lib/qx/private/242 /srv/btrfs/private/244; do
  check "and so was ${area##*/}" on_node test -e "$area/fs/ended-before"
done
# Ticks of the clock at which their inits began.
began=$(on_node sh -c 'for id in 242 241 244; do cut -d" " -f2 /run/qx/$id.init; done' | paste -sd' ')
in_order() { [ "$(wc -w <<<"$1")" = 3 ] && tr ' ' '\n' <<<"$1" | sort -c -n; }
check "by BOOTORDER, one after the other: $began" in_order "$began"
check_no "no unit of the host failed" on_node systemctl list-units --failed --plain --no-legend --no-pager
check "the service that ended them came to its end before the host's" on_node sh -c \
  'journalctl -b -1 -u qx-containers --no-pager | grep -q "qx-containers.service: Deactivated successfully"'

step "An area that is not mounted"
on_node sh -c 'qxctl stop 244 && umount /srv/btrfs' >/dev/null
check "list says so" on_node sh -c 'qxctl list -a | grep 244 | grep -q "area not mounted"'
check "start says so" on_node sh -c '! qxctl start 244 2>/tmp/said && grep -q "not mounted" /tmp/said'
check "nothing was made in its place" on_node test ! -e /srv/btrfs/private
on_node bash -c '. /root/node-vm/lib.sh; trap - EXIT; mount /srv/btrfs; remove 241 242 243 244
  rm -r /etc/systemd/system/srv-btrfs.mount.d /etc/systemd/system/late-disk.service
  systemctl daemon-reload'
