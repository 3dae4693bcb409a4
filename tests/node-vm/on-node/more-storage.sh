#!/usr/bin/env bash
# each kind of storage, privileged and not: size, growth at the next start, removal
# shellcheck source=tests/node-vm/lib.sh
. /root/node-vm/lib.sh

small_template
btrfs quota enable /srv/btrfs 2>/dev/null || true
btrfs quota rescan -w /srv/btrfs >/dev/null 2>&1 || true

# fill ID MIB: true when so much can be written.
fill() { inside "$1" sh -c "dd if=/dev/zero of=/fill bs=1M count=$2 2>/dev/null && sync"; }

id=209
for storage in directory ext4 btrfs; do
  for unprivileged in no yes; do
    id=$((id + 1))
    remove $id
    step "$storage (unprivileged: $unprivileged)"
    area=/var/lib/qx/private/$id
    [ $storage != btrfs ] || area=/srv/btrfs/private/$id
    mkdir -p "${area%/*}"
    check "make" make $id OSTEMPLATE=small STORAGE=$storage UNPRIVILEGED=$unprivileged \
      VE_PRIVATE="$area" DISKSPACE=65536:65536
    check "start" up $id
    check "32 MiB can be written" fill $id 32
    check_equal "the file is root's on disk as well" 0 "$(stat -c %u "$area/fs/fill")"
    if [ $storage != directory ]; then
      check "96 MiB cannot" eval "! fill $id 96"
      inside $id rm -f /fill
      check "status calls the limit enforced" eval \
        "! qxctl status $id | grep -E 'not enforced.*DISKSPACE'"
    else
      check "status says that nothing limits it" status_says $id 'not enforced.*DISKSPACE'
    fi
    check "stop" quietly qxctl stop $id
    check_nothing_mounted $id
    [ $storage != ext4 ] || check_no "no loop device is left" losetup -j "$area/.qx-image"
    check "destroy" quietly qxctl destroy $id
    check "nothing is left" test ! -e "$area"
  done
done

step "An image grows at every start after DISKSPACE was raised"
remove 216
make 216 OSTEMPLATE=small STORAGE=ext4 DISKSPACE=65536:65536
check "start" up 216
size=65536
for try in 1 2 3 4; do
  size=$((size + 16384))
  quietly qxctl set 216 DISKSPACE=$size:$size
  if [ $((try % 2)) = 0 ]; then
    inside 216 poweroff
    check "it powers itself off" until_so 30 eval '! grep -qs . /run/qx/216.init'
    check "start $try" quietly qxctl start 216
  else
    check "restart $try" quietly qxctl restart 216
  fi
  check "after restart $try it has $size KiB" \
    test "$(inside 216 df -k / | awk 'NR == 2 { print $2 }')" -gt $((size - 16384))
done
remove 216

step "A directory on a file system whose quotas are the host's own"
remove 217
mkdir -p /srv/quota/private
setquota -u 1000 0 40960 0 0 /srv/quota
limits() { repquota -un /srv/quota | awk '$1 == "#1000" { print $4, $5 }'; }
check "make" make 217 OSTEMPLATE=small STORAGE=directory UNPRIVILEGED=no \
  VE_PRIVATE=/srv/quota/private/217 QUOTAUGIDLIMIT=100
quietly qxquota setlimit2 217 -u 1000 0 4096 0 0
check "start" up 217
inside 217 sh -c 'mkdir /srv && chown 1000 /srv'
as_user() { inside 217 su -s /bin/sh -c "dd if=/dev/zero of=/srv/fill bs=1M count=$1 2>/dev/null" user; }
check_equal "the container's limits are kept, not enforced" 10 \
  "$(qxquota stat 217 >/dev/null 2>&1 && echo 0 || echo $?)"
check "so that its user can write more" as_user 8
check "but not more than the host lets that id" eval '! as_user 60'
check_equal "the host's limits are as before" "0 40960" "$(limits)"
check "stop" quietly qxctl stop 217
check "destroy" quietly qxctl destroy 217
check_equal "still" "0 40960" "$(repquota -unv /srv/quota | awk '$1 == "#1000" { print $4, $5 }')"
setquota -u 1000 0 0 0 0 /srv/quota
