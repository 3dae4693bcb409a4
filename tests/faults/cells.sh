# The stages of a migration, what is done to each, and the table of what came of it.
# shellcheck shell=bash

stages=(lockVPS createDstSrv getUsageDiskSpace getFreeDiskSpace dumpQuota startRSyncServer rSync
  waitRSyncServer stopServices startRSyncServer2 rSync2 waitRSyncServer2 restoreQuota tuneDstSrv
  finish)
# What each one does is in the function fault_NAME; what it is called in the table:
declare -A titles=([qxmigrate]="qxmigrate killed" [agent]="agent killed"
  [starter]="agent and starter killed" [server_rsync]="rsync on the server killed"
  [node_rsync]="rsync on the node killed" [link]="link cut for 5 s" [link_dead]="link cut for good"
  [node_dies]="node loses power" [server_dies]="server loses power" [memory]="agent out of memory"
  [disk]="node's disk full" [inodes]="node's inodes full" [server_var]="server's /var full")
faults=(qxmigrate agent starter server_rsync node_rsync link link_dead node_dies server_dies memory
  disk inodes server_var)

# A cell is STAGE:FAULT, or STAGE:FAULT:sysvinit with a server that boots so. On the latter
# other programs start services again, so every fault is tried where some are stopped.
sysvinit_stages=(stopServices startRSyncServer2 rSync2 waitRSyncServer2 restoreQuota tuneDstSrv finish)

# Every day: each stage once and each fault once, at least.
everyday=(lockVPS:memory createDstSrv:disk getUsageDiskSpace:agent getFreeDiskSpace:inodes
  dumpQuota:starter startRSyncServer:server_var rSync:server_rsync waitRSyncServer:link
  stopServices:server_dies startRSyncServer2:link_dead rSync2:node_rsync rSync2:qxmigrate
  waitRSyncServer2:agent restoreQuota:node_dies tuneDstSrv:qxmigrate finish:starter)

# applies STAGE FAULT: whether there is anything to disturb.
applies() {
  [[ $2 != *_rsync || $1 = rSync || $1 = rSync2 ]]
}

# cells_of full|some
cells_of() {
  local stage fault
  if [ "$1" = some ]; then
    printf '%s\n' "${everyday[@]}"
    return
  fi
  for stage in "${stages[@]}"; do
    for fault in "${faults[@]}"; do ! applies "$stage" "$fault" || echo "$stage:$fault"; done
  done
  for stage in "${sysvinit_stages[@]}"; do
    for fault in "${faults[@]}"; do ! applies "$stage" "$fault" || echo "$stage:$fault:sysvinit"; done
  done
}

# missing_of_everyday: the stages and the faults that are tried on no day.
missing_of_everyday() {
  local name
  for name in "${stages[@]}"; do [[ " ${everyday[*]}" == *" $name:"* ]] || echo "$name"; done
  for name in "${faults[@]}"; do [[ "${everyday[*]}:" == *":$name"[\ :]* ]] || echo "$name"; done
}

# print_table DIRECTORY: of the files STAGE:FAULT there, which say "held" or "FAILS".
print_table() {
  local i stage fault
  printf '\n%-27s' ''
  for i in "${!faults[@]}"; do printf '%6d' $((i + 1)); done
  for stage in "${stages[@]}"; do print_row "$1" "$stage" ""; done
  for stage in "${sysvinit_stages[@]}"; do print_row "$1" "$stage" sysvinit; done
  printf '\n\n'
  for i in "${!faults[@]}"; do printf '%3d  %s\n' $((i + 1)) "${titles[${faults[i]}]}"; done
}

# print_row DIRECTORY STAGE KIND: nothing when none of its cells was tried.
print_row() {
  local fault
  compgen -G "$1/$2:*${3:+:$3}" >/dev/null || return 0
  printf '\n%-27s' "$2${3:+, $3}"
  for fault in "${faults[@]}"; do
    printf '%6s' "$(cat "$1/$2:$fault${3:+:$3}" 2>/dev/null || echo -)"
  done
}
