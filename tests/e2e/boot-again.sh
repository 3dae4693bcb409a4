#!/usr/bin/env bash
# the container starts again on a node that lost its power while it ran
# shellcheck source-path=SCRIPTDIR source=boot-lib.sh
. "$QX_E2E/boot-lib.sh"

use_disk
qxctl mount $ctid >/dev/null
printf '%s,%s %s\n' "$server" "$address" \
  "$(cut -d' ' -f1,2 "$(container_root)/etc/ssh/ssh_host_ed25519_key.pub")" >>/root/.ssh/known_hosts
install -m 600 /root/.ssh/id_ed25519.pub "$(container_root)/root/.ssh/authorized_keys"
install -m 600 -o 1000 -g 1000 /root/.ssh/id_ed25519.pub \
  "$(container_root)/home/operator1/.ssh/authorized_keys"
qxctl umount $ctid >/dev/null

step "What the other node left is known"
check "registered and stopped" grep -q ', not mounted, stopped, registered' <(qxctl status $ctid)

step "Start"
check "start" qxctl start $ctid
check_boot
check_services
check_equal "600 tasks at most" 600 "$(limit_in_force)"
check_limits
check_storage

step "Stop and remove"
check "stop" qxctl stop $ctid
check "destroy" qxctl destroy $ctid
check_nothing_mounted
check "nothing is left" test ! -e "$private" -a ! -e /etc/sysconfig/qx-scripts/$ctid.conf
