#!/usr/bin/env bash
# the plan comes first, touches nothing, and its limits become the container's
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"
open_source
page=$work/plan.out

# plan [OPTION...]: sets $status.
plan() {
  status=0
  qxmigrate plan "$source" --ctid $ctid --duration 1 "$@" >"$page" 2>&1 || status=$?
  sed 's/^/    | /' "$page"
}
# planned FILTER: a value of the JSON page.
planned() { python3 -c 'import json,sys; p=json.load(open(sys.argv[1])); print(eval(sys.argv[2]))' "$page" "$1"; }

step "A plan"
plan --stop-service nginx --ip 192.0.2.101/24 --diskspace 4194304:4194304 --diskinodes 200000:200000
check_status 0
check "the verdict is ready" grep -qx 'Verdict: ready' "$page"
check "the distribution was found out" grep -q '^  distribution *debian-12$' "$page"
check_equal "no line is wider than 80 columns" "" "$(awk 'length > 80' "$page")"
check "nothing was made" test ! -e "$private"

step "The same for programs"
plan --json --ip 192.0.2.101/24 --diskspace 4194304:4194304 --diskinodes 200000:200000
check_status 0
check_equal "verdict" ready "$(planned 'p["verdict"]')"
check_equal "host name" $server "$(planned 'p["configuration"]["HOSTNAME"]')"
check "all of the server's files were counted" test "$(planned 'p["copy"]["bytes"]')" -gt 100000000

step "What blocks"
plan --stop-service no-such --ip 192.0.2.101/24
check_status 2
check "the reason is told" grep -q '^BLOCKED  Service no-such has no script' "$page"
plan --distribution fancix-3
check_status 2
check "the reason is told" grep -q '^BLOCKED  The node has no script for fancix-3' "$page"
status=0
qxmigrate "$source" --ctid $ctid --duration 0 --distribution fancix-3 >"$page" 2>&1 || status=$?
check_status 2
check "the migration touched nothing" test ! -e "$private"

step "A wrong command line is told apart"
plan --no-such-option
check_status 64

step "Measure, edit, migrate with the values"
qxmigrate measure "$source" --duration 1 --output "$work/limits.conf" >/dev/null
sed -i 's/^NUMPROC=.*/NUMPROC="321:321"/' "$work/limits.conf"
status=0
qxmigrate "$source" --ctid $ctid --duration 0 --config "$work/limits.conf" --ip 192.0.2.101/24 \
  >"$page" 2>&1 || status=$?
sed 's/^/    | /' "$page"
check_status 0
check "qxctl shows the edited limit" grep -q 'NUMPROC: cgroup.*pids.max = 321$' <(qxctl status $ctid)
memory=$(sed -n 's/^SLMMEMORYLIMIT="\([0-9]*\):.*/\1/p; s/^SLMMEMORYLIMIT="\([0-9]*\)"$/\1/p' "$work/limits.conf")
check "and the computed memory limit" grep -q "SLMMEMORYLIMIT: cgroup.* = $memory\$" <(qxctl status $ctid)

step "The id and the address are taken now"
plan --ip 192.0.2.101/24
check_status 2
check "the id" grep -q "^BLOCKED  Container $ctid exists" "$page"
ctid=102
plan --ip 192.0.2.101/24
check_status 2
check "the address" grep -q '^BLOCKED  Address 192.0.2.101 is in use by container 101.$' "$page"

close_source
