# Virtual machines: servers of the release "vm" (or "vm-RELEASE") have a kernel of
# their own, and with it disk quotas, partitions, an fstab that is read, and a boot
# from a disk. The first disk is the root file system, the second /home. They stand on
# the bridge like the others and are entered over ssh.
# shellcheck shell=bash

# The release of Debian that "vm" or "vm-RELEASE" means.
vm_release() { if [ "$1" = vm ]; then echo bookworm; else echo "${1#vm-}"; fi; }

# Beside what every server has.
VM_PACKAGES=(
  linux-image-cloud-amd64 initramfs-tools udev kmod ifupdown acl attr libcap2-bin
)

vm_digest() {
  {
    roots_digest
    printf '%s\n' "$1" "${VM_PACKAGES[@]}"
    declare -f vm_root
    cat "$LAB_DIR"/vm/*
  } | sha256sum | cut -c1-12
}

# --- The images, made once ----------------------------------------------------

# vm_root RELEASE NEW: makes the directory NEW with a kernel, an initramfs and two disks.
vm_root() {
  local release=$1 new=$2 tree=$2/tree
  need_tools mkfs.ext4 debugfs
  mkdir -p "$new/empty"
  debian_root "$release" "$tree" \
    "$(IFS=, && printf '%s' "${LAB_PACKAGES[*]},${VM_PACKAGES[*]}")" \
    --essential-hook="$LAB_DIR/vm/before \"\$1\"" \
    --customize-hook="$LAB_DIR/server/customize \"\$1\"" \
    --customize-hook="$LAB_DIR/vm/customize \"\$1\""
  cp -L "$tree/vmlinuz" "$new/vmlinuz"
  cp -L "$tree/initrd.img" "$new/initrd"
  # Without ext4's own quotas: the initramfs cannot mount such a root. The quotas are
  # files, as on servers of that age.
  mkfs.ext4 -q -L home -O ^quota -d "$tree/home" "$new/home.ext4" 512M
  find "$tree/home" -mindepth 1 -delete
  mkfs.ext4 -q -L root -O ^quota -d "$tree" "$new/root.ext4" 2G
  cp "$tree/var/lib/dpkg/status" "$new/packages"
  rm -rf "$tree"
}

# --- One machine --------------------------------------------------------------

server_is_vm() {
  local release
  read -r release <"$LAB_HERE/servers/$1/release"
  [[ $release == vm-* || $1 == node ]]
}

vm_make() {
  local server=$1 place=$LAB_HERE/servers/$1 files=$LAB_HERE/servers/$1/files release name
  read -r release <"$place/release"
  need_tools qemu-system-x86_64 debugfs ssh
  for name in root home; do
    cp --reflink=auto --sparse=always "$LAB_HERE/roots/$release/$name.ext4" "$place/$name.ext4"
  done
  mkdir -p "$files/etc/ssh" "$files/etc/network"
  install -d -m 700 "$files/root"
  server_identity "$server" "$files"
  printf 'auto lo\niface lo inet loopback\nauto eth0\niface eth0 inet static\n' \
    >"$files/etc/network/interfaces"
  printf '  address %s/24\n  gateway 192.0.2.1\n' "$(server_address "$server")" \
    >>"$files/etc/network/interfaces"
  sed "s/^/$server /" "$files/etc/ssh/ssh_host_ed25519_key.pub" >"$place/known_hosts"
  vm_fill "$place/root.ext4" "$files"
}

# vm_fill IMAGE FILES: puts a tree of files into an image that nobody uses.
vm_fill() {
  local image=$1 files=$2 path kind mode
  {
    (cd "$files" && find . -mindepth 1 -printf '%P %y %m\n') | while read -r path kind mode; do
      if [ "$kind" = d ]; then
        printf 'mkdir %s\n' "$path"
        printf 'set_inode_field %s mode 040%s\n' "$path" "$mode"
      else
        printf 'rm %s\nwrite %s %s\n' "$path" "$files/$path" "$path"
        printf 'set_inode_field %s mode 0100%s\n' "$path" "$mode"
      fi
    done
  } >"$files.debugfs"
  # It says so for each that was there, or not, and goes on.
  debugfs -w -f "$files.debugfs" "$image" >"$files.log" 2>&1
}

# By hardware where there is some: a processor that offers its extensions. (Some
# machines have /dev/kvm and no extensions; that is slower than none.)
vm_acceleration() {
  if [ -n "${QX_LAB_ACCEL:-}" ]; then
    printf '%s' "$QX_LAB_ACCEL"
  elif [ -w /dev/kvm ] && grep -qE '^flags.* (vmx|svm)( |$)' /proc/cpuinfo; then
    printf kvm:tcg
  else
    printf tcg
  fi
}

# Emulated, it is without cmpxchg16b: QEMU 7.2 leaves what it likes in the flags after that,
# and kernels that use it in the allocator stop (seen: "double fault" in __kmalloc, with
# half of a pointer in EFLAGS).
vm_processor() {
  [ "$(vm_acceleration)" != tcg ] && echo max || echo max,-cx16
}

# The node's /dev has no devices but those that servers need.
vm_devices() {
  mkdir -p /dev/net
  [ -e /dev/net/tun ] || mknod -m 600 /dev/net/tun c 10 200
  [ -e /dev/kvm ] || mknod -m 600 /dev/kvm c 10 232
}

# vm_disk_options DIRECTORY FILE...: qemu's options for these disks, a line each.
vm_disk_options() {
  local place=$1 file
  shift
  for file in "$@"; do
    printf '%s\n' -drive "file=$place/$file,format=raw,if=virtio,cache=unsafe"
  done
}

vm_boot() {
  vm_start "$1" 768 "root=/dev/vda ro console=ttyS0 net.ifnames=0 systemd.show_status=0" \
    -no-reboot -- root.ext4 home.ext4
}

# vm_start NAME MIB APPEND [OPTION of qemu...] -- DISK...
vm_start() {
  local name=$1 memory=$2 append=$3 place=$LAB_HERE/servers/$1 release address card
  local options=() disks
  shift 3
  while [ "$1" != -- ]; do options+=("$1") && shift; done
  shift
  mapfile -t disks < <(vm_disk_options "$place" "$@")
  read -r release <"$place/release"
  address=$(server_address "$name")
  card=$(printf '52:54:00:00:02:%02x' "${address##*.}")
  vm_devices
  ip tuntap add dev "veth-$name" mode tap
  ip link set "veth-$name" master qxbr0 up
  qemu-system-x86_64 -name "$name" -machine "q35,accel=$(vm_acceleration)" -cpu "$(vm_processor)" \
    -smp "$(nproc)" -m "$memory" -nodefaults -no-user-config -display none \
    -serial "file:$place/console.log" -device virtio-rng-pci "${disks[@]}" \
    -nic "tap,ifname=veth-$name,script=no,downscript=no,model=virtio-net-pci,mac=$card" \
    -kernel "$LAB_HERE/roots/$release/vmlinuz" -initrd "$LAB_HERE/roots/$release/initrd" \
    -append "$append" "${options[@]}" -daemonize -pidfile "$place/pid" ||
    die "qemu does not start $name"
}

vm_pid() { cat "$LAB_HERE/servers/$1/pid"; }

vm_exec() {
  local server=$1 place=$LAB_HERE/servers/$1
  shift
  ssh -F none -i "$LAB_HERE/keys/id_ed25519" -o IdentitiesOnly=yes -o BatchMode=yes \
    -o GlobalKnownHostsFile=none -o UserKnownHostsFile="$place/known_hosts" \
    -o HostKeyAlias="$server" -o LogLevel=ERROR -o ConnectTimeout=20 \
    -o ServerAliveInterval=20 -o ServerAliveCountMax=6 \
    "root@$(server_address "$server")" \
    "cd / && exec env PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin LANG=C.UTF-8 $(printf '%q ' "$@")"
}

vm_put() {
  local server=$1 target=${*: -1} file
  shift
  for file in "${@:1:$#-1}"; do
    tar -C "$(dirname "$file")" --numeric-owner --xattrs --acls -cf - "$(basename "$file")"
  done | vm_exec "$server" tar -C "$target" --numeric-owner --xattrs --acls -i -xpf -
}

vm_set_frozen() {
  if [ "$2" = 1 ]; then kill -STOP "$(vm_pid "$1")"; else kill -CONT "$(vm_pid "$1")"; fi
}

# Its disks as they are at this moment, mounted for reading. The next view of the
# server replaces this one.
vm_view() {
  local server=$1 place=$LAB_HERE/servers/$1 name
  umount -R "$place/view" 2>/dev/null || true
  mkdir -p "$place/view" "$place/snapshot"
  vm_exec "$server" sync </dev/null
  vm_set_frozen "$server" 1
  for name in root home; do
    cp --reflink=auto --sparse=always "$place/$name.ext4" "$place/snapshot/$name.ext4"
  done
  vm_set_frozen "$server" 0
  for name in root home; do
    # The journal has the last of it; 1 is "corrected".
    e2fsck -p -E journal_only "$place/snapshot/$name.ext4" >/dev/null || [ $? = 1 ]
  done
  mount -o loop,ro "$place/snapshot/root.ext4" "$place/view"
  mount -o loop,ro "$place/snapshot/home.ext4" "$place/view/home"
  printf '%s/view\n' "$place"
}

vm_stop() {
  local pid
  pid=$(vm_pid "$1" 2>/dev/null) || return 0
  kill -KILL "$pid" 2>/dev/null || true
}
