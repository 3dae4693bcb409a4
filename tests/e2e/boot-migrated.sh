#!/usr/bin/env bash
# a migrated server boots as a container, and its services answer
# shellcheck source-path=SCRIPTDIR source=boot-lib.sh
. "$QX_E2E/boot-lib.sh"

step "The server has a user with a key and a job for cron"
use_disk
root=$(lab root $server)
install -d -m 700 -o 1000 -g 1000 "$root/home/operator1/.ssh"
install -m 600 -o 1000 -g 1000 /root/.ssh/id_ed25519.pub "$root/home/operator1/.ssh/authorized_keys"
printf '* * * * * root [ ! -e /etc/qx-changes ] || touch /var/lib/boot-cron\n' >"$root/etc/cron.d/boot"

step "Migrate over ssh"
source=root@$server
case $QX_RELEASE in
  bullseye) distribution=debian-11 ;;
  trixie) distribution=debian-13 ;;
esac
migrate_measured --ip $address/24 --nameserver 192.0.2.1 --duration 1 --diskspace 4194304:4194304 \
  --diskinodes 400000:400000
check_status 0
[ "$status" = 0 ]

step "Start the container"
check "start" qxctl start $ctid
check "a second start changes nothing" qxctl start $ctid
check_boot
check_services

step "The measured limits hold, and the files lie where they should"
check_limits
check_storage
check "set changes the limit at once" qxctl set $ctid NUMPROC=600:600
check_equal "600 tasks at most" 600 "$(limit_in_force)"
check_package

step "Commands inside end with their own status"
status=0
in_container sh -c 'exit 7' || status=$?
check_status 7
status=0
in_container /no/such/program 2>/dev/null || status=$?
check_status 127

step "It cannot be pulled away while it runs"
status=0
qxctl destroy $ctid 2>/dev/null || status=$?
check_status 17
status=0
qxctl umount $ctid 2>/dev/null || status=$?
check_status 17

check_cron

step "Reboot from inside"
before=$(cat /run/qx/$ctid.init)
in_container systemctl reboot
another_init_runs() { [ -s /run/qx/$ctid.init ] && [ "$(cat /run/qx/$ctid.init)" != "$before" ]; }
check "another init runs" until_so 60 another_init_runs
check_boot
check "qxctl knows it runs" grep -q ', running,' <(qxctl status $ctid)

step "A new name comes with the next start"
check "set" qxctl set $ctid HOSTNAME=beta.example.org
check "restart" qxctl restart $ctid
check_boot
check_equal "the name" beta "$(in_container hostname)"
check "set back" qxctl set $ctid HOSTNAME=$server
check "stop" qxctl stop $ctid
check "a second stop changes nothing" qxctl stop $ctid
check_nothing_mounted
check "not mounted, stopped" grep -q ', not mounted, stopped,' <(qxctl status $ctid)
status=0
qxctl exec $ctid true 2>/dev/null || status=$?
check_status 19

step "A container that has only just been started can be stopped"
check "start" qxctl start $ctid
began=$SECONDS
check "stop at once" qxctl stop --timeout 60 $ctid
check "in less than 30 s" test $((SECONDS - began)) -lt 30

step "The power fails while it runs"
check "start" qxctl start $ctid
check_boot
sync
