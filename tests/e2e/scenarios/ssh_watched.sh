#!/usr/bin/env bash
# on a terminal one sees how far the copy is, and for how long services have been down
# shellcheck source=tests/e2e/ssh-lib.sh
. "$QX_E2E/ssh-lib.sh"

open_source
add_service_with_large_dump

step "Migrate on a terminal of 80 columns"
slow_source 1 30720
status=0
script -qefc "stty cols 80 && exec qxmigrate '$source' --ctid $ctid --duration 1 --hostname $server \
  --stop-service nginx --stop-service ticker --stop-service dumper" "$work/typescript" \
  </dev/null >/dev/null || status=$?
fast_source
check_status 0

step "What was shown in place"
# Each piece ends where it is erased.
awk -v RS='\r\033\\[K' '{ sub(/.*\n/, ""); if (RT != "") print }' "$work/typescript" >"$work/pieces"
shown() { grep -qE "$1" "$work/pieces"; }
check "there is much of it" test "$(wc -l <"$work/pieces")" -gt 20
check_equal "all of it has room on the line" 0 "$(awk 'length > 79' "$work/pieces" | wc -l)"
check "how far the first copy is, how fast, and how long it will take" \
  shown '^rSync  +[0-9.]+ MiB of [0-9.]+ [MG]iB, [0-9.]+ MiB/s, [0-9]+:[0-9]{2} left$'
check "it grows" test "$(grep -oE '^rSync  +[0-9.]+ MiB' "$work/pieces" | sort -u | wc -l)" -gt 3
check "what the second one copies, and the outage" \
  shown '^rSync2  +[0-9.]+ [KM]?i?B.*  services down 0:[0-9]{2}$'
check "the outage in other stages, too" shown '^tuneDstSrv .*  services down 0:[0-9]{2}$'
check_no "nothing where a password may be asked for" shown '^connect'
check_no "there is none before services are stopped" shown '^(lockVPS|rSync) .* services down'

step "What stays"
tr -d '\r' <"$work/typescript" | sed 's/.*\x1b\[K//' >"$work/stays"
check "what is done is green" grep -qF $'s  \e[32mdone\e[0m' "$work/stays"
sed 's/\x1b\[[0-9;]*m//g' "$work/stays" >"$out"
for stage in rSync stopServices rSync2 finish; do
  check "stage $stage was shown" stage_is_done "$stage"
done
check_says "Container $ctid is ready."
check "it tells what was copied" grep -qE '^  copied    [0-9.]+ [MG]iB in [0-9,]+ files' "$out"
check "and the outage" grep -qE '^  outage    .* so far; stopped on the server: nginx ticker dumper$' "$out"
check_says "  qxctl start $ctid         start it; before that, shut the server down if"
[ "$failures" = 0 ] || tail -n 30 "$work/pieces" "$out"
check_nothing_runs
start_services
qxctl destroy $ctid >/dev/null

step "For programs"
slow_source 1 81920
status=0
qxmigrate "$source" --ctid $ctid --duration 1 --hostname $server --json --verify \
  --stop-service nginx --stop-service ticker --stop-service dumper >"$out" 2>&1 || status=$?
fast_source
check_status 0
check "each line is an object; the first, the last and what is between are there" python3 - "$out" <<'END'
import json, sys
events = [json.loads(line) for line in open(sys.argv[1])]
names = [event["event"] for event in events]
assert names[0] == "hello" and events[0]["format"] == 1, events[0]
assert names[-1] == "end" and events[-1]["status"] == 0, events[-1]
assert 0 < events[-1]["outageSeconds"] < 300, events[-1]
assert events[names.index("plan")]["plan"]["verdict"] != "blocked"
assert events[names.index("verified")]["comparison"]["unexpected"] == 0
ended = [e["stage"] for e in events if e["event"] == "stageEnds" and e["result"] == 0]
assert ended.index("rSync") < ended.index("stopServices") < ended.index("rSync2"), ended
first = [e for e in events if e["event"] == "progress" and e["stage"] == "rSync"]
assert any(0 < e["copied"] < e["toCopy"] and e["perSecond"] > 0 for e in first), first
assert any("outageSeconds" in e for e in events if e["event"] == "progress"), names
END
[ "$failures" = 0 ] || tail -n 20 "$out"
check_nothing_runs
start_services
remove_service_with_large_dump
close_source
