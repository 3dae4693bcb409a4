#!/usr/bin/env bash
# a host that boots cleans what a migration left that it had interrupted
# shellcheck source=tests/e2e/ssh-lib.sh
. "$QX_E2E/ssh-lib.sh"

# The node of the lab has no init of its own, so the server plays the host that boots.
root=$(lab root $server)
units=/usr/lib/systemd/system

# with_libraries PROGRAM...: puts them onto the server, with what they load.
with_libraries() {
  local file
  for file in "$@" $(ldd "$@" | awk '$3 ~ /^\// { print $3 }' | sort -u); do
    [ -e "$root$file" ] || { mkdir -p "$root${file%/*}" && cp -L "$file" "$root$file"; }
  done
}

# Who asks while it goes down may be left without an answer.
# Its group: an attaching program waits for ever for one that died as it went down.
asked() { timeout 10 lab exec $server "$@" </dev/null 2>/dev/null; }
up() { asked systemctl is-active --quiet multi-user.target; }
has_cleaned() { asked systemctl show -P ExecMainExitTimestamp qxmigrate-clean | grep -q .; }

step "A migration is killed"
open_source
slow_source 1 20000
begin_migration
check "the first copy runs" until_copying 1
kill -KILL "$migration"
end_migration
fast_source
check "the journal says so" grep -q interrupted <(qxmigrate list)

step "The host of its container has a unit that cleans at boot"
with_libraries /usr/local/bin/qxmigrate /usr/sbin/qxctl
mkdir -p "$root/etc/sysconfig" "$root/etc/qx"
cp -r /etc/sysconfig/qx-scripts "$root/etc/sysconfig/"
cp -r /etc/qx/. "$root/etc/qx/"
cp $units/qxmigrate-clean.service $units/qx-containers.service "$root$units/"
install -d -m 700 "$root/var/lib/qx/migrations"
cp -p /var/lib/qx/migrations/*.json "$root/var/lib/qx/migrations/"
mkdir -p "$root$private/fs"
cp -r $private/fs/etc "$root$private/fs/"
# What was interrupted by the loss of power was of another boot.
sed -i 's/"boot_id": "[^"]*"/"boot_id": "11111111-2222-3333-4444-555555555555"/' \
  "$root"/var/lib/qx/migrations/*.json
on_server systemctl daemon-reload
on_server systemctl --quiet enable qxmigrate-clean qx-containers
# The manual's pages are not brought there.
check "systemd finds nothing wrong in the units" on_server systemd-analyze verify --man=no \
  qxmigrate-clean.service qx-containers.service

step "It boots"
asked systemctl reboot || true
check "it is down" until_so 30 eval '! has_cleaned'
check "the unit has run" until_so 60 has_cleaned
check "the host is up" until_so 60 up
on_server journalctl -b --no-pager -o cat -u qxmigrate-clean -u qx-containers >"$work/said"
sed 's/^/    | /' "$work/said"
check "it said what it did" grep -qx "  Container $ctid was removed." "$work/said"
check "the journal says so" grep -q ' cleaned ' <(on_server qxmigrate list)
check "the private area is gone" test ! -e "$root$private"
check "so is the configuration" test ! -e "$root/etc/sysconfig/qx-scripts/$ctid.conf"
check "containers were started after it" eval 'sed -n "/Finished qxmigrate-clean/,\$p" "$work/said" |
  grep -q "Starting qx-containers"'
check "on the node it is cleaned by hand" qxmigrate clean $ctid
check_rolled_back
