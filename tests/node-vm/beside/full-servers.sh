#!/usr/bin/env bash
# servers of four releases of Debian become containers here and start
# servers: bullseye:bullseye bookworm:bookworm trixie:trixie forky:forky
# shellcheck source=tests/node-vm/beside.sh
. "$QX_NODE_TESTS/beside.sh"

inside() { on_node qxctl exec "$ctid" "$@" </dev/null; }
is_up() { [[ $(inside systemctl is-system-running 2>/dev/null) =~ ^(running|degraded)$ ]]; }
has_title() { curl -sm 10 "http://$address/" | grep -q '<title>A server</title>'; }

ctid=160
for server in bullseye bookworm trixie forky; do
  ctid=$((ctid + 1))
  address=192.0.2.$ctid
  # One is privileged; forky's systemd could not run so.
  unprivileged=yes
  [ $server != bookworm ] || unprivileged=no
  step "$server becomes container $ctid (unprivileged: $unprivileged)"
  on_node sh -c "cp /etc/qx/qx.conf /etc/qx/qx.conf.kept
    echo UNPRIVILEGED=$unprivileged >>/etc/qx/qx.conf" </dev/null
  began=$SECONDS
  status=0
  on_node qxmigrate root@$server --ctid $ctid --hostname $server --ip $address/24 --ip 2001:db8:2::$ctid/64 \
    --nameserver 192.0.2.53 --duration 1 --stop-service nginx --stop-service ticker \
    </dev/null >"$work/out" 2>&1 || status=$?
  check_status 0
  [ "$status" = 0 ] || tail -n 20 "$work/out"
  printf '        it took %d s\n' $((SECONDS - began))
  check "start" on_node qxctl start $ctid </dev/null
  check "the boot ends" until_so 300 is_up
  check_equal "systemd is content" running "$(inside systemctl is-system-running 2>/dev/null || true)"
  check_no "no unit failed" inside systemctl list-units --failed --plain --no-legend --no-pager
  check "its root is what was asked for" on_node sh -c \
    "qxctl status $ctid | grep -q 'unprivileged  $unprivileged'" </dev/null
  check "nginx shows the server's page" until_so 60 has_title
  check "it answers by IPv6" until_so 30 ping -qc 1 -W 10 "2001:db8:2::$ctid"
  check "stop" on_node qxctl stop $ctid </dev/null
  check "destroy" on_node qxctl destroy $ctid </dev/null
  on_node mv /etc/qx/qx.conf.kept /etc/qx/qx.conf </dev/null
  line="$server on $QX_NODE_RELEASE:"
  printf '  %s %s\n' "$line" "$([ "$failures" = "${before:-0}" ] && echo runs || echo FAILS)"
  before=$failures
done
