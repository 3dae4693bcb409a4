#!/usr/bin/env bash
# the bundle's programs run where there is no other C library
# shellcheck source=tests/e2e/ssh-lib.sh
. "$QX_E2E/ssh-lib.sh"

share=/usr/local/share/qxlinmigrate
root=$work/foreign
place=/var/qxagent.tmp

step "A root with busybox and nothing else in it"
mkdir -p "$root/bin" "$root$place" "$root/dev" "$root/proc" "$root/tmp"
busybox=$(command -v busybox)
check "busybox is static" grep -q 'statically linked' <(file -L "$busybox")
cp -L "$busybox" "$root/bin/busybox"
chroot "$root" /bin/busybox --install -s /bin
check_equal "the bundle is whole" "$(cut -c1-64 $share/bundle.sha256)" \
  "$(sha256sum <$share/bundle.tar.gz | cut -c1-64)"
check "it has less than 15 MB ($(stat -c %s $share/bundle.tar.gz))" \
  test "$(stat -c %s $share/bundle.tar.gz)" -lt 15000000
cp $share/bundle.tar.gz "$root/tmp/"

inside() { chroot "$root" /bin/env -i PATH=/bin QXA_TMPDIR=$place "$@"; }
run_bundled() { inside $place/lib/ld-linux-x86-64.so.2 --library-path $place/lib "$@"; }

step "Unpacked by busybox, run as on a server"
inside /bin/sh -c "gzip -dc </tmp/bundle.tar.gz | tar xf - -C $place"
check_equal "qxagent" "$(qxmigrate --version | awk 'NR == 1 { print "qxagent", $2 }')" \
  "$(run_bundled $place/bin/qxagent --version 2>&1)"
mount --bind /proc "$root/proc"
rsync=$place/usr/local/share/qxlinmigrate/rsync
check_equal "rsync, which finds stock rsync beside it" "$(rsync --version | head -n 1)" \
  "$(inside $rsync --version 2>&1 | head -n 1)"
umount "$root/proc"
check_no "no library or loader of the node was there to help" \
  find "$root" -path "$root$place" -prune -o -name '*.so*' -print
