#!/usr/bin/env bash
# a whole migration over ssh of a machine with disk quotas; the container runs, and they hold
# servers: alpha:vm
# shellcheck source=tests/node-vm/beside.sh
. "$QX_NODE_TESTS/beside.sh"

# Another test does the same with another server.
server=${server:-alpha}
ctid=101

told() {
  awk -v kind="$1" '($1 == "limits" || $1 == "idle") && $2 == kind { print kind, $3, $4, $5, $6, $7 }' \
    "$QX_E2E/quotas/told" | sort -k2n
}
arrived() { awk -v kind="$1" '$1 == kind && NF == 10 { print kind, $2, $4, $5, $8, $9 }' "$work/table"; }
graces() { awk -v kind="$1" '$1 == kind && NF == 3 { print $2, $3 }' "$work/table"; }
inside() { on_node qxctl exec $ctid "$@" </dev/null; }

step "The server's administrator has set quotas"
lab put $server "$QX_E2E/quotas/set" /tmp
lab exec $server /tmp/set / <"$QX_E2E/quotas/told"

# Some of the owners have ids that an unprivileged container cannot hold.
step "The host keeps privileged containers in images and has a pool of addresses"
on_node sh -c 'cp /etc/qx/qx.conf /etc/qx/qx.conf.kept
  printf "STORAGE=ext4\nUNPRIVILEGED=no\nIP_POOL=192.0.2.171-192.0.2.179/24\nGATEWAY=192.0.2.254\n" >>/etc/qx/qx.conf'

step "Plan"
status=0
on_node qxmigrate plan root@$server --ctid $ctid --ip auto --duration 1 \
  --stop-service nginx --stop-service ticker </dev/null >"$work/plan" 2>&1 || status=$?
check "a plan is made, status $status" test "$status" -le 1
counted() { awk -v kind="$1" '($1 == "limits" || $1 == "idle") && $2 == kind' "$QX_E2E/quotas/told" | wc -l; }
for kind in user group; do
  check "it counts the limits of ${kind}s" grep -q "of ${kind}s  *$(counted $kind) with limits" "$work/plan"
done
check "and names those of owners that own nothing" grep -q 'limits of 1 user and' "$work/plan"
[ "$failures" = 0 ] || sed 's/^/        /' "$work/plan"

step "Migrate"
began=$SECONDS
status=0
on_node qxmigrate root@$server --ctid $ctid --hostname $server --ip auto --nameserver 192.0.2.53 \
  --duration 1 --stop-service nginx --stop-service ticker </dev/null >"$work/out" 2>&1 || status=$?
check_status 0
[ "$status" = 0 ] || tail -n 40 "$work/out"
printf '        it took %d s\n' $((SECONDS - began))

step "The container's quotas are what setquota was told"
on_node qxctl mount $ctid </dev/null >/dev/null
on_node qxquota stat $ctid -t </dev/null >"$work/table" || true
on_node qxctl umount $ctid </dev/null >/dev/null
check "some limits were told" test "$(told user | wc -l)" -gt 5
check_equal "users" "$(told user)" "$(arrived user)"
check_equal "groups" "$(told group)" "$(arrived group)"
check_equal "grace periods of users" "5400 259200" "$(graces user)"

step "It runs"
check "start" on_node qxctl start $ctid
free=$(inside df -k / | awk 'NR == 2 { print 100 * $4 / $2 }' || true)
check "a fifth of its image is free: ${free%.*} %" test "${free%.*}" -ge 20
is_up() { [[ $(inside systemctl is-system-running 2>/dev/null) =~ ^(running|degraded)$ ]]; }
check "the boot ends" until_so 300 is_up
check_equal "systemd is content" running "$(inside systemctl is-system-running 2>/dev/null || true)"
check_no "no unit failed" inside systemctl list-units --failed --plain --no-legend --no-pager
address=$(on_node qxctl status $ctid </dev/null | grep -oE '192\.0\.2\.17[1-9]' | head -n 1 || true)
check "status names its address of the pool: $address" test -n "$address"
has_title() { curl -sm 10 "http://$address/" | grep -q '<title>A server</title>'; }
check "nginx shows the server's page there" until_so 60 has_title
check "sshd answers there" until_so 30 eval "(exec 3<>/dev/tcp/$address/22) 2>/dev/null"
write_as() { inside setpriv --reuid "$1" --regid "$1" --clear-groups dd if=/dev/zero "of=/var/tmp/$1" bs=1K "count=$2" status=none; }
check "a user's limit holds" eval '! write_as 2001 2500 2>/dev/null'
check "others have none" write_as 2009 2500
check "the limits are enforced" on_node qxquota stat $ctid >/dev/null

step "Stop and remove"
check "stop" on_node qxctl stop $ctid
check "destroy" on_node qxctl destroy $ctid
on_node mv /etc/qx/qx.conf.kept /etc/qx/qx.conf
check "the server's services were stopped" eval "! lab exec $server systemctl is-active --quiet nginx </dev/null"
lab exec $server systemctl start nginx ticker </dev/null
