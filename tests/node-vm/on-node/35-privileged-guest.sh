#!/usr/bin/env bash
# root of a privileged container does not reach the host's kernel
# shellcheck source=tests/node-vm/lib.sh
. /root/node-vm/lib.sh

small_template
remove 205
make 205 OSTEMPLATE=small UNPRIVILEGED=no
check "start" up 205

# A key that only prints a line into the kernel's log, where the host has it.
host_saw_key() { grep -q 'sysrq: HELP' <(dmesg); }
host_saw_key && dmesg --clear

step "The magic keys"
inside 205 sh -c 'echo h >/proc/sysrq-trigger' 2>/dev/null || true
check "not by its own /proc" eval '! host_saw_key'
inside 205 sh -c 'mkdir -p /tmp/proc && mount -t proc proc /tmp/proc && echo h >/tmp/proc/sysrq-trigger' \
  2>/dev/null || true
check "not by a second /proc" eval '! host_saw_key'
inside 205 sh -c 'mount -o remount,rw /proc; mount -o remount,rw /proc/sysrq-trigger
  umount /proc/sysrq-trigger; echo h >/proc/sysrq-trigger' 2>/dev/null || true
check "not after /proc is mounted anew" eval '! host_saw_key'

inside 205 sh -c 'mkdir -p /tmp/bound /tmp/all
  mount --bind /proc /tmp/bound && echo h >/tmp/bound/sysrq-trigger
  mount --rbind / /tmp/all && echo h >/tmp/all/proc/sysrq-trigger
  mount --move /proc /tmp/bound && echo h >/tmp/bound/sysrq-trigger' 2>/dev/null || true
check "not by what is bound or moved elsewhere" eval '! host_saw_key'

step "What is set below /sys and /proc/sys"
value=$(cat /sys/kernel/mm/ksm/sleep_millisecs)
inside 205 sh -c 'mount -o remount,rw /sys; echo 21 >/sys/kernel/mm/ksm/sleep_millisecs
  mkdir -p /tmp/sys && mount -t sysfs sysfs /tmp/sys && echo 21 >/tmp/sys/kernel/mm/ksm/sleep_millisecs' \
  2>/dev/null || true
check_equal "a setting of the host's memory" "$value" "$(cat /sys/kernel/mm/ksm/sleep_millisecs)"
value=$(cat /proc/sys/vm/swappiness)
inside 205 sh -c 'mount -o remount,rw /proc/sys; echo 17 >/proc/sys/vm/swappiness
  echo 17 >/tmp/proc/sys/vm/swappiness' 2>/dev/null || true
inside 205 sh -c 'umount /proc/sys; echo 17 >/proc/sys/vm/swappiness
  echo 17 >/tmp/bound/sys/vm/swappiness; echo 17 >/tmp/all/proc/sys/vm/swappiness' 2>/dev/null || true
check_equal "how the host swaps" "$value" "$(cat /proc/sys/vm/swappiness)"
value=$(cat /proc/sys/kernel/core_pattern)
inside 205 sh -c 'echo "|/tmp/mine" >/proc/sys/kernel/core_pattern
  echo "|/tmp/mine" >/tmp/proc/sys/kernel/core_pattern' 2>/dev/null || true
check_equal "the host's program for dumps" "$value" "$(cat /proc/sys/kernel/core_pattern)"

step "The host's disks and memory"
disk=$(stat -c '%Hr %Lr' /dev/vda)
check "no disk" eval "! inside 205 sh -c 'mknod /tmp/disk b $disk; dd if=/tmp/disk of=/dev/null count=1' 2>/dev/null"
check "no memory" eval \
  "! inside 205 sh -c 'mknod /tmp/mem c 1 1; dd if=/tmp/mem of=/dev/null bs=1 count=1' 2>/dev/null"
# cap_sys_module, cap_sys_rawio, cap_sys_time
capabilities=$(awk '/^CapBnd/ { print "0x" $2 }' "/proc/$(init_pid 205)/status")
check "nor what modules, ports and the clock need" \
  test $((capabilities & (1 << 16 | 1 << 17 | 1 << 25))) = 0
check "it still runs" inside 205 true
echo h >/proc/sysrq-trigger
check "the host's own key would have been seen" until_so 10 host_saw_key

step "It reboots and powers itself off like any other"
reboots_inside 205
init=$(init_pid 205)
inside 205 poweroff
check "it ends" until_so 30 is_gone "$init"
check "start" up 205
check "stop" quietly qxctl stop 205
check_nothing_mounted 205
check "destroy" quietly qxctl destroy 205
