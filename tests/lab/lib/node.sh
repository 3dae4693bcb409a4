# The inner half of `lab run`: makes the node and is its first process.
# shellcheck shell=bash

inside_main() {
  local phase=$1
  shift
  case $phase in
    enter) inside_enter "$@" ;;
    node) inside_node "$@" ;;
    *) die "inside: unknown phase '$phase'" ;;
  esac
}

inside_enter() {
  cgroups_into_leaf "$1"
  exec unshare --mount --net --pid --uts --ipc --fork --kill-child \
    "$LAB_SELF" inside node "$@"
}

# Arguments: name, state directory, working directory, command.
inside_node() {
  local state=$2 work=$3 status=0
  shift 3
  # The first process gets signals only for what it handles.
  trap : INT
  trap 'exit 143' TERM
  hostname "$(node_own_name "$state")"
  node_make_root "$state"
  node_fill_root "$state"
  node_change_root "$state/node/root"
  node_make_network
  node_make_names
  servers_start
  cd "$work" 2>/dev/null || cd /
  export PATH=$LAB_DIR:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
  export HOME=/root QX_LAB=1
  unset QXA_TMPDIR
  "$@" || status=$?
  servers_stop
  # The kernel ends what is left when this process goes.
  exit "$status"
}

# mount_overlay LOWER STATE TARGET
mount_overlay() {
  mkdir -p "$2/upper" "$2/work" "$3"
  # The upper directory's own attributes become those of the merged root.
  chown --reference="$1" "$2/upper"
  chmod --reference="$1" "$2/upper"
  mount -t overlay lab -o "lowerdir=$1,upperdir=$2/upper,workdir=$2/work" "$3"
}

# An overlay over the machine's own disks.
node_make_root() {
  local state=$1 root=$1/node/root mount number=0
  mount_overlay / "$state/node/disk" "$root"
  while read -r mount; do
    number=$((number + 1))
    if [ -d "$mount" ]; then
      mount_overlay "$mount" "$state/node/disk$number" "$root$mount"
    else
      mount --bind -o ro "$mount" "$root$mount"
    fi
  done < <(awk '{ for (i = 7; $i != "-"; i++)
    if ($5 != "/" && $(i + 1) ~ /^(ext[234]|xfs|btrfs|f2fs|overlay)$/) print $5 }' "$state/mountinfo")

  mount -t proc -o nosuid,nodev,noexec proc "$root/proc"
  mount -t sysfs -o nosuid,nodev,noexec sysfs "$root/sys"
  mount -t tmpfs -o mode=755 lab-run "$root/run"
  mount -t tmpfs -o mode=1777 lab-tmp "$root/tmp"
  mkdir -p "$root/run/lock" "$root$LAB_HERE"
  node_make_devices "$root/dev"
}

node_make_devices() {
  local dev=$1 name
  mount -t tmpfs -o mode=755,nosuid lab-dev "$dev"
  for name in null zero full random urandom tty kmsg fuse; do
    [ -e "/dev/$name" ] || continue
    : >"$dev/$name"
    mount --bind "/dev/$name" "$dev/$name"
  done
  # Loop devices are the machine's own; they go with what is mounted from them.
  [ ! -e /dev/loop-control ] || node_make_loop_devices "$dev"
  mkdir "$dev/pts" "$dev/shm" "$dev/mqueue"
  mount -t devpts -o newinstance,gid=5,mode=620,ptmxmode=666 devpts "$dev/pts"
  mount -t tmpfs -o mode=1777,nosuid,nodev lab-shm "$dev/shm"
  mount -t mqueue mqueue "$dev/mqueue" 2>/dev/null || true
  ln -s pts/ptmx "$dev/ptmx"
  ln -s /proc/self/fd "$dev/fd"
  ln -s /proc/self/fd/0 "$dev/stdin"
  ln -s /proc/self/fd/1 "$dev/stdout"
  ln -s /proc/self/fd/2 "$dev/stderr"
}

node_make_loop_devices() {
  local dev=$1 number
  : >"$dev/loop-control"
  mount --bind /dev/loop-control "$dev/loop-control"
  # The kernel makes more of them on demand, and has no /dev to show them here.
  for number in $(seq 0 63); do
    mknod -m 600 "$dev/loop$number" b 7 "$number"
  done
}

# The lab's own things, what the caller wants visible, and the product.
node_fill_root() {
  local state=$1 root=$1/node/root path install name
  mount -t tmpfs -o mode=755 lab-cache "$root$LAB_CACHE"
  for name in keys servers lxc; do
    mkdir -p "$root$LAB_HERE/$name"
    mount --bind "$state/$name" "$root$LAB_HERE/$name"
  done
  mkdir -p "$root$LAB_HERE/roots"
  mount --bind -o ro "$LAB_CACHE/roots" "$root$LAB_HERE/roots"
  cp "$state/mountinfo" "$root$LAB_HERE/mountinfo"
  # What lies below a directory that the node has of its own, /tmp for instance.
  while read -r path; do
    [ -n "$path" ] || continue
    if [ -d "$path" ]; then
      mkdir -p "$root$path"
    else
      mkdir -p "$root$(dirname "$path")" && : >>"$root$path"
    fi
    mount --bind "$path" "$root$path"
  done < <(cat "$state/binds" && printf '%s\n' "$LAB_DIR")
  # Containers lie on the disk itself: an overlay cannot hold every device node.
  mkdir -p "$state/node/containers" "$root/var/lib/qx"
  mount --bind "$state/node/containers" "$root/var/lib/qx"
  read -r install <"$state/install"
  if [ -n "$install" ]; then
    cp -a "$install/." "$root/"
    mkdir -p "$root$LAB_HERE/product"
    mount --bind -o ro "$install" "$root$LAB_HERE/product"
  fi
}

node_change_root() {
  mkdir -p "$1/mnt/.lab-old"
  cd "$1" || die "cannot enter the node's root"
  pivot_root . mnt/.lab-old
  cd /
  cgroups_mount "$LAB_HERE/mountinfo"
  umount -l /mnt/.lab-old
  rmdir /mnt/.lab-old
}

# What the namespaces are: the node, or the place beside it where that is a machine.
node_own_name() { if [ -d "$1/servers/node" ]; then echo desk; else echo node; fi; }

node_make_network() {
  local number=1
  ! have_node_vm || number=254
  ip link set lo up
  ip link add qxbr0 type bridge
  ip address add 192.0.2.$number/24 dev qxbr0
  ! have_node_vm || ip address add 2001:db8:2::fe/64 dev qxbr0 nodad
  ip link set qxbr0 up
}

# Names and keys, as an administrator has them.
node_make_names() {
  local server
  {
    printf '127.0.0.1\tlocalhost\n192.0.2.1\tnode\n'
    for server in $(servers_all); do
      printf '%s\t%s\n' "$(server_address "$server")" "$server"
    done
  } >/etc/hosts
  hostname >/etc/hostname
  rm -rf /root/.ssh
  mkdir -m 700 /root/.ssh
  cp "$LAB_HERE/keys/id_ed25519" "$LAB_HERE/keys/id_ed25519.pub" /root/.ssh/
}
