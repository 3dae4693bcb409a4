#!/usr/bin/env bash
# Cells of the matrix of faults, as long as $QX_CELLS/queue has any, on the lab's node; see
# tests/faults/run.
# shellcheck source=tests/e2e/ssh-lib.sh
. "$QX_E2E/ssh-lib.sh"
# shellcheck source=tests/faults/cells.sh
. "$QX_FAULTS/cells.sh"

journals=/var/lib/qx/migrations

# --- The faults ---------------------------------------------------------------
# Each is called with qxmigrate stopped at the beginning of the stage, and lets it go on.

fault_qxmigrate() { kill -KILL "$migration"; }

fault_agent() {
  kill_agent || true
  kill -CONT "$migration"
}

fault_starter() {
  on_server pkill -KILL -f -- '(^|/)(ld-linux[^ ]* .*qxagent serve|sh -c D=/var/qxagent.tmp)' || true
  kill -CONT "$migration"
}

# The copies are slow enough to be met.
fault_server_rsync() {
  kill -CONT "$migration"
  until_so 20 kill_rsync_on_server || true
}

fault_node_rsync() {
  kill -CONT "$migration"
  until_so 20 pkill -KILL -f -- 'rsync.*--fdin' || true
}

fault_link() {
  lab cut $server
  kill -CONT "$migration"
  sleep 5
  lab join $server
}

# Both ends give up by themselves, and the server does what it has to before it can be reached
# again.
fault_link_dead() {
  local began=$SECONDS
  lab cut $server
  kill -CONT "$migration"
  end_migration >/dev/null
  [ $((SECONDS - began)) -le 60 ] || echo "qxmigrate took $((SECONDS - began)) s to give up" >>"$odd"
  server_complaints >>"$odd"
  lab join $server
}

fault_server_dies() {
  lab crash $server
  kill -CONT "$migration"
  lab boot $server
}

# The kernel refuses the agent, and what it starts from now on, any page that it does not
# have yet, and ends it. The control group is one of the node's: the server need not have any.
fault_memory() {
  local pid limit=memory.limit_in_bytes
  mkdir -p "$squeeze"
  [ -e "$squeeze/$limit" ] || limit=memory.max
  echo 0 >"$squeeze/$limit"
  for pid in $(pgrep -f -- '^[^ ]*/ld-linux[^ ]* .*qxagent serve --stdio'); do
    echo "$pid" >"$squeeze/cgroup.procs"
  done
  kill -CONT "$migration"
}

squeeze=/sys/fs/cgroup/memory/squeeze
[ -d "${squeeze%/*}" ] || squeeze=/sys/fs/cgroup/squeeze

# How often it was refused one.
refusals() { cat "$squeeze/memory.failcnt" 2>/dev/null || awk '$1 == "max" { print $2 }' "$squeeze/memory.events"; }

# All of its processes at once, and what was mounted.
fault_node_dies() {
  local all
  read -ra all < <(descendants "$migration"; echo)
  kill -KILL "$migration" "${all[@]}"
  until ! mountpoint -q /var/lib/qx/root/$ctid; do umount -l /var/lib/qx/root/$ctid; done
}

descendants() {
  local child
  for child in $(pgrep -P "$1"); do printf '%s ' "$child" && descendants "$child"; done
}

fault_disk() {
  head -c 2G /dev/zero >/var/lib/qx/ballast 2>/dev/null || true
  kill -CONT "$migration"
}

fault_inodes() {
  mkdir -p /var/lib/qx/many
  python3 -c '
import os
for i in range(10000000):
    try:
        os.close(os.open("/var/lib/qx/many/%d" % i, os.O_CREAT | os.O_WRONLY))
    except OSError:
        break'
  kill -CONT "$migration"
}

fault_server_var() {
  on_server sh -c 'head -c 3G /dev/zero >/var/tmp/ballast' 2>/dev/null || true
  kill -CONT "$migration"
}

undo_faults() {
  rm -rf /var/lib/qx/ballast /var/lib/qx/many
  [ ! -d "$squeeze" ] || until_so 20 rmdir "$squeeze" 2>/dev/null
  on_server rm -f /var/tmp/ballast
  fast_source
}

# --- One cell -----------------------------------------------------------------

of_the_migration='qxagent|guard.sh|rsync.*--server'
nothing_runs_there() { ! on_server pgrep -f "$of_the_migration" >/dev/null; }
ours_here='qxmigrate|qxctl|qxagent'
nothing_runs_here() { ! pgrep -f "$ours_here" >/dev/null; }
# In the way of whatever init it has.
service_runs() { on_server "/etc/init.d/$1" status >/dev/null; }

# In the cells' words: what is wrong is a line, nothing is all is well.
server_complaints() {
  local name
  for name in nginx ticker; do
    until_so 30 service_runs $name || echo "service $name does not run on the server"
  done
  # After a loss of power nobody is there who could remove it but the next connection.
  [ "$fault" = server_dies ] || until_so 30 nothing_arrived || echo "the agent's folder is left on the server"
  until_so 30 nothing_runs_there ||
    echo "on the server runs: $(on_server pgrep -af "$of_the_migration" | tr '\n' ';')"
}

