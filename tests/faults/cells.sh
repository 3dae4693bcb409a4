# The stages of a migration, what is done to each, and the table of what came of it.
# shellcheck shell=bash

stages=(lockVPS createDstSrv getUsageDiskSpace getFreeDiskSpace dumpQuota startRSyncServer rSync
  waitRSyncServer stopServices startRSyncServer2 rSync2 waitRSyncServer2 restoreQuota tuneDstSrv
  finish)
# What each one does is in the function fault_NAME; what it is called in the table:
declare -A titles=([qxmigrate]="qxmigrate killed" [agent]="agent killed"
  [starter]="agent and starter" [server_rsync]="rsync, server" [node_rsync]="rsync, node"
  [link]="link cut 5 s" [node_dies]="node loses power" [disk]="node's disk full"
  [inodes]="node's inodes full" [server_var]="server's /var full")
faults=(qxmigrate agent starter server_rsync node_rsync link node_dies disk inodes server_var)

# applies STAGE FAULT: whether there is anything to disturb.
applies() {
  case $2 in
    server_rsync | node_rsync) [[ $1 = rSync || $1 = rSync2 ]] ;;
    # Later nothing is written that could not be.
    inodes | disk) [[ $1 != finish && $1 != getUsage* && $1 != dumpQuota ]] ;;
    *) true ;;
  esac
}

# cells_of full|some: each fault in every stage, or each stage once and each fault once, at
# least.
cells_of() {
  local stage fault number=0
  for stage in "${stages[@]}"; do
    if [ "$1" = full ]; then
      for fault in "${faults[@]}"; do
        ! applies "$stage" "$fault" || echo "$stage:$fault"
      done
    else
      # Another fault for each stage, by turns.
      until applies "$stage" "${faults[number % ${#faults[@]}]}"; do number=$((number + 1)); done
      echo "$stage:${faults[number % ${#faults[@]}]}"
      number=$((number + 1))
    fi
  done
  [ "$1" = full ] ||
    printf '%s\n' rSync:server_rsync rSync2:node_rsync rSync2:qxmigrate rSync2:starter
}

# print_table DIRECTORY: of the files STAGE:FAULT there, which say "held" or "FAILS".
print_table() {
  local i stage fault
  printf '\n%-18s' ''
  for i in "${!faults[@]}"; do printf '%7d' $((i + 1)); done
  for stage in "${stages[@]}"; do
    printf '\n%-18s' "$stage"
    for fault in "${faults[@]}"; do printf '%7s' "$(cat "$1/$stage:$fault" 2>/dev/null || echo -)"; done
  done
  printf '\n\n'
  for i in "${!faults[@]}"; do printf '%3d  %s\n' $((i + 1)) "${titles[${faults[i]}]}"; done
}
