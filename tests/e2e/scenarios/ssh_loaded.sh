#!/usr/bin/env bash
# databases, mail, names and web under load: what listened on the server listens in the container
# servers: alpha:loaded
# shellcheck source=tests/e2e/ssh-lib.sh
. "$QX_E2E/ssh-lib.sh"

distribution=debian-11
address=$(lab address $server)
in_container() { qxctl exec $ctid "$@" </dev/null; }
# listeners COMMAND...: protocol, address and port of all that is waited on there, but
# for addresses that come with the card.
listeners() { "$@" ss -Hlntu 2>/dev/null </dev/null | awk '$5 !~ /^\[fe80/ { print $1, $5 }' | sort -u; }
quiet_server() { [ "$(listeners on_server)" = "$(sleep 2 && listeners on_server)" ]; }

step "The server is busy"
memory() {
  on_server sh -c 'cat /proc/[0-9]*/smaps_rollup 2>/dev/null || true' |
    awk '/^Private_Dirty/ { sum += $2 } END { printf "%d", sum / 1024 }'
}
check "all its services run" until_so 120 quiet_server
listeners on_server >"$work/listening.server"
for port in 53 5432 3306 6379 25 8080 11211 80 22; do
  check "somebody listens on port $port" grep -q ":$port\$" "$work/listening.server"
done
check "BIND listens on the server's own address" grep -qxF "tcp $address:53" "$work/listening.server"
found=$(memory)
check "more than 2 GiB of memory are private: $found MiB" test "$found" -gt 2048
open_source

step "Its memory is measured for what it is"
status=0
qxmigrate measure root@$server --duration 1 --output "$work/measured.conf" >"$out" 2>&1 </dev/null || status=$?
check_status 0
limit=$(sed -n 's/^SLMMEMORYLIMIT="*[^:]*:\([0-9]*\).*/\1/p' "$work/measured.conf")
check "the limit is more than 2 GiB: $limit" test "${limit:-0}" -gt 2147483648

step "Migrate"
printf 'NUMPROC="1000:1000"\nSLMMEMORYLIMIT="8589934592:8589934592"\n' >"$work/limits.conf"
services=(--stop-service ticker)
for name in nginx bind9 named postgresql mariadb mysql redis-server postfix apache2 memcached; do
  if on_server test -x "/etc/init.d/$name"; then services+=(--stop-service "$name"); fi
done
status=0
qxmigrate root@$server --ctid $ctid --no-measure --distribution $distribution --hostname $server \
  --ip "$address/24" --config "$work/limits.conf" "${services[@]}" >"$out" 2>&1 </dev/null || status=$?
check_status 0
[ "$status" = 0 ] || tail -n 20 "$out"

step "The container takes the server's place"
lab cut $server
check "start" qxctl start $ctid
boot_is_over() { [[ $(in_container systemctl is-system-running 2>/dev/null) =~ ^(running|degraded)$ ]]; }
check "the boot ends" until_so 180 boot_is_over
check_no "no unit failed" in_container systemctl list-units --failed --plain --no-legend --no-pager
same_listen() {
  listeners in_container >"$work/listening.container"
  [ -z "$(comm -23 "$work/listening.server" "$work/listening.container")" ]
}
check "every socket that listened on the server listens in the container" until_so 60 same_listen
comm -23 "$work/listening.server" "$work/listening.container" | sed 's/^/        missing: /'
check "BIND answers there" eval "in_container dig +short +time=5 +tries=2 @$address localhost | grep -qx 127.0.0.1"
check "stop" qxctl stop $ctid
check "destroy" qxctl destroy $ctid
lab join $server
