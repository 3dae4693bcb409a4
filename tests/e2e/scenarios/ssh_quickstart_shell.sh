#!/usr/bin/env bash
# what the quick start tells people to type works, in the order in which it stands
# servers: web
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"
server=web
show=$QX_E2E/show

step "The shell, with every command typed in"
commands=$work/commands
bash "$show" --commands | sed 's/ *#.*//' >"$commands"
check "there are commands" test "$(wc -l <"$commands")" -ge 8
# Each tells its end. They are read line by line, and must not eat the next ones.
awk '{ printf "echo \"### %s\"; { %s; } </dev/null; echo \"### status $?\"\n", $0, $0 }' \
  "$commands" >"$work/input"
status=0
bash "$show" --shell <"$work/input" >"$work/shell.out" 2>&1 || status=$?
sed 's/^/    | /' "$work/shell.out"
check_status 0
check_equal "every command came to its end" "$(wc -l <"$commands")" \
  "$(grep -c '^### status' "$work/shell.out")"
check_equal "and each with status 0" "$(wc -l <"$commands")" \
  "$(grep -c '^### status 0$' "$work/shell.out")"
check "the container was listed" grep -q '^ *101  running ' "$work/shell.out"
check "nginx was running inside" grep -q 'Active: active (running)' "$work/shell.out"
check "the page came over the network" grep -q '<title>A server</title>' "$work/shell.out"
check_equal "no line of ours is wider than 80 columns" "" \
  "$(bash "$show" --commands | awk 'length > 78')"

step "The last of them removed the container"
check_rolled_back
