#!/usr/bin/env bash
# the copy is stopped before the node's disk is full
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"

disk=/tmp/small-disk

# small_disk MIB INODES: a file system of its own for what the node keeps.
small_disk() {
  mkdir -p /var/lib/qx
  truncate -s "$1M" "$disk"
  mkfs.ext4 -q -F -m 0 -N "$2" "$disk"
  mount -o loop "$disk" /var/lib/qx
  chmod 755 /var/lib/qx
}

remove_disk() {
  umount /var/lib/qx
  rm -f "$disk"
}

open_source

step "Its blocks"
small_disk 512 60000
# Used space counts as space that the disk can give: the library's check passes.
head -c 300M /dev/zero >/var/lib/qx/ballast
# So slow that nothing much happens between two looks at the disk.
slow_source 1 20000
migrate
check_status 1
check "the disk, what is free and the reserve are named" grep -Eq \
  "^qxmigrate: stage 'rSync' failed: rsync failed \(code 2816\) : rsync: the copy was stopped before the disk was full: only [0-9]+ MiB are free at '$private', and 2[0-9] MiB \(5 %\) must stay free\$" \
  "$out"
check_no "nothing met a full disk" grep "No space left" "$out"
check_rolled_back
check_services_run

step "Without a reserve it fills up"
fast_source
echo 'RESERVE="0"' >>/etc/qx/qx.conf
migrate
check_status 1
check "rsync's own words follow" grep -q "No space left on device (28)" "$out"
check_rolled_back
sed -i '/^RESERVE=/d' /etc/qx/qx.conf
remove_disk

step "Its inodes"
small_disk 2048 6000
# Small files are quick to make: room for those that come between two looks.
echo 'RESERVE="20"' >>/etc/qx/qx.conf
slow_source 1 20000
migrate
fast_source
check_status 1
check "the inodes are named" grep -Eq \
  "rsync: the copy was stopped before the disk ran out of inodes: only [0-9]+ are free at '$private', and [0-9]+ \(20 %\) must stay free\$" \
  "$out"
check_rolled_back
check_services_run
sed -i '/^RESERVE=/d' /etc/qx/qx.conf
remove_disk

step "A reserve that is none is refused before anything is touched"
echo 'RESERVE="much"' >>/etc/qx/qx.conf
migrate
check_status 1
check_says "qxmigrate: RESERVE: 'much' is not a percentage from 0 to 50"
sed -i '/^RESERVE=/d' /etc/qx/qx.conf

step "Nor does a node without rsync make anything"
mv /usr/bin/rsync /usr/bin/rsync.away
migrate
check_status 1
check "the package is named" grep -q "^qxmigrate: the node cannot receive: .*install the package rsync" "$out"
check "no private area" test ! -e "$private"
check "the plan says it" grep -q "The node cannot receive: .*install the package rsync" \
  <(qxmigrate plan "$source" --ctid "$ctid" --duration 1 --json)
mv /usr/bin/rsync.away /usr/bin/rsync
close_source
