# The outer half of `lab run`: what must be undone on the machine itself. The
# rest lives in namespaces and ends with their first process.
# shellcheck shell=bash

run_main() {
  local servers=() install=${QX_LAB_INSTALL:-} binds=() node='' argument
  need_root
  while [ $# -gt 0 ]; do
    argument=$1
    shift
    case $argument in
      --server) servers+=("$1") && shift ;;
      --node) node=$1 && shift ;;
      --install) install=$1 && shift ;;
      --bind) binds+=("$1") && shift ;;
      --) break ;;
      *) die "run: unknown option '$argument'" ;;
    esac
  done
  [ $# -gt 0 ] || die "run: no command given"
  need_tools unshare setpriv pivot_root ip lxc-start lxc-attach ssh-keygen flock
  run_check_names "${servers[@]}"
  run_check_node
  [ -z "$install" ] || [ -d "$install" ] || die "run: $install is no directory"

  run_remove_dead
  local server release
  for server in "${servers[@]}"; do
    release=bookworm
    [[ $server != *:* ]] || release=${server#*:}
    make_root "$release"
  done
  [ -z "$node" ] || make_root "$node"

  run_state=$(run_place)
  mkdir -p "$run_state"
  run_state=$(mktemp -d "$run_state/XXXXXX")
  run_name=qxlab-$(basename "$run_state")
  exec {run_lock}>"$run_state/lock"
  flock "$run_lock"
  run_prepare_state

  run_child=
  trap 'run_undo' EXIT
  trap 'run_interrupted' INT
  trap 'run_kill; exit 143' TERM HUP
  # A job in the background is deaf to Ctrl-C unless told otherwise.
  (
    exec {run_lock}>&-
    trap - EXIT INT TERM HUP
    cgroups_enter "$run_name"
    # The first unshare fixes the root of the control groups; the others follow
    # in a group below it.
    exec env --default-signal=INT --default-signal=QUIT setpriv --pdeathsig KILL \
      unshare --cgroup "$LAB_SELF" inside enter "$run_name" "$run_state" "$PWD" "$@"
  ) <&0 &
  run_child=$!
  local status=0
  while :; do
    status=0
    wait "$run_child" || status=$?
    kill -0 "$run_child" 2>/dev/null || break
  done
  run_child=
  exit "$status"
}

# Where running labs keep what is written: in memory where that can hold all that
# a file system can, else on the disk.
run_place() {
  local file result=$LAB_CACHE/runs
  if [ -n "${QX_LAB_RUNS:-}" ]; then
    printf '%s' "$QX_LAB_RUNS"
    return
  fi
  if [ "$(stat -f -c %T /dev/shm)" = tmpfs ] &&
    [ "$(df -k --output=avail /dev/shm | tail -n 1)" -gt $((8 * 1024 * 1024)) ]; then
    file=$(mktemp /dev/shm/qxlab.XXXXXX)
    # Kernels before 6.6 have no such attributes there.
    if setfattr -n user.probe -v 1 "$file" 2>/dev/null; then result=/dev/shm/qxlab; fi
    rm -f "$file"
  fi
  printf '%s' "$result"
}

run_check_names() {
  local server name seen=' '
  for server in "$@"; do
    name=${server%%:*}
    [[ $name =~ ^[a-z][a-z0-9]{0,9}$ ]] ||
      die "run: '$name' is no server name: a letter, then up to nine letters or digits"
    [ "$name" != node ] || die "run: a server cannot be called node"
    [[ $seen != *" $name "* ]] || die "run: two servers are called $name"
    seen="$seen$name "
  done
}

# Makes of --node the name of its root.
run_check_node() {
  case $node in
    '') ;;
    vm) node='node-bookworm' ;;
    vm:bookworm | vm:trixie) node=node-${node#vm:} ;;
    *) die "run: '$node' is no kind of node: give vm, vm:bookworm or vm:trixie" ;;
  esac
}

# Everything the inner half needs to know, as files.
run_prepare_state() {
  local server release
  mkdir -p "$run_state"/{node,keys,servers,lxc,empty}
  cp /proc/self/mountinfo "$run_state/mountinfo"
  printf '%s\n' "$install" >"$run_state/install"
  printf '%s\n' "${binds[@]}" >"$run_state/binds"
  for server in "${servers[@]}"; do
    release=bookworm
    [[ $server != *:* ]] || release=${server#*:}
    mkdir -p "$run_state/servers/${server%%:*}"
    basename "$(root_path "$release")" >"$run_state/servers/${server%%:*}/release"
  done
  if [ -n "$node" ]; then
    mkdir -p "$run_state/servers/node"
    basename "$(root_path "$node")" >"$run_state/servers/node/release"
  fi
  ssh-keygen -q -t ed25519 -N '' -C root@node -f "$run_state/keys/id_ed25519"
}

# Ctrl-C reached the command as well. It ends in its own time, but not never.
run_interrupted() {
  [ -n "$run_child" ] || exit 130
  (
    trap - EXIT INT
    sleep 60
    kill -KILL "$run_child"
  ) 2>/dev/null &
}

# The first process of the namespaces dies with this one, and they with it.
run_kill() {
  local pid=$run_child
  run_child=
  [ -z "$pid" ] || kill -KILL "$pid" 2>/dev/null || true
  [ -z "$pid" ] || wait "$pid" 2>/dev/null || true
}

run_undo() {
  local status=$?
  trap '' INT TERM HUP
  run_kill
  cgroups_remove "$run_name"
  run_remove_state "$run_state"
  rmdir "$(dirname "$run_state")" 2>/dev/null || true
  exit "$status"
}

# Work directories of overlays have no permissions, root needs none. What is
# still busy is a mount that the kernel is about to drop.
run_remove_state() {
  local try
  for try in 1 2 3 4 5; do
    rm -rf "$1" 2>/dev/null && return 0
    sleep "0.$try"
  done
  rm -rf "$1"
}

# What labs left that were killed with SIGKILL.
run_remove_dead() {
  local state lock
  for state in "$(run_place)"/*/; do
    [ -e "$state" ] || continue
    # Just made, not locked yet.
    [ -e "$state/lock" ] || continue
    exec {lock}>"$state/lock"
    if flock -n "$lock"; then
      cgroups_remove "qxlab-$(basename "$state")"
      run_remove_state "$state"
    fi
    exec {lock}>&-
  done
}

clean_main() {
  need_root
  run_remove_dead
  rm -rf "$LAB_CACHE/roots"
  rmdir "$(run_place)" "$LAB_CACHE" 2>/dev/null || true
}
