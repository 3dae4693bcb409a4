#!/usr/bin/env bash
# a container's life on a host as Debian installs it: made, started, stopped, gone
# shellcheck source=tests/node-vm/lib.sh
. /root/node-vm/lib.sh

small_template
remove 201
private=/var/lib/qx/private/201

step "The host is one as Debian installs it"
check_equal "control groups of the second generation" cgroup2fs "$(stat -f -c %T /sys/fs/cgroup)"
check "AppArmor is on" aa-enabled --quiet
check "lxcfs runs" systemctl is-active --quiet lxcfs
check "mounts are shared" grep -q 'shared:' <(findmnt -no PROPAGATION / | sed 's/$/:/')
check "nftables has its default rules" grep -q 'table inet filter' <(nft list ruleset)

step "Before it is made"
configure 201 OSTEMPLATE=small NUMPROC=200:200 SLMMEMORYLIMIT=134217728
check "start says what is missing" ends_with 14 "qxctl create 201" qxctl start 201
check "an unknown command is named, with the one that was meant" ends_with 2 start qxctl strat 201
check "and named itself" ends_with 2 strat qxctl strat 201

step "Made and started"
check "create" quietly qxctl create 201
check "it is stopped and registered" status_says 201 ', not mounted, stopped, registered'
check "start" up 201
check "it runs" status_says 201 ', mounted, running, registered'
check "a second start changes nothing" quietly qxctl start 201
check "its init is confined by AppArmor" \
  grep -q '(enforce)' "/proc/$(init_pid 201)/attr/current"
conf=/run/qx/lxc/qx-201/config
check "the derived configuration is there" test -s $conf
check "and root's alone" eval "! setpriv --reuid 65534 --clear-groups cat $conf >/dev/null 2>&1"
check "setpriv can be had" setpriv --reuid 65534 --clear-groups true
check "LXC's monitor has the name that is looked for" pgrep -f 'lxc monitor.* qx-201' >/dev/null
check_no "no mount of it is handed on" awk '/\/201[ \/]/ && /shared:/' /proc/self/mountinfo
status=0
inside 201 sh -c 'exit 7' || status=$?
check_status 7
status=0
inside 201 /no/such/program 2>/dev/null || status=$?
check_status 127

step "It cannot be pulled away while it runs"
check "destroy" ends_with 17 running qxctl destroy 201
check "umount" ends_with 17 running qxctl umount 201

step "Reboot inside"
reboots_inside 201

step "Stop"
check "stop" quietly qxctl stop 201
check "its init ended it in an orderly way" test -e $private/fs/ended
check_nothing_mounted 201
check "it is stopped" status_says 201 ', not mounted, stopped,'
check "a second stop changes nothing" quietly qxctl stop 201
check "exec says so" ends_with 19 running qxctl exec 201 true

step "It powers itself off; what comes next comes at once"
for what in start stop umount destroy; do
  check "started for '$what'" up 201
  init=$(init_pid 201)
  inside 201 poweroff
  check "it ends" until_so 30 is_gone "$init"
  check "$what" quietly qxctl $what 201
  case $what in
    start) check "it runs again" until_so 30 inside 201 true && qxctl stop 201 >/dev/null ;;
    stop | umount) check_nothing_mounted 201 ;;
  esac
done
check_nothing_mounted 201
check "nothing is left" test ! -e $private -a ! -e $configs/201.conf
check_no "no monitor of LXC's is left" pgrep -fa 'lxc monitor.* qx-201'
