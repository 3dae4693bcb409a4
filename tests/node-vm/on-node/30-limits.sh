#!/usr/bin/env bash
# limits hold by their effect, and a container's root cannot lift them
# shellcheck source=tests/node-vm/lib.sh
. /root/node-vm/lib.sh

small_template
remove 203 204

# What runs in a container, as the host sees it: at its limit, nothing more can be run
# inside to count.
tasks() { pgrep -c --ns "$(init_pid "$1")" --nslist pid .; }
# fork_bomb ID: as many processes at once as there can be; prints how many there are.
fork_bomb() {
  inside "$1" sh -c 'n=0; while [ $n -lt 300 ]; do sleep 60 & n=$((n + 1)); done' \
    >/dev/null 2>&1 || true
  tasks "$1"
}
bombs_are_gone() { ! pgrep --ns "$(init_pid "$1")" --nslist pid -x sleep >/dev/null; }
end_bomb() {
  pkill -KILL --ns "$(init_pid "$1")" --nslist pid -x sleep || true
  until_so 20 bombs_are_gone "$1"
}
# hog ID MIB: true when a process inside can have so much memory.
hog() { inside "$1" sh -c "dd if=/dev/zero of=/dev/null bs=${2}M count=1 2>/dev/null"; }

# With it, the kernel itself would keep a container's root from lifting limits.
check "lxcfs has taken the host's delegation off" eval \
  '! findmnt -no OPTIONS /sys/fs/cgroup | grep -q nsdelegate'

for kind in no yes; do
  step "Tasks and memory (unprivileged: $kind)"
  make 203 OSTEMPLATE=small UNPRIVILEGED=$kind NUMPROC=60:60 SLMMEMORYLIMIT=67108864
  check "start" up 203
  found=$(fork_bomb 203)
  check "a fork bomb gets to the limit and no further: $found" test "$found" -gt 40 -a "$found" -le 60
  check "the host can still fork" quietly true
  end_bomb 203
  check "half of the memory can be had" hog 203 32
  check "more than the limit cannot" eval '! hog 203 120'
  check "and only the hog was killed" inside 203 true

  step "A container's root cannot lift them (unprivileged: $kind)"
  inside 203 sh -c '
    for place in $(find /sys/fs/cgroup -name pids.max -o -name memory.max -o -name cgroup.procs); do
      case $place in
        *cgroup.procs) ;;
        *) echo max >$place ;;
      esac
    done
    mkdir -p /tmp/groups
    mount -t cgroup2 cgroup2 /tmp/groups
    for place in /tmp/groups/pids.max /tmp/groups/memory.max /tmp/groups/../pids.max; do
      echo max >$place
    done
    echo 1 >/tmp/groups/cgroup.procs' >/dev/null 2>&1 || true
  found=$(fork_bomb 203)
  check "tasks are limited as before: $found" test "$found" -gt 40 -a "$found" -le 60
  end_bomb 203
  check "memory is limited as before" eval '! hog 203 120'
  check "status shows the limit of tasks" status_says 203 'NUMPROC: .*= 60$'

  step "Set while it runs (unprivileged: $kind)"
  check "more tasks" quietly qxctl set 203 NUMPROC=100:100
  check "status shows it" status_says 203 'NUMPROC: .*= 100$'
  found=$(fork_bomb 203)
  check "and the fork bomb gets there: $found" test "$found" -gt 60 -a "$found" -le 100
  end_bomb 203
  check "more memory" quietly qxctl set 203 SLMMEMORYLIMIT=268435456
  check "which can be had" hog 203 120
  check "fewer tasks than an init needs are refused" ends_with 2 NUMPROC qxctl set 203 NUMPROC=5
  check "it runs" inside 203 true
  # An unprivileged one's root may not write there at all.
  [ $kind = yes ] ||
    check "it has groups of its own to write to" inside 203 sh -c 'echo max >/sys/fs/cgroup/pids.max'
  check "stop" quietly qxctl stop 203
  remove 203
done

step "Weights count where two want the processor"
make 203 OSTEMPLATE=small CPUUNITS=500
make 204 OSTEMPLATE=small CPUUNITS=2000
check "start" up 203
check "start" up 204
# All on one processor, and as many in each.
used() {
  # The clock ticks of all that burns in the container.
  inside "$1" sh -c "for n in 1 2; do taskset 1 sh -c 'while :; do :; done' & done
    sleep 12
    sum=0
    for pid in \$(jobs -p); do
      set -- \$(cat /proc/\$pid/stat)
      sum=\$((sum + \${14} + \${15}))
    done
    kill \$(jobs -p)
    echo \$sum" 2>/dev/null
}
used 203 >$work/light &
light=$!
used 204 >$work/heavy
wait $light
light=$(cat $work/light) heavy=$(cat $work/heavy)
check "four times the weight gets two to eight times the processor: $light and $heavy ticks" \
  test $((heavy * 10)) -ge $((light * 20)) -a $((heavy * 10)) -le $((light * 80))
check "set the weight while it runs" quietly qxctl set 203 CPUUNITS=2000
check "status shows it" status_says 203 'CPUUNITS: .*= 200$'
remove 203 204
