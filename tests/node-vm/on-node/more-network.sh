#!/usr/bin/env bash
# a Debian system boots, privileged or not; addresses by hand and by DHCP, of both kinds
# shellcheck source=tests/node-vm/lib.sh
. /root/node-vm/lib.sh

remove 230 231
rules=$(nft list ruleset)

answers() { ping -qc 1 -W 10 "$1" >/dev/null; }
reaches() { inside "$1" ping -qc 1 -W 10 "$2" >/dev/null; }

step "Two systems"
check "make one with addresses of both kinds" make 230 OSTEMPLATE=debian-12 DISTRIBUTION=debian-12 \
  HOSTNAME=one.example.org IP_ADDRESS='"192.0.2.130/24 2001:db8:2::130/64"' \
  GATEWAY='"192.0.2.254 2001:db8:2::fe"' NAMESERVER=192.0.2.53 NUMPROC=400:400
check "make one that asks for its address" make 231 OSTEMPLATE=debian-12 DISTRIBUTION=debian-12 \
  HOSTNAME=two NETIF='"ifname=eth0,ip=dhcp"' UNPRIVILEGED=yes
dnsmasq --conf-file=/dev/null --port=0 --interface=qxbr0 --bind-interfaces \
  --dhcp-range=192.0.2.150,192.0.2.159,255.255.255.0,1h --dhcp-leasefile=$work/leases \
  --pid-file=$work/dnsmasq.pid --no-ping
check "start the first" quietly qxctl start 230
check "start the second" quietly qxctl start 231
check_systemd 230
check_systemd 231

step "By hand"
check_equal "its name" one "$(inside 230 hostname)"
check "it reaches the host" reaches 230 192.0.2.1
check "the host reaches it" answers 192.0.2.130
check "by IPv6 as well" answers 2001:db8:2::130
check "and from inside" reaches 230 2001:db8:2::1
check "beyond the host" reaches 230 192.0.2.254
check "gateways" test "$(inside 230 sh -c 'ip route show default; ip -6 route show default' |
  grep -cE 'via (192.0.2.254|2001:db8:2::fe)')" = 2
check "list shows both addresses" grep -qE '230.*192\.0\.2\.130.*2001:db8:2::130' <(qxctl list)

step "DHCP"
leased() { awk '{ print $3 }' $work/leases | grep -m 1 '^192\.0\.2\.15'; }
check "it has a lease" until_so 60 leased
check "which is its address" inside 231 sh -c "ip -4 address show eth0 | grep -qF $(leased || echo none)"
check "and answers" answers "$(leased || echo 0.0.0.0)"
check "list shows the address of an interface" grep -qE "231.*(dhcp|$(leased || echo none))" <(qxctl list)

step "Changed with the next start"
check "set" quietly qxctl set 230 IP_ADDRESS="192.0.2.131/24 2001:db8:2::131/64" HOSTNAME=other
check "restart" quietly qxctl restart 230
check_systemd 230
check "the new address answers" answers 192.0.2.131
check "the new one of IPv6, too" answers 2001:db8:2::131
check_equal "the new name" other "$(inside 230 hostname)"

step "Both are ended in an orderly way, and nothing else has changed"
inside 231 systemctl poweroff || true
check "the second powers itself off" until_so 600 eval '! grep -qs . /run/qx/231.init'
check "stop after it" quietly qxctl stop 231
check_nothing_mounted 231
began=$SECONDS
check "stop the first" quietly qxctl stop --timeout 600 230
check "by itself, it was not killed: $((SECONDS - began)) s" test $((SECONDS - began)) -lt 600
check_nothing_mounted 230
kill "$(cat $work/dnsmasq.pid)"
check_equal "the host's rules for packets are as they were" "$rules" "$(nft list ruleset)"
check_no "no interface of theirs is left" grep -E 'qx23[01]' /proc/net/dev
remove 230 231
