#!/usr/bin/env bash
# a migration is compared with its server, file by file, at its end and later
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"

step "The server holds everything that a file system can hold"
bash "$QX_E2E/curiosities.sh" "$(lab root $server)"
open_source

step "A migration that verifies itself"
# With users that no unprivileged container has.
echo 'UNPRIVILEGED="no"' >"$work/config"
migrate_measured --config "$work/config" --ip 192.0.2.101/24 --verify
check_status 0
check "stage verify was shown" stage_is_done verify
check_says "There are no unexpected differences."
check_says "Container $ctid is ready."

verify() {
  status=0
  qxmigrate verify $ctid "$@" >"$out" 2>&1 || status=$?
  sed 's/^/    | /' "$out"
}

step "Later"
www=$(lab root $server)/srv/www
touch -r "$www" "$work/www"
echo new >"$www/later"
verify --all
rm "$www/later"
touch -r "$work/www" "$www"
check_status 0
check "adapted files have a reason" grep -q '^  /etc/hosts: .*(adapted to a container: rewritten)$' "$out"
check "what the server wrote since has one" grep -qFx \
  '  /srv/www/later: missing: a file (changed on the server since it was copied)' "$out"
check_no "nothing is mounted" grep -F "/var/lib/qx/root/$ctid" /proc/mounts

step "What was changed in the container since is excused, and said"
tree=$(container_root)
# The journal's times are whole seconds, and all this may take less than one.
sleep 1
printf x | dd of="$tree/usr/bin/head" bs=1 seek=100 conv=notrunc 2>/dev/null
touch -r "$(lab root $server)/usr/bin/head" "$tree/usr/bin/head"
setfattr -n user.new -v 1 "$tree/usr/bin/tail"
rm "$tree/usr/bin/cut"
echo more >"$tree/opt/added"
verify --all
check_status 0
check "a file with other bytes" \
  grep -q '^  /usr/bin/head: content: other bytes (changed in the container since)$' "$out"

step "The same, from before the migration's end, is not"
journal=$(echo /var/lib/qx/migrations/$ctid-*.json)
sed -i 's/"updated": *"20/"updated": "21/' "$journal"
verify
check_status 1
for line in '/usr/bin/head: content: other bytes' '/usr/bin/cut: missing: a file' \
  '/usr/bin/tail: attributes: user.new, not none, or other values' '/opt/added: added: a file'; do
  check "says: $line" grep -qFx "  $line" "$out"
done
check "and counts them" grep -qE '^[0-9]+ unexpected differences:$' "$out"
status=0
qxmigrate verify $ctid --json >"$work/found.json" || status=$?
check_status 1
check "in JSON as well" python3 -c '
import json, sys
found = json.load(open(sys.argv[1]))
unexpected = [one for one in found["differences"] if "reason" not in one]
assert len(unexpected) == found["unexpected"] >= 4, found["unexpected"]
assert any(one["path"] == "/usr/bin/cut" and one["aspect"] == "missing" for one in unexpected)
assert found["files"] > 1000 and found["bytes"] > 1000000
' "$work/found.json"

step "Nothing is compared that cannot be"
check "an id without a container" grep -q 'container 999 does not exist' \
  <(qxmigrate verify 999 2>&1)
status=0
qxmigrate verify $ctid unix:/nowhere >"$out" 2>&1 || status=$?
check_status 3
cp "$journal" "$work/journal"
sed -i -E 's/("machine_id": *")[0-9a-f]{4}/\10000/' "$journal"
verify
check_status 3
check "another server is refused" grep -q 'is not the one that container 101 was made from' "$out"
cp "$work/journal" "$journal"

step "A server that cannot be reached, and one that can"
lab cut $server
if [ "${QX_E2E_TRANSPORT:-unix}" = unix ]; then kill_agent; fi
status=0
qxmigrate verify $ctid --ssh-option ConnectTimeout=3 >"$out" 2>&1 || status=$?
check_status 3
lab join $server
renew_source
verify
check_status 1
close_source
