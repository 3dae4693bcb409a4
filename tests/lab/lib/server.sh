# Servers: system containers that boot their own init and stand on the node's
# bridge. Their roots are overlays over the cached ones. (vm.sh has the virtual
# machines.)
# shellcheck shell=bash

# All but the node, where that is a machine of its own.
servers_all() { (cd "$LAB_HERE/servers" && ls | { grep -vx node || true; }); }

server_check() {
  need_node
  [ -n "${1:-}" ] || die "no server was named"
  [ -d "$LAB_HERE/servers/$1" ] || die "there is no server '$1'"
}

server_root() { printf '%s/servers/%s/root' "$LAB_HERE" "$1"; }

machines_all() { (cd "$LAB_HERE/servers" && ls); }

# The first server has 192.0.2.11.
server_address() {
  local server number=10
  if [ "$1" = node ]; then
    printf 192.0.2.1
    return
  fi
  for server in $(servers_all); do
    number=$((number + 1))
    [ "$server" != "$1" ] || break
  done
  printf '192.0.2.%d' "$number"
}

# The node, where it is a machine, is made last: it knows the servers' keys.
servers_start() {
  local server started=$SECONDS
  for server in $(servers_all); do
    server_make "$server"
    server_boot "$server"
  done
  ! have_node_vm || node_vm_make
  ! have_node_vm || node_vm_boot
  for server in $(machines_all); do
    server_wait "$server"
  done
  ! have_node_vm || node_vm_install
  [ -z "$(machines_all)" ] || say "$(machines_all | paste -sd' ') up after $((SECONDS - started)) s"
}

server_make() {
  local server=$1 place=$LAB_HERE/servers/$1 root release
  if server_is_vm "$server"; then
    vm_make "$server"
    return
  fi
  root=$(server_root "$server")
  read -r release <"$place/release"
  mount_overlay "$LAB_HERE/roots/$release" "$place" "$root"
  server_identity "$server" "$root"
  server_config "$server" >"$place/config"
}

# server_identity SERVER ROOT: writes its names and keys, and makes them known here.
server_identity() {
  local server=$1 root=$2
  echo "$server" >"$root/etc/hostname"
  printf '127.0.0.1\tlocalhost\n%s\t%s\n192.0.2.1\tnode\n' "$(server_address "$server")" \
    "$server" >"$root/etc/hosts"
  install -d -m 700 "$root/root/.ssh"
  install -m 600 "$LAB_HERE/keys/id_ed25519.pub" "$root/root/.ssh/authorized_keys"
  ssh-keygen -A -f "$root" >/dev/null
  sed "s/^/$server,$(server_address "$server") /; s/ root@[^ ]*\$//" \
    "$root"/etc/ssh/ssh_host_*_key.pub >>/root/.ssh/known_hosts
  without_timers "$root"
}

# Else the day's work would be done while its files are compared, at midnight.
without_timers() {
  local units=$1/etc/systemd/system name
  [ ! -d "$units" ] || for name in apt-daily apt-daily-upgrade dpkg-db-backup e2scrub_all fstrim \
    logrotate man-db systemd-tmpfiles-clean; do
    ln -sf /dev/null "$units/$name.timer"
  done
}

server_config() {
  local server=$1
  cat <<END
lxc.uts.name = $server
lxc.rootfs.path = dir:$(server_root "$server")
lxc.init.cmd = /sbin/init
lxc.autodev = 1
lxc.pty.max = 256
lxc.tty.max = 0
lxc.console.path = none
lxc.console.logfile = $LAB_HERE/servers/$server/console.log
lxc.mount.auto = proc:rw sys:ro cgroup:rw
lxc.apparmor.profile = unconfined
lxc.cap.drop = sys_module sys_rawio sys_time mac_admin mac_override
lxc.net.0.type = veth
lxc.net.0.link = qxbr0
lxc.net.0.flags = up
lxc.net.0.name = eth0
lxc.net.0.veth.pair = veth-$server
lxc.net.0.ipv4.address = $(server_address "$server")/24
lxc.net.0.ipv4.gateway = 192.0.2.1
lxc.signal.halt = SIGRTMIN+3
END
}

# Servers see control groups of the second generation only, whatever the machine
# has: every init since Debian 9 can live with that, and new ones with nothing else.
with_unified_cgroups() {
  # shellcheck disable=SC2016
  unshare --mount --propagation private sh -c '
    umount -R /sys/fs/cgroup && mount -t cgroup2 cgroup2 /sys/fs/cgroup && exec "$@"' sh "$@"
}

server_boot() {
  local place=$LAB_HERE/servers/$1
  if server_is_vm "$1"; then
    vm_boot "$1"
    return
  fi
  with_unified_cgroups lxc-start -P "$LAB_HERE/lxc" -n "$1" -f "$place/config" \
    -o "$place/lxc.log" -l INFO -d || {
    tail -n 20 "$place/lxc.log" >&2
    die "server $1 does not start"
  }
}

server_exec() {
  local server=$1
  if server_is_vm "$server"; then
    vm_exec "$@"
    return
  fi
  shift
  with_unified_cgroups lxc-attach -P "$LAB_HERE/lxc" -n "$server" --clear-env \
    -v PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin -v HOME=/root \
    -v LANG=C.UTF-8 -- "$@"
}

# What its init says. One without systemd is in its runlevel when the scripts that
# make it have ended.
server_state() {
  # shellcheck disable=SC2016
  server_exec "$1" sh -c '
    if [ -d /run/systemd/system ]; then
      exec systemctl is-system-running
    elif [ "$(runlevel)" = "N 2" ] && ! pgrep -f "^[^ ]*sh /etc/init.d/rc " >/dev/null; then
      echo running
    fi' 2>/dev/null </dev/null
}

server_is_up() {
  case $(server_state "$1") in
    running | degraded) (exec 3<>"/dev/tcp/$(server_address "$1")/22") 2>/dev/null ;;
    *) return 1 ;;
  esac
}

server_wait() {
  local timeout=60
  ! server_is_vm "$1" || timeout=600
  wait_for $timeout server_is_up "$1" || {
    local log
    for log in lxc.log console.log; do
      [ ! -e "$LAB_HERE/servers/$1/$log" ] || tail -n 40 "$LAB_HERE/servers/$1/$log" >&2
    done
    server_exec "$1" systemctl --no-pager list-jobs >&2 </dev/null || true
    die "server $1 did not come up in $timeout seconds"
  }
}

servers_stop() {
  local server
  for server in $(machines_all); do
    if server_is_vm "$server"; then
      vm_stop "$server"
      continue
    fi
    lxc-stop -P "$LAB_HERE/lxc" -n "$server" --kill 2>/dev/null || true
  done
}
