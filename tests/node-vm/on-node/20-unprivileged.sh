#!/usr/bin/env bash
# root of a container is nobody here, and the files on disk keep their owners
# shellcheck source=tests/node-vm/lib.sh
. /root/node-vm/lib.sh

small_template
remove 202
private=/var/lib/qx/private/202

owners() { stat -c %u $private/fs/etc/passwd $private/fs/home | paste -sd' '; }

step "Start"
make 202 OSTEMPLATE=small UNPRIVILEGED=yes NUMPROC=200:200
check "start" up 202
check_equal "its root is nobody here" 1000000 "$(stat -c %u "/proc/$(init_pid 202)")"
check "AppArmor confines it" grep -q '(enforce)' "/proc/$(init_pid 202)/attr/current"
check_equal "and root inside" 0 "$(inside 202 id -u)"
check_equal "owners on disk are the container's while it runs" "0 1000" "$(owners)"
check_equal "and inside" "0 1000" "$(inside 202 stat -c %u /etc/passwd /home | paste -sd' ')"
check "root makes a file inside" inside 202 touch /made
check_equal "it has the owner that it has inside" 0 "$(stat -c %u $private/fs/made)"
check_no "no mount has mapped owners but the container's root" \
  awk '/idmapped/ && $5 !~ "^/var/lib/qx/root/"' /proc/self/mountinfo

step "It powers itself off and starts again"
inside 202 poweroff
ended_itself() { ! grep -qs . /run/qx/202.init; }
check "it ends" until_so 30 ended_itself
check "start" up 202
check_equal "owners on disk are the container's" "0 1000" "$(owners)"

step "A service of the host is started meanwhile"
systemd-run --quiet --unit=qx-meanwhile -p PrivateTmp=yes sleep 600
meanwhile() { systemctl show -p MainPID --value qx-meanwhile; }
check "it has a copy of every mount" until_so 20 eval 'grep -q " /var/lib/qx/root/202 " /proc/$(meanwhile)/mountinfo'

step "Stop"
check "stop" quietly qxctl stop 202
check_nothing_mounted 202
check_no "nor for the service" grep " /var/lib/qx/root/202 " "/proc/$(meanwhile)/mountinfo"
systemctl stop qx-meanwhile
check_equal "owners on disk are the container's" "0 1000" "$(owners)"
check "destroy" quietly qxctl destroy 202
