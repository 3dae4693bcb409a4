# The node as a virtual machine (`lab run --node vm`): a container host as people have
# it, with Debian's own kernel, AppArmor, unified control groups and lxc with all that
# it recommends. It has the node's address, a second disk of ext4 with quotas at
# /srv/quota and a third of btrfs at /srv/btrfs. The command of `lab run` runs beside
# it, in the namespaces where the node would be otherwise, and reaches it as the
# machine "node" of `lab exec`, `lab put` and the others.
# shellcheck shell=bash

NODE_VM_PACKAGES=(
  linux-image-amd64 initramfs-tools udev kmod systemd-sysv dbus openssh-server
  openssh-client ifupdown bridge-utils nftables iproute2 iputils-ping procps psmisc
  lxc quota acl attr libcap2-bin e2fsprogs btrfs-progs busybox-static tar xz-utils
  zstd less nano man-db ca-certificates file perl
)

# What a container made from the OS template debian-12 has.
NODE_VM_GUEST_PACKAGES=(
  systemd-sysv dbus ifupdown isc-dhcp-client iproute2 iputils-ping procps quota netbase
)

node_vm_digest() {
  {
    printf '%s\n' "$1" "${NODE_VM_PACKAGES[@]}" "${NODE_VM_GUEST_PACKAGES[@]}"
    declare -f node_vm_root node_vm_first_boot
    cat "$LAB_DIR"/node/* "$LAB_DIR/vm/before"
  } | sha256sum | cut -c1-12
}

# --- The images, made once ----------------------------------------------------

# node_vm_root RELEASE NEW: makes the directory NEW with a kernel, an initramfs and
# three disks.
node_vm_root() {
  local release=$1 new=$2 tree=$2/tree
  need_tools mkfs.ext4 mkfs.btrfs debugfs qemu-system-x86_64
  mkdir -p "$new/empty"
  debian_root "$release" "$tree" \
    "$(IFS=, && printf '%s' "${NODE_VM_PACKAGES[*]}")" \
    --aptopt='APT::Install-Recommends "true"' \
    --essential-hook="$LAB_DIR/vm/before \"\$1\"" \
    --customize-hook="$LAB_DIR/node/customize \"\$1\""
  debian_root bookworm "$new/guest" "$(IFS=, && printf '%s' "${NODE_VM_GUEST_PACKAGES[*]}")"
  : >"$new/guest/etc/machine-id"
  mkdir -p "$tree/var/lib/qx/template"
  tar -C "$new/guest" --numeric-owner --xattrs --acls --exclude=./var/cache/apt \
    --exclude=./var/lib/apt/lists --exclude=./usr/share/doc --exclude=./usr/share/man \
    --exclude=./usr/share/locale -cf "$tree/var/lib/qx/template/debian-12.tar" .
  rm -rf "$new/guest"
  cp -L "$tree/vmlinuz" "$new/vmlinuz"
  cp -L "$tree/initrd.img" "$new/initrd"
  cp "$tree/var/lib/dpkg/status" "$new/packages"
  mkfs.ext4 -q -L root -O ^quota -d "$tree" "$new/root.disk" 8G
  mkfs.ext4 -q -L quota -O ^quota "$new/quota.disk" 4G
  truncate -s 4G "$new/btrfs.disk"
  mkfs.btrfs -q -L btrfs "$new/btrfs.disk"
  rm -rf "$tree"
  node_vm_first_boot "$new"
}

# node_vm_first_boot DIRECTORY: boots the new machine and waits until it ends itself.
node_vm_first_boot() {
  local place=$1 disks
  mapfile -t disks < <(vm_disk_options "$place" root.disk quota.disk btrfs.disk)
  timeout 1800 qemu-system-x86_64 -machine "q35,accel=$(vm_acceleration)" -cpu "$(vm_processor)" -smp 2 -m 1024 \
    -nodefaults -no-user-config -display none -no-reboot -serial "file:$place/first-boot.log" \
    -device virtio-rng-pci "${disks[@]}" -kernel "$place/vmlinuz" -initrd "$place/initrd" \
    -append "$NODE_VM_APPEND lab.first" || true
  grep -q 'lab: the first boot is done' "$place/first-boot.log" || {
    tail -n 40 "$place/first-boot.log" >&2
    die "the node's first boot did not come to its end"
  }
}

NODE_VM_APPEND='root=/dev/vda ro console=ttyS0 net.ifnames=0 systemd.show_status=0 systemd.default_timeout_start_sec=600'

# --- The machine --------------------------------------------------------------

have_node_vm() { [ -d "$LAB_HERE/servers/node" ]; }

# After the servers are made: it knows them.
node_vm_make() {
  local place=$LAB_HERE/servers/node files=$LAB_HERE/servers/node/files release name
  read -r release <"$place/release"
  for name in root quota btrfs; do
    cp --reflink=auto --sparse=always "$LAB_HERE/roots/$release/$name.disk" "$place/$name.disk"
  done
  mkdir -p "$files/etc/ssh"
  install -d -m 700 "$files/root" "$files/root/.ssh"
  ssh-keygen -A -f "$files" >/dev/null
  cp /etc/hosts "$files/etc/hosts"
  cp /root/.ssh/id_ed25519 /root/.ssh/id_ed25519.pub "$files/root/.ssh/"
  cp /root/.ssh/id_ed25519.pub "$files/root/.ssh/authorized_keys"
  chmod 600 "$files/root/.ssh/id_ed25519" "$files/root/.ssh/authorized_keys"
  [ ! -e /root/.ssh/known_hosts ] || cp /root/.ssh/known_hosts "$files/root/.ssh/"
  sed "s/^/node /" "$files/etc/ssh/ssh_host_ed25519_key.pub" >"$place/known_hosts"
  sed "s/^/node,192.0.2.1 /; s/ root@[^ ]*\$//" "$files"/etc/ssh/ssh_host_*_key.pub \
    >>/root/.ssh/known_hosts
  vm_fill "$place/root.disk" "$files"
}

node_vm_boot() {
  vm_start node 2048 "$NODE_VM_APPEND" -- root.disk quota.disk btrfs.disk
}

# The product, as `cmake --install` would put it there.
node_vm_install() {
  [ -d "$LAB_HERE/product" ] || return 0
  tar -C "$LAB_HERE/product" --owner=0 --group=0 --no-overwrite-dir -cf - . |
    vm_exec node tar -C / --no-overwrite-dir -xpf -
}
