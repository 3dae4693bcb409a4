#!/usr/bin/env bash
# a Debian system without systemd becomes a container and boots
# shellcheck source-path=SCRIPTDIR source=boot-lib.sh
. "$QX_E2E/boot-lib.sh"

step "A copied system"
use_disk
printf 'HOSTNAME="%s"\nDISTRIBUTION="debian-12"\nIP_ADDRESS="%s/24"\nGATEWAY="192.0.2.1"\n' \
  $server $address >/etc/sysconfig/qx-scripts/$ctid.conf
printf 'NUMPROC="300:300"\nSLMMEMORYLIMIT="536870912:536870912"\nCPUUNITS="2000"\n' \
  >>/etc/sysconfig/qx-scripts/$ctid.conf
check "an empty private area" mkqxfs $private
cp -a "/run/qxlab/roots/$QX_RELEASE-1/." "$(container_root)/"
root=$(container_root)
if [ "$QX_RELEASE" = openrc ]; then
  # BusyBox starts OpenRC, as on Alpine.
  ln -sf /bin/busybox "$root/sbin/init"
  printf '%s\n' '::sysinit:/sbin/openrc sysinit' '::sysinit:/sbin/openrc boot' \
    '::wait:/sbin/openrc default' '::shutdown:/sbin/openrc off' \
    '::respawn:/sbin/agetty --noclear console 38400 linux' >"$root/etc/inittab"
fi
printf '/dev/sda1 / ext4 errors=remount-ro 0 1\n' >"$root/etc/fstab"
printf 'auto eth0\niface eth0 inet static\n  address 192.0.2.11/24\n' >"$root/etc/network/interfaces"
install -d -m 700 "$root/root/.ssh"
install -m 600 /root/.ssh/id_ed25519.pub "$root/root/.ssh/authorized_keys"
ssh-keygen -A -f "$root" >/dev/null
printf '%s %s\n' "$server" "$(cut -d' ' -f1,2 "$root/etc/ssh/ssh_host_ed25519_key.pub")" >>/root/.ssh/known_hosts
printf '<title>A server</title>\n' >"$root/var/www/html/index.html"
printf '* * * * * root touch /var/lib/boot-cron\n' >"$root/etc/cron.d/boot"
# A service whose stopping can be seen afterwards.
printf '%s\n' '#!/bin/sh' '### BEGIN INIT INFO' '# Provides: marker' '# Required-Start:' \
  '# Required-Stop:' '# Default-Start: 2' '# Default-Stop: 0' '### END INIT INFO' \
  '[ "$1" != stop ] || touch /var/lib/was-stopped' >"$root/etc/init.d/marker"
chmod 755 "$root/etc/init.d/marker"
case $QX_RELEASE in
  openrc) ln -s /etc/init.d/marker "$root/etc/runlevels/default/marker" ;;
  *) chroot "$root" update-rc.d marker defaults ;;
esac
check "convert" qxctl convert $ctid
check "adapt" qxctl runscript $ctid /etc/sysconfig/qx-scripts/dists/scripts/debian-post-migrate.sh

is_up() {
  case $QX_RELEASE in
    openrc) [ "$(in_container rc-status -r)" = default ] && in_container rc-service -q nginx status ;;
    *) [ "$(in_container runlevel)" = "N 2" ] ;;
  esac
}
step "Start"
check "start" qxctl start $ctid
check "the default runlevel is reached" until_so 60 is_up
check "sshd answers on $address" until_so 20 answers 22
check "nginx shows its page on $address" until_so 20 says_title "A server"
check_equal "root can log in, and finds the name" $server "$(login root@$address hostname)"
check_equal "the configured gateway" "default via 192.0.2.1" \
  "$(in_container ip route show default | cut -d' ' -f1-3)"
check_limits
check_storage
check_cron

step "Variables that are changed while it runs"
qxctl set $ctid NUMPROC=301:301 NUMPTY=40:40 GATEWAY=192.0.2.1 NAMESERVER=192.0.2.53 KMEMSIZE=9000:9000 \
  ONBOOT=no >"$work/said"
check_equal "set says from when each counts" \
  "in force now: NUMPROC;at the next start: NUMPTY NAMESERVER;limits nothing on this host: KMEMSIZE" \
  "$(paste -sd';' "$work/said")"
check_equal "and that is so" 301 "$(limit_in_force)"
in_container ip address add 192.0.2.111/24 dev eth0
check "an address that it has given itself is shown" grep -q "$address/24 192.0.2.111/24" <(qxctl list)
check "beside those that it should have" grep -qx "  configured    $address/24" <(qxctl status $ctid)
in_container ip address delete 192.0.2.111/24 dev eth0