complaints() {
  server_complaints
  ! pgrep -f -- 'rsync.*--fdin' >/dev/null || echo "rsync runs on the node"
  ! find /run/qxlinmigrate -mindepth 1 2>/dev/null | grep . || echo "a file of rsync is left on the node"
  if ! grep -q interrupted <(qxmigrate list); then
    [ ! -e $private ] || echo "a private area is left that no journal tells of"
    [ ! -e $private.migrated ] || grep -qF "\"$private.migrated\"" "$journals"/* ||
      echo "a copy is left that no journal tells of"
    [ ! -e /etc/sysconfig/qx-scripts/$ctid.conf ] || echo "a configuration is left, and no journal says so"
    [ ! -e /run/qx/lock/$ctid.lck ] || echo "the lock is left"
    ! grep -F /var/lib/qx /proc/mounts | grep -w $ctid || echo "a mount is left"
    ! losetup -a | grep -F /var/lib/qx || echo "a loop device is left"
    ! compgen -G '/tmp/qxmigrate.*' || echo "a folder is left in /tmp"
    until_so 10 nothing_runs_here || echo "on the node runs: $(pgrep -af "$ours_here" | tr '\n' ';')"
  fi
}

# What was registered already is not taken away by it.
second_attempt() {
  migrate >/dev/null
  if [ "$status" = 1 ] && grep -q "^qxmigrate: .*container $ctid is there, and complete: " "$out"; then
    try_container
    migrate >/dev/null
  fi
  if [ "$status" != 0 ]; then
    echo "the second attempt ends with $status: $(tail -n 1 "$out")"
    return
  fi
  qxmigrate verify $ctid >"$out" 2>&1 || {
    echo "the second attempt's container is not what the server is: $(tail -n 5 "$out")"
  }
  until_so 10 nothing_arrived || echo "the agent's folder is left on the server by the second attempt"
}

# What the server's files are, compared with what they were.
changed_files() {
  lab files $server | diff "$work/$server.files" - | sed -n "s/^[<>]/changed on the server: &/p" | head -n 5 || true
}

# Everything as before the first attempt.
reset() {
  qxctl destroy $ctid >/dev/null 2>&1 || true
  rm -rf "${private:?}" $private.migrated "$journals" /tmp/qxmigrate.*
  start_services
}

# A stage may be over before its beginning was noticed: then it is tried again.
run_cell() {
  local met='' try
  : >"$odd"
  for try in 1 2 3 4 5 6; do
    mkdir -p "$journals"
    case $fault in *rsync) slow_source "$([ "$stage" = rSync ] && echo 1 || echo 2)" 20000 ;; esac
    begin_migration
    met=$(python3 "$QX_E2E/stop_in_stage.py" "$migration" "$journals" "$stage") && break
    end_migration >/dev/null
    reset
  done
  if [ -z "$met" ]; then
    echo "the stage was over $try times before it could be disturbed"
    return
  fi
  "fault_$fault" >/dev/null 2>&1
  [ "$fault" = link_dead ] || end_migration >/dev/null
  cat "$odd"
  cp "$out" "$work/first.out"
  echo "it ended with $status" >>"$work/first.out"
  [ "$fault" != memory ] || [ "$(refusals)" -gt 0 ] || echo "the agent never asked for memory"
  case $status in
    # It came too late, or did not matter.
    0)
      try_container
      start_services
      ;;
    # The container was complete, and the server could not be told.
    3)
      grep -q "^qxmigrate: container $ctid is there, but" "$out" || echo "it does not say so"
      server_complaints
      try_container
      ;;
  esac
  undo_faults
  complaints
  second_attempt
  reset
  changed_files
}

try_container() {
  qxmigrate verify $ctid >"$out" 2>&1 || echo "it succeeds, and verify says: $(tail -n 5 "$out")"
  qxctl destroy $ctid >/dev/null || echo "there is no container"
}

# use_server NAME: makes the shared functions speak of this one.
use_server() {
  server=$1
  source=root@$server
  [ -e "$work/$server.files" ] || lab files $server >"$work/$server.files"
}

# The next cell for one of the nodes.
take_cell() {
  (
    flock 9
    head -n 1 "$QX_CELLS/queue"
    sed -i 1d "$QX_CELLS/queue"
  ) 9>"$QX_CELLS/lock"
}

# --- All of them --------------------------------------------------------------

mount -t tmpfs -o size=1300m,nr_inodes=60000,mode=755 small /var/lib/qx
odd=$work/odd
while cell=$(take_cell) && [ -n "$cell" ]; do
  IFS=: read -r stage fault kind <<<"$cell"
  case $kind in
    sysvinit) use_server older ;;
    *) use_server alpha ;;
  esac
  began=$SECONDS
  found=$(run_cell)
  [ -z "$found" ] && echo held >"$QX_CELLS/$cell" || echo FAILS >"$QX_CELLS/$cell"
  check_no "$stage${kind:+, $kind}: ${titles[$fault]} ($((SECONDS - began)) s)" echo "$found"
  [ -z "$found" ] || sed 's/^/        | /' "$work/first.out"
done
