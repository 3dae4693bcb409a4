# What a command on the node can do with servers.
# shellcheck shell=bash

command_exec() {
  server_check "${1:-}"
  [ $# -gt 1 ] || die "exec: no command given"
  server_exec "$@"
}

command_root() {
  server_check "${1:-}"
  ! server_is_vm "$1" || die "root: $1 is a virtual machine; use exec, put and view"
  printf '%s\n' "$(server_root "$1")"
}

# As the server sees its files, with what it has mounted. Of a virtual machine, what
# is on its disks at this moment.
command_view() {
  server_check "${1:-}"
  if server_is_vm "$1"; then
    vm_view "$1"
    return
  fi
  printf '/proc/%d/root\n' "$(lxc-info -P "$LAB_HERE/lxc" -n "$1" -pH)"
}

command_address() {
  server_check "${1:-}"
  printf '%s\n' "$(server_address "$1")"
}

command_put() {
  local server=${1:-}
  server_check "$server"
  [ $# -ge 3 ] || die "put: give files and a directory"
  if server_is_vm "$server"; then
    vm_put "$@"
    return
  fi
  shift
  local target=${*: -1}
  cp -a "${@:1:$#-1}" "$(server_root "$server")/$target"
}

command_cut() {
  server_check "${1:-}"
  ip link set "veth-$1" down
}

command_join() {
  server_check "${1:-}"
  ip link set "veth-$1" up
  # The node still takes the server for gone for some seconds: what it remembers is
  # forgotten, and the cable counts as plugged in once ssh answers.
  ip neigh flush to "$(server_address "$1")"
  wait_for 30 server_answers "$1" || die "server $1 does not answer after its cable was plugged in"
}

server_answers() { (exec 3<>"/dev/tcp/$(server_address "$1")/22") 2>/dev/null; }

# A server that hangs, or lost its power: it says nothing any more.
command_freeze() { server_set_frozen "${1:-}" 1; }

command_thaw() { server_set_frozen "${1:-}" 0; }

server_set_frozen() {
  local group
  server_check "$1"
  if server_is_vm "$1"; then
    vm_set_frozen "$@"
    return
  fi
  group=$(find /sys/fs/cgroup -type d -name "lxc.payload.$1" -print -quit)
  echo "$2" >"$group/cgroup.freeze"
}

# A server that loses its power: its link is dead, then its processes are; nobody is
# told. Its files stay as they are.
command_crash() {
  server_check "${1:-}"
  ! server_is_vm "$1" || die "crash: $1 is a virtual machine"
  command_cut "$1"
  lxc-stop -P "$LAB_HERE/lxc" -n "$1" --kill
}

# And boots again.
command_boot() {
  server_check "${1:-}"
  ! server_is_vm "$1" || die "boot: $1 is a virtual machine"
  server_boot "$1"
  # It has a new card.
  ip neigh flush to "$(server_address "$1")"
  server_wait "$1"
}

# Name, kind, mode, owner, size and times of everything that does not change by
# itself on an idle server.
command_files() {
  server_check "${1:-}"
  if server_is_vm "$1"; then
    vm_exec "$1" sh -c "find . ./home $LAB_FILES" </dev/null | LC_ALL=C sort
  else
    (cd "$(server_root "$1")" && eval "find . $LAB_FILES") | LC_ALL=C sort
  fi
}

LAB_FILES=$(
  cat <<'EOF'
-xdev \( -path ./proc -o -path ./sys -o -path ./run -o -path ./tmp -o -path ./dev \
    -o -path ./var/log -o -path ./var/tmp -o -path ./var/lib/ticker \
    -o -path ./var/lib/systemd -o -path ./var/lib/urandom \) -prune \
    -o -type d -printf '%p %y %m %U:%G\n' \
    -o -printf '%p %y %m %U:%G %s %T@ %l\n'
EOF
)

command_processes() {
  server_check "${1:-}"
  server_exec "$1" ps -eo pid=,ppid=,args= </dev/null
}