step "Console and logs"
console=/run/qx/lxc/qx-$ctid/console
# at_console: what a user sees who presses Enter there and leaves.
at_console() {
  { sleep 2 && printf '\r' && sleep 3 && printf '\001q'; } |
    timeout 20 script -qec "qxctl console $ctid; echo left with \$?" /dev/null
}
sees_prompt() { at_console >"$work/seen" && grep -q 'login:' "$work/seen"; }
check "the console has a login prompt" until_so 60 sees_prompt
check "and is left by Ctrl+a and q" grep -q 'left with 0' "$work/seen"
check "what was on it is kept" grep -q 'login:' <(qxctl logs $ctid 2>/dev/null)
check_equal "for root" 600 "$(stat -c %a $console)"
ended=0
qxctl console $ctid </dev/null 2>"$work/refused" || ended=$?
check_equal "without a terminal there is none" 2 $ended
check "and that is said" grep -q "needs a terminal: 'qxctl logs $ctid'" "$work/refused"
timeout 5 qxctl logs --follow --lines 0 $ctid >"$work/followed" 2>/dev/null &
sleep 2
in_container sh -c 'printf "\033]0;title\007and more\n" >/dev/console'
wait $! || true
check "what comes can be followed, and drives no terminal" grep -qF '\x1b]0;title\x07and more' "$work/followed"
in_container sh -c 'yes 0123456789 | head -c 2000000 >/dev/console'
check "a guest cannot fill the host with it" test $(($(cat $console $console.1 | wc -c))) -le $((2 * 256 * 1024))

step "Stop"
script -qec "qxctl console $ctid; echo \$? >'$work/left'" /dev/null < <(sleep 30) >/dev/null &
joined=$!
began=$SECONDS
check "stop" qxctl stop --timeout 40 $ctid
check "without being killed" test $((SECONDS - began)) -lt 40
check "a console ends with its container" until_so 10 grep -q '^0$' "$work/left"
kill $joined
check "what was on it can still be read" grep -q '^0123456789$' <(qxctl logs --lines 100000 $ctid)
check "its services were stopped" test -e "$root/var/lib/was-stopped"
check "not mounted, stopped" grep -q ', not mounted, stopped,' <(qxctl status $ctid)

# Each of several at once is refused by the lock or does its work; what comes out
# is one of the states that they can lead to. What lies beside its tree keeps the container
# from being destroyed (3) when that is its turn between a stop and a start.
step "Everything at once, three times"
declare -A allowed=([start]="0 9" [stop]="0 9" [mount]="0 9" [umount]="0 9 16 17" [destroy]="3 9 17"
  [status]="0" [exec]="0 1 19 137")
storm() {
  local verb number=0 words pids=()
  for verb in start start stop status mount umount destroy exec start stop status exec umount; do
    number=$((number + 1))
    words=("$verb" "$ctid")
    [ "$verb" != stop ] || words+=(--fast)
    [ "$verb" != exec ] || words+=(true)
    (
      status=0
      qxctl "${words[@]}" >"$work/storm.$number.out" 2>&1 </dev/null || status=$?
      echo "$verb $status" >"$work/storm.$number"
    ) &
    pids+=($!)
  done
  wait "${pids[@]}"
  for ((; number > 0; --number)); do
    read -r verb status <"$work/storm.$number"
    check "$verb ends with $status, one of ${allowed[$verb]}" \
      grep -qw -- "$status" <<<"${allowed[$verb]}"
    # The last: the container was killed around the command.
    [[ $status =~ ^(0|137)$ ]] || check "and says why" grep -q . "$work/storm.$number.out"
  done
}
touch "$private/kept"
for round in 1 2 3; do
  check "start" qxctl start $ctid
  storm
  check "start" qxctl start $ctid
  check "a command runs in it" in_container true
done
rm "$private/kept"
check "no lock is left" test ! -e /run/qx/lock/$ctid.lck

step "A command that dies on its way into the container"
# The last that is done for it is to give it a session of its own.
ended=0
strace -f -o "$work/trace" -e trace=setsid -e inject=setsid:signal=KILL qxctl exec $ctid true \
  >"$work/dead.out" 2>&1 </dev/null || ended=$?
check_equal "that is a failure" 1 $ended
check "and said" grep -q "cannot run true in container $ctid: LXC does not get it there, see /" "$work/dead.out"

step "Groups that its last run left are in nobody's way"
check "stop" qxctl stop $ctid
check "no group of it is left" test -z "$(find /sys/fs/cgroup -name "lxc.*.qx-$ctid*")"
for hierarchy in /sys/fs/cgroup/pids /sys/fs/cgroup; do
  [ ! -e "$hierarchy/cgroup.procs" ] || break
done
mkdir -p "$hierarchy/lxc.payload.qx-$ctid/guest" "$hierarchy/lxc.monitor.qx-$ctid"
sleep 600 &
stray=$!
echo $stray >"$hierarchy/lxc.payload.qx-$ctid/guest/cgroup.procs"
check "start" qxctl start $ctid
ended=0
wait $stray || ended=$?
check "what was in them was killed" test $ended = 137
check "a command runs in it" in_container true

step "A container that has only just been started can be stopped"
check "stop" qxctl stop $ctid
check "start" qxctl start $ctid
began=$SECONDS
check "stop at once" qxctl stop --timeout 60 $ctid
check "in less than 30 s" test $((SECONDS - began)) -lt 30

step "Remove"
check "destroy" qxctl destroy $ctid
check_nothing_mounted
check "nothing is left" test ! -e "$private" -a ! -e "${console%/*}" -a ! -e /etc/sysconfig/qx-scripts/$ctid.conf
check_no "no process of the container is left" pgrep -af 'qx-101'
