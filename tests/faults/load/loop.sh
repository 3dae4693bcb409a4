#!/usr/bin/env bash
# small migrations, good ones and disturbed ones, one after the other for so many seconds
# number: 1800
# servers: alpha
#
# With a build of a sanitizer (--build build/asan, build/tsan) a report of it fails the test.
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"

reports=/tmp/sanitizer
mkdir -p $reports
export ASAN_OPTIONS=log_path=$reports/node TSAN_OPTIONS=log_path=$reports/node:exitcode=0
root=$(lab root $server)
# What a sanitizer's agent needs and the server lacks; what a release's does is there.
ldd "$(command -v qxmigrate)" | awk '$3 ~ /lib(asan|tsan|ubsan)/ { print $3 }' |
  xargs -r -I{} cp -L {} "$root/usr/lib/x86_64-linux-gnu/"

# Small: most of the system is left out.
small=(--exclude '/usr/share/*' --exclude '/usr/lib/python3*' --exclude '/var/lib/dpkg/*'
  --exclude '/var/cache/*' --exclude '/usr/lib/modules/*' --exclude '/boot/*')

# of_the_agent COMMAND: what it prints on the server, $1 being the agent's folder in /proc.
of_the_agent() { on_server sh -c "$1" sh "/proc/$(lab agent pid $server)"; }

# What one has more of when something was left, as "NAME NUMBER". The agent on the server
# serves all of the migrations.
belongings() {
  # shellcheck disable=SC2016
  echo "descriptors-of-the-agent $(of_the_agent 'ls "$1/fd" | wc -l')"
  # shellcheck disable=SC2016
  echo "threads-of-the-agent $(of_the_agent 'ls "$1/task" | wc -l')"
  echo "processes-of-the-server $(lab processes $server | wc -l)"
  echo "processes-of-the-node $(pgrep -c -f 'qxmigrate|rsync|qxctl' || true)"
  echo "mounts $(wc -l </proc/self/mounts)"
  echo "loop-devices $(losetup -a | grep -c /var/lib/qx || true)"
  echo "files-in-tmp $(find /tmp -mindepth 1 -not -path "$work*" -not -path "$reports*" | wc -l)"
  echo "files-in-run $(find /run -xdev -mindepth 1 | wc -l)"
  echo "areas $(find /var/lib/qx -mindepth 2 -maxdepth 2 -not -path '*/migrations/*' | wc -l)"
  echo "configurations $(find /etc/sysconfig/qx-scripts -maxdepth 1 -name '*.conf' | wc -l)"
}

tidy_up() {
  qxctl destroy $ctid >/dev/null 2>&1 || true
  on_server /etc/init.d/nginx start >/dev/null
  on_server /etc/init.d/ticker start >/dev/null
}

# Good ones, and one that a signal ends somewhere, by turns.
one_round() {
  migrate "${small[@]}" >/dev/null
  [ "$status" = 0 ] || { echo "it ends with $status: $(tail -n 1 "$out")" && return; }
  tidy_up
  begin_migration "${small[@]}"
  sleep "$((RANDOM % 5)).$((RANDOM % 10))"
  kill -TERM "$migration" 2>/dev/null || true
  end_migration >/dev/null
  case $status in 0 | 130) ;; *) echo "a cancelled one ends with $status: $(tail -n 1 "$out")" ;; esac
  tidy_up
}

open_source
one_round >/dev/null
belongings >"$work/before"
rounds=0
end=$((SECONDS + QX_NUMBER))
while [ $SECONDS -lt $end ]; do
  one_round >>"$work/complaints"
  rounds=$((rounds + 1))
done
# A session's last breath.
until_so 20 eval 'belongings >"$work/after"; cmp -s "$work/before" "$work/after"' || true
printf '        %d rounds in %d s; the agent on the server has %s KiB of memory\n' "$rounds" "$QX_NUMBER" \
  "$(of_the_agent 'sed -n "s/^VmRSS:[^0-9]*\([0-9]*\) kB/\1/p" "$1/status"')"
check "it went round" test "$rounds" -gt 0
check "the agent was looked at" grep -Eq '^descriptors-of-the-agent [1-9]' "$work/before"
check_no "every one ended as it should" cat "$work/complaints"
check_no "nothing is left of them" diff "$work/before" "$work/after"
check "journals are pruned" test "$(qxmigrate list | grep -c "^$ctid-")" -le 20
close_source
check_no "no sanitizer reports anything" eval 'cat $reports/* 2>/dev/null'
