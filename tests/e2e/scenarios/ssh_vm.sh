#!/usr/bin/env bash
# a machine with a kernel, a partition for /home and disk quotas of its own
# long
# servers: alpha:vm
# shellcheck source=tests/e2e/ssh-lib.sh
. "$QX_E2E/ssh-lib.sh"

nothing_arrived() { on_server test ! -e /var/qxagent.tmp; }

# told KIND: the limits of this kind that setquota was told, as qxquota lists them. Those
# of who owns nothing arrive only where a plan has asked the server for them.
told() {
  awk -v kind="$1" '$1 == "limits" && $2 == kind { print kind, $3, $4, $5, $6, $7 }' \
    "$QX_E2E/quotas/told" | sort -k2n
}
arrived() { awk -v kind="$1" '$1 == kind && NF == 10 { print kind, $2, $4, $5, $8, $9 }' "$work/table"; }
graces() { awk -v kind="$1" '$1 == kind && NF == 3 { print $2, $3 }' "$work/table"; }

step "The machine holds everything that a file system can hold, on both partitions"
lab put $server "$QX_E2E/curiosities.sh" "$QX_E2E/quotas/set" /tmp
# What an emulated processor encrypts should be little.
on_server bash /tmp/curiosities.sh '' 16M
on_server sh -c 'mkdir -p /home/operator1/letters && echo text >/home/operator1/letters/one &&
  chown -R operator1: /home/operator1 && setfattr -n user.note -v home /home/operator1/letters/one'
check_equal "/home is a partition" /dev/vdb "$(on_server findmnt -no SOURCE /home)"

step "Its administrator sets disk quotas"
lab exec $server /tmp/set / <"$QX_E2E/quotas/told"
# Of the partition that is migrated; others have their own.
on_server setquota --user 2001 9 9 9 9 /home
open_source

step "Migrate"
migrate --ip 192.0.2.101/24
check_status 0
check_says "Container $ctid is ready."
check_nothing_runs

step "The container's quotas are what setquota was told"
qxquota stat $ctid -t >"$work/table" || true
check "some limits were told" test "$(told user | wc -l)" -gt 5
check_equal "users" "$(told user)" "$(arrived user)"
check_equal "groups" "$(told group)" "$(arrived group)"
# Both kinds get the users' grace periods.
check_equal "grace periods of users" "5400 259200" "$(graces user)"
check_equal "grace periods of groups" "5400 259200" "$(graces group)"

step "The copy is the machine"
view=$(lab view $server)
check "the other partition came along" cmp "$view/home/operator1/letters/one" \
  "$(container_root)/home/operator1/letters/one"
check "all differences are expected" "$QX_TREEDIFF" --expect "$QX_E2E/expect/running-server" \
  --expect "$QX_E2E/expect/debian-container" --expect "$QX_E2E/expect/virtual-machine" \
  "$view" "$(container_root)"
check "the disks are not the container's business" grep -q '^#.*LABEL=root' \
  "$(container_root)/etc/fstab"

step "The machine is as it was"
check "nginx is stopped" until_so 5 eval '! service_runs nginx'
check "cron runs" service_runs cron
start_services
close_source

step "As a node, such a machine enforces what qxquota sets"
tools=$work/node-tools
mkdir -p "$tools"
cp "$(command -v qxctl)" "$(command -v mkqxfs)" "$(command -v qxquota)" "$tools"
strip "$tools"/*
# What the machine lacks of their libraries.
ldd "$(command -v qxctl)" | awk '$3 ~ /^\// { print $3 }' | grep -vE '/lib(c|m)\.so' |
  xargs -I{} cp -L {} "$tools"
lab put $server "$tools" "$QX_E2E/quotas/node" /tmp
check "all of it" on_server bash /tmp/node /tmp/node-tools
