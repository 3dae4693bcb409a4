# Puts everything that a file system can hold below a server's /srv/curiosities,
# for the copy to be compared with. Arguments: the server's root directory, and the
# size of a file that is one hole (1G).
# shellcheck shell=bash
set -euo pipefail
root=$1
place=$root/srv/curiosities
mkdir -p "$place"
cd "$place"

mkdir owners modes links special names deep sparse attributes times
for pair in 0:0 1000:1000 65534:65534 4294967294:4294967294 123456789:987654321; do
  echo "$pair" >"owners/$pair"
  ln -s "$pair" "owners/link-$pair"
  chown -h "$pair" "owners/$pair" "owners/link-$pair"
done
for mode in 0000 0400 0777 1777 2755 4755 6711; do
  echo "$mode" >"modes/$mode"
  mkdir "modes/dir-$mode"
  chmod "$mode" "modes/$mode" "modes/dir-$mode"
done
echo shared >links/first
ln links/first links/second
ln links/first names/third
ln -s first links/relative
ln -s /srv/curiosities/links/first links/absolute
ln -s nowhere links/dangling
ln -s links links/loop
ln -s "$(printf 'x%.0s' {1..2000})" links/long
ln links/relative links/relative-again

mkfifo -m 640 special/fifo
mknod -m 666 special/null c 1 3
mknod -m 660 special/disk b 8 1
mknod -m 600 special/large c 4095 1048575
ln special/disk special/disk-again

for name in $'new\nline' $'tab\there' $'bell\a' $'\xff\xfe' 'blank at the end ' ' -rf' '*' '?' \
  "it's" '"quoted"' 'back\slash' '$HOME' '`id`' ';true' '#comment' '~' '...' \
  "$(printf 'n%.0s' {1..255})"; do
  echo "$name" >"names/$name"
done
path=deep
for _ in {1..40}; do path=$path/$(printf 'd%.0s' {1..80}); done
(cd deep && for _ in {1..40}; do
  name=$(printf 'd%.0s' {1..80})
  mkdir "$name" && cd "$name"
done && echo bottom >bottom)

truncate -s "${2:-1G}" sparse/empty
truncate -s 64M sparse/islands
for at in 0 17 40 63; do
  printf 'island' | dd of=sparse/islands bs=1M seek=$at conv=notrunc status=none
done
head -c 3000000 /dev/zero >sparse/zeros
head -c 5000000 /dev/urandom >sparse/full

echo acl >attributes/acl
setfacl -m u:1234:rw,g:4321:r attributes/acl
mkdir attributes/default-acl
setfacl -d -m u:1234:rwx attributes/default-acl
cp /bin/true attributes/capable
setcap cap_net_raw,cap_net_bind_service+ep attributes/capable
echo user >attributes/user
setfattr -n user.note -v 'any text' attributes/user
setfattr -n user.binary -v 0x00ff10 attributes/user
setfattr -n trusted.note -v secret attributes/user
mkdir attributes/dir
setfattr -n user.note -v 'of a directory' attributes/dir

touch -d '1970-01-01 00:00:00.000000001 UTC' times/epoch
touch -d '2038-01-19 03:14:08.999999999 UTC' times/after-2038
touch -d '1960-06-01 12:00:00 UTC' times/before-1970
touch -h -d '2001-02-03 04:05:06.070809' links/dangling
touch -d '2011-12-13 14:15:16.171819' modes/dir-0777 times special/fifo
