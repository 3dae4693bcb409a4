#!/usr/bin/env bash
# what people meet on the way to a server: a clear text each, and nothing left behind
# shellcheck source=tests/e2e/ssh-lib.sh
. "$QX_E2E/ssh-lib.sh"

root=$(lab root $server)
let_in operator1
open_source

step "The host is not known"
source=root@nowhere.invalid
check_refused "the host of root@nowhere.invalid is not known: check the name, or add it to /etc/hosts or DNS"
source=root@$server

step "Nothing listens on that port"
source=root@$server:2222
check_refused "root@$server refuses the connection: is sshd running there, on that port?"
source=root@$server

step "There is no ssh"
mv /usr/bin/ssh /usr/bin/ssh.away
check_refused "this host has no ssh client: install the package openssh-client"
mv /usr/bin/ssh.away /usr/bin/ssh

step "The host key is not known"
check_refused "the host key of root@$server is not known: connect once with ssh, compare the fingerprint and accept it, or add the key to your known_hosts" \
  --ssh-option BatchMode=yes --ssh-option UserKnownHostsFile=/dev/null

step "The host key has changed"
ssh-keygen -q -t ed25519 -N '' -f $work/other
printf '%s,%s %s\n' $server "$(lab address $server)" "$(cut -d' ' -f1,2 $work/other.pub)" >$work/changed
check_refused "the host key of root@$server has changed: either the server was installed anew or somebody is in between." \
  --ssh-option BatchMode=yes --ssh-option UserKnownHostsFile=$work/changed

step "The login is refused"
check_refused "root@$server refused the login: check the user name, and the key, agent or password that ssh uses for it" \
  --ssh-option BatchMode=yes --ssh-option IdentityFile=$work/other --ssh-option IdentitiesOnly=yes

step "The account may not become root"
source=operator1@$server
check_refused "no root rights on operator1@$server: the account must be root, or may run commands by sudo without a password (sudo -n)"
mv "$root/usr/bin/sudo" "$root/usr/bin/sudo.away"
check_refused "no root rights on operator1@$server: the account is not root, and there is no sudo"
mv "$root/usr/bin/sudo.away" "$root/usr/bin/sudo"
source=root@$server

step "There is no room below /var"
on_server mount -t tmpfs -o size=32m,mode=755 small /var
check_refused "/var on root@$server has no room for the agent: 32768 KiB are free, 64 MiB are needed while the migration runs"
check_no "nothing lies there" on_server ls -A /var
on_server umount /var

step "Programs cannot be run from /var"
on_server sh -c 'mount --bind /var /var && mount -o remount,bind,noexec /var'
check_refused "programs cannot be run from /var on root@$server: it is mounted noexec. Remount it with exec for the migration (mount -o remount,exec /var)"
on_server umount -l /var

step "The wrong processor, too old a kernel"
cat >"$root/usr/local/bin/uname" <<'UNAME'
#!/bin/sh
[ "$1" != -m ] || exec echo aarch64
exec /bin/uname "$@"
UNAME
chmod 755 "$root/usr/local/bin/uname"
check_refused "root@$server has the processor 'aarch64': only x86_64 can be migrated"
sed -i 's/-m/-r/; s/aarch64/2.6.32-5-amd64/' "$root/usr/local/bin/uname"
check_refused "root@$server runs kernel 2.6.32-5-amd64: it must be 3.2 or newer"
rm "$root/usr/local/bin/uname"

step "A program is missing there"
mv "$root/usr/bin/gzip" "$root/usr/bin/gzip.away"
check_refused "root@$server lacks the program gzip"
mv "$root/usr/bin/gzip.away" "$root/usr/bin/gzip"

step "The server hangs: it takes the connection and says nothing"
lab freeze $server
before=$SECONDS
migrate
check_status 1
check_begins "qxmigrate: stage 'connect' failed: root@$server takes the connection, but does not answer: it hangs, or something else than sshd listens there"
check "it gave up within a minute" test $((SECONDS - before)) -le 60
lab thaw $server
check_rolled_back

step "Addresses that are none are refused before the server is met"
qxmigrate plan "$source" --ctid $ctid --ip 192.0.2.300/24 >"$out" 2>&1 && status=0 || status=$?
check_status 64
check_begins "qxmigrate: the address '192.0.2.300/24' is none"

step "None of these touched the services"
check_services_run
close_source
