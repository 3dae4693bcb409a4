#!/usr/bin/env bash
# Some cells of the matrix of faults, STAGE:FAULT each, on the lab's node; see tests/faults/run.
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
  on_server rm -f /var/tmp/ballast
  fast_source
}

# --- One cell -----------------------------------------------------------------

of_the_migration='qxagent|guard.sh|rsync.*--server'
nothing_runs_there() { ! on_server pgrep -f "$of_the_migration" >/dev/null; }

# In the cells' words: what is wrong is a line, nothing is all is well.
complaints() {
  local name
  for name in nginx ticker; do
    until_so 30 service_runs $name || echo "service $name does not run on the server"
  done
  until_so 30 nothing_arrived || echo "the agent's folder is left on the server"
  until_so 30 nothing_runs_there ||
    echo "on the server runs: $(on_server pgrep -af "$of_the_migration" | tr '\n' ';')"
  ! pgrep -f -- 'rsync.*--fdin' >/dev/null || echo "rsync runs on the node"
  if ! grep -q interrupted <(qxmigrate list); then
    [ ! -e $private ] || echo "a private area is left that no journal tells of"
    [ ! -e /etc/sysconfig/qx-scripts/$ctid.conf ] || echo "a configuration is left, and no journal says so"
    [ ! -e /run/qx/lock/$ctid.lck ] || echo "the lock is left"
    ! grep -qF /var/lib/qx/root/$ctid /proc/mounts || echo "a mount is left"
  fi
}

second_attempt() {
  migrate >/dev/null
  if [ "$status" != 0 ]; then
    echo "the second attempt ends with $status: $(tail -n 1 "$out")"
    return
  fi
  qxmigrate verify $ctid >"$out" 2>&1 || {
    echo "the second attempt's container is not what the server is: $(tail -n 5 "$out")"
  }
}

# Everything as before the first attempt.
reset() {
  qxctl destroy $ctid >/dev/null 2>&1 || true
  rm -rf "${private:?}" $private.migrated "$journals" /tmp/qxmigrate.*
  start_services
}

# A stage may be over before its beginning was noticed: then it is tried again.
run_cell() {
  local stage=$1 fault=$2 met='' try
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
  end_migration >/dev/null
  if [ "$status" = 0 ]; then
    # It came too late, or did not matter.
    qxmigrate verify $ctid >"$out" 2>&1 || echo "it succeeds, and verify says: $(tail -n 5 "$out")"
    start_services
    qxctl destroy $ctid >/dev/null
  fi
  undo_faults
  complaints
  second_attempt
  reset
}

# --- All of them --------------------------------------------------------------

mount -t tmpfs -o size=1300m,nr_inodes=60000,mode=755 small /var/lib/qx
open_source
note_server_files
for cell; do
  stage=${cell%%:*}
  fault=${cell#*:}
  began=$SECONDS
  found=$(run_cell "$stage" "$fault")
  [ -z "$found" ] && echo held >"$QX_CELLS/$cell" || echo FAILS >"$QX_CELLS/$cell"
  check_no "$stage: ${titles[$fault]} ($((SECONDS - began)) s)" echo "$found"
done
