#!/usr/bin/env bash
# files come, go, grow and shrink while they are copied
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"

root=$(lab root $server)
mkdir "$root/srv/busy"
cat >"$root/usr/local/sbin/churn" <<'END'
#!/bin/sh
# Never leaves a directory of many files alone.
cd /srv/busy || exit 1
number=0
while :; do
  number=$((number + 1))
  mkdir -p "d$((number % 50))"
  for name in a b c d e f g h; do
    echo $number >"d$((number % 50))/$name$number"
  done
  rm -rf "d$(((number + 7) % 50))"
  mv "d$((number % 50))/a$number" "moved$((number % 20))"
  head -c $((number % 7 * 10000)) /dev/zero >grows-and-shrinks
  ln -sf "d$number" link
done
END
chmod 755 "$root/usr/local/sbin/churn"
open_source
on_server sh -c 'setsid /usr/local/sbin/churn </dev/null >/dev/null 2>&1 & echo $! >/run/churn.pid'
check "it is busy" until_so 10 eval '[ "$(find "$root/srv/busy" | wc -l)" -gt 100 ]'

# What stock rsync says of it, before the product's rsync does. It is closed in where it
# can write to the copy alone.
mv /usr/bin/rsync /usr/bin/rsync.real
cat >/usr/bin/rsync <<'END'
#!/bin/sh
status=0
/usr/bin/rsync.real "$@" || status=$?
for word; do
  case $word in /var/lib/qx/*) echo $status >>"$word/rsync-statuses" ;; esac
done
exit $status
END
chmod 755 /usr/bin/rsync

for ctid in 101 102 103 104 105; do
  private=/var/lib/qx/private/$ctid
  export QX_RSYNC_ENGINE=stock
  [ $ctid -lt 104 ] || unset QX_RSYNC_ENGINE
  step "Attempt $ctid, by ${QX_RSYNC_ENGINE:-our own}"
  migrate --exclude /rsync-statuses
  check_status 0
  if [ $ctid -lt 104 ]; then
    cat "$(container_root)/rsync-statuses" >>"$work/statuses"
  else
    check_says "  copied by the engine: everything"
  fi
  on_server /etc/init.d/nginx start >/dev/null
  on_server /etc/init.d/ticker start >/dev/null
done

check "files did vanish under rsync's eyes" grep -qxE '23|24' "$work/statuses"
printf '        rsync ended with: %s\n' "$(paste -sd' ' "$work/statuses")"

step "The rest of the copy is true"
churn=$(cat "$root/run/churn.pid" 2>/dev/null || on_server cat /run/churn.pid)
on_server kill "$churn"
check_is_the_server --expect <(cat <<'END'
/rsync-statuses        any   the test's own
/srv/busy              time  it never stops
/srv/busy/**           any   it never stops
/var/lib/ticker        time  it was started again
/var/lib/ticker/**     any   it was started again
END
)
